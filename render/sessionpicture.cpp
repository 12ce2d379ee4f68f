#include "render/sessionpicture.h"

#include "cli/interrupt.h"

#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QSaveFile>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kLeft = 64, kRight = 170, kTop = 70, kBottom = 52;
const QColor kInk(30, 30, 40);
const QColor kGrid(0, 0, 0, 38);
const QColor kFrame(0, 0, 0, 150);
constexpr double kTrailWidth = 1.3;

QString secondsText(double s)
{
    if (s >= 100)
        return QString::number(s, 'f', 0);
    if (s >= 10)
        return QString::number(s, 'f', 1).remove(QRegularExpression("\\.0$"));
    return QString::number(s, 'g', 2);
}

QString durationText(qint64 ms)
{
    const qint64 s = ms / 1000;
    if (s < 60)
        return QString::number(ms / 1000.0, 'f', 1) + " s";
    if (s < 3600)
        return QString("%1 min %2 s").arg(s / 60).arg(s % 60);
    return QString("%1 h %2 min").arg(s / 3600).arg((s % 3600) / 60);
}

QString grouped(qint64 n)
{
    QString digits = QString::number(n);
    for (int i = digits.size() - 3; i > 0; i -= 3)
        digits.insert(i, ' ');
    return digits;
}

} // namespace

SessionPicture::SessionPicture(const SessionFigures &figures, const HeatMap &heat,
                               const TrailStore &trails, const QVector<PictureArea> &areas,
                               const PictureOptions &options)
    : figures(figures), heat(heat), trails(trails), areas(areas), options(options)
{
    x0 = options.minX;
    x1 = options.maxX;
    y0 = options.minY;
    y1 = options.maxY;
    if (!options.rangeGiven) {
        // Widen the window's default range to whatever the session holds.
        int ax, bx, ay, by;
        if (heat.extent(&ax, &bx, &ay, &by)) {
            x0 = std::min(x0, std::floor((ax - 0.5) * 0.1));
            x1 = std::max(x1, std::ceil((bx + 0.5) * 0.1));
            y0 = std::min(y0, std::floor((ay - 0.5) * 0.1));
            y1 = std::max(y1, std::ceil((by + 0.5) * 0.1));
        }
        for (const PictureArea &a : areas) {
            const QRectF r = a.rect.normalized();
            x0 = std::min(x0, std::floor(r.left()));
            x1 = std::max(x1, std::ceil(r.right()));
            y0 = std::min(y0, std::floor(r.top()));
            y1 = std::max(y1, std::ceil(r.bottom()));
        }
    }
    const QRectF avail(kLeft, kTop, options.size.width() - kLeft - kRight,
                       options.size.height() - kTop - kBottom);
    scale = std::min(avail.width() / (x1 - x0), avail.height() / (y1 - y0));
    const double w = (x1 - x0) * scale, h = (y1 - y0) * scale;
    plot = QRectF(avail.left() + (avail.width() - w) / 2, avail.top() + (avail.height() - h) / 2, w,
                  h);

    // The scale runs from three decades below the hottest cell's decade (but
    // not below 0.01 s) up to the hottest cell.
    high = heat.maximum();
    low = high > 0 ? std::max(std::pow(10.0, std::floor(std::log10(high)) - 3), 0.01) : 0.01;
}

QPointF SessionPicture::toPixel(double x, double y) const
{
    return QPointF(plot.left() + (x - x0) * scale, plot.bottom() - (y - y0) * scale);
}

QColor SessionPicture::heatRamp(double f)
{
    // Light yellow through orange to dark red.
    static const QColor stops[] = {QColor(255, 255, 178), QColor(254, 204, 92),
                                   QColor(253, 141, 60), QColor(240, 59, 32), QColor(189, 0, 38)};
    f = std::clamp(f, 0.0, 1.0) * 4.0;
    const int i = std::min(int(f), 3);
    const double t = f - i;
    const QColor &a = stops[i], &b = stops[i + 1];
    return QColor(int(std::lround(a.red() + (b.red() - a.red()) * t)),
                  int(std::lround(a.green() + (b.green() - a.green()) * t)),
                  int(std::lround(a.blue() + (b.blue() - a.blue()) * t)), 235);
}

