#include "Session/Pass/OpenBarProcessor.h"

#include "Session/Modules/ModuleDatabase.h"
#include "Session/Pass/ChunkTime.h"
#include "Session/Session.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Profiler
{
namespace
{

constexpr ResolveIndex sPlaceholderIndex{ResolveIndex::sUnknownClass};

constexpr uint8_t sThreadAliveAtEnd = 1; // EndFlag
constexpr uint8_t sThreadClosed = 2;     // EndFlag

// An interval from a damaged file would make the times of all bars useless.
double gMakeSoundInterval(double inMs)
{
    return std::isfinite(inMs) && inMs >= 0.0 ? inMs : 0.0;
}

} // namespace

OpenBarProcessor::OpenBarProcessor(Session& inSession, OpenBarProcessorFiberState& ioFiberState,
                                   const BrokenStackHolder& inBrokenStacks, ThreadID inThread, double inStartTime,
                                   float inChunkLength)
    : mThread(inThread),
      mSampleInterval(gMakeSoundInterval(inSession.GetSessionInfo().SampleIntervalMs)),
      mSession(inSession),
      mFiberState(ioFiberState),
      mBrokenStackReader(inBrokenStacks, inThread, inStartTime),
      mChunkLength(inChunkLength)
{
}

// --- Events ---

void OpenBarProcessor::HandleEvent(const TraceEvent& inEvent, double inMaxTime)
{
    mBrokenStackStatus = mBrokenStackReader.StepTo(mBrokenRange, inEvent.TimeMs);
    if (mBrokenStackStatus == EBrokenStackStep::RangeBegins)
        UpdateKeptDepth(inEvent.ProcessID);
    if (mState == ThreadState::Finished || inEvent.ThreadID != mThread)
        return;

    const double time = inEvent.TimeMs;
    switch (inEvent.GetType())
    {
    case ETraceEventType::Sample:
        HandleRunning(inEvent, inEvent.As<SampleEvent>()->Stack, true, {}, inMaxTime);
        break;
    case ETraceEventType::ContextSwitchOut:
        HandleSwitchOut(inEvent, *inEvent.As<ContextSwitchOutEvent>());
        break;
    case ETraceEventType::ContextSwitchIn:
        HandleSwitchIn(inEvent, *inEvent.As<ContextSwitchInEvent>(), inMaxTime);
        break;

    // Nothing opens, but the work space learns the addresses of the stack.
    case ETraceEventType::ReadyThread:
        static_cast<void>(ResolveStack(inEvent.As<ReadyThreadEvent>()->Stack, inEvent.ProcessID, false, time));
        break;
    case ETraceEventType::StackOnly:
        static_cast<void>(ResolveStack(inEvent.As<StackOnlyEvent>()->Stack, inEvent.ProcessID, false, time));
        break;

    case ETraceEventType::ThreadEnd:
        HandleThreadEnd(inEvent.As<ThreadEndEvent>()->EndFlag);
        break;
    case ETraceEventType::ThreadEndDisplay:
        HandleThreadEnd(inEvent.As<ThreadEndDisplayEvent>()->EndFlag);
        break;
    case ETraceEventType::InstrumentationBegin:
    {
        const auto* begin = inEvent.As<InstrumentationBeginEvent>();
        HandleRunning(inEvent, begin->Stack, false, {begin->Name, begin->Context, InstrumentationBeginEvent::sColor}, inMaxTime);
        break;
    }
    case ETraceEventType::InstrumentationBeginColored:
    {
        const auto* begin = inEvent.As<InstrumentationBeginColoredEvent>();
        HandleRunning(inEvent, begin->Stack, false, {begin->Name, begin->Context, begin->Color}, inMaxTime);
        break;
    }
    case ETraceEventType::InstrumentationEnd:
        HandleInstrumentationEnd(time, inMaxTime);
        break;
    case ETraceEventType::FiberSwitchOut:
        HandleFiberSwitchOut(time, inEvent.As<FiberSwitchOutEvent>()->FiberID, inMaxTime);
        break;
    case ETraceEventType::FiberSwitchIn:
        HandleFiberSwitchIn(time, inEvent.As<FiberSwitchInEvent>()->FiberID, inMaxTime);
        break;
    default:
        break;
    }
}

void OpenBarProcessor::Flush()
{
    if (!mBars.IsEmpty())
        CloseBars(0, false);
}

void OpenBarProcessor::HandleRunning(const TraceEvent& inEvent, CallstackKey inStack, bool inCountHit,
                                     const Instrumentation& inInstrumentation, double inMaxTime)
{
    if (!BeginRunning())
        return;
    const size_t frameCount = ResolveStack(inStack, inEvent.ProcessID, false, inEvent.TimeMs);
    if (frameCount == 0)
        return;
    const StackSpan span{.ProcessID = inEvent.ProcessID,
                         .State = ThreadState::Executing,
                         .Start = inEvent.TimeMs,
                         .End = inEvent.TimeMs + mSampleInterval,
                         .MaxTime = inMaxTime,
                         .CountHit = inCountHit};
    AddStack(frameCount, span, inInstrumentation);
}

// False while the thread counts as waiting: a sample that arrives then changes nothing.
bool OpenBarProcessor::BeginRunning()
{
    if (mState == ThreadState::NotStarted)
        mState = ThreadState::Executing;
    return mState == ThreadState::Executing;
}

void OpenBarProcessor::HandleSwitchOut(const TraceEvent& inEvent, const ContextSwitchOutEvent& inSwitch)
{
    const bool isTerminated = inSwitch.WaitReason == sWaitReasonTerminated;
    const bool isRunning = mState == ThreadState::Executing || mState == ThreadState::NotStarted;
    if (!isRunning && !isTerminated)
        return;
    ClipBars(inEvent.TimeMs);
    mState = isTerminated ? ThreadState::Finished : WaitReasonToState(inSwitch.WaitReason);
    mStateTime = inEvent.TimeMs;
}

void OpenBarProcessor::HandleSwitchIn(const TraceEvent& inEvent, const ContextSwitchInEvent& inSwitch, double inMaxTime)
{
    if (mState == ThreadState::Executing)
        return;

    double waitStart = mStateTime;
    ThreadState waitState = mState;
    if (mState == ThreadState::NotStarted)
    {
        const Thread* thread = mSession.GetThread(mThread);
        waitStart = std::max(mSession.GetSessionInfo().SessionStartTimeMs, thread != nullptr ? thread->StartTimeMs : 0.0);
        waitState = ThreadState::UnknownWaitState;
    }

    // A start time from a damaged file may lie in no chunk. Those of events can't.
    const double waitEnd = inEvent.TimeMs;
    if (waitStart != waitEnd && gIsPlaceableTime(mChunkLength, waitStart))
    {
        const size_t frameCount = ResolveStack(inSwitch.Stack, inEvent.ProcessID, true, waitStart);
        if (frameCount != 0)
            AddWait(frameCount, inEvent.ProcessID, waitState, waitStart, waitEnd, inMaxTime);
        else
        {
            const double waited = std::min(waitEnd, inMaxTime) - std::min(waitStart, inMaxTime);
            if (waited > 0.0)
                mStateDeltas[static_cast<size_t>(waitState)] += waited;
        }
    }
    // Set even where the stack of the wait has just cleared it: from here on a gap counts as running.
    mHasDeferredStates = true;
    mState = ThreadState::Executing;
}

// A wait over a chunk boundary becomes two spans: up to the end of the first chunk, and from the start of the last. The chunks
// between are not touched. Both cuts are made in single precision, as the chunk length is.
void OpenBarProcessor::AddWait(size_t inFrameCount, int32_t inProcessID, ThreadState inState, double inWaitStart,
                               double inWaitEnd, double inMaxTime)
{
    const int32_t firstChunk = ChunkIndexOfTime(mChunkLength, inWaitStart);
    const int32_t lastChunk = ChunkIndexOfTime(mChunkLength, inWaitEnd);
    StackSpan span{.ProcessID = inProcessID, .State = inState, .Start = inWaitStart, .End = inWaitEnd, .MaxTime = inMaxTime};
    if (firstChunk == lastChunk)
    {
        AddStack(inFrameCount, span, {});
        return;
    }
    const float firstChunkEnd = static_cast<float>(firstChunk) * mChunkLength + mChunkLength;
    const float lastChunkStart = mChunkLength * static_cast<float>(lastChunk);
    span.End = static_cast<double>(firstChunkEnd);
    AddStack(inFrameCount, span, {});
    span.Start = static_cast<double>(lastChunkStart);
    span.End = inWaitEnd;
    AddStack(inFrameCount, span, {});
}

void OpenBarProcessor::HandleThreadEnd(uint8_t inEndFlag)
{
    // A thread that ends in the ordinary way is closed by its last switch-out.
    if (inEndFlag == sThreadAliveAtEnd || inEndFlag == sThreadClosed)
        mState = ThreadState::Finished;
}

void OpenBarProcessor::HandleInstrumentationEnd(double inTime, double inMaxTime)
{
    const double time = std::min(inTime, inMaxTime);
    const bool isOfLeftOutZone = mNumLeftOutBegins != 0 && mBars.GetSize() >= sMaxOpenBars;
    mNumLeftOutBegins = isOfLeftOutZone ? mNumLeftOutBegins - 1 : 0;
    const int last = FindInstrumentedBars().Last;
    if (last < 0 || isOfLeftOutZone)
    {
        ClipBars(time);
        return;
    }
    SettleBars(last, time);
    CloseBars(static_cast<size_t>(last), false);
}

// What lies below the first instrumented bar is the thread's own stack and stays open; the fiber's work is saved.
void OpenBarProcessor::HandleFiberSwitchOut(double inTime, uint64_t inFiberID, double inMaxTime)
{
    if (mBars.IsEmpty())
    {
        ClearDeferredStates();
        return;
    }
    const BarRange instrumented = FindInstrumentedBars();
    SettleBars(instrumented.Last, std::min(inTime, inMaxTime));
    if (instrumented.Last < 0)
        return;

    mSavedBars.clear();
    for (const OpenBar& bar : mBars.GetLive().first(static_cast<size_t>(instrumented.Last) + 1))
        mSavedBars.push_back({bar.InstrumentationContextID, bar.LastAbsoluteAddress, bar.ReturnAddress, bar.Frame});
    mFiberState.AddFiberEvent(inFiberID, mSavedBars, inTime);
    CloseBars(static_cast<size_t>(instrumented.First), false);
}

void OpenBarProcessor::HandleFiberSwitchIn(double inTime, uint64_t inFiberID, double inMaxTime)
{
    if (!mFiberState.FindFiberState(inFiberID, inTime, mSavedBars))
        return;
    const double start = std::min(inTime, inMaxTime);
    const double end = std::min(inTime + mSampleInterval, inMaxTime);
    ClipBars(start);
    const int32_t chunk = ChunkIndexOfTime(mChunkLength, inTime);
    const bool isNewChunk = chunk != mChunkIndex;

    const Match match = MatchSavedBars();
    CloseUnmatchedBars(match.KeptBars, isNewChunk);
    ExtendBars(match.KeptBars, ThreadState::Executing, start, end);
    OpenSavedBars(match.MatchedFrames, start, end);
    ClearDeferredStates();
    TakeChunk(isNewChunk, chunk, inTime);
}

void OpenBarProcessor::OpenSavedBars(size_t inFirst, double inStart, double inEnd)
{
    for (size_t i = inFirst; i < mSavedBars.size(); ++i)
    {
        if (mBars.GetSize() >= sMaxOpenBars)
        {
            mNumLeftOutBars += mSavedBars.size() - i;
            return;
        }
        const SavedBar& saved = mSavedBars[i];
        OpenBar& bar = OpenNewBar(inStart, inEnd, ThreadState::Executing);
        bar.InstrumentationContextID = saved.InstrumentationContextID;
        bar.LastAbsoluteAddress = saved.LastAbsoluteAddress;
        bar.ReturnAddress = saved.ReturnAddress;
        bar.Frame = saved.Frame;
    }
}

// --- Stacks ---

bool OpenBarProcessor::IsInBrokenRange() const
{
    return mBrokenStackStatus == EBrokenStackStep::RangeBegins || mBrokenStackStatus == EBrokenStackStep::Inside;
}

// Fills mFrames and gives their number; 0 if there is no stack, or if inRequireComplete and a stop rule cut it.
size_t OpenBarProcessor::ResolveStack(CallstackKey inStack, int32_t inProcessID, bool inRequireComplete, double inTime)
{
    const Callstack* stack = mSession.GetCallstack(inStack, mStackCursor);
    if (stack == nullptr || stack->empty())
        return 0;
    if (IsInBrokenRange())
    {
        SpliceStack(*stack);
        stack = &mSplicedStack;
    }
    const int32_t count = mSession.GetModuleDatabase().ResolveFrames(*stack, inProcessID, EResolveFlag::FetchSymbols,
                                                                     mSession.GetPlatformSession(), mFrames, inTime);
    const bool isCut = static_cast<size_t>(count) < stack->size();
    return isCut && inRequireComplete ? 0 : static_cast<size_t>(count);
}

// Puts the bars that the broken range's good stack shows to have gone on, and the marker of missing frames, in front of the
// stack; frames that the stack has in common with them are left out.
void OpenBarProcessor::SpliceStack(const Callstack& inStack)
{
    mSplicedStack.clear();
    for (const OpenBar& bar : mBars.GetLive())
    {
        if (mSplicedStack.size() >= mKeptDepth)
            break;
        if (!bar.Frame.ResolveIndex.IsInstrumented())
            mSplicedStack.push_back(bar.LastAbsoluteAddress);
    }
    mSplicedStack.push_back(sMissingFramesMarker);

    // The list is compared with as it stands, and grows meanwhile: it can have fewer bars in front than the kept depth says,
    // where a zone ended since.
    for (size_t i = 0; i < inStack.size(); ++i)
    {
        const bool isKept = i < std::min(mKeptDepth, mSplicedStack.size()) && inStack[i] == mSplicedStack[i];
        if (!isKept)
            mSplicedStack.push_back(inStack[i]);
    }
}

// Works out how many open bars match the good stack of the broken range. The bars themselves don't change.
void OpenBarProcessor::UpdateKeptDepth(int32_t inProcessID)
{
    mKeptDepth = 0;
    const Callstack* stack = mSession.GetCallstack(mBrokenRange.Stack);
    if (stack == nullptr)
        return;
    const int32_t count = mSession.GetModuleDatabase().ResolveFrames(*stack, inProcessID, EResolveFlag::FetchSymbols,
                                                                     mSession.GetPlatformSession(), mFrames, mBrokenRange.End);
    for (const OpenBar& bar : mBars.GetLive())
    {
        if (bar.Frame.ResolveIndex.IsInstrumented())
            continue;
        if (mKeptDepth == static_cast<size_t>(count) || !MatchesFrame(bar, mKeptDepth))
            return;
        ++mKeptDepth;
    }
}

void OpenBarProcessor::AddStack(size_t inFrameCount, const StackSpan& inSpan, const Instrumentation& inInstrumentation)
{
    const double start = std::min(inSpan.Start, inSpan.MaxTime);
    const double end = std::min(inSpan.End, inSpan.MaxTime);
    ClipBars(start);
    const int32_t chunk = ChunkIndexOfTime(mChunkLength, inSpan.Start);
    const bool isNewChunk = chunk != mChunkIndex;

    size_t firstNewFrame = 0;
    if (!mBars.IsEmpty())
    {
        const Match match = MatchFrames(inFrameCount);
        CloseUnmatchedBars(match.KeptBars, isNewChunk);
        ExtendBars(match.KeptBars, inSpan.State, start, end);
        firstNewFrame = match.MatchedFrames;
    }
    for (size_t frame = firstNewFrame; frame < inFrameCount; ++frame)
        OpenFrameBar(frame, inSpan, start, end);

    if (!inInstrumentation.Name.empty())
        OpenInstrumentedBar(inFrameCount, inSpan, inInstrumentation, start, end);
    else if (inSpan.CountHit && end - start > 0.0)
    {
        const uint64_t leafAddress = mFrames[inFrameCount - 1].RelativeAddress;
        if (leafAddress != sNoAddress)
            mBars.GetBack().AddressHits.Add(leafAddress);
    }
    ClearDeferredStates();
    TakeChunk(isNewChunk, chunk, inSpan.Start);
}

bool OpenBarProcessor::MatchesFrame(const OpenBar& inBar, size_t inFrame) const
{
    const ResolvedFrame& frame = mFrames[inFrame];
    const uint64_t parent = inFrame == 0 ? sNoAddress : mFrames[inFrame - 1].RelativeAddress;
    return inBar.Frame == ResolvedAddress{frame.GetIdentity(), frame.ResolveIndex} && inBar.ReturnAddress == parent;
}

// Walks the open bars and the frames beside each other from the root. Instrumented bars stay and take no frame; in a broken
// range, bars of unknown frames stay and take one, whatever it is.
OpenBarProcessor::Match OpenBarProcessor::MatchFrames(size_t inFrameCount)
{
    const bool keepsUnknown = IsInBrokenRange();
    size_t frame = 0;
    for (size_t i = 0; i < mBars.GetSize(); ++i)
    {
        OpenBar& bar = mBars[i];
        if (bar.Frame.ResolveIndex.IsInstrumented())
            continue;
        if (!keepsUnknown || !bar.Frame.ResolveIndex.IsUnknownClass())
        {
            if (frame >= inFrameCount || !MatchesFrame(bar, frame))
                return {i, frame};
            bar.LastAbsoluteAddress = mFrames[frame].AbsoluteAddress;
        }
        ++frame;
    }
    return {mBars.GetSize(), frame};
}

// As MatchFrames, with the saved bars of a fiber, instrumented ones included. A match leaves the open bar's last address alone.
OpenBarProcessor::Match OpenBarProcessor::MatchSavedBars() const
{
    size_t saved = 0;
    for (size_t i = 0; i < mBars.GetSize(); ++i)
    {
        const OpenBar& bar = mBars[i];
        if (bar.Frame.ResolveIndex.IsInstrumented())
            continue;
        if (saved == mSavedBars.size() || bar.Frame != mSavedBars[saved].Frame ||
            bar.ReturnAddress != mSavedBars[saved].ReturnAddress)
            return {i, saved};
        ++saved;
    }
    return {mBars.GetSize(), saved};
}

// Opens a bar with its times; identity and addresses are the caller's to set. The slot may have held another bar before.
OpenBar& OpenBarProcessor::OpenNewBar(double inStart, double inEnd, ThreadState inState)
{
    OpenBar& bar = mBars.PushBack();
    bar.State = inState;
    bar.StateTimes.fill(0.0);
    bar.StateTimes[static_cast<size_t>(inState)] = inEnd - inStart;
    bar.Start = inStart;
    bar.End = inEnd;
    bar.InstrumentationContextID = InstrumentationDatabase::sNoContext;
    bar.AddressHits.Clear();
    return bar;
}

void OpenBarProcessor::OpenFrameBar(size_t inFrame, const StackSpan& inSpan, double inStart, double inEnd)
{
    const ResolvedFrame& frame = mFrames[inFrame];
    OpenBar& bar = OpenNewBar(inStart, inEnd, inSpan.State);
    if (frame.AbsoluteAddress == sMissingFramesMarker && inFrame == mKeptDepth && IsInBrokenRange())
    {
        bar.LastAbsoluteAddress = sMissingFramesMarker;
        bar.Frame = {sPlaceholderAddress, sPlaceholderIndex};
        bar.ReturnAddress = sNoAddress;
        return;
    }
    bar.LastAbsoluteAddress = frame.AbsoluteAddress;
    bar.Frame = {frame.GetIdentity(), frame.ResolveIndex};
    bar.ReturnAddress = inFrame == 0 ? sNoAddress : mFrames[inFrame - 1].RelativeAddress;
}

// Opens the bar of an instrumented zone on top of its stack, registered under the leaf frame's own address so that two zones of
// one function stay apart. Nothing opens if nobody knows the leaf's function.
void OpenBarProcessor::OpenInstrumentedBar(size_t inFrameCount, const StackSpan& inSpan, const Instrumentation& inInstrumentation,
                                           double inStart, double inEnd)
{
    const ResolvedFrame& leaf = mFrames[inFrameCount - 1];
    if (leaf.Module == nullptr || leaf.FunctionRelativeAddress == sNoAddress)
        return;
    if (mBars.GetSize() >= sMaxOpenBars)
    {
        ++mNumLeftOutBars;
        ++mNumLeftOutBegins;
        return;
    }
    mNumLeftOutBegins = 0;

    ModuleDatabase& modules = mSession.GetModuleDatabase();
    mInstrumentedFrame.clear();
    modules.ResolveFrames({&leaf.AbsoluteAddress, 1}, inSpan.ProcessID, EResolveFlag::FetchSymbols, mSession.GetPlatformSession(),
                          mInstrumentedFrame, inSpan.Start);
    ResolvedFrame& frame = mInstrumentedFrame.front();
    uint64_t contextID = InstrumentationDatabase::sNoContext;
    if (frame.Module != nullptr && frame.FunctionRelativeAddress != sNoAddress &&
        frame.FunctionRelativeAddress != sPlaceholderAddress)
    {
        frame.ResolveIndex.Index |= ResolveIndex::sInstrumentedFlag;
        contextID = modules.GetInstrumentationDatabase().AddInstrumentationData(frame.RelativeAddress, frame.ResolveIndex,
                                                                                inInstrumentation.Name, inInstrumentation.Context,
                                                                                inInstrumentation.Color);
    }
    OpenBar& bar = OpenNewBar(inStart, inEnd, inSpan.State);
    bar.LastAbsoluteAddress = leaf.AbsoluteAddress;
    bar.Frame = {frame.RelativeAddress, frame.ResolveIndex};
    bar.ReturnAddress = frame.RelativeAddress;
    bar.InstrumentationContextID = contextID;
}

// --- Bars ---

// Reports the list as it stands and cuts it.
void OpenBarProcessor::CloseBars(size_t inKeepCount, bool inChunkFinished)
{
    BarsChanged(mBars, static_cast<int>(inKeepCount), mChunkIndex, mChunkTime, inChunkFinished);
    mBars.Shrink(inKeepCount);
}

// As CloseBars, if there is anything to tell. A list without bars has nothing to tell, even where a chunk ends.
void OpenBarProcessor::CloseUnmatchedBars(size_t inKeepCount, bool inChunkFinished)
{
    if (!mBars.IsEmpty() && (inChunkFinished || inKeepCount < mBars.GetSize()))
        CloseBars(inKeepCount, inChunkFinished);
}

void OpenBarProcessor::TakeChunk(bool inIsNew, int32_t inChunk, double inTime)
{
    if (!inIsNew)
        return;
    mChunkIndex = inChunk;
    mChunkTime = inTime;
}

void OpenBarProcessor::ClipBar(OpenBar& ioBar, double inTime) const
{
    const double oldEnd = ioBar.End;
    ioBar.End = std::min(oldEnd, inTime);
    ioBar.StateTimes[static_cast<size_t>(ioBar.State)] -= oldEnd - ioBar.End;
}

void OpenBarProcessor::ClipBars(double inTime)
{
    for (OpenBar& bar : mBars.GetLive())
        ClipBar(bar, inTime);
}

// Gives a bar the waits that couldn't be placed, and counts the rest of its gap up to inEnd as running.
void OpenBarProcessor::SpreadStateDeltas(OpenBar& ioBar, double inEnd) const
{
    for (size_t state = 0; state < mStateDeltas.size(); ++state)
        ioBar.StateTimes[state] += mStateDeltas[state];
    const double waited = std::accumulate(mStateDeltas.begin(), mStateDeltas.end(), 0.0);
    ioBar.StateTimes[static_cast<size_t>(ThreadState::Executing)] += inEnd - ioBar.End - waited;
    ioBar.End = inEnd;
}

void OpenBarProcessor::ExtendBars(size_t inKeepCount, ThreadState inState, double inStart, double inEnd)
{
    for (OpenBar& bar : mBars.GetLive().first(inKeepCount))
    {
        if (mHasDeferredStates)
            SpreadStateDeltas(bar, inStart);
        bar.StateTimes[static_cast<size_t>(inState)] += inEnd - bar.End;
        bar.End = inEnd;
        bar.State = inState;
    }
}

void OpenBarProcessor::SettleBars(int inLastKept, double inTime)
{
    const size_t keptCount = static_cast<size_t>(inLastKept) + 1;
    for (OpenBar& bar : mBars.GetLive().first(keptCount))
    {
        if (mHasDeferredStates)
            SpreadStateDeltas(bar, inTime);
        else
        {
            bar.StateTimes[static_cast<size_t>(ThreadState::Executing)] += inTime - bar.End;
            bar.End = inTime;
        }
    }
    for (OpenBar& bar : mBars.GetLive().subspan(keptCount))
        ClipBar(bar, inTime);
    ClearDeferredStates();
}

void OpenBarProcessor::ClearDeferredStates()
{
    mStateDeltas.fill(0.0);
    mHasDeferredStates = false;
}

OpenBarProcessor::BarRange OpenBarProcessor::FindInstrumentedBars() const
{
    BarRange range;
    for (size_t i = 0; i < mBars.GetSize(); ++i)
    {
        if (!mBars[i].Frame.ResolveIndex.IsInstrumented())
            continue;
        if (range.First < 0)
            range.First = static_cast<int>(i);
        range.Last = static_cast<int>(i);
    }
    return range;
}

} // namespace Profiler
