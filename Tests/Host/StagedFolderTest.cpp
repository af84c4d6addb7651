#include "Host/CommandLine/StagedFolder.h"

#include "Tests/FileSystem/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <memory>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class StagedFolderTest : public TemporaryDirectoryTest
{
protected:
    [[nodiscard]] std::string GetMessage() const
    {
        return mErrors.GetEntries().empty() ? "" : mErrors.GetEntries().back().Message;
    }

    // Makes the folder with one file in it.
    std::unique_ptr<StagedFolder> Make(const std::string& inContent)
    {
        auto folder = std::make_unique<StagedFolder>(At("folder"));
        EXPECT_TRUE(folder->Make(mErrors)) << GetMessage();
        EXPECT_EQ(folder->GetStagingPath(), At("folder.unfinished"));
        WriteFile("folder.unfinished/" + inContent);
        return folder;
    }

    Utility::ErrorState mErrors;
};

TEST_F(StagedFolderTest, IsThereAllAtOnceOrNotAtAll)
{
    Make("dropped");
    EXPECT_THAT(List(""), IsEmpty());

    std::unique_ptr<StagedFolder> folder = Make("file");
    EXPECT_THAT(List(""), ElementsAre("folder.unfinished"));
    EXPECT_TRUE(folder->Commit(false, mErrors));
    EXPECT_THAT(List(""), ElementsAre("folder"));
    folder.reset();
    EXPECT_THAT(List("folder"), ElementsAre("file"));
}

TEST_F(StagedFolderTest, AFolderMakesWayOnDemandOnly)
{
    std::unique_ptr<StagedFolder> folder = Make("new");
    WriteFile("folder/old");
    EXPECT_FALSE(folder->Commit(false, mErrors)) << "it came while the other one was written";
    EXPECT_EQ(GetMessage(), "Unable to move " + At("folder.unfinished") + " to " + At("folder") + ": File exists");
    EXPECT_THAT(List("folder"), ElementsAre("old"));
    EXPECT_TRUE(folder->Commit(true, mErrors));
    EXPECT_THAT(List("folder"), ElementsAre("new"));
    EXPECT_THAT(List(""), ElementsAre("folder"));

    std::filesystem::remove_all(At("folder"));
    EXPECT_TRUE(Make("first")->Commit(true, mErrors)) << "nothing is there to be replaced";
    EXPECT_THAT(List("folder"), ElementsAre("first"));
}

TEST_F(StagedFolderTest, OnlyLeftoversAreCleared)
{
    WriteFile("folder.unfinished/left/over");
    const std::unique_ptr<StagedFolder> folder = Make("file");
    EXPECT_THAT(List("folder.unfinished"), ElementsAre("file"));
    {
        StagedFolder other(At("folder"));
        EXPECT_FALSE(other.Make(mErrors));
        EXPECT_EQ(GetMessage(), "Another program is writing to " + At("folder.unfinished"));
    }
    EXPECT_THAT(List("folder.unfinished"), ElementsAre("file")) << "what another one writes stays";
}

TEST_F(StagedFolderTest, WhatIsInTheWayIsLeftAlone)
{
    WriteFile("folder.unfinished", "a file");
    {
        StagedFolder folder(At("folder"));
        EXPECT_FALSE(folder.Make(mErrors));
        EXPECT_EQ(GetMessage(), "Unable to make the folder " + At("folder.unfinished") + ": Not a directory");
    }
    std::filesystem::remove(At("folder.unfinished"));
    WriteFile("target/file");
    MakeLink("folder.unfinished", "target");
    {
        StagedFolder folder(At("folder"));
        EXPECT_FALSE(folder.Make(mErrors));
    }
    EXPECT_THAT(List("target"), ElementsAre("file"));
    EXPECT_THAT(List(""), ElementsAre("folder.unfinished", "target"));

    MakeDirectory("locked");
    SetMode("locked", 0555);
    EXPECT_FALSE(AsOrdinaryUser([&] { return StagedFolder(At("locked/folder")).Make(mErrors); }));
    EXPECT_EQ(GetMessage(), "Unable to make the folder " + At("locked/folder.unfinished") + ": Permission denied");
}

} // namespace
} // namespace Host
