// One bar of a thread's present stack: a call that hasn't ended yet.
#pragma once

#include "Session/Modules/InstrumentationDatabase.h"
#include "Session/Modules/ResolvedAddress.h"
#include "Session/Pass/AddressHits.h"
#include "Session/Pass/GrowingVector.h"
#include "Session/Processes/ThreadState.h"

#include <cstdint>

namespace Profiler
{

struct OpenBar
{
    ThreadState State = ThreadState::NotStarted; // of the bar's last stretch
    Profiler::StateTimes StateTimes{};           // milliseconds by state
    double Start = 0.0;
    double End = 0.0;                          // so far
    uint64_t ReturnAddress = sNoAddress;       // relative address of the frame in the caller, sNoAddress for the root
    uint64_t LastAbsoluteAddress = sNoAddress; // of the frame, at the last match
    ResolvedAddress Frame;                     // identity: the function, or the frame's own address if the function is unknown
    uint64_t InstrumentationContextID = InstrumentationDatabase::sNoContext;
    Profiler::AddressHits AddressHits; // sampled relative addresses, while the bar was the leaf
};

using OpenBars = GrowingVector<OpenBar>;

} // namespace Profiler
