#include "view/xyaxis.h"
#include "view/straightline.h"
#include "view/truncation.h"

#include <QDebug>
#include <QFont>
#include <QFontMetrics>
#include <QPainter>

#include <climits>
#include <cmath>
#include <utility>

namespace
{

// A walk never records more ticks than this; only reached with a step of a
// tiny fraction of a pixel, which the automatic step never produces.
constexpr int kMaxTicks = 10000;
// decimalsFor stops counting here (a double carries no more digits).
constexpr int kMaxDecimals = 17;

// qRound for a non-negative value, in 64 bits and clamped.
qint64 roundNonNegative(double v)
{
    if (!(v > 0.0))
        return 0;
    if (v >= 9.0e18)
        return Q_INT64_C(9000000000000000000);
    return static_cast<qint64>(v + 0.5);
}

// Tick label font: 14 points for a major tick, 12 pixels otherwise.
QFont labelFont(bool major)
{
    QFont font;
    if (major)
        font.setPointSize(14);
    else
        font.setPixelSize(12);
    return font;
}

} // namespace

XYAxis::XYAxis(QObject *parent) : QObject(parent) {}

void XYAxis::configure(AxisPosition pos, double limMin, double limMax, double minSpan,
                       double minimum, double maximum)
{
    position = pos;
    limitMin = limMin;
    limitMax = limMax;
    range = minSpan;
    minValue = minimum;
    maxValue = maximum;
}

void XYAxis::setAxisRect(const QRect &r)
{
    if (r == axisRect)
        return;
    if (!r.isValid())
        return;
    axisRect = r;
    updateAxis();
}

void XYAxis::updateAxis()
{
    if (limitMin >= limitMax)
        return;
    if (axisRect.isNull())
        return;

    if (minValue > maxValue)
        std::swap(minValue, maxValue);
    if (limitMin > minValue)
        minValue = limitMin;
    if (maxValue > limitMax)
        maxValue = limitMax;

    switch (position) {
    case Left: {
        const double length = axisRect.height() - 1;
        calcTickHint(length);
        calcScale(length);
        // Upwards from the bottom edge.
        walkTicks(axisRect.bottom() - pxStart, -1.0, axisRect.top());
        break;
    }
    case Bottom: {
        const double length = axisRect.width() - 1;
        calcTickHint(length);
        calcScale(length);
        // Rightwards from the left edge.
        walkTicks(axisRect.left() + pxStart, 1.0, axisRect.right());
        break;
    }
    default:
        break;
    }
    emit axisChanged();
}

void XYAxis::calcTickHint(double length)
{
    const double t = length / (maxValue - minValue);
    unitP2V = t;
    if (t > 0)
        tickPxHint = t / (range * 2.0);
}

void XYAxis::calcScale(double length)
{
    unitP2V = (maxValue - minValue) / length;
    unitV2P = length / (maxValue - minValue);
    if (stepMode == 0)
        valueSpace = fixedValueStep;
    else if (stepMode == 1)
        valueSpace = calcValueSpace(unitP2V, truncateToInt(tickPxHint));
    else
        return;
    pxSpace = calcPxSpace(unitP2V, valueSpace);
    pxStart = calcPxStart(unitP2V, valueSpace, minValue, maxValue);
}

double XYAxis::calcValueSpace(double unitPerPx, int pxHint) const
{
    const double raw = pxHint * unitPerPx;
    if (raw > 1.0)
        return niceStep(raw, 1);
    return niceStep(std::pow(10.0, precision) * raw, 1) * std::pow(10.0, -precision);
}

double XYAxis::niceStep(double v, int base)
{
    // 64-bit so that absurd inputs cannot overflow; the loop stops long
    // before 5 * b could leave the range.
    qint64 b = base;
    while (v > 8.0 * static_cast<double>(b) && b < Q_INT64_C(100000000000000000))
        b *= 10;
    if (v > 4.5 * static_cast<double>(b))
        return static_cast<double>(5 * b);
    if (v > 3.0 * static_cast<double>(b))
        return static_cast<double>(4 * b);
    if (v > 1.5 * static_cast<double>(b))
        return static_cast<double>(2 * b);
    return static_cast<double>(b);
}

double XYAxis::calcPxSpace(double unitPerPx, double step) const
{
    if (unitPerPx <= 0) {
        qWarning() << "XYAxis::calcPxSpace"
                   << "unitP2V is too min" << unitPerPx;
        return 30.0;
    }
    return step / unitPerPx;
}

