#pragma once

// The plain parts of the service's writes to a module, without a port: each
// write as an area file (checked with the area file's rules and words, as
// orv-cli checks it), the requests that carry it out, and what a module's
// read-back means for it.

#include "cli/areafile.h"
#include "cli/wirearea.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>

struct ModuleAreas;

namespace modulewrites
{

// What messages call an area file a client sent.
constexpr const char *kBodyName = "area file";

// One request of a write and how to tell the module's yes from its NG.
struct Step {
    quint8 code = 0;
    QByteArray payload;
    QString what;    // names the request in messages, as orv-cli does
    QString refused; // the message when the module answers NG
    std::function<bool(const QByteArray &answer)> accepted;
};

// A whole area file; on failure *error is orv-cli's message for it.
bool fromText(const QByteArray &text, AreaFile *file, QString *error);
// One area, {"type":"detect"|"exclude","from":[x,y],"to":[x,y]} or
// {"type":"unset"}, as area file entry number.
bool fromArea(int number, const QJsonObject &area, AreaFile *file, QString *error);
// The display type by name ("area" or "track").
bool fromDisplay(const QString &name, AreaFile *file, QString *error);
// All three areas unset (sent as one cancel-all request).
AreaFile allUnset();

// The requests of a write: cancel all, or the display type and then each area.
QList<Step> stepsFor(const AreaFile &file, bool cancelAll);

// The area file `orv-cli areas backup` writes for what a module holds: an
// area of a type a file cannot hold is written as unset.
AreaFile backupOf(const ModuleAreas &held);
// orv-cli's differences between a file and what a module holds, compared in
// decimetres as the wire carries them.
QStringList differences(const AreaFile &file, const ModuleAreas &held);

} // namespace modulewrites
