#include "OpenBarTwin.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace
{

constexpr uint64_t sNothing = 0xFFFFFFFFFFFFFFFF;
constexpr uint32_t sMask = 0x3FFFFFFF;
constexpr uint32_t sZoneBit = 0x2000000;
constexpr uint32_t sUnknownModule = 0x8000000;
constexpr uint32_t sMissing = 0xC000000;
constexpr uint64_t sMissingAddress = 0xFFFFFFFFFFFFFFFE;

bool gIsMissing(uint32_t inIndex)
{
    return (inIndex & 0x3C000000) == sMissing;
}

bool gIsZone(uint32_t inIndex)
{
    return !gIsMissing(inIndex) && (inIndex & sZoneBit) != 0;
}

bool gContains(const std::vector<int>& inList, int inValue)
{
    return std::find(inList.begin(), inList.end(), inValue) != inList.end();
}

// The state of a thread that waits for a reason.
int gGetWaitState(int inReason)
{
    if (gContains({0, 7, 23}, inReason))
        return 2;
    if (gContains({1, 2, 3, 8, 9, 10, 18, 19, 25}, inReason))
        return 3;
    if (gContains({4, 5, 11, 12, 33}, inReason))
        return 4;
    if (gContains({30, 31, 32}, inReason))
        return 5;
    if (inReason > 37 || gContains({13, 22}, inReason))
        return 7;
    return 6;
}

// Symbols without a size reach up to the next one.
const TwinFunction* gFindOnDemand(const std::vector<TwinFunction>& inFunctions, uint64_t inAddress)
{
    const TwinFunction* found = nullptr;
    for (const TwinFunction& function : inFunctions)
        if (function.Start <= inAddress)
            found = &function;
    if (found != nullptr && found->Size != 0 && inAddress >= found->Start + found->Size)
        return nullptr;
    return found;
}

const TwinFunction* gFindKnown(const std::vector<TwinFunction>& inFunctions, uint64_t inAddress)
{
    const TwinFunction* found = nullptr;
    for (const TwinFunction& function : inFunctions)
        if (function.Start <= inAddress)
            found = &function;
    return found != nullptr && inAddress < found->Start + found->Size ? found : nullptr;
}

} // namespace

// --- The world ---

void TwinWorld::SaveFiber(uint64_t inFiber, const TwinSavedBars& inBars, double inTime)
{
    size_t index = 0;
    while (index < mFiberStates.size() && mFiberStates[index] != inBars)
        ++index;
    if (index == mFiberStates.size())
        mFiberStates.push_back(inBars);
    mFiberEvents[inFiber].emplace_back(inTime, index);
}

std::optional<TwinSavedBars> TwinWorld::FindFiber(uint64_t inFiber, double inTime) const
{
    const auto found = mFiberEvents.find(inFiber);
    if (found == mFiberEvents.end())
        return std::nullopt;
    // By halves: where times went back, the list isn't in order and a plain walk would find another entry.
    const auto& events = found->second;
    size_t begin = 0;
    for (size_t length = events.size(); length > 0;)
    {
        const size_t half = length / 2;
        if (events[begin + half].first > inTime)
            length = half;
        else
        {
            begin += half + 1;
            length -= half + 1;
        }
    }
    if (begin == 0)
        return std::nullopt;
    return mFiberStates[events[begin - 1].second];
}

// --- Lookups ---

const TwinInstance* TwinProcessor::FindInstance(uint64_t inAddress, int32_t inProcess, double inTime) const
{
    const TwinInstance* later = nullptr;
    for (size_t i = mWorld.Instances.size(); i-- > 0;)
    {
        const TwinInstance& instance = mWorld.Instances[i];
        if (instance.Base > inAddress || instance.Process != inProcess)
            continue;
        const int32_t imageSize = mWorld.Modules[instance.Module].ImageSize;
        if (imageSize != -1 && instance.Base + static_cast<uint64_t>(imageSize) <= inAddress)
            break;
        if (instance.LoadTime <= inTime && inTime <= instance.UnloadTime)
            return &instance;
        if (instance.LoadTime > inTime)
            later = &instance;
    }
    return later;
}

