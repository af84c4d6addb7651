// Names, colours and context texts of instrumented bars.
//
// Threads: one at a time, the one that runs the pass; a finished capture is only read.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Modules/ResolvedAddress.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Profiler
{

struct InstrumentationData
{
    std::string Name;
    uint32_t Color = 0xFFFFFFFF;
};

class InstrumentationDatabase
{
    RTTI_FRIEND()

public:
    static constexpr uint64_t sNoContext = 0xFFFFFFFFFFFFFFFF;

    // Enters name and colour for the address unless it has an entry, and gives the ID of the context text: sNoContext for an
    // empty text, else its hash. inIndex carries the instrumented flag.
    uint64_t AddInstrumentationData(uint64_t inRelativeAddress, ResolveIndex inIndex, std::string_view inName,
                                    std::string_view inContextText, uint32_t inColor);

    // Null if there is no entry.
    [[nodiscard]] const InstrumentationData* FindInstrumentationData(const ResolvedAddress& inAddress) const;
    [[nodiscard]] const std::string* FindContext(uint64_t inContextID) const;

    // Brings entries of old files into the present form.
    void OnLoaded();

private:
    std::unordered_map<ResolvedAddress, std::string, ResolvedAddressHash> mInstrumentationIDs; // only filled by old files
    std::unordered_map<ResolvedAddress, InstrumentationData, ResolvedAddressHash> mInstrumentationData;
    std::unordered_map<uint64_t, std::string> mContextIDs;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::InstrumentationData);
RTTI_DECLARE(Profiler::InstrumentationDatabase);
