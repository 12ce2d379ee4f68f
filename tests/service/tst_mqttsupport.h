#pragma once

// Test helpers for the MQTT tests: Debian's mosquitto broker on a free
// loopback port with a configuration of the test's own (plain, with a
// password file, or TLS with a certificate made by openssl), and a
// subscriber that records what arrives.

#include "service/mqttclient.h"
#include "service/mqttoptions.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

// A TCP port on 127.0.0.1 that was free a moment ago (0 on failure), or
// whether something listens on one.
inline int freeLoopbackPort(bool probeOnly = false, int port = 0)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(quint16(port));
    int result = 0;
    if (probeOnly) {
        result =
            ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ? port : 0;
    } else if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        socklen_t length = sizeof address;
        if (::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
            result = ntohs(address.sin_port);
    }
    ::close(fd);
    return result;
}

struct MqttReceived {
    QString topic;
    QByteArray payload;
    bool retained = false;
};

class TestBroker
{
public:
    enum class Kind { Plain, Password, Tls };
    static constexpr const char *kUser = "site";
    static constexpr const char *kPassword = "correct horse";

    explicit TestBroker(Kind kind = Kind::Plain) : port(freeLoopbackPort()), kind(kind) {}
    ~TestBroker() { stop(); }

    // Writes the configuration (and password file or certificate) and
    // starts the broker; true once it accepts connections.
    bool start()
    {
        if (!dir.isValid() || port == 0)
            return false;
        if (config.isEmpty() && !prepare())
            return false;
        process.setProgram(QStringLiteral("/usr/sbin/mosquitto"));
        process.setArguments({QStringLiteral("-c"), config});
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start();
        if (!process.waitForStarted(5000))
            return false;
        const QDeadlineTimer deadline(10000);
        while (!deadline.hasExpired() && process.state() == QProcess::Running) {
            if (freeLoopbackPort(true, port) == port)
                return true;
            QTest::qWait(50);
        }
        return false;
    }

    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(5000)) {
            process.kill();
            process.waitForFinished(2000);
        }
    }

    // Options that reach this broker (with the password and CA when needed).
    MqttOptions options() const
    {
        MqttOptions o;
        o.enabled = true;
        o.host = QStringLiteral("127.0.0.1");
        o.port = port;
        o.tls = kind == Kind::Tls;
        if (kind == Kind::Password) {
            o.user = QLatin1String(kUser);
            o.password = QLatin1String(kPassword);
        }
        if (kind == Kind::Tls)
            o.caFile = dir.filePath(QStringLiteral("cert.pem"));
        o.clientIdPrefix = QStringLiteral("orv-test");
        return o;
    }

    int port = 0;

private:
    static bool run(const QString &program, const QStringList &args)
    {
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(program, args);
        if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit ||
            p.exitCode() != 0) {
            qWarning("%s failed: %s", qPrintable(program), p.readAll().constData());
            return false;
        }
        return true;
    }

    bool prepare()
    {
        // Started as root, the broker drops to its own user: it must be able
        // to read the files of this (test-only) directory.
        QFile::setPermissions(dir.path(), QFile::permissions(dir.path()) | QFileDevice::ReadOther |
                                              QFileDevice::ExeOther | QFileDevice::ReadGroup |
                                              QFileDevice::ExeGroup);
        QString text =
            QStringLiteral(
                "listener %1 127.0.0.1\npersistence false\nlog_dest stderr\nlog_type error\n")
                .arg(port);
        if (kind == Kind::Password) {
            const QString passwords = dir.filePath(QStringLiteral("passwords"));
            if (!run(QStringLiteral("mosquitto_passwd"),
                     {QStringLiteral("-b"), QStringLiteral("-c"), passwords, QLatin1String(kUser),
                      QLatin1String(kPassword)}))
                return false;
            text += QStringLiteral("allow_anonymous false\npassword_file %1\n").arg(passwords);
        } else {
            text += QStringLiteral("allow_anonymous true\n");
        }
        if (kind == Kind::Tls) {
            const QString cert = dir.filePath(QStringLiteral("cert.pem"));
            const QString key = dir.filePath(QStringLiteral("key.pem"));
            if (!run(QStringLiteral("openssl"),
                     {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                      QStringLiteral("rsa:2048"), QStringLiteral("-nodes"),
                      QStringLiteral("-keyout"), key, QStringLiteral("-out"), cert,
                      QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                      QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"),
                      QStringLiteral("subjectAltName=IP:127.0.0.1,DNS:localhost")}))
                return false;
            text += QStringLiteral("cafile %1\ncertfile %1\nkeyfile %2\n").arg(cert, key);
        }
        config = dir.filePath(QStringLiteral("mosquitto.conf"));
        QFile file(config);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write(text.toUtf8());
        file.close();
        for (const QString &name : QDir(dir.path()).entryList(QDir::Files))
            QFile::setPermissions(dir.filePath(name),
                                  QFile::permissions(dir.filePath(name)) | QFileDevice::ReadOther);
        return true;
    }

    Kind kind;
    QTemporaryDir dir;
    QString config;
    QProcess process;
};

// A client that subscribes to filters and keeps what arrives.
class TestSubscriber : public QObject
{
public:
    TestSubscriber(const MqttOptions &options, const QString &name, const QStringList &filters)
        : client(options, options.clientIdFor(name), MqttMessage(), filters)
    {
        QObject::connect(&client, &MqttClient::messageReceived, this,
                         [this](const QString &topic, const QByteArray &payload, bool retained) {
                             received.append(MqttReceived{topic, payload, retained});
                         });
        client.start();
    }

    bool waitConnected(int ms = 15000)
    {
        QDeadlineTimer deadline(ms);
        while (!client.isConnected() && !deadline.hasExpired())
            QTest::qWait(20);
        return client.isConnected();
    }

    // The latest message on topic, waiting for one that matches (payload
    // empty: any) up to ms.
    bool waitFor(const QString &topic, const QByteArray &payload = QByteArray(), int ms = 15000,
                 MqttReceived *out = nullptr)
    {
        QDeadlineTimer deadline(ms);
        do {
            for (int i = received.size() - 1; i >= 0; --i) {
                const MqttReceived &r = received.at(i);
                if (r.topic == topic && (payload.isNull() || r.payload == payload)) {
                    if (out)
                        *out = r;
                    return true;
                }
            }
            QTest::qWait(20);
        } while (!deadline.hasExpired());
        return false;
    }

    QList<MqttReceived> on(const QString &topic) const
    {
        QList<MqttReceived> out;
        for (const MqttReceived &r : received) {
            if (r.topic == topic)
                out << r;
        }
        return out;
    }

    MqttClient client;
    QList<MqttReceived> received;
};
