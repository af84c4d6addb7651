// One rectangle of the timeline: a function, or an instrumented zone, at one depth of the stack for a span of time.
//
// Threads: plain values. The forms in memory and on disk differ in the order of the fields alone.
#pragma once

#include "Session/Modules/ResolvedAddress.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Profiler
{

struct Bar
{
    // ParentIndex of the bars of the first row.
    static constexpr uint32_t sNoParent = ~uint32_t{0};

    // The carry, in the bits of ResolveIndex that comparisons leave out.
    static constexpr int sCarryShift = 30;
    static constexpr uint32_t sContinuedFromPrevious = 1U << 30; // began in an earlier chunk
    static constexpr uint32_t sContinuesInNext = 1U << 31;       // goes on beyond End, as far as is known

    double Start = 0.0; // milliseconds
    double End = 0.0;
    uint64_t Address = 0;     // of the function in its module; sNoAddress for a bar that stands for several
    uint32_t ParentIndex = 0; // the bar's parent in the row above
    Profiler::ResolveIndex ResolveIndex{~uint32_t{0}};

    [[nodiscard]] uint32_t GetCarry() const { return ResolveIndex.Index >> sCarryShift; }

    bool operator==(const Bar&) const = default;
};
static_assert(sizeof(Bar) == 32);

// What the bar shows. Comparisons leave the carry out.
[[nodiscard]] inline ResolvedAddress gGetFunction(const Bar& inBar)
{
    return {inBar.Address, inBar.ResolveIndex};
}

// The first and the last bar of a row, and its length, so that some questions need no more of a chunk.
struct BarBoundary
{
    Bar First;
    Bar Last;
    uint32_t BarCount = 0;

    bool operator==(const BarBoundary&) const = default;
};

// Bytes of both on disk.
inline constexpr size_t sPackedBarSize = 32;
inline constexpr size_t sPackedBoundarySize = 2 * sPackedBarSize + sizeof(uint32_t);

// The fields on disk in their order: ParentIndex, Start, End, Address, ResolveIndex. The three in the middle follow each other in
// memory as well, and go in one piece.
inline constexpr size_t sPackedSpanOffset = sizeof(uint32_t);
inline constexpr size_t sPackedSpanSize = 3 * sizeof(uint64_t);
inline constexpr size_t sPackedResolveIndexOffset = sPackedSpanOffset + sPackedSpanSize;
static_assert(offsetof(Bar, Address) == offsetof(Bar, Start) + 2 * sizeof(uint64_t));

inline void gPackBar(const Bar& inBar, uint8_t* outBytes)
{
    std::memcpy(outBytes, &inBar.ParentIndex, sizeof(uint32_t));
    std::memcpy(outBytes + sPackedSpanOffset, reinterpret_cast<const uint8_t*>(&inBar) + offsetof(Bar, Start), sPackedSpanSize);
    std::memcpy(outBytes + sPackedResolveIndexOffset, &inBar.ResolveIndex.Index, sizeof(uint32_t));
}

template <class Field>
Field gReadPacked(const uint8_t* inBytes)
{
    Field field;
    std::memcpy(&field, inBytes, sizeof(field));
    return field;
}

// Field by field, so that nothing is written to memory only to be read again: the stall would take longer than all the rest.
inline Bar gUnpackBar(const uint8_t* inBytes)
{
    const uint8_t* span = inBytes + sPackedSpanOffset;
    return {.Start = gReadPacked<double>(span),
            .End = gReadPacked<double>(span + sizeof(double)),
            .Address = gReadPacked<uint64_t>(span + 2 * sizeof(double)),
            .ParentIndex = gReadPacked<uint32_t>(inBytes),
            .ResolveIndex = {gReadPacked<uint32_t>(inBytes + sPackedResolveIndexOffset)}};
}

} // namespace Profiler
