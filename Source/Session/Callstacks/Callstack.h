// A stack as a list of absolute addresses.
#pragma once

#include <cstdint>
#include <vector>

namespace Profiler
{

// Absolute addresses in the process of the event, outermost frame first.
using Callstack = std::vector<uint64_t>;

// Stands for the frames that a cut-short stack lacks. It is no address of any process.
inline constexpr uint64_t sMissingFramesMarker = 0xFFFFFFFFFFFFFFFF;

} // namespace Profiler
