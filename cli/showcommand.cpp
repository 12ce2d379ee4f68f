#include "cli/showcommand.h"

#include "cli/exitcode.h"
#include "cli/wirearea.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

ShowCommand::ShowCommand()
    : ModuleCommand(
          {"show", "show the display type and the three areas", "[--json]",
           "Prints the port and baud rate, the display type and each area: its type and\n"
           "corners in metres, or unset.\n"
           "\n"
           "--json prints one object: port, baud, display (as in an area file) and\n"
           "displayValue (the module's number), and areas, each with number and type, and\n"
           "when set also typeValue, from and to. It is not an area file (no format and\n"
           "version, and fields an area file refuses): 'areas backup' writes one."})
{
}

void ShowCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"json", "Prints a JSON object instead (see above)."});
}

int ShowCommand::runWith(CliContext &context, ModuleSession &session)
{
    ModuleAreas held;
    const int code = readModule(context, session, &held);
    if (code != ExitDone)
        return code;
    const int display = held.display;
    const auto &areas = held.areas;

    if (context.parser.isSet("json")) {
        QJsonObject o;
        o["port"] = session.portName();
        o["baud"] = session.baudRate();
        o["display"] = AreaFile::displayName(display);
        o["displayValue"] = display;
        QJsonArray list;
        for (int k = 0; k < 3; ++k) {
            const WireArea &a = areas[size_t(k)];
            QJsonObject area;
            area["number"] = k + 1;
            if (!a.defined()) {
                area["type"] = "unset";
            } else {
                area["type"] = a.type == 0 ? "detect" : a.type == 1 ? "exclude" : "other";
                area["typeValue"] = a.type;
                area["from"] = QJsonArray{a.left / 10.0, a.top / 10.0};
                area["to"] = QJsonArray{a.right / 10.0, a.bottom / 10.0};
            }
            list.append(area);
        }
        o["areas"] = list;
        context.printBytes(QJsonDocument(o).toJson(QJsonDocument::Indented));
        return ExitDone;
    }
    QString text = QString("port %1 at %2 baud\n").arg(session.portName()).arg(session.baudRate());
    QString displayText = AreaFile::displayName(display);
    if (display == 2)
        displayText += " (area mode)";
    else if (display == 1)
        displayText += " (tracking mode)";
    text += QString("display: %1\n").arg(displayText);
    for (int k = 0; k < 3; ++k)
        text += QString("area %1: %2\n").arg(k + 1).arg(areas[size_t(k)].text());
    context.print(text);
    return ExitDone;
}
