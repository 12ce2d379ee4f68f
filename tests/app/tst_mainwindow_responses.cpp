// The window's handling of what the module reports: area reports, set and
// cancel confirmations, targets, area presence and the display type. The
// module is played on a pseudo-terminal.

#include "mwharness.h"

#include "app/mainwindow.h"
#include "radar/frameformat.h"
#include "radar/radercommunicate.h"
#include "view/xyview.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include <algorithm>

using namespace mw;

namespace
{

RaderCommunicate *radar()
{
    return RaderCommunicate::GetInstance();
}

QByteArray frame(quint8 code, const char *payloadHex)
{
    return frameformat::buildFrame(code, hexBytes(payloadHex));
}

bool sameArea(const AreaRecord &a, const AreaRecord &b)
{
    return a.index == b.index && a.type == b.type && a.status == b.status && a.rect == b.rect;
}

} // namespace

class TestMainWindowResponses : public QObject, private WindowFixture
{
    Q_OBJECT

private:
    QStringList sent(int expected, int settleMs = 150)
    {
        QList<QByteArray> frames;
        QElapsedTimer clock;
        clock.start();
        while (frames.size() < expected && clock.elapsed() < 10000)
            frames += module->waitForFrames(1, 100);
        frames += module->waitForFrames(1000, settleMs);
        return hexTexts(frames);
    }

    QStringList corners()
    {
        return {w<QLineEdit>("lineEdit_left_top_x")->text(),
                w<QLineEdit>("lineEdit_left_top_y")->text(),
                w<QLineEdit>("lineEdit_right_bottom_x")->text(),
                w<QLineEdit>("lineEdit_right_bottom_y")->text()};
    }

    void typeCorners(const char *x1, const char *y1, const char *x2, const char *y2)
    {
        w<QLineEdit>("lineEdit_left_top_x")->setText(x1);
        w<QLineEdit>("lineEdit_left_top_y")->setText(y1);
        w<QLineEdit>("lineEdit_right_bottom_x")->setText(x2);
        w<QLineEdit>("lineEdit_right_bottom_y")->setText(y2);
    }

    // All three areas set (type 0), so selecting an area changes nothing.
    void reportAllAreasSet()
    {
        module->send(
            areaReportFrame({0, -10, 20, 10, 10}, {0, -20, 40, 0, 30}, {0, 10, 60, 30, 50}));
        QTRY_COMPARE(view()->areaInfo(2).status, 1);
        module->drain(100);
    }

private slots:
    void initTestCase() { setUpCase(); }

    void init()
    {
        setUpWindow();
        if (QTest::currentTestFailed())
            return;
        QVERIFY(openLink(window.get(), *module));
    }

    void cleanup()
    {
        // No message box may have come up unexpected.
        const bool noBoxes = boxes->seen.isEmpty();
        tearDownWindow();
        QVERIFY(noBoxes);
    }

    // Runs first: the query is made once per process.
    void displayTypeQueriedAfterFirstAreaReportOnly()
    {
        QVERIFY(!showTypeQueried);
        // Area 2 selected; the plot holds nothing yet, so choosing it cancels it.
        w<QComboBox>("cbx_area_index")->setCurrentIndex(1);
        QCOMPARE(sent(1), QStringList{"FF EE DD 00 02 05 02 07 DD EE FF"});

        // One code 6 frame: three reports. The query follows the first (area
        // 1); the report for the selected area 2 then flips its status combo,
        // which re-sends area 2.
        module->send(areaReportFrame({0, -10, 20, 10, 10}, {1, -20, 50, 10, 20}, {2, 0, 0, 0, 0}));
        QCOMPARE(sent(2), QStringList({"FF EE DD 00 01 03 03 DD EE FF",
                                       "FF EE DD 00 0B 04 02 EC 32 EC 14 0A 14 0A 32 00 7E DD "
                                       "EE FF"}));
        QVERIFY(showTypeQueried);

        // A second report asks nothing.
        module->send(areaReportFrame({0, -10, 20, 10, 10}, {1, -20, 50, 10, 20}, {2, 0, 0, 0, 0}));
        QTRY_COMPARE(countDebugStartingWith("区域 "), 6); // the report has been read
        QCOMPARE(sent(0), QStringList());
        QCOMPARE(countDebugStartingWith("区域 "), 6);

        // Nor does one after a reconnect.
        QTest::mouseClick(w<QPushButton>("btn_comm_open"), Qt::LeftButton);
        QVERIFY(!radar()->bOpen);
        QVERIFY(openLink(window.get(), *module));
        module->send(areaReportFrame({0, -10, 20, 10, 10}, {1, -20, 50, 10, 20}, {2, 0, 0, 0, 0}));
        QTRY_COMPARE(view()->areaInfo(1).status, 1);
        QCOMPARE(sent(0), QStringList());
    }

