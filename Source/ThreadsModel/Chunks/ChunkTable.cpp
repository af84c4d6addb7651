#include "ThreadsModel/Chunks/ChunkTable.h"

#include "Session/Pass/ChunkTime.h"
#include "Utility/Assert.h"

#include <algorithm>
#include <cmath>
#include <limits>

RTTI_BEGIN(Profiler::ChunkTable, 1)
    RTTI_PROPERTY("Chunks", mChunks)
RTTI_END()

namespace Profiler
{
namespace
{

using System::MutexLock;

bool gIsBelow(const ChunkDescription& inChunk, int32_t inIndex)
{
    return inChunk.mIndex < inIndex;
}

// The nearest index to a number that may be none.
int32_t gToIndex(double inNumber)
{
    constexpr double lowest = std::numeric_limits<int32_t>::min();
    constexpr double highest = std::numeric_limits<int32_t>::max();
    return std::isnan(inNumber) ? 0 : static_cast<int32_t>(std::clamp(inNumber, lowest, highest));
}

} // namespace

bool ChunkTable::GetChunk(float inChunkLength, double inTime, ChunkDescription& outChunk) const
{
    const int32_t index = ChunkIndexOfTime(inChunkLength, inTime);
    const MutexLock lock(mMutex);
    const auto found = Find(index);
    if (found == mChunks.end() || found->mIndex != index)
        return false;
    outChunk = *found;
    return true;
}

ChunkDescription ChunkTable::GetChunkByIndex(int32_t inIndex) const
{
    const MutexLock lock(mMutex);
    const auto found = Find(inIndex);
    return found != mChunks.end() && found->mIndex == inIndex ? *found : ChunkDescription();
}

ChunkDescription ChunkTable::GetOrCreateChunk(int32_t inIndex)
{
    const MutexLock lock(mMutex);
    return GetOrAdd(inIndex);
}

ChunkDescription ChunkTable::GetOrCreateChunk(float inChunkLength, double inTime)
{
    return GetOrCreateChunk(ChunkIndexOfTime(inChunkLength, inTime));
}

ChunkTable::DescriptionList ChunkTable::GetOrCreateChunks(float inChunkLength, double inStart, double inEnd)
{
    const int64_t last = ChunkIndexOfTime(inChunkLength, inEnd);
    DescriptionList chunks;
    const MutexLock lock(mMutex);
    for (int64_t index = ChunkIndexOfTime(inChunkLength, inStart); index <= last; ++index)
        chunks.push_back(GetOrAdd(static_cast<int32_t>(index)));
    return chunks;
}

bool ChunkTable::FindPreviousChunk(uint8_t inMask, float inChunkLength, double inTime, ChunkDescription& outChunk) const
{
    const MutexLock lock(mMutex);
    for (auto next = Find(ChunkIndexOfTime(inChunkLength, inTime)); next != mChunks.begin();)
    {
        --next;
        if (next->HasDataTypes(inMask))
        {
            outChunk = *next;
            return true;
        }
    }
    return false;
}

bool ChunkTable::FindNextChunk(uint8_t inMask, float inChunkLength, double inTime, ChunkDescription& outChunk) const
{
    const int32_t index = ChunkIndexOfTime(inChunkLength, inTime);
    const MutexLock lock(mMutex);
    const auto found =
        std::find_if(Find(index), mChunks.end(),
                     [=](const ChunkDescription& inChunk) { return inChunk.mIndex != index && inChunk.HasDataTypes(inMask); });
    if (found == mChunks.end())
        return false;
    outChunk = *found;
    return true;
}

ChunkTable::DescriptionList ChunkTable::GetChunksInRange(uint8_t inMask, float inChunkLength, double inStart, double inEnd) const
{
    const MutexLock lock(mMutex);
    if (mChunks.empty())
        return {};
    const auto length = static_cast<double>(inChunkLength);
    int32_t first = gToIndex(std::floor(inStart / length));
    const int32_t last = mChunks.back().mIndex;
    int32_t stop = inEnd >= ChunkEndOfIndex(last, inChunkLength) ? last : gToIndex(std::ceil(inEnd / length));
    if (last < first || stop < 0)
        return {};
    first = std::max(first, 0);
    stop = std::max(std::min(stop, last), 0);

    DescriptionList chunks;
    for (auto next = Find(first); next != mChunks.end() && next->mIndex <= stop; ++next)
    {
        if (next->HasDataTypes(inMask))
            chunks.push_back(*next);
    }
    return chunks;
}

bool ChunkTable::IsInOrder() const
{
    const System::MutexLock lock(mMutex);
    return std::adjacent_find(mChunks.begin(), mChunks.end(),
                              [](const ChunkDescription& inOne, const ChunkDescription& inNext)
                              { return inOne.mIndex >= inNext.mIndex; }) == mChunks.end();
}

size_t ChunkTable::GetChunkCount() const
{
    const MutexLock lock(mMutex);
    return mChunks.size();
}

int32_t ChunkTable::GetLastIndex() const
{
    return mChunks.empty() ? ChunkDescription::sNoIndex : mChunks.back().mIndex;
}

void ChunkTable::SetBarData(int32_t inIndex, uint64_t inOffset, uint64_t inSize, uint64_t inBoundaryOffset,
                            uint64_t inBoundarySize)
{
    const MutexLock lock(mMutex);
    if (ChunkLayout* layout = AddDataType(inIndex, EChunkType::Bar))
    {
        layout->BarDataOffset = inOffset;
        layout->BarDataSize = inSize;
        layout->BoundaryDataOffset = inBoundaryOffset;
        layout->BoundaryDataSize = inBoundarySize;
    }
}

void ChunkTable::SetOverviewData(int32_t inIndex, uint64_t inOffset, uint64_t inSize)
{
    const MutexLock lock(mMutex);
    if (ChunkLayout* layout = AddDataType(inIndex, EChunkType::Overview))
    {
        layout->OverviewDataOffset = inOffset;
        layout->OverviewDataSize = inSize;
    }
}

void ChunkTable::SetFunctionIndexData(int32_t inIndex, uint64_t inOffset, uint64_t inSize)
{
    const MutexLock lock(mMutex);
    if (ChunkLayout* layout = AddDataType(inIndex, EChunkType::FunctionIndex))
    {
        layout->FunctionIndexOffset = inOffset;
        layout->FunctionIndexSize = inSize;
    }
}

ChunkTable::DescriptionList::const_iterator ChunkTable::Find(int32_t inIndex) const
{
    return std::lower_bound(mChunks.begin(), mChunks.end(), inIndex, gIsBelow);
}

// The layout of a chunk whose data of the kind is on disk from now on; null if there is no such chunk.
ChunkLayout* ChunkTable::AddDataType(int32_t inIndex, EChunkType inType)
{
    const auto found = std::lower_bound(mChunks.begin(), mChunks.end(), inIndex, gIsBelow);
    const bool exists = found != mChunks.end() && found->mIndex == inIndex;
    PROFILER_ASSERT_AT("ThreadsModel/Chunks/ChunkTable", exists, "There is no chunk %d to set data of", inIndex);
    if (!exists)
        return nullptr;
    found->mAvailableDataTypes |= static_cast<uint8_t>(inType);
    return &found->mLayout;
}

ChunkDescription& ChunkTable::GetOrAdd(int32_t inIndex)
{
    // Time goes on: nearly always it is the last one, or one behind it.
    const auto place = mChunks.empty() || mChunks.back().mIndex < inIndex
                           ? mChunks.end()
                           : std::lower_bound(mChunks.begin(), mChunks.end(), inIndex, gIsBelow);
    if (place != mChunks.end() && place->mIndex == inIndex)
        return *place;
    ChunkDescription chunk;
    chunk.mIndex = inIndex;
    return *mChunks.insert(place, chunk);
}

} // namespace Profiler
