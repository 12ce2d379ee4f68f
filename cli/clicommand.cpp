#include "cli/clicommand.h"

#include "cli/exitcode.h"

void CliContext::print(const QString &text) const
{
    printBytes(text.toUtf8());
}

void CliContext::printBytes(const QByteArray &bytes) const
{
    writeAndFlush(out, bytes);
}

void CliContext::note(const QString &message) const
{
    writeAndFlush(err, QString("orv-cli %1: %2\n").arg(commandName, message).toUtf8());
}

int CliContext::fail(int code, const QString &message) const
{
    note(message);
    return code;
}

int CliContext::usageError(const QString &message) const
{
    note(message);
    writeAndFlush(err, QString("Try 'orv-cli help %1'.\n").arg(commandName).toUtf8());
    return ExitUsage;
}
