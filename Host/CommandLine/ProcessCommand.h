// `brenvaldoris process SESSION`: brings a stored session to where it can be used.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

struct ProcessOptions
{
    std::string Session;    // a session file, a session folder or a capture
    std::string PluginPath; // the library to load
    bool Rebuilds = false;  // all that is derived from the events, whether it needs to be or not
};

// Writes what was done to outText. False, with at least one entry in ioErrors, on failure; what a session needs is then told
// again when it is opened the next time.
[[nodiscard]] bool gProcess(const ProcessOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
