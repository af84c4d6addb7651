// The chunks of one thread at one level of detail.
//
// Threads: any, under the table's own lock; what it hands out are copies. Ownership: the DetailLODThread. Invariant: sorted by
// index, no index twice. A stretch of time in which the thread had nothing has no chunk.
#pragma once

#include "RTTI/Declare.h"
#include "System/Mutex.h"
#include "ThreadsModel/Chunks/ChunkDescription.h"

#include <cstdint>
#include <vector>

namespace Profiler
{

class ChunkTable
{
    RTTI_FRIEND()

public:
    using DescriptionList = std::vector<ChunkDescription>;

    // All chunk lengths and times in milliseconds.

    // The chunk that the time falls in. False, with outChunk left alone, if there is none.
    [[nodiscard]] bool GetChunk(float inChunkLength, double inTime, ChunkDescription& outChunk) const;

    // A default description if there is none.
    [[nodiscard]] ChunkDescription GetChunkByIndex(int32_t inIndex) const;

    // A chunk that isn't there is added, with no data.
    ChunkDescription GetOrCreateChunk(int32_t inIndex);
    ChunkDescription GetOrCreateChunk(float inChunkLength, double inTime);

    // The chunks that both times fall in and all between them.
    DescriptionList GetOrCreateChunks(float inChunkLength, double inStart, double inEnd);

    // The nearest chunk before, or behind, the one that the time falls in that has all kinds of the mask. False, with outChunk
    // left alone, if there is none.
    [[nodiscard]] bool FindPreviousChunk(uint8_t inMask, float inChunkLength, double inTime, ChunkDescription& outChunk) const;
    [[nodiscard]] bool FindNextChunk(uint8_t inMask, float inChunkLength, double inTime, ChunkDescription& outChunk) const;

    // The chunks that touch the range and have all kinds of the mask. An end inside a chunk takes the one behind it in as well.
    [[nodiscard]] DescriptionList GetChunksInRange(uint8_t inMask, float inChunkLength, double inStart, double inEnd) const;

    [[nodiscard]] size_t GetChunkCount() const;

    // Whether the invariant holds, which a table that was read may break.
    [[nodiscard]] bool IsInOrder() const;

    // Index of the last chunk, sNoIndex if there is none. Takes no lock: only for the thread that adds chunks, since layouts are
    // all that other threads change.
    [[nodiscard]] int32_t GetLastIndex() const NO_THREAD_SAFETY_ANALYSIS;

    // Say where a chunk's data lies now, and that it is there. REQUIRES: the chunk exists.
    void SetBarData(int32_t inIndex, uint64_t inOffset, uint64_t inSize, uint64_t inBoundaryOffset, uint64_t inBoundarySize);
    void SetOverviewData(int32_t inIndex, uint64_t inOffset, uint64_t inSize);
    void SetFunctionIndexData(int32_t inIndex, uint64_t inOffset, uint64_t inSize);

private:
    [[nodiscard]] DescriptionList::const_iterator Find(int32_t inIndex) const REQUIRES(mMutex);
    ChunkLayout* AddDataType(int32_t inIndex, EChunkType inType) REQUIRES(mMutex);
    ChunkDescription& GetOrAdd(int32_t inIndex) REQUIRES(mMutex);

    mutable System::Mutex mMutex;
    DescriptionList mChunks GUARDED_BY(mMutex);
};

} // namespace Profiler

RTTI_DECLARE(Profiler::ChunkTable);
