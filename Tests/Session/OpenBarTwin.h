// A second, slow implementation of what OpenBarProcessor and the lookups below it do, for random tests to compare with.
//
// It shares the event records with the real one and nothing else: plain vectors, one bar a copy, no reuse of memory, and a step
// of the method is a step of the code. Threads: the test's. Ownership: a TwinWorld outlives its TwinProcessors.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

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

struct TwinInstance
{
    uint64_t Base = 0;
    double LoadTime = 0.0;
    double UnloadTime = 0.0;
    int32_t Process = 0;
    uint32_t Module = 0;
};

struct TwinRange
{
    double Start = -1.0;
    double End = -1.0;
    uint64_t Stack = 0;
};

struct TwinSavedBar
{
    std::string Context;
    uint64_t LastAbsoluteAddress = 0;
    uint64_t ReturnAddress = 0;
    uint64_t FrameAddress = 0;
    uint32_t FrameIndex = 0;

    bool operator==(const TwinSavedBar&) const = default;
};
using TwinSavedBars = std::vector<TwinSavedBar>;

struct TwinBar
{
    int State = 0;
    std::array<double, 8> StateTimes{};
    double Start = 0.0;
    double End = 0.0;
    uint64_t ReturnAddress = 0;
    uint64_t LastAbsoluteAddress = 0;
    uint64_t FrameAddress = 0;
    uint32_t FrameIndex = 0;
    std::string Context; // the text itself, empty for none
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
    std::vector<TwinInstance> Instances; // by Base
    std::optional<uint32_t> StopModule;
    std::vector<uint64_t> StopAddresses;
    std::map<int32_t, std::vector<TwinRange>> BrokenRanges; // by thread

    std::map<std::pair<uint64_t, uint32_t>, Zone> Zones; // by address and masked index

    void SaveFiber(uint64_t inFiber, const TwinSavedBars& inBars, double inTime);
    [[nodiscard]] std::optional<TwinSavedBars> FindFiber(uint64_t inFiber, double inTime) const;
    [[nodiscard]] size_t GetNumFiberStates() const { return mFiberStates.size(); }

private:
    std::vector<TwinSavedBars> mFiberStates;
    std::map<uint64_t, std::vector<std::pair<double, size_t>>> mFiberEvents;
};

class TwinProcessor
{
public:
    static constexpr int sExecuting = 1;
    static constexpr int sNotStarted = 9;
    static constexpr int sFinished = 10;

    TwinProcessor(TwinWorld& ioWorld, int32_t inThread, double inStartTime, float inChunkLength);

    void HandleEvent(const Profiler::TraceEvent& inEvent, double inMaxTime);
    void Flush();

    int State = sNotStarted;
    TwinBars Bars;
    std::vector<TwinReport> Reports;

private:
    struct Frame
    {
        enum class EModule
        {
            None, // never filled
            Unknown,
            Native,
        };
        EModule Kind = EModule::None;
        uint32_t Module = 0;
        uint64_t Function = 0xFFFFFFFFFFFFFFFF;
        uint64_t FunctionSize = 0;
        uint64_t RelativeAddress = 0xFFFFFFFFFFFFFFFF;
        uint32_t Index = 0;
        uint64_t AbsoluteAddress = 0xFFFFFFFFFFFFFFFF;
        uint64_t FunctionAbsoluteAddress = 0xFFFFFFFFFFFFFFFF;
    };
    using Frames = std::vector<Frame>;

    struct Span
    {
        int32_t Process;
        int State;
        double Start;
        double End;
        double MaxTime;
        bool CountHit;
        std::string Name;
        std::string Context;
        uint32_t Color;
    };

    // Lookups
    [[nodiscard]] const TwinInstance* FindInstance(uint64_t inAddress, int32_t inProcess, double inTime) const;
    [[nodiscard]] bool StopsAt(const Frame& inFrame) const;
    static void sFill(Frame& outFrame, uint32_t inModule, const TwinFunction* inFunction, uint64_t inAddress, uint64_t inBase);
    int ResolveRun(const std::vector<uint64_t>& inAddresses, Frames& ioFrames, size_t inBegin, size_t inEnd,
                   const TwinInstance& inInstance);
    int ResolveFrames(const std::vector<uint64_t>& inAddresses, int32_t inProcess, Frames& ioFrames, double inTime);

    // Broken ranges
    int StepTo(double inTime);
    void UpdateKeptDepth(int32_t inProcess);
    [[nodiscard]] bool IsInRange() const { return mBrokenStatus == 0 || mBrokenStatus == 1; }

    // Events
    void Running(const Profiler::TraceEvent& inEvent, uint64_t inStack, Span inSpan);
    void SwitchOut(double inTime, int inReason);
    void SwitchIn(const Profiler::TraceEvent& inEvent, uint64_t inStack, double inMaxTime);
    void ZoneEnd(double inTime, double inMaxTime);
    void FiberOut(uint64_t inFiber, double inTime, double inMaxTime);
    void FiberIn(uint64_t inFiber, double inTime, double inMaxTime);

    // Bars; ResolveStack and AddStack use mFrames
    size_t ResolveStack(uint64_t inStack, int32_t inProcess, bool inRequireComplete, double inTime);
    void AddStack(size_t inCount, const Span& inSpan);
    void OpenZone(size_t inCount, const Span& inSpan, double inStart, double inEnd);
    [[nodiscard]] bool Matches(const TwinBar& inBar, size_t inFrame) const;
    [[nodiscard]] uint64_t GetIdentity(size_t inFrame) const;
    [[nodiscard]] uint64_t GetParent(size_t inFrame) const;
    [[nodiscard]] int GetChunk(double inTime) const;
    void Report(size_t inKeep, bool inIsChunkFinished);
    void ClipBars(double inTime, size_t inFrom = 0);
    void ExtendBars(size_t inKeep, int inState, double inStart, double inEnd);
    void SettleBars(int inLastKept, double inTime);
    void ClearDeferred();

    TwinWorld& mWorld;
    int32_t mThread;
    float mChunkLength;
    std::vector<TwinRange> mRanges;
    size_t mRangePosition = 0;
    int mBrokenStatus = 3;
    TwinRange mRange;
    size_t mKeptDepth = 0;
    std::array<double, 8> mDeltas{};
    bool mHasDeferred = false;
    double mStateTime = 0.0;
    Frames mFrames;
    int mChunkIndex = -1;
    double mChunkTime = std::numeric_limits<double>::lowest();
};

// For the output of a test that failed.
[[nodiscard]] std::string gPrintTwinBars(const TwinBars& inBars);
[[nodiscard]] std::string gPrintTwinReports(const std::vector<TwinReport>& inReports);
