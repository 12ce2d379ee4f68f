#pragma once

// Finding the rate of a module without blocking the event loop: orv-cli's
// probe (its rates, order and listening times) run on timers. At each rate
// the display type is asked for and a well-formed frame is waited for.

#include <QList>
#include <QObject>
#include <QTimer>

class ModuleLink;

class ModuleProbe : public QObject
{
    Q_OBJECT
public:
    explicit ModuleProbe(ModuleLink *link, QObject *parent = nullptr);

    // Starts at the first rate; finished comes once, unless cancelled.
    void start();
    void cancel();
    bool running() const { return index >= 0; }

signals:
    // baud 0: no rate gave a frame; heardBytes tells whether anything came.
    void finished(int baud, bool heardBytes);

private:
    void tryRate();
    void onFrame();
    void onTimeout();
    void finish(int baud);

    ModuleLink *link;
    QList<int> rates;
    int index = -1;
    bool inGrace = false;
    qint64 bytesAtStart = 0;
    QTimer timer;
};
