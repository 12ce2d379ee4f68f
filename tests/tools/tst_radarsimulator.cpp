// The simulator's protocol logic, motion, faults, replay parsing and command
// line, driven directly with byte arrays and checked with the tool's own
// frame functions.

#include "radar/frameformat.h"
#include "tools/radar-sim/faultinjector.h"
#include "tools/radar-sim/radarsimulator.h"
#include "tools/radar-sim/replaylog.h"
#include "tools/radar-sim/simoptions.h"
#include "tools/radar-sim/targetmotion.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

Q_DECLARE_METATYPE(QVector<QPointF>)

namespace
{

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray request(quint8 code, const QByteArray &payload = QByteArray())
{
    return frameformat::buildFrame(code, payload);
}

// The single answer of a request that must produce exactly one frame.
QByteArray answerOf(RadarSimulator &sim, const QByteArray &frame)
{
    const QList<RadarSimulator::Reply> replies = sim.receive(frame);
    if (replies.size() != 1 || replies.first().frames.size() != 1)
        return QByteArray();
    return replies.first().frames.first();
}

bool sameRect(const QRectF &a, const QRectF &b)
{
    return std::abs(a.left() - b.left()) < 1e-9 && std::abs(a.top() - b.top()) < 1e-9 &&
           std::abs(a.right() - b.right()) < 1e-9 && std::abs(a.bottom() - b.bottom()) < 1e-9;
}

} // namespace

class TestRadarSimulator : public QObject
{
    Q_OBJECT

private slots:
    void answers_data();
    void answers();
    void baudChangeIsAppliedByTheCaller();
    void areaReadBack_data();
    void areaReadBack();
    void presetAreaReadBack();
    void repealAndCancel();
    void readAreaOfFreshModule();
    void requestScanning_data();
    void requestScanning();
    void occupancy_data();
    void occupancy();
    void targetReport_data();
    void targetReport();
    void motionStaysInsideAndIsSmooth_data();
    void motionStaysInsideAndIsSmooth();
    void motionIsReproducible();
    void motionCoversTheArea();
    void fixedTargetsStandStill();
    void faultSplit();
    void faultNoise();
    void faultChecksum_data();
    void faultChecksum();
    void replayParsing();
    void replayLineForms_data();
    void replayLineForms();
    void replayFileErrors();
    void options_data();
    void options();
};

// ---------------------------------------------------------------------------
// Request in -> answer out

void TestRadarSimulator::answers_data()
{
    QTest::addColumn<QByteArray>("requestFrame");
    QTest::addColumn<bool>("baudNg");
    QTest::addColumn<QByteArray>("expected"); // empty: no answer at all
    QTest::addColumn<int>("newBaud");

    QTest::newRow("set baud 115200") << hex("FF EE DD 00 04 01 01 C2 00 C4 DD EE FF") << false
                                     << hex("FF EE DD 00 02 01 01 02 DD EE FF") << 115200;
    QTest::newRow("set baud 921600") << request(1, frameformat::baudRatePayload(921600)) << false
                                     << hex("FF EE DD 00 02 01 01 02 DD EE FF") << 921600;
    QTest::newRow("set baud refused by --baud-ng")
        << request(1, frameformat::baudRatePayload(115200)) << true
        << hex("FF EE DD 00 02 01 02 03 DD EE FF") << 0;
    QTest::newRow("set baud 0") << request(1, hex("00 00 00")) << false
                                << hex("FF EE DD 00 02 01 02 03 DD EE FF") << 0;
    QTest::newRow("set baud short payload")
        << request(1, hex("01 C2")) << false << hex("FF EE DD 00 02 01 02 03 DD EE FF") << 0;
    QTest::newRow("set show type 2") << hex("FF EE DD 00 02 02 02 04 DD EE FF") << false
                                     << hex("FF EE DD 00 02 02 01 03 DD EE FF") << 0;
    QTest::newRow("set show type 1")
        << request(2, hex("01")) << false << hex("FF EE DD 00 02 02 01 03 DD EE FF") << 0;
    QTest::newRow("set show type 3")
        << request(2, hex("03")) << false << hex("FF EE DD 00 02 02 01 03 DD EE FF") << 0;
    QTest::newRow("set show type 0 refused")
        << request(2, hex("00")) << false << hex("FF EE DD 00 02 02 02 04 DD EE FF") << 0;
    QTest::newRow("set show type 4 refused")
        << request(2, hex("04")) << false << hex("FF EE DD 00 02 02 02 04 DD EE FF") << 0;
    QTest::newRow("read show type") << hex("FF EE DD 00 01 03 03 DD EE FF") << false
                                    << hex("FF EE DD 00 02 03 02 05 DD EE FF") << 0;
    QTest::newRow("set area 1 type 0")
        << hex("FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF") << false
        << hex("FF EE DD 00 04 04 01 00 01 06 DD EE FF") << 0;
    QTest::newRow("set area 3 type 1")
        << request(4, frameformat::setAreaPayload(2, 1, QRectF(QPointF(0, 2), QPointF(1, 1))))
        << false << hex("FF EE DD 00 04 04 03 01 01 09 DD EE FF") << 0;
    QTest::newRow("set area number 4 refused")
        << request(4, frameformat::setAreaPayload(3, 0, QRectF(QPointF(0, 2), QPointF(1, 1))))
        << false << hex("FF EE DD 00 04 04 04 00 02 0A DD EE FF") << 0;
    QTest::newRow("set area type 2 refused")
        << request(4, frameformat::setAreaPayload(0, 2, QRectF(QPointF(0, 2), QPointF(1, 1))))
        << false << hex("FF EE DD 00 04 04 01 02 02 09 DD EE FF") << 0;
    QTest::newRow("set area short payload refused")
        << request(4, hex("01 F1 1E")) << false << hex("FF EE DD 00 04 04 01 00 02 07 DD EE FF")
        << 0;
    QTest::newRow("repeal area 1") << hex("FF EE DD 00 02 05 01 06 DD EE FF") << false
                                   << hex("FF EE DD 00 03 05 01 01 07 DD EE FF") << 0;
    QTest::newRow("repeal area 3")
        << request(5, hex("03")) << false << hex("FF EE DD 00 03 05 03 01 09 DD EE FF") << 0;
    QTest::newRow("repeal area 0 refused")
        << request(5, hex("00")) << false << hex("FF EE DD 00 03 05 00 02 07 DD EE FF") << 0;
    QTest::newRow("cancel all areas") << hex("FF EE DD 00 01 0A 0A DD EE FF") << false
                                      << hex("FF EE DD 00 02 0A 01 0B DD EE FF") << 0;
    QTest::newRow("code 7 is not a request")
        << request(7, hex("0A 1E")) << false << QByteArray() << 0;
    QTest::newRow("code 8 is not a request") << request(8) << false << QByteArray() << 0;
    QTest::newRow("code 9 is not answered") << request(9) << false << QByteArray() << 0;
    QTest::newRow("code 11 is not answered")
        << request(11, hex("01")) << false << QByteArray() << 0;
}

