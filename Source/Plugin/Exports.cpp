#include "Plugin/Exports.h"

#include "Plugin/ThreadsModelPlugin.h"

namespace
{

constexpr uint8_t sModelPluginKind = 0;

const Profiler::PluginDescriptor sPluginDescriptor = {sModelPluginKind, "ThreadsModelPlugin", &createThreadsModelPlugin,
                                                      &destroyThreadsModelPlugin};

} // namespace

extern "C"
{
    const Profiler::ModuleDescriptor moduleDescriptor = {
        Profiler::sModuleDescriptorVersion, "1.0.7705.679", &initializeTracing, 1, &sPluginDescriptor, 1};

    Profiler::Plugin* createThreadsModelPlugin(const char* inFirst, const char* inSecond, void* inHost,
                                               RTTI::Registry* inRegistry)
    {
        return new Profiler::ThreadsModelPlugin(inFirst, inSecond, inHost, inRegistry);
    }

    void destroyThreadsModelPlugin(Profiler::Plugin* inPlugin)
    {
        delete inPlugin;
    }

    void initializeTracing(const std::vector<Utility::LogSink>& inSinks)
    {
        Utility::gSetLogSinks(inSinks);
    }
}
