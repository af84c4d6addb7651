// The state lane: what each thread does, as its context switches and wake-ups tell.
#include "Session/Pass/ChunkTime.h"
#include "Session/Session.h"
#include "ThreadsModel/Levels/ChunkToFill.h"
#include "ThreadsModel/ThreadsModel.h"

#include <algorithm>
#include <limits>

namespace Profiler
{
namespace
{

using ReadyProcessing = ReadyThreadProcessingModel;

bool gHasRun(ThreadState inState)
{
    return inState == ThreadState::Executing || inState == ThreadState::NotStarted;
}

} // namespace

bool ThreadsModel::HandleThreadStateEvent(const TraceEvent& inEvent, Utility::ErrorState& ioErrors)
{
    switch (inEvent.GetType())
    {
    case ETraceEventType::ContextSwitchOut:
        return HandleSwitchOut(inEvent, inEvent.As<ContextSwitchOutEvent>()->WaitReason, ioErrors);
    case ETraceEventType::ContextSwitchIn:
        HandleSwitchIn(inEvent, inEvent.As<ContextSwitchInEvent>()->Stack);
        return true;
    case ETraceEventType::ReadyThread:
    {
        const auto& ready = *inEvent.As<ReadyThreadEvent>();
        HandleReady(inEvent, ready.Stack, ready.ReadiedProcessID, ready.ReadiedThreadID, inEvent.TimeMs);
        return true;
    }
    case ETraceEventType::ReadyThreadTimed:
    {
        const auto& ready = *inEvent.As<ReadyThreadTimedEvent>();
        HandleReady(inEvent, ready.Stack, ready.ReadiedProcessID, ready.ReadiedThreadID, ready.ReadyTimeMs);
        return true;
    }
    case ETraceEventType::ThreadEnd:
        return HandleThreadEnd(inEvent.ThreadID, inEvent.As<ThreadEndEvent>()->EndFlag, ioErrors);
    case ETraceEventType::ThreadEndDisplay:
        return HandleThreadEnd(inEvent.ThreadID, inEvent.As<ThreadEndDisplayEvent>()->EndFlag, ioErrors);
    default:
        return true;
    }
}

bool ThreadsModel::HandleSwitchOut(const TraceEvent& inEvent, uint8_t inWaitReason, Utility::ErrorState& ioErrors)
{
    if (GetSession().GetProcess(inEvent.ProcessID) == nullptr)
        return true;
    OverviewThreadState& state = GetOverviewState(inEvent.ThreadID);
    if (state.State == ThreadState::Finished)
        return true;
    // A second switch-out in a wait changes nothing.
    const bool hasRun = gHasRun(state.State);
    if (hasRun)
    {
        const double since = state.State == ThreadState::Executing ? state.StateTime : GetThreadStart(inEvent.ThreadID);
        AddThreadStateRange(state, inEvent.ThreadID, {.State = ThreadState::Executing, .Start = since, .End = inEvent.TimeMs});
        if (state.ReadyIndex != sNoReadyIndex)
        {
            if (!mReadyProcessing->CommitReady(state.Record, state.ReadyIndex, ioErrors, since, inEvent.TimeMs))
                return false;
            state.ReadyIndex = sNoReadyIndex;
        }
    }
    if (inWaitReason == sWaitReasonTerminated)
    {
        state.State = ThreadState::Finished;
        return FinishOverview(inEvent.ThreadID, state, ioErrors);
    }
    if (hasRun)
    {
        state.State = WaitReasonToState(inWaitReason);
        state.StateTime = inEvent.TimeMs;
    }
    return true;
}

void ThreadsModel::HandleSwitchIn(const TraceEvent& inEvent, CallstackKey inStack)
{
    if (GetSession().GetProcess(inEvent.ProcessID) == nullptr)
        return;
    OverviewThreadState& state = GetOverviewState(inEvent.ThreadID);
    if (state.State == ThreadState::Executing || state.State == ThreadState::Finished)
        return;
    ThreadState wait = state.State;
    double since = state.StateTime;
    if (state.State == ThreadState::NotStarted)
    {
        wait = ThreadState::UnknownWaitState;
        since = std::max(GetSession().GetSessionInfo().SessionStartTimeMs, GetThreadStart(inEvent.ThreadID));
    }
    AddThreadStateRange(state, inEvent.ThreadID,
                        {.State = wait, .Start = since, .End = inEvent.TimeMs, .ReadyIndex = state.ReadyIndex, .Stack = inStack});
    // The record is filed at the next switch-out, when the run behind the wait is known.
    if (state.ReadyIndex != sNoReadyIndex)
        ReadyProcessing::SetWaitInfo(state.Record, wait, inStack, since, inEvent.TimeMs);
    state.State = ThreadState::Executing;
    state.StateTime = inEvent.TimeMs;
}

// inEvent is of the thread that woke the other one.
void ThreadsModel::HandleReady(const TraceEvent& inEvent, CallstackKey inStack, ProcessID inReadiedProcess,
                               ThreadID inReadiedThread, double inReadyTime)
{
    if (inEvent.ThreadID == -1 || GetSession().GetProcess(inReadiedProcess) == nullptr)
        return;
    OverviewThreadState& state = GetOverviewState(inReadiedThread);
    // Only the first wake-up of a wait counts.
    if (state.State == ThreadState::Executing || state.State == ThreadState::Finished || state.ReadyIndex != sNoReadyIndex)
        return;
    state.ReadyIndex = mReadyProcessing->NewReadyIndex();
    ReadyRecord& record = state.Record;
    record.ReadyTime = inReadyTime;
    record.WaitEnd = std::numeric_limits<double>::max();
    record.SwitchInStack = sNoCallstack;
    record.ReadyStack = inStack;
    record.ReadiedThreadID = inReadiedThread;
    record.ReadyingThreadID = inEvent.ThreadID;
}

bool ThreadsModel::HandleThreadEnd(ThreadID inThread, uint8_t inEndFlag, Utility::ErrorState& ioErrors)
{
    if (inEndFlag != 1 && inEndFlag != 2)
        return true;
    OverviewThreadState& state = GetOverviewState(inThread);
    if (state.State == ThreadState::NotStarted || state.State == ThreadState::Finished)
        return true;
    return EndLane(inThread, state, GetThreadEnd(inThread), ioErrors) && FinishOverview(inThread, state, ioErrors);
}

// The last span of a lane. REQUIRES: it has begun and not ended.
bool ThreadsModel::EndLane(ThreadID inThread, OverviewThreadState& ioState, double inEnd, Utility::ErrorState& ioErrors)
{
    const double since = ioState.StateTime;
    const uint32_t readyIndex = ioState.State == ThreadState::Executing ? sNoReadyIndex : ioState.ReadyIndex;
    AddThreadStateRange(ioState, inThread, {.State = ioState.State, .Start = since, .End = inEnd, .ReadyIndex = readyIndex});
    if (ioState.ReadyIndex != sNoReadyIndex)
    {
        if (!mReadyProcessing->CloseReady(ioState.Record, ioState.ReadyIndex, ioState.State, ioErrors, since, inEnd))
            return false;
        ioState.ReadyIndex = sNoReadyIndex;
    }
    ioState.State = ThreadState::Finished;
    return true;
}

// Closes a lane, if it is open, and builds what is derived from its last chunk, once.
bool ThreadsModel::FinishOverview(ThreadID inThread, OverviewThreadState& ioState, Utility::ErrorState& ioErrors)
{
    if (ioState.State != ThreadState::NotStarted && ioState.State != ThreadState::Finished &&
        !EndLane(inThread, ioState, GetSession().GetSessionInfo().SessionEndTimeMs, ioErrors))
        return false;
    if (ioState.Chunk)
    {
        std::vector<TypedChunkHandle<OverviewChunk>> handles;
        handles.push_back(ioState.Chunk);
        BuildLOD0OverviewDerivedData(std::move(handles), *ioState.LODThread, true);
    }
    ioState.Chunk = {};
    return true;
}

// A span is cut once at most: one over many chunks has an entry in its first and one in its last, and none in between.
void ThreadsModel::AddThreadStateRange(OverviewThreadState& ioState, ThreadID inThread, const StateSpan& inSpan)
{
    if (ioState.LODThread == nullptr)
    {
        ioState.LODThread = &GetDetailLOD(0).GetOrCreateThread(inThread, *mStreamingManager);
        ioState.Totals = &GetOrCreateThreadData(inThread);
    }
    DetailLODThread& thread = *ioState.LODThread;
    ioState.HasSpans = true;
    // Stored threads and sessions may have any times.
    if (!gIsPlaceableTime(sLevel0ChunkLengthMs, inSpan.Start) || !gIsPlaceableTime(sLevel0ChunkLengthMs, inSpan.End))
    {
        ++mLeftOut.Spans;
        return;
    }
    const double length = inSpan.End - inSpan.Start;
    ioState.Totals->TotalTime += length;
    ioState.Totals->StateTimes[static_cast<size_t>(inSpan.State)] += length;

    const int32_t first = ChunkIndexOfTime(sLevel0ChunkLengthMs, inSpan.Start);
    const int32_t last = ChunkIndexOfTime(sLevel0ChunkLengthMs, inSpan.End);
    // Chunks before the present one are read by others by now; and spans stand in time order.
    if (length < 0.0 || first < ioState.ChunkIndex || inSpan.Start < ioState.LastStart)
    {
        ++mLeftOut.Spans;
        return;
    }

    std::vector<TypedChunkHandle<OverviewChunk>> done;
    if (first != ioState.ChunkIndex)
    {
        if (ioState.Chunk)
            done.push_back(ioState.Chunk);
        if (!MoveToChunk(ioState, thread, first))
            return;
    }
    ioState.LastStart = inSpan.Start;
    const double firstEnd = first == last ? inSpan.End : ChunkEndOfIndex(first, sLevel0ChunkLengthMs);
    ioState.Chunk->AddEntry(inSpan.State, inSpan.ReadyIndex, inSpan.Stack, inSpan.Start, firstEnd, inSpan.Start, inSpan.End);
    if (first != last)
    {
        ioState.Chunk->SetLastEntryEndTime(inSpan.End);
        done.push_back(ioState.Chunk);
        if (!MoveToChunk(ioState, thread, last))
            return;
        ioState.Chunk->AddEntry(inSpan.State, inSpan.ReadyIndex, inSpan.Stack, ChunkStartOfIndex(last, sLevel0ChunkLengthMs),
                                inSpan.End, inSpan.Start, inSpan.End);
        ioState.Chunk->SetContinuesFromPrevious();
    }
    if (!done.empty())
        BuildLOD0OverviewDerivedData(std::move(done), thread, false);
}

// Hands over the chunks before. False if the pass is being stopped.
bool ThreadsModel::MoveToChunk(OverviewThreadState& ioState, DetailLODThread& ioThread, int32_t inIndex)
{
    if (ioState.ChunkIndex == OverviewThreadState::sNoChunk && inIndex < 0)
        ioThread.BeginOverviewAt(inIndex);
    if (!gGetChunkToFill(*mStreamingManager, ioThread, inIndex, ioState.Chunk))
        return false;
    ioState.ChunkIndex = inIndex;
    ioThread.MoveOverviewCursor(inIndex);
    return true;
}

OverviewThreadState& ThreadsModel::GetOverviewState(ThreadID inThread)
{
    std::unique_ptr<OverviewThreadState>& state = mOverviewStates[inThread];
    if (state == nullptr)
        state = std::make_unique<OverviewThreadState>();
    return *state;
}

// 0.0 stands in for what isn't known of a thread that the session doesn't know.
double ThreadsModel::GetThreadStart(ThreadID inThread) const
{
    const Thread* thread = GetSession().GetThread(inThread);
    return thread != nullptr ? thread->StartTimeMs : 0.0;
}

double ThreadsModel::GetThreadEnd(ThreadID inThread) const
{
    const Thread* thread = GetSession().GetThread(inThread);
    return thread != nullptr ? thread->EndTimeMs : 0.0;
}

} // namespace Profiler
