#include "service/eventstream.h"

#include <algorithm>
#include <cstring>

const char *eventName(EventKind kind)
{
    switch (kind) {
    case EventKind::Status:
        return "status";
    case EventKind::Config:
        return "config";
    case EventKind::Targets:
        return "targets";
    case EventKind::Areas:
        return "areas";
    }
    return "message";
}

QByteArray sseEvent(EventKind kind, const QByteArray &data)
{
    QByteArray out;
    out.reserve(data.size() + 32);
    out += "event: ";
    out += eventName(kind);
    out += '\n';
    for (const QByteArray &line : data.split('\n')) {
        out += "data: ";
        out += line.endsWith('\r') ? line.left(line.size() - 1) : line;
        out += '\n';
    }
    out += '\n';
    return out;
}

QByteArray sseComment(const QByteArray &text)
{
    QByteArray line = text;
    line.replace('\n', ' ');
    return ": " + line + "\n\n";
}

long EventViewer::read(char *buffer, size_t max, qint64 nowMs)
{
    std::lock_guard<std::mutex> guard(hub->lock);
    if (hub->closed)
        return -1;
    size_t filled = 0;
    while (filled < max) {
        if (pendingOffset < pending.size()) {
            const size_t n = std::min(max - filled, size_t(pending.size() - pendingOffset));
            std::memcpy(buffer + filled, pending.constData() + pendingOffset, n);
            pendingOffset += int(n);
            filled += n;
            continue;
        }
        pending.clear();
        pendingOffset = 0;
        if (next < hub->nextSeq) {
            if (hub->ring.empty() || next < hub->ring.front().seq) {
                hub->catchUp(*this);
                continue;
            }
            const EventHub::Entry &e = hub->ring[size_t(next - hub->ring.front().seq)];
            ++next;
            if (e.kind == EventKind::Targets && minIntervalMs > 0) {
                if (lastTargetsMs >= 0 && nowMs - lastTargetsMs < minIntervalMs)
                    continue;
                lastTargetsMs = nowMs;
            }
            pending = e.bytes;
            continue;
        }
        if (keepAliveDue && filled == 0) {
            keepAliveDue = false;
            pending = sseComment("keep-alive");
            continue;
        }
        break;
    }
    if (filled > 0) {
        keepAliveDue = false;
        lastSentMs = nowMs;
        if (next == hub->nextSeq)
            lastCaughtUpMs = nowMs;
        wait = Wait::Running;
        return long(filled);
    }
    lastCaughtUpMs = nowMs;
    wait = Wait::Suspending;
    return 0;
}

bool EventViewer::suspended()
{
    std::lock_guard<std::mutex> guard(hub->lock);
    if (wait == Wait::WakeRequested) {
        wait = Wait::Running;
        return true;
    }
    wait = Wait::Suspended;
    return false;
}

qint64 EventViewer::dropped() const
{
    std::lock_guard<std::mutex> guard(hub->lock);
    return droppedCount;
}

EventHub::EventHub(int ringSize) : ringSize(size_t(std::max(ringSize, 1)))
{
    for (auto &e : latest)
        e.seq = 0;
}

EventHub::~EventHub() = default;

void EventHub::publish(EventKind kind, const QByteArray &json)
{
    const QByteArray bytes = sseEvent(kind, json);
    std::vector<std::shared_ptr<EventViewer>> waiting;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (closed)
            return;
        const Entry entry{nextSeq++, kind, bytes};
        ring.push_back(entry);
        while (ring.size() > ringSize)
            ring.pop_front();
        latest[int(kind)] = entry;
        waiting = takeWaiting();
    }
    wakeAll(waiting);
}

