// Plot view: geometry, value/pixel conversion, the painted grid, legend,
// areas, targets and crosshair (checked on pixels of an offscreen render),
// and the mouse, wheel and update behaviour.
#include "text/translationtable.h"
#include "view/xyaxis.h"
#include "view/xyview.h"

#include <QApplication>
#include <QBuffer>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextOption>
#include <QWheelEvent>
#include <QtTest/qtestspontaneevent.h>
#include <QtTest>

#include <climits>
#include <cmath>
#include <functional>

namespace
{

QStringList g_messages;

void collectMessages(QtMsgType, const QMessageLogContext &, const QString &text)
{
    g_messages.append(text);
}

struct MessageCapture {
    QtMessageHandler previous;
    MessageCapture()
    {
        g_messages.clear();
        previous = qInstallMessageHandler(collectMessages);
    }
    ~MessageCapture() { qInstallMessageHandler(previous); }
    static int count(const QString &prefix)
    {
        int n = 0;
        for (const QString &m : qAsConst(g_messages))
            if (m.startsWith(prefix))
                ++n;
        return n;
    }
};

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

QImage render(XYView &view)
{
    Quiet quiet;
    return view.grab().toImage().convertToFormat(QImage::Format_ARGB32);
}

// src over dst, as the raster engine blends a translucent colour.
QRgb blend(const QColor &src, QRgb dst)
{
    const int a = src.alpha();
    auto ch = [a](int s, int d) { return (s * a + d * (255 - a) + 127) / 255; };
    return qRgb(ch(src.red(), qRed(dst)), ch(src.green(), qGreen(dst)), ch(src.blue(), qBlue(dst)));
}

bool closeTo(QRgb a, QRgb b, int tolerance = 2)
{
    return std::abs(qRed(a) - qRed(b)) <= tolerance &&
           std::abs(qGreen(a) - qGreen(b)) <= tolerance &&
           std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

QString describe(QRgb c)
{
    return QStringLiteral("(%1,%2,%3)").arg(qRed(c)).arg(qGreen(c)).arg(qBlue(c));
}

#define VERIFY_COLOUR(actual, expected)                                                            \
    QVERIFY2(closeTo((actual), (expected)),                                                        \
             qPrintable(describe(actual) + QStringLiteral(" expected ") + describe(expected)))

int countDifferent(const QImage &a, const QImage &b, const QRect &region)
{
    int n = 0;
    for (int y = region.top(); y <= region.bottom(); ++y)
        for (int x = region.left(); x <= region.right(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y))
                ++n;
    return n;
}

// A copy of a rendered picture to paint a reference on, at the widget's
// resolution so that point-sized fonts come out the same size.
QImage canvasFrom(const QImage &picture, const QWidget *widget)
{
    QImage canvas = picture;
    canvas.setDotsPerMeterX(qRound(widget->logicalDpiX() / 0.0254));
    canvas.setDotsPerMeterY(qRound(widget->logicalDpiY() / 0.0254));
    return canvas;
}

// Pixels of region whose colour differs by more than tolerance in a channel.
int countBeyond(const QImage &a, const QImage &b, const QRect &region, int tolerance)
{
    int n = 0;
    for (int y = region.top(); y <= region.bottom(); ++y)
        for (int x = region.left(); x <= region.right(); ++x)
            if (!closeTo(a.pixel(x, y), b.pixel(x, y), tolerance))
                ++n;
    return n;
}

void sendMouse(QWidget *w, QEvent::Type type, QPoint pos, Qt::MouseButton button,
               Qt::MouseButtons buttons)
{
    QMouseEvent event(type, QPointF(pos), QPointF(w->mapToGlobal(pos)), button, buttons,
                      Qt::NoModifier);
    event.setAccepted(false);
    QApplication::sendEvent(w, &event);
}

class PaintCounter : public QObject
{
public:
    int paints = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return false;
    }
};

// Paint events of a widget with the pixels each one repaints.
class PaintRecorder : public QObject
{
public:
    QVector<QRegion> regions;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            regions.append(static_cast<QPaintEvent *>(event)->region());
        return false;
    }
};

// What the window shows: its backing store after all pending paints.
QImage shownPixels(QWidget *window)
{
    Quiet quiet;
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    return window->screen()
        ->grabWindow(window->winId())
        .toImage()
        .convertToFormat(QImage::Format_ARGB32);
}

QString firstDifference(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return QStringLiteral("sizes differ");
    int n = 0;
    QPoint first(-1, -1);
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) {
                if (n++ == 0)
                    first = QPoint(x, y);
            }
    return QStringLiteral("%1 pixels differ, first at (%2,%3): %4 instead of %5")
        .arg(n)
        .arg(first.x())
        .arg(first.y())
        .arg(n ? describe(a.pixel(first)) : QString(), n ? describe(b.pixel(first)) : QString());
}

class WheelCountingParent : public QWidget
{
public:
    int wheels = 0;

protected:
    void wheelEvent(QWheelEvent *event) override
    {
        ++wheels;
        event->accept();
    }
};

// The plot geometry at 800 x 600: frame inset 10, plot 50 from the left and
// bottom of the frame.
const QRect kPlot(60, 10, 730, 530);

// The same mapping the view uses: value to widget pixel.
QPointF plane(double x, double y, double xmin = -5, double xmax = 5, double ymin = 0,
              double ymax = 8)
{
    const double ux = (kPlot.width() - 1) / (xmax - xmin);
    const double uy = (kPlot.height() - 1) / (ymax - ymin);
    return QPointF(kPlot.left() + (x - xmin) * ux, kPlot.bottom() - (y - ymin) * uy);
}

AreaRecord area(int index, int type, QPointF topLeft, QPointF bottomRight, int status = 1)
{
    AreaRecord r;
    r.index = index;
    r.type = type;
    r.rect = QRectF(topLeft, bottomRight);
    r.status = status;
    return r;
}

void setTexts(const QByteArray &lines)
{
    QByteArray bytes = lines;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    translationTable().readFrom(buffer);
}

void clearTexts()
{
    QTemporaryDir empty;
    const QString previous = QDir::currentPath();
    QDir::setCurrent(empty.path());
    translationTable().load(0); // no file here: the table is emptied
    QDir::setCurrent(previous);
}

} // namespace

class TestXYView : public QObject
{
    Q_OBJECT

private:
    XYView *view = nullptr;

private slots:
    void init();
    void cleanup();

    void constructorDefaults();
    void beforeFirstResize();
    void geometry();
    void geometryFollowsResize();
    void pixelToValueCorners_data();
    void pixelToValueCorners();
    void isInPlot_data();
    void isInPlot();
    void targetAtOrigin();
    void targetsMatchReference();
    void setTargetsCapsAt128();
    void targetDebugOutput();
    void areaColours_data();
    void areaColours();
    void areasMatchReference();
    void areasNotDrawn_data();
    void areasNotDrawn();
    void unsettingArea_data();
    void unsettingArea();
    void areaRecords();
    void gridOnlyOnWholeMetres();
    void legend();
    void crosshairShown_data();
    void crosshairShown();
    void crosshairMatchesReference();
    void crosshairGoneAfterLeave();
    void crosshairText_data();
    void crosshairText();
    void outOfRangeAreaIndexIgnored_data();
    void outOfRangeAreaIndexIgnored();
    void updatesRepaint();
    void dragCannotMoveDefaultPlane();
    void dragMovesZoomedPlane();
    void pressWritesPoint();
    void wheelDoesNothing();
    void setAxisRange();

    void partialRepaintsMatchWholeRepaints();
    void targetMoveRepaintsOnlyItsPixels();
    void everyChangePaintsOnceWithItsLines();
};

void TestXYView::init()
{
    clearTexts();
    view = new XYView(nullptr);
    view->resize(800, 600);
    view->show();
    QVERIFY(QTest::qWaitForWindowExposed(view));
    QCOMPARE(view->size(), QSize(800, 600));
}

