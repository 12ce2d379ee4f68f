// radar-sim as a program: command line, exit codes, and the protocol spoken
// on its pseudo-terminal, seen from the tool's side of the line.

#include "radar/frameformat.h"
#include "tests/support/simpeer.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

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

// Waits for an area-presence report with this mask; -1 when none came.
int waitForFlags(PtyPeer &peer, int mask, int ms = 10000)
{
    QElapsedTimer t;
    t.start();
    int last = -1;
    while (t.elapsed() < ms) {
        const QByteArray f = peer.waitForFrame(8, int(ms - t.elapsed()));
        if (f.isEmpty())
            break;
        last = frameformat::decodeAreaFlags(f);
        if (last == mask)
            return last;
    }
    return last;
}

bool near(double a, double b, double tolerance = 1e-9)
{
    return std::abs(a - b) <= tolerance;
}

} // namespace

class TestRadarSimProcess : public QObject
{
    Q_OBJECT

private slots:
    void help();
    void badCommandLines_data();
    void badCommandLines();
    void printsPseudoTerminalPath();
    void protocolOverPty();
    void presetAreas();
    void baudNg();
    void streaming();
    void seedGivesTheSameWalk();
    void noiseBetweenFrames();
    void badChecksums();
    void splitFrames();
    void reopenAfterClose();
    void settleBeforeReports();
    void disconnectAfter();
    void replay();

private:
    QTemporaryDir dir;
};

void TestRadarSimProcess::help()
{
    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), {"--help"});
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    for (const char *option :
         {"--port NAME", "--area N,TYPE,X1,Y1,X2,Y2", "--baud N", "--rate HZ", "--targets N",
          "--fixed X,Y", "--seed N", "--noise N", "--bad-checksum P", "--split", "--gap MS",
          "--settle MS", "--disconnect-after S", "--baud-ng", "--any-baud", "--replay FILE",
          "--verbose", "--help"})
        QVERIFY2(out.contains(QLatin1String(option)), option);
    QVERIFY(out.contains("Exit codes"));
    QVERIFY(out.contains("SIGTERM"));
    QVERIFY(out.contains("--port device went"));
    for (const QString &line : out.split('\n'))
        QVERIFY2(line.size() <= 80, qPrintable(line));
}

void TestRadarSimProcess::badCommandLines_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");

    QVERIFY(dir.isValid());
    QFile noRecv(dir.filePath("norecv.txt"));
    QVERIFY(noRecv.open(QIODevice::WriteOnly));
    noRecv.write("[2026-11-16 04:00:05.123] SendData:FF EE DD 00 01 06 06 DD EE FF \n");
    noRecv.close();

    QTest::newRow("unknown option") << QStringList{"--frobnicate"} << "unknown option --frobnicate";
    QTest::newRow("stray word") << QStringList{"now"} << "unexpected argument";
    QTest::newRow("rate not a number") << QStringList{"--rate", "lots"} << "--rate";
    QTest::newRow("too many targets") << QStringList{"--targets", "500"} << "--targets";
    QTest::newRow("value missing") << QStringList{"--seed"} << "needs a value";
    QTest::newRow("bad point") << QStringList{"--fixed", "1;2"} << "--fixed";
    QTest::newRow("bad area number") << QStringList{"--area", "5,0,-1,2,1,1"} << "--area";
    QTest::newRow("area corners reversed") << QStringList{"--area", "1,0,1,1,-1,2"} << "upper-left";
    QTest::newRow("probability") << QStringList{"--bad-checksum", "2"} << "--bad-checksum";
    QTest::newRow("unreadable replay file")
        << QStringList{"--replay", dir.filePath("does-not-exist.txt")} << "cannot read";
    QTest::newRow("replay without RecvData")
        << QStringList{"--replay", dir.filePath("norecv.txt")} << "RecvData";
    QTest::newRow("replay and targets")
        << QStringList{"--replay", dir.filePath("norecv.txt"), "--targets", "2"}
        << "cannot be combined";
}

void TestRadarSimProcess::badCommandLines()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);

    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), args);
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 2);
    QVERIFY(p.readAllStandardOutput().isEmpty());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QVERIFY2(err.startsWith("radar-sim: "), qPrintable(err));
    QVERIFY2(err.contains(message), qPrintable(err));
}

