#pragma once

// The --mqtt* options of orv-cli serve and what they say, checked before any
// port or broker connection is opened.
//
//   --mqtt mqtt://[USER@]HOST[:PORT] | mqtts://[USER@]HOST[:PORT]
//   --mqtt-ca FILE, --mqtt-password-file FILE (or ORV_MQTT_PASSWORD),
//   --mqtt-client-id PREFIX, --mqtt-base BASE, --mqtt-targets-rate HZ,
//   --no-discovery, --discovery-prefix PREFIX, --forget ID

#include <QString>

class QCommandLineParser;
class QProcessEnvironment;

struct MqttOptions {
    bool enabled = false; // --mqtt given
    bool tls = false;     // mqtts://
    QString host;
    int port = 1883;
    QString user;
    QString password;
    QString caFile;         // empty: the system's certificate authorities
    QString clientIdPrefix; // empty: "orv-<hostname>"
    QString base = QStringLiteral("orv");
    double targetsRate = 1.0; // Hz; 0 = never
    bool discovery = true;
    QString discoveryPrefix = QStringLiteral("homeassistant");
    QString forgetId; // --forget ID

    // "orv-<hostname>" or the --mqtt-client-id prefix; the client id of a
    // module is "<prefix>-<ID>".
    QString clientIdFor(const QString &id) const;
    // mqtt://user@host:port, without the password, for messages.
    QString displayUrl() const;
};

void addMqttOptions(QCommandLineParser &parser);

// The options from a parsed command line. On a mistake, returns options with
// enabled false and sets *error to a message naming the option. Without
// --mqtt the result has enabled false and *error stays empty (but --mqtt-*
// options without --mqtt are a mistake).
MqttOptions mqttOptionsFrom(const QCommandLineParser &parser, QString *error);
MqttOptions mqttOptionsFrom(const QCommandLineParser &parser, const QProcessEnvironment &env,
                            QString *error);

// Parses the --mqtt URL into options (tls, host, port, user). A password in
// the URL, another scheme, a path or a bad port is refused.
bool parseMqttUrl(const QString &url, MqttOptions *options, QString *error);

// The host name as client ids and discovery identifiers use it: letters,
// digits, '-' and '_' only (others become '_').
QString mqttSafeName(const QString &name);
