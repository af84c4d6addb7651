// Files and directories on the disk.
//
// Threads: any; two threads that work on the same path aren't protected from each other. A relative path depends on the current
// directory of the process. Failure is the result alone: no operation throws or keeps a reason.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace FileSystem
{

// The mode of gCreateDirectories for directories that a process run as root shares with every user.
inline constexpr int sOpenToOthers = 1;
// The mode for all other directories.
inline constexpr int sClosedToOthers = 0;

// A file or a directory stands there. A symbolic link counts as what it leads to.
[[nodiscard]] bool gExists(const std::string& inPath);

// Size in bytes. outSize is left alone on failure.
[[nodiscard]] bool gGetFileSize(const std::string& inPath, uint64_t& outSize);

// Makes the directory and what is missing above it, with the permissions 0775 (less the process's umask). A path that exists is a
// success and stays as it is. A directory that can't be made is a failure; those above it stay.
[[nodiscard]] bool gCreateDirectories(const std::string& inPath, int inMode = sOpenToOthers);

// Renames within one file system; never copies.
[[nodiscard]] bool gRename(const std::string& inFrom, const std::string& inTo);

// The whole file. False if it can't be opened, a read fails or the memory doesn't suffice, so the bytes are never a part of the
// file; outBytes is then left alone.
[[nodiscard]] bool gReadFile(const std::string& inPath, std::vector<uint8_t>& outBytes);

// Open a stream on the path with the given mode, after closing what it had open. The stream tells whether that worked.
void gOpenRead(std::ifstream& outStream, const std::string& inPath, std::ios_base::openmode inMode);
void gOpenWrite(std::ofstream& outStream, const std::string& inPath, std::ios_base::openmode inMode);

// The full path of each directory directly in inPath, in the order that the system gives them; a symbolic link to a directory is
// one. An empty inPath, or one that starts with '.', is taken from the current directory. inFilter is about files, which are
// never listed. False if the directory can't be opened or read; outPaths is then empty.
[[nodiscard]] bool gGetSubdirectories(const std::string& inPath, std::string_view inFilter, std::vector<std::string>& outPaths);

} // namespace FileSystem
