#include "service/mqtttopics.h"

#include "cli/areafile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

QList<QString> MqttTopics::retainedTopics() const
{
    QList<QString> topics{availability(), state(), presence(), count()};
    for (int n = 1; n <= kAreaCount; ++n)
        topics << occupancy(n);
    for (int n = 1; n <= kAreaCount; ++n)
        topics << area(n);
    topics << display();
    return topics;
}

int MqttTopics::setTarget(const QString &topic) const
{
    if (topic == displaySet())
        return 0;
    for (int n = 1; n <= kAreaCount; ++n) {
        if (topic == areaSet(n))
            return n;
    }
    return -1;
}

namespace mqttpayload
{

QByteArray onOff(bool on)
{
    return on ? QByteArrayLiteral("ON") : QByteArrayLiteral("OFF");
}

QByteArray availability(bool online)
{
    return online ? QByteArrayLiteral("online") : QByteArrayLiteral("offline");
}

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray area(const QJsonObject &areaFile, int n)
{
    const QJsonArray areas = areaFile.value(QStringLiteral("areas")).toArray();
    for (const QJsonValue &value : areas) {
        const QJsonObject entry = value.toObject();
        if (entry.value(QStringLiteral("number")).toInt() != n)
            continue;
        const QString type = entry.value(QStringLiteral("type")).toString();
        QJsonObject out{{QStringLiteral("type"), type}};
        if (type != QLatin1String("unset")) {
            out.insert(QStringLiteral("from"), entry.value(QStringLiteral("from")));
            out.insert(QStringLiteral("to"), entry.value(QStringLiteral("to")));
        }
        return json(out);
    }
    return json(QJsonObject{{QStringLiteral("type"), QStringLiteral("unset")}});
}

QByteArray display(const QJsonObject &areaFile)
{
    const QJsonValue value = areaFile.value(QStringLiteral("display"));
    if (value.isString())
        return value.toString().toUtf8();
    if (value.isDouble())
        return AreaFile::displayName(value.toInt()).toUtf8();
    return QByteArray();
}

bool statusOnline(const QJsonObject &status)
{
    return status.value(QStringLiteral("state")).toString() == QLatin1String("open");
}

int targetCount(const QJsonObject &record)
{
    return record.value(QStringLiteral("targets")).toArray().size();
}

bool areaOccupied(const QJsonObject &record, int n)
{
    return record.value(QStringLiteral("occupied")).toArray().at(n - 1).toBool();
}

QByteArray result(const QString &request, bool ok, const QString &error)
{
    return json(QJsonObject{{QStringLiteral("request"), request},
                            {QStringLiteral("ok"), ok},
                            {QStringLiteral("error"), ok ? QJsonValue() : QJsonValue(error)}});
}

} // namespace mqttpayload

namespace
{

bool readCorner(const QJsonObject &object, const QString &key, QJsonArray *corner, QString *error)
{
    const QJsonValue value = object.value(key);
    const QJsonArray array = value.toArray();
    if (!value.isArray() || array.size() != 2 || !array.at(0).isDouble() ||
        !array.at(1).isDouble()) {
        *error = QStringLiteral("%1: expected [x, y] in metres").arg(key);
        return false;
    }
    const double x = array.at(0).toDouble();
    const double y = array.at(1).toDouble();
    if (!AreaFile::xInRange(x)) {
        *error = QStringLiteral("%1: x %2 is outside -8..8 m").arg(key).arg(x);
        return false;
    }
    if (!AreaFile::yInRange(y)) {
        *error = QStringLiteral("%1: y %2 is outside 0..8 m").arg(key).arg(y);
        return false;
    }
    *corner = array;
    return true;
}

} // namespace

bool parseAreaSetPayload(const QByteArray &payload, MqttAreaRequest *request, QString *error)
{
    QString why;
    const QByteArray text = payload.trimmed();
    *request = MqttAreaRequest();
    if (text == "unset" || text == "\"unset\"") {
        request->unset = true;
        return true;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        if (error)
            *error = QStringLiteral(
                "expected unset or {\"type\": \"detect\"|\"exclude\"|\"unset\", \"from\": [x, y], "
                "\"to\": [x, y]}");
        return false;
    }
    const QJsonObject object = document.object();
    const QString type = object.value(QStringLiteral("type")).toString();
    if (type == QLatin1String("unset")) {
        request->unset = true;
        return true;
    }
    if (type != QLatin1String("detect") && type != QLatin1String("exclude")) {
        if (error)
            *error = QStringLiteral("type: expected \"detect\", \"exclude\" or \"unset\"");
        return false;
    }
    QJsonArray from;
    QJsonArray to;
    if (!readCorner(object, QStringLiteral("from"), &from, &why) ||
        !readCorner(object, QStringLiteral("to"), &to, &why)) {
        if (error)
            *error = why;
        return false;
    }
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.key() != QLatin1String("type") && it.key() != QLatin1String("from") &&
            it.key() != QLatin1String("to")) {
            if (error)
                *error = QStringLiteral("%1: unknown field").arg(it.key());
            return false;
        }
    }
    request->area = QJsonObject{
        {QStringLiteral("type"), type}, {QStringLiteral("from"), from}, {QStringLiteral("to"), to}};
    return true;
}

bool parseDisplaySetPayload(const QByteArray &payload, QString *display, QString *error)
{
    QByteArray text = payload.trimmed();
    if (text.size() >= 2 && text.startsWith('"') && text.endsWith('"'))
        text = text.mid(1, text.size() - 2);
    if (text == "area" || text == "track") {
        *display = QString::fromLatin1(text);
        return true;
    }
    if (error)
        *error = QStringLiteral("expected area or track");
    return false;
}
