// Frame building, checking and decoding on byte arrays.

#include "radar/frameformat.h"

#include <QtTest>

#include <cmath>
#include <limits>

using namespace frameformat;

namespace
{

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text)); // spaces are skipped
}

// The module's 40-byte read-area response: area 1 type 0 (-1.5,3)-(1.5,1),
// area 2 not defined (type 2), area 3 type 1 (-3,8)-(3,0).
const char kReadAreaFrame[] =
    "FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 02 00 00 00 00 00 "
    "00 00 00 03 01 E2 50 E2 00 1E 00 1E 50 FF DD EE FF";

} // namespace

class TestFrameFormat : public QObject
{
    Q_OBJECT

private slots:
    void buildFrame_data();
    void buildFrame();
    void emptyPayloadChecksumIsCode_data();
    void emptyPayloadChecksumIsCode();

    void encodeCoordinate_data();
    void encodeCoordinate();
    void decodeCoordinate_data();
    void decodeCoordinate();

    void setAreaPayload_data();
    void setAreaPayload();
    void baudRatePayload_data();
    void baudRatePayload();

    void hexDump_data();
    void hexDump();
    void byteAccessOutsideTheData();
    void headerAndDeclaredSize_data();
    void headerAndDeclaredSize();

    void checksum_data();
    void checksum();

    void decodeResult_data();
    void decodeResult();
    void decodeSetAreaResponse_data();
    void decodeSetAreaResponse();
    void decodeRepealAreaResponse_data();
    void decodeRepealAreaResponse();
    void decodeReadAreaResponse();
    void decodeReadAreaResponseExtremes();
    void decodeReadAreaResponseShortFrame();
    void decodeShowType_data();
    void decodeShowType();
    void decodeTargets_data();
    void decodeTargets();
    void decodeTargetsIntoExistingList_data();
    void decodeTargetsIntoExistingList();
    void decodeAreaFlags_data();
    void decodeAreaFlags();
};

// Every example frame of the protocol, rebuilt from its code and payload.
void TestFrameFormat::buildFrame_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("read areas") << 6 << QByteArray() << hex("FF EE DD 00 01 06 06 DD EE FF");
    QTest::newRow("cancel all areas") << 10 << QByteArray() << hex("FF EE DD 00 01 0A 0A DD EE FF");
    QTest::newRow("read show type") << 3 << QByteArray() << hex("FF EE DD 00 01 03 03 DD EE FF");
    QTest::newRow("set baud rate 115200")
        << 1 << hex("01 C2 00") << hex("FF EE DD 00 04 01 01 C2 00 C4 DD EE FF");
    QTest::newRow("set show type 2") << 2 << hex("02") << hex("FF EE DD 00 02 02 02 04 DD EE FF");
    QTest::newRow("repeal area index 0")
        << 5 << hex("01") << hex("FF EE DD 00 02 05 01 06 DD EE FF");
    QTest::newRow("set area index 0 type 0")
        << 4 << hex("01 F1 1E F1 0A 0F 0A 0F 1E 00")
        << hex("FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF");
    QTest::newRow("target report")
        << 7 << hex("0A 1E F6 14") << hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF");
    QTest::newRow("baud-rate response OK")
        << 1 << hex("01") << hex("FF EE DD 00 02 01 01 02 DD EE FF");
    // Sum wraps around in 8 bits, no complement.
    QTest::newRow("sum wraps") << 0xF0 << hex("20 30")
                               << hex("FF EE DD 00 03 F0 20 30 40 DD EE FF");
    // A payload of 255 bytes gives a length of 256: high byte 01, low 00.
    QTest::newRow("long payload") << 1 << QByteArray(255, '\0')
                                  << hex("FF EE DD 01 00 01") + QByteArray(255, '\0') +
                                         hex("01 DD EE FF");
}

void TestFrameFormat::buildFrame()
{
    QFETCH(int, code);
    QFETCH(QByteArray, payload);
    QFETCH(QByteArray, expected);
    const QByteArray frame = frameformat::buildFrame(quint8(code), payload);
    QCOMPARE(frame.toHex(' ').toUpper(), expected.toHex(' ').toUpper());
    QCOMPARE(frame.size(), payload.size() + 10);
    QVERIFY(checksumMatches(frame));
}

