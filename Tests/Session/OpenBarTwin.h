// A second, slow implementation of what OpenBarProcessor and the lookups below it do, for random tests to compare with.
//
// It shares with the real one plain records, the reader of broken ranges and the states of wait reasons, which have tests of
// their own. All else is told anew: plain vectors, one bar a copy, no reuse of memory, and a step of the method is a step of the
// code. Threads: the test's. Ownership: a TwinWorld outlives its TwinProcessors.
#pragma once

#include "Session/Callstacks/BrokenStackReader.h"
#include "Session/Events/TraceEvent.h"
#include "Session/Modules/ModuleDatabase.h"
#include "Session/Processes/ThreadState.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Profiler
{

struct TwinFunction
{
    uint64_t Start = 0; // relative
    uint64_t Size = 0;
};

struct TwinModule
{
    int32_t ImageSize = -1;
    std::vector<TwinFunction> Known;    // by Start; grows as functions are found
    std::vector<TwinFunction> OnDemand; // by Start
};

// What a fiber saves of a bar.
struct TwinSavedBar
{
    uint64_t ReturnAddress = 0;
    uint64_t LastAbsoluteAddress = 0;
    uint64_t FrameAddress = 0;
    uint32_t FrameIndex = 0;
    std::string Context; // the text itself, empty for none

    bool operator==(const TwinSavedBar&) const = default;
};
using TwinSavedBars = std::vector<TwinSavedBar>;

struct TwinBar : TwinSavedBar
{
    int State = 0;
    std::array<double, 8> StateTimes{};
    double Start = 0.0;
    double End = 0.0;
    std::map<uint64_t, uint32_t> Hits;

    bool operator==(const TwinBar&) const = default;
};
using TwinBars = std::vector<TwinBar>;

struct TwinReport
{
    TwinBars Bars;
    int KeepCount = 0;
    int ChunkIndex = 0;
    double ChunkTime = 0.0;
    bool IsChunkFinished = false;

    bool operator==(const TwinReport&) const = default;
};

inline const TwinFunction* gFindTwinFunction(const std::vector<TwinFunction>& inFunctions, uint64_t inAddress,
                                             bool inUnsizedReachesToNext)
{
    const TwinFunction* found = nullptr;
    for (const TwinFunction& function : inFunctions)
        if (function.Start <= inAddress)
            found = &function;
    if (found != nullptr && inAddress >= found->Start + found->Size && (found->Size != 0 || !inUnsizedReachesToNext))
        return nullptr;
    return found;
}

// What the processors of a session have in common.
class TwinWorld
{
public:
    struct Zone
    {
        std::string Name;
        uint32_t Color = 0;
        bool operator==(const Zone&) const = default;
    };

    double SampleInterval = 1.0;
    double SessionStartTime = 0.0;
    std::map<int32_t, double> ThreadStartTimes;
    std::map<uint64_t, std::vector<uint64_t>> Stacks;
    std::vector<TwinModule> Modules;
    std::vector<NativeModuleInstance> Instances; // by ImageBase
    std::optional<uint32_t> StopModule;
    std::vector<uint64_t> StopAddresses;
    std::map<std::pair<uint64_t, uint32_t>, Zone> Zones; // by address and masked index

    // Walks over the one list of all processes.
    [[nodiscard]] const NativeModuleInstance* FindInstance(uint64_t inAddress, int32_t inProcess, double inTime) const
    {
        const NativeModuleInstance* later = nullptr;
        for (size_t i = Instances.size(); i-- > 0;)
        {
            const NativeModuleInstance& instance = Instances[i];
            if (instance.ImageBase > inAddress || instance.ProcessID != inProcess)
                continue;
            const int32_t imageSize = Modules[instance.NativeModuleIndex].ImageSize;
            if (imageSize != -1 && instance.ImageBase + static_cast<uint64_t>(imageSize) <= inAddress)
                break;
            if (instance.LoadTimeMs <= inTime && inTime <= instance.UnloadTimeMs)
                return &instance;
            if (instance.LoadTimeMs > inTime)
                later = &instance;
        }
        return later;
    }

    void SaveFiber(uint64_t inFiber, const TwinSavedBars& inBars, double inTime)
    {
        const auto index = static_cast<size_t>(std::ranges::find(mFiberStates, inBars) - mFiberStates.begin());
        if (index == mFiberStates.size())
            mFiberStates.push_back(inBars);
        mFiberEvents[inFiber].emplace_back(inTime, index);
    }

    [[nodiscard]] std::optional<TwinSavedBars> FindFiber(uint64_t inFiber, double inTime) const
    {
        const auto found = mFiberEvents.find(inFiber);
        if (found == mFiberEvents.end())
            return std::nullopt;
        // By halves: where times went back, the list isn't in order and a plain walk would find another entry.
        const auto& events = found->second;
        const auto after = std::ranges::upper_bound(events, inTime, {}, [](const auto& inEvent) { return inEvent.first; });
        if (after == events.begin())
            return std::nullopt;
        return mFiberStates[std::prev(after)->second];
    }

    [[nodiscard]] size_t GetNumFiberStates() const { return mFiberStates.size(); }

private:
    std::vector<TwinSavedBars> mFiberStates;
    std::map<uint64_t, std::vector<std::pair<double, size_t>>> mFiberEvents;
};

class TwinProcessor
{
public:
    TwinProcessor(TwinWorld& ioWorld, const BrokenStackHolder& inBrokenStacks, int32_t inThread, double inStartTime,
                  float inChunkLength)
        : mWorld(ioWorld),
          mThread(inThread),
          mChunkLength(inChunkLength),
          mBrokenStacks(inBrokenStacks, inThread, inStartTime)
    {
    }

    void HandleEvent(const TraceEvent& inEvent, double inMaxTime)
    {
        mBrokenStatus = mBrokenStacks.StepTo(mRange, inEvent.TimeMs);
        if (mBrokenStatus == EBrokenStackStep::RangeBegins)
            UpdateKeptDepth(inEvent.ProcessID);
        if (State == sFinished)
            return;
        if (inEvent.ThreadID != mThread)
            return;

        const double time = inEvent.TimeMs;
        Span span{inEvent.ProcessID, sExecuting, time, time + mWorld.SampleInterval, inMaxTime};
        const auto end = [this](int inFlag)
        {
            if (inFlag == 1 || inFlag == 2)
                State = sFinished;
        };
        if (const auto* sample = inEvent.As<SampleEvent>())
        {
            span.CountHit = true;
            Running(inEvent, sample->Stack, span);
        }
        const auto begin = [&](const auto* inBegin, uint32_t inColor)
        {
            if (inBegin == nullptr)
                return;
            Span named = span;
            named.Name = inBegin->Name;
            named.Context = inBegin->Context;
            named.Color = inColor;
            Running(inEvent, inBegin->Stack, named);
        };
        begin(inEvent.As<InstrumentationBeginEvent>(), 0xFFFFFFFF);
        if (const auto* colored = inEvent.As<InstrumentationBeginColoredEvent>())
            begin(colored, colored->Color);
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

    void Flush()
    {
        if (!Bars.empty())
            Report(0, false);
    }

    int State = sNotStarted;
    TwinBars Bars;
    std::vector<TwinReport> Reports;

private:
    static constexpr int sExecuting = 1;
    static constexpr int sNotStarted = 9;
    static constexpr int sFinished = 10;
    static constexpr uint64_t sNothing = 0xFFFFFFFFFFFFFFFF;
    static constexpr uint32_t sMask = 0x3FFFFFFF;
    static constexpr uint32_t sZoneBit = 0x2000000;
    static constexpr uint32_t sUnknownModule = 0x8000000;
    static constexpr uint32_t sMissing = 0xC000000;
    static constexpr uint64_t sMissingAddress = 0xFFFFFFFFFFFFFFFE;

    enum class EModule
    {
        None, // never filled
        Unknown,
        Native,
    };

    struct Frame
    {
        EModule Kind = EModule::None;
        uint32_t Module = 0;
        uint64_t Function = sNothing;
        uint64_t FunctionSize = 0;
        uint64_t RelativeAddress = sNothing;
        uint32_t Index = 0;
        uint64_t AbsoluteAddress = sNothing;
        uint64_t FunctionAbsoluteAddress = sNothing;
    };
    using Frames = std::vector<Frame>;

    struct Span
    {
        int32_t Process;
        int State;
        double Start;
        double End;
        double MaxTime;
        bool CountHit = false;
        std::string Name = {};
        std::string Context = {};
        uint32_t Color = 0xFFFFFFFF;
    };

    static bool sIsMissing(uint32_t inIndex) { return (inIndex & 0x3C000000) == sMissing; }
    static bool sIsZone(uint32_t inIndex) { return !sIsMissing(inIndex) && (inIndex & sZoneBit) != 0; }

    // --- Lookups ---

    bool StopsAt(const Frame& inFrame) const
    {
        if (!mWorld.StopModule || inFrame.Kind != EModule::Native || inFrame.Module != *mWorld.StopModule)
            return false;
        const uint64_t address = inFrame.Function != sNothing ? inFrame.Function : inFrame.RelativeAddress;
        return std::ranges::count(mWorld.StopAddresses, address) != 0;
    }

    static void sFill(Frame& outFrame, uint32_t inModule, const TwinFunction* inFunction, uint64_t inAddress, uint64_t inBase)
    {
        outFrame = {EModule::Native, inModule, sNothing, 0, inAddress - inBase, inModule, inAddress, sNothing};
        if (inFunction == nullptr)
            return;
        outFrame.Function = inFunction->Start;
        outFrame.FunctionSize = inFunction->Size;
        outFrame.FunctionAbsoluteAddress = inFunction->Start + inBase;
    }

    int ResolveRun(const std::vector<uint64_t>& inAddresses, Frames& ioFrames, size_t inBegin, size_t inEnd,
                   const NativeModuleInstance& inInstance)
    {
        TwinModule& module = mWorld.Modules[inInstance.NativeModuleIndex];
        std::vector<size_t> misses;
        int stop = -1;
        for (size_t i = inBegin; i < inEnd && stop < 0; ++i)
        {
            Frame& frame = ioFrames[i];
            const uint64_t address = inAddresses[i];
            const uint64_t functionStart = frame.FunctionAbsoluteAddress;
            if (frame.Kind != EModule::None && frame.AbsoluteAddress == address)
                frame.RelativeAddress = address - inInstance.ImageBase;
            else if (functionStart != sNothing && functionStart <= address && address - functionStart < frame.FunctionSize)
            {
                frame.RelativeAddress = address - inInstance.ImageBase;
                frame.AbsoluteAddress = address;
            }
            else
            {
                const TwinFunction* known = gFindTwinFunction(module.Known, address - inInstance.ImageBase, false);
                sFill(frame, inInstance.NativeModuleIndex, known, address, inInstance.ImageBase);
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
        for (const size_t i : misses)
        {
            if (i >= end)
                break;
            Frame& frame = ioFrames[i];
            const uint64_t relative = frame.AbsoluteAddress - inInstance.ImageBase;
            const TwinFunction* symbol = gFindTwinFunction(module.OnDemand, relative, true);
            if (symbol != nullptr)
            {
                const TwinFunction function{symbol->Start, std::max(symbol->Size, relative - symbol->Start + 1)};
                sFill(frame, inInstance.NativeModuleIndex, &function, frame.AbsoluteAddress, inInstance.ImageBase);
                const auto same = std::ranges::find(module.Known, function.Start, &TwinFunction::Start);
                if (same != module.Known.end())
                    same->Size = std::max(same->Size, function.Size);
                else
                    module.Known.push_back(function);
            }
            else
                sFill(frame, inInstance.NativeModuleIndex, nullptr, frame.AbsoluteAddress, inInstance.ImageBase);
            if (StopsAt(frame))
            {
                stop = static_cast<int>(i);
                break;
            }
        }
        std::ranges::sort(module.Known, {}, &TwinFunction::Start);
        return stop;
    }

    int ResolveFrames(const std::vector<uint64_t>& inAddresses, int32_t inProcess, Frames& ioFrames, double inTime)
    {
        ioFrames.resize(inAddresses.size());
        size_t i = 0;
        while (i < inAddresses.size())
        {
            const NativeModuleInstance* instance = mWorld.FindInstance(inAddresses[i], inProcess, inTime);
            if (instance == nullptr)
            {
                const uint64_t address = inAddresses[i];
                ioFrames[i++] = {
                    .Kind = EModule::Unknown, .RelativeAddress = address, .Index = sUnknownModule, .AbsoluteAddress = address};
                continue;
            }
            const int32_t imageSize = mWorld.Modules[instance->NativeModuleIndex].ImageSize;
            size_t end = i + 1;
            while (imageSize != -1 && end < inAddresses.size() && inAddresses[end] >= instance->ImageBase &&
                   inAddresses[end] < instance->ImageBase + static_cast<uint64_t>(imageSize))
                ++end;
            const int stop = ResolveRun(inAddresses, ioFrames, i, end, *instance);
            if (stop >= 0)
                return stop;
            i = end;
        }
        return static_cast<int>(inAddresses.size());
    }

    // --- Broken ranges ---

    [[nodiscard]] bool IsInRange() const { return mBrokenStatus <= EBrokenStackStep::Inside; }

    void UpdateKeptDepth(int32_t inProcess)
    {
        mKeptDepth = 0;
        const auto stack = mWorld.Stacks.find(mRange.Stack);
        if (stack == mWorld.Stacks.end())
            return;
        const int count = ResolveFrames(stack->second, inProcess, mFrames, mRange.End);
        for (const TwinBar& bar : Bars)
        {
            if (sIsZone(bar.FrameIndex))
                continue;
            if (mKeptDepth == static_cast<size_t>(count) || !Matches(bar, mKeptDepth))
                break;
            ++mKeptDepth;
        }
    }

    // --- Events ---

    void Running(const TraceEvent& inEvent, uint64_t inStack, Span inSpan)
    {
        if (State == sNotStarted)
            State = sExecuting;
        if (State != sExecuting)
            return;
        const size_t count = ResolveStack(inStack, inEvent.ProcessID, false, inEvent.TimeMs);
        if (count > 0)
            AddStack(count, inSpan);
    }

    void SwitchOut(double inTime, uint8_t inReason)
    {
        if (State != sExecuting && State != sNotStarted && inReason != 22)
            return;
        ClipBars(inTime);
        State = inReason == 22 ? sFinished : static_cast<int>(WaitReasonToState(inReason));
        mStateTime = inTime;
    }

    void SwitchIn(const TraceEvent& inEvent, uint64_t inStack, double inMaxTime)
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
                Span span{inEvent.ProcessID, state, w, t, inMaxTime};
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

    void ZoneEnd(double inTime, double inMaxTime)
    {
        int deepest = -1;
        for (size_t i = 0; i < Bars.size(); ++i)
            if (sIsZone(Bars[i].FrameIndex))
                deepest = static_cast<int>(i);
        if (deepest < 0)
        {
            ClipBars(std::min(inTime, inMaxTime));
            return;
        }
        SettleBars(deepest, std::min(inTime, inMaxTime));
        Report(static_cast<size_t>(deepest), false);
    }

    void FiberOut(uint64_t inFiber, double inTime, double inMaxTime)
    {
        if (Bars.empty())
        {
            ClearDeferred();
            return;
        }
        std::vector<int> zones;
        for (size_t i = 0; i < Bars.size(); ++i)
            if (sIsZone(Bars[i].FrameIndex))
                zones.push_back(static_cast<int>(i));
        SettleBars(zones.empty() ? -1 : zones.back(), std::min(inTime, inMaxTime));
        if (zones.empty())
            return;
        const TwinSavedBars saved(Bars.begin(), Bars.begin() + zones.back() + 1);
        mWorld.SaveFiber(inFiber, saved, inTime);
        Report(static_cast<size_t>(zones.front()), false);
    }

    void FiberIn(uint64_t inFiber, double inTime, double inMaxTime)
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
            if (sIsZone(bar.FrameIndex))
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
            static_cast<TwinSavedBar&>(OpenBar(sExecuting, s, e)) = (*saved)[m];
        ClearDeferred();
        if (isNewChunk)
        {
            mChunkIndex = chunk;
            mChunkTime = inTime;
        }
    }

    // --- Bars ---

    size_t ResolveStack(uint64_t inStack, int32_t inProcess, bool inRequireComplete, double inTime)
    {
        const auto found = mWorld.Stacks.find(inStack);
        if (found == mWorld.Stacks.end() || found->second.empty())
            return 0;
        std::vector<uint64_t> list = found->second;
        if (IsInRange())
        {
            std::vector<uint64_t> spliced;
            for (const TwinBar& bar : Bars)
                if (!sIsZone(bar.FrameIndex) && spliced.size() < mKeptDepth)
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

    uint64_t GetIdentity(size_t inFrame) const
    {
        return mFrames[inFrame].Function != sNothing ? mFrames[inFrame].Function : mFrames[inFrame].RelativeAddress;
    }

    uint64_t GetParent(size_t inFrame) const { return inFrame > 0 ? mFrames[inFrame - 1].RelativeAddress : sNothing; }

    bool Matches(const TwinBar& inBar, size_t inFrame) const
    {
        return inBar.FrameAddress == GetIdentity(inFrame) && (inBar.FrameIndex & sMask) == (mFrames[inFrame].Index & sMask) &&
               inBar.ReturnAddress == GetParent(inFrame);
    }

    int GetChunk(double inTime) const { return static_cast<int>(inTime / static_cast<double>(mChunkLength)); }

    void Report(size_t inKeep, bool inIsChunkFinished)
    {
        Reports.push_back({Bars, static_cast<int>(inKeep), mChunkIndex, mChunkTime, inIsChunkFinished});
        Bars.resize(inKeep);
    }

    void AddStack(size_t inCount, const Span& inSpan)
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
                if (sIsZone(bar.FrameIndex))
                    continue;
                if (IsInRange() && sIsMissing(bar.FrameIndex))
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
            TwinBar& bar = OpenBar(inSpan.State, s, e);
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

    void OpenZone(size_t inCount, const Span& inSpan, double inStart, double inEnd)
    {
        const Frame last = mFrames[inCount - 1];
        if (last.Kind == EModule::None || last.Function == sNothing)
            return;
        Frames one;
        ResolveFrames({last.AbsoluteAddress}, inSpan.Process, one, inSpan.Start);
        TwinBar& bar = OpenBar(inSpan.State, inStart, inEnd);
        uint32_t index = one[0].Index;
        if (one[0].Kind != EModule::None && one[0].Function != sNothing && one[0].Function != sMissingAddress)
        {
            index |= sZoneBit;
            mWorld.Zones.try_emplace({one[0].RelativeAddress, index & sMask}, TwinWorld::Zone{inSpan.Name, inSpan.Color});
            bar.Context = inSpan.Context;
        }
        bar.LastAbsoluteAddress = last.AbsoluteAddress;
        bar.FrameAddress = one[0].RelativeAddress;
        bar.FrameIndex = index;
        bar.ReturnAddress = one[0].RelativeAddress;
    }

    TwinBar& OpenBar(int inState, double inStart, double inEnd)
    {
        TwinBar& bar = Bars.emplace_back();
        bar.State = inState;
        bar.StateTimes[static_cast<size_t>(inState)] = inEnd - inStart;
        bar.Start = inStart;
        bar.End = inEnd;
        return bar;
    }

    void ClipBars(double inTime, size_t inFrom = 0)
    {
        for (size_t i = inFrom; i < Bars.size(); ++i)
        {
            const double old = Bars[i].End;
            Bars[i].End = std::min(old, inTime);
            Bars[i].StateTimes[static_cast<size_t>(Bars[i].State)] -= old - Bars[i].End;
        }
    }

    // Without waits to place all of the gap is running.
    void Spread(TwinBar& ioBar, double inEnd) const
    {
        double sum = 0;
        for (size_t state = 0; state < mDeltas.size(); ++state)
        {
            ioBar.StateTimes[state] += mDeltas[state];
            sum += mDeltas[state];
        }
        ioBar.StateTimes[sExecuting] += inEnd - ioBar.End - sum;
        ioBar.End = inEnd;
    }

    void ExtendBars(size_t inKeep, int inState, double inStart, double inEnd)
    {
        for (size_t i = 0; i < inKeep; ++i)
        {
            TwinBar& bar = Bars[i];
            if (mHasDeferred)
                Spread(bar, inStart);
            bar.StateTimes[static_cast<size_t>(inState)] += inEnd - bar.End;
            bar.End = inEnd;
            bar.State = inState;
        }
    }

    void SettleBars(int inLastKept, double inTime)
    {
        for (int i = 0; i <= inLastKept; ++i)
            Spread(Bars[static_cast<size_t>(i)], inTime);
        ClipBars(inTime, static_cast<size_t>(inLastKept) + 1);
        ClearDeferred();
    }

    void ClearDeferred()
    {
        mDeltas.fill(0.0);
        mHasDeferred = false;
    }

    TwinWorld& mWorld;
    int32_t mThread;
    float mChunkLength;
    BrokenStackReader mBrokenStacks;
    EBrokenStackStep mBrokenStatus = EBrokenStackStep::Outside;
    BrokenRange mRange;
    size_t mKeptDepth = 0;
    std::array<double, 8> mDeltas{};
    bool mHasDeferred = false;
    double mStateTime = 0.0;
    Frames mFrames;
    int mChunkIndex = -1;
    double mChunkTime = std::numeric_limits<double>::lowest();
};

// For the output of a test that failed.
inline std::string gPrintTwinReports(const std::vector<TwinReport>& inReports)
{
    std::ostringstream text;
    text.precision(17);
    for (const TwinReport& report : inReports)
    {
        text << std::dec << "keep " << report.KeepCount << " chunk " << report.ChunkIndex << " from " << report.ChunkTime
             << (report.IsChunkFinished ? " finished" : "") << std::hex << "\n";
        for (const TwinBar& bar : report.Bars)
        {
            text << bar.FrameAddress << "/" << bar.FrameIndex << " caller " << bar.ReturnAddress << " last "
                 << bar.LastAbsoluteAddress << " " << bar.Start << ".." << bar.End << " state " << bar.State << " [";
            for (const double time : bar.StateTimes)
                text << " " << time;
            text << " ] context '" << bar.Context << "' hits";
            for (const auto& [address, count] : bar.Hits)
                text << " " << address << ":" << count;
            text << "\n";
        }
    }
    return text.str();
}

} // namespace Profiler
