#include "Host/Linux/LinuxPlatform.h"

#include "Host/Linux/ElfModule.h"
#include "Host/Linux/ThreadEntries.h"
#include "Serialization/TypeCreators.h"
#include "Session/Session.h"

#include <limits>

RTTI_BEGIN(Host::LinuxPlatformSession, 1)
    RTTI_BASE(Profiler::PlatformSession)
RTTI_END()

namespace Host
{
namespace
{

// Whatever was loaded there at any time.
constexpr double sAnyTime = std::numeric_limits<double>::lowest();

bool gIsKernelAddress(uint64_t inAddress)
{
    constexpr uint64_t kernelHalf = uint64_t{1} << 63;
    return (inAddress & kernelHalf) != 0;
}

} // namespace

const RTTI::Type& LinuxPlatformSession::GetType() const
{
    return RTTI::gTypeOf<LinuxPlatformSession>();
}

void LinuxPlatformSession::AttachSession(Profiler::Session&, System::JobScheduler&) {}

std::string LinuxPlatformSession::GetPlatformName() const
{
    return "Linux";
}

bool LinuxPlatformSession::IsStackComplete(Profiler::Session& inSession, Profiler::ProcessID inProcess,
                                           std::span<const uint64_t> inStack)
{
    if (inStack.empty() || gIsKernelAddress(inStack.front()))
        return true;
    const auto [place, isNew] = mEntries[inProcess].try_emplace(inStack.front(), false);
    if (isNew)
        place->second = CanThreadBegin(inSession, inProcess, inStack.front());
    return place->second;
}

bool LinuxPlatformSession::CanThreadBegin(Profiler::Session& inSession, Profiler::ProcessID inProcess, uint64_t inAddress)
{
    Profiler::ModuleDatabase& modules = inSession.GetModuleDatabase();
    const Profiler::ResolvedFrame frame = modules.ResolveFrame(inAddress, inProcess, sAnyTime, this);
    if (frame.ResolveIndex.GetClass() != Profiler::ResolveIndex::sNativeClass)
        return false;
    if (frame.FunctionRelativeAddress != Profiler::sNoAddress)
        return gIsThreadEntry(modules.GetResolvedFunction(frame.FunctionRelativeAddress, frame.ResolveIndex).FunctionName);

    const std::string& path = static_cast<const Profiler::NativeModule*>(frame.Module)->Path;
    const Profiler::Process* process = inSession.GetProcess(inProcess);
    return gHasThreadEntries(path) || (process != nullptr && path == process->Path);
}

void LinuxPlatformPlugin::CreatePlatformSession(std::unique_ptr<Profiler::PlatformSession>& outPlatformSession)
{
    outPlatformSession = std::make_unique<LinuxPlatformSession>();
}

void LinuxSessionTypes::AddSessionTypes(Serialization::TypeCreators& ioCreators, Serialization::CompatibilityHandlers&)
{
    ioCreators.AddTypeCreator(RTTI::gTypeOf<ElfModule>(),
                              [this] { return RTTI::OwnedValue(RTTI::gTypeOf<ElfModule>(), new ElfModule(mCache)); });
}

} // namespace Host
