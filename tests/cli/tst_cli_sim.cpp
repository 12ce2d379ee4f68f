// orv-cli as a program against radar-sim over pseudo-terminals: every
// command, its exit codes, and the simulator's faults.

#include "radar/framedecoder.h"
#include "radar/frameformat.h"
#include "tests/support/ptymaster.h"
#include "tests/support/simpeer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSerialPort>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

// Time limits are stretched under the sanitizers, which slow both programs.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 2;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr int kSlowdown = 2;
#else
constexpr int kSlowdown = 1;
#endif
#else
constexpr int kSlowdown = 1;
#endif

#ifndef ORV_CLI_BIN
#error "ORV_CLI_BIN must name the orv-cli executable"
#endif

namespace
{

// Every run happens here, so that files orv-cli must not write would show.
QString workDir;

struct CliResult {
    int code = -1;
    QByteArray out;
    QString err;
    qint64 ms = 0;
};

CliResult runCli(const QStringList &args, int timeoutMs = 20000,
                 const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(workDir);
    QElapsedTimer clock;
    clock.start();
    p.start(QStringLiteral(ORV_CLI_BIN), args);
    CliResult r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(2000);
        r.err = "orv-cli did not finish";
        return r;
    }
    r.ms = clock.elapsed();
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = p.readAllStandardOutput();
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

QString describe(const CliResult &r)
{
    return QString("exit %1 after %2 ms\nstdout: %3\nstderr: %4")
        .arg(r.code)
        .arg(r.ms)
        .arg(QString::fromUtf8(r.out.left(2000)), r.err);
}

#define CHECK_EXIT(result, expected)                                                               \
    QVERIFY2((result).code == (expected), qPrintable(describe(result)))

// One report as the test reads it from raw bytes: kind and content.
QString reportText(const QByteArray &frame)
{
    const int code = quint8(frame.at(5));
    if (code == TargetReport) {
        QStringList parts;
        for (int i = 6; i + 1 < frame.size() - 4; i += 2)
            parts << QString("%1,%2")
                         .arg(qint8(frame.at(i)) / 10.0)
                         .arg(qint8(frame.at(i + 1)) / 10.0);
        return "targets " + parts.join(' ');
    }
    if (code == TargetAreaReport)
        return QString("areas %1%2%3")
            .arg(frame.at(6) == 1)
            .arg(frame.at(7) == 1)
            .arg(frame.at(8) == 1);
    return QString();
}

// The same from a jsonl line of watch.
QString reportText(const QJsonObject &o)
{
    if (o.value("kind").toString() == "targets") {
        QStringList parts;
        for (const QJsonValue &t : o.value("targets").toArray())
            parts << QString("%1,%2")
                         .arg(t.toArray().at(0).toDouble())
                         .arg(t.toArray().at(1).toDouble());
        return "targets " + parts.join(' ');
    }
    const QJsonArray a = o.value("occupied").toArray();
    return QString("areas %1%2%3")
        .arg(int(a.at(0).toBool()))
        .arg(int(a.at(1).toBool()))
        .arg(int(a.at(2).toBool()));
}

QList<QJsonObject> jsonLines(const QByteArray &out, bool *allValid)
{
    QList<QJsonObject> list;
    *allValid = out.isEmpty() || out.endsWith('\n');
    for (const QByteArray &line : out.split('\n')) {
        if (line.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
        if (error.error != QJsonParseError::NoError || !doc.isObject())
            *allValid = false;
        list.append(doc.object());
    }
    return list;
}

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &text)
{
    QFile f(dir.filePath(name));
    if (!f.open(QIODevice::WriteOnly))
        return QString();
    f.write(text);
    return f.fileName();
}

const QStringList kFixed = {"--fixed", "1.5,3.0", "--fixed", "-2.0,4.5"};

} // namespace

class TestCliSim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void portsListsThePseudoTerminal();
    void probeFindsTheRate_data();
    void probeFindsTheRate();
    void probeOnASilentLine();
    void portErrors();
    void permissionDenied();
    void noAnswer();
    void show();
    void areasSetUnsetClear();
    void backupRestoreVerifyRoundTrip();
    void verifyComparesDecimetres();
    void malformedAreaFilesSendNothing_data();
    void malformedAreaFilesSendNothing();
    void mode();
    void baudChange();
    void baudRefused();
    void watchFormats();
    void watchUnderFaults_data();
    void watchUnderFaults();
    void watchBadSums();
    void watchDisconnected();
    void interrupted_data();
    void interrupted();
    void recordReplayWatch();
    void stats();
    void cleanupTestCase();