void TestFrameFormat::emptyPayloadChecksumIsCode_data()
{
    QTest::addColumn<int>("code");
    for (int code : {0, 1, 3, 6, 9, 10, 0x7F, 0x80, 0xFF})
        QTest::newRow(qPrintable(QString("code %1").arg(code))) << code;
}

void TestFrameFormat::emptyPayloadChecksumIsCode()
{
    QFETCH(int, code);
    const QByteArray frame = frameformat::buildFrame(quint8(code), QByteArray());
    QCOMPARE(frame.size(), 10);
    QCOMPARE(int(quint8(frame[6])), code);
    QCOMPARE(int(quint8(frame[5])), code);
    QCOMPARE(frame.left(5), hex("FF EE DD 00 01"));
    QCOMPARE(frame.right(3), hex("DD EE FF"));
}

void TestFrameFormat::encodeCoordinate_data()
{
    QTest::addColumn<double>("metres");
    QTest::addColumn<int>("expected");

    QTest::newRow("zero") << 0.0 << 0;
    QTest::newRow("1.5") << 1.5 << 15;
    QTest::newRow("-1.5") << -1.5 << -15;
    QTest::newRow("3.0") << 3.0 << 30;
    QTest::newRow("0.29 truncates") << 0.29 << 2;
    QTest::newRow("-0.29 truncates toward zero") << -0.29 << -2;
    QTest::newRow("0.7 (7.000000000000001)") << 0.7 << 7;
    QTest::newRow("-8.0 + 4.9 = -3.0999... gives -30") << (-8.0 + 4.9) << -30;
    QTest::newRow("-3.1 itself") << -3.1 << -31;
    QTest::newRow("12.7 top of range") << 12.7 << 127;
    QTest::newRow("-12.8 bottom of range") << -12.8 << -128;
    QTest::newRow("12.8 wraps to -128") << 12.8 << -128;
    QTest::newRow("13.0 keeps the low 8 bits") << 13.0 << -126;
    QTest::newRow("25.6 wraps to 0") << 25.6 << 0;
    QTest::newRow("-13.0 keeps the low 8 bits") << -13.0 << 126;
    QTest::newRow("huge value stays defined") << 1e300 << 0;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << 0;
    QTest::newRow("infinity") << std::numeric_limits<double>::infinity() << 0;
}

void TestFrameFormat::encodeCoordinate()
{
    QFETCH(double, metres);
    QFETCH(int, expected);
    QCOMPARE(int(frameformat::encodeCoordinate(metres)), expected);
}

void TestFrameFormat::decodeCoordinate_data()
{
    QTest::addColumn<int>("decimetres");
    QTest::addColumn<double>("expected");
    QTest::newRow("0") << 0 << 0.0;
    QTest::newRow("10") << 10 << 1.0;
    QTest::newRow("30") << 30 << 3.0;
    QTest::newRow("-10") << -10 << -1.0;
    QTest::newRow("-15") << -15 << -1.5;
    QTest::newRow("127") << 127 << 12.7;
    QTest::newRow("-128") << -128 << -12.8;
}

void TestFrameFormat::decodeCoordinate()
{
    QFETCH(int, decimetres);
    QFETCH(double, expected);
    const double got = frameformat::decodeCoordinate(qint8(decimetres));
    QVERIFY2(std::fabs(got - expected) < 1e-12, qPrintable(QString::number(got, 'g', 17)));
}

void TestFrameFormat::setAreaPayload_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("type");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("example: corners (-1.5,3) and (1.5,1)")
        << 0 << 0 << QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0))
        << hex("01 F1 1E F1 0A 0F 0A 0F 1E 00");
    // Positive height: the lower edge is mirrored below the first corner,
    // y - h, never y + h.
    QTest::newRow("positive height sends y - h")
        << 0 << 0 << QRectF(-1.5, 1.0, 3.0, 2.0) << hex("01 F1 0A F1 F6 0F F6 0F 0A 00");
    // x = -8.0, x + w = -3.1 in doubles is -3.0999..., sent as -30.
    QTest::newRow("x + w truncated: -8.0 + 4.9 gives -30")
        << 1 << 1 << QRectF(QPointF(-8.0, 8.0), QPointF(-3.1, 4.0))
        << hex("02 B0 50 B0 28 E2 28 E2 50 01");
    // Negative width is kept as it is (only the height is made absolute).
    QTest::newRow("negative width not made absolute")
        << 2 << 1 << QRectF(1.0, 5.0, -2.0, -1.0) << hex("03 0A 32 0A 28 F6 28 F6 32 01");
    QTest::newRow("index and type keep the low 8 bits")
        << 255 << 7 << QRectF(QPointF(0, 0), QPointF(0, 0)) << hex("00 00 00 00 00 00 00 00 00 07");
}

