#include "service/httpserver.h"

#include "service/eventstream.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QPointer>
#include <QThread>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <microhttpd.h>
#include <netinet/in.h>
#include <unistd.h>

bool ListenAddress::parse(const QString &text, ListenAddress *out, QString *error)
{
    ListenAddress a;
    const QString t = text.trimmed();
    QString portText;
    if (t.startsWith('[')) {
        const int close = t.indexOf(']');
        if (close < 0 || t.mid(close + 1, 1) != QLatin1String(":")) {
            *error = QString("--listen: \"%1\" is not ADDR:PORT ([ADDR]:PORT for IPv6)").arg(text);
            return false;
        }
        a.host = t.mid(1, close - 1);
        portText = t.mid(close + 2);
    } else {
        const int colon = t.lastIndexOf(':');
        if (colon <= 0 || t.indexOf(':') != colon) {
            *error = QString("--listen: \"%1\" is not ADDR:PORT ([ADDR]:PORT for IPv6)").arg(text);
            return false;
        }
        a.host = t.left(colon);
        portText = t.mid(colon + 1);
    }
    bool ok = false;
    a.port = portText.toInt(&ok);
    if (!ok || a.port < 0 || a.port > 65535) {
        *error = QString("--listen: \"%1\" is not a port number (0..65535)").arg(portText);
        return false;
    }
    const QByteArray host = a.host.toLatin1();
    auto *v4 = reinterpret_cast<sockaddr_in *>(&a.address);
    auto *v6 = reinterpret_cast<sockaddr_in6 *>(&a.address);
    if (::inet_pton(AF_INET, host.constData(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(quint16(a.port));
        a.length = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, host.constData(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(quint16(a.port));
        a.length = sizeof(sockaddr_in6);
    } else {
        *error =
            QString("--listen: \"%1\" is not an IP address (names are not looked up)").arg(a.host);
        return false;
    }
    *out = a;
    return true;
}

bool ListenAddress::isLoopback() const
{
    if (address.ss_family == AF_INET)
        return (ntohl(reinterpret_cast<const sockaddr_in *>(&address)->sin_addr.s_addr) >> 24) ==
               127;
    const in6_addr &v6 = reinterpret_cast<const sockaddr_in6 *>(&address)->sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&v6);
}

bool ListenAddress::isWildcard() const
{
    if (address.ss_family == AF_INET)
        return reinterpret_cast<const sockaddr_in *>(&address)->sin_addr.s_addr == INADDR_ANY;
    const in6_addr &v6 = reinterpret_cast<const sockaddr_in6 *>(&address)->sin6_addr;
    return std::memcmp(&v6, &in6addr_any, sizeof v6) == 0;
}

QString ListenAddress::hostAndPort(int boundPort) const
{
    return address.ss_family == AF_INET6 ? QString("[%1]:%2").arg(host).arg(boundPort)
                                         : QString("%1:%2").arg(host).arg(boundPort);
}

// What the server keeps per request, from its first header to its end.
struct HttpServer::Request {
    HttpServer *server = nullptr;
    MHD_Connection *connection = nullptr;
    HttpRequest request;
    bool tooLarge = false;
    bool answered = false; // the handler's answer is in response
    bool streaming = false;
    HttpResponse response;
};

struct HttpServer::Daemon {
    MHD_Daemon *daemon = nullptr;
    HttpServer *server = nullptr;
    bool loopback = true;
    int port = 0;
    int listenSocket = -1; // after quiescing, ours to close
};

namespace
{

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

MHD_Result collect(void *cls, MHD_ValueKind kind, const char *key, const char *value)
{
    auto *r = static_cast<HttpRequest *>(cls);
    const QByteArray k(key);
    const QByteArray v(value ? value : "");
    if (kind == MHD_HEADER_KIND)
        r->headers.insert(k.toLower(), v);
    else if (kind == MHD_GET_ARGUMENT_KIND)
        r->query.insert(k, v);
    return MHD_YES;
}

MHD_Result queue(MHD_Connection *connection, const HttpResponse &r, bool close)
{
    MHD_Response *response = MHD_create_response_from_buffer(
        size_t(r.body.size()), const_cast<char *>(r.body.constData()), MHD_RESPMEM_MUST_COPY);
    if (!response)
        return MHD_NO;
    if (!r.contentType.isEmpty())
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, r.contentType.constData());
    for (const auto &h : r.headers)
        MHD_add_response_header(response, h.first.constData(), h.second.constData());
    if (close)
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    const MHD_Result result = MHD_queue_response(connection, unsigned(r.status), response);
    MHD_destroy_response(response);
    return result;
}

} // namespace

// The library's C callbacks, with access to the server's insides.
struct HttpServerCallbacks {
    static ssize_t readStream(void *cls, uint64_t, char *buffer, size_t max)
    {
        auto *req = static_cast<HttpServer::Request *>(cls);
        EventViewer *viewer = req->response.viewer.get();
        const long n = viewer->read(buffer, max, nowMs());
        if (n > 0)
            return n;
        if (n < 0)
            return MHD_CONTENT_READER_END_OF_STREAM;
        // Nothing to send: wait without polling until the hub wakes us.
        MHD_suspend_connection(req->connection);
        if (viewer->suspended())
            MHD_resume_connection(req->connection);
        return 0;
    }

    static MHD_Result queueAnswer(HttpServer::Request *req)
    {
        const HttpResponse &r = req->response;
        const bool close = req->server->stopping.load();
        if (!r.viewer)
            return queue(req->connection, r, close);
        MHD_Response *response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 8 * 1024,
                                                                   &readStream, req, nullptr);
        if (!response)
            return MHD_NO;
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE,
                                "text/event-stream; charset=utf-8");
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
        MHD_add_response_header(response, "X-Accel-Buffering", "no");
        for (const auto &h : r.headers)
            MHD_add_response_header(response, h.first.constData(), h.second.constData());
        // The socket's send buffer is kept small: a viewer that stops reading
        // fills it soon (instead of the megabytes the system would let it
        // grow to), falls behind and is closed by its hub.
        const MHD_ConnectionInfo *info =
            MHD_get_connection_info(req->connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        if (info) {
            const int size = HttpServer::kStreamSendBuffer;
            ::setsockopt(info->connect_fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        }
        MHD_set_connection_option(req->connection, MHD_CONNECTION_OPTION_TIMEOUT,
                                  unsigned(req->server->limits.streamIdleTimeoutS));
        req->streaming = true;
        ++req->server->streams;
        const MHD_Result result = MHD_queue_response(req->connection, unsigned(r.status), response);
        MHD_destroy_response(response);
        return result;
    }

    static MHD_Result onRequest(void *cls, MHD_Connection *connection, const char *url,
                                const char *method, const char *, const char *uploadData,
                                size_t *uploadSize, void **context)
    {
        auto *d = static_cast<HttpServer::Daemon *>(cls);
        HttpServer *server = d->server;
        auto *req = static_cast<HttpServer::Request *>(*context);
        if (!req) {
            req = new HttpServer::Request;
            req->server = server;
            req->connection = connection;
            *context = req;
            HttpRequest &r = req->request;
            r.method = method;
            r.path = url;
            r.loopbackListener = d->loopback;
            r.listenPort = d->port;
            MHD_get_connection_values(connection, MHD_HEADER_KIND, &collect, &r);
            MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &collect, &r);
            r.wake = [connection] { MHD_resume_connection(connection); };
            const MHD_ConnectionInfo *info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            const int fd = info ? info->connect_fd : -1;
            // Reset rather than a polite close: the peer of a stuck stream
            // would not read a FIN queued behind the data it does not take,
            // and the kernel frees the unsent data at once.
            r.abort = [fd] {
                if (fd < 0)
                    return;
                const linger reset{1, 0};
                ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                ::shutdown(fd, SHUT_RDWR);
            };
            // A suspended connection does not see its peer leave; the hub
            // looks now and then.
            r.peerGone = [fd] {
                char byte;
                const ssize_t n = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
                return n == 0 ||
                       (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
            };
            if (server->stopping.load())
                return queue(connection, HttpResponse::error(503, "the service is stopping"), true);
            if (server->openConnections.load() > server->limits.maxConnections)
                return queue(connection,
                             HttpResponse::error(503, QString("too many connections (at most "
                                                              "%1); try again later")
                                                          .arg(server->limits.maxConnections)),
                             true);
            bool ok = false;
            const qint64 declared = r.header("content-length").trimmed().toLongLong(&ok);
            if (ok && declared > server->limits.maxBodyBytes)
                return queue(connection, HttpServer::tooLarge(server->limits), true);
            return MHD_YES;
        }
        if (*uploadSize > 0) {
            if (!req->tooLarge) {
                if (req->request.body.size() + qint64(*uploadSize) > server->limits.maxBodyBytes) {
                    req->tooLarge = true;
                    req->request.body.clear();
                } else {
                    req->request.body.append(uploadData, int(*uploadSize));
                }
            }
            *uploadSize = 0;
            return MHD_YES;
        }
        if (req->tooLarge)
            return queue(connection, HttpServer::tooLarge(server->limits), true);
        if (req->answered)
            return queueAnswer(req);
        // The whole request is here: hand it to the main thread and wait.
        MHD_suspend_connection(connection);
        ++server->posted;
        QMetaObject::invokeMethod(
            server, [server, req] { server->dispatch(req); }, Qt::QueuedConnection);
        return MHD_YES;
    }

    static void onCompleted(void *, MHD_Connection *, void **context, MHD_RequestTerminationCode)
    {
        auto *req = static_cast<HttpServer::Request *>(*context);
        if (!req)
            return;
        if (req->response.viewer && req->response.hub)
            req->response.hub->removeViewer(req->response.viewer);
        if (req->streaming)
            --req->server->streams;
        delete req;
        *context = nullptr;
    }

    static void onConnection(void *cls, MHD_Connection *, void **,
                             MHD_ConnectionNotificationCode code)
    {
        auto *d = static_cast<HttpServer::Daemon *>(cls);
        if (code == MHD_CONNECTION_NOTIFY_STARTED)
            ++d->server->openConnections;
        else
            --d->server->openConnections;
    }
};

HttpServer::HttpServer(Handler handler, const Limits &limits, QObject *parent)
    : QObject(parent), handler(std::move(handler)), limits(limits)
{
}

HttpServer::~HttpServer()
{
    stop(0);
}

HttpResponse HttpServer::tooLarge(const Limits &limits)
{
    return HttpResponse::error(
        413, QString("the request body is larger than %1 KiB").arg(limits.maxBodyBytes / 1024));
}

bool HttpServer::listen(const ListenAddress &address, int *boundPort, QString *error)
{
    auto *d = new Daemon;
    d->server = this;
    d->loopback = address.isLoopback();
    unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
    if (address.address.ss_family == AF_INET6)
        flags |= MHD_USE_IPv6;
    d->daemon = MHD_start_daemon(flags, quint16(address.port), nullptr, nullptr,
                                 &HttpServerCallbacks::onRequest, d, MHD_OPTION_SOCK_ADDR,
                                 reinterpret_cast<const sockaddr *>(&address.address),
                                 // A few above the limit, so that the ones over it are told 503.
                                 MHD_OPTION_CONNECTION_LIMIT, unsigned(limits.maxConnections + 32),
                                 MHD_OPTION_CONNECTION_TIMEOUT, unsigned(limits.idleTimeoutS),
                                 MHD_OPTION_CONNECTION_MEMORY_LIMIT, size_t(32 * 1024),
                                 MHD_OPTION_NOTIFY_COMPLETED, &HttpServerCallbacks::onCompleted, d,
                                 MHD_OPTION_NOTIFY_CONNECTION, &HttpServerCallbacks::onConnection,
                                 d, MHD_OPTION_LISTEN_BACKLOG_SIZE, 1024u, MHD_OPTION_END);
    if (!d->daemon) {
        delete d;
        *error = QString("cannot listen on %1: %2")
                     .arg(address.hostAndPort(address.port),
                          QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    const MHD_DaemonInfo *info = MHD_get_daemon_info(d->daemon, MHD_DAEMON_INFO_BIND_PORT);
    d->port = info ? info->port : address.port;
    *boundPort = d->port;
    daemons.push_back(d);
    return true;
}

void HttpServer::dispatch(Request *request)
{
    --posted;
    const quint64 id = nextId++;
    waiting.insert(id, request);
    if (stopping.load()) {
        finish(id, HttpResponse::error(503, "the service is stopping"));
        return;
    }
    QPointer<HttpServer> self(this);
    handler(request->request, [self, id](const HttpResponse &response) {
        if (self)
            self->finish(id, response);
    });
}

void HttpServer::finish(quint64 id, const HttpResponse &response)
{
    Request *request = waiting.take(id);
    if (!request)
        return;
    request->response = response;
    request->answered = true;
    MHD_resume_connection(request->connection);
}

void HttpServer::stop(int timeoutMs)
{
    if (daemons.empty())
        return;
    stopping = true;
    for (Daemon *d : daemons)
        d->listenSocket = MHD_quiesce_daemon(d->daemon);
    // Requests still with the handler (a write waiting for the module) are
    // told the service stops; then the connections get a moment to finish.
    const QList<quint64> ids = waiting.keys();
    for (quint64 id : ids)
        finish(id, HttpResponse::error(503, "the service is stopping"));
    QElapsedTimer clock;
    clock.start();
    while ((posted.load() > 0 || !waiting.isEmpty() || streams.load() > 0) &&
           clock.elapsed() < timeoutMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
    // Stopping a daemon with a suspended connection is not allowed: when one
    // is left (a stream whose hub was not closed), the daemon is left to the
    // process's end.
    const bool clean = posted.load() == 0 && waiting.isEmpty();
    for (Daemon *d : daemons) {
        if (clean)
            MHD_stop_daemon(d->daemon);
        if (d->listenSocket >= 0)
            ::close(d->listenSocket);
        delete d;
    }
    daemons.clear();
}
