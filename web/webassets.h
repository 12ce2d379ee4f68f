#pragma once

// The web page's files, embedded in the binary as Qt resources under
// ":/web/". The service serves them as they are.

#include <QByteArray>
#include <QString>

namespace WebAssets
{

// The file at path ("index.html", "js/plane.js"), or a null QByteArray when
// there is none; *contentType gets its MIME type ("text/html; charset=utf-8").
QByteArray file(const QString &path, QByteArray *contentType = nullptr);

} // namespace WebAssets
