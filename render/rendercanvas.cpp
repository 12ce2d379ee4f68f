#include "render/rendercanvas.h"

#include <QBuffer>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

namespace
{

QByteArray num(double v)
{
    return QByteArray::number(v, 'f', 2);
}

// fill="#rrggbb" fill-opacity="a" (or the stroke form).
QByteArray paint(const char *what, const QColor &c)
{
    QByteArray out = QByteArray(what) + "=\"" + c.name(QColor::HexRgb).toLatin1() + "\"";
    if (c.alpha() < 255)
        out +=
            QByteArray(" ") + what + "-opacity=\"" + QByteArray::number(c.alphaF(), 'f', 3) + "\"";
    return out;
}

QByteArray escaped(const QString &s)
{
    return s.toHtmlEscaped().toUtf8();
}

} // namespace

QFont RenderCanvas::font(int pixelSize, bool bold)
{
    QFont f(QStringLiteral("WenQuanYi Micro Hei"));
    f.setStyleHint(QFont::SansSerif);
    f.setPixelSize(pixelSize);
    f.setBold(bold);
    return f;
}

double RenderCanvas::textWidth(const QString &s, int pixelSize, bool bold)
{
    return QFontMetricsF(font(pixelSize, bold)).horizontalAdvance(s);
}

PainterCanvas::PainterCanvas(QPainter *painter) : painter(painter)
{
    painter->setRenderHint(QPainter::Antialiasing, true);
    painter->setRenderHint(QPainter::TextAntialiasing, true);
}

void PainterCanvas::fillRect(const QRectF &r, const QColor &fill)
{
    painter->fillRect(r, fill);
}

void PainterCanvas::strokeRect(const QRectF &r, const QColor &pen, double width)
{
    painter->setPen(QPen(pen, width));
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(r);
}

void PainterCanvas::line(const QPointF &a, const QPointF &b, const QColor &pen, double width)
{
    painter->setPen(QPen(pen, width, Qt::SolidLine, Qt::FlatCap));
    painter->drawLine(a, b);
}

