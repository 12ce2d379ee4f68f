#pragma once

#include "tools/radar-sim/simport.h"

#include <QSerialPort>

// A real serial port, 8N1 without flow control, as the module's own UART.
// The other end counts as present all the time.
class SerialDevicePort : public SimPort
{
    Q_OBJECT

public:
    SerialDevicePort(const QString &portName, int baudRate, QObject *parent = nullptr);

    bool open(QString *error) override;
    QString name() const override { return port.portName(); }
    bool peerConnected() const override { return port.isOpen(); }
    qint64 write(const QByteArray &bytes) override;
    void drain() override;
    void setBaudRate(int rate) override;
    void close() override;

private:
    QSerialPort port;
    QString requestedName;
    int initialRate;
};