void TestRadarSimulator::answers()
{
    QFETCH(QByteArray, requestFrame);
    QFETCH(bool, baudNg);
    QFETCH(QByteArray, expected);
    QFETCH(int, newBaud);

    RadarSimulator sim(9600);
    sim.setBaudNg(baudNg);
    const QList<RadarSimulator::Reply> replies = sim.receive(requestFrame);
    QCOMPARE(replies.size(), 1);
    QCOMPARE(int(replies.first().code), int(quint8(requestFrame.at(5))));
    if (expected.isEmpty()) {
        QVERIFY(replies.first().frames.isEmpty());
    } else {
        QCOMPARE(replies.first().frames.size(), 1);
        QCOMPARE(frameformat::hexDump(replies.first().frames.first()),
                 frameformat::hexDump(expected));
        QVERIFY(frameformat::checksumMatches(replies.first().frames.first()));
    }
    QCOMPARE(replies.first().newBaudRate, newBaud);
    QVERIFY(!replies.first().description.isEmpty());
    QCOMPARE(sim.pendingBytes(), 0);
}

void TestRadarSimulator::baudChangeIsAppliedByTheCaller()
{
    RadarSimulator sim(9600);
    const QByteArray ok = answerOf(sim, request(1, frameformat::baudRatePayload(4800)));
    QVERIFY(frameformat::decodeResult(ok));
    // The answer goes out at the old rate; the port owner switches after it.
    QCOMPARE(sim.baudRate(), 9600);
    sim.setBaudRate(4800);
    QCOMPARE(sim.baudRate(), 4800);

    // Show type set, then read back through the tool's decoder.
    QVERIFY(frameformat::decodeResult(answerOf(sim, request(2, hex("01")))));
    QCOMPARE(frameformat::decodeShowType(answerOf(sim, request(3))), 1);
    QCOMPARE(sim.showType(), 1);
    QVERIFY(!frameformat::decodeResult(answerOf(sim, request(2, hex("07")))));
    QCOMPARE(frameformat::decodeShowType(answerOf(sim, request(3))), 1);
}

void TestRadarSimulator::areaReadBack_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("type");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<QRectF>("expected"); // what the code 6 answer decodes to

    // Rectangles as the tool sends them: top-left at the larger y.
    QTest::newRow("example area") << 0 << 0 << QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0))
                                  << QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    QTest::newRow("area 2 type 1") << 1 << 1 << QRectF(QPointF(-4.0, 7.5), QPointF(-2.0, 5.5))
                                   << QRectF(QPointF(-4.0, 7.5), QPointF(-2.0, 5.5));
    QTest::newRow("area 3 whole plane") << 2 << 0 << QRectF(QPointF(-8.0, 8.0), QPointF(8.0, 0.0))
                                        << QRectF(QPointF(-8.0, 8.0), QPointF(8.0, 0.0));
    // x + w formed in doubles: -8.0 + 4.9 is sent as -30, one decimetre short.
    QTest::newRow("truncated corner")
        << 0 << 1 << QRectF(-8.0, 6.0, 4.9, -2.0) << QRectF(QPointF(-8.0, 6.0), QPointF(-3.0, 4.0));
    // A positive height mirrors the lower edge below the first corner.
    QTest::newRow("positive height")
        << 1 << 0 << QRectF(1.0, 3.0, 2.0, 1.0) << QRectF(QPointF(1.0, 3.0), QPointF(3.0, 2.0));
}

void TestRadarSimulator::areaReadBack()
{
    QFETCH(int, index);
    QFETCH(int, type);
    QFETCH(QRectF, rect);
    QFETCH(QRectF, expected);

    RadarSimulator sim;
    const QByteArray setAnswer =
        answerOf(sim, request(4, frameformat::setAreaPayload(quint8(index), quint8(type), rect)));
    const frameformat::SetAreaResponse set = frameformat::decodeSetAreaResponse(setAnswer);
    QCOMPARE(set.number, index + 1);
    QCOMPARE(set.type, type);
    QVERIFY(set.ok);

    const QByteArray read = answerOf(sim, request(6));
    QCOMPARE(read.size(), frameformat::kReadAreaFrameSize);
    QVERIFY(frameformat::checksumMatches(read));
    const auto areas = frameformat::decodeReadAreaResponse(read);
    for (int k = 0; k < 3; ++k) {
        if (k == index) {
            QCOMPARE(areas[size_t(k)].type, type);
            QVERIFY2(sameRect(areas[size_t(k)].rect, expected),
                     qPrintable(QString("got %1,%2 %3,%4")
                                    .arg(areas[size_t(k)].rect.left())
                                    .arg(areas[size_t(k)].rect.top())
                                    .arg(areas[size_t(k)].rect.right())
                                    .arg(areas[size_t(k)].rect.bottom())));
        } else {
            QCOMPARE(areas[size_t(k)].type, 2);
        }
    }
    // The record carries the four corners exactly as the request did.
    const QByteArray payload = frameformat::setAreaPayload(quint8(index), quint8(type), rect);
    QCOMPARE(read.mid(6 + 10 * index + 2, 8), payload.mid(1, 8));
    QCOMPARE(int(quint8(read.at(6 + 10 * index))), index + 1);
}

