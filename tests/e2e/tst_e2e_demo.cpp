// The demo as a newcomer starts it: scripts/run (without its build step)
// under Xvfb, in a scratch build tree whose bin/ holds a real module's
// settings. The demo must run in <build>/demo with the simulated port, its
// baud rate and the locale's language already chosen, so that one click on
// the open button shows the people; a language already stored is kept, and
// bin/ORV_conf.ini is never touched. The language of the texts is told by
// the open button's caption, compared with the caption of the tool started
// directly in each language.

#include "tests/e2e/e2esession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QtTest>

#ifndef ORV_SOURCE_DIR
#error "ORV_SOURCE_DIR must name the source tree"
#endif

namespace
{

const QList<QPointF> kPeople = {{-3.0, 2.0}, {0.0, 4.0}, {3.0, 6.0}};
const char kRealModuleIni[] = "[comm]\nport=ttyUSB0\nbaudrate=115200\n\n[language]\nindex=0\n";

// Share of pixels that differ between two pictures of the same size.
double difference(const QImage &a, const QImage &b)
{
    if (a.isNull() || a.size() != b.size())
        return 1.0;
    int differ = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            differ += a.pixel(x, y) != b.pixel(x, y) ? 1 : 0;
    return double(differ) / (a.width() * a.height());
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

} // namespace

class TestE2eDemo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void englishDemoShowsPeopleAfterOneClick();
    void chineseLocaleGivesChineseTexts();
    void storedLanguageIsKept();
    void cleanupTestCase();

private:
    // The open button of the tool started directly with this language index.
    QImage referenceButton(int languageIndex);
    // Starts scripts/run with the locale; waits for its window.
    bool startDemo(const QString &lang, const QStringList &simArgs);
    bool closeDemo();
    // A picture of the whole screen, kept in the scratch directory.
    QImage grab(const QString &name);

    QTemporaryDir scratch;
    QString build;
    e2e::Session screen; // only its X server
    QProcess demo;
    QString windowId;
    QRect window;
    QImage english, chinese;
};

QImage TestE2eDemo::referenceButton(int languageIndex)
{
    e2e::Session s;
    QImage shot;
    if (!s.startXvfb() || !s.prepareRunDir(9600, languageIndex) || !s.startTool() ||
        !s.waitForWindow() || !s.screenshot(s.runDirectory() + "/shot.png", &shot)) {
        qWarning() << s.error();
        return QImage();
    }
    const QImage button = e2e::openButtonPicture(shot, s.windowRect());
    s.closeWindow();
    return button;
}

