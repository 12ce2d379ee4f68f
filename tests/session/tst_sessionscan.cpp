// The session scan on generated logs: presence time per cell, trails along
// known walking paths, area occupancy, counts of what is broken, the time
// window, and how LOG arguments expand.

#include "cli/interrupt.h"
#include "session/sessionscan.h"
#include "tests/session/sessionlog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace sessionlog;

class TestSessionScan : public QObject
{
    Q_OBJECT

private slots:
    void hottestCellsWhereTheyStood();
    void pauseHoldsAtMostOneSecond();
    void trailFollowsStraightWalk();
    void trailBreaksOnJumpsAndSilence();
    void trailStoreStaysBounded();
    void trailWindowKeepsRecentPoints();
    void occupancyShares();
    void brokenInputCounted();
    void frameSplitAcrossLines();
    void timeWindow();
    void areasFromLastAnswer();
    void expandsFoldersInNumericOrder();
    void expandRefusesMissingAndEmpty();
    void parseLogTime_data();
    void parseLogTime();
    void unreadableFile();
    void stopsOnInterrupt();

private:
    QString write(const QString &name, const QByteArray &text);
    QTemporaryDir dir;
};

QString TestSessionScan::write(const QString &name, const QByteArray &text)
{
    const QString path = dir.filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

void TestSessionScan::hottestCellsWhereTheyStood()
{
    // A at (1.5, 3.0) for 100 reports, B at (-2.0, 5.0) for the first 40 of
    // them, 100 ms apart.
    QByteArray log;
    for (int i = 0; i < 100; ++i) {
        QVector<QPointF> people{{1.5, 3.0}};
        if (i < 40)
            people.append({-2.0, 5.0});
        log += recvLine(baseMs() + 100 * i, targetFrame(people));
    }
    HeatMap heat;
    SessionScan scan(SessionFilter(), &heat);
    QString error;
    QVERIFY2(scan.addFile(write("hot.log", log), &error), qPrintable(error));
    scan.finish();
    qint8 x, y;
    heat.hottest(&x, &y);
    QCOMPARE(int(x), 15);
    QCOMPARE(int(y), 30);
    QCOMPARE(heat.seconds(15, 30), 10.0); // 99 intervals + the last report's 0.1 s
    QCOMPARE(heat.seconds(-20, 50), 4.0);
    QCOMPARE(heat.totalSeconds(), 14.0);
    QCOMPARE(heat.maximum(), 10.0);
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.targetReports, 100);
    QCOMPARE(f.mostPeople, 2);
    QCOMPARE(f.points, 140);
    QCOMPARE(f.pointsOutside, 0);
    QCOMPARE(f.reportsPerSecond(), 10.0);
    QCOMPARE(f.longestGapMs, 100);
}

void TestSessionScan::pauseHoldsAtMostOneSecond()
{
    QByteArray log;
    log += recvLine(baseMs(), targetFrame({{1.0, 1.0}}));
    log += recvLine(baseMs() + 10000, targetFrame({{2.0, 2.0}}));
    log += recvLine(baseMs() + 10200, targetFrame({{2.0, 2.0}, {0, 0}, {12.0, 1.0}}));
    HeatMap heat;
    SessionScan scan(SessionFilter(), &heat);
    QVERIFY(scan.addFile(write("pause.log", log), nullptr));
    scan.finish();
    QCOMPARE(heat.seconds(10, 10), 1.0);
    QCOMPARE(heat.seconds(20, 20), 0.4);
    QCOMPARE(heat.seconds(120, 10), 0.2);
    QCOMPARE(heat.seconds(0, 0), 0.0); // (0, 0) is an empty slot
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.longestGapMs, 10000);
    QCOMPARE(f.longestGapFromMs, baseMs());
    QCOMPARE(f.mostPeople, 2);
    QCOMPARE(f.pointsOutside, 1); // x = 12 m lies beyond the plane
}

void TestSessionScan::trailFollowsStraightWalk()
{
    // From (-3, 1) to (3, 7) in 0.1 m steps on both axes: y = x + 4.
    QByteArray log;
    for (int i = 0; i <= 60; ++i)
        log += recvLine(baseMs() + 100 * i, targetFrame({{-3.0 + 0.1 * i, 1.0 + 0.1 * i}}));
    TrailStore trails;
    SessionScan scan(SessionFilter(), nullptr, &trails);
    QVERIFY(scan.addFile(write("walk.log", log), nullptr));
    scan.finish();
    const std::vector<TrailPoint> &points = trails.points();
    QCOMPARE(int(points.size()), 61);
    QVERIFY(points.front().startsTrail);
    for (size_t i = 0; i < points.size(); ++i) {
        QCOMPARE(int(points[i].y), int(points[i].x) + 40);
        QCOMPARE(points[i].startsTrail, i == 0);
        QCOMPARE(int(points[i].slot), 0);
    }
    QCOMPARE(int(points.front().x), -30);
    QCOMPARE(int(points.back().x), 30);
}

