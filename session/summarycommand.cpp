#include "session/sessioncommands.h"

#include "cli/exitcode.h"
#include "cli/interrupt.h"
#include "session/sessionsummary.h"

#include <QFileInfo>
#include <QJsonDocument>

void addSessionOptions(QCommandLineParser &parser)
{
    parser.addOption({"from", "Only what was logged at or after T (ISO date-time).", "T"});
    parser.addOption({"to", "Only what was logged at or before T (ISO date-time).", "T"});
    parser.addOption({"quiet", "No progress on standard error."});
}

bool sessionFilter(CliContext &context, SessionFilter *filter)
{
    for (const char *name : {"from", "to"}) {
        if (!context.parser.isSet(name))
            continue;
        qint64 ms = 0;
        const QString value = context.parser.value(name);
        if (!parseLogTime(value, &ms)) {
            context.usageError(QString("--%1: \"%2\" is not a date-time like 2026-11-21T08:00:00")
                                   .arg(name, value));
            return false;
        }
        (QLatin1String(name) == QLatin1String("from") ? filter->fromMs : filter->toMs) = ms;
    }
    if (filter->fromMs > filter->toMs) {
        context.usageError("--from is later than --to");
        return false;
    }
    return true;
}

int readSession(CliContext &context, SessionScan &scan)
{
    const QStringList arguments = context.parser.positionalArguments();
    if (arguments.isEmpty())
        return context.usageError("no LOG file or folder given");
    QStringList files;
    QString error;
    if (!expandLogInputs(arguments, &files, &error))
        return context.fail(ExitUsage, error);
    qint64 total = 0;
    for (const QString &file : files)
        total += QFileInfo(file).size();
    // Progress in steps of 10 % for inputs large enough to take a while.
    const bool showProgress = !context.parser.isSet("quiet") && total >= 16 * 1024 * 1024;
    int shown = 0;
    if (showProgress) {
        scan.progress = [&context, total, &shown](qint64 done) {
            const int percent = int(done * 100 / total);
            if (percent / 10 > shown / 10 && percent < 100) {
                shown = percent;
                context.note(QString("%1 % read").arg(percent / 10 * 10));
            }
        };
    }
    for (const QString &file : files) {
        if (!scan.addFile(file, &error))
            return context.fail(scan.interrupted() ? ExitInterrupted : ExitUsage, error);
    }
    // Also a signal during the last lines or a small input: nothing is printed.
    if (Interrupt::requested())
        return context.fail(ExitInterrupted, QStringLiteral("interrupted"));
    scan.finish();
    scan.progress = nullptr;
    return ExitDone;
}

SummaryCommand::SummaryCommand()
    : CliCommand({"summary", "figures of a session from diagnostic logs or recordings",
                  "[--json] [--from T] [--to T] [--quiet] LOG..."})
{
}

QString SummaryCommand::details() const
{
    return QStringLiteral(
        "Reads the \"RecvData:\" lines of diagnostic log files (log/<yyyymmdd>/logfile_<n>.txt)\n"
        "or orv-cli record files and prints: the time span, target reports and reports per\n"
        "second, the longest gap between two reports, the most people reported at once, points\n"
        "outside the plane (x -8..8 m, y 0..12 m), checksum failures, bytes outside frames,\n"
        "lines skipped (not log lines), truncated hex dumps, the time and share each area was\n"
        "occupied (from the area-presence reports) and the areas the module held (its last\n"
        "read-area answer).\n"
        "\n"
        "LOG is a file, or a folder standing for its logfile_<n>.txt files in the order of n,\n"
        "or the log folder itself standing for all its day folders (yyyymmdd) in date order.\n"
        "Several LOGs are read in the order given, as one stream.\n"
        "\n"
        "--from/--to take ISO 8601 date-times on the log's own clock (2026-11-21T08:00,\n"
        "2026-11-21 08:00:05.250; a date alone is its midnight).");
}

QString SummaryCommand::exitCodes() const
{
    return exitCodeTable(
        {{ExitDone, "done"},
         {ExitUsage, "bad command line, or a file or folder that cannot be read"},
         {ExitInterrupted, "interrupted (Ctrl-C or SIGTERM) while reading; nothing is printed"}});
}

void SummaryCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"json", "Prints one JSON object instead of text."});
    addSessionOptions(parser);
}

int SummaryCommand::run(CliContext &context)
{
    SessionFilter filter;
    if (!sessionFilter(context, &filter))
        return ExitUsage;
    SessionScan scan(filter);
    const int code = readSession(context, scan);
    if (code != ExitDone)
        return code;
    if (context.parser.isSet("json"))
        context.printBytes(QJsonDocument(sessionSummaryJson(scan.figures())).toJson());
    else
        context.print(sessionSummaryText(scan.figures()));
    return ExitDone;
}
