#include "FileSystem/Delete.h"

#include "FileSystem/File.h"
#include "Tests/FileSystem/TemporaryDirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

using namespace FileSystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class DeleteTest : public TemporaryDirectoryTest
{
protected:
    EDeleteResult Delete(std::string_view inName) { return gDeleteDirectory(At(inName), mErrors); }
    EDeleteResult DeleteContents(std::string_view inName) { return gDeleteDirectoryContents(At(inName), mErrors); }

    [[nodiscard]] std::vector<std::string> GetMessages() const
    {
        std::vector<std::string> messages;
        for (const Utility::ErrorEntry& entry : mErrors.GetEntries())
        {
            EXPECT_EQ(entry.Code, 0U);
            messages.push_back(entry.Message);
        }
        return messages;
    }

    Utility::ErrorState mErrors;
};

TEST_F(DeleteTest, DeletesFilesAndCountsAbsentOnesAsDeleted)
{
    WriteFile("file");
    EXPECT_EQ(gDeleteFile(At("file")), EDeleteResult::Success);
    EXPECT_FALSE(gExists(At("file")));
    EXPECT_EQ(gDeleteFile(At("file")), EDeleteResult::Success);
    EXPECT_EQ(gDeleteFile(At("no/such/directory")), EDeleteResult::Success);
    EXPECT_EQ(gDeleteFile(""), EDeleteResult::Success);
    MakeDirectory("directory");
    EXPECT_EQ(gDeleteFile(At("directory")), EDeleteResult::Error);
}

TEST_F(DeleteTest, DeletesATreeOrItsContents)
{
    for (const std::string name : {"a/file", "a/.hidden", "a/b/c/file", "a/b/d/file", "beside"})
        WriteFile(name);
    MakeDirectory("a/empty");
    EXPECT_EQ(DeleteContents("a"), EDeleteResult::Success);
    EXPECT_THAT(List("a"), IsEmpty());
    WriteFile("a/b/file");
    EXPECT_EQ(Delete("a"), EDeleteResult::Success);
    EXPECT_THAT(List(""), ElementsAre("beside"));
    EXPECT_THAT(GetMessages(), IsEmpty());
}

TEST_F(DeleteTest, LinksAreDeletedAndNotFollowed)
{
    WriteFile("kept/file");
    MakeDirectory("a/b");
    MakeLink("a/link", "kept");
    MakeLink("a/b/link", "a");
    MakeLink("a/dangling", "absent");
    EXPECT_EQ(Delete("a"), EDeleteResult::Success);
    EXPECT_THAT(GetMessages(), IsEmpty());
    EXPECT_THAT(List(""), ElementsAre("kept"));
    EXPECT_THAT(List("kept"), ElementsAre("file"));
}

TEST_F(DeleteTest, DirectoryBehindALinkKeepsItsContents)
{
    WriteFile("kept/file");
    MakeLink("link", "kept");
    EXPECT_EQ(Delete("link"), EDeleteResult::Error);
    EXPECT_EQ(Delete("link//"), EDeleteResult::Error);
    EXPECT_THAT(List("kept"), ElementsAre("file"));
    EXPECT_EQ(GetMessages().size(), 2U);

    EXPECT_EQ(DeleteContents("link"), EDeleteResult::Success) << "here the link only leads to the directory that is meant";
    EXPECT_THAT(List(""), ElementsAre("kept", "link"));
    EXPECT_THAT(List("kept"), IsEmpty());
}

TEST_F(DeleteTest, WhatIsNoDirectoryAndWhatCannotBeRemovedIsTold)
{
    WriteFile("file");
    EXPECT_EQ(Delete("absent"), EDeleteResult::Success);
    EXPECT_EQ(DeleteContents("absent"), EDeleteResult::Success);
    EXPECT_EQ(Delete("file/below"), EDeleteResult::Success);
    EXPECT_THAT(GetMessages(), IsEmpty());
    EXPECT_EQ(Delete("file"), EDeleteResult::Error);
    EXPECT_EQ(DeleteContents("file"), EDeleteResult::Error);
    EXPECT_TRUE(gExists(At("file")));
    WriteFile("a/file");
    EXPECT_EQ(Delete("a/."), EDeleteResult::Error) << "the system doesn't remove a directory by this name";
    const std::string message = "An unknown error occurred while deleting directory " + At("file");
    EXPECT_THAT(GetMessages(), ElementsAre(message, message, "Could not delete directory " + At("a/.")));
    EXPECT_THAT(List("a"), IsEmpty());
}

TEST_F(DeleteTest, DeniedAccessIsToldOfDirectoriesAndFiles)
{
    MakeDirectory("unreadable");
    SetMode("unreadable", 0);
    WriteFile("readonly/b/file");
    SetMode("readonly/b", 0555);

    EXPECT_EQ(AsOrdinaryUser([&] { return Delete("unreadable"); }), EDeleteResult::AccessDenied);
    EXPECT_EQ(AsOrdinaryUser([&] { return DeleteContents("readonly"); }), EDeleteResult::AccessDenied);
    EXPECT_EQ(AsOrdinaryUser([&] { return gDeleteFile(At("readonly/b/file")); }), EDeleteResult::AccessDenied);
    EXPECT_THAT(GetMessages(), ElementsAre("Access to " + At("unreadable") + " was denied",
                                           "Access to " + At("readonly/b/file") + " was denied"));
    SetMode("readonly/b", 0755);
}

TEST_F(DeleteTest, DeniedRemovalOfTheDirectoryItselfIsToldApart)
{
    MakeDirectory("parent/empty");
    SetMode("parent", 0555);
    EXPECT_EQ(AsOrdinaryUser([&] { return Delete("parent/empty"); }), EDeleteResult::AccessDenied);
    EXPECT_EQ(AsOrdinaryUser([&] { return Delete("parent"); }), EDeleteResult::AccessDenied);
    const std::string message = "Access to directory " + At("parent/empty") + " was denied";
    EXPECT_THAT(GetMessages(), ElementsAre(message, message)) << "the failure of an entry ends the walk with its own words";
    SetMode("parent", 0755);
}

TEST_F(DeleteTest, LongPathsAndDeepTreesAreDeleted)
{
    const size_t longestPath = 4000;
    std::string wide = At("wide");
    while (wide.size() + 200 < longestPath)
        wide += '/' + std::string(180, 'w');
    std::string deep = At("deep");
    for (int level = 0; level < 200; ++level)
        deep += "/d";
    ASSERT_TRUE(gCreateDirectories(wide) && gCreateDirectories(deep));

    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(Delete("wide"), EDeleteResult::Success);
    EXPECT_EQ(Delete("deep"), EDeleteResult::Success) << "a tree may be deeper than files can be open";
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(GetMessages(), IsEmpty());
    EXPECT_THAT(List(""), IsEmpty());
}

TEST_F(DeleteTest, FileWhosePathIsTooLongIsTold)
{
    std::string directory = At("a");
    while (directory.size() < 3900)
        directory += '/' + std::string(100, 'd');
    ASSERT_TRUE(gCreateDirectories(directory));
    const std::string name(250, 'f');
    const int parent = open(directory.c_str(), O_RDONLY | O_DIRECTORY);
    close(openat(parent, name.c_str(), O_CREAT | O_WRONLY, 0600));

    EXPECT_EQ(Delete("a"), EDeleteResult::Error);
    EXPECT_THAT(GetMessages(), ElementsAre("Could not delete file " + directory + '/' + name));
    EXPECT_EQ(unlinkat(parent, name.c_str(), 0), 0);
    close(parent);
}

} // namespace
