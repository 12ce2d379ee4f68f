// radar-sim as a truthful serial line: the rates the other side sets on the
// pseudo-terminal are seen by the simulator's port; a tool at another rate
// than the module's is not understood and hears only garbage; an accepted
// baud-rate change moves the module to the new rate; writes are paced to
// what the rate carries, with a warning when the reports asked for need
// more. The tool's side is a real QSerialPort on the real pseudo-terminal.

#include "radar/frameformat.h"
#include "tests/support/ptymaster.h"
#include "tests/support/simpeer.h"
#include "tools/radar-sim/baudline.h"
#include "tools/radar-sim/ptyport.h"

#include <QSerialPort>
#include <QtTest>

namespace
{

const QByteArray kHeader("\xFF\xEE\xDD", 3);

// The window's thirteen rates.
const int kWindowRates[] = {2400,  4800,   9600,   19200,  38400,  43000, 56000,
                            57600, 115200, 230400, 256000, 460800, 921600};

QByteArray request(quint8 code, const QByteArray &payload = QByteArray())
{
    return frameformat::buildFrame(code, payload);
}

// The tool's end of the line: a QSerialPort at the rate the tool chose.
class ToolPort
{
public:
    bool open(const QString &path, int rate)
    {
        port.setPortName(path);
        port.setBaudRate(rate);
        return port.open(QIODevice::ReadWrite);
    }
    void close() { port.close(); }
    bool send(const QByteArray &bytes)
    {
        return port.write(bytes) == bytes.size() && port.waitForBytesWritten(1000);
    }
    // Everything that arrives within ms milliseconds.
    QByteArray readFor(int ms)
    {
        QByteArray got;
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms) {
            if (port.waitForReadyRead(int(std::max<qint64>(1, ms - t.elapsed()))))
                got += port.readAll();
        }
        return got;
    }
    // Reads until done(got) holds for what came (or the time is up).
    template <typename Done> QByteArray readUntil(Done done, int ms = 10000)
    {
        QByteArray got;
        QElapsedTimer t;
        t.start();
        while (!done(got) && t.elapsed() < ms)
            got += readFor(20);
        return got;
    }
    // Reads until a frame with this code has come; empty when none did.
    QByteArray waitForFrame(quint8 code, int ms = 10000)
    {
        QByteArray got;
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms) {
            got += readFor(20);
            for (const SeenFrame &f : cutFrames(got))
                if (quint8(f.frame.at(5)) == code)
                    return f.frame;
        }
        return QByteArray();
    }

    QSerialPort port;
};

QStringList simArgs(int moduleRate, const QStringList &more = QStringList())
{
    return QStringList{"--baud",   QString::number(moduleRate),
                       "--fixed",  "1,2",
                       "--rate",   "20",
                       "--settle", "0",
                       "--verbose"} +
           more;
}

} // namespace

class TestRadarSimBaud : public QObject
{
    Q_OBJECT

private slots:
    void portSeesTheToolsRate_data();
    void portSeesTheToolsRate();
    void portSeesARateChangeWhileOpen();
    void speedCodes();
    void garbage_data();
    void garbage();
    void lineTime();
    void toolAtModuleRateOrNot_data();
    void toolAtModuleRateOrNot();
    void unknownRateCountsAsAnotherRate();
    void baudChange_data();
    void baudChange();
    void pacedToTheRate();
    void warningAfterChangeToSlowRate();
    void noWarningWhenTheRateCarriesIt();
    void realPortHasNothingToPlay();
};

// ---------------------------------------------------------------------------
// What the simulator's end of a pseudo-terminal sees of the tool's settings

void TestRadarSimBaud::portSeesTheToolsRate_data()
{
    QTest::addColumn<int>("rate");
    for (int rate : kWindowRates)
        QTest::newRow(qPrintable(QString::number(rate))) << rate;
}

