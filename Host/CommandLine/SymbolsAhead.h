// Reads symbols that will be needed while there is other work to do.
//
// The kernel's list takes as long to read as a hundred thousand events, and every capture needs it. Threads: reads on a worker of
// the session's scheduler. Ownership: refers to the session, which outlives it; waits for the worker at its end.
#pragma once

#include "Session/Session.h"
#include "System/Job.h"

namespace Host
{

class SymbolsAhead
{
public:
    // REQUIRES: the session has all its modules.
    explicit SymbolsAhead(Profiler::Session& ioSession);
    ~SymbolsAhead();

    SymbolsAhead(const SymbolsAhead&) = delete;
    SymbolsAhead& operator=(const SymbolsAhead&) = delete;

private:
    Profiler::Session& mSession;
    System::JobHandle mJob;
};

} // namespace Host
