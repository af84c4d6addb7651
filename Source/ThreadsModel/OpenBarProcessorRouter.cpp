#include "ThreadsModel/OpenBarProcessorRouter.h"

#include "Session/Pass/ChunkTime.h"
#include "ThreadsModel/Find/FindProcessingModel.h"
#include "ThreadsModel/Levels/ChunkToFill.h"
#include "ThreadsModel/ThreadsModel.h"

#include <algorithm>

namespace Profiler
{

OpenBarProcessorRouter::OpenBarProcessorRouter(ThreadDetailLOD0ProcessingState& inOwner, OpenBarProcessor& inProcessor)
    : mOwner(inOwner),
      mRegistration(inProcessor.BarsChanged.Connect(
          [this](const OpenBars& inBars, int inKeepCount, int inChunkIndex, double inChunkTime, bool inIsChunkFinished) {
              Route({inBars, static_cast<size_t>(inKeepCount), inChunkIndex, inChunkTime}, inIsChunkFinished);
          }))
{
}

void OpenBarProcessorRouter::Route(const Report& inReport, bool inIsChunkFinished)
{
    if (inReport.Bars.IsEmpty())
        return;
    // Times that went back may lead to a chunk that others read by now: its bars are left out.
    if (!CanBeFilled(inReport.ChunkIndex))
        mOwner.Model.CountLeftOutBars(inReport.Bars.GetSize());
    else if (MoveToChunk(inReport.ChunkIndex))
        WriteBars(inReport);
    else
        return;
    NoteClosedBars(inReport);
    if (inIsChunkFinished && CanBeFilled(inReport.ChunkIndex))
        HandOver(false);
    mOwner.Data.MaxStackDepth = std::max(mOwner.Data.MaxStackDepth, static_cast<int32_t>(inReport.Bars.GetSize()));
}

// A chunk index that is too large for another one behind it comes of arithmetic in single precision at the end of all times.
bool OpenBarProcessorRouter::CanBeFilled(int32_t inIndex) const
{
    return inIndex >= mFirstOpenChunk && inIndex != std::numeric_limits<int32_t>::max();
}

// False if the pass is being stopped. REQUIRES: the chunk can be filled.
bool OpenBarProcessorRouter::MoveToChunk(int32_t inIndex)
{
    if (mChunk && inIndex == mChunkIndex)
        return true;
    // All bars of a thread may close before its chunk is over; the report of the next one is then the first of a later chunk.
    if (mChunk && mChunkIndex < inIndex && CanBeFilled(mChunkIndex))
        HandOver(false);
    else if (!mChunk && inIndex < 0)
        mOwner.Thread.BeginDetailAt(inIndex);
    if (!gGetChunkToFill(mOwner.Model.GetStreamingManager(), mOwner.Thread, inIndex, mChunk))
        return false;
    mChunkIndex = inIndex;
    mFilledChunks.push_back(inIndex);
    return true;
}

void OpenBarProcessorRouter::WriteBars(const Report& inReport)
{
    uint64_t parent = Bar::sNoParent;
    for (size_t depth = 0; depth < inReport.Bars.GetSize(); ++depth)
        parent = WriteBar(inReport, depth, parent);
}

// Enters an open bar in its row, or extends it if an earlier report did; gives its place in the row.
uint64_t OpenBarProcessorRouter::WriteBar(const Report& inReport, size_t inDepth, uint64_t inParent)
{
    const OpenBar& bar = inReport.Bars[inDepth];
    const bool isContinued = ChunkIndexOfTime(sLevel0ChunkLengthMs, bar.Start) != inReport.ChunkIndex;
    const bool isOpen = inDepth < inReport.KeepCount;
    const uint32_t carry = (isContinued ? Bar::sContinuedFromPrevious >> Bar::sCarryShift : 0) |
                           (isOpen ? Bar::sContinuesInNext >> Bar::sCarryShift : 0);
    const std::vector<BarChunk::Row>& rows = mChunk->GetRows();
    if (inDepth < rows.size())
    {
        Bar& last = *rows[inDepth].back();
        if ((last.ResolveIndex.Index & Bar::sContinuesInNext) != 0)
        {
            last.ResolveIndex.Index = (last.ResolveIndex.Index & ResolveIndex::sComparedMask) | carry << Bar::sCarryShift;
            last.End = bar.End;
            return rows[inDepth].size() - 1;
        }
    }
    uint64_t index = 0;
    const auto depth = static_cast<int32_t>(inDepth);
    mChunk->AddBar(depth, static_cast<uint32_t>(inParent), bar.Frame.RelativeAddress, bar.Frame.ResolveIndex, carry, index,
                   std::max(bar.Start, inReport.ChunkTime), bar.End);
    if (bar.Frame.ResolveIndex.IsInstrumented() && bar.InstrumentationContextID != BarChunk::sNoContext)
        mChunk->SetInstrumentationContext({depth, index}, bar.InstrumentationContextID);
    return index;
}

// The bars of a report that is left out end in the last chunk that was written, as far as anybody can see; and those that have
// begun in such a report too stand nowhere.
void OpenBarProcessorRouter::NoteClosedBars(const Report& inReport)
{
    const bool isLeftOut = !CanBeFilled(inReport.ChunkIndex);
    const int32_t last = isLeftOut ? mFirstOpenChunk - 1 : inReport.ChunkIndex;
    for (size_t depth = inReport.KeepCount; depth < inReport.Bars.GetSize(); ++depth)
    {
        const OpenBar& bar = inReport.Bars[depth];
        const int32_t first = ChunkIndexOfTime(sLevel0ChunkLengthMs, bar.Start);
        if (isLeftOut && !std::binary_search(mFilledChunks.begin(), mFilledChunks.end(), first))
            continue;
        FindProcessingModel::AddInvocation(mOwner.InvocationData, bar.Frame.RelativeAddress, bar.Frame.ResolveIndex, first, last);
    }
}

void OpenBarProcessorRouter::HandOver(bool inIsLast)
{
    mFirstOpenChunk = mChunkIndex + 1;
    std::vector<TypedChunkHandle<BarChunk>> handles;
    handles.push_back(mChunk);
    mOwner.Model.BuildLOD0DetailDerivedData(std::move(handles), mOwner.Thread, inIsLast);
}

void OpenBarProcessorRouter::Finish()
{
    if (mChunk && CanBeFilled(mChunkIndex))
        HandOver(true);
    mChunk = {};
}

} // namespace Profiler
