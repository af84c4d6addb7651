#include "Session/Modules/ModuleDatabase.h"

#include "Session/Host/PlatformSession.h"
#include "Tests/Session/FakeNativeModule.h"
#include "Tests/Session/OpenBarTwin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <tuple>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t sProcess = static_cast<int32_t>(0x80000000);
constexpr int32_t sOtherProcess = sProcess + 1;
constexpr double sForever = 1e9;

std::string gPrintAddress(uint64_t inAddress)
{
    return inAddress == sNoAddress ? "-" : Utility::gFormat("%llx", static_cast<unsigned long long>(inAddress));
}

// "app 100+20 at 104 index 0 abs 1104 fn 1100": the module, its function, and the frame in it; "-" for all ones.
std::string gPrint(const ResolvedFrame& inFrame)
{
    if (inFrame.Module == nullptr)
        return "unfilled";
    return inFrame.Module->Name + " " + gPrintAddress(inFrame.FunctionRelativeAddress) + "+" +
           gPrintAddress(inFrame.FunctionSize) + " at " + gPrintAddress(inFrame.RelativeAddress) + " index " +
           gPrintAddress(inFrame.ResolveIndex.Index) + " abs " + gPrintAddress(inFrame.AbsoluteAddress) + " fn " +
           gPrintAddress(inFrame.FunctionAbsoluteAddress);
}

class StopRulePlatform final : public PlatformSession
{
public:
    void AttachSession(Session&, System::JobScheduler&) override {}
};

class FakeJITModule final : public JITModule
{
public:
    [[nodiscard]] uint64_t GetModuleHash() const override { return 0; }
    [[nodiscard]] bool IsSameModule(const JITModule&) const override { return false; }
    [[nodiscard]] bool IsSameFunction(const Function&, const Function&) const override { return false; }
    [[nodiscard]] uint64_t GetFunctionHash(const Function&) const override { return 0; }
};

class ModuleDatabaseTest : public testing::Test
{
protected:
    FakeNativeModule& AddModule(const std::string& inName, int32_t inImageSize,
                                ESymbolLookupAddressMode inMode = ESymbolLookupAddressMode::Relative)
    {
        auto module = std::make_unique<FakeNativeModule>("/bin/" + inName, inImageSize, inMode, &mCalls);
        FakeNativeModule& result = *module;
        mModules.AddNativeModule(std::move(module));
        return result;
    }

    // Loads a module for all time, or for the time given.
    void Load(const NativeModule& inModule, uint64_t inImageBase, double inLoad = 0, double inUnload = sForever,
              int32_t inProcess = sProcess)
    {
        mInstances.push_back({inImageBase, inLoad, inUnload, inProcess, inModule.GetIndex()});
        mModules.SetNativeModuleInstances(mInstances);
    }

    // One generated function "Add" of 0x40 bytes at 0x9000, in the times [10, 20).
    void AddGeneratedFunction()
    {
        Function function;
        function.RelativeAddress = 0x70;
        function.Size = 0x40;
        function.Name = "Add";
        function.ModuleIndex = 0;
        std::vector<std::unique_ptr<JITModule>> modules;
        modules.push_back(std::make_unique<FakeJITModule>());
        modules[0]->Name = "generated";
        mModules.SetJITData({function}, {{0x9000, sProcess, 1, 10, 20, 0}}, {{0x9000 >> sJITBucketShift, {0}}},
                            std::move(modules), {{sProcess, 10, 20, 1, 0}}, {});
    }

    int32_t Resolve(const std::vector<uint64_t>& inAddresses, EResolveFlag inFlag = EResolveFlag::FetchSymbols,
                    double inTime = 15, int32_t inProcess = sProcess)
    {
        return mModules.ResolveFrames(inAddresses, inProcess, inFlag, &mPlatform, mFrames, inTime);
    }

    [[nodiscard]] std::vector<std::string> PrintFrames() const
    {
        std::vector<std::string> frames;
        for (const ResolvedFrame& frame : mFrames)
            frames.push_back(gPrint(frame));
        return frames;
    }

    [[nodiscard]] std::string FindInstance(uint64_t inAddress, double inTime, int32_t inProcess = sProcess) const
    {
        const auto found = mModules.FindNativeModuleInstance(inAddress, inProcess, inTime);
        return found ? mModules.GetNativeModules()[found->NativeModuleIndex]->Name + "@" + gPrintAddress(found->ImageBase)
                     : "none";
    }

