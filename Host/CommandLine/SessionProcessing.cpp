#include "Host/CommandLine/SessionProcessing.h"

#include "FileSystem/Delete.h"
#include "Host/CommandLine/PassStopper.h"
#include "Session/Callstacks/BrokenStackIndex.h"
#include "System/Job.h"

namespace Host
{

using Utility::ErrorState;
using Utility::ProgressFunction;

bool gCheckNotCanceled(const bool& inIsCanceled, ErrorState& ioErrors)
{
    return Utility::Check(ioErrors, !System::gIsCanceled(inIsCanceled), 0, "Interrupted");
}

namespace
{

// A search that the user ends stores what it has found so far, which mustn't be taken for all there is.
bool gFindBrokenStacks(Profiler::Session& ioSession, const RTTI::Registry& inRegistry, const bool& inIsCanceled,
                       ErrorState& ioErrors)
{
    const bool isDone = gRunStep("Finding broken stacks", inIsCanceled, ioErrors,
                                 [&](const ProgressFunction& inProgress, ErrorState& ioStepErrors)
                                 { return ioSession.BuildBrokenStackIndex(inRegistry, ioStepErrors, inIsCanceled, inProgress); });
    if (!isDone)
        static_cast<void>(FileSystem::gDeleteFile(Profiler::gGetBrokenStackIndexPath(ioSession.GetDirectory())));
    return isDone;
}

} // namespace

bool gProcessSession(Profiler::Session& ioSession, uint32_t inFlags, const RTTI::Registry& inRegistry, const bool& inIsCanceled,
                     ErrorState& ioErrors)
{
    using namespace Profiler;
    if ((inFlags & UpgradeEventStream) != 0 &&
        !gRunStep("Upgrading events", inIsCanceled, ioErrors,
                  [&](const ProgressFunction& inProgress, ErrorState& ioStepErrors)
                  { return ioSession.GetEventStream().UpgradeStream(inIsCanceled, ioStepErrors, inProgress); }))
        return false;
    if ((inFlags & RebuildBrokenStacks) != 0 && !gFindBrokenStacks(ioSession, inRegistry, inIsCanceled, ioErrors))
        return false;
    constexpr uint32_t modelFlags = ReprocessAllModels | ReprocessSomeModels;
    return (inFlags & modelFlags) == 0 || gRunStep("Building timeline", inIsCanceled, ioErrors,
                                                   [&](const ProgressFunction& inProgress, ErrorState& ioStepErrors)
                                                   {
                                                       const PassStopper stopper(ioSession, inIsCanceled);
                                                       return ioSession.Reprocess(false, ioStepErrors, inIsCanceled, inProgress);
                                                   });
}

} // namespace Host
