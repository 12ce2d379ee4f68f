#include "view/xyview.h"
#include "view/paintbounds.h"
#include "view/straightline.h"
#include "view/truncation.h"

#include "log/condlock.h"
#include "text/translationtable.h"
#include "view/xyaxis.h"

#include <QColor>
#include <QDebug>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QResizeEvent>
#include <QTextOption>
#include <QWheelEvent>

#include <climits>
#include <cmath>

namespace
{

const QColor kGridColour(0, 0, 0, 100);
const QColor kAxisColour(0, 0, 0, 200);
const QColor kOutlineColour(255, 255, 0, 100);
const QColor kOccupiedColour(100, 0, 138, 150);
const QColor kType0Colour(0, 0, 138, 100);
const QColor kType1Colour(0, 100, 138, 100);
const QColor kTargetPenColour(200, 255, 100, 255);
const QColor kTargetBrushColour(0, 255, 100, 255);
const QColor kTargetLabelColour(0, 0, 0, 160);
const QColor kCrosshairIdleColour(255, 0, 0, 100);
const QColor kCrosshairColour(255, 0, 0, 255);
// Room around the cached target disc for its antialiased outline.
constexpr int kDiscMargin = 2;
// A change touching more targets than this repaints their bounding box
// instead of a region of many small rectangles.
constexpr int kMaxDamageRects = 32;

// Exactly the same point (no fuzzy comparison; NaN never is).
bool samePoint(QPointF a, QPointF b)
{
    return a.x() == b.x() && a.y() == b.y();
}

bool sameArea(const AreaRecord &a, const AreaRecord &b)
{
    return a.index == b.index && a.type == b.type && a.status == b.status &&
           a.rect.left() == b.rect.left() && a.rect.top() == b.rect.top() &&
           a.rect.width() == b.rect.width() && a.rect.height() == b.rect.height();
}

// Collects changed rectangles; past kMaxDamageRects it keeps their bounding
// box, which QRegion handles far faster than many rectangles.
class Damage
{
public:
    void add(const QRect &r)
    {
        if (r.isEmpty())
            return;
        box |= r;
        if (++count <= kMaxDamageRects)
            region += r;
    }
    QRegion toRegion() const { return count <= kMaxDamageRects ? region : QRegion(box); }

private:
    QRegion region;
    QRect box;
    int count = 0;
};

} // namespace

XYView::XYView(QWidget *parent) : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    // Moves arrive without a button held: they drive the crosshair.
    setAttribute(Qt::WA_MouseTracking, true);

    xAxis = new XYAxis(this);
    xAxis->configure(XYAxis::Bottom, -5.0, 5.0, 1.0, -5.0, 5.0);
    yAxis = new XYAxis(this);
    yAxis->configure(XYAxis::Left, 0.0, 8.0, 1.0, 0.0, 8.0);
    connect(xAxis, &XYAxis::axisChanged, this, &XYView::refresh);
    connect(yAxis, &XYAxis::axisChanged, this, &XYView::refresh);

    for (AreaRecord &area : areas)
        area = AreaRecord();
    targetLock = condLockCreate();
    for (QPointF &target : targets)
        target = QPointF(0, 0);
    areaOccupancy = 0;
    showAreas = true;
}

XYView::~XYView()
{
    if (targetLock) {
        condLockDestroy(targetLock);
        targetLock = nullptr;
    }
    delete xAxis;
    xAxis = nullptr;
    delete yAxis;
    yAxis = nullptr;
}

void XYView::refresh()
{
    repaintLayers();
}

void XYView::repaintLayers()
{
    layersPainted = false;
    layerBoundsKnown = false;
    paintPending = true;
    update();
}

void XYView::repaintRegion(const QRegion &region)
{
    // Every change that repaints still gives one paint (which writes its
    // debug lines), even when no pixel changes or the change lies outside
    // the widget: then one pixel is repainted, unless a paint is already
    // due, which Qt would merge it into.
    const QRegion inside = region.intersected(rect());
    if (!inside.isEmpty()) {
        paintPending = true;
        update(inside);
    } else if (!paintPending || !isVisible()) {
        paintPending = true;
        update(rect().intersected(QRect(0, 0, 1, 1)));
    }
}