void TestRadarSimulator::presetAreaReadBack()
{
    // The presets the --area option produces, applied to a fresh module.
    SimOptions o;
    QString error;
    QVERIFY2(
        SimOptions::parse({"--area", "1,0,-3.5,6.5,-0.5,3.5", "--area", "3,1,1,5,4,2"}, &o, &error),
        qPrintable(error));
    QCOMPARE(o.areas.size(), 2);
    RadarSimulator sim;
    for (const SimOptions::AreaPreset &a : o.areas)
        QVERIFY(sim.presetArea(a.number, a.type, a.rect));

    const QByteArray read = answerOf(sim, request(6));
    QCOMPARE(read.size(), frameformat::kReadAreaFrameSize);
    QVERIFY(frameformat::checksumMatches(read));
    const auto areas = frameformat::decodeReadAreaResponse(read);
    QCOMPARE(areas[0].type, 0);
    QVERIFY(sameRect(areas[0].rect, QRectF(QPointF(-3.5, 6.5), QPointF(-0.5, 3.5))));
    QCOMPARE(areas[1].type, 2);
    QCOMPARE(areas[2].type, 1);
    QVERIFY(sameRect(areas[2].rect, QRectF(QPointF(1.0, 5.0), QPointF(4.0, 2.0))));
    // Corner bytes as the tool's own set-area request carries them.
    QCOMPARE(read.mid(6 + 2, 8), frameformat::setAreaPayload(0, 0, o.areas.at(0).rect).mid(1, 8));
    QCOMPARE(read.mid(6 + 20 + 2, 8),
             frameformat::setAreaPayload(2, 1, o.areas.at(1).rect).mid(1, 8));

    // Occupancy uses the presets.
    QCOMPARE(int(sim.occupancy({{-2.0, 5.0}})), 1);
    QCOMPARE(int(sim.occupancy({{2.5, 3.5}})), 4);
    QCOMPARE(int(sim.occupancy({{0.5, 1.5}})), 0);

    // A later preset of the same number replaces the earlier one; bad ones are refused.
    QVERIFY(sim.presetArea(1, 1, QRectF(QPointF(-1.0, 2.0), QPointF(1.0, 1.0))));
    QCOMPARE(sim.area(0).type, quint8(1));
    QCOMPARE(int(sim.occupancy({{-2.0, 5.0}})), 0);
    QVERIFY(!sim.presetArea(4, 0, QRectF(QPointF(-1.0, 2.0), QPointF(1.0, 1.0))));
    QVERIFY(!sim.presetArea(2, 2, QRectF(QPointF(-1.0, 2.0), QPointF(1.0, 1.0))));
    QVERIFY(!sim.area(1).defined);
}

void TestRadarSimulator::repealAndCancel()
{
    RadarSimulator sim;
    const QRectF r(QPointF(-1.0, 4.0), QPointF(1.0, 2.0));
    for (int i = 0; i < 3; ++i)
        QVERIFY(frameformat::decodeSetAreaResponse(
                    answerOf(sim, request(4, frameformat::setAreaPayload(quint8(i), 1, r))))
                    .ok);
    auto areas = frameformat::decodeReadAreaResponse(answerOf(sim, request(6)));
    for (int k = 0; k < 3; ++k)
        QCOMPARE(areas[size_t(k)].type, 1);

    const frameformat::RepealAreaResponse repeal =
        frameformat::decodeRepealAreaResponse(answerOf(sim, request(5, hex("02"))));
    QCOMPARE(repeal.number, 2);
    QVERIFY(repeal.ok);
    areas = frameformat::decodeReadAreaResponse(answerOf(sim, request(6)));
    QCOMPARE(areas[0].type, 1);
    QCOMPARE(areas[1].type, 2);
    QCOMPARE(areas[1].rect, QRectF(QPointF(0, 0), QPointF(0, 0)));
    QCOMPARE(areas[2].type, 1);
    QVERIFY(sameRect(areas[2].rect, r));

    QVERIFY(frameformat::decodeResult(answerOf(sim, request(10))));
    areas = frameformat::decodeReadAreaResponse(answerOf(sim, request(6)));
    for (int k = 0; k < 3; ++k) {
        QCOMPARE(areas[size_t(k)].type, 2);
        QVERIFY(!sim.area(k).defined);
    }
    // Cancelling with nothing set is still OK.
    QVERIFY(frameformat::decodeResult(answerOf(sim, request(10))));
}

void TestRadarSimulator::readAreaOfFreshModule()
{
    RadarSimulator sim;
    const QByteArray read = answerOf(sim, request(6));
    QCOMPARE(frameformat::hexDump(read), frameformat::hexDump(hex("FF EE DD 00 1F 06 "
                                                                  "01 02 00 00 00 00 00 00 00 00 "
                                                                  "02 02 00 00 00 00 00 00 00 00 "
                                                                  "03 02 00 00 00 00 00 00 00 00 "
                                                                  "12 DD EE FF")));
}

// ---------------------------------------------------------------------------
// Cutting requests out of the byte stream

void TestRadarSimulator::requestScanning_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QList<int>>("answeredCodes");
    QTest::addColumn<int>("badSums");
    QTest::addColumn<int>("pendingAfter");

    const QByteArray read = hex("FF EE DD 00 01 06 06 DD EE FF");
    const QByteArray cancel = hex("FF EE DD 00 01 0A 0A DD EE FF");
    const QByteArray setArea = hex("FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF");

    QTest::newRow("one request") << QList<QByteArray>{read} << QList<int>{6} << 0 << 0;
    QTest::newRow("two back to back")
        << QList<QByteArray>{read + cancel} << QList<int>{6, 10} << 0 << 0;
    QTest::newRow("byte by byte") << [&] {
        QList<QByteArray> l;
        for (char c : setArea)
            l.append(QByteArray(1, c));
        return l;
    }() << QList<int>{4} << 0 << 0;
    QTest::newRow("split inside the length")
        << QList<QByteArray>{read.left(4), read.mid(4)} << QList<int>{6} << 0 << 0;
    QTest::newRow("garbage before")
        << QList<QByteArray>{hex("00 13 37 FF EE") + read} << QList<int>{6} << 0 << 0;
    QTest::newRow("false header with huge length")
        << QList<QByteArray>{hex("FF EE DD 7F 7F") + cancel} << QList<int>{10} << 0 << 0;
    QTest::newRow("bad sum dropped")
        << QList<QByteArray>{hex("FF EE DD 00 01 06 07 DD EE FF") + cancel} << QList<int>{10} << 1
        << 0;
    // The strict decoder wants the tail: without it the bytes are noise.
    QTest::newRow("tail required")
        << QList<QByteArray>{hex("FF EE DD 00 01 0A 0A 00 00 00")} << QList<int>{} << 0 << 0;
    QTest::newRow("tail required, the next request still answered")
        << QList<QByteArray>{hex("FF EE DD 00 01 0A 0A 00 00 00") + read} << QList<int>{6} << 0
        << 0;
    QTest::newRow("bad sum split over two reads")
        << QList<QByteArray>{hex("FF EE DD 00 01 06"), hex("07 DD EE FF") + read} << QList<int>{6}
        << 1 << 0;
    QTest::newRow("longest request the tool sends, then a longer one")
        << QList<QByteArray>{setArea + hex("FF EE DD 00 21") + QByteArray(33, '\x01') +
                             hex("21 DD EE FF") + cancel}
        << QList<int>{4, 10} << 0 << 0;
    QTest::newRow("unfinished request kept")
        << QList<QByteArray>{setArea.left(12)} << QList<int>{} << 0 << 12;
    QTest::newRow("header start kept")
        << QList<QByteArray>{hex("01 02 FF EE")} << QList<int>{} << 0 << 2;
    QTest::newRow("noise only") << QList<QByteArray>{hex("01 02 03 04 05 06 07 08 09 10 11")}
                                << QList<int>{} << 0 << 0;
}

