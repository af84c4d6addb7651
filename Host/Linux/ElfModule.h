// A program or shared library that was mapped while recording. Its functions come from the ELF file of the same build, on demand.
//
// Threads: any; the first lookup of a module reads its symbols, and others that need them wait. Ownership: the ModuleDatabase's;
// the symbol cache outlives the module. Invariant: relative addresses are file offsets, so they don't depend on the file being
// there.
#pragma once

#include "Host/Linux/BuildID.h"
#include "Host/Linux/SymbolCache.h"
#include "RTTI/Declare.h"
#include "Session/Modules/NativeModule.h"

#include <atomic>
#include <string>

namespace Host
{

class ElfModule final : public Profiler::NativeModule
{
    RTTI_FRIEND()

public:
    // A module read from a session file knows the functions that it was stored with. With a cache it finds further ones, but only
    // if it has a build id: the file under its path may be another one by now.
    ElfModule() = default;
    explicit ElfModule(SymbolCache& ioCache);
    // inImageSize in bytes. An empty inBuildID: none was recorded.
    ElfModule(SymbolCache& ioCache, std::string inPath, int32_t inImageSize, const BuildID& inBuildID);

    const RTTI::Type& GetType() const override;
    [[nodiscard]] std::string GetSymbolFile() const override;
    [[nodiscard]] std::string GetSymbolFailure() const override;
    [[nodiscard]] std::string GetBuildIDText() const override;
    void EnsureSymbols(std::span<const uint64_t> inAddresses, std::span<const Profiler::ResolvedFrame> inFrames, uint64_t inBase,
                       Profiler::PlatformSession* inPlatform) override;
    [[nodiscard]] bool ResolveAddress(uint64_t inRelativeAddress, uint64_t inSize, Profiler::Function& outFunction) override;

    // Whether anything has asked for the symbols, and what came of it.
    [[nodiscard]] bool WasAskedForSymbols() const { return mIsLoaded.load(std::memory_order_acquire); }
    [[nodiscard]] ESymbolLoadResult GetLoadResult() const { return mSymbols.Result; }

private:
    SymbolCache* mCache = nullptr;
    bool mIsStored = true; // read from a session file
    std::string mBuildID;  // hexadecimal
    std::atomic<bool> mIsLoaded = false;
    System::Mutex mLoadMutex; // held while the symbols are read
    LoadedSymbols mSymbols;   // constant once mIsLoaded is set
};

} // namespace Host

RTTI_DECLARE(Host::ElfModule);
