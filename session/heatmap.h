#pragma once

// Presence time per 0.1 m cell over the whole plane the wire can carry
// (-12.8 .. 12.7 m on both axes): one cell per pair of coordinate bytes, so a
// reported point falls into its cell without any arithmetic and the grid has
// a fixed size whatever the length of the session.

#include <QtGlobal>

#include <vector>

class HeatMap
{
public:
    static constexpr int kCells = 256;       // per axis
    static constexpr double kCellSize = 0.1; // metres

    HeatMap();

    // Adds seconds to the cell of a point given in decimetres as sent.
    void add(qint8 x, qint8 y, double seconds)
    {
        cells[index(x, y)] += seconds;
        total += seconds;
    }

    double seconds(qint8 x, qint8 y) const { return cells[index(x, y)]; }
    // Cell of a plane point in metres. The cell of decimetre v is centred on
    // v * 0.1 m, so a reported point lies in the middle of its cell.
    static qint8 cellOf(double metres);
    // Column (or row) index 0..255 of a decimetre value.
    static int column(qint8 v) { return int(v) + 128; }

    double maximum() const;
    double totalSeconds() const { return total; }
    // Extent of the cells that hold any time, in decimetres; false when empty.
    bool extent(int *minX, int *maxX, int *minY, int *maxY) const;
    // The cell holding the most time (the first one found on a tie).
    void hottest(qint8 *x, qint8 *y) const;

private:
    static int index(qint8 x, qint8 y) { return (int(y) + 128) * kCells + (int(x) + 128); }

    std::vector<double> cells;
    double total = 0;
};