void TestRadarSimulator::requestScanning()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QList<int>, answeredCodes);
    QFETCH(int, badSums);
    QFETCH(int, pendingAfter);

    RadarSimulator sim;
    QList<int> answered;
    for (const QByteArray &c : chunks)
        for (const RadarSimulator::Reply &r : sim.receive(c))
            if (!r.frames.isEmpty())
                answered.append(r.code);
    QCOMPARE(answered, answeredCodes);
    QCOMPARE(sim.badRequests(), badSums);
    QCOMPARE(sim.pendingBytes(), pendingAfter);
}

// ---------------------------------------------------------------------------
// Reports

void TestRadarSimulator::occupancy_data()
{
    QTest::addColumn<QList<QRectF>>("areas"); // index k; a null rect leaves area k undefined
    QTest::addColumn<QVector<QPointF>>("targets");
    QTest::addColumn<int>("mask");

    const QRectF a(QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    const QRectF b(QPointF(2.0, 6.0), QPointF(4.0, 4.0));
    const QRectF c(QPointF(-4.0, 8.0), QPointF(-2.0, 6.0));

    QTest::newRow("no areas") << QList<QRectF>{} << QVector<QPointF>{{0.0, 2.0}} << 0;
    QTest::newRow("inside area 1") << QList<QRectF>{a} << QVector<QPointF>{{0.0, 2.0}} << 1;
    QTest::newRow("outside area 1") << QList<QRectF>{a} << QVector<QPointF>{{0.0, 3.5}} << 0;
    QTest::newRow("on the corner counts") << QList<QRectF>{a} << QVector<QPointF>{{1.5, 1.0}} << 1;
    QTest::newRow("on the first corner counts")
        << QList<QRectF>{a} << QVector<QPointF>{{-1.5, 3.0}} << 1;
    QTest::newRow("on the lower edge counts")
        << QList<QRectF>{a} << QVector<QPointF>{{-1.0, 1.0}} << 1;
    QTest::newRow("just past the edge") << QList<QRectF>{a} << QVector<QPointF>{{1.6, 2.0}} << 0;
    QTest::newRow("inside area 2 only")
        << QList<QRectF>{a, b, c} << QVector<QPointF>{{3.0, 5.0}} << 2;
    QTest::newRow("inside area 3 only")
        << QList<QRectF>{a, b, c} << QVector<QPointF>{{-3.0, 7.0}} << 4;
    QTest::newRow("areas 1 and 3")
        << QList<QRectF>{a, b, c} << QVector<QPointF>{{-3.0, 7.0}, {0.5, 1.5}, {0.0, 5.0}} << 5;
    QTest::newRow("all three") << QList<QRectF>{a, b, c}
                               << QVector<QPointF>{{-3.0, 7.0}, {0.5, 1.5}, {2.5, 4.5}} << 7;
    QTest::newRow("area 2 undefined")
        << QList<QRectF>{a, QRectF(), c} << QVector<QPointF>{{3.0, 5.0}} << 0;
    QTest::newRow("positive height rectangle")
        << QList<QRectF>{QRectF(1.0, 3.0, 2.0, 1.0)} << QVector<QPointF>{{2.0, 2.5}} << 1;
    QTest::newRow("no targets") << QList<QRectF>{a, b, c} << QVector<QPointF>{} << 0;
}

void TestRadarSimulator::occupancy()
{
    QFETCH(QList<QRectF>, areas);
    QFETCH(QVector<QPointF>, targets);
    QFETCH(int, mask);

    RadarSimulator sim;
    for (int k = 0; k < areas.size(); ++k)
        if (!areas.at(k).isNull())
            QVERIFY(frameformat::decodeSetAreaResponse(
                        answerOf(sim, request(4, frameformat::setAreaPayload(quint8(k), 0,
                                                                             areas.at(k)))))
                        .ok);
    QCOMPARE(int(sim.occupancy(targets)), mask);
    const QByteArray report = sim.areaReport(targets);
    QCOMPARE(report.size(), 13);
    QCOMPARE(int(quint8(report.at(5))), 8);
    QVERIFY(frameformat::checksumMatches(report));
    QCOMPARE(int(frameformat::decodeAreaFlags(report)), mask);
}

void TestRadarSimulator::targetReport_data()
{
    QTest::addColumn<QVector<QPointF>>("targets");
    QTest::addColumn<QVector<QPointF>>("decoded");

    QTest::newRow("none") << QVector<QPointF>{} << QVector<QPointF>{};
    QTest::newRow("example pair") << QVector<QPointF>{{1.0, 3.0}, {-1.0, 2.0}}
                                  << QVector<QPointF>{{1.0, 3.0}, {-1.0, 2.0}};
    QTest::newRow("origin") << QVector<QPointF>{{0.0, 0.0}} << QVector<QPointF>{{0.0, 0.0}};
    QTest::newRow("truncated toward zero") << QVector<QPointF>{{1.29, 4.99}, {-2.57, 0.31}}
                                           << QVector<QPointF>{{1.2, 4.9}, {-2.5, 0.3}};
    QTest::newRow("plane corners")
        << QVector<QPointF>{{-5.0, 0.3}, {5.0, 8.0}} << QVector<QPointF>{{-5.0, 0.3}, {5.0, 8.0}};
    QVector<QPointF> many;
    for (int i = 0; i < 128; ++i)
        many.append(QPointF((i % 20) * 0.5 - 5.0, (i / 20) * 1.0 + 0.5));
    QTest::newRow("128 targets") << many << many;
}

void TestRadarSimulator::targetReport()
{
    QFETCH(QVector<QPointF>, targets);
    QFETCH(QVector<QPointF>, decoded);

    RadarSimulator sim;
    const QByteArray frame = sim.targetReport(targets);
    QCOMPARE(frame.size(), 10 + 2 * targets.size());
    QCOMPARE(int(quint8(frame.at(5))), 7);
    QVERIFY(frameformat::checksumMatches(frame));
    const QList<QPointF> got = frameformat::decodeTargets(frame);
    QCOMPARE(got.size(), decoded.size());
    for (int i = 0; i < got.size(); ++i) {
        QVERIFY2(
            std::abs(got.at(i).x() - decoded.at(i).x()) < 1e-9 &&
                std::abs(got.at(i).y() - decoded.at(i).y()) < 1e-9,
            qPrintable(QString("target %1: %2,%3").arg(i).arg(got.at(i).x()).arg(got.at(i).y())));
    }
}

// ---------------------------------------------------------------------------
// Motion

void TestRadarSimulator::motionStaysInsideAndIsSmooth_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("dt");
    QTest::addColumn<int>("steps");
    QTest::addColumn<quint32>("seed");

    QTest::newRow("3 people at 10 Hz") << 3 << 0.1 << 6000 << 1u;
    QTest::newRow("16 people at 100 Hz") << 16 << 0.01 << 6000 << 2u;
    QTest::newRow("128 people at 10 Hz") << 128 << 0.1 << 1500 << 3u;
    QTest::newRow("8 people at 1 Hz") << 8 << 1.0 << 3000 << 4u;
}

