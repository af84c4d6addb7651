// `brenvaldoris find SESSION FUNCTION` and `brenvaldoris find SESSION --stack A;B;C`: when and where functions ran.
#pragma once

#include "ThreadsModel/Find/FindQuery.h"
#include "Utility/ErrorState.h"

#include <cstddef>
#include <string>

namespace Host
{

struct FindOptions
{
    std::string Session = {};    // a session file, a session folder or a capture
    std::string PluginPath = {}; // the library to load
    std::string Function = {};   // a part of the names; empty if there is a stack
    std::string Stack = {};      // whole names from the root on, with semicolons between; empty if there is a function
    double StartMs = Profiler::FindQuery::sCaptureStart;
    double EndMs = Profiler::FindQuery::sCaptureEnd;
    int32_t ThreadKey = -1; // -1: all threads
    size_t Limit = 100;     // calls to list; 0 for all
    bool SortsByLength = false;
    bool AsJSON = false;
};

// Writes the calls to outText. False, with at least one entry in ioErrors, if the question can't be answered.
[[nodiscard]] bool gFind(const FindOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
