#include "cli/probecommand.h"

#include "cli/baudprobe.h"
#include "cli/exitcode.h"
#include "cli/modulecommand.h"
#include "cli/portoptions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

// The paragraphs of orv-cli help probe.
static QString probeDetails()
{
    QStringList order;
    for (int rate : BaudProbe::probeOrder())
        order.append(QString::number(rate));
    return QString("Tries the window's 13 rates in this order: %1.\n"
                   "\n"
                   "At each rate it listens for a well-formed frame (header, length, sum and\n"
                   "tail checked) and asks for the display type (code 3), which changes\n"
                   "nothing in the module. Prints the first rate at which a frame arrives;\n"
                   "exit code 4 when none does. The window's settings file is not used.")
        .arg(order.join(", "));
}

ProbeCommand::ProbeCommand()
    : CliCommand({"probe", "find the baud rate the module talks at", "[--listen MS] [--json]",
                  probeDetails()})
{
}

void ProbeCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({"listen",
                      QString("How long to listen at each rate, in ms, 10..10000 (default: %1).")
                          .arg(BaudProbe::defaultListenText()),
                      "MS"});
    parser.addOption({"json", "Prints the result as a JSON object."});
}

QString ProbeCommand::exitCodes() const
{
    return exitCodeTable({{ExitDone, "done: the rate is printed"},
                          {ExitUsage, "bad command line (nothing was sent)"},
                          {ExitPortError, kExitMeaningPort},
                          {ExitNoAnswer, "no frame at any rate, or the line went away"},
                          {ExitInterrupted, kExitMeaningInterrupted}});
}

int ProbeCommand::run(CliContext &context)
{
    PortOptions options;
    QString why;
    if (!PortOptions::fromParser(context.parser, false, &options, &why))
        return context.usageError(why);
    if (!context.parser.positionalArguments().isEmpty())
        return context.usageError(QString("unexpected argument \"%1\"")
                                      .arg(context.parser.positionalArguments().first()));
    bool ok = true;
    const int listenMs =
        context.parser.isSet("listen") ? context.parser.value("listen").toInt(&ok) : 0;
    if (!ok || (context.parser.isSet("listen") && (listenMs < 10 || listenMs > 10000)))
        return context.usageError(QString("--listen: \"%1\" is not a time in ms (10..10000)")
                                      .arg(context.parser.value("listen")));

    ModuleSession session;
    if (!session.open(options.port, BaudProbe::probeOrder().first(), &why))
        return context.fail(ExitPortError, why);
    const BaudProbe::Result result = BaudProbe::run(session, listenMs);
    session.close();
    const int ended = linkEnd(context, options.port, result.status);
    if (ended != ExitDone)
        return ended;

    QStringList tried;
    QJsonArray triedJson;
    for (int rate : result.tried) {
        tried.append(QString::number(rate));
        triedJson.append(rate);
    }
    if (context.parser.isSet("json")) {
        QJsonObject o;
        o["port"] = options.port;
        o["found"] = result.baud != 0;
        if (result.baud != 0)
            o["baud"] = result.baud;
        o["tried"] = triedJson;
        o["elapsedMs"] = double(result.elapsedMs);
        context.printBytes(QJsonDocument(o).toJson(QJsonDocument::Compact) + "\n");
    } else if (result.baud != 0) {
        context.print(QString("%1\n").arg(result.baud));
    }
    if (result.baud == 0)
        return context.fail(
            ExitNoAnswer,
            QString("no answer from the module on %1: no well-formed frame at "
                    "%2 baud (listened %3 at each%4)")
                .arg(options.port, tried.join(", "))
                .arg(listenMs > 0 ? QString("%1 ms").arg(listenMs) : BaudProbe::defaultListenText())
                .arg(result.badSumNote()));
    return ExitDone;
}
