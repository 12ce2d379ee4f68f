#include "radar/portlist.h"

#include <QDir>
#include <QSerialPort>
#include <QSerialPortInfo>

namespace portlist
{

namespace
{

PortEntry entryFor(const QSerialPortInfo &info, const QString &portName)
{
    PortEntry entry;
    entry.name = portName;
    entry.systemLocation = info.systemLocation();
    entry.description = info.description();
    entry.manufacturer = info.manufacturer();
    entry.serialNumber = info.serialNumber();
    entry.hasUsbIds = info.hasVendorIdentifier() && info.hasProductIdentifier();
    entry.vendorId = info.vendorIdentifier();
    entry.productId = info.productIdentifier();
    return entry;
}

bool containsName(const QList<PortEntry> &ports, const QString &name)
{
    for (const PortEntry &p : ports)
        if (p.name == name)
            return true;
    return false;
}

} // namespace

QList<PortEntry> openablePorts()
{
    QList<PortEntry> ports;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : infos) {
        // A port held by another program cannot be opened and is left out.
        QSerialPort probe;
        probe.setPort(info);
        if (probe.open(QIODevice::ReadWrite)) {
            ports.append(entryFor(info, probe.portName()));
            probe.close();
        }
    }

    // Extra port names (for instance a pseudo-terminal standing in for the
    // module) from ORV_EXTRA_PORTS, kept under the same rule.
    const QString extra = qEnvironmentVariable("ORV_EXTRA_PORTS");
    if (!extra.isEmpty()) {
        const QStringList names = extra.split(QDir::listSeparator(), Qt::SkipEmptyParts);
        for (const QString &name : names) {
            QSerialPort probe;
            probe.setPortName(name);
            if (probe.open(QIODevice::ReadWrite)) {
                const QString portName = probe.portName();
                if (!containsName(ports, portName)) {
                    PortEntry entry = entryFor(QSerialPortInfo(probe), portName);
                    if (entry.systemLocation.isEmpty())
                        entry.systemLocation = name;
                    ports.append(entry);
                }
                probe.close();
            }
        }
    }
    return ports;
}

QStringList openablePortNames()
{
    QStringList names;
    const QList<PortEntry> ports = openablePorts();
    for (const PortEntry &p : ports)
        names.append(p.name);
    return names;
}

} // namespace portlist
