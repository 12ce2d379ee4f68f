// The Windows build (the staged contents of the portable zip) under Wine in a
// real X window: in each language the window must appear with the tool's
// title and size, its plot and open button where the Linux build has them,
// and its open button's caption must change with the language. Then, with
// radar-sim's pseudo-terminal mapped to COM7, one click on the open button
// must show the simulated people where the plot puts them. Closing the window
// the way a window manager does must end the program with 0.

#include "tests/e2e/e2esession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#ifndef ORV_WINDOWS_STAGE
#error "ORV_WINDOWS_STAGE must name the staged Windows build"
#endif
#ifndef ORV_SOURCE_DIR
#error "ORV_SOURCE_DIR must name the source tree"
#endif
#ifndef ORV_WINE_E2E_PREFIX
#error "ORV_WINE_E2E_PREFIX must name the Wine prefix for this test"
#endif

namespace
{

struct Layout {
    QSize window;
    e2e::PlotBox plot;
    QPoint openButton; // relative to the window
    QImage button;     // the open button's pixels
};

int differingPixels(const QImage &a, const QImage &b)
{
    if (a.isNull() || a.size() != b.size())
        return -1;
    int differ = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            differ += a.pixel(x, y) != b.pixel(x, y) ? 1 : 0;
    return differ;
}

// Writes the script that starts the Windows build: Wine with the test's own
// prefix, which gets Wine's Windows fonts, and with the helpers that let a
// Windows QSerialPort receive under Wine 8.0 (tests/windows: a modem-line
// shim for pseudo-terminals and the completion routine that Wine's
// WaitCommEvent never calls). Without them the tool's start-up probe of a
// silent port (Wine offers the machine's /dev/ttyS* as COM ports) never
// returns, and an open link receives nothing.
bool writeStarter(const QString &dir, QString *error)
{
    const QString stage = QStringLiteral(ORV_WINDOWS_STAGE);
    for (const char *name : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
        if (!QFile::copy(stage + "/" + name, dir + "/" + name)) {
            *error = QString("cannot copy %1 from %2").arg(name, stage);
            return false;
        }
    QProcess build;
    build.setProcessChannelMode(QProcess::MergedChannels);
    build.start(QStringLiteral(ORV_SOURCE_DIR "/tests/windows/build-wine-helpers.sh"), {dir});
    if (!build.waitForFinished(120000) || build.exitCode() != 0) {
        *error = "the Wine helpers do not build: " + QString::fromLocal8Bit(build.readAll());
        return false;
    }
    QFile script(dir + "/orv-tool");
    if (!script.open(QIODevice::WriteOnly)) {
        *error = "cannot write the starter script";
        return false;
    }
    script.write(
        QString(
            "#!/bin/sh\n"
            "export WINEPREFIX='%1' WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='\n"
            "helpers='%2'\n"
            // Wine's own Tahoma, the face Windows dialogs use, is only
            // found inside the prefix.
            "fonts=\"$WINEPREFIX/drive_c/windows/Fonts\"\n"
            "if [ ! -f \"$fonts/tahoma.ttf\" ] && [ -f /usr/share/wine/fonts/tahoma.ttf ]; then\n"
            "    wineboot -i >/dev/null 2>&1 && wineserver -w\n"
            "    cp /usr/share/wine/fonts/*.ttf \"$fonts/\"\n"
            "fi\n"
            "LD_PRELOAD=\"$helpers/ptyshim.so${LD_PRELOAD:+:$LD_PRELOAD}\" exec wine \\\n"
            "    \"$helpers/winehookrun.exe\" \"$helpers/wineapcfix.dll\" '%3/orv-tool.exe'\n")
            .arg(QStringLiteral(ORV_WINE_E2E_PREFIX), dir, stage)
            .toUtf8());
    script.close();
    return script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Runs a Wine program in the test's prefix; true when it exits with 0.
bool runWine(const QString &program, const QStringList &args)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("WINEPREFIX", QStringLiteral(ORV_WINE_E2E_PREFIX));
    env.insert("WINEDEBUG", "-all");
    p.setProcessEnvironment(env);
    // Not to this test's output: the Wine services that a first program
    // starts would hold it open while the Wine server runs.
    p.setStandardOutputFile(QProcess::nullDevice());
    p.setStandardErrorFile(QProcess::nullDevice());
    p.start(program, args);
    return p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// People standing still (metres), as in the Linux window test.
const QList<QPointF> kPeople = {{-3.0, 2.0}, {0.0, 4.0}, {3.0, 6.0}};

void stopWineServer()
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("WINEPREFIX", QStringLiteral(ORV_WINE_E2E_PREFIX));
    p.setProcessEnvironment(env);
    p.start("wineserver", {"-k"});
    p.waitForFinished(10000);
}

} // namespace

class TestE2eWine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup() { stopWineServer(); }
    void windowInEachLanguage_data();
    void windowInEachLanguage();
    void captionFollowsLanguage();
    void linkOpensOnMappedComPort();

private:
    // The window of one program (the Linux build when starter is empty) in
    // one language, photographed; false with the reason in `error`.
    bool photograph(const QString &starter, int languageIndex, Layout *layout, QString *error);

