#include "TimelineTwin.h"

#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "Utility/Format.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstring>
#include <fstream>
#include <future>
#include <limits>
#include <map>
#include <optional>
#include <set>

namespace Profiler
{
namespace
{

using Lines = std::vector<std::string>;
using FunctionKey = std::pair<uint64_t, uint32_t>; // address, and the bits of the index that count

constexpr size_t sNumLevels = 9;
constexpr std::array<float, sNumLevels> sThresholds = {0.0F, 0.0316F, 0.1F, 0.316F, 1.0F, 3.16F, 10.0F, 100.0F, 1000.0F};
constexpr float sFinestLength = 500.0F;

constexpr int32_t sMaxIndex = std::numeric_limits<int32_t>::max();
constexpr double sLargest = std::numeric_limits<double>::max();
constexpr uint32_t sNone32 = 0xFFFFFFFF;
constexpr uint64_t sNone64 = 0xFFFFFFFFFFFFFFFF;
constexpr uint32_t sIndexBits = 0x3FFFFFFF;
constexpr uint32_t sBegunBefore = 0x40000000;
constexpr uint32_t sGoesOn = 0x80000000;

float gLengthOfLevel(size_t inLevel)
{
    return inLevel == 0 ? sFinestLength : sThresholds[inLevel] * 5000.0F + 500.0F;
}

// The nearest index for a time that has none.
int32_t gChunkOf(float inLength, double inTime)
{
    return static_cast<int32_t>(std::clamp(inTime / static_cast<double>(inLength), -sMaxIndex - 1.0, double{sMaxIndex}));
}

double gStartOf(float inLength, int32_t inChunk)
{
    return static_cast<double>(inLength) * inChunk;
}

double gEndOf(float inLength, int32_t inChunk)
{
    return inChunk * static_cast<double>(inLength) + static_cast<double>(inLength);
}

bool gIsPlaceable(double inTime)
{
    return std::fabs(inTime / static_cast<double>(sFinestLength)) < double{sMaxIndex};
}

// --- What the twin makes, and the model is read into ---

struct TwinBars
{
    std::vector<std::vector<Bar>> Rows;
    std::map<std::pair<size_t, size_t>, uint64_t> Contexts; // by depth and place in the row
    std::vector<BarBoundary> Boundaries;
    std::map<FunctionKey, std::string> Functions; // of the finest level: depth and place of each bar
};

// Entries as they are printed, since nobody changes them any more.
struct TwinStates
{
    Lines Entries;
    bool ContinuesFromPrevious = false;
    double LastEntryEndTime = -1.0;
};

struct TwinSpan
{
    ThreadState State;
    double Start;
    double End;
    uint32_t ReadyIndex = sNone32;
    CallstackKey Stack = sNone64;
};

struct TwinBucket
{
    double Start = 0.0;
    double End = 0.0;
    std::array<float, 8> Shares{};
};

struct TwinMerge
{
    double MergedEnd = 0.0;
    double MergedStart = sLargest;
};

// A thread at one level.
struct TwinLevel
{
    std::map<int32_t, TwinBars> Bars;
    std::vector<TwinMerge> Merges;
    int32_t FirstOpenBars = -sMaxIndex; // those before were handed over

    std::map<int32_t, TwinStates> States; // the last one is being filled
    std::optional<TwinBucket> Bucket;
    double LastEnd = 0.0;
};

struct TwinThread
{
    std::array<TwinLevel, sNumLevels> Levels;
    std::optional<ThreadData> Data;
    bool IsKnown = false; // to the session

    // Bars
    std::unique_ptr<OpenBarProcessor> Processor; // gone with the thread's end
    Utility::SignalRegistration Connection;
    bool HasEvents = false;
    bool IsSampled = false;
    std::optional<int32_t> BarChunk;
    std::map<FunctionKey, std::set<std::pair<int32_t, int32_t>>> Functions; // pairs of first chunk and negative last chunk

    // The lane
    ThreadState State = ThreadState::NotStarted;
    double StateTime = -1.0;
    std::optional<double> LastStart; // of the last span that had a place
    bool HasSpans = false;           // also such as had none
    uint32_t ReadyIndex = sNone32;
    ReadyRecord Record;

