#include "view/capturescreen.h"

#include "view/xyview.h"

#include <QBrush>
#include <QColor>
#include <QCursor>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPen>
#include <QString>
#include <QtGlobal>

namespace
{
// Index into handleRects (paint order) of each HandleId.
int paintIndexOf(int handle)
{
    switch (handle) {
    case CaptureScreen::TopLeft:
        return 0;
    case CaptureScreen::TopRight:
        return 1;
    case CaptureScreen::BottomLeft:
        return 2;
    case CaptureScreen::BottomRight:
        return 3;
    case CaptureScreen::LeftCentre:
        return 4;
    case CaptureScreen::TopCentre:
        return 5;
    case CaptureScreen::RightCentre:
        return 6;
    case CaptureScreen::BottomCentre:
        return 7;
    default:
        return -1;
    }
}

const QPoint kUnsetPoint(-1, -1);
} // namespace

CaptureScreen::CaptureScreen(QWidget *parent) : QWidget(parent)
{
    beginPoint = QPoint(0, 0);
    moveStartPoint = QPoint(0, 0);
    endPoint = QPoint(0, 0);
    movePoint = QPoint(0, 0);
    state = Idle;
    view = nullptr;

    setFocusPolicy(Qt::StrongFocus);
    // Moves arrive without a button held, so the hover cursor follows the pointer.
    setAttribute(Qt::WA_MouseTracking, true);
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setWindowState(Qt::WindowActive);
}

QRect CaptureScreen::handleRect(int paintOrderIndex) const
{
    if (paintOrderIndex < 0 || paintOrderIndex >= 8)
        return QRect();
    return handleRects[paintOrderIndex];
}

QRect CaptureScreen::rectFromPoints(const QPoint &a, const QPoint &b)
{
    int width = qAbs(a.x() - b.x());
    int height = qAbs(a.y() - b.y());
    if (width == 0)
        width = 1;
    if (height == 0)
        height = 1;
    return QRect(qMin(a.x(), b.x()), qMin(a.y(), b.y()), width, height);
}

void CaptureScreen::resetSelection()
{
    state = Idle;
    pressedHandle = None;
    beginPoint = kUnsetPoint;
    moveStartPoint = kUnsetPoint;
    endPoint = kUnsetPoint;
    movePoint = kUnsetPoint;
    selectionRect = QRect(0, 0, 0, 0);
    for (QRect &r : handleRects)
        r = QRect(0, 0, 0, 0);
}

void CaptureScreen::grabViewSnapshot()
{
    if (!view)
        return;
    const QPoint origin = view->mapToGlobal(QPoint(0, 0));
    snapshot = view->grab(view->frameRectangle());
    snapshotWidth = snapshot.width();
    snapshotHeight = snapshot.height();
    setGeometry(origin.x(), origin.y(), view->width(), view->height());
}

int CaptureScreen::handleAt(const QPoint &p) const
{
    // Tried in this order; the first square that holds the point wins.
    static const int order[8] = {TopLeft,     TopCentre,    TopRight,   RightCentre,
                                 BottomRight, BottomCentre, BottomLeft, LeftCentre};
    for (int handle : order) {
        if (handleRects[paintIndexOf(handle)].contains(p))
            return handle;
    }
    return None;
}

bool CaptureScreen::isInsideSelection(const QPoint &p) const
{
    return rectFromPoints(beginPoint, endPoint).contains(p);
}

void CaptureScreen::setHandleCursor(int handle)
{
    switch (handle) {
    case None:
        setCursor(Qt::ArrowCursor);
        break;
    case TopLeft:
    case BottomRight:
        setCursor(Qt::SizeFDiagCursor);
        break;
    case TopRight:
    case BottomLeft:
        setCursor(Qt::SizeBDiagCursor);
        break;
    case LeftCentre:
    case RightCentre:
        setCursor(Qt::SizeHorCursor);
        break;
    case TopCentre:
    case BottomCentre:
        setCursor(Qt::SizeVerCursor);
        break;
    default:
        break;
    }
}

bool CaptureScreen::pointInPlot(const QPoint &p) const
{
    return view && view->isInPlot(p);
}

void CaptureScreen::emitSelectionCorners()
{
    emit startPointChange(selectionRect.topLeft());
    emit endPointChange(selectionRect.bottomRight());
}

void CaptureScreen::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        close();
        break;
    default:
        // Other keys do nothing and are not handed on.
        break;
    }
}

