#include "ThreadsModel/Find/FindSearch.h"

#include "Session/Pass/ChunkTime.h"
#include "System/Job.h"
#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/Find/FindChunkList.h"
#include "ThreadsModel/Find/FindMatching.h"
#include "Utility/Log.h"

#include <algorithm>
#include <compare>
#include <limits>

namespace Profiler
{
namespace
{

constexpr int32_t sAllPercent = 100;

ChunkWindow gGetChunkWindow(const FindQuery& inQuery, float inChunkLength)
{
    ChunkWindow window{0, std::numeric_limits<int32_t>::max()};
    if (inQuery.StartTime != FindQuery::sCaptureStart)
        window.First = ChunkIndexOfTime(inChunkLength, inQuery.StartTime);
    if (inQuery.EndTime != FindQuery::sCaptureEnd)
        window.Last = ChunkIndexOfTime(inChunkLength, inQuery.EndTime);
    return window;
}

int32_t gGetPercent(size_t inDone, size_t inCount)
{
    return static_cast<int32_t>(static_cast<float>(inDone) / static_cast<float>(inCount) * static_cast<float>(sAllPercent));
}

bool gHasBoth(const ChunkDescription& inDescription)
{
    return inDescription.HasDataTypes(EChunkType::FunctionIndex) && inDescription.HasDataTypes(EChunkType::Bar);
}

// What a later chunk holds of a bar at its depth: the first bar there, if it goes on with it.
const Bar* gFindRest(const BarChunk& inBars, int32_t inDepth, const Bar& inOpen)
{
    const auto depth = static_cast<size_t>(inDepth);
    const std::vector<BarChunk::Row>& rows = inBars.GetRows();
    if (depth >= rows.size() || rows[depth].empty())
        return nullptr;
    const Bar* first = rows[depth].front();
    const bool isRest =
        (first->ResolveIndex.Index & Bar::sContinuedFromPrevious) != 0 && gGetFunction(*first) == gGetFunction(inOpen);
    return isRest ? first : nullptr;
}

} // namespace

FindSearch::FindSearch(FindModel& ioModel, ThreadStreamingManager& ioManager, const DetailLOD& inLevel,
                       const FindRequest& inRequest, const bool& inIsCanceled)
    : mModel(ioModel),
      mManager(ioManager),
      mLevel(inLevel),
      mRequest(inRequest),
      mQuery(*inRequest.Query),
      mIsCanceled(inIsCanceled)
{
}

void FindSearch::Run()
{
    for (IFindVisitor* visitor : mModel.GetVisitors())
        visitor->OnFindStarted(mQuery, mRequest.ID, mRequest.Functions);
    TellProgress(0);

    const ChunkWindow window = gGetChunkWindow(mQuery, mLevel.GetChunkLength());
    const std::vector<ChunkToProcess> chunks = gMakeFindChunkList(mModel, mLevel, mQuery, mRequest.Functions, window);
    for (size_t i = 0; i < std::min(chunks.size(), sNumSlots); ++i)
        Prefetch(chunks[i], mSlots[i]);

    const DetailLODThread* thread = nullptr;
    for (size_t i = 0; i < chunks.size() && !IsCanceled(); ++i)
    {
        PrefetchSlot slot = std::move(mSlots[i % sNumSlots]); // keeps the chunk in memory while it is looked at
        LoadSlot(slot);
        if (chunks[i].Thread != thread)
        {
            thread = chunks[i].Thread;
            mOpenBars.clear();
            for (IFindVisitor* visitor : mModel.GetVisitors())
                visitor->OnThreadChanged(mQuery, thread->GetThreadID());
        }
        if (i + sNumSlots < chunks.size())
            Prefetch(chunks[i + sNumSlots], mSlots[i % sNumSlots]);
        ProcessChunk(slot);
        if (IsCanceled())
            return;
        TellProgress(gGetPercent(i + 1, chunks.size()));
    }
    if (IsCanceled())
        return;
    TellProgress(sAllPercent);
    for (IFindVisitor* visitor : mModel.GetVisitors())
        visitor->OnFindFinished(mQuery, mRequest.ID, mNumReported);
}

// The index may name chunks that aren't there, in a damaged file.
void FindSearch::Prefetch(const ChunkToProcess& inChunk, PrefetchSlot& outSlot)
{
    outSlot.Chunk = &inChunk;
    outSlot.Description = inChunk.Thread->GetChunkTable().GetChunkByIndex(inChunk.ChunkIndex);
    if (!gHasBoth(outSlot.Description))
        return;
    outSlot.Index = mManager.Load<FunctionIndexChunk>(*inChunk.Thread, outSlot.Description, EChunkUnloadMode::Immediate);
    outSlot.Bars = mManager.Load<BarChunk>(*inChunk.Thread, outSlot.Description, EChunkUnloadMode::Immediate);
}

// A chunk that can't be loaded leaves its handle without one; the manager has told why.
void FindSearch::LoadSlot(PrefetchSlot& ioSlot)
{
    if (!gHasBoth(ioSlot.Description))
        return;
    const DetailLODThread& thread = *ioSlot.Chunk->Thread;
    const auto load = [&](EChunkType inType)
    { return mManager.BlockingLoad(thread, ioSlot.Description, inType, EChunkUnloadMode::Immediate); };
    ioSlot.Index = TypedChunkHandle<FunctionIndexChunk>(load(EChunkType::FunctionIndex));
    ioSlot.Bars = TypedChunkHandle<BarChunk>(load(EChunkType::Bar));
}

void FindSearch::ProcessChunk(const PrefetchSlot& inSlot)
{
    const ChunkToProcess& chunk = *inSlot.Chunk;
    if (!inSlot.Index || !inSlot.Bars)
    {
        DropOpenBars(chunk);
        return;
    }
    if ((chunk.Flags & EndsInChunk) != 0)
        CloseOpenBars(chunk, *inSlot.Bars);
    if (chunk.Flags == EndsInChunk)
        return;
    if (gFitsBars(*inSlot.Index, *inSlot.Bars, mRequest.Functions, chunk.Functions))
        FindBars(chunk, *inSlot.Index, *inSlot.Bars);
    else
        Utility::gLog("Function index and bars of chunk %d of thread %d don't belong together, so the search leaves it out",
                      chunk.ChunkIndex, chunk.Thread->GetThreadID());
}

void FindSearch::CloseOpenBars(const ChunkToProcess& inChunk, const BarChunk& inBars)
{
    for (auto open = mOpenBars.begin(); open != mOpenBars.end() && !IsCanceled();)
    {
        const auto& [depth, found] = *open;
        // Where times of a thread went back, a bar may lack its rest: then it ends with what there is of it.
        const Bar* rest = gFindRest(inBars, depth, found.Bar);
        if (rest != nullptr && (rest->ResolveIndex.Index & Bar::sContinuesInNext) != 0)
        {
            ++open;
            continue;
        }
        Bar bar = found.Bar;
        if (rest != nullptr)
            bar.End = rest->End;
        if (bar.End >= mQuery.StartTime && bar.Start <= mQuery.EndTime)
            Report(bar, depth, *inChunk.Thread, found.IsNested, found.ContextID);
        open = mOpenBars.erase(open);
    }
}

void FindSearch::FindBars(const ChunkToProcess& inChunk, const FunctionIndexChunk& inIndex, const BarChunk& inBars)
{
    mFound.clear();
    mRequest.Matcher(inIndex, inBars, mQuery.StartTime, mQuery.EndTime, inChunk.Functions, mFound);
    // An order also for times that are no numbers, which a damaged file may hold.
    std::sort(mFound.begin(), mFound.end(),
              [](const FoundBar& inOne, const FoundBar& inOther)
              {
                  const std::weak_ordering order = std::weak_order(inOne.Bar->Start, inOther.Bar->Start);
                  return std::is_eq(order) ? inOne.Depth < inOther.Depth : std::is_lt(order);
              });
    for (const FoundBar& found : mFound)
    {
        if (IsCanceled())
            return;
        // At one depth only one bar can be open.
        if ((found.Bar->ResolveIndex.Index & Bar::sContinuesInNext) != 0)
            mOpenBars.try_emplace(found.Depth, OpenFoundBar{*found.Bar, found.IsNested, found.ContextID});
        else
            Report(*found.Bar, found.Depth, *inChunk.Thread, found.IsNested, found.ContextID);
    }
}

// A chunk that can't be looked at may be the end of any open bar of a function that ends in it. None of these may be taken for
// one that a later bar at its depth goes on with.
void FindSearch::DropOpenBars(const ChunkToProcess& inChunk)
{
    for (const FunctionToProcess& function : inChunk.Functions)
    {
        const ResolvedAddress& ended = mRequest.Functions[static_cast<size_t>(function.Index)];
        if ((function.Flags & EndsInChunk) != 0)
            std::erase_if(mOpenBars, [&](const auto& inOpen) { return gGetFunction(inOpen.second.Bar) == ended; });
    }
}

void FindSearch::Report(Bar inBar, int32_t inDepth, const DetailLODThread& inThread, bool inIsNested, uint64_t inContext)
{
    inBar.Start = std::max(inBar.Start, mQuery.StartTime);
    inBar.End = std::min(inBar.End, mQuery.EndTime);
    if (inBar.End - inBar.Start == 0.0)
        return;
    ++mNumReported;
    for (IFindVisitor* visitor : mModel.GetVisitors())
        visitor->OnBarFound(mQuery, inBar, inDepth, inThread.GetThreadID(), inIsNested, inContext);
}

void FindSearch::TellProgress(int32_t inPercent)
{
    for (IFindVisitor* visitor : mModel.GetVisitors())
        visitor->OnFindProgress(mQuery, mRequest.ID, inPercent);
}

bool FindSearch::IsCanceled() const
{
    return System::gIsCanceled(mIsCanceled);
}

} // namespace Profiler
