// The MQTT topics and payloads of a module, the change detection (retained
// topics only on change, targets at most at the rate), the set payloads and
// results, and the Home Assistant discovery configs checked field by field.

#include "service/mqttdiscovery.h"
#include "service/mqttoptions.h"
#include "service/mqttstate.h"
#include "service/mqtttopics.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QtTest>

namespace
{

QJsonObject parseObject(const QByteArray &payload)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return QJsonObject();
    return document.object();
}

QJsonObject targetsRecord(const QList<QPointF> &people)
{
    QJsonArray targets;
    for (const QPointF &p : people)
        targets.append(QJsonArray{p.x(), p.y()});
    return QJsonObject{
        {"time", "2026-11-24T10:00:00.000Z"}, {"kind", "targets"}, {"targets", targets}};
}

QJsonObject areasRecord(bool a1, bool a2, bool a3)
{
    return QJsonObject{{"time", "2026-11-24T10:00:00.000Z"},
                       {"kind", "areas"},
                       {"occupied", QJsonArray{a1, a2, a3}}};
}

QJsonObject areaFile(const QString &display, const QJsonObject &area1)
{
    QJsonObject first = area1;
    first.insert("number", 1);
    return QJsonObject{{"format", "orv-areas"},
                       {"version", 1},
                       {"display", display},
                       {"areas", QJsonArray{first, QJsonObject{{"number", 2}, {"type", "unset"}},
                                            QJsonObject{{"number", 3},
                                                        {"type", "exclude"},
                                                        {"from", QJsonArray{2.0, 7.0}},
                                                        {"to", QJsonArray{4.0, 5.0}}}}}};
}

QStringList topicsOf(const QList<MqttMessage> &messages)
{
    QStringList out;
    for (const MqttMessage &m : messages)
        out << m.topic;
    return out;
}

const MqttMessage *find(const QList<MqttMessage> &messages, const QString &topic)
{
    for (const MqttMessage &m : messages) {
        if (m.topic == topic)
            return &m;
    }
    return nullptr;
}

} // namespace

class TstMqttTopics : public QObject
{
    Q_OBJECT
private slots:
    void topicNames()
    {
        const MqttTopics t(QStringLiteral("orv"), QStringLiteral("ttyUSB0"));
        QCOMPARE(t.availability(), QStringLiteral("orv/ttyUSB0/availability"));
        QCOMPARE(t.state(), QStringLiteral("orv/ttyUSB0/state"));
        QCOMPARE(t.presence(), QStringLiteral("orv/ttyUSB0/presence"));
        QCOMPARE(t.count(), QStringLiteral("orv/ttyUSB0/count"));
        QCOMPARE(t.occupancy(2), QStringLiteral("orv/ttyUSB0/area/2/occupancy"));
        QCOMPARE(t.area(3), QStringLiteral("orv/ttyUSB0/area/3"));
        QCOMPARE(t.display(), QStringLiteral("orv/ttyUSB0/display"));
        QCOMPARE(t.targets(), QStringLiteral("orv/ttyUSB0/targets"));
        QCOMPARE(t.areaSet(1), QStringLiteral("orv/ttyUSB0/area/1/set"));
        QCOMPARE(t.displaySet(), QStringLiteral("orv/ttyUSB0/display/set"));
        QCOMPARE(t.result(), QStringLiteral("orv/ttyUSB0/result"));
        const QList<QString> retained = t.retainedTopics();
        QCOMPARE(retained.size(), 11);
        QCOMPARE(QSet<QString>(retained.begin(), retained.end()).size(), 11);
        QVERIFY(!t.retainedTopics().contains(t.targets()));
        QVERIFY(!t.retainedTopics().contains(t.result()));

        QCOMPARE(t.setTarget(QStringLiteral("orv/ttyUSB0/area/2/set")), 2);
        QCOMPARE(t.setTarget(QStringLiteral("orv/ttyUSB0/display/set")), 0);
        QCOMPARE(t.setTarget(QStringLiteral("orv/ttyUSB0/area/4/set")), -1);
        QCOMPARE(t.setTarget(QStringLiteral("orv/other/area/1/set")), -1);
        QCOMPARE(t.setTarget(QStringLiteral("orv/ttyUSB0/area/1")), -1);
    }

