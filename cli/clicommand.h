#pragma once

// One orv-cli command. A command names itself, describes its options to a
// QCommandLineParser and runs with the parsed result. Adding a command is
// one class like this and one registration line in builtincommands.cpp.

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <cstdio>

class CliContext;

// Writes bytes to a stream and flushes it at once, so that a script reading
// the other end sees each line when it is written; false when not all went.
bool writeAndFlush(FILE *stream, const QByteArray &bytes);

class CliCommand
{
public:
    virtual ~CliCommand() = default;

    // "ports", or two words for a group: "areas backup".
    virtual QString name() const = 0;
    // One line for the command list of orv-cli --help.
    virtual QString summary() const = 0;
    // What follows the name in the usage line: "[--json] FILE".
    virtual QString synopsis() const { return QString(); }
    // Paragraphs shown by orv-cli help COMMAND after the usage line.
    virtual QString details() const { return QString(); }
    // True when the command talks to a module: --port and --baud are added.
    virtual bool usesPort() const { return false; }
    // True when it also takes --baud N|auto (every port command but probe).
    virtual bool takesBaud() const { return usesPort(); }

    // The "Exit codes:" table of orv-cli help COMMAND when the command
    // returns fewer codes than the module commands; empty for the full one.
    virtual QString exitCodes() const { return QString(); }

    virtual void addOptions(QCommandLineParser &parser) { Q_UNUSED(parser) }
    virtual int run(CliContext &context) = 0;
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
