// The service's Module against radar-sim over pseudo-terminals: opening and
// probing, reports, every kind of write with its read-back, refused and
// invalid writes, silence, a wrong rate, a busy port, loss and return.

#include "radar/frameformat.h"
#include "service/module.h"
#include "tests/support/simpeer.h"
#include "tools/radar-sim/radarsimulator.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSerialPort>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <pty.h>
#include <unistd.h>

namespace
{

// Generous upper bounds for a loaded machine; every wait ends at the event.
constexpr int kOpenMs = 10000;
constexpr int kWriteMs = 15000;

// Runs the event loop until cond holds or ms have passed.
bool waitUntil(const std::function<bool()> &cond, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!cond()) {
        if (t.elapsed() > ms)
            return false;
        QTest::qWait(10);
    }
    return true;
}

// The outcome of one write, and how many times its done came.
struct Outcome {
    int calls = 0;
    WriteResult result;
};

// Starts a write and waits for its done; the count must be exactly one.
std::shared_ptr<Outcome> write(const std::function<void(Module::Done)> &call, int ms = kWriteMs)
{
    auto o = std::make_shared<Outcome>();
    call([o](const WriteResult &r) {
        ++o->calls;
        o->result = r;
    });
    waitUntil([o] { return o->calls > 0; }, ms);
    return o;
}

// A module on radar-sim's port, once it is open and has read the areas;
// null when that does not happen in time.
std::unique_ptr<Module> openModule(SimProcess &sim, const QStringList &args, const QString &id,
                                   const QString &baud = QStringLiteral("auto"))
{
    const QString path = sim.start(args);
    if (path.isEmpty())
        return nullptr;
    auto m = std::make_unique<Module>(id, path, baud);
    m->start();
    if (!waitUntil([&] { return m->state() == Module::State::Open && !m->areaFile().isEmpty(); },
                   kOpenMs))
        return nullptr;
    return m;
}

QString describe(const WriteResult &r)
{
    return QString("kind %1: %2 %3")
        .arg(r.kind)
        .arg(r.error,
             QString::fromUtf8(QJsonDocument(r.differences).toJson(QJsonDocument::Compact)));
}

QJsonObject area(const QJsonObject &file, int number)
{
    for (const QJsonValue &v : file.value("areas").toArray())
        if (v.toObject().value("number").toInt() == number)
            return v.toObject();
    return QJsonObject();
}

QJsonArray corner(double x, double y)
{
    return QJsonArray{x, y};
}

// The requests radar-sim reports with --verbose ("... -> ..."), counted.
int requestsSeen(SimProcess &sim)
{
    return sim.errors(0).count(" -> ");
}

// A pseudo-terminal with nobody on the other side: a module that says nothing.
class SilentLine
{
public:
    SilentLine()
    {
        char name[256] = {0};
        int slave = -1;
        if (::openpty(&master, &slave, name, nullptr, nullptr) == 0) {
            ::close(slave);
            path = QString::fromLocal8Bit(name);
        }
    }
    ~SilentLine()
    {
        if (master >= 0)
            ::close(master);
    }
    int master = -1;
    QString path;
};

// A module on the other side of a pseudo-terminal that answers as radar-sim
// does, except that it stores every area half a metre right of where it was
// asked to: it says OK and holds something else.
class ShiftingModule : public QObject
{
public:
    explicit ShiftingModule(int master) : master(master), notifier(master, QSocketNotifier::Read)
    {
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
        connect(&notifier, &QSocketNotifier::activated, this, &ShiftingModule::readable);
    }

private:
    void readable()
    {
        char buffer[512];
        const ssize_t n = ::read(master, buffer, sizeof buffer);
        if (n <= 0)
            return;
        for (const QByteArray &frame : decoder.feed(QByteArray(buffer, int(n)))) {
            const quint8 code = quint8(frame.at(5));
            QByteArray payload = frame.mid(6, frame.size() - 10);
            if (code == SetArea && payload.size() >= 10)
                payload[1] = char(qint8(payload.at(1)) + 5);
            for (const QByteArray &answer :
                 module.handleRequest(frameformat::buildFrame(code, payload)).frames)
                QVERIFY(::write(master, answer.constData(), size_t(answer.size())) ==
                        answer.size());
        }
    }

    int master;
    QSocketNotifier notifier;
    FrameDecoder decoder;
    RadarSimulator module;
};

} // namespace

class TestModule : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void stateNames();
    void retryBackOff();
    void opensStreamsAndReadsAreas();
    void probeFindsTheRate();
    void everyWriteKindIsReadBack();
    void invalidWritesSendNothing();
    void refusedWrite();
    void staleTagIsNotSent();
    void writesWhileNotOpen();
    void wrongBaudWithAFixedRate();
    void silentModuleAndTimeout();
    void busyPortIsRetried();
    void lostAndReplugged();
    void repluggedBeforeTheLossIsSeen();
    void destroyedWithWritesWaiting();
    void probeFindsNoRate();
    void lostDuringAWrite();
    void mismatchNamesTheDifferences();
    void noPermission();
    void deviceFolderAppearsLater();

