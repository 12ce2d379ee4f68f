// The area file reader and writer, and areas in the wire's decimetres,
// without a port.

#include "cli/areafile.h"
#include "cli/wirearea.h"
#include "radar/frameformat.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace
{

const char kGood[] = R"({
  "format": "orv-areas",
  "version": 1,
  "display": "area",
  "areas": [
    {"number": 3, "type": "exclude", "from": [2.0, 7.0], "to": [4.0, 5.0]},
    {"number": 1, "type": "detect", "from": [-1.5, 3.0], "to": [1.5, 1.0]},
    {"number": 2, "type": "unset"}
  ]
}
)";

// A read-areas answer (code 6) holding these records.
QByteArray readAnswer(const QList<QByteArray> &records)
{
    QByteArray payload;
    for (const QByteArray &r : records)
        payload += r;
    return frameformat::buildFrame(ReadArea, payload);
}

QByteArray record(int number, int type, int x1, int y1, int x3, int y3)
{
    QByteArray r(10, 0);
    r[0] = char(number);
    r[1] = char(type);
    r[2] = char(x1);
    r[3] = char(y1);
    r[4] = char(x1);
    r[5] = char(y3);
    r[6] = char(x3);
    r[7] = char(y3);
    r[8] = char(x3);
    r[9] = char(y1);
    return r;
}

} // namespace

class TestAreaFile : public QObject
{
    Q_OBJECT

private slots:
    void parsesAGoodFile();
    void displayForms_data();
    void displayForms();
    void refusesMalformedFiles_data();
    void refusesMalformedFiles();
    void lineAndColumn_data();
    void lineAndColumn();
    void writesWhatItReads();
    void saveReplacesWholeAndReportsFailure();
    void loadRefusesMissingAndHugeFiles();
    void expectedFollowsTheWindowsEncoding();
    void readAnswerIsDecodedInDecimetres();
    void backupEntriesRestoreTheSameDecimetres();
    void metresText_data();
    void metresText();
};

void TestAreaFile::parsesAGoodFile()
{
    AreaFile file;
    QString error;
    QVERIFY2(AreaFile::parse(kGood, "site.json", &file, &error), qPrintable(error));
    QVERIFY(file.hasDisplay);
    QCOMPARE(file.display, 2);
    QCOMPARE(file.areas.size(), 3);
    // Sorted by number.
    QCOMPARE(file.areas.at(0).number, 1);
    QCOMPARE(file.areas.at(0).kind, AreaEntry::Detect);
    QCOMPARE(file.areas.at(0).moduleType(), 0);
    QCOMPARE(file.areas.at(0).from, QPointF(-1.5, 3.0));
    QCOMPARE(file.areas.at(0).to, QPointF(1.5, 1.0));
    QCOMPARE(file.areas.at(1).number, 2);
    QCOMPARE(file.areas.at(1).kind, AreaEntry::Unset);
    QCOMPARE(file.areas.at(2).number, 3);
    QCOMPARE(file.areas.at(2).kind, AreaEntry::Exclude);
    QCOMPARE(file.areas.at(2).moduleType(), 1);
}

void TestAreaFile::displayForms_data()
{
    QTest::addColumn<QString>("display");
    QTest::addColumn<bool>("has");
    QTest::addColumn<int>("value");
    QTest::newRow("area") << "\"display\": \"area\"," << true << 2;
    QTest::newRow("track") << "\"display\": \"track\"," << true << 1;
    QTest::newRow("number") << "\"display\": 3," << true << 3;
    QTest::newRow("left out") << "" << false << 0;
}

void TestAreaFile::displayForms()
{
    QFETCH(QString, display);
    QFETCH(bool, has);
    QFETCH(int, value);
    const QString text =
        QString("{\"format\": \"orv-areas\", \"version\": 1, %1 \"areas\": []}").arg(display);
    AreaFile file;
    QString error;
    QVERIFY2(AreaFile::parse(text.toUtf8(), "f.json", &file, &error), qPrintable(error));
    QCOMPARE(file.hasDisplay, has);
    QCOMPARE(file.display, value);
    QVERIFY(file.areas.isEmpty());
}