void TestSessionScan::trailBreaksOnJumpsAndSilence()
{
    TrailStore trails;
    auto report = [&trails](qint64 ms, std::initializer_list<qint8> pairs) {
        const std::vector<qint8> v(pairs);
        trails.addReport(ms, v.data(), int(v.size() / 2));
    };
    report(0, {10, 10, 20, 20});
    report(100, {11, 10, 20, 21});  // both joined
    report(200, {30, 10, 20, 22});  // slot 0 jumps 1.9 m
    report(3000, {30, 11, 20, 23}); // 2.8 s of silence
    report(3100, {0, 0, 20, 24});   // slot 0 empty
    report(3200, {30, 12, 20, 25}); // slot 0 back
    QVector<bool> slot0, slot1;
    for (const TrailPoint &p : trails.points())
        (p.slot == 0 ? slot0 : slot1).append(p.startsTrail);
    QCOMPARE(slot0, (QVector<bool>{true, false, true, true, true}));
    QCOMPARE(slot1, (QVector<bool>{true, false, false, true, false, false}));
}

void TestSessionScan::trailStoreStaysBounded()
{
    // 5000 reports of a walk to and fro along x at y = 2 into 200 points.
    TrailStore trails(200);
    for (int i = 0; i < 5000; ++i) {
        const int phase = i % 200;
        const qint8 pair[2] = {qint8(phase < 100 ? -50 + phase : 150 - phase), 20};
        trails.addReport(100LL * i, pair, 1);
    }
    QVERIFY(int(trails.points().size()) <= 200);
    QVERIFY(trails.points().size() >= 50);
    QVERIFY(trails.interval() >= 100);
    qint64 last = -1;
    for (const TrailPoint &p : trails.points()) {
        QCOMPARE(int(p.y), 20);
        QVERIFY(p.x >= -50 && p.x <= 50);
        QVERIFY(p.ms > last); // still in time order
        last = p.ms;
    }
    QCOMPARE(trails.points().front().ms, 0); // the start of the walk is kept
}

void TestSessionScan::trailWindowKeepsRecentPoints()
{
    TrailStore trails(100, 60000);   // the last minute
    for (int i = 0; i < 3000; ++i) { // five minutes at 10 Hz
        const qint8 pair[2] = {qint8(i % 50), 30};
        trails.addReport(100LL * i, pair, 1);
    }
    QVERIFY(int(trails.points().size()) <= 100);
    QCOMPARE(trails.windowStart(), 299900 - 60000);
    int inside = 0;
    for (const TrailPoint &p : trails.points())
        inside += p.ms >= trails.windowStart();
    QVERIFY2(inside >= 25, qPrintable(QString::number(inside)));
}

void TestSessionScan::occupancyShares()
{
    // 100 area reports 100 ms apart: area 1 occupied in 30 of them, area 2 in
    // all, area 3 in none.
    QByteArray log;
    for (int i = 0; i < 100; ++i)
        log += recvLine(baseMs() + 100 * i, flagsFrame((i % 10 < 3 ? 1 : 0) | 2));
    SessionScan scan{SessionFilter()};
    QVERIFY(scan.addFile(write("occupancy.log", log), nullptr));
    scan.finish();
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.areaReports, 100);
    QCOMPARE(f.areaSeconds, 10.0);
    QVERIFY(qAbs(f.occupiedShare(0) - 0.3) < 1e-9);
    QCOMPARE(f.occupiedShare(1), 1.0);
    QCOMPARE(f.occupiedShare(2), 0.0);
    QVERIFY(qAbs(f.occupiedSeconds[0] - 3.0) < 1e-9);

    SessionScan none{SessionFilter()};
    QVERIFY(none.addFile(write("none.log", recvLine(baseMs(), targetFrame({{1, 1}}))), nullptr));
    none.finish();
    QCOMPARE(none.figures().occupiedShare(0), -1.0);
}

