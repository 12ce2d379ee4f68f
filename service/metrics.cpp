#include "service/metrics.h"

#include <functional>

namespace Metrics
{

QByteArray labelValue(const QString &value)
{
    QByteArray out;
    for (char c : value.toUtf8()) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '"')
            out += "\\\"";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

QByteArray text(const QList<ModuleMetrics> &modules)
{
    QByteArray out;
    auto family = [&](const char *name, const char *type, const char *help,
                      const std::function<qint64(const ModuleMetrics &)> &value) {
        out += QByteArray("# HELP ") + name + ' ' + help + '\n';
        out += QByteArray("# TYPE ") + name + ' ' + type + '\n';
        for (const ModuleMetrics &m : modules)
            out += QByteArray(name) + "{module=\"" + labelValue(m.id) + "\"} " +
                   QByteArray::number(value(m)) + '\n';
    };
    family("orv_frames_total", "counter", "Frames received from the module with a good sum.",
           [](const ModuleMetrics &m) { return m.frames; });
    family("orv_bad_sums_total", "counter", "Frames dropped for a bad check sum.",
           [](const ModuleMetrics &m) { return m.badSums; });
    family("orv_stray_bytes_total", "counter", "Bytes received outside any frame.",
           [](const ModuleMetrics &m) { return m.strayBytes; });
    family("orv_reconnects_total", "counter",
           "Times the module came back open after its port was lost or busy.",
           [](const ModuleMetrics &m) { return m.reconnects; });
    family("orv_viewers", "gauge", "Viewers connected to the module's event stream.",
           [](const ModuleMetrics &m) { return m.viewers; });
    family("orv_dropped_events_total", "counter",
           "Events not sent to viewers that fell behind (the newest was sent instead).",
           [](const ModuleMetrics &m) { return m.droppedEvents; });
    out += "# HELP orv_module_up 1 when the module is open and reporting, else 0.\n";
    out += "# TYPE orv_module_up gauge\n";
    for (const ModuleMetrics &m : modules)
        out += "orv_module_up{module=\"" + labelValue(m.id) + "\",state=\"" + labelValue(m.state) +
               "\"} " + (m.state == QLatin1String("open") ? "1" : "0") + '\n';
    return out;
}

} // namespace Metrics
