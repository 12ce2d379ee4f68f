#include "service/mqttoptions.h"

#include <QCommandLineParser>
#include <QFile>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSysInfo>
#include <QUrl>

namespace
{

const QString kMqtt = QStringLiteral("mqtt");
const QString kCa = QStringLiteral("mqtt-ca");
const QString kPasswordFile = QStringLiteral("mqtt-password-file");
const QString kClientId = QStringLiteral("mqtt-client-id");
const QString kBase = QStringLiteral("mqtt-base");
const QString kTargetsRate = QStringLiteral("mqtt-targets-rate");
const QString kNoDiscovery = QStringLiteral("no-discovery");
const QString kDiscoveryPrefix = QStringLiteral("discovery-prefix");
const QString kForget = QStringLiteral("forget");

// A topic level: not empty, no wildcards, no '/' at either end.
bool validTopicPrefix(const QString &prefix)
{
    return !prefix.isEmpty() && !prefix.contains(QLatin1Char('+')) &&
           !prefix.contains(QLatin1Char('#')) && !prefix.startsWith(QLatin1Char('/')) &&
           !prefix.endsWith(QLatin1Char('/')) && !prefix.contains(QStringLiteral("//"));
}

MqttOptions failed(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return MqttOptions();
}

} // namespace

QString mqttSafeName(const QString &name)
{
    QString out = name;
    for (QChar &c : out) {
        const bool ok = (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
                        (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ||
                        (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('-') ||
                        c == QLatin1Char('_');
        if (!ok)
            c = QLatin1Char('_');
    }
    return out.isEmpty() ? QStringLiteral("host") : out;
}

QString MqttOptions::clientIdFor(const QString &id) const
{
    const QString prefix = clientIdPrefix.isEmpty()
                               ? QStringLiteral("orv-") + mqttSafeName(QSysInfo::machineHostName())
                               : clientIdPrefix;
    return prefix + QLatin1Char('-') + id;
}

QString MqttOptions::displayUrl() const
{
    QString url = tls ? QStringLiteral("mqtts://") : QStringLiteral("mqtt://");
    if (!user.isEmpty())
        url += user + QLatin1Char('@');
    url += host.contains(QLatin1Char(':')) ? QLatin1Char('[') + host + QLatin1Char(']') : host;
    return url + QLatin1Char(':') + QString::number(port);
}

bool parseMqttUrl(const QString &url, MqttOptions *options, QString *error)
{
    // Messages show the URL with any password blotted out.
    QString shown = url;
    const int schemeEnd = shown.indexOf(QStringLiteral("://"));
    const int atSign = shown.lastIndexOf(QLatin1Char('@'));
    const int colon = schemeEnd >= 0 ? shown.indexOf(QLatin1Char(':'), schemeEnd + 3) : -1;
    if (schemeEnd >= 0 && atSign > colon && colon > 0)
        shown.replace(colon + 1, atSign - colon - 1, QStringLiteral("***"));
    auto fail = [error, &shown](const QString &why) {
        if (error)
            *error = QStringLiteral("--mqtt %1: %2").arg(shown, why);
        return false;
    };
    QString rest;
    bool tls = false;
    if (url.startsWith(QStringLiteral("mqtt://"))) {
        rest = url.mid(7);
    } else if (url.startsWith(QStringLiteral("mqtts://"))) {
        rest = url.mid(8);
        tls = true;
    } else {
        return fail(
            QStringLiteral("expected mqtt://[USER@]HOST[:PORT] or mqtts://[USER@]HOST[:PORT]"));
    }
    if (rest.endsWith(QLatin1Char('/')))
        rest.chop(1);
    if (rest.contains(QLatin1Char('/')) || rest.contains(QLatin1Char('?')) ||
        rest.contains(QLatin1Char('#')))
        return fail(QStringLiteral("a broker URL has no path or query"));
    QString user;
    const int at = rest.lastIndexOf(QLatin1Char('@'));
    if (at >= 0) {
        user = rest.left(at);
        rest = rest.mid(at + 1);
        if (user.contains(QLatin1Char(':')))
            return fail(QStringLiteral(
                "a password does not belong in the URL (it would show in the process list); "
                "use --mqtt-password-file FILE or the environment variable ORV_MQTT_PASSWORD"));
        if (user.isEmpty())
            return fail(QStringLiteral("empty user name before '@'"));
    }
    QString host = rest;
    QString portText;
    if (host.startsWith(QLatin1Char('['))) {
        const int close = host.indexOf(QLatin1Char(']'));
        if (close < 0)
            return fail(QStringLiteral("unclosed '[' in the host"));
        const QString after = host.mid(close + 1);
        host = host.mid(1, close - 1);
        if (!after.isEmpty()) {
            if (!after.startsWith(QLatin1Char(':')))
                return fail(QStringLiteral("unexpected text after the host"));
            portText = after.mid(1);
        }
    } else {
        const int colon = host.lastIndexOf(QLatin1Char(':'));
        if (colon >= 0) {
            portText = host.mid(colon + 1);
            host = host.left(colon);
        }
    }
    if (host.isEmpty())
        return fail(QStringLiteral("no host"));
    int port = tls ? 8883 : 1883;
    if (!portText.isNull()) {
        bool ok = false;
        port = portText.toInt(&ok);
        if (!ok || port < 1 || port > 65535)
            return fail(QStringLiteral("the port must be a number from 1 to 65535"));
    }
    options->tls = tls;
    options->host = host;
    options->port = port;
    options->user = QUrl::fromPercentEncoding(user.toUtf8());
    return true;
}

void addMqttOptions(QCommandLineParser &parser)
{
    parser.addOption(
        {kMqtt,
         QStringLiteral(
             "Publish every module to the MQTT broker at URL: mqtt://[USER@]HOST[:PORT] or "
             "mqtts://[USER@]HOST[:PORT] (TLS). Never put a password in the URL."),
         QStringLiteral("URL")});
    parser.addOption(
        {kCa,
         QStringLiteral(
             "Verify the broker's TLS certificate against the certificate authorities in FILE "
             "(default: the system's)."),
         QStringLiteral("FILE")});
    parser.addOption(
        {kPasswordFile,
         QStringLiteral(
             "The broker password: the first line of FILE (else the environment variable "
             "ORV_MQTT_PASSWORD)."),
         QStringLiteral("FILE")});
    parser.addOption({kClientId,
                      QStringLiteral("MQTT client ids PREFIX-ID (default orv-HOSTNAME-ID)."),
                      QStringLiteral("PREFIX")});
    parser.addOption(
        {kBase, QStringLiteral("Topics under BASE/ID/ (default orv)."), QStringLiteral("BASE")});
    parser.addOption(
        {kTargetsRate,
         QStringLiteral(
             "Publish the latest targets report at most HZ times a second (default 1; 0 never)."),
         QStringLiteral("HZ")});
    parser.addOption(
        {kNoDiscovery,
         QStringLiteral("Do not announce the modules to Home Assistant (MQTT discovery).")});
    parser.addOption({kDiscoveryPrefix,
                      QStringLiteral("Home Assistant's discovery prefix (default homeassistant)."),
                      QStringLiteral("PREFIX")});
    parser.addOption(
        {kForget,
         QStringLiteral(
             "Clear module ID's discovery and retained topics on the broker and exit; opens "
             "no serial or HTTP port."),
         QStringLiteral("ID")});
}

MqttOptions mqttOptionsFrom(const QCommandLineParser &parser, QString *error)
{
    return mqttOptionsFrom(parser, QProcessEnvironment::systemEnvironment(), error);
}

MqttOptions mqttOptionsFrom(const QCommandLineParser &parser, const QProcessEnvironment &env,
                            QString *error)
{
    if (error)
        error->clear();
    if (!parser.isSet(kMqtt)) {
        for (const QString &name : {kCa, kPasswordFile, kClientId, kBase, kTargetsRate,
                                    kNoDiscovery, kDiscoveryPrefix, kForget}) {
            if (parser.isSet(name))
                return failed(error, QStringLiteral("--%1 needs --mqtt URL").arg(name));
        }
        return MqttOptions();
    }
    MqttOptions options;
    if (!parseMqttUrl(parser.value(kMqtt), &options, error))
        return MqttOptions();

    if (parser.isSet(kCa)) {
        options.caFile = parser.value(kCa);
        if (!options.tls)
            return failed(error, QStringLiteral("--mqtt-ca needs an mqtts:// URL"));
        QFile ca(options.caFile);
        if (!ca.open(QIODevice::ReadOnly))
            return failed(error,
                          QStringLiteral("--mqtt-ca %1: %2").arg(options.caFile, ca.errorString()));
    }

    if (parser.isSet(kPasswordFile)) {
        const QString path = parser.value(kPasswordFile);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return failed(
                error, QStringLiteral("--mqtt-password-file %1: %2").arg(path, file.errorString()));
        QByteArray line = file.readLine(64 * 1024);
        while (line.endsWith('\n') || line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty())
            return failed(
                error,
                QStringLiteral("--mqtt-password-file %1: the first line is empty").arg(path));
        options.password = QString::fromUtf8(line);
    } else if (env.contains(QStringLiteral("ORV_MQTT_PASSWORD"))) {
        options.password = env.value(QStringLiteral("ORV_MQTT_PASSWORD"));
    }
    if (!options.password.isEmpty() && options.user.isEmpty())
        return failed(error,
                      QStringLiteral("a broker password needs a user name: mqtt://USER@HOST"));

    if (parser.isSet(kClientId)) {
        options.clientIdPrefix = parser.value(kClientId);
        static const QRegularExpression safe(QStringLiteral("^[A-Za-z0-9_-]+$"));
        if (!safe.match(options.clientIdPrefix).hasMatch())
            return failed(
                error, QStringLiteral("--mqtt-client-id %1: use letters, digits, '-' and '_' only")
                           .arg(options.clientIdPrefix));
    }
    if (parser.isSet(kBase)) {
        options.base = parser.value(kBase);
        if (!validTopicPrefix(options.base))
            return failed(
                error,
                QStringLiteral("--mqtt-base %1: not a usable topic prefix (no '+', '#', empty "
                               "levels or '/' at either end)")
                    .arg(options.base));
    }
    if (parser.isSet(kTargetsRate)) {
        bool ok = false;
        options.targetsRate = parser.value(kTargetsRate).toDouble(&ok);
        if (!ok || !(options.targetsRate >= 0.0) || options.targetsRate > 1000.0)
            return failed(
                error,
                QStringLiteral("--mqtt-targets-rate %1: expected a number of Hz from 0 to 1000")
                    .arg(parser.value(kTargetsRate)));
    }
    options.discovery = !parser.isSet(kNoDiscovery);
    if (parser.isSet(kDiscoveryPrefix)) {
        options.discoveryPrefix = parser.value(kDiscoveryPrefix);
        if (!validTopicPrefix(options.discoveryPrefix))
            return failed(error, QStringLiteral("--discovery-prefix %1: not a usable topic prefix")
                                     .arg(options.discoveryPrefix));
    }
    if (parser.isSet(kForget)) {
        options.forgetId = parser.value(kForget);
        static const QRegularExpression idRule(QStringLiteral("^[A-Za-z0-9_-]+$"));
        if (!idRule.match(options.forgetId).hasMatch())
            return failed(
                error,
                QStringLiteral("--forget %1: a module ID has letters, digits, '-' and '_' only")
                    .arg(options.forgetId));
    }
    options.enabled = true;
    return options;
}
