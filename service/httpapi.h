#pragma once

// The service's HTTP API on the Qt main thread: routes a request to the
// module it names, checks who may do what (token, Host, Origin), and answers
// with JSON, the page's files or an event stream. Knows nothing of sockets:
// HttpServer hands it whole requests.

#include "service/httpmessage.h"
#include "service/metrics.h"
#include "service/module.h"

#include <QDate>
#include <QList>
#include <QObject>

#include <memory>

class EventHub;

class HttpApi : public QObject
{
    Q_OBJECT
public:
    explicit HttpApi(const QByteArray &token, QObject *parent = nullptr);
    ~HttpApi() override;

    // A module to serve; its events go to its viewers from now on.
    void addModule(Module *module);

    // Answers the request, at once or (writes) when the module has answered.
    void handle(const HttpRequest &request, HttpReply reply);

    // Ends every event stream (the service stops).
    void closeStreams();
    // Every second or so: quiet streams get their comment line.
    void keepAlive();
    QList<ModuleMetrics> metrics() const;

    // A stream with no event for this long gets a comment line.
    static constexpr qint64 kKeepAliveMs = 15000;
    // A stream that has not caught up for this long (it stopped reading) is
    // closed.
    static constexpr qint64 kStuckMs = 30000;

private:
    struct Served;
    Served *find(const QString &id) const;
    bool authorized(const HttpRequest &request) const;
    void page(const HttpRequest &request, const HttpReply &reply) const;
    void moduleRoute(Served &served, const QStringList &rest, const HttpRequest &request,
                     const HttpReply &reply);
    void areas(Served &served, const HttpRequest &request, const HttpReply &reply);
    using Start = std::function<void(Module *, Module::Done)>;
    void write(Served &served, const HttpRequest &request, const HttpReply &reply,
               const Start &start);
    void events(Served &served, const HttpRequest &request, const HttpReply &reply);

    QByteArray token;
    std::vector<std::unique_ptr<Served>> modules;
};

// Plain helpers, for tests and the fuzz target.
namespace HttpApiText
{
// The body as a JSON object; false with *error set ("the body is not JSON:
// ...", "the body is not a JSON object").
bool parseObject(const QByteArray &body, QJsonObject *object, QString *error);
// "orv-ID-YYYY-MM-DD.json" for a date.
QString downloadName(const QString &id, const QDate &date);
// ?rate=HZ: a positive number up to 1000; false otherwise.
bool parseRate(const QByteArray &text, double *hz);
// "1".."3" as an area number; 0 otherwise.
int areaNumber(const QString &text);
// HTTP status of a write's outcome.
int writeStatus(int kind);
} // namespace HttpApiText
