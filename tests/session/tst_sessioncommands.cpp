// orv-cli summary and render as programs: a session recorded from radar-sim
// with people standing at known points (golden figures and pixels), exit
// codes for bad command lines and files, folders, progress.

#include "radar/framedecoder.h"
#include "render/pictureareas.h"
#include "render/sessionpicture.h"
#include "tests/session/sessionlog.h"
#include "tests/support/simpeer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSerialPort>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

#ifndef ORV_CLI_BIN
#error "ORV_CLI_BIN must name the orv-cli executable"
#endif

namespace
{

struct Run {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

Run orvCli(const QStringList &args)
{
    QProcess p;
    p.start(QStringLiteral(ORV_CLI_BIN), args);
    Run r;
    if (!p.waitForFinished(60000))
        return r;
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

} // namespace

class TestSessionCommands : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void goldenFiguresFromRadarSim();
    void pictureFromRadarSim();
    void fromOrvCliRecord();
    void badInput_data();
    void badInput();
    void junkIsSkippedAndCounted();
    void folderInNumericOrder();
    void progressUnlessQuiet();
    void svgByName();
    void helpListsOwnExitCodes();
    void stopsOnSignal_data();
    void stopsOnSignal();

private:
    QString write(const QString &name, const QByteArray &text);
    QTemporaryDir dir;
    QString recording;
    QByteArray recorded; // every byte received from radar-sim
    QString good;        // a small generated log
};

QString TestSessionCommands::write(const QString &name, const QByteArray &text)
{
    const QString path = dir.filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

void TestSessionCommands::initTestCase()
{
    // Two people standing still, one in each of two preset areas; the read-area
    // answer and 2.5 s of reports at 20 Hz are written the way the tool logs
    // them ("RecvData:" lines with the local time).
    SimProcess sim;
    const QString port = sim.start({"--baud", "9600", "--rate", "20", "--fixed", "1.5,3", "--fixed",
                                    "-2,5", "--area", "1,0,-3,6,0,3", "--area", "2,1,1,4,3,2"});
    QVERIFY2(!port.isEmpty(), "radar-sim printed no port");
    QSerialPort serial;
    serial.setPortName(port);
    serial.setBaudRate(9600);
    QVERIFY2(serial.open(QIODevice::ReadWrite), qPrintable(serial.errorString()));
    QThread::msleep(50);
    serial.write(frameformat::buildFrame(ReadArea, QByteArray()));
    QByteArray log;
    // 2.7 s of the stream, and at least fifty target reports in it however
    // slowly they come through on a loaded machine.
    auto targetReports = [&] {
        int n = 0;
        for (const SeenFrame &f : cutFrames(recorded))
            n += quint8(f.frame.at(5)) == TargetReport;
        return n;
    };
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 2700 || (targetReports() < 50 && t.elapsed() < 30000)) {
        if (!serial.waitForReadyRead(100))
            continue;
        const QByteArray chunk = serial.readAll();
        recorded += chunk;
        log += QDateTime::currentDateTime().toString("[yyyy-MM-dd hh:mm:ss.zzz] ").toLatin1() +
               "RecvData:" + frameformat::hexDumpLatin1(chunk) + "\n";
    }
    serial.close();
    recording = write("radar-sim.log", log);
    QVERIFY(recorded.size() > 500);

    QByteArray small;
    for (int i = 0; i < 50; ++i)
        small += sessionlog::recvLine(sessionlog::baseMs() + 100 * i,
                                      sessionlog::targetFrame({{1.0, 2.0}}));
    good = write("good.log", small);
}

void TestSessionCommands::goldenFiguresFromRadarSim()
{
    const Run r = orvCli({"summary", "--json", recording});
    QCOMPARE(r.code, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QVERIFY2(!o.isEmpty(), r.out.constData());
    QCOMPARE(o["mostPeopleAtOnce"].toInt(), 2);
    QCOMPARE(o["pointsOutsidePlane"].toInt(), 0);
    QCOMPARE(o["checksumFailures"].toInt(), 0);
    QCOMPARE(o["readAreaAnswers"].toInt(), 1);
    QVERIFY(o["targetReports"].toInt() >= 30);
    QVERIFY2(qAbs(o["reportsPerSecond"].toDouble() - 20.0) < 2.0,
             qPrintable(QString::number(o["reportsPerSecond"].toDouble())));

    // What radar-sim reported, counted straight from the received frames.
    int reports = 0, inArea[3] = {0, 0, 0};
    FrameDecoder decoder;
    for (const QByteArray &frame : decoder.feed(recorded)) {
        if (quint8(frame.at(5)) != TargetAreaReport)
            continue;
        ++reports;
        for (int i = 0; i < 3; ++i)
            inArea[i] += frame.at(6 + i) == 1;
    }
    QCOMPARE(o["areaPresenceReports"].toInt(), reports);
    const QJsonArray occupancy = o["occupancy"].toArray();
    QCOMPARE(occupancy.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const double share = occupancy[i].toObject()["occupiedShare"].toDouble();
        QVERIFY2(qAbs(share - double(inArea[i]) / reports) < 0.05,
                 qPrintable(QString("area %1: %2").arg(i + 1).arg(share)));
    }
    // Each person stood inside one area the whole time.
    QCOMPARE(occupancy[0].toObject()["occupiedShare"].toDouble(), 1.0);
    QCOMPARE(occupancy[1].toObject()["occupiedShare"].toDouble(), 1.0);
    QCOMPARE(occupancy[2].toObject()["occupiedShare"].toDouble(), 0.0);

    const QJsonArray held = o["areasHeld"].toArray();
    QCOMPARE(held.size(), 3);
    QCOMPARE(held[0].toObject()["type"].toString(), QString("detect"));
    QCOMPARE(held[0].toObject()["from"].toArray(), (QJsonArray{-3.0, 6.0}));
    QCOMPARE(held[0].toObject()["to"].toArray(), (QJsonArray{0.0, 3.0}));
    QCOMPARE(held[1].toObject()["type"].toString(), QString("exclude"));
    QCOMPARE(held[2].toObject()["type"].toString(), QString("unset"));

    // The heat map: time only in the two cells where they stood, alike.
    HeatMap heat;
    SessionScan scan(SessionFilter(), &heat);
    QVERIFY(scan.addFile(recording, nullptr));
    scan.finish();
    qint8 x, y;
    heat.hottest(&x, &y);
    QVERIFY((x == 15 && y == 30) || (x == -20 && y == 50));
    QVERIFY(heat.seconds(15, 30) > 1.5);
    QVERIFY(qAbs(heat.seconds(15, 30) - heat.seconds(-20, 50)) < 1e-6);
    QVERIFY(qAbs(heat.totalSeconds() - heat.seconds(15, 30) - heat.seconds(-20, 50)) < 1e-6);
}

void TestSessionCommands::pictureFromRadarSim()
{
    const QString png = dir.filePath("radar-sim.png");
    const Run r = orvCli({"render", recording, "-o", png, "--size", "800x600"});
    QVERIFY2(r.code == 0, r.err.constData());
    QImage img(png);
    QCOMPARE(img.size(), QSize(800, 600));

    // The same picture laid out here gives the positions and colours.
    HeatMap heat;
    TrailStore trails;
    SessionScan scan(SessionFilter(), &heat, &trails);
    QVERIFY(scan.addFile(recording, nullptr));
    scan.finish();
    PictureOptions options;
    options.size = QSize(800, 600);
    const SessionPicture picture(scan.figures(), heat, trails, loggedPictureAreas(scan.figures()),
                                 options);
    const QColor hot = picture.heatColour(heat.seconds(15, 30));
    for (const QPointF &p : {QPointF(1.5, 3.0), QPointF(-2.0, 5.0)}) {
        const QPointF px = picture.toPixel(p.x(), p.y() - 0.03);
        const QColor c = img.pixelColor(int(px.x()), int(px.y()));
        // Heat over the area's fill: red dominates, close to the hot colour.
        QVERIFY2(c.red() > 150 && c.red() > c.blue() + 60 && qAbs(c.red() - hot.red()) < 30,
                 qPrintable(c.name() + " " + hot.name()));
    }
    const QPointF inside = picture.toPixel(-0.5, 3.5);
    const QColor fill = img.pixelColor(int(inside.x()), int(inside.y()));
    // The detection colour over white: (0, 0, 138, 100) blended.
    QVERIFY2(qAbs(fill.red() - 155) <= 3 && qAbs(fill.green() - 155) <= 3 &&
                 qAbs(fill.blue() - 209) <= 3,
             qPrintable(fill.name()));
    QVERIFY(r.err.contains("wrote"));
}

void TestSessionCommands::fromOrvCliRecord()
{
    // orv-cli record writes the same lines: one person at (0.5, 2.0).
    SimProcess sim;
    const QString port = sim.start({"--baud", "9600", "--rate", "20", "--fixed", "0.5,2"});
    QVERIFY(!port.isEmpty());
    const QString log = dir.filePath("record.log");
    const Run rec =
        orvCli({"record", "--port", port, "--baud", "9600", "-o", log, "--duration", "1.5"});
    QVERIFY2(rec.code == 0, rec.err.constData());
    const Run r = orvCli({"summary", "--json", log});
    QCOMPARE(r.code, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o["mostPeopleAtOnce"].toInt(), 1);
    QVERIFY(o["targetReports"].toInt() >= 15);
    QCOMPARE(o["linesSkipped"].toInt(), 0);
    HeatMap heat;
    SessionScan scan(SessionFilter(), &heat);
    QVERIFY(scan.addFile(log, nullptr));
    scan.finish();
    qint8 x, y;
    heat.hottest(&x, &y);
    QCOMPARE(int(x), 5);
    QCOMPARE(int(y), 20);
    QCOMPARE(heat.seconds(5, 20), heat.totalSeconds());
}

void TestSessionCommands::badInput_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const QString missing = dir.filePath("missing.log");
    const QString out = dir.filePath("out.png");
    QDir(dir.path()).mkpath("empty");
    const QString badJson = write("bad.json", "{\n \"areas\": [\n  {\"number\": 1,,}\n ]\n}\n");
    QTest::newRow("summary missing file") << QStringList{"summary", missing} << 2 << missing;
    QTest::newRow("render missing file")
        << QStringList{"render", missing, "-o", out} << 2 << missing;
    QTest::newRow("no log") << QStringList{"summary"} << 2 << "no LOG";
    QTest::newRow("empty folder") << QStringList{"summary", dir.filePath("empty")} << 2
                                  << "logfile_";
    QTest::newRow("no output") << QStringList{"render", good} << 2 << "-o PICTURE";
    QTest::newRow("range three numbers")
        << QStringList{"render", good, "-o", out, "--range", "1,2,3"} << 2 << "--range";
    QTest::newRow("range reversed")
        << QStringList{"render", good, "-o", out, "--range", "2,1,0,8"} << 2 << "--range";
    QTest::newRow("size small") << QStringList{"render", good, "-o", out, "--size", "10x10"} << 2
                                << "--size";
    QTest::newRow("size text") << QStringList{"render", good, "-o", out, "--size", "big"} << 2
                               << "--size";
    QTest::newRow("trail minutes")
        << QStringList{"render", good, "-o", out, "--trail-minutes", "-1"} << 2
        << "--trail-minutes";
    QTest::newRow("from text") << QStringList{"summary", good, "--from", "yesterday"} << 2
                               << "--from";
    QTest::newRow("from after to")
        << QStringList{"summary", good, "--from", "2026-11-22", "--to", "2026-11-21"} << 2
        << "later";
    QTest::newRow("unwritable picture")
        << QStringList{"render", good, "-o", dir.filePath("no/such/dir/x.png")} << 2
        << "cannot write";
    QTest::newRow("bad area file")
        << QStringList{"render", good, "-o", out, "--areas", badJson} << 2 << "bad.json:3:";
    QTest::newRow("missing area file")
        << QStringList{"render", good, "-o", out, "--areas", missing} << 2 << missing;
}

void TestSessionCommands::badInput()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, message);
    const Run r = orvCli(args);
    QCOMPARE(r.code, code);
    QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
    QVERIFY(!QFile::exists(dir.filePath("out.png")));
}

