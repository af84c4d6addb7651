// Derives the bars of a coarser level from those of the finest one: long bars as they are, runs of short neighbours as one bar.
//
// Of two neighbours under one parent that lie closer together than the level's threshold, and neither of which is long, the first
// becomes a bar without an address that stands for both, and so on. A bar that the finest level has cut at the edge of its
// chunks comes back as one; if it turns out long only then, its merge is undone. Children are walked even where their parent was
// merged, and then merge among themselves. Docs/Timeline.md tells the rule with examples.
//
// Threads: one at a time. Ownership: lives for one batch of source chunks; what must outlive it stands in the records.
#pragma once

#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/Levels/LevelChunks.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace Profiler
{

// What a merged bar was before it took in its latest bar.
struct BarMergeRecord
{
    static constexpr double sNothingToUndo = std::numeric_limits<double>::max();

    double MergedEnd = 0.0;              // of the bar, in milliseconds
    double MergedStart = sNothingToUndo; // of the one it took in
};

// How far the bars of a thread at a level have come.
struct BarBuildRecord
{
    std::vector<BarMergeRecord> Merges;                           // by depth
    int32_t FirstOpenChunk = std::numeric_limits<int32_t>::min(); // all before were handed over
};

class BarMerger
{
public:
    // inThreshold and inChunkLength are those of the level that ioThread belongs to, in milliseconds.
    BarMerger(ThreadStreamingManager& ioManager, DetailLODThread& ioThread, float inThreshold, float inChunkLength,
              BarBuildRecord& ioRecord);

    // Takes the bars of the thread's next source chunk, and hands over the level's chunks that are complete with it. False if the
    // pass is being stopped: nothing is handed over then.
    [[nodiscard]] bool Merge(const BarChunk& inSource, const bool& inIsCanceled);

    // There are no more source chunks: hands over the last one of the level, if this merger took any bars.
    void Finish();

    // Bars, and parts of bars, that had no place in the level: in chunks that were handed over or that lie outside of the
    // source's span, too many chunks, or with no bar above them.
    [[nodiscard]] uint64_t GetNumLeftOut() const { return mNumLeftOut; }

private:
    // A bar of the source on its way into the level.
    struct Placement
    {
        Bar* Merged = nullptr; // that is to be cut back behind the children; null if nothing is to be undone
        BarChunk* Chunk = nullptr;
        uint64_t Context = 0;
        double UndoStart = 0.0;
        double UndoEnd = 0.0;
        double End = 0.0;
    };

    // What the parts of a bar in further chunks are of.
    struct Tail
    {
        uint64_t Address;
        Profiler::ResolveIndex ResolveIndex;
        uint64_t Context;
    };

    void Enter(const BarChunk& inSource, size_t inDepth, size_t inIndex);
    void Leave(const BarChunk& inSource, size_t inDepth, size_t inIndex);
    void PlaceFirstPart(BarChunk& ioChunk, size_t inDepth, const Bar& inBar, int32_t inChunkIndex, Tail& ioTail, double inEnd);
    void PlaceFurtherParts(size_t inDepth, const Bar& inBar, int32_t inFirst, int32_t inLast, const Tail& inTail);
    void AddBar(BarChunk& ioChunk, size_t inDepth, const Tail& inBar, uint32_t inCarry, double inStart, double inEnd);
    [[nodiscard]] bool MayMerge(const BarChunk& inChunk, size_t inDepth, const Bar& inPrevious, const Bar& inBar) const;
    [[nodiscard]] bool IsLong(const Bar& inBar) const { return inBar.End - inBar.Start > mMinLength; }
    void HandOver(int32_t inEnd);
    [[nodiscard]] static uint32_t GetParent(const BarChunk& inChunk, size_t inDepth);

    ThreadStreamingManager& mManager;
    DetailLODThread& mThread;
    const float mChunkLength;
    const double mMinLength; // of a bar that is long; computed in single precision, as the threshold is
    const double mMaxGap;
    BarBuildRecord& mRecord;
    std::optional<LevelChunks> mChunks; // of the source chunk in hand
    std::vector<Placement> mPlacements; // by depth
    bool mHasBars = false;
    uint64_t mNumLeftOut = 0;
};

} // namespace Profiler
