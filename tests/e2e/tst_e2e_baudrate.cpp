// The window's baud-rate handling for real against radar-sim's rate
// emulation. First the wrong rate: radar-sim's module talks at 115200 baud
// while the window opens the port at 9600 (from its settings file). The module does not understand
// the window's requests and what it sends arrives as noise without frame headers, so the window's
// receive scan gives up after 128 unframed bytes: the link is closed and a message box tells the
// operator. The box must carry text 39 of the language file in use, the port must be closed, and
// the open button must open it again. Then a baud-rate change made in the window: the module
// answers at the old rate and moves to the new one, the window reopens there and goes on receiving
// reports.

#include "tests/e2e/e2esession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

namespace
{

// Text number of a translation file: each line is eight hexadecimal digits,
// one separator byte and the UTF-8 text; a later line with the same number wins.
QString translationText(const QString &path, int number)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    QString text;
    for (QByteArray line : f.readAll().split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        bool ok = false;
        if (line.size() >= 9 && line.left(8).toInt(&ok, 16) == number && ok)
            text = QString::fromUtf8(line.mid(9));
    }
    return text;
}

// A pixel of the message text in a message box: the first dark pixel in its
// upper part, right of the icon (the button row is below).
QPoint textPixel(const QImage &img, const QRect &box)
{
    const QRect area =
        QRect(box.left() + box.width() / 4, box.top(), box.width() * 3 / 4, box.height() * 3 / 5)
            .intersected(img.rect());
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QRgb c = img.pixel(x, y);
            if (qRed(c) < 80 && qGreen(c) < 80 && qBlue(c) < 80)
                return QPoint(x, y);
        }
    return QPoint();
}

// Screenshots until the message box's text is painted; the pixel to click
// on, null when it was not painted within the time.
QPoint waitForBoxText(e2e::Session &s, const QString &box, const QString &path, QImage *shot)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 20000) {
        if (!s.screenshot(path, shot))
            return QPoint();
        const QPoint onText = textPixel(*shot, s.windowGeometry(box));
        if (!onText.isNull())
            return onText;
        QTest::qWait(200);
    }
    return QPoint();
}

} // namespace

class TestE2eBaudRate : public QObject
{
    Q_OBJECT

private slots:
    void wrongRateClosesTheLinkWithAMessage();
    void baudChangeReopensAtTheNewRate();
};