void TestAreaFile::refusesMalformedFiles_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");

    const QByteArray head = "{\"format\": \"orv-areas\", \"version\": 1, \"areas\": [";
    auto area = [&head](const char *body) { return head + body + "]}"; };

    QTest::newRow("empty file") << QByteArray() << "f.json:1:1: not valid JSON";
    QTest::newRow("syntax, line 3")
        << QByteArray("{\n  \"format\": \"orv-areas\",\n  \"version\" 1\n}")
        << "f.json:3:14: not valid JSON";
    QTest::newRow("trailing comma") << QByteArray("{\"format\": \"orv-areas\",\n\"version\": 1,\n}")
                                    << "f.json:3:2: not valid JSON";
    QTest::newRow("not an object")
        << QByteArray("[1, 2]") << "f.json: the file must hold one JSON object";
    QTest::newRow("format missing")
        << QByteArray("{\"version\": 1, \"areas\": []}") << "f.json: format: missing";
    QTest::newRow("other format") << QByteArray(
                                         "{\"format\": \"x\", \"version\": 1, \"areas\": []}")
                                  << "format: must be \"orv-areas\"";
    QTest::newRow("version missing")
        << QByteArray("{\"format\": \"orv-areas\", \"areas\": []}") << "version: missing";
    QTest::newRow("newer version")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 2, \"areas\": []}")
        << "version: 2 is not supported";
    QTest::newRow("version text")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": \"1\", \"areas\": []}")
        << "version: must be a whole number";
    QTest::newRow("unknown top field")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"areas\": [], \"aeras\": 1}")
        << "aeras: unknown field";
    QTest::newRow("areas missing")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1}") << "areas: missing";
    QTest::newRow("areas not a list")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"areas\": {}}")
        << "areas: must be a list";
    QTest::newRow("four areas")
        << area("{\"number\":1,\"type\":\"unset\"},{\"number\":2,\"type\":\"unset\"},"
                "{\"number\":3,\"type\":\"unset\"},{\"number\":1,\"type\":\"unset\"}")
        << "areas: 4 areas";
    QTest::newRow("area not an object") << area("5") << "areas[0]: must be an object";
    QTest::newRow("number missing") << area("{\"type\":\"unset\"}") << "areas[0].number: missing";
    QTest::newRow("number 0") << area("{\"number\":0,\"type\":\"unset\"}")
                              << "areas[0].number: 0 is not 1, 2 or 3";
    QTest::newRow("number 4") << area("{\"number\":4,\"type\":\"unset\"}")
                              << "areas[0].number: 4 is not 1, 2 or 3";
    QTest::newRow("number 1.5") << area("{\"number\":1.5,\"type\":\"unset\"}")
                                << "areas[0].number: must be a whole number";
    QTest::newRow("number twice")
        << area("{\"number\":2,\"type\":\"unset\"},{\"number\":2,\"type\":\"unset\"}")
        << "areas[1].number: area 2 appears twice";
    QTest::newRow("type missing") << area("{\"number\":1}") << "areas[0].type: missing";
    QTest::newRow("type wrong") << area("{\"number\":1,\"type\":\"detection\"}")
                                << "areas[0].type: must be";
    QTest::newRow("type as number")
        << area("{\"number\":1,\"type\":0}") << "areas[0].type: must be";
    QTest::newRow("unset with corners") << area("{\"number\":1,\"type\":\"unset\",\"from\":[0,1]}")
                                        << "areas[0]: an unset area has no corners";
    QTest::newRow("from missing") << area("{\"number\":1,\"type\":\"detect\",\"to\":[1,1]}")
                                  << "areas[0].from: missing";
    QTest::newRow("to missing") << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,1]}")
                                << "areas[0].to: missing";
    QTest::newRow("corner of three")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,1,1],\"to\":[2,0]}")
        << "areas[0].from: must be a corner";
    QTest::newRow("corner as text")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":\"1,1\",\"to\":[2,0]}")
        << "areas[0].from: must be a corner";
    QTest::newRow("x as text")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[\"1\",1],\"to\":[2,0]}")
        << "areas[0].from[0]: x must be a number";
    QTest::newRow("y null")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,null],\"to\":[2,0]}")
        << "areas[0].from[1]: y must be a number";
    QTest::newRow("x below -8")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[-8.1,1],\"to\":[2,0]}")
        << "areas[0].from[0]: x -8.1 is outside -8..8 m";
    QTest::newRow("x above 8")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,1],\"to\":[8.01,0]}")
        << "areas[0].to[0]: x 8.01 is outside -8..8 m";
    QTest::newRow("y below 0")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,1],\"to\":[2,-0.1]}")
        << "areas[0].to[1]: y -0.1 is outside 0..8 m";
    QTest::newRow("y above 8")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1,9],\"to\":[2,0]}")
        << "areas[0].from[1]: y 9 is outside 0..8 m";
    QTest::newRow("huge number")
        << area("{\"number\":1,\"type\":\"detect\",\"from\":[1e400,1],\"to\":[2,0]}")
        << "f.json:1:90: not valid JSON";
    QTest::newRow("unknown area field")
        << area("{\"number\":1,\"type\":\"unset\",\"colour\":\"red\"}")
        << "areas[0].colour: unknown field";
    QTest::newRow("display word")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"display\": \"tracking\", "
                      "\"areas\": []}")
        << "display: \"tracking\" is not a display type";
    QTest::newRow("display out of range")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"display\": 300, "
                      "\"areas\": []}")
        << "display: 300 is outside 0..255";
}

