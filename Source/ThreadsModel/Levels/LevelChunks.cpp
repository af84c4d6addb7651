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

BarChunk* LevelChunks::Find(int32_t inIndex)
{
    if (mIsAborted || inIndex < mFirst || inIndex > mLast)
        return nullptr;
    const auto position = static_cast<size_t>(inIndex - mFirst);
    if (position >= mChunks.size())
        mChunks.resize(position + 1);
    if (!mChunks[position])
        mIsAborted = !gGetChunkToFill(mManager, mThread, inIndex, mChunks[position]);
    return mChunks[position].Get();
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
