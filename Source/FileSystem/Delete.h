// Deleting files and whole directories.
//
// Symbolic links in a directory are deleted and never followed. A link in place of the directory itself is an error for
// gDeleteDirectory; gDeleteDirectoryContents empties the directory that it leads to. Full paths may be as long as the system
// takes them (4095 bytes). Threads: any; a tree that another thread changes meanwhile may be left in part.
#pragma once

#include "Utility/ErrorState.h"

#include <cstdint>
#include <string>

namespace FileSystem
{

enum class EDeleteResult : uint32_t
{
    Success = 0,
    Error = 1,
    AccessDenied = 2
};

// A file that doesn't exist counts as deleted.
[[nodiscard]] EDeleteResult gDeleteFile(const std::string& inPath);

// Deletes the directory with its contents. One that doesn't exist counts as deleted. The first failure ends the walk, adds an
// entry with code 0 and leaves what wasn't reached.
[[nodiscard]] EDeleteResult gDeleteDirectory(const std::string& inPath, Utility::ErrorState& ioErrors);

// As gDeleteDirectory, but keeps the directory itself.
[[nodiscard]] EDeleteResult gDeleteDirectoryContents(const std::string& inPath, Utility::ErrorState& ioErrors);

} // namespace FileSystem
