#include "Host/Linux/SymbolCache.h"

#include "Tests/Host/ElfFixture.h"

#include <gmock/gmock.h>

#include <thread>

namespace Host
{
namespace
{

constexpr const char* sHiddenFunction = "Fixture::Hidden(int)";

class SymbolCacheTest : public testing::Test
{
protected:
    [[nodiscard]] LoadedSymbols Load(const std::string& inPath, const BuildID& inID = {}) { return mCache.Load(inPath, inID); }
    [[nodiscard]] ESymbolLoadResult LoadResult(const std::string& inPath, const BuildID& inID = {})
    {
        return Load(inPath, inID).Result;
    }

    const ScratchFolder mScratch{};
    const std::string mFull = sFixtureFolder + "/libfull.so";
    const std::string mStripped = sFixtureFolder + "/libstripped.so";
    SymbolCache mCache{DebugFileFinder({mScratch.At("roots")})};
};

} // namespace

TEST_F(SymbolCacheTest, CopiesOfOneBuildShareOneParse)
{
    const LoadedSymbols first = Load(mFull);
    const LoadedSymbols copy = Load(mScratch.Copy(mFull, "copy.so"), sFixtureID);
    EXPECT_EQ(first.Result, ESymbolLoadResult::Loaded);
    EXPECT_EQ(first.SymbolFile, mFull);
    EXPECT_EQ(first.Table, copy.Table);
    EXPECT_EQ(mCache.GetNumParsed(), 1u);
}

TEST_F(SymbolCacheTest, FilesWithoutBuildIDAreKeptApartByPath)
{
    const std::string plain = sFixtureFolder + "/linked/libplain.so";
    const LoadedSymbols linked = Load(plain);
    EXPECT_EQ(linked.Result, ESymbolLoadResult::Loaded);
    EXPECT_EQ(linked.SymbolFile, sFixtureFolder + "/linked/.debug/libplain.debug");
    EXPECT_NE(gFindByName(*linked.Table, sHiddenFunction), nullptr);
    EXPECT_EQ(LoadResult(mScratch.Copy(plain, "copy.so")), ESymbolLoadResult::LoadedDynamicOnly)
        << "its debug file isn't beside it";
    EXPECT_EQ(LoadResult(plain, sFixtureID), ESymbolLoadResult::BuildIDMismatch);
}

TEST_F(SymbolCacheTest, AnotherBuildIsSaidOnceAndNotUsed)
{
    const LogCapture log;
    EXPECT_EQ(LoadResult(mFull, sOtherID), ESymbolLoadResult::BuildIDMismatch);
    const std::string said = log.GetText();
    EXPECT_THAT(said, testing::HasSubstr("libfull.so is of build " ELF_FIXTURE_ID ", recorded was " + sOtherID.ToHex()));
    EXPECT_EQ(Load(mFull, sOtherID).Table, nullptr);
    EXPECT_EQ(log.GetText(), said);
    EXPECT_EQ(mCache.GetNumParsed(), 0u);
}

TEST_F(SymbolCacheTest, DeletedFilesNeedABuildID)
{
    EXPECT_EQ(LoadResult(mFull + " (deleted)"), ESymbolLoadResult::FileMissing);
    EXPECT_EQ(LoadResult(mFull + " (deleted)", sOtherID), ESymbolLoadResult::FileMissing);
    EXPECT_EQ(LoadResult(mFull + " (deleted)", sFixtureID), ESymbolLoadResult::Loaded);
}

TEST_F(SymbolCacheTest, AbsentModulesAreReplacedOnlyByDebugFilesThatKnowTheOffsets)
{
    const std::string debugName = "roots/.build-id/" + sFixtureDebugFile.substr(sFixtureDebugFile.find("/.build-id/") + 11);
    mScratch.Copy(sFixtureDebugFile, debugName);
    EXPECT_EQ(LoadResult("/gone/libfull.so", sFixtureID), ESymbolLoadResult::FileMissing);

    mScratch.Copy(mFull, debugName);
    SymbolCache fresh(DebugFileFinder({mScratch.At("roots")}));
    const LoadedSymbols loaded = fresh.Load("/gone/libfull.so", sFixtureID);
    ASSERT_EQ(loaded.Result, ESymbolLoadResult::Loaded);
    EXPECT_EQ(loaded.SymbolFile, mScratch.At(debugName));
    EXPECT_EQ(gFindByName(*loaded.Table, sHiddenFunction)->Start, gFindByName(*Load(mFull).Table, sHiddenFunction)->Start);
}

TEST_F(SymbolCacheTest, PathsThatAreNoModuleFilesAreMissing)
{
    for (const char* path :
         {"", "//anon", "[heap]", "[stack]", "anon_inode:[perf_event]", "/dev/zero", "/memfd:name (deleted)", "/tmp"})
        EXPECT_EQ(LoadResult(path), ESymbolLoadResult::FileMissing) << path;
    EXPECT_EQ(LoadResult(mScratch.Write("font.ttf", "not code")), ESymbolLoadResult::NotElf);
}

TEST_F(SymbolCacheTest, VDSOIsTakenFromThisProcessIfItIsTheSameBuild)
{
    const LoadedSymbols own = Load("[vdso]");
    ASSERT_TRUE(gHasSymbols(own.Result));
    EXPECT_NE(gFindByName(*own.Table, "__vdso_clock_gettime"), nullptr);
    EXPECT_EQ(LoadResult("[vdso]", sOtherID), ESymbolLoadResult::BuildIDMismatch);
}

TEST_F(SymbolCacheTest, ThreadsThatAskAtOnceGetOneTable)
{
    constexpr size_t sNumThreads = 8;
    std::vector<LoadedSymbols> loaded(sNumThreads);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < sNumThreads; ++i)
        threads.emplace_back([&, i] { loaded[i] = Load(i % 2 == 0 ? mFull : mStripped, i % 4 < 2 ? sFixtureID : BuildID()); });
    for (std::thread& thread : threads)
        thread.join();

    for (const LoadedSymbols& symbols : loaded)
        EXPECT_EQ(symbols.Table, loaded[0].Table);
    EXPECT_EQ(mCache.GetNumParsed(), 1u);
}

} // namespace Host
