// Whole passes of a session, and what the models see of them.
#include "Session/SharedModel.h"
#include "Tests/Session/StoredSession.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <utility>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

class SessionPassTest : public StoredSessionTest
{
protected:
    // Cancels when a model gets the call.
    void CancelAt(FakeModelPlugin& inPlugin, const std::string& inCall)
    {
        inPlugin.OnCall = [this, inCall](const std::string& inReceived) { mIsCanceled = mIsCanceled || inReceived == inCall; };
    }

    // A stored session whose models can't be loaded. Ends the test if the session can't.
    std::unique_ptr<Session> StoreAndLoad(const std::string& inTrace)
    {
        StoreEvents(inTrace);
        BuildBrokenStackIndex();
        EXPECT_EQ(RunPass(), "") << Utility::GetErrorText(mErrors);
        std::unique_ptr<Session> session = LoadWhole();
        TakeCalls();
        return session;
    }

    // Nothing that a later load would trust.
    void ExpectASaveWithoutModels()
    {
        TakeCalls();
        EXPECT_TRUE(GetSession().SaveSession(mErrors));
        EXPECT_THAT(TakeCalls(), IsEmpty());
        EXPECT_FALSE(Exists("Shared/Model.dat"));
    }

    // Without the calls about bars and threads.
    CallList TakeEventCalls()
    {
        CallList calls = TakeCalls();
        std::erase_if(calls, [](const std::string& inCall) { return inCall.find(": event") == std::string::npos; });
        return calls;
    }
};

TEST_F(SessionPassTest, ANewCaptureRunsTheWholePass)
{
    StoreEvents("3 sample A main");
    ASSERT_EQ(RunPass(), "") << Utility::GetErrorText(mErrors);
    EXPECT_THAT(TakeCalls(),
                ElementsAre("first: make", "first: prepare", "second: make", "second: prepare", "first: begin", "second: begin",
                            "first: create 0", "second: create 0", "first: event 0 at 3", "second: event 0 at 3",
                            "first: bars 0 keep 0 of 1", "second: bars 0 keep 0 of 1", "first: finish thread 0",
                            "second: finish thread 0", "first: finish", "second: finish", "first: save", "second: save"));
    EXPECT_THAT(GetSession().GetModels(), ElementsAre(GetSession().GetModel({{1}}), GetSession().GetModel({{2}})));
    EXPECT_EQ(GetSession().GetModel({{3}}), nullptr);
}

TEST_F(SessionPassTest, ACallThatFailsEndsThePassUnsaved)
{
    StoreEvents("3 sample A main");
    const std::pair<std::string, std::string> failures[] = {{"prepare", "create"}, {"begin", "begin"},
                                                            {"event", "process"},  {"finish thread", "finish"},
                                                            {"finish", "finish"},  {"save", "finish"}};
    for (const auto& [call, step] : failures)
    {
        SCOPED_TRACE(call);
        mFirst.FailingCall = call;
        EXPECT_EQ(RunPass(), step);
        const std::string last = TakeCalls().back();
        EXPECT_EQ(last.substr(0, call.size() + 7), "first: " + call);
        EXPECT_FALSE(Exists("game.session"));
        EXPECT_EQ(GetSession().GetModels().size(), call == "prepare" ? 0U : 2U);
    }
    mFirst.FailingCall.clear();
    EXPECT_EQ(RunPass(), "") << "what a failed pass has left is gone";
}

TEST_F(SessionPassTest, TheModelThatCanNotBePreparedIsDropped)
{
    mSecond.FailingCall = "prepare";
    EXPECT_EQ(RunPass(), "create");
    EXPECT_THAT(GetSession().GetModels(), ElementsAre(testing::Property(&Model::GetPlugin, testing::Ref(mFirst))));

    Write("Shared/below/file", "");
    SetMode("game/Shared/below", 0555);
    EXPECT_FALSE(AsOrdinaryUser([&] { return GetSession().CreateModels(mErrors); }));
    EXPECT_THAT(GetSession().GetModels(), IsEmpty());
    EXPECT_EQ(mErrors.GetEntries().back().Message, "Access to " + At("game/Shared/below/file") + " was denied");
}

// --- Cancellation ---

