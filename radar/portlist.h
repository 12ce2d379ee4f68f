#pragma once

// The serial ports a program may offer: every port Qt lists plus the names in
// ORV_EXTRA_PORTS (separated by ':' on Linux, ';' on Windows), each kept only
// when it can be opened right now. A port held by another program, or one the
// user may not open, is left out.

#include <QList>
#include <QString>
#include <QStringList>

namespace portlist
{

struct PortEntry {
    QString name;           // as QSerialPort::portName() gives it ("ttyUSB0", "pts/3")
    QString systemLocation; // the device path ("/dev/ttyUSB0")
    QString description;    // USB description where Qt knows it, else empty
    QString manufacturer;
    QString serialNumber;
    bool hasUsbIds = false;
    quint16 vendorId = 0;
    quint16 productId = 0;
};

QList<PortEntry> openablePorts();
QStringList openablePortNames();

} // namespace portlist
