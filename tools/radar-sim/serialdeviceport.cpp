#include "tools/radar-sim/serialdeviceport.h"

#include <QTimer>

SerialDevicePort::SerialDevicePort(const QString &portName, int baudRate, QObject *parent)
    : SimPort(parent), requestedName(portName), initialRate(baudRate)
{
    connect(&port, &QSerialPort::readyRead, this, [this] { emit received(port.readAll()); });
    connect(&port, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError e) {
        if (e == QSerialPort::ResourceError || e == QSerialPort::PermissionError)
            emit lost(port.errorString());
    });
}

bool SerialDevicePort::open(QString *error)
{
    port.setPortName(requestedName);
    port.setBaudRate(initialRate);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
    if (!port.open(QIODevice::ReadWrite)) {
        if (error)
            *error = QString("cannot open %1: %2").arg(requestedName, port.errorString());
        return false;
    }
    // A real module talks as soon as it has power: the other end is there.
    QTimer::singleShot(0, this, [this] { emit peerOpened(); });
    return true;
}

qint64 SerialDevicePort::write(const QByteArray &bytes)
{
    const qint64 n = port.write(bytes);
    port.flush();
    return n;
}

void SerialDevicePort::drain()
{
    while (port.bytesToWrite() > 0 && port.waitForBytesWritten(1000)) {
    }
}

void SerialDevicePort::setBaudRate(int rate)
{
    port.setBaudRate(rate);
}

void SerialDevicePort::close()
{
    if (port.isOpen())
        port.close();
}
