// orv-cli serve as a program against radar-sim over a pseudo-terminal, with
// an HTTP client on loopback: every endpoint and error code, ETag/If-Match,
// the token (none, wrong, cookie, bearer), Host and Origin checks, the body
// limit, the connection limit, the event stream, a write while the port is
// lost, and a clean stop on SIGTERM.

#include "tests/service/tst_serve_support.h"
#include "tests/support/simpeer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>

namespace
{

QJsonObject object(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

// An error answer: the status and a JSON body {"error": "..."} that is not
// empty.
#define CHECK_ERROR(answer, code)                                                                  \
    do {                                                                                           \
        QVERIFY2((answer).status == (code), qPrintable((answer).describe()));                      \
        QVERIFY2((answer).headers.value("content-type").startsWith("application/json"),            \
                 qPrintable((answer).describe()));                                                 \
        QVERIFY2(!object((answer).body).value("error").toString().isEmpty(),                       \
                 qPrintable((answer).describe()));                                                 \
    } while (0)

const QByteArray kAreaFile = R"({
  "format": "orv-areas",
  "version": 1,
  "display": "area",
  "areas": [
    {"number": 1, "type": "detect", "from": [-1.5, 3.0], "to": [1.5, 1.0]},
    {"number": 2, "type": "unset"},
    {"number": 3, "type": "exclude", "from": [2.0, 7.0], "to": [4.0, 5.0]}
  ]
})";

} // namespace

