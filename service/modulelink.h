#pragma once

// The port of one module on the Qt main thread: opens it as orv-cli does
// (8N1, no flow control, DTR raised), decodes what arrives with the strict
// frame decoder and notices when the device goes away (an error from the
// port, or its path gone, checked every second).

#include "cli/modulesession.h"
#include "radar/framedecoder.h"

#include <QObject>
#include <QSerialPort>
#include <QTimer>

class ModuleLink : public QObject
{
    Q_OBJECT
public:
    explicit ModuleLink(QObject *parent = nullptr);

    // Opens the port; on failure *why says why, in orv-cli's words, and the
    // result which of the usual reasons it is.
    ModuleSession::OpenFailure open(const QString &portName, int baud, QString *why);
    void close();
    bool isOpen() const { return port.isOpen(); }

    bool setBaudRate(int baud);
    int baudRate() const { return baud; }
    // Sends one request frame; false when the port refused the bytes.
    bool send(quint8 code, const QByteArray &payload = QByteArray());
    // Forgets unread input and the decoder's carry-over.
    void discardInput();

    // Bytes of a frame begun but not ended.
    int pendingBytes() const { return decoder.pendingBytes(); }
    // Counts of everything decoded since the link was made, across reopenings.
    FrameStreamStats totals() const;
    // Every byte read since the link was made.
    qint64 bytesRead() const { return totalBytes; }

signals:
    void frameReceived(const QByteArray &frame);
    // The device went away; the port is closed already.
    void lost();

private:
    void readAvailable();
    void onError(QSerialPort::SerialPortError error);
    void checkDevice();
    bool deviceStillThere() const;
    void goneAway();

    QSerialPort port;
    QString name;
    QString openedDevice; // where the port's path led when it was opened
    int baud = 0;
    FrameDecoder decoder;
    FrameStreamStats earlier; // counts of the decoder before its last reset
    qint64 totalBytes = 0;
    QTimer deviceCheck;
    bool closing = false;
};