void TestXYView::cleanup()
{
    delete view;
    view = nullptr;
    clearTexts();
}

void TestXYView::constructorDefaults()
{
    XYView fresh(nullptr);
    QCOMPARE(QByteArray(fresh.metaObject()->className()), QByteArray("XYView"));
    QVERIFY(fresh.metaObject()->indexOfSlot("refresh()") >= 0);
    QCOMPARE(fresh.focusPolicy(), Qt::StrongFocus);
    QVERIFY(fresh.testAttribute(Qt::WA_MouseTracking));
    QVERIFY(fresh.hasMouseTracking());

    XYAxis *x = fresh.horizontalAxis();
    XYAxis *y = fresh.verticalAxis();
    QVERIFY(x && y);
    QCOMPARE(x->parent(), &fresh);
    QCOMPARE(y->parent(), &fresh);
    QCOMPARE(x->axisPosition(), XYAxis::Bottom);
    QCOMPARE(x->limitMinimum(), -5.0);
    QCOMPARE(x->limitMaximum(), 5.0);
    QCOMPARE(x->minimumSpan(), 1.0);
    QCOMPARE(x->minimum(), -5.0);
    QCOMPARE(x->maximum(), 5.0);
    QCOMPARE(y->axisPosition(), XYAxis::Left);
    QCOMPARE(y->limitMinimum(), 0.0);
    QCOMPARE(y->limitMaximum(), 8.0);
    QCOMPARE(y->minimumSpan(), 1.0);
    QCOMPARE(y->minimum(), 0.0);
    QCOMPARE(y->maximum(), 8.0);

    for (int i = 0; i < 3; ++i) {
        const AreaRecord r = fresh.areaInfo(i);
        QCOMPARE(r.index, 0);
        QCOMPARE(r.type, 0);
        QCOMPARE(r.status, 0);
        QCOMPARE(r.rect, QRectF());
    }
    QCOMPARE(fresh.targetCountShown(), 0);
    QCOMPARE(int(fresh.areaOccupancyMask()), 0);
    QVERIFY(fresh.areasShown());
    QVERIFY(fresh.plotRectangle().isNull());
    QVERIFY(fresh.frameRectangle().isNull());

    // The axes' signal reaches refresh().
    QSignalSpy spy(x, &XYAxis::axisChanged);
    QVERIFY(QObject::disconnect(x, &XYAxis::axisChanged, &fresh, &XYView::refresh));
    QVERIFY(QObject::disconnect(y, &XYAxis::axisChanged, &fresh, &XYView::refresh));
}

