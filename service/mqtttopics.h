#pragma once

// The MQTT topics of one module under BASE/ID/, their payloads, and the
// parsing of what arrives on the set topics. Plain functions: the bridge and
// the tests use them without a broker.
//
//   BASE/ID/availability          online | offline                 retained
//   BASE/ID/state                 the HTTP status object (JSON)     retained
//   BASE/ID/presence              ON | OFF                          retained
//   BASE/ID/count                 number of people reported         retained
//   BASE/ID/area/N/occupancy      ON | OFF (N = 1..3)               retained
//   BASE/ID/area/N                {"type","from","to"} | unset       retained
//   BASE/ID/display               area | track | the number         retained
//   BASE/ID/targets               the watch jsonl targets record    not retained
//   BASE/ID/area/N/set            subscribed
//   BASE/ID/display/set           subscribed
//   BASE/ID/result                {"request","ok","error"}          not retained

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

struct MqttMessage {
    QString topic;
    QByteArray payload;
    bool retain = false;

    bool operator==(const MqttMessage &other) const
    {
        return topic == other.topic && payload == other.payload && retain == other.retain;
    }
};

class MqttTopics
{
public:
    static constexpr int kAreaCount = 3;

    MqttTopics(const QString &base, const QString &id)
        : root(base + QLatin1Char('/') + id + QLatin1Char('/'))
    {
    }

    QString availability() const { return root + QStringLiteral("availability"); }
    QString state() const { return root + QStringLiteral("state"); }
    QString presence() const { return root + QStringLiteral("presence"); }
    QString count() const { return root + QStringLiteral("count"); }
    QString occupancy(int n) const { return area(n) + QStringLiteral("/occupancy"); }
    QString area(int n) const { return root + QStringLiteral("area/") + QString::number(n); }
    QString display() const { return root + QStringLiteral("display"); }
    QString targets() const { return root + QStringLiteral("targets"); }
    QString areaSet(int n) const { return area(n) + QStringLiteral("/set"); }
    QString displaySet() const { return root + QStringLiteral("display/set"); }
    QString result() const { return root + QStringLiteral("result"); }
    // The subscription that covers every area's set topic.
    QString areaSetFilter() const { return root + QStringLiteral("area/+/set"); }

    // Every retained topic of the module (11: availability, state, presence,
    // count, three occupancies, three areas, display).
    QList<QString> retainedTopics() const;

    // Which set topic a topic is: 1..3 for area/N/set, 0 for display/set,
    // -1 for anything else.
    int setTarget(const QString &topic) const;

private:
    QString root;
};

namespace mqttpayload
{

QByteArray onOff(bool on);
QByteArray availability(bool online);
QByteArray json(const QJsonObject &object); // compact

// BASE/ID/area/N for area number n of an area file ({"type","from","to"} or
// {"type":"unset"}; an area missing from the file is unset).
QByteArray area(const QJsonObject &areaFile, int n);
// BASE/ID/display: "area", "track" or the number; empty when the file has none.
QByteArray display(const QJsonObject &areaFile);

// Whether a module status object means online (state "open").
bool statusOnline(const QJsonObject &status);
// People in a targets record ({"kind":"targets","targets":[[x,y],...]}).
int targetCount(const QJsonObject &record);
// Occupancy of area n (1..3) in an areas record ({"occupied":[b,b,b]}).
bool areaOccupied(const QJsonObject &record, int n);

// The answer on BASE/ID/result: {"request": topic, "ok": ok, "error": null or why}.
QByteArray result(const QString &request, bool ok, const QString &error);

} // namespace mqttpayload

// A payload that arrived on BASE/ID/area/N/set: either "unset" (plain or
// {"type":"unset"}) or an area {"type":"detect"|"exclude","from":[x,y],"to":[x,y]}
// within the window's limits. On a bad payload returns false and says why;
// then nothing goes to the module.
struct MqttAreaRequest {
    bool unset = false;
    QJsonObject area; // {"type","from","to"} when not unset
};
bool parseAreaSetPayload(const QByteArray &payload, MqttAreaRequest *request, QString *error);

// A payload on BASE/ID/display/set: "area" or "track" (surrounding blanks
// and quotes allowed). Returns false and says why on anything else.
bool parseDisplaySetPayload(const QByteArray &payload, QString *display, QString *error);
