#include "cli/areascommands.h"

#include "cli/exitcode.h"

#include <cmath>

namespace
{

const char kDecimetreNote[] =
    "Areas are compared as the wire carries them: in decimetres, after the\n"
    "window's encoding of metres, which truncates toward zero and forms the far\n"
    "corner as a sum (so 1.25 m and 1.2 m are the same, and a corner can be sent\n"
    "one decimetre short).";

// "X,Y" in metres.
bool parseCorner(const QString &text, QPointF *corner)
{
    const QStringList parts = text.split(',');
    if (parts.size() != 2)
        return false;
    bool okX = false;
    bool okY = false;
    const double x = parts.at(0).trimmed().toDouble(&okX);
    const double y = parts.at(1).trimmed().toDouble(&okY);
    if (!okX || !okY || !std::isfinite(x) || !std::isfinite(y))
        return false;
    *corner = QPointF(x, y);
    return true;
}

} // namespace

// --- shared ---------------------------------------------------------------

QStringList AreasCommand::differences(const AreaFile &file, const ModuleAreas &held)
{
    QStringList lines;
    if (file.hasDisplay && file.display != held.display)
        lines.append(
            QString("display: the file says %1, the module holds %2")
                .arg(AreaFile::displayName(file.display), AreaFile::displayName(held.display)));
    for (const AreaEntry &entry : file.areas) {
        const WireArea want = WireArea::expected(entry);
        const WireArea have = held.areas[size_t(entry.number - 1)];
        if (want != have)
            lines.append(QString("area %1: the file says %2, the module holds %3")
                             .arg(entry.number)
                             .arg(want.text(), have.text()));
    }
    return lines;
}

int AreasCommand::compareWithModule(CliContext &context, ModuleSession &session,
                                    const AreaFile &file, bool *same)
{
    ModuleAreas held;
    const int code = readModule(context, session, &held);
    if (code != ExitDone)
        return code;
    const QStringList diff = differences(file, held);
    *same = diff.isEmpty();
    if (!*same)
        context.print(diff.join('\n') + '\n');
    return ExitDone;
}

int AreasCommand::apply(CliContext &context, ModuleSession &session, const AreaEntry &entry)
{
    QByteArray answer;
    if (entry.kind == AreaEntry::Unset) {
        const int code = ask(context, session, RepealArea, QByteArray(1, char(entry.number)),
                             QString("cancelling area %1").arg(entry.number), &answer);
        if (code != ExitDone)
            return code;
        const frameformat::RepealAreaResponse r = frameformat::decodeRepealAreaResponse(answer);
        if (!r.ok)
            return context.fail(
                ExitRefused,
                QString("the module refused to cancel area %1 (NG)").arg(entry.number));
        return ExitDone;
    }
    const int code = ask(context, session, SetArea, WireArea::requestPayload(entry),
                         QString("setting area %1").arg(entry.number), &answer);
    if (code != ExitDone)
        return code;
    const frameformat::SetAreaResponse r = frameformat::decodeSetAreaResponse(answer);
    if (!r.ok)
        return context.fail(ExitRefused,
                            QString("the module refused to set area %1 (NG)").arg(entry.number));
    return ExitDone;
}

int AreasCommand::loadFile(CliContext &context, AreaFile *file)
{
    const QStringList args = context.parser.positionalArguments();
    if (args.isEmpty())
        return context.usageError("the area file is missing");
    const int more = noMoreArguments(context, 1);
    if (more != ExitDone)
        return more;
    QString why;
    if (!AreaFile::load(args.first(), file, &why))
        return context.fail(ExitUsage, why + " (nothing was sent)");
    return ExitDone;
}

int AreasCommand::areaNumber(CliContext &context, int *number)
{
    const QStringList args = context.parser.positionalArguments();
    if (args.isEmpty())
        return context.usageError("the area number (1, 2 or 3) is missing");
    const int more = noMoreArguments(context, 1);
    if (more != ExitDone)
        return more;
    bool ok = false;
    *number = args.first().toInt(&ok);
    if (!ok || *number < 1 || *number > 3)
        return context.usageError(
            QString("\"%1\" is not an area number (1, 2 or 3)").arg(args.first()));
    return ExitDone;
}

// --- backup ---------------------------------------------------------------

