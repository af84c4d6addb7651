// Looks a stored session over, store by store, and changes no file.
//
// Threads: the main thread.
#pragma once

#include "Host/CommandLine/TimelineInspection.h"
#include "Host/CommandLine/Workspace.h"
#include "Host/Import/ImportReport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Host
{

struct StoredFile
{
    std::string Name; // below the session folder
    uint64_t Size = 0;
};

struct StoreState
{
    std::string Name;
    bool IsSound = false;
    std::string Text; // what it holds, or what is wrong with it
};

struct SessionInspection
{
    std::string SessionPath;
    bool CanBeOpened = false;
    std::string Failure; // why not

    // Of a session that can be opened.
    double LengthMs = 0.0;
    size_t Processes = 0;
    size_t NonCapturedProcesses = 0;
    size_t Threads = 0;
    size_t Modules = 0;

    std::vector<StoredFile> Files;              // by name
    std::vector<StoreState> Stores;             // in the order in which they are shown
    std::unique_ptr<ImportReport> Report;       // null for a session without one
    std::optional<TimelineInspection> Timeline; // none if the session needs to be processed first
};

[[nodiscard]] SessionInspection gInspectSession(const std::string& inSessionPath, Workspace& ioWorkspace);

} // namespace Host
