// The broker connection against Debian's mosquitto on a loopback port:
// retained and plain messages, the last will, a broker that is down at start
// or restarts, refused credentials, TLS with the test's own certificate, and
// --forget.

#include "service/mqttclient.h"
#include "service/mqttdiscovery.h"
#include "service/mqttforget.h"
#include "service/mqtttopics.h"
#include "tst_mqttsupport.h"

#include <QSignalSpy>
#include <QtTest>

#include <memory>

namespace
{

const QString kMarker = QStringLiteral("orv-test/marker");

// Publishes a marker on the subscriber's own connection and waits for it:
// everything retained that the broker had for the subscription arrived
// before it.
bool settle(TestSubscriber &subscriber)
{
    const QByteArray token = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    if (!subscriber.client.publish(MqttMessage{kMarker, token, false}, 1))
        return false;
    return subscriber.waitFor(kMarker, token);
}

} // namespace

class TstMqttBroker : public QObject
{
    Q_OBJECT
private slots:
    void backOff()
    {
        QCOMPARE(MqttClient::retryDelayMs(0), 1000);
        QCOMPARE(MqttClient::retryDelayMs(1), 2000);
        QCOMPARE(MqttClient::retryDelayMs(2), 4000);
        QCOMPARE(MqttClient::retryDelayMs(3), 8000);
        QCOMPARE(MqttClient::retryDelayMs(4), 10000);
        QCOMPARE(MqttClient::retryDelayMs(40), 10000);
    }

    void retainedAndPlain()
    {
        TestBroker broker;
        QVERIFY(broker.start());
        const MqttOptions options = broker.options();
        MqttClient publisher(options, QStringLiteral("pub"), MqttMessage(), QStringList());
        QSignalSpy connected(&publisher, &MqttClient::connected);
        publisher.start();
        QVERIFY(connected.wait(15000) || connected.count() > 0);
        QCOMPARE(publisher.state(), MqttClient::State::Connected);
        QSignalSpy drained(&publisher, &MqttClient::drained);
        QVERIFY(publisher.publish(MqttMessage{"orv/m/availability", "online", true}, 1));
        QVERIFY(publisher.publish(MqttMessage{"orv/m/targets", "{}", false}, 0));
        QVERIFY(publisher.publish(MqttMessage{"orv/m/count", "2", true}, 1));
        QTRY_VERIFY_WITH_TIMEOUT(drained.count() > 0, 15000);
        QCOMPARE(publisher.unacknowledged(), 0);

        TestSubscriber late(options, QStringLiteral("late"), {"orv/m/#", kMarker});
        QVERIFY(late.waitConnected());
        QVERIFY(settle(late));
        MqttReceived got;
        QVERIFY(late.waitFor("orv/m/availability", "online", 0, &got));
        QVERIFY(got.retained);
        QVERIFY(late.waitFor("orv/m/count", "2", 0, &got));
        QVERIFY(got.retained);
        QVERIFY(late.on("orv/m/targets").isEmpty()); // not retained: gone

        // Live messages reach a subscriber that is there.
        QVERIFY(publisher.publish(MqttMessage{"orv/m/targets", "{\"n\":1}", false}, 0));
        QVERIFY(late.waitFor("orv/m/targets", "{\"n\":1}", 15000, &got));
        QVERIFY(!got.retained);
    }

    void lastWill()
    {
        TestBroker broker;
        QVERIFY(broker.start());
        const MqttOptions options = broker.options();
        TestSubscriber watcher(options, QStringLiteral("watcher"), {"orv/+/availability", kMarker});
        QVERIFY(watcher.waitConnected());

        // A connection that ends without DISCONNECT: the broker publishes
        // the will.
        auto dying = std::make_unique<MqttClient>(
            options, QStringLiteral("dying"), MqttMessage{"orv/a/availability", "offline", true},
            QStringList());
        dying->start();
        QTRY_VERIFY_WITH_TIMEOUT(dying->isConnected(), 15000);
        QVERIFY(dying->publish(MqttMessage{"orv/a/availability", "online", true}));
        QVERIFY(watcher.waitFor("orv/a/availability", "online"));
        dying.reset();
        QVERIFY(watcher.waitFor("orv/a/availability", "offline"));

        // A clean stop: no will.
        MqttClient clean(options, QStringLiteral("clean"),
                         MqttMessage{"orv/b/availability", "offline", true}, QStringList());
        clean.start();
        QTRY_VERIFY_WITH_TIMEOUT(clean.isConnected(), 15000);
        QVERIFY(clean.publish(MqttMessage{"orv/b/availability", "online", true}));
        QVERIFY(watcher.waitFor("orv/b/availability", "online"));
        clean.stop();
        QVERIFY(!clean.isConnected());
        // The broker handles the DISCONNECT before a later message of
        // another connection; the marker shows the will did not come.
        TestSubscriber after(options, QStringLiteral("after"), {"orv/b/availability", kMarker});
        QVERIFY(after.waitConnected());
        QVERIFY(settle(after));
        QCOMPARE(after.on("orv/b/availability").size(), 1);
        QCOMPARE(after.on("orv/b/availability").first().payload, QByteArray("online"));
    }