QColor SessionPicture::heatColour(double seconds) const
{
    if (seconds <= 0)
        return QColor(0, 0, 0, 0);
    if (high <= low)
        return heatRamp(1.0);
    return heatRamp(std::log(std::max(seconds, low) / low) / std::log(high / low));
}

QColor SessionPicture::areaFill(int type)
{
    // The window's area colours.
    return type == 0 ? QColor(0, 0, 138, 100) : QColor(0, 100, 138, 100);
}

QColor SessionPicture::trailColour(double age)
{
    return QColor(0, 120, 50, int(std::lround(230 - 205 * std::clamp(age, 0.0, 1.0))));
}

void SessionPicture::draw(RenderCanvas &c) const
{
    c.fillRect(QRectF(0, 0, options.size.width(), options.size.height()), Qt::white);
    c.clip(plot);
    drawAreas(c, false);
    drawHeat(c);
    drawGrid(c);
    drawTrails(c);
    drawAreas(c, true);
    // The module, at the origin.
    const QPointF origin = toPixel(0, 0);
    c.disc(origin, 7, QColor(20, 20, 20));
    c.unclip();
    if (plot.contains(origin))
        c.text(origin + QPointF(10, -6), "module", kInk, 12);
    c.strokeRect(plot, kFrame, 1);
    drawLegend(c);
    drawCaption(c);
}

void SessionPicture::drawGrid(RenderCanvas &c) const
{
    // Labels every 1, 2, 5 or 10 m so that they stay apart; lines every metre.
    double step = 1;
    for (double s : {1.0, 2.0, 5.0, 10.0}) {
        step = s;
        if (s * scale >= 40)
            break;
    }
    for (double x = std::ceil(x0); x <= x1 + 1e-9; x += 1)
        c.line(toPixel(x, y0), toPixel(x, y1), x == 0 ? QColor(0, 0, 0, 70) : kGrid, 1);
    for (double y = std::ceil(y0); y <= y1 + 1e-9; y += 1)
        c.line(toPixel(x0, y), toPixel(x1, y), y == 0 ? QColor(0, 0, 0, 70) : kGrid, 1);
    c.unclip();
    for (double x = std::ceil(x0 / step) * step; x <= x1 + 1e-9; x += step)
        c.text(QPointF(toPixel(x, y0).x(), plot.bottom() + 18), QString::number(x), kInk, 13, false,
               0);
    for (double y = std::ceil(y0 / step) * step; y <= y1 + 1e-9; y += step)
        c.text(QPointF(plot.left() - 8, toPixel(x0, y).y() + 5), QString::number(y), kInk, 13,
               false, 1);
    c.text(QPointF(plot.right(), plot.bottom() + 38), "x (m)", kInk, 13, false, 1);
    c.text(QPointF(plot.left() - 8, plot.top() - 8), "y (m)", kInk, 13, false, 1);
    c.clip(plot);
}

void SessionPicture::drawHeat(RenderCanvas &c) const
{
    if (high <= 0)
        return;
    // The whole grid as one image, row 0 at the top (largest y), one pixel a cell.
    QImage img(HeatMap::kCells, HeatMap::kCells, QImage::Format_ARGB32);
    for (int row = 0; row < HeatMap::kCells; ++row) {
        const qint8 y = qint8(127 - row);
        QRgb *line = reinterpret_cast<QRgb *>(img.scanLine(row));
        for (int col = 0; col < HeatMap::kCells; ++col)
            line[col] = heatColour(heat.seconds(qint8(col - 128), y)).rgba();
    }
    // Cell v spans (v - 0.5) .. (v + 0.5) decimetres.
    const QPointF topLeft = toPixel(-12.85, 12.75);
    const QPointF bottomRight = toPixel(12.75, -12.85);
    c.image(QRectF(topLeft, bottomRight), img);
}