private:
    QTemporaryDir dir;
};

void TestModule::initTestCase()
{
    QVERIFY(dir.isValid());
}

void TestModule::stateNames()
{
    const QStringList names{"opening", "open",          "silent",    "lost",
                            "busy",    "no-permission", "wrong-baud"};
    const Module::State states[] = {Module::State::Opening,  Module::State::Open,
                                    Module::State::Silent,   Module::State::Lost,
                                    Module::State::Busy,     Module::State::NoPermission,
                                    Module::State::WrongBaud};
    for (int i = 0; i < names.size(); ++i)
        QCOMPARE(Module::stateName(states[i]), names.at(i));
}

void TestModule::retryBackOff()
{
    QList<int> waits;
    for (int attempt = 1; attempt <= 9; ++attempt)
        waits << Module::retryDelayMs(attempt);
    QCOMPARE(waits, (QList<int>{1000, 1000, 1000, 2000, 3000, 4000, 5000, 5000, 5000}));
    QCOMPARE(Module::retryDelayMs(1000), Module::kRetryMaxMs);
}

void TestModule::opensStreamsAndReadsAreas()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "20", "--fixed", "1.5,3", "--fixed", "-1,2", "--area",
                                    "1,0,-3.5,6.5,-0.5,3.5", "--area", "3,1,2,7,4,5"});
    QVERIFY(!path.isEmpty());
    Module m("a", path, "auto");
    QSignalSpy status(&m, &Module::statusChanged);
    QSignalSpy config(&m, &Module::configChanged);
    QSignalSpy targets(&m, &Module::targetsReport);
    QSignalSpy areas(&m, &Module::areasReport);
    QCOMPARE(m.state(), Module::State::Opening);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, kOpenMs);
    QVERIFY(!status.isEmpty());
    QCOMPARE(status.last().at(0).toJsonObject().value("state").toString(), QString("open"));

    QTRY_VERIFY_WITH_TIMEOUT(!config.isEmpty(), kWriteMs);
    const QJsonObject file = m.areaFile();
    QCOMPARE(config.last().at(0).toJsonObject(), file);
    QCOMPARE(file.value("format").toString(), QString("orv-areas"));
    QCOMPARE(file.value("version").toInt(), 1);
    QCOMPARE(file.value("areas").toArray().size(), 3);
    QCOMPARE(area(file, 1).value("type").toString(), QString("detect"));
    QCOMPARE(area(file, 1).value("from").toArray(), corner(-3.5, 6.5));
    QCOMPARE(area(file, 1).value("to").toArray(), corner(-0.5, 3.5));
    QCOMPARE(area(file, 2).value("type").toString(), QString("unset"));
    QCOMPARE(area(file, 3).value("type").toString(), QString("exclude"));
    QVERIFY(m.etag().startsWith('"') && m.etag().endsWith('"') && m.etag().size() > 4);

    QTRY_VERIFY_WITH_TIMEOUT(targets.size() >= 5 && areas.size() >= 2, kOpenMs);
    const QJsonObject record = targets.last().at(0).toJsonObject();
    QCOMPARE(record.value("kind").toString(), QString("targets"));
    QVERIFY(record.value("time").toString().endsWith('Z'));
    const QJsonArray people = record.value("targets").toArray();
    QCOMPARE(people.size(), 2);
    QVERIFY(people.contains(corner(1.5, 3.0)));
    QVERIFY(people.contains(corner(-1.0, 2.0)));
    QCOMPARE(m.latestTargets().value("kind").toString(), QString("targets"));
    const QJsonObject areaRecord = areas.last().at(0).toJsonObject();
    QCOMPARE(areaRecord.value("kind").toString(), QString("areas"));
    QCOMPARE(areaRecord.value("occupied").toArray().size(), 3);

    // Stats: frames counted, a rate near radar-sim's 20 reports a second
    // (a target and an area report each period).
    QTRY_VERIFY_WITH_TIMEOUT(
        m.status().value("stats").toObject().value("reportsPerSecond").toDouble() > 10, 8000);
    const QJsonObject s = m.status();
    QCOMPARE(s.value("id").toString(), QString("a"));
    QCOMPARE(s.value("port").toString(), path);
    QCOMPARE(s.value("baud").toInt(), 9600);
    QCOMPARE(s.value("state").toString(), QString("open"));
    QVERIFY(QDateTime::fromString(s.value("since").toString(), Qt::ISODateWithMs).isValid());
    QVERIFY(s.value("since").toString().endsWith('Z'));
    QCOMPARE(s.value("areas").toArray(), file.value("areas").toArray());
    QVERIFY(s.value("display").isString());
    const QJsonObject stats = s.value("stats").toObject();
    QVERIFY(stats.value("frames").toDouble() >= targets.size() + areas.size());
    QCOMPARE(stats.value("badSums").toDouble(), 0.0);
    QVERIFY(stats.value("reportsPerSecond").toDouble() < 60);
}

