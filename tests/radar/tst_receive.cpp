// The receive scan (ReceiveBytes) and the frame decoder (ParseFrame) driven
// with byte arrays: signals, carry-over, debug output and log lines.

#include "linkrecorder.h"
#include "radar/frameformat.h"
#include "radar/radercommunicate.h"

#include <QSignalSpy>
#include <QtTest>

namespace
{

const char kBaudOk[] = "FF EE DD 00 02 01 01 02 DD EE FF";
const char kCancelOk[] = "FF EE DD 00 02 0A 01 0B DD EE FF";
const char kShowType2[] = "FF EE DD 00 02 03 02 05 DD EE FF";
const char kTargets[] = "FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF";
const char kReadArea[] = "FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 02 00 00 00 00 00 "
                         "00 00 00 03 01 E2 50 E2 00 1E 00 1E 50 FF DD EE FF";
const char kReadAreaSignals[] = "S:ReadAreaResp 0 0 (-1.5,3)-(1.5,1)|"
                                "S:ReadAreaResp 1 2 (0,0)-(0,0)|"
                                "S:ReadAreaResp 2 1 (-3,8)-(3,0)";

QByteArray noise(int n)
{
    QByteArray bytes;
    for (int k = 0; k < n; ++k)
        bytes.append(char(0x10 + k % 0x40)); // never FF EE DD
    return bytes;
}

QStringList split(const char *list)
{
    return QString::fromUtf8(list).split('|', Qt::SkipEmptyParts);
}

} // namespace

using Chunks = QList<QByteArray>;

// A receiver in the main window's style: a slot reached through SIGNAL/SLOT.
class TargetSink : public QObject
{
    Q_OBJECT
public slots:
    void on_TargetResp(QList<QPointF> listTarget)
    {
        received = listTarget;
        ++calls;
    }

public:
    QList<QPointF> received;
    int calls = 0;
};

class TestReceive : public QObject
{
    Q_OBJECT

private slots:
    void metaObjectInterface();
    void targetListTravelsQueued();
    void init();
    void cleanup();

    void scan_data();
    void scan();
    void frameSplitAtEveryPoint_data();
    void frameSplitAtEveryPoint();

    void dispatch_data();
    void dispatch();
    void dispatchArgumentsWithSpies();
    void parseFrameResult();

    void textsForOneFrame();
    void textsForCarryOver();
    void textsForSplitFrame();
    void textsForOverflow();
    void textsForBadChecksum();

    void carryOverSeenFromSlots();
    void nestedReadFromSlot();
    void keptTargetListsStayIntact();

private:
    RaderCommunicate *link = nullptr;
};

void TestReceive::metaObjectInterface()
{
    const QMetaObject &meta = RaderCommunicate::staticMetaObject;
    const QStringList expected = {"signal_SetAreaResp(int,int,bool)",
                                  "signal_ReadAreaResp(int,int,QRectF)",
                                  "signal_BaudrateResp(bool)",
                                  "signal_TargetResp(QList<QPointF>)",
                                  "signal_TargetAreaResp(char)",
                                  "signal_TargetShowTypeResp(int)",
                                  "signal_SetTargetShowTypeResp(bool)",
                                  "signal_CancelAllAreaResp(bool)",
                                  "signal_serial_disconnected()",
                                  "signal_serial_comm_error()",
                                  "ReadData()",
                                  "handleSerialError(QSerialPort::SerialPortError)"};
    QCOMPARE(meta.methodCount() - meta.methodOffset(), expected.size());
    for (int k = 0; k < expected.size(); ++k) {
        const QMetaMethod method = meta.method(meta.methodOffset() + k);
        QCOMPARE(QString::fromLatin1(method.methodSignature()), expected[k]);
        QCOMPARE(method.methodType(), k < 10 ? QMetaMethod::Signal : QMetaMethod::Slot);
        QCOMPARE(method.access(), QMetaMethod::Public);
    }
    QCOMPARE(meta.method(meta.methodOffset()).parameterNames(),
             (QList<QByteArray>{"nIndex", "nType", "bResult"}));
    QCOMPARE(meta.method(meta.methodOffset() + 3).parameterNames(),
             QList<QByteArray>{"listTarget"});
    QCOMPARE(meta.method(meta.methodOffset() + 4).parameterNames(), QList<QByteArray>{"AreaFlag"});
}

