// A module whose symbols a test gives, and which notes what it is asked.
// Threads: any, once its symbols are given. Ownership: a ModuleDatabase or the test; the log belongs to the test.
#pragma once

#include "Session/Modules/NativeModule.h"
#include "System/Mutex.h"
#include "Utility/Format.h"

#include <string>
#include <utility>
#include <vector>

namespace Profiler
{

// The calls of all modules of a test, in order.
class CallLog
{
public:
    void Add(std::string inCall)
    {
        const System::MutexLock lock(mMutex);
        mCalls.push_back(std::move(inCall));
    }

    // What was noted since the last call.
    [[nodiscard]] std::vector<std::string> Take()
    {
        const System::MutexLock lock(mMutex);
        return std::exchange(mCalls, {});
    }

    void Clear() { static_cast<void>(Take()); }

private:
    System::Mutex mMutex;
    std::vector<std::string> mCalls GUARDED_BY(mMutex);
};

class FakeNativeModule final : public NativeModule
{
public:
    FakeNativeModule() = default;
    explicit FakeNativeModule(std::string inPath, int32_t inImageSize = sUnknownImageSize,
                              ESymbolLookupAddressMode inMode = ESymbolLookupAddressMode::Relative, CallLog* inCalls = nullptr)
        : NativeModule(std::move(inPath), inImageSize, inMode),
          mCalls(inCalls)
    {
    }

    // A function that ResolveAddress finds from its start up to inReach behind it, and gives with the size inSize.
    FakeNativeModule& AddSymbol(uint64_t inRelativeAddress, uint64_t inReach, uint64_t inSize, std::string inName)
    {
        Function function;
        function.RelativeAddress = inRelativeAddress;
        function.Size = inSize;
        function.Name = std::move(inName);
        mSymbols.push_back({std::move(function), inReach});
        return *this;
    }

    [[nodiscard]] std::string GetSymbolFile() const override { return {}; }
    [[nodiscard]] std::string GetSymbolFailure() const override { return {}; }

    void EnsureSymbols(std::span<const uint64_t> inAddresses, std::span<const ResolvedFrame> inFrames, uint64_t inBase,
                       PlatformSession*) override
    {
        std::string call = Utility::gFormat("ensure %s base %llx:", Name.c_str(), static_cast<unsigned long long>(inBase));
        for (const uint64_t address : inAddresses)
            call += Utility::gFormat(" %llx", static_cast<unsigned long long>(address));
        Note(inFrames.size() == inAddresses.size() ? std::move(call) : "frames without addresses");
    }

    [[nodiscard]] bool ResolveAddress(uint64_t inRelativeAddress, uint64_t inSize, Function& outFunction) override
    {
        Note(Utility::gFormat("resolve %s %llx+%llu", Name.c_str(), static_cast<unsigned long long>(inRelativeAddress),
                              static_cast<unsigned long long>(inSize)));
        for (const Symbol& symbol : mSymbols)
        {
            if (inRelativeAddress - symbol.Function.RelativeAddress >= symbol.Reach)
                continue;
            outFunction = symbol.Function;
            return true;
        }
        return false;
    }

private:
    struct Symbol
    {
        Profiler::Function Function;
        uint64_t Reach;
    };

    void Note(std::string inCall)
    {
        if (mCalls != nullptr)
            mCalls->Add(std::move(inCall));
    }

    std::vector<Symbol> mSymbols;
    CallLog* mCalls = nullptr;
};

} // namespace Profiler
