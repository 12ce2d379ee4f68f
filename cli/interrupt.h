#pragma once

// Ctrl-C (SIGINT) and SIGTERM turn into a flag that long-running commands
// look at between reads, so they can flush and close their output and exit
// with 130. The only place where orv-cli touches signals.
namespace Interrupt
{

void install();
bool requested();
// For tests: raise or clear the flag as a signal would.
void request();
void clear();

} // namespace Interrupt