TEST_F(SessionPassTest, ACancellationEndsTheEvents)
{
    StoreEvents("3 sample A main\n4 sample A main\n5 sample A main");
    mIsCanceled = true;
    EXPECT_EQ(RunPass(), "process");
    EXPECT_THAT(TakeEventCalls(), IsEmpty());

    mIsCanceled = false;
    CancelAt(mSecond, "event 0 at 4");
    EXPECT_EQ(RunPass(), "process");
    EXPECT_EQ(TakeEventCalls().back(), "second: event 0 at 4");
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());
    EXPECT_FALSE(Exists("game.session"));
    ExpectASaveWithoutModels();
}

TEST_F(SessionPassTest, ACancellationWhileFinishingLeavesTheSessionUnsaved)
{
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main");
    Remove("game.session");
    CancelAt(mFirst, "finish");
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_EQ(TakeCalls().back(), "second: finish canceled");
    EXPECT_FALSE(Exists("game.session"));
    EXPECT_TRUE(session->SaveSession(mErrors));
    EXPECT_THAT(TakeCalls(), IsEmpty()) << "half-built models aren't saved by a later call either";

    Remove("game.session");
    mIsCanceled = false;
    EXPECT_EQ(RunPass(), "");
    EXPECT_EQ(TakeCalls().back(), "second: finish canceled");
    EXPECT_FALSE(Exists("game.session"));
    EXPECT_THAT(List("game/Shared"), IsEmpty());
    ExpectASaveWithoutModels();
}

TEST_F(SessionPassTest, ACanceledReprocessFinishesNothing)
{
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main\n4 sample A main");
    const std::string stored = Read("game.session");
    const LogCapture log;
    CancelAt(mSecond, "event 0 at 3");
    EXPECT_FALSE(Reprocess(*session));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: prepare", "second: prepare", "first: begin", "second: begin", "first: create 0",
                                         "second: create 0", "first: event 0 at 3", "second: event 0 at 3"));
    EXPECT_THAT(session->GetModelsToReprocess(), IsEmpty());
    EXPECT_FALSE(Exists("Shared/Model.dat")) << "the next load has to rebuild the models";
    ASSERT_EQ(log.GetMessages().size(), 1U);
    EXPECT_THAT(log.GetMessages()[0], HasSubstr("finishing time: 0.000000)"));

    // Half-built models aren't saved by a later call either.
    mIsCanceled = false;
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeCalls(), IsEmpty());
}

// --- Which events, which models ---

TEST_F(SessionPassTest, OnlyAReprocessDropsEventsOfOtherProcesses)
{
    GetSession().AddNonCapturedProcess(5, "other", "", true, nullptr, 0.0, 0.0);
    StoreEvent({1.0, 0, 7, StackOnlyEvent{}});
    StoreEvent({2.0, gMakeCapturedProcessID(9), 8, StackOnlyEvent{}});
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main");
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeEventCalls(), ElementsAre("first: event 0 at 3", "second: event 0 at 3"));

    ASSERT_EQ(RunPass(), "");
    EXPECT_THAT(TakeEventCalls(), ElementsAre("first: event 7 at 1", "second: event 7 at 1", "first: event 8 at 2",
                                              "second: event 8 at 2", "first: event 0 at 3", "second: event 0 at 3"));
}

TEST_F(SessionPassTest, ThreadsThatNoListKnowsHaveBarsAndStayOutOfTheLists)
{
    mFirst.IsLoadable = true;
    const std::unique_ptr<Session> session =
        StoreAndLoad("1 sample 77 main\n2 sample -1 main\n3 name 77 unheard-of\n5 exit 77 0");
    const auto matcher = ElementsAre("second: prepare", "second: begin", "second: create 77", "second: event 77 at 1",
                                     "second: create -1", "second: event -1 at 2", "second: event 77 at 3",
                                     "second: event 77 at 5", "second: bars 77 keep 0 of 1", "second: finish thread 77",
                                     "second: bars -1 keep 0 of 1", "second: finish thread -1", "second: finish", "second: save");
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeCalls(), matcher);
    EXPECT_EQ(GetSession().GetThreadList().size(), 2U);
    EXPECT_EQ(session->GetThreadList().size(), 2U);
}

