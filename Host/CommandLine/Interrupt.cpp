#include "Host/CommandLine/Interrupt.h"

#include <signal.h>

#include <initializer_list>

namespace Host
{
namespace
{

bool sIsInterrupted = false; // a byte, as the passes take it; only ever written here

void gSetHandler(void (*inHandler)(int))
{
    for (const int signal : {SIGINT, SIGTERM})
    {
        // What a shell lets a program ignore, as that of a script's background, stays ignored.
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = inHandler;
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
}

// Whichever of the signals comes next, it ends the process.
extern "C" void gOnInterrupt(int)
{
    __atomic_store_n(&sIsInterrupted, true, __ATOMIC_RELEASE);
    gSetHandler(SIG_DFL);
}

} // namespace

InterruptScope::InterruptScope()
{
    sIsInterrupted = false;
    gSetHandler(gOnInterrupt);
}

InterruptScope::~InterruptScope()
{
    gSetHandler(SIG_DFL);
}

const bool& InterruptScope::GetFlag() const
{
    return sIsInterrupted;
}

} // namespace Host
