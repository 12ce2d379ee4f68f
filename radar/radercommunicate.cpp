#include "radar/radercommunicate.h"

#include "log/debugline.h"
#include "log/logger.h"
#include "radar/frameformat.h"
#include "radar/portlist.h"

#include <QDebug>
#include <QDir>
#include <QMetaType>
#include <QSerialPortInfo>
#include <QSocketNotifier>
#include <QThread>

#include <cstring>

namespace
{

// Largest carry-over kept between reads; more is taken as a wrong baud rate.
constexpr int kMaxPendingBytes = 128;

// Consecutive read errors, with no data arriving in between, after which the
// port counts as gone (see handleSerialError).
constexpr int kReadErrorsForLoss = 3;

// Most bytes the serial port keeps read but not yet handed over. Bytes wait
// there only while the GUI thread is held (a slot's message box): readyRead
// is not delivered again until the slot that got the last one has returned.
// Beyond the limit Qt stops reading and the rest waits in the driver, so a
// box left open for an hour costs no more memory than one open for a second.
// 32 KiB hold 355 ms at 921600 baud (92,160 bytes/s), far more than the GUI
// thread is ever busy in between two reads (a paint, the 100 ms pause after
// an open); the module's largest report (127 people, 264 bytes) fits 124
// times. It is also the size Qt reads in one go, so the buffer is one block
// of memory and never a list of blocks.
constexpr qint64 kReadBufferLimit = 32768;

} // namespace

// qDebug() that skips building its text when debug output is switched off
// for the default category (for instance QT_LOGGING_RULES="default.debug=false"),
// the way qCDebug does for its own categories.
#define linkDebug()                                                                                \
    for (bool linkDebugOn = DebugLine::enabled(); linkDebugOn; linkDebugOn = false)                \
    qDebug()

RaderCommunicate *RaderCommunicate::GetInstance()
{
    static RaderCommunicate instance;
    return &instance;
}

RaderCommunicate::RaderCommunicate()
{
    // The target list travels through string-based connections (and queued
    // ones, should a receiver live elsewhere).
    qRegisterMetaType<QList<QPointF>>("QList<QPointF>");
    qRegisterMetaType<QSerialPort::SerialPortError>("QSerialPort::SerialPortError");
}

void RaderCommunicate::writeLog(const char *text)
{
    if (logEnabled)
        Logger::instance().write(text);
}

void RaderCommunicate::writeLog(const QByteArray &text)
{
    if (logEnabled)
        Logger::instance().write(text);
}

QStringList RaderCommunicate::GetAvailablePorts()
{
    return portlist::openablePortNames();
}

bool RaderCommunicate::OpenSerial(const QString &portName, int baudrate)
{
    // An open port is closed first, as CloseSerial does. A port that is not
    // open keeps its connections (see below) and its carry-over.
    if (serialPort.isOpen())
        CloseSerial();
    portLost = false;
    readErrorsWithoutData = 0;

    serialPort.setPortName(portName);
    serialPort.setBaudRate(baudrate, QSerialPort::AllDirections);
    serialPort.setReadBufferSize(kReadBufferLimit);
    bOpen = serialPort.open(QIODevice::ReadWrite);
    QThread::msleep(100);

    // Made even when the open failed; a failed open followed by another
    // OpenSerial makes them twice. Only a close removes them.
    connect(&serialPort, SIGNAL(readyRead()), this, SLOT(ReadData()));
    // error(SerialPortError): the older twin of errorOccurred, still emitted
    // by Qt 5.15; the string form does not name the deprecated member.
    connect(&serialPort, SIGNAL(error(QSerialPort::SerialPortError)), this,
            SLOT(handleSerialError(QSerialPort::SerialPortError)));

    // Fails on ports without modem lines (a pseudo-terminal reports an
    // unsupported operation); that error is ignored like every non-fatal one.
    serialPort.setDataTerminalReady(true);

    writeLog(QString("serial port:%1,Buadrate：%2, result:%3")
                 .arg(portName)
                 .arg(baudrate)
                 .arg(bOpen ? "OK" : "NG")
                 .toUtf8());
    return bOpen;
}

