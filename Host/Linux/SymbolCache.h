// Symbols of recorded modules: finds the file, checks that it is the recorded build, reads it once, and tells why if there is
// nothing.
//
// Threads: any, at once; threads that ask for one module wait for the one that reads it, others don't. Ownership: keeps every
// table that it made; a table outlives the cache while someone holds it. Invariant: one parse per build id, or per path, size and
// time of change for files without one.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/DebugFileFinder.h"
#include "Host/Linux/SymbolLoadResult.h"
#include "Host/Linux/SymbolTable.h"

#include <memory>
#include <string>
#include <string_view>

namespace Host
{

struct LoadedSymbols
{
    ESymbolLoadResult Result = ESymbolLoadResult::FileMissing;
    std::shared_ptr<const SymbolTable> Table; // not null if gHasSymbols(Result)
    std::string SymbolFile;                   // the file that the names came from: the module or its separate debug file
};

class SymbolCache
{
public:
    explicit SymbolCache(DebugFileFinder inFinder = DebugFileFinder());
    ~SymbolCache();

    SymbolCache(const SymbolCache&) = delete;
    SymbolCache& operator=(const SymbolCache&) = delete;

    // The symbols of the module that was recorded under this path: an absolute path, one with " (deleted)" behind it, or
    // "[vdso]". An empty inRecordedID means that the capture holds none: the file is then taken as it is, unless it was deleted.
    [[nodiscard]] LoadedSymbols Load(std::string_view inRecordedPath, const BuildID& inRecordedID);

    // How many files were parsed so far.
    [[nodiscard]] size_t GetNumParsed() const;

private:
    struct Contents;

    std::unique_ptr<Contents> mContents;
};

} // namespace Host