void TestRadarSimBaud::portSeesTheToolsRate()
{
    QFETCH(int, rate);
    PtyPort pty;
    QString error;
    QVERIFY2(pty.open(&error), qPrintable(error));
    QSerialPort tool(pty.name());
    tool.setBaudRate(rate);
    QVERIFY2(tool.open(QIODevice::ReadWrite), qPrintable(tool.errorString()));
    QCOMPARE(tool.baudRate(), rate);
    const PeerLineRates seen = pty.peerRates();
    QVERIFY2(seen.known, qPrintable(seen.problem));
    QCOMPARE(seen.sendRate, rate);
    QCOMPARE(seen.receiveRate, rate);
}

void TestRadarSimBaud::portSeesARateChangeWhileOpen()
{
    PtyPort pty;
    QString error;
    QVERIFY2(pty.open(&error), qPrintable(error));
    QSerialPort tool(pty.name());
    tool.setBaudRate(9600);
    QVERIFY(tool.open(QIODevice::ReadWrite));
    QCOMPARE(pty.peerRates().sendRate, 9600);
    QVERIFY(tool.setBaudRate(56000));
    QCOMPARE(pty.peerRates().sendRate, 56000);
    QCOMPARE(pty.peerRates().receiveRate, 56000);
    QVERIFY(tool.setBaudRate(115200));
    QCOMPARE(pty.peerRates().receiveRate, 115200);
}

void TestRadarSimBaud::speedCodes()
{
    QCOMPARE(PtyPort::rateOfSpeedCode(B50), 50);
    QCOMPARE(PtyPort::rateOfSpeedCode(B2400), 2400);
    QCOMPARE(PtyPort::rateOfSpeedCode(B38400), 38400);
    QCOMPARE(PtyPort::rateOfSpeedCode(B57600), 57600);
    QCOMPARE(PtyPort::rateOfSpeedCode(B230400), 230400);
    QCOMPARE(PtyPort::rateOfSpeedCode(B460800), 460800);
    QCOMPARE(PtyPort::rateOfSpeedCode(B921600), 921600);
    QCOMPARE(PtyPort::rateOfSpeedCode(B4000000), 4000000);
    QCOMPARE(PtyPort::rateOfSpeedCode(B0), 0);
    QCOMPARE(PtyPort::rateOfSpeedCode(0x7FFFu), 0);
}

// ---------------------------------------------------------------------------
// The line model

void TestRadarSimBaud::garbage_data()
{
    QTest::addColumn<int>("sentRate");
    QTest::addColumn<int>("readRate");
    QTest::addColumn<int>("minBytes"); // received for 12000 bytes sent
    QTest::addColumn<int>("maxBytes");

    QTest::newRow("slower receiver") << 115200 << 9600 << 999 << 1000;
    QTest::newRow("much slower receiver") << 921600 << 2400 << 31 << 32;
    QTest::newRow("faster receiver") << 9600 << 921600 << 24000 << 24000;
    QTest::newRow("a little faster") << 56000 << 57600 << 12342 << 12343;
    QTest::newRow("rate not known") << 9600 << 0 << 12000 << 12000;
}

void TestRadarSimBaud::garbage()
{
    QFETCH(int, sentRate);
    QFETCH(int, readRate);
    QFETCH(int, minBytes);
    QFETCH(int, maxBytes);

    // Frames full of header bytes, sent in pieces of different sizes.
    QByteArray frames;
    while (frames.size() < 12000)
        frames += frameformat::buildFrame(TargetReport, QByteArray("\xFF\xEE\xDD\xFF\xEE\xDD", 6));
    frames.truncate(12000);
    BaudLine line;
    BaudLine same;
    QByteArray out;
    QByteArray again;
    for (int at = 0, piece = 1; at < frames.size(); at += piece, piece = piece % 97 + 13) {
        out += line.garble(frames.mid(at, piece), sentRate, readRate);
        again += same.garble(frames.mid(at, piece), sentRate, readRate);
    }
    QVERIFY2(out.size() >= minBytes && out.size() <= maxBytes,
             qPrintable(QString::number(out.size())));
    QVERIFY(!out.contains('\xFF'));
    QVERIFY(!out.contains(kHeader));
    QCOMPARE(again, out); // the same bytes give the same garbage
    // Not a copy of what was sent, and not one repeated value.
    if (out.size() >= 100) {
        QVERIFY(!frames.contains(out.left(16)));
        QVERIFY(out.count(out.at(0)) < out.size() / 4);
    }
}