bool XYView::layersUnchanged() const
{
    return layersPainted && layerFont == font() && layerAxisFont == QFont();
}

void XYView::takeLayerBounds(QPainter *painter)
{
    xAxisBounds = paintbounds::axis(*xAxis, this);
    yAxisBounds = paintbounds::axis(*yAxis, this);

    const QFontMetrics metrics = fontMetrics();
    TranslationTable &table = translationTable();
    legendBounds = QRect();
    const QRect boxA(plotRect.right() - 310, plotRect.top() + 5, 99, 25);
    const QRect boxes[3] = {boxA, QRect(boxA.left() + 100, boxA.top(), 99, 25),
                            QRect(boxA.left() + 200, boxA.top(), 100, 25)};
    const int numbers[3] = {27, 3, 4};
    for (int b = 0; b < 3; ++b) {
        const QString text = table.text(numbers[b]);
        const int w = metrics.horizontalAdvance(text);
        const QPoint baseline(boxes[b].x() + (100 - w) / 2, boxes[b].y() + 16);
        legendBounds |=
            boxes[b].adjusted(-2, -2, 2, 2) | paintbounds::anyText(baseline, text, w, metrics);
    }

    // Each drawn area's box and label, placed as the paint places them.
    for (int i = 0; i < 3; ++i) {
        areaBounds[i] = QRect();
        const QRectF r = areas[i].rect;
        if (!showAreas || areas[i].status != 1)
            continue;
        const QPointF p1 = valueToPixel(r.topLeft());
        const QPointF p2 = valueToPixel(r.bottomRight());
        const double w = std::fabs(p2.x() - p1.x());
        const double h = std::fabs(p2.y() - p1.y());
        if (!(std::fabs(p1.x()) < 1e6 && std::fabs(p1.y()) < 1e6 && w < 1e6 && h < 1e6)) {
            areaBounds[i] = rect(); // far out or huge: not worked out
            continue;
        }
        const QRect box(truncateToInt(p1.x()), truncateToInt(p1.y()), truncateToInt(w),
                        truncateToInt(h));
        const QString label = QStringLiteral("%1%2").arg(table.text(areas[i].type == 0 ? 3 : 4),
                                                         QString::number(i + 1));
        const QRect labelRect(truncateToInt(p1.x() + w * 0.25), truncateToInt(p1.y() + h * 0.5),
                              truncateToInt(w * 0.5), truncateToInt(h * 0.5));
        const QRect text =
            painter->boundingRect(QRectF(labelRect), label, QTextOption()).toAlignedRect();
        const int spill = metrics.maxWidth() / 2 + 2;
        areaBounds[i] =
            box.normalized().adjusted(-2, -2, 2, 2) | text.adjusted(-spill, -spill, spill, spill);
    }
    crosshairShown = crosshairBounds(mousePos);
    layerBoundsKnown = true;
}

const QString &XYView::targetLabel(int k, QPointF p, int *width)
{
    TargetLabel &label = targetLabels[k];
    if (!label.valid || !samePoint(label.point, p)) {
        label.text = QStringLiteral("%1:(%2,%3)")
                         .arg(QString::number(k + 1), QString::number(p.x(), 'f', 1),
                              QString::number(p.y(), 'f', 1));
        label.width = labelGlyphs.horizontalAdvance(label.text);
        label.point = p;
        label.valid = true;
    }
    *width = label.width;
    return label.text;
}

int XYView::labelWidthBound(int k, QPointF p) const
{
    // "%1:(%2,%3)": the number's digits, four signs, and each coordinate
    // with one decimal: a minus, its whole digits (one more for a carry in
    // rounding), the point and the decimal.
    auto digits = [](double v) {
        if (!std::isfinite(v))
            return 3; // "inf", "nan": no wider than three digits and a point
        const double a = std::fabs(v);
        return (a < 10.0 ? 1 : int(std::floor(std::log10(a))) + 1) + 2;
    };
    const int number = k + 1 < 10 ? 1 : (k + 1 < 100 ? 2 : 3);
    const double width =
        (number + digits(p.x()) + digits(p.y())) * labelDigitWidth + labelSignsWidth;
    return int(std::ceil(width)) + 2;
}

