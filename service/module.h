#pragma once

// One radar module the service owns, on the Qt main thread: it opens the
// port (probing the rate for "auto"), reads the display type and the areas,
// streams the module's reports through the strict frame decoder and keeps
// trying when the port is lost or busy. Writes are queued and done one at a
// time; after each, the areas and the display type are read back.
//
// States:
//   opening        the port is open and the rate is being probed ("auto")
//   open           frames arrive
//   silent         open, but no frame for kSilentMs (a module that sends no
//                  reports is silent between answers); writes are still tried
//   lost           the port is gone (or never was); retried
//   busy           another program holds the port; retried
//   no-permission  the user may not open the port; retried
//   wrong-baud     bytes come but never a frame at the rate given, or no rate
//                  gave a frame ("auto"); "auto" probes again with back-off
// Writes are taken in open and silent only; in any other state they are
// answered NotOpen at once. status() carries "why" in the states other than
// open: orv-cli's words for the last failure.

#include "cli/modulesession.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class AreaFile;
class ModuleLink;
class ModuleProbe;
class ModuleStats;
class QFileSystemWatcher;
class QTimer;
class ReportFormatter;
class WriteQueue;
struct ModuleAreas;
namespace modulewrites
{
struct Step;
}

// The outcome of one write, handed to its Done callback.
struct WriteResult {
    enum Kind {
        Ok,
        Invalid,  // the request breaks a rule (400); nothing was sent
        NotOpen,  // the module is not open (503); nothing was sent
        Refused,  // the module answered NG (409)
        Mismatch, // the module holds something else afterwards (409)
        Timeout,  // no answer (504)
        Stale,    // the write's ifMatch is not the tag when its turn came (412); nothing sent
    };
    Kind kind = Ok;
    QString error;          // the message, as orv-cli prints it
    QJsonObject areaFile;   // the read-back, on Ok and Mismatch (and Refused when read)
    QJsonArray differences; // one string per difference, on Mismatch
};

class Module : public QObject
{
    Q_OBJECT
public:
    enum class State { Opening, Open, Silent, Lost, Busy, NoPermission, WrongBaud };
    // "opening", "open", "silent", "lost", "busy", "no-permission", "wrong-baud"
    static QString stateName(State state);

    // baud is "auto" or a number.
    Module(const QString &id, const QString &portName, const QString &baud,
           QObject *parent = nullptr);
    ~Module() override;

    // Opens, probes, reads display and areas, streams; retries by itself.
    void start();

    QString id() const { return moduleId; }
    QString portName() const { return port; }
    State state() const { return current; }
    QDateTime since() const { return stateSince; }

    // {"id","port","baud","state","since","display","areas",
    //  "stats":{"frames","badSums","strayBytes","reportsPerSecond","reconnects"}}
    QJsonObject status() const;
    // The state of the module's MQTT connection ("connected", "connecting",
    // "refused"), carried in status() as "mqtt" once set; a change is a
    // status change.
    void setMqttState(const QString &state);
    // Exactly what `orv-cli areas backup` writes for this module; empty
    // before the first read.
    QJsonObject areaFile() const;
    // Changes whenever the areas or the display change ("\"...\"").
    QByteArray etag() const;
    // The latest targets record (the `watch --format jsonl` record), or empty.
    QJsonObject latestTargets() const;
    // Times the module came back open after being lost, busy or unreadable.
    qint64 reconnects() const;

