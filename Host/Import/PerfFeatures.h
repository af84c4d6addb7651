// Readers of the feature sections of a perf.data file, one per section.
//
// Each gets a section's bytes and fills its output, or gives false without touching it if the bytes contradict themselves.
// Threads: any. Ownership: outputs are copies.
#pragma once

#include "Host/Import/PerfEvent.h"
#include "Host/Import/PerfMachine.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Host
{

// One event of the event description section.
struct PerfEventDescription
{
    std::string Name;
    std::vector<uint64_t> IDs;
};

[[nodiscard]] bool gReadTextFeature(std::span<const uint8_t> inBytes, std::string& outText);
[[nodiscard]] bool gReadCommandLine(std::span<const uint8_t> inBytes, std::vector<std::string>& outArguments);
[[nodiscard]] bool gReadCpuCount(std::span<const uint8_t> inBytes, PerfMachine& ioMachine);
[[nodiscard]] bool gReadTotalMemory(std::span<const uint8_t> inBytes, PerfMachine& ioMachine);
[[nodiscard]] bool gReadEventDescriptions(std::span<const uint8_t> inBytes, std::vector<PerfEventDescription>& outEvents);
[[nodiscard]] bool gReadBuildIDs(std::span<const uint8_t> inBytes, std::vector<PerfBuildID>& outBuildIDs);

} // namespace Host