QRect XYView::targetBounds(int k, QPointF p, const QFontMetrics &metrics) const
{
    return paintbounds::target(valueToPixel(p), kDiscMargin, labelWidthBound(k, p), metrics,
                               rect());
}

QRegion XYView::crosshairBounds(QPoint mouse) const
{
    if (!plotRect.isValid() || !plotRect.contains(mouse))
        return QRegion();
    QRegion bounds(paintbounds::line(mouse.x(), plotRect.top(), mouse.x(), plotRect.bottom()));
    bounds += paintbounds::line(plotRect.left(), mouse.y(), plotRect.right(), mouse.y());
    const QFontMetrics metrics = fontMetrics();
    const QPoint baseline(mouse.x() + 10, mouse.y() - 10);
    bounds += paintbounds::text(baseline, metrics.horizontalAdvance(crosshairText(mouse)), metrics);
    return bounds;
}

void XYView::setAreaInfo(int index, const AreaRecord &area)
{
    if (static_cast<unsigned>(index) > 2)
        return;
    const bool changed = !sameArea(areas[index], area);
    areas[index] = area;
    if (changed)
        repaintLayers();
    else
        repaintRegion(QRegion());
}

AreaRecord XYView::areaInfo(int index) const
{
    if (static_cast<unsigned>(index) > 2)
        return AreaRecord();
    return areas[index];
}

void XYView::clearAreas()
{
    bool changed = false;
    for (AreaRecord &area : areas) {
        changed = changed || !sameArea(area, AreaRecord());
        area = AreaRecord();
    }
    if (changed)
        repaintLayers();
    else
        repaintRegion(QRegion());
}

void XYView::setTargets(QList<QPointF> list)
{
    if (!targetLock)
        return;
    int moved[kMaxTargets];
    int movedCount = 0;
    condLockLock(targetLock);
    const int oldCount = targetCount;
    // The array holds kMaxTargets points; longer lists are cut.
    const int count = list.size() < kMaxTargets ? list.size() : kMaxTargets;
    for (int k = 0; k < count; ++k) {
        const QPointF p = list.at(k);
        if (k >= oldCount || !samePoint(targets[k], p))
            moved[movedCount++] = k;
        targets[k] = p;
    }
    targetCount = count;
    condLockUnlock(targetLock);

    // Old and new pixels of every target that moved, came or went; the new
    // label's width is bounded from its length (its text is made when it is
    // painted, so that an update allocates nothing).
    Damage damage;
    if (movedCount > 0) {
        prepareLabels();
        const QFontMetrics metrics = fontMetrics();
        for (int m = 0; m < movedCount; ++m) {
            const int k = moved[m];
            if (k < oldCount)
                damage.add(targetRect[k]);
            targetRect[k] = targetBounds(k, targets[k], metrics);
            damage.add(targetRect[k]);
        }
    }
    for (int k = count; k < oldCount; ++k)
        damage.add(targetRect[k]);
    repaintRegion(damage.toRegion());
}

int XYView::targetCountShown() const
{
    return targetCount;
}

void XYView::setAreaOccupancy(char mask)
{
    // Only bits 0..2 colour an area.
    const bool changed = ((areaOccupancy ^ mask) & 0x07) != 0;
    areaOccupancy = mask;
    if (changed)
        repaintLayers();
    else
        repaintRegion(QRegion());
}

void XYView::setShowAreas(bool show)
{
    const bool changed = showAreas != show;
    showAreas = show;
    if (changed)
        repaintLayers();
    else
        repaintRegion(QRegion());
}

void XYView::setAxisRange(QPointF xRange, QPointF yRange)
{
    xAxis->configure(XYAxis::Bottom, xRange.x(), xRange.y(), 1.0, xRange.x(), xRange.y());
    yAxis->configure(XYAxis::Left, yRange.x(), yRange.y(), 1.0, yRange.x(), yRange.y());
    xAxis->updateAxis();
    yAxis->updateAxis();
    repaintLayers();
}

