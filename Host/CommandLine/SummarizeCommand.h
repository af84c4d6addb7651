// `brenvaldoris summarize CAPTURE`: one pass over a perf.data file, nothing stored.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

struct SummarizeOptions
{
    std::string CapturePath;
    std::string PluginPath; // the library to load
    bool AsJSON = false;
};

// Writes the summary to outText. False, with at least one entry in ioErrors, if there is none.
[[nodiscard]] bool gSummarize(const SummarizeOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