void TestReceive::targetListTravelsQueued()
{
    // Registered by the link, with its sequential-iterable converter.
    RaderCommunicate::GetInstance();
    QVERIFY(QMetaType::type("QList<QPointF>") != QMetaType::UnknownType);
    QVERIFY(QMetaType::type("QSerialPort::SerialPortError") != QMetaType::UnknownType);
    const QVariant list = QVariant::fromValue(QList<QPointF>{QPointF(1, 2), QPointF(3, 4)});
    QVERIFY(list.canConvert<QVariantList>());
    QCOMPARE(list.value<QSequentialIterable>().size(), 2);

    // The string-based connection form, queued: the list arrives intact.
    TargetSink sink;
    QVERIFY(connect(RaderCommunicate::GetInstance(), SIGNAL(signal_TargetResp(QList<QPointF>)),
                    &sink, SLOT(on_TargetResp(QList<QPointF>)), Qt::QueuedConnection));
    LinkRecorder recorder(RaderCommunicate::GetInstance());
    RaderCommunicate::GetInstance()->ParseFrame(hex(kTargets));
    QCOMPARE(sink.calls, 0); // not yet: queued
    QCoreApplication::processEvents();
    QCOMPARE(sink.calls, 1);
    QCOMPARE(sink.received.size(), 2);
    QCOMPARE(sink.received[1], QPointF(-1.0, 2.0));
}

void TestReceive::init()
{
    link = RaderCommunicate::GetInstance();
    link->CloseSerial(); // empties the carry-over
    QVERIFY(link->PendingBytes().isEmpty());
}

void TestReceive::cleanup()
{
    link->CloseSerial();
}