void XYView::pixelToValue(QPoint p, double *x, double *y) const
{
    *x = xAxis->pxToValue(p.x() - plotRect.left());
    *y = yAxis->pxToValue(plotRect.height() - (p.y() - plotRect.top()) - 1);
}

bool XYView::isInPlot(QPoint p) const
{
    if (!plotRect.isValid())
        return false;
    return plotRect.contains(p);
}

QPointF XYView::valueToPixel(QPointF value) const
{
    return QPointF(plotRect.left() + xAxis->valueToPx(value.x()),
                   plotRect.bottom() - yAxis->valueToPx(value.y()));
}

QString XYView::crosshairText(QPoint p) const
{
    const QPoint d = p - plotRect.topLeft();
    const double vx = xAxis->pxToValue(d.x());
    const double vy = yAxis->pxToValue(plotRect.height() - d.y() - 1);
    return QStringLiteral("(%1,%2)").arg(QString::number(vx, 'f', 2), QString::number(vy, 'f', 1));
}

const QImage &XYView::targetDiscImage(qreal pixelRatio)
{
    // Antialiased ellipses are by far the dearest part of a paint with many
    // targets; the disc never changes, so it is drawn once (per pixel ratio)
    // with a margin for the pen's antialiased edge and then copied.
    if (targetDisc.isNull() || targetDiscRatio != pixelRatio) {
        const int side = 20 + 2 * kDiscMargin;
        targetDisc = QImage(QSize(side, side) * pixelRatio, QImage::Format_ARGB32_Premultiplied);
        targetDisc.setDevicePixelRatio(pixelRatio);
        targetDisc.fill(Qt::transparent);
        QPainter painter(&targetDisc);
        painter.setRenderHint(QPainter::Antialiasing, true);
        painter.setPen(kTargetPenColour);
        painter.setBrush(QBrush(kTargetBrushColour, Qt::SolidPattern));
        painter.drawEllipse(kDiscMargin, kDiscMargin, 20, 20);
        targetDiscRatio = pixelRatio;
    }
    return targetDisc;
}

void XYView::repaintCrosshair()
{
    const QRegion now = crosshairBounds(mousePos);
    repaintRegion(crosshairShown + now);
    crosshairShown = now;
}

void XYView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    mousePos = event->pos();
    qDebug() << mousePos;
    lastMousePos = mousePos;
    if (event->button() == Qt::LeftButton)
        dragging = true;
    repaintCrosshair();
}

void XYView::mouseReleaseEvent(QMouseEvent *event)
{
    event->accept();
    mousePos = event->pos();
    dragging = false;
    repaintCrosshair();
}

void XYView::mouseMoveEvent(QMouseEvent *event)
{
    event->accept();
    mousePos = event->pos();
    if (dragging) {
        // The plane follows the mouse; a refused move simply does nothing.
        xAxis->moveValueWidthPx(lastMousePos.x() - mousePos.x());
        yAxis->moveValueWidthPx(mousePos.y() - lastMousePos.y());
    }
    lastMousePos = mousePos;
    repaintCrosshair();
}

void XYView::wheelEvent(QWheelEvent *event)
{
    // The wheel neither zooms nor scrolls, and the parent does not see it.
    event->accept();
}

void XYView::leaveEvent(QEvent *event)
{
    QWidget::leaveEvent(event);
    mousePos = QPoint(-1, -1);
    repaintCrosshair();
}

void XYView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    frameRect = rect().adjusted(10, 10, -10, -10);
    xAxis->setAxisRect(
        QRect(frameRect.left() + 50, frameRect.bottom() - 50, frameRect.width() - 50, 51));
    yAxis->setAxisRect(QRect(frameRect.left(), frameRect.top(), 51, frameRect.height() - 50));
    plotRect = frameRect.adjusted(50, 0, 0, -50);
    // Qt repaints the whole widget after a resize; the layers' bounds go.
    layersPainted = false;
    layerBoundsKnown = false;
}

