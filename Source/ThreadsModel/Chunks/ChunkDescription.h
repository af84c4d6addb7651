// Which chunks of a thread and level exist, and where their data lies in Threads.dat.
//
// Threads: plain values. A copy may be out of date an instant later: whoever needs a kind of data that a copy lacks looks again.
#pragma once

#include "RTTI/Declare.h"
#include "ThreadsModel/Chunks/ChunkType.h"

#include <cstdint>

namespace Profiler
{

// Offsets and sizes in bytes, in the file. A pair means something only if the description has the bit of its kind.
struct ChunkLayout
{
    static constexpr uint64_t sNone = ~uint64_t{0};

    uint64_t BarDataOffset = sNone; // the zstd frame
    uint64_t BarDataSize = sNone;
    uint64_t FunctionIndexOffset = sNone; // the zstd frame
    uint64_t FunctionIndexSize = sNone;
    uint64_t OverviewDataOffset = sNone; // the zstd frame
    uint64_t OverviewDataSize = sNone;
    uint64_t BoundaryDataOffset = sNone; // raw, of the bars
    uint64_t BoundaryDataSize = sNone;

    bool operator==(const ChunkLayout&) const = default;
};

// A default one stands for a chunk that doesn't exist.
struct ChunkDescription
{
    static constexpr int32_t sNoIndex = -1;

    int32_t mIndex = sNoIndex; // the chunk covers [mIndex * length, (mIndex + 1) * length) of its level's chunk length
    ChunkLayout mLayout;
    uint8_t mAvailableDataTypes = 0; // bits of EChunkType: the data that is on disk, and final

    // Whether all kinds of the mask are on disk.
    [[nodiscard]] bool HasDataTypes(uint8_t inMask) const { return (mAvailableDataTypes & inMask) == inMask; }
    [[nodiscard]] bool HasDataTypes(EChunkType inType) const { return HasDataTypes(static_cast<uint8_t>(inType)); }

    bool operator==(const ChunkDescription&) const = default;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::ChunkLayout);
RTTI_DECLARE(Profiler::ChunkDescription);
