// What the platform side of the host knows about one session.
//
// Threads: as each operation says; StopModule and StopAddresses are set before a pass and only read during one.
// Ownership: the Session owns it. The order of the virtual operations is part of the contract with the host.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Events/TraceEvent.h"
#include "System/Mutex.h"
#include "Utility/Signal.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace System
{
class JobScheduler;
}

namespace Profiler
{

class Module;
class ModuleDatabase;
class Session;

// State of a reload of symbols; the platform derives from it.
class ReloadSymbolsState
{
public:
    virtual ~ReloadSymbolsState() = default;
};

class PlatformSession : public RTTI::Object
{
public:
    static constexpr uint64_t sUnknownSymbolSettings = 0xFFFFFFFFFFFFFFFF;

    ~PlatformSession() override = default;
    const RTTI::Type& GetType() const override;

    // Runs once the session's modules are complete. The platform may keep both for the session's life.
    virtual void AttachSession(Session& inSession, System::JobScheduler& inScheduler) = 0;

    // The list of modules is final.
    virtual void OnModuleDataFinished(ModuleDatabase& inModules);

    // False marks the stack (absolute addresses, outermost frame first) as cut short.
    [[nodiscard]] virtual bool IsStackComplete(Session& inSession, ProcessID inProcess, std::span<const uint64_t> inStack);

    // Identifies the settings that symbols are found with; a change means that stored symbols are stale.
    [[nodiscard]] virtual uint64_t GetSymbolSettingsHash(Session& inSession);

    [[nodiscard]] virtual std::unique_ptr<ReloadSymbolsState> CreateReloadSymbolsState();

    // For a host's viewer; the library calls none of them.
    [[nodiscard]] virtual std::string GetPlatformName() const;
    [[nodiscard]] virtual std::string GetProcessTooltip(ProcessID inProcess) const;
    [[nodiscard]] virtual std::string GetThreadTooltip(ThreadID inThread) const;
    [[nodiscard]] virtual bool CanReloadSymbols() const;
    virtual void ReloadSymbols(ReloadSymbolsState& ioState);
    virtual void OnSessionClosing();

    // Tells listeners that symbols have changed; use under SymbolsChangedMutex.
    Utility::Signal<void()> SymbolsChanged;
    System::Mutex SymbolsChangedMutex;

    // A frame of StopModule whose function starts at one of StopAddresses (sorted, relative) ends its stack.
    const Module* StopModule = nullptr;
    std::vector<uint64_t> StopAddresses;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::PlatformSession);