void TestRadarSimBaud::lineTime()
{
    QCOMPARE(BaudLine::lineTimeUs(96, 9600), qint64(100000));
    QCOMPARE(BaudLine::lineTimeUs(1, 115200), qint64(87)); // 86.8 rounded up
    QCOMPARE(BaudLine::lineTimeUs(0, 9600), qint64(0));
    QCOMPARE(BaudLine::bytesPerSecond(921600), 92160.0);
}

// ---------------------------------------------------------------------------
// radar-sim and a tool at the module's rate or another one

void TestRadarSimBaud::toolAtModuleRateOrNot_data()
{
    QTest::addColumn<int>("moduleRate");
    QTest::addColumn<int>("toolRate");
    QTest::addColumn<QStringList>("more");
    QTest::addColumn<bool>("understood");

    QTest::newRow("both 9600") << 9600 << 9600 << QStringList() << true;
    QTest::newRow("both 256000 (no speed code)") << 256000 << 256000 << QStringList() << true;
    QTest::newRow("tool slower") << 115200 << 9600 << QStringList() << false;
    QTest::newRow("tool faster") << 9600 << 921600 << QStringList() << false;
    QTest::newRow("43000 against 38400") << 43000 << 38400 << QStringList() << false;
    QTest::newRow("any rate with --any-baud")
        << 115200 << 9600 << QStringList{"--any-baud"} << true;
}

void TestRadarSimBaud::toolAtModuleRateOrNot()
{
    QFETCH(int, moduleRate);
    QFETCH(int, toolRate);
    QFETCH(QStringList, more);
    QFETCH(bool, understood);

    SimProcess sim;
    const QString path = sim.start(simArgs(moduleRate, more));
    QVERIFY(!path.isEmpty());
    ToolPort tool;
    QVERIFY(tool.open(path, toolRate));
    QVERIFY(tool.send(request(ReadArea)));
    // Understood: the answer and five reports; otherwise garbage, and the
    // simulator saying why.
    const QString notUnderstood =
        QString("not understood: sent at %1 baud while the module listens at %2 baud")
            .arg(toolRate)
            .arg(moduleRate);
    const QByteArray got = tool.readUntil([&](const QByteArray &sofar) {
        if (!understood)
            return !sofar.isEmpty() && sim.errors(0).contains(notUnderstood);
        int reports = 0;
        bool answered = false;
        for (const SeenFrame &f : cutFrames(sofar)) {
            answered = answered || quint8(f.frame.at(5)) == ReadArea;
            reports += quint8(f.frame.at(5)) == TargetReport;
        }
        return answered && reports >= 5;
    });
    const QString said = sim.errors(50);
    QVERIFY2(!got.isEmpty(), "nothing arrived");
    const QList<SeenFrame> frames = cutFrames(got);

    if (understood) {
        QVERIFY2(said.contains("request 6 (ReadArea)"), qPrintable(said));
        bool answered = false;
        int reports = 0;
        for (const SeenFrame &f : frames) {
            QVERIFY(frameformat::checksumMatches(f.frame));
            answered = answered || quint8(f.frame.at(5)) == ReadArea;
            if (quint8(f.frame.at(5)) == TargetReport) {
                const QList<QPointF> t = frameformat::decodeTargets(f.frame);
                QCOMPARE(t.size(), 1);
                QCOMPARE(t.first(), QPointF(1.0, 2.0));
                ++reports;
            }
        }
        QVERIFY(answered);
        QVERIFY2(reports >= 5, qPrintable(QString::number(reports)));
    } else {
        QVERIFY2(!got.contains(kHeader), qPrintable(frameformat::hexDump(got.left(64))));
        QVERIFY(frames.isEmpty());
        QVERIFY2(!said.contains("request 6"), qPrintable(said));
        QVERIFY2(said.contains(notUnderstood), qPrintable(said));
        QVERIFY2(said.contains(QString("the other side listens at %1 baud, the module talks at "
                                       "%2 baud: it gets garbage")
                                   .arg(toolRate)
                                   .arg(moduleRate)),
                 qPrintable(said));
    }
}

