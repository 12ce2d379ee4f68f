// The serial session over real pseudo-terminals: the test plays the module on
// the master side, the link's QSerialPort opens the slave.

#include "linkrecorder.h"
#include "ptypeer.h"
#include "radar/radercommunicate.h"
#include "radar/radercommunicateaccess.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

#include <random>
#include <sys/resource.h>

namespace
{

const char kTargets[] = "FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF";
const char kReadArea[] = "FF EE DD 00 1F 06 01 00 F1 1E F1 0A 0F 0A 0F 1E 02 02 00 00 00 00 00 "
                         "00 00 00 03 01 E2 50 E2 00 1E 00 1E 50 FF DD EE FF";
const char kNoSuchPort[] = "/dev/orv-no-such-port";

double threadCpuMs()
{
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_utime.tv_sec * 1000.0 + usage.ru_utime.tv_usec / 1000.0 +
           usage.ru_stime.tv_sec * 1000.0 + usage.ru_stime.tv_usec / 1000.0;
}

enum Op {
    OpReadArea,
    OpCancelAllArea,
    OpReadTargetShowType,
    OpSetBaudrate,
    OpSetTargetShowType,
    OpRepealArea,
    OpSetArea
};

bool runOp(RaderCommunicate *link, int op, int arg, const QRectF &rect)
{
    switch (op) {
    case OpReadArea:
        return link->ReadArea();
    case OpCancelAllArea:
        return link->CancelAllArea();
    case OpReadTargetShowType:
        return link->ReadTargetShowType();
    case OpSetBaudrate:
        return link->SetBaudrate(arg);
    case OpSetTargetShowType:
        return link->SetTargetShowType(quint8(arg));
    case OpRepealArea:
        return link->RepealArea(arg);
    case OpSetArea:
        return link->SetArea(quint8(arg), 0, rect);
    }
    return false;
}

} // namespace

class TestSerial : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void closeOnNeverOpenedObject(); // must run first
    void cleanup();

    void refusalsWhileClosed_data();
    void refusalsWhileClosed();
    void openLogLine();
    void requestsOnTheWire_data();
    void requestsOnTheWire();
    void frameInRandomChunks();
    void reopenDropsUnfinishedFrame();
    void failedOpenLeavesConnectionsThatDouble();
    void errorSlot_data();
    void errorSlot();
    void portLostMidSession();
    void availablePortsWithExtraPorts();
    void availablePortsLeaveOutAPortInUse();

private:
    RaderCommunicate *link = nullptr;
};

void TestSerial::initTestCase()
{
    qunsetenv("ORV_EXTRA_PORTS");
    link = RaderCommunicate::GetInstance();
    QVERIFY(link);
    QCOMPARE(RaderCommunicate::GetInstance(), link);
}

void TestSerial::closeOnNeverOpenedObject()
{
    LinkRecorder recorder(link);
    QCOMPARE(link->bOpen, false);
    link->CloseSerial();
    link->CloseSerial();
    QCOMPARE(link->bOpen, false);
    QVERIFY(link->PendingBytes().isEmpty());
    QCOMPARE(recorder.events, QStringList()); // no log, no debug, no signal
}

void TestSerial::cleanup()
{
    link->CloseSerial();
    qunsetenv("ORV_EXTRA_PORTS");
}

void TestSerial::refusalsWhileClosed_data()
{
    QTest::addColumn<int>("op");
    QTest::addColumn<int>("arg");
    QTest::addColumn<bool>("attempted");
    QTest::addColumn<QString>("frame");

    QTest::newRow("SetArea refused") << int(OpSetArea) << 0 << false << QString();
    QTest::newRow("RepealArea refused") << int(OpRepealArea) << 0 << false << QString();
    QTest::newRow("SetTargetShowType refused")
        << int(OpSetTargetShowType) << 2 << false << QString();
    QTest::newRow("ReadArea attempted")
        << int(OpReadArea) << 0 << true << QString("FF EE DD 00 01 06 06 DD EE FF ");
    QTest::newRow("ReadTargetShowType attempted")
        << int(OpReadTargetShowType) << 0 << true << QString("FF EE DD 00 01 03 03 DD EE FF ");
    QTest::newRow("CancelAllArea attempted")
        << int(OpCancelAllArea) << 0 << true << QString("FF EE DD 00 01 0A 0A DD EE FF ");
    QTest::newRow("SetBaudrate attempted") << int(OpSetBaudrate) << 115200 << true
                                           << QString("FF EE DD 00 04 01 01 C2 00 C4 DD EE FF ");
}