void TestSessionCommands::junkIsSkippedAndCounted()
{
    QByteArray junk;
    for (int i = 0; i < 2000; ++i)
        junk += char((i * 7919) % 256);
    junk += "\n[2026-11-21 08:00:00.000] RecvData:FF EE D\n";
    const QString path = write("junk.log", junk);
    const Run r = orvCli({"summary", "--json", path});
    QCOMPARE(r.code, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QVERIFY(o["linesSkipped"].toInt() >= 1);
    QCOMPARE(o["truncatedDumps"].toInt(), 1);
    QCOMPARE(o["targetReports"].toInt(), 0);
    const Run picture = orvCli({"render", path, "-o", dir.filePath("junk.png"), "--quiet"});
    QCOMPARE(picture.code, 0);
    QVERIFY(picture.err.isEmpty());
    QVERIFY(!QImage(dir.filePath("junk.png")).isNull());
}

void TestSessionCommands::folderInNumericOrder()
{
    // Reports 0..9 in logfile_2, 10..19 in logfile_10: read in the order of n.
    QDir(dir.path()).mkpath("log/20261121");
    QByteArray first, second;
    for (int i = 0; i < 20; ++i)
        (i < 10 ? first : second) +=
            sessionlog::recvLine(sessionlog::baseMs() + 100 * i, sessionlog::targetFrame({{1, 1}}));
    write("log/20261121/logfile_2.txt", first);
    write("log/20261121/logfile_10.txt", second);
    const Run r = orvCli({"summary", "--json", dir.filePath("log/20261121")});
    QCOMPARE(r.code, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o["files"].toInt(), 2);
    QCOMPARE(o["targetReports"].toInt(), 20);
    QCOMPARE(o["longestGapSeconds"].toDouble(), 0.1); // in order: no step back
    QCOMPARE(o["firstFrame"].toString(), QString("2026-11-21 08:00:00.000"));
    QCOMPARE(o["lastFrame"].toString(), QString("2026-11-21 08:00:01.900"));
}

void TestSessionCommands::progressUnlessQuiet()
{
    // 17 MiB of log lines: long enough for progress lines.
    QByteArray big;
    const QByteArray line =
        sessionlog::recvLine(sessionlog::baseMs(), sessionlog::targetFrame({{1, 1}}));
    big.reserve(17 * 1024 * 1024 + line.size());
    while (big.size() < 17 * 1024 * 1024)
        big += line;
    const QString path = write("big.log", big);
    const Run loud = orvCli({"summary", path});
    QCOMPARE(loud.code, 0);
    QVERIFY2(loud.err.contains("50 % read"), loud.err.constData());
    const Run quiet = orvCli({"summary", "--quiet", path});
    QCOMPARE(quiet.code, 0);
    QVERIFY(quiet.err.isEmpty());
    QCOMPARE(quiet.out, loud.out);
    QFile::remove(path);
}

void TestSessionCommands::svgByName()
{
    const QString svg = dir.filePath("good.svg");
    const Run r = orvCli({"render", good, "-o", svg, "--quiet", "--from", "2026-11-21T08:00:01"});
    QCOMPARE(r.code, 0);
    QFile f(svg);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray text = f.readAll();
    QVERIFY(text.contains("<svg"));
    QVERIFY(text.contains(">40 reports (10.0/s)")); // 08:00:01.000 .. 08:00:04.900
}

void TestSessionCommands::helpListsOwnExitCodes()
{
    for (const QString command : {"summary", "render"}) {
        const Run r = orvCli({"help", command});
        QCOMPARE(r.code, 0);
        const QString text = QString::fromUtf8(r.out);
        QCOMPARE(text.count("Exit codes"), 1);
        for (const char *code : {"\n  0 ", "\n  2 ", "\n  130 "})
            QVERIFY2(text.contains(code), qPrintable(text));
        for (const char *code : {"\n  1 ", "\n  3 ", "\n  4 "})
            QVERIFY2(!text.contains(code), qPrintable(text));
        for (const QString &line : text.split('\n'))
            QVERIFY2(line.size() <= 80, qPrintable(line));
    }
}

void TestSessionCommands::stopsOnSignal_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("signal");
    QTest::newRow("summary, Ctrl-C") << "summary" << int(SIGINT);
    QTest::newRow("render, SIGTERM") << "render" << int(SIGTERM);
}

