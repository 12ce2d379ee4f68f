// The worker's rhythm in real time: a lone line reaches its file about five
// seconds after it was logged, and a batch is written at the check that
// finds ten entries.

#include "log/logger.h"
#include "tests/log/logtestsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

class TestLoggerTiming : public QObject
{
    Q_OBJECT

private slots:
    void loneLineAfterFiveSeconds();
    void batchAtNextCheck_data();
    void batchAtNextCheck();
};

void TestLoggerTiming::loneLineAfterFiveSeconds()
{
    // Two loggers wait side by side: the process-wide one (real local clock,
    // files under the working directory) and a test logger whose clock runs
    // in real time from a fixed date.
    QTemporaryDir workDir;
    QTemporaryDir base;
    QVERIFY(workDir.isValid());
    QVERIFY(base.isValid());
    const QString previousDir = QDir::currentPath();
    QVERIFY(QDir::setCurrent(workDir.path()));

    const QDateTime start = utc(2026, 11, 16, 4, 0, 5, 123);
    QElapsedTimer sinceStart;
    sinceStart.start();
    Logger::Clock runningClock = [start, sinceStart] {
        return clockReading(start.addMSecs(sinceStart.elapsed()));
    };
    Logger testLogger(runningClock, base.path().toStdString());

    QByteArray echoed;
    QElapsedTimer timer;
    {
        StderrCapture capture;
        timer.start();
        Logger::instance().write("process-wide line");
        const QByteArray firstEcho = capture.text();
        testLogger.write("test line");
        echoed = capture.text();
        QVERIFY(echoed.startsWith(firstEcho));
        QVERIFY(!firstEcho.isEmpty());
    }

    // Both lines were on standard error at once.
    const QRegularExpression lineShape(
        QStringLiteral("^\\[(\\d{4})-(\\d{2})-(\\d{2}) (\\d{2}):(\\d{2}):(\\d{2})\\.(\\d{3})\\] "
                       "process-wide line\\n"));
    const QRegularExpressionMatch match = lineShape.match(QString::fromUtf8(echoed));
    QVERIFY2(match.hasMatch(), echoed.constData());
    const QByteArray realLine = echoed.left(match.capturedLength());
    const QByteArray testLine = echoed.mid(match.capturedLength());
    QVERIFY2(testLine.startsWith("[2026-11-16 04:00:05.") && testLine.endsWith("] test line\n"),
             testLine.constData());

    // The real clock gives the local date and time of the call.
    const QDateTime stamped(
        QDate(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt()),
        QTime(match.captured(4).toInt(), match.captured(5).toInt(), match.captured(6).toInt(),
              match.captured(7).toInt()),
        Qt::LocalTime);
    QVERIFY(stamped.isValid());
    QVERIFY2(qAbs(stamped.msecsTo(QDateTime::currentDateTime())) < 5000,
             qPrintable(stamped.toString(Qt::ISODateWithMs)));
    const int dateKey = match.captured(1).toInt() * 10000 + match.captured(2).toInt() * 100 +
                        match.captured(3).toInt();

    const QString realPath = logFilePath(workDir.path(), dateKey);
    const QString testPath = logFilePath(base.path(), 20261116);
    qint64 realAt = -1;
    qint64 testAt = -1;
    while (timer.elapsed() < 7500 && (realAt < 0 || testAt < 0)) {
        if (realAt < 0 && fileContents(realPath) == realLine)
            realAt = timer.elapsed();
        if (testAt < 0 && fileContents(testPath) == testLine)
            testAt = timer.elapsed();
        QTest::qWait(20);
    }
    QVERIFY(QDir::setCurrent(previousDir));

    QVERIFY2(realAt >= 4500 && realAt <= 7000, qPrintable(QString::number(realAt)));
    QVERIFY2(testAt >= 4500 && testAt <= 7000, qPrintable(QString::number(testAt)));
}

void TestLoggerTiming::batchAtNextCheck_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("written");

    QTest::newRow("nine entries wait") << 9 << false;
    QTest::newRow("ten entries are written") << 10 << true;
}

void TestLoggerTiming::batchAtNextCheck()
{
    QFETCH(int, count);
    QFETCH(bool, written);

    // The clock stands still, so no entry ever grows old: only the count
    // decides.
    QTemporaryDir base;
    QVERIFY(base.isValid());
    const QDateTime when = utc(2026, 9, 10, 11, 12, 13, 140);
    FakeClock clock(when);
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    const QString path = logFilePath(base.path(), 20260910);

    QByteArray expected;
    auto logLine = [&](int i) {
        logger.write(QByteArray("batch entry ") + QByteArray::number(i));
        expected += "[2026-09-10 11:12:13.140] batch entry " + QByteArray::number(i) + "\n";
    };

    // The first entry wakes the worker, whose check finds it alone and fresh.
    QElapsedTimer timer;
    timer.start();
    logLine(0);
    QTRY_COMPARE_WITH_TIMEOUT(clock.workerReads(), 1, 2000);
    for (int i = 1; i < count; ++i)
        logLine(i);

    // The next check comes after the pause. With ten entries it needs no
    // clock reading: the count alone sends the batch to the file.
    QTest::qWait(300);
    QVERIFY(!QFile::exists(path));
    if (written) {
        QTRY_COMPARE_WITH_TIMEOUT(fileContents(path), expected, 7000);
    } else {
        QTRY_COMPARE_WITH_TIMEOUT(clock.workerReads(), 2, 7000);
    }
    const qint64 checkedAt = timer.elapsed();
    QVERIFY2(checkedAt >= 4500 && checkedAt <= 6500, qPrintable(QString::number(checkedAt)));
    if (!written) {
        QTest::qWait(300);
        QVERIFY(!QFile::exists(path));
    }
    QCOMPARE(clock.workerReads(), written ? 1 : 2);
    QCOMPARE(capture.text(), expected);
}

QTEST_GUILESS_MAIN(TestLoggerTiming)
#include "tst_logger_timing.moc"
