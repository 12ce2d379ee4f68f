#pragma once

// The few drawing operations a session picture needs, with two back ends:
// a QPainter (PNG through QImage) and SVG written as text. Text is measured
// with the same font metrics in both, so both lay out alike.

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>

class QPainter;
class QIODevice;

class RenderCanvas
{
public:
    virtual ~RenderCanvas() = default;

    virtual void fillRect(const QRectF &r, const QColor &fill) = 0;
    virtual void strokeRect(const QRectF &r, const QColor &pen, double width) = 0;
    virtual void line(const QPointF &a, const QPointF &b, const QColor &pen, double width) = 0;
    virtual void polyline(const QVector<QPointF> &points, const QColor &pen, double width) = 0;
    // Separate segments: points 0-1, 2-3, ...
    virtual void segments(const QVector<QPointF> &ends, const QColor &pen, double width) = 0;
    virtual void disc(const QPointF &centre, double radius, const QColor &fill) = 0;
    // Text with its baseline's left end at p (align -1), centre (0) or right end (1).
    virtual void text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize,
                      bool bold = false, int align = -1) = 0;
    // An image scaled into r without smoothing (one cell stays one block).
    virtual void image(const QRectF &r, const QImage &img) = 0;
    // Everything after this is clipped to r, until unclip().
    virtual void clip(const QRectF &r) = 0;
    virtual void unclip() = 0;

    static QFont font(int pixelSize, bool bold);
    static double textWidth(const QString &s, int pixelSize, bool bold = false);
};

class PainterCanvas : public RenderCanvas
{
public:
    explicit PainterCanvas(QPainter *painter);

    void fillRect(const QRectF &r, const QColor &fill) override;
    void strokeRect(const QRectF &r, const QColor &pen, double width) override;
    void line(const QPointF &a, const QPointF &b, const QColor &pen, double width) override;
    void polyline(const QVector<QPointF> &points, const QColor &pen, double width) override;
    void segments(const QVector<QPointF> &ends, const QColor &pen, double width) override;
    void disc(const QPointF &centre, double radius, const QColor &fill) override;
    void text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize, bool bold,
              int align) override;
    void image(const QRectF &r, const QImage &img) override;
    void clip(const QRectF &r) override;
    void unclip() override;

private:
    QPainter *painter;
};

// Collects SVG elements; save() writes the document.
class SvgCanvas : public RenderCanvas
{
public:
    SvgCanvas(int width, int height);

    void fillRect(const QRectF &r, const QColor &fill) override;
    void strokeRect(const QRectF &r, const QColor &pen, double width) override;
    void line(const QPointF &a, const QPointF &b, const QColor &pen, double width) override;
    void polyline(const QVector<QPointF> &points, const QColor &pen, double width) override;
    void segments(const QVector<QPointF> &ends, const QColor &pen, double width) override;
    void disc(const QPointF &centre, double radius, const QColor &fill) override;
    void text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize, bool bold,
              int align) override;
    void image(const QRectF &r, const QImage &img) override;
    void clip(const QRectF &r) override;
    void unclip() override;

    QByteArray document() const;

private:
    QByteArray body;
    int width, height;
    int clips = 0;
    bool clipOpen = false;
};
