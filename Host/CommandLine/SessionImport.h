// Turns a perf.data file into a session on disk: events, stacks, broken stacks, models, session file and report.
//
// Threads: the main thread. Ownership: refers to the workspace, which outlives it. Invariant: the session folder appears when it
// is complete, and not before; a folder that is there is left alone until then.
#pragma once

#include "Host/CommandLine/Workspace.h"
#include "Host/Import/ImportFilter.h"
#include "Host/Import/ImportReport.h"
#include "Utility/ErrorState.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

struct SessionImportOptions
{
    std::string CapturePath;
    std::string OutputFolder; // where the session folder goes; empty: beside the capture
    bool Replaces = false;    // a session that is there
    ImportFilter Filter;
};

// What was made, and how long it took.
struct SessionImportResult
{
    std::string SessionPath;
    ImportReport Report;
    uint64_t Events = 0;
    uint64_t Stacks = 0; // different ones
    size_t Processes = 0;
    size_t Threads = 0;
    size_t BrokenThreads = 0; // with stacks that were cut short
    double LengthMs = 0.0;    // of the capture
    double ReadSeconds = 0.0; // from the capture's records to stored events
    double PassSeconds = 0.0; // broken stacks, models and saving
};

// False, with the reason in ioErrors and nothing left behind, if it failed or inIsCanceled became true.
[[nodiscard]] bool gImportSession(const SessionImportOptions& inOptions, Workspace& ioWorkspace, const bool& inIsCanceled,
                                  SessionImportResult& outResult, Utility::ErrorState& ioErrors);

} // namespace Host
