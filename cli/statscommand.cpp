#include "cli/statscommand.h"

#include "cli/exitcode.h"
#include "cli/linkstats.h"
#include "cli/watchcommand.h"

#include <QElapsedTimer>

QString StatsCommand::summary() const
{
    return QStringLiteral("link health: frames per second, bad sums, noise, silence");
}

QString StatsCommand::details() const
{
    return QStringLiteral(
        "Listens for --duration seconds (default 10) and prints the bytes and reads,\n"
        "the frames per second by function code, the frames with a bad sum, the bytes\n"
        "outside frames and the longest silence between two reads. Ctrl-C prints what\n"
        "was measured so far (exit code 130). Exit code 4 when no frame arrived.");
}

void StatsCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"duration", "Listen for S seconds (default 10).", "S", "10"});
    parser.addOption({"json", "Prints a JSON object."});
}

int StatsCommand::checkArguments(CliContext &context)
{
    if (!parseDuration(context.parser.value("duration"), &durationMs))
        return context.usageError(QString("--duration: \"%1\" is not a number of seconds (> 0)")
                                      .arg(context.parser.value("duration")));
    return noMoreArguments(context, 0);
}

int StatsCommand::runWith(CliContext &context, ModuleSession &session)
{
    LinkStats stats;
    QElapsedTimer clock;
    clock.start();
    const LinkStatus status = session.stream(durationMs, [&](const QByteArray &chunk) {
        stats.addChunk(clock.elapsed(), chunk);
        return true;
    });
    stats.finish(clock.elapsed());
    if (context.parser.isSet("json"))
        context.printBytes(stats.json());
    else
        context.print(
            QString("port %1 at %2 baud\n").arg(session.portName()).arg(session.baudRate()) +
            stats.text());
    if (status == LinkStatus::Interrupted)
        return ExitInterrupted;
    if (status == LinkStatus::Lost)
        return context.fail(ExitNoAnswer, QString("the port %1 went away").arg(session.portName()));
    if (stats.frames().frames == 0)
        return context.fail(ExitNoAnswer, "no frame arrived from the module");
    return ExitDone;
}
