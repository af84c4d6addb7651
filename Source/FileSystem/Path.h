// Paths as text. Nothing here touches the disk.
//
// Paths are plain UTF-8 strings. Both '/' and '\' separate on input; output uses '/' unless the caller asks for another
// separator. Threads: any. Failure: none, every text is a path.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace FileSystem
{

// The text before the last separator; empty if there is none. So the directory of "/file" is empty.
[[nodiscard]] std::string gGetDirectory(std::string_view inPath);

// The text after the last separator; the whole path if there is none.
[[nodiscard]] std::string gGetFileName(std::string_view inPath);

// The file name up to its last '.'; the whole file name if it has none.
[[nodiscard]] std::string gGetFileStem(std::string_view inPath);

// The text after the last '.' of the whole path, in lower case; empty if there is none. A '.' in a directory's name counts too.
[[nodiscard]] std::string gGetExtension(std::string_view inPath);

// The text before the last '.' of the whole path (all of it if there is none), a '.', and inExtension, which is given without
// one.
[[nodiscard]] std::string gChangeExtension(std::string_view inPath, std::string_view inExtension);

// Replaces the file's stem and keeps directory and extension. The extension comes out in lower case.
[[nodiscard]] std::string gChangeStem(std::string_view inPath, std::string_view inStem);

// Replaces the file's name, with its extension, and keeps the directory.
[[nodiscard]] std::string gChangeFileName(std::string_view inPath, std::string_view inName);

// Cuts a path at its separators and drops empty pieces. A '/' at the start stays with the first component, so "/" is one
// component; a '\' at the start is a separator like any other.
void gSplitPath(std::string_view inPath, std::vector<std::string>& outComponents);

// Resolves "." and ".." within the text and joins with inSeparator, with none at the end. Leading ".." of a relative path stay.
// The root belongs to the first component: a ".." that takes that component away takes the root with it, "/a/../b" gives "b".
[[nodiscard]] std::string gNormalizePath(std::string_view inPath, char inSeparator = '/');

// inSecond below inFirst, normalized. If one of them normalizes to nothing, the result is the other.
[[nodiscard]] std::string gCombinePath(std::string_view inFirst, std::string_view inSecond);

[[nodiscard]] std::string gToForwardSlashes(std::string_view inPath);

[[nodiscard]] bool gIsAbsolutePath(std::string_view inPath);

// The form in which paths are compared: lower case, '/' as the separator, without one trailing separator. Neither "." nor ".." is
// resolved.
[[nodiscard]] std::string gGetComparablePath(std::string_view inPath);

[[nodiscard]] bool gArePathsEqual(std::string_view inFirst, std::string_view inSecond);

} // namespace FileSystem
