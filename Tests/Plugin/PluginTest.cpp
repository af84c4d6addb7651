// The library as a host meets it: loaded with dlopen beside the test program's own copy of the core.
#include "Plugin/ModuleDescriptor.h"
#include "RTTI/Primitives.h"
#include "RTTI/Registry.h"
#include "RTTI/TypeQueries.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/SharedModel.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Utility/LogCapture.h"
#include "Utility/Hash.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstring>
#include <sstream>

namespace
{

using namespace Profiler;
using namespace testing;

constexpr uint64_t sHostKey = 1;

// Stays loaded until the program ends: registries refer to its tables.
void* gLoadLibrary()
{
    static void* const sLibrary = dlopen(THREADS_MODEL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(sLibrary, nullptr) << dlerror();
    return sLibrary;
}

const ModuleDescriptor& gGetDescriptor()
{
    return *static_cast<const ModuleDescriptor*>(dlsym(gLoadLibrary(), "moduleDescriptor"));
}

class PluginTest : public TemporaryDirectoryTest
{
protected:
    PluginTest() : mPlugin(static_cast<ModelPlugin*>(mDescriptor.Plugins->Create("first", "second", this, &mRegistry))) {}
    ~PluginTest() override { mDescriptor.Plugins->Destroy(mPlugin); }

    // Registers the test's own copies of some of the plugin's types, and finishes the registry.
    void RegisterHostTypes()
    {
        const RTTI::CurrentModuleScope scope(mRegistry, sHostKey);
        RTTI::gRegisterFundamentalTypes(mRegistry);
        mRegistry.Register(RTTI::gTypeOf<Session>());
        mRegistry.Register(RTTI::gTypeOf<FakePlatformSession>());
        mRegistry.Register(RTTI::gTypeOf<FakeModule>());
        mRegistry.Finalize();
    }

    const ModuleDescriptor& mDescriptor = gGetDescriptor();
    RTTI::Registry mRegistry;
    ModelPlugin* mPlugin;
};

// --- The descriptor ---

TEST(ModuleDescriptorTest, ItsWordsAreInOrder)
{
    uint64_t words[6];
    static_assert(sizeof(words) == sizeof(ModuleDescriptor));
    std::memcpy(words, dlsym(gLoadLibrary(), "moduleDescriptor"), sizeof(words));
    EXPECT_EQ(words[0], 9U);
    EXPECT_STREQ(reinterpret_cast<const char*>(words[1]), "1.0.7705.679");
    EXPECT_EQ(words[2], reinterpret_cast<uint64_t>(dlsym(gLoadLibrary(), "initializeTracing")));
    EXPECT_EQ(words[3], 1U);
    EXPECT_EQ(words[5], 1U);

    uint64_t plugin[4];
    std::memcpy(plugin, reinterpret_cast<const void*>(words[4]), sizeof(plugin));
    EXPECT_EQ(plugin[0] & 0xFF, 0U) << "the kind is one byte";
    EXPECT_STREQ(reinterpret_cast<const char*>(plugin[1]), "ThreadsModelPlugin");
    EXPECT_EQ(plugin[2], reinterpret_cast<uint64_t>(dlsym(gLoadLibrary(), "createThreadsModelPlugin")));
    EXPECT_EQ(plugin[3], reinterpret_cast<uint64_t>(dlsym(gLoadLibrary(), "destroyThreadsModelPlugin")));
    gGetDescriptor().Plugins->Destroy(nullptr);
}

TEST(ModuleDescriptorDeathTest, ANullTextIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RTTI::Registry registry;
    const CreatePluginFunction create = gGetDescriptor().Plugins->Create;
    EXPECT_DEATH(create(nullptr, "second", nullptr, &registry), "");
    EXPECT_DEATH(create("first", nullptr, nullptr, &registry), "");
}

// --- Types ---

TEST_F(PluginTest, ItsTypesAreInTheRegistryUnderItsKey)
{
    constexpr std::string_view name = "ThreadsModelPlugin";
    const uint64_t key = Utility::gCRC64(name.data(), name.size(), 0);
    EXPECT_EQ(mRegistry.GetCurrentModuleKey(), ~uint64_t{0});
    ASSERT_EQ(mRegistry.GetModules().size(), 1U);
    ASSERT_TRUE(mRegistry.GetModules().contains(key));

    mRegistry.Finalize();
    std::istringstream types(R"(
        int32_t std::string Serialization::SerializableGUID
        Profiler::Session Profiler::SessionInfo Profiler::Process Profiler::OptionalProcessInfo Profiler::CPUUsageSample
        Profiler::Thread Profiler::CallstackDatabase Profiler::Module Profiler::NativeModule Profiler::JITModule
        Profiler::Function Profiler::NativeModuleInstance Profiler::JITModuleInstance Profiler::JITFunctionInstance
        Profiler::JITExtraDataStorage Profiler::ModuleDatabase Profiler::EResolveStatus Profiler::ESymbolLookupAddressMode
        Profiler::InstrumentationDatabase Profiler::InstrumentationData Profiler::ResolveIndex Profiler::ResolvedAddress
        Profiler::PlatformSession Profiler::OpenBarProcessorFiberState Profiler::TraceEventStream
        Profiler::TraceEventStream::Chunk Profiler::BrokenStackIndex Profiler::BrokenStackIndex::Chunk Profiler::SharedModel
        Profiler::SharedSymbolSettings Profiler::GeneralSettings Profiler::EThemeType Profiler::ECrashReportingMode
        Profiler::EUseCaptureService Profiler::ChildProcessRules Profiler::Rule Profiler::EAction
        Profiler::SerializedAnimatableInt Profiler::SerializedAnimatableFloat Profiler::SerializedAnimatableDouble
        Profiler::CaptureMethodConfiguration Profiler::CaptureInitProgress Profiler::ThreadsModel)");
    for (std::string type; types >> type;)
    {
        const RTTI::Type* found = mRegistry.FindType(type);
        ASSERT_NE(found, nullptr) << type;
        EXPECT_EQ(found->GetName(), type);
        EXPECT_EQ(found->Descriptor->ModuleKey, key) << type;
    }
    EXPECT_EQ(mRegistry.FindType("Profiler::ResolvedFunction"), mRegistry.FindType("Profiler::Function")) << "a former name";
}

TEST_F(PluginTest, BothCopiesOfATypeAreTheSameType)
{
    RegisterHostTypes();
    const auto& modules = mRegistry.GetModules();
    const auto& hostTypes = modules.at(sHostKey).Types;
    int sharedCount = 0;
    for (const auto& [name, type] : modules.at(RTTI::gThreadsModelPluginModuleKey()).Types)
    {
        const auto hosts = hostTypes.find(name);
        if (hosts == hostTypes.end())
            continue;
        ++sharedCount;
        EXPECT_NE(hosts->second, type) << name;
        EXPECT_TRUE(RTTI::gIsSameType(*hosts->second, *type)) << name;
        if (const RTTI::CompoundInfo* ofHost = hosts->second->AsCompound())
        {
            EXPECT_EQ(ofHost->TreeIndex, type->AsCompound()->TreeIndex) << name;
            EXPECT_EQ(ofHost->FullVersion, type->AsCompound()->FullVersion) << name;
        }
    }
    EXPECT_GT(sharedCount, 30);
    EXPECT_EQ(mRegistry.FindType("FakeModule"), &RTTI::gTypeOf<FakeModule>());
    EXPECT_TRUE(RTTI::gIsDerivedFrom(RTTI::gTypeOf<FakeModule>(), *mRegistry.FindType("Profiler::NativeModule")));
    EXPECT_TRUE(RTTI::gIsDerivedFrom(*mRegistry.FindType("Profiler::ThreadsModel"), RTTI::gTypeOf<RTTI::Object>()));
}

TEST_F(PluginTest, ObjectsThatThePluginMadeServeTheHost)
{
    RegisterHostTypes();
    const RTTI::Type& type = *mRegistry.FindType("Profiler::Process");
    ASSERT_NE(&type, &RTTI::gTypeOf<Process>());
    const RTTI::OwnedValue made = type.Descriptor->Create();
    auto& process = *static_cast<Process*>(made.GetData());
    process.Name = "a name that is too long for a short text";
    process.ThreadOrder = {3, 1, 2};
    process.OptionalProcessInfo = std::make_unique<OptionalProcessInfo>();

    const RTTI::Property* name = RTTI::gFindProperty(type, "Name");
    EXPECT_EQ(*static_cast<std::string*>(name->GetData(made.GetData())), process.Name);
    const RTTI::Property* order = RTTI::gFindProperty(type, "ThreadOrder");
    EXPECT_EQ(order->Type->AsArray()->GetCount(order->GetData(made.GetData())), 3U);
}

// --- Models ---

TEST_F(PluginTest, AModelOfThePluginTakesPartInAPassOfTheHost)
{
    RegisterHostTypes();
    SessionFixture fixture(At("capture/capture.session"));
    CallList calls;
    FakeModelPlugin hostPlugin("host", calls);
    fixture.GetPluginManager().ModelPlugins = {mPlugin, &hostPlugin};
    fixture.AddThread("A");
    fixture.LoadModule(fixture.AddModule("/bin/game", 0x1000, {{0x100, 0x20, "main"}, {0x200, 0x20, "work"}}), 0x10000);

    Session& session = fixture.GetSession();
    Utility::ErrorState errors;
    ASSERT_TRUE(session.CreateModels(errors));
    ASSERT_EQ(session.GetModels().size(), 2U);
    EXPECT_EQ(session.GetModels()[0]->GetType().GetName(), "Profiler::ThreadsModel");
    EXPECT_EQ(&session.GetModels()[0]->GetPlugin(), mPlugin);
    EXPECT_EQ(&session.GetModels()[0]->GetSession(), &session);
    EXPECT_EQ(session.GetModel(mPlugin->GetModelID()), session.GetModels()[0]);

    EventDispatcher dispatcher(session, session.GetSharedModel()->GetFiberState(), session.GetBrokenStacks(),
                               session.GetModels());
    ASSERT_TRUE(dispatcher.BeginProcessing(errors));
    for (const TraceEvent& event : fixture.BuildTrace("0 in A main\n1 sample A main;work\n3 out A 22\n4 sample A main"))
        ASSERT_TRUE(dispatcher.Dispatch(event, errors));
    const bool isCanceled = false;
    ASSERT_TRUE(dispatcher.FinishProcessing(errors, isCanceled));
    for (Model* model : session.GetModels())
        EXPECT_TRUE(model->SaveModel(errors));

    EXPECT_THAT(calls, testing::Contains("host: event 0 at 1"));
    EXPECT_THAT(calls, testing::Not(testing::Contains("host: event 0 at 4"))) << "the thread has ended";
    EXPECT_EQ(calls.back(), "host: save");
    EXPECT_NE(mPlugin->LoadModel(session), nullptr) << "it is stored";
}

TEST_F(PluginTest, AMissingModelFileIsOneLogLineAndNoModel)
{
    SessionFixture fixture(At("capture/capture.session"));
    LogCapture log;
    mDescriptor.InitializeTracing(Utility::gGetLogSinks());
    EXPECT_EQ(mPlugin->LoadModel(fixture.GetSession()), nullptr);
    mDescriptor.InitializeTracing({});
    ASSERT_EQ(log.GetMessages().size(), 1U);
    EXPECT_THAT(log.GetMessages()[0],
                AllOf(testing::StartsWith("Error loading threads model: "), HasSubstr("Unable to open file")));

    EXPECT_EQ(mPlugin->LoadModel(fixture.GetSession()), nullptr);
    EXPECT_EQ(log.GetMessages().size(), 1U) << "without sinks, lines go nowhere";
    EXPECT_NE(mPlugin->CreateModel(fixture.GetSession()), nullptr);
}

TEST_F(PluginTest, EachLanguageModelAndEachPluginIsItsOwn)
{
    constexpr Utility::GUID modelID = {
        {0x04, 0x8E, 0x3D, 0xBC, 0x7B, 0x63, 0x50, 0x4A, 0xA6, 0x3F, 0x2E, 0xA2, 0x43, 0x37, 0x0E, 0x1C}};
    EXPECT_EQ(mPlugin->GetModelID(), modelID);

    std::string firstKey;
    std::string secondKey = "left over";
    const std::unique_ptr<ILLMModel> first = mPlugin->CreateLLMModel(firstKey);
    const std::unique_ptr<ILLMModel> second = mPlugin->CreateLLMModel(secondKey);
    ASSERT_TRUE(first != nullptr && second != nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(firstKey, "BC3D8E04-637B-4A50-A63F-2EA243370E1C");
    EXPECT_EQ(secondKey, firstKey);
    first->CloseSession(1);

    Plugin* other = mDescriptor.Plugins->Create("", "", nullptr, &mRegistry);
    ASSERT_TRUE(other != nullptr && other != mPlugin) << "two can share a registry";
    EXPECT_EQ(other->GetRegistry(), &mRegistry);
    mDescriptor.Plugins->Destroy(other);
    EXPECT_NE(mRegistry.FindType("Profiler::Session"), nullptr);
}

} // namespace
