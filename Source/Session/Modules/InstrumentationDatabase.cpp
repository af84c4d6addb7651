#include "Session/Modules/InstrumentationDatabase.h"

#include "Utility/Hash.h"

#include <utility>

RTTI_BEGIN(Profiler::InstrumentationData, 1)
    RTTI_PROPERTY("Name", Name)
    RTTI_PROPERTY("Color", Color)
RTTI_END()

RTTI_BEGIN(Profiler::InstrumentationDatabase, 2)
    RTTI_PROPERTY("InstrumentationIDs", mInstrumentationIDs)
    RTTI_PROPERTY("InstrumentationData", mInstrumentationData)
    RTTI_PROPERTY("ContextIDs", mContextIDs)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint32_t sColorOfOldFiles = 0xFFFFFFFF;

} // namespace

uint64_t InstrumentationDatabase::AddInstrumentationData(uint64_t inRelativeAddress, ResolveIndex inIndex,
                                                         std::string_view inName, std::string_view inContextText,
                                                         uint32_t inColor)
{
    const auto [entry, isNew] = mInstrumentationData.try_emplace({inRelativeAddress, inIndex});
    if (isNew)
        entry->second = {std::string(inName), inColor};
    if (inContextText.empty())
        return sNoContext;

    const uint64_t contextID = Utility::gHash64(inContextText);
    const auto [context, isNewContext] = mContextIDs.try_emplace(contextID);
    if (isNewContext)
        context->second = inContextText;
    return contextID;
}

const InstrumentationData* InstrumentationDatabase::FindInstrumentationData(const ResolvedAddress& inAddress) const
{
    const auto found = mInstrumentationData.find(inAddress);
    return found != mInstrumentationData.end() ? &found->second : nullptr;
}

const std::string* InstrumentationDatabase::FindContext(uint64_t inContextID) const
{
    const auto found = mContextIDs.find(inContextID);
    return found != mContextIDs.end() ? &found->second : nullptr;
}

void InstrumentationDatabase::OnLoaded()
{
    for (auto& [address, name] : mInstrumentationIDs)
        mInstrumentationData[address] = {std::move(name), sColorOfOldFiles};
    mInstrumentationIDs.clear();
}

} // namespace Profiler
