// The operator's commands: open and close, baud rate, axes, display type,
// areas typed or dragged, cancel all, the language switch, and the window's
// reaction to a lost port or unreadable data. The module is played on a
// pseudo-terminal; what the tool sends is checked byte for byte.

#include "mwharness.h"

#include "app/mainwindow.h"
#include "radar/frameformat.h"
#include "radar/radercommunicate.h"
#include "view/capturescreen.h"
#include "view/xyaxis.h"
#include "view/xyview.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

using namespace mw;

namespace
{

const char *const kLinkControls[] = {"btn_setArea",    "btn_unset_area",  "cbx_target_show",
                                     "cbx_area_index", "cbx_area_status", "cbx_area_type"};

RaderCommunicate *radar()
{
    return RaderCommunicate::GetInstance();
}

// Frames the tool sent, leaving out the one-shot display-type query, which
// depends on whether an earlier test already delivered an area report.
QStringList sentFrames(PtyModule &module, int expected, int settleMs = 150)
{
    QList<QByteArray> frames;
    auto relevant = [&frames] {
        int n = 0;
        for (const QByteArray &f : frames)
            n += f.at(5) != 3;
        return n;
    };
    QElapsedTimer clock;
    clock.start();
    while (relevant() < expected && clock.elapsed() < 3000)
        frames += module.waitForFrames(1, 100);
    frames += module.waitForFrames(1000, settleMs);
    QStringList texts;
    for (const QByteArray &f : frames)
        if (f.at(5) != 3)
            texts << hexText(f);
    return texts;
}

} // namespace

class TestMainWindowCommands : public QObject, private WindowFixture
{
    Q_OBJECT

private:
    QString text(int n) { return expectedText(0, n); }

    CaptureScreen *overlay()
    {
        for (QWidget *top : QApplication::topLevelWidgets())
            if (auto *c = qobject_cast<CaptureScreen *>(top))
                if (c->coveredView() == view())
                    return c;
        return nullptr;
    }

    void verifyClosedState()
    {
        QCOMPARE(w<QPushButton>("btn_comm_open")->text(), text(11));
        QVERIFY(!radar()->bOpen);
        for (const char *name : kLinkControls)
            QVERIFY2(!w<QWidget>(name)->isEnabled(), name);
        QCOMPARE(view()->targetCountShown(), 0);
        QCOMPARE(int(view()->areaOccupancyMask()), 0);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(view()->areaInfo(i).status, 0);
    }

    void sendAreasAndTargets()
    {
        module->send(areaReportFrame({0, -15, 30, 15, 10}, {1, -20, 50, 10, 20}, {2, 0, 0, 0, 0}));
        QTRY_COMPARE(view()->areaInfo(1).status, 1);
        module->send(frameformat::buildFrame(7, hexBytes("0A 1E F6 14")));
        QTRY_COMPARE(view()->targetCountShown(), 2);
        module->send(frameformat::buildFrame(8, hexBytes("01 01 00")));
        QTRY_COMPARE(int(view()->areaOccupancyMask()), 3);
    }

private slots:
    void initTestCase() { setUpCase(); }
    void init() { setUpWindow(); }

    void cleanup() { tearDownWindow(); }

    // ---- open and close ----------------------------------------------------

    void openReadsAreasAndStoresPort()
    {
        QVERIFY(openLink(window.get(), *module, "115200"));
        QVERIFY(radar()->bOpen);
        QCOMPARE(w<QPushButton>("btn_comm_open")->text(), text(12));
        for (const char *name : kLinkControls)
            QVERIFY2(w<QWidget>(name)->isEnabled(), name);
        QCOMPARE(settingsValue("comm/port"), module->portName());
        QCOMPARE(settingsValue("comm/baudrate"), QString("115200"));
        const QByteArray file = settingsFileText();
        QVERIFY(file.contains("[comm]"));
        QVERIFY(file.contains("baudrate=115200"));
        QVERIFY(logLines().contains(
            QString("serial port:%1,Buadrate：115200, result:OK").arg(module->portName())));
        QVERIFY(boxes->seen.isEmpty());
    }

