// Output formats of watch, the record line format and the link statistics,
// without a port.

#include "cli/linkstats.h"
#include "cli/reportformatter.h"
#include "cli/sessionrecorder.h"
#include "radar/frameformat.h"
#include "tools/radar-sim/replaylog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// 2026-11-16 04:00:05.123 UTC
const qint64 kStamp =
    QDateTime(QDate(2026, 11, 16), QTime(4, 0, 5, 123), Qt::UTC).toMSecsSinceEpoch();

QByteArray targets(const QList<QPair<int, int>> &pairs)
{
    QByteArray payload;
    for (const auto &p : pairs) {
        payload.append(char(p.first));
        payload.append(char(p.second));
    }
    return frameformat::buildFrame(TargetReport, payload);
}

} // namespace

class TestReportFormatter : public QObject
{
    Q_OBJECT

private slots:
    void formats_data();
    void formats();
    void csvHeader();
    void notAReport();
    void manyTargetsAsJson();
    void everyCoordinate();
    void timeStamps_data();
    void timeStamps();
    void recordLineIsTheLogFormat();
    void recordLinesReplay();
    void linkStats();
};

void TestReportFormatter::formats_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("line");

    // The frame format's own example: (1.0, 3.0) and (-1.0, 2.0).
    const QByteArray two = hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF");
    const QByteArray none = frameformat::buildFrame(TargetReport, QByteArray());
    const QByteArray areas13 = frameformat::buildFrame(TargetAreaReport, hex("01 00 01"));
    const QByteArray areasNone = frameformat::buildFrame(TargetAreaReport, hex("00 02 FF"));
    const QString t = "2026-11-16T04:00:05.123Z";

    QTest::newRow("text targets") << "text" << two << t + " targets 2: (1.0, 3.0) (-1.0, 2.0)\n";
    QTest::newRow("text no target") << "text" << none << t + " targets 0:\n";
    QTest::newRow("text areas") << "text" << areas13 << t + " areas occupied: 1 3\n";
    QTest::newRow("text no area") << "text" << areasNone << t + " areas occupied: none\n";
    QTest::newRow("csv targets") << "csv" << two << t + ",targets,2,1.0 3.0;-1.0 2.0,,,\n";
    QTest::newRow("csv no target") << "csv" << none << t + ",targets,0,,,,\n";
    QTest::newRow("csv areas") << "csv" << areas13 << t + ",areas,,,1,0,1\n";
    QTest::newRow("jsonl targets")
        << "jsonl" << two
        << "{\"time\":\"" + t + "\",\"kind\":\"targets\",\"targets\":[[1.0,3.0],[-1.0,2.0]]}\n";
    QTest::newRow("jsonl no target")
        << "jsonl" << none << "{\"time\":\"" + t + "\",\"kind\":\"targets\",\"targets\":[]}\n";
    QTest::newRow("jsonl areas") << "jsonl" << areasNone
                                 << "{\"time\":\"" + t +
                                        "\",\"kind\":\"areas\",\"occupied\":[false,false,false]}\n";
    // An odd payload byte is no target.
    QTest::newRow("odd byte") << "text" << frameformat::buildFrame(TargetReport, hex("0A 1E 05"))
                              << t + " targets 1: (1.0, 3.0)\n";
}

