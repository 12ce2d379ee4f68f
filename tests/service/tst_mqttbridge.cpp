// A Module against radar-sim on a pseudo-terminal, published by MqttBridge to
// Debian's mosquitto on a loopback port: every topic with its retained flag,
// discovery, occupancy and presence following the simulated people, sets
// over MQTT with their results (bad payloads included), a broker restart,
// Home Assistant's restart, the module unplugged and plugged in again, and
// the last will.

#include "service/module.h"
#include "service/mqttbridge.h"
#include "tests/support/simpeer.h"
#include "tst_mqttsupport.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <memory>

namespace
{

constexpr int kOpenMs = 15000;
constexpr int kWaitMs = 15000;
const QString kMarker = QStringLiteral("orv-test/marker");

QJsonObject object(const QByteArray &payload)
{
    return QJsonDocument::fromJson(payload).object();
}

bool settle(TestSubscriber &subscriber)
{
    const QByteArray token = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    return subscriber.client.publish(MqttMessage{kMarker, token, false}, 1) &&
           subscriber.waitFor(kMarker, token);
}

// The latest payload on topic, or a null array.
QByteArray latest(const TestSubscriber &subscriber, const QString &topic)
{
    const QList<MqttReceived> all = subscriber.on(topic);
    return all.isEmpty() ? QByteArray() : all.last().payload;
}

// A module on radar-sim with its bridge to the broker.
struct Rig {
    TestBroker broker;
    SimProcess sim;
    QTemporaryDir dir;
    QString link;
    std::unique_ptr<Module> module;
    std::unique_ptr<MqttBridge> bridge;
    std::unique_ptr<TestSubscriber> live;

    bool start(const QStringList &simArgs, const QString &id = QStringLiteral("m1"))
    {
        if (!broker.start() || !dir.isValid())
            return false;
        link = dir.filePath(QStringLiteral("ttyM"));
        if (sim.start(simArgs + QStringList{QStringLiteral("--link"), link}).isEmpty())
            return false;
        live = std::make_unique<TestSubscriber>(
            broker.options(), QStringLiteral("live"),
            QStringList{"orv/" + id + "/#", "homeassistant/#", kMarker});
        if (!live->waitConnected())
            return false;
        module = std::make_unique<Module>(id, link, QStringLiteral("auto"));
        bridge = std::make_unique<MqttBridge>(module.get(), broker.options());
        module->start();
        bridge->start();
        return live->waitFor("orv/" + id + "/availability", "online", kOpenMs);
    }

    // Publishes payload on topic from the test's own connection and waits
    // for the bridge's answer on result.
    QJsonObject set(const QString &topic, const QByteArray &payload)
    {
        const int before = live->on(QStringLiteral("orv/m1/result")).size();
        if (!live->client.publish(MqttMessage{topic, payload, false}, 1))
            return QJsonObject();
        QDeadlineTimer deadline(kWaitMs);
        while (!deadline.hasExpired() && live->on(QStringLiteral("orv/m1/result")).size() == before)
            QTest::qWait(20);
        const QList<MqttReceived> results = live->on(QStringLiteral("orv/m1/result"));
        return results.size() > before ? object(results.last().payload) : QJsonObject();
    }
};

} // namespace

