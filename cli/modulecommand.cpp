#include "cli/modulecommand.h"

#include "cli/baudprobe.h"
#include "cli/exitcode.h"

#include <cmath>

namespace
{

QString rateList(const QList<int> &rates)
{
    QStringList parts;
    for (int r : rates)
        parts.append(QString::number(r));
    return parts.join(", ");
}

} // namespace

bool parseDuration(const QString &text, qint64 *ms)
{
    bool ok = false;
    const double seconds = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(seconds) || seconds <= 0.0 || seconds > 1e7)
        return false;
    *ms = qint64(std::llround(seconds * 1000.0));
    return *ms > 0;
}

int linkEnd(const CliContext &context, const QString &port, LinkStatus status, const QString &after,
            bool sayInterrupted)
{
    switch (status) {
    case LinkStatus::Interrupted:
        return sayInterrupted ? context.fail(ExitInterrupted, "interrupted") : ExitInterrupted;
    case LinkStatus::Lost:
        return context.fail(ExitNoAnswer, QString("the port %1 went away").arg(port) + after);
    case LinkStatus::Timeout:
    case LinkStatus::Ok:
        break;
    }
    return ExitDone;
}

void ModuleCommand::addDurationOption(QCommandLineParser &parser, const QString &description,
                                      const QString &defaultSeconds)
{
    parser.addOption({"duration", description, "S", defaultSeconds});
}

int ModuleCommand::readDuration(CliContext &context, qint64 *ms)
{
    const QString value = context.parser.value("duration");
    if (!context.parser.isSet("duration") && value.isEmpty())
        return ExitDone;
    if (!parseDuration(value, ms))
        return context.usageError(
            QString("--duration: \"%1\" is not a number of seconds (> 0)").arg(value));
    return ExitDone;
}

int ModuleCommand::readDurationAndNoArguments(CliContext &context, qint64 *ms)
{
    const int duration = readDuration(context, ms);
    return duration != ExitDone ? duration : noMoreArguments(context, 0);
}

int ModuleCommand::checkArguments(CliContext &context)
{
    return noMoreArguments(context, 0);
}

int ModuleCommand::noMoreArguments(CliContext &context, int count)
{
    const QStringList args = context.parser.positionalArguments();
    if (args.size() > count)
        return context.usageError(QString("unexpected argument \"%1\"").arg(args.at(count)));
    return ExitDone;
}

int ModuleCommand::run(CliContext &context)
{
    QString why;
    if (!PortOptions::fromParser(context.parser, takesBaud(), &portOptions, &why))
        return context.usageError(why);
    const int checked = checkArguments(context);
    if (checked != ExitDone)
        return checked;

    ModuleSession session;
    const int firstRate =
        portOptions.autoBaud() ? BaudProbe::probeOrder().first() : portOptions.baud;
    if (!session.open(portOptions.port, firstRate, &why))
        return context.fail(ExitPortError, why);
    if (portOptions.autoBaud()) {
        const BaudProbe::Result probe = BaudProbe::run(session);
        const int ended = linkEnd(context, portOptions.port, probe.status);
        if (ended != ExitDone)
            return ended;
        if (probe.baud == 0)
            return context.fail(
                ExitNoAnswer,
                QString("no answer from the module on %1: no well-formed frame at %2 baud "
                        "(listened %3 at each and asked for the display type%4; "
                        "give the rate with --baud N if it is another one)")
                    .arg(portOptions.port, rateList(probe.tried))
                    .arg(BaudProbe::defaultListenText())
                    .arg(probe.badSumNote()));
        session.discardInput();
    }
    return runWith(context, session);
}

int ModuleCommand::failure(CliContext &context, ModuleSession &session, LinkStatus status,
                           const QString &what, int tries)
{
    const int ended = linkEnd(context, session.portName(), status, " while waiting for " + what);
    if (ended != ExitDone)
        return ended;
    QString text = QString("no answer from the module on %1 at %2 baud to %3")
                       .arg(session.portName())
                       .arg(session.baudRate())
                       .arg(what);
    if (tries > 1)
        text += QString(" (asked %1 times, %2 ms each)").arg(tries).arg(kAnswerMs);
    const FrameStreamStats &s = session.stats();
    if (s.badSums > 0 || s.skippedBytes > 0)
        text += QString("; received %1 good frame(s), %2 with a bad sum, %3 byte(s) outside frames")
                    .arg(s.frames)
                    .arg(s.badSums)
                    .arg(s.skippedBytes);
    return context.fail(ExitNoAnswer, text);
}

int ModuleCommand::ask(CliContext &context, ModuleSession &session, quint8 code,
                       const QByteArray &payload, const QString &what, QByteArray *answer,
                       int tries)
{
    const LinkStatus status = session.request(code, payload, kAnswerMs, tries, answer);
    if (status == LinkStatus::Ok)
        return ExitDone;
    return failure(context, session, status, what, tries);
}

int ModuleCommand::readModule(CliContext &context, ModuleSession &session, ModuleAreas *held)
{
    QByteArray answer;
    int code =
        ask(context, session, ReadTargetShowType, QByteArray(), "the display-type read", &answer);
    if (code != ExitDone)
        return code;
    held->display = frameformat::decodeShowType(answer);
    code = ask(context, session, ReadArea, QByteArray(), "the area read", &answer);
    if (code != ExitDone)
        return code;
    if (answer.size() < frameformat::kReadAreaFrameSize)
        return context.fail(ExitNoAnswer, QString("the module's area answer is %1 bytes long, "
                                                  "not %2")
                                              .arg(answer.size())
                                              .arg(frameformat::kReadAreaFrameSize));
    held->areas = WireArea::fromReadAnswer(answer);
    return ExitDone;
}

int ModuleCommand::setDisplayType(CliContext &context, ModuleSession &session, int value)
{
    QByteArray answer;
    const int code = ask(context, session, SetTargetShowType, QByteArray(1, char(value)),
                         "the display-type change", &answer);
    if (code != ExitDone)
        return code;
    if (!frameformat::decodeResult(answer))
        return context.fail(
            ExitRefused,
            QString("the module refused display type %1 (NG)").arg(AreaFile::displayName(value)));
    return ExitDone;
}
