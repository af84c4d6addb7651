// The time ranges of a thread in which its stacks are cut short, and the cursor that an event loop steps through them.
//
// Threads: the holder is read-only while readers use it; a reader belongs to one processor. Ownership: a reader copies nothing
// and must not outlive the holder it was made from.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <span>
#include <unordered_map>
#include <vector>

namespace Profiler
{

// One range of stacks that are cut short, and the good stack that ended it.
struct BrokenRange
{
    double Start = -1.0;               // milliseconds, time of the first broken stack
    double End = -1.0;                 // time of the good stack; the largest double if the events ended first
    CallstackKey Stack = sNoCallstack; // key of the good stack; sNoCallstack if the events ended first
};

// The ranges of all threads. A session without any gives readers that are always outside.
class BrokenStackHolder
{
public:
    // Replaces the ranges of a thread. They must be in time order and not overlap, as a scan over the thread's events finds them.
    void SetRanges(ThreadID inThread, std::vector<BrokenRange> inRanges);

    // Empty for a thread without ranges.
    [[nodiscard]] std::span<const BrokenRange> GetRanges(ThreadID inThread) const;

private:
    std::unordered_map<ThreadID, std::vector<BrokenRange>> mRanges;
};

enum class EBrokenStackStep
{
    RangeBegins = 0, // a range begins at this event
    Inside = 1,
    RangeEnds = 2, // a range ends at this event
    Outside = 3,
};

class BrokenStackReader
{
public:
    // Always outside.
    BrokenStackReader() = default;

    // Stands at the first range that begins above inStartTime, or the one before it if that one ends above inStartTime.
    BrokenStackReader(const BrokenStackHolder& inHolder, ThreadID inThread, double inStartTime);

    // Steps to an event of the thread. REQUIRES: every event of the thread is stepped to, in order. The comparisons are exact,
    // because the ranges were made of the times of the same events. outRange is only set when a range begins.
    //
    // A range without length is reported as begun and then passed, so that it never holds up the ranges behind it.
    [[nodiscard]] EBrokenStackStep StepTo(BrokenRange& outRange, double inTime);

private:
    std::span<const BrokenRange> mRanges;
    size_t mPosition = 0;
};

} // namespace Profiler