    ThreadData& GetData() { return Data ? *Data : Data.emplace(); }
};

struct TwinReady
{
    bool IsFiled = false;
    bool IsInOrder = false; // filed ahead of the end of the pass, where the order is free
    uint32_t ID = sNone32;
    ReadyRecord Record;
};

// --- Printing ---

void gAppend(std::string& ioText, std::string_view inText)
{
    ioText += inText;
}

void gAppend(std::string& ioText, double inNumber)
{
    ioText += Utility::gFormat("%.17g", inNumber);
}

// Whole numbers without a sign are addresses, keys and flags.
template <std::integral T>
void gAppend(std::string& ioText, T inNumber)
{
    ioText += Utility::gFormat(std::signed_integral<T> ? "%lld" : "0x%llX", static_cast<long long>(inNumber));
}

// Each with a space ahead.
template <class T>
void gAppend(std::string& ioText, std::span<T> inNumbers)
{
    for (const T number : inNumbers)
        gAppend(ioText += " ", +number); // bytes as numbers
}

template <class... Parts>
std::string gText(const Parts&... inParts)
{
    std::string text;
    (gAppend(text, inParts), ...);
    return text;
}

std::string gPrint(const Bar& inBar)
{
    return gText(inBar.Start, "..", inBar.End, " address ", inBar.Address, " index ", inBar.ResolveIndex.Index, " parent ",
                 static_cast<int32_t>(inBar.ParentIndex));
}

Lines gPrint(const TwinBars& inBars)
{
    Lines lines;
    for (int depth = 0; const std::vector<Bar>& row : inBars.Rows)
    {
        for (int i = 0; const Bar& bar : row)
        {
            const auto context = inBars.Contexts.find({depth, i});
            lines.push_back(gText("row ", depth, " bar ", i++, ": ", gPrint(bar)));
            if (context != inBars.Contexts.end())
                lines.back() += gText(" context ", context->second);
        }
        ++depth;
    }
    for (const BarBoundary& row : inBars.Boundaries)
        lines.push_back(gText("boundary ", gPrint(row.First), " to ", gPrint(row.Last), " of ", row.BarCount));
    for (const auto& [function, bars] : inBars.Functions)
        lines.push_back(gText("function ", function.first, " of ", function.second, ":", bars));
    return lines;
}

std::string gPrint(const SingleStateEntry& inEntry)
{
    return gText(inEntry.Start, "..", inEntry.End, " state ", static_cast<int>(inEntry.State), " of ", inEntry.RealStart, "..",
                 inEntry.RealEnd, " stack ", inEntry.Stack, " ready ", inEntry.ReadyIndex, " zero ", inEntry.Zero[0],
                 inEntry.Zero[1], inEntry.Zero[2]);
}

// inStates: those of the shares, and the bytes behind them, which are zero.
std::string gPrint(const OverviewEntry& inSpan, std::span<const float> inShares, std::span<const uint8_t> inStates)
{
    return gText(inSpan.Start, "..", inSpan.End, " shares", inShares, " states", inStates);
}

std::string gPrint(const OverviewChunk::EntryReference& inEntry)
{
    const auto type = static_cast<size_t>(inEntry.Type);
    if (inEntry.Type == EOverviewEntryType::SingleState)
        return gPrint(inEntry.As<SingleStateEntry>());
    const size_t numShares = inEntry.Type == EOverviewEntryType::AllStates ? 8 : type + 1;
    const auto* shares = reinterpret_cast<const float*>(inEntry.Entry + 1);
    const auto* states = reinterpret_cast<const uint8_t*>(shares + numShares);
    const size_t numBytes = (inEntry.Type == EOverviewEntryType::AllStates ? 32 : 16) - numShares * sizeof(float);
    return gPrint(*inEntry.Entry, {shares, numShares}, {states, numBytes});
}

std::string gPrint(const TwinBucket& inBucket)
{
    const OverviewEntry span = {inBucket.Start, inBucket.End};
    std::vector<float> shares;
    std::vector<uint8_t> states;
    for (uint8_t state = 0; state < 8; ++state)
    {
        if (inBucket.Shares[state] == 0.0F)
            continue;
        shares.push_back(inBucket.Shares[state]);
        states.push_back(state);
    }
    if (states.size() == 1)
        return gPrint(SingleStateEntry{span, sNone64, span.Start, span.End, sNone32, static_cast<ThreadState>(states[0]), {}});
    if (states.size() != 2 && states.size() != 3)
        return gPrint(span, inBucket.Shares, {});
    states.resize(states.size() == 2 ? 8 : 4);
    return gPrint(span, shares, states);
}

Lines gPrint(const TwinStates& inStates)
{
    Lines lines = inStates.Entries;
    lines.push_back(gText("continues ", int{inStates.ContinuesFromPrevious}, " last end ", inStates.LastEntryEndTime));
    return lines;
}

std::string gPrint(const ReadyRecord& inRecord)
{
    return gText(inRecord.ReadyTime, " wait ", inRecord.WaitStart, "..", inRecord.WaitEnd, " in ", inRecord.WaitState, " stacks ",
                 inRecord.SwitchInStack, " ", inRecord.ReadyStack, " threads ", inRecord.ReadiedThreadID, " by ",
                 inRecord.ReadyingThreadID);
}

std::string gPrint(const ThreadData& inData)
{
    return gText("depth ", inData.MaxStackDepth, " total ", inData.TotalTime, " by state",
                 std::span<const double>(inData.StateTimes));
}

// --- Bars of a coarser level ---

// Takes one source chunk.
class TwinMerger
{
public:
    TwinMerger(TwinLevel& ioLevel, size_t inLevel, const TwinBars& inSource)
        : mLevel(ioLevel),
          mSource(inSource),
          mLength(gLengthOfLevel(inLevel)),
          mMinLength(static_cast<double>(50.0F * sThresholds[inLevel])),
          mMaxGap(static_cast<double>(1.0F * sThresholds[inLevel])),
          mCursors(inSource.Rows.size())
    {
    }

