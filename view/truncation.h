#pragma once

#include <QPoint>
#include <QRect>

#include <algorithm>
#include <climits>
#include <cmath>

// Truncation toward zero (how pixel values and decimetre counts are taken
// from doubles), kept defined for NaN and values outside int.
inline int truncateToInt(double v)
{
    if (std::isnan(v))
        return 0;
    if (v >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (v <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(v);
}

// Widget pixels taken from plane values lie anywhere a double can reach
// (a range of 1e-9 m maps a metre to 1e11 pixels; an infinite limit maps
// everything to infinity). They are truncated like any pixel and then kept
// within +-kPixelLimit: far outside every widget, so nothing visible changes,
// and far from the ends of int, so that the offsets and sizes the paint adds
// (a label box, a disc's margin) stay defined.
constexpr int kPixelLimit = 1 << 24;

// A NaN pixel (an infinite limit times a zero scale) lies nowhere: it is put
// as far off as an infinitely negative one rather than at pixel 0.
inline int truncateToPixel(double v)
{
    if (std::isnan(v))
        return -kPixelLimit;
    return std::clamp(truncateToInt(v), -kPixelLimit, kPixelLimit);
}

// QRect(int(x), int(y), int(w), int(h)) with every value truncated toward
// zero; where that rectangle reaches beyond +-kPixelLimit its edges are moved
// to the limit (a box much larger than the widget still covers it, one far
// off stays far off). A NaN corner lies far off, a NaN size is 0.
inline QRect truncatedPixelRect(double x, double y, double w, double h)
{
    // Edges in 64 bits from values held within +-2^40: the sums cannot
    // overflow, and ordinary values come out as plain int truncation.
    constexpr double kFar = 1099511627776.0; // 2^40
    auto corner = [kFar](double v) {
        return std::isnan(v) ? qint64(-kFar) : qint64(std::clamp(v, -kFar, kFar));
    };
    auto size = [kFar](double v) { return std::isnan(v) ? 0 : qint64(std::clamp(v, -kFar, kFar)); };
    auto edge = [](qint64 v) { return int(std::clamp<qint64>(v, -kPixelLimit, kPixelLimit)); };
    const qint64 left = corner(x);
    const qint64 top = corner(y);
    const qint64 right = left + size(w) - 1;
    const qint64 bottom = top + size(h) - 1;
    return QRect(QPoint(edge(left), edge(top)), QPoint(edge(right), edge(bottom)));
}
