// Axis ranges that no operator means but that the settings file, the range
// edits or the axis model can produce (infinite, NaN, huge, equal, reversed
// and tiny ranges): they go through the settings file, the window's show
// event, the axis model and a real offscreen paint with targets, areas, the
// crosshair and a drag. The sanitizer build runs this with every undefined
// behaviour fatal, so the paint completing is itself a check; the pictures
// must also make sense, and ordinary ranges must paint exactly the pixels of
// a reference drawn here by hand.

#include "mwharness.h"

#include "app/mainwindow.h"
#include "text/translationtable.h"
#include "view/xyaxis.h"
#include "view/xyview.h"

#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QTextOption>

#include <cmath>
#include <limits>

using namespace mw;

namespace
{

const QColor kDiscFill(0, 255, 100, 255);

// Discards debug output ("TargetPos" on every paint) while rendering.
struct Quiet {
    QtMessageHandler previous;
    Quiet()
    {
        previous =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    }
    ~Quiet() { qInstallMessageHandler(previous); }
};

QImage render(XYView *view)
{
    Quiet quiet;
    return view->grab().toImage().convertToFormat(QImage::Format_ARGB32);
}

int countColour(const QImage &image, QRgb colour)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) == colour)
                ++n;
    return n;
}

bool closeTo(QRgb a, QRgb b, int tolerance)
{
    return std::abs(qRed(a) - qRed(b)) <= tolerance &&
           std::abs(qGreen(a) - qGreen(b)) <= tolerance &&
           std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

int countBeyond(const QImage &a, const QImage &b, int tolerance)
{
    int n = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if (!closeTo(a.pixel(x, y), b.pixel(x, y), tolerance))
                ++n;
    return n;
}

int countDifferent(const QImage &a, const QImage &b)
{
    int n = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y))
                ++n;
    return n;
}

