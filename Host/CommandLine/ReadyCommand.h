// `brenvaldoris ready SESSION START END` and `brenvaldoris ready SESSION --chain THREAD TIME`: who woke whom.
#pragma once

#include "Utility/ErrorState.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Host
{

struct ReadyOptions
{
    struct ChainStart
    {
        int32_t ThreadKey = -1;
        double TimeMs = 0.0;
    };

    std::string Session = {};    // a session file, a session folder or a capture
    std::string PluginPath = {}; // the library to load
    double StartMs = 0.0;
    double EndMs = 0.0;
    std::optional<ChainStart> Chain = {}; // instead of a span
    int32_t ThreadKey = -1;               // of the woken or the waking thread; -1: all
    size_t Limit = 100;                   // wake-ups to list; 0 for all
    bool AsJSON = false;
};

// Writes the wake-ups to outText. False, with at least one entry in ioErrors, if the question can't be answered.
[[nodiscard]] bool gShowReady(const ReadyOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
