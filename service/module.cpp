#include "service/module.h"

#include "cli/areafile.h"
#include "cli/baudprobe.h"
#include "cli/modulecommand.h"
#include "cli/reportformatter.h"
#include "cli/wirearea.h"
#include "radar/frameformat.h"
#include "service/modulelink.h"
#include "service/moduleprobe.h"
#include "service/modulestats.h"
#include "service/modulewrites.h"
#include "service/writequeue.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonDocument>
#include <QMetaMethod>
#include <QTimer>

namespace
{

// How often an open module is checked for silence: "silent" comes at most
// this long after the 3 s without a frame; each check wakes the process.
constexpr int kSilenceCheckMs = 500;
// Retries of a failed first read of areas and display, while open.
constexpr int kReadRetryMs = 5000;

QJsonObject objectOf(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

WriteResult result(WriteResult::Kind kind, const QString &error = QString())
{
    WriteResult r;
    r.kind = kind;
    r.error = error;
    return r;
}

} // namespace

QString Module::stateName(State state)
{
    // In the order of State.
    static const char *const names[] = {"opening", "open",          "silent",    "lost",
                                        "busy",    "no-permission", "wrong-baud"};
    return QLatin1String(names[int(state)]);
}

Module::Module(const QString &id, const QString &portName, const QString &baud, QObject *parent)
    : QObject(parent), moduleId(id), port(portName), requestedBaud(baud),
      stateSince(QDateTime::currentDateTimeUtc()), link(new ModuleLink(this)),
      probe(new ModuleProbe(link, this)), queue(new WriteQueue(link, this)),
      counts(new ModuleStats), formatter(new ReportFormatter(ReportFormatter::Format::Jsonl)),
      retryTimer(new QTimer(this)), silenceTimer(new QTimer(this)),
      watcher(new QFileSystemWatcher(this)), held(new ModuleAreas),
      configTag("\"" +
                QCryptographicHash::hash(QByteArray(), QCryptographicHash::Sha1).toHex().left(20) +
                "\"")
{
    queue->answerMs = ModuleCommand::kAnswerMs;
    queue->tries = ModuleCommand::kTries;
    retryTimer->setSingleShot(true);
    connect(retryTimer, &QTimer::timeout, this, &Module::tryOpen);
    silenceTimer->setInterval(kSilenceCheckMs);
    connect(silenceTimer, &QTimer::timeout, this, &Module::checkSilence);
    connect(probe, &ModuleProbe::finished, this, &Module::onProbed);
    connect(link, &ModuleLink::lost, this, &Module::onLost);
    connect(link, &ModuleLink::frameReceived, this, &Module::onFrame);
    // A device that comes back (a replug, a link made again) shows in its
    // folder: try at once instead of waiting for the next retry.
    connect(watcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        watchFolder();
        if (retryTimer->isActive() && current == State::Lost &&
            QFileInfo::exists(ModuleSession::devicePath(port)))
            retryTimer->start(0);
    });
}

Module::~Module()
{
    // Every write still waiting is answered: the port closes first, so each
    // finds the module not open.
    retryTimer->stop();
    silenceTimer->stop();
    probe->cancel();
    link->close();
    queue->abandon();
}

void Module::start()
{
    watchFolder();
    tryOpen();
}

void Module::watchFolder()
{
    // The device's folder, or the nearest one above it that exists (a folder
    // such as /dev/serial/by-id goes away with its last device).
    QFileInfo folder(QFileInfo(ModuleSession::devicePath(port)).absolutePath());
    while (!folder.isDir() && !folder.isRoot())
        folder = QFileInfo(folder.absolutePath());
    const QString path = folder.absoluteFilePath();
    if (watcher->directories() == QStringList{path})
        return;
    if (!watcher->directories().isEmpty())
        watcher->removePaths(watcher->directories());
    watcher->addPath(path);
}

void Module::setState(State state)
{
    if (state == current)
        return;
    current = state;
    stateSince = QDateTime::currentDateTimeUtc();
    emit statusChanged(status());
}

