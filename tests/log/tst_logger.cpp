// Logger behaviour that does not need the worker's five-second pause: line
// format, old entries, file rotation, day directories, failures, shutdown and
// the observer. The worker's clock is set apart from the writer's so that
// every entry is either clearly old or clearly fresh when it is checked.

#include "log/logger.h"
#include "tests/log/logtestsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <thread>
#include <vector>

namespace
{

enum class Call { CString, Bytes, Text, NullPointer };

const QByteArray kWriteFailed = QByteArray("写日志失败，请确保你有足够的权限写!\n");

void writeAs(Logger &logger, Call call, const QByteArray &message)
{
    switch (call) {
    case Call::CString:
        logger.write(message.constData());
        break;
    case Call::Bytes:
        logger.write(message);
        break;
    case Call::Text:
        logger.write(QString::fromUtf8(message));
        break;
    case Call::NullPointer:
        logger.write(static_cast<const char *>(nullptr));
        break;
    }
}

// Makes a file of exactly the given size (sparse, so it is quick).
bool makeFileOfSize(const QString &path, qint64 size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.resize(size);
}

} // namespace

Q_DECLARE_METATYPE(Call)

class TestLogger : public QObject
{
    Q_OBJECT

private slots:
    void lineFormat_data();
    void lineFormat();
    void entryAge_data();
    void entryAge();
    void longMessage_data();
    void longMessage();
    void rotation_data();
    void rotation();
    void rotationBetweenLines();
    void dayOfLogging_data();
    void dayOfLogging();
    void unwritableDirectory();
    void batchKeepsOrder();
    void destroyDropsQueuedEntries();
    void destroyReturnsPromptly();
    void observerGetsMessageBytes();
};

void TestLogger::lineFormat_data()
{
    QTest::addColumn<QDateTime>("when");
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("dateKey");

    QTest::newRow("zero padding") << utc(2026, 1, 2, 3, 4, 5, 6) << Call::CString
                                  << QByteArray("msg")
                                  << QByteArray("[2026-01-02 03:04:05.006] msg\n") << 20260102;
    QTest::newRow("two-digit fields")
        << utc(2026, 11, 16, 4, 0, 5, 123) << Call::CString << QByteArray("TX ff ee dd 00 02")
        << QByteArray("[2026-11-16 04:00:05.123] TX ff ee dd 00 02\n") << 20261116;
    QTest::newRow("last moment of a year")
        << utc(2026, 12, 31, 23, 59, 59, 999) << Call::Bytes << QByteArray("end")
        << QByteArray("[2026-12-31 23:59:59.999] end\n") << 20261231;
    QTest::newRow("three-digit year")
        << utc(999, 1, 1, 0, 0, 0, 0) << Call::CString << QByteArray("x")
        << QByteArray("[999-01-01 00:00:00.000] x\n") << 9990101;
    QTest::newRow("five-digit year")
        << utc(12345, 6, 7, 8, 9, 10, 11) << Call::CString << QByteArray("y")
        << QByteArray("[12345-06-07 08:09:10.011] y\n") << 123450607;
    QTest::newRow("empty message") << utc(2026, 5, 6, 7, 8, 9, 10) << Call::CString << QByteArray()
                                   << QByteArray("[2026-05-06 07:08:09.010] \n") << 20260506;
    QTest::newRow("null pointer") << utc(2026, 5, 6, 7, 8, 9, 10) << Call::NullPointer
                                  << QByteArray() << QByteArray("[2026-05-06 07:08:09.010] \n")
                                  << 20260506;
    QTest::newRow("bytes unchanged")
        << utc(2026, 5, 6, 7, 8, 9, 10) << Call::Bytes << QByteArray("\xff\xfe%s%d\t\r")
        << QByteArray("[2026-05-06 07:08:09.010] \xff\xfe%s%d\t\r\n") << 20260506;
    QTest::newRow("text as UTF-8")
        << utc(2026, 5, 6, 7, 8, 9, 10) << Call::Text << QByteArray("区域 1 设置成功 é")
        << QByteArray("[2026-05-06 07:08:09.010] 区域 1 设置成功 é\n") << 20260506;
    QTest::newRow("text ends at NUL")
        << utc(2026, 5, 6, 7, 8, 9, 10) << Call::Bytes << QByteArray("ab\0cd", 5)
        << QByteArray("[2026-05-06 07:08:09.010] ab\n") << 20260506;
}

