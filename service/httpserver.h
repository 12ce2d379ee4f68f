#pragma once

// The service's HTTP server on libmicrohttpd: one polling thread (epoll) per
// listen address, never a thread per connection. Each request is read whole
// (bodies up to a limit), then its connection is suspended and the request is
// handed to the handler on the Qt main thread, where the modules live; the
// answer resumes the connection. Event streams are read from their
// EventViewer on the polling thread and suspended while there is nothing to
// send.

#include "service/httpmessage.h"

#include <QHash>
#include <QObject>
#include <QString>

#include <atomic>
#include <sys/socket.h>
#include <vector>

struct MHD_Daemon;

// --listen ADDR:PORT: "127.0.0.1:7318", "[::1]:7318", "0.0.0.0:80".
struct ListenAddress {
    QString host; // as given, without brackets
    int port = 0; // 0: any free port (tests)
    sockaddr_storage address{};
    socklen_t length = 0;

    bool isLoopback() const;
    bool isWildcard() const;
    // "127.0.0.1:7318" or "[::1]:7318" with the given port.
    QString hostAndPort(int boundPort) const;
    static bool parse(const QString &text, ListenAddress *out, QString *error);
};

class HttpServer : public QObject
{
    Q_OBJECT
public:
    struct Limits {
        int maxConnections = 2048;    // more are answered 503
        int maxBodyBytes = 64 * 1024; // larger bodies are answered 413
        int idleTimeoutS = 10;        // a connection that moves nothing this long is closed
        // A stream whose socket moves nothing this long is closed by the
        // library. A backstop only: its hub closes a viewer that stopped
        // reading sooner, with a reset the viewer notices (EventHub::keepAlive).
        int streamIdleTimeoutS = 60;
    };
    using Handler = std::function<void(const HttpRequest &, HttpReply)>;
    // Send buffer of an event stream's socket, in bytes.
    static constexpr int kStreamSendBuffer = 32 * 1024;

    HttpServer(Handler handler, const Limits &limits, QObject *parent = nullptr);
    ~HttpServer() override;

    // Starts a polling thread on the address; *boundPort is the port it
    // listens on (the one given, or the one the system chose for port 0).
    bool listen(const ListenAddress &address, int *boundPort, QString *error);

    // Stops taking requests: waiting requests are answered 503, then the
    // threads end once the connections are done (at most timeoutMs).
    // Event streams must be ended by their hubs first (EventHub::closeAll).
    void stop(int timeoutMs);

    int connections() const { return openConnections.load(); }

private:
    struct Request;
    struct Daemon;
    friend struct HttpServerCallbacks;

    static HttpResponse tooLarge(const Limits &limits);
    void dispatch(Request *request);
    void finish(quint64 id, const HttpResponse &response);

    Handler handler;
    Limits limits;
    std::vector<Daemon *> daemons;
    std::atomic<int> openConnections{0};
    std::atomic<int> posted{0};  // requests on their way to the main thread
    std::atomic<int> streams{0}; // event streams being sent
    std::atomic<bool> stopping{false};
    QHash<quint64, Request *> waiting; // main thread: requests the handler has
    quint64 nextId = 1;
};