void SessionPicture::drawTrails(RenderCanvas &c) const
{
    const std::vector<TrailPoint> &points = trails.points();
    if (points.empty())
        return;
    const qint64 from = std::max(trails.windowStart(), points.front().ms);
    const qint64 to = trails.latest();
    const double span = std::max<double>(to - from, 1);
    // Segments sorted into a few steps of age, drawn oldest first.
    constexpr int kSteps = 12;
    QVector<QPointF> buckets[kSteps];
    const TrailPoint *last[TrailStore::kSlots] = {};
    for (const TrailPoint &p : points) {
        const TrailPoint *&prev = last[p.slot];
        if (p.ms >= from && !p.startsTrail && prev && prev->ms >= from) {
            const double age = (to - p.ms) / span;
            const int b = std::clamp(int(age * kSteps), 0, kSteps - 1);
            buckets[b].append(toPixel(prev->x * 0.1, prev->y * 0.1));
            buckets[b].append(toPixel(p.x * 0.1, p.y * 0.1));
        }
        prev = &p;
    }
    // Many hours of trails would cover the heat map: when the lines would
    // cover more than a quarter of the plot, they are drawn fainter in step.
    double length = 0;
    for (const QVector<QPointF> &b : buckets) {
        for (int i = 0; i + 1 < b.size(); i += 2)
            length += std::hypot(b[i + 1].x() - b[i].x(), b[i + 1].y() - b[i].y());
    }
    const double coverage = length * kTrailWidth / std::max(plot.width() * plot.height(), 1.0);
    const double faint = coverage > 0.25 ? 0.25 / coverage : 1.0;
    for (int b = kSteps - 1; b >= 0; --b) {
        if (buckets[b].isEmpty())
            continue;
        QColor colour = trailColour((b + 0.5) / kSteps);
        colour.setAlpha(std::max(4, int(colour.alpha() * faint)));
        c.segments(buckets[b], colour, kTrailWidth);
    }
}

void SessionPicture::drawAreas(RenderCanvas &c, bool outlines) const
{
    for (const PictureArea &a : areas) {
        const QRectF r = a.rect.normalized();
        const QRectF px(toPixel(r.left(), r.bottom()), toPixel(r.right(), r.top()));
        const QColor fill = areaFill(a.type);
        if (!outlines) {
            c.fillRect(px, fill);
            continue;
        }
        QColor border = fill;
        border.setAlpha(220);
        c.strokeRect(px, border, 2);
        const QString name =
            QString("%1 %2").arg(a.type == 0 ? "Detection" : "Exclusion").arg(a.number);
        const QString share = a.share < 0 ? QString("occupancy not reported")
                                          : QString("occupied %1 %").arg(a.share * 100, 0, 'f', 1);
        c.text(px.topLeft() + QPointF(5, 17), name, QColor(0, 0, 70), 14, true);
        c.text(px.topLeft() + QPointF(5, 34), share, QColor(0, 0, 70), 13);
    }
}