void Module::tryOpen()
{
    probe->cancel();
    const bool autoBaud = requestedBaud == QLatin1String("auto");
    const int rate = autoBaud ? BaudProbe::probeOrder().first() : requestedBaud.toInt();
    QString why;
    switch (link->open(port, rate, &why)) {
    case ModuleSession::OpenFailure::None:
        lastWhy.clear();
        if (autoBaud) {
            setState(State::Opening);
            probe->start();
        } else {
            becameOpen(rate);
        }
        return;
    case ModuleSession::OpenFailure::Busy:
        setState(State::Busy);
        break;
    case ModuleSession::OpenFailure::Permission:
        setState(State::NoPermission);
        break;
    case ModuleSession::OpenFailure::Missing:
    case ModuleSession::OpenFailure::Other:
        setState(State::Lost);
        break;
    }
    lastWhy = why;
    watchFolder();
    scheduleRetry();
}

int Module::retryDelayMs(int attempt)
{
    return attempt <= 3 ? kRetryFirstMs : qMin(kRetryMaxMs, kRetryFirstMs * (attempt - 2));
}

void Module::scheduleRetry()
{
    retryTimer->start(retryDelayMs(++retries));
}

void Module::onProbed(int baud, bool heardBytes)
{
    if (baud > 0) {
        becameOpen(baud);
        return;
    }
    lastWhy = QString("no well-formed frame at any rate (%1)")
                  .arg(heardBytes ? "bytes came, none of them a frame" : "nothing came");
    link->close();
    setState(State::WrongBaud);
    scheduleRetry();
}

void Module::becameOpen(int baud)
{
    link->discardInput();
    currentBaud = baud;
    if (everOpen)
        counts->countReconnect();
    everOpen = true;
    retries = 0;
    lastFrameMs = QDateTime::currentMSecsSinceEpoch();
    bytesAtLastFrame = link->bytesRead();
    silenceTimer->start();
    setState(State::Open);
    lastReadAttemptMs = 0;
    stale = true;
    checkSilence();
}

void Module::onLost()
{
    silenceTimer->stop();
    probe->cancel();
    queue->portLost();
    lastWhy = QString("the port %1 went away").arg(port);
    setState(State::Lost);
    retries = 0;
    scheduleRetry();
}

void Module::onFrame(const QByteArray &frame)
{
    if (probe->running())
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    lastFrameMs = now;
    bytesAtLastFrame = link->bytesRead();
    if (current == State::Silent || current == State::WrongBaud)
        setState(State::Open);
    const quint8 code = quint8(frame.at(5));
    if (code != TargetReport && code != TargetAreaReport)
        return;
    counts->countReport(now);
    QByteArray line;
    if (!formatter->append(line, now, frame))
        return;
    if (line.endsWith('\n'))
        line.chop(1);
    if (code == TargetReport) {
        lastTargetsLine = line;
        emit targetsLine(line);
        if (isSignalConnected(QMetaMethod::fromSignal(&Module::targetsReport)))
            emit targetsReport(objectOf(line));
    } else {
        emit areasLine(line);
        if (isSignalConnected(QMetaMethod::fromSignal(&Module::areasReport)))
            emit areasReport(objectOf(line));
    }
}

QJsonObject Module::latestTargets() const
{
    return objectOf(lastTargetsLine);
}

void Module::checkSilence()
{
    if (!link->isOpen() || probe->running())
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now - lastFrameMs >= kSilentMs && (current == State::Open || current == State::Silent)) {
        // Bytes without a frame: the module talks at another rate.
        if (link->bytesRead() > bytesAtLastFrame) {
            setState(State::WrongBaud);
            if (requestedBaud == QLatin1String("auto")) {
                // Probe again: the module's rate has changed.
                silenceTimer->stop();
                link->close();
                queue->portLost();
                retries = 0;
                scheduleRetry();
                return;
            }
        } else {
            setState(State::Silent);
        }
    }
    // The display type and areas are read on every opening (they may have
    // been changed while the port was away), and again later when that
    // found no answer.
    if (stale && !reading && writable() &&
        (lastReadAttemptMs == 0 || now - lastReadAttemptMs >= kReadRetryMs)) {
        lastReadAttemptMs = now;
        reading = true;
        queue->enqueue([this](std::function<void()> finished) {
            if (!writable()) {
                reading = false;
                finished();
                return;
            }
            readBack([this, finished](LinkStatus, const QString &) {
                reading = false;
                finished();
            });
        });
    }
}

