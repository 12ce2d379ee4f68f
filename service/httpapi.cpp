#include "service/httpapi.h"

#include "service/auth.h"
#include "service/eventstream.h"
#include "web/webassets.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QPointer>

#include <cmath>

struct HttpApi::Served {
    Module *module = nullptr;
    std::unique_ptr<EventHub> hub;
};

namespace HttpApiText
{

bool parseObject(const QByteArray &body, QJsonObject *object, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = QString("the body is not JSON: %1 at byte %2")
                     .arg(parseError.errorString())
                     .arg(parseError.offset);
        return false;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("the body is not a JSON object");
        return false;
    }
    *object = doc.object();
    return true;
}

QString downloadName(const QString &id, const QDate &date)
{
    return QString("orv-%1-%2.json").arg(id, date.toString(Qt::ISODate));
}

bool parseRate(const QByteArray &text, double *hz)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v) || v <= 0 || v > 1000)
        return false;
    *hz = v;
    return true;
}

int areaNumber(const QString &text)
{
    if (text == QLatin1String("1") || text == QLatin1String("2") || text == QLatin1String("3"))
        return text.toInt();
    return 0;
}

int writeStatus(int kind)
{
    switch (kind) {
    case WriteResult::Ok:
        return 200;
    case WriteResult::Invalid:
        return 400;
    case WriteResult::NotOpen:
        return 503;
    case WriteResult::Refused:
    case WriteResult::Mismatch:
        return 409;
    case WriteResult::Timeout:
        return 504;
    }
    return 500;
}

} // namespace HttpApiText

namespace
{

QByteArray compact(const QJsonObject &o)
{
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

HttpResponse methodNotAllowed(const QByteArray &method, const QByteArray &allow)
{
    return HttpResponse::error(405,
                               QString("%1 is not allowed here (allowed: %2)")
                                   .arg(QString::fromLatin1(method), QString::fromLatin1(allow)))
        .withHeader("Allow", allow);
}

const char kLoginPage[] = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>orv-tool: token needed</title>
<style>body{font-family:sans-serif;max-width:34em;margin:2em auto;padding:0 1em;line-height:1.5}
code{background:#eee;padding:0 .2em}</style></head>
<body><h1>A token is needed</h1>
<p>This service shows and configures radar modules; it opens only with its access token.</p>
<p>Open the link that <code>orv-cli serve</code> printed when it started (it ends in
<code>/?token=...</code>), or add <code>?token=TOKEN</code> to this address. The token is kept in
the service's token file: by default <code>~/.local/state/orv-tool/serve-token</code> of the user
who started it, or <code>serve-token</code> in the state directory of the system service.</p>
<p>需要访问令牌：请打开 <code>orv-cli serve</code> 启动时打印的链接（以 <code>/?token=...</code> 结尾）。</p>
</body></html>
)";

} // namespace

HttpApi::HttpApi(const QByteArray &token, QObject *parent) : QObject(parent), token(token) {}

HttpApi::~HttpApi() = default;

void HttpApi::addModule(Module *module)
{
    auto served = std::make_unique<Served>();
    served->module = module;
    served->hub = std::make_unique<EventHub>();
    EventHub *hub = served->hub.get();
    connect(module, &Module::statusChanged, this,
            [hub](const QJsonObject &o) { hub->publish(EventKind::Status, compact(o)); });
    connect(module, &Module::configChanged, this,
            [hub](const QJsonObject &o) { hub->publish(EventKind::Config, compact(o)); });
    // Reports go out as watch's jsonl text, without parsing them again.
    connect(module, &Module::targetsLine, this,
            [hub](const QByteArray &json) { hub->publish(EventKind::Targets, json); });
    connect(module, &Module::areasLine, this,
            [hub](const QByteArray &json) { hub->publish(EventKind::Areas, json); });
    modules.push_back(std::move(served));
}

void HttpApi::closeStreams()
{
    for (const auto &s : modules)
        s->hub->closeAll();
}

void HttpApi::keepAlive()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    for (const auto &s : modules)
        s->hub->keepAlive(now, kKeepAliveMs, kStuckMs);
}

