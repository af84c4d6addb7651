// The records of an OverviewChunk, as they stand in memory and on disk alike.
//
// Threads: plain values. All times in milliseconds. A share is the time of a state within a bucket over the bucket's width.
#pragma once

#include "Session/Events/TraceEvent.h"
#include "Session/Processes/ThreadState.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Profiler
{

enum class EOverviewEntryType : uint8_t
{
    SingleState = 0, // one span of one state
    TwoStates = 1,   // a bucket with two states
    ThreeStates = 2,
    AllStates = 3, // a bucket with no state, or with four or more
};
inline constexpr size_t sNumOverviewEntryTypes = 4;

// The ready index that stands for none. A table of the ready-thread data turns the others into ids of records.
inline constexpr uint32_t sNoReadyIndex = ~uint32_t{0};

// What all entries begin with.
struct OverviewEntry
{
    double Start;
    double End;
};

struct SingleStateEntry : OverviewEntry
{
    CallstackKey Stack; // with which the wait ended; sNoCallstack if none
    double RealStart;   // the whole span, before it was cut at the edges of chunks or buckets
    double RealEnd;
    uint32_t ReadyIndex; // of the ready-thread record of the wait; sNoReadyIndex if none
    ThreadState State;   // one of 0 to 7
    std::array<uint8_t, 3> Zero;
};

struct TwoStatesEntry : OverviewEntry
{
    std::array<float, 2> Shares;
    std::array<ThreadState, 2> States; // ascending
    std::array<uint8_t, 6> Zero;
};

struct ThreeStatesEntry : OverviewEntry
{
    std::array<float, 3> Shares;
    std::array<ThreadState, 3> States; // ascending
    uint8_t Zero;
};

struct AllStatesEntry : OverviewEntry
{
    std::array<float, sNumTimedThreadStates> Shares; // by state
};

// A bucket that is being filled, or none.
struct OverviewAccumulator : AllStatesEntry
{
    static constexpr double sNoStart = std::numeric_limits<double>::lowest();

    OverviewAccumulator() : AllStatesEntry{}
    {
        Start = sNoStart;
        End = std::numeric_limits<double>::max();
    }

    [[nodiscard]] bool IsEmpty() const { return Start == sNoStart; }
};

static_assert(sizeof(SingleStateEntry) == 48 && sizeof(TwoStatesEntry) == 32);
static_assert(sizeof(ThreeStatesEntry) == 32 && sizeof(AllStatesEntry) == 48);

// Bytes of a record, by EOverviewEntryType.
inline constexpr std::array<size_t, sNumOverviewEntryTypes> sOverviewEntrySizes = {
    sizeof(SingleStateEntry), sizeof(TwoStatesEntry), sizeof(ThreeStatesEntry), sizeof(AllStatesEntry)};

} // namespace Profiler
