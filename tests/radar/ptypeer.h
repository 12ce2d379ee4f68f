#pragma once

// Test helper: the module's end of a pseudo-terminal pair (tests/support's
// PtyMaster) with a read that runs the event loop; the link's QSerialPort
// opens the slave by its name.

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QString>
#include <QTest>
#include <QThread>

#include <memory>

#include "tests/support/ptymaster.h"

class PtyPeer
{
public:
    // A raw, non-blocking master; false when no pseudo-terminal could be had.
    bool open()
    {
        pty = std::make_unique<PtyMaster>();
        master = pty->fd();
        slave = pty->path();
        return pty->isOpen();
    }

    void closeMaster()
    {
        if (pty)
            pty->closeMaster();
        master = -1;
    }

    // What fits in the line now; false when not all of it did.
    bool write(const QByteArray &bytes) { return pty && pty->write(bytes, 0); }

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
        if (pty)
            pty->drain(got);
    }

    std::unique_ptr<PtyMaster> pty;
};