bool sameDouble(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

void sendMouse(QWidget *w, QEvent::Type type, QPoint pos, Qt::MouseButton button,
               Qt::MouseButtons buttons)
{
    QMouseEvent event(type, QPointF(pos), QPointF(w->mapToGlobal(pos)), button, buttons,
                      Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

const QList<QPointF> kTargets = {QPointF(0, 0), QPointF(-2.5, 6.3), QPointF(3.1, 2.0),
                                 QPointF(0.5, 4.0)};

AreaRecord areaRecord(int index, int type, QRectF rect)
{
    AreaRecord r;
    r.index = index;
    r.type = type;
    r.rect = rect;
    r.status = 1;
    return r;
}

// Area corners as the module reports them: upper-left first, negative height.
const QList<AreaRecord> kAreas = {areaRecord(0, 0, QRectF(QPointF(-4, 7), QPointF(-1, 5))),
                                  areaRecord(1, 1, QRectF(QPointF(1, 3), QPointF(4, 1)))};

// The picture of the ordinary mapping, drawn here by hand over the picture
// without areas and targets: the plot's value-to-pixel rule with values
// truncated toward zero as plain casts do for values that fit.
QImage referencePicture(const QImage &baseline, XYView *view, double xmin, double xmax, double ymin,
                        double ymax)
{
    const QRect plot = view->plotRectangle();
    auto pixel = [&](QPointF v) {
        return QPointF(plot.left() + (v.x() - xmin) * (plot.width() - 1) / (xmax - xmin),
                       plot.bottom() - (v.y() - ymin) * (plot.height() - 1) / (ymax - ymin));
    };
    QImage reference = baseline;
    reference.setDotsPerMeterX(qRound(view->logicalDpiX() / 0.0254));
    reference.setDotsPerMeterY(qRound(view->logicalDpiY() / 0.0254));
    QPainter p(&reference);
    p.setFont(view->font());
    const QFontMetrics metrics = view->fontMetrics();
    for (const AreaRecord &a : kAreas) {
        p.save();
        p.setRenderHint(QPainter::Antialiasing, true);
        p.setRenderHint(QPainter::TextAntialiasing, true);
        const QPointF p1 = pixel(a.rect.topLeft());
        const QPointF p2 = pixel(a.rect.bottomRight());
        const double w = std::fabs(p2.x() - p1.x());
        const double h = std::fabs(p2.y() - p1.y());
        p.setPen(QColor(255, 255, 0, 100));
        p.setBrush(a.type == 0 ? QColor(0, 0, 138, 100) : QColor(0, 100, 138, 100));
        const QRect box(int(p1.x()), int(p1.y()), int(w), int(h));
        p.drawRects(&box, 1);
        const QString label =
            translationTable().text(a.type == 0 ? 3 : 4) + QString::number(a.index + 1);
        p.drawText(QRectF(QRect(int(p1.x() + w * 0.25), int(p1.y() + h * 0.5), int(w * 0.5),
                                int(h * 0.5))),
                   label, QTextOption());
        p.restore();
    }
    p.save();
    p.setRenderHint(QPainter::Antialiasing, true);
    for (int k = 0; k < kTargets.size(); ++k) {
        const QPointF t = kTargets.at(k);
        const QPointF c = pixel(t);
        p.setPen(QColor(200, 255, 100, 255));
        p.setBrush(kDiscFill);
        p.drawEllipse(int(c.x() - 10), int(c.y() - 10), 20, 20);
        const QPoint b(int(c.x() - 40), int(c.y() - 30));
        p.fillRect(QRect(b, QSize(100, 19)), QColor(0, 0, 0, 160));
        const QString text =
            QStringLiteral("%1:(%2,%3)").arg(k + 1).arg(t.x(), 0, 'f', 1).arg(t.y(), 0, 'f', 1);
        p.setPen(Qt::white);
        p.drawText(QPoint(b.x() + (100 - metrics.horizontalAdvance(text)) / 2, b.y() + 14), text);
    }
    p.restore();
    return reference;
}

} // namespace

class TestDegenerateRanges : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(root.isValid()); }

    void settingsFileRanges_data();
    void settingsFileRanges();
    void rangeEdits_data();
    void rangeEdits();
    void axisModel_data();
    void axisModel();

private:
    QTemporaryDir root;
};

