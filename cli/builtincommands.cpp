// The commands orv-cli knows, in the order --help lists them. A new command is
// one CliCommand class and one line here.

#include "cli/areascommands.h"
#include "cli/baudcommand.h"
#include "cli/cliapp.h"
#include "cli/modecommand.h"
#include "cli/portscommand.h"
#include "cli/probecommand.h"
#include "cli/recordcommand.h"
#include "cli/showcommand.h"
#include "cli/statscommand.h"
#include "cli/watchcommand.h"

void registerBuiltinCommands(CliApp &app)
{
    app.add<PortsCommand>();
    app.add<ProbeCommand>();
    app.add<ShowCommand>();
    app.add<AreasBackupCommand>();
    app.add<AreasRestoreCommand>();
    app.add<AreasVerifyCommand>();
    app.add<AreasClearCommand>();
    app.add<AreasSetCommand>();
    app.add<AreasUnsetCommand>();
    app.add<ModeCommand>();
    app.add<BaudCommand>();
    app.add<WatchCommand>();
    app.add<RecordCommand>();
    app.add<StatsCommand>();
}
