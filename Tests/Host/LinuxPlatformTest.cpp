// Which stacks of a Linux capture are cut short, and where its stored modules look for symbols.
#include "Host/Linux/LinuxPlatform.h"

#include "Host/Linux/ElfModule.h"
#include "Host/Linux/KernelModule.h"
#include "Host/Linux/ThreadEntries.h"
#include "Tests/Host/ElfFixture.h"
#include "Tests/Support/SessionFixture.h"

#include <gtest/gtest.h>

namespace Host
{
namespace
{

using ESymbols = FakeModule::ESymbols;

class LinuxPlatformTest : public testing::Test
{
protected:
    static constexpr int32_t sSize = 0x1000;
    static constexpr uint64_t sProgram = 0x400000;
    static constexpr uint64_t sCLibrary = 0x500000;
    static constexpr uint64_t sOther = 0x600000;
    static constexpr uint64_t sUnnamed = 0x900; // where no function of a module is

    LinuxPlatformTest()
    {
        mFixture.AddProcess("second");
        mFixture.LoadModule(mFixture.AddModule("/bin/game", sSize, {{0x100, 0x80, "_start"}, {0x200, 0x80, "main"}}), sProgram);
        mFixture.LoadModule(mFixture.AddModule("/usr/lib/libc.so.6", sSize,
                                               {{0x100, 0x80, "__libc_start_main@@GLIBC_2.34"}, {0x200, 0x80, "qsort"}},
                                               ESymbols::OnDemand),
                            sCLibrary);
        mFixture.LoadModule(mFixture.AddModule("/usr/lib/libother.so", sSize, {{0x100, 0x80, "clone"}, {0x200, 0x80, "work"}}),
                            sOther);
    }

    [[nodiscard]] bool IsComplete(const std::vector<uint64_t>& inStack, size_t inProcess = 0)
    {
        const auto isComplete = [&]
        { return mPlatform.IsStackComplete(mFixture.GetSession(), Profiler::gMakeCapturedProcessID(inProcess), inStack); };
        const bool result = isComplete();
        EXPECT_EQ(isComplete(), result) << "what is remembered";
        return result;
    }

