#include "Host/Linux/KernelModule.h"

#include "Host/Linux/SymbolFunction.h"

#include <utility>

RTTI_BEGIN(Host::KernelModule, 1)
    RTTI_BASE(Profiler::NativeModule)
    RTTI_PROPERTY("BuildID", mBuildID)
    RTTI_PROPERTY("TextAddress", mTextAddress)
RTTI_END()

namespace Host
{
namespace
{

constexpr const char* sKernelPath = "[kernel]";

} // namespace

KernelModule::KernelModule(KernelSymbolsRequest inRequest, uint64_t inTextAddress, int32_t inImageSize)
    : NativeModule(sKernelPath, inImageSize, Profiler::ESymbolLookupAddressMode::Relative),
      mRequest(std::move(inRequest)),
      mBuildID(mRequest->RecordedID.ToHex()),
      mTextAddress(inTextAddress)
{
}

const RTTI::Type& KernelModule::GetType() const
{
    return RTTI::gTypeOf<KernelModule>();
}

std::string KernelModule::GetSymbolFile() const
{
    return WasAskedForSymbols() && gHasSymbols(mSymbols.Result) ? mRequest->ListPath : std::string();
}

std::string KernelModule::GetSymbolFailure() const
{
    if (!WasAskedForSymbols() || gHasSymbols(mSymbols.Result))
        return {};
    if (mSymbols.Result == ESymbolLoadResult::BuildIDMismatch)
        return "another kernel is running than the recorded one";
    return gGetSymbolLoadText(mSymbols.Result);
}

std::string KernelModule::GetBuildIDText() const
{
    return mBuildID;
}

void KernelModule::EnsureSymbols(std::span<const uint64_t>, std::span<const Profiler::ResolvedFrame>, uint64_t,
                                 Profiler::PlatformSession*)
{
    if (!mRequest || WasAskedForSymbols())
        return;
    const System::MutexLock lock(mLoadMutex);
    if (WasAskedForSymbols())
        return;
    mSymbols = gLoadKernelSymbols(*mRequest);
    ResolveStatus = gHasSymbols(mSymbols.Result) ? Profiler::EResolveStatus::Resolved : Profiler::EResolveStatus::Unresolved;
    mIsLoaded.store(true, std::memory_order_release);
}

bool KernelModule::ResolveAddress(uint64_t inRelativeAddress, uint64_t, Profiler::Function& outFunction)
{
    return WasAskedForSymbols() && gFindFunction(mSymbols.Table.get(), inRelativeAddress, mTextAddress, GetIndex(), outFunction);
}

} // namespace Host