void TestSerial::refusalsWhileClosed()
{
    QFETCH(int, op);
    QFETCH(int, arg);
    QFETCH(bool, attempted);
    QFETCH(QString, frame);

    QCOMPARE(link->bOpen, false);
    LinkRecorder recorder(link);
    const bool result = runOp(link, op, arg, QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0)));
    QCOMPARE(result, false);
    if (attempted)
        QCOMPARE(recorder.events, QStringList() << "D:SendData: \"" + frame + "\""
                                                << "L:SendData:" + frame);
    else
        QCOMPARE(recorder.events, QStringList());
}

void TestSerial::openLogLine()
{
    PtyPeer pty;
    QVERIFY(pty.open());
    {
        LinkRecorder recorder(link);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(link->OpenSerial(pty.slave, 115200), true);
        QVERIFY(timer.elapsed() >= 95); // the pause after opening
        QCOMPARE(link->bOpen, true);
        QCOMPARE(recorder.logOnly(),
                 QStringList() << "L:serial port:" + pty.slave + ",Buadrate：115200, result:OK");
        QCOMPARE(recorder.signalsOnly(), QStringList()); // DTR failing on a pty is harmless
    }
    link->CloseSerial();
    QCOMPARE(link->bOpen, false);
    {
        LinkRecorder recorder(link);
        QCOMPARE(link->OpenSerial(kNoSuchPort, 9600), false);
        QCOMPARE(link->bOpen, false);
        QCOMPARE(recorder.logOnly(), QStringList() << QString("L:serial port:%1,Buadrate：9600, "
                                                              "result:NG")
                                                          .arg(kNoSuchPort));
        QCOMPARE(recorder.signalsOnly(), QStringList());
    }
}

void TestSerial::requestsOnTheWire_data()
{
    QTest::addColumn<int>("op");
    QTest::addColumn<int>("arg");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("read areas") << int(OpReadArea) << 0 << hex("FF EE DD 00 01 06 06 DD EE FF");
    QTest::newRow("cancel all areas")
        << int(OpCancelAllArea) << 0 << hex("FF EE DD 00 01 0A 0A DD EE FF");
    QTest::newRow("read show type")
        << int(OpReadTargetShowType) << 0 << hex("FF EE DD 00 01 03 03 DD EE FF");
    QTest::newRow("set baud rate 115200")
        << int(OpSetBaudrate) << 115200 << hex("FF EE DD 00 04 01 01 C2 00 C4 DD EE FF");
    QTest::newRow("set baud rate 921600")
        << int(OpSetBaudrate) << 921600 << hex("FF EE DD 00 04 01 0E 10 00 1F DD EE FF");
    QTest::newRow("set baud rate 4800")
        << int(OpSetBaudrate) << 4800 << hex("FF EE DD 00 04 01 00 12 C0 D3 DD EE FF");
    QTest::newRow("set show type 2")
        << int(OpSetTargetShowType) << 2 << hex("FF EE DD 00 02 02 02 04 DD EE FF");
    QTest::newRow("repeal area index 0")
        << int(OpRepealArea) << 0 << hex("FF EE DD 00 02 05 01 06 DD EE FF");
    QTest::newRow("repeal area index 2")
        << int(OpRepealArea) << 2 << hex("FF EE DD 00 02 05 03 08 DD EE FF");
    QTest::newRow("set area index 0, type 0, corners (-1.5,3) and (1.5,1)")
        << int(OpSetArea) << 0
        << hex("FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF");
}

