#include "service/moduleprobe.h"

#include "cli/baudprobe.h"
#include "radar/frameformat.h"
#include "service/modulelink.h"

ModuleProbe::ModuleProbe(ModuleLink *link, QObject *parent) : QObject(parent), link(link)
{
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, &ModuleProbe::onTimeout);
    connect(link, &ModuleLink::frameReceived, this, &ModuleProbe::onFrame);
}

void ModuleProbe::start()
{
    rates = BaudProbe::probeOrder();
    index = 0;
    bytesAtStart = link->bytesRead();
    tryRate();
}

void ModuleProbe::cancel()
{
    timer.stop();
    index = -1;
}

void ModuleProbe::tryRate()
{
    while (index < rates.size()) {
        const int rate = rates.at(index);
        if (link->baudRate() == rate || link->setBaudRate(rate))
            break;
        ++index;
    }
    if (index >= rates.size()) {
        finish(0);
        return;
    }
    link->discardInput();
    // A module that streams answers by itself; one that does not answers the
    // display-type read. Either way a frame must come whole.
    link->send(ReadTargetShowType);
    inGrace = false;
    timer.start(BaudProbe::listenMsFor(rates.at(index)));
}

void ModuleProbe::onFrame()
{
    if (index >= 0)
        finish(rates.at(index));
}

void ModuleProbe::onTimeout()
{
    if (index < 0)
        return;
    // A frame that has begun is worth waiting for a little longer.
    if (!inGrace && link->pendingBytes() > 0) {
        inGrace = true;
        timer.start(BaudProbe::kGraceMs);
        return;
    }
    ++index;
    tryRate();
}

void ModuleProbe::finish(int baud)
{
    timer.stop();
    index = -1;
    emit finished(baud, link->bytesRead() > bytesAtStart);
}