bool Module::writable() const
{
    return link->isOpen() && !probe->running() &&
           (current == State::Open || current == State::Silent);
}

QString Module::noAnswerText(LinkStatus status, const QString &what) const
{
    if (status == LinkStatus::Lost)
        return QString("the port %1 went away while waiting for %2").arg(port, what);
    QString text = QString("no answer from the module on %1 at %2 baud to %3")
                       .arg(port)
                       .arg(currentBaud)
                       .arg(what);
    if (queue->tries > 1)
        text += QString(" (asked %1 times, %2 ms each)").arg(queue->tries).arg(queue->answerMs);
    return text;
}

void Module::runSteps(
    const QList<modulewrites::Step> &steps, int index,
    std::function<void(LinkStatus, const QString &what, const QString &refused)> then)
{
    if (index >= steps.size()) {
        then(LinkStatus::Ok, QString(), QString());
        return;
    }
    const modulewrites::Step step = steps.at(index);
    queue->ask(step.code, step.payload,
               [this, steps, index, step, then](LinkStatus status, const QByteArray &answer) {
                   if (status != LinkStatus::Ok) {
                       then(status, step.what, QString());
                       return;
                   }
                   if (step.accepted && !step.accepted(answer)) {
                       then(LinkStatus::Ok, step.what, step.refused);
                       return;
                   }
                   runSteps(steps, index + 1, then);
               });
}

void Module::readBack(std::function<void(LinkStatus, const QString &what)> then)
{
    const QString displayWhat = QStringLiteral("the display-type read");
    queue->ask(ReadTargetShowType, QByteArray(),
               [this, then, displayWhat](LinkStatus status, const QByteArray &answer) {
                   if (status != LinkStatus::Ok) {
                       then(status, displayWhat);
                       return;
                   }
                   const int display = frameformat::decodeShowType(answer);
                   const QString areasWhat = QStringLiteral("the area read");
                   queue->ask(ReadArea, QByteArray(),
                              [this, then, display, areasWhat](LinkStatus status,
                                                               const QByteArray &answer) {
                                  if (status == LinkStatus::Ok &&
                                      answer.size() < frameformat::kReadAreaFrameSize)
                                      status = LinkStatus::Timeout;
                                  if (status == LinkStatus::Ok) {
                                      ModuleAreas held;
                                      held.display = display;
                                      held.areas = WireArea::fromReadAnswer(answer);
                                      takeHeld(held);
                                  }
                                  then(status, areasWhat);
                              });
               });
}

void Module::takeHeld(const ModuleAreas &held)
{
    const QByteArray json = modulewrites::backupOf(held).toJson();
    const QByteArray tag =
        "\"" + QCryptographicHash::hash(json, QCryptographicHash::Sha1).toHex().left(20) + "\"";
    *this->held = held;
    stale = false;
    if (haveConfig && tag == configTag)
        return;
    haveConfig = true;
    config = objectOf(json);
    configTag = tag;
    emit configChanged(config);
}

QJsonObject Module::status() const
{
    QJsonObject o{{"id", moduleId},
                  {"port", port},
                  {"state", stateName(current)},
                  {"since", stateSince.toString(Qt::ISODateWithMs)}};
    if (currentBaud > 0)
        o["baud"] = currentBaud;
    else
        o["baud"] = requestedBaud;
    if (haveConfig) {
        o["display"] = AreaFile::displayName(held->display);
        o["areas"] = config.value("areas");
    } else {
        o["display"] = QJsonValue();
        o["areas"] = QJsonArray();
    }
    if (!lastWhy.isEmpty() && current != State::Open)
        o["why"] = lastWhy;
    o["stats"] = counts->toJson(link->totals(), QDateTime::currentMSecsSinceEpoch());
    if (!mqttState.isEmpty())
        o["mqtt"] = mqttState;
    return o;
}

void Module::setMqttState(const QString &state)
{
    if (state == mqttState)
        return;
    mqttState = state;
    emit statusChanged(status());
}

QJsonObject Module::areaFile() const
{
    return config;
}

QByteArray Module::etag() const
{
    return configTag;
}