double XYAxis::calcPxStart(double unitPerPx, double step, double minimum, double maximum) const
{
    Q_UNUSED(maximum)
    if (unitPerPx <= 0 || step <= 0) {
        qWarning() << "XYAxis::calcPxStart"
                   << "unitP2V or valueSpace is too min" << unitPerPx << step;
        return 0;
    }
    const double s = std::pow(10.0, precision);
    double rem = 0;
    if (precision > 0) {
        const qint64 a = roundNonNegative(std::fabs(minimum) * s);
        const qint64 b = roundNonNegative(s * step);
        // A step finer than the precision cannot be aligned: start at minimum.
        if (b != 0)
            rem = static_cast<double>(a % b) / s;
    }
    double offset = 0;
    if (std::fabs(rem) > 1e-12)
        offset = minimum >= 0 ? step - rem : rem;
    return offset / unitPerPx;
}

int XYAxis::decimalsFor(double step)
{
    if (step >= 1.0)
        return 0;
    int d = 1;
    double t = 0.1;
    while (step < t && d < kMaxDecimals) {
        t = t / 10;
        d = d + 1;
    }
    return d;
}

void XYAxis::walkTicks(double first, double direction, int end)
{
    tickPositions.clear();
    tickLabels.clear();
    if (!std::isfinite(pxSpace) || pxSpace <= 0)
        return;
    const int d = decimalsFor(valueSpace);
    // Ticks up to two pixels beyond the end pixel still count.
    auto beforeEnd = [direction, end](double p) {
        return direction > 0 ? p < end + 2.0 : p > end - 2.0;
    };
    double off = pxStart;
    double p = first;
    while (beforeEnd(p) && tickPositions.size() < kMaxTicks) {
        recordTick(p, off, d);
        p = p + direction * pxSpace;
        off = off + pxSpace;
    }
}

void XYAxis::recordTick(double p, double off, int decimals)
{
    tickPositions.append(truncateToInt(std::round(p)));
    QString label = QString::number(off * unitP2V + minValue, 'f', decimals);
    // Cut at the first ".0": drops a trailing ".0" (and, deliberately, also
    // shortens labels with more decimals such as 1.05).
    const int i = label.indexOf(QLatin1String(".0"));
    if (i > 0)
        label = label.left(i);
    if (label == QLatin1String("-0"))
        label = QStringLiteral("0");
    tickLabels.append(label);
}

bool XYAxis::isMajorTick(int tickIndex) const
{
    if (tickIndex < 0 || tickIndex >= tickLabels.size())
        return false;
    const int unit = truncateToInt(range * 10);
    // A range below 0.1 has no whole multiples at this resolution.
    if (unit == 0)
        return false;
    const int v = truncateToInt(tickLabels.at(tickIndex).toDouble() * 10);
    return static_cast<qint64>(v) % unit == 0;
}

QVector<int> XYAxis::majorTickPositions() const
{
    QVector<int> major;
    for (int i = 0; i < tickPositions.size(); ++i) {
        if (isMajorTick(i))
            major.append(tickPositions.at(i));
    }
    return major;
}

void XYAxis::draw(QPainter *painter)
{
    switch (position) {
    case Left:
        drawLeft(painter);
        break;
    case Bottom:
        drawBottom(painter);
        break;
    default:
        break;
    }
}

void XYAxis::drawBottom(QPainter *painter)
{
    painter->save();
    drawStraightLine(painter, axisRect.left(), axisRect.top(), axisRect.right(), axisRect.top());
    const int top = axisRect.top();
    for (int i = 0; i < tickPositions.size(); ++i) {
        const int x = tickPositions.at(i);
        drawStraightLine(painter, x, top, x, top + 5);
        painter->setFont(labelFont(isMajorTick(i)));
        const QFontMetrics metrics = painter->fontMetrics();
        const QString &label = tickLabels.at(i);
        const int h = metrics.height();
        const int w = metrics.boundingRect(label).width();
        painter->drawText(QPoint(x - w / 2, top + 5 + h), label);
    }
    painter->restore();
}

void XYAxis::drawLeft(QPainter *painter)
{
    painter->save();
    drawStraightLine(painter, axisRect.right(), axisRect.top(), axisRect.right(),
                     axisRect.bottom());
    const int right = axisRect.right();
    for (int i = 0; i < tickPositions.size(); ++i) {
        const int y = tickPositions.at(i);
        drawStraightLine(painter, right, y, right - 5, y);
        painter->setFont(labelFont(isMajorTick(i)));
        const QFontMetrics metrics = painter->fontMetrics();
        const QString &label = tickLabels.at(i);
        const int h = metrics.height();
        const int w = metrics.boundingRect(label).width();
        painter->drawText(QPoint(right - w - 5, y + h / 2), label);
    }
    painter->restore();
}

