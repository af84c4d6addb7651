// The kernel, with its loadable modules: one more module in every process. Its functions come from the kernel's symbol list.
//
// Threads and ownership as for ElfModule. Relative addresses count from the address at which the kernel's text lay when recorded.
#pragma once

#include "Host/Linux/KernelSymbols.h"
#include "RTTI/Declare.h"
#include "Session/Modules/NativeModule.h"

#include <atomic>
#include <optional>

namespace Host
{

class KernelModule final : public Profiler::NativeModule
{
    RTTI_FRIEND()

public:
    // A module read from a session file knows the functions that it was stored with, and no others: the kernel may have moved.
    KernelModule() = default;
    // inTextAddress: where relative address 0 lies; inImageSize in bytes.
    KernelModule(KernelSymbolsRequest inRequest, uint64_t inTextAddress, int32_t inImageSize);

    const RTTI::Type& GetType() const override;
    [[nodiscard]] std::string GetSymbolFile() const override;
    [[nodiscard]] std::string GetSymbolFailure() const override;
    [[nodiscard]] std::string GetBuildIDText() const override;
    void EnsureSymbols(std::span<const uint64_t> inAddresses, std::span<const Profiler::ResolvedFrame> inFrames, uint64_t inBase,
                       Profiler::PlatformSession* inPlatform) override;
    [[nodiscard]] bool ResolveAddress(uint64_t inRelativeAddress, uint64_t inSize, Profiler::Function& outFunction) override;

    [[nodiscard]] bool WasAskedForSymbols() const { return mIsLoaded.load(std::memory_order_acquire); }

private:
    std::optional<KernelSymbolsRequest> mRequest; // none for a module from a file
    std::string mBuildID;                         // hexadecimal
    uint64_t mTextAddress = 0;
    std::atomic<bool> mIsLoaded = false;
    System::Mutex mLoadMutex; // held while the list is read
    KernelSymbols mSymbols;   // constant once mIsLoaded is set
};

} // namespace Host

RTTI_DECLARE(Host::KernelModule);