private:
    QTemporaryDir dir;
};

void TestCliSim::initTestCase()
{
    QVERIFY(dir.isValid());
    QVERIFY(QFile::exists(ORV_CLI_BIN));
    QVERIFY(QDir(dir.path()).mkpath("work"));
    workDir = dir.filePath("work");
}

void TestCliSim::cleanupTestCase()
{
    // The window's settings file and diagnostic log are not orv-cli's.
    QCOMPARE(QDir(workDir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestCliSim::portsListsThePseudoTerminal()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QVERIFY(!path.isEmpty());
    const QString name = path.mid(5); // "pts/N", as Qt names it
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("ORV_EXTRA_PORTS");
    CliResult r = runCli({"ports"}, 10000, env);
    CHECK_EXIT(r, 0);
    QVERIFY(!r.out.split('\n').contains(name.toUtf8()));

    env.insert("ORV_EXTRA_PORTS", "/dev/no-such-port:" + path);
    r = runCli({"ports"}, 10000, env);
    CHECK_EXIT(r, 0);
    bool listed = false;
    for (const QByteArray &line : r.out.split('\n'))
        listed = listed || line.startsWith(name.toUtf8() + '\t');
    QVERIFY2(listed, r.out.constData());
    QVERIFY(!r.out.contains("no-such-port"));

    r = runCli({"ports", "--json"}, 10000, env);
    CHECK_EXIT(r, 0);
    const QJsonArray list = QJsonDocument::fromJson(r.out).array();
    bool found = false;
    for (const QJsonValue &v : list)
        if (v.toObject().value("name").toString() == name)
            found = v.toObject().value("path").toString() == path;
    QVERIFY2(found, r.out.constData());
}

void TestCliSim::probeFindsTheRate_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<bool>("streams");
    QTest::addColumn<int>("limitMs");
    // The first rate tried, one of the usual ones, and the last one of all;
    // a module that streams must be found within 3 s, a quiet one within 6 s.
    QTest::newRow("9600 streaming") << 9600 << true << 3000;
    QTest::newRow("115200 streaming") << 115200 << true << 3000;
    QTest::newRow("921600 streaming") << 921600 << true << 3000;
    QTest::newRow("921600 quiet") << 921600 << false << 6000;
}

void TestCliSim::probeFindsTheRate()
{
    QFETCH(int, rate);
    QFETCH(bool, streams);
    QFETCH(int, limitMs);
    SimProcess sim;
    const QString path = sim.start(
        QStringList{"--baud", QString::number(rate), "--rate", streams ? "10" : "0", "--verbose"} +
        kFixed);
    CliResult r = runCli({"probe", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QString("%1\n").arg(rate).toUtf8());
    QVERIFY2(r.ms < limitMs * kSlowdown, qPrintable(describe(r)));

    if (rate == 115200) {
        r = runCli({"probe", "--port", path, "--json"});
        CHECK_EXIT(r, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        QCOMPARE(o.value("baud").toInt(), rate);
        QCOMPARE(o.value("found").toBool(), true);
        QCOMPARE(o.value("tried").toArray().first().toInt(), 9600);
        QCOMPARE(o.value("tried").toArray().last().toInt(), rate);
    }

    // It asked for the display type and nothing else, and the module is
    // still at its rate.
    const QString said = sim.errors();
    for (const char *code : {"request 1 ", "request 2 ", "request 4 ", "request 5 ", "request 10 "})
        QVERIFY2(!said.contains(code), qPrintable(said));
    if (!streams)
        QVERIFY2(said.contains("request 3 "), qPrintable(said));
    r = runCli({"show", "--port", path, "--baud", QString::number(rate)});
    CHECK_EXIT(r, 0);
}

void TestCliSim::probeOnASilentLine()
{
    PtyMaster line; // nobody on the other side: a module that says nothing
    QVERIFY(!line.path().isEmpty());
    const CliResult r = runCli({"probe", "--port", line.path()});
    CHECK_EXIT(r, 4);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.contains("9600, 115200, 256000, 2400, 4800, 19200, 38400, 43000, 56000, 57600, "
                            "230400, 460800, 921600 baud"),
             qPrintable(r.err));
    QVERIFY2(r.ms < 6000 * kSlowdown, qPrintable(describe(r)));
    // What it sent there: only display-type reads.
    QByteArray sent;
    line.drain(sent);
    FrameDecoder decoder;
    const QList<QByteArray> frames = decoder.feed(sent);
    QCOMPARE(frames.size(), 13);
    for (const QByteArray &f : frames)
        QCOMPARE(f, frameformat::buildFrame(ReadTargetShowType, QByteArray()));
}

void TestCliSim::portErrors()
{
    CliResult r = runCli({"show", "--port", "/dev/ttyORV-missing"});
    CHECK_EXIT(r, 3);
    QVERIFY2(r.err.contains("does not exist"), qPrintable(r.err));

    // Held by another program.
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QSerialPort holder;
    holder.setPortName(path);
    QVERIFY(holder.open(QIODevice::ReadWrite));
    r = runCli({"show", "--port", path});
    CHECK_EXIT(r, 3);
    QVERIFY2(r.err.contains("busy"), qPrintable(r.err));
    r = runCli({"probe", "--port", path});
    CHECK_EXIT(r, 3);
    holder.close();
}

void TestCliSim::permissionDenied()
{
    // Run as an ordinary user against a port only root may open.
    if (::geteuid() != 0 || QStandardPaths::findExecutable("runuser").isEmpty())
        QSKIP("needs root and runuser to try an ordinary user");
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    QProcess p;
    p.start("runuser", {"-u", "nobody", "--", QStringLiteral(ORV_CLI_BIN), "show", "--port", path});
    QVERIFY(p.waitForFinished(10000));
    if (p.exitCode() == 126 || p.exitCode() == 127)
        QSKIP("the user nobody cannot run orv-cli from here");
    QCOMPARE(p.exitCode(), 3);
    const QString err = QString::fromUtf8(p.readAllStandardError());
    QVERIFY2(err.contains("permission denied") && err.contains("'dialout' group"), qPrintable(err));
}

void TestCliSim::noAnswer()
{
    PtyMaster line; // nobody on the other side: a module that says nothing
    CliResult r = runCli({"show", "--port", line.path(), "--baud", "115200"});
    CHECK_EXIT(r, 4);
    QVERIFY2(r.err.contains("no answer from the module") && r.err.contains("115200 baud") &&
                 r.err.contains("asked 3 times"),
             qPrintable(r.err));
    r = runCli({"watch", "--port", line.path(), "--baud", "9600", "--duration", "0.5"});
    CHECK_EXIT(r, 4);
    QVERIFY2(r.err.contains("nothing arrived"), qPrintable(r.err));
}

void TestCliSim::show()
{
    SimProcess sim;
    const QString path =
        sim.start({"--area", "1,0,-3.5,6.5,-0.5,3.5", "--area", "2,1,1,5,4,2", "--rate", "20"});
    CliResult r = runCli({"show", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(QString::fromUtf8(r.out), QString("port %1 at 9600 baud\n"
                                               "display: area (area mode)\n"
                                               "area 1: detect (-3.5, 6.5) to (-0.5, 3.5)\n"
                                               "area 2: exclude (1.0, 5.0) to (4.0, 2.0)\n"
                                               "area 3: unset\n")
                                           .arg(path));
    r = runCli({"show", "--port", path, "--baud", "9600", "--json"});
    CHECK_EXIT(r, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o.value("display").toString(), QString("area"));
    QCOMPARE(o.value("baud").toInt(), 9600);
    const QJsonArray areas = o.value("areas").toArray();
    QCOMPARE(areas.size(), 3);
    QCOMPARE(areas.at(0).toObject().value("type").toString(), QString("detect"));
    QCOMPARE(areas.at(0).toObject().value("from").toArray().at(0).toDouble(), -3.5);
    QCOMPARE(areas.at(1).toObject().value("type").toString(), QString("exclude"));
    QCOMPARE(areas.at(1).toObject().value("to").toArray().at(1).toDouble(), 2.0);
    QCOMPARE(areas.at(2).toObject().value("type").toString(), QString("unset"));
}

void TestCliSim::areasSetUnsetClear()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "20"});
    const QStringList p{"--port", path};
    CliResult r = runCli(
        QStringList{"areas", "set", "2", "--type", "exclude", "--from", "1,5", "--to", "4,2"} + p);
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("area 2: exclude (1.0, 5.0) to (4.0, 2.0)\n"));
    r = runCli(
        QStringList{"areas", "set", "1", "--type", "detect", "--from=-1.5,1", "--to", "1.5,3"} + p);
    CHECK_EXIT(r, 0);
    r = runCli(QStringList{"show"} + p);
    QVERIFY(r.out.contains("area 1: detect (-1.5, 3.0) to (1.5, 1.0)\n"
                           "area 2: exclude (1.0, 5.0) to (4.0, 2.0)\n"
                           "area 3: unset\n"));
    r = runCli(QStringList{"areas", "unset", "2"} + p);
    CHECK_EXIT(r, 0);
    r = runCli(QStringList{"show"} + p);
    QVERIFY2(r.out.contains("area 1: detect") && r.out.contains("area 2: unset"),
             r.out.constData());
    r = runCli(QStringList{"areas", "clear"} + p);
    CHECK_EXIT(r, 0);
    r = runCli(QStringList{"show"} + p);
    QVERIFY2(r.out.contains("area 1: unset\narea 2: unset\narea 3: unset\n"), r.out.constData());
}

