// Tests of the area capture overlay: gesture states, handles, move clamp,
// stretch arithmetic, the corner signals and the painted pixels. Events go
// through the overlay's window (as the window system delivers them) or, where
// no repaint may happen in between, straight to the widget.

#include "view/capturescreen.h"
#include "view/xyview.h"

#include <QApplication>
#include <QImage>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPixmap>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStringList>
#include <QWindow>
#include <QtTest>

#include <functional>

namespace
{
const QColor kOutline(0, 180, 255);
const QColor kHandle(0, 174, 255);
// Text pixels allowed to differ between the painted label and the reference:
// the same text differs in 2-4 pixels here and in up to 8 with the Windows
// font engine (glyph placement), while one wrong figure differs in 40 or more.
const int kLabelTolerance = 12;

QStringList g_messages;

void collectMessages(QtMsgType, const QMessageLogContext &, const QString &text)
{
    g_messages << text;
}

// Black of alpha a painted over an opaque colour.
QRgb darken(QRgb c, int alpha)
{
    const double keep = (255 - alpha) / 255.0;
    return qRgb(int(qRed(c) * keep + 0.5), int(qGreen(c) * keep + 0.5), int(qBlue(c) * keep + 0.5));
}

bool near(QRgb a, QRgb b, int tolerance)
{
    return qAbs(qRed(a) - qRed(b)) <= tolerance && qAbs(qGreen(a) - qGreen(b)) <= tolerance &&
           qAbs(qBlue(a) - qBlue(b)) <= tolerance;
}

QString describe(QRgb c)
{
    return QString("(%1,%2,%3)").arg(qRed(c)).arg(qGreen(c)).arg(qBlue(c));
}

// Records the events that reach it, to see what a child hands on.
class RecordingParent : public QWidget
{
public:
    QList<QEvent::Type> seen;
    QList<int> keys;

protected:
    void mousePressEvent(QMouseEvent *) override { seen << QEvent::MouseButtonPress; }
    void mouseReleaseEvent(QMouseEvent *) override { seen << QEvent::MouseButtonRelease; }
    void mouseMoveEvent(QMouseEvent *) override { seen << QEvent::MouseMove; }
    void keyPressEvent(QKeyEvent *e) override { keys << e->key(); }
};
// Paints two centred lines, white on black, as a 150 x 38 label box would.
class LabelWidget : public QWidget
{
public:
    LabelWidget(const QString &first, const QString &second) : line1(first), line2(second) {}

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.fillRect(rect(), Qt::black);
        p.setPen(Qt::white);
        const QFontMetrics fm = fontMetrics();
        p.drawText((150 - fm.horizontalAdvance(line1)) / 2, 14, line1);
        p.drawText((150 - fm.horizontalAdvance(line2)) / 2, 34, line2);
    }

private:
    QString line1, line2;
};
} // namespace

class CaptureScreenTest : public QObject
{
    Q_OBJECT

private:
    XYView *view = nullptr;
    QWidget *marker = nullptr;
    CaptureScreen *cap = nullptr;
    QImage viewImage; // the view as it was when the overlay grabbed it

    QWindow *window() const { return cap->windowHandle(); }

    // Through the window, then one repaint so that every event is followed by a paint.
    void press(QPoint p, Qt::MouseButton b = Qt::LeftButton)
    {
        QTest::mousePress(window(), b, Qt::NoModifier, p);
        cap->repaint();
    }
    void move(QPoint p)
    {
        QTest::mouseMove(window(), p);
        cap->repaint();
    }
    void release(QPoint p, Qt::MouseButton b = Qt::LeftButton)
    {
        QTest::mouseRelease(window(), b, Qt::NoModifier, p);
        cap->repaint();
    }
    void select(QPoint a, QPoint b)
    {
        press(a);
        move(b);
        release(b);
    }

    // Straight to the widget, nothing processed afterwards (no paint).
    void send(QEvent::Type type, QPoint p, Qt::MouseButton button, Qt::MouseButtons held)
    {
        QMouseEvent e(type, p, cap->mapToGlobal(p), button, held, Qt::NoModifier);
        QApplication::sendEvent(cap, &e);
    }

    QImage grabOverlay() const
    {
        return cap->grab().toImage().convertToFormat(QImage::Format_RGB32);
    }

    // Counts pixels of `rect` (minus `skip`) where `img` differs from `expected`.
    int mismatches(const QImage &img, const QRect &rect, const QRegion &skip,
                   const std::function<QRgb(QPoint)> &expected, int tolerance, QString *first)
    {
        int count = 0;
        for (int y = rect.top(); y <= rect.bottom(); ++y) {
            for (int x = rect.left(); x <= rect.right(); ++x) {
                const QPoint p(x, y);
                if (skip.contains(p))
                    continue;
                const QRgb want = expected(p);
                const QRgb got = img.pixel(p);
                if (!near(got, want, tolerance)) {
                    if (count == 0 && first)
                        *first = QString("at (%1,%2) got %3 want %4")
                                     .arg(x)
                                     .arg(y)
                                     .arg(describe(got), describe(want));
                    ++count;
                }
            }
        }
        return count;
    }

    QRgb viewPixel(QPoint p) const { return viewImage.pixel(p); }
    QRgb dimmedViewPixel(QPoint p) const { return darken(viewImage.pixel(p), 120); }

    // Anchors of the eight handles in paint order, worked out from a rectangle.
    static QList<QPoint> anchorsOf(const QRect &r)
    {
        const int l = r.x(), t = r.y(), rt = r.x() + r.width() - 1, b = r.y() + r.height() - 1;
        return {QPoint(l, t),
                QPoint(rt, t),
                QPoint(l, b),
                QPoint(rt, b),
                QPoint(l, (t + b) / 2),
                QPoint((l + rt) / 2, t),
                QPoint(rt, (t + b) / 2),
                QPoint((l + rt) / 2, b)};
    }

