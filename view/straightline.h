#pragma once

class QPainter;

// Draws the line from (x1, y1) to (x2, y2) with the painter's pen, exactly as
// QPainter::drawLine does. A horizontal or vertical line in a plain pen (solid,
// one pixel or cosmetic, square cap, no antialiasing, no scaling) covers just
// the pixels from one end to the other, both included; it is then filled as a
// one-pixel-wide rectangle, which the raster engine blends a row at a time
// instead of stepping its line rasteriser pixel by pixel, several times
// cheaper for the long translucent grid lines. Every other line is drawn by
// drawLine.
void drawStraightLine(QPainter *painter, int x1, int y1, int x2, int y2);
