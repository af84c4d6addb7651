// What a finished model keeps of ReadyThreads.dat: where the chunks lie, and which record belongs to which ready index; and the
// query for the records of a span of time.
//
// Threads: Load on the one that owns the model; everything else on any, once that has ended. Ownership: the ThreadsModel. The
// streaming manager outlives it, and results.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/ChunkStreaming.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadFile.h"

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Profiler
{

class ThreadStreamingManager;

// Who readied whom in a span of time, for a view that fades from one level of detail into the next.
struct ReadyThreadsResult
{
    using RecordList = std::vector<std::pair<const ReadyRecord*, uint32_t>>; // with the record's id

    std::vector<TypedChunkHandle<ReadyThreadChunk>> Chunks; // keep the records in memory; those on their way have no chunk yet
    RecordList Primary;                                     // of the finest level of the view
    RecordList Secondary;                                   // of the coarser ones
    float Blend = 0.0F;                                     // how far the primary level has faded, from 0 to 1
};

class ReadyThreadData
{
public:
    explicit ReadyThreadData(ThreadStreamingManager& inManager) : mManager(inManager) {}

    ReadyThreadData(const ReadyThreadData&) = delete;
    ReadyThreadData& operator=(const ReadyThreadData&) = delete;

    // Reads the end of the file. False, with what was loaded before left as it was, if the file isn't one or is damaged.
    [[nodiscard]] bool Load(const std::string& inPath, Serialization::ReaderErrorState& ioErrors);

    [[nodiscard]] const ReadyThreadLevels& GetLevels() const { return mLevels; }

    // The id of the record of a ready index; sNoReadyRecord for one that got none, and for one that doesn't exist.
    [[nodiscard]] uint32_t GetRecordID(uint32_t inReadyIndex) const
    {
        return inReadyIndex < mRecordIDs.size() ? mRecordIDs[inReadyIndex] : sNoReadyRecord;
    }
    [[nodiscard]] size_t GetReadyIndexCount() const { return mRecordIDs.size(); }

    // The records that were readied from inStart to inEnd, in milliseconds, the last one before included. The scale, in
    // milliseconds, chooses the primary level by the levels' thresholds, of which inBaseScale stands for the first; a primary
    // level that has faded as far as inFadeLimit isn't collected. Besides, the records with the ids inFirst and inSecond,
    // sNoReadyRecord for none, and the pinned ones of the primary level and above, whatever their time. Waits for nothing: what
    // isn't in memory is asked for, and found by a later call.
    void GetReadyThreads(uint32_t inFirst, uint32_t inSecond, const std::unordered_set<uint32_t>& inPinned,
                         ReadyThreadsResult& outResult, double inStart, double inEnd, float inFadeLimit, float inScale,
                         float inBaseScale) const;

    // Asks for a chunk, which then stays a while. An empty handle for one that doesn't exist. inCallback may be empty.
    [[nodiscard]] TypedChunkHandle<ReadyThreadChunk> LoadChunk(size_t inLevel, size_t inChunk,
                                                               const ChunkCallback& inCallback) const;

    [[nodiscard]] ThreadStreamingManager& GetManager() const { return mManager; }

private:
    using WantedSet = std::set<uint32_t>;

    [[nodiscard]] bool ParseHeader(std::span<const uint8_t> inHeader);
    void CollectLevel(size_t inLevel, double inStart, double inEnd, WantedSet& ioWanted, ReadyThreadsResult& ioResult,
                      ReadyThreadsResult::RecordList& ioRecords) const;
    void CollectWanted(uint32_t inRecordID, size_t inPrimaryLevel, ReadyThreadsResult& ioResult) const;

    ThreadStreamingManager& mManager;
    ReadyThreadLevels mLevels;
    std::vector<uint32_t> mRecordIDs; // by ready index
};

} // namespace Profiler