    // Writes: queued, one at a time, each waiting for the module's answer;
    // after any write the areas and display are read back. done is called on
    // the Qt main thread exactly once. With an ifMatch other than empty or
    // "*", a write whose turn comes when etag() is no longer ifMatch (an
    // earlier write in line changed the module) is answered Stale, unsent.
    using Done = std::function<void(const WriteResult &)>;
    // As `orv-cli areas restore` (set, read back, compare).
    void setAreas(const QJsonObject &areaFile, Done done, const QByteArray &ifMatch = QByteArray());
    // {"type":"detect"|"exclude","from":[x,y],"to":[x,y]} or {"type":"unset"}
    void setArea(int number, const QJsonObject &area, Done done,
                 const QByteArray &ifMatch = QByteArray());
    void cancelArea(int number, Done done, const QByteArray &ifMatch = QByteArray());
    void cancelAllAreas(Done done, const QByteArray &ifMatch = QByteArray());
    // "area" or "track"
    void setDisplay(const QString &display, Done done, const QByteArray &ifMatch = QByteArray());
    // setAreas from the raw text of an area file (as a request body carries it), so that
    // a syntax error is named by line and column as orv-cli names it.
    void setAreasText(const QByteArray &text, Done done, const QByteArray &ifMatch = QByteArray());

    // How long without a frame makes an open module silent.
    static constexpr int kSilentMs = 3000;
    // Retry delays of a lost or busy port: the first, and the longest.
    static constexpr int kRetryFirstMs = 1000;
    static constexpr int kRetryMaxMs = 5000;
    // The wait before retry number attempt (1, 2, ...): kRetryFirstMs for the
    // first three, then a second more each time up to kRetryMaxMs. A device
    // that appears in its folder is tried at once, whatever the wait.
    static int retryDelayMs(int attempt);

signals:
    // Every state change.
    void statusChanged(const QJsonObject &status);
    // After every change of areas or display, whoever made it.
    void configChanged(const QJsonObject &areaFile);
    // Every code-7 report, the watch jsonl record.
    void targetsReport(const QJsonObject &record);
    // Every code-8 report, the watch jsonl record.
    void areasReport(const QJsonObject &record);
    // The same records as the text of watch's jsonl lines (no line end), for
    // those that pass them on as they are; the parsed records above are made
    // only while something is connected to them.
    void targetsLine(const QByteArray &json);
    void areasLine(const QByteArray &json);

private:
    void setState(State state);
    void tryOpen();
    void watchFolder();
    void scheduleRetry();
    void onProbed(int baud, bool heardBytes);
    void becameOpen(int baud);
    void onLost();
    void onFrame(const QByteArray &frame);
    void checkSilence();
    bool writable() const;
    void
    runSteps(const QList<modulewrites::Step> &steps, int index,
             std::function<void(LinkStatus, const QString &what, const QString &refused)> then);
    void readBack(std::function<void(LinkStatus, const QString &what)> then);
    void enqueueWrite(const AreaFile &file, bool cancelAll, Done done, const QByteArray &ifMatch);
    // The result of a write the module answered, from the read-back.
    WriteResult outcome(const AreaFile &file, const QString &refused) const;
    WriteResult notOpen() const;
    WriteResult noAnswer(LinkStatus status, const QString &what) const;
    void takeHeld(const ModuleAreas &held);
    QString noAnswerText(LinkStatus status, const QString &what) const;

    QString moduleId;
    QString port;
    QString requestedBaud;
    State current = State::Opening;
    QDateTime stateSince;
    QString lastWhy; // why the last opening failed
    int currentBaud = 0;
    bool everOpen = false;
    QString mqttState;
    int retries = 0;

    ModuleLink *link = nullptr;
    ModuleProbe *probe = nullptr;
    WriteQueue *queue = nullptr;
    std::unique_ptr<ModuleStats> counts;
    std::unique_ptr<ReportFormatter> formatter;
    QTimer *retryTimer = nullptr;
    QTimer *silenceTimer = nullptr;
    QFileSystemWatcher *watcher = nullptr;
    qint64 lastFrameMs = 0;
    qint64 bytesAtLastFrame = 0;
    qint64 lastReadAttemptMs = 0;
    bool reading = false;
    bool stale = true; // the areas and display are to be read (again)

    bool haveConfig = false;
    std::unique_ptr<ModuleAreas> held; // what the module held at the last read
    QJsonObject config;                // the area file of what the module holds
    QByteArray configTag;
    QByteArray lastTargetsLine;
};