void TestXYView::beforeFirstResize()
{
    XYView fresh(nullptr);
    QVERIFY(fresh.horizontalAxis()->tickPositionList().isEmpty());
    QVERIFY(fresh.verticalAxis()->tickPositionList().isEmpty());
    fresh.setTargets({QPointF(1, 1)});
    fresh.setAreaInfo(0, area(0, 0, QPointF(-1, 2), QPointF(1, 1)));
    QImage image(200, 200, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    Quiet quiet;
    QPainter painter(&image);
    fresh.render(&painter); // draws relative to null rectangles without failing
    painter.end();
    QCOMPARE(fresh.targetCountShown(), 1);
}

void TestXYView::geometry()
{
    QCOMPARE(view->frameRectangle(), QRect(10, 10, 780, 580));
    QCOMPARE(view->plotRectangle(), kPlot);
    QCOMPARE(view->horizontalAxis()->axisRectangle(), QRect(60, 539, 730, 51));
    QCOMPARE(view->verticalAxis()->axisRectangle(), QRect(10, 10, 51, 530));
    // The x strip's top edge is the plot's bottom edge; the y strip's right
    // edge is the plot's left edge.
    QCOMPARE(view->horizontalAxis()->axisRectangle().top(), kPlot.bottom());
    QCOMPARE(view->verticalAxis()->axisRectangle().right(), kPlot.left());

    QCOMPARE(view->valueToPixel(QPointF(5, 8)), QPointF(kPlot.right(), kPlot.top()));
    QCOMPARE(view->valueToPixel(QPointF(-5, 0)), QPointF(kPlot.left(), kPlot.bottom()));
    QCOMPARE(view->valueToPixel(QPointF(0, 0)), plane(0, 0));
    QCOMPARE(view->valueToPixel(QPointF(2.5, 3.5)), plane(2.5, 3.5));
}

void TestXYView::geometryFollowsResize()
{
    QSignalSpy xSpy(view->horizontalAxis(), &XYAxis::axisChanged);
    QSignalSpy ySpy(view->verticalAxis(), &XYAxis::axisChanged);
    view->resize(1000, 700);
    QTRY_COMPARE(view->plotRectangle(), QRect(60, 10, 930, 630));
    QTRY_COMPARE(xSpy.count(), 1);
    QTRY_COMPARE(ySpy.count(), 1);
    QCOMPARE(view->frameRectangle(), QRect(10, 10, 980, 680));
    QCOMPARE(view->valueToPixel(QPointF(5, 8)), QPointF(989, 10));
    QCOMPARE(view->horizontalAxis()->tickPositionList().last(), 989);
    QCOMPARE(view->verticalAxis()->tickPositionList().last(), 10);

    // Only the width changes: the y strip stays the same and is not recomputed.
    view->resize(900, 700);
    QTRY_COMPARE(view->plotRectangle(), QRect(60, 10, 830, 630));
    QTRY_COMPARE(xSpy.count(), 2);
    QTest::qWait(20);
    QCOMPARE(ySpy.count(), 1);
    QCOMPARE(view->horizontalAxis()->tickPositionList().last(), 889);
}

void TestXYView::pixelToValueCorners_data()
{
    QTest::addColumn<QPointF>("xRange");
    QTest::addColumn<QPointF>("yRange");

    QTest::newRow("defaults") << QPointF(-5, 5) << QPointF(0, 8);
    QTest::newRow("x -8..0, y 0..12") << QPointF(-8, 0) << QPointF(0, 12);
    QTest::newRow("x -3..7, y 2..5") << QPointF(-3, 7) << QPointF(2, 5);
}

void TestXYView::pixelToValueCorners()
{
    QFETCH(QPointF, xRange);
    QFETCH(QPointF, yRange);
    view->setAxisRange(xRange, yRange);

    double x = 0;
    double y = 0;
    view->pixelToValue(kPlot.topLeft(), &x, &y);
    QVERIFY(qFuzzyCompare(x + 100, xRange.x() + 100));
    QVERIFY(qFuzzyCompare(y + 100, yRange.y() + 100));
    view->pixelToValue(kPlot.bottomRight(), &x, &y);
    QVERIFY(qFuzzyCompare(x + 100, xRange.y() + 100));
    QVERIFY(qFuzzyCompare(y + 100, yRange.x() + 100));
    view->pixelToValue(kPlot.topRight(), &x, &y);
    QVERIFY(qFuzzyCompare(x + 100, xRange.y() + 100));
    QVERIFY(qFuzzyCompare(y + 100, yRange.y() + 100));
    view->pixelToValue(kPlot.bottomLeft(), &x, &y);
    QVERIFY(qFuzzyCompare(x + 100, xRange.x() + 100));
    QVERIFY(qFuzzyCompare(y + 100, yRange.x() + 100));

    // A pixel in between, against the plain mapping.
    const QPoint p(300, 200);
    view->pixelToValue(p, &x, &y);
    const double ex = xRange.x() + (p.x() - kPlot.left()) * (xRange.y() - xRange.x()) / 729.0;
    const double ey = yRange.x() + (kPlot.bottom() - p.y()) * (yRange.y() - yRange.x()) / 529.0;
    QVERIFY(std::fabs(x - ex) < 1e-9);
    QVERIFY(std::fabs(y - ey) < 1e-9);
}

void TestXYView::isInPlot_data()
{
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<bool>("inside");
    QTest::newRow("top-left corner") << QPoint(60, 10) << true;
    QTest::newRow("bottom-right corner") << QPoint(789, 539) << true;
    QTest::newRow("left of plot") << QPoint(59, 100) << false;
    QTest::newRow("right of plot") << QPoint(790, 100) << false;
    QTest::newRow("above plot") << QPoint(100, 9) << false;
    QTest::newRow("below plot") << QPoint(100, 540) << false;
    QTest::newRow("middle") << QPoint(400, 300) << true;
    QTest::newRow("left (-1,-1)") << QPoint(-1, -1) << false;
}

void TestXYView::isInPlot()
{
    QFETCH(QPoint, point);
    QFETCH(bool, inside);
    QCOMPARE(view->isInPlot(point), inside);

    XYView unsized(nullptr);
    QCOMPARE(unsized.isInPlot(QPoint(0, 0)), false);
}

void TestXYView::targetAtOrigin()
{
    const QImage baseline = render(*view);
    view->setTargets({QPointF(0, 0)});
    const QImage image = render(*view);

    // The module sits in the middle of the plot's bottom edge.
    const QPointF centre = view->valueToPixel(QPointF(0, 0));
    QCOMPARE(centre.x(), kPlot.left() + (kPlot.width() - 1) / 2.0);
    QCOMPARE(centre.y(), double(kPlot.bottom()));

    const QRgb disc = qRgb(0, 255, 100);
    const int cx = int(centre.x());
    const int cy = int(centre.y());
    for (int dx = -5; dx <= 5; ++dx)
        for (int dy = -5; dy <= 5; ++dy)
            VERIFY_COLOUR(image.pixel(cx + dx, cy + dy), disc);
    // The disc is 20 pixels across.
    QCOMPARE(image.pixel(cx - 14, cy), baseline.pixel(cx - 14, cy));
    QCOMPARE(image.pixel(cx + 15, cy), baseline.pixel(cx + 15, cy));
    QVERIFY(image.pixel(cx - 8, cy) != baseline.pixel(cx - 8, cy));

    // Label box: 100 x 19, its top-left 40 left of and 30 above the centre.
    const QPoint box(int(centre.x() - 40), int(centre.y() - 30));
    QCOMPARE(box, QPoint(384, 509));
    const QColor boxColour(0, 0, 0, 160);
    for (const QPoint &p :
         {QPoint(box.x(), box.y()), QPoint(box.x() + 99, box.y()), QPoint(box.x(), box.y() + 18),
          QPoint(box.x() + 99, box.y() + 18), QPoint(box.x() + 2, box.y() + 9)})
        VERIFY_COLOUR(image.pixel(p), blend(boxColour, baseline.pixel(p)));
    for (const QPoint &p : {QPoint(box.x() - 1, box.y() + 5), QPoint(box.x() + 100, box.y() + 5),
                            QPoint(box.x() + 5, box.y() - 1), QPoint(box.x() + 5, box.y() + 19)})
        QCOMPARE(image.pixel(p), baseline.pixel(p));
    // White label text inside the box.
    int white = 0;
    for (int y = box.y(); y < box.y() + 19; ++y)
        for (int x = box.x(); x < box.x() + 100; ++x)
            if (qRed(image.pixel(x, y)) > 200 && qGreen(image.pixel(x, y)) > 200 &&
                qBlue(image.pixel(x, y)) > 200)
                ++white;
    QVERIFY(white > 10);
}

void TestXYView::targetsMatchReference()
{
    const QImage baseline = render(*view);
    const QList<QPointF> targets = {QPointF(-2.5, 6.25), QPointF(3.14, 2.0), QPointF(0.05, 4.0),
                                    QPointF(-4.0, 1.5)};
    view->setTargets(targets);
    const QImage image = render(*view);

    // The same drawing done by hand on the target-less picture.
    QImage reference = canvasFrom(baseline, view);
    {
        QPainter p(&reference);
        p.setFont(view->font());
        const QFontMetrics metrics = view->fontMetrics();
        p.save();
        p.setRenderHint(QPainter::Antialiasing, true);
        for (int k = 0; k < targets.size(); ++k) {
            const QPointF t = targets.at(k);
            const QPointF c = plane(t.x(), t.y());
            p.setPen(QColor(200, 255, 100, 255));
            p.setBrush(QColor(0, 255, 100, 255));
            p.drawEllipse(int(c.x() - 10), int(c.y() - 10), 20, 20);
            const QPoint b(int(c.x() - 40), int(c.y() - 30));
            p.fillRect(QRect(b, QSize(100, 19)), QColor(0, 0, 0, 160));
            const QString text =
                QStringLiteral("%1:(%2,%3)").arg(k + 1).arg(t.x(), 0, 'f', 1).arg(t.y(), 0, 'f', 1);
            p.setPen(Qt::white);
            p.drawText(QPoint(b.x() + (100 - metrics.horizontalAdvance(text)) / 2, b.y() + 14),
                       text);
        }
        p.restore();
    }
    // The disc is copied from a cached drawing of the same ellipse: its
    // antialiased edge may round a step or two differently.
    QCOMPARE(countBeyond(image, reference, image.rect(), 2), 0);
    QVERIFY(countDifferent(image, reference, image.rect()) <= 40 * targets.size());
    QVERIFY(countDifferent(image, baseline, image.rect()) > 1000);
}

void TestXYView::setTargetsCapsAt128()
{
    QList<QPointF> many;
    for (int i = 0; i < 200; ++i)
        many.append(QPointF(-5 + i * 0.05, (i % 80) * 0.1));
    view->setTargets(many);
    QCOMPARE(view->targetCountShown(), 128);

    MessageCapture capture;
    view->grab();
    QCOMPARE(MessageCapture::count(QStringLiteral("TargetPos")), 128);
    QStringList positions;
    for (const QString &m : qAsConst(g_messages))
        if (m.startsWith(QStringLiteral("TargetPos")))
            positions.append(m);
    QString expectedLast;
    QDebug(&expectedLast) << "TargetPos" << many.at(127);
    QCOMPARE(positions.last(), expectedLast.trimmed());

    // A shorter list replaces the count; old points beyond it are not drawn.
    view->setTargets(many.mid(0, 3));
    QCOMPARE(view->targetCountShown(), 3);
    g_messages.clear();
    view->grab();
    QCOMPARE(MessageCapture::count(QStringLiteral("TargetPos")), 3);

    view->setTargets(QList<QPointF>());
    QCOMPARE(view->targetCountShown(), 0);
    g_messages.clear();
    view->grab();
    QCOMPARE(MessageCapture::count(QStringLiteral("TargetPos")), 0);

    // Exactly 128 fit.
    view->setTargets(many.mid(0, 128));
    QCOMPARE(view->targetCountShown(), 128);
    view->setTargets(many.mid(0, 129));
    QCOMPARE(view->targetCountShown(), 128);
}

void TestXYView::targetDebugOutput()
{
    view->setTargets({QPointF(1.5, 2.0), QPointF(-0.5, 7.25)});
    MessageCapture capture;
    view->grab();
    QStringList lines;
    for (const QString &m : qAsConst(g_messages))
        if (m.startsWith(QStringLiteral("TargetPos")))
            lines.append(m);
    QCOMPARE(lines, QStringList({QStringLiteral("TargetPos QPointF(1.5,2)"),
                                 QStringLiteral("TargetPos QPointF(-0.5,7.25)")}));
}

void TestXYView::areaColours_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("none occupied") << 0x00;
    QTest::newRow("bit 0") << 0x01;
    QTest::newRow("bit 1 only colours index 1") << 0x02;
    QTest::newRow("bit 2") << 0x04;
    QTest::newRow("all three") << 0x07;
    QTest::newRow("bit 1 and bits above 2") << 0xFA;
    QTest::newRow("only bits above 2") << 0xF8;
}