void TestAreaFile::refusesMalformedFiles()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, message);
    AreaFile file;
    file.display = 77;
    QString error;
    QVERIFY(!AreaFile::parse(text, "f.json", &file, &error));
    QVERIFY2(error.startsWith("f.json"), qPrintable(error));
    QVERIFY2(error.contains(message), qPrintable(error));
    // Nothing of a refused file is taken.
    QCOMPARE(file.display, 77);
}

void TestAreaFile::lineAndColumn_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("column");
    QTest::newRow("start") << QByteArray("abc") << 0 << 1 << 1;
    QTest::newRow("first line") << QByteArray("abc") << 2 << 1 << 3;
    QTest::newRow("after newline") << QByteArray("ab\ncd") << 3 << 2 << 1;
    QTest::newRow("third line") << QByteArray("a\nb\ncde") << 6 << 3 << 3;
    QTest::newRow("CR LF") << QByteArray("a\r\nbc") << 4 << 2 << 2;
    QTest::newRow("UTF-8 counts characters") << QByteArray("\"\xC3\xA9\xC3\xA9x") << 5 << 1 << 4;
    QTest::newRow("beyond the end") << QByteArray("a\nb") << 99 << 2 << 2;
}

void TestAreaFile::lineAndColumn()
{
    QFETCH(QByteArray, text);
    QFETCH(int, offset);
    QFETCH(int, line);
    QFETCH(int, column);
    int l = 0;
    int c = 0;
    AreaFile::lineAndColumn(text, offset, &l, &c);
    QCOMPARE(l, line);
    QCOMPARE(c, column);
}

void TestAreaFile::writesWhatItReads()
{
    AreaFile file;
    QString error;
    QVERIFY(AreaFile::parse(kGood, "site.json", &file, &error));
    const QByteArray written = file.toJson();
    AreaFile again;
    QVERIFY2(AreaFile::parse(written, "again.json", &again, &error), qPrintable(error));
    QCOMPARE(again.hasDisplay, file.hasDisplay);
    QCOMPARE(again.display, file.display);
    QCOMPARE(again.areas.size(), file.areas.size());
    for (int i = 0; i < file.areas.size(); ++i) {
        QCOMPARE(again.areas.at(i).number, file.areas.at(i).number);
        QCOMPARE(again.areas.at(i).kind, file.areas.at(i).kind);
        QCOMPARE(again.areas.at(i).from, file.areas.at(i).from);
        QCOMPARE(again.areas.at(i).to, file.areas.at(i).to);
    }
    QVERIFY(written.contains("\"format\": \"orv-areas\""));
    QVERIFY(written.contains("\"version\": 1"));

    // A display type that is neither mode is kept as a number.
    file.display = 3;
    QVERIFY(AreaFile::parse(file.toJson(), "n.json", &again, &error));
    QCOMPARE(again.display, 3);
}

