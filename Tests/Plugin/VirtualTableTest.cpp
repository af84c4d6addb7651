// The order of virtual operations, which a host and the library must agree on.
#include "Session/Host/PlatformSession.h"
#include "Session/Host/PluginManagers.h"
#include "Session/Host/Tools.h"
#include "Session/Modules/JITModule.h"
#include "Session/Modules/NativeModule.h"
#include "Session/Pass/Model.h"
#include "Session/Pass/ModelPlugin.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace
{

using namespace Profiler;
using testing::ElementsAre;

// The slot of a virtual member function: in the Itanium C++ ABI its pointer holds one more than the offset in the table.
template <class Function>
uint64_t gGetSlot(Function inFunction)
{
    struct MemberPointer
    {
        uint64_t Pointer;
        int64_t Adjustment;
    } pointer{};
    static_assert(sizeof(pointer) == sizeof(inFunction));
    std::memcpy(&pointer, &inFunction, sizeof(pointer));
    EXPECT_EQ(pointer.Pointer % sizeof(void*), 1U) << "not virtual";
    EXPECT_EQ(pointer.Adjustment, 0);
    return pointer.Pointer / sizeof(void*);
}

template <class... Functions>
std::vector<uint64_t> gGetSlots(Functions... inFunctions)
{
    return {gGetSlot(inFunctions)...};
}

// The destructor takes the slots 0 and 1 of every class.

TEST(VirtualTableTest, PluginsAndModels)
{
    EXPECT_THAT(gGetSlots(&ModelPlugin::CreateModel, &ModelPlugin::LoadModel, &ModelPlugin::CreateLLMModel,
                          &ModelPlugin::RegisterLLMTools),
                ElementsAre(2, 3, 4, 5));
    EXPECT_THAT(gGetSlots(&Model::GetType, &Model::CreateThreadProcessingState, &Model::FinishThread, &Model::ProcessEvent,
                          &Model::BeginProcessing, &Model::StopProcessing, &Model::FinishProcessing, &Model::PrepareReprocess,
                          &Model::SaveModel),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(VirtualTableTest, Modules)
{
    EXPECT_THAT(gGetSlots(&Module::GetType, &Module::OnLoaded, &Module::GetDescription, &Module::GetModuleTypeText,
                          &Module::GetProperties, &Module::GetSymbolSearchPaths, &Module::GetSymbolLog, &Module::GetSourceFiles,
                          &Module::ResolveFunctionData, &Module::QuerySourceText),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
    EXPECT_THAT(gGetSlots(&NativeModule::GetSymbolFile, &NativeModule::GetSymbolFailure, &NativeModule::GetBuildIDText,
                          &NativeModule::EnsureSymbols, &NativeModule::ResolveAddress),
                ElementsAre(12, 13, 14, 15, 16));
    EXPECT_THAT(gGetSlots(&JITModule::GetModuleHash, &JITModule::IsSameModule, &JITModule::IsSameFunction,
                          &JITModule::GetFunctionHash, &JITModule::ReleaseExtraData),
                ElementsAre(12, 13, 14, 15, 16));
}

TEST(VirtualTableTest, Platforms)
{
    EXPECT_THAT(gGetSlots(&PlatformSession::GetType, &PlatformSession::AttachSession, &PlatformSession::OnModuleDataFinished,
                          &PlatformSession::IsStackComplete, &PlatformSession::GetSymbolSettingsHash,
                          &PlatformSession::CreateReloadSymbolsState),
                ElementsAre(2, 3, 4, 5, 6, 7));
    EXPECT_EQ(gGetSlot(&PlatformSession::OnSessionClosing), 13U) << "the last of six that only a host calls";
    EXPECT_THAT(gGetSlots(&PluginManagerFrontEnd::GetSessionPlugins, &PluginManagerFrontEnd::GetCapturePlugins,
                          &PluginManagerFrontEnd::GetPlatformPlugin, &PluginManagerFrontEnd::GetPlatformPluginForFile),
                ElementsAre(4, 5, 6, 7));
}

TEST(VirtualTableTest, Tools)
{
    EXPECT_THAT(gGetSlots(&IToolRegistry::RegisterTool, &IToolRegistry::RegisterTypeDocs), ElementsAre(2, 3));
    EXPECT_THAT(gGetSlots(&ILLMSessionManager::GetSession, &ILLMSessionManager::GetLLMModel), ElementsAre(2, 3));
    EXPECT_THAT(gGetSlots(&ICallGraphLLMModel::CloseSession, &ICallGraphLLMModel::GetCallGraphQuery,
                          &ICallGraphLLMModel::GetNodeCallstack, &ICallGraphLLMModel::GetFunctionAddress),
                ElementsAre(2, 3, 4, 5));
}

} // namespace
