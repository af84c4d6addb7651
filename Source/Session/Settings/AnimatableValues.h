// Values of a stored view that move towards a target, with where they are on the way.
//
// Plain records for a viewer to store; the library moves none of them. Ownership and threads: whoever embeds one.
#pragma once

#include "RTTI/Declare.h"

#include <cstdint>

namespace Profiler
{

template <class T>
struct SerializedAnimatable
{
    T Value{}; // shown at present
    T StartValue{};
    T TargetValue{};
    double CurvePosition = 0.0; // progress from start to target
    bool IsDirty = false;
};

using SerializedAnimatableInt = SerializedAnimatable<int32_t>;
using SerializedAnimatableFloat = SerializedAnimatable<float>;
using SerializedAnimatableDouble = SerializedAnimatable<double>;

} // namespace Profiler

RTTI_DECLARE(Profiler::SerializedAnimatableInt);
RTTI_DECLARE(Profiler::SerializedAnimatableFloat);
RTTI_DECLARE(Profiler::SerializedAnimatableDouble);
