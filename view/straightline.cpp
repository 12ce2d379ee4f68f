#include "view/straightline.h"

#include <QPainter>
#include <QPen>

#include <algorithm>

namespace
{

bool isPlainPen(const QPainter *painter)
{
    const QPen &pen = painter->pen();
    return pen.style() == Qt::SolidLine && pen.brush().style() == Qt::SolidPattern &&
           pen.capStyle() == Qt::SquareCap && pen.widthF() <= 1.0 &&
           !painter->testRenderHint(QPainter::Antialiasing) &&
           painter->deviceTransform().type() <= QTransform::TxTranslate;
}

} // namespace

void drawStraightLine(QPainter *painter, int x1, int y1, int x2, int y2)
{
    if ((x1 != x2 && y1 != y2) || !isPlainPen(painter)) {
        painter->drawLine(x1, y1, x2, y2);
        return;
    }
    const int left = std::min(x1, x2);
    const int top = std::min(y1, y2);
    const int width = std::max(x1, x2) - left + 1;
    const int height = std::max(y1, y2) - top + 1;
    painter->fillRect(left, top, width, height, painter->pen().color());
}