bool TwinProcessor::StopsAt(const Frame& inFrame) const
{
    if (!mWorld.StopModule || inFrame.Kind != Frame::EModule::Native || inFrame.Module != *mWorld.StopModule)
        return false;
    const uint64_t address = inFrame.Function != sNothing ? inFrame.Function : inFrame.RelativeAddress;
    return std::find(mWorld.StopAddresses.begin(), mWorld.StopAddresses.end(), address) != mWorld.StopAddresses.end();
}

void TwinProcessor::sFill(Frame& outFrame, uint32_t inModule, const TwinFunction* inFunction, uint64_t inAddress, uint64_t inBase)
{
    outFrame.Kind = Frame::EModule::Native;
    outFrame.Module = inModule;
    outFrame.Function = inFunction != nullptr ? inFunction->Start : sNothing;
    outFrame.FunctionSize = inFunction != nullptr ? inFunction->Size : 0;
    outFrame.RelativeAddress = inAddress - inBase;
    outFrame.Index = inModule;
    outFrame.AbsoluteAddress = inAddress;
    outFrame.FunctionAbsoluteAddress = inFunction != nullptr ? inFunction->Start + inBase : sNothing;
}

int TwinProcessor::ResolveRun(const std::vector<uint64_t>& inAddresses, Frames& ioFrames, size_t inBegin, size_t inEnd,
                              const TwinInstance& inInstance)
{
    TwinModule& module = mWorld.Modules[inInstance.Module];
    std::vector<size_t> misses;
    int stop = -1;
    for (size_t i = inBegin; i < inEnd && stop < 0; ++i)
    {
        Frame& frame = ioFrames[i];
        const uint64_t address = inAddresses[i];
        const uint64_t functionStart = frame.FunctionAbsoluteAddress;
        if (frame.Kind != Frame::EModule::None && frame.AbsoluteAddress == address)
            frame.RelativeAddress = address - inInstance.Base;
        else if (functionStart != sNothing && functionStart <= address && address - functionStart < frame.FunctionSize)
        {
            frame.RelativeAddress = address - inInstance.Base;
            frame.AbsoluteAddress = address;
        }
        else
        {
            const TwinFunction* known = gFindKnown(module.Known, address - inInstance.Base);
            sFill(frame, inInstance.Module, known, address, inInstance.Base);
            if (known == nullptr)
            {
                frame.RelativeAddress = sNothing;
                misses.push_back(i);
            }
        }
        if (StopsAt(frame))
            stop = static_cast<int>(i);
    }

    const size_t end = stop >= 0 ? static_cast<size_t>(stop) : inEnd;
    std::vector<TwinFunction> found;
    for (const size_t i : misses)
    {
        if (i >= end)
            break;
        Frame& frame = ioFrames[i];
        const uint64_t relative = frame.AbsoluteAddress - inInstance.Base;
        const TwinFunction* symbol = gFindOnDemand(module.OnDemand, relative);
        if (symbol != nullptr)
        {
            const TwinFunction function{symbol->Start, std::max(symbol->Size, relative - symbol->Start + 1)};
            sFill(frame, inInstance.Module, &function, frame.AbsoluteAddress, inInstance.Base);
            found.push_back(function);
        }
        else
            sFill(frame, inInstance.Module, nullptr, frame.AbsoluteAddress, inInstance.Base);
        if (StopsAt(frame))
        {
            stop = static_cast<int>(i);
            break;
        }
    }
    for (const TwinFunction& function : found)
    {
        const auto same = std::find_if(module.Known.begin(), module.Known.end(),
                                       [&](const TwinFunction& inOther) { return inOther.Start == function.Start; });
        if (same != module.Known.end())
            same->Size = std::max(same->Size, function.Size);
        else
            module.Known.push_back(function);
    }
    std::sort(module.Known.begin(), module.Known.end(),
              [](const TwinFunction& inFirst, const TwinFunction& inSecond) { return inFirst.Start < inSecond.Start; });
    return stop;
}

