#pragma once

#include <QRectF>

// One detection area as the tool keeps it. rect is in metres; its top-left is
// normally the corner with the smaller x and the larger y (negative height)
// and it is never normalised.
struct AreaRecord {
    int index = 0; // 0..2 inside the tool, 1..3 on the wire
    int type = 0;  // 0 or 1
    QRectF rect;
    int status = 0; // 1 set, 2 not set, 0 unknown
};
