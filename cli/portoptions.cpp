#include "cli/portoptions.h"

bool PortOptions::parseBaud(const QString &text, int *baud)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok, 10);
    if (!ok || value < 1 || value > 0xFFFFFF)
        return false;
    *baud = int(value);
    return true;
}

bool PortOptions::fromParser(const QCommandLineParser &parser, bool withBaud, PortOptions *options,
                             QString *why)
{
    PortOptions o;
    o.port = parser.value("port").trimmed();
    if (o.port.isEmpty()) {
        *why = parser.isSet("port") ? QStringLiteral("--port needs a port name")
                                    : QStringLiteral("--port P is required ('orv-cli ports' "
                                                     "lists the ports that can be opened)");
        return false;
    }
    const QString baud = withBaud ? parser.value("baud").trimmed() : QStringLiteral("auto");
    if (baud.compare(QLatin1String("auto"), Qt::CaseInsensitive) != 0 &&
        !parseBaud(baud, &o.baud)) {
        *why = QString("--baud: \"%1\" is neither a baud rate (1..16777215) nor auto").arg(baud);
        return false;
    }
    *options = o;
    return true;
}

bool PortOptions::check(const QCommandLineParser &parser, bool withBaud, QString *why)
{
    PortOptions ignored;
    return fromParser(parser, withBaud, &ignored, why);
}
