// The jobs that derive the coarser levels from chunks of the finest one: one batch at a time per thread and kind of chunk.
//
// Threads: the pass's thread, but for CountEnd, which the jobs call. Ownership: the ThreadsModel; a record never moves, since
// jobs point to it. Invariant: the handles keep the source chunks in memory until the last job of the batch has ended.
#pragma once

#include "System/Job.h"
#include "ThreadsModel/ChunkHandle.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace Profiler
{

template <class T>
struct PendingBuild
{
    std::vector<TypedChunkHandle<T>> Handles; // the source chunks, in time order
    std::vector<System::JobHandle> Jobs;
    uint32_t NumJobs = 0;
    std::atomic<uint32_t> NumEnded = 0;

    // A job of the batch has ended. The last one lets go of the source chunks, on whichever thread it ran.
    void CountEnd()
    {
        if (NumEnded.fetch_add(1) + 1 == NumJobs)
            Handles.clear();
    }
};

} // namespace Profiler