    void startValues()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 1.0);
        const QList<MqttMessage> all = state.retained();
        // Before the module said anything: offline, OFF and 0 only.
        QCOMPARE(topicsOf(all),
                 QStringList({"orv/m1/availability", "orv/m1/presence", "orv/m1/count",
                              "orv/m1/area/1/occupancy", "orv/m1/area/2/occupancy",
                              "orv/m1/area/3/occupancy"}));
        QCOMPARE(find(all, "orv/m1/availability")->payload, QByteArray("offline"));
        QCOMPARE(find(all, "orv/m1/presence")->payload, QByteArray("OFF"));
        QCOMPARE(find(all, "orv/m1/count")->payload, QByteArray("0"));
        for (const MqttMessage &m : all)
            QVERIFY(m.retain);
    }

    void statusAndAvailability()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 1.0);
        QJsonObject status{{"id", "m1"}, {"state", "opening"}, {"since", "a"}};
        QList<MqttMessage> out = state.status(status);
        QCOMPARE(topicsOf(out),
                 QStringList({"orv/m1/state"})); // still offline: no availability message
        QCOMPARE(parseObject(out.at(0).payload), status);

        status["state"] = "open";
        status["since"] = "b";
        out = state.status(status);
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/state", "orv/m1/availability"}));
        QCOMPARE(out.at(1).payload, QByteArray("online"));
        QVERIFY(out.at(1).retain);
        QVERIFY(state.status(status).isEmpty()); // the same status again: nothing

        for (const char *name : {"silent", "lost"}) {
            status["state"] = name;
            out = state.status(status);
            QVERIFY(find(out, "orv/m1/availability"));
            QCOMPARE(find(out, "orv/m1/availability")->payload, QByteArray("offline"));
            status["state"] = "open";
            QCOMPARE(find(state.status(status), "orv/m1/availability")->payload,
                     QByteArray("online"));
        }
        out = state.stop();
        QCOMPARE(out.size(), 1);
        QCOMPARE(out.at(0).payload, QByteArray("offline"));
        QVERIFY(out.at(0).retain);
    }

    void presenceAndCountOnChangeOnly()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 0.0);
        // Nobody, as at start: no message at all (rate 0: no targets topic).
        QVERIFY(state.targets(targetsRecord({}), 0).isEmpty());
        QList<MqttMessage> out = state.targets(targetsRecord({{1.0, 2.0}}), 100);
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/presence", "orv/m1/count"}));
        QCOMPARE(out.at(0).payload, QByteArray("ON"));
        QCOMPARE(out.at(1).payload, QByteArray("1"));
        // The person moves: nothing.
        QVERIFY(state.targets(targetsRecord({{1.1, 2.2}}), 200).isEmpty());
        out = state.targets(targetsRecord({{1.1, 2.2}, {-3.0, 4.0}}), 300);
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/count"}));
        QCOMPARE(out.at(0).payload, QByteArray("2"));
        out = state.targets(targetsRecord({}), 400);
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/presence", "orv/m1/count"}));
        QCOMPARE(out.at(0).payload, QByteArray("OFF"));
        QCOMPARE(out.at(1).payload, QByteArray("0"));
        QCOMPARE(find(state.retained(), "orv/m1/count")->payload, QByteArray("0"));
    }

    void targetsAtMostAtTheRate()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 2.0); // every 500 ms
        int sent = 0;
        QByteArray last;
        // 10 reports a second for 3 s, one person standing still.
        for (qint64 t = 0; t < 3000; t += 100) {
            const QJsonObject record = targetsRecord({{1.0, double(t) / 1000.0}});
            for (const MqttMessage &m : state.targets(record, t)) {
                if (m.topic == QLatin1String("orv/m1/targets")) {
                    ++sent;
                    QVERIFY(!m.retain);
                    QCOMPARE(parseObject(m.payload), record);
                    last = m.payload;
                }
            }
        }
        QCOMPARE(sent, 6);
        QVERIFY(!last.isEmpty());

        MqttState never(QStringLiteral("orv"), QStringLiteral("m1"), 0.0);
        for (qint64 t = 0; t < 3000; t += 100)
            QVERIFY(!find(never.targets(targetsRecord({{1.0, 1.0}}), t), "orv/m1/targets"));
    }

    void quietMinute()
    {
        // People standing still at 10 reports/s for a minute, default rate:
        // what the broker sees stays within 70 messages.
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 1.0);
        int messages = 0;
        for (qint64 t = 0; t < 60000; t += 100) {
            messages += state.targets(targetsRecord({{1.0, 2.0}, {2.0, 3.0}}), t).size();
            messages += state.areas(areasRecord(true, false, false)).size();
        }
        QVERIFY2(messages <= 70, qPrintable(QString::number(messages)));
        QVERIFY(messages >= 60);
    }

    void occupancy()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 1.0);
        QVERIFY(state.areas(areasRecord(false, false, false)).isEmpty());
        QList<MqttMessage> out = state.areas(areasRecord(true, false, true));
        QCOMPARE(topicsOf(out),
                 QStringList({"orv/m1/area/1/occupancy", "orv/m1/area/3/occupancy"}));
        QCOMPARE(out.at(0).payload, QByteArray("ON"));
        QCOMPARE(out.at(1).payload, QByteArray("ON"));
        QVERIFY(state.areas(areasRecord(true, false, true)).isEmpty());
        out = state.areas(areasRecord(false, true, true));
        QCOMPARE(topicsOf(out),
                 QStringList({"orv/m1/area/1/occupancy", "orv/m1/area/2/occupancy"}));
        QCOMPARE(out.at(0).payload, QByteArray("OFF"));
        QCOMPARE(out.at(1).payload, QByteArray("ON"));
    }

    void areasAndDisplay()
    {
        MqttState state(QStringLiteral("orv"), QStringLiteral("m1"), 1.0);
        QVERIFY(state.config(QJsonObject()).isEmpty()); // not read yet
        const QJsonObject area1{
            {"type", "detect"}, {"from", QJsonArray{-1.5, 3.0}}, {"to", QJsonArray{1.5, 1.0}}};
        QList<MqttMessage> out = state.config(areaFile("area", area1));
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/area/1", "orv/m1/area/2", "orv/m1/area/3",
                                             "orv/m1/display"}));
        QCOMPARE(parseObject(out.at(0).payload), area1);
        QCOMPARE(parseObject(out.at(1).payload), QJsonObject({{"type", "unset"}}));
        QCOMPARE(parseObject(out.at(2).payload), QJsonObject({{"type", "exclude"},
                                                              {"from", QJsonArray{2.0, 7.0}},
                                                              {"to", QJsonArray{4.0, 5.0}}}));
        QCOMPARE(out.at(3).payload, QByteArray("area"));
        for (const MqttMessage &m : out)
            QVERIFY(m.retain);
        QVERIFY(state.config(areaFile("area", area1)).isEmpty());

        out = state.config(areaFile("track", QJsonObject{{"type", "unset"}}));
        QCOMPARE(topicsOf(out), QStringList({"orv/m1/area/1", "orv/m1/display"}));
        QCOMPARE(out.at(1).payload, QByteArray("track"));

        // A file without area 2 says it is unset.
        QJsonObject partial{{"display", "area"}, {"areas", QJsonArray{}}};
        QCOMPARE(mqttpayload::area(partial, 2), QByteArray("{\"type\":\"unset\"}"));
        QCOMPARE(state.retained().size(), 10); // no status yet
        state.status(QJsonObject{{"state", "open"}});
        QCOMPARE(state.retained().size(), 11);
    }

    void areaSetPayloads_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<bool>("unset");
        QTest::addColumn<QString>("error");
        QTest::newRow("unset") << QByteArray("unset") << true << true << "";
        QTest::newRow("unset spaced") << QByteArray(" unset\n") << true << true << "";
        QTest::newRow("unset json") << QByteArray("{\"type\":\"unset\"}") << true << true << "";
        QTest::newRow("detect") << QByteArray(
                                       "{\"type\":\"detect\",\"from\":[-1.5,3],\"to\":[1.5,1]}")
                                << true << false << "";
        QTest::newRow("exclude") << QByteArray("{\"type\":\"exclude\",\"from\":[2,7],\"to\":[4,5]}")
                                 << true << false << "";
        QTest::newRow("empty") << QByteArray("") << false << false << "expected unset or";
        QTest::newRow("garbage") << QByteArray("hello") << false << false << "expected unset or";
        QTest::newRow("array") << QByteArray("[1,2]") << false << false << "expected unset or";
        QTest::newRow("type") << QByteArray("{\"type\":\"zone\",\"from\":[0,1],\"to\":[1,2]}")
                              << false << false << "type:";
        QTest::newRow("no from") << QByteArray("{\"type\":\"detect\",\"to\":[1,2]}") << false
                                 << false << "from:";
        QTest::newRow("short to") << QByteArray("{\"type\":\"detect\",\"from\":[0,1],\"to\":[1]}")
                                  << false << false << "to:";
        QTest::newRow("text corner")
            << QByteArray("{\"type\":\"detect\",\"from\":[\"a\",1],\"to\":[1,2]}") << false << false
            << "from:";
        QTest::newRow("x range") << QByteArray("{\"type\":\"detect\",\"from\":[-9,1],\"to\":[1,2]}")
                                 << false << false << "outside -8..8";
        QTest::newRow("y range") << QByteArray(
                                        "{\"type\":\"detect\",\"from\":[0,1],\"to\":[1,8.5]}")
                                 << false << false << "outside 0..8";
        QTest::newRow("extra") << QByteArray(
                                      "{\"type\":\"detect\",\"from\":[0,1],\"to\":[1,2],\"x\":1}")
                               << false << false << "x: unknown field";
    }

    void areaSetPayloads()
    {
        QFETCH(QByteArray, payload);
        QFETCH(bool, ok);
        QFETCH(bool, unset);
        QFETCH(QString, error);
        MqttAreaRequest request;
        QString why;
        QCOMPARE(parseAreaSetPayload(payload, &request, &why), ok);
        if (!ok) {
            QVERIFY2(why.contains(error), qPrintable(why));
            return;
        }
        QCOMPARE(request.unset, unset);
        if (!unset) {
            const QJsonObject sent = parseObject(payload);
            QCOMPARE(request.area, sent);
        }
    }

    void displaySetPayloads()
    {
        QString display;
        QString error;
        QVERIFY(parseDisplaySetPayload("area", &display, &error));
        QCOMPARE(display, QStringLiteral("area"));
        QVERIFY(parseDisplaySetPayload(" \"track\"\n", &display, &error));
        QCOMPARE(display, QStringLiteral("track"));
        for (const QByteArray &bad :
             {QByteArray("Area"), QByteArray(""), QByteArray("2"), QByteArray("{}")}) {
            QVERIFY(!parseDisplaySetPayload(bad, &display, &error));
            QCOMPARE(error, QStringLiteral("expected area or track"));
        }
    }

    void results()
    {
        QJsonObject ok = parseObject(mqttpayload::result("orv/m1/display/set", true, QString()));
        QCOMPARE(ok.value("request").toString(), QStringLiteral("orv/m1/display/set"));
        QCOMPARE(ok.value("ok"), QJsonValue(true));
        QVERIFY(ok.contains("error"));
        QVERIFY(ok.value("error").isNull());
        QCOMPARE(ok.size(), 3);
        QJsonObject failed =
            parseObject(mqttpayload::result("orv/m1/area/1/set", false, "type: wrong"));
        QCOMPARE(failed.value("ok"), QJsonValue(false));
        QCOMPARE(failed.value("error").toString(), QStringLiteral("type: wrong"));
    }

    void discoverySchema()
    {
        MqttOptions options;
        options.clientIdPrefix = QStringLiteral("orv-host1");
        const MqttDiscovery discovery =
            MqttDiscovery::forModule(options, QStringLiteral("ttyUSB0"), "1.02");
        const QList<MqttMessage> configs = discovery.configs();
        QCOMPARE(configs.size(), 6);
        const QRegularExpression topicRule(
            QStringLiteral("^homeassistant/(binary_sensor|sensor|select)/([A-Za-z0-9_-]+)/"
                           "([A-Za-z0-9_-]+)/config$"));
        QMap<QString, int> components;
        QSet<QString> stateTopics;
        for (const MqttMessage &message : configs) {
            QVERIFY(message.retain);
            const auto match = topicRule.match(message.topic);
            QVERIFY2(match.hasMatch(), qPrintable(message.topic));
            QCOMPARE(match.captured(2), QStringLiteral("orv-host1-ttyUSB0"));
            const QString component = match.captured(1);
            components[component]++;
            const QJsonObject config = parseObject(message.payload);
            QVERIFY2(!config.isEmpty(), message.payload.constData());
            // Every entity: name, unique id, availability and the device.
            QVERIFY(!config.value("name").toString().isEmpty());
            QCOMPARE(config.value("unique_id").toString(),
                     "orv-host1-ttyUSB0_" + match.captured(3));
            QCOMPARE(config.value("availability_topic").toString(),
                     QStringLiteral("orv/ttyUSB0/availability"));
            QCOMPARE(config.value("payload_available").toString(), QStringLiteral("online"));
            QCOMPARE(config.value("payload_not_available").toString(), QStringLiteral("offline"));
            const QJsonObject device = config.value("device").toObject();
            QVERIFY(device.value("identifiers").isArray());
            QCOMPARE(device.value("identifiers").toArray().first().toString(),
                     QStringLiteral("orv-host1-ttyUSB0"));
            QCOMPARE(device.value("name").toString(), QStringLiteral("orv ttyUSB0"));
            QVERIFY(!device.value("model").toString().isEmpty());
            QCOMPARE(device.value("sw_version").toString(), QStringLiteral("1.02"));
            const QString state = config.value("state_topic").toString();
            QVERIFY(state.startsWith(QStringLiteral("orv/ttyUSB0/")));
            QVERIFY2(!stateTopics.contains(state), qPrintable(state)); // each entity its own topic
            stateTopics.insert(state);
            if (component == QLatin1String("binary_sensor")) {
                QCOMPARE(config.value("device_class").toString(), QStringLiteral("occupancy"));
                QCOMPARE(config.value("payload_on").toString(), QStringLiteral("ON"));
                QCOMPARE(config.value("payload_off").toString(), QStringLiteral("OFF"));
            } else if (component == QLatin1String("sensor")) {
                QCOMPARE(state, QStringLiteral("orv/ttyUSB0/count"));
                QVERIFY(!config.contains("device_class"));
            } else {
                QCOMPARE(state, QStringLiteral("orv/ttyUSB0/display"));
                QCOMPARE(config.value("command_topic").toString(),
                         QStringLiteral("orv/ttyUSB0/display/set"));
                QCOMPARE(config.value("options").toArray(), QJsonArray({"area", "track"}));
            }
        }
        QCOMPARE(components.value("binary_sensor"), 4);
        QCOMPARE(components.value("sensor"), 1);
        QCOMPARE(components.value("select"), 1);
        QVERIFY(stateTopics.contains("orv/ttyUSB0/area/1/occupancy"));
        QVERIFY(stateTopics.contains("orv/ttyUSB0/area/3/occupancy"));
        QVERIFY(stateTopics.contains("orv/ttyUSB0/presence"));
        QCOMPARE(discovery.statusTopic(), QStringLiteral("homeassistant/status"));

        // The same module on a later start: the same topics and ids.
        QCOMPARE(MqttDiscovery::forModule(options, QStringLiteral("ttyUSB0"), "1.03")
                     .configs()
                     .first()
                     .topic,
                 configs.first().topic);

        // Clearing: the same topics, empty retained payloads.
        const QList<MqttMessage> clears = discovery.clears();
        QCOMPARE(clears.size(), configs.size());
        for (int i = 0; i < clears.size(); ++i) {
            QCOMPARE(clears.at(i).topic, configs.at(i).topic);
            QVERIFY(clears.at(i).payload.isEmpty());
            QVERIFY(clears.at(i).retain);
        }
    }

    void discoveryTwoModules()
    {
        MqttOptions options;
        options.discoveryPrefix = QStringLiteral("ha");
        options.base = QStringLiteral("site");
        QSet<QString> ids;
        QSet<QString> topics;
        for (const QString &id : {QStringLiteral("a"), QStringLiteral("b")}) {
            for (const MqttMessage &m : MqttDiscovery::forModule(options, id, "1").configs()) {
                QVERIFY(m.topic.startsWith(QStringLiteral("ha/")));
                const QJsonObject config = parseObject(m.payload);
                QVERIFY(config.value("state_topic").toString().startsWith("site/" + id + "/"));
                ids.insert(config.value("unique_id").toString());
                topics.insert(m.topic);
            }
        }
        QCOMPARE(ids.size(), 12);
        QCOMPARE(topics.size(), 12);
    }
};

QTEST_GUILESS_MAIN(TstMqttTopics)
#include "tst_mqtttopics.moc"