void TestRadarSimulator::motionStaysInsideAndIsSmooth()
{
    QFETCH(int, count);
    QFETCH(double, dt);
    QFETCH(int, steps);
    QFETCH(quint32, seed);

    TargetMotion m(count, seed);
    QCOMPARE(m.count(), count);
    QVector<QPointF> before = m.positions();
    QVector<double> headingsBefore = m.headings();
    double travelled = 0.0;
    for (int s = 0; s < steps; ++s) {
        m.step(dt);
        const QVector<QPointF> now = m.positions();
        const QVector<double> headings = m.headings();
        for (int i = 0; i < count; ++i) {
            const QPointF &p = now.at(i);
            QVERIFY2(
                p.x() >= -5.0 && p.x() <= 5.0 && p.y() >= 0.3 && p.y() <= 8.0,
                qPrintable(
                    QString("step %1 target %2 at %3,%4").arg(s).arg(i).arg(p.x()).arg(p.y())));
            const double d = std::hypot(p.x() - before.at(i).x(), p.y() - before.at(i).y());
            QVERIFY2(d <= TargetMotion::kMaxSpeed * dt + 1e-9,
                     qPrintable(QString("step %1 target %2 jumped %3 m").arg(s).arg(i).arg(d)));
            double turn = std::abs(headings.at(i) - headingsBefore.at(i));
            turn = std::min(turn, 2.0 * M_PI - turn);
            QVERIFY2(
                turn <= TargetMotion::kMaxTurnRate * dt + 1e-9,
                qPrintable(QString("step %1 target %2 turned %3 rad").arg(s).arg(i).arg(turn)));
            travelled += d;
        }
        before = now;
        headingsBefore = headings;
    }
    // People do walk: at least the slowest pace on average.
    QVERIFY(travelled >= count * steps * dt * TargetMotion::kMinSpeed * 0.9);
}

void TestRadarSimulator::motionIsReproducible()
{
    TargetMotion a(5, 42);
    TargetMotion b(5, 42);
    TargetMotion c(5, 43);
    for (int s = 0; s < 500; ++s) {
        a.step(0.1);
        b.step(0.1);
        c.step(0.1);
    }
    QCOMPARE(a.positions(), b.positions());
    QVERIFY(a.positions() != c.positions());
    // People start at different places.
    const QVector<QPointF> p = TargetMotion(5, 7).positions();
    for (int i = 0; i < p.size(); ++i)
        for (int j = i + 1; j < p.size(); ++j)
            QVERIFY(p.at(i) != p.at(j));
}

void TestRadarSimulator::motionCoversTheArea()
{
    // Over a long walk one person visits all four quarters of the plane.
    TargetMotion m(1, 11);
    bool quarter[4] = {false, false, false, false};
    for (int s = 0; s < 20000; ++s) {
        m.step(0.1);
        const QPointF p = m.positions().first();
        quarter[(p.x() < 0.0 ? 0 : 1) + (p.y() < 4.15 ? 0 : 2)] = true;
    }
    QVERIFY(quarter[0] && quarter[1] && quarter[2] && quarter[3]);
}

void TestRadarSimulator::fixedTargetsStandStill()
{
    const QVector<QPointF> points{{1.5, 3.0}, {-2.0, 4.0}};
    TargetMotion m(points);
    QCOMPARE(m.count(), 2);
    for (int s = 0; s < 100; ++s)
        m.step(0.1);
    QCOMPARE(m.positions(), points);
}

// ---------------------------------------------------------------------------
// Faults

void TestRadarSimulator::faultSplit()
{
    FaultInjector::Settings s;
    s.split = true;
    s.frameGapMs = 7;
    s.chunkPauseMs = 2;
    FaultInjector f(s, 5);
    RadarSimulator sim;
    QSet<int> pieceCounts;
    for (int n = 0; n < 200; ++n) {
        const QByteArray frame = sim.targetReport(QVector<QPointF>(n % 5, QPointF(1.0, 2.0)));
        const QList<FaultInjector::Chunk> chunks = f.prepare(frame);
        QVERIFY(chunks.size() >= 2 && chunks.size() <= 4);
        pieceCounts.insert(chunks.size());
        QByteArray joined;
        for (int k = 0; k < chunks.size(); ++k) {
            QVERIFY(!chunks.at(k).bytes.isEmpty());
            QCOMPARE(chunks.at(k).pauseAfterMs, k == chunks.size() - 1 ? 7 : 2);
            joined += chunks.at(k).bytes;
        }
        QCOMPARE(joined, frame);
    }
    QCOMPARE(pieceCounts.size(), 3); // 2, 3 and 4 pieces all occur

    FaultInjector plain(FaultInjector::Settings(), 5);
    const QByteArray frame = sim.targetReport({{1.0, 1.0}});
    const QList<FaultInjector::Chunk> one = plain.prepare(frame);
    QCOMPARE(one.size(), 1);
    QCOMPARE(one.first().bytes, frame);
    QCOMPARE(one.first().pauseAfterMs, 5);
}

