#include "tools/radar-sim/simrunner.h"

#include "radar/frameformat.h"
#include "tools/radar-sim/simport.h"

#include <QCoreApplication>
#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

// Reports are skipped while this many writes still wait, or while what
// waits needs the line for longer than one report period, so that a tool
// that reads slowly, or a line too slow for the reports asked for, gets
// fresh positions instead of an ever longer backlog.
constexpr size_t kMaxQueued = 16;

// A write that comes this late after the line became free still counts as
// following on at once, so timer delays do not slow the stream down.
constexpr qint64 kLateSlackUs = 2000;

// Bytes on the line per report period: a target report, an area report,
// and the noise before each.
qint64 reportBytesPerTick(const SimOptions &o)
{
    const qint64 targetReport = frameformat::kEnvelopeSize + 2 * o.targetCount();
    const qint64 areaReport = frameformat::kEnvelopeSize + 3;
    return targetReport + areaReport + 2 * o.noise;
}

} // namespace

SimRunner::SimRunner(const SimOptions &options, std::unique_ptr<SimPort> linePort, QObject *parent)
    : QObject(parent), opts(options), port(std::move(linePort)), module(options.baud)
{
    module.setBaudNg(opts.baudNg);
    for (const SimOptions::AreaPreset &a : opts.areas)
        module.presetArea(a.number, a.type, a.rect);
    pathSeed = opts.seedGiven ? opts.seed : QRandomGenerator::system()->generate();
    if (opts.fixed.isEmpty())
        motion = std::make_unique<TargetMotion>(opts.targets, pathSeed);
    else
        motion = std::make_unique<TargetMotion>(opts.fixed);

    // Two frames per tick: keep their pauses inside what the tick's period
    // leaves after the line time of its bytes.
    frameGapMs = opts.gapMs;
    if (opts.rate > 0.0) {
        const double busyMs = BaudLine::lineTimeUs(reportBytesPerTick(opts), opts.baud) / 1000.0;
        frameGapMs = std::min(frameGapMs, std::max(1, int((1000.0 / opts.rate - busyMs) / 3.0)));
    }
    emulateRate = !opts.anyBaud && port->showsPeerRates();
    FaultInjector::Settings f;
    f.noiseBytes = opts.noise;
    f.badChecksum = opts.badChecksum;
    f.split = opts.split;
    f.frameGapMs = frameGapMs;
    f.chunkPauseMs = 2;
    faults = std::make_unique<FaultInjector>(f, pathSeed ^ 0x9E3779B9u);

    tickTimer.setTimerType(Qt::PreciseTimer);
    pumpTimer.setTimerType(Qt::PreciseTimer);
    pumpTimer.setSingleShot(true);
    replayTimer.setTimerType(Qt::PreciseTimer);
    replayTimer.setSingleShot(true);
    connect(&tickTimer, &QTimer::timeout, this, &SimRunner::onTick);
    connect(&pumpTimer, &QTimer::timeout, this, &SimRunner::pump);
    connect(&replayTimer, &QTimer::timeout, this, &SimRunner::onReplayTimer);

    connect(port.get(), &SimPort::received, this, &SimRunner::onReceived);
    connect(port.get(), &SimPort::peerOpened, this, &SimRunner::onPeerOpened);
    connect(port.get(), &SimPort::peerClosed, this, &SimRunner::onPeerClosed);
    connect(port.get(), &SimPort::lost, this, [this](const QString &why) {
        std::fprintf(stderr, "radar-sim: port lost: %s\n", qPrintable(why));
        finish(1);
    });
}

SimRunner::~SimRunner() = default;

void SimRunner::say(const QString &line) const
{
    if (opts.verbose) {
        std::fprintf(stderr, "radar-sim: %s\n", line.toLocal8Bit().constData());
        std::fflush(stderr);
    }
}

bool SimRunner::start(QString *error)
{
    if (!port->open(error))
        return false;
    clock.start();
    if (opts.replayFile.isEmpty()) {
        say(QString("%1 target(s), %2, %3 Hz, seed %4")
                .arg(motion->count())
                .arg(opts.fixed.isEmpty() ? "walking" : "standing still")
                .arg(opts.rate)
                .arg(pathSeed));
        const int payloadLength = 2 * motion->count() + 1;
        if ((payloadLength & 0xFF) >= 0x80)
            std::fprintf(stderr,
                         "radar-sim: warning: with %d targets the report's length field is %d;"
                         " a receiver reading the length bytes as signed cannot frame it\n",
                         motion->count(), payloadLength);
        warnIfLineTooSlow(module.baudRate());
        if (opts.rate > 0.0)
            tickTimer.start(std::max(1, int(std::lround(1000.0 / opts.rate))));
    } else {
        say(QString("replaying %1 chunk(s) over %2 ms from %3")
                .arg(replay.entries().size())
                .arg(replay.durationMs())
                .arg(opts.replayFile));
    }
    say(emulateRate ? QString("the module talks at %1 baud; the other side's rate is checked at "
                              "every read and write")
                          .arg(module.baudRate())
                    : QString("the module talks at %1 baud").arg(module.baudRate()));
    return true;
}

