// Brings a session to where it can be used: what its flags ask for, in the only order that works.
//
// Threads: the main thread; the session's own workers besides.
#pragma once

#include "Host/CommandLine/ProgressLine.h"
#include "Session/Session.h"
#include "Utility/ErrorState.h"
#include "Utility/Progress.h"

namespace Host
{

// True, or false with an entry that says that the user ended the work.
[[nodiscard]] bool gCheckNotCanceled(const bool& inIsCanceled, Utility::ErrorState& ioErrors);

// Runs one step with its line of progress: inStep(progress function, errors) gives whether it is done. False, with the reason in
// ioErrors, if it isn't, or if the user ended the work: that is then the only reason.
template <class Step>
[[nodiscard]] bool gRunStep(const char* inLabel, const bool& inIsCanceled, Utility::ErrorState& ioErrors, const Step& inStep)
{
    ProgressLine line(inLabel);
    const Utility::ProgressFunction show = [&line](float inFraction) { line.Show(inFraction); };
    Utility::ErrorState errors;
    const bool isDone = inStep(show, errors);
    if (!gCheckNotCanceled(inIsCanceled, ioErrors))
        return false;
    ioErrors.AddEntries(errors);
    return isDone;
}

// Upgrades the events, finds the broken stacks and rebuilds models, as inFlags (Profiler::EReprocessFlags) say, with a line of
// progress for each. False, with the reason in ioErrors, if a step failed or inIsCanceled became true.
[[nodiscard]] bool gProcessSession(Profiler::Session& ioSession, uint32_t inFlags, const RTTI::Registry& inRegistry,
                                   const bool& inIsCanceled, Utility::ErrorState& ioErrors);

} // namespace Host