    void openFailureIsLoggedOnly()
    {
        auto *ports = w<QComboBox>("cbx_comm_name");
        ports->addItem("ttyORVNOSUCHPORT");
        ports->setCurrentText("ttyORVNOSUCHPORT");
        QTest::mouseClick(w<QPushButton>("btn_comm_open"), Qt::LeftButton);
        QTRY_VERIFY(logLines().contains("Comm open failed."));
        QVERIFY(!radar()->bOpen);
        QCOMPARE(countDebug("串口打开失败"), 1);
        QCOMPARE(w<QPushButton>("btn_comm_open")->text(), text(11));
        for (const char *name : kLinkControls)
            QVERIFY2(!w<QWidget>(name)->isEnabled(), name);
        QVERIFY(boxes->seen.isEmpty());
        QCOMPARE(settingsValue("comm/port"), QString());
        QVERIFY(!settingsFileText().contains("[comm]"));
        QCOMPARE(module->collect(100), QByteArray());
    }

    void openTwiceOpensThenCloses()
    {
        QVERIFY(openLink(window.get(), *module));
        sendAreasAndTargets();
        QTest::mouseClick(w<QPushButton>("btn_comm_open"), Qt::LeftButton);
        verifyClosedState();
        // The port is really closed: a later report changes nothing.
        module->send(frameformat::buildFrame(7, hexBytes("0A 1E")));
        QTest::qWait(100);
        QCOMPARE(view()->targetCountShown(), 0);
        QVERIFY(boxes->seen.isEmpty());
        // And the button opens again.
        QVERIFY(openLink(window.get(), *module));
    }

    void destructorClosesTheLink()
    {
        QVERIFY(openLink(window.get(), *module));
        window.reset();
        QVERIFY(!radar()->bOpen);
    }

    // ---- areas -------------------------------------------------------------

    void cornerChecks_data()
    {
        QTest::addColumn<QString>("x1");
        QTest::addColumn<QString>("y1");
        QTest::addColumn<QString>("x2");
        QTest::addColumn<QString>("y2");
        QTest::addColumn<int>("message");
        QTest::addColumn<QString>("focus");
        QTest::newRow("x1 -8") << "-8"
                               << "3"
                               << "1.5"
                               << "1" << 0 << "";
        QTest::newRow("x1 8") << "8"
                              << "3"
                              << "1.5"
                              << "1" << 0 << "";
        QTest::newRow("x2 -8") << "-1"
                               << "3"
                               << "-8"
                               << "1" << 0 << "";
        QTest::newRow("x2 8") << "-1"
                              << "3"
                              << "8"
                              << "1" << 0 << "";
        QTest::newRow("y1 0") << "-1"
                              << "0"
                              << "1"
                              << "1" << 0 << "";
        QTest::newRow("y1 8") << "-1"
                              << "8"
                              << "1"
                              << "1" << 0 << "";
        QTest::newRow("y2 0") << "-1"
                              << "3"
                              << "1"
                              << "0" << 0 << "";
        QTest::newRow("y2 8") << "-1"
                              << "3"
                              << "1"
                              << "8" << 0 << "";
        QTest::newRow("empty texts") << ""
                                     << ""
                                     << ""
                                     << "" << 0 << "";
        QTest::newRow("not numbers") << "abc"
                                     << "x"
                                     << "?"
                                     << "1,5" << 0 << "";
        QTest::newRow("x1 -8.01") << "-8.01"
                                  << "3"
                                  << "1"
                                  << "1" << 35 << "lineEdit_left_top_x";
        QTest::newRow("x1 8.01") << "8.01"
                                 << "3"
                                 << "1"
                                 << "1" << 35 << "lineEdit_left_top_x";
        QTest::newRow("x2 -8.01") << "-1"
                                  << "3"
                                  << "-8.01"
                                  << "1" << 36 << "lineEdit_right_bottom_x";
        QTest::newRow("x2 8.01") << "-1"
                                 << "3"
                                 << "8.01"
                                 << "1" << 36 << "lineEdit_right_bottom_x";
        QTest::newRow("y1 -0.1") << "-1"
                                 << "-0.1"
                                 << "1"
                                 << "1" << 37 << "lineEdit_left_top_y";
        QTest::newRow("y1 8.01") << "-1"
                                 << "8.01"
                                 << "1"
                                 << "1" << 37 << "lineEdit_left_top_y";
        QTest::newRow("y2 -0.1") << "-1"
                                 << "3"
                                 << "1"
                                 << "-0.1" << 38 << "lineEdit_right_bottom_y";
        QTest::newRow("y2 8.01") << "-1"
                                 << "3"
                                 << "1"
                                 << "8.01" << 38 << "lineEdit_right_bottom_y";
        QTest::newRow("x1 and y2 out: x1 first") << "9"
                                                 << "3"
                                                 << "1"
                                                 << "-1" << 35 << "lineEdit_left_top_x";
        QTest::newRow("x2 and y1 out: x2 first") << "1"
                                                 << "-1"
                                                 << "-9"
                                                 << "1" << 36 << "lineEdit_right_bottom_x";
        QTest::newRow("y1 and y2 out: y1 first") << "1"
                                                 << "9"
                                                 << "1"
                                                 << "9" << 37 << "lineEdit_left_top_y";
    }

