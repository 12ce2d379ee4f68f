// Axis model: scale, automatic step, tick walk and labels, major ticks, the
// pan/zoom slots with their guards, and painting.
#include "view/xyaxis.h"

#include <QImage>
#include <QMetaMethod>
#include <QMetaObject>
#include <QPainter>
#include <QSignalSpy>
#include <QtTest>

#include <cmath>

namespace
{

QStringList g_messages;
QList<QtMsgType> g_messageTypes;

void collectMessages(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    g_messages.append(text);
    g_messageTypes.append(type);
}

struct MessageCapture {
    QtMessageHandler previous;
    MessageCapture()
    {
        g_messages.clear();
        g_messageTypes.clear();
        previous = qInstallMessageHandler(collectMessages);
    }
    ~MessageCapture() { qInstallMessageHandler(previous); }
};

// A vertical strip of 513 pixels: L = 512, so spans of 8 give 1/64 unit per
// pixel, exact in binary.
const QRect kStrip513(0, 0, 51, 513);

bool near(double a, double b, double eps = 1e-9)
{
    return std::fabs(a - b) <= eps;
}

// Half away from zero, as the tick walk rounds.
int roundAway(double v)
{
    return v < 0 ? -static_cast<int>(std::floor(-v + 0.5)) : static_cast<int>(std::floor(v + 0.5));
}

} // namespace

class TestXYAxis : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void metaObject();
    void workedExample();
    void firstTickAlignment_data();
    void firstTickAlignment();
    void negativeZeroLabel_data();
    void negativeZeroLabel();
    void ticksOutsideStrip_data();
    void ticksOutsideStrip();
    void niceStepSeries_data();
    void niceStepSeries();
    void decimalsFor_data();
    void decimalsFor();
    void labelCut();
    void majorTicks_data();
    void majorTicks();
    void slotGuards_data();
    void slotGuards();
    void setLimitRangeDoesNotClamp();
    void moveZeroPixels();
    void posFraction_data();
    void posFraction();
    void updateAxisChecks();
    void setAxisRectRules();
    void calcWarnings();
    void zeroSpanFallsBack();
    void divisionGuards();
    void unusedPositionsHaveNoTicks_data();
    void unusedPositionsHaveNoTicks();
    void fixedAndFrozenStepModes();
    void horizontalWalk();
    void drawBottomAndLeft();
    void mappingRoundTrip();
};

void TestXYAxis::defaults()
{
    XYAxis axis(nullptr);
    QCOMPARE(axis.axisPosition(), XYAxis::Left);
    QCOMPARE(axis.tickStepMode(), 1);
    QVERIFY(axis.axisRectangle().isNull());
    QCOMPARE(axis.decimalPrecision(), 1);
    QCOMPARE(axis.fixedStep(), 100.0);
    QCOMPARE(axis.tickPixelHint(), 45.0);
    QVERIFY(axis.tickPositionList().isEmpty());
    QVERIFY(axis.tickLabelList().isEmpty());
    QCOMPARE(axis.limitMinimum(), 0.0);
    QCOMPARE(axis.limitMaximum(), 1000.0);
    QCOMPARE(axis.minimumSpan(), 10.0);
    QCOMPARE(axis.minimum(), 0.0);
    QCOMPARE(axis.maximum(), 1000.0);
    QCOMPARE(axis.unitPerPixel(), 1.0);
    QCOMPARE(axis.pixelPerUnit(), 1.0);
    QCOMPARE(axis.pixelStart(), 0.0);
    QCOMPARE(axis.pixelSpace(), 30.0);
    QCOMPARE(axis.valueStep(), 1.0);

    QCOMPARE(int(XYAxis::Left), 0);
    QCOMPARE(int(XYAxis::Right), 1);
    QCOMPARE(int(XYAxis::Top), 2);
    QCOMPARE(int(XYAxis::Bottom), 3);

    // Without a strip nothing is computed and nothing is signalled.
    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    axis.updateAxis();
    QCOMPARE(spy.count(), 0);
    QVERIFY(axis.tickPositionList().isEmpty());
}

void TestXYAxis::metaObject()
{
    const QMetaObject *mo = &XYAxis::staticMetaObject;
    QCOMPARE(QByteArray(mo->className()), QByteArray("XYAxis"));
    QCOMPARE(QByteArray(mo->superClass()->className()), QByteArray("QObject"));
    const QList<QByteArray> expected = {"axisChanged()",
                                        "addMinValue()",
                                        "subMinValue()",
                                        "addMaxValue()",
                                        "subMaxValue()",
                                        "moveValueWidthPx(int)",
                                        "zoomValueIn()",
                                        "zoomValueOut()",
                                        "zoomValueInPos(QPoint)",
                                        "zoomValueOutPos(QPoint)",
                                        "overallView()",
                                        "setLimitRange(double,double,double)",
                                        "setValueRange(double,double)"};
    QCOMPARE(mo->methodCount() - mo->methodOffset(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaMethod m = mo->method(mo->methodOffset() + i);
        QCOMPARE(m.methodSignature(), expected.at(i));
        QCOMPARE(m.methodType(), i == 0 ? QMetaMethod::Signal : QMetaMethod::Slot);
    }
    QCOMPARE(QByteArray(mo->method(mo->indexOfMethod("moveValueWidthPx(int)")).typeName()),
             QByteArray("bool"));
}

void TestXYAxis::workedExample()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    axis.setAxisRect(QRect(0, 0, 51, 501)); // L = 500
    QCOMPARE(spy.count(), 1);

    QVERIFY(near(axis.pixelPerUnit(), 62.5));
    QVERIFY(near(axis.unitPerPixel(), 8.0 / 500.0));
    QVERIFY(near(axis.tickPixelHint(), 31.25));
    QCOMPARE(axis.valueStep(), 0.5);
    QVERIFY(near(axis.pixelSpace(), 31.25));
    QCOMPARE(axis.pixelStart(), 0.0);

    const QVector<int> &pos = axis.tickPositionList();
    const QVector<QString> &labels = axis.tickLabelList();
    QCOMPARE(pos.size(), 17);
    QCOMPARE(labels.size(), 17);
    for (int k = 0; k < 17; ++k) {
        // From the bottom edge (500) upwards.
        QCOMPARE(pos.at(k), roundAway(500.0 - 31.25 * k));
        const QString expected =
            (k % 2 == 0) ? QString::number(k / 2) : QString::number(k / 2) + QStringLiteral(".5");
        QCOMPARE(labels.at(k), expected);
    }
    QCOMPARE(pos.first(), 500);
    QCOMPARE(pos.last(), 0);
    QCOMPARE(labels.first(), QStringLiteral("0"));
    QCOMPARE(labels.at(1), QStringLiteral("0.5"));
    QCOMPARE(labels.last(), QStringLiteral("8"));

    // Whole metres are the major ticks.
    QCOMPARE(axis.majorTickPositions(), QVector<int>({500, 438, 375, 313, 250, 188, 125, 63, 0}));
}