QList<ModuleMetrics> HttpApi::metrics() const
{
    QList<ModuleMetrics> list;
    for (const auto &s : modules) {
        const QJsonObject stats = s->module->status().value("stats").toObject();
        ModuleMetrics m;
        m.id = s->module->id();
        m.state = Module::stateName(s->module->state());
        m.frames = qint64(stats.value("frames").toDouble());
        m.badSums = qint64(stats.value("badSums").toDouble());
        m.strayBytes = qint64(stats.value("strayBytes").toDouble());
        m.reconnects = s->module->reconnects();
        m.viewers = s->hub->viewerCount();
        m.droppedEvents = s->hub->droppedTotal();
        list.append(m);
    }
    return list;
}

HttpApi::Served *HttpApi::find(const QString &id) const
{
    for (const auto &s : modules)
        if (s->module->id() == id)
            return s.get();
    return nullptr;
}

bool HttpApi::authorized(const HttpRequest &request) const
{
    return Auth::tokensEqual(token,
                             Auth::requestToken(request.header("authorization"),
                                                request.header("cookie"), request.listenPort));
}

void HttpApi::handle(const HttpRequest &request, HttpReply reply)
{
    if (request.loopbackListener && !Auth::isLoopbackHost(request.header("host"))) {
        reply(HttpResponse::error(403, QString("the Host header \"%1\" does not name this "
                                               "computer (the service listens on loopback only)")
                                           .arg(QString::fromLatin1(request.header("host")))));
        return;
    }
    const QByteArray &path = request.path;
    const QByteArray &method = request.method;
    const bool read = method == "GET" || method == "HEAD";

    if (path == "/" || path == "/index.html") {
        if (!read)
            reply(methodNotAllowed(method, "GET"));
        else
            page(request, reply);
        return;
    }
    if (path.startsWith("/assets/")) {
        if (!read) {
            reply(methodNotAllowed(method, "GET"));
            return;
        }
        QByteArray type;
        const QByteArray body = WebAssets::file(QString::fromUtf8(path.mid(8)), &type);
        if (body.isNull())
            reply(
                HttpResponse::error(404, QString("no such file: %1").arg(QString::fromUtf8(path))));
        else
            reply(HttpResponse::bytes(200, type, body).withHeader("Cache-Control", "no-cache"));
        return;
    }
    const bool api = path == "/api" || path.startsWith("/api/");
    if (!api && path != "/metrics") {
        reply(HttpResponse::error(404, QString("no such page: %1").arg(QString::fromUtf8(path))));
        return;
    }
    if (!authorized(request)) {
        reply(HttpResponse::error(401, "a valid token is needed (Authorization: Bearer TOKEN, "
                                       "or open the link orv-cli serve printed)")
                  .withHeader("WWW-Authenticate", "Bearer"));
        return;
    }
    if (!read && !Auth::originAllowed(request.header("origin"), request.header("host"))) {
        reply(HttpResponse::error(403, QString("writes are taken only from this service's own "
                                               "page, not from %1")
                                           .arg(QString::fromLatin1(request.header("origin")))));
        return;
    }
    if (path == "/metrics") {
        if (!read)
            reply(methodNotAllowed(method, "GET"));
        else
            reply(HttpResponse::bytes(200, "text/plain; version=0.0.4; charset=utf-8",
                                      Metrics::text(metrics())));
        return;
    }
    QStringList parts = QString::fromUtf8(path).split('/');
    // "", "api", "modules", ID, ...
    if (parts.size() >= 2 && parts.last().isEmpty() && parts.size() > 3)
        parts.removeLast();
    if (parts.size() < 3 || parts.at(2) != QLatin1String("modules")) {
        reply(
            HttpResponse::error(404, QString("no such resource: %1").arg(QString::fromUtf8(path))));
        return;
    }
    if (parts.size() == 3) {
        if (!read) {
            reply(methodNotAllowed(method, "GET"));
            return;
        }
        QJsonArray list;
        for (const auto &s : modules)
            list.append(s->module->status());
        reply(HttpResponse::json(200, list));
        return;
    }
    Served *served = find(parts.at(3));
    if (!served) {
        reply(HttpResponse::error(404, QString("no module \"%1\" here").arg(parts.at(3))));
        return;
    }
    moduleRoute(*served, parts.mid(4), request, reply);
}