void TestRadarSimBaud::unknownRateCountsAsAnotherRate()
{
    // B0 (hang up) gives the line no rate at all.
    SimProcess sim;
    const QString path = sim.start(simArgs(9600));
    PtyPeer peer;
    QVERIFY(peer.open(path, B0));
    QVERIFY(peer.send(request(ReadArea)));
    peer.readUntil([&] { return !peer.all.isEmpty(); });
    QVERIFY(sim.waitForError("taken as another rate than the module's 9600 baud"));
    const QString said = sim.errors(50);
    QVERIFY2(said.contains("byte(s) not understood: unknown line speed"), qPrintable(said));
    QVERIFY2(said.contains("taken as another rate than the module's 9600 baud"), qPrintable(said));
    QVERIFY2(!said.contains("request 6"), qPrintable(said));
    QVERIFY(!peer.all.isEmpty());
    QVERIFY(!peer.all.contains(kHeader));
}

// ---------------------------------------------------------------------------
// Baud-rate change

void TestRadarSimBaud::baudChange_data()
{
    QTest::addColumn<bool>("refused");
    QTest::newRow("accepted") << false;
    QTest::newRow("refused (--baud-ng)") << true;
}

void TestRadarSimBaud::baudChange()
{
    QFETCH(bool, refused);
    SimProcess sim;
    const QString path =
        sim.start(simArgs(9600, refused ? QStringList{"--baud-ng"} : QStringList()));
    ToolPort tool;
    QVERIFY(tool.open(path, 9600));
    QVERIFY(tool.send(request(SetBaudrate, frameformat::baudRatePayload(115200))));
    // The answer comes at the old rate.
    const QByteArray answer = tool.waitForFrame(SetBaudrate);
    QVERIFY(!answer.isEmpty());
    QCOMPARE(frameformat::decodeResult(answer), !refused);
    tool.readFor(100);

    // Staying at the old rate.
    QVERIFY(tool.send(request(ReadArea)));
    const QString misheard = "not understood: sent at 9600 baud while the module listens at "
                             "115200 baud";
    QByteArray got = tool.readUntil([&](const QByteArray &sofar) {
        if (refused)
            return !cutFrames(sofar).isEmpty();
        return !sofar.isEmpty() && sim.errors(0).contains(misheard);
    });
    QVERIFY(!got.isEmpty());
    if (refused) {
        QVERIFY(got.contains(kHeader));
        QVERIFY(!cutFrames(got).isEmpty());
    } else {
        QVERIFY2(!got.contains(kHeader), qPrintable(frameformat::hexDump(got.left(64))));
        const QString said = sim.errors(50);
        QVERIFY2(said.contains("now at 115200 baud"), qPrintable(said));
        QVERIFY2(said.contains(misheard), qPrintable(said));
    }

    // Reopened at the new rate, as the window and orv-cli do.
    tool.close();
    QVERIFY(tool.open(path, 115200));
    QVERIFY(tool.send(request(ReadArea)));
    auto answeredIn = [](const QByteArray &bytes) {
        for (const SeenFrame &f : cutFrames(bytes))
            if (quint8(f.frame.at(5)) == ReadArea)
                return true;
        return false;
    };
    // Refused, the module stays at 9600 and the line at 115200 hears no
    // frame: that can only be seen over a while.
    got = refused ? tool.readFor(500) : tool.readUntil(answeredIn);
    if (refused) {
        QVERIFY(!got.contains(kHeader));
    } else {
        QVERIFY2(answeredIn(got), qPrintable(frameformat::hexDump(got.left(64))));
    }
}

// ---------------------------------------------------------------------------
// Pacing

