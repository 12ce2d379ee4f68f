#pragma once

#include <QByteArray>
#include <QPointF>
#include <QString>
#include <QStringView>

// One kind of line for Qt's debug channel, a fixed label followed by a hex
// dump, a number or a point, formatted exactly as qDebug() prints the same
// arguments:
//   qDebug() << "recvData:" << hexDumpText   (a QString of "%02X " per byte)
//   qDebug() << "code:" << value              (an int)
//   qDebug() << "TargetPos" << point          (a QPointF)
// The radar link writes such lines for every received chunk and frame, the
// plot for every target it paints, and a QDebug stream (with its locale and
// a QObject) costs more to set up than the work around it. A DebugLine keeps
// its text, label in place, from one line to the next, rewrites only what
// follows the label, and hands the text to the message handler directly,
// with the default category, as qDebug() does. Nothing is built while debug
// output is switched off for the default category. Not for use from several
// threads at once.
class DebugLine
{
public:
    // label is ASCII, without the separating space.
    explicit DebugLine(QStringView label);

    // label, a space, then "%02X " per byte in double quotes.
    void hexDump(const QByteArray &bytes);
    // label, a space, then value in decimal.
    void number(int value);
    // label, a space, then "QPointF(x,y)" with six significant digits each.
    void point(const QPointF &p);

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
