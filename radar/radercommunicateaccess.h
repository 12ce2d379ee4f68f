#pragma once

#include "radar/radercommunicate.h"

// For benchmarks and tests only (the tool never includes this): switch the
// link's diagnostic log off to measure or stress the bare receive path, and
// reach its serial port to watch the port's own signals.
struct RaderCommunicateAccess {
    static void setLogEnabled(RaderCommunicate *link, bool enabled) { link->logEnabled = enabled; }
    static bool logEnabled(const RaderCommunicate *link) { return link->logEnabled; }
    static QSerialPort *port(RaderCommunicate *link) { return &link->serialPort; }
};
