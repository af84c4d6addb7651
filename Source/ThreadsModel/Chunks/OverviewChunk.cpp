#include "ThreadsModel/Chunks/OverviewChunk.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <span>

namespace Profiler
{
namespace
{

constexpr size_t sFirstBlockSize = 1024;
constexpr float sBlockGrowth = 1.5F;

// A chunk that was read gets all its memory at once.
constexpr float sNoGrowth = 1.0F;

// Ascending, none of them twice, and such as index arrays of times.
bool gAreTimed(std::span<const ThreadState> inStates)
{
    return std::adjacent_find(inStates.begin(), inStates.end(), std::greater_equal<>()) == inStates.end() &&
           static_cast<int>(inStates.back()) < sNumTimedThreadStates;
}

bool gIsSound(const OverviewChunk::EntryReference& inEntry)
{
    switch (inEntry.Type)
    {
    case EOverviewEntryType::SingleState:
        return gAreTimed({&inEntry.As<SingleStateEntry>().State, 1});
    case EOverviewEntryType::TwoStates:
        return gAreTimed(inEntry.As<TwoStatesEntry>().States);
    case EOverviewEntryType::ThreeStates:
        return gAreTimed(inEntry.As<ThreeStatesEntry>().States);
    case EOverviewEntryType::AllStates:
        break;
    }
    return true;
}

// Puts the given states and their shares into a record for that many.
template <class T>
void gSetShares(T& outRecord, const OverviewAccumulator& inAccumulator,
                const std::array<ThreadState, sNumTimedThreadStates>& inStates)
{
    for (size_t i = 0; i < outRecord.States.size(); ++i)
    {
        outRecord.States[i] = inStates[i];
        outRecord.Shares[i] = inAccumulator.Shares[static_cast<size_t>(inStates[i])];
    }
}

} // namespace

OverviewChunk::OverviewChunk() : mArena(std::make_unique<ChunkArena>(sFirstBlockSize, true, sBlockGrowth)) {}

// The arena's memory is zero, padding included, so that the bytes on disk are told by the content alone.
template <class T>
T& OverviewChunk::AddRecord(EOverviewEntryType inType, double inStart, double inEnd)
{
    static_assert(std::is_trivially_default_constructible_v<T>);
    T& record = *static_cast<T*>(mArena->Allocate(sizeof(T)));
    record.Start = inStart;
    record.End = inEnd;
    mTypes.push_back(inType);
    mEntries.push_back(&record);
    return record;
}

void OverviewChunk::AddEntry(ThreadState inState, uint32_t inReadyIndex, CallstackKey inStack, double inStart, double inEnd,
                             double inRealStart, double inRealEnd)
{
    auto& record = AddRecord<SingleStateEntry>(EOverviewEntryType::SingleState, inStart, inEnd);
    record.Stack = inStack;
    record.RealStart = inRealStart;
    record.RealEnd = inRealEnd;
    record.ReadyIndex = inReadyIndex;
    record.State = inState;
}

void OverviewChunk::AddAccumulated(const OverviewAccumulator& inAccumulator)
{
    std::array<ThreadState, sNumTimedThreadStates> states{};
    size_t count = 0;
    for (size_t state = 0; state < inAccumulator.Shares.size(); ++state)
    {
        if (inAccumulator.Shares[state] != 0.0F)
            states[count++] = static_cast<ThreadState>(state);
    }

    const double start = inAccumulator.Start;
    const double end = inAccumulator.End;
    if (count == 1)
        AddEntry(states[0], sNoReadyIndex, sNoCallstack, start, end, start, end);
    else if (count == 2)
        gSetShares(AddRecord<TwoStatesEntry>(EOverviewEntryType::TwoStates, start, end), inAccumulator, states);
    else if (count == 3)
        gSetShares(AddRecord<ThreeStatesEntry>(EOverviewEntryType::ThreeStates, start, end), inAccumulator, states);
    else
        AddRecord<AllStatesEntry>(EOverviewEntryType::AllStates, start, end).Shares = inAccumulator.Shares;
}

OverviewChunk::EntryRange OverviewChunk::FindEntries(double inStart, double inEnd) const
{
    if (mEntries.empty())
        return {};
    const size_t first = FindEntry(inStart);
    const size_t last = FindEntry(inEnd);
    return last < first ? EntryRange{} : EntryRange{first, last + 1};
}

// An entry that holds the time, else the next one behind it, else the last one.
size_t OverviewChunk::FindEntry(double inTime) const
{
    size_t low = 0;
    for (size_t end = mEntries.size(); low < end;)
    {
        // Written with the end behind the range, so that nothing goes below 0; the middle is that of both ends inside it.
        const size_t middle = (low + end - 1) / 2;
        if (inTime > mEntries[middle]->End)
            low = middle + 1;
        else if (mEntries[middle]->Start <= inTime)
            return middle;
        else
            end = middle;
    }
    return std::min(low, mEntries.size() - 1);
}

void OverviewChunk::Serialize(Utility::ByteBuffer& ioBuffer)
{
    ioBuffer.AppendValue(mContinuesFromPrevious);
    ioBuffer.AppendValue(mLastEntryEndTime);
    ioBuffer.AppendValue(static_cast<uint64_t>(mTypes.size()));
    ioBuffer.Append(mTypes.data(), mTypes.size());
    ioBuffer.AppendValue(mArena->GetTotal());
    for (const ChunkArena::Block& block : mArena->GetBlocks())
        ioBuffer.Append(block.Memory.get(), block.Used);
}

bool OverviewChunk::Deserialize(Utility::ByteCursor& ioCursor)
{
    mContinuesFromPrevious = ioCursor.Read<uint8_t>();
    mLastEntryEndTime = ioCursor.Read<double>();
    uint64_t size = 0;
    if (!ReadTypes(ioCursor, size))
        return false;
    const auto total = ioCursor.Read<uint64_t>();
    if (ioCursor.HasFailed() || total != size || total != ioCursor.GetRemaining())
        return false;

    mArena = std::make_unique<ChunkArena>(total, false, sNoGrowth);
    auto* next = static_cast<std::byte*>(mArena->Allocate(total));
    if (total != 0)
        std::memcpy(next, ioCursor.Take(total), total);
    mEntries.clear();
    mEntries.reserve(mTypes.size());
    bool isSound = true;
    for (const EOverviewEntryType type : mTypes)
    {
        mEntries.push_back(reinterpret_cast<const OverviewEntry*>(next));
        isSound = isSound && gIsSound({type, mEntries.back()});
        next += sOverviewEntrySizes[static_cast<size_t>(type)];
    }
    return isSound;
}

// outSize is what the records of all types take.
bool OverviewChunk::ReadTypes(Utility::ByteCursor& ioCursor, uint64_t& outSize)
{
    const auto count = ioCursor.Read<uint64_t>();
    const uint8_t* types = ioCursor.Take(count);
    if (ioCursor.HasFailed())
        return false;
    mTypes.resize(count);
    for (size_t i = 0; i < count; ++i)
    {
        if (types[i] >= sNumOverviewEntryTypes)
            return false;
        mTypes[i] = static_cast<EOverviewEntryType>(types[i]);
        outSize += sOverviewEntrySizes[types[i]];
    }
    return true;
}

} // namespace Profiler
