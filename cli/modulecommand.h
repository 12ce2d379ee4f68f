#pragma once

// Base of the commands that talk to a module: checks their own arguments
// first (a bad command line or file sends nothing), opens the port, settles
// the baud rate (probing it for --baud auto) and then runs with the session.

#include "cli/clicommand.h"
#include "cli/modulesession.h"
#include "cli/portoptions.h"
#include "cli/wirearea.h"

#include <array>

// What a module holds: its display type and areas, read with codes 3 and 6.
struct ModuleAreas {
    int display = 0;
    std::array<WireArea, 3> areas;
};

// The end of a wait that did not get what it waited for, worded once for
// every command: Ctrl-C is exit code 130 ("interrupted" said when
// sayInterrupted), a port that went away is 4 ("the port P went away" and
// then after). Ok and Timeout return ExitDone: the caller words those itself.
int linkEnd(const CliContext &context, const QString &port, LinkStatus status,
            const QString &after = QString(), bool sayInterrupted = true);

// --duration S as milliseconds (seconds with decimals, > 0); false when wrong.
bool parseDuration(const QString &text, qint64 *ms);

class ModuleCommand : public CliCommand
{
public:
    using CliCommand::CliCommand;
    bool usesPort() const override { return true; }
    int run(CliContext &context) final;

    // Time to wait for each answer, and how often a harmless request is sent.
    static constexpr int kAnswerMs = 1000;
    static constexpr int kTries = 3;

protected:
    // Checks positional arguments and options; ExitDone or the code to exit with.
    virtual int checkArguments(CliContext &context);
    virtual int runWith(CliContext &context, ModuleSession &session) = 0;

    // Sends a request and waits for its answer (code). On failure says why
    // (what names the request) and returns the exit code; ExitDone otherwise.
    int ask(CliContext &context, ModuleSession &session, quint8 code, const QByteArray &payload,
            const QString &what, QByteArray *answer, int tries = kTries);
    // The exit code and message for a failed wait.
    int failure(CliContext &context, ModuleSession &session, LinkStatus status, const QString &what,
                int tries = 1);

    // Reads the display type and the three areas.
    int readModule(CliContext &context, ModuleSession &session, ModuleAreas *held);
    // Sets the display type; ExitRefused on NG.
    int setDisplayType(CliContext &context, ModuleSession &session, int value);

    // Refuses positional arguments beyond the first count.
    int noMoreArguments(CliContext &context, int count);

    // --duration S of the commands that listen to the stream: adds the option
    // (with a default in seconds, or none) / reads it into *ms, which stays
    // as it is when the option is absent. ExitDone or the usage error's code.
    static void addDurationOption(QCommandLineParser &parser, const QString &description,
                                  const QString &defaultSeconds = QString());
    static int readDuration(CliContext &context, qint64 *ms);
    // The same, then refuses positional arguments.
    int readDurationAndNoArguments(CliContext &context, qint64 *ms);

    PortOptions portOptions;
};