    // Gives how many parts of bars had no place: in chunks that were handed over or that the roots don't reach, in those beyond
    // a million, or with no bar above them.
    uint64_t Run()
    {
        const std::vector<Bar>& roots = mSource.Rows[0];
        const int32_t last = std::min(gChunkOf(mLength, roots.back().End), sMaxIndex - 1);
        mLevel.Merges.resize(mSource.Rows.size());
        mFirst = std::max(gChunkOf(mLength, roots.front().Start), mLevel.FirstOpenBars);
        mLast = std::min<int64_t>(last, mFirst + 999'999);
        for (; mCursors[0] < roots.size(); ++mCursors[0])
            MergeBar(0);
        mLevel.FirstOpenBars = std::max(mLevel.FirstOpenBars, last);
        return mNumLeftOut;
    }

private:
    struct Part
    {
        uint64_t Address;
        uint32_t Index;
        uint64_t Context;
    };

    void MergeBar(size_t inDepth)
    {
        const Bar& bar = mSource.Rows[inDepth][mCursors[inDepth]];
        const auto context = mSource.Contexts.find({inDepth, mCursors[inDepth]});
        const bool hasContext = bar.ResolveIndex.IsInstrumented() && context != mSource.Contexts.end();
        const Part own = {bar.Address, bar.ResolveIndex.Index, hasContext ? context->second : sNone64};
        const int32_t first = gChunkOf(mLength, bar.Start);
        const int32_t last = gChunkOf(mLength, bar.End);
        const double end = first == last ? bar.End : gEndOf(mLength, first);
        std::optional<TwinMerge> undo;
        Part tail = own;
        if (first <= last && HasPlace(first, inDepth))
            undo = Place(mLevel.Bars[first], inDepth, bar, gStartOf(mLength, first), end, tail);
        if (first < last)
            PlaceRest(inDepth, bar, int64_t{first} + 1, last, tail);

        const size_t below = inDepth + 1;
        while (below < mSource.Rows.size() && mCursors[below] < mSource.Rows[below].size() &&
               mSource.Rows[below][mCursors[below]].ParentIndex == mCursors[inDepth])
        {
            MergeBar(below);
            ++mCursors[below];
        }

        if (undo)
        {
            mLevel.Bars[first].Rows[inDepth].back().End = undo->MergedEnd;
            AddBar(mLevel.Bars[first], inDepth, own, 0, undo->MergedStart, end);
        }
    }

    // Chunks come to be when a bar touches them.
    bool HasPlace(int64_t inChunk, size_t inDepth)
    {
        const bool hasPlace =
            inChunk >= mFirst && inChunk <= mLast && mLevel.Bars[static_cast<int32_t>(inChunk)].Rows.size() >= inDepth;
        mNumLeftOut += hasPlace ? 0 : 1;
        return hasPlace;
    }

    std::optional<TwinMerge> Place(TwinBars& ioChunk, size_t inDepth, const Bar& inBar, double inChunkStart, double inEnd,
                                   Part& ioTail)
    {
        Bar* previous = inDepth < ioChunk.Rows.size() ? &ioChunk.Rows[inDepth].back() : nullptr;
        bool merges = false;
        bool isContinued = false;
        if (previous != nullptr)
        {
            const bool isLong = inBar.End - inBar.Start > mMinLength;
            const bool isPreviousLong = previous->End - previous->Start > mMinLength && previous->Address != sNone64;
            const bool isClose = mMaxGap > inBar.Start - previous->End;
            const bool isSameParent = GetParent(ioChunk, inDepth) == previous->ParentIndex;
            const bool isOpen = (previous->ResolveIndex.Index & sBegunBefore) == 0 || previous->Address == sNone64;
            merges = isOpen && isClose && isSameParent && !isPreviousLong && !isLong;
            isContinued = (inBar.ResolveIndex.Index & sBegunBefore) != 0;
        }

        TwinMerge& merge = mLevel.Merges[inDepth];
        if (!merges && !isContinued)
        {
            AddBar(ioChunk, inDepth, ioTail, inBar.ResolveIndex.Index & ~sIndexBits, inBar.Start, inEnd);
            return std::nullopt;
        }
        if (merges && !isContinued)
        {
            previous->Address = sNone64;
            if ((previous->ResolveIndex.Index & 0x3C000000) == 0x0C000000)
                previous->ResolveIndex.Index &= 0xC8000000;
            merge = {previous->End, inBar.Start};
        }
        else if (merge.MergedStart != sLargest && merge.MergedStart >= inChunkStart && inEnd - merge.MergedStart >= mMinLength)
            return std::exchange(merge, {});
        previous->End = inEnd;
        ioTail.Address = previous->Address;
        ioTail.Index = previous->ResolveIndex.Index;
        return std::nullopt;
    }

    void PlaceRest(size_t inDepth, const Bar& inBar, int64_t inFirst, int64_t inLast, const Part& inTail)
    {
        const int64_t first = std::max(inFirst, mFirst);
        const int64_t last = std::min(inLast, mLast);
        mNumLeftOut += first != inFirst || last != inLast ? 1 : 0;
        for (int64_t index = first; index <= last; ++index)
        {
            const auto chunk = static_cast<int32_t>(index);
            if (HasPlace(chunk, inDepth))
                AddBar(mLevel.Bars[chunk], inDepth, inTail, sBegunBefore, gStartOf(mLength, chunk),
                       index == inLast ? inBar.End : gEndOf(mLength, chunk));
        }
    }

    void AddBar(TwinBars& ioChunk, size_t inDepth, const Part& inPart, uint32_t inCarry, double inStart, double inEnd)
    {
        const uint32_t parent = GetParent(ioChunk, inDepth);
        ioChunk.Rows.resize(std::max(ioChunk.Rows.size(), inDepth + 1));
        std::vector<Bar>& row = ioChunk.Rows[inDepth];
        if (inPart.Context != sNone64)
            ioChunk.Contexts[{inDepth, row.size()}] = inPart.Context;
        row.push_back({inStart, inEnd, inPart.Address, parent, {(inPart.Index & sIndexBits) | inCarry}});
        mLevel.Merges[inDepth] = {};
    }

    static uint32_t GetParent(const TwinBars& inChunk, size_t inDepth)
    {
        return inDepth == 0 ? sNone32 : static_cast<uint32_t>(inChunk.Rows[inDepth - 1].size() - 1);
    }

    TwinLevel& mLevel;
    const TwinBars& mSource;
    const float mLength;
    const double mMinLength;
    const double mMaxGap;
    std::vector<size_t> mCursors;
    int64_t mFirst = 0;
    int64_t mLast = 0;
    uint64_t mNumLeftOut = 0;
};

// --- States ---

void gAddEntry(TwinStates& ioStates, const TwinSpan& inSpan, double inStart, double inEnd)
{
    ioStates.Entries.push_back(
        gPrint(SingleStateEntry{{inStart, inEnd}, inSpan.Stack, inSpan.Start, inSpan.End, inSpan.ReadyIndex, inSpan.State, {}}));
}

void gEmitBucket(TwinLevel& ioLevel)
{
    if (ioLevel.Bucket)
        ioLevel.States.rbegin()->second.Entries.push_back(gPrint(*ioLevel.Bucket));
    ioLevel.Bucket.reset();
}

void gAddToBuckets(TwinLevel& ioLevel, double inWidth, const TwinSpan& inSpan, bool inIsSplit, double inStart, double inEnd)
{
    const auto state = static_cast<size_t>(inSpan.State);
    const double first = std::floor(inStart / inWidth) * inWidth;
    const double last = std::floor(inEnd / inWidth) * inWidth;
    if (ioLevel.Bucket && first >= ioLevel.Bucket->End)
        gEmitBucket(ioLevel);
    if (!ioLevel.Bucket)
        ioLevel.Bucket = TwinBucket{first, first + inWidth};
    if (first == last)
    {
        ioLevel.Bucket->Shares[state] += static_cast<float>((inEnd - inStart) / inWidth);
        return;
    }
    ioLevel.Bucket->Shares[state] += static_cast<float>((ioLevel.Bucket->End - inStart) / inWidth);
    gEmitBucket(ioLevel);
    if (first + inWidth != last)
        gAddEntry(ioLevel.States.rbegin()->second, inSpan, first + inWidth, last);
    const double rest = (inEnd - last) / inWidth;
    if (inIsSplit || rest == 0.0)
        return;
    ioLevel.Bucket = TwinBucket{last, last + inWidth};
    ioLevel.Bucket->Shares[state] = static_cast<float>(rest);
}

void gAddToLevel(TwinLevel& ioLevel, size_t inLevel, const TwinSpan& inSpan)
{
    if (ioLevel.LastEnd > inSpan.Start)
        return;
    ioLevel.LastEnd = inSpan.End;
    const float length = gLengthOfLevel(inLevel);
    const auto width = static_cast<double>(sThresholds[inLevel]);
    const int32_t first = gChunkOf(length, inSpan.Start);
    const int32_t last = gChunkOf(length, inSpan.End);
    const bool isSplit = first != last;
    TwinStates& states = ioLevel.States[first];
    gAddToBuckets(ioLevel, width, inSpan, isSplit, inSpan.Start, isSplit ? gEndOf(length, first) : inSpan.End);
    if (!isSplit)
        return;
    gEmitBucket(ioLevel);
    states.LastEntryEndTime = std::floor(inSpan.End / width) * width + width;
    ioLevel.States[last].ContinuesFromPrevious = true;
    gAddToBuckets(ioLevel, width, inSpan, false, gStartOf(length, last), inSpan.End);
}

// --- The pass ---

class TimelineTwin
{
public:
    TimelineTwin(Session& ioSession, const TimelineTwinPass& inPass) : mSession(ioSession), mPass(inPass) {}