void SimRunner::onPeerOpened()
{
    say(QString("%1 opened by the other side").arg(port->name()));
    queue.clear();
    writeMismatch.clear(); // say again for this session whether the rates agree
    // The tool pauses after opening and then asks for the areas; reports
    // piled up meanwhile would arrive as one burst around its answer.
    reportsFrom = clock.elapsed() + opts.settleMs;
    if (everOpened)
        return;
    everOpened = true;
    if (opts.disconnectAfter > 0.0) {
        QTimer::singleShot(int(std::lround(opts.disconnectAfter * 1000.0)), this, [this] {
            say(QString("disconnecting after %1 s").arg(opts.disconnectAfter));
            finish(0);
        });
    }
    if (!opts.replayFile.isEmpty()) {
        replayNext = 0;
        replayClock.start();
        onReplayTimer();
    }
}

void SimRunner::onPeerClosed()
{
    say(QString("%1 closed by the other side").arg(port->name()));
    queue.clear();
    pumpTimer.stop();
}

bool SimRunner::peerSendsAtModuleRate(QString *why)
{
    if (!emulateRate)
        return true;
    const PeerLineRates rates = port->peerRates();
    if (!rates.known) {
        *why = QString("%1; taken as another rate than the module's %2 baud")
                   .arg(rates.problem)
                   .arg(module.baudRate());
        return false;
    }
    if (rates.sendRate == module.baudRate())
        return true;
    *why = QString("sent at %1 baud while the module listens at %2 baud")
               .arg(rates.sendRate)
               .arg(module.baudRate());
    return false;
}

bool SimRunner::peerListensAtModuleRate(int *peerRate)
{
    *peerRate = module.baudRate();
    if (!emulateRate)
        return true;
    const PeerLineRates rates = port->peerRates();
    QString state;
    if (!rates.known) {
        *peerRate = 0;
        state = QString("%1; what the module sends at %2 baud goes out as garbage")
                    .arg(rates.problem)
                    .arg(module.baudRate());
    } else {
        *peerRate = rates.receiveRate;
        if (rates.receiveRate != module.baudRate())
            state = QString("the other side listens at %1 baud, the module talks at %2 baud: "
                            "it gets garbage")
                        .arg(rates.receiveRate)
                        .arg(module.baudRate());
    }
    if (state != writeMismatch) {
        say(state.isEmpty() ? QString("the other side listens at %1 baud, as the module talks")
                                  .arg(module.baudRate())
                            : state);
        writeMismatch = state;
    }
    return state.isEmpty();
}

void SimRunner::warnIfLineTooSlow(int baud)
{
    if (opts.rate <= 0.0 || !opts.replayFile.isEmpty() || warnedRates.contains(baud))
        return;
    const qint64 perTick = reportBytesPerTick(opts);
    const double asked = double(perTick) * opts.rate;
    const double carried = BaudLine::bytesPerSecond(baud);
    if (asked <= carried)
        return;
    warnedRates.insert(baud);
    std::fprintf(stderr,
                 "radar-sim: warning: --rate %g with %d target(s) asks for %.0f bytes/s"
                 " (%.0f bit/s with start and stop bits), but the line at %d baud carries"
                 " %.0f bytes/s: about %.1f reports per second get through\n",
                 opts.rate, opts.targetCount(), asked, asked * BaudLine::kBitsPerByte, baud,
                 carried, carried / double(perTick));
    std::fflush(stderr);
}

void SimRunner::onReceived(const QByteArray &bytes)
{
    QString why;
    if (!peerSendsAtModuleRate(&why)) {
        say(QString("%1 byte(s) not understood: %2").arg(bytes.size()).arg(why));
        return;
    }
    const QList<RadarSimulator::Reply> replies = module.receive(bytes);
    for (const RadarSimulator::Reply &r : replies) {
        if (!opts.replayFile.isEmpty()) {
            say(r.description + " (not answered during a replay)");
            continue;
        }
        say(r.description);
        for (int k = 0; k < r.frames.size(); ++k) {
            const bool last = k == r.frames.size() - 1;
            enqueueFrame(r.frames.at(k), last ? r.newBaudRate : 0);
        }
    }
}

