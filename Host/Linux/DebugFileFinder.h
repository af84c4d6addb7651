// Finds the separate debug file of a stripped module: by build id, then by the name and checksum that the module notes.
//
// Threads: any. Ownership: a value without open files. Invariant: a file that it gives matches the module by build id, or by
// checksum if the module has no build id.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/DebugLink.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

class DebugFileFinder
{
public:
    // inSearchRoots stand for /usr/lib/debug, tried in order.
    explicit DebugFileFinder(std::vector<std::string> inSearchRoots = {"/usr/lib/debug"});

    // The path of the module's debug file, empty if there is none. A file that is there but belongs to another build is passed
    // over with one log line.
    [[nodiscard]] std::string Find(const std::string& inModulePath, const BuildID& inID, const DebugLink& inLink) const;

    // The path of the debug file of that build, empty if there is none.
    [[nodiscard]] std::string FindByBuildID(const BuildID& inID) const;

private:
    [[nodiscard]] std::string FindByLink(const std::string& inModulePath, const BuildID& inID, const DebugLink& inLink) const;

    std::vector<std::string> mSearchRoots;
};

// The checksum of debug links: CRC-32 with the polynomial 0xEDB88320, started from and finished with inverted bits. False if the
// file can't be read.
[[nodiscard]] bool gGetFileChecksum(const std::string& inPath, uint32_t& outChecksum);

} // namespace Host