void TestReportFormatter::formats()
{
    QFETCH(QString, format);
    QFETCH(QByteArray, frame);
    QFETCH(QString, line);
    ReportFormatter::Format f;
    QVERIFY(ReportFormatter::parseFormat(format, &f));
    ReportFormatter formatter(f);
    QByteArray out("before|");
    QVERIFY(formatter.append(out, kStamp, frame));
    QCOMPARE(QString::fromLatin1(out), "before|" + line);
    // CSV lines have as many fields as the header.
    if (format == "csv")
        QCOMPARE(out.count(','), formatter.header().count(','));
    // JSON lines are JSON.
    if (format == "jsonl") {
        QJsonParseError error;
        QJsonDocument::fromJson(out.mid(7), &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
    }
}

void TestReportFormatter::csvHeader()
{
    QCOMPARE(ReportFormatter(ReportFormatter::Format::Csv).header(),
             QByteArray("time,kind,count,targets,area1,area2,area3\n"));
    QVERIFY(ReportFormatter(ReportFormatter::Format::Text).header().isEmpty());
    QVERIFY(ReportFormatter(ReportFormatter::Format::Jsonl).header().isEmpty());
    ReportFormatter::Format f;
    QVERIFY(!ReportFormatter::parseFormat("json", &f));
    QVERIFY(!ReportFormatter::parseFormat("", &f));
}

void TestReportFormatter::notAReport()
{
    ReportFormatter formatter;
    QByteArray out;
    QVERIFY(!formatter.append(out, kStamp, frameformat::buildFrame(ReadTargetShowType, "\x02")));
    QVERIFY(!formatter.append(out, kStamp, frameformat::buildFrame(9, "\x01")));
    QVERIFY(out.isEmpty());
}

void TestReportFormatter::manyTargetsAsJson()
{
    QList<QPair<int, int>> pairs;
    for (int i = 0; i < 128; ++i)
        pairs.append({i - 64, i % 81});
    ReportFormatter formatter(ReportFormatter::Format::Jsonl);
    QByteArray out;
    QVERIFY(formatter.append(out, kStamp, targets(pairs)));
    QVERIFY(out.endsWith("}\n"));
    QCOMPARE(out.count('\n'), 1);
    QJsonParseError error;
    const QJsonObject o = QJsonDocument::fromJson(out, &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(o.value("kind").toString(), QString("targets"));
    const QJsonArray list = o.value("targets").toArray();
    QCOMPARE(list.size(), 128);
    for (int i = 0; i < 128; ++i) {
        QCOMPARE(list.at(i).toArray().at(0).toDouble(), (i - 64) / 10.0);
        QCOMPARE(list.at(i).toArray().at(1).toDouble(), (i % 81) / 10.0);
    }
}

void TestReportFormatter::everyCoordinate()
{
    // Every signed byte prints as its decimetres in metres, exactly.
    for (int dm = -128; dm <= 127; ++dm) {
        QByteArray out;
        ReportFormatter::appendMetres(out, dm);
        bool ok = false;
        const double v = out.toDouble(&ok);
        QVERIFY(ok);
        QCOMPARE(qRound(v * 10), dm);
        QCOMPARE(out.mid(out.indexOf('.') + 1).size(), 1);
    }
}

void TestReportFormatter::timeStamps_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<QString>("text");
    QTest::newRow("example") << kStamp << "2026-11-16T04:00:05.123Z";
    QTest::newRow("whole second") << kStamp - 123 << "2026-11-16T04:00:05.000Z";
    QTest::newRow("next second") << kStamp + 877 << "2026-11-16T04:00:06.000Z";
    QTest::newRow("999") << kStamp + 876 << "2026-11-16T04:00:05.999Z";
    QTest::newRow("epoch") << qint64(0) << "1970-01-01T00:00:00.000Z";
}

void TestReportFormatter::timeStamps()
{
    QFETCH(qint64, ms);
    QFETCH(QString, text);
    ReportFormatter formatter;
    QByteArray out;
    // Twice, the second time from the cached second.
    formatter.appendTime(out, ms);
    QCOMPARE(QString::fromLatin1(out), text);
    out.clear();
    formatter.appendTime(out, ms);
    QCOMPARE(QString::fromLatin1(out), text);
    // It is what Qt makes of the same instant.
    QCOMPARE(text, QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(Qt::ISODateWithMs));
}

void TestReportFormatter::recordLineIsTheLogFormat()
{
    QByteArray out;
    SessionRecorder::appendLine(out, QDateTime(QDate(2026, 11, 16), QTime(4, 0, 5, 7)),
                                hex("FF EE DD 00 02 0A 01 0B DD EE FF"));
    QCOMPARE(out, QByteArray("[2026-11-16 04:00:05.007] RecvData:FF EE DD 00 02 0A 01 0B DD EE "
                             "FF \n"));
}

void TestReportFormatter::recordLinesReplay()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("session.log");
    SessionRecorder recorder;
    QString error;
    QVERIFY2(recorder.open(path, &error), qPrintable(error));
    const QDateTime start(QDate(2026, 11, 16), QTime(23, 59, 59, 900));
    const QList<QByteArray> chunks{hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF"),
                                   hex("FF EE DD 00 04 08"), hex("01 00 00 09 DD EE FF")};
    for (int i = 0; i < chunks.size(); ++i)
        QVERIFY(recorder.write(start.addMSecs(150 * i), chunks.at(i)));
    QVERIFY(recorder.close(&error));

    // radar-sim's reader takes every line back with its bytes and timing.
    ReplayLog replay;
    QVERIFY2(replay.load(path, &error), qPrintable(error));
    QCOMPARE(replay.entries().size(), 3);
    QCOMPARE(replay.skippedLines(), 0);
    for (int i = 0; i < chunks.size(); ++i) {
        QCOMPARE(replay.entries().at(i).bytes, chunks.at(i));
        QCOMPARE(replay.entries().at(i).offsetMs, qint64(150 * i));
    }

    QVERIFY(!recorder.open(dir.filePath("no/such/dir/x.log"), &error));
    QVERIFY(error.contains("cannot write"));
}

