#include "OpenBarFixture.h"

namespace
{

using Profiler::ThreadState;

class OpenBarProcessorTest : public OpenBarFixture
{
};

TEST_F(OpenBarProcessorTest, SamplesOfOneStackGrowItsBarsWithoutAReport)
{
    Run("0 sample A main;work\n"
        "3 sample A main;work\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4\n"
                           "work<main 0..4 run* 4 hits work:2\n");
}

TEST_F(OpenBarProcessorTest, AnotherLeafClosesTheOldOneWhereTheSampleClippedIt)
{
    Run("0 sample A main;work\n"
        "0.5 sample A main;leaf\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..0.5 run* 0.5\n"
                             "work<main 0..0.5 run* 0.5 hits work:1\n");
    EXPECT_EQ(PrintBars(), "main 0..1.5 run* 1.5\n"
                           "leaf<main 0.5..1.5 run* 1 hits leaf:1\n");
}

TEST_F(OpenBarProcessorTest, AnAddressInsideTheLeafChangesNoBar)
{
    Run("0 sample A main;work+4\n"
        "1 sample A main;work+8\n"
        "2 sample A main;work+8\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..3 run* 3\n"
                           "work<main 0..3 run* 3 hits work+4:1 hits work+8:2\n");
    EXPECT_EQ(mProcessor->GetBars()[1].LastAbsoluteAddress, mFixture.GetAddress("work+8"));
}

TEST_F(OpenBarProcessorTest, AnotherCallSiteClosesTheCalledBars)
{
    Run("0 sample A main+4;work;leaf\n"
        "1 sample A main+8;work;leaf\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 3, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "work<main+4 0..1 run* 1\n"
                             "leaf<work 0..1 run* 1 hits leaf:1\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "work<main+8 1..2 run* 1\n"
                           "leaf<work 1..2 run* 1 hits leaf:1\n");
}

TEST_F(OpenBarProcessorTest, AShorterStackClosesTheRestAndAnotherRootAll)
{
    Run("0 sample A main;work;leaf\n"
        "1 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 3, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "work<main 0..1 run* 1\n"
                             "leaf<work 0..1 run* 1 hits leaf:1\n");
    Run("2 sample A idle\n");
    EXPECT_EQ(TakeReports(), "keep 0 of 1, chunk 0 from 0\n"
                             "main 0..2 run* 2 hits main:1\n");
    EXPECT_EQ(PrintBars(), "idle 2..3 run* 1 hits idle:1\n");
}

TEST_F(OpenBarProcessorTest, TheFirstReportOfALaterChunkFinishesTheChunkEvenIfNothingCloses)
{
    Run("0 sample A main\n"
        "500 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 0 from 0 finished\n"
                             "main 0..1 run* 1 hits main:1\n");
    Run("1000 sample A main;work\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 1 from 500 finished\n"
                             "main 0..501 run* 501 hits main:2\n");
}

TEST_F(OpenBarProcessorTest, AListWithoutBarsReportsNoChunkButTakesIt)
{
    Run("0 sample A main\n");
    mProcessor->Flush();
    EXPECT_EQ(TakeReports(), "keep 0 of 1, chunk 0 from 0\n"
                             "main 0..1 run* 1 hits main:1\n");
    mProcessor->Flush();
    Run("700 sample A main\n");
    EXPECT_EQ(TakeReports(), "");
    Run("1000 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 1 from 700 finished\n"
                             "main 700..701 run* 1 hits main:1\n");
}

TEST_F(OpenBarProcessorTest, TimeThatGoesBackTurnsBarsBackAndCountsAsSuch)
{
    Run("600 sample A main\n"
        "100 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 1 from 600 finished\n"
                             "main 600..100 run* -500 hits main:1\n");
    EXPECT_EQ(PrintBars(), "main 600..101 run* -499 hits main:2\n");
}

TEST_F(OpenBarProcessorTest, TimesJustBelowZeroLieInChunkZero)
{
    Run("-499 sample A main\n"
        "499 sample A main\n");
    EXPECT_EQ(TakeReports(), "");
    Run("-500 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 0 from -499 finished\n"
                             "main -499..-500 run* -1 hits main:2\n");
}

TEST_F(OpenBarProcessorTest, TheLimitCapsSpansButNotTheChunk)
{
    mMaxTime = 2.5;
    Run("2 sample A main\n"
        "3 sample A main;work\n");
    EXPECT_EQ(PrintBars(), "main 2..2.5 run* 0.5 hits main:1\n"
                           "work<main 2.5..2.5 run* 0\n");
    Run("700 sample A main\n"
        "1200 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 2 finished\n"
                             "main 2..2.5 run* 0.5 hits main:1\n"
                             "work<main 2.5..2.5 run* 0\n"
                             "keep 1 of 1, chunk 1 from 700 finished\n"
                             "main 2..2.5 run* 0.5 hits main:1\n");
}

TEST_F(OpenBarProcessorTest, AFrameWithoutFunctionIsItsOwnAddress)
{
    Run("0 sample A main;0x99\n"
        "1 sample A main;0x9A\n"
        "2 sample A main;0x10F00\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "0x99(no module)<main 0..1 run* 1 hits 0x99:1\n"
                             "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..2 run* 2\n"
                             "0x9A(no module)<main 1..2 run* 1 hits 0x9A:1\n");
    EXPECT_EQ(PrintBars(), "main 0..3 run* 3\n"
                           "0xF00<main 2..3 run* 1 hits 0xF00:1\n");
}

TEST_F(OpenBarProcessorTest, AMarkerOutsideABrokenRangeIsAnOrdinaryFrameThatCountsNoHit)
{
    Run("0 sample A main;?\n");
    EXPECT_EQ(PrintBars(), "main 0..1 run* 1\n"
                           "0xFFFFFFFFFFFFFFFF(no module)<main 0..1 run* 1\n");
}

TEST_F(OpenBarProcessorTest, ASampleWithoutFramesOnlyTellsThatTheThreadRuns)
{
    for (const char* stack : {"-", "empty", "lost"})
    {
        Start();
        Run(std::string("2 sample A ") + stack);
        EXPECT_EQ(GetState(), ThreadState::Executing);
        Run("3 sample A main\n"
            "600 sample A " +
            std::string(stack));
        EXPECT_EQ(PrintBars(), "main 3..4 run* 1 hits main:1\n");
        EXPECT_EQ(TakeReports(), "");
    }
}

TEST_F(OpenBarProcessorTest, EventsOfOtherConcernChangeNothing)
{
    Run("0 start A 1\n"
        "0 start-shown A 77 0\n"
        "0 name A Worker\n"
        "0 exit A 0\n"
        "0 exit A 3\n"
        "0 exit-shown A 77 0\n"
        "0 wake A B main\n"
        "0 wake-timed A B main 3\n"
        "0 stack A main\n"
        "0 reserved13 A 1\n"
        "0 reserved14 A 1\n"
        "0 sample B main\n"
        "0 out B 22\n"
        "0 exit B 1\n"
        "0 end A\n"
        "0 fiber-out A 1\n"
        "0 fiber-in A 1\n");
    mProcessor->HandleEvent(Profiler::TraceEvent(), mMaxTime);
    EXPECT_EQ(GetState(), ThreadState::NotStarted);
    EXPECT_EQ(PrintBars(), "");
    mProcessor->Flush();
    EXPECT_EQ(TakeReports(), "");
}

TEST_F(OpenBarProcessorTest, AThreadEndsByFlagOrByItsLastSwitch)
{
    for (const char* end : {"0.25 exit A 1", "0.25 exit A 2", "0.25 exit-shown A 77 1", "0.25 exit-shown A 77 2"})
    {
        Start();
        Run(std::string("0 sample A main\n") + end + "\n0.5 sample A work\n0.5 out A 6\n0.5 end A\n0.5 in A work\n");
        EXPECT_EQ(GetState(), ThreadState::Finished);
        EXPECT_EQ(PrintBars(), "main 0..1 run* 1 hits main:1\n");
        EXPECT_EQ(TakeReports(), "");
    }
    Start();
    Run("0 sample A main\n"
        "0.25 out A 22\n"
        "0.5 sample A work\n");
    EXPECT_EQ(GetState(), ThreadState::Finished);
    EXPECT_EQ(PrintBars(), "main 0..0.25 run* 0.25 hits main:1\n");
}

// A bar that opens in a used slot shows nothing of the bar that was there.
TEST_F(OpenBarProcessorTest, ABarInAUsedSlotBeginsAnew)
{
    Run("0 begin A main;work Draw frame\n"
        "1 sample A main;work\n"
        "2 sample A main\n"
        "3 sample A main;leaf;other\n");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4 hits main:1\n"
                           "leaf<main 3..4 run* 1\n"
                           "other<leaf 3..4 run* 1 hits other:1\n");
    EXPECT_EQ(mProcessor->GetBars()[2].InstrumentationContextID, Profiler::InstrumentationDatabase::sNoContext);
}