void TestXYAxis::firstTickAlignment_data()
{
    QTest::addColumn<double>("minValue");
    QTest::addColumn<double>("maxValue");
    QTest::addColumn<double>("pxStart");
    QTest::addColumn<QString>("firstLabel");
    QTest::addColumn<int>("firstPos");
    QTest::addColumn<QString>("secondLabel");

    // Strip height 501: bottom 500, L = 500, span 8 -> 0.016 per pixel, step 0.5.
    QTest::newRow("start -0.3") << -0.3 << 7.7 << 18.75 << "0" << 481 << "0.5";
    QTest::newRow("start 0.3") << 0.3 << 8.3 << 12.5 << "0.5" << 488 << "1";
    QTest::newRow("start -0.7") << -0.7 << 7.3 << 12.5 << "-0.5" << 488 << "0";
    QTest::newRow("start on multiple 1") << 1.0 << 9.0 << 0.0 << "1" << 500 << "1.5";
    QTest::newRow("start on multiple -2") << -2.0 << 6.0 << 0.0 << "-2" << 500 << "-1.5";
    QTest::newRow("start on half -1.5") << -1.5 << 6.5 << 0.0 << "-1.5" << 500 << "-1";
}

void TestXYAxis::firstTickAlignment()
{
    QFETCH(double, minValue);
    QFETCH(double, maxValue);
    QFETCH(double, pxStart);
    QFETCH(QString, firstLabel);
    QFETCH(int, firstPos);
    QFETCH(QString, secondLabel);

    XYAxis axis(nullptr);
    axis.configure(XYAxis::Left, -10.0, 10.0, 1.0, minValue, maxValue);
    axis.setAxisRect(QRect(0, 0, 51, 501));
    QCOMPARE(axis.valueStep(), 0.5);
    QVERIFY2(near(axis.pixelStart(), pxStart, 1e-6),
             qPrintable(QString::number(axis.pixelStart())));
    QVERIFY(axis.tickLabelList().size() >= 2);
    QCOMPARE(axis.tickLabelList().at(0), firstLabel);
    QCOMPARE(axis.tickLabelList().at(1), secondLabel);
    QCOMPARE(axis.tickPositionList().at(0), firstPos);
    // The first tick value is the first multiple of the step at or above the minimum.
    const double firstValue = axis.pxToValue(axis.pixelStart());
    QVERIFY(firstValue >= minValue - 1e-9);
    QVERIFY(firstValue < minValue + 0.5);
    QVERIFY(near(std::remainder(firstValue, 0.5), 0.0, 1e-9));
}

void TestXYAxis::negativeZeroLabel_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<double>("minValue");
    QTest::addColumn<double>("span");
    QTest::addColumn<int>("zeroTick");

    // Horizontal strips whose tick at value 0 is computed as a tiny negative
    // number that formats as "-0.0".
    QTest::newRow("L 301, from -0.9") << 301 << -0.9 << 8.0 << 1;
    QTest::newRow("L 301, from -1.8") << 301 << -1.8 << 8.0 << 3;
    QTest::newRow("L 300, from -3.7") << 300 << -3.7 << 10.0 << 7;
    QTest::newRow("L 301, from -3.6") << 301 << -3.6 << 10.0 << 7;
}

void TestXYAxis::negativeZeroLabel()
{
    QFETCH(int, length);
    QFETCH(double, minValue);
    QFETCH(double, span);
    QFETCH(int, zeroTick);

    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -20.0, 20.0, 1.0, minValue, minValue + span);
    axis.setAxisRect(QRect(0, 0, length + 1, 51));
    QCOMPARE(axis.valueStep(), 0.5);
    const QVector<QString> &labels = axis.tickLabelList();
    QVERIFY(labels.size() > zeroTick);

    // Replay the walk's arithmetic: the raw value of that tick is a negative zero.
    double off = axis.pixelStart();
    for (int i = 0; i < zeroTick; ++i)
        off += axis.pixelSpace();
    const double raw = off * axis.unitPerPixel() + axis.minimum();
    QVERIFY(raw < 0.0);
    QCOMPARE(QString::number(raw, 'f', 1), QStringLiteral("-0.0"));

    QCOMPARE(labels.at(zeroTick), QStringLiteral("0"));
    QVERIFY(!labels.contains(QStringLiteral("-0")));
    QVERIFY(!labels.contains(QStringLiteral("-0.0")));
    QCOMPARE(labels.at(zeroTick - 1), QStringLiteral("-0.5"));
}

void TestXYAxis::ticksOutsideStrip_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<double>("step");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("lastPos");

    // Strip of 513 pixels, span 8: 64 pixels per unit. A fixed step of
    // 0.5009765625 is 32.0625 pixels, so tick 16 lies 1 pixel outside; a step
    // of 0.501953125 is 32.125 pixels and tick 16 lies 2 pixels outside.
    QTest::newRow("left one pixel outside") << int(XYAxis::Left) << 0.5009765625 << 17 << -1;
    QTest::newRow("left two pixels outside excluded")
        << int(XYAxis::Left) << 0.501953125 << 16 << 30;
    QTest::newRow("bottom one pixel outside") << int(XYAxis::Bottom) << 0.5009765625 << 17 << 513;
    QTest::newRow("bottom two pixels outside excluded")
        << int(XYAxis::Bottom) << 0.501953125 << 16 << 482;
    QTest::newRow("left exact fit") << int(XYAxis::Left) << 0.5 << 17 << 0;
    QTest::newRow("bottom exact fit") << int(XYAxis::Bottom) << 0.5 << 17 << 512;
}

