#pragma once

#include <QPointF>
#include <QRectF>
#include <QString>
#include <QStringList>
#include <QVector>

// Command line of radar-sim. parse() never exits: it reports a bad command
// line through its result and message so that main() chooses the exit code.
struct SimOptions {
    // An area the module holds from the start (--area N,TYPE,X1,Y1,X2,Y2).
    struct AreaPreset {
        int number = 1; // 1..3
        int type = 0;   // 0 or 1
        QRectF rect;    // from the upper-left corner to the lower-right one, metres
    };

    QString port;                // real serial port; empty = pseudo-terminal
    int baud = 9600;             // the module's rate at start
    double rate = 10.0;          // report frames per second (0 = none)
    int targets = 3;             // walking people, 0..128
    bool targetsGiven = false;   // --targets appeared on the command line
    QVector<QPointF> fixed;      // --fixed X,Y points (metres)
    QVector<AreaPreset> areas;   // --area presets, in command-line order
    quint32 seed = 0;            // path seed
    bool seedGiven = false;      // --seed appeared on the command line
    int noise = 0;               // garbage bytes before every frame
    double badChecksum = 0.0;    // probability of a wrong sum per frame
    bool split = false;          // write each frame in random chunks
    double disconnectAfter = -1; // seconds after the first open; < 0 = never
    bool baudNg = false;         // answer every baud-rate change with NG
    bool anyBaud = false;        // answer whatever rate the other side chose
    QString replayFile;          // diagnostic log to play back
    QString link;                // symbolic link to the port, kept while running
    bool verbose = false;        // requests and answers on stderr
    bool help = false;           // --help was asked for
    int gapMs = 5;               // pause after each frame
    int settleMs = 200;          // quiet time after an open before reports start

    // args without the program name. On failure *error holds a one-line
    // message naming the option.
    static bool parse(const QStringList &args, SimOptions *out, QString *error);
    static QString usage();

    // Number of people the simulator reports.
    int targetCount() const { return fixed.isEmpty() ? targets : fixed.size(); }
};