void TestRadarSimProcess::printsPseudoTerminalPath()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QVERIFY2(path.startsWith("/dev/pts/"), qPrintable(path));
    QVERIFY(QFile::exists(path));
    // Nothing but the one line.
    QTest::qWait(100);
    QVERIFY(sim.process.readAllStandardOutput().isEmpty());
}

void TestRadarSimProcess::protocolOverPty()
{
    SimProcess sim;
    const QString path = sim.start({"--fixed", "0.5,2.0", "--rate", "20", "--verbose"});
    QVERIFY(!path.isEmpty());
    PtyPeer peer;
    QVERIFY(peer.open(path));

    // Fresh module: no area defined.
    QVERIFY(peer.send(request(ReadArea)));
    QByteArray f = peer.waitForFrame(ReadArea);
    QCOMPARE(f.size(), 40);
    QVERIFY(frameformat::checksumMatches(f));
    auto areas = frameformat::decodeReadAreaResponse(f);
    for (const auto &a : areas)
        QCOMPARE(a.type, 2);

    // The person at (0.5, 2.0) is reported where it stands.
    f = peer.waitForFrame(TargetReport);
    QVERIFY(frameformat::checksumMatches(f));
    QList<QPointF> targets = frameformat::decodeTargets(f);
    QCOMPARE(targets.size(), 1);
    QVERIFY(near(targets.first().x(), 0.5) && near(targets.first().y(), 2.0));
    QCOMPARE(waitForFlags(peer, 0), 0);

    // Area 1 around the person: set, confirmed, occupied.
    const QRectF around(QPointF(-1.5, 3.0), QPointF(1.5, 1.0));
    QVERIFY(peer.send(request(SetArea, frameformat::setAreaPayload(0, 1, around))));
    f = peer.waitForFrame(SetArea);
    const frameformat::SetAreaResponse set = frameformat::decodeSetAreaResponse(f);
    QCOMPARE(set.number, 1);
    QCOMPARE(set.type, 1);
    QVERIFY(set.ok);
    QCOMPARE(waitForFlags(peer, 1), 1);

    // Area 3 elsewhere: stays empty, area 1 still occupied.
    QVERIFY(peer.send(request(
        SetArea, frameformat::setAreaPayload(2, 0, QRectF(QPointF(2.0, 7.0), QPointF(4.0, 5.0))))));
    QVERIFY(frameformat::decodeSetAreaResponse(peer.waitForFrame(SetArea)).ok);
    QCOMPARE(waitForFlags(peer, 1), 1);

    QVERIFY(peer.send(request(ReadArea)));
    areas = frameformat::decodeReadAreaResponse(peer.waitForFrame(ReadArea));
    QCOMPARE(areas[0].type, 1);
    QVERIFY(near(areas[0].rect.left(), -1.5) && near(areas[0].rect.top(), 3.0) &&
            near(areas[0].rect.right(), 1.5) && near(areas[0].rect.bottom(), 1.0));
    QCOMPARE(areas[1].type, 2);
    QCOMPARE(areas[2].type, 0);
    QVERIFY(near(areas[2].rect.left(), 2.0) && near(areas[2].rect.top(), 7.0));

    // Repeal area 1: not occupied any more, reads back as not defined.
    QVERIFY(peer.send(request(RepealArea, hex("01"))));
    const frameformat::RepealAreaResponse repeal =
        frameformat::decodeRepealAreaResponse(peer.waitForFrame(RepealArea));
    QCOMPARE(repeal.number, 1);
    QVERIFY(repeal.ok);
    QCOMPARE(waitForFlags(peer, 0), 0);
    QVERIFY(peer.send(request(ReadArea)));
    areas = frameformat::decodeReadAreaResponse(peer.waitForFrame(ReadArea));
    QCOMPARE(areas[0].type, 2);
    QCOMPARE(areas[2].type, 0);

    // Cancel all.
    QVERIFY(peer.send(request(CancelAllArea)));
    QVERIFY(frameformat::decodeResult(peer.waitForFrame(CancelAllArea)));
    QVERIFY(peer.send(request(ReadArea)));
    areas = frameformat::decodeReadAreaResponse(peer.waitForFrame(ReadArea));
    for (const auto &a : areas)
        QCOMPARE(a.type, 2);

    // Display type: default 2, set 1, read back 1.
    QVERIFY(peer.send(request(ReadTargetShowType)));
    QCOMPARE(frameformat::decodeShowType(peer.waitForFrame(ReadTargetShowType)), 2);
    QVERIFY(peer.send(request(SetTargetShowType, hex("01"))));
    QVERIFY(frameformat::decodeResult(peer.waitForFrame(SetTargetShowType)));
    QVERIFY(peer.send(request(ReadTargetShowType)));
    QCOMPARE(frameformat::decodeShowType(peer.waitForFrame(ReadTargetShowType)), 1);

    // Baud rate: OK, then the module says it switched.
    QVERIFY(peer.send(request(SetBaudrate, frameformat::baudRatePayload(115200))));
    QVERIFY(frameformat::decodeResult(peer.waitForFrame(SetBaudrate)));
    QVERIFY(sim.waitForError("now at 115200 baud"));
    const QString err = sim.errors();
    QVERIFY2(err.contains("request 6 (ReadArea) FF EE DD 00 01 06 06 DD EE FF"), qPrintable(err));
    QVERIFY2(err.contains("now at 115200 baud"), qPrintable(err));
    QCOMPARE(sim.process.state(), QProcess::Running);
}

