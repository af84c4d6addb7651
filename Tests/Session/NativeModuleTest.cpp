#include "Tests/Session/FakeNativeModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace Profiler;
using testing::ElementsAre;

std::vector<std::string> gPrintProperties(const Module& inModule)
{
    std::vector<std::string> rows;
    for (const ModuleProperty& row : inModule.GetProperties())
        rows.push_back(Utility::gFormat("%s=%s kind %d", row.Label.c_str(), row.Value.c_str(), static_cast<int>(row.Kind)));
    return rows;
}

std::vector<std::string> gPrintFunctions(const NativeModule& inModule)
{
    std::vector<std::string> functions;
    inModule.ForEachCachedFunction(
        [&functions](const Function& inFunction)
        {
            functions.push_back(Utility::gFormat("%llx+%llx %s", static_cast<unsigned long long>(inFunction.RelativeAddress),
                                                 static_cast<unsigned long long>(inFunction.Size), inFunction.Name.c_str()));
        });
    return functions;
}

TEST(ModuleTest, ThePlainModuleAnswersEverythingWithNothing)
{
    Module module("<unknown>");
    EXPECT_STREQ(module.GetModuleTypeText(), "Unknown");
    EXPECT_THAT(gPrintProperties(module), ElementsAre("Name=<unknown> kind 2"));
    EXPECT_EQ(module.GetDescription(), "");
    EXPECT_TRUE(module.GetSymbolSearchPaths().empty() && module.GetSymbolLog().empty() && module.GetSourceFiles().empty());

    std::vector<std::string> calls;
    const System::JobHandle dataJob = module.ResolveFunctionData([&](const FunctionData&) { calls.emplace_back("data"); },
                                                                 [&](const FunctionLineData&) { calls.emplace_back("lines"); });
    const System::JobHandle textJob =
        module.QuerySourceText([&](const std::string& inText) { calls.push_back("text:" + inText); });
    EXPECT_THAT(calls, ElementsAre("data", "lines", "text:"));
    EXPECT_TRUE(dataJob == System::JobHandle() && textJob == System::JobHandle());
}

TEST(NativeModuleTest, ANewOneIsNamedAfterItsFile)
{
    const FakeNativeModule module("/usr/lib/libc.so", 4096);
    EXPECT_THAT(gPrintProperties(module),
                ElementsAre("Name=libc.so kind 2", "Path=/usr/lib/libc.so kind 3", "Image size=4096 kind 1"));
    EXPECT_STREQ(module.GetModuleTypeText(), "Native");
    EXPECT_EQ(module.ResolveStatus, EResolveStatus::Unused);
    EXPECT_EQ(module.GetBase(0x1000), 0x1000U);
    EXPECT_EQ(FakeNativeModule("", 0, ESymbolLookupAddressMode::Absolute).GetBase(0x1000), 0U);
}

TEST(NativeModuleTest, FunctionsAreAddedOnceUntilTheyAreSorted)
{
    FakeNativeModule module("app");
    module.SetIndex(3);
    module.AddFunction(0x300, 0x10, "c");
    module.AddFunction(0x100, 0x20, "a");
    module.AddFunction(0x300, 0x99, "c again");
    module.SortFunctions();
    EXPECT_THAT(gPrintFunctions(module), ElementsAre("100+20 a", "300+10 c"));
    EXPECT_EQ(module.FindCachedFunction(0x100).ModuleIndex, 3U);

    module.AddFunction(0x200, 0x10, "b");
    module.AddFunction(0x100, 0, "a again");
    module.SortFunctions();
    EXPECT_THAT(gPrintFunctions(module), ElementsAre("100+20 a", "200+10 b", "300+10 c"));
    EXPECT_EQ(module.FindCachedFunction(0x110).Name, "a");
}

TEST(NativeModuleTest, AFunctionIsFoundFromItsStartToItsEnd)
{
    FakeNativeModule module("app");
    module.AddFunction(0x100, 0x20, "a");
    module.AddFunction(0x120, 0x10, "b");
    module.AddFunction(0x200, 0, "empty");
    module.SortFunctions();
    const auto find = [&module](uint64_t inAddress) { return module.FindCachedFunction(inAddress).Name; };
    EXPECT_EQ(find(0xFF), "Unknown");
    EXPECT_EQ(find(0x100), "a");
    EXPECT_EQ(find(0x11F), "a");
    EXPECT_EQ(find(0x120), "b");
    EXPECT_EQ(find(0x130), "Unknown");
    EXPECT_EQ(find(0x200), "Unknown");

    const Function unknown = module.FindCachedFunction(0);
    EXPECT_EQ(unknown.RelativeAddress, sNoAddress);
    EXPECT_EQ(unknown.Size, 0U);
    EXPECT_EQ(unknown.ExtraData, -1);
}

TEST(NativeModuleTest, ALookupMayComeBetweenAddingAndSorting)
{
    FakeNativeModule module("app");
    module.AddSymbol(0x200, 0x20, 0x20, "asked for");
    module.AddFunction(0x300, 0x10, "c");
    module.AddFunction(0x100, 0x10, "a");
    const uint64_t address = 0x204;
    ResolvedFrame frame;
    EXPECT_EQ(module.ResolveAddresses({&address, 1}, {&frame, 1}, 0, nullptr, EResolveFlag::FetchSymbols),
              NativeModule::sNotStopped);
    module.SortFunctions();
    EXPECT_THAT(gPrintFunctions(module), ElementsAre("100+10 a", "200+20 asked for", "300+10 c"));
    EXPECT_EQ(module.FindCachedFunction(0x304).Name, "c");
}

TEST(NativeModuleTest, ManyFunctionsSurviveTheGrowthOfTheList)
{
    FakeNativeModule module("app");
    constexpr uint64_t count = 5000;
    for (uint64_t i = 0; i < count; ++i)
        module.AddFunction((count - i) * 16, 16, std::to_string(count - i));
    module.SortFunctions();
    for (uint64_t i = 1; i <= count; ++i)
        ASSERT_EQ(module.FindCachedFunction(i * 16 + 15).Name, std::to_string(i));
}

} // namespace
