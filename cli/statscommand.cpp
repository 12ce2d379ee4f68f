#include "cli/statscommand.h"

#include "cli/exitcode.h"
#include "cli/linkstats.h"
#include "cli/watchcommand.h"

#include <QElapsedTimer>

StatsCommand::StatsCommand()
    : ModuleCommand(
          {"stats", "link health: frames per second, bad sums, noise, silence",
           "[--duration S] [--json]",
           "Listens for --duration seconds (default 10) and prints the bytes and reads,\n"
           "the frames per second by function code, the frames with a bad sum, the bytes\n"
           "outside frames and the longest silence between two reads. Ctrl-C prints what\n"
           "was measured so far (exit code 130). Exit code 4 when no frame arrived."})
{
}

void StatsCommand::addOptions(QCommandLineParser &parser)
{
    addDurationOption(parser, "Listen for S seconds (default 10).", "10");
    parser.addOption({"json", "Prints a JSON object."});
}

int StatsCommand::checkArguments(CliContext &context)
{
    return readDurationAndNoArguments(context, &durationMs);
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
    const int ended = linkEnd(context, session.portName(), status, QString(), false);
    if (ended != ExitDone)
        return ended;
    if (stats.frames().frames == 0)
        return context.fail(ExitNoAnswer, "no frame arrived from the module");
    return ExitDone;
}
