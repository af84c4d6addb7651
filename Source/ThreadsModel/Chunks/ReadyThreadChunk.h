// Which thread readied which, when, and which wait that ended: up to 10,000 records of one level of detail.
//
// Docs/ReadyThreads.md describes the form on disk. Threads and ownership: as Chunk says. Invariant: records stand in order of
// arrival; the time index is empty in a chunk that is being filled.
#pragma once

#include "Session/Events/TraceEvent.h"
#include "Session/Processes/ThreadState.h"
#include "ThreadsModel/Chunks/Chunk.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace Profiler
{

// All times in milliseconds.
struct ReadyRecord
{
    double ReadyTime = 0.0; // when the thread was readied
    double WaitStart = 0.0; // of the wait that ended
    double WaitEnd = 0.0;   // when the readied thread ran again; the largest double until that is known
    uint32_t WaitState = static_cast<uint32_t>(ThreadState::NotStarted); // a ThreadState
    CallstackKey SwitchInStack = sNoCallstack;                           // of the readied thread when it ran again
    CallstackKey ReadyStack = sNoCallstack;                              // of the readying thread
    ThreadID ReadiedThreadID = -1;
    ThreadID ReadyingThreadID = -1;

    bool operator==(const ReadyRecord&) const = default;
};

// Where a chunk lies in ReadyThreads.dat, and the span of its ready times.
struct ReadyThreadChunkHeader
{
    double Start = 0.0; // milliseconds
    double End = 0.0;
    uint64_t Offset = 0; // of the zstd frame
    uint64_t Size = 0;   // bytes of the frame
};
static_assert(sizeof(ReadyThreadChunkHeader) == 32);

// The 32-bit ids of records and chunks: the level of detail in the top 4 bits, a number in the others.
inline constexpr int sReadyIDLevelShift = 28;
inline constexpr uint32_t sReadyIDNumberMask = 0x0FFFFFFF;

class ReadyThreadChunk final : public Chunk
{
public:
    static constexpr size_t sMaxRecords = 10000;

    [[nodiscard]] static constexpr EChunkType sGetChunkType() { return EChunkType::ReadyThread; }

    // Makes the time index.
    void Serialize(Utility::ByteBuffer& ioBuffer) override;
    [[nodiscard]] bool Deserialize(Utility::ByteCursor& ioCursor) override;
    [[nodiscard]] EChunkType GetChunkType() const override { return sGetChunkType(); }
    [[nodiscard]] uint64_t GetSize() const override { return mSize.load(std::memory_order_relaxed); }

    // REQUIRES: fewer than sMaxRecords records are there.
    void AddRecord(const ReadyRecord& inRecord);

    [[nodiscard]] const std::vector<ReadyRecord>& GetRecords() const { return mRecords; }

    // Positions of the records, by ready time.
    [[nodiscard]] const std::vector<uint16_t>& GetTimeIndex() const { return mTimeIndex; }

private:
    void UpdateSize();

    std::vector<ReadyRecord> mRecords;
    std::vector<uint16_t> mTimeIndex;
    std::atomic<uint64_t> mSize = 0;
};

} // namespace Profiler
