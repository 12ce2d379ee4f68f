#include "cli/watchcommand.h"

#include "cli/exitcode.h"
#include "radar/framedecoder.h"

#include <QDateTime>

#include <cmath>

WatchCommand::WatchCommand()
    : ModuleCommand(
          {"watch", "print every report: targets in metres and area occupancy",
           "[--format text|csv|jsonl] [--duration S] [--count N]",
           "Prints one line per report frame as it arrives: target reports (code 7) with\n"
           "the targets in metres, and area reports (code 8) with the areas that hold a\n"
           "target. Each line starts with the host time (ISO 8601, UTC, milliseconds).\n"
           "Every frame on the line is decoded, none is skipped. Ends after --duration\n"
           "seconds, after --count lines, or on Ctrl-C (exit code 130, output flushed);\n"
           "exit code 4 when the port goes away or nothing at all arrived.\n"
           "\n"
           "  text   2026-11-22T15:05:00.123Z targets 2: (1.5, 3.0) (-1.0, 2.0)\n"
           "         2026-11-22T15:05:00.125Z areas occupied: 1 3\n"
           "  csv    time,kind,count,targets,area1,area2,area3   (header row)\n"
           "         2026-11-22T15:05:00.123Z,targets,2,1.5 3.0;-1.0 2.0,,,\n"
           "         2026-11-22T15:05:00.125Z,areas,,,1,0,1\n"
           "  jsonl  {\"time\":\"...\",\"kind\":\"targets\",\"targets\":[[1.5,3.0],[-1.0,2.0]]}\n"
           "         {\"time\":\"...\",\"kind\":\"areas\",\"occupied\":[true,false,true]}"})
{
}

void WatchCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"format", "text (default), csv or jsonl.", "FORMAT", "text"});
    addDurationOption(parser, "Stop after S seconds.");
    parser.addOption({"count", "Stop after N lines.", "N"});
}

int WatchCommand::checkArguments(CliContext &context)
{
    if (!ReportFormatter::parseFormat(context.parser.value("format"), &format))
        return context.usageError(QString("--format: \"%1\" is not text, csv or jsonl")
                                      .arg(context.parser.value("format")));
    const int duration = readDuration(context, &durationMs);
    if (duration != ExitDone)
        return duration;
    if (context.parser.isSet("count")) {
        bool ok = false;
        count = context.parser.value("count").toLongLong(&ok);
        if (!ok || count < 1)
            return context.usageError(QString("--count: \"%1\" is not a count (1 or more)")
                                          .arg(context.parser.value("count")));
    }
    return noMoreArguments(context, 0);
}

int WatchCommand::runWith(CliContext &context, ModuleSession &session)
{
    ReportFormatter formatter(format);
    FrameDecoder decoder;
    qint64 lines = 0;
    qint64 otherFrames = 0;
    QByteArray out = formatter.header();
    context.printBytes(out);

    const LinkStatus status = session.stream(durationMs, [&](const QByteArray &chunk) {
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        out.clear();
        bool enough = false;
        decoder.feed(chunk.constData(), chunk.size(), [&](frameformat::ByteView frame) {
            if (enough)
                return;
            if (formatter.append(out, now, frame)) {
                if (++lines == count)
                    enough = true;
            } else {
                ++otherFrames;
            }
        });
        context.printBytes(out);
        return !enough;
    });

    const FrameStreamStats &s = decoder.stats();
    if (s.badSums > 0 || s.skippedBytes > 0)
        context.note(QString("%1 frame(s) with a bad sum dropped, %2 byte(s) outside frames")
                         .arg(s.badSums)
                         .arg(s.skippedBytes));
    const int ended = linkEnd(context, session.portName(), status,
                              QString(" after %1 line(s)").arg(lines), false);
    if (ended != ExitDone)
        return ended;
    if (s.frames == 0 && s.skippedBytes + s.badSums > 0)
        return context.fail(ExitNoAnswer,
                            QString("no frame arrived in %1 s, only bytes that form none (a "
                                    "wrong baud rate? leave out --baud or run 'orv-cli probe')")
                                .arg(durationMs / 1000.0));
    if (s.frames == 0)
        return context.fail(
            ExitNoAnswer,
            QString("nothing arrived from the module in %1 s").arg(durationMs / 1000.0));
    Q_UNUSED(otherFrames)
    return ExitDone;
}
