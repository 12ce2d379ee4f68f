#include "service/auth.h"

#include <QList>

#include <arpa/inet.h>
#include <cstring>

namespace Auth
{

QByteArray cookieName(int port)
{
    return "orv_token_" + QByteArray::number(port);
}

QByteArray setCookie(int port, const QByteArray &token)
{
    return cookieName(port) + '=' + token + "; Path=/; HttpOnly; SameSite=Strict";
}

bool tokensEqual(const QByteArray &expected, const QByteArray &given)
{
    if (expected.isEmpty() || given.isEmpty())
        return false;
    unsigned char diff = expected.size() == given.size() ? 0 : 1;
    for (int i = 0; i < expected.size(); ++i)
        diff |= static_cast<unsigned char>(expected.at(i) ^ given.at(i % given.size()));
    return diff == 0;
}

QByteArray requestToken(const QByteArray &authorization, const QByteArray &cookieHeader, int port)
{
    const QByteArray auth = authorization.trimmed();
    if (auth.size() > 7 && auth.left(7).toLower() == "bearer ")
        return auth.mid(7).trimmed();
    const QByteArray name = cookieName(port);
    for (const QByteArray &part : cookieHeader.split(';')) {
        const QByteArray pair = part.trimmed();
        const int eq = pair.indexOf('=');
        if (eq > 0 && pair.left(eq).trimmed() == name)
            return pair.mid(eq + 1).trimmed();
    }
    return QByteArray();
}

bool isLoopbackHost(const QByteArray &hostHeader)
{
    QByteArray host = hostHeader.trimmed().toLower();
    if (host.startsWith('[')) {
        const int close = host.indexOf(']');
        if (close < 0)
            return false;
        const QByteArray rest = host.mid(close + 1);
        if (!rest.isEmpty() && !rest.startsWith(':'))
            return false;
        host = host.mid(1, close - 1);
    } else {
        const int colon = host.indexOf(':');
        if (colon >= 0) {
            bool ok = false;
            host.mid(colon + 1).toUInt(&ok);
            if (!ok && colon + 1 < host.size())
                return false;
            host = host.left(colon);
        }
    }
    if (host.endsWith('.'))
        host.chop(1);
    if (host.isEmpty())
        return false;
    if (host == "localhost" || host.endsWith(".localhost"))
        return true;
    // Addresses in their usual spelling only (inet_pton takes no "2130706433").
    in_addr v4;
    if (::inet_pton(AF_INET, host.constData(), &v4) == 1)
        return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6;
    if (::inet_pton(AF_INET6, host.constData(), &v6) == 1) {
        static const in6_addr loopback = IN6ADDR_LOOPBACK_INIT;
        return std::memcmp(&v6, &loopback, sizeof v6) == 0;
    }
    return false;
}

bool originAllowed(const QByteArray &origin, const QByteArray &host)
{
    const QByteArray o = origin.trimmed().toLower();
    if (o.isEmpty())
        return true;
    const QByteArray h = host.trimmed().toLower();
    return !h.isEmpty() && o == "http://" + h;
}

} // namespace Auth
