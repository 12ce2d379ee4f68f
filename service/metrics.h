#pragma once

// GET /metrics: the service's counters in Prometheus' text format, each
// labelled module="ID".

#include <QByteArray>
#include <QList>
#include <QString>

struct ModuleMetrics {
    QString id;
    QString state; // "open", "lost", ...
    qint64 frames = 0;
    qint64 badSums = 0;
    qint64 strayBytes = 0;
    qint64 reconnects = 0;
    qint64 viewers = 0;
    qint64 droppedEvents = 0;
};

namespace Metrics
{

// The exposition text: HELP and TYPE once per metric, then one sample per
// module.
QByteArray text(const QList<ModuleMetrics> &modules);

// A label value with \, " and line breaks escaped.
QByteArray labelValue(const QString &value);

} // namespace Metrics
