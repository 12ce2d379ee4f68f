#pragma once

#include "cli/modulecommand.h"

// orv-cli stats: link health over a stretch of time.
class StatsCommand : public ModuleCommand
{
public:
    StatsCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    qint64 durationMs = 10000;
};
