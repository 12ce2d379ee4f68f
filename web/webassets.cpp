#include "web/webassets.h"

#include <QFile>

static void initResources()
{
    // The resources of a static library must be registered by name once.
    static const bool done = [] {
        Q_INIT_RESOURCE(web);
        return true;
    }();
    Q_UNUSED(done)
}

static QByteArray mimeType(const QString &path)
{
    if (path.endsWith(QLatin1String(".html")))
        return "text/html; charset=utf-8";
    if (path.endsWith(QLatin1String(".css")))
        return "text/css; charset=utf-8";
    if (path.endsWith(QLatin1String(".js")) || path.endsWith(QLatin1String(".mjs")))
        return "text/javascript; charset=utf-8";
    if (path.endsWith(QLatin1String(".json")))
        return "application/json";
    if (path.endsWith(QLatin1String(".svg")))
        return "image/svg+xml";
    if (path.endsWith(QLatin1String(".png")))
        return "image/png";
    return "application/octet-stream";
}

QByteArray WebAssets::file(const QString &path, QByteArray *contentType)
{
    initResources();
    if (path.isEmpty() || path.contains(QLatin1String("..")))
        return QByteArray();
    QFile f(QStringLiteral(":/web/") + path);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    if (contentType)
        *contentType = mimeType(path);
    const QByteArray bytes = f.readAll();
    return bytes.isNull() ? QByteArray("") : bytes;
}
