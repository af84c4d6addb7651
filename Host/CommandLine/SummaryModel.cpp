#include "Host/CommandLine/SummaryModel.h"

#include "Session/Session.h"

#include <algorithm>

namespace Host
{

using namespace Profiler;

namespace
{

// An identity that no frame has.
constexpr ResolvedAddress sNoFrame{0xFFFFFFFFFFFFFFFD, {ResolveIndex::sComparedMask}};

bool gIsLonger(const LongBar& inFirst, const LongBar& inSecond)
{
    if (inFirst.GetLength() != inSecond.GetLength())
        return inFirst.GetLength() > inSecond.GetLength();
    return inFirst.Start != inSecond.Start ? inFirst.Start < inSecond.Start : inFirst.Depth < inSecond.Depth;
}

} // namespace

// The lane of one thread's states, driven by its switches.
class SummaryModel::ThreadLane final : public ThreadProcessingState
{
public:
    ThreadLane(Profiler::ThreadID inThread, double inSampleInterval) : mThread(inThread), mSampleInterval(inSampleInterval) {}

    void Connect(Utility::SignalRegistration inRegistration) { mRegistration = std::move(inRegistration); }
    void Disconnect() { mRegistration.Disconnect(); }

    void AddEvent(const TraceEvent& inEvent, double inThreadStart)
    {
        ++mSummary.Events;
        switch (inEvent.GetType())
        {
        case ETraceEventType::Sample:
            ++mSummary.Samples;
            SeeRunning(inEvent.TimeMs);
            break;
        case ETraceEventType::ReadyThread:
            ++mSummary.Wakeups;
            SeeRunning(inEvent.TimeMs);
            break;
        case ETraceEventType::ContextSwitchIn:
            ++mSummary.SwitchIns;
            if (mState == ThreadState::NotStarted)
            {
                mState = ThreadState::UnknownWaitState;
                mSince = inThreadStart;
            }
            ChangeState(ThreadState::Executing, inEvent.TimeMs);
            break;
        case ETraceEventType::ContextSwitchOut:
        {
            ++mSummary.SwitchOuts;
            const uint8_t reason = inEvent.As<ContextSwitchOutEvent>()->WaitReason;
            ChangeState(reason == sWaitReasonTerminated ? ThreadState::Finished : WaitReasonToState(reason), inEvent.TimeMs);
            break;
        }
        default:
            break;
        }
    }

    void Finish(double inEnd)
    {
        if (mSummary.SwitchIns + mSummary.SwitchOuts != 0)
            ChangeState(ThreadState::Finished, inEnd);
        else
            mSummary.StateTimes[static_cast<size_t>(ThreadState::Executing)] =
                static_cast<double>(mSummary.Samples) * mSampleInterval;
        for (int state = 0; state < sNumTimedThreadStates; ++state)
            (state == static_cast<int>(ThreadState::Executing) ? mSummary.ExecutingMs : mSummary.WaitingMs) +=
                mSummary.StateTimes[state];
    }

    [[nodiscard]] Profiler::ThreadID GetThread() const { return mThread; }
    [[nodiscard]] ThreadSummary& GetSummary() { return mSummary; }

private:
    // What a thread did before its first event is unknown, so it counts as running from there.
    void SeeRunning(double inTime)
    {
        if (mState != ThreadState::NotStarted)
            return;
        mState = ThreadState::Executing;
        mSince = inTime;
    }

    void ChangeState(ThreadState inState, double inTime)
    {
        if (static_cast<int>(mState) < sNumTimedThreadStates && inTime > mSince)
            mSummary.StateTimes[static_cast<size_t>(mState)] += inTime - mSince;
        mState = inState;
        mSince = inTime;
    }