void TestRadarSimProcess::presetAreas()
{
    SimProcess sim;
    const QString path = sim.start({"--area", "1,0,-3.5,6.5,-0.5,3.5", "--area", "2,1,1,5,4,2",
                                    "--fixed", "2.5,3.5", "--rate", "20"});
    QVERIFY(!path.isEmpty());
    PtyPeer peer;
    QVERIFY(peer.open(path));

    // The areas are there before the tool set any.
    QVERIFY(peer.send(request(ReadArea)));
    const QByteArray f = peer.waitForFrame(ReadArea);
    QCOMPARE(f.size(), 40);
    const auto areas = frameformat::decodeReadAreaResponse(f);
    QCOMPARE(areas[0].type, 0);
    QVERIFY(near(areas[0].rect.left(), -3.5) && near(areas[0].rect.top(), 6.5) &&
            near(areas[0].rect.right(), -0.5) && near(areas[0].rect.bottom(), 3.5));
    QCOMPARE(areas[1].type, 1);
    QVERIFY(near(areas[1].rect.left(), 1.0) && near(areas[1].rect.top(), 5.0) &&
            near(areas[1].rect.right(), 4.0) && near(areas[1].rect.bottom(), 2.0));
    QCOMPARE(areas[2].type, 2);
    // The person at (2.5, 3.5) stands in area 2.
    QCOMPARE(waitForFlags(peer, 2), 2);
}

void TestRadarSimProcess::baudNg()
{
    SimProcess sim;
    const QString path = sim.start({"--baud-ng", "--rate", "0", "--verbose"});
    PtyPeer peer;
    QVERIFY(peer.open(path));
    QVERIFY(peer.send(request(SetBaudrate, frameformat::baudRatePayload(115200))));
    const QByteArray f = peer.waitForFrame(SetBaudrate);
    QCOMPARE(frameformat::hexDump(f),
             frameformat::hexDump(hex("FF EE DD 00 02 01 02 03 DD EE FF")));
    QVERIFY(!frameformat::decodeResult(f));
    peer.readFor(100);
    QVERIFY(!sim.errors().contains("now at"));
    // With --rate 0 nothing else was sent.
    QCOMPARE(cutFrames(peer.all).size(), 1);
}

