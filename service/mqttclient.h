#pragma once

// One MQTT broker connection (libmosquitto) with its last will, kept up by a
// thread of its own: connect, run the protocol, and after any failure wait
// and connect again (1 s, 2 s, 4 s, 8 s, then every 10 s; back to 1 s after
// a connection held). The thread does only the blocking work (name lookup,
// TCP and TLS handshakes, the protocol loop), so a broker that is slow or
// unreachable never stalls the serial ports or HTTP on the Qt main thread;
// there is one such thread per module, so the count is bounded by the
// module count. Everything the thread learns is handed to the main thread
// by queued calls; publishing from the main thread is safe (libmosquitto
// locks its queues; the connection is marked threaded).

#include "service/mqtttopics.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

struct MqttOptions;

class MqttClient : public QObject
{
    Q_OBJECT
public:
    enum class State { Connecting, Connected, Refused };
    Q_ENUM(State)
    static QString stateName(State state); // "connecting", "connected", "refused"

    // will: the message the broker publishes when this connection dies
    // without a clean stop (empty topic: none). subscriptions are made again
    // on every connect.
    MqttClient(const MqttOptions &options, const QString &clientId, const MqttMessage &will,
               const QStringList &subscriptions, QObject *parent = nullptr);
    // Stops the thread; the connection closes without DISCONNECT unless
    // stop() ran first (so the will is published).
    ~MqttClient() override;

    void start();
    State state() const { return current; }
    bool isConnected() const { return current == State::Connected; }

    // Publishes when connected (QoS 1; the targets topic and others not
    // retained may use 0). Returns false when not connected.
    bool publish(const MqttMessage &message, int qos = 1);
    // QoS 1 messages the broker has not acknowledged yet.
    int unacknowledged() const { return pending.size(); }

    // A clean stop: waits (running events) until the broker acknowledged
    // what was published or timeoutMs passed, sends DISCONNECT (so the will
    // is not published) and ends the thread.
    void stop(int timeoutMs = 2000);

    // The back-off delay before retry number attempt (0-based), in ms.
    static int retryDelayMs(int attempt);

signals:
    void stateChanged(MqttClient::State state);
    // Connected (again): the subscriptions are made; publish everything.
    void connected();
    void messageReceived(const QString &topic, const QByteArray &payload, bool retained);
    // One line per change of the connection's condition, naming the cause.
    void problem(const QString &text);
    // Every QoS 1 message published so far is acknowledged.
    void drained();

private:
    struct Shared;
    void onConnected();
    void onFailure(bool refused, const QString &text);
    void onPublished(int mid);

    std::shared_ptr<Shared> shared;
    State current = State::Connecting;
    QString lastProblem;
    QSet<int> pending;
};