class TstMqttBridge : public QObject
{
    Q_OBJECT
private slots:
    void everyTopic()
    {
        Rig rig;
        // One person inside area 1, one outside; area 3 holds nothing.
        QVERIFY(rig.start({"--rate", "10", "--fixed", "0,4", "--fixed", "3,6.5", "--area",
                           "1,0,-1,5,1,3", "--area", "2,1,4,7,5,6"}));
        TestSubscriber &live = *rig.live;
        QCOMPARE(rig.bridge->connectionState(), QStringLiteral("connected"));
        QCOMPARE(rig.module->status().value("mqtt").toString(), QStringLiteral("connected"));
        QVERIFY(live.waitFor("orv/m1/presence", "ON"));
        QVERIFY(live.waitFor("orv/m1/count", "2"));
        QVERIFY(live.waitFor("orv/m1/area/1/occupancy", "ON"));
        QVERIFY(live.waitFor("orv/m1/area/3/occupancy", "OFF"));
        MqttReceived targets;
        QVERIFY(live.waitFor("orv/m1/targets", QByteArray(), kWaitMs, &targets));
        QVERIFY(!targets.retained);
        const QJsonObject record = object(targets.payload);
        QCOMPARE(record.value("kind").toString(), QStringLiteral("targets"));
        QCOMPARE(record.value("targets").toArray().size(), 2);
        QVERIFY(live.waitFor("orv/m1/area/1"));
        QCOMPARE(object(latest(live, "orv/m1/area/1")),
                 QJsonObject(
                     {{"type", "detect"}, {"from", QJsonArray{-1, 5}}, {"to", QJsonArray{1, 3}}}));

        // A subscriber that comes later gets every retained topic, with the
        // retained flag, and the discovery configs; not the targets.
        TestSubscriber late(rig.broker.options(), QStringLiteral("late"),
                            {"orv/m1/#", "homeassistant/#", kMarker});
        QVERIFY(late.waitConnected());
        QVERIFY(settle(late));
        QSet<QString> retained;
        int configs = 0;
        for (const MqttReceived &r : late.received) {
            if (r.topic == kMarker)
                continue;
            QVERIFY2(r.retained, qPrintable(r.topic));
            if (r.topic.startsWith(QStringLiteral("homeassistant/")))
                ++configs;
            else
                retained.insert(r.topic);
        }
        QCOMPARE(configs, 6);
        const QList<QString> expected = MqttTopics("orv", "m1").retainedTopics();
        QCOMPARE(retained, QSet<QString>(expected.begin(), expected.end()));
        QCOMPARE(latest(late, "orv/m1/availability"), QByteArray("online"));
        QCOMPARE(object(latest(late, "orv/m1/state")).value("state").toString(),
                 QStringLiteral("open"));
        QCOMPARE(latest(late, "orv/m1/presence"), QByteArray("ON"));
        QCOMPARE(latest(late, "orv/m1/count"), QByteArray("2"));
        QCOMPARE(latest(late, "orv/m1/area/1/occupancy"), QByteArray("ON"));
        QCOMPARE(latest(late, "orv/m1/area/2/occupancy"), QByteArray("OFF"));
        QCOMPARE(object(latest(late, "orv/m1/area/2")).value("type").toString(),
                 QStringLiteral("exclude"));
        QCOMPARE(object(latest(late, "orv/m1/area/3")), QJsonObject({{"type", "unset"}}));
        const QByteArray display = latest(late, "orv/m1/display");
        QVERIFY2(display == "area" || display == "track", display.constData());
        QVERIFY(late.on("orv/m1/targets").isEmpty());

        // People standing still: over two seconds of reports, only targets
        // (at most about 1 a second) reach the broker.
        const int before = live.received.size();
        QTest::qWait(2000);
        int others = 0;
        int targetMessages = 0;
        for (int i = before; i < live.received.size(); ++i) {
            if (live.received.at(i).topic == QLatin1String("orv/m1/targets"))
                ++targetMessages;
            else
                ++others;
        }
        QCOMPARE(others, 0);
        QVERIFY2(targetMessages >= 1 && targetMessages <= 3,
                 qPrintable(QString::number(targetMessages)));
    }

