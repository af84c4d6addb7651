// Brings a session to where it can be used: what its flags ask for, in the only order that works.
//
// Threads: the main thread; the session's own workers besides.
#pragma once

#include "Session/Session.h"
#include "Utility/ErrorState.h"

namespace Host
{

// Upgrades the events, finds the broken stacks and rebuilds models, as inFlags (Profiler::EReprocessFlags) say, with a line of
// progress for each. False, with the reason in ioErrors, if a step failed or inIsCanceled became true.
[[nodiscard]] bool gProcessSession(Profiler::Session& ioSession, uint32_t inFlags, const RTTI::Registry& inRegistry,
                                   const bool& inIsCanceled, Utility::ErrorState& ioErrors);

// True, or false with an entry that says that the user ended the work.
[[nodiscard]] bool gCheckNotCanceled(bool inIsCanceled, Utility::ErrorState& ioErrors);

} // namespace Host
