// The classes through which a host meets a plugin. The order of the virtual operations is part of the contract.
//
// Threads: the host's main thread. Ownership: whoever called the plugin's create function owns the plugin, and gives it back to
// the destroy function.
#pragma once

#include "Session/Host/Tools.h"
#include "Utility/GUID.h"

#include <memory>
#include <string>

namespace RTTI
{
class Registry;
}

namespace Profiler
{

class Model;
class Session;

class Plugin
{
public:
    // The two texts and the host pointer are the host's own: they are kept and not read.
    Plugin(const char* inFirst, const char* inSecond, void* inHost, RTTI::Registry* inRegistry)
        : mFirst(inFirst),
          mSecond(inSecond),
          mHost(inHost),
          mRegistry(inRegistry)
    {
    }
    virtual ~Plugin() = default;

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    [[nodiscard]] RTTI::Registry* GetRegistry() const { return mRegistry; }

private:
    std::string mFirst;
    std::string mSecond;
    [[maybe_unused]] void* mHost;
    RTTI::Registry* mRegistry;
};

class ModelPlugin : public Plugin
{
public:
    ModelPlugin(const char* inFirst, const char* inSecond, void* inHost, RTTI::Registry* inRegistry,
                const Utility::GUID& inModelID)
        : Plugin(inFirst, inSecond, inHost, inRegistry),
          mModelID(inModelID)
    {
    }

    // Never null. The model has read nothing yet.
    [[nodiscard]] virtual std::unique_ptr<Model> CreateModel(Session& inSession) = 0;

    // Null where the stored model can't be read; the session then makes a new one and rebuilds it from its events.
    [[nodiscard]] virtual std::unique_ptr<Model> LoadModel(Session& inSession) = 0;

    // outKey is the text under which the host's session manager finds the model again.
    [[nodiscard]] virtual std::unique_ptr<ILLMModel> CreateLLMModel(std::string& outKey) = 0;

    virtual void RegisterLLMTools(IToolRegistry& ioRegistry) = 0;

    [[nodiscard]] const Utility::GUID& GetModelID() const { return mModelID; }

private:
    Utility::GUID mModelID;
};

} // namespace Profiler
