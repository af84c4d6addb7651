#include "ThreadsModel/Levels/BarMerger.h"

#include "Session/Pass/ChunkTime.h"
#include "System/Job.h"
#include "ThreadsModel/Chunks/BarTree.h"

#include <algorithm>

namespace Profiler
{
namespace
{

// A bar longer than this many thresholds stays as it is, and bars further apart than that many do.
constexpr float sThresholdsOfLongBar = 50.0F;
constexpr float sThresholdsOfGap = 1.0F;

// What is left of the index of a merged bar of unknown class: the carry, and the class of the unknown function.
constexpr uint32_t sMergedUnknownMask = 0xC8000000;

constexpr uint32_t sNoCarry = 0;
constexpr uint32_t sContinuesCarry = Bar::sContinuedFromPrevious >> Bar::sCarryShift;

} // namespace

BarMerger::BarMerger(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, float inThreshold, float inChunkLength,
                     BarBuildRecord& ioRecord)
    : mManager(ioManager),
      mThread(ioThread),
      mChunkLength(inChunkLength),
      mMinLength(static_cast<double>(sThresholdsOfLongBar * inThreshold)),
      mMaxGap(static_cast<double>(sThresholdsOfGap * inThreshold)),
      mRecord(ioRecord)
{
}

bool BarMerger::Merge(const BarChunk& inSource, const bool& inIsCanceled)
{
    const std::vector<BarChunk::Row>& rows = inSource.GetRows();
    if (rows.empty() || rows[0].empty())
        return true;
    mRecord.Merges.resize(rows.size());
    mPlacements.resize(rows.size());
    constexpr int32_t noChunk = std::numeric_limits<int32_t>::min();
    const int32_t begin = ChunkIndexOfTime(mChunkLength, rows[0].front()->Start);
    if (mRecord.FirstOpenChunk == noChunk && begin < 0)
        mThread.BeginDetailAt(begin);
    // Short of the largest index, behind which there is none.
    const int32_t last = std::min(ChunkIndexOfTime(mChunkLength, rows[0].back()->End), std::numeric_limits<int32_t>::max() - 1);
    mChunks.emplace(mManager, mThread, std::max(begin, mRecord.FirstOpenChunk), last);

    const auto isStopped = [&] { return mChunks->IsAborted() || System::gIsCanceled(inIsCanceled); };
    gWalkBarTree(
        rows, isStopped, [&](size_t inDepth, size_t inIndex) { Enter(inSource, inDepth, inIndex); },
        [&](size_t inDepth, size_t inIndex) { Leave(inSource, inDepth, inIndex); });
    if (isStopped())
        return false;
    mChunks->BuildBoundaries();
    mChunks.reset();

    // The last one may get more bars from the next source chunk.
    HandOver(last);
    mHasBars = true;
    return true;
}

void BarMerger::Finish()
{
    if (mHasBars)
        HandOver(mRecord.FirstOpenChunk + 1);
}

// The chunks before inEnd. Those of a source that went back in time are handed over already.
void BarMerger::HandOver(int32_t inEnd)
{
    mRecord.FirstOpenChunk = std::max(mRecord.FirstOpenChunk, inEnd);
    if (mRecord.FirstOpenChunk > mThread.GetCurrentDetailChunk())
        mThread.MoveDetailCursor(mRecord.FirstOpenChunk);
}

uint32_t BarMerger::GetParent(const BarChunk& inChunk, size_t inDepth)
{
    return inDepth == 0 ? Bar::sNoParent : static_cast<uint32_t>(inChunk.GetRows()[inDepth - 1].size() - 1);
}

void BarMerger::Enter(const BarChunk& inSource, size_t inDepth, size_t inIndex)
{
    const Bar& bar = *inSource.GetRows()[inDepth][inIndex];
    mPlacements[inDepth].Merged = nullptr;
    Tail tail{bar.Address, bar.ResolveIndex, BarChunk::sNoContext};
    if (bar.ResolveIndex.IsInstrumented())
        tail.Context = inSource.GetInstrumentationContext({static_cast<int32_t>(inDepth), inIndex});
    const int32_t first = ChunkIndexOfTime(mChunkLength, bar.Start);
    const int32_t last = ChunkIndexOfTime(mChunkLength, bar.End);
    // A bar that ends chunks before its start has no place; its children may have one.
    if (first > last)
        return;
    BarChunk* chunk = mChunks->Get(first);
    if (chunk == nullptr || inDepth > chunk->GetRows().size())
        ++mNumLeftOut;
    else
        PlaceFirstPart(*chunk, inDepth, bar, first, tail, first == last ? bar.End : ChunkEndOfIndex(first, mChunkLength));
    if (first != last)
        PlaceFurtherParts(inDepth, bar, first + 1, last, tail);
}

// Of two bars next to each other in a chunk.
bool BarMerger::MayMerge(const BarChunk& inChunk, size_t inDepth, const Bar& inPrevious, const Bar& inBar) const
{
    const bool isMerged = inPrevious.Address == sNoAddress;
    const bool isOpen = isMerged || (inPrevious.ResolveIndex.Index & Bar::sContinuedFromPrevious) == 0;
    // A merged bar never counts as long, however long it has grown.
    const bool isPreviousLong = !isMerged && IsLong(inPrevious);
    return isOpen && mMaxGap > inBar.Start - inPrevious.End && GetParent(inChunk, inDepth) == inPrevious.ParentIndex &&
           !isPreviousLong && !IsLong(inBar);
}

// ioTail becomes what the further parts are of.
void BarMerger::PlaceFirstPart(BarChunk& ioChunk, size_t inDepth, const Bar& inBar, int32_t inChunkIndex, Tail& ioTail,
                               double inEnd)
{
    const std::vector<BarChunk::Row>& rows = ioChunk.GetRows();
    Bar* previous = inDepth < rows.size() ? rows[inDepth].back() : nullptr;
    const bool isMerging = previous != nullptr && MayMerge(ioChunk, inDepth, *previous, inBar);
    const bool isContinued = previous != nullptr && (inBar.ResolveIndex.Index & Bar::sContinuedFromPrevious) != 0;
    BarMergeRecord& record = mRecord.Merges[inDepth];
    if (!isMerging && !isContinued)
    {
        AddBar(ioChunk, inDepth, ioTail, inBar.GetCarry(), inBar.Start, inEnd);
        return;
    }

    if (isMerging && !isContinued)
    {
        previous->Address = sNoAddress;
        if (previous->ResolveIndex.IsUnknownClass())
            previous->ResolveIndex.Index &= sMergedUnknownMask;
        record = {previous->End, inBar.Start};
    }
    else if (record.MergedStart != BarMergeRecord::sNothingToUndo &&
             record.MergedStart >= ChunkStartOfIndex(inChunkIndex, mChunkLength) && inEnd - record.MergedStart >= mMinLength)
    {
        // The bar that was taken in has turned out long. It is taken out behind its children, which stay with the merged bar.
        mPlacements[inDepth] = {previous, &ioChunk, ioTail.Context, record.MergedStart, record.MergedEnd, inEnd};
        record = {};
        return;
    }
    previous->End = inEnd;
    ioTail.Address = previous->Address;
    ioTail.ResolveIndex = previous->ResolveIndex;
}

void BarMerger::PlaceFurtherParts(size_t inDepth, const Bar& inBar, int32_t inFirst, int32_t inLast, const Tail& inTail)
{
    const int32_t first = std::max(inFirst, mChunks->GetFirst());
    const int32_t last = std::min(inLast, mChunks->GetLast());
    if (first != inFirst || last != inLast)
        ++mNumLeftOut;
    for (int64_t index = first; index <= last; ++index)
    {
        const auto chunkIndex = static_cast<int32_t>(index);
        BarChunk* chunk = mChunks->Get(chunkIndex);
        if (chunk == nullptr)
            return;
        if (inDepth > chunk->GetRows().size())
            ++mNumLeftOut;
        else
            AddBar(*chunk, inDepth, inTail, sContinuesCarry, ChunkStartOfIndex(chunkIndex, mChunkLength),
                   chunkIndex == inLast ? inBar.End : ChunkEndOfIndex(chunkIndex, mChunkLength));
    }
}

void BarMerger::Leave(const BarChunk& inSource, size_t inDepth, size_t inIndex)
{
    const Placement& placement = mPlacements[inDepth];
    if (placement.Merged == nullptr)
        return;
    const Bar& bar = *inSource.GetRows()[inDepth][inIndex];
    placement.Merged->End = placement.UndoEnd;
    AddBar(*placement.Chunk, inDepth, {bar.Address, bar.ResolveIndex, placement.Context}, sNoCarry, placement.UndoStart,
           placement.End);
}

// A bar of its own: nothing that was merged before it can be undone any more.
void BarMerger::AddBar(BarChunk& ioChunk, size_t inDepth, const Tail& inBar, uint32_t inCarry, double inStart, double inEnd)
{
    uint64_t index = 0;
    const auto depth = static_cast<int32_t>(inDepth);
    ioChunk.AddBar(depth, GetParent(ioChunk, inDepth), inBar.Address, inBar.ResolveIndex, inCarry, index, inStart, inEnd);
    if (inBar.Context != BarChunk::sNoContext)
        ioChunk.SetInstrumentationContext({depth, index}, inBar.Context);
    mRecord.Merges[inDepth] = {};
}

} // namespace Profiler
