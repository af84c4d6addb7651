#include "ThreadsModel/Levels/LevelChunks.h"

#include "ThreadsModel/Levels/ChunkToFill.h"

#include <algorithm>

namespace Profiler
{

LevelChunks::LevelChunks(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, int32_t inFirst, int32_t inLast)
    : mManager(ioManager),
      mThread(ioThread),
      mFirst(inFirst),
      mLast(static_cast<int32_t>(std::min<int64_t>(inLast, int64_t{mFirst} + sMaxChunks - 1)))
{
}

BarChunk* LevelChunks::Make(int32_t inIndex, size_t inPosition)
{
    if (mIsAborted)
        return nullptr;
    if (inPosition >= mChunks.size())
        mChunks.resize(inPosition + 1);
    mIsAborted = !gGetChunkToFill(mManager, mThread, inIndex, mChunks[inPosition]);
    return mChunks[inPosition].Get();
}

void LevelChunks::BuildBoundaries()
{
    for (const TypedChunkHandle<BarChunk>& chunk : mChunks)
    {
        if (chunk)
            chunk->BuildBoundaries();
    }
}

} // namespace Profiler
