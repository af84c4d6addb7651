// What a finished model keeps of ReadyThreads.dat: where the chunks lie, and which record belongs to which ready index.
//
// Threads: Load on the one that owns the model; everything else on any, once that has ended. Ownership: the ThreadsModel. The
// streaming manager outlives it.
#pragma once

#include "Serialization/ReaderErrorState.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadFile.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Profiler
{

class ThreadStreamingManager;

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

    [[nodiscard]] ThreadStreamingManager& GetManager() const { return mManager; }

private:
    [[nodiscard]] bool ParseHeader(std::span<const uint8_t> inHeader);

    ThreadStreamingManager& mManager;
    ReadyThreadLevels mLevels;
    std::vector<uint32_t> mRecordIDs; // by ready index
};

} // namespace Profiler