TEST_F(OpenBarProcessorTest, ThreadsThatNothingCreatedHaveBarsToo)
{
    for (const Profiler::ThreadID thread : {-1, 99})
    {
        Start(thread);
        Run("1 sample " + std::to_string(thread) + " main\n");
        EXPECT_EQ(PrintBars(), "main 1..2 run* 1 hits main:1\n");
    }
}

// --- Frames that are remembered ---

class RememberedFramesTest : public OpenBarFixture
{
protected:
    RememberedFramesTest()
    {
        mFixture.AddProcess("other");
        FakeModule& shadow = mFixture.AddModule("/bin/shadow", sGameSize, {{0x100, 0x180, "shadow"}});
        mFixture.LoadModule(shadow, sGameBase, 1);
    }
};

TEST_F(RememberedFramesTest, AnUnchangedAddressKeepsItsFunctionWhateverLiesThereNow)
{
    Run("0 sample A main;work\n"
        "1 sample A@1 main;work\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "work<main 0..2 run* 2 hits work:2\n");
    EXPECT_EQ(TakeReports(), "");
}

TEST_F(RememberedFramesTest, WakeUpsAndBareStacksTeachAddressesToo)
{
    for (const char* lesson : {"0 stack A main;work\n", "0 wake A B main;work\n"})
    {
        Start();
        Run(std::string(lesson) + "1 sample A@1 main;work\n");
        EXPECT_EQ(PrintBars(), "main 1..2 run* 1\n"
                               "work<main 1..2 run* 1 hits work:1\n");
    }
    Start();
    Run("0 wake-timed A B main;work 0\n"
        "1 sample A@1 main;work\n");
    EXPECT_EQ(PrintBars(), "shadow 1..2 run* 1\n"
                           "shadow<shadow 1..2 run* 1 hits shadow+256:1\n");
}

TEST_F(RememberedFramesTest, AnEventWithoutStackForgetsNothingAndAShorterStackForgetsItsRest)
{
    Run("0 stack A main;work\n"
        "0 stack A empty\n"
        "0 stack A lost\n"
        "1 sample A@1 main\n"
        "2 sample A@1 main;work\n");
    EXPECT_EQ(mProcessor->GetBars()[0].Frame.ResolveIndex.Index, 0U);
    EXPECT_EQ(mProcessor->GetBars()[1].Frame.ResolveIndex.Index, 1U);
}

} // namespace
