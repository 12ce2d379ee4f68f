#include "tools/radar-sim/ptyport.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

// The kernel's own terminal structures (termios2 carries the rate as a
// number, which is how Qt sets rates that have no speed code, such as 43000,
// 56000 and 256000); the C library's <termios.h> cannot be used with them.
#include <asm/termbits.h>

namespace
{

struct SpeedCode {
    unsigned code;
    int rate;
};

const SpeedCode kSpeedCodes[] = {
    {B50, 50},           {B75, 75},           {B110, 110},         {B134, 134},
    {B150, 150},         {B200, 200},         {B300, 300},         {B600, 600},
    {B1200, 1200},       {B1800, 1800},       {B2400, 2400},       {B4800, 4800},
    {B9600, 9600},       {B19200, 19200},     {B38400, 38400},     {B57600, 57600},
    {B115200, 115200},   {B230400, 230400},   {B460800, 460800},   {B500000, 500000},
    {B576000, 576000},   {B921600, 921600},   {B1000000, 1000000}, {B1152000, 1152000},
    {B1500000, 1500000}, {B2000000, 2000000}, {B2500000, 2500000}, {B3000000, 3000000},
    {B3500000, 3500000}, {B4000000, 4000000},
};

// A rate from its code, or from the number the structure carries when the
// code says so (BOTHER).
int rateOf(unsigned code, unsigned number)
{
    if (code == BOTHER)
        return int(number);
    return PtyPort::rateOfSpeedCode(code);
}

} // namespace

int PtyPort::rateOfSpeedCode(unsigned code)
{
    for (const SpeedCode &s : kSpeedCodes)
        if (s.code == code)
            return s.rate;
    return 0;
}

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
    auto fail = [error](const char *what) {
        if (error)
            *error = QString("cannot create a pseudo-terminal: %1: %2")
                         .arg(what, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    };
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0)
        return fail("posix_openpt");
    char path[256] = {0};
    if (::grantpt(master) != 0 || ::unlockpt(master) != 0 ||
        ::ptsname_r(master, path, sizeof path) != 0) {
        const int saved = errno;
        ::close(master);
        errno = saved;
        return fail("unlocking the slave");
    }
    // Open the slave once: its first close marks the master as hung up, as
    // it is whenever the tool has the port closed. Raw both ways (no echo, no
    // line editing, no CR/LF mapping), so bytes pass unchanged even before
    // the tool sets the port up itself.
    const int slave = ::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave < 0) {
        const int saved = errno;
        ::close(master);
        errno = saved;
        return fail(path);
    }
    termios tio;
    if (::ioctl(slave, TCGETS, &tio) == 0) {
        tio.c_iflag &= ~tcflag_t(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON);
        tio.c_oflag &= ~tcflag_t(OPOST);
        tio.c_lflag &= ~tcflag_t(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
        tio.c_cflag &= ~tcflag_t(CSIZE | PARENB);
        tio.c_cflag |= CS8;
        tio.c_cc[VMIN] = 1;
        tio.c_cc[VTIME] = 0;
        ::ioctl(slave, TCSETS, &tio);
    }
    ::close(slave);
    ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);

    masterFd = master;
    slavePath = QString::fromLocal8Bit(path);
    notifier = new QSocketNotifier(masterFd, QSocketNotifier::Read, this);
    notifier->setEnabled(false);
    connect(notifier, &QSocketNotifier::activated, this, &PtyPort::readMaster);
    peerPoll.start();
    return true;
}

PeerLineRates PtyPort::peerRates() const
{
    PeerLineRates r;
    if (masterFd < 0) {
        r.problem = "the pseudo-terminal is closed";
        return r;
    }
    // The terminal requests on a master act on its slave: this is what the
    // tool set on the port it opened.
    termios2 tio;
    if (::ioctl(masterFd, TCGETS2, &tio) != 0) {
        r.problem = QString("cannot read the line settings: %1")
                        .arg(QString::fromLocal8Bit(std::strerror(errno)));
        return r;
    }
    const unsigned outCode = tio.c_cflag & CBAUD;
    const unsigned inCode = (tio.c_cflag >> IBSHIFT) & CBAUD;
    r.sendRate = rateOf(outCode, tio.c_ospeed);
    // No input code (B0) means: the same rate as the output.
    r.receiveRate = inCode == B0 ? r.sendRate : rateOf(inCode, tio.c_ispeed);
    if (r.sendRate <= 0 || r.receiveRate <= 0) {
        r.problem = QString("unknown line speed (speed code 0%1, input code 0%2)")
                        .arg(outCode, 0, 8)
                        .arg(inCode, 0, 8);
        return r;
    }
    r.known = true;
    return r;
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
    // tcdrain(): wait until what was written has left.
    if (masterFd >= 0)
        ::ioctl(masterFd, TCSBRK, 1);
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
