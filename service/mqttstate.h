#pragma once

// What one module's MQTT topics hold, and which messages a change of the
// module makes: a retained topic is published only when its payload changes,
// so reports that change nothing cost the broker nothing; the targets topic
// is published at most a given number of times a second.

#include "service/mqtttopics.h"

#include <QHash>
#include <QJsonObject>
#include <QList>

class MqttState
{
public:
    // targetsRate in Hz; 0 never publishes targets.
    MqttState(const QString &base, const QString &id, double targetsRate);

    const MqttTopics &topics() const { return names; }

    // The module's status changed: availability and state.
    QList<MqttMessage> status(const QJsonObject &status);
    // Areas or display changed (an area file): area/1..3 and display.
    QList<MqttMessage> config(const QJsonObject &areaFile);
    // A targets record at nowMs (any monotonic clock): presence, count and,
    // when due, the record on the targets topic.
    QList<MqttMessage> targets(const QJsonObject &record, qint64 nowMs);
    // An areas record: area/1..3/occupancy.
    QList<MqttMessage> areas(const QJsonObject &record);
    // The service stops cleanly: availability offline.
    QList<MqttMessage> stop();

    // Every retained topic that has a value, with that value (after every
    // connect). Presence, count and occupancy start as OFF and 0; state,
    // areas and display appear once the module said them.
    QList<MqttMessage> retained() const;

private:
    QList<MqttMessage> set(const QString &topic, const QByteArray &payload);

    MqttTopics names;
    qint64 targetsIntervalMs; // -1: never
    qint64 lastTargetsMs = 0;
    bool targetsSent = false;
    QHash<QString, QByteArray> values; // retained topic -> payload
};
