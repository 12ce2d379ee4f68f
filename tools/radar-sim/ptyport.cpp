#include "tools/radar-sim/ptyport.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

PtyPort::PtyPort(QObject *parent) : SimPort(parent)
{
    peerPoll.setInterval(10);
    connect(&peerPoll, &QTimer::timeout, this, &PtyPort::checkPeer);
}

PtyPort::~PtyPort()
{
    close();
}

bool PtyPort::open(QString *error)
{
    int master = -1;
    int slave = -1;
    char path[256] = {0};
    if (::openpty(&master, &slave, path, nullptr, nullptr) != 0) {
        if (error)
            *error = QString("cannot create a pseudo-terminal: %1").arg(std::strerror(errno));
        return false;
    }
    // Raw both ways (no echo, no line editing, no CR/LF mapping), so bytes
    // pass unchanged even before the tool sets the port up itself.
    termios tio;
    if (::tcgetattr(slave, &tio) == 0) {
        ::cfmakeraw(&tio);
        ::tcsetattr(slave, TCSANOW, &tio);
    }
    if (::tcgetattr(master, &tio) == 0) {
        ::cfmakeraw(&tio);
        ::tcsetattr(master, TCSANOW, &tio);
    }
    ::close(slave);
    ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
    ::fcntl(master, F_SETFD, ::fcntl(master, F_GETFD) | FD_CLOEXEC);

    masterFd = master;
    slavePath = QString::fromLocal8Bit(path);
    notifier = new QSocketNotifier(masterFd, QSocketNotifier::Read, this);
    notifier->setEnabled(false);
    connect(notifier, &QSocketNotifier::activated, this, &PtyPort::readMaster);
    peerPoll.start();
    return true;
}

void PtyPort::setConnected(bool now)
{
    if (now == connected)
        return;
    connected = now;
    if (notifier)
        notifier->setEnabled(now);
    if (now)
        emit peerOpened();
    else
        emit peerClosed();
}

void PtyPort::checkPeer()
{
    if (masterFd < 0)
        return;
    pollfd p{masterFd, POLLIN, 0};
    if (::poll(&p, 1, 0) < 0)
        return;
    const bool hangUp = (p.revents & POLLHUP) != 0;
    if (connected && (p.revents & POLLIN))
        readMaster();
    setConnected(!hangUp);
}

void PtyPort::readMaster()
{
    if (masterFd < 0)
        return;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(masterFd, buffer, sizeof buffer);
        if (n > 0) {
            emit received(QByteArray(buffer, int(n)));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EIO) // the tool closed its end
            setConnected(false);
        break;
    }
}

qint64 PtyPort::write(const QByteArray &bytes)
{
    if (masterFd < 0)
        return -1;
    for (;;) {
        const ssize_t n = ::write(masterFd, bytes.constData(), size_t(bytes.size()));
        if (n >= 0)
            return n;
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        return -1;
    }
}

void PtyPort::drain()
{
    if (masterFd >= 0)
        ::tcdrain(masterFd);
}

void PtyPort::close()
{
    peerPoll.stop();
    delete notifier;
    notifier = nullptr;
    if (masterFd >= 0)
        ::close(masterFd);
    masterFd = -1;
    connected = false;
}