    CallLog mCalls;
    ModuleDatabase mModules;
    std::vector<NativeModuleInstance> mInstances;
    StopRulePlatform mPlatform;
    std::vector<ResolvedFrame> mFrames;
};

// --- Finding a module ---

TEST_F(ModuleDatabaseTest, TimeDecidesBetweenModulesAtOneBase)
{
    Load(AddModule("first", 0x1000), 0x10000, 10, 20);
    Load(AddModule("second", 0x1000), 0x10000, 30, 40);
    EXPECT_EQ(FindInstance(0x10000, 10), "first@10000");
    EXPECT_EQ(FindInstance(0x10FFF, 20), "first@10000") << "at the very time of the unload";
    EXPECT_EQ(FindInstance(0x10000, 25), "second@10000") << "the one that comes next";
    EXPECT_EQ(FindInstance(0x10000, 5), "first@10000") << "the lowest entry of those that come later";
    EXPECT_EQ(FindInstance(0x10000, 41), "none");
    EXPECT_EQ(FindInstance(0x11000, 15), "none");
    EXPECT_EQ(FindInstance(0xFFFF, 15), "none");
    EXPECT_EQ(FindInstance(0x10000, 15, sOtherProcess), "none");
}

TEST_F(ModuleDatabaseTest, AnInstanceOfNoModuleIsPassedOver)
{
    Load(AddModule("app", 0x2000), 0x10000);
    mInstances.push_back({0x10800, 0, sForever, sProcess, 99});
    mModules.SetNativeModuleInstances(mInstances);
    EXPECT_EQ(FindInstance(0x10900, 1), "app@10000");
    Resolve({0x10900});
    EXPECT_THAT(PrintFrames(), ElementsAre("app -+0 at 900 index 0 abs 10900 fn -"));
}

TEST_F(ModuleDatabaseTest, RandomInstancesAreFoundAsAWalkOverAllFindsThem)
{
    const unsigned seed = 4711;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto pick = [&random](int inEnd) { return std::uniform_int_distribution(0, inEnd - 1)(random); };
    TwinWorld twin;
    const std::vector<int32_t> imageSizes = {-1, 0, 1, 0x100, 0x800, 0x3000, -5, 0x200};
    for (size_t i = 0; i < imageSizes.size(); ++i)
    {
        AddModule(std::to_string(i), imageSizes[i]);
        twin.Modules.push_back({imageSizes[i], {}, {}});
    }

    for (int round = 0; round < 200; ++round)
    {
        std::vector<NativeModuleInstance> instances(static_cast<size_t>(pick(30)));
        for (NativeModuleInstance& instance : instances)
        {
            const double load = pick(20);
            instance = {0x1000 + static_cast<uint64_t>(pick(10)) * 0x200, load, load + pick(8), sProcess + pick(3),
                        static_cast<uint32_t>(pick(static_cast<int>(imageSizes.size())))};
        }
        mModules.SetNativeModuleInstances(instances);
        std::ranges::stable_sort(instances, {}, &NativeModuleInstance::ImageBase);
        twin.Instances = instances;
        for (int query = 0; query < 200; ++query)
        {
            const uint64_t address = 0xF00 + static_cast<uint64_t>(pick(0xC0)) * 0x40;
            const int32_t process = sProcess + pick(3);
            const double time = pick(30);
            const NativeModuleInstance* expected = twin.FindInstance(address, process, time);
            const auto found = mModules.FindNativeModuleInstance(address, process, time);
            ASSERT_EQ(found.has_value(), expected != nullptr);
            const auto tell = [](const NativeModuleInstance& inInstance) {
                return std::tuple(inInstance.ImageBase, inInstance.LoadTimeMs, inInstance.UnloadTimeMs,
                                  inInstance.NativeModuleIndex);
            };
            ASSERT_TRUE(!found || tell(*found) == tell(*expected));
        }
    }
}

// --- Resolving ---

