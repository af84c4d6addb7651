#include "Host/Linux/SymbolFunction.h"

namespace Host
{

bool gFindFunction(const SymbolTable* inTable, uint64_t inRelativeAddress, uint64_t inTableBase, uint32_t inModuleIndex,
                   Profiler::Function& outFunction)
{
    const Symbol* symbol = inTable != nullptr ? inTable->Find(inRelativeAddress + inTableBase) : nullptr;
    if (symbol == nullptr || symbol->Start < inTableBase)
        return false;
    outFunction.RelativeAddress = symbol->Start - inTableBase;
    outFunction.Size = symbol->Size;
    outFunction.Name = inTable->GetDisplayName(*symbol);
    outFunction.ModuleIndex = inModuleIndex;
    return true;
}

} // namespace Host