TEST_F(SessionPassTest, AReprocessTranslatesProcesses)
{
    StoreEvent({1.0, 500, 0, StackOnlyEvent{}});
    StoreEvent({2.0, gMakeCapturedProcessID(0), 0, StackOnlyEvent{}});
    const std::unique_ptr<Session> session = StoreAndLoad("");
    session->GetProcess(gMakeCapturedProcessID(0))->ID = 500;
    session->RebuildProcessCompatibilityMap();
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeEventCalls(), ElementsAre("first: event 0 at 1", "second: event 0 at 1"));
}

TEST_F(SessionPassTest, OnlyThePassOfANewCaptureLearnsAboutThreads)
{
    const std::unique_ptr<Session> session = StoreAndLoad("3 name A Renderer");
    EXPECT_EQ(GetSession().GetThread(0)->ThreadName, "Renderer");
    session->GetThread(0)->ThreadName = "told by the user";
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_EQ(session->GetThread(0)->ThreadName, "told by the user");
}

TEST_F(SessionPassTest, AReprocessWithNothingToRebuildReadsNoEventAndSaves)
{
    mFirst.IsLoadable = mSecond.IsLoadable = true;
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main");
    ASSERT_THAT(session->GetModelsToReprocess(), IsEmpty());
    Write("events.dat", "nothing that can be read");
    Remove("game.session");
    const LogCapture log;
    EXPECT_TRUE(Reprocess(*session)) << Utility::GetErrorText(mErrors);
    EXPECT_THAT(TakeCalls(), IsEmpty()) << "a loaded model has nothing to save";
    EXPECT_TRUE(Exists("game.session"));
    ASSERT_EQ(log.GetMessages().size(), 1U);
    EXPECT_THAT(
        log.GetMessages()[0],
        testing::MatchesRegex("Reprocessing finished after [0-9.]+ seconds \\(processing time: [0-9.]+, IO time: 0.000000, "
                              "finishing time: [0-9.]+\\)"));
}

TEST_F(SessionPassTest, AReprocessRebuildsWhatCouldNotBeLoaded)
{
    mFirst.IsLoadable = true;
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main");
    Write("Shared/old", "");
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_THAT(TakeCalls(),
                ElementsAre("second: prepare", "second: begin", "second: create 0", "second: event 0 at 3",
                            "second: bars 0 keep 0 of 1", "second: finish thread 0", "second: finish", "second: save"));
    EXPECT_THAT(List("game/Shared"), ElementsAre("Model.dat"));
    EXPECT_TRUE(session->SaveSession(mErrors));
    EXPECT_THAT(TakeCalls(), IsEmpty()) << "a model is saved once";
}

TEST_F(SessionPassTest, AReprocessThatCanNotBeginCanBeTriedAgain)
{
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main");
    const LogCapture log;
    for (const char* call : {"prepare", "begin"})
    {
        mSecond.FailingCall = call;
        EXPECT_FALSE(Reprocess(*session));
        EXPECT_EQ(session->GetModelsToReprocess().size(), 2U);
    }
    EXPECT_THAT(log.GetMessages(), IsEmpty());
    mSecond.FailingCall = "finish";
    EXPECT_FALSE(Reprocess(*session));
    EXPECT_THAT(session->GetModelsToReprocess(), IsEmpty());
    EXPECT_EQ(log.GetMessages().size(), 1U);
}

TEST_F(SessionPassTest, StoppingReachesTheModels)
{
    ASSERT_EQ(RunPass(), "");
    TakeCalls();
    GetSession().StopProcessing();
    EXPECT_THAT(TakeCalls(), ElementsAre("first: stop", "second: stop"));
    Session::StopProcessing({GetSession().GetModels()[1]});
    EXPECT_THAT(TakeCalls(), ElementsAre("second: stop"));
}

// --- Progress and damage ---

TEST_F(SessionPassTest, ProgressIsToldAHundredTimesAtMost)
{
    for (int i = 0; i < 1000; ++i)
        StoreEvent({1.0 + i, gMakeCapturedProcessID(0), 0, StackOnlyEvent{}});
    const std::unique_ptr<Session> session = StoreAndLoad("");
    std::vector<float> fractions;
    mProgress = [&fractions](float inFraction) { fractions.push_back(inFraction); };
    for (const bool isReprocess : {true, false})
    {
        fractions.clear();
        EXPECT_TRUE(isReprocess ? Reprocess(*session) : RunPass().empty());
        EXPECT_EQ(fractions.size(), 100U);
        EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
        EXPECT_FLOAT_EQ(fractions.front(), 0.01F);
        EXPECT_FLOAT_EQ(fractions.back(), 1.0F);
    }
}