void TestLogger::lineFormat()
{
    QFETCH(QDateTime, when);
    QFETCH(Call, call);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, line);
    QFETCH(int, dateKey);

    QTemporaryDir base;
    QVERIFY(base.isValid());
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(10)); // old at the first check
    QByteArray echoed;
    {
        StderrCapture capture;
        Logger logger(clock.function(), base.path().toStdString());
        writeAs(logger, call, message);
        echoed = capture.text();
        QTRY_COMPARE_WITH_TIMEOUT(fileContents(logFilePath(base.path(), dateKey)), line, 3000);
    }
    QCOMPARE(echoed, line);
    QCOMPARE(QDir(base.path() + "/log").entryList(QDir::Dirs | QDir::NoDotAndDotDot),
             QStringList{QString::number(dateKey)});
}

void TestLogger::entryAge_data()
{
    QTest::addColumn<qint64>("ageMs");
    QTest::addColumn<bool>("writtenAtFirstCheck");

    QTest::newRow("fresh") << qint64(0) << false;
    QTest::newRow("exactly 3000 ms") << qint64(3000) << false;
    QTest::newRow("3001 ms") << qint64(3001) << true;
    QTest::newRow("an hour") << qint64(3600 * 1000) << true;
    // The age is an unsigned difference: a clock that went back looks old.
    QTest::newRow("clock went back") << qint64(-1000) << true;
}

void TestLogger::entryAge()
{
    QFETCH(qint64, ageMs);
    QFETCH(bool, writtenAtFirstCheck);

    QTemporaryDir base;
    QVERIFY(base.isValid());
    const QDateTime when = utc(2026, 2, 3, 10, 20, 30, 400);
    FakeClock clock(when);
    clock.setWorkerTime(when.addMSecs(ageMs));
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    logger.write("alone");
    const QString path = logFilePath(base.path(), 20260203);
    const QByteArray line("[2026-02-03 10:20:30.400] alone\n");

    QTRY_VERIFY_WITH_TIMEOUT(clock.workerReads() >= 1, 2000);
    if (writtenAtFirstCheck) {
        QTRY_COMPARE_WITH_TIMEOUT(fileContents(path), line, 2000);
        QCOMPARE(clock.workerReads(), 1);
    } else {
        QTest::qWait(300);
        QVERIFY(!QFile::exists(path));
        QCOMPARE(clock.workerReads(), 1); // pausing, not polling
    }
    QCOMPARE(capture.text(), line);
}

void TestLogger::longMessage_data()
{
    // "[2026-01-02 03:04:05.006] " is 26 bytes, the newline one more; the
    // buffer holds 3 MiB including the terminating NUL.
    const int buffer = 3 * 1024 * 1024;
    const int longestWhole = buffer - 1 - 27;
    QTest::addColumn<int>("messageLength");
    QTest::addColumn<int>("keptLength");

    QTest::newRow("fits exactly") << longestWhole << longestWhole;
    QTest::newRow("one byte too long") << longestWhole + 1 << longestWhole;
    QTest::newRow("4 MiB") << 4 * 1024 * 1024 << longestWhole;
}

void TestLogger::longMessage()
{
    QFETCH(int, messageLength);
    QFETCH(int, keptLength);

    QTemporaryDir base;
    QVERIFY(base.isValid());
    const QDateTime when = utc(2026, 1, 2, 3, 4, 5, 6);
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(10));
    QByteArray message(messageLength, 'm');
    for (int i = 0; i < messageLength; i += 1000)
        message[i] = char('a' + (i / 1000) % 26);
    const QByteArray line = "[2026-01-02 03:04:05.006] " + message.left(keptLength) + "\n";

    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    logger.write(message);
    QCOMPARE(capture.text().size(), line.size());
    QVERIFY(capture.text() == line);
    const QString path = logFilePath(base.path(), 20260102);
    QTRY_COMPARE_WITH_TIMEOUT(QFileInfo(path).size(), qint64(line.size()), 3000);
    QVERIFY(fileContents(path) == line);
}

