// How a pass comes by a chunk of a level's thread that it is to fill.
#pragma once

#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Assert.h"

#include <cstdint>

namespace Profiler
{

// Makes outHandle the chunk of the index, which is made on first use. False, with outHandle left alone, if the pass is being
// stopped. REQUIRES: the chunk wasn't handed over.
template <class T>
[[nodiscard]] bool gGetChunkToFill(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, int32_t inIndex,
                                   TypedChunkHandle<T>& outHandle)
{
    const ChunkDescription chunkDescription = ioThread.GetChunkTable().GetOrCreateChunk(inIndex);
    // NOLINTNEXTLINE(google-readability-casting, cppcoreguidelines-pro-type-cstyle-cast): the text is what hosts look for in logs
    PROFILER_ASSERT_AT("ThreadsModel/ThreadsModel", (chunkDescription.mAvailableDataTypes & (uint8_t)T::sGetChunkType()) == 0,
                       "Attempt to GetOrCreateChunk a chunk that was already saved");
    return ioManager.GetOrCreateChunk(ioThread, chunkDescription, EChunkUnloadMode::Immediate, outHandle) ==
           EChunkRequestResult::Done;
}

} // namespace Profiler
