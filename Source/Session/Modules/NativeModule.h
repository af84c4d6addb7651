// A module with an image file. It keeps the functions that were resolved so far; a concrete class of the platform knows where
// symbols come from.
//
// Threads: resolving from any thread. EnsureSymbols and ResolveAddress are called without the module's lock and must guard
// themselves. Ownership: its ModuleDatabase. Invariant: once functions are sorted, the cache stays sorted and free of duplicates.
#pragma once

#include "Session/Modules/Function.h"
#include "Session/Modules/Module.h"
#include "System/Mutex.h"

#include <span>
#include <unordered_set>

namespace Profiler
{

class PlatformSession;

enum class EResolveStatus : uint32_t
{
    Resolved = 0,
    Unresolved = 1,
    Unused = 2,     // nothing has asked for its symbols yet
    OldCapture = 3, // read from a file
};

// In absolute mode the module's base counts as 0, so relative and absolute addresses are the same.
enum class ESymbolLookupAddressMode : uint32_t
{
    Relative = 0,
    Absolute = 1,
};

// Whether a lookup may ask the platform for symbols.
enum class EResolveFlag : uint32_t
{
    FetchSymbols = 0,
    CacheOnly = 1,
};

class NativeModule : public Module
{
    RTTI_FRIEND()

public:
    static constexpr int32_t sUnknownImageSize = -1;

    // Result of ResolveAddresses when no stop rule ended the walk.
    static constexpr int32_t sNotStopped = -1;

    // A module that is about to be read from a file.
    NativeModule() = default;
    // A new one; its name is the file name of the path.
    NativeModule(std::string inPath, int32_t inImageSize, ESymbolLookupAddressMode inMode);
    ~NativeModule() override = default;

    const RTTI::Type& GetType() const override;
    void OnLoaded(Session& inSession) override;
    [[nodiscard]] const char* GetModuleTypeText() const override;
    [[nodiscard]] std::vector<ModuleProperty> GetProperties() const override;

    // The file that the symbols came from, empty if there are none.
    [[nodiscard]] virtual std::string GetSymbolFile() const = 0;

    // Why the module has no symbols, empty if it has.
    [[nodiscard]] virtual std::string GetSymbolFailure() const = 0;

    // The identity of the image, as hexadecimal text.
    [[nodiscard]] virtual std::string GetBuildIDText() const;

    // Called ahead of a lookup that may fetch symbols. inFrames are the caller's frames of the same addresses.
    virtual void EnsureSymbols(std::span<const uint64_t> inAddresses, std::span<const ResolvedFrame> inFrames, uint64_t inBase,
                               PlatformSession* inPlatform);

    // Finds the function that covers [inRelativeAddress, inRelativeAddress + inSize); false if there is none.
    [[nodiscard]] virtual bool ResolveAddress(uint64_t inRelativeAddress, uint64_t inSize, Function& outFunction);

    // For whoever reads symbols: adds a function, unless one with its address was added since the last sorting.
    void AddFunction(uint64_t inRelativeAddress, uint64_t inSize, std::string inName);
    void SortFunctions();

    // For the upgrade of files whose functions have absolute addresses: subtracts the base from them and enters the index.
    void MakeFunctionsRelative(uint64_t inImageBase, uint32_t inModuleIndex);

    // Fills one frame per address, all of which lie in this module, loaded at inBase. Gives the position of the frame at which
    // the platform's stop rule ended the walk, or sNotStopped. ioFrames holds the caller's earlier frames: one whose absolute
    // address is unchanged keeps its function.
    int32_t ResolveAddresses(std::span<const uint64_t> inAddresses, std::span<ResolvedFrame> ioFrames, uint64_t inBase,
                             PlatformSession* inPlatform, EResolveFlag inFlag);

    // The function of the cache that covers the address, or the default function, whose address is sNoAddress. A copy.
    [[nodiscard]] Function FindCachedFunction(uint64_t inRelativeAddress) const;

    // Calls back for each function of the cache, under the module's lock.
    void ForEachCachedFunction(const std::function<void(const Function&)>& inCallback) const;

    [[nodiscard]] uint64_t GetBase(uint64_t inImageBase) const
    {
        return SymbolLookupAddressMode == ESymbolLookupAddressMode::Absolute ? 0 : inImageBase;
    }

    // Whether an image loaded at inImageBase lies below the address as a whole; never true while its size is unknown.
    // REQUIRES: inImageBase <= inAddress.
    [[nodiscard]] bool EndsBelow(uint64_t inAddress, uint64_t inImageBase) const
    {
        if (ImageSize == sUnknownImageSize)
            return false;
        return ImageSize < 0 || inAddress - inImageBase >= static_cast<uint64_t>(ImageSize);
    }

    [[nodiscard]] uint32_t GetIndex() const { return mIndex; }
    void SetIndex(uint32_t inIndex) { mIndex = inIndex; }

    std::string Path;
    int32_t ImageSize = sUnknownImageSize; // bytes
    EResolveStatus ResolveStatus = EResolveStatus::OldCapture;
    ESymbolLookupAddressMode SymbolLookupAddressMode = ESymbolLookupAddressMode::Relative;

private:
    struct RecentLookup
    {
        uint64_t RelativeAddress = 0;
        const Function* Found = nullptr; // null: nothing remembered
    };

    const Function& FindFunction(uint64_t inRelativeAddress) const REQUIRES(mMutex);
    const Function& SearchFunction(uint64_t inRelativeAddress) const REQUIRES(mMutex);
    int32_t ResolveFromCache(std::span<const uint64_t> inAddresses, std::span<ResolvedFrame> ioFrames, uint64_t inBase,
                             const PlatformSession* inStopRule, EResolveFlag inFlag, size_t& outFirstMiss) const;
    int32_t ResolveMisses(std::span<ResolvedFrame> ioFrames, uint64_t inBase, const PlatformSession* inStopRule,
                          size_t inFirstMiss, std::vector<Function>& outFound);
    void MergeFunctions(std::vector<Function>& ioFound);
    void SortAndFold() REQUIRES(mMutex);
    void RebuildFunctionStarts() REQUIRES(mMutex);
    void FillFrame(ResolvedFrame& outFrame, const Function& inFunction, uint64_t inAddress, uint64_t inBase) const;

    uint32_t mIndex = 0;
    const Function mDefaultFunction = Function::sMakeUnknown("Unknown");

    mutable System::Mutex mMutex;
    std::vector<Function> mFunctions GUARDED_BY(mMutex);      // by RelativeAddress
    std::vector<uint64_t> mFunctionStarts GUARDED_BY(mMutex); // of mFunctions, dense because every frame searches them
    // Frames repeat, and a search among a kernel's functions misses the processor's cache at most of its steps.
    mutable std::vector<RecentLookup> mRecentLookups GUARDED_BY(mMutex); // by hash of the address; emptied with every change
    std::vector<Function> mRuntimeFunctions GUARDED_BY(mMutex);          // by RelativeAddress
    std::unordered_set<uint64_t> mAddedAddresses GUARDED_BY(mMutex);
};

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::EResolveStatus);
RTTI_DECLARE_ENUM(Profiler::ESymbolLookupAddressMode);
RTTI_DECLARE(Profiler::NativeModule);
