// Writing sessions where something can't be written.
#include "Tests/Session/StoredSession.h"

#include <gmock/gmock.h>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionSaveTest : public StoredSessionTest
{
protected:
    // Whatever is written under the name meets a full disk.
    void FillDisk(const std::string& inName) const { std::filesystem::create_symlink("/dev/full", At("game/" + inName)); }

    // The message of a save that must fail.
    std::string SaveError()
    {
        const size_t numErrors = mErrors.GetEntries().size();
        EXPECT_FALSE(GetSession().SaveSession(mErrors));
        EXPECT_EQ(mErrors.GetEntries().size(), numErrors + 1);
        return mErrors.GetEntries().empty() ? "" : mErrors.GetEntries().back().Message;
    }

    // All names in the session's folder and in the one of the shared model.
    [[nodiscard]] std::vector<std::string> ListAll() const
    {
        std::vector<std::string> names = List("game");
        for (const std::string& name : Exists("Shared") ? List("game/Shared") : std::vector<std::string>())
            names.push_back("Shared/" + name);
        return names;
    }
};

// The session file comes last: one that is there belongs to files that are there.
TEST_F(SessionSaveTest, EachStepComesAfterTheOneBefore)
{
    for (const TraceEvent& event : mFixture.BuildTrace("3 sample A main"))
        StoreEvent(event);
    std::vector<std::string> filesAtSave;
    mFirst.OnCall = [&](const std::string& inCall) { filesAtSave = inCall == "save" ? ListAll() : filesAtSave; };
    mSecond.FailingCall = "save";
    ASSERT_EQ(RunPass(), "finish");
    EXPECT_THAT(filesAtSave, ElementsAre("Shared", "Shared/Model.dat"));
    EXPECT_THAT(TakeCalls(), testing::Contains("first: save"));
    EXPECT_THAT(ListAll(), ElementsAre("Shared", "Shared/Model.dat"));

    mSecond.FailingCall.clear();
    MakeDirectory("game/events.dat");
    EXPECT_THAT(SaveError(), testing::StartsWith("Unable to open event stream " + At("game/events.dat")));
    EXPECT_THAT(TakeCalls(), ElementsAre("second: save")) << "the other one is saved";
    EXPECT_THAT(ListAll(), ElementsAre("Shared", "events.dat", "Shared/Model.dat"));
    Remove("events.dat");

    MakeDirectory("game/CallstackDatabase.dat.new");
    EXPECT_EQ(SaveError(), "Could not open " + At("game/CallstackDatabase.dat") + " for writing");
    EXPECT_THAT(TakeCalls(), IsEmpty());
    EXPECT_THAT(ListAll(), ElementsAre("CallstackDatabase.dat.new", "Shared", "events.dat", "events.index", "Shared/Model.dat"));
    Remove("CallstackDatabase.dat.new");

    EXPECT_TRUE(GetSession().SaveSession(mErrors));
    EXPECT_THAT(ListAll(),
                ElementsAre("CallstackDatabase.dat", "Shared", "events.dat", "events.index", "game.session", "Shared/Model.dat"));
    EXPECT_EQ(GetSession().GetEventStream().GetChunks().size(), 1U);
}

TEST_F(SessionSaveTest, AFullDiskLeavesTheOldSessionWhole)
{
    StoreEvents("3 sample A main");
    ASSERT_EQ(RunPass(), "");
    const std::string stored = Read("game.session");
    const std::string stacks = Read("CallstackDatabase.dat");
    GetSession().GetThread(0)->ThreadName = "renamed";

    FillDisk("game.session.new");
    EXPECT_EQ(SaveError(), "Unable to write file " + GetPath());
    EXPECT_FALSE(Exists("game.session.new"));
    FillDisk("CallstackDatabase.dat.new");
    EXPECT_EQ(SaveError(), "Could not write to " + At("game/CallstackDatabase.dat"));
    EXPECT_EQ(Read("CallstackDatabase.dat"), stacks);

    FillDisk("Shared/Model.dat.new");
    EXPECT_EQ(SaveError(), "Unable to write file " + At("game/Shared/Model.dat"));
    EXPECT_EQ(Read("game.session"), stored);
    EXPECT_NE(Load(), nullptr) << Utility::GetErrorText(mLoadErrors);
}