    void cornerChecks()
    {
        QFETCH(QString, x1);
        QFETCH(QString, y1);
        QFETCH(QString, x2);
        QFETCH(QString, y2);
        QFETCH(int, message);
        QFETCH(QString, focus);
        QVERIFY(openLink(window.get(), *module));
        w<QLineEdit>("lineEdit_left_top_x")->setText(x1);
        w<QLineEdit>("lineEdit_left_top_y")->setText(y1);
        w<QLineEdit>("lineEdit_right_bottom_x")->setText(x2);
        w<QLineEdit>("lineEdit_right_bottom_y")->setText(y2);
        QTest::mouseClick(w<QPushButton>("btn_setArea"), Qt::LeftButton);
        const QStringList frames = sentFrames(*module, message ? 0 : 1);
        if (message) {
            QCOMPARE(frames, QStringList());
            QCOMPARE(boxes->seen.size(), 1);
            QCOMPARE(boxes->seen[0].title, text(31));
            QCOMPARE(boxes->seen[0].text, text(message));
            QCOMPARE(boxes->seen[0].buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
            QVERIFY(window->focusWidget());
            QCOMPARE(window->focusWidget()->objectName(), focus);
        } else {
            QVERIFY(boxes->seen.isEmpty());
            QCOMPARE(frames.size(), 1);
            const QByteArray frame = hexBytes(frames[0].toLatin1());
            QCOMPARE(int(frame.at(5)), 4); // set area
            QCOMPARE(int(frame.at(6)), 1); // area 1
            QCOMPARE(int(qint8(frame.at(7))), int(x1.toDouble() * 10));
            QCOMPARE(int(qint8(frame.at(8))), int(y1.toDouble() * 10));
        }
    }

    void setAreaSendsFrame_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("corners");
        QTest::addColumn<QString>("frame");
        QTest::newRow("area 1 type 0")
            << 0 << 0 << QStringList{"-1.5", "3.0", "1.5", "1.0"}
            << "FF EE DD 00 0B 04 01 F1 1E F1 0A 0F 0A 0F 1E 00 55 DD EE FF";
        QTest::newRow("area 3 type 1")
            << 2 << 1 << QStringList{"-1.5", "3", "1.5", "1"}
            << "FF EE DD 00 0B 04 03 F1 1E F1 0A 0F 0A 0F 1E 01 58 DD EE FF";
        QTest::newRow("right corner truncated a decimetre short")
            << 1 << 0 << QStringList{"-8.0", "5.0", "-3.1", "2.0"}
            << "FF EE DD 00 0B 04 02 B0 32 B0 14 E2 14 E2 32 00 B6 DD EE FF";
        QTest::newRow("positive height mirrored below")
            << 0 << 1 << QStringList{"1", "2", "3", "6"}
            << "FF EE DD 00 0B 04 01 0A 14 0A EC 1E EC 1E 14 01 56 DD EE FF";
    }

