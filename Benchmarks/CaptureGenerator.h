// Makes captures of any length for benchmarks: the session of a server, stored as an import leaves it, with everything but
// models.
//
// Eight processors run the threads of four processes by turns, sample them four thousand times a second, and switch to others as
// they wait, wake each other, are preempted and end. Stacks are 5 to 40 deep and come from a tree of calls, so they share their
// outer frames; a thread's next stack differs from its last in the innermost few, and it mostly waits where it waited before. Of
// a hundred events 16 are samples, 34 switches out, 34 switches in and 16 wake-ups, and 200,000 make a second of the capture: a
// server under load, as a system-wide recording of one looks.
//
// The same settings give the same events. Threads: one at a time. Invariant: events are written as they come, so memory doesn't
// grow with their number.
#pragma once

#include "RTTI/Registry.h"
#include "Utility/ErrorState.h"

#include <cstddef>
#include <cstdint>
#include <string>

struct CaptureSettings
{
    uint64_t NumEvents = 0; // the last few may be more
    size_t NumThreads = 64;
    size_t NumEndingThreads = 8; // of them; they end one after the other while the capture goes on
    double ZoneShare = 0.0;      // of the samples: how many have an instrumented zone begin or end with them
    uint64_t Seed = 7;
};

// inSessionPath is that of the session file, in a folder that is there. False if something couldn't be written.
[[nodiscard]] bool gStoreCapture(const std::string& inSessionPath, const CaptureSettings& inSettings,
                                 const RTTI::Registry& inRegistry, Utility::ErrorState& ioErrors);
