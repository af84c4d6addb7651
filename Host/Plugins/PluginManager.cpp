#include "Host/Plugins/PluginManager.h"

namespace Host
{

PluginManager::PluginManager(SymbolCache& ioCache) : PluginManagerFrontEnd(nullptr), mLinuxTypes(ioCache)
{
    LoadPlugins();
}

void PluginManager::LoadPlugins()
{
    mCapturePlugins = {&mPerfCapture};
    mSessionPlugins = {&mLinuxTypes};
    for (const std::string& extension : mPerfCapture.GetCaptureExtensions())
        mExtensionPlugins[extension] = {&mLinuxPlatform};
}

void PluginManager::UnloadPlugins()
{
    mCapturePlugins.clear();
    mSessionPlugins.clear();
    mExtensionPlugins.clear();
}

const std::vector<Profiler::ISessionTypes*>& PluginManager::GetSessionPlugins() const
{
    return mSessionPlugins;
}

const std::vector<Profiler::CapturePlugin*>& PluginManager::GetCapturePlugins() const
{
    return mCapturePlugins;
}

Profiler::PlatformPlugin* PluginManager::GetPlatformPlugin(const Serialization::SerializableGUID& inPlatformID) const
{
    return inPlatformID == sLinuxPlatformID ? &mLinuxPlatform : nullptr;
}

Profiler::PlatformPlugin* PluginManager::GetPlatformPluginForFile(const Serialization::SerializableGUID& inPlatformID) const
{
    return GetPlatformPlugin(inPlatformID);
}

std::vector<std::string> PluginManager::PerfCapturePlugin::GetCaptureExtensions() const
{
    return {"data"};
}

} // namespace Host
