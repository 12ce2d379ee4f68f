#pragma once

// Areas for the picture from an area file (--areas site.json) or from the
// module's read-area answer in the log.

#include "render/sessionpicture.h"
#include "session/sessionscan.h"

#include <QString>
#include <QVector>

// Reads the areas of an orv-cli area file (AreaFile); false with the file and
// the reason when it cannot be read or is not an area file. Areas of type
// "unset" are left out.
bool readPictureAreas(const QString &path, QVector<PictureArea> *areas, QString *error);

// The areas of the module's last read-area answer (none when the log holds
// no answer); areas reported as not set (type 2) are left out.
QVector<PictureArea> loggedPictureAreas(const SessionFigures &figures);

// Fills in each area's occupied share from the area-presence reports.
void setOccupiedShares(QVector<PictureArea> *areas, const SessionFigures &figures);