    void occupancyFollowsWalkingPeople()
    {
        Rig rig;
        // Two people walking through the room; area 1 in its middle.
        QVERIFY(
            rig.start({"--rate", "10", "--targets", "2", "--seed", "7", "--area", "1,0,-2,6,2,3"}));
        TestSubscriber &live = *rig.live;
        // What the module reported (area 1 and the count), with the time the
        // report left the module object.
        QList<bool> reported;
        QList<qint64> reportedAt;
        QElapsedTimer clock;
        clock.start();
        connect(rig.module.get(), &Module::areasReport, &live, [&](const QJsonObject &record) {
            const bool occupied = record.value("occupied").toArray().at(0).toBool();
            if (reported.isEmpty() || reported.last() != occupied) {
                reported << occupied;
                reportedAt << clock.nsecsElapsed();
            }
        });
        QList<qint64> receivedAt;
        connect(&live.client, &MqttClient::messageReceived, &live,
                [&](const QString &topic, const QByteArray &) {
                    if (topic == QLatin1String("orv/m1/area/1/occupancy"))
                        receivedAt << clock.nsecsElapsed();
                });
        const int before = live.on("orv/m1/area/1/occupancy").size();
        // Wait for people to walk in and out a few times (bounded).
        // A plain event loop (not a polling wait), so that the times taken
        // below are those of the messages' arrival.
        QEventLoop loop;
        QTimer::singleShot(90000, &loop, &QEventLoop::quit);
        connect(&live.client, &MqttClient::messageReceived, &loop, [&] {
            if (reported.size() >= 5 && receivedAt.size() >= 4)
                loop.quit();
        });
        loop.exec();
        QVERIFY2(reported.size() >= 5, qPrintable(QString::number(reported.size())));
        // Every change the module reported reaches the broker, in order,
        // and nothing else does (the first report may repeat the value
        // published at start).
        const QList<bool> seen = reported.mid(0, 5);
        QList<QByteArray> expected;
        for (bool occupied : seen)
            expected << mqttpayload::onOff(occupied);
        auto published = [&live, before] {
            QList<QByteArray> out;
            for (const MqttReceived &r : live.on("orv/m1/area/1/occupancy").mid(before))
                out << r.payload;
            return out;
        };
        QTRY_VERIFY_WITH_TIMEOUT(
            published().size() >= expected.size() - 1 && !published().isEmpty(), kWaitMs);
        if (published().first() != expected.first())
            expected.removeFirst();
        QTRY_VERIFY_WITH_TIMEOUT(published().size() >= expected.size(), kWaitMs);
        QCOMPARE(published().mid(0, expected.size()), expected);

        // Module report to subscriber through the broker, in ms.
        QList<double> latencies;
        const int offset = reported.size() - receivedAt.size();
        for (int i = 0; i < receivedAt.size(); ++i) {
            if (i + offset >= 0)
                latencies << double(receivedAt.at(i) - reportedAt.at(i + offset)) / 1e6;
        }
        std::sort(latencies.begin(), latencies.end());
        if (!latencies.isEmpty())
            qInfo("occupancy change, module report to subscriber: %d changes, median %.2f ms, max "
                  "%.2f ms",
                  int(latencies.size()), latencies.at(latencies.size() / 2), latencies.last());
    }

    void setsOverMqtt()
    {
        Rig rig;
        QVERIFY(rig.start({"--rate", "10", "--fixed", "0,4", "--area", "1,0,-1,5,1,3"}));
        TestSubscriber &live = *rig.live;
        QVERIFY(live.waitFor("orv/m1/area/1/occupancy", "ON"));

        // Area 2 set, read back (decimetres) and announced.
        QJsonObject result =
            rig.set("orv/m1/area/2/set", R"({"type":"exclude","from":[1.25,5],"to":[3,2]})");
        QCOMPARE(result.value("request").toString(), QStringLiteral("orv/m1/area/2/set"));
        QVERIFY2(result.value("ok").toBool(), QJsonDocument(result).toJson().constData());
        QVERIFY(result.value("error").isNull());
        QVERIFY(live.waitFor("orv/m1/area/2"));
        QCOMPARE(object(latest(live, "orv/m1/area/2")), QJsonObject({{"type", "exclude"},
                                                                     {"from", QJsonArray{1.2, 5}},
                                                                     {"to", QJsonArray{3, 2}}}));
        const QJsonArray areas = rig.module->areaFile().value("areas").toArray();
        QCOMPARE(areas.at(1).toObject().value("type").toString(), QStringLiteral("exclude"));

        // Area 1 moved away from the person: its occupancy follows.
        result = rig.set("orv/m1/area/1/set", R"({"type":"detect","from":[-5,8],"to":[-4,7]})");
        QVERIFY(result.value("ok").toBool());
        QVERIFY(live.waitFor("orv/m1/area/1/occupancy", "OFF"));
        // And back over the person.
        result = rig.set("orv/m1/area/1/set", R"({"type":"detect","from":[-1,5],"to":[1,3]})");
        QVERIFY(result.value("ok").toBool());
        QVERIFY(live.waitFor("orv/m1/area/1/occupancy", "ON"));

        result = rig.set("orv/m1/area/2/set", "unset");
        QVERIFY(result.value("ok").toBool());
        QTRY_COMPARE_WITH_TIMEOUT(object(latest(live, "orv/m1/area/2")),
                                  QJsonObject({{"type", "unset"}}), kWaitMs);

        // The display type both ways.
        for (const QByteArray &display : {QByteArray("track"), QByteArray("area")}) {
            result = rig.set("orv/m1/display/set", display);
            QCOMPARE(result.value("request").toString(), QStringLiteral("orv/m1/display/set"));
            QVERIFY(result.value("ok").toBool());
            QTRY_COMPARE_WITH_TIMEOUT(latest(live, "orv/m1/display"), display, kWaitMs);
        }

        // Bad payloads: a reason, and nothing reaches the module.
        const QByteArray tag = rig.module->etag();
        struct Bad {
            const char *topic;
            QByteArray payload;
            const char *why;
        };
        const Bad bad[] = {
            {"orv/m1/area/2/set", "nonsense", "expected unset or"},
            {"orv/m1/area/3/set", R"({"type":"detect","from":[-9,1],"to":[0,0]})", "outside -8..8"},
            {"orv/m1/area/1/set", R"({"type":"zone","from":[0,1],"to":[1,0]})", "type:"},
            {"orv/m1/display/set", "sideways", "expected area or track"}};
        for (const Bad &b : bad) {
            result = rig.set(QString::fromLatin1(b.topic), b.payload);
            QCOMPARE(result.value("request").toString(), QString::fromLatin1(b.topic));
            QCOMPARE(result.value("ok"), QJsonValue(false));
            QVERIFY2(result.value("error").toString().contains(QLatin1String(b.why)),
                     qPrintable(result.value("error").toString()));
        }
        QCOMPARE(rig.module->etag(), tag);
    }

