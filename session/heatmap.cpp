#include "session/heatmap.h"

#include <algorithm>
#include <cmath>

HeatMap::HeatMap() : cells(size_t(kCells) * kCells, 0.0) {}

qint8 HeatMap::cellOf(double metres)
{
    const double d = std::round(metres * 10.0);
    return qint8(std::clamp(d, -128.0, 127.0));
}

double HeatMap::maximum() const
{
    return *std::max_element(cells.begin(), cells.end());
}

bool HeatMap::extent(int *minX, int *maxX, int *minY, int *maxY) const
{
    bool any = false;
    for (int row = 0; row < kCells; ++row) {
        for (int col = 0; col < kCells; ++col) {
            if (cells[size_t(row) * kCells + col] <= 0)
                continue;
            const int x = col - 128;
            const int y = row - 128;
            if (!any) {
                *minX = *maxX = x;
                *minY = *maxY = y;
                any = true;
            }
            *minX = std::min(*minX, x);
            *maxX = std::max(*maxX, x);
            *minY = std::min(*minY, y);
            *maxY = std::max(*maxY, y);
        }
    }
    return any;
}

void HeatMap::hottest(qint8 *x, qint8 *y) const
{
    const auto it = std::max_element(cells.begin(), cells.end());
    const int i = int(it - cells.begin());
    *x = qint8(i % kCells - 128);
    *y = qint8(i / kCells - 128);
}
