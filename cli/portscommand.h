#pragma once

#include "cli/clicommand.h"

// orv-cli ports: the serial ports that can be opened, with their USB
// description where Qt knows it.
class PortsCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("ports"); }
    QString summary() const override;
    QString synopsis() const override { return QStringLiteral("[--json]"); }
    QString details() const override;
    QString exitCodes() const override;
    void addOptions(QCommandLineParser &parser) override;
    int run(CliContext &context) override;
};