TEST_F(ModuleDatabaseTest, NeighboursInAModuleAreResolvedTogether)
{
    FakeNativeModule& app = AddModule("app", 0x1000);
    app.AddSymbol(0x100, 0x20, 0x20, "main");
    FakeNativeModule& lib = AddModule("lib", 0x1000);
    Load(app, 0x10000);
    Load(lib, 0x20000);

    EXPECT_EQ(Resolve({0x10104, 0x10FFF, 0x20000, 0x11000, 0x1011F}), 5);
    EXPECT_THAT(PrintFrames(), ElementsAre("app 100+20 at 104 index 0 abs 10104 fn 10100", //
                                           "app -+0 at fff index 0 abs 10fff fn -",        //
                                           "lib -+0 at 0 index 1 abs 20000 fn -",          //
                                           "<unknown> -+0 at 11000 index 8000000 abs 11000 fn -",
                                           "app 100+20 at 11f index 0 abs 1011f fn 10100"));
    EXPECT_THAT(mCalls.Take(), ElementsAre("ensure app base 10000: 10104 10fff", "resolve app 104+1", "resolve app fff+1",
                                           "ensure lib base 20000: 20000", "resolve lib 0+1", "ensure app base 10000: 1011f"))
        << "the last frame is in the cache by then";
    EXPECT_EQ(Resolve({}), 0);
}

TEST_F(ModuleDatabaseTest, AModuleOfUnknownSizeIsAskedFrameByFrame)
{
    Load(AddModule("kernel", NativeModule::sUnknownImageSize), 0x10000);
    Load(AddModule("app", 0x1000), 0x20000);
    Resolve({0x10001, 0x10002, 0x20003});
    EXPECT_THAT(mCalls.Take(),
                ElementsAre("ensure kernel base 10000: 10001", "resolve kernel 1+1", "ensure kernel base 10000: 10002",
                            "resolve kernel 2+1", "ensure app base 20000: 20003", "resolve app 3+1"));
}

TEST_F(ModuleDatabaseTest, AnAbsoluteModuleHasTheBaseZero)
{
    FakeNativeModule& kernel = AddModule("kernel", 0x1000, ESymbolLookupAddressMode::Absolute);
    kernel.AddSymbol(0x10100, 0x20, 0x20, "schedule");
    Load(kernel, 0x10000);
    Resolve({0x10104});
    EXPECT_THAT(PrintFrames(), ElementsAre("kernel 10100+20 at 10104 index 0 abs 10104 fn 10100"));
    EXPECT_THAT(mCalls.Take(), ElementsAre("ensure kernel base 0: 10104", "resolve kernel 10104+1"));
    EXPECT_EQ(mModules.ToAbsoluteAddress(0x10104, {0}, 1), 0x10104U);
}

TEST_F(ModuleDatabaseTest, FromTheCacheAloneNobodyIsAsked)
{
    FakeNativeModule& app = AddModule("app", 0x1000);
    app.AddFunction(0x200, 0x10, "known");
    app.SortFunctions();
    app.AddSymbol(0x100, 0x20, 0x20, "main");
    Load(app, 0x10000);
    EXPECT_EQ(Resolve({0x10104, 0x10204}, EResolveFlag::CacheOnly), 2);
    EXPECT_THAT(PrintFrames(),
                ElementsAre("app -+0 at 104 index 0 abs 10104 fn -", "app 200+10 at 204 index 0 abs 10204 fn 10200"));
    EXPECT_THAT(mCalls.Take(), IsEmpty());
}

TEST_F(ModuleDatabaseTest, ASymbolWithoutASizeReachesToTheAddressesAskedFor)
{
    FakeNativeModule& app = AddModule("app", 0x1000);
    app.AddSymbol(0x100, 0x100, 0, "main");
    Load(app, 0x10000);
    const auto size = [&] { return app.FindCachedFunction(0x100).Size; };

    Resolve({0x10110});
    EXPECT_THAT(PrintFrames(), ElementsAre("app 100+11 at 110 index 0 abs 10110 fn 10100"));
    EXPECT_EQ(size(), 0x11U);
    Resolve({0x10100, 0x10120, 0x10111});
    EXPECT_EQ(size(), 0x21U) << "the greater of two sizes stays";
    Resolve({0x10112});
    mCalls.Clear();
    mFrames.clear();
    Resolve({0x10120});
    EXPECT_THAT(mCalls.Take(), ElementsAre("ensure app base 10000: 10120")) << "in the cache by now";
}

