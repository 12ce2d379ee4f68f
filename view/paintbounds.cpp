#include "view/paintbounds.h"

#include "view/truncation.h"
#include "view/xyaxis.h"

#include <QFont>

#include <algorithm>
#include <cmath>

namespace paintbounds
{

namespace
{

// Pixels beyond a glyph's advance that its ink may reach (bearings and
// antialiasing), generously.
int glyphSpill(const QFontMetrics &metrics)
{
    return metrics.maxWidth() / 2 + 2;
}

// Coordinates beyond this are not worked out; their bound is the widget.
constexpr double kFar = 1.0e6;

} // namespace

QRect text(QPoint baseline, int advance, const QFontMetrics &metrics)
{
    const int spill = glyphSpill(metrics);
    return QRect(
        QPoint(baseline.x() - spill, baseline.y() - metrics.ascent() - 2),
        QPoint(baseline.x() + std::max(advance, 0) + spill, baseline.y() + metrics.descent() + 2));
}

QRect axis(const XYAxis &axis, QPaintDevice *device)
{
    // The labels use a default font at 14 points (whole multiples of the
    // range) or 12 pixels; the larger of the two bounds both.
    QFont major;
    major.setPointSize(14);
    QFont minor;
    minor.setPixelSize(12);
    const QFontMetrics big(major, device);
    const QFontMetrics small(minor, device);
    const int height = std::max(big.height(), small.height());
    const int ascent = std::max(big.ascent(), small.ascent());
    const int descent = std::max(big.descent(), small.descent());
    const int charWidth = std::max(big.maxWidth(), small.maxWidth());
    const int spill = charWidth / 2 + 2;

    const QRect strip = axis.axisRectangle();
    const QVector<int> &ticks = axis.tickPositionList();
    const QVector<QString> &labels = axis.tickLabelList();
    QRect bound;
    if (axis.axisPosition() == XYAxis::Bottom) {
        bound = line(strip.left(), strip.top(), strip.right(), strip.top());
        const int baseline = strip.top() + 5 + height;
        for (int i = 0; i < ticks.size(); ++i) {
            const int x = ticks.at(i);
            const int half = (labels.value(i).size() * charWidth) / 2 + spill;
            bound |= line(x, strip.top(), x, strip.top() + 5);
            bound |= QRect(QPoint(x - half, baseline - ascent - 2),
                           QPoint(x + half, baseline + descent + 2));
        }
    } else if (axis.axisPosition() == XYAxis::Left) {
        bound = line(strip.right(), strip.top(), strip.right(), strip.bottom());
        for (int i = 0; i < ticks.size(); ++i) {
            const int y = ticks.at(i);
            const int width = labels.value(i).size() * charWidth;
            const int baseline = y + height / 2;
            bound |= line(strip.right(), y, strip.right() - 5, y);
            bound |= QRect(QPoint(strip.right() - 5 - width - spill, baseline - ascent - 2),
                           QPoint(strip.right() - 5 + spill, baseline + descent + 2));
        }
    }
    return bound;
}

QRect target(QPointF centre, int discMargin, int labelAdvance, const QFontMetrics &metrics,
             const QRect &widget)
{
    if (!(std::fabs(centre.x()) < kFar && std::fabs(centre.y()) < kFar) || labelAdvance > kFar)
        return widget;
    // As the paint places them: the disc image at the truncated corner less
    // its margin, the label box 40 left of and 30 above the centre, the text
    // centred on the box's 100 pixels, baseline 14 below its top.
    const QPoint disc(truncateToInt(centre.x() - 10) - discMargin,
                      truncateToInt(centre.y() - 10) - discMargin);
    const int discSide = 20 + 2 * discMargin;
    const QPoint corner(truncateToInt(centre.x() - 40), truncateToInt(centre.y() - 30));
    QRect bound(disc, QSize(discSide, discSide));
    bound |= QRect(corner, QSize(100, 19));
    bound |=
        text(QPoint(corner.x() + (100 - labelAdvance) / 2, corner.y() + 14), labelAdvance, metrics);
    return bound.adjusted(-1, -1, 1, 1);
}

QRect line(int x1, int y1, int x2, int y2)
{
    return QRect(QPoint(std::min(x1, x2) - 1, std::min(y1, y2) - 1),
                 QPoint(std::max(x1, x2) + 1, std::max(y1, y2) + 1));
}

} // namespace paintbounds