AreasBackupCommand::AreasBackupCommand()
    : AreasCommand(
          {"areas backup", "save the module's areas and display type to an area file", "-o FILE",
           "Reads the display type and the three areas and writes them as an area file\n"
           "(see the README); -o - writes to standard output. The file is replaced whole\n"
           "or not at all. Where the window's encoding would send a corner one decimetre\n"
           "short, the corners are written a few thousandths of a metre further from zero,\n"
           "so that restoring the file puts back exactly what the module held."})
{
}

void AreasBackupCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({{"o", "output"}, "The area file to write (- for standard output).", "FILE"});
}

int AreasBackupCommand::checkArguments(CliContext &context)
{
    if (!context.parser.isSet("output") || context.parser.value("output").isEmpty())
        return context.usageError("-o FILE is required (the area file to write)");
    return noMoreArguments(context, 0);
}

int AreasBackupCommand::runWith(CliContext &context, ModuleSession &session)
{
    ModuleAreas held;
    const int code = readModule(context, session, &held);
    if (code != ExitDone)
        return code;
    AreaFile file;
    file.hasDisplay = true;
    file.display = held.display;
    for (int k = 0; k < 3; ++k) {
        const WireArea &a = held.areas[size_t(k)];
        if (a.defined() && a.type != 0 && a.type != 1) {
            context.note(QString("area %1 has type %2, which an area file cannot hold; "
                                 "written as unset")
                             .arg(k + 1)
                             .arg(a.type));
            file.areas.append(WireArea::toEntry(k + 1, WireArea()));
            continue;
        }
        bool exact = true;
        file.areas.append(WireArea::toEntry(k + 1, a, &exact));
        if (!exact)
            context.note(QString("area %1 (%2) cannot be written so that a restore gives the "
                                 "same decimetres")
                             .arg(k + 1)
                             .arg(a.text()));
    }
    QString why;
    if (!file.save(context.parser.value("output"), &why))
        return context.fail(ExitUsage, why);
    return ExitDone;
}

// --- restore and verify ---------------------------------------------------

void AreasFileCommand::addOptions(QCommandLineParser &parser)
{
    parser.addPositionalArgument("FILE", fileHelp);
}

int AreasFileCommand::checkArguments(CliContext &context)
{
    return loadFile(context, &file);
}

// --- restore --------------------------------------------------------------

// The paragraphs of orv-cli help areas restore.
static QString restoreDetails()
{
    return QStringLiteral(
               "Sets the display type when the file has one, then each area the file lists\n"
               "(an unset area is cancelled), waiting for each answer; areas the file leaves\n"
               "out are not touched. Then reads everything back and compares: exit code 1\n"
               "and the differences when the module refused or holds something else.\n"
               "A file that cannot be read or is out of range sends nothing (exit code 2).\n\n") +
           QLatin1String(kDecimetreNote);
}

AreasRestoreCommand::AreasRestoreCommand()
    : AreasFileCommand({"areas restore",
                        "set the areas (and display type) of an area file, then verify", "FILE",
                        restoreDetails()},
                       "The area file to restore.")
{
}

int AreasRestoreCommand::runWith(CliContext &context, ModuleSession &session)
{
    if (file.hasDisplay) {
        const int code = setDisplayType(context, session, file.display);
        if (code != ExitDone)
            return code;
    }
    for (const AreaEntry &entry : file.areas) {
        const int code = apply(context, session, entry);
        if (code != ExitDone)
            return code;
    }
    bool same = false;
    const int code = compareWithModule(context, session, file, &same);
    if (code != ExitDone)
        return code;
    if (!same)
        return context.fail(ExitRefused, "the module answered OK but holds something else");
    context.print(QString("restored %1 areas%2 and verified\n")
                      .arg(file.areas.size())
                      .arg(file.hasDisplay ? " and the display type" : ""));
    return ExitDone;
}

// --- verify ---------------------------------------------------------------

// The paragraphs of orv-cli help areas verify.
static QString verifyDetails()
{
    return QStringLiteral("Reads the module and compares it with the file; prints each "
                          "difference and\nexits with code 1 when there is one.\n\n") +
           QLatin1String(kDecimetreNote);
}

AreasVerifyCommand::AreasVerifyCommand()
    : AreasFileCommand({"areas verify", "check that the module holds what an area file says",
                        "FILE", verifyDetails()},
                       "The area file to compare with.")
{
}

