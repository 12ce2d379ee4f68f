#pragma once

#include "cli/modulecommand.h"

// orv-cli mode: reads or sets the display type (area or tracking mode).
class ModeCommand : public ModuleCommand
{
public:
    ModeCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    int wanted = 0; // 0: read only
};