void TestXYAxis::ticksOutsideStrip()
{
    QFETCH(int, position);
    QFETCH(double, step);
    QFETCH(int, count);
    QFETCH(int, lastPos);

    XYAxis axis(nullptr);
    axis.setTickStepMode(0);
    axis.setFixedStep(step);
    axis.configure(XYAxis::AxisPosition(position), 0.0, 8.0, 1.0, 0.0, 8.0);
    axis.setAxisRect(position == XYAxis::Left ? QRect(0, 0, 51, 513) : QRect(0, 0, 513, 51));
    QCOMPARE(axis.valueStep(), step);
    QCOMPARE(axis.tickPositionList().size(), count);
    QCOMPARE(axis.tickPositionList().last(), lastPos);
}

void TestXYAxis::niceStepSeries_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("base");
    QTest::addColumn<double>("expected");

    QTest::newRow("0 gives base") << 0.0 << 1 << 1.0;
    QTest::newRow("negative gives base") << -3.0 << 1 << 1.0;
    QTest::newRow("1.5 gives base") << 1.5 << 1 << 1.0;
    QTest::newRow("1.51 -> 2") << 1.51 << 1 << 2.0;
    QTest::newRow("3 -> 2") << 3.0 << 1 << 2.0;
    QTest::newRow("3.01 -> 4") << 3.01 << 1 << 4.0;
    QTest::newRow("4.5 -> 4") << 4.5 << 1 << 4.0;
    QTest::newRow("4.51 -> 5") << 4.51 << 1 << 5.0;
    QTest::newRow("4.96 -> 5") << 4.96 << 1 << 5.0;
    QTest::newRow("8 -> 5") << 8.0 << 1 << 5.0;
    QTest::newRow("8.01 -> 10") << 8.01 << 1 << 10.0;
    QTest::newRow("16 -> 20") << 16.0 << 1 << 20.0;
    QTest::newRow("35 -> 40") << 35.0 << 1 << 40.0;
    QTest::newRow("46 -> 50") << 46.0 << 1 << 50.0;
    QTest::newRow("80.1 -> 100") << 80.1 << 1 << 100.0;
    QTest::newRow("base 10, 7 -> 10") << 7.0 << 10 << 10.0;
    QTest::newRow("base 10, 31 -> 40") << 31.0 << 10 << 40.0;
    QTest::newRow("base 10, 50 -> 50") << 50.0 << 10 << 50.0;
    QTest::newRow("huge stays finite") << 1e300 << 1 << 5e17;
}

void TestXYAxis::niceStepSeries()
{
    QFETCH(double, value);
    QFETCH(int, base);
    QFETCH(double, expected);
    QCOMPARE(XYAxis::niceStep(value, base), expected);
}

void TestXYAxis::decimalsFor_data()
{
    QTest::addColumn<double>("step");
    QTest::addColumn<int>("expected");
    QTest::newRow("5") << 5.0 << 0;
    QTest::newRow("1") << 1.0 << 0;
    QTest::newRow("0.5") << 0.5 << 1;
    QTest::newRow("0.1") << 0.1 << 1;
    QTest::newRow("0.099") << 0.099 << 2;
    QTest::newRow("0.05") << 0.05 << 2;
    QTest::newRow("0.005") << 0.005 << 3;
    QTest::newRow("negative stays bounded") << -1.0 << 17;
}

void TestXYAxis::decimalsFor()
{
    QFETCH(double, step);
    QFETCH(int, expected);
    QCOMPARE(XYAxis::decimalsFor(step), expected);
}

void TestXYAxis::labelCut()
{
    // A fixed step of 0.05 gives two decimals; the cut at the first ".0"
    // shortens 1.05 to 1 and 0.05 to 0 while 0.10 and 0.15 stay.
    XYAxis axis(nullptr);
    axis.setTickStepMode(0);
    axis.setFixedStep(0.05);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    axis.setAxisRect(kStrip513);
    const QVector<QString> &labels = axis.tickLabelList();
    QCOMPARE(labels.size(), 161);
    QCOMPARE(labels.at(0), QStringLiteral("0"));
    QCOMPARE(labels.at(1), QStringLiteral("0"));    // 0.05
    QCOMPARE(labels.at(2), QStringLiteral("0.10")); // no ".0" in it
    QCOMPARE(labels.at(3), QStringLiteral("0.15"));
    QCOMPARE(labels.at(20), QStringLiteral("1")); // 1.00
    QCOMPARE(labels.at(21), QStringLiteral("1")); // 1.05
    QCOMPARE(labels.at(22), QStringLiteral("1.10"));
    QCOMPARE(labels.at(50), QStringLiteral("2.50"));
    QCOMPARE(labels.at(160), QStringLiteral("8"));

    // With one decimal only the trailing ".0" goes.
    XYAxis tenths(nullptr);
    tenths.setTickStepMode(0);
    tenths.setFixedStep(0.5);
    tenths.configure(XYAxis::Left, 0.0, 20.0, 1.0, 9.0, 17.0);
    tenths.setAxisRect(kStrip513);
    QCOMPARE(tenths.tickLabelList().at(0), QStringLiteral("9"));
    QCOMPARE(tenths.tickLabelList().at(1), QStringLiteral("9.5"));
    QCOMPARE(tenths.tickLabelList().at(2), QStringLiteral("10"));
    QCOMPARE(tenths.tickLabelList().at(3), QStringLiteral("10.5"));
    QCOMPARE(tenths.tickLabelList().at(16), QStringLiteral("17"));
}