void TestFrameFormat::setAreaPayload()
{
    QFETCH(int, index);
    QFETCH(int, type);
    QFETCH(QRectF, rect);
    QFETCH(QByteArray, expected);
    const QByteArray payload = frameformat::setAreaPayload(quint8(index), quint8(type), rect);
    QCOMPARE(payload.toHex(' ').toUpper(), expected.toHex(' ').toUpper());
}

void TestFrameFormat::baudRatePayload_data()
{
    QTest::addColumn<int>("baud");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("115200") << 115200 << hex("01 C2 00");
    QTest::newRow("921600") << 921600 << hex("0E 10 00");
    QTest::newRow("4800") << 4800 << hex("00 12 C0");
    QTest::newRow("9600") << 9600 << hex("00 25 80");
    QTest::newRow("256000") << 256000 << hex("03 E8 00");
}

void TestFrameFormat::baudRatePayload()
{
    QFETCH(int, baud);
    QFETCH(QByteArray, expected);
    QCOMPARE(frameformat::baudRatePayload(baud).toHex(' ').toUpper(),
             expected.toHex(' ').toUpper());
}

void TestFrameFormat::hexDump_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("one byte") << hex("0a") << QString("0A ");
    QTest::newRow("frame") << hex("FF EE DD 00 01 06 06 DD EE FF")
                           << QString("FF EE DD 00 01 06 06 DD EE FF ");
    QTest::newRow("all nibbles") << hex("01 23 45 67 89 ab cd ef")
                                 << QString("01 23 45 67 89 AB CD EF ");
}

void TestFrameFormat::hexDump()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(frameformat::hexDump(bytes), expected);
    QCOMPARE(QString::fromLatin1(hexDumpLatin1(bytes)), expected);
}

void TestFrameFormat::byteAccessOutsideTheData()
{
    const QByteArray data = hex("80 7F FF");
    QCOMPARE(int(byteAt(data, 0)), 0x80);
    QCOMPARE(int(signedByteAt(data, 0)), -128);
    QCOMPARE(int(signedByteAt(data, 1)), 127);
    QCOMPARE(int(signedByteAt(data, 2)), -1);
    QCOMPARE(int(byteAt(data, 3)), 0);
    QCOMPARE(int(byteAt(data, -1)), 0);
    QCOMPARE(int(signedByteAt(data, 1000)), 0);
    QCOMPARE(int(byteAt(QByteArray(), 0)), 0);
}

void TestFrameFormat::headerAndDeclaredSize_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("offset");
    QTest::addColumn<bool>("header");
    QTest::addColumn<int>("declared");

    QTest::newRow("read areas frame") << hex("FF EE DD 00 01 06 06 DD EE FF") << 0 << true << 10;
    QTest::newRow("header later") << hex("00 FF EE DD 00 02 01") << 1 << true << 11;
    QTest::newRow("not at offset 0") << hex("00 FF EE DD 00 02 01") << 0 << false << -8951;
    QTest::newRow("header cut at the end") << hex("00 FF EE") << 1 << false << 9;
    QTest::newRow("only the header") << hex("FF EE DD") << 0 << true << 9;
    QTest::newRow("low byte 0x80 reads -128") << hex("FF EE DD 00 80") << 0 << true << -119;
    QTest::newRow("high byte 0x01") << hex("FF EE DD 01 00") << 0 << true << 265;
    QTest::newRow("high byte 0xFF reads -1") << hex("FF EE DD FF 10") << 0 << true << -231;
    QTest::newRow("largest") << hex("FF EE DD 7F 7F") << 0 << true << 32648;
    QTest::newRow("offset past the end") << hex("FF EE DD") << 5 << false << 9;
}

void TestFrameFormat::headerAndDeclaredSize()
{
    QFETCH(QByteArray, data);
    QFETCH(int, offset);
    QFETCH(bool, header);
    QFETCH(int, declared);
    QCOMPARE(hasHeaderAt(data, offset), header);
    QCOMPARE(declaredFrameSize(data, offset), declared);
}

