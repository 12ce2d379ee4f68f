#pragma once

// Test helper: the module's end of a pseudo-terminal pair. The test holds the
// master side; the link's QSerialPort opens the slave by its name.

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QString>
#include <QTest>
#include <QThread>

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

class PtyPeer
{
public:
    ~PtyPeer() { closeMaster(); }

    // A raw, non-blocking master; false when no pseudo-terminal could be had.
    bool open()
    {
        char name[256] = {};
        int slaveFd = -1;
        if (::openpty(&master, &slaveFd, name, nullptr, nullptr) != 0)
            return false;
        termios tio{};
        ::tcgetattr(master, &tio);
        ::cfmakeraw(&tio);
        ::tcsetattr(master, TCSANOW, &tio);
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
        ::close(slaveFd); // the link opens the slave by name
        slave = QString::fromLocal8Bit(name);
        return true;
    }

    void closeMaster()
    {
        if (master >= 0)
            ::close(master);
        master = -1;
    }

    bool write(const QByteArray &bytes)
    {
        return ::write(master, bytes.constData(), size_t(bytes.size())) == bytes.size();
    }

    // Reads what the link wrote, running the event loop (the port writes
    // from its notifier) until `expected` bytes came or the time is up;
    // then waits a little longer for anything extra.
    QByteArray read(int expected, int timeoutMs = 2000)
    {
        QByteArray got;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeoutMs) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            drain(got);
            if (got.size() >= expected)
                break;
            QThread::msleep(2);
        }
        QTest::qWait(30);
        drain(got);
        return got;
    }

    int master = -1;
    QString slave;

private:
    void drain(QByteArray &got)
    {
        char buf[512];
        for (;;) {
            const ssize_t n = ::read(master, buf, sizeof buf);
            if (n <= 0)
                break;
            got.append(buf, int(n));
        }
    }
};
