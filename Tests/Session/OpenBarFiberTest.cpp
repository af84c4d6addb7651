#include "OpenBarFixture.h"

namespace
{

using Profiler::OpenBarProcessor;

class OpenBarFiberTest : public OpenBarFixture
{
};

TEST_F(OpenBarFiberTest, AFibersBarsCloseAndComeBack)
{
    Run("0 begin A main;work Job ctx\n"
        "5 fiber-out A 7\n");
    EXPECT_EQ(TakeReports(), "keep 2 of 3, chunk 0 from 0\n"
                             "main 0..5 run* 5\n"
                             "work<main 0..5 run* 5\n"
                             "[Job in work]<work 0..5 run* 5 context ctx\n");
    Run("6 sample A main;idle\n"
        "10 fiber-in A 7\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..5 run* 5\n"
                             "work<main 0..5 run* 5\n"
                             "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..7 run* 7\n"
                             "idle<main 6..7 run* 1 hits idle:1\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11\n"
                           "work<main 10..11 run* 1\n"
                           "[Job in work]<work 10..11 run* 1 context ctx\n");
}

TEST_F(OpenBarFiberTest, WhatLiesBelowTheFirstZoneStaysAndAboveTheLastIsLost)
{
    Run("0 begin A main One\n"
        "1 begin A main;work Two\n"
        "2 sample A main;work;leaf\n"
        "2.5 fiber-out A 7\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 5, chunk 0 from 0\n"
                             "main 0..2.5 run* 2.5\n"
                             "[One in main]<main 0..2.5 run* 2.5\n"
                             "work<main 1..2.5 run* 1.5\n"
                             "[Two in work]<work 1..2.5 run* 1.5\n"
                             "leaf<work 2..2.5 run* 0.5 hits leaf:1\n");
    Run("4 fiber-in A 7\n");
    EXPECT_EQ(PrintBars(), "main 0..5 run* 5\n"
                           "[One in main]<main 4..5 run* 1\n"
                           "work<main 4..5 run* 1\n"
                           "[Two in work]<work 4..5 run* 1\n");
    EXPECT_EQ(TakeReports(), "");
}

// Open zones are passed over, while the saved zone is a bar to be matched: it opens once more.
TEST_F(OpenBarFiberTest, AFiberThatComesBackTwiceHasItsZoneTwice)
{
    Run("0 begin A main Job\n"
        "1 fiber-out A 7\n"
        "2 fiber-in A 7\n"
        "3 fiber-in A 7\n");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4\n"
                           "[Job in main]<main 2..4 run* 2\n"
                           "[Job in main]<main 3..4 run* 1\n");
}

TEST_F(OpenBarFiberTest, ZonesThatDoubleEachTimeStopAtTheDeepestList)
{
    std::string trace = "0 begin A main Job\n1 fiber-out A 7\n";
    for (int round = 2; round < 30; ++round)
    {
        const std::string time = std::to_string(round);
        trace += time + " fiber-in A 7\n" + time + ".2 fiber-in A 7\n" + time + ".5 fiber-out A 7\n";
    }
    Run(trace + "30 fiber-in A 7\n");
    EXPECT_EQ(mProcessor->GetBars().GetSize(), OpenBarProcessor::sMaxOpenBars);
    EXPECT_GT(mProcessor->GetNumLeftOutBars(), 0U);
}

TEST_F(OpenBarFiberTest, ASwitchOutWithoutZonesSavesNothingAndForgetsTheWait)
{
    Run("0 sample A main\n"
        "1 out A 6\n"
        "5 in A -\n"
        "6 fiber-out A 7\n"
        "7 fiber-in A 7\n"
        "8 sample A main\n");
    EXPECT_EQ(mFibers.GetNumStates(), 0U);
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..9 run* 9 hits main:2\n");
}

TEST_F(OpenBarFiberTest, ASwitchOutSpreadsTheWait)
{
    Run("0 begin A main Job\n"
        "1 out A 6\n"
        "5 in A -\n"
        "6 fiber-out A 7\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..6 run* 2 sync 4\n"
                             "[Job in main]<main 0..6 run* 2 sync 4\n");
}

TEST_F(OpenBarFiberTest, ASwitchInSpreadsTheWaitOverWhatItKeeps)
{
    Run("0 begin A main Job\n"
        "1 fiber-out A 7\n"
        "2 out A 6\n"
        "5 in A -\n"
        "6 fiber-in A 7\n");
    EXPECT_EQ(PrintBars(), "main 0..7 run* 4 sync 3\n"
                           "[Job in main]<main 6..7 run* 1\n");
}

TEST_F(OpenBarFiberTest, AFiberGoesOnOnAnotherThread)
{
    Run("0 begin A main;work Job\n"
        "5 fiber-out A 7\n");
    Start(1);
    Run("600 fiber-in B 7\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 600..601 run* 1\n"
                           "work<main 600..601 run* 1\n"
                           "[Job in work]<work 600..601 run* 1\n");
    // A switch of fibers says nothing about the thread, but the chunk is its.
    EXPECT_EQ(GetState(), Profiler::ThreadState::NotStarted);
    Run("1100 fiber-in B 7\n");
    EXPECT_EQ(TakeReports(), "keep 3 of 3, chunk 1 from 600 finished\n"
                             "main 600..601 run* 1\n"
                             "work<main 600..601 run* 1\n"
                             "[Job in work]<work 600..601 run* 1\n");
}

TEST_F(OpenBarFiberTest, AFiberThatNeverLeftOrLeftLaterIsIgnored)
{
    Run("10 begin A main Job\n"
        "15 fiber-out A 7\n"
        "14 fiber-in A 7\n"
        "16 fiber-in A 8\n");
    EXPECT_EQ(PrintBars(), "main 10..15 run* 5\n");
}

TEST_F(OpenBarFiberTest, ASwitchDuringAWaitIsSettledAtItsTime)
{
    Run("0 begin A main Job\n"
        "1 out A 4\n"
        "3 fiber-out A 7\n"
        "4 fiber-in A 7\n"
        "9 in A main\n");
    // The wait goes back to its start: what the fiber opened since is turned back too.
    EXPECT_EQ(PrintBars(), "main 0..9 run 1 sleep* 8\n"
                           "[Job in main]<main 4..9 run -3 sleep* 8\n");
}

// The kept bars' addresses stay those that the thread saw last.
TEST_F(OpenBarFiberTest, ASwitchInLeavesTheAddressesOfKeptBars)
{
    Run("0 begin A main+4 Job\n"
        "1 fiber-out A 7\n"
        "2 sample A main+8\n"
        "3 fiber-in A 7\n");
    EXPECT_EQ(mProcessor->GetBars()[0].LastAbsoluteAddress, mFixture.GetAddress("main+8"));
    EXPECT_EQ(mProcessor->GetBars()[1].LastAbsoluteAddress, mFixture.GetAddress("main+4"));
}

TEST_F(OpenBarFiberTest, TheLimitCapsSwitches)
{
    mMaxTime = 4.5;
    Run("0 begin A main Job\n"
        "3 fiber-out A 7\n"
        "4 fiber-in A 7\n");
    EXPECT_EQ(PrintBars(), "main 0..4.5 run* 4.5\n"
                           "[Job in main]<main 4..4.5 run* 0.5\n");
    Run("9 fiber-out A 7\n");
    EXPECT_EQ(PrintBars(), "main 0..4.5 run* 4.5\n");
}

} // namespace
