#include "cli/baudcommand.h"

#include "cli/baudprobe.h"
#include "cli/exitcode.h"

#include <QThread>

namespace
{

QString windowRateList()
{
    QStringList rates;
    for (int r : BaudProbe::windowRates())
        rates.append(QString::number(r));
    return rates.join(", ");
}

} // namespace

// The paragraphs of orv-cli help baud.
static QString baudDetails()
{
    return QString("Asks the module to talk at NEW baud, waits for its answer at the old\n"
                   "rate, reopens the port at NEW and asks for the display type there. Exit\n"
                   "code 1 when the module refuses (NG) or does not answer at the new rate; 4\n"
                   "when it does not answer the change at all. The request is sent once: a\n"
                   "module that switched must not be asked again at the old rate.\n"
                   "\n"
                   "NEW is one of the window's rates: %1.")
        .arg(windowRateList());
}

BaudCommand::BaudCommand()
    : ModuleCommand({"baud", "change the module's baud rate and check it answers there", "NEW",
                     baudDetails()})
{
}

void BaudCommand::addOptions(QCommandLineParser &parser)
{
    parser.addPositionalArgument("NEW", "The new baud rate.");
}

int BaudCommand::checkArguments(CliContext &context)
{
    const QStringList args = context.parser.positionalArguments();
    if (args.isEmpty())
        return context.usageError("the new baud rate is missing");
    const int more = noMoreArguments(context, 1);
    if (more != ExitDone)
        return more;
    bool ok = false;
    newRate = args.first().toInt(&ok);
    if (!ok || !BaudProbe::windowRates().contains(newRate))
        return context.usageError(
            QString("\"%1\" is not one of the rates %2").arg(args.first(), windowRateList()));
    return ExitDone;
}

int BaudCommand::runWith(CliContext &context, ModuleSession &session)
{
    const int oldRate = session.baudRate();
    QByteArray answer;
    const int code = ask(context, session, SetBaudrate, frameformat::baudRatePayload(newRate),
                         QString("the baud-rate change to %1").arg(newRate), &answer, 1);
    if (code != ExitDone)
        return code;
    if (!frameformat::decodeResult(answer))
        return context.fail(ExitRefused,
                            QString("the module refused to change to %1 baud (NG); it stays "
                                    "at %2")
                                .arg(newRate)
                                .arg(oldRate));

    // Reopen at the new rate, as the window does, and ask there.
    const QString port = session.portName();
    session.close();
    QString why;
    if (!session.open(port, newRate, &why))
        return context.fail(ExitPortError, why);
    const LinkStatus status =
        session.request(ReadTargetShowType, QByteArray(), kAnswerMs, kTries, &answer);
    if (status == LinkStatus::Interrupted)
        return context.fail(ExitInterrupted, "interrupted");
    if (status != LinkStatus::Ok)
        return context.fail(ExitRefused,
                            QString("the module answered OK but is silent at %1 baud (asked "
                                    "%2 times); 'orv-cli probe --port %3' finds its rate")
                                .arg(newRate)
                                .arg(kTries)
                                .arg(port));
    context.print(QString("%1\n").arg(newRate));
    return ExitDone;
}
