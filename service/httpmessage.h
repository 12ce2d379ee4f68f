#pragma once

// One HTTP request as the service's handlers see it, and their answer. The
// HTTP library fills the request; nothing here parses HTTP.

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QPair>

#include <functional>
#include <memory>

class EventHub;
class EventViewer;

struct HttpRequest {
    QByteArray method;                    // "GET"
    QByteArray path;                      // decoded, without the query: "/api/modules"
    QMap<QByteArray, QByteArray> query;   // decoded arguments
    QMap<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
    bool loopbackListener = true; // the listen address is a loopback one
    int listenPort = 0;
    // Resumes the connection of an event stream waiting for data (set by the
    // server for every request, used by stream answers).
    std::function<void()> wake;
    // Closes the connection from outside (a stream whose viewer is stuck);
    // valid while the request lasts.
    std::function<void()> abort;
    // True when the peer has closed the connection (looks, reads nothing).
    std::function<bool()> peerGone;

    QByteArray header(const QByteArray &lowerName) const { return headers.value(lowerName); }
};

struct HttpResponse {
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    // An event stream: the body is the viewer's events, for as long as the
    // connection lasts; hub gets the viewer back when it closes.
    std::shared_ptr<EventViewer> viewer;
    EventHub *hub = nullptr;

    static HttpResponse json(int status, const QJsonObject &object);
    static HttpResponse json(int status, const QJsonArray &array);
    // {"error": message}
    static HttpResponse error(int status, const QString &message);
    static HttpResponse bytes(int status, const QByteArray &contentType, const QByteArray &body);
    HttpResponse &withHeader(const QByteArray &name, const QByteArray &value)
    {
        headers.append({name, value});
        return *this;
    }
};

// Called once, on the Qt main thread, with the answer to a request.
using HttpReply = std::function<void(const HttpResponse &)>;