void TestXYAxis::majorTicks_data()
{
    QTest::addColumn<double>("minValue");
    QTest::addColumn<double>("maxValue");
    QTest::addColumn<double>("range");

    QTest::newRow("-3..5 range 1") << -3.0 << 5.0 << 1.0;
    QTest::newRow("-4..4 range 2") << -4.0 << 4.0 << 2.0;
    QTest::newRow("0..8 range 1") << 0.0 << 8.0 << 1.0;
    QTest::newRow("-8..0 range 0.5") << -8.0 << 0.0 << 0.5;
}

void TestXYAxis::majorTicks()
{
    QFETCH(double, minValue);
    QFETCH(double, maxValue);
    QFETCH(double, range);

    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -20.0, 20.0, range, minValue, maxValue);
    axis.setTickStepMode(0);
    axis.setFixedStep(0.5);
    axis.setAxisRect(QRect(0, 0, 513, 51));
    const QVector<QString> &labels = axis.tickLabelList();
    const QVector<int> &pos = axis.tickPositionList();
    QCOMPARE(labels.size(), 17);

    QVector<int> expected;
    for (int i = 0; i < labels.size(); ++i) {
        const double v = labels.at(i).toDouble();
        const bool whole = near(std::remainder(v, range), 0.0, 1e-9);
        QCOMPARE(axis.isMajorTick(i), whole);
        if (whole)
            expected.append(pos.at(i));
    }
    QCOMPARE(axis.majorTickPositions(), expected);
    QVERIFY(!expected.isEmpty());
    // Signed remainder: -2 is a whole metre, -1.5 is not.
    const int minus2 = labels.indexOf(QStringLiteral("-2"));
    const int minus15 = labels.indexOf(QStringLiteral("-1.5"));
    if (minus2 >= 0)
        QCOMPARE(axis.isMajorTick(minus2), true);
    if (minus15 >= 0)
        QCOMPARE(axis.isMajorTick(minus15), range <= 0.5);
    if (range >= 1.0)
        QVERIFY(expected.size() < labels.size());
}

void TestXYAxis::slotGuards_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<double>("minValue");
    QTest::addColumn<double>("maxValue");
    QTest::addColumn<bool>("recompute");
    QTest::addColumn<double>("arg1");
    QTest::addColumn<double>("arg2");
    QTest::addColumn<bool>("signalled");
    QTest::addColumn<double>("expMin");
    QTest::addColumn<double>("expMax");
    QTest::addColumn<bool>("result");

    // Limits 0..8, range 1, strip of 513 pixels; the automatic step is 0.5
    // for every span below. Arguments: pixel count, pixel y of a position,
    // or the new range ends.
    auto row = [](const char *name, const char *action, double mn, double mx, bool recompute,
                  double a1, double a2, bool signalled, double emn, double emx,
                  bool result = true) {
        QTest::newRow(name) << QString::fromLatin1(action) << mn << mx << recompute << a1 << a2
                            << signalled << emn << emx << result;
    };
    row("addMaxValue below limit", "addMaxValue", 0, 6, true, 0, 0, true, 0, 6.5);
    row("addMaxValue clamps to limit", "addMaxValue", 0, 7.8, true, 0, 0, true, 0, 8);
    row("addMaxValue at limit still recomputes", "addMaxValue", 0, 8, true, 0, 0, true, 0, 8);
    row("addMaxValue beyond limit refused", "addMaxValue", 0, 9, false, 0, 0, false, 0, 9);
    row("subMaxValue", "subMaxValue", 0, 6, true, 0, 0, true, 0, 5.5);
    row("subMaxValue clamps to range", "subMaxValue", 2, 3.2, true, 0, 0, true, 2, 3);
    row("subMaxValue at range refused", "subMaxValue", 2, 3, true, 0, 0, false, 2, 3);
    row("addMinValue", "addMinValue", 0, 6, true, 0, 0, true, 0.5, 6);
    row("addMinValue clamps to range", "addMinValue", 2, 3.2, true, 0, 0, true, 2.2, 3.2);
    row("addMinValue at range refused", "addMinValue", 2, 3, true, 0, 0, false, 2, 3);
    row("subMinValue", "subMinValue", 2, 6, true, 0, 0, true, 1.5, 6);
    row("subMinValue clamps to limit", "subMinValue", 0.3, 6, true, 0, 0, true, 0, 6);
    row("subMinValue at limit refused", "subMinValue", 0, 6, true, 0, 0, false, 0, 6);
    row("zoomValueIn", "zoomValueIn", 0, 8, true, 0, 0, true, 1, 7);
    row("zoomValueIn lands on range", "zoomValueIn", 2, 3.2, true, 0, 0, true, 2.1, 3.1);
    row("zoomValueIn at range refused", "zoomValueIn", 2, 3, true, 0, 0, false, 2, 3);
    row("zoomValueInPos at bottom", "zoomValueInPos", 0, 8, true, 0, 512, true, 0, 6);
    row("zoomValueInPos at quarter", "zoomValueInPos", 0, 8, true, 0, 384, true, 0.5, 6.5);
    row("zoomValueInPos lands on range centred", "zoomValueInPos", 2, 3.2, true, 0, 0, true, 2.1,
        3.1);
    row("zoomValueInPos at range refused", "zoomValueInPos", 2, 3, true, 0, 100, false, 2, 3);
    row("zoomValueOut", "zoomValueOut", 2, 6, true, 0, 0, true, 1, 7);
    row("zoomValueOut clamps", "zoomValueOut", 0.5, 6.5, true, 0, 0, true, 0, 8);
    row("zoomValueOut at limits refused", "zoomValueOut", 0, 8, true, 0, 0, false, 0, 8);
    row("zoomValueOutPos at quarter", "zoomValueOutPos", 2, 6, true, 0, 384, true, 1.75, 6.75);
    row("zoomValueOutPos clamps", "zoomValueOutPos", 0.5, 6.5, true, 0, 0, true, 0, 6.5);
    row("zoomValueOutPos at limits refused", "zoomValueOutPos", 0, 8, true, 0, 0, false, 0, 8);
    row("overallView", "overallView", 2, 6, true, 0, 0, true, 0, 8);
    row("overallView at limits refused", "overallView", 0, 8, true, 0, 0, false, 0, 8);
    row("move +64 px", "moveValueWidthPx", 2, 6, true, 64, 0, true, 2.5, 6.5);
    row("move -64 px", "moveValueWidthPx", 2, 6, true, -64, 0, true, 1.5, 5.5);
    row("move +640 px clamps", "moveValueWidthPx", 2, 6, true, 640, 0, true, 4, 8);
    row("move -640 px clamps", "moveValueWidthPx", 2, 6, true, -640, 0, true, 0, 4);
    row("move + at max limit recomputes", "moveValueWidthPx", 0, 8, true, 10, 0, true, 0, 8);
    row("move - at min limit refused", "moveValueWidthPx", 0, 8, true, -10, 0, false, 0, 8, false);
    row("move + beyond limit refused", "moveValueWidthPx", 0, 9, false, 10, 0, false, 0, 9, false);
    row("move 0 px refused", "moveValueWidthPx", 2, 6, true, 0, 0, false, 2, 6, false);
    row("setValueRange", "setValueRange", 0, 8, true, 2, 3.5, true, 2, 3.5);
    row("setValueRange span equal range refused", "setValueRange", 0, 8, true, 2, 3, false, 0, 8);
    row("setValueRange reversed refused", "setValueRange", 0, 8, true, 6, 2, false, 0, 8);
    row("setValueRange empty refused", "setValueRange", 0, 8, true, 5, 5, false, 0, 8);
}

