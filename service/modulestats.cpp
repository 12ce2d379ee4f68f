#include "service/modulestats.h"

#include "radar/framedecoder.h"

#include <cmath>

namespace
{

// One slot more than the window, for the second under way.
constexpr int kSlots = ModuleStats::kWindowSeconds + 1;

} // namespace

ModuleStats::ModuleStats() : perSecond(kSlots, 0), secondOf(kSlots, -1) {}

void ModuleStats::countReport(qint64 msSinceEpoch)
{
    const qint64 second = msSinceEpoch / 1000;
    if (firstSecond < 0)
        firstSecond = second;
    const int slot = int(second % kSlots);
    if (secondOf[slot] != second) {
        secondOf[slot] = second;
        perSecond[slot] = 0;
    }
    ++perSecond[slot];
}

double ModuleStats::reportsPerSecond(qint64 nowMs) const
{
    if (firstSecond < 0)
        return 0.0;
    const qint64 now = nowMs / 1000;
    // Whole seconds only: the one under way would read low.
    const qint64 seconds = qMin<qint64>(kWindowSeconds, now - firstSecond);
    if (seconds <= 0)
        return 0.0;
    qint64 sum = 0;
    for (qint64 s = now - seconds; s < now; ++s) {
        const int slot = int(s % kSlots);
        if (secondOf[slot] == s)
            sum += perSecond[slot];
    }
    return double(sum) / double(seconds);
}

QJsonObject ModuleStats::toJson(const FrameStreamStats &decoded, qint64 nowMs) const
{
    // One decimal is enough for a rate and keeps the JSON short.
    const double rate = std::round(reportsPerSecond(nowMs) * 10.0) / 10.0;
    return QJsonObject{{"frames", double(decoded.frames)},
                       {"badSums", double(decoded.badSums)},
                       {"strayBytes", double(decoded.skippedBytes)},
                       {"reportsPerSecond", rate},
                       {"reconnects", double(reconnectCount)}};
}
