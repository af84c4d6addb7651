#include "Session/Pass/EventDispatcher.h"

#include "Session/Pass/ChunkTime.h"
#include "Tests/Support/BrokenStackFiles.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

class EventDispatcherTest : public testing::Test
{
protected:
    EventDispatcherTest()
    {
        mFixture.LoadModule(mFixture.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}}), 0x10000);
        mFixture.AddThread("A");
        mFixture.AddThread("B");
        mDispatcher = std::make_unique<EventDispatcher>(mFixture.GetSession(), mFibers, mBrokenStacks.GetHolder(),
                                                        std::vector<Model*>{&mFirst, &mSecond});
    }

    bool Dispatch(const std::string& inTrace)
    {
        for (const TraceEvent& event : mFixture.BuildTrace(inTrace))
            if (!mDispatcher->Dispatch(event, mErrors))
                return false;
        return true;
    }

    bool DispatchAt(double inTime, ThreadID inThread)
    {
        return mDispatcher->Dispatch(TraceEvent(inTime, gMakeCapturedProcessID(0), inThread, StackOnlyEvent()), mErrors);
    }

    CallList TakeCalls() { return std::exchange(mCalls, {}); }

    SessionFixture mFixture;
    OpenBarProcessorFiberState mFibers;
    BrokenStackFiles mBrokenStacks;
    CallList mCalls;
    FakeModelPlugin mPlugin{"", mCalls};
    FakeModel mFirst{mPlugin, mFixture.GetSession(), "first", mCalls};
    FakeModel mSecond{mPlugin, mFixture.GetSession(), "second", mCalls};
    Utility::ErrorState mErrors;
    std::unique_ptr<EventDispatcher> mDispatcher;
};

TEST_F(EventDispatcherTest, EveryModelMeetsAThreadBeforeItsEventsAndSeesThemBeforeTheBarsChange)
{
    EXPECT_TRUE(Dispatch("3 sample A main;work"));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: create 0", "second: create 0", "first: event 0 at 3", "second: event 0 at 3"));
    EXPECT_TRUE(Dispatch("4 sample A main"));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: event 0 at 4", "second: event 0 at 4", "first: bars 0 keep 1 of 2",
                                         "second: bars 0 keep 1 of 2"));
}

TEST_F(EventDispatcherTest, AThreadThatEndsIsFlushedAndFinished)
{
    EXPECT_TRUE(Dispatch("3 sample A main\n"));
    TakeCalls();
    EXPECT_TRUE(Dispatch("4 out A 22\n"));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: event 0 at 4", "second: event 0 at 4", "first: bars 0 keep 0 of 1",
                                         "second: bars 0 keep 0 of 1", "first: finish thread 0", "second: finish thread 0"));
    // No model sees what comes later, and no second end.
    EXPECT_TRUE(Dispatch("5 sample A main, 6 out A 22, 6 start A 0"));
    EXPECT_THAT(TakeCalls(), IsEmpty());
    EXPECT_TRUE(mDispatcher->FinishProcessing(mErrors, false));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: finish", "second: finish"));
}

TEST_F(EventDispatcherTest, TheEndOfThePassFinishesOpenThreadsInOrderOfTheirFirstEvents)
{
    EXPECT_TRUE(mDispatcher->BeginProcessing(mErrors));
    EXPECT_TRUE(Dispatch("3 sample B main, 4 start A 0"));
    TakeCalls();
    EXPECT_TRUE(mDispatcher->FinishProcessing(mErrors, true));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: bars 1 keep 0 of 1", "second: bars 1 keep 0 of 1", "first: finish thread 1",
                                         "second: finish thread 1", "first: finish thread 0", "second: finish thread 0",
                                         "first: finish canceled", "second: finish canceled"));
}

TEST_F(EventDispatcherTest, AThreadThatCanNotBeFinishedFailsEachCallThatTries)
{
    EXPECT_TRUE(Dispatch("3 start A 0"));
    TakeCalls();
    mFirst.FailingCall = "finish thread";
    EXPECT_FALSE(Dispatch("4 exit A 1\n"));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: event 0 at 4", "second: event 0 at 4", "first: finish thread 0"));
    EXPECT_FALSE(mDispatcher->FinishProcessing(mErrors, false));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: finish thread 0"));
}

TEST_F(EventDispatcherTest, EventsAtImpossibleTimesAreDroppedCountedAndToldOnce)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const LogCapture log;
    for (const double time : {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity, 1e300, -1e300, 500.0 * 2147483648.0,
                              -500.0 * 2147483649.0})
        EXPECT_TRUE(DispatchAt(time, 0));
    EXPECT_EQ(mDispatcher->GetNumDroppedEvents(), 7U);
    EXPECT_EQ(log.GetTexts().size(), 1U);
    EXPECT_THAT(TakeCalls(), IsEmpty());

    EXPECT_TRUE(DispatchAt(500.0 * 2147483646.0, 0));
    EXPECT_TRUE(DispatchAt(-500.0 * 2147483646.0, 0));
    EXPECT_EQ(mDispatcher->GetNumDroppedEvents(), 7U);
    EXPECT_EQ(mCalls.size(), 6U);
}

// An impossible time ends no pass and no thread, and doesn't bring a thread into being.
TEST_F(EventDispatcherTest, ADroppedEventLeavesItsThreadAsItWas)
{
    const LogCapture log;
    EXPECT_TRUE(Dispatch("inf out A 22, 3 sample A main"));
    EXPECT_THAT(TakeCalls(), ElementsAre("first: create 0", "second: create 0", "first: event 0 at 3", "second: event 0 at 3"));
}

TEST_F(EventDispatcherTest, AnyThreadIDIsAThread)
{
    for (const ThreadID thread : {-1, 99, std::numeric_limits<ThreadID>::min(), std::numeric_limits<ThreadID>::max()})
    {
        EXPECT_TRUE(DispatchAt(1.0, thread));
        EXPECT_THAT(TakeCalls(), testing::Contains("second: create " + std::to_string(thread)));
        EXPECT_TRUE(DispatchAt(2.0, thread));
        EXPECT_EQ(TakeCalls().size(), 2U);
    }
}

// The first event's time is where a thread's broken ranges are opened: one that goes on at that time isn't missed.
TEST_F(EventDispatcherTest, AThreadStartsInTheMiddleOfItsBrokenRange)
{
    mBrokenStacks.SetRanges(0, {{1.0, 2.0, mFixture.Intern("main")}, {10.0, 20.0, mFixture.Intern("main")}});
    EXPECT_TRUE(Dispatch("12 sample A work\n"));
    TakeCalls();
    EXPECT_TRUE(mDispatcher->FinishProcessing(mErrors, false));
    EXPECT_THAT(TakeCalls(), testing::Contains("first: bars 0 keep 0 of 2"));
}

TEST(ChunkTimeTest, IndicesAreTruncatedTowardZero)
{
    EXPECT_EQ(ChunkIndexOfTime(500.0F, 499.99), 0);
    EXPECT_EQ(ChunkIndexOfTime(500.0F, 500.0), 1);
    EXPECT_EQ(ChunkIndexOfTime(500.0F, -499.99), 0);
    EXPECT_EQ(ChunkIndexOfTime(500.0F, -500.0), -1);
    EXPECT_EQ(ChunkIndexOfTime(500.0F, 1e300), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(ChunkIndexOfTime(500.0F, -1e300), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(ChunkIndexOfTime(500.0F, std::numeric_limits<double>::quiet_NaN()), 0);
}

} // namespace
