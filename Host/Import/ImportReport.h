// What became of a capture on its way into a session: what it held, what was lost or left out, and what it never recorded.
//
// Stored in the session folder as import.json, so that whoever opens the session later can judge it. Threads: any. Ownership: a
// value.
#pragma once

#include "Host/Import/CaptureImporter.h"
#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Utility/ErrorState.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace RTTI
{
class Registry;
}

namespace Host
{

struct NamedCount
{
    std::string Name;
    uint64_t Count = 0;
};

// A module whose functions aren't known by name, or not all of them.
struct SymbolFailure
{
    std::string Module; // path
    std::string Reason;
};

struct ImportReport final : RTTI::Object
{
    const RTTI::Type& GetType() const override;

    std::string CapturePath;
    std::vector<NamedCount> Events;  // trace events by kind
    std::vector<NamedCount> Records; // of the file, by type
    std::vector<NamedCount> Skipped; // records by reason
    std::vector<NamedCount> Notes;   // what the importer did about odd input
    uint64_t LostEvents = 0;
    uint64_t LostSamples = 0;
    uint64_t Throttles = 0;
    uint64_t TruncatedBytes = 0;
    std::string TruncatedReason;
    std::vector<SymbolFailure> SymbolFailures;
    std::vector<std::string> Gaps; // what wasn't recorded, with the cure
    std::vector<std::string> Warnings;
};

// Appends unless the count is 0.
void gAddCount(std::vector<NamedCount>& ioCounts, const char* inName, uint64_t inCount);

// Without the symbol failures, which only a pass finds out. REQUIRES: the import is over.
[[nodiscard]] ImportReport gMakeImportReport(const PerfFile& inFile, const CaptureImporter& inImporter);

// The modules whose symbols were asked for in vain.
[[nodiscard]] std::vector<SymbolFailure> gFindSymbolFailures(const Profiler::ModuleDatabase& inModules);

// Where the report of a session lies.
[[nodiscard]] std::string gGetImportReportPath(const std::string& inSessionFolder);

// The report of a session. False, with the reason in ioErrors, if it can't be written.
[[nodiscard]] bool gWriteImportReport(const std::string& inSessionFolder, const ImportReport& inReport,
                                      Utility::ErrorState& ioErrors);

// Null for a session without one, or one that can't be read.
[[nodiscard]] std::unique_ptr<ImportReport> gReadImportReport(const std::string& inSessionFolder,
                                                              const RTTI::Registry& inRegistry);

} // namespace Host

RTTI_DECLARE(Host::NamedCount);
RTTI_DECLARE(Host::SymbolFailure);
RTTI_DECLARE(Host::ImportReport);
