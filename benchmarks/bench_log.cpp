// Logger::write as the caller pays for it, and the worker's throughput when a
// large queue is written to the day's files.

#include "log/logger.h"
#include "tests/log/logtestsupport.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <thread>
#include <unistd.h>

namespace
{

// About 100 bytes once stamped: a request frame's hex dump.
const char kTypicalMessage[] = "SetArea TX: ff ee dd 00 0b 04 01 00 e2 46 1e 0a 01 ff dd ee ff";

// Points standard error at /dev/null while it lives.
class QuietStderr
{
public:
    QuietStderr()
    {
        std::fflush(stderr);
        m_saved = ::dup(2);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, 2);
        ::close(null);
    }
    ~QuietStderr()
    {
        std::fflush(stderr);
        ::dup2(m_saved, 2);
        ::close(m_saved);
    }

private:
    int m_saved = -1;
};

std::uintmax_t bytesUnder(const std::string &directory)
{
    std::uintmax_t total = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end;
         it.increment(error)) {
        std::error_code sizeError;
        const std::uintmax_t size = it->file_size(sizeError);
        if (!sizeError)
            total += size;
    }
    return total;
}

void BM_LoggerWrite(benchmark::State &state)
{
    QTemporaryDir base;
    QuietStderr quiet;
    auto logger = std::make_unique<Logger>(&Logger::localClock, base.path().toStdString());
    for (auto _ : state)
        logger->write(kTypicalMessage);
    state.SetItemsProcessed(state.iterations());
    logger.reset();
}
BENCHMARK(BM_LoggerWrite);

void BM_WorkerThroughput(benchmark::State &state)
{
    const int lines = static_cast<int>(state.range(0));
    const QDateTime when(QDate(2026, 11, 16), QTime(4, 0, 5, 123), Qt::UTC);
    const std::size_t lineLength = 26 + sizeof kTypicalMessage - 1 + 1;

    QuietStderr quiet;
    for (auto _ : state) {
        QTemporaryDir base;
        FakeClock clock(when);
        Logger logger(clock.function(), base.path().toStdString());
        const std::string day = base.path().toStdString() + "/log/20261116";

        // The first entry sends the worker into its pause; the rest queue up
        // behind it and are all taken at the next check.
        logger.write(kTypicalMessage);
        while (clock.workerReads() < 1)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (int i = 1; i < lines; ++i)
            logger.write(kTypicalMessage);

        while (!std::filesystem::exists(day))
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        const auto start = std::chrono::steady_clock::now();
        const std::uintmax_t expected = lineLength * static_cast<std::uintmax_t>(lines);
        while (bytesUnder(day) < expected)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(elapsed.count());
        if (bytesUnder(day) != expected)
            state.SkipWithError("unexpected amount of log data");
    }
    state.SetItemsProcessed(state.iterations() * lines);
}
BENCHMARK(BM_WorkerThroughput)
    ->Arg(200000)
    ->Iterations(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