    // Pixels where white text covers at least half of the pixel, judged against
    // what the pixel would be without the text.
    static QVector<bool> textMask(const QImage &img, const QRect &area,
                                  const std::function<QRgb(QPoint)> &background)
    {
        QVector<bool> mask;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x) {
                const QPoint p(x, y);
                if (!img.rect().contains(p)) {
                    mask << false;
                    continue;
                }
                const int bg = qGreen(background(p));
                const int shown = qGreen(img.pixel(p));
                mask << (2 * (shown - bg) >= 255 - bg);
            }
        return mask;
    }

    // The overlay at p as painted before the label box: handles, outline,
    // undimmed selection, dimmed snapshot, window background.
    QRgb beneathBox(const QRect &sel, QPoint p) const
    {
        for (const QPoint &an : anchorsOf(sel))
            if (QRect(an - QPoint(3, 3), QSize(6, 6)).contains(p))
                return kHandle.rgb();
        const int l = sel.x(), t = sel.y(), r = sel.x() + sel.width(), b = sel.y() + sel.height();
        const bool onVertical = (p.x() == l || p.x() == r) && p.y() >= t && p.y() <= b;
        const bool onHorizontal = (p.y() == t || p.y() == b) && p.x() >= l && p.x() <= r;
        if (onVertical || onHorizontal)
            return kOutline.rgb();
        if (sel.contains(p))
            return viewPixel(p);
        if (view->frameRectangle().contains(p))
            return dimmedViewPixel(p);
        return cap->palette().color(QPalette::Window).rgb();
    }

    // The two label lines painted alone, white on black, in a 150 x 38 box, by a
    // widget of its own (so font resolution and rendering match the overlay's).
    QImage referenceBox(const QString &line1, const QString &line2) const
    {
        LabelWidget label(line1, line2);
        label.setFont(cap->font());
        label.resize(150, 38);
        return label.grab().toImage().convertToFormat(QImage::Format_RGB32);
    }

    // Pixels of the label box of `sel` in `img` whose text coverage differs from
    // the two given lines painted alone.
    int labelDifference(const QImage &img, const QRect &sel, const QString &line1,
                        const QString &line2) const
    {
        const QRect box(sel.x() + 1, sel.y() > 20 ? sel.y() - 38 : sel.y() + 1, 150, 38);
        auto boxed = [&](QPoint p) { return darken(beneathBox(sel, p), 160); };
        auto black = [](QPoint) { return qRgb(0, 0, 0); };
        const QVector<bool> wanted =
            textMask(referenceBox(line1, line2), QRect(0, 0, 150, 38), black);
        int inked = 0;
        for (bool b : wanted)
            inked += b;
        if (inked < 40)
            return 1000000; // nothing drawn in the reference: never a match
        return maskDifference(textMask(img, box, boxed), wanted);
    }

    static int maskDifference(const QVector<bool> &a, const QVector<bool> &b)
    {
        int d = 0;
        for (int i = 0; i < a.size() && i < b.size(); ++i)
            d += a[i] != b[i];
        return d;
    }

    // Label texts worked out from the view's conversion of the two corners.
    QStringList expectedLabel(const QRect &sel) const
    {
        double x1, y1, x2, y2;
        view->pixelToValue(sel.topLeft(), &x1, &y1);
        view->pixelToValue(QPoint(sel.x() + sel.width() - 1, sel.y() + sel.height() - 1), &x2, &y2);
        const QString a = QString::number(x1, 'f', 1), b = QString::number(y1, 'f', 1);
        const QString c = QString::number(x2, 'f', 1), d = QString::number(y2, 'f', 1);
        const QString line1 = "(" + a + "," + b + ")(" + c + "," + d + ")";
        const double w = qAbs(c.toDouble() - a.toDouble());
        const double h = qAbs(d.toDouble() - b.toDouble());
        const QString line2 = QString::number(w, 'f', 1) + " * " + QString::number(h, 'f', 1);
        return {line1, line2};
    }

