// Events that don't go together with what a session knows, through whole passes: of a new capture, and of the stored one.
#include "Tests/Session/OpenBarFixture.h"
#include "Tests/Session/StoredSession.h"

#include <gmock/gmock.h>

namespace
{

using namespace Profiler;
using testing::ElementsAre;

class OddEventsPassTest : public StoredSessionTest
{
protected:
    static constexpr ProcessID sGame = gMakeCapturedProcessID(0);

    OddEventsPassTest() { mFixture.GetPluginManager().ModelPlugins = {&mFirst}; }

    // What the model is told of events and bars by the pass over the stored events. The pass of the loaded session tells the
    // same.
    CallList RunPasses()
    {
        EXPECT_TRUE(GetSession().GetEventStream().FlushStream(mErrors));
        BuildBrokenStackIndex();
        EXPECT_EQ(RunPass(), "") << Utility::GetErrorText(mErrors);
        const CallList calls = TakeToldCalls();
        const std::unique_ptr<Session> session = Load();
        EXPECT_NE(session, nullptr) << Utility::GetErrorText(mLoadErrors);
        if (session == nullptr)
            return {};
        EXPECT_EQ(session->GetThreadList().size(), GetSession().GetThreadList().size());
        TakeCalls();
        EXPECT_TRUE(Reprocess(*session)) << Utility::GetErrorText(mErrors);
        EXPECT_EQ(TakeToldCalls(), calls);
        return calls;
    }

private:
    CallList TakeToldCalls()
    {
        CallList told;
        for (const std::string& call : TakeCalls())
            if (call.find(": event") != std::string::npos || call.find(": bars") != std::string::npos ||
                call.find(": finish thread") != std::string::npos)
                told.push_back(call.substr(call.find(": ") + 2));
        return told;
    }
};

// They get bars like any others, and stay out of the lists.
TEST_F(OddEventsPassTest, ThreadsThatNoListKnowsHaveBars)
{
    const CallstackKey stack = mFixture.Intern("main;work");
    StoreEvent({1.0, sGame, 77, SampleEvent{stack}});
    StoreEvent({2.0, sGame, -1, SampleEvent{stack}});
    StoreEvent({3.0, sGame, 77, ThreadNameEvent{"unheard of"}});
    StoreEvent({4.0, sGame, 0, SampleEvent{stack}});
    StoreEvent({5.0, sGame, 77, ThreadEndEvent{0}});
    EXPECT_THAT(RunPasses(), ElementsAre("event 77 at 1", "event -1 at 2", "event 77 at 3", "event 0 at 4", "event 77 at 5",
                                         "bars 77 keep 0 of 2", "finish thread 77", "bars -1 keep 0 of 2", "finish thread -1",
                                         "bars 0 keep 0 of 2", "finish thread 0"));
    EXPECT_EQ(GetSession().GetThreadList().size(), 2U);
}

// Key 0 is the stack without frames: nothing is known of where the thread was, as for an event without a stack.
TEST_F(OddEventsPassTest, TheStackWithoutFramesIsNoStack)
{
    const CallstackKey stack = mFixture.Intern("main;work");
    ASSERT_EQ(mFixture.Intern("empty"), 0U);
    StoreEvent({1.0, sGame, 0, SampleEvent{stack}});
    StoreEvent({2.0, sGame, 0, SampleEvent{0}});
    StoreEvent({3.0, sGame, 0, ContextSwitchOutEvent{6}});
    StoreEvent({4.0, sGame, 0, ContextSwitchInEvent{0}});
    StoreEvent({5.0, sGame, 0, ReadyThreadEvent{0, sGame, 1}});
    StoreEvent({6.0, sGame, 0, StackOnlyEvent{0}});
    StoreEvent({7.0, sGame, 0, SampleEvent{stack}});
    EXPECT_THAT(RunPasses(), ElementsAre("event 0 at 1", "event 0 at 2", "event 0 at 3", "event 0 at 4", "event 0 at 5",
                                         "event 0 at 6", "event 0 at 7", "bars 0 keep 0 of 2", "finish thread 0"))
        << "the bars go on";
}

// Another module takes the place of one whose frames the thread's last stack still holds. An address that stays in the stack is
// still the call that began in the old module, so it keeps its function; one that was left in between is looked up anew.
TEST_F(OddEventsPassTest, AFrameOutlivesItsModuleForAsLongAsItStaysInTheStack)
{
    mFixture.LoadModule(mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}}), 0x50000, 0, 0.0, 5.0);
    mFixture.LoadModule(mFixture.AddModule("/bin/after", 0x1000, {{0x100, 0x40, "after"}}), 0x50000, 0, 5.5, 100.0);
    for (const auto& event : mFixture.BuildTrace("1 sample A main;before\n"
                                                 "8 sample A main;before\n"
                                                 "9 sample A main\n"
                                                 "10 sample A main;before\n"))
        StoreEvent(event);
    EXPECT_THAT(RunPasses(), ElementsAre("event 0 at 1", "event 0 at 8", "event 0 at 9", "bars 0 keep 1 of 2", "event 0 at 10",
                                         "bars 0 keep 0 of 2", "finish thread 0"));
}

class ReplacedModuleTest : public OpenBarFixture
{
};

TEST_F(ReplacedModuleTest, AFrameOutlivesItsModuleForAsLongAsItStaysInTheStack)
{
    mFixture.LoadModule(mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}}), 0x50000, 0, 0.0, 5.0);
    mFixture.LoadModule(mFixture.AddModule("/bin/after", 0x1000, {{0x100, 0x40, "after"}}), 0x50000, 0, 5.5, 100.0);
    Run("1 sample A before\n"
        "8 sample A before\n");
    EXPECT_EQ(PrintBars(), "before 1..9 run* 8 hits before:2\n");
    Run("9 sample A main\n"
        "10 sample A before\n");
    EXPECT_EQ(PrintBars(), "after 10..11 run* 1 hits after:1\n");
}

} // namespace