TEST_F(ModuleDatabaseTest, AFrameWithTheSameAddressKeepsItsFunction)
{
    FakeNativeModule& app = AddModule("app", 0x1000);
    Load(app, 0x10000, 0, 20);
    Load(app, 0x0F800, 30, 40);
    Resolve({0x10104, 0x10204}, EResolveFlag::CacheOnly);
    app.AddFunction(0x100, 0x300, "late");
    app.SortFunctions();

    Resolve({0x10104, 0x10208}, EResolveFlag::CacheOnly);
    EXPECT_THAT(PrintFrames(),
                ElementsAre("app -+0 at 104 index 0 abs 10104 fn -", "app 100+300 at 208 index 0 abs 10208 fn 10100"));
    Resolve({0x10104, 0x10210}, EResolveFlag::CacheOnly, 35);
    EXPECT_THAT(PrintFrames(),
                ElementsAre("app -+0 at 904 index 0 abs 10104 fn -", "app 100+300 at a10 index 0 abs 10210 fn 10100"))
        << "an address in the function of the slot keeps it, and only the frame's own addresses follow the new base";
}

TEST_F(ModuleDatabaseTest, ASlotThatWasNeverFilledMatchesNothing)
{
    Load(AddModule("all", NativeModule::sUnknownImageSize), 0);
    Resolve({sNoAddress - 1, sNoAddress}, EResolveFlag::CacheOnly);
    EXPECT_EQ(mFrames[1].Module, mModules.GetNativeModules()[0].get());
}

TEST_F(ModuleDatabaseTest, GeneratedFunctionsAreFoundWhereNoModuleIs)
{
    AddGeneratedFunction();
    Load(AddModule("app", 0x1000), 0x10000);
    Resolve({0x9010, 0x10001, 0x9040});
    EXPECT_THAT(PrintFrames(),
                ElementsAre("generated 70+40 at 10 index 4000000 abs 9010 fn 9000", //
                            "app -+0 at 1 index 0 abs 10001 fn -", "<unknown> -+0 at 9040 index 8000000 abs 9040 fn -"));
    Resolve({0x9010}, EResolveFlag::FetchSymbols, 20);
    EXPECT_EQ(mFrames[0].Module, &mModules.GetUnknownModule()) << "gone at its unload time";
    Load(AddModule("over it", 0x1000), 0x8800);
    mFrames.clear();
    Resolve({0x9010});
    EXPECT_EQ(mFrames[0].Module->Name, "over it") << "a native module comes first";
}

// --- The stop rule ---

class StopRuleTest : public ModuleDatabaseTest
{
protected:
    StopRuleTest() : mApp(AddModule("app", 0x1000)), mLib(AddModule("lib", 0x1000))
    {
        mApp.AddSymbol(0x100, 0x20, 0x20, "stop").AddSymbol(0x200, 0x20, 0x20, "go").AddSymbol(0x300, 0x20, 0x20, "other stop");
        mLib.AddSymbol(0x100, 0x20, 0x20, "same address");
        Load(mApp, 0x10000);
        Load(mLib, 0x20000);
        mPlatform.StopModule = &mApp;
        mPlatform.StopAddresses = {0x100, 0x300, 0x400};
    }

    FakeNativeModule& mApp;
    FakeNativeModule& mLib;
};

TEST_F(StopRuleTest, TheWalkEndsAtEveryPosition)
{
    const std::vector<uint64_t> stack = {0x20104, 0x10204, 0x10208, 0x5000, 0x10300 - 0x100, 0x20108, 0x10210};
    for (const EResolveFlag flag : {EResolveFlag::FetchSymbols, EResolveFlag::CacheOnly})
    {
        mFrames.clear();
        EXPECT_EQ(Resolve(stack, flag), static_cast<int32_t>(stack.size()));
        for (size_t position = 0; position < stack.size(); ++position)
        {
            std::vector<uint64_t> stopped = stack;
            stopped[position] = 0x10104;
            mFrames.clear();
            EXPECT_EQ(Resolve(stopped, flag), static_cast<int32_t>(position));
            EXPECT_EQ(gPrint(mFrames[position]), "app 100+20 at 104 index 0 abs 10104 fn 10100");
        }
    }
}

TEST_F(StopRuleTest, AFrameBehindTheStopIsNotLookedAt)
{
    mApp.AddFunction(0x100, 0x20, "stop");
    mApp.SortFunctions();
    EXPECT_EQ(Resolve({0x10204, 0x10104, 0x10304, 0x20104}), 1);
    EXPECT_THAT(mCalls.Take(), ElementsAre("ensure app base 10000: 10204 10104 10304", "resolve app 204+1"));
    EXPECT_EQ(gPrint(mFrames[0]), "app 200+20 at 204 index 0 abs 10204 fn 10200") << "a miss ahead of the stop";
    EXPECT_EQ(gPrint(mFrames[2]), "unfilled");
}