void TestModule::probeFindsTheRate()
{
    SimProcess sim;
    // A person standing inside area 2.
    const QString path = sim.start(
        {"--baud", "115200", "--rate", "10", "--fixed", "0.5,2", "--area", "2,0,-1,3,1,1"});
    QVERIFY(!path.isEmpty());
    Module m("b", path, "auto");
    QSignalSpy targets(&m, &Module::targetsReport);
    QSignalSpy areas(&m, &Module::areasReport);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, kOpenMs);
    QCOMPARE(m.status().value("baud").toInt(), 115200);
    QTRY_VERIFY_WITH_TIMEOUT(!targets.isEmpty() && !areas.isEmpty(), kOpenMs);
    QCOMPARE(targets.last().at(0).toJsonObject().value("targets").toArray(),
             QJsonArray{QJsonValue(corner(0.5, 2))});
    QCOMPARE(areas.last().at(0).toJsonObject().value("occupied").toArray(),
             (QJsonArray{false, true, false}));
    QTRY_VERIFY_WITH_TIMEOUT(!m.areaFile().isEmpty(), kWriteMs);
    QCOMPARE(area(m.areaFile(), 2).value("from").toArray(), corner(-1, 3));
}

void TestModule::everyWriteKindIsReadBack()
{
    SimProcess sim;
    const auto owner = openModule(sim, {"--rate", "10", "--area", "1,0,-3.5,6.5,-0.5,3.5"}, "c");
    QVERIFY(owner);
    Module &m = *owner;
    QSignalSpy config(&m, &Module::configChanged);
    QByteArray tag = m.etag();
    int configs = config.size();

    // One area, with a corner that the wire truncates to decimetres.
    auto o = write([&](Module::Done d) {
        m.setArea(2, {{"type", "exclude"}, {"from", corner(1.25, 5)}, {"to", corner(3, 2)}}, d);
    });
    QCOMPARE(o->calls, 1);
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QCOMPARE(area(o->result.areaFile, 2).value("type").toString(), QString("exclude"));
    QCOMPARE(area(o->result.areaFile, 2).value("from").toArray().at(0).toDouble(), 1.2);
    QCOMPARE(area(o->result.areaFile, 2).value("to").toArray(), corner(3, 2));
    QCOMPARE(area(o->result.areaFile, 1).value("type").toString(), QString("detect"));
    QCOMPARE(m.areaFile(), o->result.areaFile);
    QVERIFY(m.etag() != tag);
    QVERIFY(config.size() > configs);
    QCOMPARE(config.last().at(0).toJsonObject(), m.areaFile());

    // The display type, both ways, the other one first.
    const QString held = m.status().value("display").toString();
    QVERIFY(held == "area" || held == "track");
    for (const QString &display : QStringList{held == "area" ? "track" : "area", held}) {
        tag = m.etag();
        o = write([&](Module::Done d) { m.setDisplay(display, d); });
        QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
        QCOMPARE(o->result.areaFile.value("display").toString(), display);
        QCOMPARE(m.status().value("display").toString(), display);
        QVERIFY(m.etag() != tag);
    }

    // Cancel one area.
    o = write([&](Module::Done d) { m.cancelArea(1, d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QCOMPARE(area(o->result.areaFile, 1).value("type").toString(), QString("unset"));
    QCOMPARE(area(o->result.areaFile, 2).value("type").toString(), QString("exclude"));

    // A whole file, as areas restore does it.
    const QJsonObject file{{"format", "orv-areas"},
                           {"version", 1},
                           {"display", "area"},
                           {"areas", QJsonArray{QJsonObject{{"number", 1},
                                                            {"type", "detect"},
                                                            {"from", corner(-2, 4)},
                                                            {"to", corner(2, 1)}},
                                                QJsonObject{{"number", 3},
                                                            {"type", "exclude"},
                                                            {"from", corner(-8, 8)},
                                                            {"to", corner(-6, 6)}}}}};
    configs = config.size();
    o = write([&](Module::Done d) { m.setAreas(file, d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QCOMPARE(o->result.areaFile.value("display").toString(), QString("area"));
    QCOMPARE(area(o->result.areaFile, 1).value("from").toArray(), corner(-2, 4));
    QCOMPARE(area(o->result.areaFile, 1).value("to").toArray(), corner(2, 1));
    QCOMPARE(area(o->result.areaFile, 2).value("type").toString(), QString("exclude"));
    QCOMPARE(area(o->result.areaFile, 3).value("type").toString(), QString("exclude"));
    QCOMPARE(area(o->result.areaFile, 3).value("from").toArray(), corner(-8, 8));
    QVERIFY(config.size() > configs);

    // The same file again changes nothing: no new config, the same tag.
    tag = m.etag();
    configs = config.size();
    o = write([&](Module::Done d) { m.setAreas(file, d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QCOMPARE(m.etag(), tag);
    QCOMPARE(config.size(), configs);

    // Cancel all.
    o = write([&](Module::Done d) { m.cancelAllAreas(d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    for (int n = 1; n <= 3; ++n)
        QCOMPARE(area(o->result.areaFile, n).value("type").toString(), QString("unset"));

    // Writes queued together are done one after the other, each answered.
    QList<std::shared_ptr<Outcome>> all;
    for (int n = 1; n <= 3; ++n) {
        auto each = std::make_shared<Outcome>();
        all.append(each);
        m.setArea(n, {{"type", "detect"}, {"from", corner(-n, n + 1)}, {"to", corner(n, n - 0.5)}},
                  [each](const WriteResult &r) {
                      ++each->calls;
                      each->result = r;
                  });
    }
    QVERIFY(waitUntil([&] { return all.last()->calls > 0; }, 3 * kWriteMs));
    for (int n = 1; n <= 3; ++n) {
        QCOMPARE(all.at(n - 1)->calls, 1);
        QVERIFY2(all.at(n - 1)->result.kind == WriteResult::Ok,
                 qPrintable(describe(all.at(n - 1)->result)));
        QCOMPARE(area(m.areaFile(), n).value("from").toArray(), corner(-n, n + 1));
    }
}

void TestModule::invalidWritesSendNothing()
{
    SimProcess sim;
    const auto owner = openModule(sim, {"--rate", "5", "--verbose"}, "d", "9600");
    QVERIFY(owner);
    Module &m = *owner;
    const QJsonObject before = m.areaFile();
    // The display type and the areas were read, nothing else.
    QTRY_COMPARE_WITH_TIMEOUT(requestsSeen(sim), 2, 5000);
    const int seen = requestsSeen(sim);

    const struct {
        std::function<void(Module::Done)> call;
        QString message;
    } cases[] = {
        {[&](Module::Done d) {
             m.setArea(4, {{"type", "unset"}}, d);
         },
         "\"4\" is not an area number (1, 2 or 3)"},
        {[&](Module::Done d) { m.cancelArea(0, d); }, "\"0\" is not an area number (1, 2 or 3)"},
        {[&](Module::Done d) {
             m.setArea(1, {{"type", "detect"}, {"from", corner(9, 1)}, {"to", corner(1, 0)}}, d);
         },
         "area 1: from[0]: x 9 is outside -8..8 m (nothing was sent)"},
        {[&](Module::Done d) {
             m.setArea(2, {{"type", "round"}, {"from", corner(1, 1)}, {"to", corner(2, 0)}}, d);
         },
         "area 2: type: must be \"detect\", \"exclude\" or \"unset\" (nothing was sent)"},
        {[&](Module::Done d) {
             m.setArea(3, {{"type", "detect"}, {"to", corner(2, 0)}}, d);
         },
         "area 3: from: missing (a corner [x, y] in metres) (nothing was sent)"},
        {[&](Module::Done d) { m.setDisplay("blue", d); },
         "\"blue\" is not a display type (area or track)"},
        {[&](Module::Done d) {
             m.setAreas({{"format", "orv-areas"}, {"version", 2}}, d);
         },
         "area file: version: 2 is not supported (this orv-cli reads version 1) (nothing was "
         "sent)"},
        {[&](Module::Done d) { m.setAreasText("{\"format\": ", d); },
         "area file:1:12: not valid JSON"},
    };
    for (const auto &c : cases) {
        // Answered at once, before the event loop runs again.
        auto o = std::make_shared<Outcome>();
        c.call([o](const WriteResult &r) {
            ++o->calls;
            o->result = r;
        });
        QCOMPARE(o->calls, 1);
        QCOMPARE(o->result.kind, WriteResult::Invalid);
        QVERIFY2(o->result.error.startsWith(c.message), qPrintable(o->result.error));
    }
    // A good write after them: radar-sim sees only its requests (the change
    // and the two reads), and the areas are as they were.
    auto o = write([&](Module::Done d) { m.setDisplay("area", d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QTRY_COMPARE_WITH_TIMEOUT(requestsSeen(sim), seen + 3, 5000);
    QCOMPARE(o->result.areaFile.value("areas"), before.value("areas"));
}

void TestModule::refusedWrite()
{
    SimProcess sim;
    const auto owner = openModule(sim, {"--rate", "5", "--area", "2,0,-1,3,1,1"}, "e");
    QVERIFY(owner);
    Module &m = *owner;
    // radar-sim takes display types 1..3 only; the file's areas are not sent
    // after the refusal, and the read-back comes with the answer.
    const QJsonObject file{{"format", "orv-areas"},
                           {"version", 1},
                           {"display", 7},
                           {"areas", QJsonArray{QJsonObject{{"number", 2}, {"type", "unset"}}}}};
    auto o = write([&](Module::Done d) { m.setAreas(file, d); });
    QCOMPARE(o->calls, 1);
    QCOMPARE(o->result.kind, WriteResult::Refused);
    QCOMPARE(o->result.error, QString("the module refused display type 7 (NG)"));
    QCOMPARE(area(o->result.areaFile, 2).value("type").toString(), QString("detect"));
    QCOMPARE(m.state(), Module::State::Open);
}

void TestModule::staleTagIsNotSent()
{
    SimProcess sim;
    const auto owner = openModule(sim, {"--rate", "5"}, "r");
    QVERIFY(owner);
    Module &m = *owner;
    const QByteArray tag = m.etag();
    // Two writes based on the same state, queued together: the first changes
    // the module, so the second finds its tag stale and sends nothing.
    QList<std::shared_ptr<Outcome>> both;
    for (int n = 1; n <= 2; ++n) {
        auto each = std::make_shared<Outcome>();
        both.append(each);
        m.setArea(
            n, {{"type", "detect"}, {"from", corner(-1, 2 + n)}, {"to", corner(1, 1)}},
            [each](const WriteResult &r) {
                ++each->calls;
                each->result = r;
            },
            tag);
    }
    QVERIFY(waitUntil([&] { return both.at(1)->calls > 0; }, 2 * kWriteMs));
    QCOMPARE(both.at(0)->calls, 1);
    QVERIFY2(both.at(0)->result.kind == WriteResult::Ok, qPrintable(describe(both.at(0)->result)));
    QCOMPARE(both.at(1)->calls, 1);
    QCOMPARE(both.at(1)->result.kind, WriteResult::Stale);
    QVERIFY2(both.at(1)->result.error.contains(QString::fromLatin1(tag)),
             qPrintable(both.at(1)->result.error));
    QCOMPARE(both.at(1)->result.areaFile, m.areaFile());
    QCOMPARE(area(m.areaFile(), 1).value("type").toString(), QString("detect"));
    QCOMPARE(area(m.areaFile(), 2).value("type").toString(), QString("unset"));

    // The current tag, and "*", go through; the tag follows the content, so
    // the first tag is stale only while the module holds something else.
    auto o = write([&](Module::Done d) { m.cancelArea(1, d, m.etag()); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    o = write([&](Module::Done d) { m.setDisplay("track", d, "*"); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    o = write([&](Module::Done d) { m.cancelAllAreas(d, tag); });
    QVERIFY2(o->result.kind == WriteResult::Stale, qPrintable(describe(o->result)));
}

void TestModule::writesWhileNotOpen()
{
    // A port that does not exist: lost, and every write answered NotOpen.
    Module m("f", dir.filePath("no-such-port"), "auto");
    QSignalSpy status(&m, &Module::statusChanged);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Lost, 3000);
    QCOMPARE(status.last().at(0).toJsonObject().value("state").toString(), QString("lost"));
    QVERIFY(m.status().value("why").toString().contains("does not exist"));
    const std::function<void(Module::Done)> calls[] = {
        [&](Module::Done d) { m.setDisplay("area", d); },
        [&](Module::Done d) { m.cancelAllAreas(d); },
        [&](Module::Done d) { m.cancelArea(1, d); },
        [&](Module::Done d) {
            m.setArea(1, {{"type", "detect"}, {"from", corner(0, 2)}, {"to", corner(1, 1)}}, d);
        },
        [&](Module::Done d) {
            m.setAreas({{"format", "orv-areas"}, {"version", 1}, {"areas", QJsonArray()}}, d);
        },
    };
    for (const auto &call : calls) {
        auto o = std::make_shared<Outcome>();
        call([o](const WriteResult &r) {
            ++o->calls;
            o->result = r;
        });
        QCOMPARE(o->calls, 1);
        QCOMPARE(o->result.kind, WriteResult::NotOpen);
        QVERIFY2(o->result.error.contains("lost") && o->result.error.contains("nothing was sent"),
                 qPrintable(o->result.error));
    }
}

void TestModule::wrongBaudWithAFixedRate()
{
    // The module talks at 115200; the service was told 9600.
    SimProcess sim;
    const QString path = sim.start({"--baud", "115200", "--rate", "20", "--verbose"});
    QVERIFY(!path.isEmpty());
    Module m("g", path, "9600");
    QElapsedTimer clock;
    clock.start();
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::WrongBaud, kOpenMs);
    QVERIFY(clock.elapsed() >= Module::kSilentMs - 100);
    const int seen = requestsSeen(sim);
    auto o = write([&](Module::Done d) { m.setDisplay("area", d); });
    QCOMPARE(o->result.kind, WriteResult::NotOpen);
    QVERIFY2(o->result.error.contains("wrong-baud"), qPrintable(o->result.error));
    QCOMPARE(requestsSeen(sim), seen);
    QVERIFY(m.status().value("stats").toObject().value("strayBytes").toDouble() > 0);
}

void TestModule::silentModuleAndTimeout()
{
    // Nobody on the other side: open, then silent, and a write times out
    // with orv-cli's words.
    SilentLine line;
    QVERIFY(!line.path.isEmpty());
    Module m("h", line.path, "9600");
    QSignalSpy status(&m, &Module::statusChanged);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Silent, kOpenMs);
    QStringList seen;
    for (const QList<QVariant> &s : status)
        seen << s.at(0).toJsonObject().value("state").toString();
    QVERIFY2(seen.startsWith("open"), qPrintable(seen.join(' ')));
    auto o = write([&](Module::Done d) { m.setDisplay("track", d); }, 30000);
    QCOMPARE(o->calls, 1);
    QCOMPARE(o->result.kind, WriteResult::Timeout);
    QCOMPARE(o->result.error,
             QString("no answer from the module on %1 at 9600 baud to the display-type change "
                     "(asked 3 times, 1000 ms each)")
                 .arg(line.path));

    // A module that answers but sends no reports (rate 0) is silent too, and
    // writable.
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QVERIFY(!path.isEmpty());
    Module quiet("i", path, "auto");
    quiet.start();
    QTRY_COMPARE_WITH_TIMEOUT(quiet.state(), Module::State::Silent, kOpenMs);
    o = write([&](Module::Done d) { quiet.setDisplay("area", d); });
    QVERIFY2(o->result.kind == WriteResult::Ok, qPrintable(describe(o->result)));
    QCOMPARE(o->result.areaFile.value("display").toString(), QString("area"));
}

void TestModule::busyPortIsRetried()
{
    SimProcess sim;
    const QString path = sim.start({"--rate", "10"});
    QVERIFY(!path.isEmpty());
    QSerialPort holder;
    holder.setPortName(path);
    QVERIFY(holder.open(QIODevice::ReadWrite));
    Module m("j", path, "auto");
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Busy, 3000);
    auto o = write([&](Module::Done d) { m.cancelAllAreas(d); });
    QCOMPARE(o->result.kind, WriteResult::NotOpen);
    holder.close();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, 8000);
    QCOMPARE(m.reconnects(), qint64(0));
}

void TestModule::lostAndReplugged()
{
    // One path for the module, a link to whichever radar-sim runs, made and
    // removed as a replug would. Each new module holds another area 1, as if
    // it had been changed elsewhere while unplugged.
    const QString link = dir.filePath("ttyORV");
    // The third module talks at another rate: probed again on its return.
    const auto rateOf = [](int cycle) { return cycle == 3 ? 115200 : 9600; };
    const auto simArgs = [&](int cycle) {
        return QStringList{"--rate",  "10",
                           "--fixed", "0.5,2",
                           "--baud",  QString::number(rateOf(cycle)),
                           "--area",  QString("1,0,-%1,3,1,1").arg(cycle % 2 + 1)};
    };
    SimProcess sim;
    QString pty = sim.start(simArgs(0));
    QVERIFY(!pty.isEmpty());
    QVERIFY(QFile::link(pty, link));

    Module m("k", link, "auto");
    QSignalSpy status(&m, &Module::statusChanged);
    QSignalSpy targets(&m, &Module::targetsReport);
    QSignalSpy config(&m, &Module::configChanged);
    m.start();
    QTRY_VERIFY_WITH_TIMEOUT(m.state() == Module::State::Open && !m.areaFile().isEmpty(), kOpenMs);
    int descriptors = -1;

    constexpr int kCycles = 6;
    for (int cycle = 1; cycle <= kCycles; ++cycle) {
        status.clear();
        QElapsedTimer clock;
        clock.start();
        sim.stop();
        QVERIFY(QFile::remove(link));
        QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Lost, 3000);
        QVERIFY2(clock.elapsed() <= 3000, qPrintable(QString::number(clock.elapsed())));
        auto o = write([&](Module::Done d) { m.setDisplay("area", d); });
        QCOMPARE(o->result.kind, WriteResult::NotOpen);

        const QByteArray tag = m.etag();
        config.clear();
        pty = sim.start(simArgs(cycle));
        QVERIFY(!pty.isEmpty());
        QVERIFY(QFile::link(pty, link));
        clock.restart();
        QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, 5000);
        QVERIFY2(clock.elapsed() <= 5000, qPrintable(QString::number(clock.elapsed())));
        QStringList seen;
        for (const QList<QVariant> &s : status)
            seen << s.at(0).toJsonObject().value("state").toString();
        QVERIFY2(seen.first() == "lost" && seen.last() == "open", qPrintable(seen.join(' ')));
        QCOMPARE(m.reconnects(), qint64(cycle));
        QCOMPARE(m.status().value("baud").toInt(), rateOf(cycle));
        QCOMPARE(m.status().value("stats").toObject().value("reconnects").toInt(), cycle);

        // The areas are read again, and the change seen.
        QTRY_VERIFY_WITH_TIMEOUT(!config.isEmpty(), kWriteMs);
        QCOMPARE(area(config.last().at(0).toJsonObject(), 1).value("from").toArray(),
                 corner(-(cycle % 2 + 1), 3));
        QVERIFY(m.etag() != tag);
        targets.clear();
        QVERIFY(targets.wait(kOpenMs));

        // Nothing is left open from earlier cycles.
        const int now =
            QDir("/proc/self/fd")
                .entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files | QDir::Dirs)
                .size();
        if (cycle == 2)
            descriptors = now;
        else if (cycle > 2)
            QCOMPARE(now, descriptors);
    }
}

void TestModule::repluggedBeforeTheLossIsSeen()
{
    // The link is replaced by another module's at once, before the device
    // check could see the path go: the module opened is gone all the same,
    // and the new one is opened.
    const QString link = dir.filePath("ttyQuick");
    SimProcess sim;
    QString pty = sim.start({"--rate", "10", "--fixed", "0.5,2"});
    QVERIFY(!pty.isEmpty());
    QVERIFY(QFile::link(pty, link));
    Module m("q", link, "auto");
    QSignalSpy status(&m, &Module::statusChanged);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, kOpenMs);

    status.clear();
    SimProcess next;
    const QString nextPty = next.start({"--rate", "10", "--fixed", "-1,3"});
    QVERIFY(!nextPty.isEmpty());
    QVERIFY(QFile::remove(link));
    QVERIFY(QFile::link(nextPty, link));
    sim.stop();

    QStringList seen;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            seen.clear();
            for (const QList<QVariant> &s : status)
                seen << s.at(0).toJsonObject().value("state").toString();
            return seen.contains("lost") && m.state() == Module::State::Open;
        }(),
        kOpenMs + 5000);
    QSignalSpy targets(&m, &Module::targetsReport);
    QVERIFY(targets.wait(kOpenMs));
    // The report is the new module's person.
    const QJsonArray people = targets.last().at(0).toJsonObject().value("targets").toArray();
    QCOMPARE(people.size(), 1);
    QCOMPARE(people.first().toArray().first().toDouble(), -1.0);
}

void TestModule::destroyedWithWritesWaiting()
{
    SimProcess sim;
    auto m = openModule(sim, {"--rate", "10"}, "l");
    QVERIFY(m);
    QList<std::shared_ptr<Outcome>> all;
    for (int n = 1; n <= 3; ++n) {
        auto each = std::make_shared<Outcome>();
        all.append(each);
        m->cancelArea(n, [each](const WriteResult &r) {
            ++each->calls;
            each->result = r;
        });
    }
    m.reset();
    for (const auto &each : all) {
        QCOMPARE(each->calls, 1);
        QCOMPARE(each->result.kind, WriteResult::NotOpen);
    }
}

void TestModule::probeFindsNoRate()
{
    // Bytes that never hold a frame, at every rate: wrong-baud, saying so.
    SilentLine noisy;
    QVERIFY(!noisy.path.isEmpty());
    QTimer garbage;
    QObject::connect(&garbage, &QTimer::timeout, [&] {
        const QByteArray bytes(32, '\x55');
        QVERIFY(::write(noisy.master, bytes.constData(), size_t(bytes.size())) == bytes.size());
        char drain[512];
        while (::read(noisy.master, drain, sizeof drain) > 0) {
        }
    });
    ::fcntl(noisy.master, F_SETFL, ::fcntl(noisy.master, F_GETFL) | O_NONBLOCK);
    garbage.start(20);
    Module m("m", noisy.path, "auto");
    QSignalSpy status(&m, &Module::statusChanged);
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::WrongBaud, 20000);
    QVERIFY2(m.status().value("why").toString().contains("bytes came"),
             qPrintable(m.status().value("why").toString()));
    QCOMPARE(status.first().at(0).toJsonObject().value("state").toString(), QString("wrong-baud"));
    auto o = write([&](Module::Done d) { m.setDisplay("area", d); });
    QCOMPARE(o->result.kind, WriteResult::NotOpen);
    garbage.stop();

    // Nothing at all: the same state, with the other reason.
    SilentLine silent;
    QVERIFY(!silent.path.isEmpty());
    Module quiet("n", silent.path, "auto");
    quiet.start();
    QTRY_COMPARE_WITH_TIMEOUT(quiet.state(), Module::State::WrongBaud, 20000);
    QVERIFY2(quiet.status().value("why").toString().contains("nothing came"),
             qPrintable(quiet.status().value("why").toString()));
}

void TestModule::deviceFolderAppearsLater()
{
    // The port's folder does not exist yet (as /dev/serial/by-id before the
    // first device): the module comes up soon after folder and device appear.
    const QString folder = dir.filePath("by-id");
    const QString link = folder + "/usb-orv";
    Module m("o", link, "auto");
    m.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Lost, 3000);
    SimProcess sim;
    const QString pty = sim.start({"--rate", "10"});
    QVERIFY(!pty.isEmpty());
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QFile::link(pty, link));
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE_WITH_TIMEOUT(m.state(), Module::State::Open, 5000);
    QVERIFY(clock.elapsed() <= 5000);
}

void TestModule::lostDuringAWrite()
{
    // A module that never answers, unplugged while a write waits for its
    // answer: the write ends at once, saying what it was waiting for.
    auto line = std::make_unique<SilentLine>();
    QVERIFY(!line->path.isEmpty());
    const QString path = line->path;
    Module m("p", path, "9600");
    m.start();
    QTRY_VERIFY_WITH_TIMEOUT(m.state() == Module::State::Open || m.state() == Module::State::Silent,
                             kOpenMs);
    auto o = std::make_shared<Outcome>();
    m.setArea(1, {{"type", "detect"}, {"from", corner(-1, 2)}, {"to", corner(1, 1)}},
              [o](const WriteResult &r) {
                  ++o->calls;
                  o->result = r;
              });
    QCOMPARE(o->calls, 0);
    // Wait for the set-area request on the line (after the first read of
    // the display type has given up).
    ::fcntl(line->master, F_SETFL, ::fcntl(line->master, F_GETFL) | O_NONBLOCK);
    QByteArray sent;
    QVERIFY(waitUntil(
        [&] {
            char buffer[256];
            ssize_t n;
            while ((n = ::read(line->master, buffer, sizeof buffer)) > 0)
                sent.append(buffer, int(n));
            for (const SeenFrame &f : cutFrames(sent))
                if (quint8(f.frame.at(5)) == SetArea)
                    return true;
            return false;
        },
        kWriteMs));
    QCOMPARE(o->calls, 0);
    line.reset();
    QTRY_COMPARE_WITH_TIMEOUT(o->calls, 1, 3000);
    QCOMPARE(o->result.kind, WriteResult::NotOpen);
    QVERIFY2(
        o->result.error.startsWith(QString("the port %1 went away while waiting for ").arg(path)),
        qPrintable(o->result.error));
    QCOMPARE(m.state(), Module::State::Lost);
}

void TestModule::mismatchNamesTheDifferences()
{
    SilentLine line;
    QVERIFY(!line.path.isEmpty());
    ShiftingModule shifting(line.master);
    Module m("q", line.path, "9600");
    m.start();
    QTRY_VERIFY_WITH_TIMEOUT(!m.areaFile().isEmpty(), kOpenMs);
    auto o = write([&](Module::Done d) {
        m.setArea(1, {{"type", "detect"}, {"from", corner(-1, 2)}, {"to", corner(1, 1)}}, d);
    });
    QCOMPARE(o->calls, 1);
    QCOMPARE(o->result.kind, WriteResult::Mismatch);
    QCOMPARE(o->result.error, QString("the module answered OK but holds something else"));
    QCOMPARE(o->result.differences.size(), 1);
    const QString difference = o->result.differences.at(0).toString();
    QVERIFY2(difference.startsWith("area 1: the file says detect (-1.0, 2.0) to (1.0, 1.0), "
                                   "the module holds "),
             qPrintable(difference));
    // The read-back is what the module holds, shifted.
    QCOMPARE(area(o->result.areaFile, 1).value("from").toArray().at(0).toDouble(), -0.5);
    QCOMPARE(o->result.areaFile, m.areaFile());
}

void TestModule::noPermission()
{
    // The module run as an ordinary user (this program, see main) against a
    // port only root may open.
    if (::geteuid() != 0 || QStandardPaths::findExecutable("runuser").isEmpty())
        QSKIP("needs root and runuser to try an ordinary user");
    SimProcess sim;
    const QString path = sim.start({"--rate", "0"});
    QVERIFY(!path.isEmpty());
    QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    QProcess p;
    p.start("runuser",
            {"-u", "nobody", "--", QCoreApplication::applicationFilePath(), "--state-of", path});
    QVERIFY(p.waitForFinished(20000));
    if (p.exitCode() == 126 || p.exitCode() == 127)
        QSKIP("the user nobody cannot run this program from here");
    const QString out = QString::fromUtf8(p.readAllStandardOutput());
    QCOMPARE(p.exitCode(), 0);
    QVERIFY2(out.startsWith("no-permission\n") && out.contains("permission denied") &&
                 out.contains("'dialout' group"),
             qPrintable(out + QString::fromUtf8(p.readAllStandardError())));
}

// Run with --state-of PORT, prints the first state a module on PORT settles
// in (after opening) and why; otherwise runs the tests.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--state-of") {
        Module m("x", QString::fromLocal8Bit(argv[2]), "auto");
        m.start();
        waitUntil([&] { return m.state() != Module::State::Opening; }, kOpenMs);
        std::printf("%s\n%s\n", qPrintable(Module::stateName(m.state())),
                    qPrintable(m.status().value("why").toString()));
        return 0;
    }
    TestModule test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_module.moc"
