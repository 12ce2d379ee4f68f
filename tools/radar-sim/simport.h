#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// How the other end has set up its side of the line, as far as the line
// tells: a pseudo-terminal shows the rates the tool chose for its port.
struct PeerLineRates {
    bool known = false;  // false: the rates could not be read (see problem)
    int sendRate = 0;    // the rate the other side transmits at
    int receiveRate = 0; // the rate it expects to receive at
    QString problem;     // why the rates are not known
};

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
    // true when this end can see the peer's rates, so that the simulator must
    // play what a line does between two ends at different rates. A real
    // serial port has a real line: nothing to play there.
    virtual bool showsPeerRates() const { return false; }
    virtual PeerLineRates peerRates() const { return PeerLineRates(); }
    virtual void close() = 0;

signals:
    void received(const QByteArray &bytes);
    void peerOpened();
    void peerClosed();
    // The line itself is gone (a real port unplugged).
    void lost(const QString &why);
};
