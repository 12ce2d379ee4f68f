#pragma once

#include "tools/radar-sim/simport.h"

#include <QTimer>

class QSocketNotifier;

// A pseudo-terminal: the simulator holds the master, the tool opens the
// slave path. The simulator keeps no slave descriptor of its own, so the
// master sees a hang-up whenever the tool has the port closed; that is how
// opening and closing by the tool are noticed (polled every 10 ms).
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
    void setBaudRate(int) override {} // a pseudo-terminal has no line rate
    void close() override;

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
