#include "service/servecommand.h"

#include "cli/cliapp.h"
#include "cli/exitcode.h"
#include "cli/interrupt.h"
#include "cli/portoptions.h"
#include "service/httpapi.h"
#include "service/httpserver.h"
#include "service/module.h"
#include "service/mqttbridge.h"
#include "service/mqttforget.h"
#include "service/mqttoptions.h"
#include "service/tokenfile.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSet>
#include <QSysInfo>
#include <QTimer>

#include <sys/resource.h>

namespace
{

// Lets one process hold as many sockets as the system allows it: the soft
// limit on open files (often 1024) up to the hard one, so that a thousand
// viewers fit.
void raiseOpenFileLimit()
{
    rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

class ServeCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("serve"); }
    QString summary() const override
    {
        return QStringLiteral("serve modules over HTTP: JSON API, live events, web page");
    }
    QString synopsis() const override
    {
        return QStringLiteral("--port [ID=]P ... [--baud N|auto] [--listen ADDR:PORT] "
                              "[--token-file F]");
    }
    QString details() const override
    {
        return QStringLiteral(
            "Owns the modules' ports and serves them over HTTP until Ctrl-C or SIGTERM\n"
            "(exit code 0): a JSON API under /api/, a live event stream per module\n"
            "(/api/modules/ID/events, Server-Sent Events), Prometheus metrics (/metrics)\n"
            "and a web page (/) to watch the targets and edit the areas from a browser.\n"
            "Each module is probed, its display type and areas are read, then its\n"
            "reports are streamed; a lost or busy port is retried until it comes back.\n"
            "\n"
            "--port may be given several times. ID (letters, digits, '-', '_') names the\n"
            "module in URLs; without it the port's name is used (ttyUSB0, pts-3).\n"
            "\n"
            "Access needs a token: a random one is made on the first start and kept in\n"
            "the token file (default: $XDG_STATE_HOME/orv-tool/serve-token, or\n"
            "~/.local/state/orv-tool/serve-token; $STATE_DIRECTORY/serve-token under\n"
            "systemd). One line per listen address is printed at start with the URL to\n"
            "open, token included. API clients send \"Authorization: Bearer TOKEN\".\n"
            "\n"
            "The default listen address, 127.0.0.1:7318, is reachable from this computer\n"
            "only. To reach the page from a phone on the site, listen on the computer's\n"
            "address (--listen 0.0.0.0:7318): whoever has the printed link can then\n"
            "change the module's areas.\n"
            "\n"
            "See docs/serve.md for the API.");
    }
    QString exitCodes() const override
    {
        return QStringLiteral("  0  stopped by Ctrl-C or SIGTERM\n"
                              "  2  bad command line, or the token file cannot be used\n"
                              "  3  cannot listen on an address\n");
    }

    void addOptions(QCommandLineParser &parser) override
    {
        parser.addOption({{"p", "port"},
                          "A module's serial port, with the id to use in URLs (ID=P); "
                          "repeat for more modules.",
                          "[ID=]P"});
        parser.addOption({{"b", "baud"},
                          "The modules' baud rate, or auto to probe it (default).",
                          "N|auto",
                          "auto"});
        parser.addOption({"listen",
                          "Where to serve: an address and port, [ADDR]:PORT for IPv6 "
                          "(default 127.0.0.1:7318); repeat for more.",
                          "ADDR:PORT"});
        parser.addOption(
            {"token-file", "Where the access token is kept (made on first start).", "F"});
        parser.addOption({"max-connections",
                          "Connections served at once; more are answered 503 (default 2048).", "N",
                          "2048"});
        addMqttOptions(parser);
    }

    int run(CliContext &context) override;
};

