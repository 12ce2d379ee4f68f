#include "cli/interrupt.h"

#include <csignal>

namespace
{

volatile std::sig_atomic_t interrupted = 0;

extern "C" void onSignal(int)
{
    interrupted = 1;
}

} // namespace

namespace Interrupt
{

void install()
{
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

bool requested()
{
    return interrupted != 0;
}

void request()
{
    interrupted = 1;
}

void clear()
{
    interrupted = 0;
}

} // namespace Interrupt