void CaptureScreen::mousePressEvent(QMouseEvent *event)
{
    const QPoint p = event->pos();
    pressedHandle = handleAt(p);

    if (event->button() == Qt::LeftButton) {
        if (state != Idle) {
            if (pressedHandle != None) {
                state = Stretching;
                setHandleCursor(pressedHandle);
                moveStartPoint = p;
            } else if (isInsideSelection(p)) {
                state = Moving;
                moveStartPoint = p;
            } else {
                // A press away from the rectangle ends the capture.
                close();
            }
        } else if (pointInPlot(p)) {
            beginPoint = p;
            emit startPointChange(p);
            state = Selecting;
        }
        update();
    }

    QWidget::mousePressEvent(event);
}

void CaptureScreen::mouseMoveEvent(QMouseEvent *event)
{
    const QPoint p = event->pos();
    if (!pointInPlot(p)) {
        QWidget::mouseMoveEvent(event);
        return;
    }

    switch (state) {
    case Selecting:
        endPoint = p;
        break;
    case Moving:
        movePoint = p;
        break;
    case Stretching:
        movePoint = p;
        update();
        // The rectangle reported is the one of the last paint: update() only
        // schedules the repaint, so the corners trail the pointer by one event.
        emitSelectionCorners();
        QWidget::mouseMoveEvent(event);
        return;
    default:
        break;
    }

    if (state == Selecting || state == Moving) {
        update();
        emitSelectionCorners();
    }

    const int handle = handleAt(p);
    if (handle != None)
        setHandleCursor(handle);
    else if (isInsideSelection(p))
        setCursor(Qt::SizeAllCursor);
    else if (state != Moving)
        setCursor(Qt::ArrowCursor);

    QWidget::mouseMoveEvent(event);
}

void CaptureScreen::mouseReleaseEvent(QMouseEvent *event)
{
    const QPoint p = event->pos();
    if (pointInPlot(p)) {
        switch (state) {
        case Selecting:
            state = SelectDone;
            endPoint = p;
            break;
        case Moving:
            state = MoveDone;
            movePoint = p;
            break;
        case Stretching:
            state = StretchDone;
            movePoint = p;
            break;
        default:
            break;
        }
        update();
    }
    QWidget::mouseReleaseEvent(event);
}

QPoint CaptureScreen::clampedMoveOffset(const QRect &r, QPoint offset) const
{
    int dx = offset.x();
    int dy = offset.y();
    // Bounds are overlay pixels against the snapshot size, without the frame inset.
    if (r.left() + dx < 0)
        dx = -r.left();
    if (r.top() + dy < 0)
        dy = -r.top();
    if (r.right() + dx > snapshotWidth)
        dx = snapshotWidth - r.right();
    if (r.bottom() + dy > snapshotHeight)
        dy = snapshotHeight - r.bottom();
    return QPoint(dx, dy);
}

QRect CaptureScreen::movedRect()
{
    // movePoint is (0,0) after a committed move and (-1,-1) after a reset: no
    // drag yet, so the rectangle stays where it was painted.
    if (movePoint.x() <= 0)
        return selectionRect;

    const QPoint offset =
        clampedMoveOffset(rectFromPoints(beginPoint, endPoint), movePoint - moveStartPoint);
    const QPoint newBegin = beginPoint + offset;
    const QPoint newEnd = endPoint + offset;
    const QRect result = rectFromPoints(newBegin, newEnd);

    if (state == MoveDone) {
        beginPoint = newBegin;
        endPoint = newEnd;
        moveStartPoint = QPoint(0, 0);
        movePoint = QPoint(0, 0);
    }
    return result;
}

QRect CaptureScreen::stretchedRect()
{
    if (movePoint.x() <= 0)
        return selectionRect;

    const QRect r = rectFromPoints(beginPoint, endPoint);
    const QPoint &p = movePoint;
    QRect result;
    switch (pressedHandle) {
    case TopLeft:
        result = rectFromPoints(r.bottomRight(), p);
        break;
    case BottomRight:
        result = rectFromPoints(r.topLeft(), p);
        break;
    case TopRight:
        result = rectFromPoints(QPoint(r.left(), p.y()), QPoint(p.x(), r.bottom()));
        break;
    case BottomLeft:
        result = rectFromPoints(QPoint(p.x(), r.top()), QPoint(r.right(), p.y()));
        break;
    case LeftCentre:
        result = rectFromPoints(QPoint(p.x(), r.top()), QPoint(r.right(), r.bottom()));
        break;
    case RightCentre:
        result = rectFromPoints(QPoint(r.left(), r.top()), QPoint(p.x(), r.bottom()));
        break;
    case TopCentre:
        result = rectFromPoints(QPoint(r.left(), p.y()), QPoint(r.right(), r.bottom()));
        break;
    case BottomCentre:
        result = rectFromPoints(QPoint(r.left(), r.top()), QPoint(r.right(), p.y()));
        break;
    default:
        result = r;
        break;
    }

    // Spans are plain coordinate differences against the inclusive corners, so
    // each committed stretch loses one pixel on the right and at the bottom.
    if (state == StretchDone) {
        beginPoint = result.topLeft();
        endPoint = result.bottomRight();
    }
    // movePoint stays as it is: only a finished move clears it.
    return result;
}