void TestLogger::rotation_data()
{
    // Sizes of the files already there, logfile_0 first; -1 makes a
    // directory of that name (its size cannot be read as a file's), -2 leaves
    // the name free.
    QTest::addColumn<QList<qint64>>("existing");
    QTest::addColumn<int>("target");

    QTest::newRow("no file yet") << QList<qint64>{} << 0;
    QTest::newRow("empty file") << QList<qint64>{0} << 0;
    QTest::newRow("one byte under 5 MiB") << QList<qint64>{5242879} << 0;
    QTest::newRow("exactly 5 MiB") << QList<qint64>{5242880} << 1;
    QTest::newRow("over 5 MiB") << QList<qint64>{5242880 + 117} << 1;
    QTest::newRow("second file under 5 MiB") << QList<qint64>{5242880, 5242879} << 1;
    QTest::newRow("two full files") << QList<qint64>{5242880, 6000000} << 2;
    QTest::newRow("first free name wins") << QList<qint64>{5242880, -2, 10} << 1;
    QTest::newRow("unreadable size counts as full") << QList<qint64>{-1} << 1;
}

void TestLogger::rotation()
{
    QFETCH(QList<qint64>, existing);
    QFETCH(int, target);

    QTemporaryDir base;
    QVERIFY(base.isValid());
    const int dateKey = 20260704;
    QVERIFY(QDir(base.path()).mkpath(QStringLiteral("log/%1").arg(dateKey)));
    for (int i = 0; i < existing.size(); ++i) {
        const QString path = logFilePath(base.path(), dateKey, i);
        if (existing[i] == -1)
            QVERIFY(QDir().mkdir(path));
        else if (existing[i] >= 0)
            QVERIFY(makeFileOfSize(path, existing[i]));
    }

    const QDateTime when = utc(2026, 7, 4, 12, 0, 0, 0);
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(10));
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    logger.write("next");
    const QByteArray line("[2026-07-04 12:00:00.000] next\n");

    const QString targetPath = logFilePath(base.path(), dateKey, target);
    const qint64 before = target < existing.size() ? qMax<qint64>(existing[target], 0) : 0;
    QTRY_COMPARE_WITH_TIMEOUT(QFileInfo(targetPath).size(), before + line.size(), 3000);
    QFile file(targetPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.seek(before));
    QCOMPARE(file.readAll(), line);

    // No other file was touched or made.
    for (int i = 0; i < existing.size() + 2; ++i) {
        if (i == target)
            continue;
        const QFileInfo other(logFilePath(base.path(), dateKey, i));
        if (i < existing.size() && existing[i] >= 0)
            QCOMPARE(other.size(), existing[i]);
        else if (i < existing.size() && existing[i] == -1)
            QVERIFY(other.isDir());
        else
            QVERIFY2(!other.exists(), qPrintable(other.filePath()));
    }
    QCOMPARE(capture.text(), line);
}

void TestLogger::rotationBetweenLines()
{
    // 100 bytes are left in logfile_0: two 50-byte lines fill it to exactly
    // 5 MiB, and the lines after them go to logfile_1.
    QTemporaryDir base;
    QVERIFY(base.isValid());
    QVERIFY(QDir(base.path()).mkpath("log/20260705"));
    const qint64 start = 5242880 - 100;
    QVERIFY(makeFileOfSize(logFilePath(base.path(), 20260705, 0), start));

    const QDateTime when = utc(2026, 7, 5, 6, 7, 8, 9);
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(10));
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    QByteArray all;
    for (int i = 1; i <= 6; ++i) {
        // 23 bytes of message: with the stamp and the newline, 50 bytes.
        const QByteArray message =
            "rotating line no. " + QByteArray::number(i).rightJustified(5, '0');
        logger.write(message);
        all += "[2026-07-05 06:07:08.009] " + message + "\n";
    }
    QCOMPARE(all.size(), 6 * 50);
    QTRY_COMPARE_WITH_TIMEOUT(fileContents(logFilePath(base.path(), 20260705, 1)), all.mid(100),
                              3000);
    const QByteArray first = fileContents(logFilePath(base.path(), 20260705, 0));
    QCOMPARE(first.size(), 5242880);
    QVERIFY(first.endsWith(all.left(100)));
    QVERIFY(!QFile::exists(logFilePath(base.path(), 20260705, 2)));
    QCOMPARE(capture.text(), all);
}

