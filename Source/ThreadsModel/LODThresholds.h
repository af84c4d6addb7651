// What tells the levels of detail apart.
#pragma once

#include <array>

namespace Profiler
{

// Milliseconds, by level: the width of a bucket of states, and the base of the rules by which bars are merged and records of
// wake-ups are sorted into levels.
inline constexpr std::array<float, 9> sLODThresholds = {0.0F, 0.0316F, 0.1F, 0.316F, 1.0F, 3.16F, 10.0F, 100.0F, 1000.0F};

} // namespace Profiler
