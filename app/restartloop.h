#pragma once

#include <functional>

class QApplication;

// Exit code of the event loop that asks for the application to be built
// again (the language switch uses it). Nothing changes it.
extern int RESTART_CODE;

// Runs the application's event loop: QApplication::exec().
int execApplication(QApplication &app);

// Builds the application and the main window, shows the window and runs the
// event loop through exec; while the loop ends with RESTART_CODE, destroys
// the window and the application and builds both again. Returns 0 whatever
// the last exit code was.
int runRestartLoop(int &argc, char **argv,
                   const std::function<int(QApplication &)> &exec = execApplication);
