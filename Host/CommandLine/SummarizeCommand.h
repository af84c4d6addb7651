// `brenvaldoris summarize CAPTURE`: one pass over a perf.data file or over a session, nothing stored.
//
// A session's broken stacks are known, so its bars are those of the timeline; a capture's bars end where its stacks are cut
// short.
#pragma once

#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

struct SummarizeOptions
{
    std::string Path;       // a perf.data file, a session file or a session folder
    std::string PluginPath; // the library to load
    bool AsJSON = false;
};

// Writes the summary to outText. False, with at least one entry in ioErrors, if there is none.
[[nodiscard]] bool gSummarize(const SummarizeOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