void TestE2eDemo::initTestCase()
{
    QVERIFY(scratch.isValid());
    english = referenceButton(1);
    chinese = referenceButton(0);
    QVERIFY(!english.isNull());
    QVERIFY(!chinese.isNull());
    QVERIFY2(difference(english, chinese) > 0.05, "the two captions look alike");

    // A build tree of our own: bin/ with the real programs and texts, and the
    // settings of a real module.
    build = scratch.filePath("build");
    const QString bin = build + "/bin";
    QVERIFY(QDir().mkpath(bin));
    const QString realBin = QFileInfo(QStringLiteral(ORV_TOOL_BIN)).absolutePath();
    QVERIFY(QFile::link(QStringLiteral(ORV_TOOL_BIN), bin + "/orv-tool"));
    QVERIFY(QFile::link(QStringLiteral(RADAR_SIM_BIN), bin + "/radar-sim"));
    for (const char *name : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
        QVERIFY(QFile::copy(realBin + "/" + name, bin + "/" + name));
    QFile ini(bin + "/ORV_conf.ini");
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write(kRealModuleIni);
    ini.close();

    QVERIFY2(screen.startXvfb(), qPrintable(screen.error()));
}

bool TestE2eDemo::startDemo(const QString &lang, const QStringList &simArgs)
{
    if (demo.state() != QProcess::NotRunning) { // left by a failed case
        e2e::sendWindowDelete(screen.display(), windowId);
        if (!demo.waitForFinished(10000)) {
            demo.terminate();
            demo.waitForFinished(5000);
        }
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG", "LANGUAGE", "ORV_EXTRA_PORTS"})
        env.remove(name);
    env.insert("LANG", lang);
    env.insert("DISPLAY", screen.display());
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("ORV_RUN_NO_BUILD", "1");
    env.insert("ORV_BUILD_DIR", build);
    demo.setProcessEnvironment(env);
    // The pointer away from the window: a hovered button looks different.
    e2e::runOnDisplay(screen.display(), "xdotool", {"mousemove", "1590", "990"});
    demo.setStandardOutputFile(QProcess::nullDevice());
    demo.setStandardErrorFile(scratch.filePath("demo-stderr.txt"));
    demo.start(QStringLiteral(ORV_SOURCE_DIR) + "/scripts/run", simArgs);
    if (!demo.waitForStarted(5000))
        return false;
    QElapsedTimer t;
    t.start();
    windowId.clear();
    while (windowId.isEmpty() && t.elapsed() < 20000) {
        windowId = e2e::findToolWindow(screen.display());
        if (windowId.isEmpty()) {
            if (demo.state() == QProcess::NotRunning)
                return false;
            QThread::msleep(200);
        }
    }
    if (windowId.isEmpty())
        return false;
    window = e2e::windowGeometry(screen.display(), windowId);
    if (window.width() <= 0)
        return false;
    // First paint: the settings column is on the screen.
    for (t.restart(); t.elapsed() < 20000; QThread::msleep(200)) {
        const QImage shot = grab("first-paint.png");
        if (!shot.isNull() && !e2e::openButtonCentre(shot, window).isNull())
            return true;
    }
    return false;
}

bool TestE2eDemo::closeDemo()
{
    if (!e2e::sendWindowDelete(screen.display(), windowId))
        return false;
    // scripts/run stops the simulator and ends with the tool's status.
    return demo.waitForFinished(10000) && demo.exitStatus() == QProcess::NormalExit &&
           demo.exitCode() == 0;
}

QImage TestE2eDemo::grab(const QString &name)
{
    const QString path = scratch.filePath(name);
    int rc = -1;
    e2e::runOnDisplay(screen.display(), "import", {"-window", "root", path}, &rc);
    return rc == 0 ? QImage(path) : QImage();
}

void TestE2eDemo::englishDemoShowsPeopleAfterOneClick()
{
    const QStringList simArgs = QStringList{"--rate", "10"} + e2e::standingPeopleArgs(kPeople);
    QVERIFY2(startDemo("en_US.UTF-8", simArgs),
             qPrintable(readAll(scratch.filePath("demo-stderr.txt"))));

    QImage shot = grab("demo-before.png");
    QVERIFY(!shot.isNull());
    QVERIFY(e2e::findDiscs(shot, window).isEmpty());
    const QImage button = e2e::openButtonPicture(shot, window);
    QVERIFY2(difference(button, english) < 0.02, "the caption is not the English one");

    // The demo's own settings: the simulated port as the window lists it, the
    // simulator's default rate, English.
    const QString conf = build + "/demo/ORV_conf.ini";
    {
        QSettings s(conf, QSettings::IniFormat);
        QVERIFY2(s.value("comm/port").toString().startsWith("pts/"), qPrintable(readAll(conf)));
        QCOMPARE(s.value("comm/baudrate").toString(), QString("9600"));
        QCOMPARE(s.value("language/index").toInt(), 1);
    }
    QVERIFY(QFile::exists(build + "/demo/ORV_translate_en.txt"));

    // One click at the open button; the people appear.
    const QPoint centre = e2e::openButtonCentre(shot, window);
    int rc = -1;
    e2e::runOnDisplay(
        screen.display(), "xdotool",
        {"mousemove", QString::number(centre.x()), QString::number(centre.y()), "click", "1"}, &rc);
    QCOMPARE(rc, 0);
    QList<e2e::Blob> discs;
    QElapsedTimer t;
    t.start();
    while (discs.size() < 3 && t.elapsed() < 20000) {
        QThread::msleep(500);
        shot = grab("demo-after.png");
        if (!shot.isNull())
            discs = e2e::findDiscs(shot, window);
    }
    QVERIFY2(
        discs.size() == 3,
        qPrintable(
            QString("%1 discs in %2").arg(discs.size()).arg(scratch.filePath("demo-after.png"))));

    QVERIFY2(closeDemo(), qPrintable(readAll(scratch.filePath("demo-stderr.txt"))));
    QCOMPARE(readAll(build + "/bin/ORV_conf.ini"), QByteArray(kRealModuleIni));
}

void TestE2eDemo::chineseLocaleGivesChineseTexts()
{
    QVERIFY(QFile::remove(build + "/demo/ORV_conf.ini"));
    QVERIFY2(startDemo("zh_CN.UTF-8", {}),
             qPrintable(readAll(scratch.filePath("demo-stderr.txt"))));
    const QImage shot = grab("demo-zh.png");
    QVERIFY(!shot.isNull());
    QVERIFY2(difference(e2e::openButtonPicture(shot, window), chinese) < 0.02,
             "the caption is not the Chinese one");
    QVERIFY(closeDemo());
    QSettings s(build + "/demo/ORV_conf.ini", QSettings::IniFormat);
    QCOMPARE(s.value("language/index").toInt(), 0);
    QCOMPARE(readAll(build + "/bin/ORV_conf.ini"), QByteArray(kRealModuleIni));
}

void TestE2eDemo::storedLanguageIsKept()
{
    // Chinese stored (as by the window's language switch), the axes set by
    // hand: an English locale changes neither.
    QFile ini(build + "/demo/ORV_conf.ini");
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[XYAXIS]\nX1=-3\nX2=3\nY1=0\nY2=6\n\n[comm]\nport=ttyS0\nbaudrate=2400\n\n"
              "[language]\nindex=0\n");
    ini.close();
    QVERIFY2(startDemo("en_US.UTF-8", {"--baud", "115200"}),
             qPrintable(readAll(scratch.filePath("demo-stderr.txt"))));
    const QImage shot = grab("demo-kept.png");
    QVERIFY(!shot.isNull());
    QVERIFY2(difference(e2e::openButtonPicture(shot, window), chinese) < 0.02,
             "the stored Chinese was not kept");
    QVERIFY(closeDemo());
    QSettings s(build + "/demo/ORV_conf.ini", QSettings::IniFormat);
    QCOMPARE(s.value("language/index").toInt(), 0);
    QCOMPARE(s.value("XYAXIS/X1").toString(), QString("-3"));
    QCOMPARE(s.value("XYAXIS/Y2").toString(), QString("6"));
    QVERIFY(s.value("comm/port").toString().startsWith("pts/"));
    QCOMPARE(s.value("comm/baudrate").toString(), QString("115200"));
}

void TestE2eDemo::cleanupTestCase()
{
    if (demo.state() != QProcess::NotRunning) {
        demo.terminate();
        demo.waitForFinished(5000);
    }
    // A real module's settings beside the build's programs are untouched.
    QCOMPARE(readAll(build + "/bin/ORV_conf.ini"), QByteArray(kRealModuleIni));
}

QTEST_GUILESS_MAIN(TestE2eDemo)
#include "tst_e2e_demo.moc"
