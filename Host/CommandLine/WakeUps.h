// Who woke whom: in a span of time, and back from one wait to the thread that kept everybody waiting.
//
// Threads: the main thread; waits for chunks. Ownership: values.
#pragma once

#include "Host/CommandLine/ThreadStates.h"

#include <vector>

namespace Host
{

// The wake-ups from inStartMs to inEndMs, by time.
[[nodiscard]] std::vector<Profiler::ReadyRecord> gGetWakeUps(const Profiler::ThreadsModel& inModel, double inStartMs,
                                                             double inEndMs);

// Why a chain of waits goes no further.
enum class EChainEnd
{
    Ran,       // the thread ran all the time until it woke the next one
    Preempted, // it was ready, and waited for a processor
    Interrupt, // it waited for the clock or a device, which interrupted the thread that is told as the waking one
    NoWakeUp,  // it waited, and no thread is known to have ended that
    Unknown,   // nothing is known of the thread at that time
    TooLong,
};

// One wait of a chain, and who ended it. The first one is that of the question; each further one is what the thread that ended
// the one before had waited for itself meanwhile.
struct ChainLink
{
    Profiler::ThreadID Thread = -1;
    ThreadStateSpan State; // a wait; in the last link also what the thread did instead
    std::optional<Profiler::ReadyRecord> WakeUp;
};

struct WaitChain
{
    std::vector<ChainLink> Links;
    EChainEnd End = EChainEnd::Unknown;
};

// From the wait of a thread at a time; a chain without links if the thread didn't wait then.
[[nodiscard]] WaitChain gFollowWaits(const Profiler::ThreadsModel& inModel, Profiler::ThreadID inThread, double inTimeMs);

} // namespace Host