void TestCliSim::backupRestoreVerifyRoundTrip()
{
    // Module A, set up by hand (one corner the window's encoding would cut).
    SimProcess a;
    const QString pathA =
        a.start({"--area", "1,0,-8,8,-3.11,0.5", "--area", "3,1,2,7,4,5", "--rate", "10"});
    CliResult r = runCli({"show", "--port", pathA});
    QVERIFY2(r.out.contains("area 1: detect (-8.0, 8.0) to (-3.1, 0.5)"), r.out.constData());
    r = runCli({"mode", "track", "--port", pathA});
    CHECK_EXIT(r, 0);
    const QString file = dir.filePath("site.json");
    r = runCli({"areas", "backup", "--port", pathA, "-o", file});
    CHECK_EXIT(r, 0);
    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QJsonObject saved = QJsonDocument::fromJson(f.readAll()).object();
    QCOMPARE(saved.value("format").toString(), QString("orv-areas"));
    QCOMPARE(saved.value("version").toInt(), 1);
    QCOMPARE(saved.value("display").toString(), QString("track"));
    QCOMPARE(saved.value("areas").toArray().size(), 3);
    QCOMPARE(saved.value("areas").toArray().at(1).toObject().value("type").toString(),
             QString("unset"));
    r = runCli({"areas", "verify", file, "--port", pathA});
    CHECK_EXIT(r, 0);

    // Module B, fresh: differs, then restored, then the same.
    SimProcess b;
    const QString pathB = b.start({"--rate", "10", "--verbose"});
    r = runCli({"areas", "verify", file, "--port", pathB});
    CHECK_EXIT(r, 1);
    QVERIFY2(r.out.contains("display: the file says track, the module holds area"),
             r.out.constData());
    QVERIFY2(r.out.contains("area 1: the file says detect (-8.0, 8.0) to (-3.1, 0.5), the "
                            "module holds unset"),
             r.out.constData());
    QVERIFY(r.out.contains("area 3: the file says exclude (2.0, 7.0) to (4.0, 5.0)"));
    QVERIFY(!r.out.contains("area 2"));

    r = runCli({"areas", "restore", file, "--port", pathB});
    CHECK_EXIT(r, 0);
    QVERIFY2(r.out.contains("verified"), r.out.constData());
    r = runCli({"areas", "verify", file, "--port", pathB});
    CHECK_EXIT(r, 0);
    // Both modules now read the same.
    const CliResult showA = runCli({"show", "--port", pathA, "--json"});
    const CliResult showB = runCli({"show", "--port", pathB, "--json"});
    QJsonObject oa = QJsonDocument::fromJson(showA.out).object();
    QJsonObject ob = QJsonDocument::fromJson(showB.out).object();
    oa.remove("port");
    ob.remove("port");
    QCOMPARE(oa, ob);
    QVERIFY(oa.value("areas").toArray().at(0).toObject().value("to").toArray().at(0).toDouble() ==
            -3.1);
}

