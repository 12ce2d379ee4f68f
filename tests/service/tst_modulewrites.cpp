// The plain parts of the service's writes: checking a request with the area
// file's rules and orv-cli's words, the requests a write sends, and the
// meaning of a read-back.

#include "cli/modulecommand.h"
#include "radar/frameformat.h"
#include "service/modulewrites.h"

#include <QJsonArray>
#include <QtTest>

using namespace modulewrites;

class TestModuleWrites : public QObject
{
    Q_OBJECT

private slots:
    void oneArea();
    void oneAreaRefused_data();
    void oneAreaRefused();
    void wholeFile();
    void display();
    void cancelAll();
    void requestsOfAFile();
    void answersTold();
    void backupOfWhatIsHeld();
    void differencesInDecimetres();
};

void TestModuleWrites::oneArea()
{
    AreaFile file;
    QString error;
    QVERIFY(fromArea(
        2, {{"type", "exclude"}, {"from", QJsonArray{-1.5, 3}}, {"to", QJsonArray{1.5, 1}}}, &file,
        &error));
    QCOMPARE(file.hasDisplay, false);
    QCOMPARE(file.areas.size(), 1);
    QCOMPARE(file.areas.at(0).number, 2);
    QCOMPARE(file.areas.at(0).kind, AreaEntry::Exclude);
    QCOMPARE(file.areas.at(0).from, QPointF(-1.5, 3));
    QCOMPARE(file.areas.at(0).to, QPointF(1.5, 1));
    QVERIFY(fromArea(3, {{"type", "unset"}}, &file, &error));
    QCOMPARE(file.areas.at(0).kind, AreaEntry::Unset);
    QCOMPARE(file.areas.at(0).number, 3);
}

void TestModuleWrites::oneAreaRefused_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QJsonObject>("area");
    QTest::addColumn<QString>("message");
    const QJsonArray ok{1, 1};
    QTest::newRow("number") << 0 << QJsonObject{{"type", "unset"}}
                            << "\"0\" is not an area number (1, 2 or 3)";
    QTest::newRow("x") << 1
                       << QJsonObject{{"type", "detect"}, {"from", QJsonArray{-9, 1}}, {"to", ok}}
                       << "area 1: from[0]: x -9 is outside -8..8 m (nothing was sent)";
    QTest::newRow("y") << 2
                       << QJsonObject{{"type", "detect"}, {"from", ok}, {"to", QJsonArray{1, 8.5}}}
                       << "area 2: to[1]: y 8.5 is outside 0..8 m (nothing was sent)";
    QTest::newRow("type") << 3 << QJsonObject{{"type", "both"}}
                          << "area 3: type: must be \"detect\", \"exclude\" or \"unset\" "
                             "(nothing was sent)";
    QTest::newRow("corner") << 1 << QJsonObject{{"type", "detect"}, {"from", ok}}
                            << "area 1: to: missing (a corner [x, y] in metres) (nothing was "
                               "sent)";
    QTest::newRow("unset with corners")
        << 1 << QJsonObject{{"type", "unset"}, {"from", ok}, {"to", ok}}
        << "area 1: an unset area has no corners (remove from/to) (nothing was sent)";
}

void TestModuleWrites::oneAreaRefused()
{
    QFETCH(int, number);
    QFETCH(QJsonObject, area);
    QFETCH(QString, message);
    AreaFile file;
    QString error;
    QVERIFY(!fromArea(number, area, &file, &error));
    QCOMPARE(error, message);
}

void TestModuleWrites::wholeFile()
{
    AreaFile file;
    QString error;
    QVERIFY(fromText(R"({"format": "orv-areas", "version": 1, "display": "track",
                         "areas": [{"number": 1, "type": "detect", "from": [-1, 3], "to": [1, 1]}]})",
                     &file, &error));
    QCOMPARE(file.display, 1);
    QCOMPARE(file.areas.size(), 1);
    QVERIFY(!fromText("{\"format\": \"orv-areas\",\n \"version\": }", &file, &error));
    // Named by line and column, as orv-cli names a file's syntax error.
    QVERIFY2(error.startsWith("area file:2:") && error.contains(": not valid JSON: "),
             qPrintable(error));
    QVERIFY(error.endsWith(" (nothing was sent)"));
    QVERIFY(!fromText(R"({"format": "orv-areas", "version": 1, "areas": [], "colour": 1})", &file,
                      &error));
    QVERIFY2(error.startsWith("area file: colour: unknown field"), qPrintable(error));
}

void TestModuleWrites::display()
{
    AreaFile file;
    QString error;
    QVERIFY(fromDisplay("area", &file, &error));
    QVERIFY(file.hasDisplay);
    QCOMPARE(file.display, 2);
    QVERIFY(file.areas.isEmpty());
    QVERIFY(fromDisplay("track", &file, &error));
    QCOMPARE(file.display, 1);
    QVERIFY(!fromDisplay("2", &file, &error));
    QCOMPARE(error, QString("\"2\" is not a display type (area or track)"));
}

void TestModuleWrites::cancelAll()
{
    const AreaFile file = allUnset();
    QCOMPARE(file.hasDisplay, false);
    QCOMPARE(file.areas.size(), 3);
    for (int n = 1; n <= 3; ++n) {
        QCOMPARE(file.areas.at(n - 1).number, n);
        QCOMPARE(file.areas.at(n - 1).kind, AreaEntry::Unset);
    }
    const QList<Step> steps = stepsFor(file, true);
    QCOMPARE(steps.size(), 1);
    QCOMPARE(steps.at(0).code, quint8(CancelAllArea));
    QVERIFY(steps.at(0).payload.isEmpty());
    QCOMPARE(steps.at(0).what, QString("cancelling all areas"));
}

