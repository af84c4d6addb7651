#include "Host/CommandLine/Workspace.h"

#include "Host/CommandLine/FailureText.h"
#include "Host/Import/ImportReport.h"
#include "Host/Linux/ElfModule.h"
#include "Host/Linux/KernelModule.h"
#include "Plugin/TypeRegistration.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <string_view>
#include <thread>

namespace Host
{
namespace
{

constexpr std::string_view sHostModuleName = "brenvaldoris";

void gRegisterHostTypes(RTTI::Registry& ioRegistry)
{
    const RTTI::CurrentModuleScope scope(ioRegistry, Utility::gCRC64(sHostModuleName.data(), sHostModuleName.size(), 0));
    Profiler::gRegisterTypes(ioRegistry);
    ioRegistry.Register(RTTI::gTypeOf<LinuxPlatformSession>());
    ioRegistry.Register(RTTI::gTypeOf<ElfModule>());
    ioRegistry.Register(RTTI::gTypeOf<KernelModule>());
    ioRegistry.Register(RTTI::gTypeOf<ImportReport>());
}

int32_t gGetNumWorkers()
{
    return static_cast<int32_t>(std::max(1U, std::thread::hardware_concurrency()));
}

} // namespace

Workspace::Workspace() : mScheduler(gGetNumWorkers()), mFrontEnd(mSymbols) {}

std::unique_ptr<Workspace> Workspace::sMake(const std::string& inPluginPath, Utility::ErrorState& ioErrors)
{
    std::unique_ptr<Workspace> workspace(new Workspace());
    gRegisterHostTypes(workspace->mRegistry);
    workspace->mLibrary = PluginLibrary::sLoad(inPluginPath, workspace->mRegistry, ioErrors);
    if (workspace->mLibrary == nullptr)
        return nullptr;
    workspace->mRegistry.Finalize();
    workspace->mPlugins.ModelPlugins = {&workspace->mLibrary->GetPlugin()};
    return workspace;
}

std::unique_ptr<Profiler::Session> Workspace::MakeSession(const std::string& inSessionPath)
{
    auto info = std::make_unique<Profiler::SessionInfo>();
    info->PlatformID = sLinuxPlatformID;
    auto session = std::make_unique<Profiler::Session>(std::move(info), inSessionPath, mScheduler, mPlugins, mFrontEnd);
    session->SetPerformanceAPIVersion(Profiler::Session::CurrentPerformanceAPIVersion);
    std::unique_ptr<Profiler::PlatformSession> platform;
    mFrontEnd.GetPlatformPlugin(sLinuxPlatformID)->CreatePlatformSession(platform);
    session->SetPlatformSession(std::move(platform));
    session->InitializePlatformSession();
    return session;
}

std::unique_ptr<Profiler::Session> Workspace::LoadSession(const std::string& inSessionPath, uint32_t& outFlags,
                                                          Utility::ErrorState& ioErrors)
{
    Serialization::ReaderErrorState errors;
    std::unique_ptr<Profiler::Session> session;
    Profiler::PlatformPlugin* platform = nullptr;
    if (Profiler::Session::sLoad(inSessionPath, mRegistry, mScheduler, mPlugins, mFrontEnd, session, outFlags, platform, errors))
        return session;
    ioErrors.AddError(0, gGetFailureText(errors));
    return nullptr;
}

} // namespace Host
