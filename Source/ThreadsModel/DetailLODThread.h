// One thread at one level of detail: its chunks, and two cursors that say up to where they are complete.
//
// Moving a cursor is how finished chunks reach the disk. Threads: the table has a lock of its own. A cursor has one writer at a
// time, the thread of the pass or the one job that runs for the level and the thread, and any thread may read it. Ownership: the
// DetailLOD; never moved or destroyed while the model lives. Invariant: it is bound before a cursor moves; cursors are the work
// of a pass, and stay 0 in a model that was loaded.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Events/TraceEvent.h"
#include "ThreadsModel/Chunks/ChunkTable.h"

#include <atomic>
#include <cstdint>

namespace Profiler
{

class DetailLOD;
class ThreadStreamingManager;

class DetailLODThread
{
    RTTI_FRIEND()

public:
    // One that is about to be read from a file.
    DetailLODThread() = default;
    explicit DetailLODThread(ThreadID inThreadID) : mThreadID(inThreadID) {}

    DetailLODThread(const DetailLODThread&) = delete;
    DetailLODThread& operator=(const DetailLODThread&) = delete;

    // Tells the thread its manager and its owner, and the manager its thread.
    void Bind(ThreadStreamingManager& ioManager, const DetailLOD& inOwner);

    [[nodiscard]] ThreadID GetThreadID() const { return mThreadID; }
    [[nodiscard]] int32_t GetLevel() const;

    [[nodiscard]] ChunkTable& GetChunkTable() { return mChunkTable; }
    [[nodiscard]] const ChunkTable& GetChunkTable() const { return mChunkTable; }

    // Every chunk of bars and of functions, or every overview chunk, below the index is finished.
    [[nodiscard]] int32_t GetCurrentDetailChunk() const { return mCurrentDetailChunkIndex.load(std::memory_order_relaxed); }
    [[nodiscard]] int32_t GetCurrentOverviewChunk() const { return mCurrentOverviewChunkIndex.load(std::memory_order_relaxed); }

    // Set a cursor of a thread whose first chunk lies before time 0, where the cursors begin. REQUIRES: it hasn't moved, and no
    // chunk has been handed over.
    void BeginDetailAt(int32_t inChunkIndex) { mCurrentDetailChunkIndex.store(inChunkIndex); }
    void BeginOverviewAt(int32_t inChunkIndex) { mCurrentOverviewChunkIndex.store(inChunkIndex); }

    // Hand the chunks from the old index up to, not including, the new one over to be saved; whoever fills them is done with
    // them. Moving backwards is a fault, and moves all the same.
    void MoveDetailCursor(int32_t inChunkIndex);
    void MoveOverviewCursor(int32_t inChunkIndex);

private:
    ThreadStreamingManager* mManager = nullptr;
    const DetailLOD* mOwner = nullptr;
    ThreadID mThreadID = -1;
    ChunkTable mChunkTable;
    std::atomic<int32_t> mCurrentDetailChunkIndex = 0;
    std::atomic<int32_t> mCurrentOverviewChunkIndex = 0;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::DetailLODThread);