TEST_F(StopRuleTest, AFetchedStopEndsTheWalkAheadOfACachedOne)
{
    mApp.AddFunction(0x300, 0x20, "other stop");
    mApp.SortFunctions();
    EXPECT_EQ(Resolve({0x10204, 0x10104, 0x10208, 0x10304}), 1);
    EXPECT_THAT(mCalls.Take(),
                ElementsAre("ensure app base 10000: 10204 10104 10208 10304", "resolve app 204+1", "resolve app 104+1"));
    EXPECT_EQ(mApp.FindCachedFunction(0x200).Name, "go") << "what was found goes into the cache all the same";
}

TEST_F(StopRuleTest, AnUnknownFunctionStopsByTheFramesAddress)
{
    EXPECT_EQ(Resolve({0x10204, 0x10400}), 1);
    EXPECT_EQ(Resolve({0x10204, 0x10401}), 2);
    mFrames.clear();
    EXPECT_EQ(Resolve({0x10204, 0x10400}, EResolveFlag::CacheOnly), 1);
}

TEST_F(StopRuleTest, WithoutAPlatformNothingStops)
{
    const std::vector<uint64_t> stack = {0x10104, 0x10204};
    EXPECT_EQ(mModules.ResolveFrames(stack, sProcess, EResolveFlag::FetchSymbols, nullptr, mFrames, 15), 2);
}

TEST_F(StopRuleTest, ASingleFrameIsResolvedDespiteIt)
{
    EXPECT_EQ(gPrint(mModules.ResolveFrame(0x10104, sProcess, 15, &mPlatform)), "app 100+20 at 104 index 0 abs 10104 fn 10100");
    EXPECT_EQ(gPrint(mModules.ResolveFrame(0x10104, sProcess, 15, &mPlatform)), "app 100+20 at 104 index 0 abs 10104 fn 10100");
    EXPECT_THAT(mCalls.Take(), ElementsAre("ensure app base 10000: 10104", "resolve app 104+1", "ensure app base 10000: 10104"));
    EXPECT_EQ(gPrint(mModules.ResolveFrame(0x5000, sProcess, 15, &mPlatform)),
              "<unknown> -+0 at 5000 index 8000000 abs 5000 fn -");
}

// --- Back from stored addresses ---

TEST_F(ModuleDatabaseTest, AStoredAddressGivesItsFunctionByClass)
{
    AddGeneratedFunction();
    FakeNativeModule& app = AddModule("app", 0x1000);
    app.AddFunction(0x100, 0x20, "main");
    app.SortFunctions();
    const auto print = [this](uint64_t inAddress, uint32_t inIndex)
    {
        const ResolvedFunctionInfo info = mModules.GetResolvedFunction(inAddress, {inIndex});
        EXPECT_EQ(info.AbsoluteAddress, sNoAddress);
        EXPECT_EQ(info.FunctionAbsoluteAddress, sNoAddress);
        const std::string module = info.Module != nullptr ? "'" + info.Module->Name + "'" : "none";
        return module + " " + info.FunctionName + " " + gPrintAddress(info.FunctionRelativeAddress) + "+" +
               gPrintAddress(info.FunctionSize) + " at " + gPrintAddress(info.RelativeAddress) + " index " +
               gPrintAddress(info.ResolveIndex.Index);
    };
    EXPECT_EQ(print(0x110, 0), "'app' main 100+20 at 110 index 0");
    EXPECT_EQ(print(0x120, 0), "'app' Unknown -+0 at 120 index 0");
    EXPECT_EQ(print(0x70, ResolveIndex::sJITClass), "'generated' Add 70+40 at 70 index 4000000");
    EXPECT_EQ(print(0x70, 0x08000000), "'<unknown>' Unknown -+0 at 70 index 8000000");
    EXPECT_EQ(print(0x70, 0x0C000000), "'' [Unrooted Stacks] -+0 at 70 index c000000");
    for (const uint32_t index : {0x10000000U, 0x3C000000U, 1U, 0x04000001U})
        EXPECT_EQ(print(0x70, index), "none  -+0 at - index ffffffff") << index;
}

