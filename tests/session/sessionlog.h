#pragma once

// Test helper: diagnostic log text built from frames, as the window writes
// it ("[yyyy-mm-dd hh:mm:ss.zzz] RecvData:" and "%02X " per byte).

#include "log/loglinereader.h"
#include "radar/frameformat.h"

#include <QByteArray>
#include <QDateTime>
#include <QPointF>
#include <QVector>

#include <cmath>

namespace sessionlog
{

// 2026-11-21 08:00:00.000 on the log's clock.
inline qint64 baseMs()
{
    return logline::civilMsecs(2026, 11, 21, 8, 0, 0, 0);
}

inline QByteArray stamp(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
        .toString("[yyyy-MM-dd hh:mm:ss.zzz] ")
        .toLatin1();
}

inline QByteArray recvLine(qint64 ms, const QByteArray &bytes)
{
    return stamp(ms) + "RecvData:" + frameformat::hexDumpLatin1(bytes) + "\n";
}

inline QByteArray targetFrame(const QVector<QPointF> &points)
{
    QByteArray payload;
    for (const QPointF &p : points) {
        payload.append(char(qint8(std::lround(p.x() * 10))));
        payload.append(char(qint8(std::lround(p.y() * 10))));
    }
    return frameformat::buildFrame(TargetReport, payload);
}

inline QByteArray flagsFrame(int mask)
{
    QByteArray payload(3, '\0');
    for (int i = 0; i < 3; ++i)
        payload[i] = char((mask >> i) & 1);
    return frameformat::buildFrame(TargetAreaReport, payload);
}

// A read-area answer: per area its type (2 = none) and two corners in metres.
struct Area {
    int type;
    QPointF first;
    QPointF opposite;
};
inline QByteArray readAreaFrame(const Area areas[3])
{
    QByteArray payload(30, '\0');
    for (int k = 0; k < 3; ++k) {
        char *r = payload.data() + 10 * k;
        r[0] = char(k + 1);
        r[1] = char(areas[k].type);
        r[2] = char(qint8(std::lround(areas[k].first.x() * 10)));
        r[3] = char(qint8(std::lround(areas[k].first.y() * 10)));
        r[6] = char(qint8(std::lround(areas[k].opposite.x() * 10)));
        r[7] = char(qint8(std::lround(areas[k].opposite.y() * 10)));
    }
    return frameformat::buildFrame(ReadArea, payload);
}

} // namespace sessionlog
