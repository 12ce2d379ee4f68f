#include "service/mqttstate.h"

#include <cmath>

MqttState::MqttState(const QString &base, const QString &id, double targetsRate)
    : names(base, id),
      targetsIntervalMs(targetsRate > 0.0 ? qint64(std::llround(1000.0 / targetsRate)) : -1)
{
    values.insert(names.availability(), mqttpayload::availability(false));
    values.insert(names.presence(), mqttpayload::onOff(false));
    values.insert(names.count(), QByteArrayLiteral("0"));
    for (int n = 1; n <= MqttTopics::kAreaCount; ++n)
        values.insert(names.occupancy(n), mqttpayload::onOff(false));
}

QList<MqttMessage> MqttState::set(const QString &topic, const QByteArray &payload)
{
    auto it = values.find(topic);
    if (it != values.end() && it.value() == payload)
        return {};
    values.insert(topic, payload);
    return {MqttMessage{topic, payload, true}};
}

QList<MqttMessage> MqttState::status(const QJsonObject &status)
{
    QList<MqttMessage> out = set(names.state(), mqttpayload::json(status));
    out += set(names.availability(), mqttpayload::availability(mqttpayload::statusOnline(status)));
    return out;
}

QList<MqttMessage> MqttState::config(const QJsonObject &areaFile)
{
    QList<MqttMessage> out;
    if (!areaFile.contains(QStringLiteral("areas")))
        return out;
    for (int n = 1; n <= MqttTopics::kAreaCount; ++n)
        out += set(names.area(n), mqttpayload::area(areaFile, n));
    const QByteArray display = mqttpayload::display(areaFile);
    if (!display.isEmpty())
        out += set(names.display(), display);
    return out;
}

QList<MqttMessage> MqttState::targets(const QJsonObject &record, qint64 nowMs)
{
    const int count = mqttpayload::targetCount(record);
    QList<MqttMessage> out = set(names.presence(), mqttpayload::onOff(count > 0));
    out += set(names.count(), QByteArray::number(count));
    if (targetsIntervalMs >= 0 && (!targetsSent || nowMs - lastTargetsMs >= targetsIntervalMs)) {
        targetsSent = true;
        lastTargetsMs = nowMs;
        out << MqttMessage{names.targets(), mqttpayload::json(record), false};
    }
    return out;
}

QList<MqttMessage> MqttState::areas(const QJsonObject &record)
{
    QList<MqttMessage> out;
    for (int n = 1; n <= MqttTopics::kAreaCount; ++n)
        out += set(names.occupancy(n), mqttpayload::onOff(mqttpayload::areaOccupied(record, n)));
    return out;
}

QList<MqttMessage> MqttState::stop()
{
    return set(names.availability(), mqttpayload::availability(false));
}

QList<MqttMessage> MqttState::retained() const
{
    QList<MqttMessage> out;
    for (const QString &topic : names.retainedTopics()) {
        const auto it = values.constFind(topic);
        if (it != values.constEnd())
            out << MqttMessage{topic, it.value(), true};
    }
    return out;
}
