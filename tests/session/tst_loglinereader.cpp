// Reading diagnostic log lines back: the stamp, "RecvData:" hex dumps
// (whole, cut short or broken) and the lines that are not log lines, one line
// at a time and streamed from a device.

#include "log/loglinereader.h"

#include <QBuffer>
#include <QDateTime>
#include <QtTest>

Q_DECLARE_METATYPE(logline::Kind)

class TestLogLineReader : public QObject
{
    Q_OBJECT

private slots:
    void parseLine_data();
    void parseLine();
    void civilMsecsAgreesWithQDateTime_data();
    void civilMsecsAgreesWithQDateTime();
    void streamsLinesAcrossReads();
    void lastLineWithoutNewline();
    void overlongLineSkippedWhole();
    void countsEveryKind();
    void unreadableDeviceEndsQuietly();
};

void TestLogLineReader::parseLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<logline::Kind>("kind");
    QTest::addColumn<QByteArray>("bytes"); // hex, for RecvData
    QTest::addColumn<bool>("truncated");

    using logline::Kind;
    QTest::newRow("recv") << QByteArray("[2026-11-16 04:00:05.123] RecvData:FF EE DD 00 \n")
                          << Kind::RecvData << QByteArray("ffeedd00") << false;
    QTest::newRow("recv crlf") << QByteArray("[2026-11-16 04:00:05.123] RecvData:0A 1E \r\n")
                               << Kind::RecvData << QByteArray("0a1e") << false;
    QTest::newRow("recv lower case") << QByteArray("[2026-11-16 04:00:05.123] RecvData:ff 0a")
                                     << Kind::RecvData << QByteArray("ff0a") << false;
    QTest::newRow("recv no last blank") << QByteArray("[2026-11-16 04:00:05.123] RecvData:01 02")
                                        << Kind::RecvData << QByteArray("0102") << false;
    QTest::newRow("recv empty dump") << QByteArray("[2026-11-16 04:00:05.123] RecvData:")
                                     << Kind::RecvData << QByteArray() << false;
    QTest::newRow("recv lone digit") << QByteArray("[2026-11-16 04:00:05.123] RecvData:FF EE D")
                                     << Kind::RecvData << QByteArray("ffee") << true;
    QTest::newRow("recv broken byte") << QByteArray("[2026-11-16 04:00:05.123] RecvData:FF ZZ 01 ")
                                      << Kind::RecvData << QByteArray("ff") << true;
    QTest::newRow("recv three digits") << QByteArray("[2026-11-16 04:00:05.123] RecvData:FFE 01 ")
                                       << Kind::RecvData << QByteArray() << true;
    QTest::newRow("send") << QByteArray("[2026-11-16 04:00:05.123] SendData:FF EE DD ")
                          << Kind::Message << QByteArray() << false;
    QTest::newRow("message") << QByteArray("[2026-11-16 23:59:59.999] Area:0 Type:2")
                             << Kind::Message << QByteArray() << false;
    QTest::newRow("stamp only") << QByteArray("[2026-11-16 04:00:05.123]") << Kind::Message
                                << QByteArray() << false;
    QTest::newRow("lower tag") << QByteArray("[2026-11-16 04:00:05.123] recvData:FF ")
                               << Kind::Message << QByteArray() << false;
    QTest::newRow("leap day") << QByteArray("[2024-02-29 12:00:00.000] RecvData:01 ")
                              << Kind::RecvData << QByteArray("01") << false;
    QTest::newRow("no leap day") << QByteArray("[2026-02-29 12:00:00.000] RecvData:01 ")
                                 << Kind::NotALogLine << QByteArray() << false;
    QTest::newRow("month 13") << QByteArray("[2026-13-01 12:00:00.000] x") << Kind::NotALogLine
                              << QByteArray() << false;
    QTest::newRow("hour 24") << QByteArray("[2026-11-16 24:00:00.000] x") << Kind::NotALogLine
                             << QByteArray() << false;
    QTest::newRow("no blank after stamp") << QByteArray("[2026-11-16 04:00:05.123]RecvData:01 ")
                                          << Kind::NotALogLine << QByteArray() << false;
    QTest::newRow("short stamp") << QByteArray("[2026-11-16 04:00:05] RecvData:01 ")
                                 << Kind::NotALogLine << QByteArray() << false;
    QTest::newRow("cut stamp") << QByteArray("[2026-11-16 04:0") << Kind::NotALogLine
                               << QByteArray() << false;
    QTest::newRow("empty") << QByteArray("\n") << Kind::NotALogLine << QByteArray() << false;
    QTest::newRow("text") << QByteArray("QStandardPaths: something\n") << Kind::NotALogLine
                          << QByteArray() << false;
    QTest::newRow("binary") << QByteArray("\xFF\xEE\xDD\x00\x05\x07", 6) << Kind::NotALogLine
                            << QByteArray() << false;
}

