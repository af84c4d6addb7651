// `brenvaldoris import CAPTURE`: makes a session of a perf.data file.
#pragma once

#include "Host/Import/ImportFilter.h"
#include "Utility/ErrorState.h"

#include <string>

namespace Host
{

struct ImportOptions
{
    std::string CapturePath;
    std::string PluginPath; // the library to load
    std::string OutputFolder;
    ImportFilter Filter;
    bool Replaces = false;
    bool AsJSON = false;
};

// Writes what was made to outText. False, with at least one entry in ioErrors, if there is no session.
[[nodiscard]] bool gImport(const ImportOptions& inOptions, std::string& outText, Utility::ErrorState& ioErrors);

} // namespace Host
