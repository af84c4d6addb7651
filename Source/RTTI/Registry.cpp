#include "RTTI/Registry.h"

#include "RTTI/ReachedTypes.h"
#include "Utility/Assert.h"

namespace RTTI
{
namespace
{

const Type* gFindInModule(const Registry::Module& inModule, std::string_view inName)
{
    if (const auto found = inModule.Types.find(inName); found != inModule.Types.end())
        return found->second;
    if (const auto found = inModule.Aliases.find(inName); found != inModule.Aliases.end())
        return found->second;
    return nullptr;
}

} // namespace

uint64_t gThreadsModelPluginModuleKey()
{
    static const uint64_t sKey = []
    {
        constexpr std::string_view name = "ThreadsModelPlugin";
        return Utility::gCRC64(name.data(), name.size(), 0);
    }();
    return sKey;
}

void Registry::Register(const Type& inType)
{
    PROFILER_ASSERT_AT("RTTI/Registry", mCurrentModuleKey != sNoModule, "No module is registering, type: %s",
                       inType.GetName().c_str());
    std::unordered_set<const Type*> seen;
    RegisterReached(inType, seen);
}

void Registry::RegisterReached(const Type& inType, std::unordered_set<const Type*>& ioSeen)
{
    if (!ioSeen.insert(&inType).second)
        return;
    mModules[mCurrentModuleKey].Types.insert_or_assign(inType.GetName(), &inType);
    if (const CompoundInfo* compound = inType.AsCompound())
        RegisterAliases(inType, compound->Aliases, compound->AliasCount);
    if (const EnumInfo* info = inType.AsEnum())
        RegisterAliases(inType, info->Aliases, info->AliasCount);
    gForEachReachedType(inType, [&](const Type& inReached) { RegisterReached(inReached, ioSeen); });
}

void Registry::RegisterAliases(const Type& inType, const char* const* inAliases, uint32_t inCount)
{
    for (uint32_t i = 0; i < inCount; ++i)
        mModules[mCurrentModuleKey].Aliases.insert_or_assign(inAliases[i], &inType);
}

const Type* Registry::FindType(std::string_view inName) const
{
    std::string_view name = inName;
    if (mRenameTable != nullptr)
    {
        if (const auto renamed = mRenameTable->find(inName); renamed != mRenameTable->end())
            name = renamed->second;
    }
    const auto preferred = mModules.find(gThreadsModelPluginModuleKey());
    if (preferred == mModules.end())
        return nullptr;
    if (const Type* found = gFindInModule(preferred->second, name))
        return found;
    for (const auto& [key, module] : mModules)
    {
        if (key == preferred->first)
            continue;
        if (const Type* found = gFindInModule(module, name))
            return found;
    }
    return nullptr;
}

bool Registry::TypeMatchesName(const Type& inType, const std::string& inName) const
{
    const char* name = inName.c_str();
    if (mRenameTable != nullptr)
    {
        if (const auto renamed = mRenameTable->find(inName); renamed != mRenameTable->end())
            name = renamed->second.c_str();
    }
    const char* end = nullptr;
    return inType.MatchName(name, end);
}

} // namespace RTTI
