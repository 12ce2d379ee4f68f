#pragma once

// orv-cli's command dispatch: finds the command named by the leading words of
// the command line, parses its options and runs it; answers --help,
// --version and help COMMAND.

#include "cli/clicommand.h"

#include <QStringList>

#include <cstdio>
#include <memory>
#include <vector>

class CliApp
{
public:
    CliApp(FILE *out = stdout, FILE *err = stderr);
    ~CliApp();

    void add(std::unique_ptr<CliCommand> command);
    template <typename T> void add() { add(std::make_unique<T>()); }

    // Runs the command line (arguments without the program name); returns
    // the exit code.
    int run(const QStringList &arguments);

    // orv-cli --help.
    QString overview() const;
    // orv-cli help COMMAND; also fills parser with the command's options.
    QString commandHelp(const CliCommand &command) const;
    const CliCommand *find(const QString &name) const;
    QStringList commandNames() const;

    static QString version();

private:
    // The command named by the first one or two arguments; *used is how many
    // arguments its name took.
    CliCommand *match(const QStringList &arguments, int *used) const;
    CliCommand *lookUp(const QString &name) const;
    // Commands whose name starts with this group word ("areas").
    QList<const CliCommand *> group(const QString &word) const;
    QString groupHelp(const QString &word) const;
    void setUpParser(CliCommand &command, QCommandLineParser &parser) const;
    int unknownCommand(const QString &word) const;
    void write(FILE *stream, const QString &text) const;

    FILE *out;
    FILE *err;
    std::vector<std::unique_ptr<CliCommand>> commands;
};

// Registers every built-in command with app (builtincommands.cpp).
void registerBuiltinCommands(CliApp &app);
