// From a symbol of a table to a function of a module.
#pragma once

#include "Host/Linux/SymbolTable.h"
#include "Session/Modules/Function.h"

#include <cstdint>

namespace Host
{

// The function that covers the address. inTableBase is what a relative address of 0 is in the table. False for no table or no
// function.
[[nodiscard]] bool gFindFunction(const SymbolTable* inTable, uint64_t inRelativeAddress, uint64_t inTableBase,
                                 uint32_t inModuleIndex, Profiler::Function& outFunction);

} // namespace Host
