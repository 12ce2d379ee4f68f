#include "service/modulelink.h"

#include <QFileInfo>

namespace
{

// How often the device's path is checked while the port is open.
constexpr int kDeviceCheckMs = 1000;

void add(FrameStreamStats &sum, const FrameStreamStats &more)
{
    sum.frames += more.frames;
    sum.badSums += more.badSums;
    sum.skippedBytes += more.skippedBytes;
}

} // namespace

ModuleLink::ModuleLink(QObject *parent) : QObject(parent)
{
    connect(&port, &QSerialPort::readyRead, this, &ModuleLink::readAvailable);
    connect(&port, &QSerialPort::errorOccurred, this, &ModuleLink::onError);
    deviceCheck.setInterval(kDeviceCheckMs);
    connect(&deviceCheck, &QTimer::timeout, this, &ModuleLink::checkDevice);
}

ModuleSession::OpenFailure ModuleLink::open(const QString &portName, int rate, QString *why)
{
    close();
    name = portName;
    port.setPortName(portName);
    port.setBaudRate(rate, QSerialPort::AllDirections);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
    // Taken before opening: the port reports errors from inside open().
    openedDevice = QFileInfo(ModuleSession::devicePath(name)).canonicalFilePath();
    if (port.open(QIODevice::ReadWrite)) {
        port.setDataTerminalReady(true);
        baud = rate;
        deviceCheck.start();
        return ModuleSession::OpenFailure::None;
    }
    // orv-cli's session tries once more and says why, in its words, with the
    // reason (missing, busy, permission) told apart as it does.
    ModuleSession::OpenFailure failure = ModuleSession::OpenFailure::Other;
    ModuleSession session;
    if (session.open(portName, rate, why, &failure)) {
        // Free again a moment later: try again soon.
        if (why)
            *why = QString("cannot open %1: %2").arg(portName, port.errorString());
        return ModuleSession::OpenFailure::Busy;
    }
    return failure;
}

void ModuleLink::close()
{
    if (closing)
        return;
    // Clearing a port whose device has gone reports an error, which must
    // not close it a second time.
    closing = true;
    deviceCheck.stop();
    if (port.isOpen()) {
        port.clear(QSerialPort::AllDirections);
        port.close();
    }
    closing = false;
    add(earlier, decoder.stats());
    decoder.reset();
}

bool ModuleLink::setBaudRate(int rate)
{
    if (!port.setBaudRate(rate, QSerialPort::AllDirections))
        return false;
    baud = rate;
    return true;
}

bool ModuleLink::send(quint8 code, const QByteArray &payload)
{
    if (!port.isOpen())
        return false;
    const QByteArray frame = frameformat::buildFrame(code, payload);
    return port.write(frame) == frame.size();
}

void ModuleLink::discardInput()
{
    if (port.isOpen()) {
        port.clear(QSerialPort::Input);
        port.readAll();
    }
    add(earlier, decoder.stats());
    decoder.reset();
}

FrameStreamStats ModuleLink::totals() const
{
    FrameStreamStats sum = earlier;
    add(sum, decoder.stats());
    return sum;
}

void ModuleLink::readAvailable()
{
    const QByteArray bytes = port.readAll();
    if (bytes.isEmpty())
        return;
    totalBytes += bytes.size();
    decoder.feed(bytes.constData(), bytes.size(), [this](frameformat::ByteView frame) {
        emit frameReceived(QByteArray(frame.data(), frame.size()));
    });
}

void ModuleLink::onError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || closing || !port.isOpen())
        return;
    if (error == QSerialPort::ResourceError || error == QSerialPort::DeviceNotFoundError) {
        goneAway();
        return;
    }
    // A pseudo-terminal whose other side has closed reads as an error each
    // time: a device that is gone is lost, anything else is passed over.
    if (!deviceStillThere()) {
        goneAway();
        return;
    }
    port.clearError();
}

bool ModuleLink::deviceStillThere() const
{
    // A path that now leads to another device (a link replaced by a module
    // plugged in again) means that the one opened has gone.
    const QString device = QFileInfo(ModuleSession::devicePath(name)).canonicalFilePath();
    return !device.isEmpty() && device == openedDevice;
}

void ModuleLink::checkDevice()
{
    if (port.isOpen() && !deviceStillThere())
        goneAway();
}

void ModuleLink::goneAway()
{
    if (closing || !port.isOpen())
        return;
    close();
    emit lost();
}
