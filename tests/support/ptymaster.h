#pragma once

// Test helper: the module's end of a pseudo-terminal pair. The test holds the
// master side, raw and non-blocking; the code under test (the window's link,
// orv-cli, radar-sim --port) opens the slave by its path.

#include <QByteArray>
#include <QElapsedTimer>
#include <QString>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

class PtyMaster
{
public:
    // keepSlaveOpen: hold a slave descriptor too, so the master never sees a
    // hang-up while the code under test has the port closed.
    explicit PtyMaster(bool keepSlaveOpen = false)
    {
        char name[256] = {};
        int slave = -1;
        if (::openpty(&master, &slave, name, nullptr, nullptr) != 0) {
            master = -1;
            return;
        }
        termios tio{};
        ::tcgetattr(master, &tio);
        ::cfmakeraw(&tio);
        ::tcsetattr(master, TCSANOW, &tio);
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
        if (keepSlaveOpen)
            heldSlave = slave;
        else
            ::close(slave);
        slavePath = QString::fromLocal8Bit(name);
    }
    ~PtyMaster()
    {
        closeMaster();
        if (heldSlave >= 0)
            ::close(heldSlave);
    }
    PtyMaster(const PtyMaster &) = delete;
    PtyMaster &operator=(const PtyMaster &) = delete;

    bool isOpen() const { return master >= 0; }
    int fd() const { return master; }
    // The slave's path, /dev/pts/N.
    QString path() const { return slavePath; }

    void closeMaster()
    {
        if (master >= 0)
            ::close(master);
        master = -1;
    }

    // Writes every byte, waiting while the line is full (up to timeoutMs; 0
    // writes what fits now); false when not all of them went. whileFull, when given, is called
    // instead of the wait: a test whose reader runs in its own event loop
    // passes something that processes events.
    bool write(const QByteArray &bytes, int timeoutMs = 3000,
               const std::function<void()> &whileFull = {})
    {
        const char *p = bytes.constData();
        qint64 left = bytes.size();
        QElapsedTimer clock;
        clock.start();
        while (left > 0 && master >= 0) {
            const ssize_t n = ::write(master, p, size_t(left));
            if (n > 0) {
                p += n;
                left -= n;
            } else if ((n < 0 && errno != EAGAIN && errno != EINTR) ||
                       clock.elapsed() >= timeoutMs) {
                break;
            } else if (whileFull) {
                whileFull();
            } else {
                waitWritable(10);
            }
        }
        return left == 0;
    }

    // Appends what has arrived so far to got; returns how many bytes came.
    int drain(QByteArray &got)
    {
        int total = 0;
        char buffer[512];
        while (master >= 0) {
            const ssize_t n = ::read(master, buffer, sizeof buffer);
            if (n <= 0)
                break;
            got.append(buffer, int(n));
            total += int(n);
        }
        return total;
    }

    // Waits up to ms for bytes to read; true when some are there.
    bool waitReadable(int ms) { return waitFor(POLLIN, ms); }

private:
    bool waitWritable(int ms) { return waitFor(POLLOUT, ms); }
    bool waitFor(short events, int ms)
    {
        if (master < 0)
            return false;
        pollfd p{master, events, 0};
        return ::poll(&p, 1, ms) > 0 && (p.revents & events);
    }

    int master = -1;
    int heldSlave = -1;
    QString slavePath;
};
