#pragma once

// The few drawing operations a session picture needs. The canvas records
// them in order; the one drawing is then played on a QPainter (PNG through
// QImage) or written as SVG text. Text is measured with the same font
// metrics in both, so both lay out alike.

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>

#include <vector>

class QPainter;

class RenderCanvas
{
public:
    void fillRect(const QRectF &r, const QColor &fill);
    void strokeRect(const QRectF &r, const QColor &pen, double width);
    void line(const QPointF &a, const QPointF &b, const QColor &pen, double width);
    void polyline(const QVector<QPointF> &points, const QColor &pen, double width);
    // Separate segments: points 0-1, 2-3, ...
    void segments(const QVector<QPointF> &ends, const QColor &pen, double width);
    void disc(const QPointF &centre, double radius, const QColor &fill);
    // Text with its baseline's left end at p (align -1), centre (0) or right end (1).
    void text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize,
              bool bold = false, int align = -1);
    // An image scaled into r without smoothing (one cell stays one block).
    void image(const QRectF &r, const QImage &img);
    // Everything after this is clipped to r, until unclip().
    void clip(const QRectF &r);
    void unclip();

    // Plays what was drawn on a painter.
    void paint(QPainter *painter) const;
    // What was drawn as an SVG document of this size.
    QByteArray svg(int width, int height) const;

    static QFont font(int pixelSize, bool bold);
    static double textWidth(const QString &s, int pixelSize, bool bold = false);

private:
    enum class Kind { FillRect, StrokeRect, Polyline, Segments, Disc, Text, Image, Clip, Unclip };

    // One recorded operation; each kind uses the fields it needs.
    struct Op {
        Kind kind;
        QRectF rect;             // rectangles, image, clip
        QVector<QPointF> points; // polyline, segments (a line is one segment), disc centre
        QColor colour;
        double size = 0.0; // pen width, or the disc's radius
        QString text;
        int pixelSize = 0;
        bool bold = false;
        int align = -1;
        QImage img;
        bool flatCap = false; // a line: flat ends on the painter, <line> in SVG
    };

    Op &add(Kind kind);
    static void paintOne(QPainter *painter, const Op &op);
    static QByteArray svgOne(const Op &op, int *clips, bool *clipOpen);

    std::vector<Op> ops;
};