void TestLogger::dayOfLogging_data()
{
    QTest::addColumn<QDateTime>("logged");
    QTest::addColumn<QDateTime>("written");
    QTest::addColumn<int>("dateKey");
    QTest::addColumn<int>("laterKey");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("end of month") << utc(2026, 3, 31, 23, 59, 59, 900)
                                  << utc(2026, 4, 1, 0, 0, 5, 0) << 20260331 << 20260401
                                  << QByteArray("[2026-03-31 23:59:59.900] late\n");
    QTest::newRow("end of year") << utc(2025, 12, 31, 23, 59, 59, 900)
                                 << utc(2026, 1, 1, 0, 0, 4, 0) << 20251231 << 20260101
                                 << QByteArray("[2025-12-31 23:59:59.900] late\n");
}

void TestLogger::dayOfLogging()
{
    QFETCH(QDateTime, logged);
    QFETCH(QDateTime, written);
    QFETCH(int, dateKey);
    QFETCH(int, laterKey);
    QFETCH(QByteArray, line);

    QTemporaryDir base;
    QVERIFY(base.isValid());
    FakeClock clock(logged);
    clock.setWorkerTime(written);
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    logger.write("late");
    QTRY_COMPARE_WITH_TIMEOUT(fileContents(logFilePath(base.path(), dateKey)), line, 3000);
    QVERIFY(!QFileInfo::exists(QStringLiteral("%1/log/%2").arg(base.path()).arg(laterKey)));
    QCOMPARE(capture.text(), line);
}

void TestLogger::unwritableDirectory()
{
    QTemporaryDir base;
    QVERIFY(base.isValid());
    // The day's directory name is taken by a regular file, so nothing can be
    // made inside it (whatever the user's rights).
    QVERIFY(QDir(base.path()).mkpath("log"));
    const QString blocker = base.path() + "/log/20260101";
    QVERIFY(makeFileOfSize(blocker, 7));

    const QDateTime day = utc(2026, 1, 1, 9, 0, 0, 0);
    const QDateTime nextDay = utc(2026, 1, 2, 9, 0, 0, 0);
    FakeClock clock(day);
    clock.setWorkerTime(nextDay.addSecs(10));
    const QByteArray lostLine("[2026-01-01 09:00:00.000] lost\n");
    const QByteArray keptLine("[2026-01-02 09:00:00.000] kept\n");

    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    logger.write("lost");
    QTRY_VERIFY_WITH_TIMEOUT(capture.text().contains(kWriteFailed), 3000);
    clock.setWriterTime(nextDay);
    logger.write("kept");
    QTRY_COMPARE_WITH_TIMEOUT(fileContents(logFilePath(base.path(), 20260102)), keptLine, 3000);

    const QByteArray echoed = capture.text();
    QCOMPARE(echoed.count(kWriteFailed), 1);
    QCOMPARE(echoed.count(lostLine), 1);
    QCOMPARE(echoed.count(keptLine), 1);
    QCOMPARE(echoed.size(), kWriteFailed.size() + lostLine.size() + keptLine.size());
    // The failing entry came first and was dropped, not retried.
    QVERIFY(echoed.indexOf(kWriteFailed) < echoed.indexOf(keptLine));
    QCOMPARE(QFileInfo(blocker).size(), qint64(7));
    QVERIFY(QFileInfo(blocker).isFile());
}

