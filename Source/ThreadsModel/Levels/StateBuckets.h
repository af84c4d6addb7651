// Derives the states of a coarser level from those of the finest one: whole buckets of one state as they are, all others as the
// shares that each state had of them.
//
// Buckets are as wide as the level's threshold and stand on multiples of it. Threads: one at a time. Ownership: lives for one
// batch of source chunks; what must outlive it stands in the record.
#pragma once

#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <cstdint>

namespace Profiler
{

// How far the states of a thread at a level have come.
struct OverviewBuildRecord
{
    TypedChunkHandle<OverviewChunk> Chunk; // that is being filled
    int32_t mCurrentChunkIndex = ChunkDescription::sNoIndex;
    OverviewAccumulator Accumulator; // the bucket that is being filled
    double LastEnd = 0.0;            // milliseconds: the real end of the last span
};

class StateBuckets
{
public:
    // inThreshold and inChunkLength are those of the level that ioThread belongs to, in milliseconds.
    StateBuckets(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, float inThreshold, float inChunkLength,
                 OverviewBuildRecord& ioRecord);

    // Takes the spans of the thread's next source chunk. False if the pass is being stopped.
    [[nodiscard]] bool Add(const OverviewChunk& inSource, const bool& inIsCanceled);

    // There are no more source chunks: hands over what is left.
    void Finish();

private:
    // A span, or the part of one that falls in a chunk.
    struct Part
    {
        double Start;
        double End;
        bool IsCut; // goes on in another chunk
    };

    [[nodiscard]] bool AddSpan(const SingleStateEntry& inSpan);
    void AddToBuckets(const SingleStateEntry& inSpan, const Part& inPart);
    [[nodiscard]] bool MoveToChunk(OverviewBuildRecord& inDestProcessingState, int32_t inChunkStartIndex);
    void OpenBucket(double inStart);
    void CloseBucket();

    ThreadStreamingManager& mManager;
    DetailLODThread& mThread;
    const double mWidth; // of a bucket
    const float mChunkLength;
    OverviewBuildRecord& mRecord;
};

} // namespace Profiler