void RaderCommunicate::CloseSerial()
{
    serialPort.disconnect(this);
    if (serialPort.isOpen())
        serialPort.clear(QSerialPort::AllDirections);
    serialPort.close();
    bOpen = false;
    lastPartData.clear();
    portLost = false;
    readErrorsWithoutData = 0;
}

bool RaderCommunicate::SendData(quint8 code, const QByteArray &payload)
{
    const QByteArray frame = frameformat::buildFrame(code, payload);
    sendDataLine.hexDump(frame);
    writeLog("SendData:" + frameformat::hexDumpLatin1(frame));
    // No look at bOpen: on a closed port the write fails.
    return serialPort.write(frame) > 0;
}

bool RaderCommunicate::SetBaudrate(int baudrate)
{
    return SendData(FunctionCode::SetBaudrate, frameformat::baudRatePayload(baudrate));
}

bool RaderCommunicate::SetTargetShowType(quint8 type)
{
    if (!bOpen)
        return false;
    return SendData(FunctionCode::SetTargetShowType, QByteArray(1, char(type)));
}

bool RaderCommunicate::ReadTargetShowType()
{
    return SendData(FunctionCode::ReadTargetShowType, QByteArray());
}

bool RaderCommunicate::SetArea(quint8 index, quint8 type, QRectF rect)
{
    if (!bOpen)
        return false;
    return SendData(FunctionCode::SetArea, frameformat::setAreaPayload(index, type, rect));
}

bool RaderCommunicate::RepealArea(int index)
{
    if (!bOpen)
        return false;
    return SendData(FunctionCode::RepealArea, QByteArray(1, char(quint8(index + 1))));
}

bool RaderCommunicate::ReadArea()
{
    return SendData(FunctionCode::ReadArea, QByteArray());
}

bool RaderCommunicate::CancelAllArea()
{
    return SendData(FunctionCode::CancelAllArea, QByteArray());
}

void RaderCommunicate::ReadData()
{
    const QByteArray incoming = serialPort.readAll();
    if (!incoming.isEmpty())
        readErrorsWithoutData = 0;
    ReceiveBytes(incoming);

    // A slot that held the GUI thread (a message box) may have let the port's
    // buffer fill to its limit. Qt then stops watching the port until the
    // buffer is read, so no readyRead would come for what waits there and in
    // the driver: read on now, as the next readyRead would have done.
    while (serialPort.isOpen() && serialPort.bytesAvailable() >= kReadBufferLimit) {
        const QByteArray more = serialPort.readAll();
        readErrorsWithoutData = 0;
        ReceiveBytes(more);
    }
}

