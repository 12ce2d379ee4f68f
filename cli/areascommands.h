#pragma once

// orv-cli areas ...: back up, restore, verify, clear, set and unset the
// module's three areas.

#include "cli/areafile.h"
#include "cli/modulecommand.h"
#include "cli/wirearea.h"

// Base of the area commands: reading the module and comparing with a file.
class AreasCommand : public ModuleCommand
{
public:
    using ModuleCommand::ModuleCommand;

protected:
    // One line per difference between the file and what the module holds,
    // compared in decimetres as the wire carries them. Areas and a display
    // type the file leaves out are not compared.
    static QStringList differences(const AreaFile &file, const ModuleAreas &held);
    // Reads the module back and compares it with the file, printing each
    // difference; *same tells whether there was none. Returns the read's
    // exit code (ExitDone when the module answered).
    int compareWithModule(CliContext &context, ModuleSession &session, const AreaFile &file,
                          bool *same);
    // Sets one area (or repeals it for unset); ExitRefused on NG.
    int apply(CliContext &context, ModuleSession &session, const AreaEntry &entry);
    // Reads an area file named by the first argument into file.
    int loadFile(CliContext &context, AreaFile *file);
    // Parses the area number argument (1..3).
    int areaNumber(CliContext &context, int *number);
};

class AreasBackupCommand : public AreasCommand
{
public:
    AreasBackupCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;
};

// Base of restore and verify: one area file named on the command line, read
// and checked before anything is sent.
class AreasFileCommand : public AreasCommand
{
public:
    AreasFileCommand(const Words &words, const QString &fileHelp)
        : AreasCommand(words), fileHelp(fileHelp)
    {
    }
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;

    AreaFile file;

private:
    QString fileHelp;
};

class AreasRestoreCommand : public AreasFileCommand
{
public:
    AreasRestoreCommand();

protected:
    int runWith(CliContext &context, ModuleSession &session) override;
};

class AreasVerifyCommand : public AreasFileCommand
{
public:
    AreasVerifyCommand();

protected:
    int runWith(CliContext &context, ModuleSession &session) override;
};

class AreasClearCommand : public AreasCommand
{
public:
    AreasClearCommand();

protected:
    int runWith(CliContext &context, ModuleSession &session) override;
};

class AreasSetCommand : public AreasCommand
{
public:
    AreasSetCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    AreaEntry entry;
};

class AreasUnsetCommand : public AreasCommand
{
public:
    AreasUnsetCommand();
    void addOptions(QCommandLineParser &parser) override;

protected:
    int checkArguments(CliContext &context) override;
    int runWith(CliContext &context, ModuleSession &session) override;

private:
    int number = 0;
};
