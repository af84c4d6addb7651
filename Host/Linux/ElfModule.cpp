#include "Host/Linux/ElfModule.h"

#include "Host/Linux/SymbolFunction.h"

#include <utility>

RTTI_BEGIN(Host::ElfModule, 1)
    RTTI_BASE(Profiler::NativeModule)
    RTTI_PROPERTY("BuildID", mBuildID)
RTTI_END()

namespace Host
{

ElfModule::ElfModule(SymbolCache& ioCache, std::string inPath, int32_t inImageSize, const BuildID& inBuildID)
    : NativeModule(std::move(inPath), inImageSize, Profiler::ESymbolLookupAddressMode::Relative),
      mCache(&ioCache),
      mIsStored(false),
      mBuildID(inBuildID.ToHex())
{
}

ElfModule::ElfModule(SymbolCache& ioCache) : mCache(&ioCache) {}

const RTTI::Type& ElfModule::GetType() const
{
    return RTTI::gTypeOf<ElfModule>();
}

std::string ElfModule::GetSymbolFile() const
{
    return WasAskedForSymbols() ? mSymbols.SymbolFile : std::string();
}

std::string ElfModule::GetSymbolFailure() const
{
    if (!WasAskedForSymbols() || gHasSymbols(mSymbols.Result))
        return {};
    return gGetSymbolLoadText(mSymbols.Result);
}

std::string ElfModule::GetBuildIDText() const
{
    return mBuildID;
}

void ElfModule::EnsureSymbols(std::span<const uint64_t>, std::span<const Profiler::ResolvedFrame>, uint64_t,
                              Profiler::PlatformSession*)
{
    if (mCache == nullptr || WasAskedForSymbols())
        return;
    const System::MutexLock lock(mLoadMutex);
    if (WasAskedForSymbols())
        return;
    const BuildID id = BuildID::sFromHex(mBuildID);
    if (mIsStored && id.IsEmpty())
        return;
    mSymbols = mCache->Load(Path, id);
    if (gHasSymbols(mSymbols.Result))
        ResolveStatus = Profiler::EResolveStatus::Resolved;
    else if (!mIsStored)
        ResolveStatus = Profiler::EResolveStatus::Unresolved;
    mIsLoaded.store(true, std::memory_order_release);
}

bool ElfModule::ResolveAddress(uint64_t inRelativeAddress, uint64_t, Profiler::Function& outFunction)
{
    return WasAskedForSymbols() && gFindFunction(mSymbols.Table.get(), inRelativeAddress, 0, GetIndex(), outFunction);
}

} // namespace Host
