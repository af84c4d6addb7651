// The bars of one thread, at one level of detail, in one chunk of time.
//
// Bars stand in rows by their depth, the root's first, and each names its parent in the row above, so a chunk is a forest in row
// form. It is built by appending to the ends of rows. Docs/Threads.md describes the form on disk. Threads and ownership: as Chunk
// says. Invariant: a row has bars only if the one above has; within a row they follow each other without overlap; a bar never
// moves.
#pragma once

#include "Session/Modules/ResolvedAddress.h"
#include "ThreadsModel/Chunks/Bar.h"
#include "ThreadsModel/Chunks/Chunk.h"
#include "ThreadsModel/Chunks/ChunkArena.h"

#include <cstdint>
#include <istream>
#include <memory>
#include <unordered_map>
#include <vector>

namespace Profiler
{

struct BarPosition
{
    int32_t Depth = 0;
    uint64_t BarIndex = 0; // within the row

    bool operator==(const BarPosition&) const = default;
};

struct BarPositionHash
{
    size_t operator()(const BarPosition& inPosition) const
    {
        return inPosition.BarIndex ^ static_cast<uint64_t>(static_cast<int64_t>(inPosition.Depth));
    }
};

class BarChunk final : public Chunk
{
public:
    using Row = std::vector<Bar*>;
    using BoundaryList = std::vector<BarBoundary>;

    // Instrumentation context of a bar that has none.
    static constexpr uint64_t sNoContext = ~uint64_t{0};

    BarChunk();

    [[nodiscard]] static constexpr EChunkType sGetChunkType() { return EChunkType::Bar; }

    void Serialize(Utility::ByteBuffer& ioBuffer) override;
    [[nodiscard]] bool Deserialize(Utility::ByteCursor& ioCursor) override;
    [[nodiscard]] EChunkType GetChunkType() const override { return sGetChunkType(); }
    [[nodiscard]] uint64_t GetSize() const override { return mArena->GetTotal(); }

    // Appends a bar to its row, which is added if it is the next one. Of the carry the low two bits count, and of the index the
    // bits that comparisons look at. Times in milliseconds. REQUIRES: the chunk wasn't read from a file, and inDepth is at most
    // the number of rows; a bar that has no row above it isn't added, and null is given with outIndex left alone.
    Bar* AddBar(int32_t inDepth, uint32_t inParentIndex, uint64_t inAddress, ResolveIndex inResolveIndex, uint32_t inCarry,
                uint64_t& outIndex, double inStart, double inEnd);

    // REQUIRES: the bar exists.
    [[nodiscard]] Bar* GetBar(const BarPosition& inPosition)
    {
        return mRows[static_cast<size_t>(inPosition.Depth)][inPosition.BarIndex];
    }
    [[nodiscard]] const Bar* GetBar(const BarPosition& inPosition) const
    {
        return mRows[static_cast<size_t>(inPosition.Depth)][inPosition.BarIndex];
    }

    // One per depth, each in time order.
    [[nodiscard]] const std::vector<Row>& GetRows() const { return mRows; }

    void SetInstrumentationContext(const BarPosition& inPosition, uint64_t inContext) { mContexts[inPosition] = inContext; }
    [[nodiscard]] uint64_t GetInstrumentationContext(const BarPosition& inPosition) const;

    // Appends the bars that cover the time, from the root down to the last depth that has one. A bar covers its start and not its
    // end.
    void GetStackAtTime(double inTime, std::vector<const Bar*>& ioBars) const;

    // Notes the boundaries of all rows; to be called when the chunk is complete.
    void BuildBoundaries();
    [[nodiscard]] const BoundaryList& GetBoundaries() const { return mBoundaries; }

    // Appends the block of boundaries that stands beside the chunk on disk.
    void WriteBoundaries(Utility::ByteBuffer& ioBuffer) const;

    // Reads such a block of inSize bytes at inOffset, and picks the boundary of one depth. False, with outBoundary left alone, if
    // the block has none or can't be read.
    [[nodiscard]] static bool ReadBoundary(std::istream& ioStream, uint64_t inOffset, uint64_t inSize, int32_t inDepth,
                                           BarBoundary& outBoundary);

    // All boundaries of a block, behind which the cursor then stands. False if the bytes end before the block does.
    [[nodiscard]] static bool ReadBoundaries(Utility::ByteCursor& ioCursor, BoundaryList& outBoundaries);

private:
    [[nodiscard]] bool ReadRows(Utility::ByteCursor& ioCursor, uint64_t inArenaTotal);
    [[nodiscard]] bool ReadRow(Utility::ByteCursor& ioCursor, size_t inDepth);
    [[nodiscard]] bool ReadContexts(Utility::ByteCursor& ioCursor);

    std::vector<Row> mRows;
    // By depth, the starts of every so manieth bar of a long row, which a search looks at first: they lie close together. Only of
    // chunks that were read, whose bars nobody changes any more; empty if no row is long.
    std::vector<std::vector<double>> mMarks;
    BoundaryList mBoundaries; // by depth
    std::unique_ptr<ChunkArena> mArena;
    std::unordered_map<BarPosition, uint64_t, BarPositionHash> mContexts;
};

} // namespace Profiler
