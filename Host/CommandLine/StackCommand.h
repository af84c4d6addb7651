// `brenvaldoris stack SESSION THREAD TIME`: what a thread was doing at a time, what was on its stack, and who ended its wait.
#pragma once

#include "Utility/ErrorState.h"

#include <cstdint>
#include <string>

namespace Host
{

struct StackOptions
{
    std::string Session = {};    // a session file, a session folder or a capture
    std::string PluginPath = {}; // the library to load
    int32_t ThreadKey = -1;
    double TimeMs = 0.0;
    bool AsJSON = false;
};

// Writes the stack to outText. False, with at least one entry in ioErrors, if the question can't be answered.
[[nodiscard]] bool gShowStack(const StackOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
