#include "Host/Linux/SymbolTable.h"

#include "Host/Linux/Demangle.h"
#include "Tests/Host/ElfFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace Host
{
namespace
{

SymbolTable gBuildTable(std::vector<SymbolInput> inSymbols)
{
    SymbolTableBuilder builder;
    for (const SymbolInput& symbol : inSymbols)
        builder.Add(symbol);
    return builder.Build();
}

// The name that wins among two at one address, whichever is added first.
std::string gPickName(SymbolInput inA, SymbolInput inB)
{
    inA.Start = inB.Start = 0x10;
    inA.Size = inB.Size = 4;
    const std::string picked = gNameAt(gBuildTable({inA, inB}), 0x10);
    EXPECT_EQ(gNameAt(gBuildTable({inB, inA}), 0x10), picked);
    return picked;
}

} // namespace

TEST(SymbolTableTest, PrefersGlobalFunctionsWithPlainNamesAmongAliases)
{
    const auto name = [](std::string_view inName, ESymbolBinding inBinding = ESymbolBinding::Global, bool inIsFunction = true)
    { return SymbolInput{.Name = inName, .Binding = inBinding, .IsFunction = inIsFunction}; };

    EXPECT_EQ(gPickName(name("a_weak", ESymbolBinding::Weak), name("long_global_name")), "long_global_name");
    EXPECT_EQ(gPickName(name("weak", ESymbolBinding::Weak), name("a", ESymbolBinding::Local)), "weak");
    EXPECT_EQ(gPickName(name("label", ESymbolBinding::Global, false), name("a_function")), "a_function");
    EXPECT_EQ(gPickName(name("label", ESymbolBinding::Global, false), name("f", ESymbolBinding::Local)), "label");
    EXPECT_EQ(gPickName(name("__read"), name("read_longer")), "read_longer");
    EXPECT_EQ(gPickName(name("read64"), name("read")), "read");
    EXPECT_EQ(gPickName(name("readb"), name("reada")), "reada");
}

TEST(SymbolTableTest, SymbolsReachAsFarAsTheirSizeOrToTheNextOneOrTheirSectionsEnd)
{
    const SymbolTable table = gBuildTable({{.Start = 0x100, .Limit = 0x180, .Name = "first"},
                                           {.Start = 0x140, .Limit = 0x180, .Name = "second"},
                                           {.Start = 0x200, .Size = 0x40, .Limit = 0x280, .Name = "sized"},
                                           {.Start = 0x210, .Limit = 0x280, .Name = "label_inside"},
                                           {.Start = 0x1F00, .Name = "last"}});
    EXPECT_EQ(gNameAt(table, 0xFF), "-");
    EXPECT_EQ(gNameAt(table, 0x13F), "first");
    EXPECT_EQ(gNameAt(table, 0x17F), "second");
    EXPECT_EQ(gNameAt(table, 0x180), "-");
    EXPECT_EQ(gNameAt(table, 0x210), "sized");
    EXPECT_EQ(gNameAt(table, 0x240), "-");
    EXPECT_EQ(gNameAt(table, 0x2FFF), "last") << "up to the end of the page behind its own";
    EXPECT_EQ(gNameAt(table, 0x3000), "-");
    EXPECT_EQ(gNameAt(SymbolTable(), 0), "-");

    const SymbolTable sizes = gBuildTable({{.Start = 0x10, .Size = 0, .Name = "a"},
                                           {.Start = 0x10, .Size = 8, .Name = "alias"},
                                           {.Start = UINT64_MAX - 0x10, .Size = 0x100, .Name = "high"}});
    ASSERT_EQ(sizes.GetSymbols().size(), 2u);
    EXPECT_EQ(gNameAt(sizes, 0x17), "a") << "aliases share the largest size";
    EXPECT_EQ(gNameAt(sizes, 0x18), "-");
    EXPECT_EQ(gNameAt(sizes, UINT64_MAX - 1), "high") << "a size over the end of memory covers its rest";
}

TEST(SymbolTableTest, FindsTheInnermostSymbolLikeASearchOfAll)
{
    for (uint32_t seed = 0; seed < 50; ++seed)
    {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::vector<SymbolInput> symbols;
        for (uint64_t start = 0; start < 300; start += 1 + random() % 9)
            symbols.push_back({.Start = start, .Size = 1 + random() % (random() % 8 == 0 ? 200 : 6), .Name = "f"});
        std::vector<SymbolInput> shuffled = symbols;
        std::shuffle(shuffled.begin(), shuffled.end(), random);
        const SymbolTable table = gBuildTable(shuffled);

        for (uint64_t address = 0; address < 520; ++address)
        {
            const auto expected = std::find_if(symbols.rbegin(), symbols.rend(),
                                               [&](const SymbolInput& inSymbol)
                                               { return inSymbol.Start <= address && address < inSymbol.Start + inSymbol.Size; });
            const Symbol* found = table.Find(address);
            ASSERT_EQ(found != nullptr, expected != symbols.rend()) << address;
            if (found != nullptr)
            {
                ASSERT_EQ(found->Start, expected->Start) << address;
            }
        }
    }
}

TEST(SymbolTableTest, NamesAreDemangledWhenShown)
{
    const SymbolTable table = gBuildTable(
        {{.Start = 0, .Size = 4, .Name = "_ZN7Fixture7ComputeEiPKc"}, {.Start = 8, .Size = 4, .Name = "_Znwm", .IsStub = true}});
    EXPECT_EQ(table.GetName(*table.Find(8)), "_Znwm@plt");
    EXPECT_EQ(gNameAt(table, 0), "Fixture::Compute(int, char const*)");
    EXPECT_EQ(gNameAt(table, 8), "operator new(unsigned long)@plt");
}

TEST(DemangleTest, LeavesWhatIsNoCppNameUnchanged)
{
    for (const std::string name : {"", "_", "_Z", "main", "_RNvC6_123foo3bar", "_ZN3fooE garbage", "_ZN99999999f", "puts@plt"})
        EXPECT_EQ(gDemangle(name), name);
    const std::string endless = "_Z1f" + std::string(1 << 20, 'P') + "i";
    EXPECT_EQ(gDemangle(endless), endless);
    EXPECT_EQ(gDemangle("_Z1fv.cold"), "f() [clone .cold]");
}

} // namespace Host
