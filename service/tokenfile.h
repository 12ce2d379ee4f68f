#pragma once

// The service's access token: a random secret kept in a file of its own (the
// token alone on one line, mode 0600), created on the first start and reused
// by every later one.

#include <QByteArray>
#include <QString>

namespace TokenFile
{

// Where the token lives unless --token-file says otherwise: the state
// directory systemd gives the unit ($STATE_DIRECTORY), else the user's state
// directory ($XDG_STATE_HOME or ~/.local/state) under orv-tool/.
QString defaultPath();

// A new token: 32 random bytes from the system's generator, as 64 hex digits.
QByteArray generate();

// Reads the token at path, or creates the file (and its directory, mode 0700)
// with a new one. *created tells which happened. False with *error set when
// the file cannot be read or written, or holds no usable token.
bool loadOrCreate(const QString &path, QByteArray *token, bool *created, QString *error);

// A token read from a file is accepted when it is 16..256 printable ASCII
// characters without spaces (it travels in URLs, cookies and headers).
bool isUsable(const QByteArray &token);

} // namespace TokenFile
