// The four symbols that the library exports. Everything else in it is hidden.
//
// Threads: creation, destruction and initializeTracing run on the host's thread; the last before anything logs.
#pragma once

#include "Plugin/ModuleDescriptor.h"

// Behind exports.map, which hides everything else, this keeps the four from being hidden with the rest.
#define PLUGIN_EXPORT __attribute__((visibility("default")))

extern "C"
{
    // What a host reads first. The library needs no other state at load time.
    PLUGIN_EXPORT extern const Profiler::ModuleDescriptor
        moduleDescriptor; // NOLINT(readability-identifier-naming): the name that hosts look for

    // Makes the plugin and registers its types. REQUIRES: no argument but inHost is null; a null text is a fatal error of the
    // caller.
    PLUGIN_EXPORT Profiler::Plugin* createThreadsModelPlugin(const char* inFirst, const char* inSecond, void* inHost,
                                                             RTTI::Registry* inRegistry);

    // Destroys a plugin; nothing for null.
    PLUGIN_EXPORT void destroyThreadsModelPlugin(Profiler::Plugin* inPlugin);

    // Sends the library's log lines to copies of these sinks from now on. Without it they go nowhere.
    PLUGIN_EXPORT void initializeTracing(const std::vector<Utility::LogSink>& inSinks);
}
