#include "service/mqttclient.h"

#include "service/mqttoptions.h"

#include <QEventLoop>
#include <QMetaObject>
#include <QPointer>
#include <QTimer>

#include <mosquitto.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace
{

constexpr int kKeepAliveSeconds = 30;
constexpr int kLoopTimeoutMs = 200;
// How long a stop waits for the connection's thread.
constexpr int kJoinMs = 1500;

void initLibrary()
{
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

// Words for a failed connect or a lost connection.
QString describe(int rc, int savedErrno)
{
    if (rc == MOSQ_ERR_ERRNO)
        return QString::fromLocal8Bit(std::strerror(savedErrno)).toLower();
    if (rc == MOSQ_ERR_EAI)
        return QStringLiteral("the host name does not resolve");
    if (rc == MOSQ_ERR_TLS)
        return QStringLiteral("TLS handshake failed (is the broker's certificate trusted by "
                              "--mqtt-ca or the system?)");
    if (rc == MOSQ_ERR_CONN_LOST)
        return QStringLiteral("connection lost");
    if (rc == MOSQ_ERR_KEEPALIVE)
        return QStringLiteral("the broker stopped answering");
    return QString::fromUtf8(mosquitto_strerror(rc)).toLower();
}

} // namespace

// What the connection thread and the main thread share. Owned jointly, so
// a queued call that arrives late never touches freed memory.
struct MqttClient::Shared {
    QPointer<MqttClient> owner;
    mosquitto *mosq = nullptr;
    QString host;
    int port = 0;
    QStringList subscriptions;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable wake;
    std::atomic<bool> stopping{false};   // end the thread
    std::atomic<bool> disconnect{false}; // send DISCONNECT first (a clean stop)
    std::atomic<bool> connected{false};
    int connackCode = 0; // set by the connect callback, read on the thread
    // Under mutex: the owner still takes queued calls; the thread has ended;
    // nobody waits for it any more (it then frees the connection itself).
    bool ownerAlive = true;
    bool ended = false;
    bool orphaned = false;

    void run();
    template <typename F> void post(F &&f)
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (ownerAlive && !owner.isNull())
            QMetaObject::invokeMethod(owner.data(), std::forward<F>(f), Qt::QueuedConnection);
    }
    // The thread's last act.
    void end()
    {
        std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        if (orphaned && mosq) {
            mosquitto_destroy(mosq);
            mosq = nullptr;
        }
        wake.notify_all();
    }
    // Waits up to ms for the thread to end. A thread stuck in a name lookup
    // or a TCP connect to a silent host is left to finish on its own, so
    // that the service stops in time; it frees the connection then.
    // Returns whether the connection is still ours to free.
    bool finish(int ms)
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!thread.joinable())
            return !orphaned;
        ownerAlive = false;
        wake.notify_all();
        if (wake.wait_for(lock, std::chrono::milliseconds(ms), [this] { return ended; })) {
            lock.unlock();
            thread.join();
            return true;
        }
        orphaned = true;
        lock.unlock();
        thread.detach();
        return false;
    }
    // Sleeps up to ms unless stopping; false when stopping.
    bool pause(int ms)
    {
        std::unique_lock<std::mutex> lock(mutex);
        wake.wait_for(lock, std::chrono::milliseconds(ms),
                      [this] { return stopping || disconnect; });
        return !stopping && !disconnect;
    }
};

QString MqttClient::stateName(State state)
{
    switch (state) {
    case State::Connecting:
        return QStringLiteral("connecting");
    case State::Connected:
        return QStringLiteral("connected");
    case State::Refused:
        return QStringLiteral("refused");
    }
    return QString();
}

int MqttClient::retryDelayMs(int attempt)
{
    return attempt >= 4 ? 10000 : 1000 << attempt;
}

