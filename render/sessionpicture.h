#pragma once

// One picture of a session: the plane (x across, y away from the module, the
// module at the origin, equal metres on both axes) with its metre grid, the
// presence heat map, the trails, the areas with their occupied share, a
// legend in seconds and a caption. Drawn on a RenderCanvas, so PNG and SVG
// come out alike.

#include "render/rendercanvas.h"
#include "session/heatmap.h"
#include "session/sessionscan.h"
#include "session/trailstore.h"

#include <QColor>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QVector>

struct PictureArea {
    int number = 1;    // 1..3
    int type = 0;      // 0 detection, 1 exclusion
    QRectF rect;       // metres, any corner order
    double share = -1; // occupied share 0..1, -1 when not known
};

struct PictureOptions {
    QSize size{1200, 900};
    bool rangeGiven = false; // otherwise the window's default range, widened to the data
    double minX = -5, maxX = 5, minY = 0, maxY = 8;
    QString areaSource; // said in the caption
};

class SessionPicture
{
public:
    SessionPicture(const SessionFigures &figures, const HeatMap &heat, const TrailStore &trails,
                   const QVector<PictureArea> &areas, const PictureOptions &options);

    void draw(RenderCanvas &canvas) const;

    // Picture pixel of a plane point in metres.
    QPointF toPixel(double x, double y) const;
    QRectF plotRect() const { return plot; }
    double minX() const { return x0; }
    double maxX() const { return x1; }
    double minY() const { return y0; }
    double maxY() const { return y1; }
    QSize size() const { return options.size; }

    // Heat colour of a cell holding seconds, against the map's scale; fully
    // transparent for an empty cell.
    QColor heatColour(double seconds) const;
    // Colour of a fraction 0..1 along the heat scale.
    static QColor heatRamp(double fraction);
    static QColor areaFill(int type);
    static QColor trailColour(double age); // age 0 newest .. 1 oldest

    double scaleLow() const { return low; }
    double scaleHigh() const { return high; }

private:
    void drawGrid(RenderCanvas &c) const;
    void drawHeat(RenderCanvas &c) const;
    void drawTrails(RenderCanvas &c) const;
    // Fills under the heat map, outlines and labels above it.
    void drawAreas(RenderCanvas &c, bool outlines) const;
    void drawLegend(RenderCanvas &c) const;
    void drawCaption(RenderCanvas &c) const;

    const SessionFigures &figures;
    const HeatMap &heat;
    const TrailStore &trails;
    QVector<PictureArea> areas;
    PictureOptions options;
    double x0, x1, y0, y1;
    double scale = 1; // pixels per metre
    QRectF plot;
    double low = 0, high = 0; // heat scale, seconds
};

// Writes the picture as PNG or SVG (by svg) to path through a QSaveFile;
// false, with nothing written, when Ctrl-C or SIGTERM came (Interrupt).
bool savePicture(const SessionPicture &picture, const QString &path, bool svg, QString *error);
