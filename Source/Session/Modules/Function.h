// One function of a module, native or generated at run time.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Modules/ResolvedAddress.h"

#include <cstdint>
#include <string>
#include <utility>

namespace Profiler
{

struct Function
{
    static constexpr uint32_t sNoModule = 0xFFFFFFFF;

    uint64_t RelativeAddress = sNoAddress; // start relative to the module, sNoAddress for no function
    uint64_t Size = 0;                     // bytes
    std::string Name;
    int32_t ExtraData = -1;           // offset into a JITExtraDataStorage
    uint32_t ModuleIndex = sNoModule; // owner, in NativeModules or JITModules

    // The function that stands for "none", under the name that is shown for it.
    [[nodiscard]] static Function sMakeUnknown(std::string inName)
    {
        Function function;
        function.Name = std::move(inName);
        return function;
    }

    [[nodiscard]] bool IsKnown() const { return RelativeAddress != sNoAddress; }

    // REQUIRES: IsKnown().
    [[nodiscard]] bool Covers(uint64_t inRelativeAddress) const { return inRelativeAddress - RelativeAddress < Size; }
};

} // namespace Profiler

RTTI_DECLARE(Profiler::Function);
