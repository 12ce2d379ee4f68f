// The real program in a real window: Xvfb, radar-sim with people standing at
// known points, and orv-tool in a fresh run directory. The link is opened by
// a mouse click on the open button through the X server, the screen is
// photographed, and the target discs must stand where the plot puts those
// points. Then the window is closed the way a window manager closes it
// (WM_DELETE_WINDOW), the tool must exit with 0, and its log must hold the
// session.

#include "tests/e2e/e2esession.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>

namespace
{

// The people the simulator reports (metres), well inside the default plane
// and far enough apart that no label covers another disc.
const QList<QPointF> kPeople = {{-3.0, 2.0}, {0.0, 4.0}, {3.0, 6.0}};
// Their target report as the module sends it: (-30, 20), (0, 40), (30, 60).
const char kTargetFrameHex[] = "FF EE DD 00 07 07 E2 14 00 28 1E 3C 7F DD EE FF ";

} // namespace

class TestE2eWindow : public QObject
{
    Q_OBJECT

private slots:
    void openLinkSeeTargetsCloseWindow();
};

void TestE2eWindow::openLinkSeeTargetsCloseWindow()
{
    e2e::Session s;
    const QStringList simArgs =
        QStringList{"--baud", "115200", "--rate", "10"} + e2e::standingPeopleArgs(kPeople);
    QVERIFY2(s.startXvfb(), qPrintable(s.error()));
    QVERIFY2(s.startSim(simArgs), qPrintable(s.error()));
    QVERIFY2(s.prepareRunDir(115200, 1), qPrintable(s.error()));
    QVERIFY2(s.startTool(), qPrintable(s.error()));
    QVERIFY2(s.waitForWindow(), qPrintable(s.error()));
    QCOMPARE(s.windowRect().size(), QSize(1267, 863));

    // Before the link is open there is nothing on the plane.
    QImage shot;
    const QString before = QDir::current().filePath("e2e-before-open.png");
    QVERIFY2(s.screenshot(before, &shot), qPrintable(s.error()));
    QVERIFY(e2e::findDiscs(shot, s.windowRect()).isEmpty());

    // The operator clicks "Open"; the module hears the tool's first request.
    QVERIFY2(s.openLink(before), qPrintable(s.error()));
    QElapsedTimer sinceOpen;
    sinceOpen.start();

    // Targets on the plane, where the axes put them, as soon as they are
    // painted.
    const QString after = QDir::current().filePath("e2e-after-open.png");
    QString why;
    bool standing = false;
    while (!standing && sinceOpen.elapsed() < 20000) {
        QTest::qWait(200);
        QVERIFY2(s.screenshot(after, &shot), qPrintable(s.error()));
        standing = e2e::discsStandAt(shot, s.windowRect(), kPeople, &why);
    }
    QVERIFY2(standing, qPrintable(why + " in " + after));

    // Let the logger write its batches (every 5 s): wait until twenty
    // received chunks are in the file, then close the window.
    auto recvLinesWritten = [&] {
        int n = 0;
        QDirIterator it(s.runDirectory() + "/log", {"logfile_0.txt"}, QDir::Files,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile f(it.next());
            if (f.open(QIODevice::ReadOnly))
                n += f.readAll().count("RecvData:");
        }
        return n;
    };
    while (recvLinesWritten() < 20 && sinceOpen.elapsed() < 60000)
        QTest::qWait(200);
    QVERIFY2(s.closeWindow(), qPrintable(s.error() + "\n" + s.toolErrorTail()));
    QCOMPARE(s.toolProcess().exitStatus(), QProcess::NormalExit);
    QCOMPARE(s.toolProcess().exitCode(), 0);
    QVERIFY2(s.stopSim(), qPrintable(s.error()));
    QCOMPARE(s.simProcess().exitCode(), 0);

    // The session in the log: log/<yyyymmdd>/logfile_0.txt.
    const QString logDir = s.runDirectory() + "/log";
    const QStringList days = QDir(logDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(days.size(), 1);
    QFile log(logDir + "/" + days.first() + "/logfile_0.txt");
    QVERIFY2(log.open(QIODevice::ReadOnly), qPrintable(log.fileName()));
    const QList<QByteArray> lines = log.readAll().split('\n');
    const QRegularExpression recv("^\\[(\\d{4})-(\\d{2})-(\\d{2}) \\d{2}:\\d{2}:\\d{2}\\.\\d{3}\\] "
                                  "RecvData:((?:[0-9A-F]{2} )+)\\r?$");
    int recvLines = 0;
    bool sawTargets = false;
    QString dateOfLines;
    for (const QByteArray &line : lines) {
        const QRegularExpressionMatch m = recv.match(QString::fromLatin1(line));
        if (!m.hasMatch())
            continue;
        ++recvLines;
        dateOfLines = m.captured(1) + m.captured(2) + m.captured(3);
        sawTargets = sawTargets || m.captured(4).contains(kTargetFrameHex);
    }
    QVERIFY2(recvLines >= 20, qPrintable(QString::number(recvLines)));
    QVERIFY(sawTargets);
    QCOMPARE(days.first(), dateOfLines);
    // The open the operator made, with the port and rate from the settings file.
    const QByteArray opened =
        QString("serial port:%1,Buadrate\uFF1A115200, result:OK").arg(s.listedPortName()).toUtf8();
    bool sawOpen = false;
    for (const QByteArray &line : lines)
        sawOpen = sawOpen || line.contains(opened);
    QVERIFY2(sawOpen, opened.constData());
}

QTEST_GUILESS_MAIN(TestE2eWindow)
#include "tst_e2e_window.moc"