void PainterCanvas::polyline(const QVector<QPointF> &points, const QColor &pen, double width)
{
    painter->setPen(QPen(pen, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter->setBrush(Qt::NoBrush);
    painter->drawPolyline(points.constData(), points.size());
}

void PainterCanvas::segments(const QVector<QPointF> &ends, const QColor &pen, double width)
{
    painter->setPen(QPen(pen, width, Qt::SolidLine, Qt::RoundCap));
    painter->drawLines(ends.constData(), ends.size() / 2);
}

void PainterCanvas::disc(const QPointF &centre, double radius, const QColor &fill)
{
    painter->setPen(Qt::NoPen);
    painter->setBrush(fill);
    painter->drawEllipse(centre, radius, radius);
}

void PainterCanvas::text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize,
                         bool bold, int align)
{
    const QFont f = font(pixelSize, bold);
    painter->setFont(f);
    painter->setPen(colour);
    const double w = QFontMetricsF(f).horizontalAdvance(s);
    const double x = align < 0 ? p.x() : align == 0 ? p.x() - w / 2 : p.x() - w;
    painter->drawText(QPointF(x, p.y()), s);
}

void PainterCanvas::image(const QRectF &r, const QImage &img)
{
    const bool smooth = painter->testRenderHint(QPainter::SmoothPixmapTransform);
    painter->setRenderHint(QPainter::SmoothPixmapTransform, false);
    painter->drawImage(r, img);
    painter->setRenderHint(QPainter::SmoothPixmapTransform, smooth);
}

void PainterCanvas::clip(const QRectF &r)
{
    painter->save();
    painter->setClipRect(r);
}

void PainterCanvas::unclip()
{
    painter->restore();
}

SvgCanvas::SvgCanvas(int width, int height) : width(width), height(height) {}

void SvgCanvas::fillRect(const QRectF &r, const QColor &fill)
{
    body += "<rect x=\"" + num(r.x()) + "\" y=\"" + num(r.y()) + "\" width=\"" + num(r.width()) +
            "\" height=\"" + num(r.height()) + "\" " + paint("fill", fill) + "/>\n";
}

void SvgCanvas::strokeRect(const QRectF &r, const QColor &pen, double width)
{
    body += "<rect x=\"" + num(r.x()) + "\" y=\"" + num(r.y()) + "\" width=\"" + num(r.width()) +
            "\" height=\"" + num(r.height()) + "\" fill=\"none\" " + paint("stroke", pen) +
            " stroke-width=\"" + num(width) + "\"/>\n";
}

void SvgCanvas::line(const QPointF &a, const QPointF &b, const QColor &pen, double width)
{
    body += "<line x1=\"" + num(a.x()) + "\" y1=\"" + num(a.y()) + "\" x2=\"" + num(b.x()) +
            "\" y2=\"" + num(b.y()) + "\" " + paint("stroke", pen) + " stroke-width=\"" +
            num(width) + "\"/>\n";
}

void SvgCanvas::polyline(const QVector<QPointF> &points, const QColor &pen, double width)
{
    body += "<polyline fill=\"none\" " + paint("stroke", pen) + " stroke-width=\"" + num(width) +
            "\" stroke-linecap=\"round\" stroke-linejoin=\"round\" points=\"";
    for (const QPointF &p : points)
        body += num(p.x()) + "," + num(p.y()) + " ";
    body += "\"/>\n";
}

void SvgCanvas::segments(const QVector<QPointF> &ends, const QColor &pen, double width)
{
    if (ends.size() < 2)
        return;
    body += "<path fill=\"none\" " + paint("stroke", pen) + " stroke-width=\"" + num(width) +
            "\" stroke-linecap=\"round\" d=\"";
    for (int i = 0; i + 1 < ends.size(); i += 2)
        body += "M" + num(ends[i].x()) + " " + num(ends[i].y()) + "L" + num(ends[i + 1].x()) + " " +
                num(ends[i + 1].y());
    body += "\"/>\n";
}

void SvgCanvas::disc(const QPointF &centre, double radius, const QColor &fill)
{
    body += "<circle cx=\"" + num(centre.x()) + "\" cy=\"" + num(centre.y()) + "\" r=\"" +
            num(radius) + "\" " + paint("fill", fill) + "/>\n";
}

void SvgCanvas::text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize,
                     bool bold, int align)
{
    const char *anchor = align < 0 ? "start" : align == 0 ? "middle" : "end";
    body += "<text x=\"" + num(p.x()) + "\" y=\"" + num(p.y()) + "\" font-size=\"" +
            QByteArray::number(pixelSize) + "\" text-anchor=\"" + anchor +
            "\" xml:space=\"preserve\" " + (bold ? "font-weight=\"bold\" " : "") +
            paint("fill", colour) + ">" + escaped(s) + "</text>\n";
}

void SvgCanvas::image(const QRectF &r, const QImage &img)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    img.save(&buffer, "PNG");
    body += "<image x=\"" + num(r.x()) + "\" y=\"" + num(r.y()) + "\" width=\"" + num(r.width()) +
            "\" height=\"" + num(r.height()) +
            "\" preserveAspectRatio=\"none\" image-rendering=\"optimizeSpeed\" "
            "style=\"image-rendering:pixelated\" "
            "href=\"data:image/png;base64," +
            png.toBase64() + "\"/>\n";
}

void SvgCanvas::clip(const QRectF &r)
{
    const QByteArray id = "clip" + QByteArray::number(++clips);
    body += "<clipPath id=\"" + id + "\"><rect x=\"" + num(r.x()) + "\" y=\"" + num(r.y()) +
            "\" width=\"" + num(r.width()) + "\" height=\"" + num(r.height()) +
            "\"/></clipPath>\n<g clip-path=\"url(#" + id + ")\">\n";
    clipOpen = true;
}

void SvgCanvas::unclip()
{
    if (clipOpen)
        body += "</g>\n";
    clipOpen = false;
}

QByteArray SvgCanvas::document() const
{
    QByteArray out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                     QByteArray::number(width) + "\" height=\"" + QByteArray::number(height) +
                     "\" viewBox=\"0 0 " + QByteArray::number(width) + " " +
                     QByteArray::number(height) +
                     "\" font-family=\"WenQuanYi Micro Hei, sans-serif\">\n";
    out += body;
    if (clipOpen)
        out += "</g>\n";
    out += "</svg>\n";
    return out;
}
