// The chunks of a level that one source chunk's bars go into, made as bars come to touch them.
//
// A bar may span many chunks, since nothing but an event with a stack ends the chunk that it stands in: hence a limit, and no
// chunk that no bar touches. Threads: one at a time. Ownership: lives for one source chunk; holds its chunks in memory.
#pragma once

#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <cstdint>
#include <vector>

namespace Profiler
{

class LevelChunks
{
public:
    // Chunks that one source chunk can touch.
    static constexpr int32_t sMaxChunks = 1'000'000;

    // The chunks from inFirst, which like those behind it wasn't handed over, to inLast or to the limit.
    LevelChunks(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, int32_t inFirst, int32_t inLast);

    // The first and the last chunk that there can be; the first is above the last if there can be none.
    [[nodiscard]] int32_t GetFirst() const { return mFirst; }
    [[nodiscard]] int32_t GetLast() const { return mLast; }

    // The chunk of an index. Null for one that there can't be, and once allocating was aborted.
    [[nodiscard]] BarChunk* Get(int32_t inIndex)
    {
        if (inIndex == mRecentIndex && mRecent != nullptr) [[likely]]
            return mRecent;
        mRecentIndex = inIndex;
        mRecent = Find(inIndex);
        return mRecent;
    }

    // Whether a chunk couldn't be had because the pass is being stopped.
    [[nodiscard]] bool IsAborted() const { return mIsAborted; }

    // To be called when the source chunk's bars are in.
    void BuildBoundaries();

private:
    BarChunk* Find(int32_t inIndex);

    ThreadStreamingManager& mManager;
    DetailLODThread& mThread;
    int32_t mFirst;
    int32_t mLast;
    int32_t mRecentIndex = 0;
    BarChunk* mRecent = nullptr; // that was asked for last: most bars lie in the chunk of the one before
    bool mIsAborted = false;
    std::vector<TypedChunkHandle<BarChunk>> mChunks; // from mFirst on; empty handles for those that no bar has touched
};

} // namespace Profiler
