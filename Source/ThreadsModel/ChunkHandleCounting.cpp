// How handles count. Not in a source of ChunkHandle.h, since the manager, which keeps the counts, knows handles.
#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <utility>

namespace Profiler
{

ChunkHandle::ChunkHandle(ThreadStreamingManager& ioManager, const ChunkKey& inKey, EChunkUnloadMode inUnloadMode, Chunk* inChunk)
    : mChunk(inChunk),
      mManager(&ioManager),
      mKey(inKey),
      mType(inKey.mType),
      mUnloadMode(inUnloadMode)
{
    mManager->AddRef(mKey);
}

ChunkHandle::ChunkHandle(const ChunkHandle& inOther)
    : mChunk(inOther.mChunk),
      mManager(inOther.mManager),
      mKey(inOther.mKey),
      mType(inOther.mType),
      mUnloadMode(inOther.mUnloadMode)
{
    if (mManager != nullptr)
        mManager->AddRef(mKey);
}

ChunkHandle::ChunkHandle(ChunkHandle&& ioOther) noexcept
{
    TakeFrom(ioOther);
}

ChunkHandle& ChunkHandle::operator=(const ChunkHandle& inOther)
{
    if (this != &inOther)
        *this = ChunkHandle(inOther); // the new reference comes before the old one goes, as both may be to one chunk
    return *this;
}

ChunkHandle& ChunkHandle::operator=(ChunkHandle&& ioOther) noexcept
{
    if (this != &ioOther)
    {
        Release();
        TakeFrom(ioOther);
    }
    return *this;
}

ChunkHandle::~ChunkHandle()
{
    Release();
}

void ChunkHandle::TakeFrom(ChunkHandle& ioOther)
{
    mChunk = std::exchange(ioOther.mChunk, nullptr);
    mManager = std::exchange(ioOther.mManager, nullptr);
    mKey = std::exchange(ioOther.mKey, {});
    mType = std::exchange(ioOther.mType, EChunkType::Bar);
    mUnloadMode = std::exchange(ioOther.mUnloadMode, EChunkUnloadMode::Delayed);
}

void ChunkHandle::Release()
{
    if (mManager != nullptr)
        mManager->Release(mKey, mUnloadMode);
}

} // namespace Profiler
