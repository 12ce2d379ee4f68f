#include "service/writequeue.h"

#include "service/modulelink.h"

#include <memory>

WriteQueue::WriteQueue(ModuleLink *link, QObject *parent) : QObject(parent), link(link)
{
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, &WriteQueue::onTimeout);
    connect(link, &ModuleLink::frameReceived, this, &WriteQueue::onFrame);
}

void WriteQueue::enqueue(Job job)
{
    jobs.enqueue(std::move(job));
    if (!busy)
        startNext();
}

void WriteQueue::startNext()
{
    if (jobs.isEmpty()) {
        busy = false;
        return;
    }
    busy = true;
    const Job job = jobs.dequeue();
    // Each job's done is good once; the next job starts from the event loop,
    // so that long chains do not deepen the stack.
    auto finished = std::make_shared<bool>(false);
    job([this, finished] {
        if (*finished)
            return;
        *finished = true;
        QMetaObject::invokeMethod(this, &WriteQueue::startNext, Qt::QueuedConnection);
    });
}

void WriteQueue::ask(quint8 code, const QByteArray &payload, Answer then)
{
    asking = true;
    askCode = code;
    askPayload = payload;
    attempt = 0;
    pending = std::move(then);
    sendRequest();
}

void WriteQueue::sendRequest()
{
    ++attempt;
    if (!link->isOpen() || !link->send(askCode, askPayload)) {
        answer(link->isOpen() ? LinkStatus::Timeout : LinkStatus::Lost, QByteArray());
        return;
    }
    timer.start(answerMs);
}

void WriteQueue::onFrame(const QByteArray &frame)
{
    if (asking && frame.size() > 5 && quint8(frame.at(5)) == askCode)
        answer(LinkStatus::Ok, frame);
}

void WriteQueue::onTimeout()
{
    if (!asking)
        return;
    if (attempt < tries) {
        sendRequest();
        return;
    }
    answer(LinkStatus::Timeout, QByteArray());
}

void WriteQueue::portLost()
{
    if (asking)
        answer(LinkStatus::Lost, QByteArray());
}

void WriteQueue::abandon()
{
    portLost();
    while (!jobs.isEmpty())
        jobs.dequeue()([] {});
    busy = false;
}

void WriteQueue::answer(LinkStatus status, const QByteArray &frame)
{
    timer.stop();
    asking = false;
    Answer then = std::move(pending);
    pending = nullptr;
    if (then)
        then(status, frame);
}