void TestXYView::areaColours()
{
    QFETCH(int, mask);
    const QImage baseline = render(*view);
    // Rectangles as the module reports them: top-left has the smaller x and larger y.
    view->setAreaInfo(0, area(0, 0, QPointF(-4, 7), QPointF(-2, 5)));
    view->setAreaInfo(1, area(1, 1, QPointF(1, 7), QPointF(3, 5)));
    view->setAreaInfo(2, area(2, 0, QPointF(-1, 3), QPointF(1, 1)));
    view->setAreaOccupancy(char(mask));
    QCOMPARE(int(view->areaOccupancyMask()), int(char(mask)));
    const QImage image = render(*view);

    const QColor occupiedColour(100, 0, 138, 150);
    const QColor typeColours[2] = {QColor(0, 0, 138, 100), QColor(0, 100, 138, 100)};
    const QPointF corners[3] = {QPointF(-4, 7), QPointF(1, 7), QPointF(-1, 3)};
    const QPointF ends[3] = {QPointF(-2, 5), QPointF(3, 5), QPointF(1, 1)};
    const int types[3] = {0, 1, 0};
    for (int i = 0; i < 3; ++i) {
        const QPointF tl = plane(corners[i].x(), corners[i].y());
        const QPointF br = plane(ends[i].x(), ends[i].y());
        const bool occupied = mask & (1 << i);
        const QColor fill = occupied ? occupiedColour : typeColours[types[i]];
        // Inside the box, away from its outline and its label.
        for (const QPoint &p :
             {QPoint(int(tl.x()) + 4, int(tl.y()) + 4), QPoint(int(br.x()) - 4, int(tl.y()) + 10),
              QPoint(int(tl.x()) + 10, int(br.y()) - 4)}) {
            VERIFY_COLOUR(image.pixel(p), blend(fill, baseline.pixel(p)));
        }
        // Outside the box nothing changed.
        const QPoint outside(int(tl.x()) - 3, int(tl.y()) + 10);
        QCOMPARE(image.pixel(outside), baseline.pixel(outside));
    }
}

void TestXYView::areasMatchReference()
{
    setTexts("00000003 Detect\n00000004 Shield\n0000001B Busy\n");
    const QImage baseline = render(*view);
    const AreaRecord records[3] = {area(0, 0, QPointF(-4, 7), QPointF(-1, 4)),
                                   area(1, 1, QPointF(0.5, 7.5), QPointF(4.5, 5.2)),
                                   area(2, 1, QPointF(-2.3, 3.1), QPointF(2.7, 0.4))};
    for (int i = 0; i < 3; ++i)
        view->setAreaInfo(i, records[i]);
    view->setAreaOccupancy(0x04);
    const QImage image = render(*view);

    QImage reference = canvasFrom(baseline, view);
    {
        QPainter p(&reference);
        p.setFont(view->font());
        for (int i = 0; i < 3; ++i) {
            p.save();
            p.setRenderHint(QPainter::Antialiasing, true);
            p.setRenderHint(QPainter::TextAntialiasing, true);
            const QRectF r = records[i].rect;
            const QPointF a = plane(r.left(), r.top());
            const QPointF b = plane(r.right(), r.bottom());
            const double w = std::fabs(b.x() - a.x());
            const double h = std::fabs(b.y() - a.y());
            QColor fill = records[i].type == 0 ? QColor(0, 0, 138, 100) : QColor(0, 100, 138, 100);
            if (i == 2)
                fill = QColor(100, 0, 138, 150);
            p.setPen(QColor(255, 255, 0, 100));
            p.setBrush(fill);
            const QRect box(int(a.x()), int(a.y()), int(w), int(h));
            p.drawRects(&box, 1);
            const QString label =
                (records[i].type == 0 ? QStringLiteral("Detect") : QStringLiteral("Shield")) +
                QString::number(i + 1);
            p.drawText(QRectF(QRect(int(a.x() + w * 0.25), int(a.y() + h * 0.5), int(w * 0.5),
                                    int(h * 0.5))),
                       label, QTextOption());
            p.restore();
        }
    }
    QCOMPARE(countDifferent(image, reference, image.rect()), 0);
    QVERIFY(countDifferent(image, baseline, image.rect()) > 1000);
}

void TestXYView::areasNotDrawn_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("show");
    QTest::addColumn<bool>("drawn");
    QTest::newRow("status 1 shown (drawn)") << 1 << true << true;
    QTest::newRow("status 2") << 2 << true << false;
    QTest::newRow("status 0") << 0 << true << false;
    QTest::newRow("status 3") << 3 << true << false;
    QTest::newRow("areas hidden") << 1 << false << false;
}

void TestXYView::areasNotDrawn()
{
    QFETCH(int, status);
    QFETCH(bool, show);
    QFETCH(bool, drawn);
    setTexts("00000003 Detect\n00000004 Shield\n");
    view->setTargets({QPointF(3, 2)});
    const QImage baseline = render(*view);
    for (int i = 0; i < 3; ++i)
        view->setAreaInfo(i,
                          area(i, i % 2, QPointF(-4 + 3 * i, 7), QPointF(-2 + 3 * i, 4.5), status));
    view->setAreaOccupancy(0x07);
    view->setShowAreas(show);
    QCOMPARE(view->areasShown(), show);
    const QImage image = render(*view);
    const int changed = countDifferent(image, baseline, image.rect());
    if (drawn)
        QVERIFY(changed > 1000);
    else
        QCOMPARE(changed, 0); // legend, target and everything else unchanged
}

void TestXYView::unsettingArea_data()
{
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<bool>("reported");
    QTest::newRow("top 0, bottom 0, left -2, right 3") << QRectF(-2, 0, 5, 0) << true;
    QTest::newRow("all zero is drawn") << QRectF(0, 0, 0, 0) << false;
    QTest::newRow("left 0, right 3") << QRectF(0, 0, 3, 0) << true;
    QTest::newRow("left 1, right 3") << QRectF(1, 0, 2, 0) << false;
    QTest::newRow("truncated top and bottom 0") << QRectF(-2, 0.5, 5, -0.4) << true;
    QTest::newRow("top 1") << QRectF(-2, 1, 5, -1) << false;
    QTest::newRow("right truncates to 0") << QRectF(0.5, 0, 0.3, 0) << false;
    QTest::newRow("left -0.5 truncates to 0") << QRectF(-0.5, 0, 0.2, 0) << false;
    QTest::newRow("left -1, right 0") << QRectF(-1, 0, 1, 0) << true;
}

void TestXYView::unsettingArea()
{
    QFETCH(QRectF, rect);
    QFETCH(bool, reported);

    AreaRecord first;
    first.index = 0;
    first.type = 0;
    first.rect = rect;
    first.status = 1;
    view->setAreaInfo(0, first);
    const AreaRecord second = area(1, 1, QPointF(1, 7), QPointF(3, 5));
    view->setAreaInfo(1, second);

    MessageCapture capture;
    const QImage image = view->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(MessageCapture::count(QStringLiteral("unsetting area")), reported ? 1 : 0);
    // The skipped area leaves its saved painter state behind.
    QCOMPARE(MessageCapture::count(QStringLiteral("QPainter::end: Painter ended with")),
             reported ? 1 : 0);

    // The next area is drawn either way.
    const QPointF tl = plane(1, 7);
    const QPoint inside(int(tl.x()) + 4, int(tl.y()) + 4);
    view->setAreaInfo(1, AreaRecord());
    view->setAreaInfo(0, AreaRecord());
    const QImage baseline = render(*view);
    VERIFY_COLOUR(image.pixel(inside), blend(QColor(0, 100, 138, 100), baseline.pixel(inside)));
}