// How many of kTargets show a disc: -1 when the row does not say (the axis
// keeps a scale from before, which depends on when the first resize came).
void TestDegenerateRanges::settingsFileRanges_data()
{
    QTest::addColumn<QString>("x1");
    QTest::addColumn<QString>("x2");
    QTest::addColumn<QString>("y1");
    QTest::addColumn<QString>("y2");
    QTest::addColumn<bool>("ordinary");
    QTest::addColumn<int>("discs");

    QTest::newRow("default") << "-5"
                             << "5"
                             << "0"
                             << "8" << true << 4;
    QTest::newRow("fraction") << "-2.5"
                              << "6"
                              << "0"
                              << "10" << true << 4;
    QTest::newRow("wide") << "-8"
                          << "8"
                          << "0"
                          << "12" << true << 4;
    // Infinite limits: the axis is left as it was (limits not in order) or
    // scales everything to zero pixels (inf * 0 is NaN: no disc).
    QTest::newRow("Y1=inf") << "-5"
                            << "5"
                            << "inf"
                            << "8" << false << 0;
    QTest::newRow("Y2=inf") << "-5"
                            << "5"
                            << "0"
                            << "inf" << false << 4;
    QTest::newRow("Y1=-inf") << "-5"
                             << "5"
                             << "-inf"
                             << "8" << false << 0;
    QTest::newRow("X1=-inf") << "-inf"
                             << "5"
                             << "0"
                             << "8" << false << 0;
    QTest::newRow("X2=inf") << "-5"
                            << "inf"
                            << "0"
                            << "8" << false << 4;
    QTest::newRow("all inf") << "-inf"
                             << "inf"
                             << "-inf"
                             << "inf" << false << 0;
    QTest::newRow("X1=nan") << "nan"
                            << "5"
                            << "0"
                            << "8" << false << 0;
    QTest::newRow("Y2=nan") << "-5"
                            << "5"
                            << "0"
                            << "nan" << false << 0;
    // Spans beyond the largest double, and a huge but finite one.
    QTest::newRow("X +-1e308") << "-1e308"
                               << "1e308"
                               << "0"
                               << "8" << false << 4;
    QTest::newRow("Y 0..1e308") << "-5"
                                << "5"
                                << "0"
                                << "1e308" << false << 4;
    // Equal and reversed limits: the axis keeps its previous scale.
    QTest::newRow("X equal") << "3"
                             << "3"
                             << "0"
                             << "8" << false << -1;
    QTest::newRow("Y equal") << "-5"
                             << "5"
                             << "4"
                             << "4" << false << -1;
    QTest::newRow("X reversed") << "5"
                                << "-5"
                                << "0"
                                << "8" << false << -1;
    QTest::newRow("Y reversed") << "-5"
                                << "5"
                                << "8"
                                << "0" << false << -1;
    // A range of a nanometre: a metre is 1e11 pixels. Only the target at
    // x = 0 (or y = 0) is on screen.
    QTest::newRow("X 0..1e-9") << "0"
                               << "0.000000001"
                               << "0"
                               << "8" << false << 1;
    QTest::newRow("Y 0..1e-9") << "-5"
                               << "5"
                               << "0"
                               << "0.000000001" << false << 1;
    QTest::newRow("both 1e-9") << "0"
                               << "1e-9"
                               << "0"
                               << "1e-9" << false << 1;
    QTest::newRow("X -1e-9..0") << "-1e-9"
                                << "0"
                                << "0"
                                << "8" << false << 1;
}

