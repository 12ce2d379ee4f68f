#include "log/logger.h"

#include "log/condlock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace
{

// Scratch space for one formatted line, allocated once per logger.
constexpr std::size_t kFormatBufferSize = 3 * 1024 * 1024;
// The worker writes a batch once it holds this many entries...
constexpr std::size_t kBatchCount = 10;
// ...or once the oldest entry is older than this...
constexpr std::uint64_t kMaxQueuedAgeMs = 3000;
// ...and otherwise looks again after this pause.
constexpr std::chrono::milliseconds kCheckInterval(5000);
// A day's file is full from 5 MiB on; the next line goes to the next file.
constexpr std::uintmax_t kMaxFileSize = 0x500000;

constexpr char kLineFormat[] = "[%d-%02d-%02d %02d:%02d:%02d.%03d] %.*s\n";
constexpr char kDayDirectoryFormat[] = "log/%d";
constexpr char kFilePathFormat[] = "log/%d/logfile_%d.txt";
// Stored as UTF-8, like every other text of this program; a Windows console
// would want it in its own code page (GBK), a Linux terminal takes UTF-8.
constexpr char kWriteFailedText[] = "写日志失败，请确保你有足够的权限写!\n";

struct LogEntry {
    std::int32_t dateKey = 0; // yyyymmdd of the local date the line was logged
    std::uint64_t stampMs = 0;
    std::string line; // complete line, newline included
};

// The one place that asks the platform for the local time: localtime_r
// converts without re-reading the zone file on every call (tzset, which
// QDateTime's local conversion triggers, probes /etc/localtime each time).
LogClockReading localClockReading()
{
    using namespace std::chrono;
    const milliseconds sinceEpoch =
        duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    const std::time_t seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    const int millisecond = static_cast<int>(sinceEpoch.count() % 1000);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &seconds);
#else
    localtime_r(&seconds, &local);
#endif
    LogClockReading reading;
    reading.year = local.tm_year + 1900;
    reading.month = local.tm_mon + 1;
    reading.day = local.tm_mday;
    reading.hour = local.tm_hour;
    reading.minute = local.tm_min;
    reading.second = local.tm_sec;
    reading.millisecond = millisecond;
    // Whole seconds since 1970 times 1000, plus the local millisecond field.
    reading.stampMs =
        static_cast<std::uint64_t>(seconds) * 1000u + static_cast<std::uint64_t>(millisecond);
    return reading;
}

} // namespace

struct Logger::Private {
    Clock clock;
    // The directory that holds "log/"; empty means the working directory at
    // the time each file is opened.
    std::string baseDirectory;

    // Used by write() before it takes the queue lock; writeMutex keeps two
    // callers from sharing it at the same time.
    char *formatBuffer = nullptr;
    std::mutex writeMutex;

    CondLock *lock = nullptr;
    std::list<LogEntry> queue; // oldest first; guarded by lock

    std::mutex observerMutex;
    std::function<void(const QByteArray &)> observer;

    // Stop request from the destructor; it cuts the worker's pause short.
    std::atomic<bool> stopping{false};
    std::mutex stopMutex;
    std::condition_variable stopCondition;

    std::thread worker;

    void append(const char *message);
    void notifyObserver(const QByteArray &message);
    // Milliseconds used only to measure the age of queued entries.
    std::uint64_t nowMs() const { return clock().stampMs; }
    void run();
    bool pauseUnlessStopped();
    std::string pathOf(const char *format, int dateKey, int sequence = 0) const;
    struct DayCursor;
    void writeEntry(const LogEntry &entry, DayCursor &cursor) const;
};

// What the worker has learnt about a day's files while writing one batch: the
// directory exists, and the files numbered below firstCandidate are full. It
// lives for one batch only, so files changed by hand in between are looked at
// afresh; within a batch it saves probing the full files again for each line.
struct Logger::Private::DayCursor {
    int dateKey = 0;
    bool directoryReady = false;
    int firstCandidate = 0;
};

Logger &Logger::instance()
{
    static Logger logger(localClockReading, std::string());
    return logger;
}

LogClockReading Logger::localClock()
{
    return localClockReading();
}

Logger::Logger(Clock clock, std::string baseDirectory) : d(new Private)
{
    d->clock = std::move(clock);
    d->baseDirectory = std::move(baseDirectory);
    d->formatBuffer = new char[kFormatBufferSize];
    d->formatBuffer[0] = '\0';
    d->lock = condLockCreate();
    d->worker = std::thread([p = d] { p->run(); });
}

Logger::~Logger()
{
    // Stop the worker without flushing: entries still queued are lost, as
    // they would be at process exit.
    {
        std::lock_guard<std::mutex> guard(d->stopMutex);
        d->stopping = true;
    }
    d->stopCondition.notify_all();
    condLockLock(d->lock);
    condLockSignal(d->lock);
    condLockUnlock(d->lock);
    if (d->worker.joinable())
        d->worker.join();

    condLockDestroy(d->lock);
    delete[] d->formatBuffer;
    delete d;
}

void Logger::write(const char *message)
{
    const char *text = message ? message : "";
    d->append(text);
    std::lock_guard<std::mutex> guard(d->observerMutex);
    if (d->observer)
        d->observer(QByteArray(text));
}