void TestE2eBaudRate::wrongRateClosesTheLinkWithAMessage()
{
    e2e::Session s;
    QVERIFY2(s.startXvfb(), qPrintable(s.error()));
    // Enough reports that the noise passes 128 bytes at 9600 within a second.
    QVERIFY2(s.startSim({"--baud", "115200", "--targets", "16", "--rate", "50", "--seed", "1"}),
             qPrintable(s.error()));
    QVERIFY2(s.prepareRunDir(9600, 1), qPrintable(s.error()));
    const QString language = s.runDirectory() + "/ORV_translate_en.txt";
    const QString title = translationText(language, 31);
    const QString wrongBaud = translationText(language, 39);
    QVERIFY2(!title.isEmpty() && !wrongBaud.isEmpty(), qPrintable(language));
    QVERIFY2(s.startTool(), qPrintable(s.error()));
    QVERIFY2(s.waitForWindow(), qPrintable(s.error()));

    // The operator presses "Open": the port opens at 9600.
    QVERIFY2(s.clickOpenButton(QDir::current().filePath("e2e-wrongbaud-open.png")),
             qPrintable(s.error()));
    QVERIFY2(s.waitForSimOutput("not understood: sent at 9600 baud", 20000),
             qPrintable(QString(s.simOutput())));

    // The message box, with text 39.
    const QString box = s.waitForWindowTitled(title, 20000);
    QVERIFY2(!box.isEmpty(), qPrintable("no message box titled " + title + "\n" +
                                        s.toolErrorTail() + "\n" + QString(s.simOutput())));
    // The box's text can be selected with the mouse: three clicks on it put
    // the whole paragraph on the primary selection.
    QImage shot;
    const QString boxShot = QDir::current().filePath("e2e-wrongbaud-box.png");
    const QPoint onText = waitForBoxText(s, box, boxShot, &shot);
    QVERIFY2(!onText.isNull(), qPrintable("no text found in the message box: " + boxShot));
    QVERIFY2(s.tripleClick(onText), qPrintable(s.error()));
    const QString selected = s.primarySelection();
    QCOMPARE(selected, wrongBaud);

    // The link was closed: the module saw the port go, and heard no request.
    QVERIFY2(s.waitForSimOutput("closed by the other side", 20000),
             qPrintable(QString(s.simOutput())));
    QVERIFY(!s.simOutput().contains("request 6 (ReadArea)"));
    QVERIFY2(s.toolErrorTail(400).contains("baudrate error!"), qPrintable(s.toolErrorTail()));

    QVERIFY2(s.typeKeys(box, "Return"), qPrintable(s.error()));
    QElapsedTimer t;
    t.start();
    while (s.windowExists(box) && t.elapsed() < 20000)
        QTest::qWait(100);
    QVERIFY(!s.windowExists(box));

    // The button reads "open" again (text 11): it looks as it did before the
    // first open, and a click opens the port once more, with the same message.
    const QString openShot = QDir::current().filePath("e2e-wrongbaud-open.png");
    const QString againShot = QDir::current().filePath("e2e-wrongbaud-again.png");
    // The window's port listing at start opens and closes the port too, so
    // quickly that the simulator may or may not see it: count from here.
    const int opensBefore = s.simOutput().count("opened by the other side");
    const int closesBefore = s.simOutput().count("closed by the other side");
    QVERIFY2(s.clickOpenButton(againShot), qPrintable(s.error()));
    const QImage before(openShot);
    const QImage after(againShot);
    const QPoint button = e2e::openButtonCentre(before, s.windowRect());
    QVERIFY(!button.isNull());
    const QRect face(button - QPoint(30, 15), QSize(61, 31));
    QVERIFY2(before.copy(face) == after.copy(face),
             qPrintable("the open button differs: " + openShot + " " + againShot));
    t.restart();
    while (s.simOutput().count("opened by the other side") < opensBefore + 1 && t.elapsed() < 20000)
        QTest::qWait(100);
    QCOMPARE(s.simOutput().count("opened by the other side"), opensBefore + 1);
    const QString second = s.waitForWindowTitled(title, 20000);
    QVERIFY2(!second.isEmpty(), qPrintable(s.toolErrorTail()));
    QVERIFY2(s.typeKeys(second, "Return"), qPrintable(s.error()));
    t.restart();
    while (s.windowExists(second) && t.elapsed() < 20000)
        QTest::qWait(100);
    t.restart();
    while (s.simOutput().count("closed by the other side") < closesBefore + 1 &&
           t.elapsed() < 20000)
        QTest::qWait(100);
    QCOMPARE(s.simOutput().count("closed by the other side"), closesBefore + 1);

    QVERIFY2(s.closeWindow(), qPrintable(s.error() + "\n" + s.toolErrorTail()));
    QCOMPARE(s.toolProcess().exitStatus(), QProcess::NormalExit);
    QCOMPARE(s.toolProcess().exitCode(), 0);
}

