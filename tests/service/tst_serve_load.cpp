// orv-cli serve under load, on loopback and bounded in time: 1,000 viewers
// on one module's event stream at 10 reports per second, plus one viewer
// that never reads. Every reading viewer gets every report; the stuck one is
// closed; the API still answers within a second; the service's thread count
// does not grow with the viewers and its memory stays bounded.

#include "tests/service/tst_serve_support.h"
#include "tests/support/simpeer.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kViewers = 1000;

// One field of /proc/PID/status ("VmRSS", "Threads") as a number.
qint64 procStatus(qint64 pid, const QByteArray &field)
{
    QFile f(QString("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).trimmed().split(' ').first().toLongLong();
    return -1;
}

struct Viewer {
    int fd = -1;
    bool stuck = false;
    bool closed = false;
    bool headDone = false;
    QByteArray text;
    QList<QByteArray> times; // "time" of each targets event, in order
};

int connectTo(int port, int receiveBuffer)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    if (receiveBuffer > 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(quint16(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

class TestServeLoad : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    SimProcess sim;
    ServeProcess serve;
    std::vector<Viewer> viewers;
    int epollFd = -1;

    // Reads whatever the viewers have for up to ms milliseconds.
    void pump(int ms)
    {
        QElapsedTimer clock;
        clock.start();
        epoll_event events[256];
        char buffer[65536];
        while (clock.elapsed() < ms) {
            const int n = ::epoll_wait(epollFd, events, 256, 20);
            for (int i = 0; i < n; ++i) {
                Viewer &v = viewers[events[i].data.u32];
                if (v.stuck) {
                    // Never read: only its end is watched.
                    if (events[i].events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
                        v.closed = true;
                        ::epoll_ctl(epollFd, EPOLL_CTL_DEL, v.fd, nullptr);
                    }
                    continue;
                }
                for (;;) {
                    const ssize_t got = ::recv(v.fd, buffer, sizeof buffer, MSG_DONTWAIT);
                    if (got > 0) {
                        take(v, QByteArray::fromRawData(buffer, int(got)));
                        continue;
                    }
                    if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                        v.closed = true;
                        ::epoll_ctl(epollFd, EPOLL_CTL_DEL, v.fd, nullptr);
                    }
                    break;
                }
            }
        }
    }
    static void take(Viewer &v, const QByteArray &bytes)
    {
        v.text += bytes;
        if (!v.headDone) {
            const int end = v.text.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            v.headDone = true;
            v.text.remove(0, end + 4);
        }
        int pos = 0;
        for (;;) {
            const int end = v.text.indexOf("\n\n", pos);
            if (end < 0)
                break;
            if (v.text.startsWith("event: targets\n")) {
                const int at = v.text.indexOf("\"time\":\"");
                if (at >= 0 && at < end)
                    v.times.append(v.text.mid(at + 8, 24));
            }
            v.text.remove(0, end + 2);
        }
    }
    int count(const std::function<bool(const Viewer &)> &what) const
    {
        int n = 0;
        for (const Viewer &v : viewers)
            n += what(v);
        return n;
    }

private slots:
    void initTestCase()
    {
        rlimit limit;
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        if (limit.rlim_max < rlim_t(kViewers + 200))
            QSKIP("the open-file limit is below what 1,000 viewers need");
        limit.rlim_cur = limit.rlim_max;
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &limit), 0);
        epollFd = ::epoll_create1(EPOLL_CLOEXEC);
        QVERIFY(epollFd >= 0);

        const QString port = sim.start({"--rate", "10", "--fixed", "1,2"});
        QVERIFY(!port.isEmpty());
        QVERIFY2(serve.start({"--port", "m=" + port, "--token-file", dir.path() + "/token"}),
                 qPrintable(serve.line + serve.errors()));
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 15000 &&
               !httpRequest(serve.port, "GET", "/api/modules/m", serve.bearer())
                    .body.contains("\"state\":\"open\""))
            QThread::msleep(100);
        QVERIFY(clock.elapsed() < 15000);
    }

    void thousandViewersAndAStuckOne()
    {
        const qint64 pid = serve.process.processId();
        const QByteArray request = "GET /api/modules/m/events HTTP/1.0\r\nHost: 127.0.0.1:" +
                                   QByteArray::number(serve.port) + "\r\nAuthorization: Bearer " +
                                   serve.token + "\r\n\r\n";
        auto open = [&](bool stuck) {
            Viewer v;
            v.stuck = stuck;
            v.fd = connectTo(serve.port, stuck ? 1024 : 0);
            if (v.fd < 0 ||
                ::send(v.fd, request.constData(), size_t(request.size()), 0) != request.size())
                return false;
            ::fcntl(v.fd, F_SETFL, ::fcntl(v.fd, F_GETFL) | O_NONBLOCK);
            epoll_event e{};
            e.events = stuck ? EPOLLRDHUP : (EPOLLIN | EPOLLRDHUP);
            e.data.u32 = quint32(viewers.size());
            viewers.push_back(v);
            return ::epoll_ctl(epollFd, EPOLL_CTL_ADD, v.fd, &e) == 0;
        };

        // One viewer: the thread count to compare with.
        QVERIFY(open(false));
        pump(500);
        const qint64 threadsWithOne = procStatus(pid, "Threads");
        const qint64 rssWithOne = procStatus(pid, "VmRSS");
        QVERIFY(threadsWithOne > 0);

        QVERIFY(open(true));
        for (int i = 1; i < kViewers; ++i) {
            QVERIFY2(open(false), qPrintable(QString("viewer %1: %2").arg(i).arg(strerror(errno))));
            if (i % 50 == 0)
                pump(1);
        }
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 60000 &&
               count([](const Viewer &v) { return !v.stuck && v.times.size() >= 2; }) < kViewers)
            pump(100);
        QCOMPARE(count([](const Viewer &v) { return !v.stuck && v.times.size() >= 2; }), kViewers);
        QCOMPARE(count([](const Viewer &v) { return v.closed; }), 0);

        // The API answers within a second while they all watch.
        qint64 slowest = 0;
        for (int i = 0; i < 5; ++i) {
            pump(200);
            QElapsedTimer t;
            t.start();
            const HttpAnswer a = httpRequest(serve.port, "GET", "/api/modules", serve.bearer());
            slowest = std::max(slowest, t.elapsed());
            QCOMPARE(a.status, 200);
        }
        QVERIFY2(slowest < 1000, qPrintable(QString("%1 ms").arg(slowest)));
        const qint64 threadsWithAll = procStatus(pid, "Threads");
        QCOMPARE(threadsWithAll, threadsWithOne);

        // Watch for 10 s more, then until the stuck viewer is closed (it
        // fills its socket, then 30 s without progress).
        pump(10000);
        const qint64 rssWithAll = procStatus(pid, "VmRSS");
        clock.restart();
        while (clock.elapsed() < 120000 && !viewers[1].closed)
            pump(200);
        QVERIFY2(viewers[1].closed, "the viewer that never reads is still connected");
        QCOMPARE(count([](const Viewer &v) { return v.closed; }), 1);
        const qint64 rssAfter = procStatus(pid, "VmRSS");

        // Every reading viewer got every report in the span all of them watched.
        QByteArray from, to = "9999";
        QSet<QByteArray> all;
        for (const Viewer &v : viewers) {
            if (v.stuck)
                continue;
            from = std::max(from, v.times.first());
            to = std::min(to, v.times.last());
            for (const QByteArray &t : v.times)
                all.insert(t);
        }
        QList<QByteArray> span;
        for (const QByteArray &t : all)
            if (t >= from && t <= to)
                span.append(t);
        QVERIFY2(span.size() >= 100,
                 qPrintable(QString("%1 reports in the span").arg(span.size())));
        for (const Viewer &v : viewers) {
            if (v.stuck)
                continue;
            int inSpan = 0;
            for (const QByteArray &t : v.times)
                inSpan += t >= from && t <= to;
            QCOMPARE(inSpan, span.size());
        }

        // The service counts the stuck one's missed events as dropped.
        const HttpAnswer metrics = httpRequest(serve.port, "GET", "/metrics", serve.bearer());
        QVERIFY2(metrics.body.contains("orv_viewers{module=\"m\"} " + QByteArray::number(kViewers) +
                                       "\n"),
                 metrics.body);
        QVERIFY2(!metrics.body.contains("orv_dropped_events_total{module=\"m\"} 0\n"),
                 metrics.body);
        qInfo().noquote() << QString("threads %1 with 1 viewer and %2 with %3; RSS %4 KiB with 1, "
                                     "%5 KiB with %3 (%6 KiB per viewer), %7 KiB after the stuck "
                                     "one was closed; %8 reports checked at every viewer; API "
                                     "slowest %9 ms")
                                 .arg(threadsWithOne)
                                 .arg(threadsWithAll)
                                 .arg(kViewers + 1)
                                 .arg(rssWithOne)
                                 .arg(rssWithAll)
                                 .arg((rssWithAll - rssWithOne) / kViewers)
                                 .arg(rssAfter)
                                 .arg(span.size())
                                 .arg(slowest);
        // 30 MB for the service, 64 KiB per further viewer.
        if (!kSanitized) {
            QVERIFY2(rssWithAll < 30 * 1024 + kViewers * 64,
                     qPrintable(QString("RSS %1 KiB").arg(rssWithAll)));
            QVERIFY(rssAfter <= rssWithAll + 1024);
        }
    }

    void cleanupTestCase()
    {
        for (const Viewer &v : viewers)
            ::close(v.fd);
        if (epollFd >= 0)
            ::close(epollFd);
    }
};

QTEST_GUILESS_MAIN(TestServeLoad)
#include "tst_serve_load.moc"
