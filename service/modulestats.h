#pragma once

// What the service counts for one module beyond the decoder's counts: the
// reports per second over the last few whole seconds, and reconnections.

#include <QJsonObject>
#include <QVector>

struct FrameStreamStats;

class ModuleStats
{
public:
    // Seconds the report rate is averaged over.
    static constexpr int kWindowSeconds = 5;

    ModuleStats();

    // A report (code 7 or 8) arrived at msSinceEpoch.
    void countReport(qint64 msSinceEpoch);
    // Reports per second over the last kWindowSeconds whole seconds before
    // nowMs (fewer while the module has not been heard that long).
    double reportsPerSecond(qint64 nowMs) const;

    void countReconnect() { ++reconnectCount; }
    qint64 reconnects() const { return reconnectCount; }

    // {"frames","badSums","strayBytes","reportsPerSecond","reconnects"}
    QJsonObject toJson(const FrameStreamStats &decoded, qint64 nowMs) const;

private:
    // Reports per second, in a ring indexed by the second.
    QVector<qint64> perSecond;
    QVector<qint64> secondOf;
    qint64 firstSecond = -1;
    qint64 reconnectCount = 0;
};
