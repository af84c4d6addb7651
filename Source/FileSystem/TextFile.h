// Text files in the encoding that their byte-order mark tells.
// Threads: any. Failure: the result alone.
#pragma once

#include <string>

namespace FileSystem
{

// The text as UTF-8, without the mark. Little-endian UTF-32 and UTF-16 are converted, with U+FFFD for what isn't valid there; a
// text with a UTF-8 mark or with none is taken as it stands. False if the file can't be opened or read; outText is then left
// alone.
[[nodiscard]] bool gReadTextFile(const std::string& inPath, std::string& outText);

} // namespace FileSystem
