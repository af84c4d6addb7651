#include "Session/Host/PlatformSession.h"

RTTI_BEGIN(Profiler::PlatformSession, 1)
    RTTI_BASE(RTTI::Object)
RTTI_END()

namespace Profiler
{

const RTTI::Type& PlatformSession::GetType() const
{
    return RTTI::gTypeOf<PlatformSession>();
}

void PlatformSession::OnModuleDataFinished(ModuleDatabase&) {}

bool PlatformSession::IsStackComplete(Session&, ProcessID, std::span<const uint64_t>)
{
    return true;
}

uint64_t PlatformSession::GetSymbolSettingsHash(Session&)
{
    return sUnknownSymbolSettings;
}

std::unique_ptr<ReloadSymbolsState> PlatformSession::CreateReloadSymbolsState()
{
    return std::make_unique<ReloadSymbolsState>();
}

std::string PlatformSession::GetPlatformName() const
{
    return {};
}

std::string PlatformSession::GetProcessTooltip(ProcessID) const
{
    return {};
}

std::string PlatformSession::GetThreadTooltip(ThreadID) const
{
    return {};
}

bool PlatformSession::CanReloadSymbols() const
{
    return false;
}

void PlatformSession::ReloadSymbols(ReloadSymbolsState&) {}

void PlatformSession::OnSessionClosing() {}

} // namespace Profiler
