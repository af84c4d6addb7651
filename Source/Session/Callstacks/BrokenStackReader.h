// The cursor that a thread's processor steps through the thread's broken ranges.
//
// Threads: one at a time; any number of readers of one holder at once. Ownership: refers to the holder's index, which outlives
// it. Invariant: holds the ranges of one chunk at most, and no file between two chunks, so that a capture of many threads needs
// neither memory nor files for each.
#pragma once

#include "Session/Callstacks/BrokenStackChunk.h"
#include "Session/Callstacks/BrokenStackIndex.h"

#include <string>
#include <vector>

namespace Profiler
{

class BrokenStackHolder;

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
    [[nodiscard]] EBrokenStackStep StepTo(BrokenRange& outRange, double inTime)
    {
        // Most threads have no range, and most events lie in none.
        return mPosition < mRanges.size() ? StepInRanges(outRange, inTime) : EBrokenStackStep::Outside;
    }

private:
    [[nodiscard]] EBrokenStackStep StepInRanges(BrokenRange& outRange, double inTime);
    void LoadChunk();
    void MoveOn();

    const BrokenStackIndex::ChunkList* mChunks = nullptr;
    const BrokenStackHolder* mHolder = nullptr;
    size_t mChunk = 0;
    std::vector<BrokenRange> mRanges; // of the chunk
    size_t mPosition = 0;
};

} // namespace Profiler