void TestReceive::scan_data()
{
    QTest::addColumn<Chunks>("chunks");
    QTest::addColumn<QStringList>("expectedSignals");
    QTest::addColumn<QByteArray>("expectedPending");

    const QByteArray baud = hex(kBaudOk);
    const QByteArray cancel = hex(kCancelOk);
    const QByteArray show = hex(kShowType2);
    const QByteArray targets = hex(kTargets);

    QTest::newRow("fewer than 11 bytes: appended, not scanned")
        << Chunks{hex("FF EE DD 00 02 01")} << QStringList() << hex("FF EE DD 00 02 01");
    QTest::newRow("10-byte frame alone is not scanned")
        << Chunks{hex("FF EE DD 00 01 07 07 DD EE FF")} << QStringList()
        << hex("FF EE DD 00 01 07 07 DD EE FF");
    QTest::newRow("carry-over plus new under 11")
        << Chunks{hex("FF EE DD 00"), hex("02 01 01 02 DD EE")} << QStringList()
        << hex("FF EE DD 00 02 01 01 02 DD EE");
    QTest::newRow("completed by the 11th byte")
        << Chunks{hex("FF EE DD 00"), hex("02 01 01 02 DD EE"), hex("FF")}
        << split("S:BaudrateResp true") << QByteArray();
    QTest::newRow("garbage before a complete frame")
        << Chunks{hex("00 11 22") + baud} << split("S:BaudrateResp true") << QByteArray();
    QTest::newRow("garbage before an unfinished frame")
        << Chunks{hex("00 11 22 33 44 55 66 77") + targets.left(8)} << QStringList()
        << targets.left(8);
    QTest::newRow("garbage before an unfinished frame, then the rest")
        << Chunks{hex("00 11 22 33 44 55 66 77") + targets.left(8), targets.mid(8)}
        << split("S:TargetResp 2 (1,3)(-1,2)") << QByteArray();
    QTest::newRow("two frames back to back: second waits")
        << Chunks{baud + cancel} << split("S:BaudrateResp true") << cancel;
    QTest::newRow("two frames back to back: second decoded on the next chunk")
        << Chunks{baud + cancel, hex("00")} << split("S:BaudrateResp true|S:CancelAllAreaResp true")
        << hex("00");
    QTest::newRow("three frames back to back: the middle one is lost")
        << Chunks{baud + cancel + show} << split("S:BaudrateResp true|S:TargetShowTypeResp 2")
        << QByteArray();
    QTest::newRow("frame split over two chunks")
        << Chunks{hex(kReadArea).left(20), hex(kReadArea).mid(20)} << split(kReadAreaSignals)
        << QByteArray();
    QTest::newRow("128 bytes of noise are kept")
        << Chunks{noise(128)} << QStringList() << noise(128);
    QTest::newRow("129 bytes of noise: one comm error, emptied")
        << Chunks{noise(129)} << split("S:serial_comm_error") << QByteArray();
    QTest::newRow("noise growing over two reads to 129")
        << Chunks{noise(100), noise(129).mid(100)} << split("S:serial_comm_error") << QByteArray();
    QTest::newRow("noise of 300 bytes: one error only")
        << Chunks{noise(300)} << split("S:serial_comm_error") << QByteArray();
    QTest::newRow("128 bytes after a decoded frame are kept")
        << Chunks{baud + noise(128)} << split("S:BaudrateResp true") << noise(128);
    QTest::newRow("129 bytes after a decoded frame: comm error")
        << Chunks{baud + noise(129)} << split("S:BaudrateResp true|S:serial_comm_error")
        << QByteArray();
    QTest::newRow("empty target report")
        << Chunks{hex("FF EE DD 00 01 07 07 DD EE FF 00")} << split("S:TargetResp 0 ") << hex("00");
    QTest::newRow("target at the origin") << Chunks{hex("FF EE DD 00 03 07 00 00 07 DD EE FF")}
                                          << split("S:TargetResp 1 (0,0)") << QByteArray();
    QTest::newRow("area number 0 gives index -1")
        << Chunks{hex("FF EE DD 00 04 04 00 01 01 06 DD EE FF")} << split("S:SetAreaResp -1 1 true")
        << QByteArray();
    QTest::newRow("repeal response emits twice")
        << Chunks{hex("FF EE DD 00 03 05 02 01 08 DD EE FF")}
        << split("S:SetAreaResp 1 0 true|S:SetAreaResp 1 1 true") << QByteArray();
    QTest::newRow("bad checksum: dropped, no signal")
        << Chunks{hex("FF EE DD 00 02 01 01 03 DD EE FF 00")} << QStringList() << hex("00");
    QTest::newRow("bad checksum, then a good frame")
        << Chunks{hex("FF EE DD 00 02 01 01 03 DD EE FF 00") + cancel}
        << split("S:CancelAllAreaResp true") << QByteArray();
    // Undefined lengths: the frame is dropped and the scan goes on.
    QTest::newRow("length low byte 0x80 dropped, next frame decoded")
        << Chunks{hex("FF EE DD 00 80 00 00 00 00 00 00") + baud} << split("S:BaudrateResp true")
        << QByteArray();
    QTest::newRow("negative high byte dropped")
        << Chunks{hex("FF EE DD FF 10 00 00 00 00 00 00") + cancel}
        << split("S:CancelAllAreaResp true") << QByteArray();
    QTest::newRow("length 0 (shorter than an envelope) dropped")
        << Chunks{hex("FF EE DD 00 00 00 00 00 00 00 00") + show} << split("S:TargetShowTypeResp 2")
        << QByteArray();
    QTest::newRow("undefined-length headers dropped, the last header waits")
        << Chunks{hex("FF EE DD 00 FF FF EE DD 00 80 FF EE DD")} << QStringList()
        << hex("FF EE DD");
    QTest::newRow("header at the very end waits for its length")
        << Chunks{noise(8) + hex("FF EE DD")} << QStringList() << hex("FF EE DD");
    QTest::newRow("header at the very end, then the rest")
        << Chunks{noise(8) + hex("FF EE DD"), hex("00 02 01 01 02 DD EE FF")}
        << split("S:BaudrateResp true") << QByteArray();
    QTest::newRow("unfinished frame with a large length is kept up to 128")
        << Chunks{hex("FF EE DD 01 00") + noise(123)} << QStringList()
        << hex("FF EE DD 01 00") + noise(123);
    QTest::newRow("unfinished frame past 128 waits for its rest")
        << Chunks{hex("FF EE DD 01 00") + noise(123), hex("00")} << QStringList()
        << hex("FF EE DD 01 00") + noise(123) + hex("00");
    QTest::newRow("largest declared length waits too")
        << Chunks{hex("FF EE DD 7F 7F") + noise(200)} << QStringList()
        << hex("FF EE DD 7F 7F") + noise(200);
    {
        // 60 targets make a 130-byte report: longer than the limit, it still
        // arrives in pieces.
        QByteArray payload;
        QList<QPointF> points;
        for (int k = 0; k < 60; ++k) {
            payload.append(char(k % 10)).append(char(k % 7));
            points.append(QPointF((k % 10) * 0.1, (k % 7) * 0.1));
        }
        const QByteArray big = frameformat::buildFrame(TargetReport, payload);
        QTest::newRow("130-byte report in two pieces")
            << Chunks{big.left(100), big.mid(100)}
            << QStringList{QString("S:TargetResp 60 %1").arg(describePoints(points))}
            << QByteArray();
    }
    QTest::newRow("byte after a frame is never a header start")
        << Chunks{baud + targets + hex("00")} << split("S:BaudrateResp true")
        << targets + hex("00");
    QTest::newRow("empty chunk changes nothing")
        << Chunks{QByteArray()} << QStringList() << QByteArray();
}