void TestCliSim::verifyComparesDecimetres()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "10"});
    // 1.25 and 1.2 are the same decimetre; -3.1 as a far corner is sent as -3.0.
    const QString file = writeFile(dir, "dm.json", R"({"format": "orv-areas", "version": 1,
        "areas": [{"number": 2, "type": "detect", "from": [-8, 1.25], "to": [-3.1, 0]}]})");
    CliResult r = runCli({"areas", "restore", file, "--port", path});
    CHECK_EXIT(r, 0);
    r = runCli({"show", "--port", path});
    QVERIFY2(r.out.contains("area 2: detect (-8.0, 1.2) to (-3.0, 0.0)"), r.out.constData());
    const QString same = writeFile(dir, "dm2.json", R"({"format": "orv-areas", "version": 1,
        "areas": [{"number": 2, "type": "detect", "from": [-8, 1.2], "to": [-3.05, 0.0]}]})");
    r = runCli({"areas", "verify", same, "--port", path});
    CHECK_EXIT(r, 0);
    const QString other = writeFile(dir, "dm3.json", R"({"format": "orv-areas", "version": 1,
        "areas": [{"number": 2, "type": "exclude", "from": [-8, 1.2], "to": [-3.0, 0.0]}]})");
    r = runCli({"areas", "verify", other, "--port", path});
    CHECK_EXIT(r, 1);
    QCOMPARE(r.out, QByteArray("area 2: the file says exclude (-8.0, 1.2) to (-3.0, 0.0), the "
                               "module holds detect (-8.0, 1.2) to (-3.0, 0.0)\n"));
}