void TestReportFormatter::linkStats()
{
    LinkStats stats;
    const QByteArray report = hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF");
    const QByteArray flags = frameformat::buildFrame(TargetAreaReport, hex("01 00 00"));
    QByteArray badSum = flags;
    badSum[badSum.size() - 4] = char(badSum.at(badSum.size() - 4) + 1);

    stats.addChunk(100, report + flags);
    stats.addChunk(150, QByteArray("\x01\x02\x03", 3) + report.left(7));
    stats.addChunk(900, report.mid(7) + badSum);
    stats.addChunk(1000, flags.left(4)); // unfinished at the end
    stats.finish(2000);

    QCOMPARE(stats.durationMs(), qint64(2000));
    QCOMPARE(stats.reads(), qint64(4));
    QCOMPARE(stats.bytes(), qint64(2 * report.size() + flags.size() + 3 + badSum.size() + 4));
    QCOMPARE(stats.frames().frames, qint64(3));
    QCOMPARE(stats.framesWithCode(TargetReport), qint64(2));
    QCOMPARE(stats.framesWithCode(TargetAreaReport), qint64(1));
    QCOMPARE(stats.frames().badSums, qint64(1));
    QCOMPARE(stats.frames().skippedBytes, qint64(3 + 4));
    // 150 -> 900 between reads; 1000 -> 2000 at the end.
    QCOMPARE(stats.longestSilenceMs(), qint64(1000));

    const QString text = stats.text();
    QVERIFY2(text.contains("code 7   target report       2 (1.0 /s)"), qPrintable(text));
    QVERIFY2(text.contains("bad sums              1"), qPrintable(text));
    QVERIFY2(text.contains("longest silence       1.000 s"), qPrintable(text));
    const QJsonObject o = QJsonDocument::fromJson(stats.json()).object();
    QCOMPARE(o.value("frames").toDouble(), 3.0);
    QCOMPARE(o.value("badSums").toDouble(), 1.0);
    QCOMPARE(o.value("bytesOutsideFrames").toDouble(), 7.0);
    QCOMPARE(o.value("longestSilenceSeconds").toDouble(), 1.0);
    QCOMPARE(o.value("byCode").toArray().size(), 2);
    QCOMPARE(o.value("byCode").toArray().at(0).toObject().value("perSecond").toDouble(), 1.0);
}

QTEST_GUILESS_MAIN(TestReportFormatter)
#include "tst_reportformatter.moc"
