#include "cli/portscommand.h"

#include "cli/exitcode.h"
#include "radar/portlist.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

PortsCommand::PortsCommand()
    : CliCommand(
          {"ports", "list the serial ports that can be opened", "[--json]",
           "Lists every serial port Qt knows that can be opened now, then the names in\n"
           "ORV_EXTRA_PORTS (separated by ':') that can be opened, the same list the window\n"
           "offers. A port held by another program, or one you may not open, is left out.\n"
           "One port a line, fields separated by tabs: the name, the device path (when it\n"
           "differs from the name), then its USB description, maker, vendor:product ids and\n"
           "serial number where known. --json prints the same as an array of objects (name,\n"
           "path, description, manufacturer, serialNumber, and vendorId and productId when\n"
           "known)."})
{
}

QString PortsCommand::exitCodes() const
{
    return exitCodeTable(
        {{ExitDone, "done (also when no port can be opened)"}, {ExitUsage, "bad command line"}});
}

void PortsCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"json", "Prints a JSON array of objects instead."});
}

int PortsCommand::run(CliContext &context)
{
    if (!context.parser.positionalArguments().isEmpty())
        return context.usageError(QString("unexpected argument \"%1\"")
                                      .arg(context.parser.positionalArguments().first()));
    const QList<portlist::PortEntry> ports = portlist::openablePorts();
    if (context.parser.isSet("json")) {
        QJsonArray list;
        for (const portlist::PortEntry &p : ports) {
            QJsonObject o;
            o["name"] = p.name;
            o["path"] = p.systemLocation;
            o["description"] = p.description;
            o["manufacturer"] = p.manufacturer;
            o["serialNumber"] = p.serialNumber;
            if (p.hasUsbIds) {
                o["vendorId"] = QString::asprintf("%04x", p.vendorId);
                o["productId"] = QString::asprintf("%04x", p.productId);
            }
            list.append(o);
        }
        context.printBytes(QJsonDocument(list).toJson(QJsonDocument::Indented));
        return ExitDone;
    }
    QString text;
    for (const portlist::PortEntry &p : ports) {
        QStringList parts{p.name};
        if (!p.systemLocation.isEmpty() && p.systemLocation != p.name)
            parts << p.systemLocation;
        if (!p.description.isEmpty())
            parts << p.description;
        if (!p.manufacturer.isEmpty())
            parts << p.manufacturer;
        if (p.hasUsbIds)
            parts << QString::asprintf("%04x:%04x", p.vendorId, p.productId);
        if (!p.serialNumber.isEmpty())
            parts << "serial " + p.serialNumber;
        text += parts.join(QLatin1String("\t")) + "\n";
    }
    context.print(text);
    if (ports.isEmpty())
        context.note("no serial port can be opened (is the module plugged in? on Linux the "
                     "user may need to be in the 'dialout' group)");
    return ExitDone;
}