void TestReceive::scan()
{
    QFETCH(Chunks, chunks);
    QFETCH(QStringList, expectedSignals);
    QFETCH(QByteArray, expectedPending);

    LinkRecorder recorder(link);
    for (const QByteArray &chunk : chunks) {
        link->ReceiveBytes(chunk);
        // Only an unfinished frame (it starts with a header) may exceed 128.
        const QByteArray pending = link->PendingBytes();
        QVERIFY(pending.size() <= 128 || pending.startsWith(hex("FF EE DD")));
    }
    QCOMPARE(recorder.signalsOnly(), expectedSignals);
    QCOMPARE(link->PendingBytes().toHex(' '), expectedPending.toHex(' '));
}

void TestReceive::frameSplitAtEveryPoint_data()
{
    QTest::addColumn<int>("cut");
    for (int cut = 1; cut < 40; ++cut)
        QTest::newRow(qPrintable(QString("cut at %1").arg(cut))) << cut;
}

void TestReceive::frameSplitAtEveryPoint()
{
    QFETCH(int, cut);
    const QByteArray frame = hex(kReadArea);
    QCOMPARE(frame.size(), 40);

    LinkRecorder recorder(link);
    link->ReceiveBytes(frame.left(cut));
    QCOMPARE(recorder.signalsOnly(), QStringList());
    QCOMPARE(link->PendingBytes(), frame.left(cut));
    link->ReceiveBytes(frame.mid(cut));
    QCOMPARE(recorder.signalsOnly(), split(kReadAreaSignals));
    QVERIFY(link->PendingBytes().isEmpty());
    // From 11 bytes on the first part is scanned and waits as an unfinished frame.
    const bool waited =
        recorder.logOnly().contains("L:comm data size() < msgLen, ready to add next frame.");
    QCOMPARE(waited, cut >= 11);
}