void SessionPicture::drawLegend(RenderCanvas &c) const
{
    const double left = plot.right() + 28;
    double y = plot.top() + 4;
    c.text(QPointF(left, y + 10), "Presence", kInk, 13, true);
    c.text(QPointF(left, y + 27), "s per 0.1 m cell", kInk, 12);
    y += 42;
    if (high <= 0) {
        c.text(QPointF(left, y + 12), "nobody reported", kInk, 12);
    } else {
        const double barH = std::max(40.0, std::min(260.0, plot.bottom() - y - 140));
        const double barW = 18;
        const int steps = 64;
        for (int i = 0; i < steps; ++i) {
            const double f = 1.0 - (i + 0.5) / steps;
            c.fillRect(QRectF(left, y + barH * i / steps, barW, barH / steps + 0.5), heatRamp(f));
        }
        c.strokeRect(QRectF(left, y, barW, barH), kFrame, 1);
        // Ticks at the powers of ten inside the scale, and at both ends.
        auto tick = [&](double s) {
            const double f = high > low ? std::log(s / low) / std::log(high / low) : 1.0;
            const double ty = y + barH * (1.0 - f);
            c.line(QPointF(left + barW, ty), QPointF(left + barW + 4, ty), kInk, 1);
            c.text(QPointF(left + barW + 7, ty + 4), secondsText(s), kInk, 12);
        };
        tick(high);
        if (high > low) {
            tick(low);
            for (double p = std::pow(10.0, std::ceil(std::log10(low))); p < high; p *= 10) {
                const double f = std::log(p / low) / std::log(high / low);
                if (f > 0.08 && f < 0.92)
                    tick(p);
            }
        }
        y += barH + 24;
    }
    // Trails and areas.
    c.line(QPointF(left, y), QPointF(left + 22, y), trailColour(0), 2);
    c.text(QPointF(left + 28, y + 4), "trail", kInk, 12);
    y += 20;
    c.fillRect(QRectF(left, y - 6, 22, 12), areaFill(0));
    c.text(QPointF(left + 28, y + 4), "Detection", kInk, 12);
    y += 20;
    c.fillRect(QRectF(left, y - 6, 22, 12), areaFill(1));
    c.text(QPointF(left + 28, y + 4), "Exclusion", kInk, 12);
}

void SessionPicture::drawCaption(RenderCanvas &c) const
{
    QString span = "no reports";
    if (figures.firstMs >= 0)
        span = QString("%1 \u2013 %2 (%3)")
                   .arg(formatLogTime(figures.firstMs).left(19),
                        formatLogTime(figures.lastMs).left(19),
                        durationText(figures.lastMs - figures.firstMs));
    c.text(QPointF(kLeft, 26), span, kInk, 17, true);
    QStringList parts;
    parts << QString("%1 reports (%2/s)")
                 .arg(grouped(figures.targetReports))
                 .arg(figures.reportsPerSecond(), 0, 'f', 1);
    parts << QString("at most %1 %2 at once")
                 .arg(figures.mostPeople)
                 .arg(figures.mostPeople == 1 ? "person" : "people");
    parts << QString("%1 bad frames").arg(grouped(figures.frames.badSums));
    if (figures.lines.truncatedDumps > 0)
        parts << QString("%1 truncated dumps").arg(grouped(figures.lines.truncatedDumps));
    if (trails.windowStart() > std::numeric_limits<qint64>::min())
        parts
            << QString("trails: last %1").arg(durationText(trails.latest() - trails.windowStart()));
    if (!options.areaSource.isEmpty())
        parts << "areas: " + options.areaSource;
    // Smaller type on narrow pictures; the last parts go when even that is too wide.
    const double room = options.size.width() - kLeft - 10;
    const QString separator = QStringLiteral("  \u00b7  ");
    int size = 13;
    while (size > 10 && RenderCanvas::textWidth(parts.join(separator), size) > room)
        --size;
    while (parts.size() > 1 && RenderCanvas::textWidth(parts.join(separator), size) > room)
        parts.removeLast();
    c.text(QPointF(kLeft, 50), parts.join(separator), kInk, size);
}

bool savePicture(const SessionPicture &picture, const QString &path, bool svg, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        *error = QString("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    RenderCanvas canvas;
    picture.draw(canvas);
    bool written;
    if (svg) {
        const QByteArray doc = canvas.svg(picture.size().width(), picture.size().height());
        written = file.write(doc) == doc.size();
    } else {
        QImage img(picture.size(), QImage::Format_ARGB32_Premultiplied);
        img.fill(Qt::white);
        {
            QPainter painter(&img);
            canvas.paint(&painter);
        }
        written = img.save(&file, "PNG");
    }
    // Ctrl-C while drawing: the QSaveFile is dropped, nothing half-written
    // (nor an old picture overwritten) remains.
    if (Interrupt::requested()) {
        *error = QStringLiteral("interrupted");
        return false;
    }
    if (!written || !file.commit()) {
        *error = QString("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}
