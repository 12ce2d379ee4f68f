#include "service/httpmessage.h"

#include <QJsonDocument>

HttpResponse HttpResponse::json(int status, const QJsonObject &object)
{
    return bytes(status, "application/json; charset=utf-8",
                 QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

HttpResponse HttpResponse::json(int status, const QJsonArray &array)
{
    return bytes(status, "application/json; charset=utf-8",
                 QJsonDocument(array).toJson(QJsonDocument::Compact) + '\n');
}

HttpResponse HttpResponse::error(int status, const QString &message)
{
    return json(status, QJsonObject{{"error", message}});
}

HttpResponse HttpResponse::bytes(int status, const QByteArray &contentType, const QByteArray &body)
{
    HttpResponse r;
    r.status = status;
    r.contentType = contentType;
    r.body = body;
    return r;
}