void TestLogger::batchKeepsOrder()
{
    // Many entries logged together reach the file oldest first.
    QTemporaryDir base;
    QVERIFY(base.isValid());
    const QDateTime when = utc(2026, 8, 9, 10, 11, 12, 0);
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(60));
    QByteArray expected;
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());
    for (int i = 0; i < 500; ++i) {
        const QDateTime at = when.addMSecs(i);
        clock.setWriterTime(at);
        logger.write(QStringLiteral("entry %1").arg(i));
        expected += "[" + at.toString("yyyy-MM-dd hh:mm:ss.zzz").toLatin1() + "] entry " +
                    QByteArray::number(i) + "\n";
    }
    QTRY_COMPARE_WITH_TIMEOUT(fileContents(logFilePath(base.path(), 20260809)).size(),
                              expected.size(), 5000);
    QVERIFY(fileContents(logFilePath(base.path(), 20260809)) == expected);
    QVERIFY(capture.text() == expected);
}

void TestLogger::destroyDropsQueuedEntries()
{
    QTemporaryDir base;
    QVERIFY(base.isValid());
    const QDateTime when = utc(2026, 6, 1, 8, 0, 0, 0);
    FakeClock clock(when);
    clock.setWorkerTime(when.addSecs(10));
    const QString path = logFilePath(base.path(), 20260601);
    const QByteArray first("[2026-06-01 08:00:00.000] first\n");
    const QByteArray second("[2026-06-01 08:00:10.000] second\n");
    const QByteArray third("[2026-06-01 08:00:10.000] third\n");

    StderrCapture capture;
    auto logger = std::make_unique<Logger>(clock.function(), base.path().toStdString());
    logger->write("first");
    QTRY_COMPARE_WITH_TIMEOUT(fileContents(path), first, 3000);
    // From now on entries are fresh when checked: the worker pauses.
    clock.setWriterTime(when.addSecs(10));
    const int checks = clock.workerReads();
    logger->write("second");
    QTRY_VERIFY_WITH_TIMEOUT(clock.workerReads() > checks, 2000);
    logger->write("third");
    QElapsedTimer timer;
    timer.start();
    logger.reset(); // in the middle of the worker's pause
    const qint64 destroyMs = timer.elapsed();

    QVERIFY2(destroyMs < 1000, qPrintable(QString::number(destroyMs)));
    QCOMPARE(fileContents(path), first);
    QCOMPARE(capture.text(), first + second + third);
}

void TestLogger::destroyReturnsPromptly()
{
    QTemporaryDir base;
    QVERIFY(base.isValid());
    FakeClock clock;
    QElapsedTimer timer;
    timer.start();
    // Right after the start, and while waiting for a first entry.
    for (int i = 0; i < 20; ++i) {
        Logger logger(clock.function(), base.path().toStdString());
        if (i % 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!QFileInfo::exists(base.path() + "/log"));
}

void TestLogger::observerGetsMessageBytes()
{
    QTemporaryDir base;
    QVERIFY(base.isValid());
    FakeClock clock;
    StderrCapture capture;
    Logger logger(clock.function(), base.path().toStdString());

    QList<QByteArray> seen;
    std::vector<std::thread::id> threads;
    logger.setObserver([&](const QByteArray &message) {
        seen << message;
        threads.push_back(std::this_thread::get_id());
    });
    logger.write("plain");
    logger.write(QByteArray("raw\xff\0tail", 9));
    logger.write(QString::fromUtf8("目标数量: 3"));
    logger.write(static_cast<const char *>(nullptr));
    logger.setObserver({});
    logger.write("unseen");

    const QList<QByteArray> expected{QByteArray("plain"), QByteArray("raw\xff\0tail", 9),
                                     QByteArray("目标数量: 3"), QByteArray("")};
    QCOMPARE(seen, expected);
    QCOMPARE(int(threads.size()), 4);
    for (const std::thread::id &id : threads)
        QCOMPARE(id, std::this_thread::get_id());
    // Unobserved writes are still logged.
    QVERIFY(capture.text().endsWith("] unseen\n"));
}

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