void SimRunner::onTick()
{
    // People move only while somebody listens, so that a seed gives the
    // same reports from the moment the port is opened.
    if (!port->peerConnected() || clock.elapsed() < reportsFrom)
        return;
    motion->step(1.0 / opts.rate);
    if (queue.size() > kMaxQueued || queuedLineTimeUs() > qint64(1e6 / opts.rate)) {
        ++skippedTicks;
        return;
    }
    const QVector<QPointF> targets = motion->positions();
    enqueueFrame(module.targetReport(targets));
    enqueueFrame(module.areaReport(targets));
}

void SimRunner::onReplayTimer()
{
    const QVector<ReplayLog::Entry> &entries = replay.entries();
    const qint64 now = replayClock.elapsed();
    while (replayNext < entries.size() && entries.at(replayNext).offsetMs <= now) {
        if (port->peerConnected())
            queue.push_back({entries.at(replayNext).bytes, 0, 0});
        ++replayNext;
    }
    pump();
    if (replayNext < entries.size())
        replayTimer.start(int(std::max<qint64>(0, entries.at(replayNext).offsetMs - now)));
    else
        say("replay finished");
}

void SimRunner::enqueueFrame(const QByteArray &frame, int baudAfter)
{
    const QList<FaultInjector::Chunk> chunks = faults->prepare(frame);
    for (int k = 0; k < chunks.size(); ++k) {
        const bool last = k == chunks.size() - 1;
        queue.push_back({chunks.at(k).bytes, chunks.at(k).pauseAfterMs, last ? baudAfter : 0,
                         last ? int(frameformat::codeOf(frame)) : -1});
    }
    pump();
}

qint64 SimRunner::queuedLineTimeUs() const
{
    qint64 bytes = 0;
    for (const Pending &p : queue)
        bytes += p.bytes.size();
    const qint64 busy = std::max<qint64>(0, lineFreeAtUs - clock.nsecsElapsed() / 1000);
    return busy + BaudLine::lineTimeUs(bytes, module.baudRate());
}

void SimRunner::pump()
{
    while (!queue.empty()) {
        if (!port->peerConnected()) {
            queue.clear();
            return;
        }
        const qint64 nowUs = clock.nsecsElapsed() / 1000;
        if (nowUs < nextWriteAtUs) {
            pumpTimer.start(int((nextWriteAtUs - nowUs + 999) / 1000));
            return;
        }
        Pending &p = queue.front();
        int peerRate = 0;
        const bool heard = peerListensAtModuleRate(&peerRate);
        const qint64 n =
            port->write(heard ? p.bytes : line.garble(p.bytes, module.baudRate(), peerRate));
        if (n < 0) {
            queue.clear();
            return;
        }
        // Garbage that does not fit is lost, as on a line nobody reads.
        const qint64 sent = heard ? n : p.bytes.size();
        // The bytes occupy the line for their time at the module's rate; a
        // write that follows on at once starts when the line became free.
        const qint64 startUs = nowUs - nextWriteAtUs <= kLateSlackUs ? nextWriteAtUs : nowUs;
        lineFreeAtUs = startUs + BaudLine::lineTimeUs(sent, module.baudRate());
        nextWriteAtUs = lineFreeAtUs;
        if (sent < p.bytes.size()) {
            // The line is full (the other side is not reading): retry the rest shortly.
            p.bytes.remove(0, int(sent));
            nextWriteAtUs = std::max(nextWriteAtUs, nowUs + 2000);
            continue;
        }
        nextWriteAtUs += qint64(p.pauseAfterMs) * 1000;
        const int baud = p.baudAfter;
        if (p.code >= 0)
            ++framesWritten[p.code];
        queue.pop_front();
        if (baud > 0) {
            port->drain();
            port->setBaudRate(baud);
            module.setBaudRate(baud);
            say(QString("now at %1 baud").arg(baud));
            warnIfLineTooSlow(baud);
        }
    }
}

void SimRunner::finish(int code)
{
    if (opts.replayFile.isEmpty()) {
        int answers = 0;
        for (int c = 0; c < 256; ++c)
            if (c != TargetReport && c != TargetAreaReport)
                answers += framesWritten[c];
        say(QString("sent %1 target report(s), %2 area report(s), %3 answer(s); "
                    "%4 tick(s) skipped while the line was busy")
                .arg(framesWritten[TargetReport])
                .arg(framesWritten[TargetAreaReport])
                .arg(answers)
                .arg(skippedTicks));
    }
    tickTimer.stop();
    pumpTimer.stop();
    replayTimer.stop();
    port->close();
    QCoreApplication::exit(code);
}
