#include "service/mqttdiscovery.h"

#include "service/mqttoptions.h"

#include <QJsonArray>
#include <QJsonObject>

MqttDiscovery MqttDiscovery::forModule(const MqttOptions &options, const QString &id,
                                       const QString &version)
{
    return MqttDiscovery{options.discoveryPrefix, options.base, id, options.clientIdFor(id),
                         version};
}

QList<MqttMessage> MqttDiscovery::configs() const
{
    const MqttTopics topics(base, id);
    const QJsonObject device{
        {QStringLiteral("identifiers"), QJsonArray{nodeId}},
        {QStringLiteral("name"), QStringLiteral("orv ") + id},
        {QStringLiteral("model"), QStringLiteral("mm-wave presence radar module")},
        {QStringLiteral("manufacturer"), QStringLiteral("orv-tool")},
        {QStringLiteral("sw_version"), version}};
    auto entity = [&](const QString &objectId, const QString &name) {
        return QJsonObject{{QStringLiteral("name"), name},
                           {QStringLiteral("unique_id"), nodeId + QLatin1Char('_') + objectId},
                           {QStringLiteral("availability_topic"), topics.availability()},
                           {QStringLiteral("payload_available"), QStringLiteral("online")},
                           {QStringLiteral("payload_not_available"), QStringLiteral("offline")},
                           {QStringLiteral("device"), device}};
    };
    auto topic = [&](const QString &component, const QString &objectId) {
        return prefix + QLatin1Char('/') + component + QLatin1Char('/') + nodeId +
               QLatin1Char('/') + objectId + QStringLiteral("/config");
    };
    auto occupancy = [&](const QString &objectId, const QString &name, const QString &stateTopic) {
        QJsonObject config = entity(objectId, name);
        config.insert(QStringLiteral("device_class"), QStringLiteral("occupancy"));
        config.insert(QStringLiteral("state_topic"), stateTopic);
        config.insert(QStringLiteral("payload_on"), QStringLiteral("ON"));
        config.insert(QStringLiteral("payload_off"), QStringLiteral("OFF"));
        return MqttMessage{topic(QStringLiteral("binary_sensor"), objectId),
                           mqttpayload::json(config), true};
    };

    QList<MqttMessage> out;
    for (int n = 1; n <= MqttTopics::kAreaCount; ++n) {
        out << occupancy(QStringLiteral("area%1").arg(n), QStringLiteral("Area %1").arg(n),
                         topics.occupancy(n));
    }
    out << occupancy(QStringLiteral("anyone"), QStringLiteral("Anyone"), topics.presence());

    QJsonObject count = entity(QStringLiteral("count"), QStringLiteral("People"));
    count.insert(QStringLiteral("state_topic"), topics.count());
    count.insert(QStringLiteral("state_class"), QStringLiteral("measurement"));
    count.insert(QStringLiteral("icon"), QStringLiteral("mdi:account-group"));
    out << MqttMessage{topic(QStringLiteral("sensor"), QStringLiteral("count")),
                       mqttpayload::json(count), true};

    QJsonObject display = entity(QStringLiteral("display"), QStringLiteral("Display"));
    display.insert(QStringLiteral("state_topic"), topics.display());
    display.insert(QStringLiteral("command_topic"), topics.displaySet());
    display.insert(QStringLiteral("options"),
                   QJsonArray{QStringLiteral("area"), QStringLiteral("track")});
    out << MqttMessage{topic(QStringLiteral("select"), QStringLiteral("display")),
                       mqttpayload::json(display), true};
    return out;
}

QList<MqttMessage> MqttDiscovery::clears() const
{
    QList<MqttMessage> out = configs();
    for (MqttMessage &message : out)
        message.payload.clear();
    return out;
}