void TestAreaFile::saveReplacesWholeAndReportsFailure()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    AreaFile file;
    QString error;
    QVERIFY(AreaFile::parse(kGood, "site.json", &file, &error));
    const QString path = dir.filePath("site.json");
    QVERIFY2(file.save(path, &error), qPrintable(error));
    AreaFile loaded;
    QVERIFY2(AreaFile::load(path, &loaded, &error), qPrintable(error));
    QCOMPARE(loaded.areas.size(), 3);
    // No temporary file is left beside it.
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{"site.json"});

    QVERIFY(!file.save(dir.filePath("no/such/dir/site.json"), &error));
    QVERIFY2(error.contains("cannot write"), qPrintable(error));
}

void TestAreaFile::loadRefusesMissingAndHugeFiles()
{
    QTemporaryDir dir;
    AreaFile file;
    QString error;
    QVERIFY(!AreaFile::load(dir.filePath("missing.json"), &file, &error));
    QVERIFY2(error.contains("missing.json: cannot read"), qPrintable(error));

    QFile huge(dir.filePath("huge.json"));
    QVERIFY(huge.open(QIODevice::WriteOnly));
    huge.write(QByteArray(AreaFile::kMaxFileSize + 10, ' '));
    huge.close();
    QVERIFY(!AreaFile::load(huge.fileName(), &file, &error));
    QVERIFY2(error.contains("1 MiB"), qPrintable(error));
}

void TestAreaFile::expectedFollowsTheWindowsEncoding()
{
    // The window's example: index 0, type 0, corners (-1.5, 3.0) and (1.5, 1.0).
    AreaEntry entry;
    entry.number = 1;
    entry.kind = AreaEntry::Detect;
    entry.from = QPointF(-1.5, 3.0);
    entry.to = QPointF(1.5, 1.0);
    QCOMPARE(WireArea::requestPayload(entry).toHex(' '),
             QByteArray("01 f1 1e f1 0a 0f 0a 0f 1e 00"));
    WireArea a = WireArea::expected(entry);
    QCOMPARE(a.type, 0);
    QCOMPARE(a.left, -15);
    QCOMPARE(a.top, 30);
    QCOMPARE(a.right, 15);
    QCOMPARE(a.bottom, 10);

    // Corners in another order are sent upper left first: the same area.
    entry.from = QPointF(1.5, 1.0);
    entry.to = QPointF(-1.5, 3.0);
    QCOMPARE(WireArea::requestPayload(entry).toHex(' '),
             QByteArray("01 f1 1e f1 0a 0f 0a 0f 1e 00"));

    // Truncation of the far corner, formed as a sum: -8.0 + 4.9 is sent as -30.
    entry.kind = AreaEntry::Exclude;
    entry.number = 3;
    entry.from = QPointF(-8.0, 8.0);
    entry.to = QPointF(-3.1, 0.5);
    a = WireArea::expected(entry);
    QCOMPARE(a.type, 1);
    QCOMPARE(a.left, -80);
    QCOMPARE(a.right, -30);
    QCOMPARE(a.top, 80);
    QCOMPARE(a.bottom, 5);
    QCOMPARE(a.text(), QString("exclude (-8.0, 8.0) to (-3.0, 0.5)"));

    // Below a decimetre nothing is carried: 1.25 and 1.2 are the same.
    AreaEntry b = entry;
    b.from = QPointF(1.25, 2.0);
    b.to = QPointF(2.0, 1.0);
    AreaEntry c = b;
    c.from = QPointF(1.2, 2.0);
    QCOMPARE(WireArea::expected(b), WireArea::expected(c));

    AreaEntry unset;
    unset.kind = AreaEntry::Unset;
    QVERIFY(!WireArea::expected(unset).defined());
    QCOMPARE(WireArea::expected(unset).text(), QString("unset"));
}

