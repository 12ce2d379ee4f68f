#pragma once

#include "cli/modulecommand.h"
#include "cli/reportformatter.h"

// orv-cli watch: one line per report, as text, CSV or JSON lines.
class WatchCommand : public ModuleCommand
{
public:
    WatchCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    ReportFormatter::Format format = ReportFormatter::Format::Text;
    qint64 durationMs = -1;
    qint64 count = -1;
};