    QTemporaryDir starterDir;
    QString starter;
    QImage wineButton[2];
};

void TestE2eWine::initTestCase()
{
    if (!QFile::exists(QStringLiteral(ORV_WINDOWS_STAGE) + "/orv-tool.exe"))
        QSKIP("no Windows build staged in " ORV_WINDOWS_STAGE " (scripts/windows makes it)");
    if (QStandardPaths::findExecutable("wine").isEmpty())
        QSKIP("Wine is not installed");
    QVERIFY(starterDir.isValid());
    QString error;
    QVERIFY2(writeStarter(starterDir.path(), &error), qPrintable(error));
    starter = starterDir.filePath("orv-tool");
}

bool TestE2eWine::photograph(const QString &program, int languageIndex, Layout *layout,
                             QString *error)
{
    e2e::Session s;
    if (!program.isEmpty())
        s.setToolProgram(program);
    QImage shot;
    const QString path = QDir::current().filePath(
        QString("e2e-%1-%2.png").arg(program.isEmpty() ? "linux" : "wine").arg(languageIndex));
    // Wine's first start in a new prefix sets the prefix up first.
    const bool ok = s.startXvfb() && s.prepareRunDir(9600, languageIndex) && s.startTool() &&
                    s.waitForWindow(program.isEmpty() ? 20000 : 120000);
    if (!ok) {
        *error = s.error();
        return false;
    }
    // The window is up; on a loaded machine its plot may be painted a while
    // after the rest: photographed again until it shows, within a bound.
    const QRect window = s.windowRect();
    QElapsedTimer painting;
    painting.start();
    do {
        if (!s.screenshot(path, &shot)) {
            *error = s.error();
            return false;
        }
        layout->plot = e2e::findPlot(shot, window);
        if (layout->plot.valid())
            break;
        QTest::qWait(200);
    } while (painting.elapsed() < 60000);
    layout->window = window.size();
    layout->plot.left -= window.x();
    layout->plot.right -= window.x();
    layout->plot.top -= window.y();
    layout->plot.bottom -= window.y();
    layout->openButton = e2e::openButtonCentre(shot, window) - window.topLeft();
    layout->button = e2e::openButtonPicture(shot, window);
    if (!s.closeWindow(30000)) {
        *error = "closing the window: " + s.error();
        return false;
    }
    if (s.toolProcess().exitStatus() != QProcess::NormalExit || s.toolProcess().exitCode() != 0) {
        *error = QString("the program ended with %1 after the window closed")
                     .arg(s.toolProcess().exitCode());
        return false;
    }
    return true;
}

void TestE2eWine::windowInEachLanguage_data()
{
    QTest::addColumn<int>("languageIndex");
    QTest::newRow("Chinese") << 0;
    QTest::newRow("English") << 1;
}