void TestSerial::requestsOnTheWire()
{
    QFETCH(int, op);
    QFETCH(int, arg);
    QFETCH(QByteArray, expected);

    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(link->OpenSerial(pty.slave, 115200));
    pty.read(0, 50); // nothing is sent by opening

    LinkRecorder recorder(link);
    QCOMPARE(runOp(link, op, arg, QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0))), true);
    const QByteArray wire = pty.read(expected.size());
    QCOMPARE(wire.toHex(' ').toUpper(), expected.toHex(' ').toUpper());

    const QString dump = QString::fromLatin1(expected.toHex(' ').toUpper()) + ' ';
    QCOMPARE(recorder.only("L:"), QStringList() << "L:SendData:" + dump);
    QCOMPARE(recorder.only("D:"), QStringList() << "D:SendData: \"" + dump + "\"");
}

void TestSerial::frameInRandomChunks()
{
    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(link->OpenSerial(pty.slave, 115200));

    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    QSignalSpy readArea(link, &RaderCommunicate::signal_ReadAreaResp);
    QSignalSpy commError(link, &RaderCommunicate::signal_serial_comm_error);
    LinkRecorder recorder(link);

    // Each frame followed by a spacer byte, so none is skipped by the scan.
    QByteArray stream;
    for (int k = 0; k < 5; ++k)
        stream += hex(kTargets) + hex("00") + hex(kReadArea) + hex("00");

    std::mt19937 random(20240611);
    int pos = 0;
    while (pos < stream.size()) {
        const int n = std::min(int(random() % 17) + 1, int(stream.size()) - pos);
        QVERIFY(pty.write(stream.mid(pos, n)));
        pos += n;
        QTest::qWait(int(random() % 4));
    }
    QTRY_COMPARE_WITH_TIMEOUT(readArea.count(), 15, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 5, 10000);
    QCOMPARE(commError.count(), 0);
    for (const QList<QVariant> &args : targets) {
        const QList<QPointF> list = qvariant_cast<QList<QPointF>>(args.at(0));
        QCOMPARE(list.size(), 2);
        QVERIFY(qAbs(list[0].x() - 1.0) < 1e-9 && qAbs(list[1].y() - 2.0) < 1e-9);
    }
    QVERIFY(recorder.logOnly().filter("L:RecvData:").size() >= 1);
}

