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
QByteArray colourAttributes(const char *what, const QColor &c)
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

RenderCanvas::Op &RenderCanvas::add(Kind kind)
{
    ops.emplace_back();
    ops.back().kind = kind;
    return ops.back();
}

void RenderCanvas::fillRect(const QRectF &r, const QColor &fill)
{
    Op &op = add(Kind::FillRect);
    op.rect = r;
    op.colour = fill;
}

void RenderCanvas::strokeRect(const QRectF &r, const QColor &pen, double width)
{
    Op &op = add(Kind::StrokeRect);
    op.rect = r;
    op.colour = pen;
    op.size = width;
}

void RenderCanvas::line(const QPointF &a, const QPointF &b, const QColor &pen, double width)
{
    Op &op = add(Kind::Segments);
    op.points = {a, b};
    op.colour = pen;
    op.size = width;
    op.flatCap = true;
}

void RenderCanvas::polyline(const QVector<QPointF> &points, const QColor &pen, double width)
{
    Op &op = add(Kind::Polyline);
    op.points = points;
    op.colour = pen;
    op.size = width;
}

void RenderCanvas::segments(const QVector<QPointF> &ends, const QColor &pen, double width)
{
    Op &op = add(Kind::Segments);
    op.points = ends;
    op.colour = pen;
    op.size = width;
}

void RenderCanvas::disc(const QPointF &centre, double radius, const QColor &fill)
{
    Op &op = add(Kind::Disc);
    op.points = {centre};
    op.colour = fill;
    op.size = radius;
}

void RenderCanvas::text(const QPointF &p, const QString &s, const QColor &colour, int pixelSize,
                        bool bold, int align)
{
    Op &op = add(Kind::Text);
    op.points = {p};
    op.text = s;
    op.colour = colour;
    op.pixelSize = pixelSize;
    op.bold = bold;
    op.align = align;
}

void RenderCanvas::image(const QRectF &r, const QImage &img)
{
    Op &op = add(Kind::Image);
    op.rect = r;
    op.img = img;
}

void RenderCanvas::clip(const QRectF &r)
{
    add(Kind::Clip).rect = r;
}

void RenderCanvas::unclip()
{
    add(Kind::Unclip);
}

void RenderCanvas::paint(QPainter *painter) const
{
    painter->setRenderHint(QPainter::Antialiasing, true);
    painter->setRenderHint(QPainter::TextAntialiasing, true);
    for (const Op &op : ops)
        paintOne(painter, op);
}