void TestFrameFormat::checksum_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("sum");
    QTest::addColumn<bool>("matches");

    QTest::newRow("baud-rate response OK")
        << hex("FF EE DD 00 02 01 01 02 DD EE FF") << 2 << 0x02 << true;
    QTest::newRow("target report")
        << hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF") << 5 << 0x39 << true;
    QTest::newRow("set area request")
        << hex("FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF") << 11 << 0x55 << true;
    QTest::newRow("wrong sum byte")
        << hex("FF EE DD 00 02 01 01 03 DD EE FF") << 2 << 0x02 << false;
    QTest::newRow("payload byte flipped")
        << hex("FF EE DD 00 05 07 0A 1F F6 14 39 DD EE FF") << 5 << 0x3A << false;
    // Header, length and tail are not part of the sum; the tail is not checked.
    QTest::newRow("tail not checked")
        << hex("FF EE DD 00 02 01 01 02 00 00 00") << 2 << 0x02 << true;
    QTest::newRow("zero length: no bytes summed")
        << hex("FF EE DD 00 00 00 00 00") << 0 << 0 << true;
    QTest::newRow("negative length: no bytes summed, byte before 5 compared")
        << hex("FF EE DD 00 FF 07 01") << -1 << 0 << false;
    QTest::newRow("length low byte 0x80")
        << hex("FF EE DD 00 80 07 01 08 DD EE FF") << -128 << 0 << true;
    // Length 256 on a short frame: bytes past the end read 0, so is the sum byte.
    QTest::newRow("declared past the end")
        << hex("FF EE DD 01 00 05 01 02") << 256 << 0x08 << false;
    QTest::newRow("declared past the end, sum 0")
        << hex("FF EE DD 01 00 05 FB") << 256 << 0x00 << true;
    QTest::newRow("empty data") << QByteArray() << 0 << 0 << true;
}

void TestFrameFormat::checksum()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, length);
    QFETCH(int, sum);
    QFETCH(bool, matches);
    QCOMPARE(signedLength(frame), length);
    QCOMPARE(int(computeChecksum(frame)), sum);
    QCOMPARE(checksumMatches(frame), matches);
}

void TestFrameFormat::decodeResult_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<bool>("ok");
    QTest::newRow("baud-rate response OK") << hex("FF EE DD 00 02 01 01 02 DD EE FF") << true;
    QTest::newRow("result 2 is a failure") << hex("FF EE DD 00 02 01 02 03 DD EE FF") << false;
    QTest::newRow("result 0 is a failure") << hex("FF EE DD 00 02 01 00 01 DD EE FF") << false;
    QTest::newRow("result 0xFF is a failure") << hex("FF EE DD 00 02 0A FF 09 DD EE FF") << false;
    QTest::newRow("missing result byte reads 0") << hex("FF EE DD 00 01 01") << false;
}

void TestFrameFormat::decodeResult()
{
    QFETCH(QByteArray, frame);
    QFETCH(bool, ok);
    QCOMPARE(frameformat::decodeResult(frame), ok);
}

void TestFrameFormat::decodeSetAreaResponse_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("ok");
    QTest::newRow("area 1 type 0 ok")
        << hex("FF EE DD 00 04 04 01 00 01 06 DD EE FF") << 1 << 0 << true;
    QTest::newRow("area 3 type 1 result 2")
        << hex("FF EE DD 00 04 04 03 01 02 0A DD EE FF") << 3 << 1 << false;
    QTest::newRow("area 0") << hex("FF EE DD 00 04 04 00 01 01 06 DD EE FF") << 0 << 1 << true;
    QTest::newRow("signed bytes") << hex("FF EE DD 00 04 04 FF 80 01 84 DD EE FF") << -1 << -128
                                  << true;
    QTest::newRow("short frame reads 0") << hex("FF EE DD 00 04 04 02") << 2 << 0 << false;
}

void TestFrameFormat::decodeSetAreaResponse()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, number);
    QFETCH(int, type);
    QFETCH(bool, ok);
    const SetAreaResponse r = frameformat::decodeSetAreaResponse(frame);
    QCOMPARE(r.number, number);
    QCOMPARE(r.type, type);
    QCOMPARE(r.ok, ok);
}

