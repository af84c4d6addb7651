#include "OpenBarFixture.h"

namespace
{

class OpenBarInstrumentationTest : public OpenBarFixture
{
protected:
    const Profiler::InstrumentationDatabase& GetZones()
    {
        return mFixture.GetSession().GetModuleDatabase().GetInstrumentationDatabase();
    }

    const Profiler::InstrumentationData* FindZone(uint64_t inRelativeAddress)
    {
        return GetZones().FindInstrumentationData({inRelativeAddress, {Profiler::ResolveIndex::sInstrumentedFlag}});
    }
};

TEST_F(OpenBarInstrumentationTest, AZoneOpensOnTopOfItsStackAndCountsNoHit)
{
    Run("0 begin A main;work Draw frame1 255\n");
    EXPECT_EQ(PrintBars(), "main 0..1 run* 1\n"
                           "work<main 0..1 run* 1\n"
                           "[Draw in work]<work 0..1 run* 1 context frame1\n");
    ASSERT_NE(FindZone(0x200), nullptr);
    EXPECT_EQ(FindZone(0x200)->Color, 255U);
    EXPECT_EQ(mProcessor->GetBars()[2].LastAbsoluteAddress, mFixture.GetAddress("work"));
}

TEST_F(OpenBarInstrumentationTest, ZonesWithoutEndsStopAtTheDeepestList)
{
    const size_t deepest = Profiler::OpenBarProcessor::sMaxOpenBars;
    const auto repeat = [](size_t inCount, const std::string& inLine)
    {
        std::string trace;
        for (size_t i = 0; i < inCount; ++i)
            trace += inLine;
        return trace;
    };
    Run(repeat(deepest + 9, "0 begin A main Draw\n"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), deepest);
    EXPECT_EQ(mProcessor->GetNumLeftOutBars(), 10U);
    Run(repeat(10, "1 end A\n"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), deepest) << "the ends of zones that never opened";
    Run(repeat(deepest - 1, "2 end A\n"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), 1U);
}

TEST_F(OpenBarInstrumentationTest, ZonesOfOneFunctionStayApartByTheirAddress)
{
    Run("0 begin A main+8 Draw\n"
        "1 begin A main+16 Update\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "[Draw in main+8]<main+8 0..2 run* 2\n"
                           "[Update in main+16]<main+16 1..2 run* 1\n");
    EXPECT_EQ(FindZone(0x100), nullptr);
    EXPECT_EQ(FindZone(0x108)->Color, 0xFFFFFFFF);
}

TEST_F(OpenBarInstrumentationTest, ABeginWithoutANameOpensOnlyItsStack)
{
    Run("0 begin A main -\n"
        "1 begin A main;work - ctx 7\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "work<main 1..2 run* 1\n");
    EXPECT_EQ(FindZone(0x100), nullptr);
}

TEST_F(OpenBarInstrumentationTest, NoZoneOpensWhereNobodyKnowsTheFunction)
{
    Run("0 begin A main;0x99 Draw\n");
    EXPECT_EQ(PrintBars(), "main 0..1 run* 1\n"
                           "0x99(no module)<main 0..1 run* 1\n");
    Run("1 begin A main;0x10F00 Draw\n");
    EXPECT_EQ(PrintBars(), "main 0..2 run* 2\n"
                           "0xF00<main 1..2 run* 1\n");
    Run("2 begin A - Draw\n");
    EXPECT_EQ(mProcessor->GetBars().GetSize(), 2U);
}

TEST_F(OpenBarInstrumentationTest, AZoneStaysAsLongAsTheBarsBelowItDo)
{
    Run("0 begin A main;work Draw\n"
        "1 sample A main;work;leaf\n"
        "2 sample A main;work\n");
    EXPECT_EQ(TakeReports(), "keep 3 of 4, chunk 0 from 0\n"
                             "main 0..2 run* 2\n"
                             "work<main 0..2 run* 2\n"
                             "[Draw in work]<work 0..2 run* 2\n"
                             "leaf<work 1..2 run* 1 hits leaf:1\n");
    // The sampled leaf is the last open bar, even where that is a zone.
    EXPECT_EQ(PrintBars(), "main 0..3 run* 3\n"
                           "work<main 0..3 run* 3\n"
                           "[Draw in work]<work 0..3 run* 3 hits work:1\n");
    Run("3 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4 hits main:1\n");
}

TEST_F(OpenBarInstrumentationTest, AnEndClosesTheDeepestZoneAndAllAboveIt)
{
    Run("0 begin A main Draw\n"
        "1 begin A main;work Update\n"
        "2 sample A main;work;leaf\n"
        "2.5 end A\n");
    EXPECT_EQ(TakeReports(), "keep 3 of 5, chunk 0 from 0\n"
                             "main 0..2.5 run* 2.5\n"
                             "[Draw in main]<main 0..2.5 run* 2.5\n"
                             "work<main 1..2.5 run* 1.5\n"
                             "[Update in work]<work 1..2.5 run* 1.5\n"
                             "leaf<work 2..2.5 run* 0.5 hits leaf:1\n");
    Run("4 end A\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 3, chunk 0 from 0\n"
                             "main 0..4 run* 4\n"
                             "[Draw in main]<main 0..4 run* 4\n"
                             "work<main 1..2.5 run* 1.5\n");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4\n");
}

TEST_F(OpenBarInstrumentationTest, AnEndInALaterChunkFinishesNoChunk)
{
    Run("0 begin A main Draw\n"
        "1600 end A\n"
        "1601 sample A main\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..1600 run* 1600\n"
                             "[Draw in main]<main 0..1600 run* 1600\n"
                             "keep 1 of 1, chunk 0 from 0 finished\n"
                             "main 0..1600 run* 1600\n");
}

TEST_F(OpenBarInstrumentationTest, ALoneEndOnlyClips)
{
    Run("0 sample A main\n"
        "0.5 end A\n");
    EXPECT_EQ(TakeReports(), "");
    EXPECT_EQ(PrintBars(), "main 0..0.5 run* 0.5 hits main:1\n");
}

TEST_F(OpenBarInstrumentationTest, ALoneEndLeavesAWaitThatIsToBeSpread)
{
    Run("0 sample A main\n"
        "1 out A 6\n"
        "5 in A -\n"
        "6 end A\n"
        "8 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..9 run* 5 sync 4 hits main:2\n");
}

TEST_F(OpenBarInstrumentationTest, AnEndSpreadsAWaitOverTheZoneAndWhatLiesBelow)
{
    Run("0 begin A main Draw\n"
        "1 out A 6\n"
        "5 in A -\n"
        "7 end A\n");
    EXPECT_EQ(TakeReports(), "keep 1 of 2, chunk 0 from 0\n"
                             "main 0..7 run* 3 sync 4\n"
                             "[Draw in main]<main 0..7 run* 3 sync 4\n");
    Run("8 sample A main\n");
    EXPECT_EQ(PrintBars(), "main 0..9 run* 5 sync 4 hits main:1\n");
}

TEST_F(OpenBarInstrumentationTest, TheLimitCapsAnEnd)
{
    mMaxTime = 4.0;
    Run("0 begin A main Draw\n"
        "7 end A\n");
    EXPECT_EQ(PrintBars(), "main 0..4 run* 4\n");
}

// The stack's frame keeps the function that it had, while the zone is looked up at its own time.
TEST_F(OpenBarInstrumentationTest, AZoneIsResolvedAtItsEvent)
{
    FakeModule& before = mFixture.AddModule("/bin/before", 0x1000, {{0x100, 0x40, "before"}});
    FakeModule& after = mFixture.AddModule("/bin/after", 0x1000, {{0x100, 0x40, "after"}});
    mFixture.LoadModule(before, 0x50000, 0, 0.0, 100.0);
    mFixture.LoadModule(after, 0x50000, 0, 100.5, 200.0);
    Run("99 sample A before\n"
        "101 begin A before Draw\n");
    EXPECT_EQ(PrintBars(), "before 99..102 run* 3 hits before:1\n"
                           "[Draw in after]<after 101..102 run* 1\n");
}

} // namespace
