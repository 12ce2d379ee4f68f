#pragma once

// orv-cli summary, and the options and reading that render shares with it: a
// session read back from diagnostic logs or recordings.

#include "cli/clicommand.h"
#include "session/sessionscan.h"

// --from, --to and --quiet, shared by both commands.
void addSessionOptions(QCommandLineParser &parser);
// Reads the LOG arguments into scan (with progress on standard error unless
// --quiet); returns an exit code, 0 when everything was read.
int readSession(CliContext &context, SessionScan &scan);
// The time window of --from/--to; false (after saying why) when one is bad.
bool sessionFilter(CliContext &context, SessionFilter *filter);

class SummaryCommand : public CliCommand
{
public:
    SummaryCommand();
    QString details() const override;
    QString exitCodes() const override;
    void addOptions(QCommandLineParser &parser) override;
    int run(CliContext &context) override;
};