void TestFrameFormat::decodeRepealAreaResponse_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("ok");
    QTest::newRow("area 2 ok") << hex("FF EE DD 00 03 05 02 01 08 DD EE FF") << 2 << true;
    QTest::newRow("area 1 result 2") << hex("FF EE DD 00 03 05 01 02 08 DD EE FF") << 1 << false;
    QTest::newRow("short frame") << hex("FF EE DD 00 03 05") << 0 << false;
}

void TestFrameFormat::decodeRepealAreaResponse()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, number);
    QFETCH(bool, ok);
    const RepealAreaResponse r = frameformat::decodeRepealAreaResponse(frame);
    QCOMPARE(r.number, number);
    QCOMPARE(r.ok, ok);
}

static void compareRect(const QRectF &got, QPointF first, QPointF opposite)
{
    // Not normalised: first corner is the top-left as given.
    QVERIFY2(std::fabs(got.left() - first.x()) < 1e-9 && std::fabs(got.top() - first.y()) < 1e-9,
             qPrintable(QString("first corner (%1,%2)").arg(got.left()).arg(got.top())));
    QVERIFY2(std::fabs(got.left() + got.width() - opposite.x()) < 1e-9 &&
                 std::fabs(got.top() + got.height() - opposite.y()) < 1e-9,
             qPrintable(QString("opposite corner (%1,%2)")
                            .arg(got.left() + got.width())
                            .arg(got.top() + got.height())));
}

void TestFrameFormat::decodeReadAreaResponse()
{
    const QByteArray frame = hex(kReadAreaFrame);
    QCOMPARE(frame.size(), kReadAreaFrameSize);
    QVERIFY(checksumMatches(frame));
    const std::array<AreaReport, 3> areas = frameformat::decodeReadAreaResponse(frame);
    QCOMPARE(areas[0].type, 0);
    compareRect(areas[0].rect, QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    QVERIFY(areas[0].rect.height() < 0);
    QCOMPARE(areas[1].type, 2);
    compareRect(areas[1].rect, QPointF(0, 0), QPointF(0, 0));
    QCOMPARE(areas[2].type, 1);
    compareRect(areas[2].rect, QPointF(-3.0, 8.0), QPointF(3.0, 0.0));
}

void TestFrameFormat::decodeReadAreaResponseExtremes()
{
    // Type read unsigned (0xFF = 255), corners at the ends of the range.
    const QByteArray frame =
        hex("FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 02 00 00 00 00 "
            "00 00 00 00 03 FF 7F 80 00 00 80 7F 00 00 5B DD EE FF");
    QVERIFY(checksumMatches(frame));
    const std::array<AreaReport, 3> areas = frameformat::decodeReadAreaResponse(frame);
    QCOMPARE(areas[2].type, 255);
    compareRect(areas[2].rect, QPointF(12.7, -12.8), QPointF(-12.8, 12.7));
}

void TestFrameFormat::decodeReadAreaResponseShortFrame()
{
    // Only the first record and part of the second are present; the rest reads 0.
    const QByteArray frame = hex("FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 05 14");
    const std::array<AreaReport, 3> areas = frameformat::decodeReadAreaResponse(frame);
    QCOMPARE(areas[0].type, 0);
    compareRect(areas[0].rect, QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    QCOMPARE(areas[1].type, 5);
    compareRect(areas[1].rect, QPointF(2.0, 0.0), QPointF(0.0, 0.0));
    QCOMPARE(areas[2].type, 0);
    compareRect(areas[2].rect, QPointF(0, 0), QPointF(0, 0));

    const std::array<AreaReport, 3> none = frameformat::decodeReadAreaResponse(QByteArray());
    for (const AreaReport &a : none) {
        QCOMPARE(a.type, 0);
        compareRect(a.rect, QPointF(0, 0), QPointF(0, 0));
    }
}

void TestFrameFormat::decodeShowType_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("type");
    QTest::newRow("2") << hex("FF EE DD 00 02 03 02 05 DD EE FF") << 2;
    QTest::newRow("3") << hex("FF EE DD 00 02 03 03 06 DD EE FF") << 3;
    QTest::newRow("signed 0xFE") << hex("FF EE DD 00 02 03 FE 01 DD EE FF") << -2;
    QTest::newRow("short") << hex("FF EE DD 00 02 03") << 0;
}

void TestFrameFormat::decodeShowType()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, type);
    QCOMPARE(frameformat::decodeShowType(frame), type);
}

