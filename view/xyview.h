#pragma once

#include "log/debugline.h"
#include "view/arearecord.h"
#include "view/labelglyphs.h"

#include <QFont>
#include <QImage>
#include <QList>
#include <QPointF>
#include <QRect>
#include <QRegion>
#include <QString>
#include <QVector>
#include <QWidget>

class XYAxis;
class QPainter;
struct CondLock;

// The radar plane: grid on whole metres, labelled axes, legend, the three
// detection areas, the live targets and a crosshair under the mouse.
class XYView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kMaxTargets = 128;

    explicit XYView(QWidget *parent = nullptr);
    ~XYView() override;

    void setAreaInfo(int index, const AreaRecord &area);
    // The stored record of area index 0..2; a zero record for other indices.
    AreaRecord areaInfo(int index) const;
    void clearAreas();
    void setTargets(QList<QPointF> list);
    void setAreaOccupancy(char mask);
    void setShowAreas(bool show);
    void setAxisRange(QPointF xRange, QPointF yRange);

    void pixelToValue(QPoint p, double *x, double *y) const;
    bool isInPlot(QPoint p) const;
    // Widget pixel (doubles, not truncated) of a plane point in metres.
    QPointF valueToPixel(QPointF value) const;
    // The crosshair text "(x,y)" for a widget point (x two decimals, y one).
    QString crosshairText(QPoint p) const;

    QRect frameRectangle() const { return frameRect; }
    QRect plotRectangle() const { return plotRect; }
    XYAxis *horizontalAxis() const { return xAxis; }
    XYAxis *verticalAxis() const { return yAxis; }
    int targetCountShown() const;
    char areaOccupancyMask() const { return areaOccupancy; }
    bool areasShown() const { return showAreas; }

public slots:
    void refresh();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    const QImage &targetDiscImage(qreal pixelRatio);

    // Partial repaints. Each change names only the pixels it changes; the
    // paint then repaints only those, skipping what lies wholly outside them,
    // so every repainted pixel comes out as a whole repaint would paint it.
    // The bounds of the layers that do not move with targets or the mouse
    // (axes, legend, areas) are taken in a whole paint; a change to any of
    // them repaints everything.
    void repaintRegion(const QRegion &region);
    void repaintLayers();
    // Label text and width of target k at point p, kept while p stays.
    const QString &targetLabel(int k, QPointF p, int *width);
    // A width no narrower than target k's label at p, without making it.
    int labelWidthBound(int k, QPointF p) const;
    QRect targetBounds(int k, QPointF p, const QFontMetrics &metrics) const;
    QRegion crosshairBounds(QPoint mouse) const;
    // True while the layers are as last painted whole.
    bool layersUnchanged() const;
    void takeLayerBounds(QPainter *painter);
    void repaintCrosshair();
    // Glyphs for the widget's font; forgets label widths when it changed.
    void prepareLabels();

    XYAxis *xAxis = nullptr;
    XYAxis *yAxis = nullptr;
    QRect frameRect;
    QRect plotRect;
    QPoint mousePos;
    QPoint lastMousePos;
    bool dragging = false;
    AreaRecord areas[3];
    QPointF targets[kMaxTargets];
    char areaOccupancy = 0;
    int targetCount = 0;
    CondLock *targetLock = nullptr;
    bool showAreas = true;
    // The target disc, drawn once and then copied for every target.
    QImage targetDisc;
    // Glyphs of the target labels, looked up once per font and resolution.
    LabelGlyphs labelGlyphs;
    // The "TargetPos" debug line written for every target painted.
    DebugLine targetPosLine{u"TargetPos"};
    qreal targetDiscRatio = 0;

    // Pixels each target covers as last painted or set.
    QRect targetRect[kMaxTargets];
    struct TargetLabel {
        QPointF point;
        QString text;
        int width = 0;
        bool valid = false;
    };
    TargetLabel targetLabels[kMaxTargets];
    // The layers as last painted whole, and their bounds, taken by the
    // first partial paint after that.
    bool layersPainted = false;
    bool layerBoundsKnown = false;
    // A paint is due (Qt merges further updates into it).
    bool paintPending = false;
    qreal labelDigitWidth = 0;
    qreal labelSignsWidth = 0;
    QFont layerFont;
    QFont layerAxisFont;
    QVector<int> majorX;
    QVector<int> majorY;
    QRect xAxisBounds;
    QRect yAxisBounds;
    QRect legendBounds;
    QRect areaBounds[3];
    QRegion crosshairShown;
};
