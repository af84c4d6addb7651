#include "Host/Plugins/PluginLibrary.h"

#include <dlfcn.h>

#include <utility>

namespace Host
{
namespace
{

constexpr uint8_t sModelPluginKind = 0;

// What the plugin is told about its host; it keeps the texts and doesn't read them.
constexpr const char* sHostName = "brenvaldoris";
constexpr const char* sHostVersion = "1";

} // namespace

void PluginLibrary::CloseLibrary::operator()(void* inHandle) const
{
    dlclose(inHandle);
}

PluginLibrary::PluginLibrary(LibraryHandle inHandle, const Profiler::ModuleDescriptor& inDescriptor,
                             Profiler::ModelPlugin& inPlugin)
    : mHandle(std::move(inHandle)),
      mDescriptor(&inDescriptor),
      mPlugin(&inPlugin)
{
}

PluginLibrary::~PluginLibrary()
{
    mDescriptor->Plugins->Destroy(mPlugin);
}

std::unique_ptr<PluginLibrary> PluginLibrary::sLoad(const std::string& inPath, RTTI::Registry& ioRegistry,
                                                    Utility::ErrorState& ioErrors)
{
    LibraryHandle handle(dlopen(inPath.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (handle == nullptr)
    {
        ioErrors.AddError(0, Utility::gFormat("Cannot load the plugin: %s", dlerror()));
        return nullptr;
    }
    const auto* descriptor =
        static_cast<const Profiler::ModuleDescriptor*>(dlsym(handle.get(), Profiler::sModuleDescriptorSymbol));
    if (!Utility::Check(ioErrors, descriptor != nullptr, 0, "%s is not a plugin: it has no %s", inPath.c_str(),
                        Profiler::sModuleDescriptorSymbol) ||
        !Utility::Check(ioErrors, descriptor->DescriptorVersion == Profiler::sModuleDescriptorVersion, 0,
                        "%s was built for another host: its descriptor has version %llu instead of %llu", inPath.c_str(),
                        static_cast<unsigned long long>(descriptor->DescriptorVersion),
                        static_cast<unsigned long long>(Profiler::sModuleDescriptorVersion)) ||
        !Utility::Check(ioErrors, descriptor->FirstCount >= 1 && descriptor->Plugins->Kind == sModelPluginKind, 0,
                        "%s holds no model plugin", inPath.c_str()))
        return nullptr;

    descriptor->InitializeTracing(Utility::gGetLogSinks());
    Profiler::Plugin* plugin = descriptor->Plugins->Create(sHostName, sHostVersion, nullptr, &ioRegistry);
    // The kind says what class this is; two copies of the core can't ask each other's run-time type information.
    auto* modelPlugin = static_cast<Profiler::ModelPlugin*>(plugin);
    return std::unique_ptr<PluginLibrary>(new PluginLibrary(std::move(handle), *descriptor, *modelPlugin));
}

} // namespace Host
