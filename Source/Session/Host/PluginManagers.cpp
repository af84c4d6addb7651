#include "Session/Host/PluginManagers.h"

#include "FileSystem/Path.h"

namespace Profiler
{

std::set<std::string> PluginManagerFrontEnd::GetAllCaptureExtensions() const
{
    std::set<std::string> extensions;
    for (const CapturePlugin* plugin : GetCapturePlugins())
    {
        const std::vector<std::string> own = plugin->GetCaptureExtensions();
        extensions.insert(own.begin(), own.end());
    }
    return extensions;
}

bool PluginManagerFrontEnd::FindPluginsForExtension(const std::string& inPath, std::vector<PlatformPlugin*>& outPlugins) const
{
    const auto found = mExtensionPlugins.find(FileSystem::gGetExtension(inPath));
    if (found == mExtensionPlugins.end())
        return false;
    outPlugins = found->second;
    return true;
}

} // namespace Profiler