void TestXYAxis::slotGuards()
{
    QFETCH(QString, action);
    QFETCH(double, minValue);
    QFETCH(double, maxValue);
    QFETCH(bool, recompute);
    QFETCH(double, arg1);
    QFETCH(double, arg2);
    QFETCH(bool, signalled);
    QFETCH(double, expMin);
    QFETCH(double, expMax);
    QFETCH(bool, result);

    XYAxis axis(nullptr);
    axis.setAxisRect(kStrip513);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, minValue, maxValue);
    if (recompute) {
        axis.updateAxis();
        QCOMPARE(axis.valueStep(), 0.5);
    }
    QCOMPARE(axis.minimum(), minValue);
    QCOMPARE(axis.maximum(), maxValue);

    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    bool returned = true;
    const QByteArray name = action.toLatin1();
    if (action == QLatin1String("moveValueWidthPx")) {
        QVERIFY(QMetaObject::invokeMethod(&axis, name.constData(), Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, returned), Q_ARG(int, int(arg1))));
    } else if (action.endsWith(QLatin1String("Pos"))) {
        QVERIFY(QMetaObject::invokeMethod(&axis, name.constData(), Qt::DirectConnection,
                                          Q_ARG(QPoint, QPoint(10, int(arg2)))));
    } else if (action == QLatin1String("setValueRange")) {
        QVERIFY(QMetaObject::invokeMethod(&axis, name.constData(), Qt::DirectConnection,
                                          Q_ARG(double, arg1), Q_ARG(double, arg2)));
    } else {
        QVERIFY(QMetaObject::invokeMethod(&axis, name.constData(), Qt::DirectConnection));
    }
    QCOMPARE(returned, result);
    QCOMPARE(spy.count(), signalled ? 1 : 0);
    QVERIFY2(near(axis.minimum(), expMin), qPrintable(QString::number(axis.minimum(), 'g', 17)));
    QVERIFY2(near(axis.maximum(), expMax), qPrintable(QString::number(axis.maximum(), 'g', 17)));
    if (signalled) {
        // The recomputation followed the new range.
        QVERIFY(near(axis.unitPerPixel(), (expMax - expMin) / 512.0));
        QVERIFY(!axis.tickPositionList().isEmpty());
    }
}

void TestXYAxis::setLimitRangeDoesNotClamp()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    axis.setAxisRect(kStrip513);
    const QVector<int> ticksBefore = axis.tickPositionList();

    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    axis.setLimitRange(2.0, 6.0, 1.0);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(axis.limitMinimum(), 2.0);
    QCOMPARE(axis.limitMaximum(), 6.0);
    QCOMPARE(axis.minimumSpan(), 1.0);
    // The shown range and the ticks are untouched until the next recomputation.
    QCOMPARE(axis.minimum(), 0.0);
    QCOMPARE(axis.maximum(), 8.0);
    QCOMPARE(axis.tickPositionList(), ticksBefore);

    axis.updateAxis();
    QCOMPARE(spy.count(), 2);
    QCOMPARE(axis.minimum(), 2.0);
    QCOMPARE(axis.maximum(), 6.0);

    // A span equal to range is accepted; below range or reversed is not.
    axis.setLimitRange(2.0, 3.0, 1.0);
    QCOMPARE(spy.count(), 3);
    QCOMPARE(axis.limitMaximum(), 3.0);
    axis.setLimitRange(2.0, 2.5, 1.0);
    QCOMPARE(spy.count(), 3);
    axis.setLimitRange(4.0, 3.0, 0.1);
    QCOMPARE(spy.count(), 3);
    axis.setLimitRange(4.0, 4.0, 0.0);
    QCOMPARE(spy.count(), 3);
    QCOMPARE(axis.limitMinimum(), 2.0);
    QCOMPARE(axis.limitMaximum(), 3.0);
    QCOMPARE(axis.minimumSpan(), 1.0);
}

void TestXYAxis::moveZeroPixels()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -5.0, 5.0, 1.0, -2.0, 2.0);
    axis.setAxisRect(QRect(0, 0, 513, 51));
    const QVector<int> ticks = axis.tickPositionList();
    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    QCOMPARE(axis.moveValueWidthPx(0), false);
    QCOMPARE(spy.count(), 0);
    QCOMPARE(axis.minimum(), -2.0);
    QCOMPARE(axis.maximum(), 2.0);
    QCOMPARE(axis.tickPositionList(), ticks);
    // A positive move goes towards higher values.
    QCOMPARE(axis.moveValueWidthPx(128), true);
    QVERIFY(near(axis.minimum(), -1.0));
    QVERIFY(near(axis.maximum(), 3.0));
}

