#pragma once

#include <QPainter>
#include <QPixmap>
#include <QPoint>
#include <QRect>
#include <QWidget>

class XYView;

// Frameless overlay laid exactly over the plot view: shows a dimmed snapshot
// of it on which the operator drags out a rectangle, moves it or stretches it
// by eight handles. The corners are reported in view pixels while they change.
class CaptureScreen : public QWidget
{
    Q_OBJECT

public:
    enum CaptureState {
        Idle = 0,
        Selecting = 1,
        Stretching = 2,
        SelectDone = 3,
        Moving = 4,
        MoveDone = 5,
        StretchDone = 6,
        Settled = 7,
    };
    enum HandleId {
        None = 0,
        TopLeft = 1,
        BottomRight = 2,
        TopRight = 3,
        BottomLeft = 4,
        LeftCentre = 5,
        RightCentre = 6,
        TopCentre = 7,
        BottomCentre = 8,
    };

    explicit CaptureScreen(QWidget *parent = nullptr);

    void setView(XYView *plotView) { view = plotView; }
    XYView *coveredView() const { return view; }
    void resetSelection();
    void grabViewSnapshot();

    // Read-only views of the gesture, for tests and diagnostics.
    int captureState() const { return state; }
    int pressedHandleId() const { return pressedHandle; }
    QRect selection() const { return selectionRect; }
    QRect handleRect(int paintOrderIndex) const;
    QPoint beginCorner() const { return beginPoint; }
    QPoint endCorner() const { return endPoint; }
    QPoint moveStartCorner() const { return moveStartPoint; }
    QPoint moveCorner() const { return movePoint; }
    QSize snapshotSize() const { return QSize(snapshotWidth, snapshotHeight); }

    static QRect rectFromPoints(const QPoint &a, const QPoint &b);

signals:
    void startPointChange(QPoint);
    void endPointChange(QPoint);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    int handleAt(const QPoint &p) const;
    bool isInsideSelection(const QPoint &p) const;
    void setHandleCursor(int handle);
    bool pointInPlot(const QPoint &p) const;
    void emitSelectionCorners();
    QPoint clampedMoveOffset(const QRect &r, QPoint offset) const;
    QRect movedRect();
    QRect stretchedRect();
    QRect currentSelectionRect();
    void drawSelection();
    void drawHandles();
    void drawInfoBox();

    QPixmap selectionPixmap;
    QPixmap snapshot;
    int snapshotWidth = 0;
    int snapshotHeight = 0;
    int state = Idle;
    int pressedHandle = None;
    QPoint beginPoint;
    QPoint moveStartPoint;
    QPoint endPoint;
    QPoint movePoint;
    QPainter painter;
    QRect selectionRect;
    QRect handleRects[8];
    XYView *view = nullptr;
};
