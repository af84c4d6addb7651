// The records by which a host finds its way into the library. Their layout is the host's: fixed width, in memory order.
#pragma once

#include "Utility/Log.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace RTTI
{
class Registry;
}

namespace Profiler
{

class Plugin;

using CreatePluginFunction = Plugin* (*)(const char* inFirst, const char* inSecond, void* inHost, RTTI::Registry* inRegistry);
using DestroyPluginFunction = void (*)(Plugin* inPlugin);
using InitializeTracingFunction = void (*)(const std::vector<Utility::LogSink>& inSinks);

inline constexpr uint64_t sModuleDescriptorVersion = 9;
inline constexpr const char* sModuleDescriptorSymbol = "moduleDescriptor";

struct PluginDescriptor
{
    uint8_t Kind;
    const char* Name;
    CreatePluginFunction Create;
    DestroyPluginFunction Destroy;
};
static_assert(sizeof(PluginDescriptor) == 32);
static_assert(offsetof(PluginDescriptor, Name) == 8);

struct ModuleDescriptor
{
    uint64_t DescriptorVersion;
    const char* ModuleVersion;
    InitializeTracingFunction InitializeTracing;
    uint64_t FirstCount;
    const PluginDescriptor* Plugins;
    uint64_t SecondCount;
};
static_assert(sizeof(ModuleDescriptor) == 48);
static_assert(offsetof(ModuleDescriptor, Plugins) == 32);

} // namespace Profiler
