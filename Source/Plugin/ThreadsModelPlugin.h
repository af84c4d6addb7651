// The plugin object that a host holds: it makes the timeline model of a session and offers the tools.
#pragma once

#include "Session/Pass/ModelPlugin.h"

namespace Profiler
{

// Identifies the timeline model, in sessions and towards the host.
inline constexpr Utility::GUID sThreadsModelID = {
    {0x04, 0x8E, 0x3D, 0xBC, 0x7B, 0x63, 0x50, 0x4A, 0xA6, 0x3F, 0x2E, 0xA2, 0x43, 0x37, 0x0E, 0x1C}};

class ThreadsModelPlugin final : public ModelPlugin
{
public:
    // Registers all reflected types in the registry, under the library's module key.
    ThreadsModelPlugin(const char* inFirst, const char* inSecond, void* inHost, RTTI::Registry* inRegistry);

    [[nodiscard]] std::unique_ptr<Model> CreateModel(Session& inSession) override;
    [[nodiscard]] std::unique_ptr<Model> LoadModel(Session& inSession) override;
    [[nodiscard]] std::unique_ptr<ILLMModel> CreateLLMModel(std::string& outKey) override;
    void RegisterLLMTools(IToolRegistry& ioRegistry) override;
};

} // namespace Profiler