    // Gives what is wrong with the session itself.
    std::string Run()
    {
        const std::vector<Thread> after = mSession.GetThreadList();
        if (!mPass.IsRebuild)
            SetTimes(mPass.ThreadsBefore);
        TraceEventStreamReader reader = mSession.GetEventStream().CreateReader(0.0);
        for (TraceEvent event; reader.NextEvent(event);)
            HandleEvent(event);
        std::string differences = reader.GetFailure();
        for (const Thread& thread : after)
        {
            Thread& twin = *mSession.GetThread(thread.ThreadID);
            if (twin.EndTimeMs == 0.0)
                twin.EndTimeMs = mSession.GetSessionInfo().SessionEndTimeMs;
            if (twin.StartTimeMs != thread.StartTimeMs || twin.EndTimeMs != thread.EndTimeMs)
                differences +=
                    gText("the life of thread ", thread.ThreadID, " isn't ", twin.StartTimeMs, "..", twin.EndTimeMs, "\n");
        }
        Finish();
        SetTimes(after);
        return differences;
    }

    std::map<ThreadID, TwinThread> Threads;
    std::vector<TwinReady> Readies;                // by ready index
    std::array<uint32_t, sNumLevels> NumRecords{}; // of wake-ups, by level
    LeftOutCounts LeftOut;

private:
    void SetTimes(const std::vector<Thread>& inThreads)
    {
        for (const Thread& thread : inThreads)
        {
            mSession.GetThread(thread.ThreadID)->StartTimeMs = thread.StartTimeMs;
            mSession.GetThread(thread.ThreadID)->EndTimeMs = thread.EndTimeMs;
        }
    }

    [[nodiscard]] bool IsCaptured(ProcessID inProcess) const { return mSession.GetProcess(inProcess) != nullptr; }

    void HandleEvent(const TraceEvent& inEvent)
    {
        if ((mPass.IsRebuild && !IsCaptured(inEvent.ProcessID)) || !gIsPlaceable(inEvent.TimeMs))
            return;
        if (!mPass.IsRebuild)
            mSession.UpdateThreadFromEvent(inEvent);
        TwinThread& thread = Threads[inEvent.ThreadID];
        if (!thread.HasEvents)
            Begin(thread, inEvent);
        if (thread.Processor == nullptr)
            return;
        HandleStates(inEvent, thread);
        if (inEvent.As<SampleEvent>() != nullptr || inEvent.As<StackOnlyEvent>() != nullptr)
            thread.IsSampled = true;
        thread.Processor->HandleEvent(inEvent, sLargest);
        if (thread.Processor->GetThreadState() == ThreadState::Finished)
            FinishBars(thread);
    }

    void Begin(TwinThread& ioThread, const TraceEvent& inEvent)
    {
        ioThread.HasEvents = true;
        ioThread.GetData();
        ioThread.Processor = std::make_unique<OpenBarProcessor>(mSession, mFibers, mSession.GetBrokenStacks(), inEvent.ThreadID,
                                                                inEvent.TimeMs, sFinestLength);
        ioThread.Connection = ioThread.Processor->BarsChanged.Connect(
            [this, &ioThread](const OpenBars& inBars, int inKeep, int inChunk, double inChunkTime, bool inIsFinished)
            { Route(ioThread, inBars, static_cast<size_t>(inKeep), inChunk, inChunkTime, inIsFinished); });
    }

    void FinishBars(TwinThread& ioThread)
    {
        ioThread.Processor->Flush();
        HandOverBars(ioThread);
        ioThread.Processor.reset();
    }

    void Finish()
    {
        mIsEnd = true;
        for (auto& [id, thread] : Threads)
        {
            if (thread.Processor != nullptr)
                FinishBars(thread);
        }
        for (const Thread& known : mSession.GetThreadList())
        {
            TwinThread& thread = Threads[known.ThreadID];
            const ThreadState state = thread.IsSampled ? ThreadState::Executing : ThreadState::UnknownWaitState;
            thread.IsKnown = true;
            if (!thread.HasSpans)
                AddSpan(thread, {state, known.StartTimeMs, known.EndTimeMs});
        }
        for (auto& [id, thread] : Threads)
            FinishLane(thread);
    }

    // --- Bars of the finest level ---

