#include "Host/Linux/ElfSymbols.h"

#include "Tests/Host/ElfFixture.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

namespace Host
{
namespace
{

// Opens and reads a module, with its debug file where one is given.
ElfSymbols gRead(const std::string& inPath, const std::string& inDebugPath = {})
{
    ElfFile file;
    ElfFile debugFile;
    ESymbolLoadResult reason{};
    if (!file.Open(inPath, reason) || (!inDebugPath.empty() && !debugFile.Open(inDebugPath, reason)))
        return {reason, nullptr};
    return gReadElfSymbols(file, inDebugPath.empty() ? nullptr : &debugFile);
}

ElfSymbols gReadImage(const std::string& inBytes)
{
    ElfFile file;
    ESymbolLoadResult reason{};
    if (!file.OpenImage({inBytes.begin(), inBytes.end()}, reason))
        return {reason, nullptr};
    return gReadElfSymbols(file, nullptr);
}

// The fixture library as the dynamic loader has it: the independent source of what is where.
class LoadedLibrary
{
public:
    explicit LoadedLibrary(const std::string& inPath) : mHandle(dlopen(inPath.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~LoadedLibrary() { dlclose(mHandle); }

    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    [[nodiscard]] uintptr_t GetAddress(const char* inName) const { return reinterpret_cast<uintptr_t>(dlsym(mHandle, inName)); }

    [[nodiscard]] uintptr_t Call(const char* inName) const { return reinterpret_cast<uintptr_t (*)()>(dlsym(mHandle, inName))(); }

    // The file offset behind an address, by the kernel's list of mappings.
    [[nodiscard]] uint64_t ToFileOffset(uintptr_t inAddress) const
    {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
        {
            unsigned long long start = 0;
            unsigned long long end = 0;
            unsigned long long offset = 0;
            if (std::sscanf(line.c_str(), "%llx-%llx %*s %llx", &start, &end, &offset) == 3 && start <= inAddress &&
                inAddress < end)
                return inAddress - start + offset;
        }
        return 0;
    }

private:
    void* mHandle;
};

class ElfSymbolsTest : public testing::Test
{
protected:
    [[nodiscard]] std::string NameAt(const ElfSymbols& inSymbols, uintptr_t inAddress) const
    {
        return gNameAt(*inSymbols.Table, mLibrary.ToFileOffset(inAddress));
    }

    // What each kind of table holds of functions that everyone may call.
    void ExpectExported(const ElfSymbols& inSymbols) const
    {
        const uintptr_t exported = mLibrary.GetAddress("FixtureExported");
        EXPECT_EQ(NameAt(inSymbols, exported), "FixtureExported") << "not its weak alias";
        EXPECT_EQ(NameAt(inSymbols, exported + 1), "FixtureExported");
        EXPECT_EQ(NameAt(inSymbols, mLibrary.GetAddress("_ZN7Fixture7ComputeEiPKc")), "Fixture::Compute(int, char const*)");
        EXPECT_EQ(NameAt(inSymbols, mLibrary.GetAddress("FixtureLabel")), "FixtureLabel");
        EXPECT_EQ(NameAt(inSymbols, mLibrary.GetAddress("FixtureInnerLabel")), "FixtureAssembly");
        EXPECT_EQ(NameAt(inSymbols, mLibrary.Call("FixtureStubAddress")), "getenv@plt");
    }

    const LoadedLibrary mLibrary{sFixtureFolder + "/libfull.so"};
};

} // namespace

TEST_F(ElfSymbolsTest, EveryFullTableNamesWhatTheLoaderMapped)
{
    const std::pair<const char*, std::string> files[] = {
        {"/libfull.so", ""}, {"/libstripped.so", sFixtureDebugFile}, {"/libpacked.so", ""}};
    for (const auto& [name, debugFile] : files)
    {
        SCOPED_TRACE(name);
        const ElfSymbols symbols = gRead(sFixtureFolder + name, debugFile);
        ASSERT_EQ(symbols.Result, ESymbolLoadResult::Loaded);
        ExpectExported(symbols);
        EXPECT_EQ(NameAt(symbols, mLibrary.Call("FixtureHiddenAddress")), "Fixture::Hidden(int)");
        EXPECT_EQ(NameAt(symbols, mLibrary.Call("FixtureChosenStubAddress")), "FixtureChosen@plt");
        EXPECT_EQ(gNameAt(*symbols.Table, 0), "-") << "file headers are no code";
        EXPECT_EQ(gFindByName(*symbols.Table, "__GNU_EH_FRAME_HDR"), nullptr) << "a label of data";
    }
}

TEST_F(ElfSymbolsTest, StrippedLibraryNamesItsExportsOnly)
{
    const ElfSymbols symbols = gRead(sFixtureFolder + "/libstripped.so");
    ASSERT_EQ(symbols.Result, ESymbolLoadResult::LoadedDynamicOnly);
    ExpectExported(symbols);
    EXPECT_EQ(gFindByName(*symbols.Table, "Fixture::Hidden(int)"), nullptr);
}

TEST(ElfSymbolsFilesTest, OtherFilesAreToldApart)
{
    const ScratchFolder scratch;
    EXPECT_EQ(gRead(sFixtureDebugFile).Result, ESymbolLoadResult::NoSymbols) << "without its module's offsets";
    EXPECT_EQ(gRead(scratch.At("missing")).Result, ESymbolLoadResult::FileMissing);
    EXPECT_EQ(gRead("/tmp").Result, ESymbolLoadResult::FileMissing);
    EXPECT_EQ(gRead("/dev/zero").Result, ESymbolLoadResult::FileMissing);
    EXPECT_EQ(gRead(scratch.Write("empty", "")).Result, ESymbolLoadResult::NotElf);
    EXPECT_EQ(gRead(scratch.Write("script", "#!/bin/sh\n")).Result, ESymbolLoadResult::NotElf);
    EXPECT_EQ(gRead(scratch.Write("archive", "!<arch>\n")).Result, ESymbolLoadResult::NotElf);
    EXPECT_EQ(gRead(scratch.Write("stub", "\x7f"
                                          "ELF"))
                  .Result,
              ESymbolLoadResult::Damaged);
}

TEST(ElfSymbolsDamageTest, EveryPrefixIsReadWithoutHarm)
{
    const std::string bytes = gReadText(sFixtureFolder + "/libfull.so");
    const ScratchFolder scratch;
    constexpr size_t sStep = 7;
    for (size_t size = 0; size < bytes.size(); size += size < 128 ? 1 : sStep)
    {
        const ElfSymbols symbols = gReadImage(bytes.substr(0, size));
        // The section headers stand at the end: without them no table can be found.
        EXPECT_EQ(symbols.Result, size < 4 ? ESymbolLoadResult::NotElf : ESymbolLoadResult::Damaged) << size;
        if (size < 128)
        {
            EXPECT_EQ(gRead(scratch.Write("cut", bytes.substr(0, size))).Result, symbols.Result) << size;
        }
    }
}

TEST(ElfSymbolsDamageTest, ChangedBytesAreReadWithoutHarm)
{
    for (const char* name : {"/libfull.so", "/libstripped.so", "/libpacked.so"})
    {
        const std::string bytes = gReadText(sFixtureFolder + name);
        constexpr uint32_t sSeed = 20;
        SCOPED_TRACE(sSeed);
        std::mt19937 random(sSeed);
        for (int round = 0; round < 1000; ++round)
        {
            // Most bytes are debug information and code; the headers and tables at both ends are what matters.
            std::string damaged = bytes;
            const size_t position = round % 3 == 0 ? random() % 0x700 : bytes.size() - 1 - random() % (bytes.size() / 2);
            damaged[position] = static_cast<char>(round % 2 == 0 ? random() : 0xff);
            const ElfSymbols symbols = gReadImage(damaged);
            ASSERT_EQ(symbols.Table != nullptr, gHasSymbols(symbols.Result));
            for (const Symbol& symbol : symbols.Table != nullptr ? symbols.Table->GetSymbols() : std::span<const Symbol>())
                ASSERT_EQ(symbols.Table->Find(symbol.Start), &symbol);
        }
    }
}

} // namespace Host
