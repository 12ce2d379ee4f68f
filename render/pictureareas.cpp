#include "render/pictureareas.h"

#include "cli/areafile.h"

bool readPictureAreas(const QString &path, QVector<PictureArea> *areas, QString *error)
{
    AreaFile file;
    if (!AreaFile::load(path, &file, error))
        return false;
    for (const AreaEntry &e : file.areas) {
        if (e.kind == AreaEntry::Unset)
            continue;
        PictureArea a;
        a.number = e.number;
        a.type = e.moduleType();
        a.rect = QRectF(e.from, e.to);
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