    void setAreaSendsFrame()
    {
        QFETCH(int, index);
        QFETCH(int, type);
        QFETCH(QStringList, corners);
        QFETCH(QString, frame);
        QVERIFY(openLink(window.get(), *module));
        // The module holds all three areas, so choosing an area keeps the
        // status at "set" and sends nothing.
        module->send(
            areaReportFrame({0, -10, 20, 10, 10}, {0, -10, 20, 10, 10}, {0, -10, 20, 10, 10}));
        QTRY_COMPARE(view()->areaInfo(2).status, 1);
        w<QComboBox>("cbx_area_index")->setCurrentIndex(index);
        w<QComboBox>("cbx_area_type")->setCurrentIndex(type);
        QCOMPARE(sentFrames(*module, 0), QStringList());
        w<QLineEdit>("lineEdit_left_top_x")->setText(corners[0]);
        w<QLineEdit>("lineEdit_left_top_y")->setText(corners[1]);
        w<QLineEdit>("lineEdit_right_bottom_x")->setText(corners[2]);
        w<QLineEdit>("lineEdit_right_bottom_y")->setText(corners[3]);
        QTest::mouseClick(w<QPushButton>("btn_setArea"), Qt::LeftButton);
        QCOMPARE(sentFrames(*module, 1), QStringList{frame});

        // The plot takes the area once the module confirms it.
        const QRectF typed(QPointF(corners[0].toDouble(), corners[1].toDouble()),
                           QPointF(corners[2].toDouble(), corners[3].toDouble()));
        QVERIFY(view()->areaInfo(index).rect != typed);
        module->send(frameformat::buildFrame(
            4, QByteArray().append(char(index + 1)).append(char(type)).append(char(1))));
        QTRY_COMPARE(view()->areaInfo(index).rect, typed);
        QCOMPARE(view()->areaInfo(index).status, 1);
        QCOMPARE(view()->areaInfo(index).type, type);
        QCOMPARE(view()->areaInfo(index).index, index);
    }

    void notSetStatusSendsRepealAtOnce()
    {
        QVERIFY(openLink(window.get(), *module));
        auto *status = w<QComboBox>("cbx_area_status");
        QCOMPARE(status->currentIndex(), 0);
        status->setCurrentIndex(1);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 05 01 06 DD EE FF"});
        module->send(hexBytes("FF EE DD 00 03 05 01 01 07 DD EE FF"));
        QTRY_COMPARE(view()->areaInfo(0).status, 2);
        // Back to "set": the area is sent again as the plot holds it (here
        // the zero rectangle), not from the typed corners.
        w<QLineEdit>("lineEdit_left_top_x")->setText("-2");
        w<QLineEdit>("lineEdit_left_top_y")->setText("4");
        status->setCurrentIndex(0);
        QCOMPARE(sentFrames(*module, 1),
                 QStringList{"FF EE DD 00 0B 04 01 00 00 00 00 00 00 00 00 00 05 DD EE FF"});
    }

    void choosingAnUnsetAreaRepealsIt()
    {
        // An area the plot does not hold has status 0, shown as "not set":
        // choosing it flips the status combo, which cancels that area.
        QVERIFY(openLink(window.get(), *module));
        w<QComboBox>("cbx_area_index")->setCurrentIndex(2);
        QCOMPARE(w<QComboBox>("cbx_area_status")->currentIndex(), 1);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 05 03 08 DD EE FF"});
        for (const char *name : {"lineEdit_left_top_x", "lineEdit_left_top_y",
                                 "lineEdit_right_bottom_x", "lineEdit_right_bottom_y"})
            QCOMPARE(w<QLineEdit>(name)->text(), QString("0.0"));
    }