void TestAreaFile::readAnswerIsDecodedInDecimetres()
{
    const QByteArray frame = readAnswer(
        {record(1, 0, -15, 30, 15, 10), record(2, 2, 0, 0, 0, 0), record(3, 1, 40, 50, 20, 70)});
    QCOMPARE(frame.size(), 40);
    const auto areas = WireArea::fromReadAnswer(frame);
    QCOMPARE(areas[0].type, 0);
    QCOMPARE(areas[0].left, -15);
    QCOMPARE(areas[0].top, 30);
    QCOMPARE(areas[0].right, 15);
    QCOMPARE(areas[0].bottom, 10);
    QVERIFY(!areas[1].defined());
    // Corners stored in another order are put in order.
    QCOMPARE(areas[2].type, 1);
    QCOMPARE(areas[2].left, 20);
    QCOMPARE(areas[2].top, 70);
    QCOMPARE(areas[2].right, 40);
    QCOMPARE(areas[2].bottom, 50);
    // Any type but 2 is an area; the text says which.
    const auto odd = WireArea::fromReadAnswer(
        readAnswer({record(1, 5, 1, 2, 3, 1), record(2, 2, 0, 0, 0, 0), record(3, 2, 0, 0, 0, 0)}));
    QCOMPARE(odd[0].type, 5);
    QVERIFY(odd[0].text().startsWith("type 5"));
}

void TestAreaFile::backupEntriesRestoreTheSameDecimetres()
{
    // Every rectangle on a decimetre grid (a coarse one for the y axis to keep
    // it quick): the entry written for it must be sent back as exactly it.
    int nudged = 0;
    int total = 0;
    for (int left = -80; left <= 80; left += 2) {
        for (int right = left; right <= 80; right += 3) {
            for (int bottom = 0; bottom <= 80; bottom += 10) {
                for (int top = bottom; top <= 80; top += 13) {
                    WireArea a;
                    a.type = (left + top) & 1;
                    a.left = left;
                    a.right = right;
                    a.top = top;
                    a.bottom = bottom;
                    bool exact = false;
                    const AreaEntry e = WireArea::toEntry(2, a, &exact);
                    QVERIFY2(exact, qPrintable(a.text()));
                    QCOMPARE(e.number, 2);
                    QVERIFY(AreaFile::xInRange(e.from.x()) && AreaFile::xInRange(e.to.x()));
                    QVERIFY(AreaFile::yInRange(e.from.y()) && AreaFile::yInRange(e.to.y()));
                    if (WireArea::expected(e) != a)
                        QFAIL(qPrintable(QString("%1 came back as %2")
                                             .arg(a.text(), WireArea::expected(e).text())));
                    if (e.to != QPointF(right / 10.0, bottom / 10.0) ||
                        e.from != QPointF(left / 10.0, top / 10.0))
                        ++nudged;
                    ++total;
                }
            }
        }
    }
    // The window's truncation does bite for some of them.
    QVERIFY2(nudged > 0, qPrintable(QString("%1 of %2").arg(nudged).arg(total)));
    QCOMPARE(WireArea::toEntry(1, WireArea()).kind, AreaEntry::Unset);
}

void TestAreaFile::metresText_data()
{
    QTest::addColumn<int>("dm");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << 0 << "0.0";
    QTest::newRow("5") << 5 << "0.5";
    QTest::newRow("-5") << -5 << "-0.5";
    QTest::newRow("-15") << -15 << "-1.5";
    QTest::newRow("127") << 127 << "12.7";
    QTest::newRow("-128") << -128 << "-12.8";
}

void TestAreaFile::metresText()
{
    QFETCH(int, dm);
    QFETCH(QString, text);
    QCOMPARE(WireArea::metres(dm), text);
}

QTEST_GUILESS_MAIN(TestAreaFile)
#include "tst_areafile.moc"
