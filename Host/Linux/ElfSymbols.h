// Reads the functions of an ELF module into a symbol table.
//
// Threads: any, on files of their own. Relative addresses of the table are offsets in the module's file, so that they don't
// depend on where or in which pieces it was mapped: relative address = address - mapping start + the mapping's file offset.
#pragma once

#include "Host/Linux/ElfFile.h"
#include "Host/Linux/SymbolLoadResult.h"
#include "Host/Linux/SymbolTable.h"

#include <memory>

namespace Host
{

struct ElfSymbols
{
    ESymbolLoadResult Result = ESymbolLoadResult::NoSymbols;
    std::shared_ptr<const SymbolTable> Table; // not null if gHasSymbols(Result)
};

// Whether the file has a full symbol table, so that no debug file is needed.
[[nodiscard]] bool gHasFullSymbolTable(const ElfFile& inFile);

// The functions of inModule and its linkage stubs. The full table is taken from inDebugFile (null if there is none) where the
// module has none; addresses are always turned into offsets of inModule. A debug file may stand for a module that is gone only as
// far as its program headers still tell the module's offsets; where they don't, the result is NoSymbols. Damaged parts are left
// out; the result is Damaged if they leave nothing.
[[nodiscard]] ElfSymbols gReadElfSymbols(const ElfFile& inModule, const ElfFile* inDebugFile);

} // namespace Host
