#include "service/mqttforget.h"

#include "service/mqttclient.h"
#include "service/mqttdiscovery.h"
#include "service/mqttoptions.h"

#include <QEventLoop>
#include <QTimer>

#include <cstdio>

int runMqttForget(const MqttOptions &options, const QString &id, int timeoutMs)
{
    const MqttTopics names(options.base, id);
    QList<MqttMessage> messages = MqttDiscovery::forModule(options, id, QString()).clears();
    for (const QString &topic : names.retainedTopics())
        messages << MqttMessage{topic, QByteArray(), true};

    // A client id of its own, so a service still running for ID keeps its
    // connection.
    MqttClient client(options, options.clientIdFor(id) + QStringLiteral("-forget"), MqttMessage(),
                      QStringList());
    QEventLoop loop;
    bool published = false;
    bool done = false;
    QString lastProblem;
    QObject::connect(&client, &MqttClient::problem, &loop,
                     [&lastProblem](const QString &text) { lastProblem = text; });
    QObject::connect(&client, &MqttClient::connected, &loop, [&] {
        if (published)
            return;
        published = true;
        for (const MqttMessage &message : qAsConst(messages))
            client.publish(message, 1);
        if (client.unacknowledged() == 0) {
            done = true;
            loop.quit();
        }
    });
    QObject::connect(&client, &MqttClient::drained, &loop, [&] {
        if (published && client.isConnected()) {
            done = true;
            loop.quit();
        }
    });
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    client.start();
    loop.exec();
    client.stop();
    if (!done) {
        const QString why =
            lastProblem.isEmpty() ? QStringLiteral("no answer from the broker") : lastProblem;
        std::fprintf(stderr, "orv-cli serve: MQTT: could not clear module %s on %s: %s\n",
                     qPrintable(id), qPrintable(options.displayUrl()), qPrintable(why));
        return 1;
    }
    std::printf("Cleared module %s's discovery and retained topics on %s.\n", qPrintable(id),
                qPrintable(options.displayUrl()));
    std::fflush(stdout);
    return 0;
}
