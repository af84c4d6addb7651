#include "Host/Linux/KernelSymbols.h"

#include "Tests/Host/ElfFixture.h"

#include <gtest/gtest.h>

namespace Host
{
namespace
{

constexpr const char* sList = "0000000000000000 A fixed_percpu_data\n"
                              "ffffffff81000000 T startup_64\n"
                              "ffffffff81000000 T _stext\n"
                              "ffffffff81000000 T _text\n"
                              "ffffffff81000100 t do_work\n"
                              "ffffffff81000180 W overridable\n"
                              "ffffffff81000200 D some_data\n"
                              "ffffffff81000300 T last\n"
                              "ffffffffc0001000 t probe\t[driver]\n"
                              "ffffffffc0001040 t remove\t[driver]\n"
                              "ffffffffc0000800 t other\t[second]\n"
                              "ffffffffc0001080 t late\t[driver]\n";

constexpr uint64_t sText = 0xffffffff81000000;
constexpr uint64_t sDriver = 0xffffffffc0001000;

// "name" or "name [module]" of what covers an address.
std::string gDescribe(const KernelSymbols& inSymbols, uint64_t inAddress)
{
    const Symbol* symbol = inSymbols.Table->Find(inAddress);
    if (symbol == nullptr)
        return "-";
    const std::string_view owner = inSymbols.Table->GetOwnerName(*symbol);
    return std::string(inSymbols.Table->GetName(*symbol)) + (owner.empty() ? "" : " [" + std::string(owner) + "]");
}

} // namespace

TEST(KernelSymbolsTest, FunctionsReachToTheNextOneAndModulesKeepTheirName)
{
    const KernelSymbols symbols = gParseKernelSymbols(sList, "", 0);
    ASSERT_EQ(symbols.Result, ESymbolLoadResult::Loaded);
    EXPECT_EQ(gDescribe(symbols, sText - 1), "-");
    EXPECT_EQ(gDescribe(symbols, sText + 0xff), "startup_64");
    EXPECT_EQ(gDescribe(symbols, sText + 0x17f), "do_work");
    EXPECT_EQ(gDescribe(symbols, sText + 0x2ff), "overridable") << "data is no function";
    EXPECT_EQ(gDescribe(symbols, sText + 0x1fff), "last");
    EXPECT_EQ(gDescribe(symbols, sText + 0x2000), "-") << "nothing is known between the kernel and its modules";
    EXPECT_EQ(gDescribe(symbols, sDriver + 0x3f), "probe [driver]");
    EXPECT_EQ(gDescribe(symbols, sDriver - 0x10), "other [second]");
    EXPECT_EQ(gDescribe(symbols, sDriver + 0x80), "late [driver]");
}

TEST(KernelSymbolsTest, AMovedKernelIsShiftedAndItsModulesLeftOut)
{
    constexpr uint64_t sShift = 0x12000000;
    for (const char* reference : {"_text", "_stext"})
    {
        const KernelSymbols symbols = gParseKernelSymbols(sList, reference, sText + sShift);
        ASSERT_EQ(symbols.Result, ESymbolLoadResult::Loaded);
        EXPECT_EQ(gDescribe(symbols, sText + sShift + 0x100), "do_work");
        EXPECT_EQ(gDescribe(symbols, sText + 0x100), "-");
        EXPECT_EQ(gDescribe(symbols, sDriver), "-");
        EXPECT_EQ(gDescribe(symbols, sDriver + sShift), "-");
    }
    EXPECT_EQ(gDescribe(gParseKernelSymbols(sList, "_text", sText), sDriver), "probe [driver]");
    EXPECT_EQ(gDescribe(gParseKernelSymbols(sList, "_text", sText - 0x1000000), sText - 0x1000000), "startup_64");
    EXPECT_EQ(gParseKernelSymbols(sList, "_absent", sText).Result, ESymbolLoadResult::Damaged);
}

TEST(KernelSymbolsTest, HiddenAddressesAreToldFromAnEmptyList)
{
    const std::string hidden = "0000000000000000 T _text\n0000000000000000 t do_work\n0000000000000000 t probe\t[driver]\n";
    EXPECT_EQ(gParseKernelSymbols(hidden, "", 0).Result, ESymbolLoadResult::Restricted);
    EXPECT_EQ(gParseKernelSymbols(hidden, "_text", sText).Result, ESymbolLoadResult::Restricted);
    EXPECT_EQ(gParseKernelSymbols("", "", 0).Result, ESymbolLoadResult::NoSymbols);
    EXPECT_EQ(gParseKernelSymbols("0000000000000000 A data\n", "", 0).Result, ESymbolLoadResult::NoSymbols);
}

TEST(KernelSymbolsTest, EveryPrefixAndStrangeLinesAreRead)
{
    const std::string list = sList;
    for (size_t size = 0; size < list.size(); ++size)
        EXPECT_NE(gParseKernelSymbols(std::string(list, 0, size), "_text", 0).Result, ESymbolLoadResult::Damaged);

    const KernelSymbols symbols = gParseKernelSymbols("\n \nzz T a\n10000000000000000 T too_long\nff T\nff T \nffT b\n"
                                                      "ff  T c\n20 T name [\n30 t name2\t[]\n40 t .L1\n50 T end",
                                                      "", 0);
    ASSERT_EQ(symbols.Result, ESymbolLoadResult::Loaded);
    EXPECT_EQ(symbols.Table->GetSymbols().size(), 3u);
    EXPECT_EQ(gDescribe(symbols, 0x4f), "name2");
    EXPECT_EQ(gDescribe(symbols, 0x50), "end");
}

TEST(KernelSymbolsTest, TheListOfAnotherKernelIsNotUsed)
{
    const ScratchFolder scratch;
    KernelSymbolsRequest request;
    request.ListPath = scratch.Write("kallsyms", sList);
    request.NotesPath = scratch.Write("notes", std::string("\4\0\0\0\2\0\0\0\3\0\0\0GNU\0\x12\x34\0\0", 20));
    EXPECT_EQ(gLoadKernelSymbols(request).Result, ESymbolLoadResult::Loaded);

    request.RecordedID = BuildID::sFromHex("1234");
    EXPECT_EQ(gLoadKernelSymbols(request).Result, ESymbolLoadResult::Loaded);
    request.RecordedID = BuildID::sFromHex("1235");
    EXPECT_EQ(gLoadKernelSymbols(request).Result, ESymbolLoadResult::BuildIDMismatch);
    request.RecordedID = {};
    request.ListPath = scratch.At("missing");
    EXPECT_EQ(gLoadKernelSymbols(request).Result, ESymbolLoadResult::FileMissing);
}

} // namespace Host