void TestRadarSimProcess::streaming()
{
    SimProcess sim;
    const QString path = sim.start({"--fixed", "1.5,3.0", "--fixed", "-2.0,4.5", "--fixed",
                                    "0.3,7.9", "--rate", "20", "--settle", "0"});
    PtyPeer peer;
    QVERIFY(peer.open(path));
    const QList<TimedChunk> chunks = peer.readFor(1500);
    const QList<SeenFrame> frames = cutFrames(peer.all);

    int targetFrames = 0;
    int areaFrames = 0;
    for (const SeenFrame &s : frames) {
        QVERIFY(s.garbageBefore.isEmpty());
        QVERIFY(frameformat::checksumMatches(s.frame));
        const int code = quint8(s.frame.at(5));
        if (code == TargetReport) {
            ++targetFrames;
            const QList<QPointF> t = frameformat::decodeTargets(s.frame);
            QCOMPARE(t.size(), 3);
            QVERIFY(near(t.at(0).x(), 1.5) && near(t.at(0).y(), 3.0));
            QVERIFY(near(t.at(1).x(), -2.0) && near(t.at(1).y(), 4.5));
            QVERIFY(near(t.at(2).x(), 0.3) && near(t.at(2).y(), 7.9));
        } else {
            QCOMPARE(code, int(TargetAreaReport));
            QCOMPARE(int(frameformat::decodeAreaFlags(s.frame)), 0);
            ++areaFrames;
        }
    }
    // 20 Hz for 1.5 s, less the moment it takes to notice the open.
    QVERIFY2(targetFrames >= 15 && targetFrames <= 32, qPrintable(QString::number(targetFrames)));
    QVERIFY(std::abs(areaFrames - targetFrames) <= 1);

    // One write per frame, paced: a read never holds part of a frame, and
    // most reads hold exactly one.
    int single = 0;
    for (const TimedChunk &c : chunks) {
        QByteArray whole;
        for (const SeenFrame &f : cutFrames(c.bytes))
            whole += f.garbageBefore + f.frame;
        QCOMPARE(whole, c.bytes);
        if (cutFrames(c.bytes).size() == 1)
            ++single;
    }
    QVERIFY2(single >= chunks.size() / 2,
             qPrintable(QString("%1 of %2 reads").arg(single).arg(chunks.size())));
}

void TestRadarSimProcess::seedGivesTheSameWalk()
{
    auto firstReports = [](const QStringList &args) {
        SimProcess sim;
        PtyPeer peer;
        QList<QList<QPointF>> reports;
        if (!peer.open(sim.start(args), B115200))
            return reports;
        auto targetReports = [&] {
            int n = 0;
            for (const SeenFrame &s : cutFrames(peer.all))
                n += quint8(s.frame.at(5)) == TargetReport;
            return n;
        };
        peer.readUntil([&] { return targetReports() >= 10; });
        for (const SeenFrame &s : cutFrames(peer.all))
            if (quint8(s.frame.at(5)) == TargetReport && reports.size() < 10)
                reports.append(frameformat::decodeTargets(s.frame));
        return reports;
    };
    const auto a = firstReports(
        {"--baud", "115200", "--seed", "99", "--targets", "4", "--rate", "50", "--settle", "0"});
    const auto b = firstReports(
        {"--baud", "115200", "--seed", "99", "--targets", "4", "--rate", "50", "--settle", "0"});
    const auto c = firstReports(
        {"--baud", "115200", "--seed", "100", "--targets", "4", "--rate", "50", "--settle", "0"});
    QCOMPARE(a.size(), 10);
    QCOMPARE(a.first().size(), 4);
    QCOMPARE(a, b);
    QCOMPARE(c.size(), 10);
    QVERIFY(a != c);
    // They walk: the tenth report differs from the first.
    QVERIFY(a.first() != a.last());
    for (const QList<QPointF> &r : a)
        for (const QPointF &p : r)
            QVERIFY(p.x() >= -5.0 && p.x() <= 5.0 && p.y() >= 0.3 - 1e-9 && p.y() <= 8.0);
}

void TestRadarSimProcess::noiseBetweenFrames()
{
    SimProcess sim;
    PtyPeer peer;
    QVERIFY(
        peer.open(sim.start({"--noise", "6", "--fixed", "1,1", "--rate", "20", "--settle", "0"})));
    peer.readFrames(10);
    const QList<SeenFrame> frames = cutFrames(peer.all);
    QVERIFY(frames.size() >= 10);
    for (int i = 0; i < frames.size(); ++i) {
        QVERIFY(frameformat::checksumMatches(frames.at(i).frame));
        // The first frame may have lost part of its noise to the open.
        if (i > 0) {
            QCOMPARE(frames.at(i).garbageBefore.size(), 6);
            QVERIFY(!frames.at(i).garbageBefore.contains('\xFF'));
        }
    }
}