void HttpApi::page(const HttpRequest &request, const HttpReply &reply) const
{
    const QByteArray given = request.query.value("token");
    const bool viaQuery = Auth::tokensEqual(token, given);
    if (!viaQuery && !authorized(request)) {
        reply(HttpResponse::bytes(200, "text/html; charset=utf-8", kLoginPage)
                  .withHeader("Cache-Control", "no-store"));
        return;
    }
    QByteArray type;
    const QByteArray body = WebAssets::file(QStringLiteral("index.html"), &type);
    HttpResponse r = HttpResponse::bytes(200, type, body);
    r.withHeader("Cache-Control", "no-store");
    r.withHeader("Referrer-Policy", "no-referrer");
    if (viaQuery)
        r.withHeader("Set-Cookie", Auth::setCookie(request.listenPort, token));
    reply(r);
}

void HttpApi::moduleRoute(Served &served, const QStringList &rest, const HttpRequest &request,
                          const HttpReply &reply)
{
    const QByteArray &method = request.method;
    const bool read = method == "GET" || method == "HEAD";
    const QString what = rest.value(0);
    if (rest.isEmpty()) {
        if (!read)
            reply(methodNotAllowed(method, "GET"));
        else
            reply(HttpResponse::json(200, served.module->status()));
        return;
    }
    if (what == QLatin1String("areas") && rest.size() == 1) {
        if (read) {
            areas(served, request, reply);
        } else if (method == "PUT") {
            QJsonObject file;
            QString error;
            if (!HttpApiText::parseObject(request.body, &file, &error)) {
                reply(HttpResponse::error(400, error));
                return;
            }
            write(served, request, reply,
                  [file](Module *m, Module::Done done) { m->setAreas(file, std::move(done)); });
        } else if (method == "DELETE") {
            write(served, request, reply,
                  [](Module *m, Module::Done done) { m->cancelAllAreas(std::move(done)); });
        } else {
            reply(methodNotAllowed(method, "GET, PUT, DELETE"));
        }
        return;
    }
    if (what == QLatin1String("areas") && rest.size() == 2) {
        const int number = HttpApiText::areaNumber(rest.at(1));
        if (number == 0) {
            reply(HttpResponse::error(
                404, QString("no area \"%1\" (areas are 1, 2 and 3)").arg(rest.at(1))));
            return;
        }
        if (method == "PUT") {
            QJsonObject area;
            QString error;
            if (!HttpApiText::parseObject(request.body, &area, &error)) {
                reply(HttpResponse::error(400, error));
                return;
            }
            write(served, request, reply, [number, area](Module *m, Module::Done done) {
                m->setArea(number, area, std::move(done));
            });
        } else if (method == "DELETE") {
            write(served, request, reply, [number](Module *m, Module::Done done) {
                m->cancelArea(number, std::move(done));
            });
        } else {
            reply(methodNotAllowed(method, "PUT, DELETE"));
        }
        return;
    }
    if (what == QLatin1String("display") && rest.size() == 1) {
        if (method != "PUT") {
            reply(methodNotAllowed(method, "PUT"));
            return;
        }
        QJsonObject body;
        QString error;
        if (!HttpApiText::parseObject(request.body, &body, &error)) {
            reply(HttpResponse::error(400, error));
            return;
        }
        const QJsonValue display = body.value("display");
        if (!display.isString()) {
            reply(HttpResponse::error(400, "the body needs \"display\": \"area\" or \"track\""));
            return;
        }
        const QString name = display.toString();
        write(served, request, reply,
              [name](Module *m, Module::Done done) { m->setDisplay(name, std::move(done)); });
        return;
    }
    if (what == QLatin1String("events") && rest.size() == 1) {
        if (!read)
            reply(methodNotAllowed(method, "GET"));
        else
            events(served, request, reply);
        return;
    }
    reply(HttpResponse::error(
        404, QString("no such resource: %1").arg(QString::fromUtf8(request.path))));
}