void RaderCommunicate::ReceiveBytes(const QByteArray &incoming)
{
    using namespace frameformat;

    recvDataLine.hexDump(incoming);
    if (logEnabled)
        writeLog("RecvData:" + hexDumpLatin1(incoming));

    if (!lastPartData.isEmpty()) {
        lastPartLine.hexDump(lastPartData);
        if (logEnabled)
            writeLog("Last part data:" + hexDumpLatin1(lastPartData));
    }
    // The scan works on its own data, carry-over followed by the new bytes: a
    // slot reached from a frame's signal may send, close or reopen the port,
    // or even read again from a nested event loop.
    QByteArray data = lastPartData.isEmpty() ? incoming : lastPartData + incoming;

    bool waitingForRest = false;
    int keepFrom = 0; // after the scan, the carry-over is data from here on
    const int size = data.size();
    if (size >= kMinResponseSize) {
        const char *bytes = data.constData();
        for (int i = 0; i < size; ++i) {
            // Only the header's first byte can start one: jump to the next.
            const void *candidate = std::memchr(bytes + i, kHeader[0], size_t(size - i));
            if (!candidate)
                break;
            i = int(static_cast<const char *>(candidate) - bytes);
            if (!hasHeaderAt(data, i))
                continue;
            writeLog("start parse one frame.");

            // Without its length field the frame is unfinished whatever it
            // declares; otherwise the length is read with signed bytes.
            const bool lengthPresent = i + kLengthOffset + 2 <= size;
            const int msgLen = lengthPresent ? declaredFrameSize(data, i) : kEnvelopeSize;
            if (lengthPresent && msgLen < kEnvelopeSize) {
                // A length low byte of 0x80 or more (or a negative length)
                // yields less than an envelope: no frame can be taken from
                // it, and the scan must not move backwards. Skip the header.
                i += 2;
                continue;
            }
            if (size - i < msgLen) {
                // An unfinished frame waits for its rest whatever its size,
                // so frames longer than the 128-byte limit (reports of many
                // targets) still arrive in pieces. The wait is bounded: a
                // length read with signed bytes declares at most
                // 127 * 256 + 9 + 127 bytes.
                writeLog("comm data size() < msgLen, ready to add next frame.");
                keepFrom = i;
                waitingForRest = true;
                break;
            }
            // The frame is read in place; `data` outlives the call.
            checkAndDispatch(ByteView(bytes + i, msgLen));
            i += msgLen;
            keepFrom = i;
            // The carry-over is now what follows the frame. While the scan
            // goes on it refers into `data` (no copy per frame); it gets
            // storage of its own below, before `data` goes away.
            lastPartData.setRawData(bytes + i, uint(size - i));
            // The loop's increment follows: the byte right after a frame is
            // never tested as a header (kept as the module tool has it).
        }
    }

    // The carry-over is data from keepFrom on (all of it when no frame was
    // taken). The bytes move to the front of data's own storage, which then
    // becomes the carry-over: no further copy unless data is the caller's.
    data.remove(0, keepFrom);
    lastPartData = data;

    if (waitingForRest)
        return; // an unfinished frame is not subject to the size limit

    if (lastPartData.size() > kMaxPendingBytes) {
        lastPartData.clear();
        writeLog("baudrate error!");
        emit signal_serial_comm_error();
    }
}

// Decodes a one-byte result and writes its text to the debug output and the
// log; true when the module answered OK.
bool RaderCommunicate::reportResult(frameformat::ByteView frame, const char *okText,
                                    const char *ngText)
{
    const bool ok = frameformat::decodeResult(frame);
    const char *text = ok ? okText : ngText;
    linkDebug() << text;
    writeLog(text);
    return ok;
}

bool RaderCommunicate::ParseFrame(const QByteArray &frame)
{
    return checkAndDispatch(frame);
}