    void brokerRestartAndHomeAssistantRestart()
    {
        Rig rig;
        QVERIFY(rig.start({"--rate", "10", "--fixed", "0,4"}));
        QSignalSpy states(rig.bridge.get(), &MqttBridge::connectionStateChanged);
        QSignalSpy statuses(rig.module.get(), &Module::statusChanged);
        rig.live.reset();
        rig.broker.stop();
        QTRY_COMPARE_WITH_TIMEOUT(rig.bridge->connectionState(), QStringLiteral("connecting"),
                                  kWaitMs);
        // The HTTP viewers see the broker's state in the module's status.
        QTRY_VERIFY_WITH_TIMEOUT(!statuses.isEmpty(), kWaitMs);
        QCOMPARE(statuses.last().at(0).toJsonObject().value("mqtt").toString(),
                 QStringLiteral("connecting"));
        QVERIFY(rig.broker.start()); // no persistence: the broker forgot every retained topic
        QTRY_COMPARE_WITH_TIMEOUT(rig.bridge->connectionState(), QStringLiteral("connected"),
                                  kWaitMs);
        QVERIFY(states.count() >= 2);

        // Everything retained is back on the broker: a subscriber that
        // comes now gets it all as retained messages (one that came while
        // the bridge was still publishing would get some of it live).
        std::unique_ptr<TestSubscriber> subscriber;
        QDeadlineTimer deadline(kWaitMs);
        int retained = 0;
        int round = 0;
        do {
            subscriber = std::make_unique<TestSubscriber>(
                rig.broker.options(), QStringLiteral("late%1").arg(round++),
                QStringList{"orv/m1/#", "homeassistant/#", kMarker});
            QVERIFY(subscriber->waitConnected());
            QVERIFY(settle(*subscriber));
            retained = 0;
            for (const MqttReceived &r : subscriber->received)
                retained += r.retained ? 1 : 0;
        } while (retained < 11 + 6 && !deadline.hasExpired());
        QCOMPARE(retained, 11 + 6);
        TestSubscriber &late = *subscriber;
        QCOMPARE(latest(late, "orv/m1/availability"), QByteArray("online"));

        // Home Assistant restarts (its discovery configs cleared here):
        // "online" on its status topic brings them back.
        QString configTopic;
        for (const MqttReceived &r : late.received) {
            if (r.topic.startsWith(QStringLiteral("homeassistant/"))) {
                configTopic = r.topic;
                break;
            }
        }
        QVERIFY(!configTopic.isEmpty());
        QVERIFY(late.client.publish(MqttMessage{configTopic, QByteArray(), true}));
        const int before = late.on(configTopic).size();
        QVERIFY(late.client.publish(MqttMessage{"homeassistant/status", "online", false}));
        QTRY_VERIFY_WITH_TIMEOUT(late.on(configTopic).size() > before &&
                                     !late.on(configTopic).last().payload.isEmpty(),
                                 5000);
    }

