// The service's per-module counts: the report rate over the last whole
// seconds, reconnections, and the stats object of a module's status.

#include "radar/framedecoder.h"
#include "service/modulestats.h"

#include <QtTest>

class TestModuleStats : public QObject
{
    Q_OBJECT

private slots:
    void noReportsNoRate();
    void rateOverWholeSeconds();
    void oldSecondsDropOut();
    void statsObject();
};

void TestModuleStats::noReportsNoRate()
{
    ModuleStats s;
    QCOMPARE(s.reportsPerSecond(1000000), 0.0);
}

void TestModuleStats::rateOverWholeSeconds()
{
    ModuleStats s;
    const qint64 t0 = 1700000000000;
    // 10 reports in each of 3 seconds, 7 in the one under way.
    for (int second = 0; second < 3; ++second)
        for (int i = 0; i < 10; ++i)
            s.countReport(t0 + second * 1000 + i * 100);
    for (int i = 0; i < 7; ++i)
        s.countReport(t0 + 3000 + i * 100);
    // The second under way is left out; three whole seconds are known.
    QCOMPARE(s.reportsPerSecond(t0 + 3800), 10.0);
    // The first second alone, read during the second one.
    ModuleStats first;
    for (int i = 0; i < 20; ++i)
        first.countReport(t0 + i * 50);
    QCOMPARE(first.reportsPerSecond(t0 + 500), 0.0);
    QCOMPARE(first.reportsPerSecond(t0 + 1500), 20.0);
}

void TestModuleStats::oldSecondsDropOut()
{
    ModuleStats s;
    const qint64 t0 = 1700000000000;
    for (int second = 0; second < 10; ++second)
        for (int i = 0; i < 4; ++i)
            s.countReport(t0 + second * 1000 + i * 200);
    QCOMPARE(s.reportsPerSecond(t0 + 10000), 4.0);
    // The reports stop: the rate falls second by second to 0.
    QCOMPARE(s.reportsPerSecond(t0 + 12000),
             4.0 * (ModuleStats::kWindowSeconds - 2) / ModuleStats::kWindowSeconds);
    QCOMPARE(s.reportsPerSecond(t0 + 10000 + ModuleStats::kWindowSeconds * 1000), 0.0);
    QCOMPARE(s.reportsPerSecond(t0 + 100000), 0.0);
    // And comes back.
    for (int i = 0; i < 3; ++i)
        s.countReport(t0 + 100000 + i * 300);
    QCOMPARE(s.reportsPerSecond(t0 + 101000), 3.0 / ModuleStats::kWindowSeconds);
}

void TestModuleStats::statsObject()
{
    ModuleStats s;
    s.countReconnect();
    s.countReconnect();
    QCOMPARE(s.reconnects(), qint64(2));
    FrameStreamStats decoded;
    decoded.frames = 120;
    decoded.badSums = 3;
    decoded.skippedBytes = 17;
    const qint64 t0 = 1700000000000;
    for (int i = 0; i < 25; ++i)
        s.countReport(t0 + i * 40);
    const QJsonObject o = s.toJson(decoded, t0 + 1200);
    QCOMPARE(o.value("frames").toDouble(), 120.0);
    QCOMPARE(o.value("badSums").toDouble(), 3.0);
    QCOMPARE(o.value("strayBytes").toDouble(), 17.0);
    QCOMPARE(o.value("reportsPerSecond").toDouble(), 25.0);
    QCOMPARE(o.value("reconnects").toDouble(), 2.0);
    QCOMPARE(o.size(), 5);
}

QTEST_GUILESS_MAIN(TestModuleStats)
#include "tst_modulestats.moc"
