#pragma once

#include "log/debugline.h"
#include "radar/frameformat.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QSerialPort>
#include <QStringList>

// The one link to the radar module: owns the serial port, sends request
// frames and turns received frames into signals. One instance per process.
class RaderCommunicate : public QObject
{
    Q_OBJECT

public:
    static RaderCommunicate *GetInstance();

    QStringList GetAvailablePorts();
    bool OpenSerial(const QString &portName, int baudrate);
    void CloseSerial();

    bool SendData(quint8 code, const QByteArray &payload);
    bool SetBaudrate(int baudrate);
    bool SetTargetShowType(quint8 type);
    bool ReadTargetShowType();
    bool SetArea(quint8 index, quint8 type, QRectF rect);
    bool RepealArea(int index);
    bool ReadArea();
    bool CancelAllArea();

    // Checks one complete frame and emits its signal; false on a bad sum.
    bool ParseFrame(const QByteArray &frame);

    // The receive scan on bytes as they came from the port (what ReadData
    // does after reading). Public so the scan can be driven without a port.
    void ReceiveBytes(const QByteArray &incoming);
    // Bytes held over for the next read (a copy: while a scan runs, the
    // carry-over refers into the scan's data).
    QByteArray PendingBytes() const
    {
        return QByteArray(lastPartData.constData(), lastPartData.size());
    }

    // Link-is-up flag: the result of the last open, cleared by every close.
    bool bOpen = false;

signals:
    void signal_SetAreaResp(int nIndex, int nType, bool bResult);
    void signal_ReadAreaResp(int nIndex, int nType, QRectF rect);
    void signal_BaudrateResp(bool bResult);
    void signal_TargetResp(QList<QPointF> listTarget);
    void signal_TargetAreaResp(char AreaFlag);
    void signal_TargetShowTypeResp(int nType);
    void signal_SetTargetShowTypeResp(bool bResult);
    void signal_CancelAllAreaResp(bool bResult);
    void signal_serial_disconnected();
    void signal_serial_comm_error();

public slots:
    void ReadData();
    void handleSerialError(QSerialPort::SerialPortError error);

private:
    friend struct RaderCommunicateAccess; // benchmarks and tests: log switch

    RaderCommunicate();

    void writeLog(const char *text);
    // ParseFrame on a frame read in place (inside the scan's data).
    bool checkAndDispatch(frameformat::ByteView frame);
    bool reportResult(frameformat::ByteView frame, const char *okText, const char *ngText);
    void writeLog(const QByteArray &text);
    void reportPortLost();
    void stopReadNotifications();

    QSerialPort serialPort;
    QByteArray lastPartData;
    // The list of the latest target report, reused for the next one unless a
    // receiver still holds it.
    QList<QPointF> targetList;
    // Debug lines written for every request, chunk and frame.
    DebugLine sendDataLine{u"SendData:"};
    DebugLine recvDataLine{u"recvData:"};
    DebugLine lastPartLine{u"last part Data:"};
    DebugLine codeLine{u"code:"};
    DebugLine targetCountLine{u"targetList size:"};
    // The tool always logs; only benchmarks and stress tests switch it off.
    bool logEnabled = true;
    // Set once the loss of the port has been reported; cleared by open/close.
    bool portLost = false;
    // Read errors since the last data received (see handleSerialError).
    int readErrorsWithoutData = 0;
};