// Each function code through ParseFrame: debug output, log lines and signals
// in the order they happen.
void TestReceive::dispatch_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("1 baud rate OK") << hex(kBaudOk)
                                    << split("D:code: 1|L:function code:1|D:Radar Baudrate SET OK|"
                                             "L:Radar Baudrate SET OK|S:BaudrateResp true");
    QTest::newRow("1 baud rate NG (result 2)")
        << hex("FF EE DD 00 02 01 02 03 DD EE FF")
        << split("D:code: 1|L:function code:1|D:Radar Baudrate SET NG|L:Radar Baudrate SET NG|"
                 "S:BaudrateResp false");
    QTest::newRow("2 show type set OK")
        << hex("FF EE DD 00 02 02 01 03 DD EE FF")
        << split("D:code: 2|L:function code:2|D:Target show type SET OK.|"
                 "L:Target show type SET OK.|S:SetTargetShowTypeResp true");
    QTest::newRow("2 show type set NG")
        << hex("FF EE DD 00 02 02 00 02 DD EE FF")
        << split("D:code: 2|L:function code:2|D:Target show type SET NG.|"
                 "L:Target show type SET NG.|S:SetTargetShowTypeResp false");
    QTest::newRow("3 show type read") << hex(kShowType2)
                                      << split("D:code: 3|L:function code:3|D:目标显示方式： 2|"
                                               "L:target show type：2|S:TargetShowTypeResp 2");
    QTest::newRow("3 show type read, signed")
        << hex("FF EE DD 00 02 03 FE 01 DD EE FF")
        << split("D:code: 3|L:function code:3|D:目标显示方式： -2|L:target show type：-2|"
                 "S:TargetShowTypeResp -2");
    QTest::newRow("4 set area OK")
        << hex("FF EE DD 00 04 04 01 00 01 06 DD EE FF")
        << split("D:code: 4|L:function code:4|D:\"Radar area:1 SET OK\"|L:Radar area:1 SET OK|"
                 "S:SetAreaResp 0 0 true");
    QTest::newRow("4 set area NG")
        << hex("FF EE DD 00 04 04 03 01 02 0A DD EE FF")
        << split("D:code: 4|L:function code:4|D:\"Radar area:3 SET NG\"|L:Radar area:3 SET NG|"
                 "S:SetAreaResp 2 1 false");
    QTest::newRow("4 set area number 0")
        << hex("FF EE DD 00 04 04 00 01 01 06 DD EE FF")
        << split("D:code: 4|L:function code:4|D:\"Radar area:0 SET OK\"|L:Radar area:0 SET OK|"
                 "S:SetAreaResp -1 1 true");
    QTest::newRow("5 repeal OK")
        << hex("FF EE DD 00 03 05 02 01 08 DD EE FF")
        << split("D:code: 5|L:function code:5|D:\"Radar area:2 repeal OK\"|"
                 "L:Radar area:2 repeal OK|S:SetAreaResp 1 0 true|S:SetAreaResp 1 1 true");
    QTest::newRow("5 repeal NG")
        << hex("FF EE DD 00 03 05 01 00 06 DD EE FF")
        << split("D:code: 5|L:function code:5|D:\"Radar area:1 repeal NG\"|"
                 "L:Radar area:1 repeal NG|S:SetAreaResp 0 0 false|S:SetAreaResp 0 1 false");
    QTest::newRow("6 read areas")
        << hex(kReadArea)
        << split("D:code: 6|L:function code:6|L:Area:0 Type:0|S:ReadAreaResp 0 0 (-1.5,3)-(1.5,1)|"
                 "L:Area:1 Type:2|S:ReadAreaResp 1 2 (0,0)-(0,0)|"
                 "L:Area:2 Type:1|S:ReadAreaResp 2 1 (-3,8)-(3,0)");
    QTest::newRow("6 short frame reads 0 for missing bytes")
        << hex("FF EE DD 00 02 06 01 07 DD EE FF")
        << split("D:code: 6|L:function code:6|L:Area:0 Type:7|S:ReadAreaResp 0 7 (-3.5,-1.8)-(0,0)|"
                 "L:Area:1 Type:0|S:ReadAreaResp 1 0 (0,0)-(0,0)|"
                 "L:Area:2 Type:0|S:ReadAreaResp 2 0 (0,0)-(0,0)");
    QTest::newRow("7 targets") << hex(kTargets)
                               << split("D:code: 7|L:function code:7|D:targetList size: 2|"
                                        "L:targetList size:2|S:TargetResp 2 (1,3)(-1,2)");
    QTest::newRow("7 no targets")
        << hex("FF EE DD 00 01 07 07 DD EE FF")
        << split("D:code: 7|L:function code:7|D:targetList size: 0|L:targetList size:0|"
                 "S:TargetResp 0 ");
    QTest::newRow("7 odd payload") << hex("FF EE DD 00 02 07 0A 11 DD EE FF")
                                   << split("D:code: 7|L:function code:7|D:targetList size: 1|"
                                            "L:targetList size:1|S:TargetResp 1 (1,1.7)");
    QTest::newRow("8 areas 1 and 3")
        << hex("FF EE DD 00 04 08 01 00 01 0A DD EE FF")
        << split("D:code: 8|L:function code:8|D:有无目标区域： 1 0 1  allAreaFlag: 5|"
                 "S:TargetAreaResp 5");
    QTest::newRow("8 area 2 only")
        << hex("FF EE DD 00 04 08 00 01 02 0B DD EE FF")
        << split("D:code: 8|L:function code:8|D:有无目标区域： 0 1 0  allAreaFlag: 2|"
                 "S:TargetAreaResp 2");
    QTest::newRow("9 ignored") << hex("FF EE DD 00 02 09 01 0A DD EE FF")
                               << split("D:code: 9|L:function code:9");
    QTest::newRow("10 cancel all OK") << hex(kCancelOk)
                                      << split("D:code: 10|L:function code:a|D:cancel_all Area OK|"
                                               "L:cancel_all Area OK|S:CancelAllAreaResp true");
    QTest::newRow("10 cancel all NG")
        << hex("FF EE DD 00 02 0A 02 0C DD EE FF")
        << split("D:code: 10|L:function code:a|D:cancel_all Area NG|L:cancel_all Area NG|"
                 "S:CancelAllAreaResp false");
    QTest::newRow("0 unknown") << hex("FF EE DD 00 02 00 01 01 DD EE FF")
                               << split("D:code: 0|L:function code:0");
    QTest::newRow("11 unknown") << hex("FF EE DD 00 02 0B 01 0C DD EE FF")
                                << split("D:code: 11|L:function code:b");
    QTest::newRow("0x7F unknown") << hex("FF EE DD 00 02 7F 01 80 DD EE FF")
                                  << split("D:code: 127|L:function code:7f");
    QTest::newRow("negative code unknown") << hex("FF EE DD 00 02 81 01 82 DD EE FF")
                                           << split("D:code: -127|L:function code:ffffff81");
    QTest::newRow("bad checksum") << hex("FF EE DD 00 02 01 01 03 DD EE FF")
                                  << split("D:sum check failed: \"02 \" \"03 \"");
}

