// A counted reference to a chunk of the streaming manager. As long as one is there the chunk stays in memory.
//
// Threads: a handle is a value of one thread at a time; its count is the manager's, under the manager's main lock. Ownership:
// none of the chunk; the manager outlives every handle.
#pragma once

#include "ThreadsModel/ChunkKey.h"
#include "ThreadsModel/Chunks/Chunk.h"

namespace Profiler
{

class ThreadStreamingManager;

// What a handle's end means for the chunk.
enum class EChunkUnloadMode : uint8_t
{
    Immediate = 0, // it may go as soon as nobody holds it
    Delayed = 1,   // it stays for at least 5 more seconds, as it will soon be asked for again
};

class ChunkHandle
{
public:
    ChunkHandle() = default;
    virtual ~ChunkHandle();

    ChunkHandle(const ChunkHandle& inOther);
    // The handle that was moved from is empty.
    ChunkHandle(ChunkHandle&& ioOther) noexcept;
    ChunkHandle& operator=(const ChunkHandle& inOther);
    ChunkHandle& operator=(ChunkHandle&& ioOther) noexcept;

    // Null in an empty handle, for a chunk that wasn't in memory when it was asked for, and for one that can't be loaded.
    [[nodiscard]] Chunk* GetChunk() const { return mChunk; }

    // Of the stretch of time. REQUIRES: the handle isn't empty, nor that of a ready-thread chunk.
    [[nodiscard]] int32_t GetChunkIndex() const { return mKey.mChunkIndex; }

private:
    friend class ThreadStreamingManager;

    // REQUIRES: the manager has an entry for the key.
    ChunkHandle(ThreadStreamingManager& ioManager, const ChunkKey& inKey, EChunkUnloadMode inUnloadMode, Chunk* inChunk);

    void TakeFrom(ChunkHandle& ioOther);
    void Release();

    Chunk* mChunk = nullptr;
    ThreadStreamingManager* mManager = nullptr;
    ChunkKey mKey;
    EChunkType mType = EChunkType::Bar;
    EChunkUnloadMode mUnloadMode = EChunkUnloadMode::Delayed;
};

// A handle to a chunk of class T. REQUIRES: made from a handle to one.
template <class T>
class TypedChunkHandle final : public ChunkHandle
{
public:
    TypedChunkHandle() = default;
    explicit TypedChunkHandle(ChunkHandle&& ioHandle) noexcept : ChunkHandle(static_cast<ChunkHandle&&>(ioHandle)) {}

    [[nodiscard]] T* Get() const { return static_cast<T*>(GetChunk()); }
    T* operator->() const { return Get(); }
    T& operator*() const { return *Get(); }
    [[nodiscard]] explicit operator bool() const { return GetChunk() != nullptr; }
};

} // namespace Profiler
