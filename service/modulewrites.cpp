#include "service/modulewrites.h"

#include "cli/areascommands.h"
#include "cli/modulecommand.h"
#include "radar/frameformat.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace modulewrites
{

namespace
{

// orv-cli's comparison, which its area commands keep to themselves.
struct AreaDifferences : AreasCommand {
    using AreasCommand::differences;
};

const QString kNothingSent = QStringLiteral(" (nothing was sent)");

} // namespace

bool fromText(const QByteArray &text, AreaFile *file, QString *error)
{
    if (AreaFile::parse(text, QLatin1String(kBodyName), file, error))
        return true;
    *error += kNothingSent;
    return false;
}

bool fromArea(int number, const QJsonObject &area, AreaFile *file, QString *error)
{
    if (number < 1 || number > 3) {
        *error = QString("\"%1\" is not an area number (1, 2 or 3)").arg(number);
        return false;
    }
    // Checked as the one entry of an area file; the messages then name the
    // area instead of the file's list.
    QJsonObject entry = area;
    entry["number"] = number;
    const QJsonObject wrapped{{"format", AreaFile::kFormatName},
                              {"version", AreaFile::kVersion},
                              {"areas", QJsonArray{entry}}};
    if (AreaFile::parse(QJsonDocument(wrapped).toJson(), QString("area %1").arg(number), file,
                        error))
        return true;
    error->replace(QLatin1String("areas[0]."), QString());
    error->replace(QLatin1String(": areas[0]:"), QLatin1String(":"));
    *error += kNothingSent;
    return false;
}

bool fromDisplay(const QString &name, AreaFile *file, QString *error)
{
    const int value = AreaFile::displayValue(name);
    if (value < 0) {
        *error = QString("\"%1\" is not a display type (area or track)").arg(name);
        return false;
    }
    *file = AreaFile();
    file->hasDisplay = true;
    file->display = value;
    return true;
}

AreaFile allUnset()
{
    AreaFile file;
    for (int n = 1; n <= 3; ++n) {
        AreaEntry entry;
        entry.number = n;
        entry.kind = AreaEntry::Unset;
        file.areas.append(entry);
    }
    return file;
}

QList<Step> stepsFor(const AreaFile &file, bool cancelAll)
{
    const auto answeredOk = [](const QByteArray &a) { return frameformat::decodeResult(a); };
    QList<Step> steps;
    if (cancelAll) {
        steps.append({CancelAllArea, QByteArray(), "cancelling all areas",
                      "the module refused to cancel the areas (NG)", answeredOk});
        return steps;
    }
    if (file.hasDisplay)
        steps.append({SetTargetShowType, QByteArray(1, char(file.display)),
                      "the display-type change",
                      QString("the module refused display type %1 (NG)")
                          .arg(AreaFile::displayName(file.display)),
                      answeredOk});
    for (const AreaEntry &entry : file.areas) {
        const bool unset = entry.kind == AreaEntry::Unset;
        Step step;
        step.code = unset ? RepealArea : SetArea;
        step.payload = unset ? QByteArray(1, char(entry.number)) : WireArea::requestPayload(entry);
        step.what = QString(unset ? "cancelling area %1" : "setting area %1").arg(entry.number);
        step.refused = QString(unset ? "the module refused to cancel area %1 (NG)"
                                     : "the module refused to set area %1 (NG)")
                           .arg(entry.number);
        if (unset)
            step.accepted = [](const QByteArray &a) {
                return frameformat::decodeRepealAreaResponse(a).ok;
            };
        else
            step.accepted = [](const QByteArray &a) {
                return frameformat::decodeSetAreaResponse(a).ok;
            };
        steps.append(step);
    }
    return steps;
}

AreaFile backupOf(const ModuleAreas &held)
{
    AreaFile file;
    file.hasDisplay = true;
    file.display = held.display;
    for (int k = 0; k < 3; ++k) {
        const WireArea &a = held.areas[size_t(k)];
        const bool storable = !a.defined() || a.type == 0 || a.type == 1;
        file.areas.append(WireArea::toEntry(k + 1, storable ? a : WireArea()));
    }
    return file;
}

QStringList differences(const AreaFile &file, const ModuleAreas &held)
{
    return AreaDifferences::differences(file, held);
}

} // namespace modulewrites
