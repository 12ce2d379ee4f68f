// orv-cli serve --mqtt as a program: a site of ten simulated modules in one
// service on one broker (every module's topics distinct and complete),
// SIGKILL (the broker publishes every module's last will), --forget, and a
// password from the environment that the broker refuses.

#include "service/mqtttopics.h"
#include "tests/support/simpeer.h"
#include "tst_mqttsupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include <signal.h>

namespace
{

const QString kMarker = QStringLiteral("orv-test/marker");
constexpr int kSiteModules = 10;

bool settle(TestSubscriber &subscriber)
{
    const QByteArray token = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    return subscriber.client.publish(MqttMessage{kMarker, token, false}, 1) &&
           subscriber.waitFor(kMarker, token);
}

QString moduleId(int i)
{
    return QStringLiteral("site-%1").arg(i);
}

} // namespace

class TstMqttServe : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    void startServe(QProcess &serve, const QStringList &args,
                    const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
    {
        serve.setProgram(QStringLiteral(ORV_CLI_BIN));
        serve.setArguments(QStringList{QStringLiteral("serve"), QStringLiteral("--listen"),
                                       QStringLiteral("none"), QStringLiteral("--token-file"),
                                       dir.filePath(QStringLiteral("token"))} +
                           args);
        serve.setProcessEnvironment(env);
        serve.start();
    }

private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }

    void site()
    {
        TestBroker broker;
        QVERIFY(broker.start());
        const MqttOptions options = broker.options();
        std::vector<std::unique_ptr<SimProcess>> sims;
        QStringList args;
        for (int i = 0; i < kSiteModules; ++i) {
            sims.push_back(std::make_unique<SimProcess>());
            const QString path =
                sims.back()->start({"--rate", "5", "--fixed", QStringLiteral("%1,4").arg(i % 3 - 1),
                                    "--area", "1,0,-1,5,1,3"});
            QVERIFY(!path.isEmpty());
            args << QStringLiteral("--port") << moduleId(i) + QLatin1Char('=') + path;
        }
        TestSubscriber live(options, QStringLiteral("live"), {"orv/#", "homeassistant/#", kMarker});
        QVERIFY(live.waitConnected());

        QProcess serve;
        startServe(serve,
                   args + QStringList{QStringLiteral("--mqtt"),
                                      QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port),
                                      QStringLiteral("--mqtt-client-id"), QStringLiteral("site")});
        QVERIFY(serve.waitForStarted(5000));
        for (int i = 0; i < kSiteModules; ++i)
            QVERIFY2(live.waitFor("orv/" + moduleId(i) + "/availability", "online", 60000),
                     qPrintable(moduleId(i)));

        // A subscriber that comes now finds every module complete: eleven
        // retained topics and six discovery configs each, all distinct.
        // Modules that are still settling may change a topic while the
        // subscriber arrives (sent live, not retained): only the retained
        // messages count, and a new subscriber looks again until it has all.
        QSet<QString> topics;
        QSet<QString> uniqueIds;
        QDeadlineTimer deadline(30000);
        for (int round = 0; topics.size() < kSiteModules * 17 && !deadline.hasExpired(); ++round) {
            TestSubscriber late(options, QStringLiteral("late%1").arg(round),
                                {"orv/#", "homeassistant/#", kMarker});
            QVERIFY(late.waitConnected());
            QVERIFY(settle(late));
            topics.clear();
            uniqueIds.clear();
            for (const MqttReceived &r : late.received) {
                if (!r.retained)
                    continue;
                topics.insert(r.topic);
                if (r.topic.startsWith(QStringLiteral("homeassistant/")))
                    uniqueIds.insert(
                        QJsonDocument::fromJson(r.payload).object().value("unique_id").toString());
            }
        }
        for (int i = 0; i < kSiteModules; ++i) {
            for (const QString &topic : MqttTopics("orv", moduleId(i)).retainedTopics())
                QVERIFY2(topics.contains(topic), qPrintable(topic));
            QVERIFY(
                topics.contains("homeassistant/select/site-" + moduleId(i) + "/display/config"));
        }
        QCOMPARE(topics.size(), kSiteModules * 17);
        QCOMPARE(uniqueIds.size(), kSiteModules * 6);
        QVERIFY(!uniqueIds.contains(QString()));

        // SIGKILL: the broker publishes every module's last will.
        QHash<QString, int> before;
        for (int i = 0; i < kSiteModules; ++i) {
            const QString topic = "orv/" + moduleId(i) + "/availability";
            before.insert(topic, live.on(topic).size());
        }
        ::kill(pid_t(serve.processId()), SIGKILL);
        QVERIFY(serve.waitForFinished(10000));
        for (auto it = before.constBegin(); it != before.constEnd(); ++it) {
            const QString topic = it.key();
            const int seen = it.value();
            QTRY_VERIFY2_WITH_TIMEOUT(live.on(topic).size() > seen &&
                                          live.on(topic).last().payload == "offline",
                                      qPrintable(topic), 15000);
        }

        // --forget site-0: its topics and configs go, the others stay.
        QProcess forget;
        startServe(forget, {QStringLiteral("--mqtt"),
                            QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port),
                            QStringLiteral("--mqtt-client-id"), QStringLiteral("site"),
                            QStringLiteral("--forget"), moduleId(0)});
        QVERIFY(forget.waitForFinished(30000));
        QCOMPARE(forget.exitStatus(), QProcess::NormalExit);
        QCOMPARE(forget.exitCode(), 0);
        TestSubscriber after(options, QStringLiteral("after"),
                             {"orv/#", "homeassistant/#", kMarker});
        QVERIFY(after.waitConnected());
        QVERIFY(settle(after));
        int retained = 0;
        for (const MqttReceived &r : after.received) {
            QVERIFY2(!r.topic.contains(moduleId(0) + "/"), qPrintable(r.topic));
            retained += r.retained ? 1 : 0;
        }
        QCOMPARE(retained, (kSiteModules - 1) * 17);
    }

    void refusedPassword()
    {
        TestBroker broker(TestBroker::Kind::Password);
        QVERIFY(broker.start());
        SimProcess sim;
        const QString path = sim.start({"--rate", "5"});
        QVERIFY(!path.isEmpty());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORV_MQTT_PASSWORD"), QStringLiteral("wrong"));
        QProcess serve;
        startServe(serve,
                   {QStringLiteral("--port"), QStringLiteral("m=") + path, QStringLiteral("--mqtt"),
                    QStringLiteral("mqtt://%1@127.0.0.1:%2")
                        .arg(QLatin1String(TestBroker::kUser))
                        .arg(broker.port)},
                   env);
        QVERIFY(serve.waitForStarted(5000));
        QByteArray errors;
        QTRY_VERIFY_WITH_TIMEOUT(
            (errors += serve.readAllStandardError()).contains("not authorised"), 15000);
        // The service keeps running while the broker refuses it.
        QCOMPARE(serve.state(), QProcess::Running);
        serve.terminate();
        QVERIFY(serve.waitForFinished(10000));
        errors += serve.readAllStandardError();
        QCOMPARE(errors.count("not authorised"), 1);
        QCOMPARE(serve.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TstMqttServe)
#include "tst_mqttserve.moc"
