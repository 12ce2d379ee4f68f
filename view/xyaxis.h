#pragma once

#include <QObject>
#include <QPoint>
#include <QRect>
#include <QString>
#include <QVector>

class QPainter;

// One axis of the radar plane: the range of values it shows now, the widest
// range it may ever show, the value/pixel mapping along its strip of the
// owning widget and the ticks with their labels. It paints itself with a
// painter handed in by the owner. Only Left (vertical, values grow upwards)
// and Bottom (horizontal, values grow to the right) compute ticks and paint.
class XYAxis : public QObject
{
    Q_OBJECT

public:
    // 32-bit, so that any int is a value (positions other than the four are
    // accepted and treated as unused ones).
    enum AxisPosition : int { Left = 0, Right = 1, Top = 2, Bottom = 3 };
    Q_ENUM(AxisPosition)

    explicit XYAxis(QObject *parent = nullptr);

    // Stores the six values as given: no check, no recomputation, no signal.
    void configure(AxisPosition position, double limitMin, double limitMax, double range,
                   double minValue, double maxValue);
    // Takes a new strip (only a valid one that differs from the current one)
    // and recomputes.
    void setAxisRect(const QRect &r);
    void updateAxis();

    // px counted from the axis start (bottom of a vertical axis, left of a
    // horizontal one).
    double pxToValue(double px) const { return px * unitP2V + minValue; }
    double valueToPx(double v) const { return (v - minValue) * unitV2P; }

    // Positions of the ticks whose label is a whole multiple of range.
    QVector<int> majorTickPositions() const;
    bool isMajorTick(int tickIndex) const;

    void draw(QPainter *painter);

    // Steps of the recomputation, public so that they can be checked alone.
    double posFraction(const QPoint &p) const;
    static int decimalsFor(double step);
    static double niceStep(double v, int base);
    double calcPxSpace(double unitPerPx, double step) const;
    double calcPxStart(double unitPerPx, double step, double minimum, double maximum) const;
    void calcScale(double length);
    void calcTickHint(double length);
    double calcValueSpace(double unitPerPx, int pxHint) const;

    // Read access to the state.
    AxisPosition axisPosition() const { return position; }
    int tickStepMode() const { return stepMode; }
    QRect axisRectangle() const { return axisRect; }
    int decimalPrecision() const { return precision; }
    double fixedStep() const { return fixedValueStep; }
    double tickPixelHint() const { return tickPxHint; }
    const QVector<int> &tickPositionList() const { return tickPositions; }
    const QVector<QString> &tickLabelList() const { return tickLabels; }
    double limitMinimum() const { return limitMin; }
    double limitMaximum() const { return limitMax; }
    double minimumSpan() const { return range; }
    double minimum() const { return minValue; }
    double maximum() const { return maxValue; }
    double unitPerPixel() const { return unitP2V; }
    double pixelPerUnit() const { return unitV2P; }
    double pixelStart() const { return pxStart; }
    double pixelSpace() const { return pxSpace; }
    double valueStep() const { return valueSpace; }

    // Tuning that the plot view leaves at its defaults; they take effect at
    // the next recomputation.
    void setTickStepMode(int mode) { stepMode = mode; }
    void setDecimalPrecision(int digits) { precision = digits; }
    void setFixedStep(double step) { fixedValueStep = step; }

signals:
    void axisChanged();

public slots:
    void addMinValue();
    void subMinValue();
    void addMaxValue();
    void subMaxValue();
    bool moveValueWidthPx(int px);
    void zoomValueIn();
    void zoomValueOut();
    void zoomValueInPos(QPoint pos);
    void zoomValueOutPos(QPoint pos);
    void overallView();
    void setLimitRange(double min, double max, double range);
    void setValueRange(double min, double max);

private:
    void zoomInAtFraction(double f);
    double stepValue() const;
    // Records the ticks from pixel `first` on, pxSpace apart, going in
    // `direction` (+1 or -1) towards pixel `end`.
    void walkTicks(double first, double direction, int end);
    void recordTick(double p, double off, int decimals);
    void drawLeft(QPainter *painter);
    void drawBottom(QPainter *painter);

    AxisPosition position = Left;
    int stepMode = 1;
    QRect axisRect;
    int precision = 1;
    double fixedValueStep = 100.0;
    double tickPxHint = 45.0;
    QVector<int> tickPositions;
    QVector<QString> tickLabels;
    double limitMin = 0.0;
    double limitMax = 1000.0;
    double range = 10.0;
    double minValue = 0.0;
    double maxValue = 1000.0;
    double unitP2V = 1.0;
    double unitV2P = 1.0;
    double pxStart = 0.0;
    double pxSpace = 30.0;
    double valueSpace = 1.0;
};
