#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

// One kind of line for Qt's debug channel, a fixed label followed by a hex
// dump or a number, formatted exactly as qDebug() prints the same arguments:
//   qDebug() << "recvData:" << frameformat::hexDump(bytes)
//   qDebug() << "code:" << value
// The link writes such lines for every received chunk and every frame, and a
// QDebug stream (with its locale and a QObject) costs more to set up than
// scanning the bytes. A DebugLine keeps its text, label in place, from one
// line to the next, rewrites only what follows the label, and hands the text
// to the message handler directly, with the default category, as qDebug()
// does. Nothing is built while debug output is switched off for the default
// category. Not for use from several threads at once.
class DebugLine
{
public:
    // label is ASCII, without the separating space.
    explicit DebugLine(QStringView label);

    // label, a space, then "%02X " per byte in double quotes.
    void hexDump(const QByteArray &bytes);
    // label, a space, then value in decimal.
    void number(int value);

    // True unless debug output is switched off for the default category
    // (for instance QT_LOGGING_RULES="default.debug=false").
    static bool enabled();

private:
    void output() const;

    QString text;
    int prefixSize = 0; // label and space
    // The value the text holds when it was last written by number().
    int shownNumber = 0;
    bool showsNumber = false;
};
