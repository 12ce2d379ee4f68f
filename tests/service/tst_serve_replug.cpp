// orv-cli serve when its module goes away and comes back: 20 unplug/replug
// cycles of radar-sim at one path (--link). Each time a viewer sees "lost",
// then "open" again without reconnecting, and the service's file
// descriptors and memory do not grow.

#include "tests/service/tst_serve_support.h"
#include "tests/support/simpeer.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

constexpr int kCycles = 20;

int openFiles(qint64 pid)
{
    return QDir(QString("/proc/%1/fd").arg(pid))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
        .size();
}

qint64 rssKiB(qint64 pid)
{
    QFile f(QString("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    return -1;
}

} // namespace

class TestServeReplug : public QObject
{
    Q_OBJECT

private slots:
    void unplugAndReplug()
    {
        QTemporaryDir dir;
        const QString link = dir.path() + "/ttyRADAR";
        SimProcess sim;
        QVERIFY(!sim.start({"--rate", "10", "--fixed", "1,2", "--link", link}).isEmpty());
        QVERIFY(QFileInfo(link).isSymLink());
        ServeProcess serve;
        QVERIFY2(serve.start({"--port", "m=" + link, "--token-file", dir.path() + "/token"}),
                 qPrintable(serve.line + serve.errors()));
        const qint64 pid = serve.process.processId();

        EventReader viewer;
        QVERIFY(viewer.open(serve.port, "/api/modules/m/events", serve.bearer()));
        int seen = 0; // status events looked at so far
        auto waitForState = [&](const QString &state, int timeoutMs) {
            return viewer.waitFor(
                [&] {
                    for (; seen < viewer.events.size(); ++seen) {
                        const SseEvent &e = viewer.events.at(seen);
                        if (e.name == "status" &&
                            QJsonDocument::fromJson(e.data).object().value("state").toString() ==
                                state) {
                            ++seen;
                            return true;
                        }
                    }
                    return false;
                },
                timeoutMs);
        };
        QVERIFY(waitForState("open", 15000));

        int filesAtStart = 0;
        qint64 rssAtStart = 0;
        qint64 slowestLost = 0, slowestBack = 0;
        for (int cycle = 1; cycle <= kCycles; ++cycle) {
            QElapsedTimer clock;
            clock.start();
            sim.stop();
            QVERIFY2(!QFileInfo::exists(link), "radar-sim left its link behind");
            QVERIFY2(waitForState("lost", 15000), qPrintable(QString("cycle %1").arg(cycle)));
            slowestLost = std::max(slowestLost, clock.elapsed());

            clock.restart();
            QVERIFY(!sim.start({"--rate", "10", "--fixed", "1,2", "--link", link}).isEmpty());
            QVERIFY2(waitForState("open", 20000), qPrintable(QString("cycle %1").arg(cycle)));
            slowestBack = std::max(slowestBack, clock.elapsed());
            // Reports flow again on the same stream.
            const int before = viewer.count("targets");
            QVERIFY(viewer.waitFor([&] { return viewer.count("targets") > before; }, 10000));
            if (cycle == 2) {
                filesAtStart = openFiles(pid);
                rssAtStart = rssKiB(pid);
            }
        }
        QVERIFY(viewer.socket.state() == QAbstractSocket::ConnectedState);
        const int filesAtEnd = openFiles(pid);
        const qint64 rssAtEnd = rssKiB(pid);
        qInfo().noquote() << QString("%1 cycles: lost after %2 ms at most, open again after %3 ms "
                                     "at most; open files %4 -> %5; RSS %6 -> %7 KiB")
                                 .arg(kCycles)
                                 .arg(slowestLost)
                                 .arg(slowestBack)
                                 .arg(filesAtStart)
                                 .arg(filesAtEnd)
                                 .arg(rssAtStart)
                                 .arg(rssAtEnd);
        QVERIFY2(filesAtEnd <= filesAtStart,
                 qPrintable(QString("%1 -> %2").arg(filesAtStart).arg(filesAtEnd)));
        if (!kSanitized)
            QVERIFY2(rssAtEnd - rssAtStart < 2048,
                     qPrintable(QString("RSS %1 -> %2 KiB").arg(rssAtStart).arg(rssAtEnd)));
        // Lost within 3 s, back within 5 s (with room for a loaded machine).
        QVERIFY2(slowestLost < 4500, qPrintable(QString::number(slowestLost)));
        QVERIFY2(slowestBack < 7500, qPrintable(QString::number(slowestBack)));
        const QJsonObject status =
            QJsonDocument::fromJson(
                httpRequest(serve.port, "GET", "/api/modules/m", serve.bearer()).body)
                .object();
        QCOMPARE(status.value("stats").toObject().value("reconnects").toInt(), kCycles);
    }
};

QTEST_GUILESS_MAIN(TestServeReplug)
#include "tst_serve_replug.moc"
