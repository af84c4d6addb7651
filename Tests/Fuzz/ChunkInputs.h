// What the first byte of an input of the ChunkFuzzer says of the others.
#pragma once

#include <cstdint>

namespace Fuzz
{

enum class EChunkInput : uint8_t
{
    FunctionIndex = 0,
    Bars = 1,
    Overview = 2,
    ReadyThread = 3,
    Boundaries = 4, // the block beside a chunk of bars
};
inline constexpr uint8_t sNumChunkInputs = 5;

} // namespace Fuzz