    void unpluggedAndBack()
    {
        Rig rig;
        QVERIFY(rig.start({"--rate", "10", "--fixed", "0,4"}));
        rig.sim.stop();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(rig.live->waitFor("orv/m1/availability", "offline", kWaitMs));
        QVERIFY2(timer.elapsed() < 8000, qPrintable(QString::number(timer.elapsed())));
        // Plugged in again once the module saw its port go (a device back
        // within the silence window at the same path is the module's own
        // test).
        QTRY_COMPARE_WITH_TIMEOUT(rig.module->state(), Module::State::Lost, kWaitMs);
        const int before = rig.live->on("orv/m1/availability").size();
        timer.restart();
        QVERIFY(!rig.sim.start({"--rate", "10", "--fixed", "0,4", "--link", rig.link}).isEmpty());
        auto history = [&rig] {
            QStringList out;
            for (const MqttReceived &r : rig.live->on("orv/m1/availability"))
                out << QString::fromUtf8(r.payload);
            return out.join(' ') + " module " + Module::stateName(rig.module->state()) + " mqtt " +
                   rig.bridge->connectionState();
        };
        QTRY_VERIFY2_WITH_TIMEOUT(rig.live->on("orv/m1/availability").size() > before &&
                                      rig.live->on("orv/m1/availability").last().payload ==
                                          "online",
                                  qPrintable(history()), kWaitMs);
        QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
    }

    void lastWillAndCleanStop()
    {
        Rig rig;
        QVERIFY(rig.start({"--rate", "10", "--fixed", "0,4"}));
        // The connection dies without DISCONNECT: the broker says offline.
        rig.bridge.reset();
        QVERIFY(rig.live->waitFor("orv/m1/availability", "offline", kWaitMs));

        // A command left retained on a set topic is not done when a bridge
        // subscribes (it would be done again on every reconnect).
        QTRY_VERIFY_WITH_TIMEOUT(!rig.module->areaFile().isEmpty(), kWaitMs);
        const QString held = rig.module->areaFile().value("display").toString();
        const QByteArray other = held == QLatin1String("track") ? "area" : "track";
        QVERIFY(rig.live->client.publish(MqttMessage{"orv/m1/display/set", other, true}));
        // Held by the broker once it has passed it on: only then is it what a
        // new subscription finds retained, rather than a live command.
        QVERIFY(rig.live->waitFor("orv/m1/display/set", other, kWaitMs));
        const QByteArray tag = rig.module->etag();
        const int results = rig.live->on("orv/m1/result").size();

        const int before = rig.live->on("orv/m1/availability").size();
        // A clean stop says offline itself.
        rig.bridge = std::make_unique<MqttBridge>(rig.module.get(), rig.broker.options());
        rig.bridge->start();
        QTRY_VERIFY_WITH_TIMEOUT(rig.live->on("orv/m1/result").size() > results, kWaitMs);
        const QJsonObject refused = object(rig.live->on("orv/m1/result").last().payload);
        QCOMPARE(refused.value("request").toString(), QStringLiteral("orv/m1/display/set"));
        QCOMPARE(refused.value("ok"), QJsonValue(false));
        QVERIFY2(refused.value("error").toString().contains("retained"),
                 qPrintable(refused.value("error").toString()));
        QCOMPARE(rig.module->etag(), tag);
        QVERIFY(rig.live->client.publish(MqttMessage{"orv/m1/display/set", QByteArray(), true}));
        QTRY_VERIFY_WITH_TIMEOUT(rig.live->on("orv/m1/availability").size() > before &&
                                     rig.live->on("orv/m1/availability").last().payload == "online",
                                 kWaitMs);
        rig.bridge->stop();
        QVERIFY(rig.live->waitFor("orv/m1/availability", "offline", kWaitMs));
        QCOMPARE(rig.bridge->connectionState(), QStringLiteral("connecting"));
    }
};

QTEST_GUILESS_MAIN(TstMqttBridge)
#include "tst_mqttbridge.moc"
