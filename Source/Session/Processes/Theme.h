// The colour themes that a viewer offers.
#pragma once

#include "RTTI/Declare.h"

#include <cstdint>

namespace Profiler
{

// Stored in settings; never renumber.
enum class EThemeType : uint32_t
{
    Light = 0,
    Dark = 1,
    FollowWindows = 2, // has no colours of its own: resolve it to one of the others first
};

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::EThemeType);
