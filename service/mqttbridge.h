#pragma once

// One module on the MQTT broker: publishes its availability, state,
// presence, count, area occupancy, areas, display and targets (see
// service/mqtttopics.h), announces it to Home Assistant, and does what
// arrives on its set topics through the module's queued writes, answering
// each on BASE/ID/result. One broker connection per module, so that each
// has its own last will (availability offline).

#include "service/mqttclient.h"
#include "service/mqttdiscovery.h"
#include "service/mqttforget.h"
#include "service/mqttoptions.h"
#include "service/mqttstate.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>

class Module;

class MqttBridge : public QObject
{
    Q_OBJECT
public:
    MqttBridge(Module *module, const MqttOptions &options, QObject *parent = nullptr);
    // Without stop(), the connection just closes and the broker publishes
    // the last will.
    ~MqttBridge() override;

    // Connects (and keeps connecting) to the broker.
    void start();
    // A clean stop: availability offline, then DISCONNECT.
    void stop();

    // "connected", "connecting" or "refused", for the module status object.
    QString connectionState() const { return MqttClient::stateName(client->state()); }
    MqttClient::State state() const { return client->state(); }
    QString clientId() const { return id; }

signals:
    void connectionStateChanged(const QString &state);
    // A change of the connection's condition, in words naming the cause.
    void problem(const QString &text);

private:
    void publish(const QList<MqttMessage> &messages);
    void publishAll();
    void handleMessage(const QString &topic, const QByteArray &payload, bool retained);
    void answer(const QString &request, bool ok, const QString &error);

    QPointer<Module> module;
    MqttOptions options;
    QString id;
    MqttState topics;
    MqttDiscovery discovery;
    MqttClient *client = nullptr;
    QElapsedTimer clock;
};

// Starts one bridge per module (parented to parent) and says each change of
// a broker connection on standard error.
QList<MqttBridge *> startMqtt(const QList<Module *> &modules, const MqttOptions &options,
                              QObject *parent);