void TestDegenerateRanges::settingsFileRanges()
{
    QFETCH(QString, x1);
    QFETCH(QString, x2);
    QFETCH(QString, y1);
    QFETCH(QString, y2);
    QFETCH(bool, ordinary);
    QFETCH(int, discs);

    enterRunDir(root, true,
                QString("[XYAXIS]\nX1=%1\nX2=%2\nY1=%3\nY2=%4\n").arg(x1, x2, y1, y2).toUtf8());
    std::unique_ptr<MainWindow> window = makeWindow(nullptr);
    QVERIFY(window);
    auto *view = child<XYView>(window.get(), "widget_XY");
    QVERIFY(view);
    QVERIFY(view->plotRectangle().isValid());

    // The show event passed the stored values to the axes as doubles.
    const double vx1 = x1.toDouble(), vx2 = x2.toDouble();
    const double vy1 = y1.toDouble(), vy2 = y2.toDouble();
    QVERIFY(sameDouble(view->horizontalAxis()->limitMinimum(), vx1));
    QVERIFY(sameDouble(view->horizontalAxis()->limitMaximum(), vx2));
    QVERIFY(sameDouble(view->verticalAxis()->limitMinimum(), vy1));
    QVERIFY(sameDouble(view->verticalAxis()->limitMaximum(), vy2));
    // ... and to the spin boxes as integers (0 where the text is no
    // integer), within what each spin box takes.
    auto *xStart = child<QSpinBox>(window.get(), "edit_x_start");
    auto *yEnd = child<QSpinBox>(window.get(), "edit_y_end");
    QVERIFY(xStart && yEnd);
    QCOMPARE(xStart->value(), qBound(xStart->minimum(), x1.toInt(), xStart->maximum()));
    QCOMPARE(yEnd->value(), qBound(yEnd->minimum(), y2.toInt(), yEnd->maximum()));

    const QImage empty = render(view);
    QCOMPARE(empty.size(), view->size() * view->devicePixelRatioF());

    for (const AreaRecord &a : kAreas)
        view->setAreaInfo(a.index, a);
    view->setTargets(kTargets);
    const QImage full = render(view);
    QCOMPARE(full.size(), empty.size());

    // The legend is drawn whatever the ranges: its first box at the top right.
    const QRect plot = view->plotRectangle();
    QVERIFY(full.pixel(plot.right() - 300, plot.top() + 10) != qRgb(255, 255, 255));

    const int discPixels = countColour(full, kDiscFill.rgb());
    if (discs == 0)
        QCOMPARE(discPixels, 0);
    else if (discs > 0)
        QVERIFY2(discPixels >= discs * 100 && discPixels <= discs * 400,
                 qPrintable(QString::number(discPixels)));

    if (ordinary) {
        const QImage reference = referencePicture(empty, view, vx1, vx2, vy1, vy2);
        QCOMPARE(countBeyond(full, reference, 2), 0);
        QVERIFY(countDifferent(full, reference) <= 40 * kTargets.size());
    }

    // The crosshair over the plot (its text shows the values, whatever they
    // are) and a drag across it, then a paint of each.
    const QPoint centre = plot.center();
    sendMouse(view, QEvent::MouseMove, centre, Qt::NoButton, Qt::NoButton);
    QVERIFY(!render(view).isNull());
    QVERIFY(!view->crosshairText(centre).isEmpty());
    sendMouse(view, QEvent::MouseButtonPress, centre, Qt::LeftButton, Qt::LeftButton);
    sendMouse(view, QEvent::MouseMove, centre + QPoint(-120, 80), Qt::NoButton, Qt::LeftButton);
    sendMouse(view, QEvent::MouseMove, centre + QPoint(200, -150), Qt::NoButton, Qt::LeftButton);
    sendMouse(view, QEvent::MouseButtonRelease, centre, Qt::LeftButton, Qt::NoButton);
    QVERIFY(!render(view).isNull());

    // A resize recomputes the axes with the same values.
    window->resize(window->width() + 37, window->height() + 23);
    QVERIFY(!render(view).isNull());
    if (ordinary) {
        // Ordinary ranges cannot be dragged (the shown range is the limits).
        QCOMPARE(view->horizontalAxis()->minimum(), vx1);
        QCOMPARE(view->verticalAxis()->maximum(), vy2);
    }
}

// The range edits only hold integers: equal and reversed ranges are what
// they can produce beyond the ordinary.
void TestDegenerateRanges::rangeEdits_data()
{
    QTest::addColumn<int>("x1");
    QTest::addColumn<int>("x2");
    QTest::addColumn<int>("y1");
    QTest::addColumn<int>("y2");

    QTest::newRow("ordinary") << -3 << 4 << 1 << 9;
    QTest::newRow("equal") << 2 << 2 << 5 << 5;
    QTest::newRow("reversed") << 4 << -4 << 9 << 1;
    QTest::newRow("extremes") << -2147483647 << 2147483647 << 0 << 2147483647;
}