void TestXYAxis::posFraction_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<double>("expected");

    // Strips: vertical (0,0)..(50,512); horizontal (0,0)..(512,50).
    QTest::newRow("left bottom") << int(XYAxis::Left) << QPoint(5, 512) << 0.0;
    QTest::newRow("left top") << int(XYAxis::Left) << QPoint(5, 0) << 1.0;
    QTest::newRow("left quarter") << int(XYAxis::Left) << QPoint(5, 384) << 0.25;
    QTest::newRow("left below clamps") << int(XYAxis::Left) << QPoint(5, 700) << 0.0;
    QTest::newRow("left above clamps") << int(XYAxis::Left) << QPoint(5, -40) << 1.0;
    QTest::newRow("right quarter") << int(XYAxis::Right) << QPoint(5, 384) << 0.25;
    QTest::newRow("bottom left end") << int(XYAxis::Bottom) << QPoint(0, 5) << 0.0;
    QTest::newRow("bottom three quarters") << int(XYAxis::Bottom) << QPoint(384, 5) << 0.75;
    QTest::newRow("bottom right clamps") << int(XYAxis::Bottom) << QPoint(900, 5) << 1.0;
    QTest::newRow("top half") << int(XYAxis::Top) << QPoint(256, 5) << 0.5;
    QTest::newRow("unknown position") << 7 << QPoint(0, 0) << 0.5;
}

void TestXYAxis::posFraction()
{
    QFETCH(int, position);
    QFETCH(QPoint, point);
    QFETCH(double, expected);

    XYAxis axis(nullptr);
    axis.configure(XYAxis::AxisPosition(position), 0.0, 8.0, 1.0, 0.0, 8.0);
    const bool vertical = position == XYAxis::Left || position == XYAxis::Right;
    axis.setAxisRect(vertical ? QRect(0, 0, 51, 513) : QRect(0, 0, 513, 51));
    QCOMPARE(axis.posFraction(point), expected);
}

void TestXYAxis::updateAxisChecks()
{
    XYAxis axis(nullptr);
    axis.setAxisRect(kStrip513);
    QSignalSpy spy(&axis, &XYAxis::axisChanged);

    // Reversed range is swapped, then clamped to the limits.
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 9.0, -1.0);
    axis.updateAxis();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(axis.minimum(), 0.0);
    QCOMPARE(axis.maximum(), 8.0);

    // Limits not in order: no recomputation, no signal, ticks kept.
    const QVector<int> ticks = axis.tickPositionList();
    axis.configure(XYAxis::Left, 5.0, 5.0, 1.0, 1.0, 3.0);
    axis.updateAxis();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(axis.minimum(), 1.0);
    QCOMPARE(axis.tickPositionList(), ticks);

    // The order of the clamped range and the range minimum are not re-checked.
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 8.5, 9.0);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("XYAxis::calcPx"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("XYAxis::calcPx"));
    axis.updateAxis();
    QCOMPARE(spy.count(), 2);
    QCOMPARE(axis.minimum(), 8.5);
    QCOMPARE(axis.maximum(), 8.0);
}

void TestXYAxis::setAxisRectRules()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    QSignalSpy spy(&axis, &XYAxis::axisChanged);

    axis.setAxisRect(QRect(0, 0, 0, 10)); // invalid
    QCOMPARE(spy.count(), 0);
    QVERIFY(axis.axisRectangle().isNull());

    axis.setAxisRect(QRect(5, 5, 51, 501));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(axis.axisRectangle(), QRect(5, 5, 51, 501));
    QCOMPARE(axis.tickPositionList().first(), 505);

    axis.setAxisRect(QRect(5, 5, 51, 501)); // unchanged
    QCOMPARE(spy.count(), 1);

    axis.setAxisRect(QRect(10, 5, 10, -3)); // invalid: ignored, old strip kept
    QCOMPARE(spy.count(), 1);
    QCOMPARE(axis.axisRectangle(), QRect(5, 5, 51, 501));

    axis.setAxisRect(QRect(5, 5, 51, 401));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(axis.tickPositionList().first(), 405);
}

void TestXYAxis::calcWarnings()
{
    XYAxis axis(nullptr);
    {
        MessageCapture capture;
        QCOMPARE(axis.calcPxSpace(0.0, 0.5), 30.0);
        QCOMPARE(axis.calcPxSpace(-2.0, 0.5), 30.0);
        QCOMPARE(g_messages.size(), 2);
        QCOMPARE(g_messageTypes.at(0), QtWarningMsg);
        QCOMPARE(g_messages.at(0), QStringLiteral("XYAxis::calcPxSpace unitP2V is too min 0"));
        QCOMPARE(g_messages.at(1), QStringLiteral("XYAxis::calcPxSpace unitP2V is too min -2"));
    }
    {
        MessageCapture capture;
        QCOMPARE(axis.calcPxStart(-1.0, 0.5, 0.3, 8.0), 0.0);
        QCOMPARE(axis.calcPxStart(0.016, 0.0, 0.3, 8.0), 0.0);
        QCOMPARE(g_messages.size(), 2);
        QCOMPARE(g_messageTypes.at(1), QtWarningMsg);
        QCOMPARE(g_messages.at(0),
                 QStringLiteral("XYAxis::calcPxStart unitP2V or valueSpace is too min -1 0.5"));
        QCOMPARE(g_messages.at(1),
                 QStringLiteral("XYAxis::calcPxStart unitP2V or valueSpace is too min 0.016 0"));
    }
    {
        MessageCapture capture;
        QCOMPARE(axis.calcPxSpace(0.016, 0.5), 31.25);
        QVERIFY(near(axis.calcPxStart(0.016, 0.5, 0.3, 8.0), 12.5));
        QVERIFY(near(axis.calcPxStart(0.016, 0.5, -0.3, 8.0), 18.75));
        QCOMPARE(axis.calcPxStart(0.016, 0.5, 2.0, 8.0), 0.0);
        // maxValue takes no part.
        QCOMPARE(axis.calcPxStart(0.016, 0.5, 0.3, -100.0), axis.calcPxStart(0.016, 0.5, 0.3, 8.0));
        QVERIFY(g_messages.isEmpty());
    }
    {
        // Precision 0 or below: no alignment.
        XYAxis coarse(nullptr);
        coarse.setDecimalPrecision(0);
        MessageCapture capture;
        QCOMPARE(coarse.calcPxStart(0.016, 0.5, 0.3, 8.0), 0.0);
        QVERIFY(g_messages.isEmpty());
    }
}

