// What a capture doesn't hold although a user may expect it, and which option of perf would have recorded it.
//
// Threads: any. Ownership: plain values.
#pragma once

#include "Host/Import/PerfFile.h"
#include "Host/Import/PerfHealth.h"
#include "Host/Import/Tracepoints.h"

#include <string>
#include <vector>

namespace Host
{

enum class EPerfGap : uint8_t
{
    NoExecutionSamples,    // no clock or cycles event
    NoCallchains,          // samples without stacks
    NoContextSwitches,     // neither sched_switch nor SWITCH records
    NoWakeups,             // neither sched_wakeup nor sched_waking
    TracepointsThinnedOut, // a tracepoint in frequency mode or with a period above 1: most switches and wake-ups are missing
                           // without a word
    NoTracepointFormats,   // tracepoints recorded, but the file can't tell their fields
    OnlySomeThreads,       // recorded for processes, not for the whole system
    EventsLost             // the kernel couldn't write all events
};

struct PerfGap
{
    EPerfGap Kind = EPerfGap::NoExecutionSamples;
    std::string Text; // one line for people: what is missing, and the option that records it
};

// In the order of EPerfGap. REQUIRES: inHealth comes from a finished scan of inFile, inTracepoints was loaded from it.
[[nodiscard]] std::vector<PerfGap> gFindRecordingGaps(const PerfFile& inFile, const Tracepoints& inTracepoints,
                                                      const PerfHealth& inHealth);

} // namespace Host
