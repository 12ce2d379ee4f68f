// orv-cli: configures, backs up, watches and records a radar module from a
// script.

#include "cli/cliapp.h"
#include "cli/interrupt.h"
#include "render/rendercommand.h"
#ifdef ORV_HAVE_SERVE
#include "service/servecommand.h"
#endif

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    const auto app = createCliApplication(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orv-cli"));
    Interrupt::install();
    CliApp cli;
    registerBuiltinCommands(cli);
    registerSessionCommands(cli);
#ifdef ORV_HAVE_SERVE
    registerServeCommand(cli);
#endif
    return cli.run(QCoreApplication::arguments().mid(1));
}
