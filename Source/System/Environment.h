// The environment that the process was started in: variables and the user's folders.
//
// Threads: any, as long as none changes the environment meanwhile. Failure: an empty text.
#pragma once

#include <string>

namespace System
{

// Empty if there is no such variable.
[[nodiscard]] std::string gGetEnvironmentVariable(const std::string& inName);

// HOME if it isn't empty, else the home directory of the real user in the password records.
[[nodiscard]] std::string gGetHomeDirectory();

// A folder of the user that a variable can move elsewhere: its value if it isn't empty, else inFallback below the home directory.
[[nodiscard]] std::string gGetUserDirectory(const std::string& inVariable, const std::string& inFallback);

} // namespace System
