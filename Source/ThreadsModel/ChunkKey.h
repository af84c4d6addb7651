// What names a chunk in the streaming manager's tables.
//
// Threads: plain values. Ownership: refers to the level's thread, which outlives every chunk of it.
#pragma once

#include "ThreadsModel/Chunks/ChunkType.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace Profiler
{

class DetailLODThread;

struct ChunkKey
{
    uintptr_t mThread = 0;   // the DetailLODThread; for a ready-thread chunk its id, in the low 32 bits
    int32_t mChunkIndex = 0; // doesn't count for a ready-thread chunk
    EChunkType mType = EChunkType::Bar;

    [[nodiscard]] static ChunkKey sMake(const DetailLODThread& inThread, int32_t inChunkIndex, EChunkType inType)
    {
        return {reinterpret_cast<uintptr_t>(&inThread), inChunkIndex, inType};
    }
    [[nodiscard]] static ChunkKey sMakeReadyThread(uint32_t inChunkID) { return {inChunkID, 0, EChunkType::ReadyThread}; }

    // REQUIRES: not the key of a ready-thread chunk.
    [[nodiscard]] DetailLODThread& GetThread() const { return *std::bit_cast<DetailLODThread*>(mThread); }
    // REQUIRES: the key of a ready-thread chunk.
    [[nodiscard]] uint32_t GetReadyThreadID() const { return static_cast<uint32_t>(mThread); }

    bool operator==(const ChunkKey& inOther) const
    {
        if (mType != inOther.mType)
            return false;
        if (mType == EChunkType::ReadyThread)
            return GetReadyThreadID() == inOther.GetReadyThreadID();
        return mThread == inOther.mThread && mChunkIndex == inOther.mChunkIndex;
    }
};

struct ChunkKeyHash
{
    size_t operator()(const ChunkKey& inKey) const
    {
        const auto type = static_cast<uint64_t>(inKey.mType);
        if (inKey.mType == EChunkType::ReadyThread)
            return sExtend(static_cast<int32_t>(inKey.GetReadyThreadID())) ^ type;
        return sExtend(inKey.mChunkIndex) ^ inKey.mThread ^ type;
    }

private:
    static uint64_t sExtend(int32_t inNumber) { return static_cast<uint64_t>(static_cast<int64_t>(inNumber)); }
};

} // namespace Profiler