    SessionFixture mFixture;
    LinuxPlatformSession mPlatform;
};

TEST_F(LinuxPlatformTest, AStackIsCompleteWhereAThreadBegins)
{
    for (const uint64_t address : {sProgram + 0x100, sProgram + 0x17F, sCLibrary + 0x110, sOther + 0x100})
        EXPECT_TRUE(IsComplete({address, sOther + 0x200})) << std::hex << address;
    for (const uint64_t address : {sProgram + 0x200, sCLibrary + 0x210, sOther + 0x210})
        EXPECT_FALSE(IsComplete({address, sProgram + 0x100})) << std::hex << address;
    EXPECT_TRUE(IsComplete({}));
}

TEST_F(LinuxPlatformTest, AStackOfTheKernelAloneIsComplete)
{
    EXPECT_TRUE(IsComplete({0xFFFFFFFF81000010, 0xFFFFFFFF81000020}));
    EXPECT_TRUE(IsComplete({0x8000000000000000}));
    EXPECT_FALSE(IsComplete({sProgram + 0x200, 0xFFFFFFFF81000010})) << "its thread was in user code before";
}

// Programs and C libraries mostly come without the names of the functions in which threads begin; other libraries don't have
// them.
TEST_F(LinuxPlatformTest, AnUnknownFunctionCountsWhereThreadsMayBegin)
{
    EXPECT_TRUE(IsComplete({sProgram + sUnnamed}));
    EXPECT_TRUE(IsComplete({sCLibrary + sUnnamed}));
    EXPECT_FALSE(IsComplete({sOther + sUnnamed}));
    EXPECT_FALSE(IsComplete({0x12345})) << "in no module";
    EXPECT_FALSE(IsComplete({0}));
}

TEST_F(LinuxPlatformTest, EachProcessHasItsOwnModules)
{
    EXPECT_TRUE(IsComplete({sProgram + 0x100}, 0));
    EXPECT_FALSE(IsComplete({sProgram + 0x100}, 1)) << "nothing lies there";
    EXPECT_FALSE(IsComplete({sProgram + 0x100}, 7)) << "there is no such process";
}

// What lay there once is enough: a sample can be just ahead of the record that tells of its module.
TEST_F(LinuxPlatformTest, ModulesOfAnyTimeCount)
{
    mFixture.LoadModule(mFixture.AddModule("/usr/lib/late.so", sSize, {{0x100, 0x80, "start_thread"}}), 0x700000, 0, 5.0, 6.0);
    EXPECT_TRUE(IsComplete({0x700100}));
}

TEST(ThreadEntries, AreKnownByTheirNames)
{
    for (const char* name :
         {"_start", "__libc_start_main", "__libc_start_main@@GLIBC_2.34", "__libc_start_main@GLIBC_2.2.5",
          "__libc_start_call_main", "clone", "__clone3", "start_thread", "runtime.goexit.abi0", "runtime.mstart"})
        EXPECT_TRUE(gIsThreadEntry(name)) << name;
    for (const char* name : {"", "@@GLIBC_2.34", "main", "_start_here", "my_start", "start_threads", "cloned", "clone.abi0.more",
                             "runtime.goexit.abi1", "Start_Thread"})
        EXPECT_FALSE(gIsThreadEntry(name)) << name;
}

TEST(ThreadEntries, LieInTheCLibraryAndTheLoader)
{
    for (const char* path : {"/usr/lib/x86_64-linux-gnu/libc.so.6", "/lib/libc-2.31.so", "/lib/libpthread-2.31.so",
                             "/lib64/ld-linux-x86-64.so.2", "/lib/ld-musl-x86_64.so.1", "ld.so"})
        EXPECT_TRUE(gHasThreadEntries(path)) << path;
    for (const char* path : {"", "/", "/usr/lib/libcrypto.so.3", "/usr/lib/libc++.so.1", "/libc.so.6/libother.so", "/opt/old",
                             "/usr/lib/libcap.so.2", "/usr/lib/mylibc.so.6"})
        EXPECT_FALSE(gHasThreadEntries(path)) << path;
}

// --- Modules of a session file ---

// An ELF file of the fixture in place of that of a stored module.
TEST_F(LinuxPlatformTest, AStoredModuleWithoutABuildIDDoesNotLookAtFiles)
{
    SymbolCache cache{DebugFileFinder(std::vector<std::string>())};
    const std::string path = sFixtureFolder + "/libfull.so";
    ElfModule stored(cache);
    stored.Path = path;
    stored.ResolveStatus = Profiler::EResolveStatus::Resolved;
    stored.EnsureSymbols({}, {}, 0, nullptr);
    EXPECT_EQ(cache.GetNumParsed(), 0U);
    EXPECT_FALSE(stored.WasAskedForSymbols());
    EXPECT_EQ(stored.GetSymbolFailure(), "");
    EXPECT_EQ(stored.ResolveStatus, Profiler::EResolveStatus::Resolved) << "as it was stored";
    Profiler::Function function;
    EXPECT_FALSE(stored.ResolveAddress(0x1000, 0, function));

    ElfModule recorded(cache, path, sSize, BuildID());
    recorded.EnsureSymbols({}, {}, 0, nullptr);
    EXPECT_EQ(cache.GetNumParsed(), 1U) << "while it is imported the file is what ran";
    EXPECT_EQ(recorded.GetSymbolFile(), path);
}

TEST_F(LinuxPlatformTest, AStoredKernelNeverReadsTheRunningOnesList)
{
    const ScratchFolder scratch;
    KernelModule stored;
    stored.EnsureSymbols({}, {}, 0, nullptr);
    EXPECT_FALSE(stored.WasAskedForSymbols());
    EXPECT_EQ(stored.GetSymbolFile(), "");
    EXPECT_EQ(stored.GetSymbolFailure(), "");
    Profiler::Function function;
    EXPECT_FALSE(stored.ResolveAddress(0x10, 0, function));

    KernelSymbolsRequest request;
    request.ListPath = scratch.Write("kallsyms", "ffffffff81000000 T _text\nffffffff81000010 T do_work\n");
    KernelModule recorded(request, 0xFFFFFFFF81000000, sSize);
    recorded.EnsureSymbols({}, {}, 0, nullptr);
    EXPECT_TRUE(recorded.WasAskedForSymbols());
}

} // namespace
} // namespace Host
