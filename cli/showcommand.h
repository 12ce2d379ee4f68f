#pragma once

#include "cli/modulecommand.h"

// orv-cli show: the display type and the three areas.
class ShowCommand : public ModuleCommand
{
public:
    QString name() const override { return QStringLiteral("show"); }
    QString summary() const override;
    QString synopsis() const override { return QStringLiteral("[--json]"); }
    QString details() const override;
    void addOptions(QCommandLineParser &parser) override;

protected:
    int runWith(CliContext &context, ModuleSession &session) override;
};