void TestXYView::areaRecords()
{
    const AreaRecord r = area(2, 1, QPointF(-1.5, 3.0), QPointF(1.5, 1.0), 1);
    view->setAreaInfo(2, r);
    const AreaRecord stored = view->areaInfo(2);
    QCOMPARE(stored.index, 2);
    QCOMPARE(stored.type, 1);
    QCOMPARE(stored.rect, QRectF(QPointF(-1.5, 3.0), QPointF(1.5, 1.0)));
    QVERIFY(stored.rect.height() < 0); // kept as given, not normalised
    QCOMPARE(stored.status, 1);
    // The whole record is copied, even an index that differs from the slot.
    view->setAreaInfo(0, area(5, 0, QPointF(0, 1), QPointF(1, 0), 2));
    QCOMPARE(view->areaInfo(0).index, 5);
    QCOMPARE(view->areaInfo(0).status, 2);
    QCOMPARE(view->areaInfo(3).status, 0);
    QCOMPARE(view->areaInfo(-1).status, 0);

    view->clearAreas();
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(view->areaInfo(i).status, 0);
        QCOMPARE(view->areaInfo(i).type, 0);
        QCOMPARE(view->areaInfo(i).index, 0);
        QCOMPARE(view->areaInfo(i).rect, QRectF());
    }
}

void TestXYView::gridOnlyOnWholeMetres()
{
    const QImage image = render(*view);
    const QRgb background = image.pixel(5, 5); // outside the frame: nothing drawn
    const QRgb grid = blend(QColor(0, 0, 0, 100), background);

    const XYAxis *x = view->horizontalAxis();
    const XYAxis *y = view->verticalAxis();
    const int rowY = int(plane(0, 3.5).y());    // between horizontal lines
    const int columnX = int(plane(0.5, 0).x()); // between vertical lines
    int majors = 0;
    int minors = 0;
    for (int i = 0; i < x->tickPositionList().size(); ++i) {
        const int px = x->tickPositionList().at(i);
        if (px == kPlot.left())
            continue; // under the y axis line
        const double v = x->tickLabelList().at(i).toDouble();
        const bool whole = v == std::floor(v);
        (whole ? majors : minors)++;
        if (whole) {
            VERIFY_COLOUR(image.pixel(px, rowY), grid);
            VERIFY_COLOUR(image.pixel(px, rowY + 40), grid);
            QVERIFY(image.pixel(px, rowY) != background);
        } else {
            QCOMPARE(image.pixel(px, rowY), background);
            QCOMPARE(image.pixel(px, rowY + 40), background);
        }
    }
    QCOMPARE(majors, 10);
    QCOMPARE(minors, 10);
    majors = minors = 0;
    for (int i = 0; i < y->tickPositionList().size(); ++i) {
        const int py = y->tickPositionList().at(i);
        if (py == kPlot.bottom())
            continue; // under the x axis line
        const double v = y->tickLabelList().at(i).toDouble();
        const bool whole = v == std::floor(v);
        (whole ? majors : minors)++;
        if (whole) {
            VERIFY_COLOUR(image.pixel(columnX, py), grid);
            QVERIFY(image.pixel(columnX, py) != background);
        } else {
            QCOMPARE(image.pixel(columnX, py), background);
        }
    }
    QCOMPARE(majors, 8);
    QCOMPARE(minors, 8);
    // No lines outside the plot.
    QCOMPARE(image.pixel(x->tickPositionList().at(3), kPlot.top() - 2), background);
}

void TestXYView::legend()
{
    const QImage bare = render(*view);
    const QRgb background = bare.pixel(5, 5);
    const QRect boxes[3] = {QRect(kPlot.right() - 310, kPlot.top() + 5, 99, 25),
                            QRect(kPlot.right() - 210, kPlot.top() + 5, 99, 25),
                            QRect(kPlot.right() - 110, kPlot.top() + 5, 100, 25)};
    const QColor fills[3] = {QColor(100, 0, 138, 150), QColor(0, 0, 138, 100),
                             QColor(0, 100, 138, 100)};
    for (int b = 0; b < 3; ++b) {
        for (const QPoint &p : {boxes[b].topLeft() + QPoint(3, 3),
                                boxes[b].bottomRight() - QPoint(3, 3), boxes[b].center()})
            VERIFY_COLOUR(bare.pixel(p), blend(fills[b], background));
        // Empty texts: nothing white in the box.
        for (int y = boxes[b].top() + 2; y < boxes[b].bottom() - 1; ++y)
            for (int x = boxes[b].left() + 2; x < boxes[b].right() - 1; ++x)
                QVERIFY(qRed(bare.pixel(x, y)) < 200);
    }
    QCOMPARE(bare.pixel(boxes[0].left() - 3, boxes[0].top() + 10), background);

    // With texts 27, 3 and 4, each is drawn in white centred on 100 pixels.
    setTexts("0000001B Occ\n00000003 Detect\n00000004 Shield\n");
    view->update();
    const QImage image = render(*view);
    const QFontMetrics metrics = view->fontMetrics();
    const QString texts[3] = {QStringLiteral("Occ"), QStringLiteral("Detect"),
                              QStringLiteral("Shield")};
    for (int b = 0; b < 3; ++b) {
        int left = INT_MAX;
        int right = -1;
        int bottom = -1;
        for (int y = boxes[b].top(); y <= boxes[b].bottom(); ++y)
            for (int x = boxes[b].left(); x <= boxes[b].right(); ++x) {
                const QRgb c = image.pixel(x, y);
                if (qRed(c) > 200 && qGreen(c) > 200 && qBlue(c) > 200) {
                    left = qMin(left, x);
                    right = qMax(right, x);
                    bottom = qMax(bottom, y);
                }
            }
        QVERIFY2(right >= 0, qPrintable(texts[b]));
        const int start = boxes[b].x() + (100 - metrics.horizontalAdvance(texts[b])) / 2;
        QVERIFY2(std::abs(left - start) <= 2, qPrintable(QString::number(left - start)));
        QVERIFY(right <= start + metrics.horizontalAdvance(texts[b]) + 1);
        QVERIFY(bottom <= boxes[b].y() + 16); // baseline 16 below the box top
        QVERIFY(bottom >= boxes[b].y() + 13);
    }
}

void TestXYView::crosshairShown_data()
{
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<bool>("shown");
    QTest::newRow("middle") << QPoint(300, 300) << true;
    QTest::newRow("top-left edge") << QPoint(60, 10) << true;
    QTest::newRow("bottom-right edge") << QPoint(789, 539) << true;
    QTest::newRow("bottom-left edge") << QPoint(60, 539) << true;
    QTest::newRow("left of plot") << QPoint(59, 300) << false;
    QTest::newRow("right of plot") << QPoint(790, 300) << false;
    QTest::newRow("above plot") << QPoint(300, 9) << false;
    QTest::newRow("below plot") << QPoint(300, 540) << false;
}

void TestXYView::crosshairShown()
{
    QFETCH(QPoint, point);
    QFETCH(bool, shown);
    const QImage baseline = render(*view);

    sendMouse(view, QEvent::MouseMove, point, Qt::NoButton, Qt::NoButton);
    const QImage image = render(*view);
    const QRgb red = qRgb(255, 0, 0);
    if (shown) {
        const int lineY = point.y() > 275 ? 100 : 500;
        const int lineX = point.x() > 425 ? 150 : 700;
        QCOMPARE(image.pixel(point.x(), lineY), red);
        QCOMPARE(image.pixel(lineX, point.y()), red);
        QCOMPARE(image.pixel(point.x(), kPlot.top()), red);
        QCOMPARE(image.pixel(point.x(), kPlot.bottom()), red);
        QCOMPARE(image.pixel(kPlot.left(), point.y()), red);
        QCOMPARE(image.pixel(kPlot.right(), point.y()), red);
        // The lines stop at the plot's edges.
        QCOMPARE(image.pixel(point.x(), kPlot.top() - 1),
                 baseline.pixel(point.x(), kPlot.top() - 1));
        QCOMPARE(image.pixel(kPlot.right() + 1, point.y()),
                 baseline.pixel(kPlot.right() + 1, point.y()));
    } else {
        QCOMPARE(countDifferent(image, baseline, image.rect()), 0);
    }
}

