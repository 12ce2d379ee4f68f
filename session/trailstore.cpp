#include "session/trailstore.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

TrailStore::TrailStore(int capacity, qint64 windowMs)
    : capacity(std::max(capacity, 16)), window(std::max<qint64>(windowMs, 0))
{
    store.reserve(size_t(this->capacity));
}

qint64 TrailStore::windowStart() const
{
    return window > 0 ? latestMs - window : std::numeric_limits<qint64>::min();
}

void TrailStore::addReport(qint64 ms, const qint8 *pairs, int count)
{
    latestMs = std::max(latestMs, ms);
    count = std::min(count, int(kSlots));
    for (int k = 0; k < kSlots; ++k) {
        Slot &s = slotState[k];
        const bool present = k < count && (pairs[2 * k] != 0 || pairs[2 * k + 1] != 0);
        if (!present) {
            s.active = false;
            continue;
        }
        const qint8 x = pairs[2 * k];
        const qint8 y = pairs[2 * k + 1];
        // Decimetres: a step of kMaxStep metres is 10 * kMaxStep.
        const int limit = int(kMaxStep * 10);
        const bool joined = s.active && ms - s.lastMs <= kMaxSilenceMs && ms >= s.lastMs &&
                            std::abs(x - s.lastX) <= limit && std::abs(y - s.lastY) <= limit;
        if (!joined)
            s.pendingBreak = true;
        s.active = true;
        s.lastMs = ms;
        s.lastX = x;
        s.lastY = y;
        if (!s.pendingBreak && s.keptMs >= 0 && ms - s.keptMs < intervalMs)
            continue;
        if (int(store.size()) >= capacity)
            compact();
        store.push_back({ms, x, y, quint8(k), s.pendingBreak});
        s.pendingBreak = false;
        s.keptMs = ms;
    }
}

void TrailStore::compact()
{
    if (window > 0) {
        const qint64 from = latestMs - window;
        const auto firstKept = std::find_if(store.begin(), store.end(),
                                            [from](const TrailPoint &p) { return p.ms >= from; });
        store.erase(store.begin(), firstKept);
        if (int(store.size()) < capacity * 3 / 4)
            return;
    }
    // Every other point of each slot goes; trail starts stay, and a point
    // after a dropped start becomes the start in its place.
    bool keepNext[kSlots];
    std::fill(std::begin(keepNext), std::end(keepNext), true);
    size_t out = 0;
    for (size_t i = 0; i < store.size(); ++i) {
        TrailPoint p = store[i];
        bool &keep = keepNext[p.slot];
        if (p.startsTrail)
            keep = true;
        if (keep)
            store[out++] = p;
        keep = !keep;
    }
    store.resize(out);
    intervalMs = std::max<qint64>(intervalMs * 2, 100);
}