void TestRadarSimProcess::badChecksums()
{
    SimProcess sim;
    PtyPeer peer;
    QVERIFY(peer.open(
        sim.start({"--bad-checksum", "1", "--fixed", "1,1", "--rate", "20", "--settle", "0"})));
    QVERIFY(peer.send(request(ReadArea)));
    peer.readFrames(8);
    const QList<SeenFrame> frames = cutFrames(peer.all);
    QVERIFY(frames.size() >= 8);
    bool sawAnswer = false;
    for (const SeenFrame &s : frames) {
        QVERIFY(!frameformat::checksumMatches(s.frame));
        sawAnswer = sawAnswer || quint8(s.frame.at(5)) == ReadArea;
    }
    QVERIFY(sawAnswer); // answers get a wrong sum too
}

void TestRadarSimProcess::splitFrames()
{
    SimProcess sim;
    PtyPeer peer;
    QVERIFY(peer.open(sim.start({"--split", "--fixed", "1,2", "--rate", "20", "--settle", "0"})));
    const QList<TimedChunk> chunks = peer.readFrames(20);
    const QList<SeenFrame> frames = cutFrames(peer.all);
    QVERIFY(frames.size() >= 20);
    for (const SeenFrame &s : frames) {
        QVERIFY(s.garbageBefore.isEmpty());
        QVERIFY(frameformat::checksumMatches(s.frame));
    }
    // Reads arrive as pieces of frames, not as whole frames.
    int pieces = 0;
    for (const TimedChunk &c : chunks)
        if (cutFrames(c.bytes).isEmpty())
            ++pieces;
    QVERIFY2(pieces >= 3,
             qPrintable(QString("%1 partial reads for %2 frames").arg(pieces).arg(frames.size())));
}

void TestRadarSimProcess::reopenAfterClose()
{
    SimProcess sim;
    const QString path = sim.start(
        {"--baud", "115200", "--fixed", "1,2", "--rate", "50", "--settle", "0", "--verbose"});
    PtyPeer peer;
    QVERIFY(peer.open(path, B115200));
    peer.readFrames(10);
    QVERIFY(cutFrames(peer.all).size() >= 10);
    peer.close();

    // While the port is closed nothing piles up for the next open.
    QTest::qWait(500);
    PtyPeer again;
    QVERIFY(again.open(path, B115200));
    const QList<TimedChunk> first = again.readFor(15);
    for (const TimedChunk &c : first)
        QVERIFY(c.bytes.size() <= 2 * 14);
    again.readFrames(10);
    QVERIFY(cutFrames(again.all).size() >= 10);
    const QString err = sim.errors();
    QVERIFY(err.contains("closed by the other side"));
    QCOMPARE(err.count("opened by the other side"), 2);
}

void TestRadarSimProcess::settleBeforeReports()
{
    SimProcess sim;
    PtyPeer peer;
    QVERIFY(peer.open(
        sim.start({"--baud", "115200", "--fixed", "1,2", "--rate", "50", "--settle", "400"}),
        B115200));
    // The tool asks for the areas right after opening: the answer comes alone.
    QVERIFY(peer.send(request(ReadArea)));
    const QList<TimedChunk> chunks = peer.readFrames(21);
    QVERIFY(!chunks.isEmpty());
    QCOMPARE(chunks.first().bytes.size(), 40);
    QCOMPARE(int(quint8(chunks.first().bytes.at(5))), int(ReadArea));
    QVERIFY2(chunks.first().atMs < 200, qPrintable(QString::number(chunks.first().atMs)));
    // Reports start once the quiet time is over.
    QVERIFY(chunks.size() >= 2);
    const qint64 firstReport = chunks.at(1).atMs;
    QVERIFY2(firstReport >= 350 && firstReport <= 700, qPrintable(QString::number(firstReport)));
    QCOMPARE(int(quint8(chunks.at(1).bytes.at(5))), int(TargetReport));
    QVERIFY(cutFrames(peer.all).size() >= 20);
}

