#include "ThreadsModel/Find/FindChunkList.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_set>

namespace Profiler
{
namespace
{

// The chunks of one thread.
class ThreadChunkList
{
public:
    explicit ThreadChunkList(const DetailLODThread& inThread) : mThread(inThread) {}

    // Functions come in the order of their indices.
    void Add(int32_t inFunction, int32_t inChunk, EFindFlags inFlag)
    {
        ChunkToProcess& chunk = mChunks[inChunk];
        chunk.Flags |= inFlag;
        if (chunk.Functions.empty() || chunk.Functions.back().Index != inFunction)
            chunk.Functions.push_back({.Index = inFunction});
        chunk.Functions.back().Flags |= inFlag;
    }

    void MoveTo(std::vector<ChunkToProcess>& ioChunks)
    {
        for (auto& [index, chunk] : mChunks)
        {
            chunk.Thread = &mThread;
            chunk.ChunkIndex = index;
            ioChunks.push_back(std::move(chunk));
        }
    }

private:
    const DetailLODThread& mThread;
    std::map<int32_t, ChunkToProcess> mChunks;
};

// What the block of a function says. A block that is shorter than the table says isn't whole, and counts for nothing.
void gAddChunks(const FindFunctionEntry& inEntry, const Utility::ByteBuffer& inBlock, int32_t inFunction,
                const ChunkWindow& inWindow, ThreadChunkList& ioList)
{
    if (inBlock.GetSize() / sizeof(int32_t) < 2 * uint64_t{inEntry.NumRanges} + inEntry.NumChunks)
        return;
    Utility::ByteCursor cursor(inBlock.GetData(), inBlock.GetSize());
    std::optional<int32_t> rememberedFirst;
    for (uint32_t i = 0; i < inEntry.NumRanges; ++i)
    {
        const auto first = cursor.Read<int32_t>();
        const auto last = cursor.Read<int32_t>();
        if (last >= inWindow.First && first <= inWindow.Last)
        {
            ioList.Add(inFunction, first, StartsInChunk);
            ioList.Add(inFunction, last, EndsInChunk);
            rememberedFirst = first;
        }
        // A bar that starts in a chunk that is searched anyway is found and opened there, so its end must be reached.
        else if (rememberedFirst == first)
            ioList.Add(inFunction, last, EndsInChunk);
    }
    for (uint32_t i = 0; i < inEntry.NumChunks; ++i)
    {
        const auto chunk = cursor.Read<int32_t>();
        if (inWindow.Contains(chunk))
            ioList.Add(inFunction, chunk, InsideChunk);
    }
}

} // namespace

std::vector<ChunkToProcess> gMakeFindChunkList(FindModel& ioModel, const DetailLOD& inLevel, const FindQuery& inQuery,
                                               const std::vector<ResolvedAddress>& inFunctions, const ChunkWindow& inWindow)
{
    std::vector<ChunkToProcess> chunks;
    std::unordered_set<ThreadID> seen;
    Utility::ByteBuffer block;
    for (const ThreadID threadID : inQuery.Threads)
    {
        const DetailLODThread* thread = inLevel.GetThread(threadID);
        if (thread == nullptr || !seen.insert(threadID).second)
            continue;
        const std::vector<FindFunctionEntry> table = ioModel.ReadThreadFunctions(inQuery.FindSet, threadID);
        ThreadChunkList list(*thread);
        for (size_t i = 0; i < inFunctions.size(); ++i)
        {
            const auto found = std::lower_bound(table.begin(), table.end(), inFunctions[i],
                                                [](const FindFunctionEntry& inEntry, const ResolvedAddress& inFunction)
                                                { return ResolvedAddressOrder()(inEntry.Function, inFunction); });
            if (found != table.end() && found->Function == inFunctions[i] &&
                ioModel.ReadBlock(inQuery.FindSet, found->BlockOffset, found->BlockSize, block))
                gAddChunks(*found, block, static_cast<int32_t>(i), inWindow, list);
        }
        list.MoveTo(chunks);
    }
    return chunks;
}

} // namespace Profiler