TEST_F(SessionSaveTest, AFolderThatCanNotBeWrittenLeavesTheOldSessionWhole)
{
    ASSERT_EQ(RunPass(), "");
    const Files stored = ReadFiles();
    GetSession().GetThread(0)->ThreadName = "renamed";
    SetMode("game", 0555);
    SetMode("game/Shared", 0777);
    SetMode("game/Shared/Model.dat", 0666);
    EXPECT_EQ(AsOrdinaryUser([this] { return SaveError(); }),
              "Could not open " + At("game/CallstackDatabase.dat") + " for writing");
    SetMode("game", 0755);
    EXPECT_EQ(ReadFiles(), stored);

    Remove("Shared");
    Write("Shared", "a file in the place of the folder");
    EXPECT_EQ(SaveError(), "Unable to open file " + At("game/Shared/Model.dat") + " for writing");
    Remove("Shared");
    SetMode("game", 0555);
    EXPECT_EQ(AsOrdinaryUser([this] { return SaveError(); }), "Could not model path " + At("game/Shared"));
    EXPECT_EQ(Read("game.session"), stored.at("game.session"));
}

TEST_F(SessionSaveTest, ASaveAheadOfTheRebuildLeavesNothingThatIsTrusted)
{
    mFirst.IsLoadable = mSecond.IsLoadable = true;
    StoreEvents("3 sample A main");
    BuildBrokenStackIndex();
    ASSERT_EQ(RunPass(), "");
    ASSERT_NE(Load(), nullptr);
    ASSERT_EQ(mFlags, NothingToReprocess);
    Remove("Shared/Model.dat");
    EXPECT_TRUE(Load()->SaveSession(mErrors));
    EXPECT_NE(Load(), nullptr);
    EXPECT_EQ(mFlags, ReprocessAllModels);
}

TEST_F(SessionSaveTest, ModelsThatWaitForTheirRebuildAreNotTrustedWithNewRanges)
{
    mFirst.IsLoadable = mSecond.IsLoadable = true;
    StoreEvents("3 sample A main");
    BuildBrokenStackIndex();
    ASSERT_EQ(RunPass(), "");
    Remove("stacks.index");
    const std::unique_ptr<Session> session = Load();
    ASSERT_NE(session, nullptr);
    ASSERT_EQ(mFlags, RebuildBrokenStacks | ReprocessAllModels);
    EXPECT_TRUE(session->BuildBrokenStackIndex(mRegistry, mErrors, mIsCanceled, {})) << Utility::GetErrorText(mErrors);
    EXPECT_NE(Load(), nullptr);
    EXPECT_EQ(mFlags, ReprocessAllModels);

    // A pass over some of them doesn't make up for the others, not even when their own was broken off. All together do.
    mIsCanceled = true;
    EXPECT_FALSE(Reprocess(*session));
    mIsCanceled = false;
    const std::vector<Model*> models = session->GetModels();
    for (Model* model : models)
    {
        EXPECT_TRUE(session->BeginProcessing({model}, mErrors));
        EXPECT_TRUE(session->ProcessEvents(mErrors, mIsCanceled, {}));
        EXPECT_TRUE(session->FinishPass(false, mErrors, mIsCanceled));
        EXPECT_NE(Load(), nullptr);
        EXPECT_EQ(mFlags, model == models.front() ? ReprocessAllModels : NothingToReprocess);
    }
}

TEST_F(SessionSaveTest, ANewSessionMakesItsFolders)
{
    Remove("");
    EXPECT_TRUE(GetSession().SaveSession(mErrors)) << "ahead of any pass";
    EXPECT_NE(Load(), nullptr) << Utility::GetErrorText(mLoadErrors);
    Remove("");
    EXPECT_EQ(RunPass(), "") << Utility::GetErrorText(mErrors);
    EXPECT_NE(Load(), nullptr) << Utility::GetErrorText(mLoadErrors);
}

} // namespace