void TestRadarSimBaud::pacedToTheRate()
{
    // Ten people at 20 Hz: 20 * (30 + 13) = 860 bytes/s, but 2400 baud
    // carries 240 bytes/s.
    SimProcess sim;
    const QString path =
        sim.start({"--baud", "2400", "--targets", "10", "--rate", "20", "--settle", "0"});
    const QString warning = "warning: --rate 20 with 10 target(s) asks for 860 bytes/s"
                            " (8600 bit/s with start and stop bits), but the line at 2400 baud"
                            " carries 240 bytes/s";
    QVERIFY2(sim.waitForError(warning), qPrintable(sim.errors()));
    ToolPort tool;
    QVERIFY(tool.open(path, 2400));
    tool.readFor(300);
    QElapsedTimer t;
    t.start();
    const QByteArray got = tool.readFor(2000);
    const double seconds = t.elapsed() / 1000.0;
    const double perSecond = got.size() / seconds;
    qInfo("%.0f bytes/s at 2400 baud", perSecond);
    QVERIFY2(perSecond <= 240.0 * 1.1 && perSecond >= 240.0 * 0.6,
             qPrintable(QString::number(perSecond)));
    // Whole frames, nothing lost inside them: reports are skipped instead.
    const QList<SeenFrame> frames = cutFrames(got);
    QVERIFY(frames.size() >= 10);
    for (int i = 1; i < frames.size(); ++i) {
        QVERIFY(frames.at(i).garbageBefore.isEmpty());
        QVERIFY(frameformat::checksumMatches(frames.at(i).frame));
    }
    QCOMPARE(sim.errors(0).count("warning:"), 1);
}

void TestRadarSimBaud::warningAfterChangeToSlowRate()
{
    // Sixteen people at 20 Hz need 20 * (42 + 13) = 1100 bytes/s: fine at
    // 115200, too much for 4800 (480 bytes/s).
    SimProcess sim;
    const QString path =
        sim.start({"--baud", "115200", "--targets", "16", "--rate", "20", "--settle", "0"});
    ToolPort tool;
    QVERIFY(tool.open(path, 115200));
    tool.readFor(100);
    QVERIFY(!sim.errors(0).contains("warning"));
    QVERIFY(tool.send(request(SetBaudrate, frameformat::baudRatePayload(4800))));
    QVERIFY(frameformat::decodeResult(tool.waitForFrame(SetBaudrate)));
    tool.close();
    QVERIFY(tool.open(path, 4800));
    tool.readFor(100);
    QVERIFY(sim.waitForError("the line at 4800 baud carries 480 bytes/s"));
    const QString said = sim.errors(50);
    QVERIFY2(said.contains("warning: --rate 20 with 16 target(s) asks for 1100 bytes/s"),
             qPrintable(said));
    QVERIFY2(said.contains("the line at 4800 baud carries 480 bytes/s"), qPrintable(said));
    QCOMPARE(said.count("warning:"), 1);
}

void TestRadarSimBaud::noWarningWhenTheRateCarriesIt()
{
    // Three people at 10 Hz: 10 * (16 + 13) = 290 bytes/s, 9600 baud carries 960.
    SimProcess sim;
    const QString path = sim.start({"--targets", "3", "--rate", "10"});
    QVERIFY(!path.isEmpty());
    QVERIFY2(!sim.errors(200).contains("warning"), qPrintable(sim.errors()));
}

// ---------------------------------------------------------------------------
// A real serial port

void TestRadarSimBaud::realPortHasNothingToPlay()
{
    // A pseudo-terminal of the test's own stands in for a real port: radar-sim
    // opens it with --port at 4800 and talks to whatever is on the other end.
    PtyMaster line;
    QVERIFY(line.isOpen());
    SimProcess sim;
    const QString printed = sim.start({"--port", line.path(), "--baud", "4800", "--rate", "0"});
    QCOMPARE(printed, line.path().mid(5)); // Qt's name for the port
    QVERIFY(line.write(request(ReadArea)));
    QByteArray got;
    QElapsedTimer t;
    t.start();
    while (got.size() < 40 && t.elapsed() < 3000) {
        if (line.waitReadable(50))
            line.drain(got);
    }
    line.closeMaster();
    const QList<SeenFrame> frames = cutFrames(got);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(int(quint8(frames.first().frame.at(5))), int(ReadArea));
}

QTEST_GUILESS_MAIN(TestRadarSimBaud)
#include "tst_radarsimbaud.moc"
