// Session files whose modules are damaged, or were made by hand.
#include "Session/Modules/ModuleDatabase.h"
#include "Tests/Session/StoredModules.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>

#include <random>

namespace
{

using namespace Profiler;
using Serialization::Build;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t sProcess = static_cast<int32_t>(0x80000000);
constexpr uint32_t sNowhere = 99;

std::unique_ptr<StoredModules::ImageModule> gMakeModule(const std::string& inPath)
{
    return std::make_unique<StoredModules::ImageModule>(inPath, 0x1000, ESymbolLookupAddressMode::Relative);
}

Function gMakeFunction(std::string inName, uint64_t inSize, uint32_t inModule)
{
    Function function;
    function.RelativeAddress = 0;
    function.Size = inSize;
    function.Name = std::move(inName);
    function.ModuleIndex = inModule;
    return function;
}

class ModuleDatabaseLoadTest : public testing::Test
{
protected:
    // Stores what the test has put together, reads it back and gives the lines of the log.
    std::vector<std::string> Load()
    {
        std::vector<uint8_t> file;
        {
            const Build writing =
                Build::With<StoredModules::OpenCapture, StoredModules::ImageModule, StoredModules::GeneratedModule>();
            file = Build::Write(mStored);
        }
        const Build reading = Build::With<StoredModules::Capture, StoredModules::ImageModule, StoredModules::GeneratedModule>();
        mCapture = reading.ReadOne<StoredModules::Capture>(file);
        const LogCapture log;
        GetModules().OnLoaded(mSession.GetSession());
        return log.GetMessages();
    }

    [[nodiscard]] ModuleDatabase& GetModules() { return mCapture->Modules; }

    // "app+10": where the address lies at time 15.
    [[nodiscard]] std::string Find(uint64_t inAddress)
    {
        const ResolvedFrame frame = GetModules().ResolveFrame(inAddress, sProcess, 15, nullptr);
        return Utility::gFormat("%s+%llx", frame.Module->Name.c_str(), static_cast<unsigned long long>(frame.RelativeAddress));
    }

    // The name of the function of a stored address, "-" without a module.
    [[nodiscard]] std::string GetFunction(uint64_t inAddress, uint32_t inIndex)
    {
        const ResolvedFunctionInfo info = GetModules().GetResolvedFunction(inAddress, {inIndex});
        return info.Module == nullptr ? "-" : info.FunctionName;
    }

    [[nodiscard]] std::vector<std::string> FindAllFunctions()
    {
        std::vector<std::string> names;
        for (const auto& function : GetModules().FindFunctions([](const std::string&) { return true; }))
            names.push_back(function.FunctionName);
        return names;
    }

