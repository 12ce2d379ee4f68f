#include "cli/recordcommand.h"

#include "cli/exitcode.h"
#include "cli/sessionrecorder.h"
#include "cli/watchcommand.h"
#include "radar/framedecoder.h"

RecordCommand::RecordCommand()
    : ModuleCommand(
          {"record", "record the received bytes for radar-sim --replay", "-o FILE [--duration S]",
           "Writes every read from the port as one line in the diagnostic log's format,\n"
           "  [2026-11-22 15:05:00.123] RecvData:FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF\n"
           "stamped with the local time it arrived, until --duration seconds have passed\n"
           "or Ctrl-C (exit code 130; the file keeps every line written). Lines are\n"
           "written as they arrive. 'radar-sim --replay FILE' plays the session back into\n"
           "the window or into orv-cli watch. Nothing is sent, except the display-type\n"
           "read of --baud auto."})
{
}

void RecordCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({{"o", "output"}, "The file to write.", "FILE"});
    addDurationOption(parser, "Stop after S seconds.");
}

int RecordCommand::checkArguments(CliContext &context)
{
    if (!context.parser.isSet("output") || context.parser.value("output").isEmpty())
        return context.usageError("-o FILE is required (the recording to write)");
    return readDurationAndNoArguments(context, &durationMs);
}

int RecordCommand::runWith(CliContext &context, ModuleSession &session)
{
    SessionRecorder recorder;
    QString why;
    if (!recorder.open(context.parser.value("output"), &why))
        return context.fail(ExitUsage, why);
    qint64 reads = 0;
    qint64 bytes = 0;
    bool writeFailed = false;
    const LinkStatus status = session.stream(durationMs, [&](const QByteArray &chunk) {
        ++reads;
        bytes += chunk.size();
        if (!recorder.write(QDateTime::currentDateTime(), chunk)) {
            writeFailed = true;
            return false;
        }
        return true;
    });
    const bool closed = recorder.close(&why);
    if (writeFailed || !closed)
        return context.fail(ExitUsage, why.isEmpty() ? recorder.errorString() : why);
    const int ended = linkEnd(
        context, session.portName(), status,
        QString(" after %1 byte(s) in %2 read(s); they are in the file").arg(bytes).arg(reads),
        false);
    if (ended != ExitDone)
        return ended;
    if (reads == 0)
        return context.fail(
            ExitNoAnswer,
            QString("nothing arrived from the module in %1 s").arg(durationMs / 1000.0));
    return ExitDone;
}