    void Route(TwinThread& ioThread, const OpenBars& inBars, size_t inKeep, int32_t inChunk, double inChunkTime,
               bool inIsFinished)
    {
        if (inBars.IsEmpty())
            return;
        TwinLevel& finest = ioThread.Levels[0];
        // There is none behind the last index of all.
        const bool isLeftOut = inChunk < finest.FirstOpenBars || inChunk == sMaxIndex;
        if (isLeftOut)
            LeftOut.Bars += inBars.GetSize();
        else
        {
            if (ioThread.BarChunk != inChunk)
                HandOverBars(ioThread);
            ioThread.BarChunk = inChunk;
            WriteBars(finest.Bars[inChunk], inBars, inKeep, inChunk, inChunkTime);
        }
        // Bars that are left out end in the last chunk that was written; those that begin where none is stand nowhere.
        const int32_t last = isLeftOut ? finest.FirstOpenBars - 1 : inChunk;
        for (size_t depth = inKeep; depth < inBars.GetSize(); ++depth)
        {
            const ResolvedAddress& frame = inBars[depth].Frame;
            const int32_t first = gChunkOf(sFinestLength, inBars[depth].Start);
            if (!isLeftOut || finest.Bars.contains(first))
                ioThread.Functions[{frame.RelativeAddress, frame.ResolveIndex.Index & sIndexBits}].insert({first, -last});
        }
        if (inIsFinished && !isLeftOut)
            HandOverBars(ioThread);
        int32_t& depth = ioThread.GetData().MaxStackDepth;
        depth = std::max(depth, static_cast<int32_t>(inBars.GetSize()));
    }

    static void WriteBars(TwinBars& ioChunk, const OpenBars& inBars, size_t inKeep, int32_t inChunk, double inChunkTime)
    {
        uint32_t parent = sNone32;
        for (size_t depth = 0; depth < inBars.GetSize(); ++depth)
        {
            const OpenBar& bar = inBars[depth];
            const uint32_t index = (bar.Frame.ResolveIndex.Index & sIndexBits) |
                                   (gChunkOf(sFinestLength, bar.Start) != inChunk ? sBegunBefore : 0) |
                                   (depth < inKeep ? sGoesOn : 0);
            ioChunk.Rows.resize(std::max(ioChunk.Rows.size(), depth + 1));
            std::vector<Bar>& row = ioChunk.Rows[depth];
            if (!row.empty() && (row.back().ResolveIndex.Index & sGoesOn) != 0)
            {
                row.back().ResolveIndex.Index = (row.back().ResolveIndex.Index & sIndexBits) | (index & ~sIndexBits);
                row.back().End = bar.End;
            }
            else
            {
                if (bar.Frame.ResolveIndex.IsInstrumented() && bar.InstrumentationContextID != sNone64)
                    ioChunk.Contexts[{depth, row.size()}] = bar.InstrumentationContextID;
                row.push_back({std::max(bar.Start, inChunkTime), bar.End, bar.Frame.RelativeAddress, parent, {index}});
            }
            parent = static_cast<uint32_t>(row.size() - 1);
        }
    }

    // Once a chunk: behind it nothing is written into it, or into one before it.
    void HandOverBars(TwinThread& ioThread)
    {
        TwinLevel& finest = ioThread.Levels[0];
        if (!ioThread.BarChunk || *ioThread.BarChunk < finest.FirstOpenBars)
            return;
        finest.FirstOpenBars = *ioThread.BarChunk + 1;
        for (size_t level = 1; level < sNumLevels; ++level)
            LeftOut.MergedBars += TwinMerger(ioThread.Levels[level], level, finest.Bars[*ioThread.BarChunk]).Run();
    }

    // --- The lane ---

    void HandleStates(const TraceEvent& inEvent, TwinThread& ioThread)
    {
        static const Thread sUnknown;
        const Thread* found = mSession.GetThread(inEvent.ThreadID);
        const Thread& known = found != nullptr ? *found : sUnknown;
        const bool isCaptured = IsCaptured(inEvent.ProcessID);
        if (const auto* out = inEvent.As<ContextSwitchOutEvent>(); out != nullptr && isCaptured)
            SwitchOut(ioThread, known.StartTimeMs, inEvent.TimeMs, out->WaitReason);
        if (const auto* in = inEvent.As<ContextSwitchInEvent>(); in != nullptr && isCaptured)
            SwitchIn(ioThread, known.StartTimeMs, inEvent.TimeMs, in->Stack);
        if (const auto* ready = inEvent.As<ReadyThreadEvent>())
            Ready(inEvent, *ready, inEvent.TimeMs);
        if (const auto* timed = inEvent.As<ReadyThreadTimedEvent>())
            Ready(inEvent, *timed, timed->ReadyTimeMs);
        if (const auto* end = inEvent.As<ThreadEndEvent>(); end != nullptr && (end->EndFlag == 1 || end->EndFlag == 2))
            EndLane(ioThread, known.EndTimeMs);
        if (const auto* end = inEvent.As<ThreadEndDisplayEvent>(); end != nullptr && (end->EndFlag == 1 || end->EndFlag == 2))
            EndLane(ioThread, known.EndTimeMs);
    }

    void SwitchOut(TwinThread& ioThread, double inThreadStart, double inTime, uint8_t inReason)
    {
        if (ioThread.State == ThreadState::Finished)
            return;
        const bool ran = ioThread.State == ThreadState::Executing || ioThread.State == ThreadState::NotStarted;
        if (ran)
        {
            const double since = ioThread.State == ThreadState::Executing ? ioThread.StateTime : inThreadStart;
            AddSpan(ioThread, {ThreadState::Executing, since, inTime});
            FileRecord(ioThread, since, inTime);
            ioThread.State = WaitReasonToState(inReason);
            ioThread.StateTime = inTime;
        }
        if (inReason == 22)
        {
            ioThread.State = ThreadState::Finished;
            FinishLane(ioThread);
        }
    }

    void SwitchIn(TwinThread& ioThread, double inThreadStart, double inTime, CallstackKey inStack)
    {
        if (ioThread.State == ThreadState::Executing || ioThread.State == ThreadState::Finished)
            return;
        const bool isFirst = ioThread.State == ThreadState::NotStarted;
        const ThreadState wait = isFirst ? ThreadState::UnknownWaitState : ioThread.State;
        const double sessionStart = mSession.GetSessionInfo().SessionStartTimeMs;
        const double since = isFirst ? std::max(sessionStart, inThreadStart) : ioThread.StateTime;
        AddSpan(ioThread, {wait, since, inTime, ioThread.ReadyIndex, inStack});
        SetWait(ioThread, wait, inStack, since, inTime);
        ioThread.State = ThreadState::Executing;
        ioThread.StateTime = inTime;
    }