    void statusComboResendsStoredArea()
    {
        QVERIFY(openLink(window.get(), *module));
        // Area 1 not set, area 2 set (type 1, (-2, 5) to (1, 2)), area 3 not set.
        module->send(areaReportFrame({2, 0, 0, 0, 0}, {1, -20, 50, 10, 20}, {2, 0, 0, 0, 0}));
        QTRY_COMPARE(view()->areaInfo(1).status, 1);
        // Area 1 is selected and reported not set: its status combo flips,
        // which cancels it.
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 05 01 06 DD EE FF"});
        QCOMPARE(w<QComboBox>("cbx_area_status")->currentIndex(), 1);

        // Choosing area 2: status back to "set" re-sends the stored area with
        // the type combo's previous position (0), then the type follows.
        w<QComboBox>("cbx_area_index")->setCurrentIndex(1);
        QCOMPARE(sentFrames(*module, 1),
                 QStringList{"FF EE DD 00 0B 04 02 EC 32 EC 14 0A 14 0A 32 00 7E DD EE FF"});
        QCOMPARE(w<QComboBox>("cbx_area_status")->currentIndex(), 0);
        QCOMPARE(w<QComboBox>("cbx_area_type")->currentIndex(), 1);
        QCOMPARE(w<QLineEdit>("lineEdit_left_top_x")->text(), QString("-2.0"));
        QCOMPARE(w<QLineEdit>("lineEdit_left_top_y")->text(), QString("5.0"));
        QCOMPARE(w<QLineEdit>("lineEdit_right_bottom_x")->text(), QString("1.0"));
        QCOMPARE(w<QLineEdit>("lineEdit_right_bottom_y")->text(), QString("2.0"));

        // Typed corners are ignored by the status combo.
        w<QLineEdit>("lineEdit_left_top_x")->setText("-7");
        w<QComboBox>("cbx_area_status")->setCurrentIndex(1);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 05 02 07 DD EE FF"});
        w<QComboBox>("cbx_area_status")->setCurrentIndex(0);
        QCOMPARE(sentFrames(*module, 1),
                 QStringList{"FF EE DD 00 0B 04 02 EC 32 EC 14 0A 14 0A 32 01 7F DD EE FF"});
        // The type combo alone sends nothing.
        w<QComboBox>("cbx_area_type")->setCurrentIndex(0);
        QCOMPARE(sentFrames(*module, 0), QStringList());
    }

    void unsetAreaSendsCancelAll()
    {
        QVERIFY(openLink(window.get(), *module));
        QTest::mouseClick(w<QPushButton>("btn_unset_area"), Qt::LeftButton);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 01 0A 0A DD EE FF"});
    }

    // ---- axes --------------------------------------------------------------

    void setXyWritesKeysAndRanges()
    {
        w<QSpinBox>("edit_x_start")->setValue(-3);
        w<QSpinBox>("edit_x_end")->setValue(6);
        w<QSpinBox>("edit_y_end")->setValue(10);
        QTest::mouseClick(w<QPushButton>("btn_set_xy"), Qt::LeftButton);
        QCOMPARE(settingsValue("XYAXIS/X1"), QString("-3"));
        QCOMPARE(settingsValue("XYAXIS/X2"), QString("6"));
        QCOMPARE(settingsValue("XYAXIS/Y1"), QString("0"));
        QCOMPARE(settingsValue("XYAXIS/Y2"), QString("10"));
        QVERIFY(settingsFileText().contains("[XYAXIS]"));
        QCOMPARE(view()->horizontalAxis()->minimum(), -3.0);
        QCOMPARE(view()->horizontalAxis()->maximum(), 6.0);
        QCOMPARE(view()->verticalAxis()->minimum(), 0.0);
        QCOMPARE(view()->verticalAxis()->maximum(), 10.0);
        QCOMPARE(module->collect(100), QByteArray());
    }

    // ---- display type ------------------------------------------------------

    void targetShowComboSendsType()
    {
        auto *show = w<QComboBox>("cbx_target_show");
        auto *areaBox = w<QGroupBox>("groupBox_area_setting");
        // Closed: nothing sent, the area column still follows the choice.
        show->setCurrentIndex(1);
        QVERIFY(!areaBox->isEnabled());
        show->setCurrentIndex(0);
        QVERIFY(areaBox->isEnabled());
        QCOMPARE(module->collect(100), QByteArray());

        QVERIFY(openLink(window.get(), *module));
        show->setCurrentIndex(1);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 02 01 03 DD EE FF"});
        QVERIFY(!areaBox->isEnabled());
        show->setCurrentIndex(0);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 02 02 04 DD EE FF"});
        QVERIFY(areaBox->isEnabled());
        show->setCurrentIndex(-1);
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 02 02 03 05 DD EE FF"});
    }

    // ---- baud rate ---------------------------------------------------------

    void baudChangeWhileClosedAsksNothing()
    {
        w<QComboBox>("cbx_comm_baudrate")->setCurrentText("115200");
        QTest::qWait(100);
        QVERIFY(boxes->seen.isEmpty());
        QCOMPARE(module->collect(100), QByteArray());
    }

    void baudChangeAsks_data()
    {
        QTest::addColumn<bool>("yes");
        QTest::addColumn<QStringList>("frames");
        QTest::newRow("yes") << true << QStringList{"FF EE DD 00 04 01 01 C2 00 C4 DD EE FF"};
        QTest::newRow("no") << false << QStringList();
    }

