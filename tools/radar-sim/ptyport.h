#pragma once

#include "tools/radar-sim/simport.h"

#include <QTimer>

class QSocketNotifier;

// A pseudo-terminal: the simulator holds the master, the tool opens the
// slave path. The simulator keeps no slave descriptor of its own, so the
// master sees a hang-up whenever the tool has the port closed; that is how
// opening and closing by the tool are noticed (polled every 10 ms).
//
// The master also sees the line settings the tool gave the slave, so
// peerRates() tells at which rates the tool sends and listens. ptyport.cpp
// holds radar-sim's only calls of the platform's terminal interface.
class PtyPort : public SimPort
{
    Q_OBJECT

public:
    explicit PtyPort(QObject *parent = nullptr);
    ~PtyPort() override;

    bool open(QString *error) override;
    QString name() const override { return slavePath; }
    bool peerConnected() const override { return connected; }
    qint64 write(const QByteArray &bytes) override;
    void drain() override;
    void setBaudRate(int) override {} // the simulator plays the module's rate itself
    bool showsPeerRates() const override { return true; }
    PeerLineRates peerRates() const override;
    void close() override;

    // The rate of a terminal speed code (the CBAUD bits of c_cflag); 0 for
    // BOTHER (the rate is then given as a number) and for unknown codes.
    static int rateOfSpeedCode(unsigned code);

private:
    void checkPeer();
    void readMaster();
    void setConnected(bool now);

    int masterFd = -1;
    QString slavePath;
    bool connected = false;
    QSocketNotifier *notifier = nullptr;
    QTimer peerPoll;
};
