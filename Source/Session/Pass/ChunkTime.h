// The one time arithmetic of chunks: which chunk of a level a time falls in.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace Profiler
{

// Length of a chunk of the finest level, in milliseconds.
inline constexpr float sLevel0ChunkLengthMs = 500.0F;

// Whether the chunk index of the time is a number at all. Times that aren't placeable are turned away at the door of a pass.
[[nodiscard]] inline bool gIsPlaceableTime(float inChunkLength, double inTime)
{
    // False for NaN too.
    return std::fabs(inTime / static_cast<double>(inChunkLength)) < static_cast<double>(std::numeric_limits<int32_t>::max());
}

// The quotient in double arithmetic, truncated toward zero; so times just below zero fall in chunk 0. A time that isn't placeable
// gives the nearest index that is, or 0 for NaN.
[[nodiscard]] inline int32_t ChunkIndexOfTime(float inChunkLength, double inTime)
{
    const double index = inTime / static_cast<double>(inChunkLength);
    if (!(index < static_cast<double>(std::numeric_limits<int32_t>::max())))
        return std::isnan(index) ? 0 : std::numeric_limits<int32_t>::max();
    if (index <= static_cast<double>(std::numeric_limits<int32_t>::min()))
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(index);
}

// First time of a chunk, and the first one behind it, in milliseconds.
[[nodiscard]] inline double ChunkStartOfIndex(int32_t inIndex, float inChunkLength)
{
    return static_cast<double>(inChunkLength) * inIndex;
}
[[nodiscard]] inline double ChunkEndOfIndex(int32_t inIndex, float inChunkLength)
{
    return inIndex * static_cast<double>(inChunkLength) + static_cast<double>(inChunkLength);
}

} // namespace Profiler
