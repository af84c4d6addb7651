#include "FileSystem/Path.h"

#include <gmock/gmock.h>

#include <random>
#include <string>
#include <vector>

using namespace FileSystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::vector<std::string> gSplit(std::string_view inPath)
{
    std::vector<std::string> components = {"left over"};
    gSplitPath(inPath, components);
    return components;
}

TEST(Path, DirectoryAndNameMeetAtTheLastSeparator)
{
    EXPECT_EQ(gGetDirectory("/a/b/c.txt"), "/a/b");
    EXPECT_EQ(gGetDirectory("a\\b/c\\d"), "a\\b/c");
    EXPECT_EQ(gGetDirectory("file"), "");
    EXPECT_EQ(gGetDirectory("/file"), "");
    EXPECT_EQ(gGetDirectory("a/"), "a");
    EXPECT_EQ(gGetFileName("/a/b\\c.txt"), "c.txt");
    EXPECT_EQ(gGetFileName("file"), "file");
    EXPECT_EQ(gGetFileName("a/"), "");
}

TEST(Path, StemIsCutInTheNameAndExtensionInTheWholePath)
{
    EXPECT_EQ(gGetFileStem("/x/a.b.c"), "a.b");
    EXPECT_EQ(gGetFileStem("/x.y/a"), "a");
    EXPECT_EQ(gGetFileStem(".hidden"), "");
    EXPECT_EQ(gGetExtension("a.TXT"), "txt");
    EXPECT_EQ(gGetExtension("a.b.C"), "c");
    EXPECT_EQ(gGetExtension("dir.Old/file"), "old/file");
    EXPECT_EQ(gGetExtension("file"), "");
    EXPECT_EQ(gGetExtension("file."), "");
}

TEST(Path, ChangingPartsKeepsTheOthers)
{
    EXPECT_EQ(gChangeExtension("a", "tmp"), "a.tmp");
    EXPECT_EQ(gChangeExtension("a.session", "tmp"), "a.tmp");
    EXPECT_EQ(gChangeExtension("/x/a.b.c", "tmp"), "/x/a.b.tmp");
    EXPECT_EQ(gChangeExtension("dir.old/file", "tmp"), "dir.tmp");
    EXPECT_EQ(gChangeStem("/x/a.TXT", "b"), "/x/b.txt");
    EXPECT_EQ(gChangeStem("x\\y\\a.txt", "b"), "x/y/b.txt");
    EXPECT_EQ(gChangeStem("a.txt", "b"), "b.txt");
    EXPECT_EQ(gChangeStem("x/a", "b"), "x/b");
    EXPECT_EQ(gChangeFileName("/x/a.txt", "b.dat"), "/x/b.dat");
    EXPECT_EQ(gChangeFileName("a.txt", "b.dat"), "b.dat");
}

TEST(Path, SplittingDropsEmptyPiecesAndKeepsTheRootWithTheFirst)
{
    EXPECT_THAT(gSplit("/a//b\\c/"), ElementsAre("/a", "b", "c"));
    EXPECT_THAT(gSplit("a/b"), ElementsAre("a", "b"));
    EXPECT_THAT(gSplit("///"), ElementsAre("/"));
    EXPECT_THAT(gSplit("/\\a"), ElementsAre("/a"));
    EXPECT_THAT(gSplit("\\a"), ElementsAre("a"));
    EXPECT_THAT(gSplit("\\"), IsEmpty());
    EXPECT_THAT(gSplit(""), IsEmpty());
}

TEST(Path, NormalizingResolvesDots)
{
    EXPECT_EQ(gNormalizePath("a/./b/../c/"), "a/c");
    EXPECT_EQ(gNormalizePath("../a"), "../a");
    EXPECT_EQ(gNormalizePath("../../a/../.."), "../../..");
    EXPECT_EQ(gNormalizePath("a/../.."), "..");
    EXPECT_EQ(gNormalizePath("a/.."), "");
    EXPECT_EQ(gNormalizePath("."), "");
    EXPECT_EQ(gNormalizePath(""), "");
    EXPECT_EQ(gNormalizePath("a/...b/.c"), "a/...b/.c");
}

TEST(Path, NormalizingTakesTheRootWithTheFirstComponentAndJoinsWithTheGivenSeparator)
{
    EXPECT_EQ(gNormalizePath("/"), "/");
    EXPECT_EQ(gNormalizePath("//a//b/"), "/a/b");
    EXPECT_EQ(gNormalizePath("/a/../b"), "b");
    EXPECT_EQ(gNormalizePath("/../a"), "/../a");
    EXPECT_EQ(gNormalizePath("a\\b", '/'), "a/b");
    EXPECT_EQ(gNormalizePath("/a/b/./c", '\\'), "/a\\b\\c");
}

TEST(Path, CombiningPutsOneSeparatorBetween)
{
    EXPECT_EQ(gCombinePath("/a/", "b"), "/a/b");
    EXPECT_EQ(gCombinePath("/a", "/b"), "/a/b");
    EXPECT_EQ(gCombinePath("/a/b", "../c"), "/a/c");
    EXPECT_EQ(gCombinePath("", "b"), "b");
    EXPECT_EQ(gCombinePath("a\\", ""), "a");
    EXPECT_EQ(gCombinePath("a", "./"), "a");
    EXPECT_EQ(gCombinePath("/", "b"), "/b");
    EXPECT_EQ(gCombinePath("/", "/b"), "/b");
    EXPECT_EQ(gCombinePath("", ""), "");
}

TEST(Path, ComparingIgnoresCaseSeparatorsAndOneAtTheEnd)
{
    EXPECT_TRUE(gArePathsEqual("C:\\Data\\A", "c:/data/a/"));
    EXPECT_FALSE(gArePathsEqual("a/b", "a/./b"));
    EXPECT_FALSE(gArePathsEqual("a", "a//"));
    EXPECT_TRUE(gArePathsEqual("", "/"));
    EXPECT_EQ(gGetComparablePath("\xC3\x84\\B"), "\xC3\x84/b") << "only ASCII letters have a case here";
}

TEST(Path, SlashesAndRoots)
{
    EXPECT_EQ(gToForwardSlashes("\\a/b\\"), "/a/b/");
    EXPECT_TRUE(gIsAbsolutePath("/a"));
    EXPECT_FALSE(gIsAbsolutePath("\\a"));
    EXPECT_FALSE(gIsAbsolutePath("C:/a"));
    EXPECT_FALSE(gIsAbsolutePath(""));
}

TEST(Path, NormalPathsStayAsTheyAreAndSplitIntoTheirParts)
{
    const unsigned seed = 99;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string_view letters = "ab./\\";
    for (int step = 0; step < 3000; ++step)
    {
        std::string path(random() % 14, '\0');
        for (char& letter : path)
            letter = letters[random() % letters.size()];
        const std::string normal = gNormalizePath(path);
        ASSERT_EQ(gNormalizePath(normal), normal) << path;
        ASSERT_EQ(gCombinePath("", path), normal) << path;
        ASSERT_EQ(normal.find('\\'), std::string::npos) << path;
        const size_t separator = path.find_last_of("/\\");
        const std::string upToName = separator == std::string::npos ? "" : gGetDirectory(path) + path[separator];
        ASSERT_EQ(upToName + gGetFileName(path), path);
    }
}

} // namespace
