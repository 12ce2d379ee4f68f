#pragma once

// Home Assistant's MQTT discovery for one module: one device ("orv ID") with
// an occupancy binary_sensor per area, one for anyone, a sensor for the
// count and a select for the display type. Each config is retained on
// PREFIX/COMPONENT/NODE/OBJECT/config, where NODE is the module's client id
// (orv-HOSTNAME-ID or PREFIX-ID), so topics and unique ids stay the same
// across restarts on one host.

#include "service/mqtttopics.h"

#include <QList>
#include <QString>

struct MqttOptions;

struct MqttDiscovery {
    QString prefix;  // discovery prefix, "homeassistant"
    QString base;    // topic base, "orv"
    QString id;      // module ID
    QString nodeId;  // orv-HOSTNAME-ID
    QString version; // the tool's version, for sw_version

    static MqttDiscovery forModule(const MqttOptions &options, const QString &id,
                                   const QString &version);

    // The retained config messages (six).
    QList<MqttMessage> configs() const;
    // Empty retained payloads on the same topics: Home Assistant removes the
    // entities.
    QList<MqttMessage> clears() const;
    // Home Assistant's birth topic: PREFIX/status, "online" when it (re)starts.
    QString statusTopic() const { return prefix + QStringLiteral("/status"); }
};
