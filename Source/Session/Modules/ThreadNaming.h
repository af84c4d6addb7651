// Names for threads that have none, worked out from the function that they started in.
#pragma once

#include "Session/Events/TraceEvent.h"

#include <array>
#include <string>

namespace Profiler
{

class ModuleDatabase;
class PlatformSession;

// Names of well-known kinds of threads, by class index.
extern const std::array<const char*, 10>
    ThreadClassName; // NOLINT(readability-identifier-naming): a table named as its records are

// The name for the thread that a ThreadStart or ThreadStartDisplay event begins: a well-known class in a known module, the
// module's name where the start function is unknown, empty where the start address lies in no module.
[[nodiscard]] std::string gGetThreadNameFromStart(const TraceEvent& inEvent, ModuleDatabase& inModules,
                                                  PlatformSession* inPlatform);

} // namespace Profiler
