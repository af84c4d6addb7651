#include "FileSystem/File.h"

#include "FileSystem/Path.h"
#include "Tests/FileSystem/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <optional>

using namespace FileSystem;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace
{

class FileTest : public TemporaryDirectoryTest
{
protected:
    // A test may change the current directory and the mask for new files.
    ~FileTest() override
    {
        std::filesystem::current_path(mPathBefore);
        umask(mMaskBefore);
    }

    [[nodiscard]] std::optional<std::string> Read(std::string_view inName) const
    {
        std::vector<uint8_t> bytes = {1, 2, 3};
        if (!gReadFile(At(inName), bytes))
            return std::nullopt;
        return std::string(bytes.begin(), bytes.end());
    }

    [[nodiscard]] std::vector<std::string> GetSubdirectories(const std::string& inPath) const
    {
        std::vector<std::string> paths = {"left over"};
        EXPECT_TRUE(gGetSubdirectories(inPath, "*.txt", paths)) << inPath;
        return paths;
    }

    const std::filesystem::path mPathBefore = std::filesystem::current_path();
    const mode_t mMaskBefore = umask(022);
};

TEST_F(FileTest, FilesAndDirectoriesExistAndHaveASize)
{
    WriteFile("file", "12345");
    uint64_t size = 77;
    EXPECT_FALSE(gGetFileSize(At("absent"), size));
    EXPECT_EQ(size, 77U);
    EXPECT_TRUE(gGetFileSize(At("file"), size));
    EXPECT_EQ(size, 5U);
    EXPECT_TRUE(gExists(At("file")) && gExists(At("")));
    EXPECT_FALSE(gExists(At("absent")) || gExists(At("file/below")) || gExists(""));
    MakeLink("dangling", "absent");
    EXPECT_FALSE(gExists(At("dangling")));
    EXPECT_TRUE(gRename(At("file"), At("renamed")) && gExists(At("renamed")));
    EXPECT_FALSE(gExists(At("file")) || gRename(At("file"), At("renamed")));
}

TEST_F(FileTest, CreatesWhatIsMissingAndLeavesWhatExists)
{
    EXPECT_TRUE(gCreateDirectories(At("a/./b/x/../c//")));
    EXPECT_THAT(List("a/b"), UnorderedElementsAre("c")) << "what the text resolves isn't made";
    SetMode("a/b/c", 0700);
    EXPECT_TRUE(gCreateDirectories(At("a/b/c")));
    EXPECT_EQ(GetMode("a/b/c"), 0700U);
    WriteFile("file");
    EXPECT_TRUE(gCreateDirectories(At("file")));
    std::filesystem::current_path(At(""));
    EXPECT_TRUE(gCreateDirectories("r/s\\t"));
    EXPECT_TRUE(gExists(At("r/s/t")));
}

TEST_F(FileTest, CreatingStopsAtTheFirstFailure)
{
    WriteFile("a/file");
    EXPECT_FALSE(gCreateDirectories(At("a/file/b/c")));
    MakeDirectory("closed");
    SetMode("closed", 0555);
    EXPECT_FALSE(AsOrdinaryUser([&] { return gCreateDirectories(At("closed/b/c")); }));
    EXPECT_THAT(List("closed"), IsEmpty());
}

TEST_F(FileTest, NewDirectoriesAreOpenToTheGroupAndThoseOfRootToOthers)
{
    const mode_t forOthers = geteuid() == 0 ? 06 : 0;
    umask(0);
    EXPECT_TRUE(gCreateDirectories(At("a/b"), sOpenToOthers));
    EXPECT_TRUE(gCreateDirectories(At("closed/b"), 0));
    EXPECT_TRUE(gCreateDirectories(At("absent/../a/c"), sOpenToOthers));
    EXPECT_TRUE(AsOrdinaryUser([&] { return gCreateDirectories(At("user/b"), sOpenToOthers); }));
    EXPECT_EQ(GetMode("a"), 0775U);
    EXPECT_EQ(GetMode("a/b"), 0775U | forOthers);
    EXPECT_EQ(GetMode("a/c"), 0775U | forOthers);
    EXPECT_EQ(GetMode("closed/b"), 0775U);
    EXPECT_EQ(GetMode("user/b"), 0775U);

    umask(077);
    EXPECT_TRUE(gCreateDirectories(At("masked/b")));
    EXPECT_EQ(GetMode("masked"), 0700U);
    EXPECT_EQ(GetMode("masked/b"), 0700U | forOthers);
}

TEST_F(FileTest, ReadsWholeFilesOfEverySize)
{
    for (const size_t size : {0, 1, 65535, 65536, 65537, 300000})
    {
        std::string content(size, '\0');
        for (size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>(i * 7 + i / 256);
        WriteFile("file", content);
        EXPECT_EQ(Read("file"), content) << size;
    }
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(gReadFile("/proc/self/status", bytes));
    EXPECT_FALSE(bytes.empty()) << "a file that doesn't tell its size";
}

TEST_F(FileTest, WhatCannotBeReadIsAFailure)
{
    EXPECT_EQ(Read("absent"), std::nullopt);
    EXPECT_EQ(Read(""), std::nullopt) << "a directory has no bytes";
    WriteFile("secret");
    SetMode("secret", 0);
    EXPECT_EQ(AsOrdinaryUser([&] { return Read("secret"); }), std::nullopt);
}

TEST_F(FileTest, StreamsOpenWithTheirModeAndCanBeReused)
{
    std::ofstream output;
    gOpenWrite(output, At("file"), std::ios::binary);
    output << "first\r\n";
    gOpenWrite(output, At("file"), std::ios::binary | std::ios::app);
    output << "second";
    output.close();

    std::ifstream input;
    gOpenRead(input, At("absent"), std::ios::binary);
    EXPECT_FALSE(input.good());
    gOpenRead(input, At("file"), std::ios::binary | std::ios::ate);
    EXPECT_TRUE(input.good());
    EXPECT_EQ(input.tellg(), 13);
}

TEST_F(FileTest, ListsDirectoriesDirectlyBelowAndNothingElse)
{
    MakeDirectory("a/b/deeper");
    MakeDirectory("a/c.txt");
    MakeDirectory("a/back\\slash");
    WriteFile("a/file.txt");
    MakeLink("a/link", "a/b");
    MakeLink("a/dangling", "absent");
    MakeLink("a/tofile.txt", "a/file.txt");
    const auto expected = UnorderedElementsAre(At("a/b"), At("a/c.txt"), At("a/back\\slash"), At("a/link"));
    EXPECT_THAT(GetSubdirectories(At("a")), expected);
    EXPECT_THAT(GetSubdirectories(At("a/")), expected);
    EXPECT_THAT(GetSubdirectories(At("a/b/deeper")), IsEmpty());
    std::vector<std::string> paths = {"left over"};
    EXPECT_FALSE(gGetSubdirectories(At("absent"), "", paths));
    EXPECT_FALSE(gGetSubdirectories(At("a/file.txt"), "", paths));
    EXPECT_THAT(paths, IsEmpty());
}

TEST_F(FileTest, ListsFromTheCurrentDirectoryWherePathStartsWithADot)
{
    MakeDirectory("a/b");
    MakeDirectory("a/.hidden/c");
    std::filesystem::current_path(At("a"));
    const std::string here = gNormalizePath(std::filesystem::current_path().string());
    EXPECT_THAT(GetSubdirectories(""), UnorderedElementsAre(here + "/b", here + "/.hidden"));
    EXPECT_THAT(GetSubdirectories("."), UnorderedElementsAre(here + "/b", here + "/.hidden"));
    EXPECT_THAT(GetSubdirectories(".hidden"), UnorderedElementsAre(here + "/.hidden/c"));
    EXPECT_THAT(GetSubdirectories(".."), UnorderedElementsAre(here));
    EXPECT_THAT(GetSubdirectories("../a/b"), IsEmpty());
}

} // namespace