void TestSessionCommands::stopsOnSignal()
{
    QFETCH(QString, command);
    QFETCH(int, signal);
    // 17 MiB read 40 times: seconds of scanning even for summary in a release
    // build, so a scan that ignores the signal cannot end in time.
    QByteArray big;
    const QByteArray line =
        sessionlog::recvLine(sessionlog::baseMs(), sessionlog::targetFrame({{1, 1}}));
    big.reserve(17 * 1024 * 1024 + line.size());
    while (big.size() < 17 * 1024 * 1024)
        big += line;
    const QString path = write("signal.log", big);
    const QString picture = dir.filePath("signal.png");
    QStringList args{command, "--quiet"};
    for (int i = 0; i < 40; ++i)
        args << path;
    if (command == "render")
        args << "-o" << picture;

    QProcess p;
    p.start(QStringLiteral(ORV_CLI_BIN), args);
    QVERIFY(p.waitForStarted());
    // The signal goes out as soon as the program catches it (Linux lists the
    // caught signals in /proc/PID/status), before it has read much.
    const quint64 wanted = (1ull << (SIGINT - 1)) | (1ull << (SIGTERM - 1));
    quint64 caught = 0;
    QElapsedTimer t;
    t.start();
    while ((caught & wanted) != wanted && t.elapsed() < 10000 && p.state() == QProcess::Running) {
        QFile status(QString("/proc/%1/status").arg(p.processId()));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray &l : status.readAll().split('\n'))
                if (l.startsWith("SigCgt:"))
                    caught = l.mid(7).trimmed().toULongLong(nullptr, 16);
        }
        if ((caught & wanted) != wanted)
            QThread::msleep(5);
    }
    QVERIFY2((caught & wanted) == wanted, "orv-cli does not catch SIGINT and SIGTERM");
    QVERIFY(p.state() == QProcess::Running);
    ::kill(pid_t(p.processId()), signal);
    t.restart();
    QVERIFY2(p.waitForFinished(5000), "still scanning 5 s after the signal");
    QVERIFY2(t.elapsed() < 1000, qPrintable(QString::number(t.elapsed())));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 130);
    const QByteArray err = p.readAllStandardError();
    QVERIFY2(err.contains("interrupted"), err.constData());
    QVERIFY(p.readAllStandardOutput().isEmpty());
    QVERIFY(!QFile::exists(picture));
    QFile::remove(path);
}

QTEST_MAIN(TestSessionCommands)
#include "tst_sessioncommands.moc"