void TestRadarSimulator::faultNoise()
{
    FaultInjector::Settings s;
    s.noiseBytes = 9;
    FaultInjector f(s, 77);
    RadarSimulator sim;
    QSet<char> seen;
    for (int n = 0; n < 100; ++n) {
        const QByteArray frame = sim.areaReport({});
        const QList<FaultInjector::Chunk> chunks = f.prepare(frame);
        QCOMPARE(chunks.size(), 2);
        QCOMPARE(chunks.at(0).bytes.size(), 9);
        QVERIFY(!chunks.at(0).bytes.contains('\xFF'));
        for (char c : chunks.at(0).bytes)
            seen.insert(c);
        QCOMPARE(chunks.at(1).bytes, frame);
    }
    QVERIFY(seen.size() > 100); // really random bytes, not a constant filler
}

void TestRadarSimulator::faultChecksum_data()
{
    QTest::addColumn<double>("probability");
    QTest::addColumn<int>("minBad");
    QTest::addColumn<int>("maxBad");

    QTest::newRow("never") << 0.0 << 0 << 0;
    QTest::newRow("always") << 1.0 << 2000 << 2000;
    QTest::newRow("half") << 0.5 << 850 << 1150;
    QTest::newRow("a tenth") << 0.1 << 130 << 270;
}

void TestRadarSimulator::faultChecksum()
{
    QFETCH(double, probability);
    QFETCH(int, minBad);
    QFETCH(int, maxBad);

    FaultInjector::Settings s;
    s.badChecksum = probability;
    FaultInjector f(s, 1234);
    RadarSimulator sim;
    int bad = 0;
    for (int n = 0; n < 2000; ++n) {
        const QByteArray frame = sim.targetReport({{0.1 * (n % 30), 2.0}});
        const QList<FaultInjector::Chunk> chunks = f.prepare(frame);
        QCOMPARE(chunks.size(), 1);
        const QByteArray &out = chunks.first().bytes;
        QCOMPARE(out.size(), frame.size());
        if (!frameformat::checksumMatches(out)) {
            ++bad;
            // Only the sum byte differs.
            QCOMPARE(out.left(out.size() - 4), frame.left(frame.size() - 4));
            QCOMPARE(out.right(3), frame.right(3));
        } else {
            QCOMPARE(out, frame);
        }
    }
    QVERIFY2(bad >= minBad && bad <= maxBad, qPrintable(QString("%1 bad frames").arg(bad)));
    QCOMPARE(f.corruptedFrames(), bad);
}

// ---------------------------------------------------------------------------
// Replay files

void TestRadarSimulator::replayParsing()
{
    const QByteArray text =
        "[2026-11-16 04:00:05.123] serial port:/dev/pts/3,Buadrate\xEF\xBC\x9A"
        "115200, result:OK\r\n"
        "[2026-11-16 04:00:05.223] SendData:FF EE DD 00 01 06 06 DD EE FF \r\n"
        "[2026-11-16 04:00:05.300] RecvData:FF EE DD 00 02 0A 01 0B DD EE FF \r\n"
        "[2026-11-16 04:00:05.301] start parse one frame.\r\n"
        "[2026-11-16 04:00:05.650] RecvData:ff ee dd 00 03 \r\n"
        "[2026-11-16 04:00:05.660] Last part data:FF EE DD 00 03 \r\n"
        "[2026-11-16 04:00:05.700] RecvData:05 01 01 07 DD EE FF \n"
        "[2026-11-16 04:00:06.700] RecvData:ZZ 01 \n"
        "[2026-11-16 04:00:07.000] RecvData:\n"
        "\n"
        "[2026-11-16 04:00:09.400] RecvData:01 02 03 ";
    ReplayLog log;
    QString error;
    QVERIFY2(log.parse(text, &error), qPrintable(error));
    QCOMPARE(log.entries().size(), 4);
    QCOMPARE(log.entries().at(0).offsetMs, 0);
    QCOMPARE(log.entries().at(0).bytes, hex("FF EE DD 00 02 0A 01 0B DD EE FF"));
    QCOMPARE(log.entries().at(1).offsetMs, 350);
    QCOMPARE(log.entries().at(1).bytes, hex("FF EE DD 00 03"));
    QCOMPARE(log.entries().at(2).offsetMs, 400);
    QCOMPARE(log.entries().at(2).bytes, hex("05 01 01 07 DD EE FF"));
    QCOMPARE(log.entries().at(3).offsetMs, 4100);
    QCOMPARE(log.entries().at(3).bytes, hex("01 02 03"));
    QCOMPARE(log.skippedLines(), 2);
    QCOMPARE(log.durationMs(), 4100);

    // Across midnight, and a clock set back: time keeps running forward.
    ReplayLog night;
    QVERIFY(night.parse("[2026-11-16 23:59:59.900] RecvData:01 \n"
                        "[2026-11-17 00:00:00.150] RecvData:02 \n"
                        "[2026-11-17 00:00:00.050] RecvData:03 \n",
                        &error));
    QCOMPARE(night.entries().size(), 3);
    QCOMPARE(night.entries().at(1).offsetMs, 250);
    QCOMPARE(night.entries().at(2).offsetMs, 250);
}

void TestRadarSimulator::replayLineForms_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("logger form") << QByteArray("[2026-01-02 03:04:05.006] RecvData:0A 1E ") << true
                                 << hex("0A 1E");
    QTest::newRow("crlf") << QByteArray("[2026-01-02 03:04:05.006] RecvData:0A \r\n") << true
                          << hex("0A");
    QTest::newRow("no trailing blank")
        << QByteArray("[2026-01-02 03:04:05.006] RecvData:0A 1E") << true << hex("0A 1E");
    QTest::newRow("lower case") << QByteArray("[2026-01-02 03:04:05.006] RecvData:ab cd") << true
                                << hex("AB CD");
    QTest::newRow("other message")
        << QByteArray("[2026-01-02 03:04:05.006] SendData:0A ") << false << QByteArray();
    QTest::newRow("no bytes") << QByteArray("[2026-01-02 03:04:05.006] RecvData:") << false
                              << QByteArray();
    QTest::newRow("odd digit") << QByteArray("[2026-01-02 03:04:05.006] RecvData:0A 1") << false
                               << QByteArray();
    QTest::newRow("bad month") << QByteArray("[2026-13-02 03:04:05.006] RecvData:0A") << false
                               << QByteArray();
    QTest::newRow("no stamp") << QByteArray("RecvData:0A 1E") << false << QByteArray();
    QTest::newRow("two-digit ms") << QByteArray("[2026-01-02 03:04:05.06] RecvData:0A") << false
                                  << QByteArray();
}