int AreasVerifyCommand::runWith(CliContext &context, ModuleSession &session)
{
    bool same = false;
    const int code = compareWithModule(context, session, file, &same);
    if (code != ExitDone)
        return code;
    if (!same)
        return ExitRefused;
    context.print("the module holds what the file says\n");
    return ExitDone;
}

// --- clear ----------------------------------------------------------------

AreasClearCommand::AreasClearCommand() : AreasCommand({"areas clear", "cancel all three areas"}) {}

int AreasClearCommand::runWith(CliContext &context, ModuleSession &session)
{
    QByteArray answer;
    const int code =
        ask(context, session, CancelAllArea, QByteArray(), "cancelling all areas", &answer);
    if (code != ExitDone)
        return code;
    if (!frameformat::decodeResult(answer))
        return context.fail(ExitRefused, "the module refused to cancel the areas (NG)");
    return ExitDone;
}

// --- set ------------------------------------------------------------------

AreasSetCommand::AreasSetCommand()
    : AreasCommand(
          {"areas set", "set one area", "N --type detect|exclude --from X1,Y1 --to X2,Y2",
           "Sets area N (1..3) to a detection or exclusion rectangle between two corners in\n"
           "metres (x -8..8, y 0..8; write a negative x as --from=-1.5,3 or --from -1.5,3).\n"
           "The corners may come in any order; they are sent upper left first, as the\n"
           "window sends them. Exit code 1 when the module refuses."})
{
}

void AreasSetCommand::addOptions(QCommandLineParser &parser)
{
    parser.addPositionalArgument("N", "The area number: 1, 2 or 3.");
    parser.addOption({"type", "detect (area type 0) or exclude (area type 1).", "TYPE"});
    parser.addOption({"from", "One corner in metres.", "X1,Y1"});
    parser.addOption({"to", "The opposite corner in metres.", "X2,Y2"});
}

int AreasSetCommand::checkArguments(CliContext &context)
{
    int code = areaNumber(context, &entry.number);
    if (code != ExitDone)
        return code;
    const QString type = context.parser.value("type");
    if (!context.parser.isSet("type"))
        return context.usageError("--type detect|exclude is required");
    if (type == QLatin1String("detect"))
        entry.kind = AreaEntry::Detect;
    else if (type == QLatin1String("exclude"))
        entry.kind = AreaEntry::Exclude;
    else
        return context.usageError(QString("--type: \"%1\" is not detect or exclude (use 'orv-cli "
                                          "areas unset N' to cancel an area)")
                                      .arg(type));
    const struct {
        const char *option;
        QPointF *corner;
    } corners[] = {{"from", &entry.from}, {"to", &entry.to}};
    for (const auto &c : corners) {
        if (!context.parser.isSet(c.option))
            return context.usageError(QString("--%1 X,Y is required").arg(c.option));
        const QString value = context.parser.value(c.option);
        if (!parseCorner(value, c.corner))
            return context.usageError(
                QString("--%1: \"%2\" is not a corner X,Y in metres").arg(c.option, value));
        if (!AreaFile::xInRange(c.corner->x()))
            return context.usageError(
                QString("--%1: x %2 is outside -8..8 m").arg(c.option).arg(c.corner->x()));
        if (!AreaFile::yInRange(c.corner->y()))
            return context.usageError(
                QString("--%1: y %2 is outside 0..8 m").arg(c.option).arg(c.corner->y()));
    }
    return ExitDone;
}

int AreasSetCommand::runWith(CliContext &context, ModuleSession &session)
{
    const int code = apply(context, session, entry);
    if (code != ExitDone)
        return code;
    context.print(QString("area %1: %2\n").arg(entry.number).arg(WireArea::expected(entry).text()));
    return ExitDone;
}

// --- unset ----------------------------------------------------------------

AreasUnsetCommand::AreasUnsetCommand() : AreasCommand({"areas unset", "cancel one area", "N"}) {}

void AreasUnsetCommand::addOptions(QCommandLineParser &parser)
{
    parser.addPositionalArgument("N", "The area number: 1, 2 or 3.");
}

int AreasUnsetCommand::checkArguments(CliContext &context)
{
    return areaNumber(context, &number);
}

int AreasUnsetCommand::runWith(CliContext &context, ModuleSession &session)
{
    AreaEntry entry;
    entry.number = number;
    entry.kind = AreaEntry::Unset;
    return apply(context, session, entry);
}
