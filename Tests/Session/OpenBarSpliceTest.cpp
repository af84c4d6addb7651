#include "OpenBarFixture.h"

namespace
{

class OpenBarSpliceTest : public OpenBarFixture
{
};

TEST_F(OpenBarSpliceTest, ACutShortStackGoesOnTopOfTheBarsThatTheGoodStackKeeps)
{
    AddBrokenRange(10, 20, "main;work;leaf");
    Run("0 sample A main;work;leaf\n"
        "10 sample A leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11\n"
                           "work<main 0..11 run* 11\n"
                           "leaf<work 0..11 run* 11 hits leaf:1\n"
                           "[missing] 10..11 run* 1\n"
                           "leaf 10..11 run* 1 hits leaf:1\n");
    // Inside the range the missing frames go on too.
    Run("12 sample A leaf;other\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..13 run* 13\n"
                           "work<main 0..13 run* 13\n"
                           "leaf<work 0..13 run* 13 hits leaf:1\n"
                           "[missing] 10..13 run* 3\n"
                           "leaf 10..13 run* 3 hits leaf:1\n"
                           "other<leaf 12..13 run* 1 hits other:1\n");
    // The good stack closes them.
    Run("20 sample A main;work;leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..21 run* 21\n"
                           "work<main 0..21 run* 21\n"
                           "leaf<work 0..21 run* 21 hits leaf:2\n");
}

TEST_F(OpenBarSpliceTest, FramesInCommonWithTheKeptBarsAreLeftOut)
{
    AddBrokenRange(10, 20, "main;work");
    Run("0 sample A main;work;leaf\n"
        "10 sample A main;other\n");
    EXPECT_EQ(TakeReports(), "keep 2 of 3, chunk 0 from 0\n"
                             "main 0..1 run* 1\n"
                             "work<main 0..1 run* 1\n"
                             "leaf<work 0..1 run* 1 hits leaf:1\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11\n"
                           "work<main 0..11 run* 11\n"
                           "[missing] 10..11 run* 1\n"
                           "other 10..11 run* 1 hits other:1\n");
    // Only a frame at its own position is in common.
    Run("11 sample A work;main\n");
    EXPECT_EQ(PrintBars(), "main 0..12 run* 12\n"
                           "work<main 0..12 run* 12\n"
                           "[missing] 10..12 run* 2\n"
                           "work 11..12 run* 1\n"
                           "main<work 11..12 run* 1 hits main:1\n");
}

TEST_F(OpenBarSpliceTest, WithoutAGoodStackNothingIsKept)
{
    for (const char* good : {"-", "lost", "empty", "idle;work"})
    {
        mRanges.clear();
        AddBrokenRange(10, 20, good);
        Start();
        Run("0 sample A main;work\n"
            "10 sample A work\n"
            "12 sample A work\n");
        EXPECT_EQ(TakeReports(), "keep 0 of 2, chunk 0 from 0\n"
                                 "main 0..1 run* 1\n"
                                 "work<main 0..1 run* 1 hits work:1\n");
        EXPECT_EQ(PrintBars(), "[missing] 10..13 run* 3\n"
                               "work 10..13 run* 3 hits work:2\n");
    }
}

// Keeping is decided by callers as well as functions, and what is put in front are the addresses of the bars.
TEST_F(OpenBarSpliceTest, KeptBarsMatchByFunctionAndCallSite)
{
    AddBrokenRange(10, 20, "main+4;work+8;leaf");
    AddBrokenRange(30, 40, "main+8;work");
    Run("0 sample A main+4;work+2\n"
        "10 sample A other\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11\n"
                           "work<main+4 0..11 run* 11 hits work+2:1\n"
                           "[missing] 10..11 run* 1\n"
                           "other 10..11 run* 1 hits other:1\n");
    EXPECT_EQ(mProcessor->GetBars()[1].LastAbsoluteAddress, mFixture.GetAddress("work+2"));
    Run("20 sample A main+4;work\n"
        "30 sample A other\n");
    EXPECT_EQ(PrintBars(), "main 0..31 run* 31\n"
                           "[missing] 30..31 run* 1\n"
                           "other 30..31 run* 1 hits other:1\n");
}

TEST_F(OpenBarSpliceTest, ZonesStayBetweenTheKeptBars)
{
    AddBrokenRange(10, 20, "main;work");
    Run("0 begin A main Draw\n"
        "1 sample A main;work\n"
        "10 sample A leaf\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11\n"
                           "[Draw in main]<main 0..11 run* 11\n"
                           "work<main 1..11 run* 10 hits work:1\n"
                           "[missing] 10..11 run* 1\n"
                           "leaf 10..11 run* 1 hits leaf:1\n");
}

// A zone that ends takes kept bars with it; the marker then stands below the kept depth and is a frame like any other.
TEST_F(OpenBarSpliceTest, ListsThatAreShorterThanTheKeptDepthStaySound)
{
    AddBrokenRange(10, 20, "main;work;leaf");
    Run("0 begin A main Draw\n"
        "1 sample A main;work;leaf\n"
        "10 end A\n"
        "11 sample A main;other;other\n");
    EXPECT_EQ(PrintBars(), "main 0..12 run* 12\n"
                           "0xFFFFFFFFFFFFFFFF(no module)<main 11..12 run* 1\n"
                           "other 11..12 run* 1 hits other:1\n");
}

TEST_F(OpenBarSpliceTest, ARangeThatBeginsAtAnEventOfAnotherKindOrThreadCountsToo)
{
    AddBrokenRange(10, 20, "main");
    Run("0 sample A main;work\n"
        "10 sample B other\n"
        "12 sample A leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..13 run* 13\n"
                           "[missing] 12..13 run* 1\n"
                           "leaf 12..13 run* 1 hits leaf:1\n");
}

// The kept depth is a matter of the moment at which the range begins.
TEST_F(OpenBarSpliceTest, BarsThatOpenAfterARangeBeganAreNotKept)
{
    AddBrokenRange(10, 20, "main;work");
    Run("0 sample A main\n"
        "10 stack A -\n"
        "11 sample A main;work\n");
    EXPECT_EQ(PrintBars(), "main 0..12 run* 12 hits main:1\n"
                           "[missing] 11..12 run* 1\n"
                           "work 11..12 run* 1 hits work:1\n");
}

TEST_F(OpenBarSpliceTest, AWaitsStackIsSplicedToo)
{
    AddBrokenRange(10, 20, "main");
    Run("0 sample A main\n"
        "5 out A 6\n"
        "10 in A leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..10 run 1 sync* 9 hits main:1\n"
                           "[missing] 5..10 sync* 5\n"
                           "leaf 5..10 sync* 5\n");
}

TEST_F(OpenBarSpliceTest, ARangeWithoutLengthIsPassed)
{
    AddBrokenRange(10, 10, "main");
    AddBrokenRange(20, 30, "main");
    Run("0 sample A main\n"
        "10 sample A leaf\n");
    EXPECT_EQ(PrintBars(), "main 0..11 run* 11 hits main:1\n"
                           "[missing] 10..11 run* 1\n"
                           "leaf 10..11 run* 1 hits leaf:1\n");
    Run("12 sample A leaf\n"
        "20 sample A work\n");
    EXPECT_EQ(PrintBars(), "[missing] 20..21 run* 1\n"
                           "work 20..21 run* 1 hits work:1\n");
}

TEST_F(OpenBarSpliceTest, TheGoodStackIsLookedUpInTheProcessOfTheEvent)
{
    mFixture.AddProcess("other");
    AddBrokenRange(10, 20, "main;work");
    Run("0 sample A main;work\n"
        "10 stack A@1 -\n"
        "11 sample A leaf\n");
    EXPECT_EQ(PrintBars(), "[missing] 11..12 run* 1\n"
                           "leaf 11..12 run* 1 hits leaf:1\n");
}

TEST_F(OpenBarSpliceTest, TheGoodStackIsLookedUpAtTheEndOfItsRange)
{
    FakeModule& before = mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}});
    mFixture.LoadModule(before, 0x50000, 0, 0.0, 15.0);
    AddBrokenRange(10, 20, "before");
    Run("0 sample A before\n"
        "10 sample A leaf\n");
    EXPECT_EQ(PrintBars(), "[missing] 10..11 run* 1\n"
                           "leaf 10..11 run* 1 hits leaf:1\n");
}

} // namespace