void TestXYView::crosshairMatchesReference()
{
    const QImage baseline = render(*view);
    const QPoint mouse(420, 260);
    sendMouse(view, QEvent::MouseMove, mouse, Qt::NoButton, Qt::NoButton);
    const QImage image = render(*view);

    QImage reference = canvasFrom(baseline, view);
    {
        QPainter p(&reference);
        p.setFont(view->font());
        p.setPen(QColor(255, 0, 0, 255));
        p.drawLine(mouse.x(), kPlot.top(), mouse.x(), kPlot.bottom());
        p.drawLine(kPlot.left(), mouse.y(), kPlot.right(), mouse.y());
        // x with two decimals, y with one.
        const double vx = -5.0 + (mouse.x() - kPlot.left()) * (10.0 / 729.0);
        const double vy = (kPlot.height() - (mouse.y() - kPlot.top()) - 1) * (8.0 / 529.0);
        const QString text = QStringLiteral("(%1,%2)").arg(vx, 0, 'f', 2).arg(vy, 0, 'f', 1);
        QCOMPARE(text, QStringLiteral("(-0.06,4.2)"));
        p.drawText(QPoint(mouse.x() + 10, mouse.y() - 10), text);
    }
    QCOMPARE(countDifferent(image, reference, image.rect()), 0);
}

void TestXYView::crosshairGoneAfterLeave()
{
    const QImage baseline = render(*view);
    sendMouse(view, QEvent::MouseMove, QPoint(500, 200), Qt::NoButton, Qt::NoButton);
    QVERIFY(countDifferent(render(*view), baseline, view->rect()) > 100);
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view, &leave);
    QCOMPARE(countDifferent(render(*view), baseline, view->rect()), 0);
    QCOMPARE(view->crosshairText(QPoint(-1, -1)).isEmpty(), false);
    QVERIFY(!view->isInPlot(QPoint(-1, -1)));
}

void TestXYView::crosshairText_data()
{
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<QString>("expected");
    QTest::newRow("top-left") << QPoint(60, 10) << "(-5.00,8.0)";
    QTest::newRow("bottom-right") << QPoint(789, 539) << "(5.00,0.0)";
    QTest::newRow("left of centre") << QPoint(424, 300) << "(-0.01,3.6)";
    QTest::newRow("right of centre") << QPoint(425, 539) << "(0.01,0.0)";
    QTest::newRow("inside") << QPoint(500, 100) << "(1.04,6.6)";
}

void TestXYView::crosshairText()
{
    QFETCH(QPoint, point);
    QFETCH(QString, expected);
    QCOMPARE(view->crosshairText(point), expected);
}

void TestXYView::outOfRangeAreaIndexIgnored_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("3") << 3;
    QTest::newRow("-1") << -1;
    QTest::newRow("100") << 100;
    QTest::newRow("INT_MIN") << INT_MIN;
}

void TestXYView::outOfRangeAreaIndexIgnored()
{
    QFETCH(int, index);
    QCoreApplication::processEvents();
    PaintCounter counter;
    view->installEventFilter(&counter);

    view->setAreaInfo(index, area(1, 1, QPointF(-1, 5), QPointF(1, 3)));
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    QCOMPARE(counter.paints, 0);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(view->areaInfo(i).status, 0);

    // A valid index stores and repaints.
    view->setAreaInfo(2, area(1, 1, QPointF(-1, 5), QPointF(1, 3)));
    QTRY_VERIFY(counter.paints > 0);
    QCOMPARE(view->areaInfo(2).status, 1);
    view->removeEventFilter(&counter);
}

void TestXYView::updatesRepaint()
{
    PaintCounter counter;
    QCoreApplication::processEvents();
    view->installEventFilter(&counter);
    auto repaints = [&](const std::function<void()> &action) {
        counter.paints = 0;
        action();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        return counter.paints > 0;
    };
    QVERIFY(repaints([&] { view->setTargets({QPointF(1, 1)}); }));
    QVERIFY(repaints([&] { view->setAreaOccupancy(1); }));
    QVERIFY(repaints([&] { view->setShowAreas(false); }));
    QVERIFY(repaints([&] { view->clearAreas(); }));
    QVERIFY(repaints([&] { view->refresh(); }));
    QVERIFY(repaints([&] { view->setAxisRange(QPointF(-4, 4), QPointF(0, 6)); }));
    QVERIFY(repaints([&] { emit view->horizontalAxis()->axisChanged(); }));
    QVERIFY(repaints([&] { emit view->verticalAxis()->axisChanged(); }));
    QVERIFY(!repaints([] {}));
    view->removeEventFilter(&counter);
}

void TestXYView::dragCannotMoveDefaultPlane()
{
    XYAxis *x = view->horizontalAxis();
    XYAxis *y = view->verticalAxis();
    QSignalSpy xSpy(x, &XYAxis::axisChanged);
    QSignalSpy ySpy(y, &XYAxis::axisChanged);

    sendMouse(view, QEvent::MouseButtonPress, QPoint(300, 300), Qt::LeftButton, Qt::LeftButton);
    // Towards lower values on both axes: refused.
    sendMouse(view, QEvent::MouseMove, QPoint(320, 290), Qt::NoButton, Qt::LeftButton);
    QCOMPARE(xSpy.count(), 0);
    QCOMPARE(ySpy.count(), 0);
    // Towards higher values: recomputed with a zero shift.
    sendMouse(view, QEvent::MouseMove, QPoint(280, 320), Qt::NoButton, Qt::LeftButton);
    QCOMPARE(xSpy.count(), 1);
    QCOMPARE(ySpy.count(), 1);
    sendMouse(view, QEvent::MouseButtonRelease, QPoint(280, 320), Qt::LeftButton, Qt::NoButton);
    QCOMPARE(x->minimum(), -5.0);
    QCOMPARE(x->maximum(), 5.0);
    QCOMPARE(y->minimum(), 0.0);
    QCOMPARE(y->maximum(), 8.0);

    // After the release, moves no longer drag.
    sendMouse(view, QEvent::MouseMove, QPoint(200, 400), Qt::NoButton, Qt::NoButton);
    QCOMPARE(xSpy.count(), 1);
    QCOMPARE(ySpy.count(), 1);
}

void TestXYView::dragMovesZoomedPlane()
{
    XYAxis *x = view->horizontalAxis();
    XYAxis *y = view->verticalAxis();
    x->setValueRange(-2.0, 2.0);
    y->setValueRange(2.0, 6.0);
    const double ux = x->unitPerPixel();
    const double uy = y->unitPerPixel();
    QVERIFY(std::fabs(ux - 4.0 / 729.0) < 1e-12);

    // A right button does not start a drag.
    sendMouse(view, QEvent::MouseButtonPress, QPoint(300, 300), Qt::RightButton, Qt::RightButton);
    sendMouse(view, QEvent::MouseMove, QPoint(340, 280), Qt::NoButton, Qt::RightButton);
    QCOMPARE(x->minimum(), -2.0);
    // Any button ends a drag.
    sendMouse(view, QEvent::MouseButtonRelease, QPoint(340, 280), Qt::RightButton, Qt::NoButton);

    sendMouse(view, QEvent::MouseButtonPress, QPoint(300, 300), Qt::LeftButton, Qt::LeftButton);
    // The plane follows the mouse: right and up shows lower x and lower y.
    sendMouse(view, QEvent::MouseMove, QPoint(340, 280), Qt::NoButton, Qt::LeftButton);
    QVERIFY(std::fabs(x->minimum() - (-2.0 - 40 * ux)) < 1e-9);
    QVERIFY(std::fabs(x->maximum() - (2.0 - 40 * ux)) < 1e-9);
    QVERIFY(std::fabs(y->minimum() - (2.0 - 20 * uy)) < 1e-9);
    QVERIFY(std::fabs(y->maximum() - (6.0 - 20 * uy)) < 1e-9);
    // Each move is relative to the previous one.
    sendMouse(view, QEvent::MouseMove, QPoint(330, 290), Qt::NoButton, Qt::LeftButton);
    QVERIFY(std::fabs(x->minimum() - (-2.0 - 30 * x->unitPerPixel())) < 1e-9);
    sendMouse(view, QEvent::MouseButtonRelease, QPoint(330, 290), Qt::MiddleButton, Qt::NoButton);
    const double after = x->minimum();
    sendMouse(view, QEvent::MouseMove, QPoint(100, 100), Qt::NoButton, Qt::NoButton);
    QCOMPARE(x->minimum(), after);
}