    template <class Event>
    void Ready(const TraceEvent& inEvent, const Event& inReady, double inReadyTime)
    {
        if (!IsCaptured(inReady.ReadiedProcessID) || inEvent.ThreadID == -1)
            return;
        TwinThread& readied = Threads[inReady.ReadiedThreadID];
        if (readied.State == ThreadState::Executing || readied.State == ThreadState::Finished || readied.ReadyIndex != sNone32)
            return;
        readied.ReadyIndex = static_cast<uint32_t>(Readies.size());
        Readies.emplace_back();
        // What it doesn't tell stays as an earlier wait has left it.
        const ReadyRecord& before = readied.Record;
        readied.Record = {inReadyTime,   before.WaitStart,        sLargest,        before.WaitState, sNone64,
                          inReady.Stack, inReady.ReadiedThreadID, inEvent.ThreadID};
    }

    void FinishLane(TwinThread& ioThread)
    {
        EndLane(ioThread, mSession.GetSessionInfo().SessionEndTimeMs);
        for (TwinLevel& level : ioThread.Levels)
            gEmitBucket(level);
    }

    void EndLane(TwinThread& ioThread, double inEnd)
    {
        if (ioThread.State == ThreadState::NotStarted || ioThread.State == ThreadState::Finished)
            return;
        const double since = ioThread.StateTime;
        const bool isRunning = ioThread.State == ThreadState::Executing;
        AddSpan(ioThread, {ioThread.State, since, inEnd, isRunning ? sNone32 : ioThread.ReadyIndex});
        if (!isRunning)
            SetWait(ioThread, ioThread.State, sNone64, since, inEnd);
        FileRecord(ioThread, isRunning ? since : inEnd, isRunning ? inEnd : inEnd + 1000.0);
        ioThread.State = ThreadState::Finished;
    }

    void AddSpan(TwinThread& ioThread, const TwinSpan& inSpan)
    {
        ThreadData& data = ioThread.GetData();
        ioThread.HasSpans = true;
        if (!gIsPlaceable(inSpan.Start) || !gIsPlaceable(inSpan.End))
        {
            ++LeftOut.Spans;
            return;
        }
        const double length = inSpan.End - inSpan.Start;
        data.TotalTime += length;
        data.StateTimes[static_cast<size_t>(inSpan.State)] += length;
        // Lanes only go on.
        std::map<int32_t, TwinStates>& chunks = ioThread.Levels[0].States;
        const int32_t first = gChunkOf(sFinestLength, inSpan.Start);
        const int32_t last = gChunkOf(sFinestLength, inSpan.End);
        if (length < 0.0 || (ioThread.LastStart && inSpan.Start < *ioThread.LastStart) ||
            (!chunks.empty() && first < chunks.rbegin()->first))
        {
            ++LeftOut.Spans;
            return;
        }
        ioThread.LastStart = inSpan.Start;
        gAddEntry(chunks[first], inSpan, inSpan.Start, first == last ? inSpan.End : gEndOf(sFinestLength, first));
        if (first != last)
        {
            chunks[first].LastEntryEndTime = inSpan.End;
            gAddEntry(chunks[last], inSpan, gStartOf(sFinestLength, last), inSpan.End);
            chunks[last].ContinuesFromPrevious = true;
        }
        for (size_t level = 1; level < sNumLevels; ++level)
        {
            // Once for each of the entries.
            gAddToLevel(ioThread.Levels[level], level, inSpan);
            if (first != last)
                gAddToLevel(ioThread.Levels[level], level, inSpan);
        }
    }

    // --- Wake-ups ---

    static void SetWait(TwinThread& ioThread, ThreadState inState, CallstackKey inStack, double inStart, double inEnd)
    {
        if (ioThread.ReadyIndex == sNone32)
            return;
        ioThread.Record.WaitState = static_cast<uint32_t>(inState);
        ioThread.Record.SwitchInStack = inStack;
        ioThread.Record.WaitStart = inStart;
        ioThread.Record.WaitEnd = inEnd;
    }

    void FileRecord(TwinThread& ioThread, double inRunStart, double inRunEnd)
    {
        if (ioThread.ReadyIndex == sNone32)
            return;
        const ReadyRecord& record = ioThread.Record;
        const double length = std::min(inRunEnd - inRunStart, record.WaitEnd - record.WaitStart);
        uint32_t level = 0;
        for (uint32_t i = sNumLevels - 1; i >= 1; --i)
            level = length / static_cast<double>(sThresholds[i]) < 2.0 ? i - 1 : level;
        Readies[ioThread.ReadyIndex] = {true, !mIsEnd, level << 28 | NumRecords[level]++, record};
        ioThread.ReadyIndex = sNone32;
    }

    Session& mSession;
    const TimelineTwinPass& mPass;
    OpenBarProcessorFiberState mFibers;
    bool mIsEnd = false;
};

// --- The comparison ---

// In the order of the walk over the bars as a tree.
void gIndexBar(TwinBars& ioBars, std::vector<size_t>& ioCursors, size_t inDepth)
{
    const Bar& bar = ioBars.Rows[inDepth][ioCursors[inDepth]];
    ioBars.Functions[{bar.Address, bar.ResolveIndex.Index & sIndexBits}] +=
        gText(" ", static_cast<int>(inDepth), ":", static_cast<int>(ioCursors[inDepth]));
    const size_t below = inDepth + 1;
    while (below < ioBars.Rows.size() && ioCursors[below] < ioBars.Rows[below].size() &&
           ioBars.Rows[below][ioCursors[below]].ParentIndex == ioCursors[inDepth])
    {
        gIndexBar(ioBars, ioCursors, below);
        ++ioCursors[below];
    }
}

// What is derived from the rows of a chunk.
TwinBars gComplete(TwinBars inBars, bool inHasFunctions)
{
    for (const std::vector<Bar>& row : inBars.Rows)
        inBars.Boundaries.push_back({row.front(), row.back(), static_cast<uint32_t>(row.size())});
    std::vector<size_t> cursors(inBars.Rows.size());
    for (; inHasFunctions && cursors[0] < inBars.Rows[0].size(); ++cursors[0])
        gIndexBar(inBars, cursors, 0);
    return inBars;
}

class TimelineComparison
{
public:
    TimelineComparison(const TimelineTwin& inTwin, Session& inSession, ThreadsModel& ioModel)
        : mTwin(inTwin),
          mModel(ioModel),
          mManager(ioModel.GetStreamingManager()),
          mThreadsFile(inSession.GetDirectory() + "/Threads/Threads.dat", std::ios::binary)
    {
    }

