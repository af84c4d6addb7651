// The small record that stands first in a session file: what one knows of a capture without reading the rest.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Serialization/SerializableGUID.h"

#include <bit>
#include <cstdint>

namespace Profiler
{

struct SessionInfo final : RTTI::Object
{
    const RTTI::Type& GetType() const override;

    // The defaults are those of a session file that holds no such record. The interval is 1/8190, a little above 1/8192.
    double SampleIntervalMs = std::bit_cast<double>(uint64_t{0x3F20010010010010});
    double SessionStartTimeMs = 0.0;
    double SessionEndTimeMs = 0.0;
    uint32_t PerformanceAPIVersion = 0x10000; // of the instrumentation data of the capture
    Serialization::SerializableGUID PlatformID{0x48AE61F6275DE9B8, 0x78E3FA03648465AD};
    uint64_t SymbolSettingsHash = 0xFFFFFFFFFFFFFFFF; // all ones if unknown
};

} // namespace Profiler

RTTI_DECLARE(Profiler::SessionInfo);