void TestLogLineReader::parseLine()
{
    QFETCH(QByteArray, line);
    QFETCH(logline::Kind, kind);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, truncated);

    QByteArray out("stale");
    const logline::ParsedLine parsed = logline::parseLogLine(line.constData(), line.size(), out);
    QCOMPARE(parsed.kind, kind);
    QCOMPARE(out.toHex(), bytes);
    QCOMPARE(parsed.truncatedDump, truncated);
    if (kind != logline::Kind::NotALogLine) {
        const QDateTime stamp =
            QDateTime::fromString(QString::fromLatin1(line.mid(1, 23)), "yyyy-MM-dd hh:mm:ss.zzz");
        QVERIFY(stamp.isValid());
        QCOMPARE(parsed.msecs, QDateTime(stamp.date(), stamp.time(), Qt::UTC).toMSecsSinceEpoch());
        QCOMPARE(QByteArray(parsed.message, parsed.messageSize).trimmed(), line.mid(26).trimmed());
    }
}

void TestLogLineReader::civilMsecsAgreesWithQDateTime_data()
{
    QTest::addColumn<QDateTime>("when");
    QTest::newRow("epoch") << QDateTime(QDate(1970, 1, 1), QTime(0, 0), Qt::UTC);
    QTest::newRow("before epoch") << QDateTime(QDate(1969, 12, 31), QTime(23, 59, 59, 999),
                                               Qt::UTC);
    QTest::newRow("leap 2000") << QDateTime(QDate(2000, 2, 29), QTime(13, 14, 15, 16), Qt::UTC);
    QTest::newRow("2100 no leap") << QDateTime(QDate(2100, 3, 1), QTime(0, 0, 0, 1), Qt::UTC);
    QTest::newRow("year 1") << QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
    QTest::newRow("year 9999") << QDateTime(QDate(9999, 12, 31), QTime(23, 59, 59, 999), Qt::UTC);
}

void TestLogLineReader::civilMsecsAgreesWithQDateTime()
{
    QFETCH(QDateTime, when);
    const QDate d = when.date();
    const QTime t = when.time();
    QCOMPARE(logline::civilMsecs(d.year(), d.month(), d.day(), t.hour(), t.minute(), t.second(),
                                 t.msec()),
             when.toMSecsSinceEpoch());
}

void TestLogLineReader::streamsLinesAcrossReads()
{
    // More than the reader's first buffer (1 MiB), so lines straddle refills.
    QByteArray text;
    int expected = 0;
    while (text.size() < 3 * 1024 * 1024) {
        text += QString("[2026-11-16 04:00:%1.%2] RecvData:%3 \n")
                    .arg(expected / 1000 % 60, 2, 10, QChar('0'))
                    .arg(expected % 1000, 3, 10, QChar('0'))
                    .arg(expected % 256, 2, 16, QChar('0'))
                    .toUpper()
                    .replace("RECVDATA", "RecvData")
                    .toLatin1();
        ++expected;
    }
    QBuffer device(&text);
    QVERIFY(device.open(QIODevice::ReadOnly));
    LogLineReader reader(&device);
    logline::ParsedLine line;
    int n = 0;
    while (reader.next(line)) {
        QCOMPARE(line.kind, logline::Kind::RecvData);
        QCOMPARE(reader.bytes().size(), 1);
        QCOMPARE(quint8(reader.bytes().at(0)), quint8(n % 256));
        QCOMPARE(line.msecs % 60000, qint64(n / 1000 % 60 * 1000 + n % 1000));
        ++n;
    }
    QCOMPARE(n, expected);
    QCOMPARE(reader.bytesRead(), qint64(text.size()));
    QCOMPARE(reader.counts().lines, qint64(expected));
    QCOMPARE(reader.counts().notLogLines, 0);
}