void HttpApi::areas(Served &served, const HttpRequest &request, const HttpReply &reply)
{
    const QJsonObject file = served.module->areaFile();
    if (file.isEmpty()) {
        reply(HttpResponse::error(
            503, QString("the areas of module \"%1\" have not been read "
                         "yet (state: %2)")
                     .arg(served.module->id(), Module::stateName(served.module->state()))));
        return;
    }
    HttpResponse r = HttpResponse::bytes(200, "application/json; charset=utf-8",
                                         QJsonDocument(file).toJson(QJsonDocument::Indented));
    r.withHeader("ETag", served.module->etag());
    r.withHeader("Cache-Control", "no-cache");
    const QByteArray download = request.query.value("download");
    if (!download.isEmpty() && download != "0")
        r.withHeader("Content-Disposition",
                     "attachment; filename=\"" +
                         HttpApiText::downloadName(served.module->id(),
                                                   QDateTime::currentDateTimeUtc().date())
                             .toUtf8() +
                         '"');
    reply(r);
}

void HttpApi::write(Served &served, const HttpRequest &request, const HttpReply &reply,
                    const Start &start)
{
    const QByteArray ifMatch = request.header("if-match").trimmed();
    if (!ifMatch.isEmpty() && ifMatch != "*" && ifMatch != served.module->etag()) {
        reply(HttpResponse::error(412, QString("the module's areas changed since %1 was read "
                                               "(now %2); nothing was sent")
                                           .arg(QString::fromLatin1(ifMatch),
                                                QString::fromLatin1(served.module->etag())))
                  .withHeader("ETag", served.module->etag()));
        return;
    }
    QPointer<Module> module(served.module);
    start(served.module, [reply, module](const WriteResult &result) {
        const int status = HttpApiText::writeStatus(result.kind);
        QJsonObject body;
        if (result.kind == WriteResult::Ok) {
            body = result.areaFile;
        } else {
            body.insert("error", result.error);
            if (!result.differences.isEmpty())
                body.insert("differences", result.differences);
            if (!result.areaFile.isEmpty())
                body.insert("areas", result.areaFile);
        }
        HttpResponse r =
            result.kind == WriteResult::Ok
                ? HttpResponse::bytes(200, "application/json; charset=utf-8",
                                      QJsonDocument(body).toJson(QJsonDocument::Indented))
                : HttpResponse::json(status, body);
        if (module)
            r.withHeader("ETag", module->etag());
        reply(r);
    });
}

void HttpApi::events(Served &served, const HttpRequest &request, const HttpReply &reply)
{
    double rate = 0;
    if (request.query.contains("rate") &&
        !HttpApiText::parseRate(request.query.value("rate"), &rate)) {
        reply(HttpResponse::error(400, QString("rate=\"%1\" is not a rate in Hz (above 0, up "
                                               "to 1000)")
                                           .arg(QString::fromLatin1(request.query.value("rate")))));
        return;
    }
    // A new viewer is complete at once: the status and the configuration first.
    QByteArray initial = sseEvent(EventKind::Status, compact(served.module->status()));
    const QJsonObject file = served.module->areaFile();
    if (!file.isEmpty())
        initial += sseEvent(EventKind::Config, compact(file));
    HttpResponse r;
    r.status = 200;
    r.hub = served.hub.get();
    r.viewer =
        served.hub->addViewer(initial, rate, request.wake, QDateTime::currentMSecsSinceEpoch(),
                              request.abort, request.peerGone);
    reply(r);
}