TEST_F(ModuleDatabaseTest, ARelativeAddressTurnsAbsoluteByTheTime)
{
    AddGeneratedFunction();
    FakeNativeModule& once = AddModule("once", 0x1000);
    FakeNativeModule& twice = AddModule("twice", 0x1000);
    Load(once, 0x10000, 10, 20);
    Load(twice, 0x20000, 10, 20);
    Load(twice, 0x30000, 20, 30);
    const auto find = [this](uint32_t inIndex, double inTime)
    { return gPrintAddress(mModules.ToAbsoluteAddress(0x5, {inIndex}, inTime)); };

    EXPECT_EQ(find(0, 15), "10005");
    EXPECT_EQ(find(0, 100), "10005") << "the only one, whatever the time";
    EXPECT_EQ(find(0, ModuleDatabase::sAnyTime), "10005");
    EXPECT_EQ(find(1, 10), "20005");
    EXPECT_EQ(find(1, 20), "30005") << "no longer at the very time of the unload";
    EXPECT_EQ(find(1, 30), "-");
    EXPECT_EQ(find(1, ModuleDatabase::sAnyTime), "-") << "one of two";
    EXPECT_EQ(find(ResolveIndex::sJITClass, 15), "9005");
    EXPECT_EQ(find(ResolveIndex::sJITClass, 99), "9005");
    for (const uint32_t index : {2U, 0x04000001U, 0x08000000U, 0x0C000000U, 0x10000000U})
        EXPECT_EQ(find(index, 15), "-") << index;
    EXPECT_EQ(find(ResolveIndex::sInstrumentedFlag | 0x40000000, 15), "10005") << "flags are no part of the index";
}

TEST_F(ModuleDatabaseTest, FunctionsAreFoundByName)
{
    AddGeneratedFunction();
    FakeNativeModule& app = AddModule("app", 0x1000);
    app.AddFunction(0x100, 0x20, "main");
    app.AddFunction(0x200, 0x20, "AddAll");
    app.SortFunctions();
    std::vector<std::string> found;
    for (const ModuleDatabase::FoundFunction& hit :
         mModules.FindFunctions([](const std::string& inName) { return inName.starts_with("Add"); }))
        found.push_back(hit.ModuleName + " " + hit.FunctionName + " " + gPrintAddress(hit.Address.RelativeAddress) + " " +
                        gPrintAddress(hit.Address.ResolveIndex.Index));
    EXPECT_THAT(found, ElementsAre("app AddAll 200 0", "generated Add 70 4000000"));
}

TEST_F(ModuleDatabaseTest, AFrameIsShownByNameOrAddress)
{
    AddModule("app", 0x1000);
    ResolvedFunctionInfo info = mModules.GetResolvedFunction(0x110, {0});
    info.AbsoluteAddress = 0xABC110;
    EXPECT_EQ(gGetFrameDisplayName(info), "0xABC110");
    info.FunctionRelativeAddress = 0x100;
    info.FunctionName = "main";
    EXPECT_EQ(gGetFrameDisplayName(info), "main");
    info.Module = nullptr;
    EXPECT_EQ(gGetFrameDisplayName(info), "0xABC110");
    EXPECT_EQ(gGetFrameDisplayName(mModules.GetResolvedFunction(0, {ResolveIndex::sUnknownClass})), "[Unrooted Stacks]");
}

// --- Several threads ---

TEST_F(ModuleDatabaseTest, ThreadsThatResolveTheSameFunctionsCacheThemOnce)
{
    constexpr uint64_t functionCount = 200;
    FakeNativeModule& app = AddModule("app", 0x10000);
    for (uint64_t i = 0; i < functionCount; ++i)
        app.AddSymbol(i * 0x10, 0x10, 0, std::to_string(i));
    Load(app, 0x10000);

    const auto resolveAll = [this](unsigned inSeed)
    {
        std::mt19937 random(inSeed);
        std::vector<ResolvedFrame> frames;
        int wrongCount = 0;
        for (int i = 0; i < 500; ++i)
        {
            const uint64_t relative = random() % (functionCount * 0x10);
            const uint64_t address = 0x10000 + relative;
            wrongCount += mModules.ResolveFrames({&address, 1}, sProcess, EResolveFlag::FetchSymbols, nullptr, frames, 1) != 1;
            wrongCount += frames[0].FunctionRelativeAddress != relative / 0x10 * 0x10 || frames[0].RelativeAddress != relative;
        }
        EXPECT_EQ(wrongCount, 0);
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back(resolveAll, seed);
    for (std::thread& thread : threads)
        thread.join();

    uint64_t lastAddress = sNoAddress;
    app.ForEachCachedFunction(
        [&lastAddress](const Function& inFunction)
        {
            EXPECT_TRUE(lastAddress == sNoAddress || lastAddress < inFunction.RelativeAddress);
            lastAddress = inFunction.RelativeAddress;
        });
}

} // namespace
