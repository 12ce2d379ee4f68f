#pragma once

#include "cli/modulecommand.h"

// orv-cli baud NEW: moves the module to another baud rate and checks that it
// answers there.
class BaudCommand : public ModuleCommand
{
public:
    BaudCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    int newRate = 0;
};
