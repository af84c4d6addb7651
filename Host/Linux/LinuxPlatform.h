// The Linux side of a session, and the plugin that makes it.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Host/PlatformSession.h"
#include "Session/Host/PluginManagers.h"

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
};

class LinuxPlatformPlugin final : public Profiler::PlatformPlugin
{
public:
    void CreatePlatformSession(std::unique_ptr<Profiler::PlatformSession>& outPlatformSession) override;
};

} // namespace Host

RTTI_DECLARE(Host::LinuxPlatformSession);