int TwinProcessor::ResolveFrames(const std::vector<uint64_t>& inAddresses, int32_t inProcess, Frames& ioFrames, double inTime)
{
    ioFrames.resize(inAddresses.size());
    size_t i = 0;
    while (i < inAddresses.size())
    {
        const TwinInstance* instance = FindInstance(inAddresses[i], inProcess, inTime);
        if (instance == nullptr)
        {
            Frame unknown;
            unknown.Kind = Frame::EModule::Unknown;
            unknown.RelativeAddress = inAddresses[i];
            unknown.Index = sUnknownModule;
            unknown.AbsoluteAddress = inAddresses[i];
            ioFrames[i] = unknown;
            ++i;
            continue;
        }
        const int32_t imageSize = mWorld.Modules[instance->Module].ImageSize;
        size_t end = i + 1;
        while (imageSize != -1 && end < inAddresses.size() && inAddresses[end] >= instance->Base &&
               inAddresses[end] < instance->Base + static_cast<uint64_t>(imageSize))
            ++end;
        const int stop = ResolveRun(inAddresses, ioFrames, i, end, *instance);
        if (stop >= 0)
            return stop;
        i = end;
    }
    return static_cast<int>(inAddresses.size());
}

// --- Broken ranges ---

TwinProcessor::TwinProcessor(TwinWorld& ioWorld, int32_t inThread, double inStartTime, float inChunkLength)
    : mWorld(ioWorld),
      mThread(inThread),
      mChunkLength(inChunkLength),
      mRange{-1.0, -1.0, sNothing}
{
    const auto ranges = mWorld.BrokenRanges.find(inThread);
    if (ranges != mWorld.BrokenRanges.end())
        mRanges = ranges->second;
    while (mRangePosition < mRanges.size() && mRanges[mRangePosition].Start <= inStartTime)
        ++mRangePosition;
    if (mRangePosition > 0 && mRanges[mRangePosition - 1].End > inStartTime)
        --mRangePosition;
}

int TwinProcessor::StepTo(double inTime)
{
    if (mRangePosition == mRanges.size())
        return 3;
    const TwinRange range = mRanges[mRangePosition];
    if (range.Start == inTime)
    {
        mRange = range;
        if (range.Start == range.End)
            ++mRangePosition;
        return 0;
    }
    if (inTime > range.Start && inTime < range.End)
        return 1;
    if (range.End == inTime)
    {
        ++mRangePosition;
        return 2;
    }
    return 3;
}

void TwinProcessor::UpdateKeptDepth(int32_t inProcess)
{
    mKeptDepth = 0;
    const auto stack = mWorld.Stacks.find(mRange.Stack);
    if (stack == mWorld.Stacks.end())
        return;
    const int count = ResolveFrames(stack->second, inProcess, mFrames, mRange.End);
    for (const TwinBar& bar : Bars)
    {
        if (gIsZone(bar.FrameIndex))
            continue;
        if (mKeptDepth == static_cast<size_t>(count) || !Matches(bar, mKeptDepth))
            break;
        ++mKeptDepth;
    }
}

// --- Events ---