void TestCliSim::malformedAreaFilesSendNothing_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");
    QTest::newRow("syntax") << QByteArray("{\n  \"format\": \"orv-areas\"\n  \"version\": 1\n}")
                            << ":3:4: not valid JSON";
    QTest::newRow("range")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"areas\": [{\"number\": 1, "
                      "\"type\": \"detect\", \"from\": [-9, 1], \"to\": [1, 0]}]}")
        << ": areas[0].from[0]: x -9 is outside -8..8 m";
    QTest::newRow("type")
        << QByteArray("{\"format\": \"orv-areas\", \"version\": 1, \"areas\": [{\"number\": 1, "
                      "\"type\": \"include\"}]}")
        << ": areas[0].type: must be";
}

void TestCliSim::malformedAreaFilesSendNothing()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, message);
    SimProcess sim;
    const QString path = sim.start({"--rate", "0", "--verbose"});
    const QString file = writeFile(dir, "bad.json", text);
    for (const char *command : {"restore", "verify"}) {
        const CliResult r = runCli({"areas", command, file, "--port", path});
        CHECK_EXIT(r, 2);
        QVERIFY2(r.err.contains(file + message), qPrintable(r.err));
        QVERIFY2(r.err.contains("nothing was sent"), qPrintable(r.err));
    }
    const QString said = sim.errors();
    QVERIFY2(!said.contains("opened by the other side") && !said.contains("request"),
             qPrintable(said));
}

void TestCliSim::mode()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "10"});
    CliResult r = runCli({"mode", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("area\n"));
    r = runCli({"mode", "track", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("track\n"));
    r = runCli({"mode", "--port", path, "--json"});
    CHECK_EXIT(r, 0);
    QCOMPARE(QJsonDocument::fromJson(r.out).object().value("displayValue").toInt(), 1);
    r = runCli({"mode", "area", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("area\n"));
}

void TestCliSim::baudChange()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "10", "--verbose"});
    CliResult r = runCli({"baud", "115200", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("115200\n"));
    QVERIFY(sim.errors().contains("now at 115200 baud"));
    r = runCli({"probe", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("115200\n"));
    // At the old rate the module is not heard any more.
    r = runCli({"watch", "--port", path, "--baud", "9600", "--duration", "0.5"});
    CHECK_EXIT(r, 4);
    QVERIFY2(r.err.contains("wrong baud rate"), qPrintable(r.err));
    // And back, with the rate found automatically.
    r = runCli({"baud", "9600", "--port", path});
    CHECK_EXIT(r, 0);
    QCOMPARE(r.out, QByteArray("9600\n"));
}

void TestCliSim::baudRefused()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "10", "--baud-ng", "--verbose"});
    const CliResult r = runCli({"baud", "115200", "--port", path, "--baud", "9600"});
    CHECK_EXIT(r, 1);
    QVERIFY2(r.err.contains("refused") && r.err.contains("stays at 9600"), qPrintable(r.err));
    // Sent once only.
    QCOMPARE(sim.errors().count("request 1 "), 1);
}

