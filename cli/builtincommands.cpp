// The commands orv-cli knows, in the order --help lists them. A new command is
// one CliCommand class and one line here.

#include "cli/cliapp.h"
#include "cli/portscommand.h"

void registerBuiltinCommands(CliApp &app)
{
    app.add<PortsCommand>();
}
