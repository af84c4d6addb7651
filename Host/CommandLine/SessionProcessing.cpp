#include "Host/CommandLine/SessionProcessing.h"

#include "Host/CommandLine/ProgressLine.h"

namespace Host
{
namespace
{

using Utility::ErrorState;
using Utility::ProgressFunction;

// Runs one step with its line of progress.
template <class Step>
bool gRunStep(const char* inLabel, const bool& inIsCanceled, ErrorState& ioErrors, const Step& inStep)
{
    ProgressLine line(inLabel);
    const bool isDone = inStep([&line](float inFraction) { line.Show(inFraction); });
    return gCheckNotCanceled(inIsCanceled, ioErrors) && isDone;
}

} // namespace

bool gCheckNotCanceled(bool inIsCanceled, ErrorState& ioErrors)
{
    return Utility::Check(ioErrors, !inIsCanceled, 0, "Interrupted");
}

bool gProcessSession(Profiler::Session& ioSession, uint32_t inFlags, const RTTI::Registry& inRegistry, const bool& inIsCanceled,
                     ErrorState& ioErrors)
{
    using namespace Profiler;
    if ((inFlags & UpgradeEventStream) != 0 &&
        !gRunStep("Upgrading events", inIsCanceled, ioErrors,
                  [&](const ProgressFunction& inProgress)
                  { return ioSession.GetEventStream().UpgradeStream(inIsCanceled, ioErrors, inProgress); }))
        return false;
    if ((inFlags & RebuildBrokenStacks) != 0 &&
        !gRunStep("Finding broken stacks", inIsCanceled, ioErrors,
                  [&](const ProgressFunction& inProgress)
                  { return ioSession.BuildBrokenStackIndex(inRegistry, ioErrors, inIsCanceled, inProgress); }))
        return false;
    constexpr uint32_t modelFlags = ReprocessAllModels | ReprocessSomeModels;
    return (inFlags & modelFlags) == 0 || gRunStep("Building timeline", inIsCanceled, ioErrors,
                                                   [&](const ProgressFunction& inProgress)
                                                   { return ioSession.Reprocess(false, ioErrors, inIsCanceled, inProgress); });
}

} // namespace Host