void TwinProcessor::HandleEvent(const Profiler::TraceEvent& inEvent, double inMaxTime)
{
    using namespace Profiler;
    mBrokenStatus = StepTo(inEvent.TimeMs);
    if (mBrokenStatus == 0)
        UpdateKeptDepth(inEvent.ProcessID);
    if (State == sFinished)
        return;
    if (inEvent.ThreadID != mThread)
        return;

    const double time = inEvent.TimeMs;
    const Span span{inEvent.ProcessID, sExecuting, time, time + mWorld.SampleInterval, inMaxTime, false, "", "", 0xFFFFFFFF};
    const auto end = [this](int inFlag)
    {
        if (inFlag == 1 || inFlag == 2)
            State = sFinished;
    };
    if (const auto* sample = inEvent.As<SampleEvent>())
    {
        Span counted = span;
        counted.CountHit = true;
        Running(inEvent, sample->Stack, counted);
    }
    if (const auto* begin = inEvent.As<InstrumentationBeginEvent>())
    {
        Span named = span;
        named.Name = begin->Name;
        named.Context = begin->Context;
        Running(inEvent, begin->Stack, named);
    }
    if (const auto* begin = inEvent.As<InstrumentationBeginColoredEvent>())
    {
        Span named = span;
        named.Name = begin->Name;
        named.Context = begin->Context;
        named.Color = begin->Color;
        Running(inEvent, begin->Stack, named);
    }
    if (const auto* out = inEvent.As<ContextSwitchOutEvent>())
        SwitchOut(time, out->WaitReason);
    if (const auto* in = inEvent.As<ContextSwitchInEvent>())
        SwitchIn(inEvent, in->Stack, inMaxTime);
    if (const auto* ready = inEvent.As<ReadyThreadEvent>())
        ResolveStack(ready->Stack, inEvent.ProcessID, false, time);
    if (const auto* stack = inEvent.As<StackOnlyEvent>())
        ResolveStack(stack->Stack, inEvent.ProcessID, false, time);
    if (const auto* ended = inEvent.As<ThreadEndEvent>())
        end(ended->EndFlag);
    if (const auto* ended = inEvent.As<ThreadEndDisplayEvent>())
        end(ended->EndFlag);
    if (inEvent.GetType() == ETraceEventType::InstrumentationEnd)
        ZoneEnd(time, inMaxTime);
    if (const auto* out = inEvent.As<FiberSwitchOutEvent>())
        FiberOut(out->FiberID, time, inMaxTime);
    if (const auto* in = inEvent.As<FiberSwitchInEvent>())
        FiberIn(in->FiberID, time, inMaxTime);
}

void TwinProcessor::Running(const Profiler::TraceEvent& inEvent, uint64_t inStack, Span inSpan)
{
    if (State == sNotStarted)
        State = sExecuting;
    if (State != sExecuting)
        return;
    const size_t count = ResolveStack(inStack, inEvent.ProcessID, false, inEvent.TimeMs);
    if (count > 0)
        AddStack(count, inSpan);
}

void TwinProcessor::SwitchOut(double inTime, int inReason)
{
    if (State != sExecuting && State != sNotStarted && inReason != 22)
        return;
    ClipBars(inTime);
    State = inReason == 22 ? sFinished : gGetWaitState(inReason);
    mStateTime = inTime;
}

void TwinProcessor::SwitchIn(const Profiler::TraceEvent& inEvent, uint64_t inStack, double inMaxTime)
{
    if (State == sExecuting)
        return;
    const double t = inEvent.TimeMs;
    double w = mStateTime;
    int state = State;
    if (State == sNotStarted)
    {
        const auto start = mWorld.ThreadStartTimes.find(mThread);
        w = std::max(mWorld.SessionStartTime, start != mWorld.ThreadStartTimes.end() ? start->second : 0.0);
        state = 0;
    }
    if (w != t)
    {
        const size_t count = ResolveStack(inStack, inEvent.ProcessID, true, w);
        if (count > 0)
        {
            Span span{inEvent.ProcessID, state, w, t, inMaxTime, false, "", "", 0xFFFFFFFF};
            const int chunkOfW = GetChunk(w);
            const int chunkOfT = GetChunk(t);
            if (chunkOfW == chunkOfT)
                AddStack(count, span);
            else
            {
                volatile float product = static_cast<float>(chunkOfW) * mChunkLength;
                volatile float cut = product + mChunkLength;
                span.End = cut;
                AddStack(count, span);
                volatile float start = mChunkLength * static_cast<float>(chunkOfT);
                span.Start = start;
                span.End = t;
                AddStack(count, span);
            }
        }
        else if (const double waited = std::min(t, inMaxTime) - std::min(w, inMaxTime); waited > 0)
            mDeltas[static_cast<size_t>(state)] += waited;
    }
    mHasDeferred = true;
    State = sExecuting;
}

