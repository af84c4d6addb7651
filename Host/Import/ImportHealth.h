// What became of a capture's records on their way to trace events.
//
// Threads: belongs to the importer's thread. Ownership: a value.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <array>
#include <cstdint>

namespace Host
{

struct ImportHealth
{
    std::array<uint64_t, Profiler::sNumStoredEventTypes> EventsByType{}; // trace events made
    uint64_t IdleSamples = 0;       // taken while a processor had nothing to do; the idle threads aren't threads of the capture
    uint64_t OtherEventSamples = 0; // of events that say nothing about where a thread executed
    uint64_t SamplesWithoutThread = 0; // of a thread that was already being taken down
    uint64_t SamplesAmidSwitch = 0;    // of a thread whose switch-out was told already, by the processor that was still on it
    uint64_t RepeatedSwitches = 0;     // told by a tracepoint and a record of its own; one of them counts
    uint64_t MissedSwitchIns = 0;      // a thread ran without having been switched in: the kernel's tracepoint missed it
    uint64_t MissedSwitchOuts = 0;     // another thread ran where this one was said to run, or it was switched in a second time
    uint64_t RepeatedWakeups = 0;      // sched_wakeup where sched_waking has told of it
    uint64_t UnknownWakeups = 0;       // of threads that nothing else tells of
    uint64_t UnnamedThreads = 0;       // threads with events that no record introduced
    uint64_t MappingsLeftOut = 0;

    [[nodiscard]] uint64_t GetEventCount(Profiler::ETraceEventType inType) const
    {
        return EventsByType[static_cast<size_t>(inType)];
    }
    [[nodiscard]] uint64_t GetNumEvents() const
    {
        uint64_t sum = 0;
        for (const uint64_t count : EventsByType)
            sum += count;
        return sum;
    }
};

} // namespace Host