void TestXYAxis::zeroSpanFallsBack()
{
    // A range of zero span reaches both fall-backs during a recomputation and
    // still gives a finite tick walk.
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Left, 0.0, 8.0, 1.0, 3.0, 3.0);
    MessageCapture capture;
    axis.setAxisRect(kStrip513);
    QCOMPARE(axis.unitPerPixel(), 0.0);
    QCOMPARE(axis.pixelSpace(), 30.0);
    QCOMPARE(axis.pixelStart(), 0.0);
    QCOMPARE(g_messages.size(), 2);
    QVERIFY(g_messages.at(0).startsWith(QStringLiteral("XYAxis::calcPxSpace")));
    QVERIFY(g_messages.at(1).startsWith(QStringLiteral("XYAxis::calcPxStart")));
    QCOMPARE(axis.tickPositionList().size(), 18); // 512, 482, ... 2, -28 is out
    QCOMPARE(axis.tickPositionList().last(), 2);
    for (const QString &label : axis.tickLabelList())
        QCOMPARE(label, QStringLiteral("3"));
}

void TestXYAxis::divisionGuards()
{
    // A fixed step below 0.05 with one decimal and a range below 0.1 would
    // divide by zero; they are guarded.
    XYAxis axis(nullptr);
    axis.setTickStepMode(0);
    axis.setFixedStep(0.04);
    axis.configure(XYAxis::Left, 0.0, 8.0, 0.05, 0.3, 1.1);
    axis.setAxisRect(kStrip513);
    QCOMPARE(axis.pixelStart(), 0.0);
    QCOMPARE(axis.tickLabelList().first(), QStringLiteral("0.30"));
    QCOMPARE(axis.tickPositionList().size(), 21);
    QVERIFY(axis.majorTickPositions().isEmpty());

    // A one-pixel strip (length 0) and an absurd span stay finite.
    XYAxis flat(nullptr);
    flat.configure(XYAxis::Bottom, 0.0, 8.0, 1.0, 0.0, 8.0);
    flat.setAxisRect(QRect(0, 0, 1, 51));
    QVERIFY(flat.tickPositionList().size() <= 10000);

    XYAxis wide(nullptr);
    wide.configure(XYAxis::Bottom, -1e12, 1e12, 1.0, -1e12, 1e12);
    wide.setAxisRect(QRect(0, 0, 513, 51));
    QVERIFY(wide.tickPositionList().size() <= 10000);
    QCOMPARE(wide.tickPositionList().size(), wide.tickLabelList().size());
}

void TestXYAxis::unusedPositionsHaveNoTicks_data()
{
    QTest::addColumn<int>("position");
    QTest::newRow("right") << int(XYAxis::Right);
    QTest::newRow("top") << int(XYAxis::Top);
}

void TestXYAxis::unusedPositionsHaveNoTicks()
{
    QFETCH(int, position);
    XYAxis axis(nullptr);
    axis.configure(XYAxis::AxisPosition(position), 0.0, 8.0, 1.0, 0.0, 8.0);
    QSignalSpy spy(&axis, &XYAxis::axisChanged);
    axis.setAxisRect(QRect(0, 0, 513, 513));
    QCOMPARE(spy.count(), 1); // the recomputation still signals
    QVERIFY(axis.tickPositionList().isEmpty());
    QVERIFY(axis.tickLabelList().isEmpty());
    QCOMPARE(axis.unitPerPixel(), 1.0); // scale untouched
    QVERIFY(axis.majorTickPositions().isEmpty());

    QImage image(600, 600, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    const QImage before = image;
    QPainter painter(&image);
    axis.draw(&painter);
    painter.end();
    QCOMPARE(image, before);
}

void TestXYAxis::fixedAndFrozenStepModes()
{
    XYAxis fixed(nullptr);
    fixed.setTickStepMode(0);
    fixed.setFixedStep(2.0);
    fixed.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    fixed.setAxisRect(kStrip513);
    QCOMPARE(fixed.valueStep(), 2.0);
    QCOMPARE(fixed.pixelSpace(), 128.0);
    QCOMPARE(fixed.tickLabelList(), QVector<QString>({"0", "2", "4", "6", "8"}));
    // In fixed mode the bound steps use a fifth of the span.
    fixed.setValueRange(0.0, 5.0);
    fixed.addMaxValue();
    QVERIFY(near(fixed.maximum(), 6.0));

    // Any other mode keeps the step, spacing and start as they were.
    XYAxis frozen(nullptr);
    frozen.setTickStepMode(2);
    frozen.configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    frozen.setAxisRect(kStrip513);
    QCOMPARE(frozen.valueStep(), 1.0);
    QCOMPARE(frozen.pixelSpace(), 30.0);
    QCOMPARE(frozen.pixelStart(), 0.0);
    QCOMPARE(frozen.unitPerPixel(), 8.0 / 512.0);
    QCOMPARE(frozen.tickPositionList().size(), 18); // every 30 pixels from 512 down to 2
}

void TestXYAxis::horizontalWalk()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -5.0, 5.0, 1.0, -5.0, 5.0);
    axis.setAxisRect(QRect(60, 539, 730, 51)); // the plot view's strip at 800 x 600
    const double unit = 10.0 / 729.0;
    QVERIFY(near(axis.unitPerPixel(), unit));
    QVERIFY(near(axis.tickPixelHint(), 729.0 / 10.0 / 2.0));
    QCOMPARE(axis.valueStep(), 0.5);
    const QVector<int> &pos = axis.tickPositionList();
    const QVector<QString> &labels = axis.tickLabelList();
    QCOMPARE(pos.size(), 21);
    QCOMPARE(pos.first(), 60);
    QCOMPARE(pos.last(), 789);
    QCOMPARE(labels.first(), QStringLiteral("-5"));
    QCOMPARE(labels.at(1), QStringLiteral("-4.5"));
    QCOMPARE(labels.at(10), QStringLiteral("0"));
    QCOMPARE(labels.last(), QStringLiteral("5"));
    for (int k = 0; k < pos.size(); ++k)
        QVERIFY(std::fabs(pos.at(k) - (60 + k * 0.5 / unit)) <= 0.5 + 1e-6);
    QCOMPARE(axis.majorTickPositions().size(), 11);
}

