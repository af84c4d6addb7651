// From what a user names to a session file.
//
// Threads: any.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

// Whether a path is that of a session file, or of a folder with one, and not of a capture.
[[nodiscard]] bool gIsSession(const std::string& inPath);

// The session file that inPath means: itself, the one in a session folder, or that of a capture. False, with the reason in
// ioErrors, if there is none.
[[nodiscard]] bool gFindSessionFile(const std::string& inPath, std::string& outSessionFile, Utility::ErrorState& ioErrors);

} // namespace Host