void TestRadarSimulator::replayLineForms()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, ok);
    QFETCH(QByteArray, bytes);

    QDateTime stamp;
    QByteArray got;
    QCOMPARE(ReplayLog::parseLine(line, &stamp, &got), ok);
    if (ok) {
        QCOMPARE(got, bytes);
        QCOMPARE(stamp, QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 6), Qt::UTC));
    }
}

void TestRadarSimulator::replayFileErrors()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    ReplayLog log;
    QString error;
    QVERIFY(!log.load(dir.filePath("missing.txt"), &error));
    QVERIFY(error.contains("missing.txt"));

    QFile empty(dir.filePath("empty.txt"));
    QVERIFY(empty.open(QIODevice::WriteOnly));
    empty.write("[2026-01-02 03:04:05.006] SendData:0A \n");
    empty.close();
    QVERIFY(!log.load(empty.fileName(), &error));
    QVERIFY(error.contains("RecvData"));

    QFile good(dir.filePath("good.txt"));
    QVERIFY(good.open(QIODevice::WriteOnly));
    good.write("[2026-01-02 03:04:05.006] RecvData:0A \n");
    good.close();
    QVERIFY(log.load(good.fileName(), &error));
    QCOMPARE(log.entries().size(), 1);
}

// ---------------------------------------------------------------------------
// Command line

void TestRadarSimulator::options_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("errorPart"); // for failures
    QTest::addColumn<QString>("check");     // for successes: "field=value"

    QTest::newRow("defaults") << QStringList{} << true << QString() << "defaults";
    QTest::newRow("port and baud") << QStringList{"--port", "/dev/ttyUSB0", "--baud", "115200"}
                                   << true << QString() << "port=/dev/ttyUSB0;baud=115200";
    QTest::newRow("inline values")
        << QStringList{"--rate=100", "--targets=16"} << true << QString() << "rate=100;targets=16";
    QTest::newRow("fixed points") << QStringList{"--fixed", "1.5,3", "--fixed=-2,4.5"} << true
                                  << QString() << "fixed;count=2";
    QTest::newRow("fixed with matching targets")
        << QStringList{"--targets", "1", "--fixed", "0,2"} << true << QString() << "count=1";
    QTest::newRow("faults") << QStringList{"--noise", "8",         "--bad-checksum",     "0.25",
                                           "--split", "--baud-ng", "--disconnect-after", "2.5"}
                            << true << QString() << "noise=8;bad=0.25;split;baudng;disc=2.5";
    QTest::newRow("seed and verbose") << QStringList{"--seed", "4294967295", "--verbose"} << true
                                      << QString() << "seed=4294967295;verbose";
    QTest::newRow("any baud") << QStringList{"--any-baud", "--baud", "256000"} << true << QString()
                              << "anybaud;baud=256000";
    QTest::newRow("any baud with a value")
        << QStringList{"--any-baud=1"} << false << "takes no value" << QString();
    QTest::newRow("gap") << QStringList{"--gap", "0"} << true << QString() << "gap=0";
    QTest::newRow("settle") << QStringList{"--settle", "0"} << true << QString() << "settle=0";
    QTest::newRow("replay") << QStringList{"--replay", "x.txt", "--verbose"} << true << QString()
                            << "replay=x.txt";
    QTest::newRow("help") << QStringList{"--help"} << true << QString() << "help";
    QTest::newRow("-h") << QStringList{"-h"} << true << QString() << "help";
    QTest::newRow("rate zero") << QStringList{"--rate", "0"} << true << QString() << "rate=0";
    QTest::newRow("128 targets") << QStringList{"--targets", "128"} << true << QString()
                                 << "targets=128";
    QTest::newRow("areas") << QStringList{"--area", "1,0,-3.5,6.5,-0.5,3.5", "--area=3,1,1,5,4,2"}
                           << true << QString() << "areas";
    QTest::newRow("area at the limits")
        << QStringList{"--area", " 2 , 1 ,-12.8,12.7,12.7,-12.8"} << true << QString() << "limits";

    QTest::newRow("unknown option")
        << QStringList{"--bogus"} << false << "unknown option --bogus" << QString();
    QTest::newRow("stray argument")
        << QStringList{"foo"} << false << "unexpected argument" << QString();
    QTest::newRow("missing value")
        << QStringList{"--rate"} << false << "--rate needs a value" << QString();
    QTest::newRow("flag with value")
        << QStringList{"--split=1"} << false << "takes no value" << QString();
    QTest::newRow("rate negative") << QStringList{"--rate", "-1"} << false << "--rate" << QString();
    QTest::newRow("rate text") << QStringList{"--rate", "fast"} << false << "--rate" << QString();
    QTest::newRow("rate too high")
        << QStringList{"--rate", "1001"} << false << "--rate" << QString();
    QTest::newRow("129 targets") << QStringList{"--targets", "129"} << false << "--targets"
                                 << QString();
    QTest::newRow("negative targets")
        << QStringList{"--targets", "-1"} << false << "--targets" << QString();
    QTest::newRow("baud zero") << QStringList{"--baud", "0"} << false << "--baud" << QString();
    QTest::newRow("baud beyond 24 bits")
        << QStringList{"--baud", "16777216"} << false << "--baud" << QString();
    QTest::newRow("fixed one number")
        << QStringList{"--fixed", "1.5"} << false << "--fixed" << QString();
    QTest::newRow("fixed out of range")
        << QStringList{"--fixed", "13,1"} << false << "--fixed" << QString();
    QTest::newRow("fixed and targets differ") << QStringList{"--targets", "3", "--fixed", "0,2"}
                                              << false << "does not match" << QString();
    QTest::newRow("probability above 1")
        << QStringList{"--bad-checksum", "1.5"} << false << "--bad-checksum" << QString();
    QTest::newRow("noise negative")
        << QStringList{"--noise", "-3"} << false << "--noise" << QString();
    QTest::newRow("disconnect zero")
        << QStringList{"--disconnect-after", "0"} << false << "--disconnect-after" << QString();
    QTest::newRow("settle too long")
        << QStringList{"--settle", "10001"} << false << "--settle" << QString();
    QTest::newRow("seed negative") << QStringList{"--seed", "-1"} << false << "--seed" << QString();
    QTest::newRow("empty port") << QStringList{"--port", ""} << false << "--port" << QString();
    QTest::newRow("area number 0")
        << QStringList{"--area", "0,0,-1,2,1,1"} << false << "--area" << QString();
    QTest::newRow("area number 4")
        << QStringList{"--area", "4,0,-1,2,1,1"} << false << "--area" << QString();
    QTest::newRow("area type 2") << QStringList{"--area", "1,2,-1,2,1,1"} << false << "--area"
                                 << QString();
    QTest::newRow("area five numbers")
        << QStringList{"--area", "1,0,-1,2,1"} << false << "--area" << QString();
    QTest::newRow("area seven numbers")
        << QStringList{"--area", "1,0,-1,2,1,1,3"} << false << "--area" << QString();
    QTest::newRow("area text corner")
        << QStringList{"--area", "1,0,left,2,1,1"} << false << "--area" << QString();
    QTest::newRow("area corner out of range")
        << QStringList{"--area", "1,0,-1,13,1,1"} << false << "--area" << QString();
    QTest::newRow("area x reversed")
        << QStringList{"--area", "1,0,1,2,-1,1"} << false << "upper-left" << QString();
    QTest::newRow("area y reversed")
        << QStringList{"--area", "1,0,-1,1,1,2"} << false << "upper-left" << QString();
    QTest::newRow("area flat") << QStringList{"--area", "1,0,-1,2,1,2"} << false << "upper-left"
                               << QString();
    QTest::newRow("area missing value")
        << QStringList{"--area"} << false << "--area needs a value" << QString();
    QTest::newRow("replay with targets")
        << QStringList{"--replay", "x.txt", "--targets", "2"} << false
        << "cannot be combined with --targets" << QString();
    QTest::newRow("replay with split") << QStringList{"--split", "--replay", "x.txt"} << false
                                       << "cannot be combined with --split" << QString();
}

