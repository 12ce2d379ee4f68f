#pragma once

#include "cli/modulecommand.h"

// orv-cli show: the display type and the three areas.
class ShowCommand : public ModuleCommand
{
public:
    ShowCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int runWith(CliContext &context, ModuleSession &session) override;
};
