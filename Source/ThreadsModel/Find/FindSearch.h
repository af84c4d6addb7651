// One search: the work of its job, from the list of chunks to the last call of a visitor.
//
// Chunks are asked for ahead of their turn, in a ring of slots, so that the disk works while bars are looked at. A bar that goes
// on beyond the chunk in which it was found is kept open, by its depth, until the chunk where it ends comes by.
//
// Threads: the job's alone. Ownership: refers to the model, the visitors and what was asked; all outlive it.
#pragma once

#include "ThreadsModel/Find/FindChunk.h"
#include "ThreadsModel/Find/FindModel.h"
#include "ThreadsModel/Find/IFindVisitor.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace Profiler
{

class DetailLOD;

// What a search is made of, from the call that starts it.
struct FindRequest
{
    std::shared_ptr<const FindQuery> Query;
    uint32_t ID = 0;
    std::vector<ResolvedAddress> Functions; // that are looked up
    FindMatcher Matcher;
};

class FindSearch
{
public:
    // inLevel is the finest one.
    FindSearch(FindModel& ioModel, ThreadStreamingManager& ioManager, const DetailLOD& inLevel, const FindRequest& inRequest,
               const bool& inIsCanceled);

    FindSearch(const FindSearch&) = delete;
    FindSearch& operator=(const FindSearch&) = delete;

    // Ends early, without a last word to the visitors, when it is cancelled.
    void Run();

private:
    static constexpr size_t sNumSlots = 32;

    struct PrefetchSlot
    {
        TypedChunkHandle<FunctionIndexChunk> Index;
        TypedChunkHandle<BarChunk> Bars;
        ChunkDescription Description;
        const ChunkToProcess* Chunk = nullptr;
    };

    // A bar that was found and goes on beyond its chunk.
    struct OpenFoundBar
    {
        Profiler::Bar Bar;
        bool IsNested = false;
        uint64_t ContextID = BarChunk::sNoContext;
    };

    void Prefetch(const ChunkToProcess& inChunk, PrefetchSlot& outSlot);
    void LoadSlot(PrefetchSlot& ioSlot);
    void ProcessChunk(const PrefetchSlot& inSlot);
    void CloseOpenBars(const ChunkToProcess& inChunk, const BarChunk& inBars);
    void FindBars(const ChunkToProcess& inChunk, const FunctionIndexChunk& inIndex, const BarChunk& inBars);
    void DropOpenBars(const ChunkToProcess& inChunk);
    void Report(Bar inBar, int32_t inDepth, const DetailLODThread& inThread, bool inIsNested, uint64_t inContext);
    void TellProgress(int32_t inPercent);
    [[nodiscard]] bool IsCanceled() const;

    FindModel& mModel;
    ThreadStreamingManager& mManager;
    const DetailLOD& mLevel;
    const FindRequest& mRequest;
    const FindQuery& mQuery;
    const bool& mIsCanceled;
    std::array<PrefetchSlot, sNumSlots> mSlots;
    std::unordered_map<int32_t, OpenFoundBar> mOpenBars; // by depth, of the thread in hand
    std::vector<FoundBar> mFound;                        // work space of FindBars
    uint32_t mNumReported = 0;
};

} // namespace Profiler
