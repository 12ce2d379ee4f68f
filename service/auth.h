#pragma once

// Who may use the service: the checks on a request's token, Host and Origin
// headers, as plain functions of the header values.

#include <QByteArray>

namespace Auth
{

// The cookie that carries the token for the page. Its name holds the listen
// port, so that two services on one host do not overwrite each other's.
QByteArray cookieName(int port);
// The Set-Cookie value for a token: HttpOnly, SameSite=Strict, whole site.
QByteArray setCookie(int port, const QByteArray &token);

// Equal in time independent of where they differ; false when either is empty.
bool tokensEqual(const QByteArray &expected, const QByteArray &given);

// The token a request carries: "Authorization: Bearer T" first, then the
// cookie. Empty when there is none.
QByteArray requestToken(const QByteArray &authorization, const QByteArray &cookieHeader, int port);

// True for a Host header naming a loopback name or address, with or without
// a port: localhost (and *.localhost), 127.x.y.z, [::1]. Anything else, an
// empty Host included, is refused on a loopback listener (DNS rebinding).
bool isLoopbackHost(const QByteArray &host);

// True when a write may go ahead: no Origin header (curl, scripts), or one
// naming the origin the request was sent to (http://HOST). "null" and other
// sites are refused.
bool originAllowed(const QByteArray &origin, const QByteArray &host);

} // namespace Auth