int ServeCommand::run(CliContext &context)
{
    const QCommandLineParser &parser = context.parser;
    if (!parser.positionalArguments().isEmpty())
        return context.usageError(
            QString("unexpected argument \"%1\"").arg(parser.positionalArguments().first()));

    QString mqttError;
    const MqttOptions mqtt = mqttOptionsFrom(parser, &mqttError);
    if (!mqttError.isEmpty())
        return context.usageError(mqttError);
    // --forget ID clears a module's traces on the broker and ends.
    if (mqtt.enabled && !mqtt.forgetId.isEmpty())
        return runMqttForget(mqtt, mqtt.forgetId);

    // The modules.
    struct ServedPort {
        QString id, port;
    };
    QList<ServedPort> ports;
    QSet<QString> ids, paths;
    const QStringList portValues = parser.values("port");
    if (portValues.isEmpty())
        return context.usageError("--port [ID=]P is required ('orv-cli ports' lists the ports)");
    for (const QString &value : portValues) {
        ServedPort served;
        QString error;
        if (!parseServePort(value, &served.id, &served.port, &error))
            return context.usageError(error);
        if (ids.contains(served.id))
            return context.usageError(
                QString("--port: the id \"%1\" names two modules; give one of them ID=%2")
                    .arg(served.id, served.port));
        if (paths.contains(served.port))
            return context.usageError(QString("--port: %1 is given twice").arg(served.port));
        ids.insert(served.id);
        paths.insert(served.port);
        ports.append(served);
    }
    const QString baud = parser.value("baud").trimmed();
    int baudValue = 0;
    if (baud.compare(QLatin1String("auto"), Qt::CaseInsensitive) != 0 &&
        !PortOptions::parseBaud(baud, &baudValue))
        return context.usageError(
            QString("--baud: \"%1\" is neither a baud rate (1..16777215) nor auto").arg(baud));

    // The listen addresses.
    QList<ListenAddress> addresses;
    QStringList listenValues = parser.values("listen");
    if (listenValues.isEmpty())
        listenValues << QStringLiteral("127.0.0.1:7318");
    const bool noHttp = listenValues == QStringList{QStringLiteral("none")};
    if (noHttp && !mqtt.enabled)
        return context.usageError("--listen none leaves nothing to serve without --mqtt");
    for (const QString &value : noHttp ? QStringList() : listenValues) {
        if (value.trimmed() == QLatin1String("none"))
            return context.usageError("--listen none cannot go with other addresses");
        ListenAddress address;
        QString error;
        if (!ListenAddress::parse(value, &address, &error))
            return context.usageError(error);
        addresses.append(address);
    }
    HttpServer::Limits limits;
    bool ok = false;
    limits.maxConnections = parser.value("max-connections").toInt(&ok);
    if (!ok || limits.maxConnections < 1 || limits.maxConnections > 100000)
        return context.usageError(QString("--max-connections: \"%1\" is not a count (1..100000)")
                                      .arg(parser.value("max-connections")));

    // The token.
    const QString tokenPath =
        parser.isSet("token-file") ? parser.value("token-file") : TokenFile::defaultPath();
    QByteArray token;
    bool created = false;
    QString tokenError;
    if (!TokenFile::loadOrCreate(tokenPath, &token, &created, &tokenError))
        return context.fail(ExitUsage, tokenError);
    if (created)
        context.note(QString("a new access token was made and kept in %1").arg(tokenPath));

    raiseOpenFileLimit();

    HttpApi api(token);
    QList<Module *> modules;
    for (const ServedPort &served : ports) {
        auto *module = new Module(served.id, served.port, baud, &api);
        modules.append(module);
        api.addModule(module);
    }
    HttpServer server([&api](const HttpRequest &request,
                             HttpReply reply) { api.handle(request, std::move(reply)); },
                      limits);
    for (const ListenAddress &address : addresses) {
        int port = 0;
        QString error;
        if (!server.listen(address, &port, &error))
            return context.fail(ExitPortError, error);
        QString host = address.hostAndPort(port);
        if (address.isWildcard())
            host = QString("%1:%2").arg(QSysInfo::machineHostName()).arg(port);
        QString line =
            QString("orv-cli serve: http://%1/?token=%2").arg(host, QString::fromLatin1(token));
        if (!address.isLoopback())
            line += QStringLiteral(
                "  (not loopback: whoever has this link can change the modules' areas)");
        context.print(line + '\n');
        std::fflush(context.out);
    }
    for (Module *module : modules)
        module->start();
    const QList<MqttBridge *> bridges =
        mqtt.enabled ? startMqtt(modules, mqtt, &api) : QList<MqttBridge *>();

    QTimer keepAlive;
    QObject::connect(&keepAlive, &QTimer::timeout, &api, &HttpApi::keepAlive);
    keepAlive.start(1000);
    QTimer interruptPoll;
    QObject::connect(&interruptPoll, &QTimer::timeout, [] {
        if (Interrupt::requested())
            QCoreApplication::quit();
    });
    // Often enough to end well within 2 s of a signal; every look wakes the
    // process, which is most of what it costs between reports.
    interruptPoll.start(250);

    QCoreApplication::exec();

    // Streams end first, then the server finishes what it has in hand.
    api.closeStreams();
    server.stop(1000);
    for (MqttBridge *bridge : bridges)
        bridge->stop();
    context.note("stopped");
    return ExitDone;
}

} // namespace

bool isModuleId(const QString &id)
{
    static const QRegularExpression rule(QStringLiteral("^[A-Za-z0-9_-]{1,64}$"));
    return rule.match(id).hasMatch();
}

QString moduleIdForPort(const QString &port)
{
    QString name = port;
    if (name.startsWith(QLatin1String("/dev/")))
        name = name.mid(5);
    else if (name.contains('/'))
        name = name.section('/', -1);
    QString id;
    for (const QChar c : name)
        id += (c.isLetterOrNumber() && c.unicode() < 128) || c == '_' || c == '-' ? c : QChar('-');
    return id.left(64);
}

bool parseServePort(const QString &text, QString *id, QString *port, QString *error)
{
    const QString t = text.trimmed();
    const int eq = t.indexOf('=');
    if (eq >= 0) {
        *id = t.left(eq);
        *port = t.mid(eq + 1);
        if (!isModuleId(*id)) {
            *error = QString("--port: \"%1\" is not an id (letters, digits, '-' and '_')").arg(*id);
            return false;
        }
    } else {
        *port = t;
        *id = moduleIdForPort(t);
    }
    if (port->isEmpty()) {
        *error = QStringLiteral("--port needs a port name");
        return false;
    }
    if (!isModuleId(*id)) {
        *error = QString("--port: no id can be made from \"%1\"; give one (ID=%1)").arg(*port);
        return false;
    }
    return true;
}

void registerServeCommand(CliApp &app)
{
    app.add<ServeCommand>();
}
