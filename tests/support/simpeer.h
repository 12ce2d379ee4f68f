#pragma once

// Test helpers: start radar-sim as a process and talk to it through its
// pseudo-terminal the way the tool does (the slave side, raw mode).

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#ifndef RADAR_SIM_BIN
#error "RADAR_SIM_BIN must name the radar-sim executable"
#endif

// One read from the line and when it came.
struct TimedChunk {
    qint64 atMs = 0;
    QByteArray bytes;
};

// A frame cut out of the received stream, with the bytes that came before it.
struct SeenFrame {
    QByteArray frame;
    QByteArray garbageBefore;
};

// Cuts complete frames out of a byte stream (unsigned length, as the
// module sends them). Bytes of an unfinished frame at the end are left out.
inline QList<SeenFrame> cutFrames(const QByteArray &stream)
{
    QList<SeenFrame> frames;
    const QByteArray header("\xFF\xEE\xDD", 3);
    int pos = 0;
    for (;;) {
        const int start = stream.indexOf(header, pos);
        if (start < 0 || start + 5 > stream.size())
            break;
        const int length = (quint8(stream.at(start + 3)) << 8) | quint8(stream.at(start + 4));
        const int total = length + 9;
        if (start + total > stream.size())
            break;
        frames.append({stream.mid(start, total), stream.mid(pos, start - pos)});
        pos = start + total;
    }
    return frames;
}

class SimProcess
{
public:
    ~SimProcess() { stop(); }

    // Starts radar-sim and waits for the port line; empty path on failure.
    QString start(const QStringList &args, int timeoutMs = 5000)
    {
        process.setProgram(QStringLiteral(RADAR_SIM_BIN));
        process.setArguments(args);
        process.start();
        if (!process.waitForStarted(timeoutMs))
            return QString();
        QElapsedTimer t;
        t.start();
        while (!process.canReadLine() && t.elapsed() < timeoutMs)
            process.waitForReadyRead(50);
        return QString::fromLocal8Bit(process.readLine()).trimmed();
    }
    void stop()
    {
        if (process.state() != QProcess::NotRunning) {
            process.terminate();
            if (!process.waitForFinished(3000)) {
                process.kill();
                process.waitForFinished(3000);
            }
        }
    }
    // Waits until the simulator has said this on standard error (or the time
    // is up); true when it has.
    bool waitForError(const QString &text, int timeoutMs = 10000)
    {
        QElapsedTimer t;
        t.start();
        while (!errors(0).contains(text) && t.elapsed() < timeoutMs)
            process.waitForReadyRead(20);
        return errors(0).contains(text);
    }
    // Everything the simulator wrote on standard error so far (the pipe is
    // read for a short moment first).
    QString errors(int settleMs = 100)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < settleMs) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QThread::msleep(5);
        }
        // Takes in what is in the pipe now (the event loop may not have run).
        if (process.state() == QProcess::Running)
            process.waitForReadyRead(0);
        stderrText += process.readAllStandardError();
        return QString::fromLocal8Bit(stderrText);
    }

    QProcess process;

private:
    QByteArray stderrText;
};

class PtyPeer
{
public:
    ~PtyPeer() { close(); }

    // Opens the port raw at this speed (radar-sim's module starts at 9600
    // and ignores a tool at another rate).
    bool open(const QString &path, speed_t speed = B9600)
    {
        fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (fd < 0)
            return false;
        termios tio;
        if (::tcgetattr(fd, &tio) == 0) {
            ::cfmakeraw(&tio);
            ::cfsetspeed(&tio, speed);
            ::tcsetattr(fd, TCSANOW, &tio);
        }
        clock.start();
        return true;
    }
    void close()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    bool send(const QByteArray &bytes)
    {
        return fd >= 0 && ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
    }
    // Reads for ms milliseconds, each read as soon as bytes are there.
    // Stops early when the line hangs up (sets hungUp).
    QList<TimedChunk> readFor(int ms)
    {
        QList<TimedChunk> chunks;
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms && fd >= 0) {
            pollfd p{fd, POLLIN, 0};
            const int r = ::poll(&p, 1, int(std::max<qint64>(1, ms - t.elapsed())));
            if (r <= 0)
                continue;
            char buffer[4096];
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n > 0) {
                chunks.append({clock.elapsed(), QByteArray(buffer, int(n))});
                all.append(buffer, int(n));
            } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
                hungUp = true;
                break;
            }
        }
        return chunks;
    }
    // Reads until done() holds, the line hangs up or the time is up; returns
    // the reads made meanwhile. Tests wait for what they count this way
    // rather than for a fixed time, so that a loaded machine only makes them
    // slower.
    template <typename Done> QList<TimedChunk> readUntil(Done done, int timeoutMs = 10000)
    {
        QList<TimedChunk> chunks;
        QElapsedTimer t;
        t.start();
        while (!done() && !hungUp && fd >= 0 && t.elapsed() < timeoutMs)
            chunks += readFor(20);
        return chunks;
    }
    // Reads until at least count whole frames have arrived in all.
    QList<TimedChunk> readFrames(int count, int timeoutMs = 10000)
    {
        return readUntil([&] { return cutFrames(all).size() >= count; }, timeoutMs);
    }
    // Reads until a frame with this code has arrived (or the time is up).
    QByteArray waitForFrame(quint8 code, int ms = 10000)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms) {
            const QList<SeenFrame> frames = cutFrames(all.mid(consumed));
            int used = 0;
            for (const SeenFrame &f : frames) {
                used += f.garbageBefore.size() + f.frame.size();
                if (quint8(f.frame.at(5)) == code) {
                    consumed += used;
                    return f.frame;
                }
            }
            readFor(20);
        }
        return QByteArray();
    }

    int fd = -1;
    bool hungUp = false;
    QByteArray all;   // everything received
    int consumed = 0; // bytes of `all` already handed out by waitForFrame
    QElapsedTimer clock;
};
