#pragma once

// Exit codes of orv-cli, the same for every command.
enum ExitCode : int {
    ExitDone = 0,         // done
    ExitRefused = 1,      // the module refused (NG) or holds something else
    ExitUsage = 2,        // bad command line or file
    ExitPortError = 3,    // the port cannot be opened
    ExitNoAnswer = 4,     // no answer from the module
    ExitInterrupted = 130 // interrupted (Ctrl-C)
};
