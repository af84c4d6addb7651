// The content of a chunk of events.dat: the events' payloads, and behind them one array per common field, so that a reader can
// look at times and kinds without decoding payloads. Writer and reader stand side by side here; Docs/EventStream.md describes it.
//
// Threads: one at a time.
#pragma once

#include "Session/Events/TraceEvent.h"
#include "Utility/ByteBuffer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace Profiler
{

// The arrays behind the payloads, in the order of their offsets in the header.
enum EEventArray : uint8_t
{
    TypeArray = 0,
    TimeArray = 1,
    ProcessArray = 2,
    ThreadArray = 3,
    PayloadOffsetArray = 4,
};
inline constexpr size_t sNumEventArrays = 5;

// One uint64 offset for the payloads and one for each array, from the first byte of the content.
inline constexpr size_t sEventChunkHeaderSize = (1 + sNumEventArrays) * sizeof(uint64_t);

// Gathers events into the content of a chunk. Events are encoded as they come, so none is kept.
class EventChunkBuilder
{
public:
    // A chunk must be full before its payload offsets no longer fit 32 bits.
    static constexpr size_t sMaxPayloadSize = size_t{1} << 31;

    EventChunkBuilder() { Clear(); }

    // An event of kind Invalid isn't one that can be stored; it is left out, and the result is false.
    bool Add(const TraceEvent& inEvent);

    [[nodiscard]] size_t GetNumEvents() const { return mTypes.size(); }
    [[nodiscard]] bool IsFull() const { return mPayloadEnd >= sMaxPayloadSize; }

    // Of the events so far. REQUIRES for the times: there are events.
    [[nodiscard]] double GetStartTime() const { return mTimes.front(); }
    [[nodiscard]] double GetEndTime() const { return mTimes.back(); }
    [[nodiscard]] const std::unordered_set<int32_t>& GetProcesses() const { return mProcesses; }
    [[nodiscard]] const std::unordered_set<int32_t>& GetThreads() const { return mThreads; }

    // The whole content. Valid until the next call; events can be added afterwards all the same.
    [[nodiscard]] const Utility::ByteBuffer& Build();

    // Forgets the events and keeps the memory.
    void Clear();

private:
    template <class T>
    void AppendArray(EEventArray inArray, const std::vector<T>& inValues);

    Utility::ByteBuffer mContent; // header and payloads, and between Build and the next event the arrays
    size_t mPayloadEnd = 0;
    std::vector<uint8_t> mTypes;
    std::vector<double> mTimes;
    std::vector<int32_t> mProcessIDs;
    std::vector<int32_t> mThreadIDs;
    std::vector<uint32_t> mPayloadOffsets;
    std::unordered_set<int32_t> mProcesses;
    std::unordered_set<int32_t> mThreads;
};

// Looks into the content of a chunk, which stays with the caller and is handed in with each call; so a view can be copied.
class EventChunkView
{
public:
    // Takes the offsets from the header. False if the content can't hold that many events.
    [[nodiscard]] bool Open(const Utility::ByteBuffer& inContent, uint64_t inNumEvents);

    [[nodiscard]] uint64_t GetNumEvents() const { return mNumEvents; }

    // REQUIRES for all: the content that was opened, and an index below the number of events.
    [[nodiscard]] double GetTime(const Utility::ByteBuffer& inContent, uint64_t inIndex) const
    {
        return Load<double>(inContent, TimeArray, inIndex);
    }
    [[nodiscard]] uint8_t GetType(const Utility::ByteBuffer& inContent, uint64_t inIndex) const
    {
        return Load<uint8_t>(inContent, TypeArray, inIndex);
    }
    // False for a payload that isn't whole.
    [[nodiscard]] bool Decode(const Utility::ByteBuffer& inContent, uint64_t inIndex, TraceEvent& outEvent) const;

private:
    template <class T>
    [[nodiscard]] T Load(const Utility::ByteBuffer& inContent, EEventArray inArray, uint64_t inIndex) const
    {
        T value;
        std::memcpy(&value, inContent.GetData() + mOffsets[inArray] + inIndex * sizeof(T), sizeof(T));
        return value;
    }

    std::array<uint64_t, sNumEventArrays> mOffsets{};
    uint64_t mNumEvents = 0;
};

} // namespace Profiler