    void baudChangeAsks()
    {
        QFETCH(bool, yes);
        QFETCH(QStringList, frames);
        QVERIFY(openLink(window.get(), *module));
        boxes->answerNext(yes ? QMessageBox::Yes : QMessageBox::No);
        w<QComboBox>("cbx_comm_baudrate")->setCurrentText("115200");
        QCOMPARE(boxes->seen.size(), 1);
        QCOMPARE(boxes->seen[0].title, text(31));
        QCOMPARE(boxes->seen[0].text, text(30).arg("115200"));
        QVERIFY(boxes->seen[0].text.contains("115200"));
        QCOMPARE(boxes->seen[0].buttons, QMessageBox::Yes | QMessageBox::No);
        QCOMPARE(boxes->seen[0].defaultButton, QMessageBox::NoButton);
        QCOMPARE(sentFrames(*module, frames.size()), frames);
        QCOMPARE(w<QComboBox>("cbx_comm_baudrate")->currentText(), QString("115200"));
        QVERIFY(radar()->bOpen);
    }

    void baudResponse_data()
    {
        QTest::addColumn<QString>("response");
        QTest::addColumn<int>("message");
        QTest::newRow("OK") << "FF EE DD 00 02 01 01 02 DD EE FF" << 33;
        QTest::newRow("NG") << "FF EE DD 00 02 01 02 03 DD EE FF" << 34;
    }