    StoredModules::OpenCapture mStored;
    StoredModules::Database& mDatabase = mStored.Modules;
    SessionFixture mSession;
    std::unique_ptr<StoredModules::Capture> mCapture;
};

TEST_F(ModuleDatabaseLoadTest, MissingModulesKeepThePositionsOfTheOthers)
{
    auto app = gMakeModule("/bin/app");
    app->AddFunction(0x100, 0x20, "main");
    mDatabase.NativeModules.push_back(nullptr);
    mDatabase.NativeModules.push_back(std::move(app));
    mDatabase.NativeModules.push_back(nullptr);
    mDatabase.NativeModuleInstances = {{0x10100, 10, 20, sProcess, 0},
                                       {0x10000, 10, 20, sProcess, 1},
                                       {0x10080, 10, 20, sProcess, 2},
                                       {0x100C0, 10, 20, sProcess, 3},
                                       {0x10010, 10, 20, sProcess, 0xFFFFFFFF}};
    EXPECT_THAT(Load(), ElementsAre("The session file has records that lead to nothing. Left out: 2 native modules, 4 of their "
                                    "instances, 0 JIT modules, 0 of their instances, the modules of 0 JIT functions, 0 JIT "
                                    "function instances, 0 entries of their address map"));
    EXPECT_EQ(Find(0x10110), "app+110");
    EXPECT_EQ(GetFunction(0x110, 1), "main");
    EXPECT_EQ(GetModules().GetNativeModules()[1]->GetIndex(), 1U);
    for (const uint32_t index : {0U, 2U, 3U})
    {
        EXPECT_EQ(GetFunction(0x110, index), "-");
        EXPECT_EQ(GetModules().ToAbsoluteAddress(0x110, {index}, 15), sNoAddress);
    }
    EXPECT_THAT(FindAllFunctions(), ElementsAre("main"));
    GetModules().NumberNativeModules();
}

TEST_F(ModuleDatabaseLoadTest, WhatIsSearchedIsSorted)
{
    auto app = gMakeModule("/bin/app");
    app->AddFunction(0x300, 0x20, "third");
    app->AddFunction(0x100, 0x20, "first");
    app->AddFunction(0x200, 0x20, "second");
    mDatabase.NativeModules.push_back(std::move(app));
    mDatabase.NativeModules.push_back(gMakeModule("/bin/lib"));
    mDatabase.NativeModuleInstances = {
        {0x30000, 10, 20, sProcess, 0}, {0x10000, 10, 20, sProcess, 1}, {0x20000, 10, 20, sProcess, 0}};
    EXPECT_THAT(Load(), IsEmpty());
    EXPECT_EQ(Find(0x10001), "lib+1");
    EXPECT_EQ(Find(0x20001), "app+1");
    EXPECT_EQ(Find(0x30001), "app+1");
    EXPECT_EQ(GetFunction(0x110, 0), "first");
    EXPECT_EQ(GetFunction(0x210, 0), "second");
    EXPECT_EQ(GetFunction(0x310, 0), "third");
}

TEST_F(ModuleDatabaseLoadTest, JITRecordsLeadSomewhereOrNowhere)
{
    mDatabase.JITModules.push_back(nullptr);
    mDatabase.JITModules.push_back(std::make_unique<StoredModules::GeneratedModule>());
    mDatabase.JITModules[1]->Name = "jit";
    mDatabase.JITModuleInstances = {{sProcess, 10, 20, 5, 1}, {sProcess, 10, 20, 3, 0}, {sProcess, 10, 20, 4, sNowhere}};
    mDatabase.JITFunctions = {gMakeFunction("of null", 0x40, 0), gMakeFunction("low", 0x40, 1), gMakeFunction("high", 0x40, 1),
                              gMakeFunction("of nowhere", 0x40, sNowhere), gMakeFunction("of none", 0x40, Function::sNoModule)};
    mDatabase.JITFunctionInstances = {{0x8100, sProcess, 5, 10, 20, 2},       {0x8080, sProcess, 5, 10, 20, sNowhere},
                                      {0x8000, sProcess, 5, 10, 20, 1},       {0x8180, sProcess, 5, 10, 20, 3},
                                      {0x8200, sProcess, 5, 10, 20, 0},       {0x8280, sProcess, 5, 10, 20, 4},
                                      {0x8300, sProcess, 5, 10, 20, 0xFFFFFF}};
    mDatabase.JITFunctionAddressMap = {{0x8000 >> sJITBucketShift, {3, 0, 0xFFFFFFFF, 1, 5, 4, sNowhere, 2}}, {77, {6, 7}}};
    EXPECT_THAT(Load(), ElementsAre("The session file has records that lead to nothing. Left out: 0 native modules, 0 of their "
                                    "instances, 1 JIT modules, 2 of their instances, the modules of 2 JIT functions, 2 JIT "
                                    "function instances, 3 entries of their address map"));
    EXPECT_EQ(Find(0x8010), "jit+10");
    EXPECT_EQ(Find(0x8110), "jit+10");
    for (const uint64_t address : {0x8090, 0x8190, 0x8210, 0x8290, 0x8310, 77 << sJITBucketShift})
        EXPECT_EQ(Find(address), Utility::gFormat("<unknown>+%llx", static_cast<unsigned long long>(address)));
    EXPECT_THAT(FindAllFunctions(), ElementsAre("low", "high"));
    EXPECT_EQ(GetFunction(0, ResolveIndex::sJITClass | 1), "low");
    for (const uint32_t index : {0U, 3U, 4U, 5U})
        EXPECT_EQ(GetFunction(0, ResolveIndex::sJITClass | index), "-");
    EXPECT_EQ(GetModules().ToAbsoluteAddress(4, {ResolveIndex::sJITClass | 2}, 15), 0x8104U);
    EXPECT_EQ(GetModules().ToAbsoluteAddress(4, {ResolveIndex::sJITClass | sNowhere}, 15), sNoAddress);
}

// A difference shows with the address sanitizer, or where the answer can't be right.
TEST_F(ModuleDatabaseLoadTest, RandomIndicesAreHarmless)
{
    const unsigned seed = 815;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto pick = [&random](uint32_t inEnd) { return std::uniform_int_distribution<uint32_t>(0, inEnd - 1)(random); };
    const auto pickIndex = [&] { return pick(4) == 0 ? static_cast<uint32_t>(random()) : pick(8); };
    for (int round = 0; round < 100; ++round)
    {
        mDatabase = {};
        for (uint32_t i = pick(8); i != 0; --i)
            mDatabase.NativeModules.push_back(pick(4) == 0 ? nullptr : gMakeModule("/bin/" + std::to_string(i)));
        for (uint32_t i = pick(8); i != 0; --i)
            mDatabase.JITModules.push_back(pick(4) == 0 ? nullptr : std::make_unique<StoredModules::GeneratedModule>());
        for (uint32_t i = pick(20); i != 0; --i)
            mDatabase.NativeModuleInstances.push_back({pick(16) * uint64_t{0x800}, 10, 20, sProcess, pickIndex()});
        for (uint32_t i = pick(8); i != 0; --i)
            mDatabase.JITFunctions.push_back(gMakeFunction(std::to_string(i), pick(0x1000), pickIndex()));
        for (uint32_t i = pick(20); i != 0; --i)
            mDatabase.JITFunctionInstances.push_back({0x8000 + pick(0x1000), sProcess, 1, 10, 20, pickIndex()});
        for (uint32_t i = 0; i < 40; ++i)
            mDatabase.JITFunctionAddressMap[0x20 + pick(5)].push_back(pick(8) == 0 ? pickIndex() : pick(20));
        Load();
        for (int query = 0; query < 100; ++query)
        {
            const uint64_t address = pick(0xA000);
            const ResolvedFrame frame = GetModules().ResolveFrame(address, sProcess, 15, nullptr);
            ASSERT_NE(frame.Module, nullptr);
            if (frame.ResolveIndex.GetClass() == ResolveIndex::sJITClass)
            {
                ASSERT_LT(address - frame.FunctionAbsoluteAddress, frame.FunctionSize);
            }
            static_cast<void>(GetFunction(address, frame.ResolveIndex.Index));
            static_cast<void>(GetModules().ToAbsoluteAddress(0, {(pick(2) * ResolveIndex::sJITClass) | pick(8)}, 15));
        }
        static_cast<void>(FindAllFunctions());
    }
}

} // namespace
