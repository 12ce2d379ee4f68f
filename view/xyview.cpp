#include "view/xyview.h"
#include "view/straightline.h"
#include "view/truncation.h"

#include "app/translationtable.h"
#include "log/condlock.h"
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
    update();
}

void XYView::setAreaInfo(int index, const AreaRecord &area)
{
    if (static_cast<unsigned>(index) > 2)
        return;
    areas[index] = area;
    update();
}

AreaRecord XYView::areaInfo(int index) const
{
    if (static_cast<unsigned>(index) > 2)
        return AreaRecord();
    return areas[index];
}

void XYView::clearAreas()
{
    for (AreaRecord &area : areas)
        area = AreaRecord();
    update();
}

void XYView::setTargets(QList<QPointF> list)
{
    if (!targetLock)
        return;
    condLockLock(targetLock);
    // The array holds kMaxTargets points; longer lists are cut.
    const int count = list.size() < kMaxTargets ? list.size() : kMaxTargets;
    for (int k = 0; k < count; ++k)
        targets[k] = list.at(k);
    targetCount = count;
    condLockUnlock(targetLock);
    update();
}

int XYView::targetCountShown() const
{
    return targetCount;
}

void XYView::setAreaOccupancy(char mask)
{
    areaOccupancy = mask;
    update();
}

void XYView::setShowAreas(bool show)
{
    showAreas = show;
    update();
}

void XYView::setAxisRange(QPointF xRange, QPointF yRange)
{
    xAxis->configure(XYAxis::Bottom, xRange.x(), xRange.y(), 1.0, xRange.x(), xRange.y());
    yAxis->configure(XYAxis::Left, yRange.x(), yRange.y(), 1.0, yRange.x(), yRange.y());
    xAxis->updateAxis();
    yAxis->updateAxis();
    update();
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

void XYView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    mousePos = event->pos();
    qDebug() << mousePos;
    lastMousePos = mousePos;
    if (event->button() == Qt::LeftButton)
        dragging = true;
    update();
}

void XYView::mouseReleaseEvent(QMouseEvent *event)
{
    event->accept();
    mousePos = event->pos();
    dragging = false;
    update();
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
    update();
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
    update();
}

void XYView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    frameRect = rect().adjusted(10, 10, -10, -10);
    xAxis->setAxisRect(
        QRect(frameRect.left() + 50, frameRect.bottom() - 50, frameRect.width() - 50, 51));
    yAxis->setAxisRect(QRect(frameRect.left(), frameRect.top(), 51, frameRect.height() - 50));
    plotRect = frameRect.adjusted(50, 0, 0, -50);
}

void XYView::paintEvent(QPaintEvent *event)
{
    event->accept();
    QPainter painter(this);
    const QFontMetrics metrics = fontMetrics();
    TranslationTable &table = translationTable();

    // Grid on the major ticks (whole multiples of the axis range) only.
    painter.setPen(kGridColour);
    const QVector<int> majorX = xAxis->majorTickPositions();
    for (int x : majorX) {
        if (plotRect.left() <= x && x <= plotRect.right())
            drawStraightLine(&painter, x, plotRect.top(), x, plotRect.bottom());
    }
    const QVector<int> majorY = yAxis->majorTickPositions();
    for (int y : majorY) {
        if (plotRect.top() <= y && y <= plotRect.bottom())
            drawStraightLine(&painter, plotRect.left(), y, plotRect.right(), y);
    }

    // Axes.
    painter.setPen(kAxisColour);
    xAxis->draw(&painter);
    yAxis->draw(&painter);

    // Legend at the top right of the plot; the first two boxes are 99 pixels
    // wide and the third 100.
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setRenderHint(QPainter::TextAntialiasing, true);
    painter.setPen(kOutlineColour);
    const QRect boxA(plotRect.right() - 310, plotRect.top() + 5, 99, 25);
    const QRect boxB(boxA.left() + 100, boxA.top(), 99, 25);
    const QRect boxC(boxB.left() + 100, boxB.top(), 100, 25);
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
        painter.drawText(QPoint(boxes[b].x() + (100 - w) / 2, boxes[b].y() + 16), text);
    }
    painter.restore();

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
        labelGlyphs.prepare(font(), this);
        condLockLock(targetLock);
        for (int k = 0; k < targetCount; ++k) {
            const QPointF p = targets[k];
            targetPosLine.point(p);
            const QPointF px = valueToPixel(p);
            // The 20-pixel disc centred on the target, as
            // drawEllipse(X - 10, Y - 10, 20, 20) in the target colours.
            painter.drawImage(QPoint(truncateToPixel(px.x() - 10) - kDiscMargin,
                                     truncateToPixel(px.y() - 10) - kDiscMargin),
                              disc);

            const QPoint corner(truncateToPixel(px.x() - 40), truncateToPixel(px.y() - 30));
            painter.fillRect(QRect(corner, QSize(100, 19)), kTargetLabelColour);
            const QString text = QStringLiteral("%1:(%2,%3)")
                                     .arg(QString::number(k + 1), QString::number(p.x(), 'f', 1),
                                          QString::number(p.y(), 'f', 1));
            const int w = labelGlyphs.horizontalAdvance(text);
            labelGlyphs.drawText(&painter, QPoint(corner.x() + (100 - w) / 2, corner.y() + 14),
                                 text);
        }
        condLockUnlock(targetLock);
    }
    painter.restore();

    // Crosshair.
    painter.setPen(kCrosshairIdleColour);
    if (plotRect.isValid() && plotRect.contains(mousePos)) {
        painter.setPen(kCrosshairColour);
        drawStraightLine(&painter, mousePos.x(), plotRect.top(), mousePos.x(), plotRect.bottom());
        drawStraightLine(&painter, plotRect.left(), mousePos.y(), plotRect.right(), mousePos.y());
        painter.drawText(QPoint(mousePos.x() + 10, mousePos.y() - 10), crosshairText(mousePos));
    }
}
