#pragma once

// The paths of the reported targets, kept in bounded memory. A target is
// followed by its place in the report (the module keeps a person in the same
// slot while it tracks them); a jump of more than maxStep metres, a silence
// of more than maxSilence or the slot falling empty starts a new trail.
//
// Points are kept at most every `interval` milliseconds per slot. When the
// store is full it halves itself (every other point goes, breaks stay) and
// doubles the interval, so a day and a minute both fit in `capacity` points.
// With a window (the last N minutes), points older than the window go first.

#include <QtGlobal>

#include <vector>

struct TrailPoint {
    qint64 ms = 0;
    qint8 x = 0; // decimetres as sent
    qint8 y = 0;
    quint8 slot = 0;
    bool startsTrail = false; // not joined to the slot's previous point
};

class TrailStore
{
public:
    static constexpr int kSlots = 128;

    explicit TrailStore(int capacity = 60000, qint64 windowMs = 0);

    // One target report: count (x, y) pairs in decimetres; (0, 0) pairs are
    // empty slots.
    void addReport(qint64 ms, const qint8 *pairs, int count);

    const std::vector<TrailPoint> &points() const { return store; }
    qint64 interval() const { return intervalMs; }
    qint64 latest() const { return latestMs; }
    // Points with ms >= this are inside the window (all when no window).
    qint64 windowStart() const;

    static constexpr double kMaxStep = 1.0;       // metres between two reports
    static constexpr qint64 kMaxSilenceMs = 2000; // between two reports of a slot

private:
    struct Slot {
        bool active = false; // seen in the previous report
        qint64 lastMs = 0;   // last report time of the slot
        qint8 lastX = 0, lastY = 0;
        qint64 keptMs = -1; // time of the last point kept
        bool pendingBreak = true;
    };
    void compact();

    int capacity;
    qint64 window;
    qint64 intervalMs = 0;
    qint64 latestMs = 0;
    std::vector<TrailPoint> store;
    Slot slotState[kSlots];
};
