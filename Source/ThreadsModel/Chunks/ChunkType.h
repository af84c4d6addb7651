// The kinds of chunks. Each is one bit, so that a set of kinds fits into a byte.
#pragma once

#include <cstdint>

namespace Profiler
{

enum class EChunkType : uint8_t
{
    FunctionIndex = 1,
    Bar = 2,
    Overview = 4,
    ReadyThread = 8,
};

// How the debug log calls a kind.
[[nodiscard]] constexpr const char* gGetChunkTypeTag(EChunkType inType)
{
    switch (inType)
    {
    case EChunkType::FunctionIndex:
        return "[FunctionIndex]";
    case EChunkType::Bar:
        return "[BarData]";
    case EChunkType::Overview:
        return "[OverviewData]";
    case EChunkType::ReadyThread:
        return "[ReadyThread]";
    }
    return "[None]";
}

} // namespace Profiler