void TwinProcessor::ZoneEnd(double inTime, double inMaxTime)
{
    int deepest = -1;
    for (size_t i = 0; i < Bars.size(); ++i)
        if (gIsZone(Bars[i].FrameIndex))
            deepest = static_cast<int>(i);
    if (deepest < 0)
    {
        ClipBars(std::min(inTime, inMaxTime));
        return;
    }
    SettleBars(deepest, std::min(inTime, inMaxTime));
    Report(static_cast<size_t>(deepest), false);
}

void TwinProcessor::FiberOut(uint64_t inFiber, double inTime, double inMaxTime)
{
    if (Bars.empty())
    {
        ClearDeferred();
        return;
    }
    std::vector<size_t> zones;
    for (size_t i = 0; i < Bars.size(); ++i)
        if (gIsZone(Bars[i].FrameIndex))
            zones.push_back(i);
    SettleBars(zones.empty() ? -1 : static_cast<int>(zones.back()), std::min(inTime, inMaxTime));
    if (zones.empty())
        return;
    TwinSavedBars saved;
    for (size_t i = 0; i <= zones.back(); ++i)
        saved.push_back(
            {Bars[i].Context, Bars[i].LastAbsoluteAddress, Bars[i].ReturnAddress, Bars[i].FrameAddress, Bars[i].FrameIndex});
    mWorld.SaveFiber(inFiber, saved, inTime);
    Report(zones.front(), false);
}

void TwinProcessor::FiberIn(uint64_t inFiber, double inTime, double inMaxTime)
{
    const std::optional<TwinSavedBars> saved = mWorld.FindFiber(inFiber, inTime);
    if (!saved)
        return;
    const double s = std::min(inTime, inMaxTime);
    const double e = std::min(inTime + mWorld.SampleInterval, inMaxTime);
    ClipBars(s);
    const int chunk = GetChunk(inTime);
    const bool isNewChunk = chunk != mChunkIndex;

    size_t keep = 0;
    size_t m = 0;
    for (; keep < Bars.size(); ++keep)
    {
        const TwinBar& bar = Bars[keep];
        if (gIsZone(bar.FrameIndex))
            continue;
        if (m == saved->size())
            break;
        const TwinSavedBar& other = (*saved)[m];
        if (bar.FrameAddress != other.FrameAddress || bar.ReturnAddress != other.ReturnAddress ||
            (bar.FrameIndex & sMask) != (other.FrameIndex & sMask))
            break;
        ++m;
    }
    if (!Bars.empty() && (isNewChunk || keep < Bars.size()))
        Report(keep, isNewChunk);
    ExtendBars(keep, sExecuting, s, e);
    for (; m < saved->size(); ++m)
    {
        const TwinSavedBar& other = (*saved)[m];
        TwinBar bar;
        bar.State = sExecuting;
        bar.StateTimes[sExecuting] = e - s;
        bar.Start = s;
        bar.End = e;
        bar.ReturnAddress = other.ReturnAddress;
        bar.LastAbsoluteAddress = other.LastAbsoluteAddress;
        bar.FrameAddress = other.FrameAddress;
        bar.FrameIndex = other.FrameIndex;
        bar.Context = other.Context;
        Bars.push_back(bar);
    }
    ClearDeferred();
    if (isNewChunk)
    {
        mChunkIndex = chunk;
        mChunkTime = inTime;
    }
}

void TwinProcessor::Flush()
{
    if (!Bars.empty())
        Report(0, false);
}

// --- Bars ---

size_t TwinProcessor::ResolveStack(uint64_t inStack, int32_t inProcess, bool inRequireComplete, double inTime)
{
    const auto found = mWorld.Stacks.find(inStack);
    if (found == mWorld.Stacks.end() || found->second.empty())
        return 0;
    std::vector<uint64_t> list = found->second;
    if (IsInRange())
    {
        std::vector<uint64_t> spliced;
        for (const TwinBar& bar : Bars)
            if (!gIsZone(bar.FrameIndex) && spliced.size() < mKeptDepth)
                spliced.push_back(bar.LastAbsoluteAddress);
        spliced.push_back(sNothing);
        for (size_t i = 0; i < list.size(); ++i)
        {
            const bool isRepeated = i < mKeptDepth && i < spliced.size() && spliced[i] == list[i];
            if (!isRepeated)
                spliced.push_back(list[i]);
        }
        list = spliced;
    }
    const auto count = static_cast<size_t>(ResolveFrames(list, inProcess, mFrames, inTime));
    if (count < list.size() && inRequireComplete)
        return 0;
    return count;
}