void TestE2eBaudRate::baudChangeReopensAtTheNewRate()
{
    e2e::Session s;
    QVERIFY2(s.startXvfb(), qPrintable(s.error()));
    QVERIFY2(s.startSim({"--baud", "115200", "--fixed", "0,4", "--rate", "20"}),
             qPrintable(s.error()));
    QVERIFY2(s.prepareRunDir(115200, 1), qPrintable(s.error()));
    const QString language = s.runDirectory() + "/ORV_translate_en.txt";
    const QString title = translationText(language, 31);
    const QString question = translationText(language, 30).replace("%1", "57600");
    QVERIFY2(!title.isEmpty() && question.contains("57600"), qPrintable(language));
    QVERIFY2(s.startTool(), qPrintable(s.error()));
    QVERIFY2(s.waitForWindow(), qPrintable(s.error()));
    QVERIFY2(s.openLink(QDir::current().filePath("e2e-baudchange-open.png")),
             qPrintable(s.error()));

    // The operator picks 57600, the rate above 115200 in the list.
    QImage shot;
    const QString linked = QDir::current().filePath("e2e-baudchange-linked.png");
    QPoint combo;
    QElapsedTimer t;
    for (t.start(); combo.isNull() && t.elapsed() < 20000; QTest::qWait(200)) {
        QVERIFY2(s.screenshot(linked, &shot), qPrintable(s.error()));
        combo = e2e::baudRateComboCentre(shot, s.windowRect());
    }
    QVERIFY2(!combo.isNull(), qPrintable(linked));
    // The list opens as a window of its own: wait until it is on the screen.
    auto toolWindows = [&s] {
        return e2e::runOnDisplay(s.display(), "xdotool",
                                 {"search", "--onlyvisible", "--pid", QString::number(s.toolPid())})
            .split('\n', Qt::SkipEmptyParts)
            .size();
    };
    const int windowsBefore = toolWindows();
    QVERIFY2(s.click(combo), qPrintable(s.error()));
    for (t.restart(); toolWindows() <= windowsBefore && t.elapsed() < 20000;)
        QTest::qWait(100);
    QVERIFY2(toolWindows() > windowsBefore, "the list of rates did not open");
    QVERIFY2(s.typeKeys(QString(), "Up Return"), qPrintable(s.error()));

    // The window asks first (text 30 with the new rate); the operator says yes.
    const QString box = s.waitForWindowTitled(title, 20000);
    QVERIFY2(!box.isEmpty(), qPrintable(s.toolErrorTail()));
    const QString boxShot = QDir::current().filePath("e2e-baudchange-question.png");
    const QPoint onText = waitForBoxText(s, box, boxShot, &shot);
    QVERIFY2(!onText.isNull(), qPrintable(boxShot));
    QVERIFY2(s.tripleClick(onText), qPrintable(s.error()));
    QCOMPARE(s.primarySelection(), question);
    QVERIFY2(s.typeKeys(box, "alt+y"), qPrintable(s.error()));

    // The module answers at 115200 and moves to 57600; the window reopens there.
    QVERIFY2(s.waitForSimOutput("request 1 (SetBaudrate)", 20000),
             qPrintable(QString(s.simOutput())));
    QVERIFY2(s.waitForSimOutput("now at 57600 baud", 20000), qPrintable(QString(s.simOutput())));
    const QString reopened = "Buadrate\uFF1A57600, result:OK";
    t.restart();
    while (!s.toolErrorText().contains(reopened) && t.elapsed() < 20000)
        QTest::qWait(100);
    QVERIFY2(s.toolErrorText().contains(reopened), qPrintable(s.toolErrorTail()));

    // The window says so (text 33) and stops reading until the box is closed.
    QString done = s.waitForWindowTitled(title, 20000);
    for (t.restart(); done == box && t.elapsed() < 20000; done = s.waitForWindowTitled(title, 100))
        QTest::qWait(100);
    QVERIFY2(!done.isEmpty() && done != box, qPrintable(s.toolErrorTail()));
    const QString doneShot = QDir::current().filePath("e2e-baudchange-done.png");
    const QPoint onDoneText = waitForBoxText(s, done, doneShot, &shot);
    QVERIFY2(!onDoneText.isNull(), qPrintable(doneShot));
    QVERIFY2(s.tripleClick(onDoneText), qPrintable(s.error()));
    QCOMPARE(s.primarySelection(), translationText(language, 33));
    QVERIFY2(s.typeKeys(done, "Return"), qPrintable(s.error()));
    t.restart();
    while (s.windowExists(done) && t.elapsed() < 20000)
        QTest::qWait(100);
    QVERIFY(!s.windowExists(done));

    // Reports keep coming and are understood at the new rate; no wrong-baud message.
    QString after;
    int reports = 0;
    for (t.restart(); reports < 20 && t.elapsed() < 20000; QTest::qWait(100)) {
        after = s.toolErrorText().section(reopened, -1);
        reports = after.count("targetList size:1");
    }
    QVERIFY2(reports >= 20, qPrintable(QString("%1 reports after the reopen").arg(reports)));
    QVERIFY(!after.contains("baudrate error!"));
    QVERIFY(s.waitForWindowTitled(title, 0).isEmpty());
    QVERIFY(!s.simOutput().contains("not understood"));
    QFile ini(s.runDirectory() + "/ORV_conf.ini");
    QVERIFY(ini.open(QIODevice::ReadOnly));
    QVERIFY2(ini.readAll().contains("baudrate=57600"), "the new rate is not stored");

    QVERIFY2(s.closeWindow(), qPrintable(s.error() + "\n" + s.toolErrorTail()));
    QCOMPARE(s.toolProcess().exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestE2eBaudRate)
#include "tst_e2e_baudrate.moc"
