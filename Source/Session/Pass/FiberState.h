// The bars that fibers had open when their threads switched away from them.
//
// Threads: the pass's thread only; all processors of a session share one. Invariant: equal stacks of bars are stored once, and
// stacks with equal hashes count as equal.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Modules/ResolvedAddress.h"
#include "Utility/ByteBuffer.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace Profiler
{

struct SavedBar
{
    uint64_t InstrumentationContextID = 0;
    uint64_t LastAbsoluteAddress = 0;
    uint64_t ReturnAddress = 0;
    ResolvedAddress Frame;
};

struct SavedFiberState
{
    std::vector<SavedBar> Bars; // root first
};

struct FiberEventData
{
    double EventTimeMs = 0.0;
    uint32_t FiberStateIndex = 0; // into FiberStates
};

// A fiber's switch-outs, in time order.
using FiberEventList = std::vector<FiberEventData>;

class OpenBarProcessorFiberState
{
    RTTI_FRIEND()

public:
    // Remembers that the fiber was left at inTime (milliseconds) with these bars open.
    void AddFiberEvent(uint64_t inFiberID, const std::vector<SavedBar>& inBars, double inTime);

    // The bars that the fiber had open when it was last left, at or before inTime. False if it wasn't.
    [[nodiscard]] bool FindFiberState(uint64_t inFiberID, double inTime, std::vector<SavedBar>& outBars) const;

    // Different stacks stored so far.
    [[nodiscard]] size_t GetNumStates() const { return mFiberStates.size(); }

private:
    uint64_t HashBars(const std::vector<SavedBar>& inBars);

    std::vector<SavedFiberState> mFiberStates;
    std::unordered_map<uint64_t, FiberEventList> mFiberEvents;

    std::unordered_map<uint64_t, uint32_t> mStateIndices; // by the hash of a state
    Utility::ByteBuffer mHashedBytes;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::SavedBar);
RTTI_DECLARE(Profiler::SavedFiberState);
RTTI_DECLARE(Profiler::FiberEventData);
RTTI_DECLARE(Profiler::OpenBarProcessorFiberState);
