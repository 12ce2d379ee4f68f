#pragma once

#include <QString>

#include <initializer_list>

// Exit codes of orv-cli, the same for every command.
enum ExitCode : int {
    ExitDone = 0,         // done
    ExitRefused = 1,      // the module refused (NG) or holds something else
    ExitUsage = 2,        // bad command line or file
    ExitPortError = 3,    // the port cannot be opened
    ExitNoAnswer = 4,     // no answer from the module
    ExitInterrupted = 130 // interrupted (Ctrl-C)
};

// One row of an "Exit codes:" table: the code and what it means; a meaning of
// several lines is indented under its first.
struct ExitCodeRow {
    int code;
    const char *meaning;
};

// Meanings that several tables share word for word.
constexpr const char kExitMeaningPort[] =
    "the port cannot be opened (missing, busy, no permission)";
constexpr const char kExitMeaningInterrupted[] = "interrupted (Ctrl-C or SIGTERM)";

// The "Exit codes:" table of a help text, laid out the same way for every
// command.
inline QString exitCodeTable(std::initializer_list<ExitCodeRow> rows)
{
    QString text = QStringLiteral("Exit codes:\n");
    for (const ExitCodeRow &row : rows) {
        const QString code = QString::number(row.code);
        text += QStringLiteral("  ") + code + QString(qMax(1, 5 - code.size()), ' ') +
                QString::fromUtf8(row.meaning).replace('\n', QStringLiteral("\n       ")) + '\n';
    }
    return text;
}

// The table of the commands that talk to a module, and of orv-cli --help.
inline QString moduleExitCodeTable()
{
    return exitCodeTable(
        {{ExitDone, "done"},
         {ExitRefused, "the module refused (NG) or holds something else than expected"},
         {ExitUsage, "bad command line or file (nothing was sent)"},
         {ExitPortError, kExitMeaningPort},
         {ExitNoAnswer, "no answer from the module, or the line went away"},
         {ExitInterrupted, "interrupted (Ctrl-C or SIGTERM); output written so far is kept"}});
}