void TestCliSim::watchFormats()
{
    SimProcess sim;
    const QString path = sim.start(QStringList{"--rate", "20", "--settle", "0"} + kFixed);
    const QRegularExpression stamp("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z");

    CliResult r = runCli({"watch", "--port", path, "--count", "6"});
    CHECK_EXIT(r, 0);
    QList<QByteArray> lines = r.out.split('\n');
    QCOMPARE(lines.takeLast(), QByteArray());
    QCOMPARE(lines.size(), 6);
    int targets = 0;
    for (const QByteArray &line : lines) {
        QVERIFY2(stamp.match(QString::fromLatin1(line)).hasMatch(), line.constData());
        if (line.contains(" targets ")) {
            QVERIFY2(line.endsWith(" targets 2: (1.5, 3.0) (-2.0, 4.5)"), line.constData());
            ++targets;
        } else {
            QVERIFY2(line.endsWith(" areas occupied: none"), line.constData());
        }
    }
    QCOMPARE(targets, 3);

    r = runCli({"watch", "--port", path, "--count", "4", "--format", "csv"});
    CHECK_EXIT(r, 0);
    lines = r.out.split('\n');
    QCOMPARE(lines.first(), QByteArray("time,kind,count,targets,area1,area2,area3"));
    QCOMPARE(lines.size(), 6);
    for (int i = 1; i <= 4; ++i) {
        QCOMPARE(lines.at(i).count(','), 6);
        QVERIFY(lines.at(i).contains(",targets,2,1.5 3.0;-2.0 4.5,,,") ||
                lines.at(i).endsWith(",areas,,,0,0,0"));
    }

    r = runCli({"watch", "--port", path, "--count", "4", "--format", "jsonl"});
    CHECK_EXIT(r, 0);
    bool valid = false;
    const QList<QJsonObject> objects = jsonLines(r.out, &valid);
    QVERIFY(valid);
    QCOMPARE(objects.size(), 4);
    for (const QJsonObject &o : objects) {
        QVERIFY(stamp.match(o.value("time").toString()).hasMatch());
        const QString text = reportText(o);
        QVERIFY2(text == "targets 1.5,3 -2,4.5" || text == "areas 000", qPrintable(text));
    }

    // Duration: about as long as asked.
    r = runCli({"watch", "--port", path, "--duration", "0.8"});
    CHECK_EXIT(r, 0);
    QVERIFY2(r.ms >= 800 && r.ms < 3000, qPrintable(describe(r)));
    QVERIFY(r.out.count('\n') >= 10);
}

void TestCliSim::watchUnderFaults_data()
{
    QTest::addColumn<QStringList>("faults");
    QTest::addColumn<QString>("note");
    QTest::newRow("noise") << QStringList{"--noise", "9"} << "byte(s) outside frames";
    QTest::newRow("split") << QStringList{"--split"} << QString();
    QTest::newRow("noise and split") << QStringList{"--noise", "4", "--split"} << "outside frames";
}

