#include "cli/modecommand.h"

#include "cli/areafile.h"
#include "cli/exitcode.h"

#include <QJsonDocument>
#include <QJsonObject>

ModeCommand::ModeCommand()
    : ModuleCommand(
          {"mode", "read or set the display type (area or track)", "[area|track] [--json]",
           "Without an argument prints the display type: area (value 2, the window's area\n"
           "mode), track (value 1, tracking mode) or the module's number. With area or\n"
           "track sets it and waits for the module's answer: exit code 1 when it refuses."})
{
}

void ModeCommand::addOptions(QCommandLineParser &parser)
{
    parser.addPositionalArgument("mode", "area or track; leave out to read the display type.",
                                 "[area|track]");
    parser.addOption({"json", "Prints the display type as a JSON object."});
}

int ModeCommand::checkArguments(CliContext &context)
{
    const QStringList args = context.parser.positionalArguments();
    if (args.isEmpty())
        return ExitDone;
    if (noMoreArguments(context, 1) != ExitDone)
        return ExitUsage;
    wanted = AreaFile::displayValue(args.first());
    if (wanted < 0)
        return context.usageError(
            QString("\"%1\" is not a display type (area or track)").arg(args.first()));
    return ExitDone;
}

int ModeCommand::runWith(CliContext &context, ModuleSession &session)
{
    if (wanted != 0) {
        const int code = setDisplayType(context, session, wanted);
        if (code != ExitDone)
            return code;
    }
    QByteArray answer;
    const int code =
        ask(context, session, ReadTargetShowType, QByteArray(), "the display-type read", &answer);
    if (code != ExitDone)
        return code;
    const int display = frameformat::decodeShowType(answer);
    if (context.parser.isSet("json")) {
        QJsonObject o;
        o["display"] = AreaFile::displayName(display);
        o["displayValue"] = display;
        context.printBytes(QJsonDocument(o).toJson(QJsonDocument::Compact) + "\n");
    } else {
        context.print(AreaFile::displayName(display) + "\n");
    }
    if (wanted != 0 && display != wanted)
        return context.fail(ExitRefused, QString("the module answered OK but reads back %1")
                                             .arg(AreaFile::displayName(display)));
    return ExitDone;
}