void RenderCanvas::paintOne(QPainter *painter, const Op &op)
{
    switch (op.kind) {
    case Kind::FillRect:
        painter->fillRect(op.rect, op.colour);
        break;
    case Kind::StrokeRect:
        painter->setPen(QPen(op.colour, op.size));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(op.rect);
        break;
    case Kind::Polyline:
        painter->setPen(QPen(op.colour, op.size, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        painter->drawPolyline(op.points.constData(), op.points.size());
        break;
    case Kind::Segments:
        painter->setPen(
            QPen(op.colour, op.size, Qt::SolidLine, op.flatCap ? Qt::FlatCap : Qt::RoundCap));
        painter->drawLines(op.points.constData(), op.points.size() / 2);
        break;
    case Kind::Disc:
        painter->setPen(Qt::NoPen);
        painter->setBrush(op.colour);
        painter->drawEllipse(op.points.first(), op.size, op.size);
        break;
    case Kind::Text: {
        const QFont f = font(op.pixelSize, op.bold);
        painter->setFont(f);
        painter->setPen(op.colour);
        const double w = QFontMetricsF(f).horizontalAdvance(op.text);
        const QPointF p = op.points.first();
        const double x = op.align < 0 ? p.x() : op.align == 0 ? p.x() - w / 2 : p.x() - w;
        painter->drawText(QPointF(x, p.y()), op.text);
        break;
    }
    case Kind::Image: {
        const bool smooth = painter->testRenderHint(QPainter::SmoothPixmapTransform);
        painter->setRenderHint(QPainter::SmoothPixmapTransform, false);
        painter->drawImage(op.rect, op.img);
        painter->setRenderHint(QPainter::SmoothPixmapTransform, smooth);
        break;
    }
    case Kind::Clip:
        painter->save();
        painter->setClipRect(op.rect);
        break;
    case Kind::Unclip:
        painter->restore();
        break;
    }
}

QByteArray RenderCanvas::svg(int width, int height) const
{
    QByteArray out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                     QByteArray::number(width) + "\" height=\"" + QByteArray::number(height) +
                     "\" viewBox=\"0 0 " + QByteArray::number(width) + " " +
                     QByteArray::number(height) +
                     "\" font-family=\"WenQuanYi Micro Hei, sans-serif\">\n";
    int clips = 0;
    bool clipOpen = false;
    for (const Op &op : ops)
        out += svgOne(op, &clips, &clipOpen);
    if (clipOpen)
        out += "</g>\n";
    out += "</svg>\n";
    return out;
}

QByteArray RenderCanvas::svgOne(const Op &op, int *clips, bool *clipOpen)
{
    const QRectF &r = op.rect;
    const QByteArray box = "x=\"" + num(r.x()) + "\" y=\"" + num(r.y()) + "\" width=\"" +
                           num(r.width()) + "\" height=\"" + num(r.height()) + "\"";
    const QByteArray stroke =
        colourAttributes("stroke", op.colour) + " stroke-width=\"" + num(op.size) + "\"";
    QByteArray out;
    switch (op.kind) {
    case Kind::FillRect:
        return "<rect " + box + " " + colourAttributes("fill", op.colour) + "/>\n";
    case Kind::StrokeRect:
        return "<rect " + box + " fill=\"none\" " + stroke + "/>\n";
    case Kind::Polyline:
        out = "<polyline fill=\"none\" " + stroke +
              " stroke-linecap=\"round\" stroke-linejoin=\"round\" points=\"";
        for (const QPointF &p : op.points)
            out += num(p.x()) + "," + num(p.y()) + " ";
        return out + "\"/>\n";
    case Kind::Segments:
        if (op.flatCap) {
            const QPointF &a = op.points.at(0);
            const QPointF &b = op.points.at(1);
            return "<line x1=\"" + num(a.x()) + "\" y1=\"" + num(a.y()) + "\" x2=\"" + num(b.x()) +
                   "\" y2=\"" + num(b.y()) + "\" " + stroke + "/>\n";
        }
        if (op.points.size() < 2)
            return QByteArray();
        out = "<path fill=\"none\" " + stroke + " stroke-linecap=\"round\" d=\"";
        for (int i = 0; i + 1 < op.points.size(); i += 2)
            out += "M" + num(op.points[i].x()) + " " + num(op.points[i].y()) + "L" +
                   num(op.points[i + 1].x()) + " " + num(op.points[i + 1].y());
        return out + "\"/>\n";
    case Kind::Disc: {
        const QPointF &c = op.points.first();
        return "<circle cx=\"" + num(c.x()) + "\" cy=\"" + num(c.y()) + "\" r=\"" + num(op.size) +
               "\" " + colourAttributes("fill", op.colour) + "/>\n";
    }
    case Kind::Text: {
        const QPointF &p = op.points.first();
        const char *anchor = op.align < 0 ? "start" : op.align == 0 ? "middle" : "end";
        return "<text x=\"" + num(p.x()) + "\" y=\"" + num(p.y()) + "\" font-size=\"" +
               QByteArray::number(op.pixelSize) + "\" text-anchor=\"" + anchor +
               "\" xml:space=\"preserve\" " + (op.bold ? "font-weight=\"bold\" " : "") +
               colourAttributes("fill", op.colour) + ">" + escaped(op.text) + "</text>\n";
    }
    case Kind::Image: {
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        op.img.save(&buffer, "PNG");
        return "<image " + box +
               " preserveAspectRatio=\"none\" image-rendering=\"optimizeSpeed\" "
               "style=\"image-rendering:pixelated\" "
               "href=\"data:image/png;base64," +
               png.toBase64() + "\"/>\n";
    }
    case Kind::Clip: {
        const QByteArray id = "clip" + QByteArray::number(++*clips);
        *clipOpen = true;
        return "<clipPath id=\"" + id + "\"><rect " + box + "/></clipPath>\n<g clip-path=\"url(#" +
               id + ")\">\n";
    }
    case Kind::Unclip:
        out = *clipOpen ? "</g>\n" : "";
        *clipOpen = false;
        return out;
    }
    return out;
}