void TestReceive::dispatch()
{
    QFETCH(QByteArray, frame);
    QFETCH(QStringList, expected);
    LinkRecorder recorder(link);
    link->ParseFrame(frame);
    QCOMPARE(recorder.events, expected);
}

void TestReceive::dispatchArgumentsWithSpies()
{
    QSignalSpy setArea(link, &RaderCommunicate::signal_SetAreaResp);
    QSignalSpy readArea(link, &RaderCommunicate::signal_ReadAreaResp);
    QSignalSpy baud(link, &RaderCommunicate::signal_BaudrateResp);
    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    QSignalSpy areaFlags(link, &RaderCommunicate::signal_TargetAreaResp);
    QSignalSpy showType(link, &RaderCommunicate::signal_TargetShowTypeResp);
    QSignalSpy setShowType(link, &RaderCommunicate::signal_SetTargetShowTypeResp);
    QSignalSpy cancelAll(link, &RaderCommunicate::signal_CancelAllAreaResp);
    QSignalSpy disconnected(link, &RaderCommunicate::signal_serial_disconnected);
    QSignalSpy commError(link, &RaderCommunicate::signal_serial_comm_error);

    // One chunk with a frame of every code, each followed by a spacer byte so
    // that every frame is seen.
    const QByteArray spacer = hex("00");
    QByteArray stream;
    for (const char *frame :
         {kBaudOk, "FF EE DD 00 02 02 01 03 DD EE FF", kShowType2,
          "FF EE DD 00 04 04 02 01 01 08 DD EE FF", "FF EE DD 00 03 05 03 02 0A DD EE FF",
          kReadArea, kTargets, "FF EE DD 00 04 08 00 01 01 0A DD EE FF", kCancelOk})
        stream += hex(frame) + spacer;
    QVERIFY(stream.size() > 128); // the bytes after each frame stay small
    link->ReceiveBytes(stream);

    QCOMPARE(baud.count(), 1);
    QCOMPARE(baud.at(0).at(0).toBool(), true);
    QCOMPARE(setShowType.count(), 1);
    QCOMPARE(setShowType.at(0).at(0).toBool(), true);
    QCOMPARE(showType.count(), 1);
    QCOMPARE(showType.at(0).at(0).toInt(), 2);

    QCOMPARE(setArea.count(), 3); // code 4 once, code 5 twice
    QCOMPARE(setArea.at(0), (QList<QVariant>{1, 1, true}));
    QCOMPARE(setArea.at(1), (QList<QVariant>{2, 0, false}));
    QCOMPARE(setArea.at(2), (QList<QVariant>{2, 1, false}));

    QCOMPARE(readArea.count(), 3);
    for (int k = 0; k < 3; ++k)
        QCOMPARE(readArea.at(k).at(0).toInt(), k);
    QCOMPARE(readArea.at(1).at(1).toInt(), 2);
    const QRectF first = readArea.at(0).at(2).toRectF();
    QVERIFY(qAbs(first.left() + 1.5) < 1e-9 && qAbs(first.top() - 3.0) < 1e-9);
    QVERIFY(qAbs(first.height() + 2.0) < 1e-9); // not normalised

    QCOMPARE(targets.count(), 1);
    const QList<QPointF> list = qvariant_cast<QList<QPointF>>(targets.at(0).at(0));
    QCOMPARE(list.size(), 2);
    QVERIFY(qAbs(list[0].x() - 1.0) < 1e-9 && qAbs(list[0].y() - 3.0) < 1e-9);
    QVERIFY(qAbs(list[1].x() + 1.0) < 1e-9 && qAbs(list[1].y() - 2.0) < 1e-9);

    QCOMPARE(areaFlags.count(), 1);
    QCOMPARE(int(qvariant_cast<char>(areaFlags.at(0).at(0))), 6);
    QCOMPARE(cancelAll.count(), 1);
    QCOMPARE(cancelAll.at(0).at(0).toBool(), true);
    QCOMPARE(disconnected.count(), 0);
    QCOMPARE(commError.count(), 0);
    QCOMPARE(link->PendingBytes(), spacer);
}

