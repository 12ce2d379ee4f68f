#include "cli/pictureareas.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{

bool readCorner(const QJsonValue &v, QPointF *p)
{
    if (v.isArray()) {
        const QJsonArray a = v.toArray();
        if (a.size() != 2 || !a[0].isDouble() || !a[1].isDouble())
            return false;
        *p = QPointF(a[0].toDouble(), a[1].toDouble());
        return true;
    }
    if (v.isObject()) {
        const QJsonObject o = v.toObject();
        if (!o.value("x").isDouble() || !o.value("y").isDouble())
            return false;
        *p = QPointF(o.value("x").toDouble(), o.value("y").toDouble());
        return true;
    }
    return false;
}

// Line and column (from 1) of a byte offset.
QString position(const QByteArray &text, int offset)
{
    int line = 1, column = 1;
    for (int i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return QString("line %1, column %2").arg(line).arg(column);
}

} // namespace

bool readPictureAreas(const QString &path, QVector<PictureArea> *areas, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QString("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    const QByteArray text = file.read(1 << 20);
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = QString("%1: %2: %3")
                     .arg(path, position(text, parseError.offset), parseError.errorString());
        return false;
    }
    const QJsonValue list = doc.object().value("areas");
    if (!doc.isObject() || !list.isArray()) {
        *error = QString("%1: \"areas\": missing or not a list").arg(path);
        return false;
    }
    bool seen[3] = {false, false, false};
    const QJsonArray entries = list.toArray();
    for (int i = 0; i < entries.size(); ++i) {
        const QJsonObject e = entries[i].toObject();
        const QString where = QString("%1: areas[%2]").arg(path).arg(i);
        const int number = e.value("number").toInt(0);
        if (!entries[i].isObject() || number < 1 || number > 3) {
            *error = where + ": \"number\" must be 1, 2 or 3";
            return false;
        }
        if (seen[number - 1]) {
            *error = where + QString(": area %1 appears twice").arg(number);
            return false;
        }
        seen[number - 1] = true;
        const QString type = e.value("type").toString();
        if (type == "unset")
            continue;
        if (type != "detect" && type != "exclude") {
            *error = where + ": \"type\" must be \"detect\", \"exclude\" or \"unset\"";
            return false;
        }
        QPointF from, to;
        if (!readCorner(e.value("from"), &from) || !readCorner(e.value("to"), &to)) {
            *error = where + ": \"from\" and \"to\" must be corners [x, y] in metres";
            return false;
        }
        for (const QPointF &p : {from, to}) {
            if (p.x() < -8 || p.x() > 8 || p.y() < 0 || p.y() > 8) {
                *error = where + ": corners must lie within x -8..8 m and y 0..8 m";
                return false;
            }
        }
        PictureArea a;
        a.number = number;
        a.type = type == "detect" ? 0 : 1;
        a.rect = QRectF(from, to);
        areas->append(a);
    }
    return true;
}

QVector<PictureArea> loggedPictureAreas(const SessionFigures &figures)
{
    QVector<PictureArea> areas;
    if (!figures.haveAreas)
        return areas;
    for (int i = 0; i < 3; ++i) {
        const frameformat::AreaReport &r = figures.areas[size_t(i)];
        if (r.type == 2)
            continue;
        PictureArea a;
        a.number = i + 1;
        a.type = r.type;
        a.rect = r.rect;
        areas.append(a);
    }
    return areas;
}

void setOccupiedShares(QVector<PictureArea> *areas, const SessionFigures &figures)
{
    for (PictureArea &a : *areas)
        a.share = figures.occupiedShare(a.number - 1);
}