QRect CaptureScreen::currentSelectionRect()
{
    QRect result;
    switch (state) {
    case Selecting:
    case SelectDone:
        result = rectFromPoints(beginPoint, endPoint);
        break;
    case Moving:
    case MoveDone:
        result = movedRect();
        break;
    case Stretching:
    case StretchDone:
        result = stretchedRect();
        break;
    default:
        break;
    }
    if (state == SelectDone || state == MoveDone || state == StretchDone)
        state = Settled;
    return result;
}

void CaptureScreen::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event);
    if (!view)
        return;

    painter.begin(this);
    const QRect frame = view->frameRectangle();
    painter.drawPixmap(frame.topLeft(), snapshot);
    painter.fillRect(frame, QColor(0, 0, 0, 120));

    // Idle and Settled show the dimmed snapshot only.
    if (state >= Selecting && state <= StretchDone) {
        selectionRect = currentSelectionRect();
        drawSelection();
    }
    painter.end();
}

void CaptureScreen::drawSelection()
{
    // Nothing until a second corner has been dragged.
    if (endPoint == kUnsetPoint)
        return;

    // The snapshot starts at the frame's top-left, so shift into its pixels.
    const QPoint origin = view->frameRectangle().topLeft();
    selectionPixmap = snapshot.copy(
        QRect(selectionRect.topLeft() - origin, selectionRect.bottomRight() - origin));
    painter.drawPixmap(selectionRect.topLeft(), selectionPixmap);

    painter.setPen(
        QPen(QBrush(QColor(0, 180, 255, 255)), 1.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    painter.drawRect(selectionRect);

    drawHandles();
    drawInfoBox();
}

void CaptureScreen::drawHandles()
{
    const int l = selectionRect.left();
    const int t = selectionRect.top();
    const int r = selectionRect.right();
    const int b = selectionRect.bottom();
    const QPoint anchors[8] = {
        QPoint(l, t),           QPoint(r, t),           QPoint(l, b),
        QPoint(r, b),           QPoint(l, (t + b) / 2), QPoint((l + r) / 2, t),
        QPoint(r, (t + b) / 2), QPoint((l + r) / 2, b),
    };
    for (int i = 0; i < 8; ++i) {
        handleRects[i] = QRect(anchors[i] - QPoint(3, 3), QSize(6, 6));
        painter.fillRect(handleRects[i], QColor(0, 174, 255, 255));
    }
}

void CaptureScreen::drawInfoBox()
{
    const int boxX = selectionRect.left() + 1;
    const int boxY = selectionRect.top() > 20 ? selectionRect.top() - 38 : selectionRect.top() + 1;
    painter.fillRect(QRect(boxX, boxY, 150, 38), QColor(0, 0, 0, 160));

    double x1 = 0.0, y1 = 0.0, x2 = 0.0, y2 = 0.0;
    view->pixelToValue(selectionRect.topLeft(), &x1, &y1);
    view->pixelToValue(selectionRect.bottomRight(), &x2, &y2);

    const QString sx1 = QString::number(x1, 'f', 1);
    const QString sy1 = QString::number(y1, 'f', 1);
    const QString sx2 = QString::number(x2, 'f', 1);
    const QString sy2 = QString::number(y2, 'f', 1);
    const QString corners = QString("(%1,%2)(%3,%4)").arg(sx1, sy1, sx2, sy2);

    // The size is worked out from the rounded texts, so it matches what is shown.
    const double width = qAbs(sx2.toDouble() - sx1.toDouble());
    const double height = qAbs(sy2.toDouble() - sy1.toDouble());
    const QString size =
        QString("%1 * %2").arg(QString::number(width, 'f', 1), QString::number(height, 'f', 1));

    const QFontMetrics metrics = fontMetrics();
    painter.setPen(Qt::white);
    painter.drawText(boxX + (150 - metrics.horizontalAdvance(corners)) / 2, boxY + 14, corners);
    painter.drawText(boxX + (150 - metrics.horizontalAdvance(size)) / 2, boxY + 34, size);
}
