#pragma once

// The live event stream of one module (Server-Sent Events): the events the
// module publishes and the viewers that read them.
//
// The Qt main thread publishes; the HTTP thread reads each viewer's next
// bytes when its socket can take them. Events go into a short ring shared by
// all viewers; each viewer keeps only its place in the ring, so a viewer
// costs the same small amount of memory however far behind it is. A viewer
// that falls out of the ring is given the newest event of each kind and the
// ones in between are dropped and counted. A viewer that has not caught up
// for a while (its socket takes nothing) is closed.

#include <QByteArray>
#include <QList>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

enum class EventKind { Status, Config, Targets, Areas };

// "status", "config", "targets", "areas".
const char *eventName(EventKind kind);
// One event in the stream's text form: "event: NAME\ndata: DATA\n\n". Line
// breaks in data become further data lines, as the format wants.
QByteArray sseEvent(EventKind kind, const QByteArray &data);
// A comment line that keeps proxies from closing a quiet stream.
QByteArray sseComment(const QByteArray &text);

class EventHub;

class EventViewer
{
public:
    // What the HTTP side calls when a viewer that waits for data has some.
    using Wake = std::function<void()>;
    // Closes the viewer's connection (from the publishing thread).
    using Abort = std::function<void()>;
    // True when the viewer's peer has closed its end (from the publishing
    // thread, without reading anything).
    using PeerGone = std::function<bool()>;

    // The next bytes for the socket, at most max of them, into buffer. Returns
    // the count, 0 when there is nothing now (the caller then suspends the
    // connection and calls suspended()), or -1 when the stream has ended.
    long read(char *buffer, size_t max, qint64 nowMs);
    // After read() returned 0 and the connection was suspended: true when an
    // event came in between, so that the caller resumes it at once.
    bool suspended();

    qint64 dropped() const;

private:
    friend class EventHub;
    enum class Wait { Running, Suspending, Suspended, WakeRequested };

    EventHub *hub = nullptr;
    Wake wake;
    Abort abort;
    PeerGone peerGone;
    bool aborted = false;
    qint64 lastCaughtUpMs = 0; // when it last had everything published
    double minIntervalMs = 0;  // from ?rate=HZ on targets events
    quint64 next = 0;          // sequence number of the next event to send
    QByteArray pending;        // bytes of the event being sent
    int pendingOffset = 0;
    qint64 lastTargetsMs = -1;
    qint64 lastSentMs = 0;
    bool keepAliveDue = false;
    qint64 droppedCount = 0;
    Wait wait = Wait::Running;
};

class EventHub
{
public:
    // ringSize: how many recent events a viewer may be behind before the
    // older ones are dropped for it.
    explicit EventHub(int ringSize = 256);
    ~EventHub();

    // Main thread: a new event for every viewer.
    void publish(EventKind kind, const QByteArray &json);

    // A new viewer that first gets initial (the current status and
    // configuration as events), then every event published after this call.
    // rateHz > 0 caps its targets events. wake is called (on the publishing
    // thread) when it waits for data and some arrives.
    std::shared_ptr<EventViewer> addViewer(const QByteArray &initial, double rateHz,
                                           EventViewer::Wake wake, qint64 nowMs,
                                           EventViewer::Abort abort = nullptr,
                                           EventViewer::PeerGone peerGone = nullptr);
    // The viewer's connection has closed; no more wakes for it. Events it
    // never got count as dropped.
    void removeViewer(const std::shared_ptr<EventViewer> &viewer);

    // Main thread, every second or so: viewers that were sent nothing for
    // idleMs get a comment line, and so do waiting viewers whose peer has
    // gone (sending is how the connection finds out); viewers that have not caught up for stuckMs
    // are closed (0: never).
    void keepAlive(qint64 nowMs, qint64 idleMs, qint64 stuckMs = 0);
    // Ends every stream (the service stops); viewers waiting are woken.
    void closeAll();

    int viewerCount() const;
    // Events dropped for viewers that fell behind, in total (closed viewers
    // included).
    qint64 droppedTotal() const;

private:
    friend class EventViewer;
    struct Entry {
        quint64 seq;
        EventKind kind;
        QByteArray bytes;
    };
    // Under the lock: viewers waiting for data are marked running and
    // returned, to be woken after the lock is released.
    std::vector<std::shared_ptr<EventViewer>> takeWaiting();
    void wakeAll(const std::vector<std::shared_ptr<EventViewer>> &viewers);
    // Under the lock: the viewer fell out of the ring; give it the newest of
    // each kind it has not seen.
    void catchUp(EventViewer &viewer);

    mutable std::mutex lock;
    const size_t ringSize;
    std::deque<Entry> ring;
    quint64 nextSeq = 1;
    Entry latest[4];
    bool closed = false;
    std::vector<std::shared_ptr<EventViewer>> viewers;
    qint64 droppedClosed = 0;
};
