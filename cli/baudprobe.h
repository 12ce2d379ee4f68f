#pragma once

// Finding the rate a module talks at, without changing anything in it: at
// each rate listen for a well-formed frame (header, length, sum and tail
// checked) while asking for the display type (code 3), which only reads.

#include "cli/modulesession.h"

#include <QList>

class BaudProbe
{
public:
    // The window's 13 rates, in its order.
    static QList<int> windowRates();
    // The order tried: the usual rates first, then the rest of the window's.
    static QList<int> probeOrder();

    // How long to listen at a rate unless told: 150 ms plus the time 25
    // bytes (the request and its answer) take on the line at that rate.
    static int listenMsFor(int baud);
    static QString defaultListenText();
    // Extra time given to a frame that has begun when the time is up.
    static constexpr int kGraceMs = 300;

    struct Result {
        int baud = 0; // 0 when no rate gave a frame
        LinkStatus status = LinkStatus::Timeout;
        QList<int> tried;
        qint64 elapsedMs = 0;
        // The rate at which most frames with a bad sum came (0: none came).
        int badSumBaud = 0;
        qint64 badSums = 0;

        // "; 12 frames with a bad sum came at 9600 baud" or empty.
        QString badSumNote() const;
    };

    // Tries every rate on an open session, leaving it at the rate found (or
    // at the last one tried); listens listenMs at each (0: listenMsFor).
    static Result run(ModuleSession &session, int listenMs = 0);
};