void Logger::write(const QByteArray &message)
{
    // The line holds the text up to the first NUL byte, like a C string.
    d->append(message.constData());
    d->notifyObserver(message);
}

void Logger::write(const QString &message)
{
    write(message.toUtf8());
}

void Logger::setObserver(std::function<void(const QByteArray &message)> observer)
{
    std::lock_guard<std::mutex> guard(d->observerMutex);
    d->observer = std::move(observer);
}

void Logger::Private::notifyObserver(const QByteArray &message)
{
    std::lock_guard<std::mutex> guard(observerMutex);
    if (observer)
        observer(message);
}

void Logger::Private::append(const char *message)
{
    std::lock_guard<std::mutex> guard(writeMutex);
    const LogClockReading now = clock();

    // Bounded formatting: a message too long for the buffer is cut, and the
    // cut line still ends with a newline. Only the bytes written are touched.
    const int messageLength = static_cast<int>(strnlen(message, kFormatBufferSize));
    const int formatted =
        std::snprintf(formatBuffer, kFormatBufferSize, kLineFormat, now.year, now.month, now.day,
                      now.hour, now.minute, now.second, now.millisecond, messageLength, message);
    if (formatted < 0)
        return;
    std::size_t length = static_cast<std::size_t>(formatted);
    if (length >= kFormatBufferSize) {
        length = kFormatBufferSize - 1;
        formatBuffer[length - 1] = '\n';
    }

    // Build the entry outside the lock; splicing it in is then O(1).
    std::list<LogEntry> node;
    node.push_back(LogEntry{(now.year * 100 + now.month) * 100 + now.day, now.stampMs,
                            std::string(formatBuffer, length)});

    condLockLock(lock);
    queue.splice(queue.end(), node);
    condLockSignal(lock);
    condLockUnlock(lock);

    std::fwrite(formatBuffer, 1, length, stderr);
}

bool Logger::Private::pauseUnlessStopped()
{
    std::unique_lock<std::mutex> guard(stopMutex);
    return !stopCondition.wait_for(guard, kCheckInterval, [this] { return stopping.load(); });
}

void Logger::Private::run()
{
    for (;;) {
        condLockLock(lock);
        if (stopping) {
            condLockUnlock(lock);
            return;
        }
        if (queue.empty()) {
            // Wait once; the checks below run on whatever the wake-up left.
            condLockWait(lock);
            if (stopping || queue.empty()) {
                condLockUnlock(lock);
                if (stopping)
                    return;
                continue;
            }
        }
        // A few fresh entries wait for company: look again after a pause.
        // The age is an unsigned difference, so a clock that went back
        // counts as very old.
        if (queue.size() < kBatchCount && nowMs() - queue.front().stampMs <= kMaxQueuedAgeMs) {
            condLockUnlock(lock);
            if (!pauseUnlessStopped())
                return;
            continue;
        }
        // Take the whole queue; the files are written without the lock.
        std::list<LogEntry> batch;
        batch.swap(queue);
        condLockUnlock(lock);

        DayCursor cursor;
        for (const LogEntry &entry : batch) {
            if (stopping)
                return;
            writeEntry(entry, cursor);
        }
    }
}

std::string Logger::Private::pathOf(const char *format, int dateKey, int sequence) const
{
    char relative[64];
    std::snprintf(relative, sizeof relative, format, dateKey, sequence);
    if (baseDirectory.empty())
        return relative;
    return baseDirectory + '/' + relative;
}

void Logger::Private::writeEntry(const LogEntry &entry, DayCursor &cursor) const
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (cursor.dateKey != entry.dateKey)
        cursor = DayCursor{entry.dateKey, false, 0};

    // The day's directory (and "log/" itself) is made when missing; a failure
    // shows up at the file open below.
    if (!cursor.directoryReady) {
        const std::string directory = pathOf(kDayDirectoryFormat, entry.dateKey);
        if (!fs::exists(directory, error))
            fs::create_directories(directory, error);
    }

    // The first of logfile_0, logfile_1, ... that is missing or under 5 MiB.
    // A file whose size cannot be read counts as full.
    std::string path;
    int sequence = cursor.firstCandidate;
    for (;; ++sequence) {
        path = pathOf(kFilePathFormat, entry.dateKey, sequence);
        const std::uintmax_t size = fs::file_size(path, error);
        if (!error) {
            if (size < kMaxFileSize)
                break;
            continue;
        }
        // No size: a missing file is the one to create (so is one that cannot
        // even be looked at: its open reports the failure); an existing one
        // whose size cannot be read is skipped as full.
        if (!fs::exists(path, error))
            break;
    }

    // Each entry opens and closes its file on its own. Lines end in LF: text
    // mode (CR LF) is a Windows notion, so the file is opened in binary mode.
    cursor.firstCandidate = sequence;
    std::FILE *file = std::fopen(path.c_str(), "ab");
    if (!file) {
        std::fputs(kWriteFailedText, stderr);
        cursor.directoryReady = false;
        return;
    }
    cursor.directoryReady = true;
    std::fwrite(entry.line.data(), 1, entry.line.size(), file);
    std::fclose(file);
}
