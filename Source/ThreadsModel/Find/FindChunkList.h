// Which chunks a search has to look at, as Find.dat tells.
//
// Threads: the job that searches; it uses the streams of its find set. Ownership: plain values.
#pragma once

#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/Find/FindChunk.h"
#include "ThreadsModel/Find/FindModel.h"

#include <vector>

namespace Profiler
{

// From the first chunk to the last, both included.
struct ChunkWindow
{
    int32_t First = 0;
    int32_t Last = 0;

    [[nodiscard]] bool Contains(int32_t inChunk) const { return inChunk >= First && inChunk <= Last; }
};

// The chunks in which bars of the functions overlap the window, thread by thread, with rising indices. A bar that began before
// the window, or ends behind it, takes in the chunks where it begins and ends, and none between them. What can't be read adds
// nothing.
[[nodiscard]] std::vector<ChunkToProcess> gMakeFindChunkList(FindModel& ioModel, const DetailLOD& inLevel,
                                                             const FindQuery& inQuery,
                                                             const std::vector<ResolvedAddress>& inFunctions,
                                                             const ChunkWindow& inWindow);

} // namespace Profiler
