#include "Host/Linux/LinuxPlatform.h"

RTTI_BEGIN(Host::LinuxPlatformSession, 1)
    RTTI_BASE(Profiler::PlatformSession)
RTTI_END()

namespace Host
{

const RTTI::Type& LinuxPlatformSession::GetType() const
{
    return RTTI::gTypeOf<LinuxPlatformSession>();
}

void LinuxPlatformSession::AttachSession(Profiler::Session&, System::JobScheduler&) {}

std::string LinuxPlatformSession::GetPlatformName() const
{
    return "Linux";
}

void LinuxPlatformPlugin::CreatePlatformSession(std::unique_ptr<Profiler::PlatformSession>& outPlatformSession)
{
    outPlatformSession = std::make_unique<LinuxPlatformSession>();
}

} // namespace Host
