// The records by which chunks travel between memory and disk: requests, and the slots in which the work is done.
//
// Threads and ownership: the ThreadStreamingManager's, as each record says.
#pragma once

#include "System/Job.h"
#include "ThreadsModel/ChunkFile.h"
#include "ThreadsModel/ChunkKey.h"
#include "ThreadsModel/Chunks/Chunk.h"
#include "ThreadsModel/Chunks/ChunkDescription.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Profiler
{

// Told of a chunk that is in memory now; null if it can't be loaded. Runs on any thread, and under the manager's main lock if the
// answer is known at once: it must wait for nothing that needs a chunk.
using ChunkCallback = std::function<void(Chunk*)>;

// A block to read. Callbacks and Job are touched under the manager's main lock, until the entry of the key lets go of the
// request.
struct ChunkLoadRequest
{
    ChunkFile* File = nullptr;
    uint64_t Offset = 0;
    uint64_t Size = 0; // bytes
    ChunkKey Key;
    EChunkType Type = EChunkType::Bar;
    std::vector<ChunkCallback> Callbacks; // called in order
    System::JobHandle Job;                // valid once the block was read
};

// A chunk that the manager keeps: being loaded, being filled, waiting to be saved, or loaded. Under the manager's main lock.
struct RefCountedChunk
{
    std::unique_ptr<Chunk> mChunk;            // null while it is being loaded, and when that has failed
    ChunkLoadRequest* mLoadRequest = nullptr; // set while it is being loaded
    uint32_t mRefCount = 0;                   // handles
    double mUnloadTime = 0.0;                 // monotonic seconds before which it stays
    bool mHasFailed = false;                  // could not be loaded; the entry stands for its handles alone

    [[nodiscard]] bool IsLoaded() const { return mChunk != nullptr; }
};

struct ChunkToSave
{
    ChunkKey Key;
    Profiler::Chunk* Chunk = nullptr; // the manager's
};

// Where one block is decompressed. Its bytes stay allocated from use to use. The streaming thread fills Compressed and hands the
// slot to a job, which hands it back.
struct ChunkLoadSlot
{
    Utility::Decompressor Decompressor;
    Utility::ByteBuffer Compressed;
    Utility::ByteBuffer Decompressed;
    System::JobHandle Job; // the last one that used the slot; the streaming thread's
};

// Where one group of chunks is compressed, by one job at a time.
struct ChunkSaveSlot
{
    std::vector<ChunkLayout> Layouts; // per chunk of the group; offsets from the start of Compressed
    Utility::Compressor Compressor;
    Utility::ByteBuffer Serialized; // one chunk
    Utility::ByteBuffer Compressed;
    std::vector<const ChunkToSave*> Group;
    bool HasFailed = false; // memory didn't suffice

    // Forgets the group and keeps the memory.
    void Reset()
    {
        Layouts.clear();
        Compressed.Clear();
        Group.clear();
        HasFailed = false;
    }
};

} // namespace Profiler
