// orv-cli: configures, backs up, watches and records a radar module from a
// script.

#include "cli/cliapp.h"
#include "cli/interrupt.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orv-cli"));
    Interrupt::install();
    CliApp cli;
    registerBuiltinCommands(cli);
    return cli.run(app.arguments().mid(1));
}