void TestLogLineReader::lastLineWithoutNewline()
{
    QByteArray text("[2026-11-16 04:00:05.123] RecvData:01 02 \r\n"
                    "[2026-11-16 04:00:05.223] RecvData:03 0");
    QBuffer device(&text);
    QVERIFY(device.open(QIODevice::ReadOnly));
    LogLineReader reader(&device);
    logline::ParsedLine line;
    QVERIFY(reader.next(line));
    QCOMPARE(reader.bytes(), QByteArray("\x01\x02", 2));
    QVERIFY(reader.next(line));
    QCOMPARE(line.kind, logline::Kind::RecvData);
    QVERIFY(line.truncatedDump);
    QCOMPARE(reader.bytes(), QByteArray("\x03", 1));
    QVERIFY(!reader.next(line));
    QCOMPARE(reader.counts().truncatedDumps, 1);
    QCOMPARE(reader.bytesRead(), qint64(text.size()));
}

void TestLogLineReader::overlongLineSkippedWhole()
{
    QByteArray text("[2026-11-16 04:00:05.123] RecvData:01 \n");
    text += "[2026-11-16 04:00:05.124] RecvData:" + QByteArray(500, 'A') + "\n";
    text += "[2026-11-16 04:00:05.125] RecvData:02 \n";
    text += QByteArray(300, 'x'); // overlong, at the end, without newline
    QBuffer device(&text);
    QVERIFY(device.open(QIODevice::ReadOnly));
    LogLineReader reader(&device, 128);
    logline::ParsedLine line;
    QVERIFY(reader.next(line));
    QCOMPARE(reader.bytes(), QByteArray("\x01", 1));
    QVERIFY(reader.next(line));
    QCOMPARE(reader.bytes(), QByteArray("\x02", 1));
    QCOMPARE(line.msecs % 1000, 125);
    QVERIFY(!reader.next(line));
    QCOMPARE(reader.counts().overlongLines, 2);
    QCOMPARE(reader.counts().lines, 4);
    QCOMPARE(reader.bytesRead(), qint64(text.size()));
}

void TestLogLineReader::countsEveryKind()
{
    QByteArray text("not a log line\n"
                    "\n"
                    "[2026-11-16 04:00:05.123] SendData:FF EE DD 00 01 06 06 DD EE FF \n"
                    "[2026-11-16 04:00:05.200] RecvData:FF EE \n"
                    "[2026-11-16 04:00:05.300] RecvData:FF E\n"
                    "[2026-11-16 04:00:05.400] Area:0 Type:2\n");
    QBuffer device(&text);
    QVERIFY(device.open(QIODevice::ReadOnly));
    LogLineReader reader(&device);
    logline::ParsedLine line;
    while (reader.next(line)) {
    }
    QCOMPARE(reader.counts().lines, 6);
    QCOMPARE(reader.counts().notLogLines, 2);
    QCOMPARE(reader.counts().recvDataLines, 2);
    QCOMPARE(reader.counts().truncatedDumps, 1);
    QCOMPARE(reader.counts().overlongLines, 0);
    QVERIFY(!reader.failed());
}

void TestLogLineReader::unreadableDeviceEndsQuietly()
{
    QBuffer device; // never opened: every read fails
    LogLineReader reader(&device);
    logline::ParsedLine line;
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::read (QBuffer): device not open");
    QVERIFY(!reader.next(line));
    QVERIFY(reader.failed());
    QCOMPARE(reader.counts().lines, 0);
}

QTEST_GUILESS_MAIN(TestLogLineReader)
#include "tst_loglinereader.moc"