MqttClient::MqttClient(const MqttOptions &options, const QString &clientId, const MqttMessage &will,
                       const QStringList &subscriptions, QObject *parent)
    : QObject(parent), shared(std::make_shared<Shared>())
{
    initLibrary();
    qRegisterMetaType<MqttClient::State>();
    shared->owner = this;
    shared->host = options.host;
    shared->port = options.port;
    shared->subscriptions = subscriptions;
    mosquitto *mosq = mosquitto_new(clientId.toUtf8().constData(), true, shared.get());
    shared->mosq = mosq;
    if (!mosq)
        return;
    mosquitto_threaded_set(mosq, true);
    mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
    // Small messages go out at once: an occupancy change should not wait
    // for the acknowledgement of the one before.
    mosquitto_int_option(mosq, MOSQ_OPT_TCP_NODELAY, 1);
    if (!options.user.isEmpty()) {
        mosquitto_username_pw_set(
            mosq, options.user.toUtf8().constData(),
            options.password.isEmpty() ? nullptr : options.password.toUtf8().constData());
    }
    if (!will.topic.isEmpty()) {
        mosquitto_will_set(mosq, will.topic.toUtf8().constData(), will.payload.size(),
                           will.payload.constData(), 1, will.retain);
    }
    if (options.tls) {
        if (options.caFile.isEmpty())
            mosquitto_int_option(mosq, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
        else
            mosquitto_tls_set(mosq, options.caFile.toLocal8Bit().constData(), nullptr, nullptr,
                              nullptr, nullptr);
    }

    mosquitto_connect_callback_set(mosq, [](mosquitto *m, void *data, int rc) {
        auto *s = static_cast<Shared *>(data);
        s->connackCode = rc;
        if (rc != 0)
            return;
        for (const QString &filter : qAsConst(s->subscriptions))
            mosquitto_subscribe(m, nullptr, filter.toUtf8().constData(), 1);
        s->connected = true;
        s->post([target = s->owner] {
            if (target)
                target->onConnected();
        });
    });
    mosquitto_publish_callback_set(mosq, [](mosquitto *, void *data, int mid) {
        auto *s = static_cast<Shared *>(data);
        s->post([target = s->owner, mid] {
            if (target)
                target->onPublished(mid);
        });
    });
    mosquitto_message_callback_set(mosq, [](mosquitto *, void *data,
                                            const mosquitto_message *message) {
        auto *s = static_cast<Shared *>(data);
        const QString topic = QString::fromUtf8(message->topic);
        const QByteArray payload(static_cast<const char *>(message->payload), message->payloadlen);
        const bool retained = message->retain;
        s->post([target = s->owner, topic, payload, retained] {
            if (target)
                emit target->messageReceived(topic, payload, retained);
        });
    });
}

MqttClient::~MqttClient()
{
    shared->stopping = true;
    if (shared->finish(kJoinMs) && shared->mosq)
        mosquitto_destroy(shared->mosq);
}

void MqttClient::start()
{
    if (!shared->mosq) {
        onFailure(false, QStringLiteral("cannot create the MQTT client"));
        return;
    }
    if (!shared->thread.joinable())
        shared->thread = std::thread([s = shared] {
            s->run();
            s->end();
        });
}

void MqttClient::Shared::run()
{
    int attempt = 0;
    const QString where = host + QLatin1Char(':') + QString::number(port);
    while (!stopping && !disconnect) {
        connackCode = 0;
        errno = 0;
        int rc = mosquitto_connect(mosq, host.toUtf8().constData(), port, kKeepAliveSeconds);
        const int connectErrno = errno;
        if (rc != MOSQ_ERR_SUCCESS) {
            const QString text =
                QStringLiteral("cannot connect to %1: %2").arg(where, describe(rc, connectErrno));
            post([target = owner, text] {
                if (target)
                    target->onFailure(false, text);
            });
        } else {
            // Runs the protocol until the connection ends (or is refused).
            while (!stopping && !disconnect) {
                errno = 0;
                rc = mosquitto_loop(mosq, kLoopTimeoutMs, 1);
                if (rc != MOSQ_ERR_SUCCESS)
                    break;
            }
            const int savedErrno = errno;
            const bool wasConnected = connected.exchange(false);
            if (disconnect && rc == MOSQ_ERR_SUCCESS) {
                // The loop writes what is queued, then DISCONNECT, then the
                // library closes the socket and the loop says so.
                mosquitto_disconnect(mosq);
                for (int i = 0; i < 20 && mosquitto_loop(mosq, 50, 1) == MOSQ_ERR_SUCCESS; ++i) {
                }
                break;
            }
            if (stopping || disconnect)
                break;
            if (connackCode != 0) {
                const QString text =
                    QStringLiteral("the broker at %1 refused the connection: %2")
                        .arg(where, QString::fromUtf8(mosquitto_connack_string(connackCode))
                                        .remove(QStringLiteral("Connection Refused: "))
                                        .remove(QLatin1Char('.')));
                post([target = owner, text] {
                    if (target)
                        target->onFailure(true, text);
                });
            } else {
                const QString text = QStringLiteral("connection to %1 ended: %2")
                                         .arg(where, describe(rc, savedErrno));
                post([target = owner, text] {
                    if (target)
                        target->onFailure(false, text);
                });
            }
            mosquitto_disconnect(mosq);
            if (wasConnected)
                attempt = 0;
        }
        if (!pause(MqttClient::retryDelayMs(attempt)))
            break;
        ++attempt;
    }
}

void MqttClient::onConnected()
{
    lastProblem.clear();
    pending.clear();
    if (current != State::Connected) {
        current = State::Connected;
        emit problem(QStringLiteral("connected to %1")
                         .arg(shared->host + QLatin1Char(':') + QString::number(shared->port)));
        emit stateChanged(current);
    }
    emit connected();
}

void MqttClient::onFailure(bool refused, const QString &text)
{
    const State state = refused ? State::Refused : State::Connecting;
    if (text != lastProblem) {
        lastProblem = text;
        emit problem(text + QStringLiteral(" (retrying)"));
    }
    if (state != current) {
        current = state;
        emit stateChanged(current);
    }
    if (!pending.isEmpty()) {
        pending.clear();
        emit drained();
    }
}

void MqttClient::onPublished(int mid)
{
    if (pending.remove(mid) && pending.isEmpty())
        emit drained();
}

bool MqttClient::publish(const MqttMessage &message, int qos)
{
    if (current != State::Connected || !shared->mosq || shared->disconnect || shared->stopping)
        return false;
    int mid = 0;
    const int rc =
        mosquitto_publish(shared->mosq, &mid, message.topic.toUtf8().constData(),
                          message.payload.size(), message.payload.constData(), qos, message.retain);
    if (rc != MOSQ_ERR_SUCCESS)
        return false;
    if (qos > 0)
        pending.insert(mid);
    return true;
}

void MqttClient::stop(int timeoutMs)
{
    if (!shared->mosq || !shared->thread.joinable())
        return;
    if (current == State::Connected && !pending.isEmpty()) {
        // The acknowledgements arrive as queued calls: let them in.
        QEventLoop loop;
        QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
        connect(this, &MqttClient::drained, &loop, &QEventLoop::quit);
        connect(this, &MqttClient::stateChanged, &loop, &QEventLoop::quit);
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    shared->disconnect = true;
    shared->finish(kJoinMs);
    if (current == State::Connected) {
        current = State::Connecting;
        emit stateChanged(current);
    }
}
