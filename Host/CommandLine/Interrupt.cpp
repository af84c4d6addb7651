#include "Host/CommandLine/Interrupt.h"

#include <signal.h>

namespace Host
{
namespace
{

bool sIsInterrupted = false; // a byte, as the passes take it; only ever written here

extern "C" void gOnInterrupt(int)
{
    sIsInterrupted = true;
}

void gSetHandler(void (*inHandler)(int))
{
    struct sigaction action = {};
    action.sa_handler = inHandler;
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
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
