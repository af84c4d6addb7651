#include "OpenBarFixture.h"

#include <limits>

namespace
{

using Profiler::ThreadState;

class OpenBarWaitTest : public OpenBarFixture
{
};

TEST_F(OpenBarWaitTest, ASampleDuringAWaitIsDropped)
{
    Run("0 sample A main\n"
        "0.75 out A 6\n"
        "3 sample A main;work\n"
        "4 begin A main;work Draw\n");
    EXPECT_EQ(GetState(), ThreadState::Synchronization);
    EXPECT_EQ(PrintBars(), "main 0..0.75 run* 0.75 hits main:1\n");
    EXPECT_EQ(TakeReports(), "");
}

TEST_F(OpenBarWaitTest, AWaitWithAStackFillsItsTime)
{
    Run("0 sample A main;work\n"
        "2 out A 6\n"
        "12 in A main;leaf\n");
    EXPECT_EQ(GetState(), ThreadState::Executing);
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "work<main 0..1 run* 1 hits work:1\n");
    EXPECT_EQ(PrintBars(), "main 0..12 run 1 sync* 11\n"
                           "leaf<main 2..12 sync* 10\n");
    // Running goes on from the end of the wait.
    Run("15 sample A main;leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..16 run* 5 sync 11\n"
                           "leaf<main 2..16 run* 4 sync 10 hits leaf:1\n");
}

TEST_F(OpenBarWaitTest, AWaitWithoutAStackIsSpreadByTheNextStack)
{
    Run("0 sample A main\n"
        "1 out A 6\n"
        "11 in A -\n");
    EXPECT_EQ(PrintBars(), "main 0..1 run* 1 hits main:1\n");
    Run("13 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..14 run* 4 sync 10 hits main:2\n");
    // It was spread once and for all.
    Run("15 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..16 run* 6 sync 10 hits main:3\n");
}

TEST_F(OpenBarWaitTest, WaitsWithoutAStackAddUpByState)
{
    Run("0 sample A main;work\n"
        "1 out A 6\n"
        "3 in A -\n"
        "4 out A 4\n"
        "9 in A lost\n"
        "10 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 4 sleep 5 sync 2 hits main:1\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "work<main 0..1 run* 1 hits work:1\n");
}

// The wait that couldn't be placed goes to the bars that the next wait's stack keeps, and then the gap up to that wait counts as
// running.
TEST_F(OpenBarWaitTest, AWaitWithAStackSpreadsTheOneBeforeIt)
{
    Run("0 sample A main\n"
        "1 out A 6\n"
        "3 in A -\n"
        "6 out A 4\n"
        "9 in A main\n");
    EXPECT_EQ(PrintBars(), "main 0..9 run 4 sleep* 3 sync 2 hits main:1\n");
    Run("10 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 6 sleep 3 sync 2 hits main:2\n");
}

TEST_F(OpenBarWaitTest, AWaitOverAChunkBoundaryIsCutInTwo)
{
    Run("490 sample A main\n"
        "495 out A 0\n"
        "1510 in A main;work\n");
    EXPECT_EQ(TakeReports(), "keep 2 of 2, chunk 0 from 490 finished\n"
                             "main 490..500 run 1 io* 9 hits main:1\n"
                             "work<main 495..500 io* 5\n");
    EXPECT_EQ(PrintBars(), "main 490..1510 run 1 io* 1019 hits main:1\n"
                           "work<main 495..1510 io* 1015\n");
    Run("2000 sample A main;work\n");
    EXPECT_EQ(TakeReports(), "keep 2 of 2, chunk 3 from 1500 finished\n"
                             "main 490..1510 run 1 io* 1019 hits main:1\n"
                             "work<main 495..1510 io* 1015\n");
}

TEST_F(OpenBarWaitTest, AWaitThatEndsOnABoundaryIsCutThere)
{
    Run("490 sample A main\n"
        "491 out A 4\n"
        "500 in A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 0 from 490 finished\n"
                             "main 490..500 run 1 sleep* 9 hits main:1\n");
    EXPECT_EQ(PrintBars(), "main 490..500 run 1 sleep* 9 hits main:1\n");
}

// At this time neighbouring single-precision numbers are 128 apart: the first cut is 1073742464 instead of 1073742500, and the
// second, 1073742976 instead of 1073743000, lies in the chunk before.
TEST_F(OpenBarWaitTest, TheCutsAreSinglePrecision)
{
    Run("1073742090 sample A main\n"
        "1073742100 out A 6\n"
        "1073743100 in A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 2147484 from 1073742090 finished\n"
                             "main 1073742090..1073742464 run 1 sync* 373 hits main:1\n");
    EXPECT_EQ(PrintBars(), "main 1073742090..1073743100 run 1 sync* 1009 hits main:1\n");
    Run("1073743100 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 2147485 from 1073742976 finished\n"
                             "main 1073742090..1073743100 run 1 sync* 1009 hits main:1\n");
}

TEST_F(OpenBarWaitTest, AWaitsStackIsLookedUpWhereTheWaitBegan)
{
    FakeModule& before = mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}});
    mFixture.LoadModule(before, 0x50000, 0, 0.0, 5.0);
    Run("0 sample A main\n"
        "2 out A 6\n"
        "12 in A before\n");
    EXPECT_EQ(PrintBars(), "before 2..12 sync* 10\n");
}