std::shared_ptr<EventViewer> EventHub::addViewer(const QByteArray &initial, double rateHz,
                                                 EventViewer::Wake wake, qint64 nowMs,
                                                 EventViewer::Abort abort,
                                                 EventViewer::PeerGone peerGone)
{
    auto viewer = std::make_shared<EventViewer>();
    viewer->hub = this;
    viewer->wake = std::move(wake);
    viewer->abort = std::move(abort);
    viewer->peerGone = std::move(peerGone);
    viewer->lastCaughtUpMs = nowMs;
    viewer->minIntervalMs = rateHz > 0 ? 1000.0 / rateHz : 0.0;
    viewer->pending = initial;
    viewer->lastSentMs = nowMs;
    std::lock_guard<std::mutex> guard(lock);
    viewer->next = nextSeq;
    viewers.push_back(viewer);
    return viewer;
}

void EventHub::removeViewer(const std::shared_ptr<EventViewer> &viewer)
{
    std::lock_guard<std::mutex> guard(lock);
    const auto it = std::find(viewers.begin(), viewers.end(), viewer);
    if (it == viewers.end())
        return;
    // What it never got counts as dropped too (a viewer closed while stuck).
    droppedClosed += viewer->droppedCount + qint64(nextSeq - viewer->next);
    viewers.erase(it);
}

void EventHub::keepAlive(qint64 nowMs, qint64 idleMs, qint64 stuckMs)
{
    std::vector<std::shared_ptr<EventViewer>> waiting;
    {
        std::lock_guard<std::mutex> guard(lock);
        for (const auto &v : viewers) {
            // Closed under the lock: a viewer still in the list has its
            // connection still open.
            if (stuckMs > 0 && !v->aborted && v->abort && v->next < nextSeq &&
                nowMs - v->lastCaughtUpMs >= stuckMs) {
                v->aborted = true;
                v->abort();
            }
            const bool gone =
                v->wait == EventViewer::Wait::Suspended && v->peerGone && v->peerGone();
            if (v->keepAliveDue || (nowMs - v->lastSentMs < idleMs && !gone))
                continue;
            v->keepAliveDue = true;
            if (v->wait == EventViewer::Wait::Suspended) {
                v->wait = EventViewer::Wait::Running;
                waiting.push_back(v);
            } else if (v->wait == EventViewer::Wait::Suspending) {
                v->wait = EventViewer::Wait::WakeRequested;
            }
        }
    }
    wakeAll(waiting);
}

void EventHub::closeAll()
{
    std::vector<std::shared_ptr<EventViewer>> waiting;
    {
        std::lock_guard<std::mutex> guard(lock);
        closed = true;
        waiting = takeWaiting();
    }
    wakeAll(waiting);
}

int EventHub::viewerCount() const
{
    std::lock_guard<std::mutex> guard(lock);
    return int(viewers.size());
}

qint64 EventHub::droppedTotal() const
{
    std::lock_guard<std::mutex> guard(lock);
    qint64 total = droppedClosed;
    for (const auto &v : viewers)
        total += v->droppedCount;
    return total;
}

std::vector<std::shared_ptr<EventViewer>> EventHub::takeWaiting()
{
    std::vector<std::shared_ptr<EventViewer>> waiting;
    for (const auto &v : viewers) {
        if (v->wait == EventViewer::Wait::Suspended) {
            v->wait = EventViewer::Wait::Running;
            waiting.push_back(v);
        } else if (v->wait == EventViewer::Wait::Suspending) {
            v->wait = EventViewer::Wait::WakeRequested;
        }
    }
    return waiting;
}

void EventHub::wakeAll(const std::vector<std::shared_ptr<EventViewer>> &waiting)
{
    for (const auto &v : waiting)
        if (v->wake)
            v->wake();
}

void EventHub::catchUp(EventViewer &viewer)
{
    // The newest event of each kind the viewer has not seen, oldest first.
    std::vector<const Entry *> newest;
    for (const Entry &e : latest)
        if (e.seq != 0 && e.seq >= viewer.next)
            newest.push_back(&e);
    std::sort(newest.begin(), newest.end(),
              [](const Entry *a, const Entry *b) { return a->seq < b->seq; });
    viewer.pending.clear();
    viewer.pendingOffset = 0;
    for (const Entry *e : newest)
        viewer.pending += e->bytes;
    viewer.droppedCount += qint64(nextSeq - viewer.next) - qint64(newest.size());
    viewer.next = nextSeq;
}