void TestE2eWine::windowInEachLanguage()
{
    QFETCH(int, languageIndex);
    QString error;
    Layout linux, wine;
    QVERIFY2(photograph(QString(), languageIndex, &linux, &error), qPrintable(error));
    QVERIFY2(photograph(starter, languageIndex, &wine, &error), qPrintable(error));

    QCOMPARE(wine.window, linux.window);
    QVERIFY2(wine.plot.valid(), "no plot found in the Wine window");
    // The plot fills the same part of the window; the style's frames and
    // margins may move its edges by a few pixels.
    const int slack = 12;
    QVERIFY2(qAbs(wine.plot.left - linux.plot.left) <= slack &&
                 qAbs(wine.plot.right - linux.plot.right) <= slack &&
                 qAbs(wine.plot.top - linux.plot.top) <= slack &&
                 qAbs(wine.plot.bottom - linux.plot.bottom) <= slack,
             qPrintable(QString("plot at %1,%2-%3,%4 under Wine, %5,%6-%7,%8 on Linux")
                            .arg(wine.plot.left)
                            .arg(wine.plot.top)
                            .arg(wine.plot.right)
                            .arg(wine.plot.bottom)
                            .arg(linux.plot.left)
                            .arg(linux.plot.top)
                            .arg(linux.plot.right)
                            .arg(linux.plot.bottom)));
    QVERIFY2(!wine.button.isNull(), "no open button found in the Wine window");
    QVERIFY2((wine.openButton - linux.openButton).manhattanLength() <= 2 * slack,
             qPrintable(QString("open button at %1,%2 under Wine, %3,%4 on Linux")
                            .arg(wine.openButton.x())
                            .arg(wine.openButton.y())
                            .arg(linux.openButton.x())
                            .arg(linux.openButton.y())));
    wineButton[languageIndex] = wine.button;
}

void TestE2eWine::captionFollowsLanguage()
{
    if (wineButton[0].isNull() || wineButton[1].isNull())
        QSKIP("needs both languages' windows");
    // The two captions are different texts: many pixels differ.
    const int differ = differingPixels(wineButton[0], wineButton[1]);
    QVERIFY2(differ > 40, qPrintable(QString::number(differ)));
}

void TestE2eWine::linkOpensOnMappedComPort()
{
    // radar-sim's pseudo-terminal becomes COM7 in the prefix; Wine reads the
    // mapping when its services start.
    e2e::Session s;
    const QStringList simArgs =
        QStringList{"--baud", "9600", "--rate", "10"} + e2e::standingPeopleArgs(kPeople);
    QVERIFY2(s.startXvfb(), qPrintable(s.error()));
    QVERIFY2(s.startSim(simArgs), qPrintable(s.error()));
    QVERIFY(runWine("wine", {"reg", "add", "HKLM\\Software\\Wine\\Ports", "/v", "COM7", "/d",
                             s.ptyPath(), "/f"}));
    stopWineServer();
    QVERIFY(runWine("wineserver", {"-w"}));

    s.setToolProgram(starter);
    QVERIFY2(s.prepareRunDir(9600, 1), qPrintable(s.error()));
    QFile ini(s.runDirectory() + "/ORV_conf.ini");
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[comm]\nport=COM7\nbaudrate=9600\n\n[language]\nindex=1\n");
    ini.close();
    QVERIFY2(s.startTool(), qPrintable(s.error()));
    QVERIFY2(s.waitForWindow(120000), qPrintable(s.error()));

    // The operator clicks "Open"; the module hears the tool's first request.
    const QString before = QDir::current().filePath("e2e-wine-before-open.png");
    QVERIFY2(s.openLink(before), qPrintable(s.error()));
    // The people, as soon as they are painted.
    QImage shot;
    const QString after = QDir::current().filePath("e2e-wine-after-open.png");
    QString why;
    bool standing = false;
    QElapsedTimer t;
    for (t.start(); !standing && t.elapsed() < 60000;) {
        QTest::qWait(300);
        QVERIFY2(s.screenshot(after, &shot), qPrintable(s.error()));
        standing = e2e::discsStandAt(shot, s.windowRect(), kPeople, &why);
    }
    QVERIFY2(standing, qPrintable(why + " in " + after));
    QVERIFY2(s.closeWindow(30000), qPrintable(s.error()));
    QCOMPARE(s.toolProcess().exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestE2eWine)
#include "tst_e2e_wine.moc"