void TestCliSim::watchUnderFaults()
{
    QFETCH(QStringList, faults);
    QFETCH(QString, note);
    SimProcess sim;
    const QString path = sim.start(QStringList{"--rate", "20", "--settle", "0"} + kFixed + faults);
    const CliResult r = runCli({"watch", "--port", path, "--duration", "1.5", "--format", "jsonl"});
    CHECK_EXIT(r, 0);
    bool valid = false;
    const QList<QJsonObject> objects = jsonLines(r.out, &valid);
    QVERIFY(valid);
    QVERIFY2(objects.size() >= 20, qPrintable(describe(r)));
    // The module sends a target report and an area report on each tick: with
    // no frame lost the two kinds alternate.
    for (int i = 0; i < objects.size(); ++i) {
        const QString text = reportText(objects.at(i));
        if (text.startsWith("targets"))
            QCOMPARE(text, QString("targets 1.5,3 -2,4.5"));
        if (i > 0)
            QVERIFY2(objects.at(i).value("kind") != objects.at(i - 1).value("kind"),
                     qPrintable(QString("lines %1 and %2 are both %3")
                                    .arg(i - 1)
                                    .arg(i)
                                    .arg(objects.at(i).value("kind").toString())));
    }
    if (!note.isEmpty()) {
        QVERIFY2(r.err.contains(note), qPrintable(r.err));
    } else if (!r.err.isEmpty()) {
        // watch joins the stream wherever it is after the baud-rate probe: the
        // tail of a frame begun before counts as bytes outside frames. Less
        // than one whole report (14 bytes with two people), nothing else.
        const QRegularExpression joined(
            "^orv-cli watch: 0 frame\\(s\\) with a bad sum dropped, (\\d+) byte\\(s\\) outside "
            "frames\n$");
        const QRegularExpressionMatch m = joined.match(r.err);
        QVERIFY2(m.hasMatch() && m.captured(1).toInt() < 14, qPrintable(r.err));
    }
}

void TestCliSim::watchBadSums()
{
    SimProcess sim;
    const QString path =
        sim.start(QStringList{"--rate", "20", "--settle", "0", "--bad-checksum", "0.3"} + kFixed);
    // --baud given: a bad sum on the probe's answer would not matter, but the
    // stream is the point here.
    const CliResult r = runCli({"watch", "--port", path, "--baud", "9600", "--duration", "1.5"});
    CHECK_EXIT(r, 0);
    QVERIFY2(r.err.contains("with a bad sum dropped"), qPrintable(r.err));
    for (const QByteArray &line : r.out.split('\n'))
        if (line.contains("targets"))
            QVERIFY2(line.endsWith("targets 2: (1.5, 3.0) (-2.0, 4.5)"), line.constData());

    // Every answer spoiled: no answer, and the message says why.
    SimProcess spoiled;
    const QString spoiledPath = spoiled.start({"--rate", "20", "--bad-checksum", "1"});
    const CliResult s = runCli({"show", "--port", spoiledPath});
    CHECK_EXIT(s, 4);
    QVERIFY2(s.err.contains("with a bad sum came at "), qPrintable(s.err));
}

void TestCliSim::watchDisconnected()
{
    SimProcess sim;
    const QString path =
        sim.start(QStringList{"--rate", "20", "--settle", "0", "--disconnect-after", "1"} + kFixed);
    const CliResult r = runCli({"watch", "--port", path, "--format", "csv"});
    CHECK_EXIT(r, 4);
    QVERIFY2(r.err.contains("went away"), qPrintable(r.err));
    QVERIFY(r.out.endsWith('\n'));
    QVERIFY2(r.out.count('\n') >= 20, qPrintable(describe(r)));
    QVERIFY2(r.ms < 4000, qPrintable(describe(r)));
}

void TestCliSim::interrupted_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("watch") << "watch";
    QTest::newRow("record") << "record";
    QTest::newRow("stats") << "stats";
}

void TestCliSim::interrupted()
{
    QFETCH(QString, command);
    SimProcess sim;
    const QString path =
        sim.start(QStringList{"--rate", "20", "--settle", "0", "--verbose"} + kFixed);
    const QString file = dir.filePath("interrupted.log");
    QFile::remove(file);
    QStringList args{command, "--port", path};
    if (command == "watch")
        args << "--format"
             << "jsonl";
    if (command == "record")
        args << "-o" << file;

    QProcess p;
    p.start(QStringLiteral(ORV_CLI_BIN), args);
    QVERIFY(p.waitForStarted(5000));
    // Interrupted once ten reports have come through: watch has printed
    // them, record has written them. stats prints nothing before the end:
    // it gets a second (twenty report periods) from the moment the
    // simulator saw the port opened.
    QByteArray out;
    QElapsedTimer opened;
    auto tenReports = [&] {
        if (command == "watch")
            return out.count('\n') >= 10;
        if (command == "record") {
            QFile f(file);
            return f.open(QIODevice::ReadOnly) && f.readAll().count("RecvData:") >= 10;
        }
        if (!opened.isValid() && sim.errors(0).contains("opened by the other side"))
            opened.start();
        return opened.isValid() && opened.elapsed() >= 1000;
    };
    QElapsedTimer waited;
    waited.start();
    while (!tenReports() && p.state() == QProcess::Running && waited.elapsed() < 20000) {
        p.waitForReadyRead(50);
        out += p.readAllStandardOutput();
    }
    QCOMPARE(p.state(), QProcess::Running);
    ::kill(pid_t(p.processId()), SIGINT);
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 130);
    out += p.readAllStandardOutput();
    if (command == "watch") {
        bool valid = false;
        QVERIFY(jsonLines(out, &valid).size() >= 10);
        QVERIFY(valid);
    } else if (command == "record") {
        QFile f(file);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray text = f.readAll();
        QVERIFY(text.endsWith('\n'));
        QVERIFY(text.count("RecvData:") >= 10);
    } else {
        QVERIFY2(out.contains("code 7   target report"), out.constData());
    }
}

