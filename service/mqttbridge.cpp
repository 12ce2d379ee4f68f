#include "service/mqttbridge.h"

#include "service/module.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QTimer>

#include <cstdio>

#ifndef ORV_VERSION
#define ORV_VERSION "0"
#endif

namespace
{

void sayOnStderr(const QString &text)
{
    std::fprintf(stderr, "orv-cli serve: %s\n", qPrintable(text));
    std::fflush(stderr);
}

QString writeError(const WriteResult &result)
{
    QString text = result.error;
    if (result.kind == WriteResult::Mismatch && !result.differences.isEmpty()) {
        QStringList lines;
        for (const QJsonValue &value : result.differences)
            lines << value.toString();
        text += QStringLiteral(": ") + lines.join(QStringLiteral("; "));
    }
    return text.isEmpty() ? QStringLiteral("the write failed") : text;
}

} // namespace

MqttBridge::MqttBridge(Module *module, const MqttOptions &options, QObject *parent)
    : QObject(parent), module(module), options(options), id(options.clientIdFor(module->id())),
      topics(options.base, module->id(), options.targetsRate),
      discovery(MqttDiscovery::forModule(options, module->id(), QStringLiteral(ORV_VERSION)))
{
    clock.start();
    const MqttTopics &names = topics.topics();
    QStringList subscriptions{names.areaSetFilter(), names.displaySet()};
    if (options.discovery)
        subscriptions << discovery.statusTopic();
    const MqttMessage will{names.availability(), mqttpayload::availability(false), true};
    client = new MqttClient(options, id, will, subscriptions, this);

    connect(client, &MqttClient::connected, this, &MqttBridge::publishAll);
    connect(client, &MqttClient::messageReceived, this, &MqttBridge::handleMessage);
    connect(client, &MqttClient::problem, this, &MqttBridge::problem);
    connect(client, &MqttClient::stateChanged, this, [this](MqttClient::State state) {
        this->module->setMqttState(MqttClient::stateName(state));
        emit connectionStateChanged(MqttClient::stateName(state));
    });
    module->setMqttState(connectionState());

    topics.status(module->status());
    topics.config(module->areaFile());
    connect(module, &Module::statusChanged, this,
            [this](const QJsonObject &status) { publish(topics.status(status)); });
    connect(module, &Module::configChanged, this,
            [this](const QJsonObject &file) { publish(topics.config(file)); });
    connect(module, &Module::targetsReport, this, [this](const QJsonObject &record) {
        publish(topics.targets(record, clock.elapsed()));
    });
    connect(module, &Module::areasReport, this,
            [this](const QJsonObject &record) { publish(topics.areas(record)); });
}

MqttBridge::~MqttBridge() = default;

void MqttBridge::start()
{
    client->start();
}

void MqttBridge::stop()
{
    publish(topics.stop());
    client->stop();
}

void MqttBridge::publish(const QList<MqttMessage> &messages)
{
    for (const MqttMessage &message : messages)
        client->publish(message, message.retain ? 1 : 0);
}

void MqttBridge::publishAll()
{
    if (options.discovery)
        publish(discovery.configs());
    // The values may have moved on while the connection was down.
    if (module) {
        topics.status(module->status());
        topics.config(module->areaFile());
    }
    publish(topics.retained());
}

void MqttBridge::answer(const QString &request, bool ok, const QString &error)
{
    client->publish(
        MqttMessage{topics.topics().result(), mqttpayload::result(request, ok, error), false}, 1);
}

void MqttBridge::handleMessage(const QString &topic, const QByteArray &payload, bool retained)
{
    if (options.discovery && topic == discovery.statusTopic()) {
        // Home Assistant (re)started: announce the module again.
        if (payload.trimmed() == "online")
            publish(discovery.configs());
        return;
    }
    const int target = topics.topics().setTarget(topic);
    if (target < 0)
        return;
    if (retained) {
        // A command kept by the broker would be done again on every
        // reconnect: only live commands count.
        answer(topic, false,
               QStringLiteral("a retained set message is not acted on; publish it without retain"));
        return;
    }
    if (!module) {
        answer(topic, false, QStringLiteral("the module is gone"));
        return;
    }
    QPointer<MqttBridge> self(this);
    auto done = [self, topic](const WriteResult &result) {
        if (!self)
            return;
        if (!result.areaFile.isEmpty())
            self->publish(self->topics.config(result.areaFile));
        const bool ok = result.kind == WriteResult::Ok;
        self->answer(topic, ok, ok ? QString() : writeError(result));
    };
    QString error;
    if (target == 0) {
        QString display;
        if (!parseDisplaySetPayload(payload, &display, &error)) {
            answer(topic, false, error);
            return;
        }
        module->setDisplay(display, done);
        return;
    }
    MqttAreaRequest request;
    if (!parseAreaSetPayload(payload, &request, &error)) {
        answer(topic, false, error);
        return;
    }
    if (request.unset)
        module->cancelArea(target, done);
    else
        module->setArea(target, request.area, done);
}

QList<MqttBridge *> startMqtt(const QList<Module *> &modules, const MqttOptions &options,
                              QObject *parent)
{
    QList<MqttBridge *> bridges;
    for (Module *module : modules) {
        auto *bridge = new MqttBridge(module, options, parent);
        const QString name = module->id();
        QObject::connect(bridge, &MqttBridge::problem, bridge, [name](const QString &text) {
            sayOnStderr(QStringLiteral("MQTT %1: %2").arg(name, text));
        });
        bridge->start();
        bridges << bridge;
    }
    return bridges;
}