void TestSessionScan::brokenInputCounted()
{
    QByteArray bad = targetFrame({{1.0, 2.0}});
    bad[bad.size() - 4] = char(bad.at(bad.size() - 4) + 1); // wrong sum
    QByteArray log;
    log += "garbage line\n";
    log += recvLine(baseMs(), bad);
    log += recvLine(baseMs() + 100, QByteArray("\x01\x02\x03", 3) + targetFrame({{1.0, 2.0}}));
    QByteArray cut = recvLine(baseMs() + 200, targetFrame({{1.0, 2.0}}));
    cut.chop(3); // "DD EE FF \n" ends in a lone "F"
    log += cut + "\n";
    log += QByteArray(100, '\0') + "\n";
    log += stamp(baseMs() + 300) + "SendData:FF EE DD 00 01 06 06 DD EE FF \n";
    SessionScan scan{SessionFilter()};
    QVERIFY(scan.addFile(write("broken.log", log), nullptr));
    scan.finish();
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.lines.lines, 6);
    QCOMPARE(f.lines.notLogLines, 2);
    QCOMPARE(f.lines.recvDataLines, 3);
    QCOMPARE(f.lines.truncatedDumps, 1);
    QCOMPARE(f.frames.badSums, 1);
    QCOMPARE(f.frames.frames, 1);
    QCOMPARE(f.targetReports, 1);
    QVERIFY(f.frames.skippedBytes >= 3);
}

void TestSessionScan::frameSplitAcrossLines()
{
    const QByteArray frame = targetFrame({{1.0, 2.0}, {-1.0, 3.0}});
    QByteArray log;
    log += recvLine(baseMs(), frame.left(4));
    log += recvLine(baseMs() + 10, frame.mid(4, 5));
    log += recvLine(baseMs() + 20, frame.mid(9) + flagsFrame(1));
    SessionScan scan{SessionFilter()};
    QVERIFY(scan.addFile(write("split.log", log), nullptr));
    scan.finish();
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.targetReports, 1);
    QCOMPARE(f.areaReports, 1);
    QCOMPARE(f.frames.skippedBytes, 0);
    QCOMPARE(f.firstMs, baseMs() + 20); // the line that completes the frame
    QCOMPARE(f.mostPeople, 2);
}

void TestSessionScan::timeWindow()
{
    const Area areas[3] = {{0, {-1, 4}, {1, 2}}, {2, {}, {}}, {2, {}, {}}};
    QByteArray log = recvLine(baseMs() - 1000, readAreaFrame(areas));
    for (int i = 0; i < 600; ++i) // one minute
        log += recvLine(baseMs() + 100 * i, targetFrame({{i < 300 ? 1.0 : 2.0, 1.0}}));
    SessionFilter filter;
    filter.fromMs = baseMs() + 10000;
    filter.toMs = baseMs() + 19900;
    HeatMap heat;
    SessionScan scan(filter, &heat);
    QVERIFY(scan.addFile(write("window.log", log), nullptr));
    scan.finish();
    const SessionFigures &f = scan.figures();
    QCOMPARE(f.targetReports, 100);
    QCOMPARE(f.firstMs, baseMs() + 10000);
    QCOMPARE(f.lastMs, baseMs() + 19900);
    QCOMPARE(heat.seconds(10, 10), 10.0);
    QCOMPARE(heat.seconds(20, 10), 0.0);
    QVERIFY(f.haveAreas); // answered before the window: held when it opens
    QCOMPARE(f.areaReads, 0);
    QCOMPARE(f.frames.frames, 100);
}

void TestSessionScan::areasFromLastAnswer()
{
    const Area first[3] = {{0, {-1, 4}, {1, 2}}, {2, {}, {}}, {2, {}, {}}};
    const Area second[3] = {{1, {-3, 6}, {-1, 3}}, {0, {1, 5}, {2, 4}}, {2, {}, {}}};
    QByteArray log = recvLine(baseMs(), readAreaFrame(first));
    log += recvLine(baseMs() + 100, readAreaFrame(first));
    log += recvLine(baseMs() + 200, readAreaFrame(second));
    SessionScan scan{SessionFilter()};
    QVERIFY(scan.addFile(write("areas.log", log), nullptr));
    scan.finish();
    const SessionFigures &f = scan.figures();
    QVERIFY(f.haveAreas);
    QCOMPARE(f.areaReads, 3);
    QCOMPARE(f.areaChanges, 1);
    QCOMPARE(f.areasMs, baseMs() + 200);
    QCOMPARE(f.areas[0].type, 1);
    QCOMPARE(f.areas[0].rect, QRectF(QPointF(-3, 6), QPointF(-1, 3)));
    QCOMPARE(f.areas[1].type, 0);
    QCOMPARE(f.areas[2].type, 2);
}