void TestXYView::pressWritesPoint()
{
    MessageCapture capture;
    sendMouse(view, QEvent::MouseButtonPress, QPoint(321, 123), Qt::LeftButton, Qt::LeftButton);
    QVERIFY(g_messages.contains(QStringLiteral("QPoint(321,123)")));
    sendMouse(view, QEvent::MouseButtonRelease, QPoint(321, 123), Qt::LeftButton, Qt::NoButton);
}

void TestXYView::wheelDoesNothing()
{
    WheelCountingParent parent;
    parent.resize(900, 700);
    XYView *child = new XYView(&parent);
    child->setGeometry(0, 0, 800, 600);
    QWidget *plain = new QWidget(&parent);
    plain->setGeometry(800, 0, 100, 100);
    parent.show();
    QVERIFY(QTest::qWaitForWindowExposed(&parent));

    auto wheelAt = [](QWidget *w, QPoint pos) {
        QWheelEvent event(QPointF(pos), QPointF(w->mapToGlobal(pos)), QPoint(), QPoint(0, 120),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        event.setAccepted(false);
        QSpontaneKeyEvent::setSpontaneous(&event);
        qApp->notify(w, &event);
        return event.isAccepted();
    };

    // A plain widget lets the wheel through to its parent...
    QVERIFY(wheelAt(plain, QPoint(10, 10)));
    QCOMPARE(parent.wheels, 1);

    // ...the plot swallows it and changes nothing.
    QSignalSpy xSpy(child->horizontalAxis(), &XYAxis::axisChanged);
    QSignalSpy ySpy(child->verticalAxis(), &XYAxis::axisChanged);
    QVERIFY(wheelAt(child, QPoint(400, 300)));
    QCOMPARE(parent.wheels, 1);
    QCOMPARE(xSpy.count(), 0);
    QCOMPARE(ySpy.count(), 0);
    QCOMPARE(child->horizontalAxis()->minimum(), -5.0);
    QCOMPARE(child->horizontalAxis()->maximum(), 5.0);
    QCOMPARE(child->verticalAxis()->maximum(), 8.0);
}

void TestXYView::setAxisRange()
{
    XYAxis *x = view->horizontalAxis();
    XYAxis *y = view->verticalAxis();
    QSignalSpy xSpy(x, &XYAxis::axisChanged);
    view->setAxisRange(QPointF(-8, 0), QPointF(0, 12));
    QCOMPARE(xSpy.count(), 1);
    QCOMPARE(x->limitMinimum(), -8.0);
    QCOMPARE(x->limitMaximum(), 0.0);
    QCOMPARE(x->minimum(), -8.0);
    QCOMPARE(x->maximum(), 0.0);
    QCOMPARE(x->minimumSpan(), 1.0);
    QCOMPARE(y->minimum(), 0.0);
    QCOMPARE(y->maximum(), 12.0);
    QCOMPARE(x->tickLabelList().first(), QStringLiteral("-8"));
    QCOMPARE(x->tickLabelList().last(), QStringLiteral("0"));
    QCOMPARE(y->tickLabelList().last(), QStringLiteral("12"));

    // A minimum not below its maximum leaves that axis's ticks as they were.
    const QVector<int> yTicks = y->tickPositionList();
    const QVector<QString> yLabels = y->tickLabelList();
    view->setAxisRange(QPointF(-3, 3), QPointF(5, 5));
    QCOMPARE(xSpy.count(), 2);
    QCOMPARE(y->tickPositionList(), yTicks);
    QCOMPARE(y->tickLabelList(), yLabels);
    QCOMPARE(y->minimum(), 5.0);
    QCOMPARE(x->tickLabelList().first(), QStringLiteral("-3"));

    // Picture for a look by eye, when asked for.
    const QByteArray png = qgetenv("ORV_XYVIEW_PNG");
    if (!png.isEmpty()) {
        setTexts("0000001B Occupied\n00000003 Detection\n00000004 Exclusion\n");
        view->setAxisRange(QPointF(-5, 5), QPointF(0, 8));
        view->setAreaInfo(0, area(0, 0, QPointF(-4, 7), QPointF(-1.5, 4.5)));
        view->setAreaInfo(1, area(1, 1, QPointF(0.5, 7.5), QPointF(4.5, 5.2)));
        view->setAreaInfo(2, area(2, 0, QPointF(-2.3, 3.1), QPointF(2.7, 0.4)));
        view->setAreaOccupancy(0x04);
        view->setTargets({QPointF(0, 0), QPointF(-3.2, 5.6), QPointF(2.0, 1.5), QPointF(3.3, 6.1)});
        sendMouse(view, QEvent::MouseMove, QPoint(600, 330), Qt::NoButton, Qt::NoButton);
        QVERIFY(render(*view).save(QString::fromLocal8Bit(png)));
    }
}

// The same sequence of target, area and mouse changes goes to two views; one
// repaints only what each change touches, the other is repainted whole after
// every step. What both windows show must be the same, pixel for pixel, at
// every step.
void TestXYView::partialRepaintsMatchWholeRepaints()
{
    setTexts("00000003 Type0 area\n00000004 Type1 area\n0000001B Occupied\n");
    XYView *partial = view;
    XYView whole(nullptr);
    whole.resize(partial->size());
    whole.show();
    QVERIFY(QTest::qWaitForWindowExposed(&whole));
    PaintRecorder recorder;
    partial->installEventFilter(&recorder);

    const QPoint legend = QPoint(kPlot.right() - 250, kPlot.top() + 15);
    auto mouse = [](QPoint p) {
        return [p](XYView *v) { sendMouse(v, QEvent::MouseMove, p, Qt::NoButton, Qt::NoButton); };
    };
    auto targets = [](QList<QPointF> list) { return [list](XYView *v) { v->setTargets(list); }; };
    QList<QPointF> many;
    for (int k = 0; k < XYView::kMaxTargets; ++k)
        many.append(QPointF(-5.5 + (k % 16) * 0.7, -0.4 + (k / 16) * 1.1));
    QList<QPointF> manyMoved;
    for (const QPointF &p : many)
        manyMoved.append(p + QPointF(0.13, -0.07));

    const QList<QPair<QString, std::function<void(XYView *)>>> steps = {
        {"three targets", targets({{-3, 2}, {0, 4}, {3, 6}})},
        {"they walk", targets({{-2.9, 2.1}, {0.05, 3.93}, {3.2, 6}})},
        {"sub-pixel step", targets({{-2.9001, 2.1}, {0.05, 3.9301}, {3.2, 6}})},
        {"same again", targets({{-2.9001, 2.1}, {0.05, 3.9301}, {3.2, 6}})},
        {"overlapping discs and labels",
         targets({{-1, 3}, {-0.9, 3.05}, {-1.1, 3.1}, {2, 1}, {2.05, 1.2}})},
        {"labels over the legend", targets({{3.2, 7.9}, {4.1, 7.7}, {1.9, 7.95}, {4.9, 7.5}})},
        {"areas",
         [](XYView *v) {
             v->setAreaInfo(0, area(0, 0, QPointF(-4, 7), QPointF(-1.5, 4.5)));
             v->setAreaInfo(1, area(1, 1, QPointF(2, 8), QPointF(4.8, 6.5)));
             v->setAreaInfo(2, area(2, 0, QPointF(-2.3, 3.1), QPointF(2.7, 0.4)));
         }},
        {"targets in the areas", targets({{-3, 6}, {3, 7}, {0, 2}, {4.5, 7.9}})},
        {"occupied", [](XYView *v) { v->setAreaOccupancy(0x05); }},
        {"occupancy unchanged", [](XYView *v) { v->setAreaOccupancy(0x05); }},
        {"occupancy high bits only", [](XYView *v) { v->setAreaOccupancy(char(0xF5)); }},
        {"other area occupied", [](XYView *v) { v->setAreaOccupancy(0x02); }},
        {"crosshair", mouse(QPoint(300, 200))},
        {"crosshair over a target", mouse(plane(-3, 6).toPoint())},
        {"crosshair over the legend", mouse(legend)},
        {"crosshair on the plot's corner", mouse(kPlot.bottomRight())},
        {"crosshair on the left edge", mouse(QPoint(kPlot.left(), 300))},
        {"mouse on the axis labels", mouse(QPoint(30, 300))},
        {"mouse back in", mouse(QPoint(500, 400))},
        {"press",
         [](XYView *v) {
             sendMouse(v, QEvent::MouseButtonPress, QPoint(510, 390), Qt::LeftButton,
                       Qt::LeftButton);
         }},
        {"drag",
         [](XYView *v) {
             sendMouse(v, QEvent::MouseMove, QPoint(530, 380), Qt::NoButton, Qt::LeftButton);
         }},
        {"release",
         [](XYView *v) {
             sendMouse(v, QEvent::MouseButtonRelease, QPoint(530, 380), Qt::LeftButton,
                       Qt::NoButton);
         }},
        {"targets leave the plot", targets({{-5.6, 2}, {5.3, 8.4}, {0, -0.6}, {4.5, 7.9}})},
        {"targets far beyond the widget", targets({{-60, 2}, {90, 80}, {0, -500}, {3000, -3000}})},
        {"and back", targets({{-4.9, 0.1}, {4.9, 7.9}, {0, 0}})},
        {"many", targets(many)},
        {"many move", targets(manyMoved)},
        {"down to one", targets({{1, 1}})},
        {"none", targets({})},
        {"area moved",
         [](XYView *v) { v->setAreaInfo(1, area(1, 0, QPointF(1, 5), QPointF(3, 2))); }},
        {"targets again", targets({{1.5, 3}, {-4, 5}})},
        {"areas hidden", [](XYView *v) { v->setShowAreas(false); }},
        {"targets move, areas hidden", targets({{1.6, 3.1}, {-4, 5.2}})},
        {"areas shown", [](XYView *v) { v->setShowAreas(true); }},
        {"an unsetting area (the rest keeps its render hints)",
         [](XYView *v) { v->setAreaInfo(2, area(2, 0, QPointF(-2, 0), QPointF(3, 0))); }},
        {"crosshair with those hints", mouse(QPoint(333, 222))},
        {"targets with those hints", targets({{1.7, 3.2}, {-3.9, 5.3}})},
        {"areas cleared", [](XYView *v) { v->clearAreas(); }},
        {"cleared again", [](XYView *v) { v->clearAreas(); }},
        {"other ranges", [](XYView *v) { v->setAxisRange(QPointF(-3, 3), QPointF(0, 5)); }},
        {"targets on the new plane", targets({{-2.5, 1}, {2.5, 4.9}, {0, 2.5}})},
        {"a wide plane",
         [](XYView *v) { v->setAxisRange(QPointF(-90000, 90000), QPointF(0, 90000)); }},
        {"labels wider than their boxes",
         targets({{-12345.6, 54321.7}, {23456.7, 8765.4}, {-70000.1, 88888.8}})},
        {"and they move", targets({{-11345.6, 53321.7}, {24456.7, 8965.4}, {-69000.1, 87888.8}})},
        {"mouse leaves",
         [](XYView *v) {
             QEvent leave(QEvent::Leave);
             QApplication::sendEvent(v, &leave);
         }},
        {"last move", targets({{-2.4, 1.1}, {2.4, 4.8}, {0.1, 2.5}})},
    };

    int partialPaints = 0;
    for (const auto &step : steps) {
        recorder.regions.clear();
        step.second(partial);
        step.second(&whole);
        whole.update();
        const QImage expected = shownPixels(&whole);
        const QImage actual = shownPixels(partial);
        QVERIFY2(actual == expected,
                 qPrintable(step.first + QStringLiteral(": ") + firstDifference(actual, expected)));
        for (const QRegion &r : qAsConst(recorder.regions))
            if (!(QRegion(partial->rect()) - r).isEmpty())
                ++partialPaints;
    }
    // Most steps repainted only part of the widget.
    QVERIFY2(partialPaints >= steps.size() / 2, qPrintable(QString::number(partialPaints)));
    partial->removeEventFilter(&recorder);
}

void TestXYView::targetMoveRepaintsOnlyItsPixels()
{
    view->setTargets({QPointF(-2, 3), QPointF(2, 5)});
    shownPixels(view);
    PaintRecorder recorder;
    view->installEventFilter(&recorder);
    view->setTargets({QPointF(-1.9, 3.1), QPointF(2, 5)});
    shownPixels(view);
    QCOMPARE(recorder.regions.size(), 1);
    // The first target's old and new disc and label; the second did not move.
    const QRect repainted = recorder.regions.first().boundingRect();
    const QPointF from = view->valueToPixel(QPointF(-2, 3));
    const QPointF to = view->valueToPixel(QPointF(-1.9, 3.1));
    QVERIFY(repainted.contains(QRect(int(from.x()) - 40, int(from.y()) - 30, 100, 19)));
    QVERIFY(repainted.contains(QRect(int(to.x()) - 10, int(to.y()) - 10, 20, 20)));
    QVERIFY2(repainted.width() < 200 && repainted.height() < 100,
             qPrintable(QStringLiteral("%1x%2").arg(repainted.width()).arg(repainted.height())));
    QVERIFY(!repainted.intersects(QRect(view->valueToPixel(QPointF(2, 5)).toPoint(), QSize(1, 1))));
    view->removeEventFilter(&recorder);
}

// Each change that repaints gives one paint, which writes a "TargetPos"
// line per target, also when no pixel changes or the change lies outside
// the widget.
void TestXYView::everyChangePaintsOnceWithItsLines()
{
    const QList<QPointF> two{QPointF(1, 1), QPointF(-2, 6)};
    view->setTargets(two);
    shownPixels(view);
    PaintRecorder recorder;
    view->installEventFilter(&recorder);
    const QList<QPair<QString, std::function<void()>>> changes = {
        {"same targets", [&] { view->setTargets(two); }},
        {"same occupancy", [&] { view->setAreaOccupancy(0); }},
        {"same visibility", [&] { view->setShowAreas(true); }},
        {"clear nothing", [&] { view->clearAreas(); }},
        {"same area", [&] { view->setAreaInfo(0, AreaRecord()); }},
        {"mouse outside the plot",
         [&] { sendMouse(view, QEvent::MouseMove, QPoint(3, 3), Qt::NoButton, Qt::NoButton); }},
        {"targets beyond the widget", [&] { view->setTargets({QPointF(500, 500)}); }},
        {"still beyond", [&] { view->setTargets({QPointF(500, 501)}); }},
        {"back", [&] { view->setTargets(two); }},
    };
    for (const auto &change : changes) {
        recorder.regions.clear();
        MessageCapture capture;
        change.second();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QVERIFY2(recorder.regions.size() == 1,
                 qPrintable(change.first + ": " + QString::number(recorder.regions.size())));
        QCOMPARE(MessageCapture::count(QStringLiteral("TargetPos")), view->targetCountShown());
    }
    view->removeEventFilter(&recorder);
}

QTEST_MAIN(TestXYView)
#include "tst_xyview.moc"
