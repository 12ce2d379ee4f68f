#pragma once

// One module's requests, one at a time: jobs wait in line, and a job talks
// to the module through ask(), which sends a request and waits for the
// answer with the same code, sending it again when none comes in time, as
// orv-cli does (ModuleCommand::kAnswerMs, kTries).

#include "cli/modulesession.h"

#include <QByteArray>
#include <QObject>
#include <QQueue>
#include <QTimer>

#include <functional>

class ModuleLink;

class WriteQueue : public QObject
{
    Q_OBJECT
public:
    // A job runs when every earlier one has finished; it must call done
    // exactly once (after its last answer).
    using Job = std::function<void(std::function<void()> done)>;
    // Ok with the answer, Timeout after every try, Lost when the port went.
    using Answer = std::function<void(LinkStatus status, const QByteArray &answer)>;

    explicit WriteQueue(ModuleLink *link, QObject *parent = nullptr);

    void enqueue(Job job);
    // Within a job: sends the request and waits for its answer.
    void ask(quint8 code, const QByteArray &payload, Answer then);
    // The port went away: the request waiting (if any) ends as Lost.
    void portLost();
    // The owner goes away: the waiting request ends as Lost and every job
    // still in line runs at once (each is expected to find the port closed
    // and answer without asking).
    void abandon();

    int waiting() const { return jobs.size() + (busy ? 1 : 0); }
    int answerMs = 1000;
    int tries = 3;

private:
    void startNext();
    void onFrame(const QByteArray &frame);
    void onTimeout();
    void sendRequest();
    void answer(LinkStatus status, const QByteArray &frame);

    ModuleLink *link;
    QQueue<Job> jobs;
    bool busy = false;
    // The request waiting for its answer.
    bool asking = false;
    quint8 askCode = 0;
    QByteArray askPayload;
    int attempt = 0;
    Answer pending;
    QTimer timer;
};
