// What every command needs to work with sessions: the plugin, the types, the platform, symbols and workers.
//
// Threads: the main thread. Ownership: owns all of it; sessions must be gone before. Invariant: the registry is finalized.
#pragma once

#include "Host/Linux/SymbolCache.h"
#include "Host/Plugins/PluginLibrary.h"
#include "Host/Plugins/PluginManager.h"
#include "RTTI/Registry.h"
#include "Session/Session.h"
#include "System/JobScheduler.h"
#include "Utility/ErrorState.h"

#include <memory>
#include <string>

namespace Host
{

class Workspace
{
public:
    // Loads the plugin. Null, with the reason in ioErrors, if it can't be loaded.
    [[nodiscard]] static std::unique_ptr<Workspace> sMake(const std::string& inPluginPath, Utility::ErrorState& ioErrors);

    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    // A session for a new capture of a Linux machine, with its platform.
    [[nodiscard]] std::unique_ptr<Profiler::Session> MakeSession(const std::string& inSessionPath);

    // Opens a stored session; outFlags gets what it needs before use. Null, with one entry in ioErrors, if it can't be opened.
    [[nodiscard]] std::unique_ptr<Profiler::Session> LoadSession(const std::string& inSessionPath, uint32_t& outFlags,
                                                                 Utility::ErrorState& ioErrors);

    [[nodiscard]] Profiler::ModelPlugin& GetPlugin() const { return mLibrary->GetPlugin(); }
    [[nodiscard]] const RTTI::Registry& GetRegistry() const { return mRegistry; }
    [[nodiscard]] SymbolCache& GetSymbols() { return mSymbols; }

private:
    Workspace();

    RTTI::Registry mRegistry;
    std::unique_ptr<PluginLibrary> mLibrary;
    System::JobScheduler mScheduler;
    SymbolCache mSymbols;
    PluginManager mFrontEnd;
    Profiler::PluginManagerCommon mPlugins;
};

} // namespace Host
