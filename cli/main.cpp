// orv-cli: configures, backs up, watches and records a radar module from a
// script.

#include "cli/cliapp.h"
#include "cli/interrupt.h"
#include "render/rendercommand.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    const auto app = createCliApplication(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orv-cli"));
    Interrupt::install();
    CliApp cli;
    registerBuiltinCommands(cli);
    registerSessionCommands(cli);
    return cli.run(QCoreApplication::arguments().mid(1));
}