TEST_F(OpenBarWaitTest, TheFirstSwitchInEndsAWaitSinceTheThreadsStart)
{
    mFixture.GetSession().GetSessionInfo().SessionStartTimeMs = 1.0;
    mFixture.GetSession().GetThread(0)->StartTimeMs = 3.0;
    Start();
    Run("5 in A main\n");
    EXPECT_EQ(PrintBars(), "main 3..5 unknown* 2\n");

    mFixture.GetSession().GetThread(0)->StartTimeMs = -2.0;
    Start();
    Run("5 in A main\n");
    EXPECT_EQ(PrintBars(), "main 1..5 unknown* 4\n");

    Start(-1);
    Run("5 in -1 main\n");
    EXPECT_EQ(PrintBars(), "main 1..5 unknown* 4\n");
}

TEST_F(OpenBarWaitTest, AThreadThatStartsAtNoTimeAtAllHasNotWaited)
{
    for (const double start : {1e300, std::numeric_limits<double>::infinity()})
    {
        mFixture.GetSession().GetThread(0)->StartTimeMs = start;
        Start();
        Run("5 in A main\n6 sample A main\n");
        EXPECT_EQ(PrintBars(), "main 6..7 run* 1 hits main:1\n");
    }
}

TEST_F(OpenBarWaitTest, AWaitWithoutLengthOpensNothingButTheThreadRuns)
{
    Run("0 in A main\n");
    EXPECT_EQ(PrintBars(), "");
    EXPECT_EQ(GetState(), ThreadState::Executing);
    Run("1 sample A main\n"
        "2 out A 6\n"
        "2 in A work\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 1..2 run* 1 hits main:1\n");
}

TEST_F(OpenBarWaitTest, ASwitchInWhileRunningIsIgnored)
{
    Run("0 sample A main\n"
        "5 in A work\n"
        "6 sample A main\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..7 run* 7 hits main:2\n");
}

TEST_F(OpenBarWaitTest, ASwitchOutDuringAWaitLeavesTheFirstWait)
{
    Run("2 out A 4\n"
        "3 out A 6\n");
    EXPECT_EQ(GetState(), ThreadState::Sleep);
    Run("5 in A main\n");
    EXPECT_EQ(PrintBars(), "main 2..5 sleep* 3\n");
    Run("6 out A 38\n");
    EXPECT_EQ(GetState(), ThreadState::Idle);
    Run("7 out A 22\n");
    EXPECT_EQ(GetState(), ThreadState::Finished);
}

TEST_F(OpenBarWaitTest, TheLimitCapsAWait)
{
    mMaxTime = 7.0;
    Run("0 sample A main\n"
        "1 out A 6\n"
        "10 in A -\n");
    Run("12 sample A main\n");
    // Six milliseconds of waiting before the limit, and no time behind it.
    EXPECT_EQ(PrintBars(), "main 0..7 run* 1 sync 6 hits main:1\n");
}

TEST_F(OpenBarWaitTest, AWaitThatEndsBeforeItBeganCountsBackOrNotAtAll)
{
    Run("5 sample A main\n"
        "6 out A 6\n"
        "4 in A main\n");
    EXPECT_EQ(PrintBars(), "main 5..4 run 1 sync* -2 hits main:1\n");
    Start();
    Run("5 sample A main\n"
        "6 out A 6\n"
        "4 in A -\n"
        "7 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 5..8 run* 3 hits main:2\n");
}

// The zone ends as if the thread had run, and the next switch-in goes back to where the wait began.
TEST_F(OpenBarWaitTest, AZoneThatEndsDuringAWaitIsSettledAtItsTime)
{
    Run("0 begin A main Draw\n"
        "2 out A 6\n"
        "5 end A\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..5 run* 5\n"
                             "[Draw in main]<main 0..5 run* 5\n");
    Run("9 in A main\n");
    EXPECT_EQ(PrintBars(), "main 0..9 run 2 sync* 7\n");
}

TEST_F(OpenBarWaitTest, AZoneThatEndsInALaterChunkMakesTheWaitGoBack)
{
    Run("490 begin A main Draw\n"
        "491 out A 6\n"
        "700 end A\n"
        "800 in A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 490\n"
                             "main 490..700 run* 210\n"
                             "[Draw in main]<main 490..700 run* 210\n"
                             "keep 1 of 1, chunk 0 from 490 finished\n"
                             "main 490..500 run 1 sync* 9\n");
    EXPECT_EQ(PrintBars(), "main 490..800 run 1 sync* 309\n");
}

// --- Stacks that the platform's rule ends early ---

class OpenBarStopRuleTest : public OpenBarFixture
{
protected:
    OpenBarStopRuleTest()
    {
        mFixture.GetPlatform().StopModule = &mGame;
        mFixture.GetPlatform().StopAddresses = {0x300};
    }
};

TEST_F(OpenBarStopRuleTest, ASampleTakesTheFramesBeforeTheStop)
{
    Run("0 sample A main;work;leaf+8;other\n"
        "1 sample A main;work\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "work<main 0..2 run* 2 hits work:2\n");
    Run("2 sample A leaf;work\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "work<main 0..2 run* 2 hits work:2\n");
}

TEST_F(OpenBarStopRuleTest, AWaitNeedsAWholeStack)
{
    Run("0 sample A main;leaf\n"
        "1 out A 6\n"
        "4 in A main;leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..1 run* 1 hits main:1\n");
    Run("5 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..6 run* 3 sync 3 hits main:2\n");
}

} // namespace
