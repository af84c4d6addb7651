// The entries of one directory, read in one go.
//
// Reading them before anything is done with them keeps one directory open at a time, however deep a tree is.
// Threads: any. Failure: the errno value of the call that failed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace FileSystem
{

enum class EEntryKind : uint8_t
{
    Directory,
    Link, // a symbolic link, whatever it leads to
    Other
};

struct DirectoryEntry
{
    std::string Name;
    EEntryKind Kind;
};

enum class ELinkPolicy : uint8_t
{
    Follow,
    Refuse // a path that ends in a symbolic link fails with ENOTDIR
};

// Gives the entries in the order of the system, without "." and "..". Returns 0, or an errno value; outEntries is then empty.
[[nodiscard]] int gReadDirectoryEntries(const std::string& inPath, ELinkPolicy inLinks, std::vector<DirectoryEntry>& outEntries);

} // namespace FileSystem