void TestReceive::parseFrameResult()
{
    LinkRecorder recorder(link); // keeps the debug output quiet
    QCOMPARE(link->ParseFrame(hex(kBaudOk)), true);
    QCOMPARE(link->ParseFrame(hex("FF EE DD 00 02 09 01 0A DD EE FF")), true);
    QCOMPARE(link->ParseFrame(hex("FF EE DD 00 02 0B 01 0C DD EE FF")), true);
    QCOMPARE(link->ParseFrame(hex("FF EE DD 00 02 01 01 03 DD EE FF")), false);
    // Short and odd frames are read safely (missing bytes are 0).
    QCOMPARE(link->ParseFrame(QByteArray()), true); // length 0, sum 0 == byte 5 (0)
    QCOMPARE(link->ParseFrame(hex("FF EE DD 7F 7F 06")), false);
    QCOMPARE(link->ParseFrame(hex("FF EE DD 00 80")), true); // code 0, ignored
}

void TestReceive::textsForOneFrame()
{
    LinkRecorder recorder(link);
    link->ReceiveBytes(hex(kBaudOk));
    QCOMPARE(recorder.events, split("D:recvData: \"FF EE DD 00 02 01 01 02 DD EE FF \"|"
                                    "L:RecvData:FF EE DD 00 02 01 01 02 DD EE FF |"
                                    "L:start parse one frame.|"
                                    "D:code: 1|L:function code:1|"
                                    "D:Radar Baudrate SET OK|L:Radar Baudrate SET OK|"
                                    "S:BaudrateResp true"));
}

void TestReceive::textsForCarryOver()
{
    LinkRecorder recorder(link);
    link->ReceiveBytes(hex("FF EE DD 00 02 01"));
    link->ReceiveBytes(hex("01 02 DD EE FF"));
    QCOMPARE(recorder.events, split("D:recvData: \"FF EE DD 00 02 01 \"|"
                                    "L:RecvData:FF EE DD 00 02 01 |"
                                    "D:recvData: \"01 02 DD EE FF \"|"
                                    "L:RecvData:01 02 DD EE FF |"
                                    "D:last part Data: \"FF EE DD 00 02 01 \"|"
                                    "L:Last part data:FF EE DD 00 02 01 |"
                                    "L:start parse one frame.|"
                                    "D:code: 1|L:function code:1|"
                                    "D:Radar Baudrate SET OK|L:Radar Baudrate SET OK|"
                                    "S:BaudrateResp true"));
}

void TestReceive::textsForSplitFrame()
{
    LinkRecorder recorder(link);
    link->ReceiveBytes(hex(kTargets).left(12));
    QCOMPARE(recorder.events, split("D:recvData: \"FF EE DD 00 05 07 0A 1E F6 14 39 DD \"|"
                                    "L:RecvData:FF EE DD 00 05 07 0A 1E F6 14 39 DD |"
                                    "L:start parse one frame.|"
                                    "L:comm data size() < msgLen, ready to add next frame."));
}

void TestReceive::textsForOverflow()
{
    LinkRecorder recorder(link);
    link->ReceiveBytes(noise(129));
    const QStringList events = recorder.events;
    QCOMPARE(events.size(), 4);
    QVERIFY(events[0].startsWith("D:recvData: \"10 11 12 "));
    QVERIFY(events[1].startsWith("L:RecvData:10 11 12 "));
    QCOMPARE(events[1].size(), 2 + 9 + 129 * 3);
    QCOMPARE(events[2], QString("L:baudrate error!"));
    QCOMPARE(events[3], QString("S:serial_comm_error"));
}