void TestModuleWrites::requestsOfAFile()
{
    AreaFile file;
    QString error;
    QVERIFY(fromText(R"({"format": "orv-areas", "version": 1, "display": "area", "areas": [
                           {"number": 1, "type": "detect", "from": [1, 1], "to": [-1, 3]},
                           {"number": 3, "type": "unset"}]})",
                     &file, &error));
    const QList<Step> steps = stepsFor(file, false);
    QCOMPARE(steps.size(), 3);
    // The display type first, then the areas in the file's order.
    QCOMPARE(steps.at(0).code, quint8(SetTargetShowType));
    QCOMPARE(steps.at(0).payload, QByteArray(1, 2));
    QCOMPARE(steps.at(0).what, QString("the display-type change"));
    QCOMPARE(steps.at(0).refused, QString("the module refused display type area (NG)"));
    QCOMPARE(steps.at(1).code, quint8(SetArea));
    QCOMPARE(steps.at(1).payload, WireArea::requestPayload(file.areas.at(0)));
    QCOMPARE(steps.at(1).what, QString("setting area 1"));
    QCOMPARE(steps.at(1).refused, QString("the module refused to set area 1 (NG)"));
    QCOMPARE(steps.at(2).code, quint8(RepealArea));
    QCOMPARE(steps.at(2).payload, QByteArray(1, 3));
    QCOMPARE(steps.at(2).what, QString("cancelling area 3"));
    QCOMPARE(steps.at(2).refused, QString("the module refused to cancel area 3 (NG)"));
}

void TestModuleWrites::answersTold()
{
    // The module's OK (1) and NG (2) in each answer's layout.
    QString error;
    AreaFile display;
    QVERIFY(fromDisplay("track", &display, &error));
    const Step show = stepsFor(display, false).at(0);
    QVERIFY(show.accepted(frameformat::buildFrame(SetTargetShowType, QByteArray(1, 1))));
    QVERIFY(!show.accepted(frameformat::buildFrame(SetTargetShowType, QByteArray(1, 2))));

    AreaFile area;
    QVERIFY(fromArea(2, {{"type", "exclude"}, {"from", QJsonArray{0, 2}}, {"to", QJsonArray{1, 1}}},
                     &area, &error));
    const Step set = stepsFor(area, false).at(0);
    QVERIFY(set.accepted(frameformat::buildFrame(SetArea, QByteArray("\x02\x01\x01", 3))));
    QVERIFY(!set.accepted(frameformat::buildFrame(SetArea, QByteArray("\x02\x01\x02", 3))));

    QVERIFY(fromArea(2, {{"type", "unset"}}, &area, &error));
    const Step repeal = stepsFor(area, false).at(0);
    QVERIFY(repeal.accepted(frameformat::buildFrame(RepealArea, QByteArray("\x02\x01", 2))));
    QVERIFY(!repeal.accepted(frameformat::buildFrame(RepealArea, QByteArray("\x02\x02", 2))));

    const Step all = stepsFor(allUnset(), true).at(0);
    QVERIFY(all.accepted(frameformat::buildFrame(CancelAllArea, QByteArray(1, 1))));
    QVERIFY(!all.accepted(frameformat::buildFrame(CancelAllArea, QByteArray(1, 2))));
}

void TestModuleWrites::backupOfWhatIsHeld()
{
    ModuleAreas held;
    held.display = 1;
    held.areas[0] =
        WireArea::expected(AreaEntry{1, AreaEntry::Detect, QPointF(-1.5, 3), QPointF(1.5, 1)});
    held.areas[1].type = 5; // a type no area file can hold
    held.areas[1].left = 1;
    held.areas[1].top = 9;
    held.areas[1].right = 8;
    held.areas[1].bottom = 2;
    const AreaFile file = backupOf(held);
    QVERIFY(file.hasDisplay);
    QCOMPARE(file.display, 1);
    QCOMPARE(file.areas.size(), 3);
    QCOMPARE(file.areas.at(0).kind, AreaEntry::Detect);
    QCOMPARE(WireArea::expected(file.areas.at(0)), held.areas[0]);
    QCOMPARE(file.areas.at(1).kind, AreaEntry::Unset);
    QCOMPARE(file.areas.at(2).kind, AreaEntry::Unset);
    QCOMPARE(differences(file, held).size(), 1); // only the area of type 5
}

void TestModuleWrites::differencesInDecimetres()
{
    ModuleAreas held;
    held.display = 2;
    AreaFile file;
    QString error;
    // 1.25 m is sent as 1.2 m: no difference once on the wire.
    QVERIFY(fromArea(1,
                     {{"type", "detect"}, {"from", QJsonArray{-1.25, 3}}, {"to", QJsonArray{1, 1}}},
                     &file, &error));
    held.areas[0] =
        WireArea::expected(AreaEntry{1, AreaEntry::Detect, QPointF(-1.2, 3), QPointF(1, 1)});
    QVERIFY(differences(file, held).isEmpty());
    held.areas[0].left -= 1;
    const QStringList diff = differences(file, held);
    QCOMPARE(diff.size(), 1);
    QVERIFY2(diff.at(0).startsWith("area 1: the file says detect (-1.2, 3.0) to (1.0, 1.0), the "
                                   "module holds detect (-1.3, 3.0)"),
             qPrintable(diff.at(0)));
    // The display type, when the file has one.
    QVERIFY(fromDisplay("track", &file, &error));
    QCOMPARE(differences(file, held),
             QStringList{"display: the file says track, the module holds area"});
}

QTEST_GUILESS_MAIN(TestModuleWrites)
#include "tst_modulewrites.moc"
