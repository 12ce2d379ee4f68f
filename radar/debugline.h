#pragma once

#include <QByteArray>

// Lines for Qt's debug channel, formatted exactly as qDebug() prints the same
// arguments, for the lines the link writes for every received chunk and every
// frame. qDebug() sets up a text stream (with its locale and a QObject) for
// each line, which costs more than scanning the bytes themselves; these build
// the text in one reused buffer and hand it to the message handler directly,
// with the default category, as qDebug() does. Nothing is built while debug
// output is switched off for the default category.
namespace debugline
{

// True unless debug output is switched off for the default category (for
// instance QT_LOGGING_RULES="default.debug=false").
bool enabled();

// The line of qDebug() << label << frameformat::hexDump(bytes):
// label, a space, then the dump in double quotes. label is ASCII.
void hexDump(const char *label, const QByteArray &bytes);

// The line of qDebug() << label << value. label is ASCII.
void number(const char *label, int value);

} // namespace debugline
