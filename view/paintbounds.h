#pragma once

#include <QFontMetrics>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QString>

class XYAxis;
class QPaintDevice;

// Conservative pixel bounds of what the plot paints, so that an update can
// name only the pixels that change and a paint can skip what lies wholly
// outside the pixels it repaints. Every bound holds all pixels the painting
// may touch (antialiased edges and glyph overhang included); a bound that
// cannot be worked out safely is the whole widget.
namespace paintbounds
{

// A text of digits, signs and brackets (a target label, the crosshair's
// values) drawn with its baseline starting at `baseline`, `advance` pixels
// wide.
QRect text(QPoint baseline, int advance, const QFontMetrics &metrics);

// Any text (the legend's translated words) drawn with its baseline starting
// at `baseline`.
QRect anyText(QPoint baseline, const QString &text, int advance, const QFontMetrics &metrics);

// Everything XYAxis::draw paints for the axis on `device`: the axis line,
// the tick marks and the tick labels.
QRect axis(const XYAxis &axis, QPaintDevice *device);

// A target at widget pixel `centre`: its 20-pixel disc (copied from an image
// with `discMargin` pixels round it) and its label box and text, the text
// `labelAdvance` pixels wide. The whole of `widget` when the target is too
// far out to compute safely.
QRect target(QPointF centre, int discMargin, int labelAdvance, const QFontMetrics &metrics,
             const QRect &widget);

// A one-pixel straight line, with a pixel to spare on each side.
QRect line(int x1, int y1, int x2, int y2);

} // namespace paintbounds
