// libFuzzer target: orv-cli serve's request handling. The input is a request
// as the HTTP library hands it over (method, path, query, headers, body),
// cut from the bytes:
//
//   METHOD\nPATH\nname=value&...\nHeader: value\n...\n\nBODY
//
// It goes to the API of a service with one module that is not open (its port
// does not exist), so nothing is sent anywhere. Whatever the request, the
// answer must come exactly once, with a known status; every error is JSON
// with an "error" text; nothing under /api/ or /metrics is answered 200
// without the token; no write is answered 2xx.

#include "service/auth.h"
#include "service/eventstream.h"
#include "service/httpapi.h"
#include "service/module.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{

void check(bool condition)
{
    if (!condition)
        std::abort();
}

const QByteArray kToken = "0123456789abcdef0123456789abcdef";

struct Service {
    Service()
    {
        static int argc = 1;
        static char name[] = "fuzz_serve_request";
        static char *argv[] = {name, nullptr};
        app = new QCoreApplication(argc, argv);
        api = new HttpApi(kToken);
        module = new Module("m1", "/nonexistent/orv-fuzz-port", "auto", api);
        api->addModule(module);
    }
    QCoreApplication *app;
    HttpApi *api;
    Module *module;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Service service;
    const QByteArray input(reinterpret_cast<const char *>(data), int(size));

    HttpRequest request;
    const int headEnd = input.indexOf("\n\n");
    const QByteArray head = headEnd >= 0 ? input.left(headEnd) : input;
    request.body = headEnd >= 0 ? input.mid(headEnd + 2) : QByteArray();
    const QList<QByteArray> lines = head.split('\n');
    request.method = lines.value(0);
    request.path = lines.value(1);
    for (const QByteArray &pair : lines.value(2).split('&')) {
        const int eq = pair.indexOf('=');
        if (eq > 0)
            request.query.insert(pair.left(eq), pair.mid(eq + 1));
    }
    for (int i = 3; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
    }
    request.loopbackListener = !request.headers.contains("x-fuzz-lan");
    request.listenPort = 7318;
    request.wake = [] {};
    request.abort = [] {};

    int answers = 0;
    HttpResponse response;
    service.api->handle(request, [&](const HttpResponse &r) {
        ++answers;
        response = r;
    });
    // Writes are answered from the module's queue, on the event loop.
    for (int i = 0; i < 4 && answers == 0; ++i)
        QCoreApplication::processEvents();
    check(answers == 1);

    static const QList<int> known = {200, 400, 401, 403, 404, 405, 409, 412, 503, 504};
    check(known.contains(response.status));
    if (response.status >= 400) {
        check(response.contentType.startsWith("application/json"));
        const QJsonObject o = QJsonDocument::fromJson(response.body).object();
        check(!o.value("error").toString().isEmpty());
    }
    const bool guarded = request.path == "/metrics" || request.path.startsWith("/api");
    const bool hasToken =
        Auth::tokensEqual(kToken, Auth::requestToken(request.header("authorization"),
                                                     request.header("cookie"), 7318));
    if (guarded && response.status == 200)
        check(hasToken);
    const bool write = request.method != "GET" && request.method != "HEAD";
    if (write)
        check(response.status >= 400); // the module is never open here
    if (response.viewer) {
        check(response.hub != nullptr);
        char buffer[256];
        check(response.viewer->read(buffer, sizeof buffer, 0) > 0); // status first
        response.hub->removeViewer(response.viewer);
    }
    // The checks on their own, on the same header values.
    Auth::isLoopbackHost(request.header("host"));
    Auth::originAllowed(request.header("origin"), request.header("host"));
    return 0;
}