void TestCliSim::recordReplayWatch()
{
    const QString file = dir.filePath("session.log");
    {
        SimProcess sim;
        const QString path = sim.start({"--targets", "4", "--seed", "11", "--rate", "20",
                                        "--settle", "0", "--area", "1,0,-5,8,5,0"});
        const CliResult r = runCli({"record", "--port", path, "-o", file, "--duration", "1.5"});
        CHECK_EXIT(r, 0);
    }
    // The reports in the recording, read by the test itself.
    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QRegularExpression lineFormat(
        "^\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\] RecvData:((?:[0-9A-F]{2} )+)$");
    QByteArray stream;
    int lines = 0;
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.isEmpty())
            continue;
        const QRegularExpressionMatch m = lineFormat.match(QString::fromLatin1(line));
        QVERIFY2(m.hasMatch(), line.constData());
        stream += QByteArray::fromHex(m.captured(1).toLatin1().replace(' ', ""));
        ++lines;
    }
    QStringList recorded;
    for (const SeenFrame &s : cutFrames(stream)) {
        const QString text = reportText(s.frame);
        if (!text.isEmpty())
            recorded << text;
    }
    QVERIFY2(recorded.size() >= 30, qPrintable(QString::number(recorded.size())));
    QVERIFY(lines >= 30);

    // Played back into watch: the same reports, in the same order. watch
    // stops after as many reports as were recorded, however long the replay
    // takes to come through; one missing would leave it waiting until the
    // upper bound.
    SimProcess replay;
    const QString path = replay.start({"--replay", file});
    const CliResult r = runCli({"watch", "--port", path, "--baud", "9600", "--format", "jsonl",
                                "--count", QString::number(recorded.size())},
                               60000 * kSlowdown);
    CHECK_EXIT(r, 0);
    bool valid = false;
    QStringList watched;
    for (const QJsonObject &o : jsonLines(r.out, &valid))
        watched << reportText(o);
    QVERIFY(valid);
    QCOMPARE(watched, recorded);
}

void TestCliSim::stats()
{
    SimProcess sim;
    const QString path = sim.start(QStringList{"--rate", "20", "--settle", "0", "--noise", "5",
                                               "--bad-checksum", "0.2", "--seed", "3"} +
                                   kFixed);
    const CliResult r = runCli({"stats", "--port", path, "--duration", "2", "--json"});
    CHECK_EXIT(r, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QVERIFY2(o.value("durationSeconds").toDouble() >= 1.9, r.out.constData());
    QVERIFY(o.value("bytesOutsideFrames").toDouble() > 0);
    QVERIFY(o.value("badSums").toDouble() > 0);
    QVERIFY(o.value("longestSilenceSeconds").toDouble() < 0.5);
    double targetRate = 0;
    for (const QJsonValue &v : o.value("byCode").toArray())
        if (v.toObject().value("code").toInt() == TargetReport)
            targetRate = v.toObject().value("perSecond").toDouble();
    // 20 reports a second, some spoiled.
    QVERIFY2(targetRate > 5 && targetRate < 22, r.out.constData());

    const CliResult text = runCli({"stats", "--port", path, "--duration", "0.5"});
    CHECK_EXIT(text, 0);
    QVERIFY(text.out.contains("longest silence"));
    QVERIFY(text.out.contains("bad sums"));
}

QTEST_GUILESS_MAIN(TestCliSim)
#include "tst_cli_sim.moc"