TEST_F(SessionPassTest, DamagedEventsFailThePass)
{
    const std::unique_ptr<Session> session = StoreAndLoad("3 sample A main\n4 sample A main");
    const std::string events = Read("events.dat");
    Write("events.dat", events.substr(0, events.size() - 1));
    Remove("game.session");
    EXPECT_FALSE(Reprocess(*session));
    EXPECT_EQ(RunPass(), "process");
    ASSERT_EQ(mErrors.GetEntries().size(), 2U);
    EXPECT_THAT(mErrors.GetEntries()[0].Message, HasSubstr("events.dat"));
    EXPECT_FALSE(Exists("game.session"));
}

// --- The end of a pass ---

TEST_F(SessionPassTest, ThreadsAreCompletedAtTheEnd)
{
    GetSession().GetSessionInfo().SessionEndTimeMs = 100.0;
    GetSession().AddThread(gMakeCapturedProcessID(0), 1, "", 0.0, 0.0);
    StoreEvents("3 exit B 0\n4 sample A main");
    ASSERT_EQ(RunPass(), "");
    const std::vector<Thread>& threads = GetSession().GetThreadList();
    EXPECT_THAT(threads,
                ElementsAre(Field(&Thread::EndTimeMs, 100.0), Field(&Thread::EndTimeMs, 3.0), Field(&Thread::EndTimeMs, 100.0)));
    EXPECT_EQ(threads[0].ThreadName, "A");
    EXPECT_EQ(threads[2].ThreadName, "Unnamed");
}

TEST_F(SessionPassTest, TheSymbolSettingsAreThoseOfThePassUnlessKept)
{
    mFixture.GetPlatform().SymbolSettingsHash = 77;
    ASSERT_EQ(RunPass(), "");
    EXPECT_EQ(GetSession().GetSessionInfo().SymbolSettingsHash, 77U);
    mFixture.GetPlatform().SymbolSettingsHash = 88;
    EXPECT_TRUE(Reprocess(GetSession(), true));
    EXPECT_EQ(GetSession().GetSessionInfo().SymbolSettingsHash, 77U);
    EXPECT_TRUE(Reprocess(GetSession(), false));
    EXPECT_EQ(GetSession().GetSessionInfo().SymbolSettingsHash, 88U);
}

TEST_F(SessionPassTest, FiberStatesAreStoredAndEmptyAtTheNextPass)
{
    std::unique_ptr<Session> session = StoreAndLoad("3 begin A main Job\n4 fiber-out A 7");
    EXPECT_EQ(GetSession().GetSharedModel()->GetFiberState().GetNumStates(), 1U);
    const std::unique_ptr<SharedModel> stored = session->LoadSharedModel(mRegistry, mLoadErrors);
    ASSERT_NE(stored, nullptr) << Utility::GetErrorText(mLoadErrors);
    EXPECT_EQ(stored->GetFiberState().GetNumStates(), 1U);
    EXPECT_EQ(&stored->GetSession(), session.get());

    // Models that have to be rebuilt start from nothing, and a pass of the same events ends in the same.
    EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 0U);
    EXPECT_TRUE(Reprocess(*session));
    EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 1U);

    mFirst.IsLoadable = mSecond.IsLoadable = true;
    session = Load();
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 1U);
    // A host without models has nothing to rebuild, and leaves what is stored.
    std::vector<ModelPlugin*> withoutModels;
    mFixture.GetPluginManager().ModelPlugins.swap(withoutModels);
    session = Load();
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(Reprocess(*session));
    mFixture.GetPluginManager().ModelPlugins.swap(withoutModels);
    session = Load();
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->GetSharedModel()->GetFiberState().GetNumStates(), 1U);

    ASSERT_TRUE(GetSession().CreateModels(mErrors));
    EXPECT_EQ(GetSession().GetSharedModel()->GetFiberState().GetNumStates(), 0U);
    EXPECT_THAT(List("game/Shared"), IsEmpty());
}

} // namespace
