// A plugin library that was loaded at run time, and the plugin made from it.
//
// Threads: the host's main thread. Ownership: owns the library and the plugin; whatever the plugin made must be gone before.
// Invariant: nothing of the library is used but its descriptor and what that leads to.
#pragma once

#include "Plugin/ModuleDescriptor.h"
#include "Session/Pass/ModelPlugin.h"
#include "Utility/ErrorState.h"

#include <memory>
#include <string>

namespace Host
{

class PluginLibrary
{
public:
    // Loads the library, hands it the host's log sinks and makes its plugin. Null, with one entry in ioErrors, if that fails.
    [[nodiscard]] static std::unique_ptr<PluginLibrary> sLoad(const std::string& inPath, RTTI::Registry& ioRegistry,
                                                              Utility::ErrorState& ioErrors);
    ~PluginLibrary();

    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    [[nodiscard]] Profiler::ModelPlugin& GetPlugin() const { return *mPlugin; }
    [[nodiscard]] const Profiler::ModuleDescriptor& GetDescriptor() const { return *mDescriptor; }

private:
    struct CloseLibrary
    {
        void operator()(void* inHandle) const;
    };
    using LibraryHandle = std::unique_ptr<void, CloseLibrary>;

    PluginLibrary(LibraryHandle inHandle, const Profiler::ModuleDescriptor& inDescriptor, Profiler::ModelPlugin& inPlugin);

    LibraryHandle mHandle;
    const Profiler::ModuleDescriptor* mDescriptor;
    Profiler::ModelPlugin* mPlugin;
};

} // namespace Host
