#include "cli/clicommand.h"

#include "cli/exitcode.h"

void CliContext::print(const QString &text) const
{
    printBytes(text.toUtf8());
}

void CliContext::printBytes(const QByteArray &bytes) const
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
    std::fflush(out);
}

void CliContext::note(const QString &message) const
{
    const QByteArray line = QString("orv-cli %1: %2\n").arg(commandName, message).toUtf8();
    std::fwrite(line.constData(), 1, size_t(line.size()), err);
    std::fflush(err);
}

int CliContext::fail(int code, const QString &message) const
{
    note(message);
    return code;
}

int CliContext::usageError(const QString &message) const
{
    note(message);
    const QByteArray hint = QString("Try 'orv-cli help %1'.\n").arg(commandName).toUtf8();
    std::fwrite(hint.constData(), 1, size_t(hint.size()), err);
    std::fflush(err);
    return ExitUsage;
}
