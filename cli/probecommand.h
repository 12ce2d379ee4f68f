#pragma once

#include "cli/clicommand.h"

// orv-cli probe: finds the module's baud rate without changing the module.
class ProbeCommand : public CliCommand
{
public:
    ProbeCommand();
    QString exitCodes() const override;
    bool usesPort() const override { return true; }
    bool takesBaud() const override { return false; }
    void addOptions(QCommandLineParser &parser) override;
    int run(CliContext &context) override;
};