qint64 Module::reconnects() const
{
    return counts->reconnects();
}

// --- writes ---------------------------------------------------------------

void Module::setAreasText(const QByteArray &text, Done done, const QByteArray &ifMatch)
{
    AreaFile file;
    QString why;
    if (!modulewrites::fromText(text, &file, &why))
        done(result(WriteResult::Invalid, why));
    else
        enqueueWrite(file, false, std::move(done), ifMatch);
}

void Module::setAreas(const QJsonObject &areaFile, Done done, const QByteArray &ifMatch)
{
    setAreasText(QJsonDocument(areaFile).toJson(), std::move(done), ifMatch);
}

void Module::setArea(int number, const QJsonObject &area, Done done, const QByteArray &ifMatch)
{
    AreaFile file;
    QString why;
    if (!modulewrites::fromArea(number, area, &file, &why))
        done(result(WriteResult::Invalid, why));
    else
        enqueueWrite(file, false, std::move(done), ifMatch);
}

void Module::cancelArea(int number, Done done, const QByteArray &ifMatch)
{
    setArea(number, QJsonObject{{"type", "unset"}}, std::move(done), ifMatch);
}

void Module::cancelAllAreas(Done done, const QByteArray &ifMatch)
{
    enqueueWrite(modulewrites::allUnset(), true, std::move(done), ifMatch);
}

void Module::setDisplay(const QString &display, Done done, const QByteArray &ifMatch)
{
    AreaFile file;
    QString why;
    if (!modulewrites::fromDisplay(display, &file, &why))
        done(result(WriteResult::Invalid, why));
    else
        enqueueWrite(file, false, std::move(done), ifMatch);
}

WriteResult Module::notOpen() const
{
    return result(WriteResult::NotOpen,
                  QString("the module %1 is %2%3; nothing was sent")
                      .arg(moduleId, stateName(current),
                           lastWhy.isEmpty() ? QString() : " (" + lastWhy + ")"));
}

WriteResult Module::noAnswer(LinkStatus status, const QString &what) const
{
    return result(status == LinkStatus::Lost ? WriteResult::NotOpen : WriteResult::Timeout,
                  noAnswerText(status, what));
}

WriteResult Module::outcome(const AreaFile &file, const QString &refused) const
{
    WriteResult r;
    r.areaFile = config;
    if (!refused.isEmpty()) {
        r.kind = WriteResult::Refused;
        r.error = refused;
        return r;
    }
    const QStringList diff = modulewrites::differences(file, *held);
    if (!diff.isEmpty()) {
        r.kind = WriteResult::Mismatch;
        r.error = QStringLiteral("the module answered OK but holds something else");
        r.differences = QJsonArray::fromStringList(diff);
    }
    return r;
}

void Module::enqueueWrite(const AreaFile &file, bool cancelAll, Done done,
                          const QByteArray &ifMatch)
{
    if (!writable()) {
        done(notOpen());
        return;
    }
    const QList<modulewrites::Step> steps = modulewrites::stepsFor(file, cancelAll);
    queue->enqueue([this, steps, file, done, ifMatch](std::function<void()> finished) {
        const auto answer = [done, finished](const WriteResult &r) {
            done(r);
            finished();
        };
        if (!writable()) {
            answer(notOpen());
            return;
        }
        if (!ifMatch.isEmpty() && ifMatch != "*" && ifMatch != configTag) {
            WriteResult r =
                result(WriteResult::Stale,
                       QString("the areas or display changed (ETag %1, was %2); "
                               "nothing was sent")
                           .arg(QString::fromLatin1(configTag), QString::fromLatin1(ifMatch)));
            r.areaFile = config;
            answer(r);
            return;
        }
        runSteps(
            steps, 0,
            [this, file, answer](LinkStatus status, const QString &what, const QString &refused) {
                if (status != LinkStatus::Ok) {
                    answer(noAnswer(status, what));
                    return;
                }
                // Whatever the module answered, read back what it holds.
                readBack([this, file, answer, refused](LinkStatus status, const QString &what) {
                    answer(status == LinkStatus::Ok ? outcome(file, refused)
                                                    : noAnswer(status, what));
                });
            });
    });
}