void TestRadarSimProcess::disconnectAfter()
{
    SimProcess sim;
    const QString path =
        sim.start({"--disconnect-after", "0.6", "--fixed", "1,2", "--rate", "20", "--settle", "0"});
    QTest::qWait(300); // the clock starts at the open, not at the start
    PtyPeer peer;
    QVERIFY(peer.open(path));
    QElapsedTimer t;
    t.start();
    // Keep reading, as the tool would, until the simulator has gone.
    while (sim.process.state() != QProcess::NotRunning && t.elapsed() < 5000) {
        peer.readFor(20);
        sim.process.waitForFinished(1);
    }
    QCOMPARE(sim.process.state(), QProcess::NotRunning);
    const qint64 took = t.elapsed();
    QVERIFY2(took >= 500 && took <= 2000, qPrintable(QString::number(took)));
    QCOMPARE(sim.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(sim.process.exitCode(), 0);
    peer.readFor(500);
    QVERIFY(peer.hungUp);
    QVERIFY(cutFrames(peer.all).size() >= 8);
}

void TestRadarSimProcess::replay()
{
    QVERIFY(dir.isValid());
    const QByteArray a = hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF");
    const QByteArray b1 = hex("FF EE DD 00 04 08");
    const QByteArray b2 = hex("01 00 00 09 DD EE FF");
    const QByteArray c = hex("FF EE DD 00 02 0A 01 0B DD EE FF");
    QFile log(dir.filePath("session.txt"));
    QVERIFY(log.open(QIODevice::WriteOnly));
    log.write("[2026-11-16 04:00:05.000] serial port:/dev/ttyUSB0,Buadrate\xEF\xBC\x9A"
              "115200, result:OK\r\n"
              "[2026-11-16 04:00:05.010] SendData:FF EE DD 00 01 06 06 DD EE FF \r\n");
    log.write("[2026-11-16 04:00:05.100] RecvData:" + frameformat::hexDump(a).toLatin1() + "\r\n");
    log.write("[2026-11-16 04:00:05.101] start parse one frame.\r\n");
    log.write("[2026-11-16 04:00:05.400] RecvData:" + frameformat::hexDump(b1).toLatin1() + "\r\n");
    log.write("[2026-11-16 04:00:05.550] RecvData:" + frameformat::hexDump(b2).toLatin1() + "\r\n");
    log.write("[2026-11-16 04:00:05.451] Last part data:" + frameformat::hexDump(b1).toLatin1() +
              "\r\n");
    log.write("[2026-11-16 04:00:06.000] RecvData:" + frameformat::hexDump(c).toLatin1() + "\r\n");
    log.close();

    SimProcess sim;
    const QString path = sim.start({"--replay", log.fileName(), "--verbose"});
    PtyPeer peer;
    QVERIFY(peer.open(path));
    QVERIFY(peer.send(request(ReadArea))); // a replay answers nothing
    const int total = (a + b1 + b2 + c).size();
    const QList<TimedChunk> chunks = peer.readUntil([&] { return peer.all.size() >= total; });
    QCOMPARE(peer.all, a + b1 + b2 + c);

    // Each recorded read came as one write, at its recorded time.
    QCOMPARE(chunks.size(), 4);
    QCOMPARE(chunks.at(0).bytes, a);
    QCOMPARE(chunks.at(1).bytes, b1);
    QCOMPARE(chunks.at(2).bytes, b2);
    QCOMPARE(chunks.at(3).bytes, c);
    const qint64 t0 = chunks.at(0).atMs;
    const qint64 expected[4] = {0, 300, 450, 900};
    for (int i = 1; i < 4; ++i) {
        const qint64 dt = chunks.at(i).atMs - t0;
        QVERIFY2(
            std::abs(dt - expected[i]) <= 100,
            qPrintable(QString("chunk %1 at %2 ms, expected %3").arg(i).arg(dt).arg(expected[i])));
    }
    QVERIFY(sim.waitForError("replay finished"));
    const QString err = sim.errors();
    QVERIFY2(err.contains("not answered during a replay"), qPrintable(err));
    QVERIFY2(err.contains("replay finished"), qPrintable(err));
}

QTEST_GUILESS_MAIN(TestRadarSimProcess)
#include "tst_radarsimprocess.moc"