    std::string Run(bool inHasCounts)
    {
        for (const auto& [id, thread] : mTwin.Threads)
        {
            const ThreadData* data = mModel.FindThreadData(id);
            Compare(gText("totals of thread ", id), {thread.Data ? gPrint(*thread.Data) : "none"},
                    {data != nullptr ? gPrint(*data) : "none"});
            for (size_t level = 0; level < sNumLevels; ++level)
                CompareLevel(id, thread, level);
        }
        CompareFind();
        CompareReadies();
        const auto print = [](const LeftOutCounts& inCounts)
        { return gText(inCounts.Bars, " bars, ", inCounts.Spans, " spans, ", inCounts.MergedBars, " merged bars"); };
        if (inHasCounts)
            Compare("what is left out", {print(mTwin.LeftOut)}, {print(mModel.GetLeftOutCounts())});
        return mText;
    }

private:
    static constexpr int sMaxShown = 10;

    void Compare(const std::string& inWhat, const Lines& inTwin, const Lines& inModel)
    {
        if (inTwin == inModel || ++mNumDifferences > sMaxShown)
            return;
        const auto line = std::mismatch(inTwin.begin(), inTwin.end(), inModel.begin(), inModel.end());
        mText += gText(inWhat, ":\n  twin:  ", line.first != inTwin.end() ? *line.first : "nothing more",
                       "\n  model: ", line.second != inModel.end() ? *line.second : "nothing more", "\n");
    }

    void CompareLevel(ThreadID inThread, const TwinThread& inTwin, size_t inLevel)
    {
        const std::string what = gText("thread ", inThread, " level ", static_cast<int>(inLevel));
        const TwinLevel& twin = inTwin.Levels[inLevel];
        const DetailLODThread* real = mModel.GetDetailLOD(static_cast<int32_t>(inLevel)).GetThread(inThread);
        const bool isDerived = inTwin.IsKnown || !inTwin.Levels[0].Bars.empty() || !inTwin.Levels[0].States.empty();
        std::map<int32_t, uint8_t> chunks; // kinds of data by index
        for (const auto& [index, bars] : twin.Bars)
            chunks[index] |= inLevel == 0 ? 3 : 2;
        for (const auto& [index, states] : twin.States)
            chunks[index] |= 4;
        const auto print = [](bool inIsThere, size_t inCount) { return inIsThere ? gText(inCount, " chunks") : "none"; };
        Compare(what, {print(inLevel == 0 ? inTwin.Data.has_value() : isDerived, chunks.size())},
                {print(real != nullptr, real != nullptr ? real->GetChunkTable().GetChunkCount() : 0)});
        if (real == nullptr)
            return;

        // All at once, so that one load doesn't wait for another.
        std::vector<ChunkHandle> handles;
        for (const auto& [index, kinds] : chunks)
        {
            const ChunkDescription chunk = real->GetChunkTable().GetChunkByIndex(index);
            Compare(gText(what, " chunk ", index), {gText(index, " with ", kinds)},
                    {gText(chunk.mIndex, " with ", chunk.mAvailableDataTypes)});
            for (const EChunkType type : {EChunkType::FunctionIndex, EChunkType::Bar, EChunkType::Overview})
            {
                if (chunk.HasDataTypes(type))
                    handles.push_back(mManager.Load(*real, chunk, type, EChunkUnloadMode::Immediate, {}));
            }
        }
        for (const auto& [index, bars] : twin.Bars)
            Compare(gText(what, " chunk ", index, " bars"), gPrint(gComplete(bars, inLevel == 0)),
                    gPrint(ReadBars(*real, index, inLevel == 0)));
        for (const auto& [index, states] : twin.States)
            Compare(gText(what, " chunk ", index, " states"), gPrint(states), gPrint(ReadStates(*real, index)));
    }

    // Null if it isn't there or can't be read.
    template <class T>
    TypedChunkHandle<T> Load(const DetailLODThread& inThread, const ChunkDescription& inChunk)
    {
        if (!inChunk.HasDataTypes(T::sGetChunkType()))
            return {};
        return TypedChunkHandle<T>(mManager.BlockingLoad(inThread, inChunk, T::sGetChunkType(), EChunkUnloadMode::Immediate));
    }

    TwinBars ReadBars(const DetailLODThread& inThread, int32_t inIndex, bool inHasFunctions)
    {
        const ChunkDescription chunk = inThread.GetChunkTable().GetChunkByIndex(inIndex);
        TwinBars result;
        const auto bars = Load<BarChunk>(inThread, chunk);
        if (!bars)
            return result;
        for (const BarChunk::Row& row : bars->GetRows())
        {
            const size_t depth = result.Rows.size();
            result.Rows.emplace_back();
            for (size_t i = 0; i < row.size(); ++i)
            {
                const uint64_t context = bars->GetInstrumentationContext({static_cast<int32_t>(depth), i});
                if (context != sNone64)
                    result.Contexts[{depth, i}] = context;
                result.Rows.back().push_back(*row[i]);
            }
        }
        for (BarBoundary boundary;
             BarChunk::ReadBoundary(mThreadsFile, chunk.mLayout.BoundaryDataOffset, chunk.mLayout.BoundaryDataSize,
                                    static_cast<int32_t>(result.Boundaries.size()), boundary);)
            result.Boundaries.push_back(boundary);
        const auto functions =
            inHasFunctions ? Load<FunctionIndexChunk>(inThread, chunk) : TypedChunkHandle<FunctionIndexChunk>();
        if (!functions)
            return result;
        for (const auto& [function, entries] : functions->GetFunctions())
        {
            std::string& text = result.Functions[{function.RelativeAddress, function.ResolveIndex.Index & sIndexBits}];
            for (const FunctionBarEntry& entry : entries)
                text += gText(" ", static_cast<int>(entry.Depth), ":", static_cast<int>(entry.BarIndex));
        }
        return result;
    }

