#pragma once

#include "log/logger.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QString>
#include <QTemporaryFile>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <unistd.h>

// Turns a date and time (taken as given, no time zone applied) into what the
// logger's clock reports.
inline LogClockReading clockReading(const QDateTime &when)
{
    LogClockReading reading;
    reading.year = when.date().year();
    reading.month = when.date().month();
    reading.day = when.date().day();
    reading.hour = when.time().hour();
    reading.minute = when.time().minute();
    reading.second = when.time().second();
    reading.millisecond = when.time().msec();
    reading.stampMs = static_cast<std::uint64_t>(when.toMSecsSinceEpoch());
    return reading;
}

inline QDateTime utc(int year, int month, int day, int hour, int minute, int second, int ms)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, ms), Qt::UTC);
}

// A clock under the test's control. The thread that made it (the test, which
// calls write()) sees the writer time; any other thread (the logger's worker)
// sees the worker time, so the age the worker measures is chosen exactly.
// Every read by the worker is counted: it marks one check of the queue.
class FakeClock
{
public:
    explicit FakeClock(const QDateTime &start = utc(2026, 11, 16, 4, 0, 5, 123))
        : m_owner(std::this_thread::get_id()), m_writer(start), m_worker(start)
    {
    }

    void setWriterTime(const QDateTime &when)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_writer = when;
    }
    void setWorkerTime(const QDateTime &when)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_worker = when;
    }
    void setBoth(const QDateTime &when)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_writer = when;
        m_worker = when;
    }
    QDateTime writerTime() const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_writer;
    }
    int workerReads() const { return m_workerReads.load(); }
    std::chrono::steady_clock::time_point lastWorkerRead() const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_lastWorkerRead;
    }

    Logger::Clock function()
    {
        return [this] { return read(); };
    }

    LogClockReading read()
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (std::this_thread::get_id() == m_owner)
            return clockReading(m_writer);
        m_lastWorkerRead = std::chrono::steady_clock::now();
        ++m_workerReads;
        return clockReading(m_worker);
    }

private:
    const std::thread::id m_owner;
    mutable std::mutex m_mutex;
    QDateTime m_writer;
    QDateTime m_worker;
    std::atomic<int> m_workerReads{0};
    std::chrono::steady_clock::time_point m_lastWorkerRead;
};

// Sends file descriptor 2 into a temporary file while it lives.
class StderrCapture
{
public:
    StderrCapture()
    {
        m_file.open();
        std::fflush(stderr);
        m_saved = ::dup(2);
        ::dup2(m_file.handle(), 2);
    }
    ~StderrCapture()
    {
        std::fflush(stderr);
        ::dup2(m_saved, 2);
        ::close(m_saved);
    }
    QByteArray text() const
    {
        std::fflush(stderr);
        QFile file(m_file.fileName());
        if (!file.open(QIODevice::ReadOnly))
            return QByteArray("<capture unreadable>");
        return file.readAll();
    }

    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

inline QString logFilePath(const QString &base, int dateKey, int sequence = 0)
{
    return QStringLiteral("%1/log/%2/logfile_%3.txt").arg(base).arg(dateKey).arg(sequence);
}

// The whole file, or a null array when it does not exist.
inline QByteArray fileContents(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}