    void areaReportForSelectedArea_data()
    {
        QTest::addColumn<int>("reportedType");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("statusPosition");
        QTest::addColumn<int>("typePosition");
        QTest::newRow("type 2: not set") << 2 << 2 << 0 << 1 << 0;
        QTest::newRow("type 0: set") << 0 << 1 << 0 << 0 << 0;
        QTest::newRow("type 1: set") << 1 << 1 << 1 << 0 << 1;
    }

    void areaReportForSelectedArea()
    {
        QFETCH(int, reportedType);
        QFETCH(int, status);
        QFETCH(int, type);
        QFETCH(int, statusPosition);
        QFETCH(int, typePosition);
        w<QComboBox>("cbx_area_index")->setCurrentIndex(2);
        module->drain(100);
        typeCorners("7", "7", "7", "7");
        module->send(areaReportFrame({1, -10, 20, 10, 10}, {0, -20, 40, 0, 30},
                                     {reportedType, -15, 30, 15, 10}));
        QTRY_COMPARE(view()->areaInfo(2).status, status);
        const AreaRecord record = view()->areaInfo(2);
        QCOMPARE(record.index, 2);
        QCOMPARE(record.type, type);
        QCOMPARE(record.rect, QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0)));
        QCOMPARE(w<QComboBox>("cbx_area_status")->currentIndex(), statusPosition);
        QCOMPARE(w<QComboBox>("cbx_area_type")->currentIndex(), typePosition);
        QCOMPARE(corners(), QStringList({"-1.5", "3.0", "1.5", "1.0"}));
        // The other two are drawn as reported.
        QCOMPARE(view()->areaInfo(0).status, 1);
        QCOMPARE(view()->areaInfo(0).type, 1);
        QCOMPARE(view()->areaInfo(1).rect, QRectF(QPointF(-2.0, 4.0), QPointF(0.0, 3.0)));
        QVERIFY(countDebugStartingWith("区域 ") >= 3);
    }

    void areaReportForOtherAreaLeavesEdits()
    {
        typeCorners("1", "2", "3", "4");
        const int statusPosition = w<QComboBox>("cbx_area_status")->currentIndex();
        emit radar()->signal_ReadAreaResp(1, 1, QRectF(QPointF(-1, 2), QPointF(1, 1)));
        QCOMPARE(view()->areaInfo(1).status, 1);
        QCOMPARE(corners(), QStringList({"1", "2", "3", "4"}));
        QCOMPARE(w<QComboBox>("cbx_area_status")->currentIndex(), statusPosition);
    }

    void areaReportIndexOutOfRange_data()
    {
        QTest::addColumn<int>("index");
        QTest::newRow("3") << 3;
        QTest::newRow("7") << 7;
        QTest::newRow("-1") << -1;
    }

    void areaReportIndexOutOfRange()
    {
        QFETCH(int, index);
        reportAllAreasSet();
        AreaRecord before[3];
        for (int i = 0; i < 3; ++i)
            before[i] = view()->areaInfo(i);
        typeCorners("1", "2", "3", "4");
        clearDebugMessages();
        emit radar()->signal_ReadAreaResp(index, 2, QRectF(QPointF(-5, 5), QPointF(5, 1)));
        for (int i = 0; i < 3; ++i)
            QVERIFY(sameArea(view()->areaInfo(i), before[i]));
        QCOMPARE(corners(), QStringList({"1", "2", "3", "4"}));
        QCOMPARE(countDebugStartingWith("区域 "), 1);
        QCOMPARE(sent(0), QStringList());
    }

    void setAreaConfirmation_data()
    {
        QTest::addColumn<QByteArray>("response");
        QTest::addColumn<bool>("drawn");
        QTest::addColumn<int>("indexErrors");
        QTest::addColumn<bool>("failed");
        QTest::newRow("set OK") << frame(4, "01 00 01") << true << 0 << false;
        QTest::newRow("set OK, type ignored") << frame(4, "01 05 01") << true << 0 << false;
        QTest::newRow("set OK for another area") << frame(4, "02 00 01") << false << 1 << false;
        QTest::newRow("set NG") << frame(4, "01 00 00") << false << 0 << true;
        QTest::newRow("set result 2") << frame(4, "01 00 02") << false << 0 << true;
        QTest::newRow("repeal OK") << frame(5, "01 01") << true << 0 << false;
        QTest::newRow("repeal OK for another area") << frame(5, "03 01") << false << 2 << false;
        QTest::newRow("repeal NG") << frame(5, "01 00") << false << 0 << true;
    }

    void setAreaConfirmation()
    {
        QFETCH(QByteArray, response);
        QFETCH(bool, drawn);
        QFETCH(int, indexErrors);
        QFETCH(bool, failed);
        typeCorners("-2", "6", "2", "3");
        QTest::mouseClick(w<QPushButton>("btn_setArea"), Qt::LeftButton);
        QCOMPARE(sent(1).size(), 1);
        clearDebugMessages();
        clearLogLines();
        module->send(response);
        QTRY_VERIFY(countDebug("Radar area:") > 0);
        const QRectF typed(QPointF(-2, 6), QPointF(2, 3));
        if (drawn) {
            QTRY_COMPARE(view()->areaInfo(0).rect, typed);
            QCOMPARE(view()->areaInfo(0).status, 1);
        } else {
            QCOMPARE(view()->areaInfo(0).status, 0);
            QCOMPARE(view()->areaInfo(0).rect, QRectF());
        }
        for (int i = 1; i < 3; ++i)
            QCOMPARE(view()->areaInfo(i).status, 0);
        QCOMPARE(countDebug("area index error"), indexErrors);
        QCOMPARE(logLines().count("area index error"), indexErrors);
        QCOMPARE(logLines().count("SetArea failed.") > 0, failed);
    }

    void cancelAllConfirmation_data()
    {
        QTest::addColumn<QByteArray>("response");
        QTest::addColumn<bool>("cleared");
        QTest::newRow("OK") << frame(10, "01") << true;
        QTest::newRow("NG") << frame(10, "00") << false;
    }

    void cancelAllConfirmation()
    {
        QFETCH(QByteArray, response);
        QFETCH(bool, cleared);
        reportAllAreasSet();
        QTest::mouseClick(w<QPushButton>("btn_unset_area"), Qt::LeftButton);
        QCOMPARE(sent(1), QStringList{"FF EE DD 00 01 0A 0A DD EE FF"});
        clearDebugMessages();
        module->send(response);
        QTRY_VERIFY(countDebug("cancel_all Area") > 0);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(view()->areaInfo(i).status, cleared ? 0 : 1);
        QCOMPARE(countDebug("撤销所有区域失败"), cleared ? 0 : 1);
    }

    void targetsAndPresence()
    {
        module->send(hexBytes("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF"));
        QTRY_COMPARE(view()->targetCountShown(), 2);
        // A report without pairs is 10 bytes, below the receiver's minimum
        // scan size: one more byte lets it through, as an empty list.
        module->send(frame(7, "") + QByteArray(1, '\0'));
        QTRY_COMPARE(view()->targetCountShown(), 0);
        module->send(frame(8, "00 01 00"));
        QTRY_COMPARE(int(view()->areaOccupancyMask()), 2);
        module->send(frame(8, "01 00 01"));
        QTRY_COMPARE(int(view()->areaOccupancyMask()), 5);
        QCOMPARE(sent(0), QStringList());
    }

    void displayTypeReport_data()
    {
        QTest::addColumn<int>("startPosition");
        QTest::addColumn<int>("reported");
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("showAreas"); // -1: unchanged
        QTest::addColumn<QStringList>("echo");
        QTest::newRow("1 from first item")
            << 0 << 1 << 1 << 0 << QStringList{"FF EE DD 00 02 02 01 03 DD EE FF"};
        QTest::newRow("1 from second item") << 1 << 1 << 1 << 0 << QStringList();
        QTest::newRow("2 from first item") << 0 << 2 << 0 << 1 << QStringList();
        QTest::newRow("2 from second item")
            << 1 << 2 << 0 << 1 << QStringList{"FF EE DD 00 02 02 02 04 DD EE FF"};
        QTest::newRow("0 clears the selection")
            << 0 << 0 << -1 << -1 << QStringList{"FF EE DD 00 02 02 03 05 DD EE FF"};
        QTest::newRow("3 clears the selection")
            << 1 << 3 << -1 << -1 << QStringList{"FF EE DD 00 02 02 03 05 DD EE FF"};
        QTest::newRow("-1 clears the selection")
            << 0 << -1 << -1 << -1 << QStringList{"FF EE DD 00 02 02 03 05 DD EE FF"};
    }

    void displayTypeReport()
    {
        QFETCH(int, startPosition);
        QFETCH(int, reported);
        QFETCH(int, position);
        QFETCH(int, showAreas);
        QFETCH(QStringList, echo);
        auto *show = w<QComboBox>("cbx_target_show");
        show->setCurrentIndex(startPosition);
        module->drain(100);
        const bool shownBefore = view()->areasShown();
        clearDebugMessages();
        module->send(frameformat::buildFrame(3, QByteArray(1, char(reported))));
        const QStringList frames = sent(echo.size());
        QCOMPARE(frames, echo);
        QCOMPARE(show->currentIndex(), position);
        QCOMPARE(view()->areasShown(), showAreas < 0 ? shownBefore : bool(showAreas));
        // The area column follows the display type the combo box shows.
        const bool columnEnabled = position == 0 || (position < 0 && startPosition == 0);
        QCOMPARE(w<QGroupBox>("groupBox_area_setting")->isEnabled(), columnEnabled);
        const QStringList debug = debugMessages();
        QVERIFY(std::any_of(debug.begin(), debug.end(), [reported](const QString &m) {
            return m.startsWith("目标显示方式：") && m.endsWith(QString::number(reported));
        }));
    }

    void displayTypeConfirmation_data()
    {
        QTest::addColumn<int>("position");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("targets");
        QTest::addColumn<int>("mask");
        QTest::addColumn<bool>("showAreas");
        // Before the confirmation: 2 targets, mask 3, areas shown opposite
        // to what an accepted confirmation gives.
        QTest::newRow("second item OK") << 1 << true << 2 << 0 << false;
        QTest::newRow("first item OK") << 0 << true << 0 << 3 << true;
        QTest::newRow("second item NG") << 1 << false << 2 << 3 << true;
        QTest::newRow("first item NG") << 0 << false << 2 << 3 << false;
    }

    void displayTypeConfirmation()
    {
        QFETCH(int, position);
        QFETCH(bool, ok);
        QFETCH(int, targets);
        QFETCH(int, mask);
        QFETCH(bool, showAreas);
        w<QComboBox>("cbx_target_show")->setCurrentIndex(position);
        module->drain(100);
        module->send(hexBytes("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF"));
        QTRY_COMPARE(view()->targetCountShown(), 2);
        module->send(frame(8, "01 01 00"));
        QTRY_COMPARE(int(view()->areaOccupancyMask()), 3);
        view()->setShowAreas(position == 1);
        clearDebugMessages();
        module->send(frame(2, ok ? "01" : "00"));
        QTRY_VERIFY(countDebug("Target show type SET") > 0);
        QCOMPARE(view()->targetCountShown(), targets);
        QCOMPARE(int(view()->areaOccupancyMask()), mask);
        QCOMPARE(view()->areasShown(), showAreas);
    }
};

QTEST_MAIN(TestMainWindowResponses)
#include "tst_mainwindow_responses.moc"
