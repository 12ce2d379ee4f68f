#pragma once

// One orv-cli command. A command names itself, describes its options to a
// QCommandLineParser and runs with the parsed result. Adding a command is
// one class like this and one registration line in builtincommands.cpp.

#include "cli/streamwrite.h"

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <utility>

class CliContext;

class CliCommand
{
public:
    // The words orv-cli's help has for a command, given to the constructor.
    struct Words {
        Words(const QString &name, const QString &summary, const QString &synopsis = QString(),
              const QString &details = QString())
            : name(name), summary(summary), synopsis(synopsis), details(details)
        {
        }

        QString name;     // "ports", or two words for a group: "areas backup"
        QString summary;  // one line for the command list of orv-cli --help
        QString synopsis; // what follows the name in the usage line: "[--json] FILE"
        QString details;  // paragraphs of orv-cli help COMMAND after the usage line
    };

    CliCommand() : words(QString(), QString()) {}
    explicit CliCommand(Words words) : words(std::move(words)) {}
    virtual ~CliCommand() = default;

    virtual QString name() const { return words.name; }
    virtual QString summary() const { return words.summary; }
    virtual QString synopsis() const { return words.synopsis; }
    // Override when the paragraphs are put together when asked for.
    virtual QString details() const { return words.details; }
    // True when the command talks to a module: --port and --baud are added.
    virtual bool usesPort() const { return false; }
    // True when it also takes --baud N|auto (every port command but probe).
    virtual bool takesBaud() const { return usesPort(); }

    // The "Exit codes:" table of orv-cli help COMMAND when the command
    // returns fewer codes than the module commands; empty for the full one.
    virtual QString exitCodes() const { return QString(); }

    virtual void addOptions(QCommandLineParser &parser) { Q_UNUSED(parser) }
    virtual int run(CliContext &context) = 0;

private:
    Words words;
};

// What a running command sees: its parsed command line and the two output
// streams.
class CliContext
{
public:
    CliContext(const QString &commandName, QCommandLineParser &parser, FILE *out, FILE *err)
        : commandName(commandName), parser(parser), out(out), err(err)
    {
    }

    const QString commandName;
    QCommandLineParser &parser;
    FILE *const out;
    FILE *const err;

    // Writes text to standard output / standard error (UTF-8).
    void print(const QString &text) const;
    void printBytes(const QByteArray &bytes) const;
    // "orv-cli COMMAND: message" on standard error; returns code.
    int fail(int code, const QString &message) const;
    // A bad command line: the message and where to find help; returns 2.
    int usageError(const QString &message) const;
    // Prints a note on standard error ("orv-cli COMMAND: ...").
    void note(const QString &message) const;
};