    TwinStates ReadStates(const DetailLODThread& inThread, int32_t inIndex)
    {
        TwinStates result;
        const auto states = Load<OverviewChunk>(inThread, inThread.GetChunkTable().GetChunkByIndex(inIndex));
        for (size_t i = 0; states && i < states->GetEntryCount(); ++i)
            result.Entries.push_back(gPrint(states->GetEntry(i)));
        result.ContinuesFromPrevious = states && states->ContinuesFromPrevious();
        result.LastEntryEndTime = states ? states->GetLastEntryEndTime() : 0.0;
        return result;
    }

    void CompareFind()
    {
        FindModel& find = mModel.GetFindModel();
        Lines twinThreads;
        Lines modelThreads;
        for (const FindIndexSection& section : find.GetSections())
            modelThreads.push_back(gText(section.ThreadID));
        for (const auto& [id, thread] : mTwin.Threads)
        {
            if (!thread.HasEvents)
                continue;
            twinThreads.push_back(gText(id));
            Lines twin;
            Lines model;
            for (const auto& [function, chunks] : thread.Functions)
            {
                std::string whole;
                twin.push_back(gText(function.first, " of ", function.second, ":"));
                for (const auto& [first, last] : chunks)
                    (first == -last ? whole : twin.back()) +=
                        first == -last ? gText(" ", first) : gText(" ", first, " to ", -last);
                twin.back() += whole;
            }
            for (const FindFunctionEntry& entry : find.ReadThreadFunctions(EFindSet::FindResults, id))
                model.push_back(ReadFunction(entry));
            Compare(gText("find index of thread ", id), twin, model);
        }
        Compare("threads of the find index", twinThreads, modelThreads);
    }

    std::string ReadFunction(const FindFunctionEntry& inEntry)
    {
        Utility::ByteBuffer content;
        if (!mModel.GetFindModel().ReadBlock(EFindSet::FindResults, inEntry.BlockOffset, inEntry.BlockSize, content))
            return "can't be read";
        std::vector<int32_t> numbers(content.GetSize() / sizeof(int32_t));
        std::memcpy(numbers.data(), content.GetData(), numbers.size() * sizeof(int32_t));
        std::string text = gText(inEntry.Function.RelativeAddress, " of ", inEntry.Function.ResolveIndex.Index & sIndexBits, ":");
        const size_t numRanges = inEntry.NumRanges;
        for (size_t i = 0; i < numbers.size(); ++i)
            text += gText(i % 2 == 1 && i < 2 * numRanges ? " to " : " ", numbers[i]);
        return 2 * numRanges + inEntry.NumChunks == numbers.size() ? text : text + " is too much or too little";
    }

    void CompareReadies()
    {
        const std::map<uint32_t, std::string> records = ReadRecords();
        const ReadyThreadData& data = mModel.GetReadyThreadData();
        std::set<uint32_t> ids;
        Lines twin = {gText(mTwin.Readies.size(), " indices")};
        Lines model = {gText(data.GetReadyIndexCount(), " indices")};
        for (uint32_t i = 0; i < mTwin.Readies.size(); ++i)
        {
            const TwinReady& ready = mTwin.Readies[i];
            const uint32_t id = data.GetRecordID(i);
            const auto found = records.find(id);
            model.push_back(gText("ready index ", i, ": record ", id, " ", found != records.end() ? found->second : ""));
            // The end of the pass files its records behind all others, in any order.
            const bool isFree = ready.IsFiled && !ready.IsInOrder && id >> 28 == ready.ID >> 28 && ids.insert(id).second;
            twin.push_back(
                gText("ready index ", i, ": record ", isFree ? id : ready.ID, " ", ready.IsFiled ? gPrint(ready.Record) : ""));
        }
        Compare("wake-ups", twin, model);
        size_t numRecords = 0;
        for (const uint32_t number : mTwin.NumRecords)
            numRecords += number;
        Compare("number of wake-ups", {gText(numRecords)}, {gText(records.size())});
    }

    // By id.
    std::map<uint32_t, std::string> ReadRecords()
    {
        std::map<uint32_t, std::string> records;
        for (uint32_t level = 0; const std::vector<ReadyThreadChunkHeader>& headers : mModel.GetReadyThreadData().GetLevels())
        {
            for (uint32_t i = 0; i < headers.size(); ++i)
            {
                std::promise<Chunk*> loaded;
                const auto handle = mManager.LoadReadyThreadChunk(headers[i], level << 28 | i, EChunkUnloadMode::Immediate,
                                                                  [&loaded](Chunk* inChunk) { loaded.set_value(inChunk); });
                if (const auto* chunk = static_cast<const ReadyThreadChunk*>(loaded.get_future().get()))
                {
                    CompareReadyChunk(gText("wake-ups of level ", level, " chunk ", i), headers[i], *chunk);
                    for (uint32_t id = level << 28 | i * 10000; const ReadyRecord& record : chunk->GetRecords())
                        records[id++] = gPrint(record);
                }
            }
            ++level;
        }
        return records;
    }

    // What hangs on the order of the records, which is the caller's matter.
    void CompareReadyChunk(const std::string& inPlace, const ReadyThreadChunkHeader& inHeader, const ReadyThreadChunk& inChunk)
    {
        std::vector<double> times;
        for (const uint16_t position : inChunk.GetTimeIndex())
            times.push_back(inChunk.GetRecords().at(position).ReadyTime);
        const std::set<uint16_t> positions(inChunk.GetTimeIndex().begin(), inChunk.GetTimeIndex().end());
        const bool isSorted = std::is_sorted(times.begin(), times.end()) && positions.size() == inChunk.GetRecords().size();
        Compare(inPlace, {gText(times.front(), "..", std::max(0.0, times.back()), " sorted")},
                {gText(inHeader.Start, "..", inHeader.End, isSorted ? " sorted" : " not sorted")});
    }

    const TimelineTwin& mTwin;
    ThreadsModel& mModel;
    ThreadStreamingManager& mManager;
    std::ifstream mThreadsFile;
    std::string mText;
    int mNumDifferences = 0;
};

} // namespace

std::string gFindTimelineDifferences(Session& ioSession, ThreadsModel& ioModel, const TimelineTwinPass& inPass)
{
    TimelineTwin twin(ioSession, inPass);
    const std::string differences = twin.Run();
    return differences + TimelineComparison(twin, ioSession, ioModel).Run(inPass.HasCounts);
}

} // namespace Profiler