bool RaderCommunicate::checkAndDispatch(frameformat::ByteView frame)
{
    using namespace frameformat;

    const int length = signedLength(frame);
    const quint8 sum = computeChecksum(frame);
    const quint8 received = byteAt(frame, 5 + length);
    if (sum != received) {
        linkDebug() << "sum check failed:" << hexDump(QByteArray(1, char(sum)))
                    << hexDump(QByteArray(1, char(received)));
        return false;
    }

    const int code = signedByteAt(frame, 5);
    codeLine.number(code);
    if (logEnabled)
        writeLog("function code:" + QByteArray::number(code, 16));

    switch (code) {
    case FunctionCode::SetBaudrate:
        emit signal_BaudrateResp(
            reportResult(frame, "Radar Baudrate SET OK", "Radar Baudrate SET NG"));
        break;
    case FunctionCode::SetTargetShowType:
        emit signal_SetTargetShowTypeResp(
            reportResult(frame, "Target show type SET OK.", "Target show type SET NG."));
        break;
    case FunctionCode::ReadTargetShowType: {
        const int type = decodeShowType(frame);
        linkDebug() << "目标显示方式：" << type;
        if (logEnabled)
            writeLog("target show type：" + QByteArray::number(type));
        emit signal_TargetShowTypeResp(type);
        break;
    }
    case FunctionCode::SetArea: {
        const SetAreaResponse r = decodeSetAreaResponse(frame);
        const QString text = QString("Radar area:%1 SET %2").arg(r.number).arg(r.ok ? "OK" : "NG");
        linkDebug() << text;
        writeLog(text.toUtf8());
        emit signal_SetAreaResp(r.number - 1, r.type, r.ok);
        break;
    }
    case FunctionCode::RepealArea: {
        const RepealAreaResponse r = decodeRepealAreaResponse(frame);
        const QString text =
            QString("Radar area:%1 repeal %2").arg(r.number).arg(r.ok ? "OK" : "NG");
        linkDebug() << text;
        writeLog(text.toUtf8());
        // Both types of the area are reported as repealed.
        emit signal_SetAreaResp(r.number - 1, 0, r.ok);
        emit signal_SetAreaResp(r.number - 1, 1, r.ok);
        break;
    }
    case FunctionCode::ReadArea: {
        const std::array<AreaReport, 3> areas = decodeReadAreaResponse(frame);
        for (int k = 0; k < 3; ++k) {
            writeLog(QString("Area:%1 Type:%2").arg(k).arg(areas[k].type).toUtf8());
            emit signal_ReadAreaResp(k, areas[k].type, areas[k].rect);
        }
        break;
    }
    case FunctionCode::TargetReport: {
        decodeTargetsInto(frame, targetList);
        targetCountLine.number(targetList.size());
        if (logEnabled)
            writeLog("targetList size:" + QByteArray::number(targetList.size()));
        emit signal_TargetResp(targetList);
        break;
    }
    case FunctionCode::TargetAreaReport: {
        const int in1 = byteAt(frame, 6) == 1 ? 1 : 0;
        const int in2 = byteAt(frame, 7) == 1 ? 1 : 0;
        const int in3 = byteAt(frame, 8) == 1 ? 1 : 0;
        const char flags = decodeAreaFlags(frame);
        linkDebug() << "有无目标区域：" << in1 << in2 << in3 << " allAreaFlag:" << int(flags);
        emit signal_TargetAreaResp(flags);
        break;
    }
    case FunctionCode::CancelAllArea:
        emit signal_CancelAllAreaResp(
            reportResult(frame, "cancel_all Area OK", "cancel_all Area NG"));
        break;
    default:
        // Code 9 and unknown codes: checked and logged, nothing else.
        break;
    }
    return true;
}

void RaderCommunicate::handleSerialError(QSerialPort::SerialPortError error)
{
    if (portLost) {
        // Already reported. Whatever notifier raised this one is silenced
        // again, so nothing spins until the receiver closes the port.
        stopReadNotifications();
        return;
    }

    if (error == QSerialPort::ResourceError || error == QSerialPort::PermissionError) {
        reportPortLost();
        return;
    }

    // When the far end of a pseudo-terminal (or a similar device) goes away,
    // Qt does not report a resource error: every read delivers nothing and
    // raises a read error, again and again at full speed, while the port
    // stays open. Read errors that keep coming with no data in between mean
    // the port is gone. A lone read error is a passing fault and is ignored,
    // like every other error (parity, framing, write, timeout...).
    if (error == QSerialPort::ReadError && serialPort.isOpen() &&
        serialPort.bytesAvailable() == 0) {
        if (++readErrorsWithoutData >= kReadErrorsForLoss)
            reportPortLost();
    }
}

void RaderCommunicate::reportPortLost()
{
    portLost = true;
    stopReadNotifications();
    linkDebug() << "comm disconnected...";
    writeLog("comm disconnected...");
    emit signal_serial_disconnected();
}

void RaderCommunicate::stopReadNotifications()
{
    // Until the next open (or close) nothing more is read: stop delivering
    // readyRead and switch off the port's own notifiers, which would
    // otherwise fire without end on a hung-up device. Opening again creates
    // fresh ones.
    disconnect(&serialPort, SIGNAL(readyRead()), this, SLOT(ReadData()));
    const QList<QSocketNotifier *> notifiers = serialPort.findChildren<QSocketNotifier *>();
    for (QSocketNotifier *notifier : notifiers)
        notifier->setEnabled(false);
}
