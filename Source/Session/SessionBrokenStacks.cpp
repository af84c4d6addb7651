// The pass that finds the broken stacks of a session.
#include "Session/Callstacks/BrokenStackWriter.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Pass/ChunkTime.h"
#include "Session/Session.h"
#include "System/Job.h"

namespace Profiler
{
namespace
{

// The stack of an event that says where its thread was while it ran; sNoCallstack for all others. The stack of a wake-up, and one
// that stands alone, moves no bars, so it can't break any.
CallstackKey gGetOwnStack(const TraceEvent& inEvent)
{
    if (const auto* sample = inEvent.As<SampleEvent>())
        return sample->Stack;
    if (const auto* switchIn = inEvent.As<ContextSwitchInEvent>())
        return switchIn->Stack;
    if (const auto* zone = inEvent.As<InstrumentationBeginEvent>())
        return zone->Stack;
    if (const auto* zone = inEvent.As<InstrumentationBeginColoredEvent>())
        return zone->Stack;
    return sNoCallstack;
}

} // namespace

bool Session::BuildBrokenStackIndex(const RTTI::Registry& inRegistry, Utility::ErrorState& ioErrors, const bool& inIsCanceled,
                                    const Utility::ProgressFunction& inProgress)
{
    // No model was built with the ranges that come now: should this be all that happens before the session is opened again, none
    // may look as if it was.
    if (!ResetSharedModel(ioErrors))
        return false;
    mIsSharedModelSound = false;
    mModelsToSave.clear();
    mUnbuiltModels = mModels;
    BrokenStackWriter writer(GetDirectory());
    if (!writer.Open(ioErrors))
        return false;

    TraceEventStreamReader reader = mEventStream->CreateReader(0.0);
    Utility::ProgressReporter progress(inProgress, mEventStream->GetNumEvents());
    TraceEvent event;
    CallstackCursor cursor;
    bool isStopped = false;
    while (reader.NextEvent(event))
    {
        isStopped = System::gIsCanceled(inIsCanceled);
        if (isStopped)
            break;
        progress.Report(reader.GetEventsRead());
        // A pass drops events at impossible times, so no range may begin or end at one.
        if (GetProcess(event.ProcessID) == nullptr || !gIsPlaceableTime(sLevel0ChunkLengthMs, event.TimeMs))
            continue;
        const CallstackKey key = gGetOwnStack(event);
        const Callstack* stack = key != sNoCallstack ? GetCallstack(key, cursor) : nullptr;
        if (stack == nullptr || stack->empty())
            continue;
        const bool isComplete = mPlatformSession == nullptr || mPlatformSession->IsStackComplete(*this, event.ProcessID, *stack);
        if (!writer.AddStack(event.ThreadID, isComplete, key, event.TimeMs, ioErrors))
            return false;
    }
    // Ranges from a part of the events must not be taken for all of them, unless the user wanted no more.
    if (!reader.CheckSound(ioErrors))
        return false;
    return writer.Finish(ioErrors) && mBrokenStacks.Load(inRegistry, ioErrors) && !isStopped;
}

} // namespace Profiler