void TestSerial::reopenDropsUnfinishedFrame()
{
    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(link->OpenSerial(pty.slave, 115200));
    QSignalSpy readArea(link, &RaderCommunicate::signal_ReadAreaResp);

    const QByteArray frame = hex(kReadArea);
    QVERIFY(pty.write(frame.left(20)));
    QTRY_COMPARE_WITH_TIMEOUT(link->PendingBytes().size(), 20, 10000);

    QVERIFY(link->OpenSerial(pty.slave, 115200)); // open while open
    QVERIFY(link->bOpen);
    QVERIFY(link->PendingBytes().isEmpty());

    QVERIFY(pty.write(frame.mid(20)));
    QTRY_COMPARE_WITH_TIMEOUT(link->PendingBytes(), frame.mid(20), 5000); // fewer than 11 bytes
    QCOMPARE(readArea.count(), 0);                                        // waiting

    // The link still works: a whole frame now decodes (after the stale bytes).
    QVERIFY(pty.write(frame + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(readArea.count(), 3, 10000);
}

void TestSerial::failedOpenLeavesConnectionsThatDouble()
{
    // A failed open still connects the port; opening again without a close in
    // between connects a second time, so every read is handled twice.
    QCOMPARE(link->OpenSerial(kNoSuchPort, 115200), false);
    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(link->OpenSerial(pty.slave, 115200));

    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    LinkRecorder recorder(link);
    QVERIFY(pty.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 1, 10000);
    QTest::qWait(100);
    QCOMPARE(targets.count(), 1);
    QCOMPARE(recorder.logOnly().filter("L:RecvData:").size(), 2);
    QCOMPARE(recorder.logOnly().filter("L:RecvData:").last(), QString("L:RecvData:"));

    // A close removes both connections.
    link->CloseSerial();
    QVERIFY(link->OpenSerial(pty.slave, 115200));
    recorder.events.clear();
    QVERIFY(pty.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 2, 10000);
    QTest::qWait(100);
    QCOMPARE(recorder.logOnly().filter("L:RecvData:").size(), 1);
}

void TestSerial::errorSlot_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("disconnects");
    QTest::newRow("ResourceError") << int(QSerialPort::ResourceError) << true;
    QTest::newRow("PermissionError") << int(QSerialPort::PermissionError) << true;
    QTest::newRow("ReadError (a lone one)") << int(QSerialPort::ReadError) << false;
    QTest::newRow("WriteError") << int(QSerialPort::WriteError) << false;
    QTest::newRow("ParityError") << int(QSerialPort::ParityError) << false;
    QTest::newRow("FramingError") << int(QSerialPort::FramingError) << false;
    QTest::newRow("TimeoutError") << int(QSerialPort::TimeoutError) << false;
    QTest::newRow("UnsupportedOperationError")
        << int(QSerialPort::UnsupportedOperationError) << false;
    QTest::newRow("DeviceNotFoundError") << int(QSerialPort::DeviceNotFoundError) << false;
    QTest::newRow("NoError") << int(QSerialPort::NoError) << false;
}

void TestSerial::errorSlot()
{
    QFETCH(int, error);
    QFETCH(bool, disconnects);
    LinkRecorder recorder(link);
    QSignalSpy disconnected(link, &RaderCommunicate::signal_serial_disconnected);
    link->handleSerialError(QSerialPort::SerialPortError(error));
    if (disconnects) {
        QCOMPARE(recorder.events, QStringList() << "D:comm disconnected..."
                                                << "L:comm disconnected..."
                                                << "S:serial_disconnected");
        QCOMPARE(disconnected.count(), 1);
        // Reported once until the next open or close.
        link->handleSerialError(QSerialPort::SerialPortError(error));
        QCOMPARE(disconnected.count(), 1);
        link->CloseSerial();
        link->handleSerialError(QSerialPort::SerialPortError(error));
        QCOMPARE(disconnected.count(), 2);
    } else {
        QCOMPARE(recorder.events, QStringList());
        QCOMPARE(disconnected.count(), 0);
    }
}

void TestSerial::portLostMidSession()
{
    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(link->OpenSerial(pty.slave, 115200));
    QSerialPort *port = RaderCommunicateAccess::port(link);
    QSignalSpy disconnected(link, &RaderCommunicate::signal_serial_disconnected);
    QSignalSpy portErrors(port, &QSerialPort::errorOccurred);
    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    LinkRecorder recorder(link);

    // The session works, then the module's end goes away.
    QVERIFY(pty.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 1, 10000);
    pty.closeMaster();

    QTRY_COMPARE_WITH_TIMEOUT(disconnected.count(), 1, 10000);
    QVERIFY(link->bOpen); // formally open until the receiver closes it

    // Nothing spins afterwards: few error signals, little CPU time.
    const int errorsAtLoss = portErrors.count();
    const double cpuAtLoss = threadCpuMs();
    QTest::qWait(500);
    const int errorsAfter = portErrors.count() - errorsAtLoss;
    const double cpuAfter = threadCpuMs() - cpuAtLoss;
    QVERIFY2(errorsAfter <= 5, qPrintable(QString("%1 errors in 500 ms").arg(errorsAfter)));
    QVERIFY2(cpuAfter < 150.0, qPrintable(QString("%1 ms CPU in 500 ms").arg(cpuAfter)));
    QVERIFY2(errorsAtLoss < 100,
             qPrintable(QString("%1 errors before the loss was seen").arg(errorsAtLoss)));

    QCOMPARE(disconnected.count(), 1);
    QCOMPARE(recorder.only("L:comm disconnected..."), QStringList() << "L:comm disconnected...");
    QCOMPARE(recorder.only("D:comm disconnected..."), QStringList() << "D:comm disconnected...");

    // A request on the dead port does not bring the storm back.
    link->ReadArea();
    const int errorsBeforeWrite = portErrors.count();
    const double cpuBeforeWrite = threadCpuMs();
    QTest::qWait(300);
    QVERIFY(portErrors.count() - errorsBeforeWrite <= 5);
    QVERIFY(threadCpuMs() - cpuBeforeWrite < 100.0);
    QCOMPARE(disconnected.count(), 1);

    // The receiver closes; a new session on another port works again.
    link->CloseSerial();
    QCOMPARE(link->bOpen, false);
    PtyPeer second;
    QVERIFY(second.open());
    QVERIFY(link->OpenSerial(second.slave, 115200));
    QVERIFY(second.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 2, 10000);
    QCOMPARE(disconnected.count(), 1);
    second.closeMaster();
    QTRY_COMPARE_WITH_TIMEOUT(disconnected.count(), 2, 10000);
}

void TestSerial::availablePortsWithExtraPorts()
{
    // Another program holding one of the machine's ports for a moment (the
    // window's port listing in a test beside this one) leaves that port out
    // of one listing: the plain list and the one with ORV_EXTRA_PORTS are
    // read again, one right after the other, until they agree.
    QStringList plain;
    QStringList extended;
    auto listedWith = [&](const QByteArray &extra, const QStringList &added) {
        qunsetenv("ORV_EXTRA_PORTS");
        plain = link->GetAvailablePorts();
        qputenv("ORV_EXTRA_PORTS", extra);
        extended = link->GetAvailablePorts();
        qunsetenv("ORV_EXTRA_PORTS");
        return extended == plain + added;
    };
    qunsetenv("ORV_EXTRA_PORTS");
    plain = link->GetAvailablePorts();

    PtyPeer pty;
    QVERIFY(pty.open());
    QVERIFY(pty.slave.startsWith("/dev/"));
    const QString expectedName = pty.slave.mid(5); // Qt names /dev/pts/N "pts/N"
    QVERIFY(!plain.contains(expectedName));

    const QString list = pty.slave + QDir::listSeparator() + kNoSuchPort;
    QTRY_VERIFY_WITH_TIMEOUT(listedWith(list.toLocal8Bit(), {expectedName}), 10000);
    QCOMPARE(extended, plain + QStringList{expectedName});

    // The listed name opens the pseudo-terminal.
    QVERIFY(link->OpenSerial(extended.last(), 115200));
    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    QVERIFY(pty.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 1, 10000);

    // Empty entries are skipped; unset gives the plain list again.
    link->CloseSerial();
    QTRY_VERIFY_WITH_TIMEOUT(listedWith(QByteArray(":") + kNoSuchPort + "::", {}), 10000);
    QCOMPARE(extended, plain);
    QVERIFY(!plain.contains(expectedName)); // unset: the pseudo-terminal is not listed
}

void TestSerial::availablePortsLeaveOutAPortInUse()
{
    PtyPeer pty;
    QVERIFY(pty.open());
    const QString name = pty.slave.mid(5);
    qputenv("ORV_EXTRA_PORTS", pty.slave.toLocal8Bit());
    QVERIFY(link->GetAvailablePorts().contains(name));

    // While the link holds the port, it cannot be opened again: left out.
    QVERIFY(link->OpenSerial(pty.slave, 115200));
    QVERIFY(!link->GetAvailablePorts().contains(name));
    // Listing did not disturb the open session.
    QSignalSpy targets(link, &RaderCommunicate::signal_TargetResp);
    QVERIFY(pty.write(hex(kTargets) + hex("00")));
    QTRY_COMPARE_WITH_TIMEOUT(targets.count(), 1, 10000);

    link->CloseSerial();
    QVERIFY(link->GetAvailablePorts().contains(name));
}

QTEST_GUILESS_MAIN(TestSerial)
#include "tst_serial.moc"
