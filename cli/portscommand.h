#pragma once

#include "cli/clicommand.h"

// orv-cli ports: the serial ports that can be opened, with their USB
// description where Qt knows it.
class PortsCommand : public CliCommand
{
public:
    PortsCommand();
    QString exitCodes() const override;
    void addOptions(QCommandLineParser &parser) override;
    int run(CliContext &context) override;
};
