#include "view/paintbounds.h"

#include "view/truncation.h"
#include "view/xyaxis.h"

#include <QFont>
#include <QString>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace paintbounds
{

namespace
{

// Pixels beyond a glyph's advance that its ink may reach (bearings and
// antialiasing), generously.
// Labels and the crosshair text use digits, signs and brackets, whose
// bearings are a small part of the font's height.
int glyphSpill(const QFontMetrics &metrics)
{
    return metrics.height() / 4 + 2;
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

QRect anyText(QPoint baseline, const QString &text, int advance, const QFontMetrics &metrics)
{
    // Its ink rectangle (fallback fonts included), and the line's height
    // over its advance with the widest glyph's half to spare.
    const int spill = metrics.maxWidth() / 2 + 2;
    const QRect line(
        QPoint(baseline.x() - spill, baseline.y() - metrics.ascent() - 2),
        QPoint(baseline.x() + std::max(advance, 0) + spill, baseline.y() + metrics.descent() + 2));
    return line | metrics.boundingRect(text).translated(baseline).adjusted(-2, -2, 2, 2);
}

QRect axis(const XYAxis &axis, QPaintDevice *device)
{
    // Placed as XYAxis::draw places them: each label in a default font at
    // 14 points (whole multiples of the range) or 12 pixels, measured by its
    // ink rectangle; the label's ink is that rectangle moved to where the
    // label is drawn.
    QFont major;
    major.setPointSize(14);
    QFont minor;
    minor.setPixelSize(12);
    const QFontMetrics majorMetrics(major, device);
    const QFontMetrics minorMetrics(minor, device);

    const QRect strip = axis.axisRectangle();
    const QVector<int> &ticks = axis.tickPositionList();
    const QVector<QString> &labels = axis.tickLabelList();
    QRect bound;
    if (axis.axisPosition() == XYAxis::Bottom)
        bound = line(strip.left(), strip.top(), strip.right(), strip.top());
    else if (axis.axisPosition() == XYAxis::Left)
        bound = line(strip.right(), strip.top(), strip.right(), strip.bottom());
    else
        return bound;
    for (int i = 0; i < ticks.size() && i < labels.size(); ++i) {
        const QFontMetrics &metrics = axis.isMajorTick(i) ? majorMetrics : minorMetrics;
        const QRect ink = metrics.boundingRect(labels.at(i));
        const int h = metrics.height();
        const int w = ink.width();
        QPoint origin;
        if (axis.axisPosition() == XYAxis::Bottom) {
            const int x = ticks.at(i);
            bound |= line(x, strip.top(), x, strip.top() + 5);
            origin = QPoint(x - w / 2, strip.top() + 5 + h);
        } else {
            const int y = ticks.at(i);
            bound |= line(strip.right(), y, strip.right() - 5, y);
            origin = QPoint(strip.right() - w - 5, y + h / 2);
        }
        bound |= ink.translated(origin).adjusted(-2, -2, 2, 2);
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