    void baudResponse()
    {
        QFETCH(QString, response);
        QFETCH(int, message);
        QVERIFY(openLink(window.get(), *module, "9600"));
        boxes->answerNext(QMessageBox::Yes);
        w<QComboBox>("cbx_comm_baudrate")->setCurrentText("115200");
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 04 01 01 C2 00 C4 DD EE FF"});
        clearLogLines();
        module->send(hexBytes(response.toLatin1()));
        QTRY_COMPARE(boxes->seen.size(), 2);
        QCOMPARE(boxes->seen[1].title, text(31));
        QCOMPARE(boxes->seen[1].text, text(message));
        QCOMPARE(boxes->seen[1].buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        const QString reopened =
            QString("serial port:%1,Buadrate：115200, result:OK").arg(module->portName());
        QVERIFY(radar()->bOpen);
        QCOMPARE(w<QPushButton>("btn_comm_open")->text(), text(12));
        if (message == 33) {
            QVERIFY(logLines().contains(reopened));
            QCOMPARE(settingsValue("comm/baudrate"), QString("115200"));
            QCOMPARE(settingsValue("comm/port"), module->portName());
            // The link works at the new rate.
            QTest::mouseClick(w<QPushButton>("btn_unset_area"), Qt::LeftButton);
            QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 01 0A 0A DD EE FF"});
        } else {
            QVERIFY(!logLines().contains(reopened));
            QCOMPARE(settingsValue("comm/baudrate"), QString("9600"));
        }
    }

    void baudResponseReopenFails()
    {
        QVERIFY(openLink(window.get(), *module, "9600"));
        boxes->answerNext(QMessageBox::Yes);
        w<QComboBox>("cbx_comm_baudrate")->setCurrentText("19200");
        QCOMPARE(sentFrames(*module, 1), QStringList{"FF EE DD 00 04 01 00 4B 00 4C DD EE FF"});
        auto *ports = w<QComboBox>("cbx_comm_name");
        ports->addItem("ttyORVNOSUCHPORT");
        ports->setCurrentText("ttyORVNOSUCHPORT");
        module->send(hexBytes("FF EE DD 00 02 01 01 02 DD EE FF"));
        QTRY_COMPARE(boxes->seen.size(), 2);
        QCOMPARE(boxes->seen[1].text, text(33));
        QVERIFY(logLines().contains("comm open failed"));
        QCOMPARE(countDebug("comm open failed"), 1);
        QVERIFY(!radar()->bOpen);
        // The button still says "close"; one press resets it.
        QCOMPARE(w<QPushButton>("btn_comm_open")->text(), text(12));
        QCOMPARE(settingsValue("comm/baudrate"), QString("9600"));
        QTest::mouseClick(w<QPushButton>("btn_comm_open"), Qt::LeftButton);
        verifyClosedState();
    }

    // ---- losing the link ---------------------------------------------------

    void portLostMidSession()
    {
        QVERIFY(openLink(window.get(), *module));
        sendAreasAndTargets();
        module->closeMaster();
        QTRY_COMPARE(w<QPushButton>("btn_comm_open")->text(), text(11));
        verifyClosedState();
        QVERIFY(boxes->seen.isEmpty());
    }

    void noiseClosesLinkWithMessage()
    {
        QVERIFY(openLink(window.get(), *module));
        sendAreasAndTargets();
        module->send(QByteArray(129, '\x11'));
        QTRY_COMPARE(boxes->seen.size(), 1);
        QCOMPARE(boxes->seen[0].title, text(31));
        QCOMPARE(boxes->seen[0].text, text(39));
        QCOMPARE(boxes->seen[0].buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        verifyClosedState();
    }

    // ---- capture overlay ---------------------------------------------------

    void captureButtonShowsOverlay()
    {
        QTest::mouseClick(w<QPushButton>("btn_mouse_capture"), Qt::LeftButton);
        CaptureScreen *capture = overlay();
        QVERIFY(capture);
        QVERIFY(capture->isVisible());
        QCOMPARE(capture->size(), view()->size());
        QCOMPARE(capture->captureState(), int(CaptureScreen::Idle));

        // A press inside the plot starts the selection: its point becomes the
        // start corner, in metres with one decimal.
        const QPoint start = view()->plotRectangle().center();
        QTest::mousePress(capture, Qt::LeftButton, Qt::NoModifier, start);
        double x = 0;
        double y = 0;
        view()->pixelToValue(start, &x, &y);
        QCOMPARE(w<QLineEdit>("lineEdit_left_top_x")->text(), QString::number(x, 'f', 1));
        QCOMPARE(w<QLineEdit>("lineEdit_left_top_y")->text(), QString::number(y, 'f', 1));
        const QPoint end = view()->plotRectangle().bottomRight() - QPoint(5, 5);
        emit capture->endPointChange(end);
        view()->pixelToValue(end, &x, &y);
        QCOMPARE(w<QLineEdit>("lineEdit_right_bottom_x")->text(), QString::number(x, 'f', 1));
        QCOMPARE(w<QLineEdit>("lineEdit_right_bottom_y")->text(), QString::number(y, 'f', 1));
        QTest::mouseRelease(capture, Qt::LeftButton, Qt::NoModifier, start);

        // Pressing the button again starts afresh.
        QTest::mouseClick(w<QPushButton>("btn_mouse_capture"), Qt::LeftButton);
        QVERIFY(capture->isVisible());
        QCOMPARE(capture->captureState(), int(CaptureScreen::Idle));
        QCOMPARE(module->collect(50), QByteArray());
    }

    void actionsCloseOverlay_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<bool>("debugLine");
        QTest::newRow("set xy") << "set xy" << true << false;
        QTest::newRow("set area") << "set area" << true << false;
        QTest::newRow("cancel all") << "cancel all" << true << false;
        QTest::newRow("area index") << "area index" << true << false;
        QTest::newRow("area status") << "area status" << true << false;
        QTest::newRow("area type") << "area type" << true << false;
        QTest::newRow("window pressed") << "window pressed" << true << true;
        QTest::newRow("window minimised") << "window minimised" << true << true;
        QTest::newRow("window closed") << "window closed" << true << false;
        QTest::newRow("display type") << "display type" << false << false;
        QTest::newRow("language (No)") << "language" << false << false;
        QTest::newRow("target report") << "target report" << false << false;
    }

    void actionsCloseOverlay()
    {
        QFETCH(QString, action);
        QFETCH(bool, closes);
        QFETCH(bool, debugLine);
        QVERIFY(openLink(window.get(), *module));
        QTest::mouseClick(w<QPushButton>("btn_mouse_capture"), Qt::LeftButton);
        CaptureScreen *capture = overlay();
        QVERIFY(capture && capture->isVisible());
        clearDebugMessages();
        if (action == "set xy") {
            QTest::mouseClick(w<QPushButton>("btn_set_xy"), Qt::LeftButton);
        } else if (action == "set area") {
            QTest::mouseClick(w<QPushButton>("btn_setArea"), Qt::LeftButton);
        } else if (action == "cancel all") {
            QTest::mouseClick(w<QPushButton>("btn_unset_area"), Qt::LeftButton);
        } else if (action == "area index") {
            w<QComboBox>("cbx_area_index")->setCurrentIndex(1);
        } else if (action == "area status") {
            w<QComboBox>("cbx_area_status")->setCurrentIndex(1);
        } else if (action == "area type") {
            w<QComboBox>("cbx_area_type")->setCurrentIndex(1);
        } else if (action == "window pressed") {
            QTest::mousePress(window.get(), Qt::LeftButton, Qt::NoModifier, QPoint(3, 3));
        } else if (action == "window minimised") {
            window->setWindowState(Qt::WindowMinimized);
        } else if (action == "window closed") {
            window->close();
        } else if (action == "display type") {
            w<QComboBox>("cbx_target_show")->setCurrentIndex(1);
        } else if (action == "language") {
            boxes->answerNext(QMessageBox::No);
            w<QComboBox>("cbx_language")->setCurrentIndex(1);
        } else if (action == "target report") {
            module->send(frameformat::buildFrame(7, hexBytes("0A 1E")));
            QTRY_COMPARE(view()->targetCountShown(), 1);
        }
        QTRY_COMPARE(capture->isVisible(), !closes);
        QCOMPARE(countDebug("m_capture close"), debugLine ? 1 : 0);
    }

    // ---- language ----------------------------------------------------------

    void languageNoKeepsEverything()
    {
        boxes->answerNext(QMessageBox::No);
        auto *language = w<QComboBox>("cbx_language");
        language->setCurrentIndex(1);
        QCOMPARE(boxes->seen.size(), 1);
        QCOMPARE(boxes->seen[0].title, text(31));
        QCOMPARE(boxes->seen[0].text, text(32));
        QCOMPARE(boxes->seen[0].buttons, QMessageBox::Yes | QMessageBox::No);
        QCOMPARE(boxes->seen[0].defaultButton, QMessageBox::NoButton);
        // The combo shows the other language, the texts stay, nothing stored.
        QCOMPARE(language->currentIndex(), 1);
        QCOMPARE(w<QLabel>("label_comm_name")->text(), expectedText(0, 9));
        QCOMPARE(settingsValue("language/index"), QString());
        QVERIFY(!settingsFileText().contains("[language]"));
        QCOMPARE(countDebug("reboot"), 0);
    }

    void languageYesStoresAndRestarts()
    {
        const QList<QAction *> actions =
            window->findChildren<QAction *>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(actions.size(), 1);
        QSignalSpy triggered(actions.first(), &QAction::triggered);
        boxes->answerNext(QMessageBox::Yes);
        QTimer::singleShot(0, [this] { w<QComboBox>("cbx_language")->setCurrentIndex(1); });
        // Guard: end the loop with another code should the restart not come.
        QTimer guard;
        guard.setSingleShot(true);
        QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(1); });
        guard.start(5000);
        const int code = QApplication::exec();
        QCOMPARE(code, -10);
        QCOMPARE(triggered.count(), 1);
        QCOMPARE(countDebug("reboot"), 1);
        QCOMPARE(boxes->seen.size(), 1);
        QCOMPARE(boxes->seen[0].text, text(32));
        QCOMPARE(settingsValue("language/index"), QString("1"));
        const QByteArray file = settingsFileText();
        QVERIFY(file.contains("[language]"));
        QVERIFY(file.contains("index=1"));
    }

    void languageChangeBackToSameIndex()
    {
        // Yes on index 0 stores 0 (a number) as well.
        auto *language = w<QComboBox>("cbx_language");
        boxes->answerNext(QMessageBox::No);
        language->setCurrentIndex(1);
        boxes->answerNext(QMessageBox::Yes);
        QTimer::singleShot(0, [language] { language->setCurrentIndex(0); });
        QTimer guard;
        guard.setSingleShot(true);
        QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(1); });
        guard.start(5000);
        QCOMPARE(QApplication::exec(), -10);
        QCOMPARE(settingsValue("language/index"), QString("0"));
        QVERIFY(settingsFileText().contains("index=0"));
    }
};

QTEST_MAIN(TestMainWindowCommands)
#include "tst_mainwindow_commands.moc"
