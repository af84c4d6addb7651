#include "Session/Modules/ModuleCompatibility.h"

#include "Tests/Session/StoredModules.h"
#include "Tests/Support/SessionFixture.h"

#include <gmock/gmock.h>

// The classes as they were in older builds.
namespace OldModules
{

struct NativeFunction
{
    uint64_t Address = 0;
    uint64_t Size = 0;
    std::string Name;
};

struct JITFunction
{
    uint64_t Address = 0;
    uint64_t Size = 0;
    std::string Name;
    int32_t ProcessID = 0;
    uint64_t ModuleID = 0;
    double LoadTime = 0.0;
    double UnloadTime = 0.0;
};

template <class Base>
class ImageModuleWith final : public Profiler::Module
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<ImageModuleWith>(); }

    std::string Path;
    Base ImageBase{};
    double LoadTimeMs = 10.0;
    double UnloadTimeMs = 20.0;
    int32_t ProcessID = 0;
    int32_t ImageSize = 0x1000;
    std::vector<NativeFunction> Functions;
    std::vector<NativeFunction> RuntimeFunctions;
};
using ImageModule = ImageModuleWith<uint64_t>;

class GeneratedModule final : public Profiler::JITModule
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<GeneratedModule>(); }
    [[nodiscard]] uint64_t GetModuleHash() const override { return 0; }
    [[nodiscard]] bool IsSameModule(const JITModule&) const override { return false; }
    [[nodiscard]] bool IsSameFunction(const Profiler::Function&, const Profiler::Function&) const override { return false; }
    [[nodiscard]] uint64_t GetFunctionHash(const Profiler::Function&) const override { return 0; }

    int32_t ProcessID = 5;
    double LoadTimeMs = 10.0;
    double UnloadTimeMs = 20.0;
    uint64_t ModuleID = 77;
};

class Capture final : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Capture>(); }

    struct Database
    {
        std::vector<std::unique_ptr<Profiler::Module>> Modules;
        std::vector<std::unique_ptr<Profiler::JITModule>> JITModules;
        std::vector<JITFunction> JITFunctions;
    } Modules;
};

} // namespace OldModules

DECLARE_AS(OldModules::NativeFunction, "Profiler::ResolvedFunction");
DECLARE_AS(OldModules::JITFunction, "Profiler::JITResolvedFunction");
DECLARE_AS(OldModules::ImageModule, "Test::ImageModule");
DECLARE_AS(OldModules::ImageModuleWith<std::string>, "Test::ImageModule");
DECLARE_AS(OldModules::GeneratedModule, "Test::GeneratedModule");
DECLARE_AS(OldModules::Capture::Database, "Profiler::ModuleDatabase");
DECLARE_AS(OldModules::Capture, "Test::Capture");

RTTI_BEGIN(OldModules::NativeFunction, 1)
    RTTI_PROPERTY("Address", Address)
    RTTI_PROPERTY("Size", Size)
    RTTI_PROPERTY("Name", Name)
RTTI_END()

RTTI_BEGIN(OldModules::JITFunction, 1)
    RTTI_PROPERTY("Address", Address)
    RTTI_PROPERTY("Size", Size)
    RTTI_PROPERTY("Name", Name)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("ModuleID", ModuleID)
    RTTI_PROPERTY("LoadTime", LoadTime)
    RTTI_PROPERTY("UnloadTime", UnloadTime)
RTTI_END()

RTTI_BEGIN(OldModules::ImageModule, 1)
    RTTI_BASE(Profiler::Module)
    RTTI_PROPERTY("Path", Path)
    RTTI_PROPERTY("ImageBase", ImageBase)
    RTTI_PROPERTY("LoadTimeMs", LoadTimeMs)
    RTTI_PROPERTY("UnloadTimeMs", UnloadTimeMs)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("ImageSize", ImageSize)
    RTTI_PROPERTY("Functions", Functions)
    RTTI_PROPERTY("RuntimeFunctions", RuntimeFunctions)
RTTI_END()

RTTI_BEGIN(OldModules::ImageModuleWith<std::string>, 1)
    RTTI_BASE(Profiler::Module)
    RTTI_PROPERTY("ImageBase", ImageBase)
RTTI_END()

