#pragma once

#include "tools/radar-sim/baudline.h"
#include "tools/radar-sim/faultinjector.h"
#include "tools/radar-sim/radarsimulator.h"
#include "tools/radar-sim/replaylog.h"
#include "tools/radar-sim/simoptions.h"
#include "tools/radar-sim/targetmotion.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <deque>
#include <memory>

class SimPort;

// Runs the module on a line: answers requests, streams reports at the
// chosen rate while the tool has the port open, paces every write to what
// the module's baud rate carries, plays a replay, and ends the session when
// asked to.
//
// On a line whose port shows the other side's rates (a pseudo-terminal) it
// also plays what a real line does when the two ends disagree on the baud
// rate: requests sent at another rate are not understood, and what the
// module sends arrives as garbage without a frame header. The module's rate
// is its starting rate until it accepts a baud-rate change.
class SimRunner : public QObject
{
    Q_OBJECT

public:
    SimRunner(const SimOptions &options, std::unique_ptr<SimPort> port, QObject *parent = nullptr);
    ~SimRunner() override;

    // Opens the line; false with *error set when it cannot.
    bool start(QString *error);
    // Must be set before start() in replay mode.
    void setReplay(const ReplayLog &log) { replay = log; }
    const SimPort *simPort() const { return port.get(); }
    // Ends the run as --disconnect-after does: close the line, exit with code.
    void finish(int code);
    quint32 seed() const { return pathSeed; }

private:
    struct Pending {
        QByteArray bytes;
        int pauseAfterMs = 0;
        int baudAfter = 0; // switch the line to this rate once written
        int code = -1;     // function code when this write ends a frame
    };

    void onReceived(const QByteArray &bytes);
    void onPeerOpened();
    void onPeerClosed();
    void onTick();
    void onReplayTimer();
    void enqueueFrame(const QByteArray &frame, int baudAfter = 0);
    void pump();
    // Whether the other side hears the module / is heard by it, checked at
    // every write and read (the tool may reopen at another rate any time).
    bool peerListensAtModuleRate(int *peerRate);
    bool peerSendsAtModuleRate(QString *why);
    // Warns once per baud rate when the reports asked for need more than it carries.
    void warnIfLineTooSlow(int baud);
    // Line time of what waits to be written, and of what is still on the
    // line, at the module's rate (pauses between writes not counted).
    qint64 queuedLineTimeUs() const;
    void say(const QString &line) const;

    SimOptions opts;
    std::unique_ptr<SimPort> port;
    RadarSimulator module;
    std::unique_ptr<TargetMotion> motion;
    std::unique_ptr<FaultInjector> faults;
    quint32 pathSeed = 0;
    ReplayLog replay;
    int replayNext = 0;
    bool everOpened = false;
    int frameGapMs = 5;
    bool emulateRate = false; // play the effect of a rate mismatch
    BaudLine line;
    QString writeMismatch; // last state of the outgoing direction, said once per change
    QSet<int> warnedRates;

    std::deque<Pending> queue;
    QElapsedTimer clock;
    qint64 lineFreeAtUs = 0;  // the last write has left the line
    qint64 nextWriteAtUs = 0; // ... and the pause after it is over
    QTimer tickTimer;
    QTimer pumpTimer;
    QTimer replayTimer;
    QElapsedTimer replayClock;
    int skippedTicks = 0;
    qint64 reportsFrom = 0; // clock time at which reports may start after an open
    int framesWritten[256] = {};
};