void TestReceive::textsForBadChecksum()
{
    LinkRecorder recorder(link);
    link->ReceiveBytes(hex("FF EE DD 00 03 07 0A 1E 20 DD EE FF"));
    QCOMPARE(recorder.events, split("D:recvData: \"FF EE DD 00 03 07 0A 1E 20 DD EE FF \"|"
                                    "L:RecvData:FF EE DD 00 03 07 0A 1E 20 DD EE FF |"
                                    "L:start parse one frame.|"
                                    "D:sum check failed: \"2F \" \"20 \""));
}

// During a frame's signal the carry-over is what it was before the read (for
// the first frame of a read) or what follows the previous frame: it is
// replaced only after each frame has been dispatched.
void TestReceive::carryOverSeenFromSlots()
{
    const QByteArray before = noise(5); // fewer than 11 bytes: only kept
    const QByteArray first = hex("FF EE DD 00 03 07 0A 1E 2F DD EE FF");
    const QByteArray second = hex("FF EE DD 00 03 07 0B 1E 30 DD EE FF");
    const QByteArray third = hex("FF EE DD 00 03 07 0C 1E 31 DD EE FF");
    const QByteArray tail = noise(3);

    QList<QByteArray> seen;
    QList<QPointF> firstTargets;
    const QMetaObject::Connection connection =
        connect(link, &RaderCommunicate::signal_TargetResp, this, [&](QList<QPointF> list) {
            seen.append(link->PendingBytes());
            firstTargets.append(list.value(0));
        });
    link->ReceiveBytes(before);
    QCOMPARE(link->PendingBytes(), before);
    link->ReceiveBytes(first + second + third + tail);
    disconnect(connection);

    // Back to back: the first and the third frame are decoded.
    QCOMPARE(firstTargets, (QList<QPointF>{QPointF(1.0, 3.0), QPointF(1.2, 3.0)}));
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen[0].toHex(' '), before.toHex(' '));
    QCOMPARE(seen[1].toHex(' '), (second + third + tail).toHex(' '));
    QCOMPARE(link->PendingBytes().toHex(' '), tail.toHex(' '));
}

// A slot may read again before it returns (a message box runs a nested event
// loop, and readyRead arrives in it). The nested read must not see the frame
// being dispatched again.
void TestReceive::nestedReadFromSlot()
{
    const QByteArray baudNg = hex("FF EE DD 00 02 01 00 01 DD EE FF");
    const QByteArray targets = hex(kTargets);
    int baudAnswers = 0;
    const QMetaObject::Connection connection =
        connect(link, &RaderCommunicate::signal_BaudrateResp, this, [&](bool) {
            if (++baudAnswers == 1)
                link->ReceiveBytes(targets + noise(2));
        });
    QSignalSpy targetSpy(link, &RaderCommunicate::signal_TargetResp);
    link->ReceiveBytes(baudNg + noise(4));
    disconnect(connection);

    QCOMPARE(baudAnswers, 1);
    QCOMPARE(targetSpy.count(), 1);
    // The outer read has the last word: what follows its frame.
    QCOMPARE(link->PendingBytes().toHex(' '), noise(4).toHex(' '));
}

// The link reuses its target list from report to report; a receiver that
// keeps a list must still find its own points in it later.
void TestReceive::keptTargetListsStayIntact()
{
    QList<QList<QPointF>> kept;
    const QMetaObject::Connection connection =
        connect(link, &RaderCommunicate::signal_TargetResp, this,
                [&](QList<QPointF> list) { kept.append(list); });
    link->ReceiveBytes(hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF"));
    link->ReceiveBytes(hex("FF EE DD 00 03 07 05 06 12 DD EE FF"));
    link->ReceiveBytes(hex("FF EE DD 00 07 07 1E 28 E2 0A 00 50 89 DD EE FF"));
    disconnect(connection);

    QCOMPARE(kept.size(), 3);
    QCOMPARE(kept[0], (QList<QPointF>{QPointF(1.0, 3.0), QPointF(-1.0, 2.0)}));
    QCOMPARE(kept[1], (QList<QPointF>{QPointF(0.5, 0.6)}));
    QCOMPARE(kept[2], (QList<QPointF>{QPointF(3.0, 4.0), QPointF(-3.0, 1.0), QPointF(0.0, 8.0)}));
}

QTEST_GUILESS_MAIN(TestReceive)
#include "tst_receive.moc"