void TestXYAxis::drawBottomAndLeft()
{
    const QColor background(Qt::white);
    QImage image(400, 400, QImage::Format_ARGB32_Premultiplied);
    image.fill(background);

    XYAxis bottom(nullptr);
    bottom.configure(XYAxis::Bottom, 0.0, 4.0, 1.0, 0.0, 4.0);
    bottom.setAxisRect(QRect(100, 300, 257, 51)); // L = 256: 64 px per unit
    XYAxis left(nullptr);
    left.configure(XYAxis::Left, 0.0, 4.0, 1.0, 0.0, 4.0);
    left.setAxisRect(QRect(49, 44, 51, 257)); // right edge 99, L = 256

    QPainter painter(&image);
    const QPen pen(QColor(0, 0, 255));
    painter.setPen(pen);
    QFont font;
    font.setPixelSize(30);
    painter.setFont(font);
    bottom.draw(&painter);
    left.draw(&painter);
    // The painter's state comes back as it was.
    QCOMPARE(painter.pen().color(), pen.color());
    QCOMPARE(painter.font().pixelSize(), 30);
    painter.end();

    const QRgb blue = qRgb(0, 0, 255);
    // Bottom axis line along the strip's top edge and 5-pixel tick marks.
    QCOMPARE(image.pixel(150, 300), blue);
    QCOMPARE(image.pixel(356, 300), blue);
    for (int x : bottom.tickPositionList()) {
        QCOMPARE(image.pixel(x, 304), blue);
        QCOMPARE(image.pixel(x, 305), blue);
    }
    // Left axis line along the strip's right edge, ticks going left.
    QCOMPARE(image.pixel(99, 100), blue);
    for (int y : left.tickPositionList()) {
        QCOMPARE(image.pixel(95, y), blue);
    }

    // Labels of the bottom axis: centred under their tick, below the mark;
    // of the left axis: to the left of the mark.
    auto inkIn = [&](const QRect &r) {
        int ink = 0;
        for (int y = r.top(); y <= r.bottom(); ++y)
            for (int x = r.left(); x <= r.right(); ++x)
                if (image.pixel(x, y) != background.rgb())
                    ++ink;
        return ink;
    };
    const int x0 = bottom.tickPositionList().at(2); // label "1", a major tick
    QVERIFY(inkIn(QRect(x0 - 8, 307, 17, 30)) > 0);
    QCOMPARE(inkIn(QRect(x0 - 30, 260, 61, 35)), 0); // nothing above the axis
    const int y0 = left.tickPositionList().at(2);
    QVERIFY(inkIn(QRect(60, y0 - 12, 33, 24)) > 0);
    QCOMPARE(inkIn(QRect(101, y0 - 12, 40, 24)), 0); // nothing right of the axis

    // Major labels use 14 points, minor 12 pixels: the major label is taller.
    QFont major;
    major.setPointSize(14);
    QFont minor;
    minor.setPixelSize(12);
    QVERIFY(QFontMetrics(major).height() != QFontMetrics(minor).height());
    auto inkHeight = [&](const QRect &r) {
        int top = -1;
        int bottomRow = -1;
        for (int y = r.top(); y <= r.bottom(); ++y)
            for (int x = r.left(); x <= r.right(); ++x)
                if (image.pixel(x, y) != background.rgb()) {
                    if (top < 0)
                        top = y;
                    bottomRow = y;
                }
        return top < 0 ? 0 : bottomRow - top + 1;
    };
    const int xMajor = bottom.tickPositionList().at(2); // "1"
    const int xMinor = bottom.tickPositionList().at(3); // "1.5"
    QCOMPARE(bottom.tickLabelList().at(2), QStringLiteral("1"));
    QCOMPARE(bottom.tickLabelList().at(3), QStringLiteral("1.5"));
    const int hMajor = inkHeight(QRect(xMajor - 4, 306, 9, 40));
    const int hMinor = inkHeight(QRect(xMinor - 4, 306, 9, 40));
    QVERIFY2(hMajor > 0 && hMinor > 0, "labels drawn");
    QVERIFY2(hMajor != hMinor, qPrintable(QStringLiteral("%1 %2").arg(hMajor).arg(hMinor)));
}

void TestXYAxis::mappingRoundTrip()
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -5.0, 5.0, 1.0, -5.0, 5.0);
    axis.setAxisRect(QRect(0, 0, 513, 51));
    QCOMPARE(axis.valueToPx(-5.0), 0.0);
    QCOMPARE(axis.valueToPx(5.0), 512.0);
    QCOMPARE(axis.valueToPx(0.0), 256.0);
    QCOMPARE(axis.pxToValue(0.0), -5.0);
    QCOMPARE(axis.pxToValue(512.0), 5.0);
    for (double v = -5.0; v <= 5.0; v += 0.25)
        QVERIFY(near(axis.pxToValue(axis.valueToPx(v)), v));
}

QTEST_MAIN(TestXYAxis)
#include "tst_xyaxis.moc"