void TestFrameFormat::decodeTargets_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QList<QPointF>>("targets");

    QTest::newRow("example (1,3) (-1,2)") << hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF")
                                          << QList<QPointF>{QPointF(1.0, 3.0), QPointF(-1.0, 2.0)};
    QTest::newRow("three targets")
        << hex("FF EE DD 00 07 07 1E 28 E2 0A 00 50 89 DD EE FF")
        << QList<QPointF>{QPointF(3.0, 4.0), QPointF(-3.0, 1.0), QPointF(0.0, 8.0)};
    QTest::newRow("no pairs") << hex("FF EE DD 00 01 07 07 DD EE FF") << QList<QPointF>{};
    QTest::newRow("(0,0) is a target")
        << hex("FF EE DD 00 03 07 00 00 07 DD EE FF") << QList<QPointF>{QPointF(0, 0)};
    // Odd payload: the last pair's y is the checksum byte (0x11 = 1.7 m).
    QTest::newRow("odd payload: y from the checksum")
        << hex("FF EE DD 00 02 07 0A 11 DD EE FF") << QList<QPointF>{QPointF(1.0, 1.7)};
    QTest::newRow("odd payload of three") << hex("FF EE DD 00 04 07 0A 14 F6 1B DD EE FF")
                                          << QList<QPointF>{QPointF(1.0, 2.0), QPointF(-1.0, 2.7)};
    QTest::newRow("shorter than an envelope") << hex("FF EE DD 00 01 07") << QList<QPointF>{};
    QTest::newRow("empty data") << QByteArray() << QList<QPointF>{};
}

void TestFrameFormat::decodeTargets()
{
    QFETCH(QByteArray, frame);
    QFETCH(QList<QPointF>, targets);
    const QList<QPointF> got = frameformat::decodeTargets(frame);
    QCOMPARE(got.size(), targets.size());
    for (int k = 0; k < got.size(); ++k) {
        QVERIFY2(std::fabs(got[k].x() - targets[k].x()) < 1e-9 &&
                     std::fabs(got[k].y() - targets[k].y()) < 1e-9,
                 qPrintable(QString("target %1: (%2,%3)").arg(k).arg(got[k].x()).arg(got[k].y())));
    }
}

// Into a list that held something before: longer, shorter, or shared with a
// copy that must keep its points.
void TestFrameFormat::decodeTargetsIntoExistingList_data()
{
    decodeTargets_data();
}

void TestFrameFormat::decodeTargetsIntoExistingList()
{
    QFETCH(QByteArray, frame);
    QFETCH(QList<QPointF>, targets);
    const QList<QPointF> before[] = {
        {},
        {QPointF(9, 9)},
        {QPointF(1, 1), QPointF(2, 2), QPointF(3, 3), QPointF(4, 4), QPointF(5, 5)}};
    for (const QList<QPointF> &previous : before) {
        QList<QPointF> list = previous;
        list.detach(); // held by nobody else
        frameformat::decodeTargetsInto(frame, list);
        QCOMPARE(list, frameformat::decodeTargets(frame));

        QList<QPointF> shared = previous;
        QList<QPointF> keptCopy = shared;
        frameformat::decodeTargetsInto(frame, shared);
        QCOMPARE(shared, frameformat::decodeTargets(frame));
        QCOMPARE(keptCopy, previous);
    }
    QCOMPARE(frameformat::decodeTargets(frame).size(), targets.size());
}

void TestFrameFormat::decodeAreaFlags_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("flags");
    QTest::newRow("areas 1 and 3") << hex("FF EE DD 00 04 08 01 00 01 0A DD EE FF") << 5;
    QTest::newRow("all three") << hex("FF EE DD 00 04 08 01 01 01 0B DD EE FF") << 7;
    QTest::newRow("only 1 counts, not 2") << hex("FF EE DD 00 04 08 02 01 00 0B DD EE FF") << 2;
    QTest::newRow("none") << hex("FF EE DD 00 04 08 00 00 00 08 DD EE FF") << 0;
    QTest::newRow("area 3 only") << hex("FF EE DD 00 04 08 00 00 01 09 DD EE FF") << 4;
    QTest::newRow("short frame") << hex("FF EE DD 00 04 08 01") << 1;
}

void TestFrameFormat::decodeAreaFlags()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, flags);
    QCOMPARE(int(frameformat::decodeAreaFlags(frame)), flags);
}

QTEST_GUILESS_MAIN(TestFrameFormat)
#include "tst_frameformat.moc"
