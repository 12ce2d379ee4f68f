#include "cli/modulesession.h"

#include "cli/interrupt.h"
#include "radar/frameformat.h"

#include <QFileInfo>
#include <QThread>

namespace
{

// Longest single blocking wait, so that Ctrl-C is seen within this time.
constexpr int kSliceMs = 50;

} // namespace

ModuleSession::ModuleSession() = default;

ModuleSession::~ModuleSession()
{
    close();
}

QString ModuleSession::devicePath(const QString &portName)
{
    if (portName.startsWith('/') || portName.startsWith("./") || portName.startsWith("../"))
        return portName;
    return QStringLiteral("/dev/") + portName;
}

bool ModuleSession::open(const QString &portName, int rate, QString *why, OpenFailure *kind)
{
    close();
    name = portName;
    baud = rate;
    port.setPortName(portName);
    port.setBaudRate(rate, QSerialPort::AllDirections);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
    OpenFailure failure = OpenFailure::None;
    if (port.open(QIODevice::ReadWrite)) {
        port.setDataTerminalReady(true);
        if (kind)
            *kind = failure;
        return true;
    }

    const QString path = devicePath(portName);
    const QFileInfo device(path);
    QString text;
    switch (port.error()) {
    case QSerialPort::DeviceNotFoundError:
        failure = OpenFailure::Missing;
        break;
    case QSerialPort::PermissionError:
        // Qt says "permission" both when the device is held by another
        // program and when the user may not open it; the file's access
        // rights tell them apart.
        if (!device.exists())
            failure = OpenFailure::Missing;
        else if (device.isReadable() && device.isWritable())
            failure = OpenFailure::Busy;
        else
            failure = OpenFailure::Permission;
        break;
    default:
        failure = device.exists() ? OpenFailure::Other : OpenFailure::Missing;
        break;
    }
    switch (failure) {
    case OpenFailure::Missing:
        text = QString("cannot open %1: the port does not exist (%2 is missing; is the module "
                       "plugged in? 'orv-cli ports' lists the ports)")
                   .arg(portName, path);
        break;
    case OpenFailure::Busy:
        text = QString("cannot open %1: the port is busy (another program holds it open)")
                   .arg(portName);
        break;
    case OpenFailure::Permission:
        text = QString("cannot open %1: permission denied on %2").arg(portName, path);
#ifdef Q_OS_LINUX
        text += QStringLiteral(" (the user may need to be in the 'dialout' group: "
                               "sudo usermod -aG dialout $USER, then log in again)");
#endif
        break;
    default:
        text = QString("cannot open %1: %2").arg(portName, port.errorString());
        break;
    }
    if (why)
        *why = text;
    if (kind)
        *kind = failure;
    return false;
}

void ModuleSession::close()
{
    discardInput();
    if (port.isOpen()) {
        port.clear(QSerialPort::Output);
        port.close();
    }
}

bool ModuleSession::setBaudRate(int rate)
{
    if (!port.setBaudRate(rate, QSerialPort::AllDirections))
        return false;
    baud = rate;
    return true;
}

bool ModuleSession::send(quint8 code, const QByteArray &payload)
{
    const QByteArray frame = frameformat::buildFrame(code, payload);
    if (port.write(frame) != frame.size())
        return false;
    // Wait until the bytes have left, so that a rate change or a close that
    // follows does not cut the request short.
    while (port.bytesToWrite() > 0) {
        if (!port.waitForBytesWritten(kSliceMs * 20))
            return false;
    }
    return true;
}

void ModuleSession::discardInput()
{
    if (port.isOpen()) {
        port.clear(QSerialPort::Input);
        port.readAll();
    }
    decoder.reset();
    frames.clear();
}

LinkStatus ModuleSession::read(int timeoutMs, QByteArray *chunk)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        if (Interrupt::requested())
            return LinkStatus::Interrupted;
        if (port.bytesAvailable() > 0) {
            const QByteArray bytes = port.readAll();
            totalBytes += bytes.size();
            chunk->append(bytes);
            return LinkStatus::Ok;
        }
        if (!port.isOpen())
            return LinkStatus::Lost;
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0)
            return LinkStatus::Timeout;
        if (port.waitForReadyRead(int(qMin<qint64>(left, kSliceMs))))
            continue;
        const QSerialPort::SerialPortError error = port.error();
        if (error == QSerialPort::ResourceError || error == QSerialPort::PermissionError ||
            error == QSerialPort::DeviceNotFoundError)
            return LinkStatus::Lost;
        if (error == QSerialPort::ReadError) {
            // A pseudo-terminal whose other side has closed reads as an
            // error each time: treat a device that is gone as lost.
            if (!QFileInfo::exists(devicePath(name)))
                return LinkStatus::Lost;
            port.clearError();
            QThread::msleep(5);
        } else if (error != QSerialPort::NoError && error != QSerialPort::TimeoutError) {
            port.clearError();
        }
    }
}

LinkStatus ModuleSession::stream(qint64 durationMs,
                                 const std::function<bool(const QByteArray &)> &onChunk)
{
    QElapsedTimer clock;
    clock.start();
    QByteArray chunk;
    for (;;) {
        qint64 wait = 200;
        if (durationMs >= 0) {
            wait = qMin<qint64>(wait, durationMs - clock.elapsed());
            if (wait <= 0)
                return LinkStatus::Ok;
        }
        chunk.clear();
        const LinkStatus status = read(int(wait), &chunk);
        if (status == LinkStatus::Timeout)
            continue;
        if (status != LinkStatus::Ok)
            return status;
        if (!onChunk(chunk))
            return LinkStatus::Ok;
    }
}

LinkStatus ModuleSession::fill(int timeoutMs)
{
    QByteArray chunk;
    const LinkStatus status = read(timeoutMs, &chunk);
    if (status == LinkStatus::Ok) {
        decoder.feed(chunk.constData(), chunk.size(), [this](frameformat::ByteView frame) {
            frames.append(QByteArray(frame.data(), frame.size()));
        });
    }
    return status;
}

LinkStatus ModuleSession::waitForAnyFrame(int timeoutMs, QByteArray *frame)
{
    return waitFor([](const QByteArray &) { return true; }, timeoutMs, frame);
}

LinkStatus ModuleSession::waitForFrame(quint8 code, int timeoutMs, QByteArray *frame)
{
    return waitFor([code](const QByteArray &f) { return frameformat::codeOf(f) == code; },
                   timeoutMs, frame);
}

LinkStatus ModuleSession::waitFor(const std::function<bool(const QByteArray &)> &wanted,
                                  int timeoutMs, QByteArray *frame)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        while (!frames.isEmpty()) {
            const QByteArray f = frames.takeFirst();
            if (wanted(f)) {
                *frame = f;
                return LinkStatus::Ok;
            }
        }
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0)
            return LinkStatus::Timeout;
        const LinkStatus status = fill(int(left));
        if (status != LinkStatus::Ok)
            return status;
    }
}

LinkStatus ModuleSession::request(quint8 code, const QByteArray &payload, int timeoutMs, int tries,
                                  QByteArray *answer)
{
    LinkStatus status = LinkStatus::Timeout;
    for (int attempt = 0; attempt < qMax(1, tries); ++attempt) {
        if (!send(code, payload))
            return port.isOpen() ? LinkStatus::Timeout : LinkStatus::Lost;
        status = waitForFrame(code, timeoutMs, answer);
        if (status != LinkStatus::Timeout)
            return status;
    }
    return status;
}
