// The serve command's plain parts without a socket or a port: token file,
// Host/Origin/token checks, the event stream's ring and its bounds, metrics
// text, --port and --listen parsing, the API's small helpers.

#include "service/auth.h"
#include "service/eventstream.h"
#include "service/httpapi.h"
#include "service/httpserver.h"
#include "service/metrics.h"
#include "service/servecommand.h"
#include "service/tokenfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{

// Everything a viewer has to send now, read in pieces of `piece` bytes.
QByteArray drain(EventViewer &viewer, qint64 nowMs, size_t piece = 7)
{
    QByteArray out;
    char buffer[4096];
    for (;;) {
        const long n = viewer.read(buffer, std::min(piece, sizeof buffer), nowMs);
        if (n <= 0)
            break;
        out.append(buffer, int(n));
    }
    return out;
}

} // namespace

class TestServeUnits : public QObject
{
    Q_OBJECT

private slots:
    void tokenFileIsMadeOnceWithOwnerOnlyMode()
    {
        QTemporaryDir dir;
        const QString path = dir.path() + "/state/orv-tool/serve-token";
        QByteArray first;
        bool created = false;
        QString error;
        QVERIFY2(TokenFile::loadOrCreate(path, &first, &created, &error), qPrintable(error));
        QVERIFY(created);
        QCOMPARE(first.size(), 64);
        struct stat st;
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0600);
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), first + '\n');

        QByteArray second;
        QVERIFY(TokenFile::loadOrCreate(path, &second, &created, &error));
        QVERIFY(!created);
        QCOMPARE(second, first);
        QVERIFY(TokenFile::generate() != first);
    }

    void tokenFileWithoutAUsableTokenIsRefused()
    {
        QTemporaryDir dir;
        const QString path = dir.path() + "/token";
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("short\n");
        f.close();
        QByteArray token;
        bool created = false;
        QString error;
        QVERIFY(!TokenFile::loadOrCreate(path, &token, &created, &error));
        QVERIFY2(error.contains(path), qPrintable(error));
    }

    void defaultTokenPathFollowsTheStateDirectory()
    {
        qputenv("STATE_DIRECTORY", "/var/lib/orv-serve-x:/other");
        QCOMPARE(TokenFile::defaultPath(), QString("/var/lib/orv-serve-x/serve-token"));
        qunsetenv("STATE_DIRECTORY");
        qputenv("XDG_STATE_HOME", "/home/u/st");
        QCOMPARE(TokenFile::defaultPath(), QString("/home/u/st/orv-tool/serve-token"));
        qunsetenv("XDG_STATE_HOME");
        QVERIFY(TokenFile::defaultPath().endsWith("/.local/state/orv-tool/serve-token"));
    }

    void tokensComeFromBearerOrCookie()
    {
        QCOMPARE(Auth::requestToken("Bearer abc", "", 7318), QByteArray("abc"));
        QCOMPARE(Auth::requestToken("bearer  abc ", "", 7318), QByteArray("abc"));
        QCOMPARE(Auth::requestToken("", "a=1; orv_token_7318=xyz; b=2", 7318), QByteArray("xyz"));
        QCOMPARE(Auth::requestToken("", "orv_token_7319=xyz", 7318), QByteArray());
        QCOMPARE(Auth::requestToken("Basic abc", "", 7318), QByteArray());
        QVERIFY(Auth::tokensEqual("secret", "secret"));
        QVERIFY(!Auth::tokensEqual("secret", "secreT"));
        QVERIFY(!Auth::tokensEqual("secret", "secret2"));
        QVERIFY(!Auth::tokensEqual("secret", ""));
        QVERIFY(!Auth::tokensEqual("", ""));
        const QByteArray cookie = Auth::setCookie(7318, "tok");
        QVERIFY(cookie.startsWith("orv_token_7318=tok;"));
        QVERIFY(cookie.contains("HttpOnly"));
        QVERIFY(cookie.contains("SameSite=Strict"));
    }

    void loopbackHosts_data()
    {
        QTest::addColumn<QByteArray>("host");
        QTest::addColumn<bool>("loopback");
        QTest::newRow("localhost") << QByteArray("localhost") << true;
        QTest::newRow("localhost:port") << QByteArray("LocalHost:7318") << true;
        QTest::newRow("sub.localhost") << QByteArray("a.localhost:1") << true;
        QTest::newRow("127.0.0.1") << QByteArray("127.0.0.1:7318") << true;
        QTest::newRow("127.1.2.3") << QByteArray("127.1.2.3") << true;
        QTest::newRow("[::1]") << QByteArray("[::1]:7318") << true;
        QTest::newRow("empty") << QByteArray("") << false;
        QTest::newRow("attacker") << QByteArray("evil.example:7318") << false;
        QTest::newRow("lan") << QByteArray("192.168.1.2:7318") << false;
        QTest::newRow("decimal") << QByteArray("2130706433") << false;
        QTest::newRow("localhost.evil") << QByteArray("localhost.evil.example") << false;
        QTest::newRow("bad port") << QByteArray("localhost:x") << false;
        QTest::newRow("[::2]") << QByteArray("[::2]") << false;
    }
    void loopbackHosts()
    {
        QFETCH(QByteArray, host);
        QFETCH(bool, loopback);
        QCOMPARE(Auth::isLoopbackHost(host), loopback);
    }

    void origins()
    {
        QVERIFY(Auth::originAllowed("", "127.0.0.1:7318"));
        QVERIFY(Auth::originAllowed("http://127.0.0.1:7318", "127.0.0.1:7318"));
        QVERIFY(Auth::originAllowed("HTTP://LOCALHOST:7318", "localhost:7318"));
        QVERIFY(!Auth::originAllowed("http://evil.example", "127.0.0.1:7318"));
        QVERIFY(!Auth::originAllowed("http://127.0.0.1:7319", "127.0.0.1:7318"));
        QVERIFY(!Auth::originAllowed("null", "127.0.0.1:7318"));
        QVERIFY(!Auth::originAllowed("http://127.0.0.1:7318", ""));
    }

    void sseFraming()
    {
        QCOMPARE(sseEvent(EventKind::Targets, "{\"a\":1}"),
                 QByteArray("event: targets\ndata: {\"a\":1}\n\n"));
        QCOMPARE(sseEvent(EventKind::Config, "a\nb"),
                 QByteArray("event: config\ndata: a\ndata: b\n\n"));
        QCOMPARE(sseComment("x\ny"), QByteArray(": x y\n\n"));
    }

    void viewerGetsInitialThenEveryEventInOrder()
    {
        EventHub hub(16);
        int wakes = 0;
        auto v = hub.addViewer(
            "INIT", 0, [&] { ++wakes; }, 0);
        hub.publish(EventKind::Targets, "t1");
        hub.publish(EventKind::Areas, "a1");
        const QByteArray out = drain(*v, 10);
        QCOMPARE(out,
                 "INIT" + sseEvent(EventKind::Targets, "t1") + sseEvent(EventKind::Areas, "a1"));
        QCOMPARE(wakes, 0);
        QCOMPARE(v->dropped(), 0);
        QCOMPARE(hub.viewerCount(), 1);
        hub.removeViewer(v);
        QCOMPARE(hub.viewerCount(), 0);
    }

    void waitingViewerIsWokenOnceAndRaceIsCaught()
    {
        EventHub hub(16);
        int wakes = 0;
        auto v = hub.addViewer(
            QByteArray(), 0, [&] { ++wakes; }, 0);
        char buffer[64];
        // Nothing yet: the caller suspends; no event came in between.
        QCOMPARE(v->read(buffer, sizeof buffer, 0), 0L);
        QVERIFY(!v->suspended());
        hub.publish(EventKind::Targets, "t1");
        QCOMPARE(wakes, 1);
        hub.publish(EventKind::Targets, "t2"); // already woken: no second wake
        QCOMPARE(wakes, 1);
        QVERIFY(drain(*v, 0).contains("t2"));
        // An event between read() == 0 and the suspension: resumed at once.
        QCOMPARE(v->read(buffer, sizeof buffer, 0), 0L);
        hub.publish(EventKind::Targets, "t3");
        QCOMPARE(wakes, 1);
        QVERIFY(v->suspended());
        QVERIFY(drain(*v, 0).contains("t3"));
    }

    void viewerBehindTheRingGetsTheNewestOfEachKindAndCountsTheRest()
    {
        EventHub hub(4);
        auto v = hub.addViewer(QByteArray(), 0, nullptr, 0);
        hub.publish(EventKind::Status, "s1");
        for (int i = 0; i < 10; ++i)
            hub.publish(EventKind::Targets, "t" + QByteArray::number(i));
        hub.publish(EventKind::Areas, "a1");
        hub.publish(EventKind::Targets, "t10");
        // 13 events, the viewer read none; ring holds 4.
        const QByteArray out = drain(*v, 0);
        QCOMPARE(out, sseEvent(EventKind::Status, "s1") + sseEvent(EventKind::Areas, "a1") +
                          sseEvent(EventKind::Targets, "t10"));
        QCOMPARE(v->dropped(), 10);
        QCOMPARE(hub.droppedTotal(), 10);
        hub.removeViewer(v);
        QCOMPARE(hub.droppedTotal(), 10);

        // One that closes while behind: what it never got counts too.
        auto stuck = hub.addViewer(QByteArray(), 0, nullptr, 0);
        hub.publish(EventKind::Targets, "t11");
        hub.publish(EventKind::Targets, "t12");
        hub.removeViewer(stuck);
        QCOMPARE(hub.droppedTotal(), 12);
    }

    void rateCapsTargetsOnly()
    {
        EventHub hub(64);
        auto v = hub.addViewer(QByteArray(), 2.0, nullptr, 0); // 500 ms apart
        QByteArray got;
        for (int i = 0; i < 10; ++i) {
            hub.publish(EventKind::Targets, "t" + QByteArray::number(i));
            hub.publish(EventKind::Areas, "a" + QByteArray::number(i));
            got += drain(*v, i * 100);
        }
        QCOMPARE(got.count("event: targets"), 2); // at 0 and 500 ms
        QVERIFY(got.contains("data: t0\n"));
        QVERIFY(got.contains("data: t5\n"));
        QCOMPARE(got.count("event: areas"), 10);
    }

    void quietViewerGetsKeepAliveAndClosedStreamEnds()
    {
        EventHub hub(8);
        int wakes = 0;
        auto v = hub.addViewer(
            QByteArray(), 0, [&] { ++wakes; }, 1000);
        char buffer[64];
        QCOMPARE(v->read(buffer, sizeof buffer, 1000), 0L);
        QVERIFY(!v->suspended());
        hub.keepAlive(15000, 15000);
        QCOMPARE(wakes, 0);
        hub.keepAlive(16000, 15000);
        QCOMPARE(wakes, 1);
        QCOMPARE(drain(*v, 16000), QByteArray(": keep-alive\n\n"));
        hub.keepAlive(17000, 15000); // sent 1 s ago: nothing
        QCOMPARE(v->read(buffer, sizeof buffer, 17000), 0L);
        QVERIFY(!v->suspended());
        hub.closeAll();
        QCOMPARE(wakes, 2);
        QCOMPARE(v->read(buffer, sizeof buffer, 17000), -1L);
        hub.publish(EventKind::Targets, "late");
        QCOMPARE(v->read(buffer, sizeof buffer, 17000), -1L);
    }

    void viewerThatDoesNotCatchUpIsClosed()
    {
        EventHub hub(8);
        int aborts = 0;
        auto reader = hub.addViewer(QByteArray(), 0, nullptr, 0, [&] { ++aborts; });
        int stuckAborts = 0;
        auto stuck = hub.addViewer(QByteArray(), 0, nullptr, 0, [&] { ++stuckAborts; });
        for (int t = 0; t <= 40000; t += 100) {
            hub.publish(EventKind::Targets, QByteArray::number(t));
            drain(*reader, t);
            hub.keepAlive(t, 15000, 30000);
        }
        QCOMPARE(aborts, 0);
        QCOMPARE(stuckAborts, 1); // once, at 30 s
        // A quiet stream with nothing to send is not stuck.
        EventHub quiet(8);
        int quietAborts = 0;
        auto idle = quiet.addViewer(QByteArray(), 0, nullptr, 0, [&] { ++quietAborts; });
        quiet.keepAlive(60000, 15000, 30000);
        QCOMPARE(quietAborts, 0);
    }

    void waitingViewerWhosePeerLeftIsWoken()
    {
        EventHub hub(8);
        int wakes = 0;
        bool gone = false;
        auto v = hub.addViewer(
            QByteArray(), 0, [&] { ++wakes; }, 0, nullptr, [&] { return gone; });
        char buffer[64];
        QCOMPARE(v->read(buffer, sizeof buffer, 0), 0L);
        QVERIFY(!v->suspended());
        hub.keepAlive(1000, 15000);
        QCOMPARE(wakes, 0);
        gone = true;
        hub.keepAlive(2000, 15000);
        QCOMPARE(wakes, 1);
        // It is sent something, so that its connection finds out.
        QCOMPARE(drain(*v, 2000), QByteArray(": keep-alive\n\n"));
    }

    void metricsText()
    {
        ModuleMetrics m;
        m.id = "pts-3";
        m.state = "open";
        m.frames = 12;
        m.badSums = 1;
        m.strayBytes = 5;
        m.reconnects = 2;
        m.viewers = 3;
        m.droppedEvents = 7;
        ModuleMetrics lost = m;
        lost.id = "a\"b";
        lost.state = "lost";
        const QByteArray text = Metrics::text({m, lost});
        QVERIFY(text.contains("# TYPE orv_frames_total counter\n"));
        QVERIFY(text.contains("orv_frames_total{module=\"pts-3\"} 12\n"));
        QVERIFY(text.contains("orv_bad_sums_total{module=\"pts-3\"} 1\n"));
        QVERIFY(text.contains("orv_stray_bytes_total{module=\"pts-3\"} 5\n"));
        QVERIFY(text.contains("orv_reconnects_total{module=\"pts-3\"} 2\n"));
        QVERIFY(text.contains("orv_viewers{module=\"pts-3\"} 3\n"));
        QVERIFY(text.contains("orv_dropped_events_total{module=\"pts-3\"} 7\n"));
        QVERIFY(text.contains("orv_module_up{module=\"pts-3\",state=\"open\"} 1\n"));
        QVERIFY(text.contains("orv_module_up{module=\"a\\\"b\",state=\"lost\"} 0\n"));
        QCOMPARE(text.count("# HELP orv_frames_total"), 1);
    }

    void portArguments()
    {
        QString id, port, error;
        QVERIFY(parseServePort("/dev/ttyUSB0", &id, &port, &error));
        QCOMPARE(id, QString("ttyUSB0"));
        QCOMPARE(port, QString("/dev/ttyUSB0"));
        QVERIFY(parseServePort("/dev/pts/3", &id, &port, &error));
        QCOMPARE(id, QString("pts-3"));
        QVERIFY(parseServePort("hall_1=/dev/ttyACM0", &id, &port, &error));
        QCOMPARE(id, QString("hall_1"));
        QCOMPARE(port, QString("/dev/ttyACM0"));
        QVERIFY(!parseServePort("a b=/dev/ttyS0", &id, &port, &error));
        QVERIFY2(error.contains("not an id"), qPrintable(error));
        QVERIFY(!parseServePort("x=", &id, &port, &error));
        QCOMPARE(moduleIdForPort("/tmp/link to:sim"), QString("link-to-sim"));
    }

    void listenAddresses()
    {
        ListenAddress a;
        QString error;
        QVERIFY(ListenAddress::parse("127.0.0.1:7318", &a, &error));
        QVERIFY(a.isLoopback());
        QCOMPARE(a.port, 7318);
        QVERIFY(ListenAddress::parse("[::1]:0", &a, &error));
        QVERIFY(a.isLoopback());
        QCOMPARE(a.hostAndPort(5), QString("[::1]:5"));
        QVERIFY(ListenAddress::parse("[::]:80", &a, &error));
        QVERIFY(!a.isLoopback());
        QVERIFY(a.isWildcard());
        QVERIFY(ListenAddress::parse("192.168.4.1:80", &a, &error));
        QVERIFY(!a.isLoopback());
        QVERIFY(!a.isWildcard());
        QVERIFY(!ListenAddress::parse("localhost:80", &a, &error));
        QVERIFY(!ListenAddress::parse("127.0.0.1", &a, &error));
        QVERIFY(!ListenAddress::parse("127.0.0.1:70000", &a, &error));
        QVERIFY(!ListenAddress::parse("::1:80", &a, &error));
    }

    void apiHelpers()
    {
        QJsonObject o;
        QString error;
        QVERIFY(HttpApiText::parseObject("{\"display\":\"area\"}", &o, &error));
        QCOMPARE(o.value("display").toString(), QString("area"));
        QVERIFY(!HttpApiText::parseObject("[1]", &o, &error));
        QVERIFY(!HttpApiText::parseObject("{", &o, &error));
        QVERIFY(error.startsWith("the body is not JSON"));
        QCOMPARE(HttpApiText::downloadName("pts-3", QDate(2026, 11, 24)),
                 QString("orv-pts-3-2026-11-24.json"));
        double hz = 0;
        QVERIFY(HttpApiText::parseRate("2.5", &hz));
        QCOMPARE(hz, 2.5);
        QVERIFY(!HttpApiText::parseRate("0", &hz));
        QVERIFY(!HttpApiText::parseRate("nan", &hz));
        QVERIFY(!HttpApiText::parseRate("x", &hz));
        QCOMPARE(HttpApiText::areaNumber("2"), 2);
        QCOMPARE(HttpApiText::areaNumber("4"), 0);
        QCOMPARE(HttpApiText::areaNumber("02"), 0);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::Ok), 200);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::Invalid), 400);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::NotOpen), 503);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::Refused), 409);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::Mismatch), 409);
        QCOMPARE(HttpApiText::writeStatus(WriteResult::Timeout), 504);
    }
};

QTEST_GUILESS_MAIN(TestServeUnits)
#include "tst_serve_units.moc"