    Profiler::ThreadID mThread;
    double mSampleInterval;
    ThreadState mState = ThreadState::NotStarted;
    double mSince = 0.0;
    ThreadSummary mSummary;
    Utility::SignalRegistration mRegistration;
};

SummaryModel::SummaryModel(ModelPlugin& inPlugin, Session& inSession) : Model(inPlugin, inSession)
{
    mFrameCounts.set_empty_key(sNoFrame);
}

SummaryModel::~SummaryModel() = default;

const RTTI::Type& SummaryModel::GetType() const
{
    // Nothing stores it, so it needs no type of its own.
    return RTTI::gTypeOf<Profiler::Model>();
}

ThreadProcessingState* SummaryModel::CreateThreadProcessingState(OpenBarProcessor& inProcessor)
{
    auto state = std::make_unique<ThreadLane>(inProcessor.GetThreadID(), GetSession().GetSessionInfo().SampleIntervalMs);
    ThreadLane* result = state.get();
    state->Connect(inProcessor.BarsChanged.Connect([this, result](const OpenBars& inBars, int inKeepCount, int, double, bool)
                                                   { CountClosedBars(*result, inBars, static_cast<size_t>(inKeepCount)); }));
    mThreads[inProcessor.GetThreadID()] = std::move(state);
    return result;
}

void SummaryModel::CountClosedBars(ThreadLane& ioState, const OpenBars& inBars, size_t inKeepCount)
{
    ThreadSummary& summary = ioState.GetSummary();
    summary.GreatestDepth = std::max<uint64_t>(summary.GreatestDepth, inBars.GetSize());
    summary.ClosedBars += inBars.GetSize() - inKeepCount;
    for (size_t depth = inKeepCount; depth < inBars.GetSize(); ++depth)
    {
        const OpenBar& bar = inBars[depth];
        ++mFrameCounts[bar.Frame];
        OfferLongBar({ioState.GetThread(), bar.Frame, bar.Start, bar.End, depth});
    }
}

void SummaryModel::OfferLongBar(const LongBar& inBar)
{
    if (mLongestBars.size() == sNumLongestBars)
    {
        if (!gIsLonger(inBar, mLongestBars.front()))
            return;
        std::pop_heap(mLongestBars.begin(), mLongestBars.end(), gIsLonger);
        mLongestBars.pop_back();
    }
    mLongestBars.push_back(inBar);
    std::push_heap(mLongestBars.begin(), mLongestBars.end(), gIsLonger);
}

bool SummaryModel::FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState&)
{
    ThreadLane& state = *mThreads.at(inProcessor.GetThreadID());
    const Thread* thread = GetSession().GetThread(inProcessor.GetThreadID());
    const double sessionEnd = GetSession().GetSessionInfo().SessionEndTimeMs;
    state.Finish(thread != nullptr && thread->EndTimeMs != 0.0 ? thread->EndTimeMs : sessionEnd);
    state.Disconnect();
    return true;
}

bool SummaryModel::ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState, Utility::ErrorState&)
{
    const Thread* thread = GetSession().GetThread(inEvent.ThreadID);
    static_cast<ThreadLane*>(ioState)->AddEvent(inEvent, thread != nullptr ? thread->StartTimeMs : 0.0);
    return true;
}

bool SummaryModel::BeginProcessing(Utility::ErrorState&)
{
    return true;
}

void SummaryModel::StopProcessing() {}

bool SummaryModel::FinishProcessing(Utility::ErrorState&, const bool&)
{
    return true;
}

bool SummaryModel::PrepareReprocess(Utility::ErrorState&)
{
    return true;
}

bool SummaryModel::SaveModel(Utility::ErrorState&)
{
    return true;
}

const ThreadSummary* SummaryModel::FindThread(ThreadID inThread) const
{
    const auto found = mThreads.find(inThread);
    return found != mThreads.end() ? &found->second->GetSummary() : nullptr;
}

std::vector<LongBar> SummaryModel::GetLongestBars() const
{
    std::vector<LongBar> bars = mLongestBars;
    std::sort(bars.begin(), bars.end(), gIsLonger);
    return bars;
}

} // namespace Host
