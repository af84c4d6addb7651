// What a session asks of the host's plugin managers and platform plugins.
//
// Threads: the host's main thread. Ownership: the host owns all of them; they outlive every session.
#pragma once

#include "Serialization/SerializableGUID.h"

#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace Serialization
{
class TypeCreators;
class CompatibilityHandlers;
} // namespace Serialization

namespace Profiler
{

class ModelPlugin;
class PlatformSession;

// A plugin that adds factories and upgrade handlers for the classes it stores in session files.
class ISessionTypes
{
public:
    virtual ~ISessionTypes() = default;
    virtual void AddSessionTypes(Serialization::TypeCreators& ioCreators, Serialization::CompatibilityHandlers& ioHandlers) = 0;
};

// The two lists that a session reads. Models are made and loaded in the order of the first.
struct PluginManagerCommon
{
    std::vector<ModelPlugin*> ModelPlugins;
    std::vector<ISessionTypes*> SessionTypePlugins;
};

class PlatformPlugin
{
public:
    virtual ~PlatformPlugin() = default;
    virtual void CreatePlatformSession(std::unique_ptr<PlatformSession>& outPlatformSession) = 0;
};

class CapturePlugin
{
public:
    virtual ~CapturePlugin() = default;

    // Without the point, in lower case.
    [[nodiscard]] virtual std::vector<std::string> GetCaptureExtensions() const = 0;
};

class PluginManagerFrontEnd
{
public:
    using ExtensionMap = std::unordered_map<std::string, std::vector<PlatformPlugin*>>;

    // inOwner is only kept for the subclass.
    explicit PluginManagerFrontEnd(void* inOwner) : mOwner(inOwner) {}
    virtual ~PluginManagerFrontEnd() = default;

    PluginManagerFrontEnd(const PluginManagerFrontEnd&) = delete;
    PluginManagerFrontEnd& operator=(const PluginManagerFrontEnd&) = delete;

    // For a host's own use; the library calls neither.
    virtual void LoadPlugins() = 0;
    virtual void UnloadPlugins() = 0;

    [[nodiscard]] virtual const std::vector<ISessionTypes*>& GetSessionPlugins() const = 0;
    [[nodiscard]] virtual const std::vector<CapturePlugin*>& GetCapturePlugins() const = 0;

    // Null where the plugin is missing.
    [[nodiscard]] virtual PlatformPlugin* GetPlatformPlugin(const Serialization::SerializableGUID& inPlatformID) const = 0;
    // As above, for a session file that isn't loaded yet.
    [[nodiscard]] virtual PlatformPlugin* GetPlatformPluginForFile(const Serialization::SerializableGUID& inPlatformID) const = 0;

    // The extensions of all capture plugins.
    [[nodiscard]] std::set<std::string> GetAllCaptureExtensions() const;

    // Copies the plugins that are registered for the path's extension; false if there are none.
    [[nodiscard]] bool FindPluginsForExtension(const std::string& inPath, std::vector<PlatformPlugin*>& outPlugins) const;

protected:
    void* mOwner;                   // NOLINT: the subclass's
    ExtensionMap mExtensionPlugins; // NOLINT: filled by the subclass, in lower case and without the point
};

} // namespace Profiler