uint64_t TwinProcessor::GetIdentity(size_t inFrame) const
{
    return mFrames[inFrame].Function != sNothing ? mFrames[inFrame].Function : mFrames[inFrame].RelativeAddress;
}

uint64_t TwinProcessor::GetParent(size_t inFrame) const
{
    return inFrame > 0 ? mFrames[inFrame - 1].RelativeAddress : sNothing;
}

bool TwinProcessor::Matches(const TwinBar& inBar, size_t inFrame) const
{
    return inBar.FrameAddress == GetIdentity(inFrame) && (inBar.FrameIndex & sMask) == (mFrames[inFrame].Index & sMask) &&
           inBar.ReturnAddress == GetParent(inFrame);
}

int TwinProcessor::GetChunk(double inTime) const
{
    return static_cast<int>(inTime / static_cast<double>(mChunkLength));
}

void TwinProcessor::Report(size_t inKeep, bool inIsChunkFinished)
{
    Reports.push_back({Bars, static_cast<int>(inKeep), mChunkIndex, mChunkTime, inIsChunkFinished});
    Bars.resize(inKeep);
}

void TwinProcessor::AddStack(size_t inCount, const Span& inSpan)
{
    const double s = std::min(inSpan.Start, inSpan.MaxTime);
    const double e = std::min(inSpan.End, inSpan.MaxTime);
    ClipBars(s);
    const int chunk = GetChunk(inSpan.Start);
    const bool isNewChunk = chunk != mChunkIndex;

    size_t m = 0;
    if (!Bars.empty())
    {
        size_t keep = 0;
        for (; keep < Bars.size(); ++keep)
        {
            TwinBar& bar = Bars[keep];
            if (gIsZone(bar.FrameIndex))
                continue;
            if (IsInRange() && gIsMissing(bar.FrameIndex))
            {
                ++m;
                continue;
            }
            if (m >= inCount || !Matches(bar, m))
                break;
            bar.LastAbsoluteAddress = mFrames[m].AbsoluteAddress;
            ++m;
        }
        if (isNewChunk || keep < Bars.size())
            Report(keep, isNewChunk);
        ExtendBars(keep, inSpan.State, s, e);
    }

    for (; m < inCount; ++m)
    {
        TwinBar bar;
        bar.State = inSpan.State;
        bar.StateTimes[static_cast<size_t>(inSpan.State)] = e - s;
        bar.Start = s;
        bar.End = e;
        bar.LastAbsoluteAddress = mFrames[m].AbsoluteAddress;
        bar.FrameAddress = GetIdentity(m);
        bar.FrameIndex = mFrames[m].Index;
        bar.ReturnAddress = GetParent(m);
        if (mFrames[m].AbsoluteAddress == sNothing && m == mKeptDepth && IsInRange())
        {
            bar.LastAbsoluteAddress = sNothing;
            bar.FrameAddress = sMissingAddress;
            bar.FrameIndex = sMissing;
            bar.ReturnAddress = sNothing;
        }
        Bars.push_back(bar);
    }

    const Frame& last = mFrames[inCount - 1];
    if (!inSpan.Name.empty())
        OpenZone(inCount, inSpan, s, e);
    else if (inSpan.CountHit && e - s > 0 && last.RelativeAddress != sNothing)
        ++Bars.back().Hits[last.RelativeAddress];

    ClearDeferred();
    if (isNewChunk)
    {
        mChunkIndex = chunk;
        mChunkTime = inSpan.Start;
    }
}