class TestServe : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    SimProcess sim;
    ServeProcess serve;
    QString simPort;
    QByteArray id = "hall";

    HttpAnswer get(const QByteArray &path, const Headers &extra = {})
    {
        return httpRequest(serve.port, "GET", path, serve.bearer() + extra);
    }
    HttpAnswer send(const QByteArray &method, const QByteArray &path, const QByteArray &body,
                    const Headers &extra = {})
    {
        return httpRequest(serve.port, method, path, serve.bearer() + extra, body, 20000);
    }
    QString state() { return object(get("/api/modules/" + id).body).value("state").toString(); }
    bool waitForState(const QString &wanted, int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < timeoutMs) {
            if (state() == wanted)
                return true;
            QThread::msleep(50);
        }
        return false;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        // The module is served through a link that radar-sim removes when it
        // stops: a lost module's retries must not open a pseudo-terminal that
        // another program gets under the same number meanwhile.
        const QString link = dir.path() + "/ttyServe";
        QVERIFY2(!sim.start({"--rate", "10", "--fixed", "1,2", "--link", link}).isEmpty(),
                 qPrintable(sim.errors()));
        simPort = link;
        QVERIFY2(serve.start({"--port", QString::fromLatin1(id) + "=" + simPort, "--token-file",
                              dir.path() + "/token"}),
                 qPrintable(serve.line + serve.errors()));
        QVERIFY2(waitForState("open", 15000), qPrintable(serve.errors()));
    }

    void startLineAndTokenFile()
    {
        QVERIFY2(serve.line.startsWith("orv-cli serve: http://127.0.0.1:"), qPrintable(serve.line));
        QVERIFY(!serve.line.contains("not loopback"));
        QFile f(dir.path() + "/token");
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll().trimmed(), serve.token);
        struct stat st;
        QCOMPARE(::stat(QFile::encodeName(f.fileName()).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0600);
    }

    void token()
    {
        // None, wrong, bearer.
        CHECK_ERROR(httpRequest(serve.port, "GET", "/api/modules"), 401);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/metrics"), 401);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/api/modules/" + id + "/events"), 401);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/api/modules",
                                {{"Authorization", "Bearer " + serve.token + "x"}}),
                    401);
        CHECK_ERROR(httpRequest(serve.port, "PUT", "/api/modules/" + id + "/display", {},
                                "{\"display\":\"track\"}"),
                    401);
        QCOMPARE(get("/api/modules").status, 200);

        // The page without a token says how to get in; with it, sets the cookie.
        const HttpAnswer hint = httpRequest(serve.port, "GET", "/");
        QCOMPARE(hint.status, 200);
        QVERIFY(hint.headers.value("content-type").startsWith("text/html"));
        QVERIFY(hint.body.contains("token"));
        QVERIFY(!hint.headers.contains("set-cookie"));
        QVERIFY(!hint.body.contains(serve.token));
        const HttpAnswer wrong = httpRequest(serve.port, "GET", "/?token=nope");
        QVERIFY(!wrong.headers.contains("set-cookie"));

        const HttpAnswer page = httpRequest(serve.port, "GET", "/?token=" + serve.token);
        QCOMPARE(page.status, 200);
        QVERIFY(page.body.contains("/assets/js/app.js"));
        const QByteArray cookie = page.headers.value("set-cookie");
        QVERIFY2(cookie.contains("HttpOnly") && cookie.contains("SameSite=Strict"), cookie);
        const QByteArray pair = cookie.split(';').first();
        QVERIFY(pair.endsWith("=" + serve.token));

        // The cookie opens the API and the page.
        QCOMPARE(httpRequest(serve.port, "GET", "/api/modules", {{"Cookie", pair}}).status, 200);
        QVERIFY(httpRequest(serve.port, "GET", "/", {{"Cookie", pair}})
                    .body.contains("/assets/js/app.js"));
        CHECK_ERROR(httpRequest(serve.port, "GET", "/api/modules", {{"Cookie", pair + "x"}}), 401);

        // The page's files need no token.
        const HttpAnswer script = httpRequest(serve.port, "GET", "/assets/js/app.js");
        QCOMPARE(script.status, 200);
        QVERIFY(script.headers.value("content-type").startsWith("text/javascript"));
        CHECK_ERROR(httpRequest(serve.port, "GET", "/assets/js/none.js"), 404);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/assets/../web.qrc"), 404);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/elsewhere"), 404);
    }

    void hostCheck()
    {
        CHECK_ERROR(
            get("/api/modules", {{"Host", "evil.example:" + QByteArray::number(serve.port)}}), 403);
        CHECK_ERROR(httpRequest(serve.port, "GET", "/", {{"Host", "evil.example"}}), 403);
        QCOMPARE(
            get("/api/modules", {{"Host", "localhost:" + QByteArray::number(serve.port)}}).status,
            200);
        QCOMPARE(get("/api/modules", {{"Host", "[::1]:" + QByteArray::number(serve.port)}}).status,
                 200);
    }

    void modules()
    {
        const HttpAnswer list = get("/api/modules");
        QCOMPARE(list.status, 200);
        const QJsonArray modules = QJsonDocument::fromJson(list.body).array();
        QCOMPARE(modules.size(), 1);
        const QJsonObject m = modules.at(0).toObject();
        QCOMPARE(m.value("id").toString(), QString::fromLatin1(id));
        QCOMPARE(m.value("port").toString(), simPort);
        QCOMPARE(m.value("state").toString(), QString("open"));
        QVERIFY(QDateTime::fromString(m.value("since").toString(), Qt::ISODateWithMs).isValid());
        QVERIFY(m.value("since").toString().endsWith('Z'));
        QCOMPARE(m.value("areas").toArray().size(), 3);
        const QJsonObject stats = m.value("stats").toObject();
        for (const char *key : {"frames", "badSums", "strayBytes", "reportsPerSecond"})
            QVERIFY2(stats.contains(key), key);
        QVERIFY(stats.value("frames").toDouble() > 0);

        const HttpAnswer one = get("/api/modules/" + id);
        QCOMPARE(one.status, 200);
        QCOMPARE(object(one.body).value("id").toString(), QString::fromLatin1(id));
        CHECK_ERROR(get("/api/modules/nobody"), 404);
        CHECK_ERROR(get("/api/modules/" + id + "/nothing"), 404);
        CHECK_ERROR(get("/api/other"), 404);
        const HttpAnswer post = send("POST", "/api/modules", "{}");
        CHECK_ERROR(post, 405);
        QCOMPARE(post.headers.value("allow"), QByteArray("GET"));
    }

    void areasWithETagAndIfMatch()
    {
        const HttpAnswer before = get("/api/modules/" + id + "/areas");
        QCOMPARE(before.status, 200);
        const QByteArray tag = before.headers.value("etag");
        QVERIFY2(tag.startsWith('"') && tag.endsWith('"') && tag.size() > 2, tag);
        QCOMPARE(object(before.body).value("format").toString(), QString("orv-areas"));
        QCOMPARE(object(before.body).value("version").toInt(), 1);
        QVERIFY(!before.headers.contains("content-disposition"));

        const HttpAnswer download = get("/api/modules/" + id + "/areas?download=1");
        QCOMPARE(download.body, before.body);
        const QByteArray disposition = download.headers.value("content-disposition");
        QVERIFY2(disposition.startsWith("attachment;"), disposition);
        QVERIFY2(disposition.contains(
                     "\"orv-" + id + "-" +
                     QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate).toLatin1() +
                     ".json\""),
                 disposition);

        // Restore: set, read back; a new tag.
        const HttpAnswer put =
            send("PUT", "/api/modules/" + id + "/areas", kAreaFile, {{"If-Match", tag}});
        QVERIFY2(put.status == 200, qPrintable(put.describe()));
        const QJsonArray areas = object(put.body).value("areas").toArray();
        QCOMPARE(areas.at(0).toObject().value("type").toString(), QString("detect"));
        QCOMPARE(areas.at(2).toObject().value("type").toString(), QString("exclude"));
        QCOMPARE(areas.at(2).toObject().value("from").toArray().at(0).toDouble(), 2.0);
        const QByteArray newTag = put.headers.value("etag");
        QVERIFY(!newTag.isEmpty());
        QVERIFY(newTag != tag);
        QCOMPARE(get("/api/modules/" + id + "/areas").headers.value("etag"), newTag);

        // A stale tag: 412, nothing sent.
        const HttpAnswer stale =
            send("DELETE", "/api/modules/" + id + "/areas", {}, {{"If-Match", tag}});
        CHECK_ERROR(stale, 412);
        const HttpAnswer after = get("/api/modules/" + id + "/areas");
        QCOMPARE(after.headers.value("etag"), newTag);
        QCOMPARE(object(after.body).value("areas").toArray().at(0).toObject().value("type"),
                 QJsonValue("detect"));

        // A file that breaks a rule, and a body that is no JSON: 400, nothing sent.
        QByteArray broken = kAreaFile;
        broken.replace("[4.0, 5.0]", "[9.5, 5.0]");
        CHECK_ERROR(send("PUT", "/api/modules/" + id + "/areas", broken), 400);
        CHECK_ERROR(send("PUT", "/api/modules/" + id + "/areas", "{nope"), 400);
        CHECK_ERROR(send("PUT", "/api/modules/" + id + "/areas", "[]"), 400);
        QCOMPARE(get("/api/modules/" + id + "/areas").headers.value("etag"), newTag);
    }

    void oneAreaAndDisplay()
    {
        const QByteArray base = "/api/modules/" + id;
        HttpAnswer a = send("PUT", base + "/areas/2",
                            R"({"type":"exclude","from":[-3.0,6.0],"to":[-1.0,4.0]})");
        QVERIFY2(a.status == 200, qPrintable(a.describe()));
        QJsonObject area2 = object(a.body).value("areas").toArray().at(1).toObject();
        QCOMPARE(area2.value("type").toString(), QString("exclude"));
        QCOMPARE(area2.value("to").toArray().at(1).toDouble(), 4.0);
        QVERIFY(!a.headers.value("etag").isEmpty());

        a = send("DELETE", base + "/areas/2", {});
        QVERIFY2(a.status == 200, qPrintable(a.describe()));
        QCOMPARE(object(a.body).value("areas").toArray().at(1).toObject().value("type"),
                 QJsonValue("unset"));

        CHECK_ERROR(send("PUT", base + "/areas/4", R"({"type":"unset"})"), 404);
        CHECK_ERROR(send("PUT", base + "/areas/1", R"({"type":"round"})"), 400);
        CHECK_ERROR(send("PUT", base + "/areas/1", "x"), 400);
        CHECK_ERROR(send("GET", base + "/areas/1", {}), 405);

        a = send("PUT", base + "/display", R"({"display":"track"})");
        QVERIFY2(a.status == 200, qPrintable(a.describe()));
        QCOMPARE(object(a.body).value("display").toString(), QString("track"));
        a = send("PUT", base + "/display", R"({"display":"area"})");
        QCOMPARE(object(a.body).value("display").toString(), QString("area"));
        CHECK_ERROR(send("PUT", base + "/display", R"({"display":"other"})"), 400);
        CHECK_ERROR(send("PUT", base + "/display", R"({"show":"area"})"), 400);

        a = send("DELETE", base + "/areas", {});
        QVERIFY2(a.status == 200, qPrintable(a.describe()));
        for (const QJsonValue &v : object(a.body).value("areas").toArray())
            QCOMPARE(v.toObject().value("type").toString(), QString("unset"));
    }

    void originCheck()
    {
        const QByteArray path = "/api/modules/" + id + "/display";
        const QByteArray self = "http://127.0.0.1:" + QByteArray::number(serve.port);
        CHECK_ERROR(
            send("PUT", path, R"({"display":"track"})", {{"Origin", "http://evil.example"}}), 403);
        CHECK_ERROR(send("PUT", path, R"({"display":"track"})", {{"Origin", "null"}}), 403);
        QCOMPARE(object(get("/api/modules/" + id).body).value("display").toString(),
                 QString("area"));
        // Reads from elsewhere are not writes; the own origin may write.
        QCOMPARE(get("/api/modules", {{"Origin", "http://evil.example"}}).status, 200);
        const HttpAnswer own = send("PUT", path, R"({"display":"track"})", {{"Origin", self}});
        QVERIFY2(own.status == 200, qPrintable(own.describe()));
        QCOMPARE(send("PUT", path, R"({"display":"area"})").status, 200);
    }

    void bodyLimit()
    {
        const QByteArray big(70 * 1024, ' ');
        CHECK_ERROR(send("PUT", "/api/modules/" + id + "/areas", "{" + big + "}"), 413);
        // Sent in chunks, without a declared length.
        const HttpAnswer chunked =
            send("PUT", "/api/modules/" + id + "/areas",
                 QByteArray::number(big.size() + 2, 16) + "\r\n{" + big + "}\r\n0\r\n\r\n",
                 {{"Transfer-Encoding", "chunked"}});
        CHECK_ERROR(chunked, 413);
        QCOMPARE(get("/api/modules").status, 200);
    }

    void eventStream()
    {
        EventReader viewer;
        QVERIFY(viewer.open(serve.port, "/api/modules/" + id + "/events", serve.bearer()));
        QCOMPARE(viewer.answer.status, 200);
        QVERIFY(viewer.answer.headers.value("content-type").startsWith("text/event-stream"));
        QVERIFY(viewer.waitFor([&] { return viewer.count("targets") >= 3; }, 10000));
        // Complete at once: status, then config, then reports.
        QCOMPARE(viewer.events.at(0).name, QByteArray("status"));
        QCOMPARE(object(viewer.events.at(0).data).value("state").toString(), QString("open"));
        QCOMPARE(viewer.events.at(1).name, QByteArray("config"));
        QCOMPARE(object(viewer.events.at(1).data).value("format").toString(), QString("orv-areas"));
        for (const SseEvent &e : viewer.events) {
            if (e.name != "targets")
                continue;
            const QJsonObject record = object(e.data);
            QCOMPARE(record.value("kind").toString(), QString("targets"));
            QVERIFY(record.value("time").toString().endsWith('Z'));
            // One person standing at (1, 2) m.
            const QJsonArray targets = record.value("targets").toArray();
            QVERIFY2(targets.size() == 1 && targets.at(0).toArray().size() == 2 &&
                         targets.at(0).toArray().at(0).toDouble() == 1.0 &&
                         targets.at(0).toArray().at(1).toDouble() == 2.0,
                     e.data.constData());
        }
        QVERIFY(viewer.waitFor([&] { return viewer.count("areas") >= 1; }, 10000));

        // A change through the API reaches the viewer as a config event.
        const int configs = viewer.count("config");
        QCOMPARE(send("PUT", "/api/modules/" + id + "/areas/3",
                      R"({"type":"detect","from":[-2.0,5.0],"to":[2.0,0.5]})")
                     .status,
                 200);
        QVERIFY(viewer.waitFor([&] { return viewer.count("config") > configs; }, 10000));
        QJsonObject config;
        for (const SseEvent &e : viewer.events)
            if (e.name == "config")
                config = object(e.data);
        QCOMPARE(config.value("areas").toArray().at(2).toObject().value("type").toString(),
                 QString("detect"));

        // Metrics count the viewer and the frames.
        const HttpAnswer metrics = get("/metrics");
        QCOMPARE(metrics.status, 200);
        QVERIFY(metrics.headers.value("content-type").startsWith("text/plain"));
        QVERIFY2(metrics.body.contains("orv_viewers{module=\"" + id + "\"} 1\n"), metrics.body);
        QRegularExpression frames("orv_frames_total\\{module=\"hall\"\\} (\\d+)\n");
        const QRegularExpressionMatch m = frames.match(QString::fromUtf8(metrics.body));
        QVERIFY2(m.hasMatch() && m.captured(1).toLongLong() > 0, metrics.body);
        for (const char *name : {"orv_bad_sums_total", "orv_stray_bytes_total",
                                 "orv_reconnects_total", "orv_dropped_events_total"})
            QVERIFY2(metrics.body.contains(QByteArray(name) + "{module=\"hall\"} "), name);
        QCOMPARE(send("DELETE", "/api/modules/" + id + "/areas", {}).status, 200);
    }

    void eventRateCap()
    {
        CHECK_ERROR(get("/api/modules/" + id + "/events?rate=fast"), 400);
        CHECK_ERROR(get("/api/modules/" + id + "/events?rate=0"), 400);
        EventReader capped, full;
        QVERIFY(capped.open(serve.port, "/api/modules/" + id + "/events?rate=2", serve.bearer()));
        QVERIFY(full.open(serve.port, "/api/modules/" + id + "/events", serve.bearer()));
        QElapsedTimer clock;
        clock.start();
        // The uncapped one gets 10 per second: wait for 30 of them.
        QVERIFY(full.waitFor([&] { return full.count("targets") >= 30; }, 20000));
        capped.waitFor([] { return false; }, 200);
        const double seconds = clock.elapsed() / 1000.0;
        const int got = capped.count("targets");
        QVERIFY2(got >= 2 && got <= int(seconds * 2) + 2,
                 qPrintable(QString("%1 targets events in %2 s at rate=2").arg(got).arg(seconds)));
        QVERIFY(capped.count("areas") >= 10);
    }

    void tooManyConnections()
    {
        ServeProcess small;
        QVERIFY2(small.start({"--port", "x=" + QDir::tempPath() + "/orv-none", "--token-file",
                              dir.path() + "/token", "--max-connections", "2"}),
                 qPrintable(small.line + small.errors()));
        QCOMPARE(small.token, serve.token); // the file is reused
        EventReader a, b;
        QVERIFY(a.open(small.port, "/api/modules/x/events", small.bearer()));
        QVERIFY(b.open(small.port, "/api/modules/x/events", small.bearer()));
        QCOMPARE(a.answer.status, 200);
        QCOMPARE(b.answer.status, 200);
        CHECK_ERROR(httpRequest(small.port, "GET", "/api/modules", small.bearer()), 503);
        // The viewers already there are not disturbed.
        QVERIFY(a.socket.state() == QAbstractSocket::ConnectedState);
        a.socket.abort();
        b.socket.abort();
        QElapsedTimer clock;
        clock.start();
        HttpAnswer after;
        // Streams waiting for events notice a closed peer within a few seconds.
        while (clock.elapsed() < 20000) {
            after = httpRequest(small.port, "GET", "/api/modules", small.bearer());
            if (after.status == 200)
                break;
            QThread::msleep(100);
        }
        QCOMPARE(after.status, 200);
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString("%1 ms").arg(clock.elapsed())));
        // A module whose port does not exist is not open: writes get 503.
        CHECK_ERROR(httpRequest(small.port, "PUT", "/api/modules/x/display", small.bearer(),
                                R"({"display":"area"})"),
                    503);
    }

    void slowRequestTimesOut()
    {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(serve.port));
        QVERIFY(socket.waitForConnected(5000));
        socket.write("GET /api/modules HTTP/1.1\r\nHost: 127.0.0.1\r\n"); // never finished
        QElapsedTimer clock;
        clock.start();
        while (socket.state() == QAbstractSocket::ConnectedState && clock.elapsed() < 30000)
            socket.waitForReadyRead(100);
        QVERIFY(socket.state() != QAbstractSocket::ConnectedState);
        QVERIFY2(clock.elapsed() >= 5000, "closed before its time");
    }

    void writeWithoutAnswer()
    {
        // The module stops answering (radar-sim frozen): the write times out.
        QVERIFY(waitForState("open", 10000));
        const pid_t simPid = pid_t(sim.process.processId());
        QCOMPARE(::kill(simPid, SIGSTOP), 0);
        const HttpAnswer write =
            send("PUT", "/api/modules/" + id + "/display", R"({"display":"track"})");
        ::kill(simPid, SIGCONT);
        CHECK_ERROR(write, 504);
        QVERIFY2(object(write.body).value("error").toString().contains("no answer"),
                 qPrintable(write.describe()));
        QVERIFY2(waitForState("open", 15000), qPrintable(state()));
    }

    void writeWhileLost()
    {
        EventReader viewer;
        QVERIFY(viewer.open(serve.port, "/api/modules/" + id + "/events", serve.bearer()));
        sim.stop();
        QVERIFY2(waitForState("lost", 10000), qPrintable(state()));
        const HttpAnswer write =
            send("PUT", "/api/modules/" + id + "/display", R"({"display":"track"})");
        CHECK_ERROR(write, 503);
        QVERIFY(viewer.waitFor(
            [&] {
                for (const SseEvent &e : viewer.events)
                    if (e.name == "status" && object(e.data).value("state") == "lost")
                        return true;
                return false;
            },
            5000));
        CHECK_ERROR(send("DELETE", "/api/modules/" + id + "/areas", {}), 503);
    }

    void secondListenAddressOnIpv6()
    {
        ServeProcess two;
        QVERIFY2(
            two.start({"--port", "x=" + QDir::tempPath() + "/orv-none", "--token-file",
                       dir.path() + "/token", "--listen", "127.0.0.1:0", "--listen", "[::1]:0"}),
            qPrintable(two.line + two.errors()));
        QElapsedTimer clock;
        clock.start();
        while (!two.process.canReadLine() && clock.elapsed() < 10000)
            two.process.waitForReadyRead(50);
        const QString second = QString::fromUtf8(two.process.readLine()).trimmed();
        const QRegularExpressionMatch m =
            QRegularExpression(R"(^orv-cli serve: http://\[::1\]:(\d+)/\?token=(\S+)$)")
                .match(second);
        QVERIFY2(m.hasMatch(), qPrintable(second));
        QCOMPARE(m.captured(2).toLatin1(), two.token);
        const int port = m.captured(1).toInt();
        const QByteArray host = "[::1]:" + QByteArray::number(port);
        const HttpAnswer list = httpRequest(
            port, "GET", "/api/modules", two.bearer() + Headers{{"Host", host}}, {}, 10000, "::1");
        QCOMPARE(list.status, 200);
        QCOMPARE(QJsonDocument::fromJson(list.body).array().size(), 1);
        CHECK_ERROR(httpRequest(port, "GET", "/api/modules",
                                two.bearer() + Headers{{"Host", "evil.example"}}, {}, 10000, "::1"),
                    403);
        const HttpAnswer head =
            httpRequest(port, "HEAD", "/api/modules/x", two.bearer() + Headers{{"Host", host}}, {},
                        10000, "::1");
        QCOMPARE(head.status, 200);
        QVERIFY(head.body.isEmpty());
    }

    void commandLineMistakes_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        const QString token = dir.path() + "/token";
        QTest::newRow("no port") << QStringList{"--token-file", token} << 2 << "--port";
        QTest::newRow("bad id") << QStringList{"--port", "a b=/dev/null", "--token-file", token}
                                << 2 << "not an id";
        QTest::newRow("same id twice")
            << QStringList{"--port", "a=/dev/null", "--port", "a=/dev/zero", "--token-file", token}
            << 2 << "names two modules";
        QTest::newRow("same port twice")
            << QStringList{"--port", "/dev/null", "--port", "b=/dev/null", "--token-file", token}
            << 2 << "given twice";
        QTest::newRow("bad listen")
            << QStringList{"--port", "/dev/null", "--listen", "localhost:1", "--token-file", token}
            << 2 << "not an IP address";
        QTest::newRow("listen none without mqtt")
            << QStringList{"--port", "/dev/null", "--listen", "none", "--token-file", token} << 2
            << "--mqtt";
        QTest::newRow("bad baud") << QStringList{"--port", "/dev/null",    "--baud",
                                                 "fast",   "--token-file", token}
                                  << 2 << "--baud";
        QTest::newRow("bad limit")
            << QStringList{"--port", "/dev/null", "--max-connections", "0", "--token-file", token}
            << 2 << "--max-connections";
        QTest::newRow("address in use")
            << QStringList{"--port",       "/dev/null",
                           "--listen",     QString("127.0.0.1:%1").arg(serve.port),
                           "--token-file", token}
            << 3 << "cannot listen";
        QFile bad(dir.path() + "/bad-token");
        if (bad.open(QIODevice::WriteOnly))
            bad.write("x\n");
        QTest::newRow("unusable token file")
            << QStringList{"--port", "/dev/null", "--token-file", bad.fileName()} << 2
            << "no usable token";
    }
    void commandLineMistakes()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        QProcess p;
        p.start(QStringLiteral(ORV_CLI_BIN), QStringList{"serve"} + args);
        QVERIFY(p.waitForFinished(10000));
        const QString err = QString::fromUtf8(p.readAllStandardError());
        QCOMPARE(p.exitCode(), code);
        QVERIFY2(err.contains(message), qPrintable(err));
        QVERIFY(!p.readAllStandardOutput().contains("http://"));
    }

    void sigtermEndsStreamsAndExitsZero()
    {
        EventReader viewer;
        QVERIFY(viewer.open(serve.port, "/api/modules/" + id + "/events", serve.bearer()));
        QVERIFY(viewer.waitFor([&] { return viewer.count("status") >= 1; }, 5000));
        QElapsedTimer clock;
        clock.start();
        ::kill(pid_t(serve.process.processId()), SIGTERM);
        QVERIFY(serve.process.waitForFinished(5000));
        QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(serve.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(serve.process.exitCode(), 0);
        viewer.waitFor([] { return false; }, 1000);
        QVERIFY(viewer.ended);
        QVERIFY(viewer.lastChunkSeen);
    }
};

QTEST_GUILESS_MAIN(TestServe)
#include "tst_serve.moc"
