#pragma once

// --port and --baud of the commands that talk to a module.

#include <QCommandLineParser>
#include <QString>

struct PortOptions {
    QString port;
    int baud = 0; // 0: auto, probe the rate first

    bool autoBaud() const { return baud == 0; }

    // Reads both options; false with *why set when they are missing or wrong.
    // withBaud: the command has a --baud option.
    static bool fromParser(const QCommandLineParser &parser, bool withBaud, PortOptions *options,
                           QString *why);
    static bool check(const QCommandLineParser &parser, bool withBaud, QString *why);
    // A baud rate given on the command line (1..16777215: the module's
    // rate travels as a 24-bit number).
    static bool parseBaud(const QString &text, int *baud);
};