void XYView::prepareLabels()
{
    if (labelGlyphs.isPreparedFor(font(), this))
        return;
    labelGlyphs.prepare(font(), this);
    for (TargetLabel &label : targetLabels)
        label.valid = false;
    // Widths that bound a label's: its digits and its other signs (with
    // some room for rounding), or the font's widest glyph for every
    // character when labels go the usual way.
    const QFontMetricsF metrics(font(), this);
    if (labelGlyphs.isUsable()) {
        qreal digit = 0;
        for (QChar c : QStringLiteral("0123456789"))
            digit = std::max(digit, metrics.horizontalAdvance(c));
        labelDigitWidth = digit * 1.05 + 0.5;
        labelSignsWidth = 0;
        for (QChar c : QStringLiteral(":(,)-.-.")) // "inf" and "nan" count as digits
            labelSignsWidth += metrics.horizontalAdvance(c) * 1.05 + 0.5;
        labelSignsWidth = std::max(labelSignsWidth, 3 * labelDigitWidth);
    } else {
        labelDigitWidth = metrics.maxWidth();
        labelSignsWidth = 8 * metrics.maxWidth();
    }
}

void XYView::paintEvent(QPaintEvent *event)
{
    event->accept();
    QPainter painter(this);
    const QFontMetrics metrics = fontMetrics();
    TranslationTable &table = translationTable();

    // A paint of part of the widget skips what lies wholly outside that
    // part; one of the whole widget (or one after a layer changed) paints
    // everything and takes the layers' bounds for the partial ones.
    paintPending = false;
    const QRegion &dirty = event->region();
    const bool whole = dirty.rectCount() == 1 && dirty.boundingRect().contains(rect());
    const bool partial = !whole && layersUnchanged();
    if (partial && !layerBoundsKnown)
        takeLayerBounds(&painter);
    auto needed = [&](const QRect &bounds) { return !partial || dirty.intersects(bounds); };

    // Grid on the major ticks (whole multiples of the axis range) only.
    painter.setPen(kGridColour);
    if (!partial) {
        majorX = xAxis->majorTickPositions();
        majorY = yAxis->majorTickPositions();
    }
    for (int x : qAsConst(majorX)) {
        if (plotRect.left() <= x && x <= plotRect.right() &&
            needed(QRect(x, plotRect.top(), 1, plotRect.height())))
            drawStraightLine(&painter, x, plotRect.top(), x, plotRect.bottom());
    }
    for (int y : qAsConst(majorY)) {
        if (plotRect.top() <= y && y <= plotRect.bottom() &&
            needed(QRect(plotRect.left(), y, plotRect.width(), 1)))
            drawStraightLine(&painter, plotRect.left(), y, plotRect.right(), y);
    }

    // Axes.
    painter.setPen(kAxisColour);
    if (needed(xAxisBounds))
        xAxis->draw(&painter);
    if (needed(yAxisBounds))
        yAxis->draw(&painter);

    // Legend at the top right of the plot; the first two boxes are 99 pixels
    // wide and the third 100.
    const QRect boxA(plotRect.right() - 310, plotRect.top() + 5, 99, 25);
    const QRect boxB(boxA.left() + 100, boxA.top(), 99, 25);
    const QRect boxC(boxB.left() + 100, boxB.top(), 100, 25);
    if (needed(legendBounds)) {
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing, true);
        painter.setRenderHint(QPainter::TextAntialiasing, true);
        painter.setPen(kOutlineColour);
        const QRect boxes[3] = {boxA, boxB, boxC};
        const QColor fills[3] = {kOccupiedColour, kType0Colour, kType1Colour};
        const int numbers[3] = {27, 3, 4};
        for (int b = 0; b < 3; ++b) {
            painter.setPen(kOutlineColour);
            painter.setBrush(fills[b]);
            painter.drawRect(boxes[b]);
            const QString text = table.text(numbers[b]);
            painter.setPen(Qt::white);
            const int w = metrics.horizontalAdvance(text);
            const QPoint baseline(boxes[b].x() + (100 - w) / 2, boxes[b].y() + 16);
            painter.drawText(baseline, text);
        }
        painter.restore();
    }

    // Areas.
    if (showAreas) {
        const unsigned char occupancy = static_cast<unsigned char>(areaOccupancy);
        for (int i = 0; i < 3; ++i) {
            const int n = i + 1;
            const bool occupied = (occupancy >> i) & 1u;
            painter.save();
            painter.setRenderHint(QPainter::Antialiasing, true);
            painter.setRenderHint(QPainter::TextAntialiasing, true);
            if (areas[i].status != 1) {
                painter.restore();
                continue;
            }
            const QRectF r = areas[i].rect;
            if (truncateToInt(r.top()) == 0 && truncateToInt(r.bottom()) == 0 &&
                truncateToInt(r.left()) != (truncateToInt(r.right()) > 0 ? 1 : 0)) {
                // Left saved on purpose: the rest of this paint keeps the
                // render hints set above.
                qDebug() << "unsetting area";
                continue;
            }
            if (!needed(areaBounds[i])) {
                painter.restore();
                continue;
            }
            const QPointF p1 = valueToPixel(r.topLeft());
            const QPointF p2 = valueToPixel(r.bottomRight());
            const double w = std::fabs(p2.x() - p1.x());
            const double h = std::fabs(p2.y() - p1.y());

            QColor fill = areas[i].type == 0 ? kType0Colour : kType1Colour;
            if (occupied)
                fill = kOccupiedColour;
            painter.setPen(kOutlineColour);
            painter.setBrush(QBrush(fill, Qt::SolidPattern));
            const QRect box = truncatedPixelRect(p1.x(), p1.y(), w, h);
            painter.drawRects(&box, 1);

            const QString label = QStringLiteral("%1%2").arg(table.text(areas[i].type == 0 ? 3 : 4),
                                                             QString::number(n));
            const QRect labelRect =
                truncatedPixelRect(p1.x() + w * 0.25, p1.y() + h * 0.5, w * 0.5, h * 0.5);
            painter.drawText(QRectF(labelRect), label, QTextOption());
            painter.restore();
        }
    }

    // Targets.
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    if (!targetLock) {
        targetLock = condLockCreate();
    } else {
        const QImage &disc = targetDiscImage(painter.device()->devicePixelRatioF());
        painter.setPen(Qt::white);
        // Widths in the widget's own metrics, as fontMetrics() gives them.
        prepareLabels();
        condLockLock(targetLock);
        for (int k = 0; k < targetCount; ++k) {
            const QPointF p = targets[k];
            targetPosLine.point(p);
            const QPointF px = valueToPixel(p);
            int w = 0;
            const QString &text = targetLabel(k, p, &w);
            targetRect[k] = paintbounds::target(px, kDiscMargin, w, metrics, rect());
            if (!needed(targetRect[k]))
                continue;
            // The 20-pixel disc centred on the target, as
            // drawEllipse(X - 10, Y - 10, 20, 20) in the target colours.
            painter.drawImage(QPoint(truncateToPixel(px.x() - 10) - kDiscMargin,
                                     truncateToPixel(px.y() - 10) - kDiscMargin),
                              disc);

            const QPoint corner(truncateToPixel(px.x() - 40), truncateToPixel(px.y() - 30));
            painter.fillRect(QRect(corner, QSize(100, 19)), kTargetLabelColour);
            labelGlyphs.drawText(&painter, QPoint(corner.x() + (100 - w) / 2, corner.y() + 14),
                                 text);
        }
        condLockUnlock(targetLock);
    }
    painter.restore();

    // Crosshair.
    painter.setPen(kCrosshairIdleColour);
    if (plotRect.isValid() && plotRect.contains(mousePos) &&
        (!partial || dirty.intersects(crosshairShown))) {
        painter.setPen(kCrosshairColour);
        drawStraightLine(&painter, mousePos.x(), plotRect.top(), mousePos.x(), plotRect.bottom());
        drawStraightLine(&painter, plotRect.left(), mousePos.y(), plotRect.right(), mousePos.y());
        painter.drawText(QPoint(mousePos.x() + 10, mousePos.y() - 10), crosshairText(mousePos));
    }

    if (!partial) {
        layersPainted = true;
        layerFont = font();
        layerAxisFont = QFont();
    }
}