void TestDegenerateRanges::rangeEdits()
{
    QFETCH(int, x1);
    QFETCH(int, x2);
    QFETCH(int, y1);
    QFETCH(int, y2);

    enterRunDir(root, true);
    std::unique_ptr<MainWindow> window = makeWindow(nullptr);
    QVERIFY(window);
    auto *view = child<XYView>(window.get(), "widget_XY");
    QSpinBox *edits[4] = {
        child<QSpinBox>(window.get(), "edit_x_start"), child<QSpinBox>(window.get(), "edit_x_end"),
        child<QSpinBox>(window.get(), "edit_y_start"), child<QSpinBox>(window.get(), "edit_y_end")};
    const int values[4] = {x1, x2, y1, y2};
    for (int i = 0; i < 4; ++i) {
        QVERIFY(edits[i]);
        // Whatever the edits accept; beyond their range they clamp.
        edits[i]->setRange(std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
        edits[i]->setValue(values[i]);
    }
    view->setTargets(kTargets);
    for (const AreaRecord &a : kAreas)
        view->setAreaInfo(a.index, a);
    QTest::mouseClick(child<QPushButton>(window.get(), "btn_set_xy"), Qt::LeftButton);
    QCOMPARE(view->horizontalAxis()->limitMinimum(), double(x1));
    QCOMPARE(view->verticalAxis()->limitMaximum(), double(y2));
    const QImage image = render(view);
    QVERIFY(!image.isNull());
    // Stored as the edits show them.
    QCOMPARE(settingsValue("XYAXIS/X1"), QString::number(x1));
    QCOMPARE(settingsValue("XYAXIS/Y2"), QString::number(y2));
    if (x1 < x2 && y1 < y2 && qint64(x2) - x1 < 100) {
        const QImage again = render(view);
        QCOMPARE(countDifferent(image, again), 0);
        QVERIFY(countColour(image, kDiscFill.rgb()) > 0);
    }
}

// The axis model alone, driven through every slot with such values.
void TestDegenerateRanges::axisModel_data()
{
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("maximum");
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    QTest::newRow("ordinary") << 0.0 << 8.0;
    QTest::newRow("inf max") << 0.0 << inf;
    QTest::newRow("-inf min") << -inf << 0.0;
    QTest::newRow("both inf") << -inf << inf;
    QTest::newRow("nan min") << nan << 8.0;
    QTest::newRow("nan max") << 0.0 << nan;
    QTest::newRow("+-1e308") << -1e308 << 1e308;
    QTest::newRow("equal") << 2.0 << 2.0;
    QTest::newRow("reversed") << 8.0 << 0.0;
    QTest::newRow("1e-9") << 0.0 << 1e-9;
    QTest::newRow("1e-300") << 0.0 << 1e-300;
    QTest::newRow("denormal") << 0.0 << 4.9e-324;
    QTest::newRow("far offset") << 1e15 << 1e15 + 8;
}

void TestDegenerateRanges::axisModel()
{
    QFETCH(double, minimum);
    QFETCH(double, maximum);

    for (XYAxis::AxisPosition position : {XYAxis::Left, XYAxis::Bottom}) {
        XYAxis axis;
        axis.configure(position, minimum, maximum, 1.0, minimum, maximum);
        axis.setAxisRect(position == XYAxis::Left ? QRect(10, 10, 51, 531)
                                                  : QRect(60, 540, 731, 51));
        // Ticks stay within the strip (two pixels of slack) and bounded.
        const QRect strip = axis.axisRectangle();
        QVERIFY(axis.tickPositionList().size() <= 10000);
        for (int p : axis.tickPositionList()) {
            if (position == XYAxis::Left)
                QVERIFY(p >= strip.top() - 2 && p <= strip.bottom());
            else
                QVERIFY(p >= strip.left() && p <= strip.right() + 2);
        }
        QCOMPARE(axis.tickLabelList().size(), axis.tickPositionList().size());
        axis.majorTickPositions();
        axis.zoomValueIn();
        axis.zoomValueInPos(QPoint(100, 100));
        axis.subMaxValue();
        axis.addMinValue();
        axis.zoomValueOut();
        axis.zoomValueOutPos(QPoint(700, 20));
        axis.addMaxValue();
        axis.subMinValue();
        axis.moveValueWidthPx(1000);
        axis.moveValueWidthPx(-1000);
        axis.overallView();
        axis.setValueRange(minimum, maximum);
        axis.setLimitRange(minimum, maximum, 1e-9);
        axis.updateAxis();
        QVERIFY(axis.tickPositionList().size() <= 10000);

        // Conversions give a double for anything; painting takes them.
        axis.valueToPx(3.0);
        axis.pxToValue(123.0);
        QImage canvas(800, 600, QImage::Format_ARGB32);
        canvas.fill(Qt::white);
        QPainter painter(&canvas);
        axis.draw(&painter);
    }
}

QTEST_MAIN(TestDegenerateRanges)
#include "tst_degenerate_ranges.moc"