double XYAxis::posFraction(const QPoint &p) const
{
    double f = 0.5;
    switch (position) {
    case Left:
    case Right:
        f = static_cast<double>(axisRect.bottom() - p.y()) /
            static_cast<double>(axisRect.bottom() - axisRect.top());
        break;
    case Top:
    case Bottom:
        f = static_cast<double>(p.x() - axisRect.left()) /
            static_cast<double>(axisRect.right() - axisRect.left());
        break;
    }
    if (std::isnan(f)) // a one-pixel strip with the point on it
        f = 0.5;
    if (f <= 0)
        f = 0;
    if (f >= 1)
        f = 1;
    return f;
}

double XYAxis::stepValue() const
{
    if (stepMode != 0)
        return valueSpace;
    return (maxValue - minValue) / 5.0;
}

void XYAxis::addMinValue()
{
    if (range >= maxValue - minValue)
        return;
    minValue = minValue + stepValue();
    if (range > maxValue - minValue)
        minValue = maxValue - range;
    updateAxis();
}

void XYAxis::subMinValue()
{
    if (limitMin >= minValue)
        return;
    minValue = minValue - stepValue();
    if (limitMin > minValue)
        minValue = limitMin;
    updateAxis();
}

void XYAxis::addMaxValue()
{
    if (maxValue > limitMax)
        return;
    maxValue = maxValue + stepValue();
    if (maxValue > limitMax)
        maxValue = limitMax;
    updateAxis();
}

void XYAxis::subMaxValue()
{
    if (range >= maxValue - minValue)
        return;
    maxValue = maxValue - stepValue();
    if (range > maxValue - minValue)
        maxValue = minValue + range;
    updateAxis();
}

bool XYAxis::moveValueWidthPx(int px)
{
    double d = std::fabs(static_cast<double>(px)) * unitP2V;
    if (d <= 0)
        return false;
    if (px < 0) {
        if (limitMin >= minValue)
            return false;
        if (limitMin > minValue - d)
            d = minValue - limitMin;
        minValue -= d;
        maxValue -= d;
    } else {
        if (maxValue > limitMax)
            return false;
        if (maxValue + d > limitMax)
            d = limitMax - maxValue;
        minValue += d;
        maxValue += d;
    }
    updateAxis();
    return true;
}

void XYAxis::zoomValueIn()
{
    // The centre keeps its place: the same as zooming at fraction one half.
    zoomInAtFraction(0.5);
}

void XYAxis::zoomValueOut()
{
    if (limitMin >= minValue && maxValue >= limitMax)
        return;
    const double q = (maxValue - minValue) * 0.5 * 0.5;
    double up = q;
    if (maxValue + q > limitMax)
        up = limitMax - maxValue;
    double down = q;
    if (limitMin > minValue - q)
        down = minValue - limitMin;
    minValue -= down;
    maxValue += up;
    updateAxis();
}

void XYAxis::zoomValueInPos(QPoint pos)
{
    zoomInAtFraction(posFraction(pos));
}

// Narrows the span by a quarter, keeping the value at fraction f of the axis
// in place; a span that would fall below range becomes exactly range,
// centred, whatever f is.
void XYAxis::zoomInAtFraction(double f)
{
    const double s = maxValue - minValue;
    if (range >= s)
        return;
    const double q = s * 0.25;
    if (q <= 0)
        return;
    if (range > s - q) {
        minValue = minValue + (s - range) * 0.5;
        maxValue = minValue + range;
    } else {
        minValue += f * q;
        maxValue -= (1 - f) * q;
    }
    updateAxis();
}

void XYAxis::zoomValueOutPos(QPoint pos)
{
    if (limitMin >= minValue && maxValue >= limitMax)
        return;
    const double f = posFraction(pos);
    const double q = (maxValue - minValue) * 0.25;
    double down = f * q;
    if (limitMin > minValue - down)
        down = minValue - limitMin;
    double up = (1 - f) * q;
    if (maxValue + up > limitMax)
        up = limitMax - maxValue;
    minValue -= down;
    maxValue += up;
    updateAxis();
}

void XYAxis::overallView()
{
    if (limitMin >= minValue && maxValue >= limitMax)
        return;
    minValue = limitMin;
    maxValue = limitMax;
    updateAxis();
}

void XYAxis::setLimitRange(double min, double max, double minSpan)
{
    if (min >= max || minSpan > max - min)
        return;
    limitMin = min;
    limitMax = max;
    range = minSpan;
    emit axisChanged();
}

void XYAxis::setValueRange(double min, double max)
{
    if (min >= max || range >= max - min)
        return;
    minValue = min;
    maxValue = max;
    updateAxis();
}
