// Frame building and checking, and the receive scan and dispatch of a
// stream of 3-target reports cut into random chunks of 1 to 64 bytes.

#include "radar/frameformat.h"
#include "radar/radercommunicate.h"
#include "radar/radercommunicateaccess.h"

#include <QByteArray>
#include <QDir>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <unistd.h>
#include <vector>

namespace
{

void discardDebug(QtMsgType, const QMessageLogContext &, const QString &) {}

QByteArray readAreaFrame()
{
    return QByteArray::fromHex("FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 02 00 00 00 00 "
                               "00 00 00 00 03 01 E2 50 E2 00 1E 00 1E 50 FF DD EE FF");
}

// Target reports with three targets each, back to back as the module sends
// them, cut into chunks of 1 to 64 bytes.
std::vector<QByteArray> targetStreamChunks(std::size_t *totalBytes)
{
    std::mt19937 random(7);
    QByteArray stream;
    for (int k = 0; k < 4096; ++k) {
        QByteArray payload;
        for (int t = 0; t < 3; ++t) {
            payload.append(char(int(random() % 100) - 50)); // x: -5..5 m
            payload.append(char(random() % 80));            // y: 0..8 m
        }
        stream += frameformat::buildFrame(TargetReport, payload);
    }
    std::vector<QByteArray> chunks;
    int pos = 0;
    while (pos < stream.size()) {
        const int n = std::min(int(random() % 64) + 1, int(stream.size()) - pos);
        chunks.push_back(stream.mid(pos, n));
        pos += n;
    }
    *totalBytes = std::size_t(stream.size());
    return chunks;
}

void runScan(benchmark::State &state, bool withLog)
{
    std::size_t total = 0;
    const std::vector<QByteArray> chunks = targetStreamChunks(&total);
    RaderCommunicate *link = RaderCommunicate::GetInstance();
    long targets = 0;
    QObject::connect(link, &RaderCommunicate::signal_TargetResp,
                     [&targets](QList<QPointF> list) { targets += list.size(); });
    const QtMessageHandler previous = qInstallMessageHandler(&discardDebug);
    RaderCommunicateAccess::setLogEnabled(link, withLog);
    link->CloseSerial();

    for (auto _ : state) {
        for (const QByteArray &chunk : chunks)
            link->ReceiveBytes(chunk);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(total));
    state.counters["targets/s"] = benchmark::Counter(double(targets), benchmark::Counter::kIsRate);

    RaderCommunicateAccess::setLogEnabled(link, true);
    qInstallMessageHandler(previous);
    QObject::disconnect(link, &RaderCommunicate::signal_TargetResp, nullptr, nullptr);
    link->CloseSerial();
}

} // namespace

static void BM_BuildSetAreaFrame(benchmark::State &state)
{
    const QRectF rect(QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    for (auto _ : state) {
        QByteArray frame =
            frameformat::buildFrame(SetArea, frameformat::setAreaPayload(0, 0, rect));
        benchmark::DoNotOptimize(frame.constData());
    }
}
BENCHMARK(BM_BuildSetAreaFrame);

static void BM_CheckReadAreaFrame(benchmark::State &state)
{
    const QByteArray frame = readAreaFrame();
    for (auto _ : state) {
        bool ok = frameformat::checksumMatches(frame);
        benchmark::DoNotOptimize(ok);
    }
}
BENCHMARK(BM_CheckReadAreaFrame);

static void BM_DecodeReadAreaFrame(benchmark::State &state)
{
    const QByteArray frame = readAreaFrame();
    for (auto _ : state) {
        auto areas = frameformat::decodeReadAreaResponse(frame);
        benchmark::DoNotOptimize(areas);
    }
}
BENCHMARK(BM_DecodeReadAreaFrame);

static void BM_ScanTargetStreamWithoutLog(benchmark::State &state)
{
    runScan(state, false);
}
BENCHMARK(BM_ScanTargetStreamWithoutLog)->Unit(benchmark::kMillisecond);

// The same with Qt's debug output switched off for the default category
// (QT_LOGGING_RULES="default.debug=false"): the link then skips building
// its debug texts.
static void BM_ScanTargetStreamWithoutLogDebugOff(benchmark::State &state)
{
    QLoggingCategory::setFilterRules("default.debug=false");
    runScan(state, false);
    QLoggingCategory::setFilterRules(QString());
}
BENCHMARK(BM_ScanTargetStreamWithoutLogDebugOff)->Unit(benchmark::kMillisecond);

static void BM_ScanTargetStreamWithLog(benchmark::State &state)
{
    // The real logger writes below the working directory and echoes every
    // line on standard error: run in a scratch directory, stderr discarded.
    char dir[] = "/tmp/bench_radar_XXXXXX";
    if (!mkdtemp(dir)) {
        state.SkipWithError("no scratch directory");
        return;
    }
    const QString previousDir = QDir::currentPath();
    QDir::setCurrent(QString::fromLocal8Bit(dir));
    std::fflush(stderr);
    const int savedStderr = dup(2);
    const int devNull = open("/dev/null", O_WRONLY);
    dup2(devNull, 2);
    close(devNull);

    runScan(state, true);

    std::fflush(stderr);
    dup2(savedStderr, 2);
    close(savedStderr);
    QDir::setCurrent(previousDir);
}
BENCHMARK(BM_ScanTargetStreamWithLog)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