private slots:
    void init()
    {
        view = new XYView;
        view->resize(800, 600);
        view->move(37, 53);
        // A block of its own colour, so that misplaced pictures show.
        marker = new QWidget(view);
        marker->setAutoFillBackground(true);
        QPalette pal = marker->palette();
        pal.setColor(QPalette::Window, QColor(200, 30, 30));
        marker->setPalette(pal);
        marker->setGeometry(300, 200, 40, 30);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view));
        QCOMPARE(view->frameRectangle(), QRect(10, 10, 780, 580));

        cap = new CaptureScreen;
        cap->setView(view);
        cap->resetSelection();
        cap->grabViewSnapshot();
        viewImage = view->grab().toImage().convertToFormat(QImage::Format_RGB32);
        cap->show();
        QVERIFY(QTest::qWaitForWindowExposed(cap));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Idle));
    }

    void cleanup()
    {
        // Drop any button a test left held, and keep later presses from pairing
        // into double clicks.
        QTestPrivate::qtestMouseButtons = Qt::NoButton;
        QTest::lastMouseTimestamp += 1000;
        delete cap;
        cap = nullptr;
        delete view;
        view = nullptr;
        qInstallMessageHandler(nullptr);
        g_messages.clear();
    }

    void rectFromPoints_data()
    {
        QTest::addColumn<QPoint>("a");
        QTest::addColumn<QPoint>("b");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("one point gives 1 x 1") << QPoint(5, 7) << QPoint(5, 7) << QRect(5, 7, 1, 1);
        QTest::newRow("forward") << QPoint(10, 20) << QPoint(40, 70) << QRect(10, 20, 30, 50);
        QTest::newRow("backward") << QPoint(40, 70) << QPoint(10, 20) << QRect(10, 20, 30, 50);
        QTest::newRow("anti-diagonal") << QPoint(40, 20) << QPoint(10, 70) << QRect(10, 20, 30, 50);
        QTest::newRow("zero width") << QPoint(8, 3) << QPoint(8, 9) << QRect(8, 3, 1, 6);
        QTest::newRow("zero height") << QPoint(3, 8) << QPoint(9, 8) << QRect(3, 8, 6, 1);
        QTest::newRow("unset corner")
            << QPoint(100, 50) << QPoint(-1, -1) << QRect(-1, -1, 101, 51);
    }
    void rectFromPoints()
    {
        QFETCH(QPoint, a);
        QFETCH(QPoint, b);
        QFETCH(QRect, expected);
        const QRect r = CaptureScreen::rectFromPoints(a, b);
        QCOMPARE(r, expected);
        QCOMPARE(r.right(), expected.x() + expected.width() - 1);
    }

    void construction()
    {
        CaptureScreen fresh;
        QVERIFY(fresh.parentWidget() == nullptr);
        QVERIFY(fresh.isWindow());
        QCOMPARE(fresh.focusPolicy(), Qt::StrongFocus);
        QVERIFY(fresh.testAttribute(Qt::WA_MouseTracking));
        QVERIFY(fresh.hasMouseTracking());
        QVERIFY(fresh.windowFlags() & Qt::FramelessWindowHint);
        QVERIFY(fresh.windowFlags() & Qt::WindowStaysOnTopHint);
        QVERIFY(fresh.windowState() & Qt::WindowActive);
        QVERIFY(!fresh.testAttribute(Qt::WA_TranslucentBackground));
        QVERIFY(fresh.coveredView() == nullptr);
        QCOMPARE(fresh.captureState(), int(CaptureScreen::Idle));
        QCOMPARE(fresh.beginCorner(), QPoint(0, 0));
        QCOMPARE(fresh.endCorner(), QPoint(0, 0));
        QCOMPARE(fresh.moveStartCorner(), QPoint(0, 0));
        QCOMPARE(fresh.moveCorner(), QPoint(0, 0));
    }

    void paintWithoutViewDrawsNothing()
    {
        CaptureScreen bare;
        bare.resize(200, 150);
        const QRgb background = bare.palette().color(QPalette::Window).rgb();
        QImage img = bare.grab().toImage().convertToFormat(QImage::Format_RGB32);
        QString first;
        QCOMPARE(mismatches(
                     img, img.rect(), QRegion(), [&](QPoint) { return background; }, 0, &first),
                 0);
        // Once it has a view, the same paint dims the frame: the test above can fail.
        bare.setView(view);
        img = bare.grab().toImage().convertToFormat(QImage::Format_RGB32);
        QVERIFY(!near(img.pixel(100, 100), background, 10));
    }

    void resetSelectionClearsEverything()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QVERIFY(cap->handleRect(0).isValid());
        press(QPoint(300, 200));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Moving));

        cap->resetSelection();
        QCOMPARE(cap->captureState(), int(CaptureScreen::Idle));
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::None));
        QCOMPARE(cap->beginCorner(), QPoint(-1, -1));
        QCOMPARE(cap->endCorner(), QPoint(-1, -1));
        QCOMPARE(cap->moveStartCorner(), QPoint(-1, -1));
        QCOMPARE(cap->moveCorner(), QPoint(-1, -1));
        QCOMPARE(cap->selection(), QRect(0, 0, 0, 0));
        for (int i = 0; i < 8; ++i)
            QCOMPARE(cap->handleRect(i), QRect(0, 0, 0, 0));
    }

    void snapshotAndGeometry()
    {
        QCOMPARE(cap->coveredView(), view);
        QCOMPARE(cap->snapshotSize(), QSize(780, 580));
        QCOMPARE(cap->geometry(), QRect(view->mapToGlobal(QPoint(0, 0)), view->size()));
        QCOMPARE(cap->size(), QSize(800, 600));

        // Re-grabbing follows the view.
        cap->close();
        view->resize(640, 480);
        QTRY_COMPARE(view->frameRectangle(), QRect(10, 10, 620, 460));
        cap->grabViewSnapshot();
        QCOMPARE(cap->snapshotSize(), QSize(620, 460));
        QCOMPARE(cap->geometry(), QRect(view->mapToGlobal(QPoint(0, 0)), QSize(640, 480)));
    }

    void idleShowsOnlyDimmedSnapshot()
    {
        QImage img = grabOverlay();
        QString first;
        QCOMPARE(mismatches(
                     img, view->frameRectangle(), QRegion(),
                     [&](QPoint p) { return dimmedViewPixel(p); }, 2, &first),
                 0);
        // The margin outside the frame is the window's own background.
        const QRgb background = cap->palette().color(QPalette::Window).rgb();
        const QRegion margin = QRegion(img.rect()) - QRegion(view->frameRectangle());
        QCOMPARE(mismatches(
                     img, img.rect(), QRegion(img.rect()) - margin,
                     [&](QPoint) { return background; }, 0, &first),
                 0);
        // The marker lands where it is in the view, dimmed.
        QVERIFY2(near(img.pixel(300, 200), darken(qRgb(200, 30, 30), 120), 2),
                 qPrintable(describe(img.pixel(300, 200))));
        QVERIFY(!near(img.pixel(299, 200), darken(qRgb(200, 30, 30), 120), 20));

        // A press in the plot starts a selection but draws nothing yet.
        press(QPoint(200, 150));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Selecting));
        QCOMPARE(cap->endCorner(), QPoint(-1, -1));
        img = grabOverlay();
        QCOMPARE(mismatches(
                     img, view->frameRectangle(), QRegion(),
                     [&](QPoint p) { return dimmedViewPixel(p); }, 2, &first),
                 0);
        for (int i = 0; i < 8; ++i)
            QCOMPARE(cap->handleRect(i), QRect(0, 0, 0, 0));
    }

    void clickWithoutDragGivesOnePixel()
    {
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);
        const QPoint p(321, 234);
        send(QEvent::MouseButtonPress, p, Qt::LeftButton, Qt::LeftButton);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Selecting));
        QCOMPARE(starts.count(), 1);
        QCOMPARE(starts.at(0).at(0).toPoint(), p);
        send(QEvent::MouseButtonRelease, p, Qt::LeftButton, Qt::NoButton);
        QCOMPARE(cap->captureState(), int(CaptureScreen::SelectDone));
        QCOMPARE(cap->endCorner(), p);
        cap->repaint();
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), QRect(p, QSize(1, 1)));
        QCOMPARE(cap->handleRect(0), QRect(p - QPoint(3, 3), QSize(6, 6)));
        QCOMPARE(starts.count(), 1);
        QCOMPARE(ends.count(), 0);
    }

    void selectionDragReportsLastPaintedRect()
    {
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);
        const QPoint a(200, 150), b(300, 260), c(420, 330);

        press(a);
        QCOMPARE(starts.count(), 1);
        QCOMPARE(starts.takeFirst().at(0).toPoint(), a);
        QCOMPARE(ends.count(), 0);
        // The paint after the press spans the press point and the unset corner.
        const QRect afterPress = CaptureScreen::rectFromPoints(a, QPoint(-1, -1));
        QCOMPARE(cap->selection(), afterPress);

        move(b);
        QCOMPARE(starts.count(), 1);
        QCOMPARE(ends.count(), 1);
        QCOMPARE(starts.takeFirst().at(0).toPoint(), afterPress.topLeft());
        QCOMPARE(ends.takeFirst().at(0).toPoint(), afterPress.bottomRight());
        QCOMPARE(cap->selection(), QRect(200, 150, 100, 110));

        move(c);
        QCOMPARE(starts.takeFirst().at(0).toPoint(), QPoint(200, 150));
        QCOMPARE(ends.takeFirst().at(0).toPoint(), QPoint(299, 259));
        QCOMPARE(cap->selection(), QRect(200, 150, 220, 180));

        // Two moves with no paint between report the same, older rectangle.
        send(QEvent::MouseMove, QPoint(430, 340), Qt::NoButton, Qt::LeftButton);
        send(QEvent::MouseMove, QPoint(440, 350), Qt::NoButton, Qt::LeftButton);
        QCOMPARE(starts.count(), 2);
        QCOMPARE(starts.at(0).at(0).toPoint(), QPoint(200, 150));
        QCOMPARE(starts.at(1).at(0).toPoint(), QPoint(200, 150));
        QCOMPARE(ends.at(0).at(0).toPoint(), QPoint(419, 329));
        QCOMPARE(ends.at(1).at(0).toPoint(), QPoint(419, 329));
        starts.clear();
        ends.clear();
        cap->repaint();

        // Release, keys that do not close, and closing emit nothing. (Through the
        // window a release away from the last known pointer position would come
        // with a move first, so it goes to the widget directly.)
        send(QEvent::MouseButtonRelease, QPoint(440, 350), Qt::LeftButton, Qt::NoButton);
        QCOMPARE(cap->captureState(), int(CaptureScreen::SelectDone));
        cap->repaint();
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), QRect(200, 150, 240, 200));
        QTest::keyClick(cap, Qt::Key_A);
        QTest::keyClick(cap, Qt::Key_Escape);
        QVERIFY(!cap->isVisible());
        QCOMPARE(starts.count(), 0);
        QCOMPARE(ends.count(), 0);
    }

    void paintedSelectionPixels()
    {
        // Keep the label box clear of the marker and the checked edges.
        // Odd sums of the edges, so that halving truncates.
        const QPoint a(250, 180), b(452, 330);
        press(a);
        move(b);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Selecting));
        const QImage img = grabOverlay();
        const QRect sel(250, 180, 202, 150);
        QCOMPARE(cap->selection(), sel);
        const int right = sel.x() + sel.width() - 1, bottom = sel.y() + sel.height() - 1;
        const QRect box(sel.x() + 1, sel.y() - 38, 150, 38);

        QRegion handles;
        const QList<QPoint> anchors = anchorsOf(sel);
        for (const QPoint &an : anchors)
            handles += QRect(an - QPoint(3, 3), QSize(6, 6));

        // Inside: the snapshot undimmed.
        QString first;
        const QRect interior = sel.adjusted(1, 1, -1, -1);
        int bad = mismatches(
            img, interior, handles + QRegion(box), [&](QPoint p) { return viewPixel(p); }, 1,
            &first);
        QVERIFY2(bad == 0, qPrintable(QString::number(bad) + " " + first));
        // The marker lies inside the selection and shows in its own colour.
        QVERIFY(near(img.pixel(310, 210), qRgb(200, 30, 30), 1));

        // Outside: dimmed.
        const QRegion around = QRegion(sel.adjusted(-4, -4, 5, 5)) + QRegion(box);
        bad = mismatches(
            img, view->frameRectangle(), around, [&](QPoint p) { return dimmedViewPixel(p); }, 2,
            &first);
        QVERIFY2(bad == 0, qPrintable(QString::number(bad) + " " + first));

        // Outline on the left and top edges (away from handles).
        for (int y : {sel.y() + 20, sel.y() + 50, bottom - 20})
            QVERIFY2(near(img.pixel(sel.x(), y), kOutline.rgb(), 0),
                     qPrintable(describe(img.pixel(sel.x(), y))));
        for (int x : {sel.x() + 160, sel.x() + 180, right - 10})
            QVERIFY2(near(img.pixel(x, sel.y()), kOutline.rgb(), 0),
                     qPrintable(describe(img.pixel(x, sel.y()))));
        QVERIFY(!near(img.pixel(sel.x() + 1, sel.y() + 50), kOutline.rgb(), 10));

        // Handles: each 6 x 6 square in the handle colour, in paint order.
        for (int i = 0; i < 8; ++i) {
            const QRect h(anchors[i] - QPoint(3, 3), QSize(6, 6));
            QCOMPARE(cap->handleRect(i), h);
            for (const QPoint &p : {h.topLeft(), h.bottomRight(), anchors[i]}) {
                if (box.contains(p))
                    continue;
                QVERIFY2(near(img.pixel(p), kHandle.rgb(), 0),
                         qPrintable(QString("handle %1: %2").arg(i).arg(describe(img.pixel(p)))));
            }
            // One pixel beyond the square, away from the outline, is not the handle.
            const QPoint beyond = h.bottomRight() + QPoint(1, 1);
            QVERIFY(!near(img.pixel(beyond), kHandle.rgb(), 10));
        }

        // The state stays where it was: painting while dragging does not settle.
        QCOMPARE(cap->captureState(), int(CaptureScreen::Selecting));
    }

    void infoBoxPosition_data()
    {
        QTest::addColumn<int>("top");
        QTest::addColumn<bool>("above");
        QTest::newRow("top 20: inside") << 20 << false;
        QTest::newRow("top 21: above, partly off the window") << 21 << true;
        QTest::newRow("top 15: inside") << 15 << false;
        QTest::newRow("top 120: above") << 120 << true;
    }
    void infoBoxPosition()
    {
        QFETCH(int, top);
        QFETCH(bool, above);
        const QRect sel(400, top, 220, 160);
        press(sel.topLeft());
        move(sel.topLeft() + QPoint(sel.width(), sel.height()));
        const QImage img = grabOverlay();
        QCOMPARE(cap->selection(), sel);
        const int boxY = above ? top - 38 : top + 1;
        const int boxX = sel.x() + 1;

        // Rows of the box that hold no text: the gap between the lines and the
        // bottom rows. There the box is what lies beneath, darkened by alpha 160.
        QString first;
        auto boxed = [&](QPoint p) { return darken(beneathBox(sel, p), 160); };
        auto bare = [&](QPoint p) { return beneathBox(sel, p); };
        for (int row : {17, 18, 19, 20, 35, 36, 37}) {
            const int y = boxY + row;
            if (y < 0)
                continue;
            const int bad = mismatches(img, QRect(boxX, y, 150, 1), QRegion(), boxed, 3, &first);
            QVERIFY2(bad == 0, qPrintable(QString("row %1: %2").arg(row).arg(first)));
            // The box ends there: the pixels either side are not darkened.
            QVERIFY2(near(img.pixel(boxX - 1, y), bare({boxX - 1, y}), 2),
                     qPrintable(describe(img.pixel(boxX - 1, y))));
            QVERIFY2(near(img.pixel(boxX + 150, y), bare({boxX + 150, y}), 2),
                     qPrintable(describe(img.pixel(boxX + 150, y))));
        }
        // Above and below the box (away from the ends of the text lines).
        for (int y : {boxY - 1, boxY + 38}) {
            if (y < 0)
                continue;
            const int bad =
                mismatches(img, QRect(boxX + 10, y, 130, 1), QRegion(), bare, 2, &first);
            QVERIFY2(bad == 0, qPrintable(QString("y %1: %2").arg(y).arg(first)));
        }
        // The box never covers the selection's top edge.
        QVERIFY(near(img.pixel(boxX + 60, top), kOutline.rgb(), 0));
    }

    void infoBoxTexts_data()
    {
        QTest::addColumn<QRect>("sel");
        QTest::newRow("middle") << QRect(250, 200, 300, 200);
        QTest::newRow("near the top") << QRect(120, 12, 180, 90);
        QTest::newRow("left part") << QRect(70, 300, 160, 150);
    }
    void infoBoxTexts()
    {
        QFETCH(QRect, sel);
        press(sel.topLeft());
        move(sel.topLeft() + QPoint(sel.width(), sel.height()));
        QCOMPARE(cap->selection(), sel);
        const QImage img = grabOverlay();

        const QStringList label = expectedLabel(sel);
        const int diff = labelDifference(img, sel, label[0], label[1]);
        QVERIFY2(
            diff <= kLabelTolerance,
            qPrintable(QString("%1 pixels differ for %2 / %3").arg(diff).arg(label[0], label[1])));

        // A label that differs in one figure does not pass the same comparison.
        QString wrong = label[0];
        const int digit = wrong.indexOf(QRegularExpression("[0-9]"));
        wrong[digit] = wrong[digit] == QChar('4') ? QChar('7') : QChar('4');
        const int wrongDiff = labelDifference(img, sel, wrong, label[1]);
        QVERIFY2(wrongDiff > kLabelTolerance, qPrintable(QString::number(wrongDiff)));
        QString wrongSize = label[1];
        wrongSize.replace(" * ", " x ");
        QVERIFY(labelDifference(img, sel, label[0], wrongSize) > kLabelTolerance);
    }

    void infoBoxSizeFromRoundedTexts()
    {
        // Find a selection whose width, taken from the unrounded values, rounds
        // differently from the difference of the two one-decimal texts.
        QRect sel;
        QString rawSize;
        for (int left = 100; left < 300 && sel.isNull(); ++left) {
            for (int right = left + 60; right < 700; ++right) {
                double x1, y1, x2, y2;
                view->pixelToValue(QPoint(left, 200), &x1, &y1);
                view->pixelToValue(QPoint(right, 299), &x2, &y2);
                const QString raw = QString::number(qAbs(x2 - x1), 'f', 1);
                const QString viaTexts =
                    QString::number(qAbs(QString::number(x2, 'f', 1).toDouble() -
                                         QString::number(x1, 'f', 1).toDouble()),
                                    'f', 1);
                if (raw != viaTexts) {
                    sel = QRect(left, 200, right - left + 1, 100);
                    rawSize = raw + " * " + QString::number(qAbs(y2 - y1), 'f', 1);
                    break;
                }
            }
        }
        QVERIFY(!sel.isNull());
        press(sel.topLeft());
        move(sel.topLeft() + QPoint(sel.width(), sel.height()));
        QCOMPARE(cap->selection(), sel);
        const QImage img = grabOverlay();
        const QStringList label = expectedLabel(sel);
        QVERIFY(label[1] != rawSize);
        const int diff = labelDifference(img, sel, label[0], label[1]);
        QVERIFY2(diff <= kLabelTolerance,
                 qPrintable(QString("%1 pixels differ for %2 / %3 in %4,%5 %6x%7")
                                .arg(diff)
                                .arg(label[0], label[1])
                                .arg(sel.x())
                                .arg(sel.y())
                                .arg(sel.width())
                                .arg(sel.height())));
        QVERIFY(labelDifference(img, sel, label[0], rawSize) > kLabelTolerance);
    }

    void cornerHandleFlipKeepsRole()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        QCOMPARE(cap->selection(), QRect(200, 150, 200, 150));
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);

        press(QPoint(200, 150));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Stretching));
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::TopLeft));
        QCOMPARE(cap->cursor().shape(), Qt::SizeFDiagCursor);
        QCOMPARE(starts.count(), 0);

        // Across the opposite corner: the fixed corner is the old bottom-right.
        move(QPoint(500, 400));
        QCOMPARE(cap->selection(), QRect(399, 299, 101, 101));
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::TopLeft));
        QCOMPARE(starts.takeFirst().at(0).toPoint(), QPoint(200, 150));
        QCOMPARE(ends.takeFirst().at(0).toPoint(), QPoint(399, 299));

        // Still the top-left handle, though it now lies at the bottom-right.
        move(QPoint(450, 120));
        QCOMPARE(cap->selection(), QRect(399, 120, 51, 179));
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::TopLeft));
        QCOMPARE(starts.takeFirst().at(0).toPoint(), QPoint(399, 299));
        QCOMPARE(ends.takeFirst().at(0).toPoint(), QPoint(499, 399));
        // No cursor change while stretching, even over the inside.
        QCOMPARE(cap->cursor().shape(), Qt::SizeFDiagCursor);

        release(QPoint(450, 120));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), QRect(399, 120, 51, 179));
        QCOMPARE(cap->beginCorner(), QPoint(399, 120));
        QCOMPARE(cap->endCorner(), QPoint(449, 298));
        QCOMPARE(starts.count(), 0);
        QCOMPARE(ends.count(), 0);
    }

    void stretchTable_data()
    {
        QTest::addColumn<QPoint>("grip");
        QTest::addColumn<int>("handle");
        QTest::addColumn<int>("cursor");
        QTest::addColumn<QPoint>("to");
        QTest::addColumn<QRect>("expected");
        // Starting rectangle: (200,150) 200 x 150, inclusive right 399, bottom 299.
        QTest::newRow("top-left") << QPoint(200, 150) << int(CaptureScreen::TopLeft)
                                  << int(Qt::SizeFDiagCursor) << QPoint(150, 100)
                                  << QRect(150, 100, 249, 199);
        QTest::newRow("bottom-right")
            << QPoint(399, 299) << int(CaptureScreen::BottomRight) << int(Qt::SizeFDiagCursor)
            << QPoint(450, 350) << QRect(200, 150, 250, 200);
        QTest::newRow("top-right")
            << QPoint(399, 150) << int(CaptureScreen::TopRight) << int(Qt::SizeBDiagCursor)
            << QPoint(450, 100) << QRect(200, 100, 250, 199);
        QTest::newRow("bottom-left")
            << QPoint(200, 299) << int(CaptureScreen::BottomLeft) << int(Qt::SizeBDiagCursor)
            << QPoint(150, 350) << QRect(150, 150, 249, 200);
        QTest::newRow("left-centre")
            << QPoint(200, 224) << int(CaptureScreen::LeftCentre) << int(Qt::SizeHorCursor)
            << QPoint(120, 400) << QRect(120, 150, 279, 149);
        QTest::newRow("right-centre")
            << QPoint(399, 224) << int(CaptureScreen::RightCentre) << int(Qt::SizeHorCursor)
            << QPoint(500, 50) << QRect(200, 150, 300, 149);
        QTest::newRow("top-centre")
            << QPoint(299, 150) << int(CaptureScreen::TopCentre) << int(Qt::SizeVerCursor)
            << QPoint(600, 60) << QRect(200, 60, 199, 239);
        QTest::newRow("bottom-centre")
            << QPoint(299, 299) << int(CaptureScreen::BottomCentre) << int(Qt::SizeVerCursor)
            << QPoint(80, 450) << QRect(200, 150, 199, 300);
        QTest::newRow("top-left across")
            << QPoint(200, 150) << int(CaptureScreen::TopLeft) << int(Qt::SizeFDiagCursor)
            << QPoint(500, 400) << QRect(399, 299, 101, 101);
        QTest::newRow("right-centre across")
            << QPoint(399, 224) << int(CaptureScreen::RightCentre) << int(Qt::SizeHorCursor)
            << QPoint(100, 224) << QRect(100, 150, 100, 149);
        QTest::newRow("bottom-right held still: one pixel less")
            << QPoint(399, 299) << int(CaptureScreen::BottomRight) << int(Qt::SizeFDiagCursor)
            << QPoint(399, 299) << QRect(200, 150, 199, 149);
        QTest::newRow("top-left held still: one pixel less")
            << QPoint(200, 150) << int(CaptureScreen::TopLeft) << int(Qt::SizeFDiagCursor)
            << QPoint(200, 150) << QRect(200, 150, 199, 149);
    }
    void stretchTable()
    {
        QFETCH(QPoint, grip);
        QFETCH(int, handle);
        QFETCH(int, cursor);
        QFETCH(QPoint, to);
        QFETCH(QRect, expected);

        select(QPoint(200, 150), QPoint(400, 300));
        QCOMPARE(cap->selection(), QRect(200, 150, 200, 150));
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);

        press(grip);
        QCOMPARE(cap->pressedHandleId(), handle);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Stretching));
        QCOMPARE(int(cap->cursor().shape()), cursor);
        QCOMPARE(cap->moveStartCorner(), grip);
        // Nothing dragged yet: painted where it was.
        QCOMPARE(cap->selection(), QRect(200, 150, 200, 150));

        // Holding still sends no move at all.
        if (to != grip) {
            move(to);
            QCOMPARE(cap->selection(), expected);
            QCOMPARE(starts.count(), 1);
            QCOMPARE(starts.at(0).at(0).toPoint(), QPoint(200, 150));
            QCOMPARE(ends.at(0).at(0).toPoint(), QPoint(399, 299));
        }
        const int reported = starts.count();

        release(to);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), expected);
        QCOMPARE(cap->beginCorner(), expected.topLeft());
        QCOMPARE(cap->endCorner(), expected.bottomRight());
        QCOMPARE(cap->moveCorner(), to);
        QCOMPARE(cap->pressedHandleId(), handle);
        QCOMPARE(starts.count(), reported);
        QCOMPARE(ends.count(), reported);
        // The committed corners span one pixel less on the right and bottom.
        QCOMPARE(CaptureScreen::rectFromPoints(cap->beginCorner(), cap->endCorner()),
                 expected.adjusted(0, 0, -1, -1));
    }

    void stillStretchesShrinkOnePixelEach()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        for (int i = 1; i <= 3; ++i) {
            // The painted bottom-right corner, where its handle is centred.
            const QPoint corner = cap->selection().bottomRight();
            press(corner);
            QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::BottomRight));
            release(corner);
            QCOMPARE(cap->selection(), QRect(200, 150, 200 - i, 150 - i));
        }
    }

    void handleHitOrder_data()
    {
        // Selection (300,300) 4 x 4, where the squares overlap.
        QTest::addColumn<QPoint>("at");
        QTest::addColumn<int>("handle");
        QTest::newRow("top-left before all") << QPoint(300, 300) << int(CaptureScreen::TopLeft);
        QTest::newRow("top-centre before top-right")
            << QPoint(303, 298) << int(CaptureScreen::TopCentre);
        QTest::newRow("top-right before right-centre")
            << QPoint(304, 298) << int(CaptureScreen::TopRight);
        QTest::newRow("right-centre before bottom-right")
            << QPoint(304, 303) << int(CaptureScreen::RightCentre);
        QTest::newRow("bottom-right before bottom-centre")
            << QPoint(303, 305) << int(CaptureScreen::BottomRight);
        QTest::newRow("bottom-centre before bottom-left")
            << QPoint(299, 305) << int(CaptureScreen::BottomCentre);
        QTest::newRow("bottom-left before left-centre")
            << QPoint(297, 303) << int(CaptureScreen::BottomLeft);
        QTest::newRow("square edges count") << QPoint(305, 297) << int(CaptureScreen::TopRight);
        QTest::newRow("no square") << QPoint(306, 306) << int(CaptureScreen::None);
        QTest::newRow("far away") << QPoint(600, 400) << int(CaptureScreen::None);
    }
    void handleHitOrder()
    {
        QFETCH(QPoint, at);
        QFETCH(int, handle);
        select(QPoint(300, 300), QPoint(304, 304));
        QCOMPARE(cap->selection(), QRect(300, 300, 4, 4));
        // A right press only looks the handle up.
        press(at, Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), handle);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QVERIFY(cap->isVisible());
        release(at, Qt::RightButton);
    }

    void leftCentreHit()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        press(QPoint(198, 226), Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::LeftCentre));
    }

    void moveClamp_data()
    {
        // Rectangle (100,100) 100 x 50: inclusive right 199, bottom 149; snapshot 780 x 580.
        QTest::addColumn<QPoint>("grip");
        QTest::addColumn<QPoint>("to");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("free") << QPoint(150, 120) << QPoint(300, 300) << QRect(250, 280, 100, 50);
        QTest::newRow("left") << QPoint(190, 120) << QPoint(70, 120) << QRect(0, 100, 100, 50);
        QTest::newRow("top") << QPoint(150, 140) << QPoint(150, 20) << QRect(100, 0, 100, 50);
        QTest::newRow("right, not shifted by the inset")
            << QPoint(110, 120) << QPoint(789, 120) << QRect(681, 100, 100, 50);
        QTest::newRow("bottom, not shifted by the inset")
            << QPoint(150, 105) << QPoint(150, 539) << QRect(100, 531, 100, 50);
        QTest::newRow("right, a few pixels over")
            << QPoint(110, 120) << QPoint(695, 120) << QRect(681, 100, 100, 50);
        QTest::newRow("bottom, two pixels over")
            << QPoint(150, 105) << QPoint(150, 538) << QRect(100, 531, 100, 50);
        QTest::newRow("top-left corner")
            << QPoint(190, 140) << QPoint(70, 20) << QRect(0, 0, 100, 50);
        QTest::newRow("just inside on the left")
            << QPoint(190, 120) << QPoint(90, 120) << QRect(0, 100, 100, 50);
        QTest::newRow("one short of the left")
            << QPoint(190, 120) << QPoint(91, 120) << QRect(1, 100, 100, 50);
    }
    void moveClamp()
    {
        QFETCH(QPoint, grip);
        QFETCH(QPoint, to);
        QFETCH(QRect, expected);
        select(QPoint(100, 100), QPoint(200, 150));
        QCOMPARE(cap->selection(), QRect(100, 100, 100, 50));
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);

        press(grip);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::None));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Moving));
        QCOMPARE(cap->selection(), QRect(100, 100, 100, 50));

        move(to);
        QCOMPARE(cap->selection(), expected);
        // A second move event at the same point (the window system drops those).
        send(QEvent::MouseMove, to, Qt::NoButton, Qt::LeftButton);
        cap->repaint();
        QCOMPARE(starts.count(), 2);
        // First move: the rectangle of the paint after the press; second: the moved one.
        QCOMPARE(starts.at(0).at(0).toPoint(), QPoint(100, 100));
        QCOMPARE(ends.at(0).at(0).toPoint(), QPoint(199, 149));
        QCOMPARE(starts.at(1).at(0).toPoint(), expected.topLeft());
        QCOMPARE(ends.at(1).at(0).toPoint(), expected.bottomRight());
        QVERIFY(expected.x() >= 0 && expected.y() >= 0);
        QVERIFY(expected.right() <= cap->snapshotSize().width());
        QVERIFY(expected.bottom() <= cap->snapshotSize().height());

        release(to);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), expected);
        QCOMPARE(cap->beginCorner(), expected.topLeft());
        QCOMPARE(cap->endCorner(), expected.topLeft() + QPoint(100, 50));
        QCOMPARE(cap->moveStartCorner(), QPoint(0, 0));
        QCOMPARE(cap->moveCorner(), QPoint(0, 0));
        QCOMPARE(starts.count(), 2);
        QCOMPARE(ends.count(), 2);
    }

    void pressAfterFinishedMovePaintsInPlace()
    {
        select(QPoint(100, 100), QPoint(300, 250));
        press(QPoint(150, 150));
        move(QPoint(250, 200));
        release(QPoint(250, 200));
        const QRect moved(200, 150, 200, 150);
        QCOMPARE(cap->selection(), moved);
        QCOMPARE(cap->moveCorner(), QPoint(0, 0));

        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        press(QPoint(390, 290));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Moving));
        QCOMPARE(cap->selection(), moved);
        QCOMPARE(starts.count(), 0);
        const QImage img = grabOverlay();
        QCOMPARE(cap->selection(), moved);
        QVERIFY(near(img.pixel(200, 200), kOutline.rgb(), 0));
        QVERIFY(near(img.pixel(399, 149), kHandle.rgb(), 0));
        QVERIFY(near(img.pixel(300, 250), viewPixel({300, 250}), 1));
        QVERIFY(near(img.pixel(150, 250), dimmedViewPixel({150, 250}), 2));

        // The first drag point moves it by the drag offset.
        move(QPoint(380, 300));
        QCOMPARE(cap->selection(), moved.translated(-10, 10));
    }

    void moveAfterStretchUsesOldDragPoint()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        press(QPoint(399, 299));
        move(QPoint(450, 350));
        release(QPoint(450, 350));
        QCOMPARE(cap->selection(), QRect(200, 150, 250, 200));
        QCOMPARE(cap->moveCorner(), QPoint(450, 350));

        // The kept drag point shifts the rectangle as soon as the next press paints.
        press(QPoint(300, 250));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Moving));
        QCOMPARE(cap->selection(), QRect(350, 250, 249, 199));
    }

    void rightButtonOnlyRemembersHandle()
    {
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);
        // In Idle: nothing starts.
        press(QPoint(300, 300), Qt::RightButton);
        release(QPoint(300, 300), Qt::RightButton);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Idle));
        QCOMPARE(starts.count(), 0);

        select(QPoint(200, 150), QPoint(400, 300));
        starts.clear();
        ends.clear();
        const QPoint begin = cap->beginCorner(), end = cap->endCorner();
        press(QPoint(399, 150), Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::TopRight));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->beginCorner(), begin);
        QCOMPARE(cap->endCorner(), end);
        release(QPoint(399, 150), Qt::RightButton);
        // Outside rectangle and handles: the left button would close; the right does not.
        press(QPoint(600, 450), Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::None));
        QVERIFY(cap->isVisible());
        release(QPoint(600, 450), Qt::RightButton);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(starts.count(), 0);
        QCOMPARE(ends.count(), 0);

        // During a stretch the right press swaps the remembered handle: none gives R.
        press(QPoint(399, 299));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Stretching));
        send(QEvent::MouseButtonPress, QPoint(600, 450), Qt::RightButton,
             Qt::LeftButton | Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::None));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Stretching));
        move(QPoint(500, 400));
        QCOMPARE(cap->selection(), QRect(200, 150, 200, 150));
        release(QPoint(500, 400));
    }

    void closingKeys_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<bool>("settled");
        QTest::newRow("Escape in Idle") << int(Qt::Key_Escape) << false;
        QTest::newRow("Return in Idle") << int(Qt::Key_Return) << false;
        QTest::newRow("Enter in Idle") << int(Qt::Key_Enter) << false;
        QTest::newRow("Escape after a selection") << int(Qt::Key_Escape) << true;
        QTest::newRow("Return after a selection") << int(Qt::Key_Return) << true;
        QTest::newRow("Enter after a selection") << int(Qt::Key_Enter) << true;
    }
    void closingKeys()
    {
        QFETCH(int, key);
        QFETCH(bool, settled);
        if (settled)
            select(QPoint(200, 150), QPoint(400, 300));
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);
        const int stateBefore = cap->captureState();
        QTest::keyClick(cap, Qt::Key(key));
        QVERIFY(!cap->isVisible());
        QCOMPARE(cap->captureState(), stateBefore);
        QCOMPARE(starts.count(), 0);
        QCOMPARE(ends.count(), 0);
    }

    void otherKeysIgnored_data()
    {
        QTest::addColumn<int>("key");
        QTest::newRow("A") << int(Qt::Key_A);
        QTest::newRow("Space") << int(Qt::Key_Space);
        QTest::newRow("Delete") << int(Qt::Key_Delete);
        QTest::newRow("Tab") << int(Qt::Key_Tab);
    }
    void otherKeysIgnored()
    {
        QFETCH(int, key);
        QTest::keyClick(cap, Qt::Key(key));
        QVERIFY(cap->isVisible());
        QCOMPARE(cap->captureState(), int(CaptureScreen::Idle));
    }

    void releaseOutsidePlotKeepsGesture_data()
    {
        QTest::addColumn<QPoint>("grip");
        QTest::addColumn<int>("during");
        QTest::addColumn<QPoint>("outside");
        QTest::addColumn<QPoint>("finish");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("selecting, left of the plot")
            << QPoint() << int(CaptureScreen::Selecting) << QPoint(30, 250) << QPoint(350, 280)
            << QRect(200, 150, 150, 130);
        QTest::newRow("selecting, below the plot")
            << QPoint() << int(CaptureScreen::Selecting) << QPoint(300, 570) << QPoint(330, 260)
            << QRect(200, 150, 130, 110);
        QTest::newRow("moving, in the margin")
            << QPoint(300, 200) << int(CaptureScreen::Moving) << QPoint(795, 200)
            << QPoint(320, 230) << QRect(220, 180, 200, 150);
        QTest::newRow("stretching, left of the plot")
            << QPoint(399, 299) << int(CaptureScreen::Stretching) << QPoint(40, 100)
            << QPoint(420, 320) << QRect(200, 150, 220, 170);
    }
    void releaseOutsidePlotKeepsGesture()
    {
        QFETCH(QPoint, grip);
        QFETCH(int, during);
        QFETCH(QPoint, outside);
        QFETCH(QPoint, finish);
        QFETCH(QRect, expected);
        QVERIFY(!view->isInPlot(outside));
        QVERIFY(view->isInPlot(finish));
        if (grip.isNull()) {
            press(QPoint(200, 150));
            move(QPoint(300, 250));
        } else {
            select(QPoint(200, 150), QPoint(400, 300));
            press(grip);
            move(grip + QPoint(5, 5));
        }
        QCOMPARE(cap->captureState(), during);
        const QRect before = cap->selection();
        // Moving out of the plot is ignored, and so is the release there.
        move(outside);
        QCOMPARE(cap->selection(), before);
        release(outside);
        QCOMPARE(cap->captureState(), during);
        QVERIFY(cap->isVisible());
        // The gesture goes on with the button up, until a release inside the plot.
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        move(finish);
        QCOMPARE(starts.count(), 1);
        QCOMPARE(cap->selection(), expected);
        // The button is already up for the window system, which would drop a second
        // release; deliver it to the widget directly.
        send(QEvent::MouseButtonRelease, finish, Qt::LeftButton, Qt::NoButton);
        cap->repaint();
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
        QCOMPARE(cap->selection(), expected);
    }

    void pressOutsideCloses()
    {
        QSignalSpy starts(cap, &CaptureScreen::startPointChange);
        QSignalSpy ends(cap, &CaptureScreen::endPointChange);
        // In Idle a press outside the plot starts nothing and closes nothing.
        press(QPoint(30, 30));
        release(QPoint(30, 30));
        QVERIFY(cap->isVisible());
        QCOMPARE(cap->captureState(), int(CaptureScreen::Idle));
        QCOMPARE(starts.count(), 0);

        select(QPoint(200, 150), QPoint(400, 300));
        starts.clear();
        ends.clear();
        press(QPoint(600, 450));
        QVERIFY(!cap->isVisible());
        QCOMPARE(starts.count(), 0);
        QCOMPARE(ends.count(), 0);
    }

    void pressOutsideWhileSelectingCloses()
    {
        // A release outside the plot leaves Selecting; the next press away from it closes.
        press(QPoint(200, 150));
        move(QPoint(300, 250));
        release(QPoint(30, 250));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Selecting));
        press(QPoint(600, 450));
        QVERIFY(!cap->isVisible());
    }

    void hoverCursors_data()
    {
        QTest::addColumn<QPoint>("at");
        QTest::addColumn<int>("cursor");
        QTest::newRow("top-left") << QPoint(200, 150) << int(Qt::SizeFDiagCursor);
        QTest::newRow("bottom-right") << QPoint(401, 301) << int(Qt::SizeFDiagCursor);
        QTest::newRow("top-right") << QPoint(399, 150) << int(Qt::SizeBDiagCursor);
        QTest::newRow("bottom-left") << QPoint(197, 296) << int(Qt::SizeBDiagCursor);
        QTest::newRow("left-centre") << QPoint(200, 224) << int(Qt::SizeHorCursor);
        QTest::newRow("right-centre") << QPoint(399, 224) << int(Qt::SizeHorCursor);
        QTest::newRow("top-centre") << QPoint(299, 150) << int(Qt::SizeVerCursor);
        QTest::newRow("bottom-centre") << QPoint(299, 299) << int(Qt::SizeVerCursor);
        QTest::newRow("inside") << QPoint(300, 200) << int(Qt::SizeAllCursor);
        QTest::newRow("outside") << QPoint(600, 450) << int(Qt::ArrowCursor);
    }
    void hoverCursors()
    {
        QFETCH(QPoint, at);
        QFETCH(int, cursor);
        select(QPoint(200, 150), QPoint(400, 300));
        cap->setCursor(Qt::WaitCursor);
        move(at);
        QCOMPARE(int(cap->cursor().shape()), cursor);
        QCOMPARE(cap->captureState(), int(CaptureScreen::Settled));
    }

    void cursorRulesWhileDragging()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        move(QPoint(300, 200));
        QCOMPARE(cap->cursor().shape(), Qt::SizeAllCursor);
        // Outside the plot the cursor is left alone.
        move(QPoint(30, 200));
        QCOMPARE(cap->cursor().shape(), Qt::SizeAllCursor);

        // Moving: outside the (unmoved) corners the cursor stays.
        press(QPoint(300, 200));
        move(QPoint(700, 500));
        QCOMPARE(cap->captureState(), int(CaptureScreen::Moving));
        QCOMPARE(cap->cursor().shape(), Qt::SizeAllCursor);
        release(QPoint(700, 500));

        // Selecting in a fresh capture: the arrow outside any rectangle.
        cap->resetSelection();
        cap->setCursor(Qt::WaitCursor);
        press(QPoint(100, 100));
        move(QPoint(600, 450));
        QCOMPARE(cap->cursor().shape(), Qt::ArrowCursor);
    }

    void baseHandlersSeeMouseButNotKeys()
    {
        RecordingParent parent;
        parent.setMouseTracking(true);
        parent.resize(800, 600);
        auto *child = new CaptureScreen(&parent);
        child->setView(view);
        child->resetSelection();
        child->grabViewSnapshot();
        child->setGeometry(0, 0, 800, 600);
        QSignalSpy starts(child, &CaptureScreen::startPointChange);

        auto deliver = [&](QEvent::Type type, QPoint p, Qt::MouseButton b, Qt::MouseButtons held) {
            QMouseEvent e(type, p, p, b, held, Qt::NoModifier);
            QApplication::sendEvent(child, &e);
        };
        // Outside the plot in Idle: nothing happens but the base handlers.
        deliver(QEvent::MouseButtonPress, QPoint(20, 20), Qt::LeftButton, Qt::LeftButton);
        deliver(QEvent::MouseButtonRelease, QPoint(20, 20), Qt::LeftButton, Qt::NoButton);
        QCOMPARE(starts.count(), 0);
        deliver(QEvent::MouseButtonPress, QPoint(200, 150), Qt::LeftButton, Qt::LeftButton);
        deliver(QEvent::MouseMove, QPoint(300, 250), Qt::NoButton, Qt::LeftButton);
        deliver(QEvent::MouseButtonRelease, QPoint(300, 250), Qt::LeftButton, Qt::NoButton);
        // Also when the point is outside the plot and nothing else happens.
        deliver(QEvent::MouseMove, QPoint(20, 20), Qt::NoButton, Qt::NoButton);
        QCOMPARE(starts.count(), 2);
        QCOMPARE(child->captureState(), int(CaptureScreen::SelectDone));
        const QList<QEvent::Type> expected{QEvent::MouseButtonPress,   QEvent::MouseButtonRelease,
                                           QEvent::MouseButtonPress,   QEvent::MouseMove,
                                           QEvent::MouseButtonRelease, QEvent::MouseMove};
        QCOMPARE(parent.seen, expected);

        QTest::keyClick(child, Qt::Key_A);
        QTest::keyClick(child, Qt::Key_Escape);
        QVERIFY(parent.keys.isEmpty());
    }

    void everyPaintEndsItsPainter()
    {
        qInstallMessageHandler(collectMessages);
        select(QPoint(200, 150), QPoint(400, 300));
        for (int i = 0; i < 3; ++i) {
            cap->repaint();
            cap->grab();
        }
        press(QPoint(300, 200));
        move(QPoint(320, 210));
        cap->grab();
        release(QPoint(320, 210));
        qInstallMessageHandler(nullptr);
        for (const QString &m : qAsConst(g_messages))
            QVERIFY2(!m.contains("Painter", Qt::CaseInsensitive), qPrintable(m));
        QCOMPARE(cap->selection(), QRect(220, 160, 200, 150));
    }

    void settledRepaintHidesRectangleButKeepsHandles()
    {
        select(QPoint(200, 150), QPoint(400, 300));
        const QImage img = grabOverlay();
        QString first;
        QCOMPARE(mismatches(
                     img, view->frameRectangle(), QRegion(),
                     [&](QPoint p) { return dimmedViewPixel(p); }, 2, &first),
                 0);
        // The squares still answer to presses.
        press(QPoint(200, 150), Qt::RightButton);
        QCOMPARE(cap->pressedHandleId(), int(CaptureScreen::TopLeft));
    }
};

QTEST_MAIN(CaptureScreenTest)
#include "tst_capturescreen.moc"