void TestSessionScan::expandsFoldersInNumericOrder()
{
    QVERIFY(QDir(dir.path()).mkpath("log/20261121"));
    for (int n : {10, 2, 0, 1})
        write(QString("log/20261121/logfile_%1.txt").arg(n), recvLine(baseMs() + n, "\x01"));
    write("log/20261121/notes.txt", "x");
    const QString single = write("single.log", "x");
    QStringList files;
    QString error;
    QVERIFY(expandLogInputs({single, dir.filePath("log/20261121")}, &files, &error));
    QStringList names;
    for (const QString &f : files)
        names << QFileInfo(f).fileName();
    QCOMPARE(names, (QStringList{"single.log", "logfile_0.txt", "logfile_1.txt", "logfile_2.txt",
                                 "logfile_10.txt"}));

    // The log folder: its day folders in date order.
    QVERIFY(QDir(dir.path()).mkpath("log/20261120"));
    QVERIFY(QDir(dir.path()).mkpath("log/notes"));
    write("log/20261120/logfile_0.txt", "x");
    write("log/notes/logfile_0.txt", "x");
    files.clear();
    QVERIFY(expandLogInputs({dir.filePath("log")}, &files, &error));
    QCOMPARE(files.size(), 5);
    QVERIFY(files[0].endsWith("20261120/logfile_0.txt"));
    QVERIFY(files[4].endsWith("20261121/logfile_10.txt"));
}

void TestSessionScan::expandRefusesMissingAndEmpty()
{
    QStringList files;
    QString error;
    const QString missing = dir.filePath("no-such.log");
    QVERIFY(!expandLogInputs({missing}, &files, &error));
    QVERIFY(error.contains(missing));
    QVERIFY(QDir(dir.path()).mkpath("empty"));
    QVERIFY(!expandLogInputs({dir.filePath("empty")}, &files, &error));
    QVERIFY(error.contains("logfile_"));
}

void TestSessionScan::parseLogTime_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<qint64>("ms");
    const qint64 day = logline::civilMsecs(2026, 11, 21, 0, 0, 0, 0);
    QTest::newRow("T minutes") << "2026-11-21T08:00" << true << day + 8 * 3600000;
    QTest::newRow("T seconds") << "2026-11-21T08:00:05" << true << day + 8 * 3600000 + 5000;
    QTest::newRow("blank ms") << "2026-11-21 08:00:05.250" << true << day + 8 * 3600000 + 5250;
    QTest::newRow("date") << "2026-11-21" << true << day;
    QTest::newRow("garbage") << "yesterday" << false << qint64(0);
    QTest::newRow("time only") << "08:00" << false << qint64(0);
    QTest::newRow("bad month") << "2026-13-01T00:00" << false << qint64(0);
    QTest::newRow("empty") << "" << false << qint64(0);
}

void TestSessionScan::parseLogTime()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(qint64, ms);
    qint64 got = -1;
    QCOMPARE(::parseLogTime(text, &got), ok);
    if (ok)
        QCOMPARE(got, ms);
}

void TestSessionScan::unreadableFile()
{
    SessionScan scan{SessionFilter()};
    QString error;
    const QString path = dir.filePath("missing.log");
    QVERIFY(!scan.addFile(path, &error));
    QVERIFY(error.contains(path));
    QCOMPARE(scan.figures().files, 0);
}

void TestSessionScan::stopsOnInterrupt()
{
    QByteArray log;
    for (int i = 0; i < 5000; ++i)
        log += recvLine(baseMs() + 100 * i, targetFrame({{1, 1}}));
    const QString path = write("long.log", log);

    Interrupt::request();
    SessionScan scan{SessionFilter()};
    QString error;
    const bool read = scan.addFile(path, &error);
    Interrupt::clear();
    QVERIFY(!read);
    QVERIFY(scan.interrupted());
    QCOMPARE(error, QString("interrupted"));
    QVERIFY(scan.figures().targetReports < 5000);

    SessionScan again{SessionFilter()};
    QVERIFY(again.addFile(path, &error));
    QVERIFY(!again.interrupted());
    QCOMPARE(again.figures().targetReports, qint64(5000));
}

QTEST_GUILESS_MAIN(TestSessionScan)
#include "tst_sessionscan.moc"
