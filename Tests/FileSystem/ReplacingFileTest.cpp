#include "FileSystem/ReplacingFile.h"

#include "TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string_view>

using testing::ElementsAre;

namespace FileSystem
{
namespace
{

using ReplacingFileTest = TemporaryDirectoryTest;

TEST_F(ReplacingFileTest, TheOldFileStaysUntilTheNewOneIsWhole)
{
    WriteFile("file", "old");
    {
        ReplacingFile file(At("file"));
        ASSERT_TRUE(file.IsOpen());
        file.Write("new", 3);
        EXPECT_EQ(ReadFile("file"), "old");
    }
    EXPECT_EQ(ReadFile("file"), "old");
    EXPECT_THAT(List(""), ElementsAre("file")) << "nobody committed";
    ReplacingFile file(At("file"));
    file.Write("new", 3);
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(ReadFile("file"), "new");
    EXPECT_THAT(List(""), ElementsAre("file"));
}

TEST_F(ReplacingFileTest, AFullDiskLeavesTheOldFile)
{
    WriteFile("file", "old");
    std::filesystem::create_symlink("/dev/full", At("file.new"));
    {
        ReplacingFile file(At("file"));
        ASSERT_TRUE(file.IsOpen());
        file.Write("new", 3);
        EXPECT_FALSE(file.Commit());
    }
    EXPECT_EQ(ReadFile("file"), "old");
    EXPECT_THAT(List(""), ElementsAre("file"));
}

} // namespace
} // namespace FileSystem
