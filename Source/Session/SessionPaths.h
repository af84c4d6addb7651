// Where the files of a session lie.
//
// A capture <dir>/<stem>.<ext> has its session folder beside it, <dir>/<stem>, with <stem>.session and its companions in it.
// Docs/SessionFolder.md lists them. Paths are text; nothing here touches the disk. Threads: any.
#pragma once

#include <string>

namespace Profiler
{

// Of a session file's path without the point, in lower case.
inline constexpr const char* sSessionExtension = "session";

// Below the session folder: what a pass stores for several models, the timeline, and what a viewer stores.
inline constexpr const char* sSharedFolder = "Shared";
inline constexpr const char* sThreadsFolder = "Threads";
inline constexpr const char* sViewStateFolder = "ViewState";

// The directory of a file; "/" for a file directly below it.
[[nodiscard]] std::string gGetFolderOf(const std::string& inPath);

// The folder of the session that a session file or a capture belongs to.
[[nodiscard]] std::string gGetSessionFolder(const std::string& inPath);

// The session file of a session file or a capture.
[[nodiscard]] std::string gGetSessionFilePath(const std::string& inPath);

} // namespace Profiler
