// The window's wrong-baud handling for real: radar-sim's module talks at
// 115200 baud while the window opens the port at 9600 (from its settings
// file). The module does not understand the window's requests and what it
// sends arrives as noise without frame headers, so the window's receive scan
// gives up after 128 unframed bytes: the link is closed and a message box
// tells the operator. The box must carry text 39 of the language file in
// use, the port must be closed, and the open button must open it again.

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

} // namespace

class TestE2eWrongBaud : public QObject
{
    Q_OBJECT

private slots:
    void wrongRateClosesTheLinkWithAMessage();
};

void TestE2eWrongBaud::wrongRateClosesTheLinkWithAMessage()
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
    QVERIFY2(s.waitForSimOutput("not understood: sent at 9600 baud", 5000),
             qPrintable(QString(s.simOutput())));

    // The message box, with text 39.
    const QString box = s.waitForWindowTitled(title, 10000);
    QVERIFY2(!box.isEmpty(), qPrintable("no message box titled " + title + "\n" +
                                        s.toolErrorTail() + "\n" + QString(s.simOutput())));
    // The box's text can be selected with the mouse: three clicks on it put
    // the whole paragraph on the primary selection.
    QTest::qWait(300); // first paint of the box
    QImage shot;
    const QString boxShot = QDir::current().filePath("e2e-wrongbaud-box.png");
    QVERIFY2(s.screenshot(boxShot, &shot), qPrintable(s.error()));
    const QPoint onText = textPixel(shot, s.windowGeometry(box));
    QVERIFY2(!onText.isNull(), qPrintable("no text found in the message box: " + boxShot));
    QVERIFY2(s.tripleClick(onText), qPrintable(s.error()));
    const QString selected = s.primarySelection();
    QCOMPARE(selected, wrongBaud);

    // The link was closed: the module saw the port go, and heard no request.
    QVERIFY2(s.waitForSimOutput("closed by the other side", 3000),
             qPrintable(QString(s.simOutput())));
    QVERIFY(!s.simOutput().contains("request 6 (ReadArea)"));
    QVERIFY2(s.toolErrorTail(400).contains("baudrate error!"), qPrintable(s.toolErrorTail()));

    QVERIFY2(s.typeKeys(box, "Return"), qPrintable(s.error()));
    QElapsedTimer t;
    t.start();
    while (s.windowExists(box) && t.elapsed() < 5000)
        QTest::qWait(100);
    QVERIFY(!s.windowExists(box));

    // The button reads "open" again (text 11): it looks as it did before the
    // first open, and a click opens the port once more, with the same message.
    const QString openShot = QDir::current().filePath("e2e-wrongbaud-open.png");
    const QString againShot = QDir::current().filePath("e2e-wrongbaud-again.png");
    QVERIFY2(s.clickOpenButton(againShot), qPrintable(s.error()));
    const QImage before(openShot);
    const QImage after(againShot);
    const QPoint button = e2e::openButtonCentre(before, s.windowRect());
    QVERIFY(!button.isNull());
    const QRect face(button - QPoint(30, 15), QSize(61, 31));
    QVERIFY2(before.copy(face) == after.copy(face),
             qPrintable("the open button differs: " + openShot + " " + againShot));
    t.restart();
    while (s.simOutput().count("opened by the other side") < 2 && t.elapsed() < 5000)
        QTest::qWait(100);
    QCOMPARE(s.simOutput().count("opened by the other side"), 2);
    const QString second = s.waitForWindowTitled(title, 10000);
    QVERIFY2(!second.isEmpty(), qPrintable(s.toolErrorTail()));
    QVERIFY2(s.typeKeys(second, "Return"), qPrintable(s.error()));
    t.restart();
    while (s.windowExists(second) && t.elapsed() < 5000)
        QTest::qWait(100);
    QCOMPARE(s.simOutput().count("closed by the other side"), 2);

    QVERIFY2(s.closeWindow(), qPrintable(s.error() + "\n" + s.toolErrorTail()));
    QCOMPARE(s.toolProcess().exitStatus(), QProcess::NormalExit);
    QCOMPARE(s.toolProcess().exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestE2eWrongBaud)
#include "tst_e2e_wrongbaud.moc"
