#pragma once

#include "cli/modulecommand.h"

// orv-cli baud NEW: moves the module to another baud rate and checks that it
// answers there.
class BaudCommand : public ModuleCommand
{
public:
    QString name() const override { return QStringLiteral("baud"); }
    QString summary() const override;
    QString synopsis() const override { return QStringLiteral("NEW"); }
    QString details() const override;
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    int newRate = 0;
};
