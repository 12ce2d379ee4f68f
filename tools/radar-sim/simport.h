#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// The simulator's end of the serial line. The peer is whoever has the other
// end open (the tool); frames are only worth writing while it is there.
class SimPort : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // false with *error set when the line cannot be set up.
    virtual bool open(QString *error) = 0;
    // What the tool must open.
    virtual QString name() const = 0;
    virtual bool peerConnected() const = 0;
    // One write of these bytes, flushed; returns how many were taken
    // (fewer when the line is full), or -1 on an error.
    virtual qint64 write(const QByteArray &bytes) = 0;
    // Waits until written bytes have left (before a rate change).
    virtual void drain() = 0;
    virtual void setBaudRate(int rate) = 0;
    virtual void close() = 0;

signals:
    void received(const QByteArray &bytes);
    void peerOpened();
    void peerClosed();
    // The line itself is gone (a real port unplugged).
    void lost(const QString &why);
};
