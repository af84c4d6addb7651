#include "ThreadsModel/Levels/StateBuckets.h"

#include "Session/Pass/ChunkTime.h"
#include "System/Job.h"
#include "ThreadsModel/Levels/ChunkToFill.h"
#include "Utility/Assert.h"

#include <cmath>

namespace Profiler
{

StateBuckets::StateBuckets(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, float inThreshold, float inChunkLength,
                           OverviewBuildRecord& ioRecord)
    : mManager(ioManager),
      mThread(ioThread),
      mWidth(static_cast<double>(inThreshold)),
      mChunkLength(inChunkLength),
      mRecord(ioRecord)
{
}

bool StateBuckets::Add(const OverviewChunk& inSource, const bool& inIsCanceled)
{
    for (size_t i = 0; i < inSource.GetEntryCount(); ++i)
    {
        if (System::gIsCanceled(inIsCanceled) || !AddSpan(inSource.GetEntry(i).As<SingleStateEntry>()))
            return false;
    }
    return true;
}

void StateBuckets::Finish()
{
    if (!mRecord.Accumulator.IsEmpty() && mRecord.Chunk)
        CloseBucket();
    mThread.MoveOverviewCursor(++mRecord.mCurrentChunkIndex);
    mRecord.Chunk = {};
}

bool StateBuckets::AddSpan(const SingleStateEntry& inSpan)
{
    // The second half of a span that the finest level has cut: the first one stood for the whole.
    if (mRecord.LastEnd > inSpan.RealStart)
        return true;
    mRecord.LastEnd = inSpan.RealEnd;
    const int32_t chunkStartIndex = ChunkIndexOfTime(mChunkLength, inSpan.RealStart);
    const int32_t chunkEndIndex = ChunkIndexOfTime(mChunkLength, inSpan.RealEnd);
    if (!MoveToChunk(mRecord, chunkStartIndex))
        return false;
    const bool isCut = chunkStartIndex != chunkEndIndex;
    AddToBuckets(inSpan, {inSpan.RealStart, isCut ? ChunkEndOfIndex(chunkStartIndex, mChunkLength) : inSpan.RealEnd, isCut});
    if (!isCut)
        return true;

    if (!mRecord.Accumulator.IsEmpty())
        CloseBucket();
    mRecord.Chunk->SetLastEntryEndTime(std::floor(inSpan.RealEnd / mWidth) * mWidth + mWidth);
    if (!MoveToChunk(mRecord, chunkEndIndex))
        return false;
    AddToBuckets(inSpan, {ChunkStartOfIndex(chunkEndIndex, mChunkLength), inSpan.RealEnd, false});
    mRecord.Chunk->SetContinuesFromPrevious();
    return true;
}

// Hands over the chunks before. False if the pass is being stopped. The parameters are called as in the text of the assertion.
// NOLINTNEXTLINE(readability-identifier-naming)
bool StateBuckets::MoveToChunk(OverviewBuildRecord& inDestProcessingState, int32_t chunkStartIndex)
{
    if (chunkStartIndex == inDestProcessingState.mCurrentChunkIndex && inDestProcessingState.Chunk)
        return true;
    PROFILER_ASSERT_AT("ThreadsModel/ThreadsModel", chunkStartIndex > inDestProcessingState.mCurrentChunkIndex,
                       "Going back in time (overview)");
    if (!gGetChunkToFill(mManager, mThread, chunkStartIndex, inDestProcessingState.Chunk))
        return false;
    inDestProcessingState.mCurrentChunkIndex = chunkStartIndex;
    mThread.MoveOverviewCursor(chunkStartIndex);
    return true;
}

void StateBuckets::AddToBuckets(const SingleStateEntry& inSpan, const Part& inPart)
{
    const double firstBucket = std::floor(inPart.Start / mWidth) * mWidth;
    const double lastBucket = std::floor(inPart.End / mWidth) * mWidth;
    const auto state = static_cast<size_t>(inSpan.State);
    OverviewAccumulator& bucket = mRecord.Accumulator;
    if (!mRecord.Accumulator.IsEmpty() && firstBucket >= bucket.End)
        CloseBucket();
    if (mRecord.Accumulator.IsEmpty())
        OpenBucket(firstBucket);
    if (firstBucket == lastBucket)
    {
        bucket.Shares[state] += static_cast<float>((inPart.End - inPart.Start) / mWidth);
        return;
    }

    bucket.Shares[state] += static_cast<float>((bucket.End - inPart.Start) / mWidth);
    CloseBucket();
    const double wholeBuckets = firstBucket + mWidth;
    if (wholeBuckets != lastBucket)
        mRecord.Chunk->AddEntry(inSpan.State, inSpan.ReadyIndex, inSpan.Stack, wholeBuckets, lastBucket, inSpan.RealStart,
                                inSpan.RealEnd);
    // The next chunk begins afresh: what lies behind the start of the last bucket of a chunk is dropped.
    if (inPart.IsCut)
        return;
    const double rest = (inPart.End - lastBucket) / mWidth;
    if (rest == 0.0)
        return;
    OpenBucket(lastBucket);
    bucket.Shares[state] = static_cast<float>(rest);
}

void StateBuckets::OpenBucket(double inStart)
{
    mRecord.Accumulator = OverviewAccumulator();
    mRecord.Accumulator.Start = inStart;
    mRecord.Accumulator.End = inStart + mWidth;
}

void StateBuckets::CloseBucket()
{
    mRecord.Chunk->AddAccumulated(mRecord.Accumulator);
    mRecord.Accumulator = OverviewAccumulator();
}

} // namespace Profiler
