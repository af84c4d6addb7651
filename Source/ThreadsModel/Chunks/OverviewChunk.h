// The state of one thread over one chunk of time, at one level of detail: exact spans at the finest level, buckets above it.
//
// Docs/Threads.md describes the form on disk, which is the records' own. Threads and ownership: as Chunk says. Invariant: entries
// stand in time order; a record never moves.
#pragma once

#include "ThreadsModel/Chunks/Chunk.h"
#include "ThreadsModel/Chunks/ChunkArena.h"
#include "ThreadsModel/Chunks/OverviewEntry.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Profiler
{

class OverviewChunk final : public Chunk
{
public:
    static constexpr double sNoEndTime = -1.0;

    // A record is of the class that its type names.
    struct EntryReference
    {
        EOverviewEntryType Type;
        const OverviewEntry* Entry;

        template <class T>
        [[nodiscard]] const T& As() const
        {
            return *static_cast<const T*>(Entry);
        }
    };

    // The entries [First, End).
    struct EntryRange
    {
        size_t First = 0;
        size_t End = 0;

        bool operator==(const EntryRange&) const = default;
    };

    OverviewChunk();

    [[nodiscard]] static constexpr EChunkType sGetChunkType() { return EChunkType::Overview; }

    void Serialize(Utility::ByteBuffer& ioBuffer) override;
    [[nodiscard]] bool Deserialize(Utility::ByteCursor& ioCursor) override;
    [[nodiscard]] EChunkType GetChunkType() const override { return sGetChunkType(); }
    [[nodiscard]] uint64_t GetSize() const override { return mArena->GetTotal(); }

    // Appends a span of one state. All times in milliseconds; the real ones are those of the whole span.
    void AddEntry(ThreadState inState, uint32_t inReadyIndex, CallstackKey inStack, double inStart, double inEnd,
                  double inRealStart, double inRealEnd);

    // Appends the record that fits the number of states with a share, a share that is no number among them.
    void AddAccumulated(const OverviewAccumulator& inAccumulator);

    // The real end of the last entry, if it was cut at the end of the chunk; sNoEndTime if not.
    void SetLastEntryEndTime(double inTime) { mLastEntryEndTime = inTime; }
    [[nodiscard]] double GetLastEntryEndTime() const { return mLastEntryEndTime; }

    // Whether the first entry is the tail of a span that began in an earlier chunk.
    void SetContinuesFromPrevious() { mContinuesFromPrevious = 1; }
    [[nodiscard]] bool ContinuesFromPrevious() const { return mContinuesFromPrevious != 0; }

    [[nodiscard]] size_t GetEntryCount() const { return mEntries.size(); }

    // REQUIRES: inIndex is below the number of entries.
    [[nodiscard]] EntryReference GetEntry(size_t inIndex) const { return {mTypes[inIndex], mEntries[inIndex]}; }

    // The entries that touch [inStart, inEnd], both ends of an entry inside it. A start in a gap takes the entry behind the gap.
    [[nodiscard]] EntryRange FindEntries(double inStart, double inEnd) const;

private:
    template <class T>
    T& AddRecord(EOverviewEntryType inType, double inStart, double inEnd);
    [[nodiscard]] size_t FindEntry(double inTime) const;
    [[nodiscard]] bool ReadTypes(Utility::ByteCursor& ioCursor, uint64_t& outSize);

    std::vector<EOverviewEntryType> mTypes;
    std::vector<const OverviewEntry*> mEntries;
    uint8_t mContinuesFromPrevious = 0;
    double mLastEntryEndTime = sNoEndTime;
    std::unique_ptr<ChunkArena> mArena;
};

} // namespace Profiler