RTTI_BEGIN(OldModules::GeneratedModule, 1)
    RTTI_BASE(Profiler::JITModule)
    RTTI_PROPERTY("ProcessID", ProcessID)
    RTTI_PROPERTY("LoadTimeMs", LoadTimeMs)
    RTTI_PROPERTY("UnloadTimeMs", UnloadTimeMs)
    RTTI_PROPERTY("ModuleID", ModuleID)
RTTI_END()

RTTI_BEGIN(OldModules::Capture, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Modules", Modules)
RTTI_END()

RTTI_BEGIN(OldModules::Capture::Database, 1)
    RTTI_PROPERTY("Modules", Modules)
    RTTI_PROPERTY("JITModules", JITModules)
    RTTI_PROPERTY("JITFunctions", JITFunctions)
RTTI_END()

namespace
{

using namespace Profiler;
using Serialization::Build;
using Serialization::Objects;
using Serialization::ReaderErrorState;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;

using Bytes = std::vector<uint8_t>;
constexpr int32_t sFirstProcess = static_cast<int32_t>(0x80000000);

std::unique_ptr<OldModules::ImageModule> gMakeOldModule(const std::string& inPath, uint64_t inBase, int32_t inProcess)
{
    auto module = std::make_unique<OldModules::ImageModule>();
    module->Path = inPath;
    module->ImageBase = inBase;
    module->ProcessID = inProcess;
    module->Functions = {{inBase + 0x100, 0x20, "first of " + inPath}, {inBase + 0x200, 0x20, "second of " + inPath}};
    module->RuntimeFunctions = {{inBase + 0x300, 0x20, "runtime of " + inPath}};
    return module;
}

// A property that only its class may see.
template <class Value, class Object>
const Value& gGetProperty(const Object& inObject, const char* inName)
{
    const RTTI::Property* property = RTTI::gFindProperty(RTTI::gTypeOf<Object>(), inName);
    return *static_cast<const Value*>(property->GetData(const_cast<Object*>(&inObject)));
}

class ModuleCompatibilityTest : public testing::Test
{
protected:
    // Enters all handlers. The first process is the one that a session has after it was upgraded itself.
    Build MakeBuild(std::optional<int32_t> inFirstProcess = sFirstProcess)
    {
        const auto findTarget = [inFirstProcess](RTTI::Object& inRoot) -> ModuleUpgradeTarget
        {
            auto* capture = dynamic_cast<StoredModules::Capture*>(&inRoot);
            return {capture != nullptr ? &capture->Modules : nullptr, inFirstProcess};
        };
        Build build =
            Build::With<StoredModules::Capture, StoredModules::ImageModule, StoredModules::GeneratedModule, FakeModule, Module>();
        Serialization::CompatibilityHandlers& handlers = build.GetHandlers();
        handlers.AddCompatibilityHandler(RTTI::gTypeOf<ModuleDatabase>(), std::make_unique<ModuleDatabaseCompatibilityHandler>());
        handlers.AddCompatibilityHandler(RTTI::gTypeOf<Function>(), std::make_unique<FunctionCompatibilityHandler>(findTarget));
        for (const RTTI::Type* type : {&RTTI::gTypeOf<StoredModules::ImageModule>(), &RTTI::gTypeOf<FakeModule>()})
            handlers.AddCompatibilityHandler(*type, std::make_unique<NativeModuleCompatibilityHandler>(findTarget));
        handlers.AddCompatibilityHandler(RTTI::gTypeOf<StoredModules::GeneratedModule>(),
                                         std::make_unique<JITModuleCompatibilityHandler>(findTarget));
        return build;
    }

    // The old captures as an old build stores them. Gives the modules of the last one, after OnLoaded.
    ModuleDatabase& ReadOld(const std::vector<const RTTI::Object*>& inCaptures,
                            std::optional<int32_t> inFirstProcess = sFirstProcess)
    {
        const Bytes file = WriteOld(inCaptures);
        ReaderErrorState errors;
        EXPECT_TRUE(MakeBuild(inFirstProcess).Read(file, mObjects, errors)) << Utility::GetErrorText(errors);
        ModuleDatabase& modules = dynamic_cast<StoredModules::Capture&>(*mObjects.at(inCaptures.size() - 1)).Modules;
        modules.OnLoaded(mSession.GetSession());
        return modules;
    }
    static Bytes WriteOld(const std::vector<const RTTI::Object*>& inCaptures)
    {
        const Build old = Build::With<OldModules::Capture, OldModules::ImageModule, OldModules::GeneratedModule, Module>();
        return Build::Write(inCaptures);
    }

    // "lib 2 200 at 10000 in 10..20": name, index and function of a frame, and its instance.
    static std::string Print(ModuleDatabase& inModules, uint64_t inAddress, int32_t inProcess)
    {
        const ResolvedFrame frame = inModules.ResolveFrame(inAddress, inProcess, 15, nullptr);
        const auto instance = inModules.FindNativeModuleInstance(inAddress, inProcess, 15);
        if (!instance)
            return "none";
        const ResolvedFunctionInfo info = inModules.GetResolvedFunction(frame.FunctionRelativeAddress, frame.ResolveIndex);
        return Utility::gFormat("%s %u %llx %s at %llx in %g..%g", frame.Module->Name.c_str(), frame.ResolveIndex.Index,
                                static_cast<unsigned long long>(frame.FunctionRelativeAddress), info.FunctionName.c_str(),
                                static_cast<unsigned long long>(instance->ImageBase), instance->LoadTimeMs,
                                instance->UnloadTimeMs);
    }

    SessionFixture mSession;
    Objects mObjects;
    OldModules::Capture mOld;
    std::vector<std::unique_ptr<Module>>& mOldModules = mOld.Modules.Modules;
};

TEST_F(ModuleCompatibilityTest, ModulesThatToldWhereTheyLayGetInstances)
{
    mOldModules.push_back(gMakeOldModule("/bin/app", 0x20000, 0));
    mOldModules.push_back(nullptr); // of an unknown class
    mOldModules.push_back(gMakeOldModule("/lib/lib", 0x10000, 7));
    ModuleDatabase& modules = ReadOld({&mOld});
    EXPECT_EQ(Print(modules, 0x20110, sFirstProcess), "app 0 100 first of /bin/app at 20000 in 10..20");
    EXPECT_EQ(Print(modules, 0x10210, 7), "lib 1 200 second of /lib/lib at 10000 in 10..20");
    EXPECT_EQ(Print(modules, 0x20110, 0), "none") << "0 was no process";

    const NativeModule& lib = *modules.GetNativeModules()[1];
    EXPECT_EQ(lib.ResolveStatus, EResolveStatus::OldCapture);
    EXPECT_EQ(lib.FindCachedFunction(0x100).ModuleIndex, 1U);
    EXPECT_THAT(gGetProperty<std::vector<Function>>(lib, "RuntimeFunctions"),
                ElementsAre(AllOf(Field(&Function::RelativeAddress, 0x300U), Field(&Function::ModuleIndex, 1U))));
}

TEST_F(ModuleCompatibilityTest, WithoutAProcessTheNumberStays)
{
    mOldModules.push_back(gMakeOldModule("/bin/app", 0x20000, 0));
    EXPECT_NE(Print(ReadOld({&mOld}, std::nullopt), 0x20110, 0), "none");
}

TEST_F(ModuleCompatibilityTest, EachRootGetsItsOwnInstances)
{
    OldModules::Capture first;
    first.Modules.Modules.push_back(gMakeOldModule("/bin/app", 0x20000, 0));
    mOldModules.push_back(gMakeOldModule("/lib/lib", 0x10000, 0));
    ModuleDatabase& modules = ReadOld({&first, &mOld});
    EXPECT_EQ(Print(modules, 0x10110, sFirstProcess), "lib 0 100 first of /lib/lib at 10000 in 10..20");
    EXPECT_EQ(Print(modules, 0x20110, sFirstProcess), "none");
}

TEST_F(ModuleCompatibilityTest, OnlyNativeModulesCanBeUpgraded)
{
    mOldModules.push_back(std::make_unique<Module>("plain"));
    const Bytes file = WriteOld({&mOld});
    EXPECT_EQ(MakeBuild().ReadError(file), "4: Encountered a non-NativeModule during upgrade of V1 ModuleDatabase.");
}

TEST_F(ModuleCompatibilityTest, APropertyOfAnotherTypeEndsTheRead)
{
    mOldModules.push_back(std::make_unique<OldModules::ImageModuleWith<std::string>>());
    Bytes file;
    {
        const Build build = Build::With<OldModules::Capture, OldModules::ImageModuleWith<std::string>>();
        file = Build::Write(mOld);
    }
    EXPECT_EQ(MakeBuild().ReadError(file), "4: Compatibility issue: Property ImageBase has switched from type std::string to "
                                           "type uint64_t. This is not supported.");
}

TEST_F(ModuleCompatibilityTest, GeneratedFunctionsAndModulesThatToldWhereTheyLayGetInstances)
{
    mOld.Modules.JITModules.push_back(std::make_unique<OldModules::GeneratedModule>());
    mOld.Modules.JITFunctions = {{0x9000, 0x40, "high", 5, 77, 11, 19}, {0x8000, 0x40, "low", 5, 77, 12, 18}};
    const ModuleDatabase& modules = ReadOld({&mOld});
    EXPECT_THAT(gGetProperty<std::vector<Function>>(modules, "JITFunctions"),
                ElementsAre(Field(&Function::RelativeAddress, 0U), Field(&Function::Name, "low")));

    std::vector<std::string> instances;
    for (const auto& function : gGetProperty<std::vector<JITFunctionInstance>>(modules, "JITFunctionInstances"))
        instances.push_back(Utility::gFormat("%llx of %u in process %d, module %llu, %g..%g",
                                             static_cast<unsigned long long>(function.AbsoluteAddress), function.JITFunctionIndex,
                                             function.ProcessID, static_cast<unsigned long long>(function.ModuleID),
                                             function.LoadTime, function.UnloadTime));
    for (const auto& module : gGetProperty<std::vector<JITModuleInstance>>(modules, "JITModuleInstances"))
        instances.push_back(Utility::gFormat("module %llu in process %d, %g..%g",
                                             static_cast<unsigned long long>(module.ModuleID), module.ProcessID,
                                             module.LoadTimeMs, module.UnloadTimeMs));
    EXPECT_THAT(instances, ElementsAre("8000 of 1 in process 5, module 77, 12..18", "9000 of 0 in process 5, module 77, 11..19",
                                       "module 77 in process 5, 10..20"));
}

// The handlers see the files of today as well. One of the module classes has the version of an old one.
TEST_F(ModuleCompatibilityTest, FilesOfTodayStayAsTheyAre)
{
    StoredModules::Capture stored;
    ModuleDatabase& modules = stored.Modules;
    modules.AddNativeModule(std::make_unique<StoredModules::ImageModule>("/bin/app", 0x1000, ESymbolLookupAddressMode::Relative));
    modules.AddNativeModule(std::make_unique<FakeModule>("/bin/fake", 0x1000, std::vector<FakeFunction>{{0x100, 0x20, "main"}},
                                                         FakeModule::ESymbols::Known));
    modules.SetNativeModuleInstances({{0x10000, 10, 20, 0, 0}, {0x20000, 10, 20, 0, 1}});
    Function function;
    function.Name = "Add";
    function.RelativeAddress = 0;
    function.Size = 0x40;
    function.ModuleIndex = 0;
    std::vector<std::unique_ptr<JITModule>> generated;
    generated.push_back(std::make_unique<StoredModules::GeneratedModule>());
    modules.SetJITData({function}, {{0x9000, 0, 1, 10, 20, 0}}, {{0x9000 >> sJITBucketShift, {0}}}, std::move(generated),
                       {{0, 10, 20, 1, 0}}, {});
    const Build build = MakeBuild();
    const Bytes file = Build::Write(stored);
    const auto capture = build.ReadOne<StoredModules::Capture>(file);
    ASSERT_NE(capture, nullptr);
    EXPECT_EQ(Build::Write(*capture), file) << "before OnLoaded nothing has changed";
    capture->Modules.OnLoaded(mSession.GetSession());
    EXPECT_EQ(Build::Write(*capture), file) << "nor behind it";
    EXPECT_EQ(Print(capture->Modules, 0x20110, 0), "fake 1 100 main at 20000 in 10..20");
    EXPECT_TRUE(capture->Modules.TryResolveJIT(0x9010, 0, 15).has_value());
}

} // namespace
