#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <functional>
#include <string>

struct CondLock;

// Local date and time as the logger stamps a line.
struct LogClockReading {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
    // Whole seconds since 1970 times 1000 plus the millisecond field; used
    // only to measure the age of queued entries.
    std::uint64_t stampMs = 0;
};

// Process-wide asynchronous diagnostic log. write() formats a time-stamped
// line, echoes it on standard error and queues it; a worker thread appends
// queued lines in batches to log/<yyyymmdd>/logfile_<n>.txt, starting a new
// file once the current one has reached 5 MiB.
class Logger
{
public:
    using Clock = std::function<LogClockReading()>;

    static Logger &instance();

    // The local clock instance() stamps its lines with.
    static LogClockReading localClock();

    void write(const char *message);
    void write(const QByteArray &message);
    void write(const QString &message); // UTF-8

    // For tests: a logger of its own with a chosen clock and base directory
    // (the directory that holds "log/"). The worker starts at once.
    Logger(Clock clock, std::string baseDirectory);
    ~Logger();

    // For tests: every message given to write() is also handed, unchanged
    // and on the caller's thread, to this observer. An empty function removes it.
    void setObserver(std::function<void(const QByteArray &message)> observer);

    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

private:
    struct Private;
    Private *d;
};
