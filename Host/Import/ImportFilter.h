// Which part of a capture an import takes.
//
// Threads: any. Ownership: a value.
#pragma once

#include "FileSystem/Path.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Host
{

struct ImportFilter
{
    // Names or numbers of the processes that are captured; all if there are none.
    std::vector<std::string> Processes;

    // Milliseconds from the capture's first record. What lies before or behind leaves no events.
    double StartMs = 0.0;
    double EndMs = std::numeric_limits<double>::max();

    // By its number, its name, or the name of its program.
    [[nodiscard]] bool TakesProcess(int32_t inProcessID, const std::string& inName, const std::string& inPath) const
    {
        const auto matches = [&](const std::string& inProcess) {
            return inProcess == inName || inProcess == std::to_string(inProcessID) ||
                   inProcess == FileSystem::gGetFileName(inPath);
        };
        return Processes.empty() || std::any_of(Processes.begin(), Processes.end(), matches);
    }
};

} // namespace Host
