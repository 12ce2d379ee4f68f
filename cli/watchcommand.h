#pragma once

#include "cli/modulecommand.h"
#include "cli/reportformatter.h"

// orv-cli watch: one line per report, as text, CSV or JSON lines.
class WatchCommand : public ModuleCommand
{
public:
    QString name() const override { return QStringLiteral("watch"); }
    QString summary() const override;
    QString synopsis() const override
    {
        return QStringLiteral("[--format text|csv|jsonl] [--duration S] [--count N]");
    }
    QString details() const override;
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    ReportFormatter::Format format = ReportFormatter::Format::Text;
    qint64 durationMs = -1;
    qint64 count = -1;
};
