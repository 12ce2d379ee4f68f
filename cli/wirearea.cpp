#include "cli/wirearea.h"

#include <QPointF>
#include <QtMath>

#include <algorithm>

namespace
{

WireArea ordered(int type, int x1, int y1, int x2, int y2)
{
    WireArea a;
    a.type = type;
    a.left = std::min(x1, x2);
    a.right = std::max(x1, x2);
    a.top = std::max(y1, y2);
    a.bottom = std::min(y1, y2);
    return a;
}

} // namespace

bool WireArea::operator==(const WireArea &other) const
{
    if (type != other.type)
        return false;
    if (!defined())
        return true;
    return left == other.left && top == other.top && right == other.right && bottom == other.bottom;
}

QRectF WireArea::requestRect(const AreaEntry &entry)
{
    const double x1 = std::min(entry.from.x(), entry.to.x());
    const double x2 = std::max(entry.from.x(), entry.to.x());
    const double y1 = std::max(entry.from.y(), entry.to.y());
    const double y2 = std::min(entry.from.y(), entry.to.y());
    return QRectF(QPointF(x1, y1), QPointF(x2, y2));
}

QByteArray WireArea::requestPayload(const AreaEntry &entry)
{
    return frameformat::setAreaPayload(quint8(entry.number - 1), quint8(entry.moduleType()),
                                       requestRect(entry));
}

WireArea WireArea::expected(const AreaEntry &entry)
{
    if (entry.kind == AreaEntry::Unset)
        return WireArea();
    // The module keeps the corners as sent and reads back the first and the
    // opposite one (payload bytes 1, 2 and 5, 6).
    const QByteArray p = requestPayload(entry);
    using frameformat::signedByteAt;
    return ordered(entry.moduleType(), signedByteAt(p, 1), signedByteAt(p, 2), signedByteAt(p, 5),
                   signedByteAt(p, 6));
}

std::array<WireArea, 3> WireArea::fromReadAnswer(frameformat::ByteView frame)
{
    using frameformat::byteAt;
    using frameformat::signedByteAt;
    std::array<WireArea, 3> areas;
    for (int k = 0; k < 3; ++k) {
        const int at = 6 + 10 * k;
        const int type = byteAt(frame, at + 1);
        if (type == kNoArea) {
            areas[size_t(k)] = WireArea();
            continue;
        }
        areas[size_t(k)] = ordered(type, signedByteAt(frame, at + 2), signedByteAt(frame, at + 3),
                                   signedByteAt(frame, at + 6), signedByteAt(frame, at + 7));
    }
    return areas;
}

AreaEntry WireArea::toEntry(int number, const WireArea &area, bool *exact)
{
    AreaEntry entry;
    entry.number = number;
    if (exact)
        *exact = true;
    if (!area.defined()) {
        entry.kind = AreaEntry::Unset;
        return entry;
    }
    entry.kind = area.type == 1 ? AreaEntry::Exclude : AreaEntry::Detect;
    entry.from = QPointF(area.left / 10.0, area.top / 10.0);
    entry.to = QPointF(area.right / 10.0, area.bottom / 10.0);
    if (expected(entry) == area)
        return entry;

    // The window's encoding forms the far corner as a sum in metres and
    // truncates it, which can cut a decimetre off. Moving a corner a few
    // thousandths of a metre away from zero (which the truncation of the
    // corner itself ignores) makes the sum land on the intended decimetre;
    // x and y are independent, so each axis is searched on its own.
    auto away = [](int decimetres, int thousandths) {
        return decimetres / 10.0 + (decimetres < 0 ? -thousandths : thousandths) / 1000.0;
    };
    AreaEntry best = entry;
    bool xFound = false;
    bool yFound = false;
    for (int j = 0; j < 10 && !(xFound && yFound); ++j) {
        for (int k = 0; k < 10 && !(xFound && yFound); ++k) {
            AreaEntry candidate = entry;
            candidate.from = QPointF(away(area.left, j), away(area.top, j));
            candidate.to = QPointF(away(area.right, k), away(area.bottom, k));
            const WireArea got = expected(candidate);
            if (!xFound && got.left == area.left && got.right == area.right &&
                AreaFile::xInRange(candidate.from.x()) && AreaFile::xInRange(candidate.to.x())) {
                best.from.setX(candidate.from.x());
                best.to.setX(candidate.to.x());
                xFound = true;
            }
            if (!yFound && got.top == area.top && got.bottom == area.bottom &&
                AreaFile::yInRange(candidate.from.y()) && AreaFile::yInRange(candidate.to.y())) {
                best.from.setY(candidate.from.y());
                best.to.setY(candidate.to.y());
                yFound = true;
            }
        }
    }
    if (xFound && yFound && expected(best) == area)
        return best;
    if (exact)
        *exact = false;
    return entry;
}

QString WireArea::metres(int decimetres)
{
    const int magnitude = decimetres < 0 ? -decimetres : decimetres;
    return QString("%1%2.%3")
        .arg(decimetres < 0 ? "-" : "")
        .arg(magnitude / 10)
        .arg(magnitude % 10);
}

QString WireArea::text() const
{
    if (!defined())
        return QStringLiteral("unset");
    QString kind;
    if (type == 0)
        kind = QStringLiteral("detect");
    else if (type == 1)
        kind = QStringLiteral("exclude");
    else
        kind = QString("type %1").arg(type);
    return QString("%1 (%2, %3) to (%4, %5)")
        .arg(kind, metres(left), metres(top), metres(right), metres(bottom));
}
