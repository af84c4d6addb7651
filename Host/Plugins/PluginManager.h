// The host's plugin managers: one model plugin and one platform.
//
// Threads: the host's main thread. Ownership: owns the platform plugin; refers to the model plugin.
#pragma once

#include "Host/Linux/LinuxPlatform.h"
#include "Session/Host/PluginManagers.h"

namespace Host
{

class PluginManager final : public Profiler::PluginManagerFrontEnd
{
public:
    // The modules of session files find their symbols in the cache, which outlives the manager.
    explicit PluginManager(SymbolCache& ioCache);

    void LoadPlugins() override;
    void UnloadPlugins() override;
    [[nodiscard]] const std::vector<Profiler::ISessionTypes*>& GetSessionPlugins() const override;
    [[nodiscard]] const std::vector<Profiler::CapturePlugin*>& GetCapturePlugins() const override;
    [[nodiscard]] Profiler::PlatformPlugin* GetPlatformPlugin(const Serialization::SerializableGUID& inPlatformID) const override;
    [[nodiscard]] Profiler::PlatformPlugin*
    GetPlatformPluginForFile(const Serialization::SerializableGUID& inPlatformID) const override;

private:
    // Recognises the files that perf record writes.
    class PerfCapturePlugin final : public Profiler::CapturePlugin
    {
    public:
        [[nodiscard]] std::vector<std::string> GetCaptureExtensions() const override;
    };

    mutable LinuxPlatformPlugin mLinuxPlatform;
    LinuxSessionTypes mLinuxTypes;
    PerfCapturePlugin mPerfCapture;
    std::vector<Profiler::ISessionTypes*> mSessionPlugins;
    std::vector<Profiler::CapturePlugin*> mCapturePlugins;
};

} // namespace Host
