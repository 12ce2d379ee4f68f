#pragma once

#include "cli/modulecommand.h"

// orv-cli record: the received bytes with their times, as "RecvData:" lines.
class RecordCommand : public ModuleCommand
{
public:
    RecordCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    qint64 durationMs = -1;
};
