// radar-sim --link: a symbolic link at one path to the simulator's port,
// replaced by each run and removed when the run ends, so that a module can
// be unplugged and plugged in again at that path.

#include "radar/frameformat.h"
#include "tests/tools/simpeer.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

namespace
{

// Where the link points, empty when there is no link at that path.
QString linkTarget(const QString &path)
{
    return QFileInfo(path).symLinkTarget();
}

// Whether anything (even a dangling link) is at that path.
bool somethingAt(const QString &path)
{
    return QFileInfo(path).isSymLink() || QFileInfo::exists(path);
}

// The module answers a read-area request through the link.
bool answersThrough(const QString &link)
{
    PtyPeer peer;
    if (!peer.open(link))
        return false;
    if (!peer.send(frameformat::buildFrame(ReadArea, QByteArray())))
        return false;
    const QByteArray f = peer.waitForFrame(ReadArea, 5000);
    return f.size() == 40 && frameformat::checksumMatches(f);
}

} // namespace

class TestRadarSimPortLink : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void helpNamesIt();
    void linkLeadsToThePort();
    void removedAtExit_data();
    void removedAtExit();
    void staleLinkReplaced();
    void unplugAndReplugAtOnePath();
    void refusesToReplaceAFile();
    void emptyPathIsABadCommandLine();

private:
    QTemporaryDir dir;
    QString link;
};

void TestRadarSimPortLink::initTestCase()
{
    QVERIFY(dir.isValid());
    link = dir.filePath("ttyRADAR");
}

void TestRadarSimPortLink::helpNamesIt()
{
    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), {"--help"});
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitCode(), 0);
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    QVERIFY2(out.contains("--link PATH"), qPrintable(out));
    QVERIFY2(out.contains("symbolic link"), qPrintable(out));
}

void TestRadarSimPortLink::linkLeadsToThePort()
{
    QFile::remove(link);
    SimProcess sim;
    const QString path = sim.start({"--rate", "0", "--link", link});
    QVERIFY2(path.startsWith("/dev/pts/"), qPrintable(path));
    // The link is in place by the time the port line is printed.
    QCOMPARE(linkTarget(link), path);
    QVERIFY(answersThrough(link));
}

void TestRadarSimPortLink::removedAtExit_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGINT") << int(SIGINT);
}

void TestRadarSimPortLink::removedAtExit()
{
    QFETCH(int, signal);
    SimProcess sim;
    const QString path = sim.start({"--rate", "0", "--link", link});
    QVERIFY(!path.isEmpty());
    QCOMPARE(linkTarget(link), path);
    QCOMPARE(::kill(pid_t(sim.process.processId()), signal), 0);
    QVERIFY(sim.process.waitForFinished(10000));
    QCOMPARE(sim.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(sim.process.exitCode(), 0);
    QVERIFY(!somethingAt(link));
}

void TestRadarSimPortLink::staleLinkReplaced()
{
    // A run killed without a chance to clean up leaves a dangling link.
    QFile::remove(link);
    QVERIFY(QFile::link(dir.filePath("gone"), link));
    QVERIFY(somethingAt(link));
    SimProcess sim;
    const QString path = sim.start({"--rate", "0", "--link", link});
    QVERIFY(!path.isEmpty());
    QCOMPARE(linkTarget(link), path);
    QVERIFY(answersThrough(link));
}

void TestRadarSimPortLink::unplugAndReplugAtOnePath()
{
    QFile::remove(link);
    for (int round = 0; round < 3; ++round) {
        SimProcess sim;
        const QString path = sim.start({"--rate", "0", "--link", link});
        QVERIFY(!path.isEmpty());
        QCOMPARE(linkTarget(link), path);
        QVERIFY(answersThrough(link));
        sim.stop();
        QVERIFY(!somethingAt(link));
    }

    // A new run that takes the path over while the old one still runs keeps
    // its link when the old one ends.
    SimProcess first;
    const QString firstPath = first.start({"--rate", "0", "--link", link});
    QVERIFY(!firstPath.isEmpty());
    SimProcess second;
    const QString secondPath = second.start({"--rate", "0", "--link", link});
    QVERIFY(!secondPath.isEmpty());
    QVERIFY(secondPath != firstPath);
    QCOMPARE(linkTarget(link), secondPath);
    first.stop();
    QCOMPARE(first.process.exitCode(), 0);
    QCOMPARE(linkTarget(link), secondPath);
    QVERIFY(answersThrough(link));
    second.stop();
    QVERIFY(!somethingAt(link));
}

void TestRadarSimPortLink::refusesToReplaceAFile()
{
    const QString file = dir.filePath("notes.txt");
    QFile f(file);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("keep me\n");
    f.close();

    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), {"--rate", "0", "--link", file});
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 1);
    QVERIFY(p.readAllStandardOutput().isEmpty());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QVERIFY2(err.startsWith("radar-sim: --link: "), qPrintable(err));
    QVERIFY2(err.contains("not a symbolic link"), qPrintable(err));
    QVERIFY(!QFileInfo(file).isSymLink());
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("keep me\n"));
}

void TestRadarSimPortLink::emptyPathIsABadCommandLine()
{
    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), {"--link="});
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitCode(), 2);
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QVERIFY2(err.startsWith("radar-sim: option --link needs a path"), qPrintable(err));
}

QTEST_GUILESS_MAIN(TestRadarSimPortLink)
#include "tst_radarsimportlink.moc"