void TwinProcessor::OpenZone(size_t inCount, const Span& inSpan, double inStart, double inEnd)
{
    const Frame last = mFrames[inCount - 1];
    if (last.Kind == Frame::EModule::None || last.Function == sNothing)
        return;
    Frames one;
    ResolveFrames({last.AbsoluteAddress}, inSpan.Process, one, inSpan.Start);
    TwinBar bar;
    uint32_t index = one[0].Index;
    if (one[0].Kind != Frame::EModule::None && one[0].Function != sNothing && one[0].Function != sMissingAddress)
    {
        index |= sZoneBit;
        mWorld.Zones.try_emplace({one[0].RelativeAddress, index & sMask}, TwinWorld::Zone{inSpan.Name, inSpan.Color});
        bar.Context = inSpan.Context;
    }
    bar.State = inSpan.State;
    bar.StateTimes[static_cast<size_t>(inSpan.State)] = inEnd - inStart;
    bar.Start = inStart;
    bar.End = inEnd;
    bar.LastAbsoluteAddress = last.AbsoluteAddress;
    bar.FrameAddress = one[0].RelativeAddress;
    bar.FrameIndex = index;
    bar.ReturnAddress = one[0].RelativeAddress;
    Bars.push_back(bar);
}

void TwinProcessor::ClipBars(double inTime, size_t inFrom)
{
    for (size_t i = inFrom; i < Bars.size(); ++i)
    {
        const double old = Bars[i].End;
        Bars[i].End = std::min(old, inTime);
        Bars[i].StateTimes[static_cast<size_t>(Bars[i].State)] -= old - Bars[i].End;
    }
}

void TwinProcessor::ExtendBars(size_t inKeep, int inState, double inStart, double inEnd)
{
    for (size_t i = 0; i < inKeep; ++i)
    {
        TwinBar& bar = Bars[i];
        if (mHasDeferred)
        {
            double sum = 0;
            for (size_t state = 0; state < mDeltas.size(); ++state)
            {
                bar.StateTimes[state] += mDeltas[state];
                sum += mDeltas[state];
            }
            bar.StateTimes[sExecuting] += inStart - bar.End - sum;
            bar.End = inStart;
            bar.StateTimes[static_cast<size_t>(inState)] += inEnd - inStart;
            bar.End = inEnd;
        }
        else
        {
            bar.StateTimes[static_cast<size_t>(inState)] += inEnd - bar.End;
            bar.End = inEnd;
        }
        bar.State = inState;
    }
}

void TwinProcessor::SettleBars(int inLastKept, double inTime)
{
    for (int i = 0; i <= inLastKept; ++i)
    {
        TwinBar& bar = Bars[static_cast<size_t>(i)];
        double sum = 0;
        for (size_t state = 0; mHasDeferred && state < mDeltas.size(); ++state)
        {
            bar.StateTimes[state] += mDeltas[state];
            sum += mDeltas[state];
        }
        bar.StateTimes[sExecuting] += inTime - bar.End - sum;
        bar.End = inTime;
    }
    ClipBars(inTime, static_cast<size_t>(inLastKept) + 1);
    ClearDeferred();
}

void TwinProcessor::ClearDeferred()
{
    mDeltas.fill(0.0);
    mHasDeferred = false;
}

// --- Printing ---

std::string gPrintTwinBars(const TwinBars& inBars)
{
    std::ostringstream text;
    text.precision(17);
    for (const TwinBar& bar : inBars)
    {
        text << std::hex << bar.FrameAddress << "/" << bar.FrameIndex << " caller " << bar.ReturnAddress << " last "
             << bar.LastAbsoluteAddress << " " << bar.Start << ".." << bar.End << " state " << bar.State << " [";
        for (const double time : bar.StateTimes)
            text << " " << time;
        text << " ] context '" << bar.Context << "' hits";
        for (const auto& [address, count] : bar.Hits)
            text << " " << address << ":" << count;
        text << "\n";
    }
    return text.str();
}

std::string gPrintTwinReports(const std::vector<TwinReport>& inReports)
{
    std::ostringstream text;
    text.precision(17);
    for (const TwinReport& report : inReports)
        text << "keep " << report.KeepCount << " chunk " << report.ChunkIndex << " from " << report.ChunkTime
             << (report.IsChunkFinished ? " finished" : "") << "\n"
             << gPrintTwinBars(report.Bars);
    return text.str();
}
