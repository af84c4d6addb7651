// The Linux side of a session, the plugin that makes it, and how a reader of session files makes its modules.
#pragma once

#include "Host/Linux/SymbolCache.h"
#include "RTTI/Declare.h"
#include "Session/Host/PlatformSession.h"
#include "Session/Host/PluginManagers.h"

#include <unordered_map>

namespace Host
{

// Identifies captures of Linux machines in session files.
inline constexpr Serialization::SerializableGUID sLinuxPlatformID{0x4C0F5B1E7D3A96C2, 0x91E4A8D05B72F36C};

class LinuxPlatformSession final : public Profiler::PlatformSession
{
public:
    const RTTI::Type& GetType() const override;
    void AttachSession(Profiler::Session& inSession, System::JobScheduler& inScheduler) override;
    [[nodiscard]] std::string GetPlatformName() const override;

    // Whether the outermost frame is one in which threads begin. A stack of the kernel alone is complete, and so is one that ends
    // in a function without a name where threads may begin: nothing shows that it is cut. One thread at a time.
    [[nodiscard]] bool IsStackComplete(Profiler::Session& inSession, Profiler::ProcessID inProcess,
                                       std::span<const uint64_t> inStack) override;

private:
    [[nodiscard]] bool CanThreadBegin(Profiler::Session& inSession, Profiler::ProcessID inProcess, uint64_t inAddress);

    // By process, what was found out about outermost addresses: a capture has few.
    std::unordered_map<Profiler::ProcessID, std::unordered_map<uint64_t, bool>> mEntries;
};

class LinuxPlatformPlugin final : public Profiler::PlatformPlugin
{
public:
    void CreatePlatformSession(std::unique_ptr<Profiler::PlatformSession>& outPlatformSession) override;
};

// Modules of a session file look for further functions in the files of their builds. REQUIRES: the cache outlives the sessions.
class LinuxSessionTypes final : public Profiler::ISessionTypes
{
public:
    explicit LinuxSessionTypes(SymbolCache& ioCache) : mCache(ioCache) {}

    void AddSessionTypes(Serialization::TypeCreators& ioCreators, Serialization::CompatibilityHandlers& ioHandlers) override;

private:
    SymbolCache& mCache;
};

} // namespace Host

RTTI_DECLARE(Host::LinuxPlatformSession);