    void brokerDownAtStartThenUp()
    {
        TestBroker broker;
        MqttClient client(broker.options(), QStringLiteral("early"), MqttMessage(), QStringList());
        QSignalSpy problems(&client, &MqttClient::problem);
        QSignalSpy connected(&client, &MqttClient::connected);
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(problems.count() > 0, 15000);
        const QString first = problems.first().first().toString();
        QVERIFY2(first.contains(QStringLiteral("connection refused")), qPrintable(first));
        QCOMPARE(client.state(), MqttClient::State::Connecting);
        // The next tries (1 s and 2 s later) fail the same way: said once.
        QTest::qWait(3500);
        QCOMPARE(problems.count(), 1);

        QElapsedTimer since;
        since.start();
        QVERIFY(broker.start());
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 15000);
        QVERIFY(since.elapsed() < 15000);
        QCOMPARE(client.state(), MqttClient::State::Connected);
        QVERIFY2(problems.last().first().toString().startsWith(QStringLiteral("connected to")),
                 qPrintable(problems.last().first().toString()));
    }

    void brokerRestart()
    {
        TestBroker broker;
        QVERIFY(broker.start());
        MqttClient client(broker.options(), QStringLiteral("steady"), MqttMessage(), QStringList());
        QSignalSpy connected(&client, &MqttClient::connected);
        QSignalSpy states(&client, &MqttClient::stateChanged);
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 1, 15000);
        broker.stop();
        QTRY_VERIFY_WITH_TIMEOUT(client.state() == MqttClient::State::Connecting, 15000);
        QVERIFY(broker.start());
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 2, 15000);
        QCOMPARE(client.state(), MqttClient::State::Connected);
        QVERIFY(states.count() >= 3);
    }

    void passwords()
    {
        TestBroker broker(TestBroker::Kind::Password);
        QVERIFY(broker.start());
        MqttOptions wrong = broker.options();
        wrong.password = QStringLiteral("wrong");
        MqttClient refused(wrong, QStringLiteral("wrong"), MqttMessage(), QStringList());
        QSignalSpy problems(&refused, &MqttClient::problem);
        refused.start();
        QTRY_VERIFY_WITH_TIMEOUT(refused.state() == MqttClient::State::Refused, 15000);
        QVERIFY(!problems.isEmpty());
        const QString text = problems.first().first().toString();
        QVERIFY2(text.contains(QStringLiteral("not authorised")), qPrintable(text));

        MqttOptions anonymous = broker.options();
        anonymous.user.clear();
        anonymous.password.clear();
        MqttClient nobody(anonymous, QStringLiteral("nobody"), MqttMessage(), QStringList());
        nobody.start();
        QTRY_VERIFY_WITH_TIMEOUT(nobody.state() == MqttClient::State::Refused, 15000);

        MqttClient right(broker.options(), QStringLiteral("right"), MqttMessage(), QStringList());
        right.start();
        QTRY_VERIFY_WITH_TIMEOUT(right.isConnected(), 15000);
        QVERIFY(refused.state() == MqttClient::State::Refused);
    }

    void tls()
    {
        TestBroker broker(TestBroker::Kind::Tls);
        QVERIFY(broker.start());
        const MqttOptions options = broker.options();
        TestSubscriber subscriber(options, QStringLiteral("tls-sub"), {"orv/t/#", kMarker});
        QVERIFY(subscriber.waitConnected());
        MqttClient publisher(options, QStringLiteral("tls-pub"), MqttMessage(), QStringList());
        publisher.start();
        QTRY_VERIFY_WITH_TIMEOUT(publisher.isConnected(), 15000);
        QVERIFY(publisher.publish(MqttMessage{"orv/t/presence", "ON", true}));
        QVERIFY(subscriber.waitFor("orv/t/presence", "ON"));

        // The system's authorities do not know the test's certificate.
        MqttOptions untrusted = options;
        untrusted.caFile.clear();
        MqttClient stranger(untrusted, QStringLiteral("tls-untrusted"), MqttMessage(),
                            QStringList());
        QSignalSpy problems(&stranger, &MqttClient::problem);
        stranger.start();
        QTRY_VERIFY_WITH_TIMEOUT(problems.count() > 0, 15000);
        const QString text = problems.first().first().toString();
        QVERIFY2(text.contains(QStringLiteral("TLS")), qPrintable(text));
        QVERIFY(!stranger.isConnected());

        // A plain connection to the TLS port is not one either.
        MqttOptions plain = options;
        plain.tls = false;
        plain.caFile.clear();
        MqttClient wrongKind(plain, QStringLiteral("tls-plain"), MqttMessage(), QStringList());
        QSignalSpy plainProblems(&wrongKind, &MqttClient::problem);
        wrongKind.start();
        QTRY_VERIFY_WITH_TIMEOUT(plainProblems.count() > 0, 15000);
        QVERIFY(!wrongKind.isConnected());
    }

    void stopWhileConnectHangs()
    {
        // A listening socket that never accepts, its queue filled: the next
        // connect gets no answer (its SYNs are dropped), as with a silent
        // host.
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        QVERIFY(listener >= 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        QCOMPARE(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        QCOMPARE(::listen(listener, 0), 0);
        socklen_t length = sizeof address;
        QCOMPARE(::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
        QList<int> fillers;
        for (int i = 0; i < 4; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
            fillers << fd;
        }
        MqttOptions options;
        options.host = QStringLiteral("127.0.0.1");
        options.port = ntohs(address.sin_port);
        auto client = std::make_unique<MqttClient>(options, QStringLiteral("hang"), MqttMessage(),
                                                   QStringList());
        QSignalSpy problems(client.get(), &MqttClient::problem);
        client->start();
        // The connect is under way and stays so (no answer, no failure).
        QVERIFY(!problems.wait(1000));
        QElapsedTimer timer;
        timer.start();
        client->stop();
        client.reset();
        QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
        for (int fd : fillers)
            ::close(fd);
        ::close(listener);
    }

    void forget()
    {
        TestBroker broker;
        QVERIFY(broker.start());
        const MqttOptions options = broker.options();
        const QString id = QStringLiteral("gone");
        const MqttTopics names(options.base, id);
        const QList<MqttMessage> configs = MqttDiscovery::forModule(options, id, "1").configs();
        {
            MqttClient leftover(options, QStringLiteral("leftover"), MqttMessage(), QStringList());
            QSignalSpy drained(&leftover, &MqttClient::drained);
            leftover.start();
            QTRY_VERIFY_WITH_TIMEOUT(leftover.isConnected(), 15000);
            for (const QString &topic : names.retainedTopics())
                QVERIFY(leftover.publish(MqttMessage{topic, "x", true}));
            for (const MqttMessage &config : configs)
                QVERIFY(leftover.publish(config));
            // Another module's topics stay.
            QVERIFY(leftover.publish(MqttMessage{"orv/kept/availability", "online", true}));
            QTRY_VERIFY_WITH_TIMEOUT(drained.count() > 0 && leftover.unacknowledged() == 0, 15000);
            leftover.stop();
        }
        {
            TestSubscriber before(options, QStringLiteral("before"),
                                  {"orv/#", "homeassistant/#", kMarker});
            QVERIFY(before.waitConnected());
            QVERIFY(settle(before));
            QCOMPARE(before.received.size(), 11 + 6 + 1 + 1);
        }

        QCOMPARE(runMqttForget(options, id, 15000), 0);

        TestSubscriber after(options, QStringLiteral("after"),
                             {"orv/#", "homeassistant/#", kMarker});
        QVERIFY(after.waitConnected());
        QVERIFY(settle(after));
        QStringList topics;
        for (const MqttReceived &r : after.received)
            topics << r.topic;
        QCOMPARE(topics, QStringList({"orv/kept/availability", kMarker}));
    }

    void forgetWithoutBroker()
    {
        TestBroker broker; // never started
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(runMqttForget(broker.options(), QStringLiteral("x"), 3000), 1);
        QVERIFY(timer.elapsed() < 10000);
    }
};

QTEST_GUILESS_MAIN(TstMqttBroker)
#include "tst_mqttbroker.moc"
