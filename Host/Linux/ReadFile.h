// Reads files whose size isn't known ahead, as those of the kernel's own file systems.
// Threads: any.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace Host
{

// Calls inTake with each piece in order, none empty. False if the file can't be opened or read to its end.
[[nodiscard]] bool gReadFileInPieces(const std::string& inPath, const std::function<void(std::span<const char>)>& inTake);

// All of the file, in outText.
[[nodiscard]] bool gReadWholeFile(const std::string& inPath, std::string& outText);

} // namespace Host
