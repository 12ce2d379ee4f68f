#pragma once

// orv-cli render: a picture of a session read back from diagnostic logs or
// recordings.

#include "session/sessioncommands.h"

#include <QCoreApplication>

#include <memory>

class CliApp;

class RenderCommand : public CliCommand
{
public:
    RenderCommand();
    QString synopsis() const override;
    QString details() const override;
    QString exitCodes() const override;
    void addOptions(QCommandLineParser &parser) override;
    int run(CliContext &context) override;
};

// Registers summary and render with app.
void registerSessionCommands(CliApp &app);

// The application object for orv-cli: a GUI application on the offscreen
// platform when the command is render (drawing text needs one; no display
// is used), a core application otherwise.
std::unique_ptr<QCoreApplication> createCliApplication(int &argc, char **argv);
