#include "cli/baudprobe.h"

#include "radar/frameformat.h"

#include <QElapsedTimer>

QList<int> BaudProbe::windowRates()
{
    return {2400,  4800,   9600,   19200,  38400,  43000, 56000,
            57600, 115200, 230400, 256000, 460800, 921600};
}

QList<int> BaudProbe::probeOrder()
{
    QList<int> order{9600, 115200, 256000};
    for (int rate : windowRates())
        if (!order.contains(rate))
            order.append(rate);
    return order;
}

QString BaudProbe::Result::badSumNote() const
{
    if (badSums == 0)
        return QString();
    return QString("; %1 frame(s) with a bad sum came at %2 baud").arg(badSums).arg(badSumBaud);
}

int BaudProbe::listenMsFor(int baud)
{
    // Ten bits on the line per byte (8N1).
    return 150 + int((25LL * 10 * 1000 + baud - 1) / qMax(1, baud));
}

QString BaudProbe::defaultListenText()
{
    return QStringLiteral("150 ms plus the time 25 bytes take at the rate");
}

BaudProbe::Result BaudProbe::run(ModuleSession &session, int listenMs)
{
    Result result;
    QElapsedTimer clock;
    clock.start();
    for (int rate : probeOrder()) {
        result.tried.append(rate);
        if (session.baudRate() != rate && !session.setBaudRate(rate))
            continue;
        session.discardInput();
        // A module that streams answers by itself; one that does not answers
        // the display-type read. Either way a frame must come whole.
        session.send(ReadTargetShowType);
        QByteArray frame;
        const qint64 badBefore = session.stats().badSums;
        LinkStatus status =
            session.waitForAnyFrame(listenMs > 0 ? listenMs : listenMsFor(rate), &frame);
        // A frame that has begun is worth waiting for a little longer.
        if (status == LinkStatus::Timeout && session.pendingBytes() > 0)
            status = session.waitForAnyFrame(kGraceMs, &frame);
        const qint64 bad = session.stats().badSums - badBefore;
        if (bad > result.badSums) {
            result.badSums = bad;
            result.badSumBaud = rate;
        }
        if (status == LinkStatus::Ok) {
            result.baud = rate;
            result.status = LinkStatus::Ok;
            break;
        }
        if (status != LinkStatus::Timeout) {
            result.status = status;
            break;
        }
    }
    result.elapsedMs = clock.elapsed();
    return result;
}