void TestRadarSimulator::options()
{
    QFETCH(QStringList, args);
    QFETCH(bool, ok);
    QFETCH(QString, errorPart);
    QFETCH(QString, check);

    SimOptions o;
    o.targets = -99; // must be replaced on success, untouched on failure
    QString error;
    QCOMPARE(SimOptions::parse(args, &o, &error), ok);
    if (!ok) {
        QVERIFY2(error.contains(errorPart), qPrintable(error));
        QCOMPARE(o.targets, -99);
        return;
    }
    QVERIFY(error.isEmpty());
    if (check == "defaults") {
        QVERIFY(o.port.isEmpty());
        QCOMPARE(o.baud, 9600);
        QCOMPARE(o.rate, 10.0);
        QCOMPARE(o.targets, 3);
        QCOMPARE(o.targetCount(), 3);
        QVERIFY(!o.seedGiven && !o.split && !o.baudNg && !o.anyBaud && !o.verbose && !o.help);
        QCOMPARE(o.noise, 0);
        QCOMPARE(o.badChecksum, 0.0);
        QVERIFY(o.disconnectAfter < 0);
        QCOMPARE(o.gapMs, 5);
        QCOMPARE(o.settleMs, 200);
        return;
    }
    for (const QString &item : check.split(';')) {
        const QString key = item.section('=', 0, 0);
        const QString value = item.section('=', 1);
        if (key == "port")
            QCOMPARE(o.port, value);
        else if (key == "baud")
            QCOMPARE(o.baud, value.toInt());
        else if (key == "rate")
            QCOMPARE(o.rate, value.toDouble());
        else if (key == "targets")
            QCOMPARE(o.targets, value.toInt());
        else if (key == "count")
            QCOMPARE(o.targetCount(), value.toInt());
        else if (key == "fixed")
            QCOMPARE(o.fixed, (QVector<QPointF>{{1.5, 3.0}, {-2.0, 4.5}}));
        else if (key == "noise")
            QCOMPARE(o.noise, value.toInt());
        else if (key == "bad")
            QCOMPARE(o.badChecksum, value.toDouble());
        else if (key == "split")
            QVERIFY(o.split);
        else if (key == "baudng")
            QVERIFY(o.baudNg);
        else if (key == "anybaud")
            QVERIFY(o.anyBaud);
        else if (key == "disc")
            QCOMPARE(o.disconnectAfter, value.toDouble());
        else if (key == "seed")
            QVERIFY(o.seedGiven && o.seed == value.toUInt());
        else if (key == "verbose")
            QVERIFY(o.verbose);
        else if (key == "gap")
            QCOMPARE(o.gapMs, value.toInt());
        else if (key == "settle")
            QCOMPARE(o.settleMs, value.toInt());
        else if (key == "replay")
            QCOMPARE(o.replayFile, value);
        else if (key == "areas") {
            QCOMPARE(o.areas.size(), 2);
            QCOMPARE(o.areas.at(0).number, 1);
            QCOMPARE(o.areas.at(0).type, 0);
            QCOMPARE(o.areas.at(0).rect, QRectF(QPointF(-3.5, 6.5), QPointF(-0.5, 3.5)));
            QCOMPARE(o.areas.at(1).number, 3);
            QCOMPARE(o.areas.at(1).type, 1);
            QCOMPARE(o.areas.at(1).rect, QRectF(QPointF(1.0, 5.0), QPointF(4.0, 2.0)));
        } else if (key == "limits") {
            QCOMPARE(o.areas.size(), 1);
            QCOMPARE(o.areas.at(0).number, 2);
            QCOMPARE(o.areas.at(0).type, 1);
            QCOMPARE(o.areas.at(0).rect, QRectF(QPointF(-12.8, 12.7), QPointF(12.7, -12.8)));
        } else if (key == "help")
            QVERIFY(o.help);
        else
            QFAIL(qPrintable("unknown check " + key));
    }
    QVERIFY(!SimOptions::usage().isEmpty());
}

QTEST_GUILESS_MAIN(TestRadarSimulator)
#include "tst_radarsimulator.moc"
