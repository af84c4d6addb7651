// The records of a search: which chunks it has to look at and what for, and what it finds in one.
//
// Threads: plain values of the job that searches.
#pragma once

#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace Profiler
{

class DetailLODThread;

// What a chunk holds of a function, as bits.
enum EFindFlags : uint32_t
{
    EndsInChunk = 1,   // a bar that started in an earlier chunk ends here
    StartsInChunk = 2, // a bar starts here and goes on in a later chunk
    InsideChunk = 4,   // a bar lies wholly in this chunk
};

struct FunctionToProcess
{
    int32_t Index = 0;  // of the functions that are looked up
    uint32_t Flags = 0; // EFindFlags
};

// A chunk of the finest level.
struct ChunkToProcess
{
    const DetailLODThread* Thread = nullptr;
    int32_t ChunkIndex = 0;
    uint32_t Flags = 0;                       // those of all its functions together
    std::vector<FunctionToProcess> Functions; // by Index
};

struct FoundBar
{
    const Profiler::Bar* Bar = nullptr; // of the chunk
    int32_t Depth = 0;
    bool IsNested = false;
    uint64_t ContextID = BarChunk::sNoContext;
};

// Appends the bars of one chunk that a search is after. The times, in milliseconds, are those of the query. REQUIRES: the index
// names bars of the chunk.
using FindMatcher =
    std::function<void(const FunctionIndexChunk& inIndex, const BarChunk& inBars, double inStartTime, double inEndTime,
                       std::span<const FunctionToProcess> inFunctions, std::vector<FoundBar>& ioFound)>;

} // namespace Profiler
