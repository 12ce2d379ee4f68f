#pragma once

// orv-cli serve: the modules on the network (HTTP API, event stream, page).

#include <QString>

class CliApp;

void registerServeCommand(CliApp &app);

// --port [ID=]P: the module's id in URLs and its port. Without ID= the id is
// made from the port's name ("/dev/ttyUSB0" -> "ttyUSB0", "/dev/pts/3" ->
// "pts-3"). False with *error set when the ID breaks the rule (letters,
// digits, '-' and '_').
bool parseServePort(const QString &text, QString *id, QString *port, QString *error);
QString moduleIdForPort(const QString &port);
bool isModuleId(const QString &id);
