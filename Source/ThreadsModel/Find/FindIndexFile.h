// The records of Find.dat, which tells for each thread in which chunks each function ran. Docs/FindIndex.md describes the file.
//
// Threads: plain values.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <cstddef>
#include <cstdint>

namespace Profiler
{

// Where the part of one thread lies.
struct FindIndexSection
{
    uint64_t Offset = 0; // in the file, of the function table's frame; the blocks of the functions follow it
    Profiler::ThreadID ThreadID = -1;
    uint32_t TableSize = 0; // bytes of that frame
};

// The last bytes of the file, behind which stands their hash.
struct FindIndexFooter
{
    static constexpr uint32_t sMagic = 0x2DD6E2D7;

    uint32_t Magic = sMagic;
    uint32_t NumThreads = 0; // not looked at: the table has a count of its own
    uint64_t TableOffset = 0;
    uint64_t TableSize = 0; // bytes of the thread table's frame
    uint64_t TableHash = 0; // of the table before it was compressed
};
static_assert(sizeof(FindIndexFooter) == 32);

inline constexpr size_t sFindIndexTailSize = sizeof(FindIndexFooter) + sizeof(uint64_t);

// Bytes of a thread in the thread table, and of a function in a function table.
inline constexpr size_t sPackedSectionSize = 16;
inline constexpr size_t sPackedFunctionSize = 36;

} // namespace Profiler
