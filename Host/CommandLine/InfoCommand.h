// `brenvaldoris info SESSION`: what a session holds, and which of its stores are sound.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

struct InfoOptions
{
    std::string Session;    // a session file, a session folder or a capture
    std::string PluginPath; // the library to load
    bool AsJSON = false;
};

// Reads every store to its end and writes what it found to outText, also of a session that can't be opened. False, with at least
// one entry in ioErrors, if it can't, or there is none.
[[nodiscard]] bool gShowInfo(const InfoOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
