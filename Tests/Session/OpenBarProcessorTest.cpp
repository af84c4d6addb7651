// What becomes of bars, rule by rule. Whether the rules go together in all cases is a matter of OpenBarTwinTest.
#include "OpenBarFixture.h"

#include <limits>
#include <sstream>

namespace
{

using Profiler::OpenBarProcessor;
using Profiler::ThreadState;

constexpr double sNoLimit = OpenBarProcessor::sNoTimeLimit;

// What is left open by the events of a new thread A, and what was reported meanwhile.
struct Rule
{
    const char* Name;
    const char* Trace;
    const char* Bars;
    const char* Reports = "";
    double MaxTime = sNoLimit;
    const char* BrokenRanges = ""; // "10 20 main;work": start, end and good stack of each

    friend std::ostream& operator<<(std::ostream& outStream, const Rule& inRule) { return outStream << inRule.Trace; }
};

class OpenBarRuleTest : public OpenBarFixture, public testing::WithParamInterface<Rule>
{
};

TEST_P(OpenBarRuleTest, Holds)
{
    std::istringstream ranges(GetParam().BrokenRanges);
    std::string start;
    std::string end;
    for (std::string stack; ranges >> start >> end >> stack;)
        AddBrokenRange(std::stod(start), std::stod(end), stack);
    mMaxTime = GetParam().MaxTime;
    EXPECT_EQ(Run(GetParam().Trace), GetParam().Bars);
    EXPECT_EQ(TakeReports(), GetParam().Reports);
}

const Rule sSampleRules[] = {
    {"AnotherLeafClosesTheOldOneWhereTheSampleClippedIt", "0 sample A main;work, 0.5 sample A main;leaf",
     "main 0..1.5 run* 1.5; leaf<main 0.5..1.5 run* 1 hits leaf:1",
     "keep 1 of 2, chunk 0 from 0: main 0..0.5 run* 0.5; work<main 0..0.5 run* 0.5 hits work:1\n"},
    {"AnAddressInsideTheLeafChangesNoBar", "0 sample A main;work+4, 1 sample A main;work+8, 2 sample A main;work+8",
     "main 0..3 run* 3; work<main 0..3 run* 3 hits work+4:1 hits work+8:2"},
    {"AnotherCallSiteClosesTheCalledBars", "0 sample A main+4;work;leaf, 1 sample A main+8;work;leaf",
     "main 0..2 run* 2; work<main+8 1..2 run* 1; leaf<work 1..2 run* 1 hits leaf:1",
     "keep 1 of 3, chunk 0 from 0: main 0..1 run* 1; work<main+4 0..1 run* 1; leaf<work 0..1 run* 1 hits leaf:1\n"},
    {"AShorterStackClosesTheRestAndAnotherRootAll", "0 sample A main;work;leaf, 1 sample A main, 2 sample A idle",
     "idle 2..3 run* 1 hits idle:1",
     "keep 1 of 3, chunk 0 from 0: main 0..1 run* 1; work<main 0..1 run* 1; leaf<work 0..1 run* 1 hits leaf:1\n"
     "keep 0 of 1, chunk 0 from 0: main 0..2 run* 2 hits main:1\n"},
    {"TheFirstReportOfALaterChunkFinishesTheChunkEvenIfNothingCloses",
     "0 sample A main, 500 sample A main, 1000 sample A main;work",
     "main 0..1001 run* 1001 hits main:2; work<main 1000..1001 run* 1 hits work:1",
     "keep 1 of 1, chunk 0 from 0 finished: main 0..1 run* 1 hits main:1\n"
     "keep 1 of 1, chunk 1 from 500 finished: main 0..501 run* 501 hits main:2\n"},
    {"TimeThatGoesBackTurnsBarsBackAndCountsAsSuch", "600 sample A main, 100 sample A main",
     "main 600..101 run* -499 hits main:2", "keep 1 of 1, chunk 1 from 600 finished: main 600..100 run* -500 hits main:1\n"},
    {"TheLimitCapsSpansButNotTheChunk", "2 sample A main, 3 sample A main;work, 700 sample A main, 1200 sample A main",
     "main 2..2.5 run* 0.5 hits main:1",
     "keep 1 of 2, chunk 0 from 2 finished: main 2..2.5 run* 0.5 hits main:1; work<main 2.5..2.5 run* 0\n"
     "keep 1 of 1, chunk 1 from 700 finished: main 2..2.5 run* 0.5 hits main:1\n",
     2.5},
    {"AFrameWithoutFunctionIsItsOwnAddress", "0 sample A main;0x99, 1 sample A main;0x9A, 2 sample A main;0x10F00",
     "main 0..3 run* 3; 0xF00<main 2..3 run* 1 hits 0xF00:1",
     "keep 1 of 2, chunk 0 from 0: main 0..1 run* 1; 0x99(no module)<main 0..1 run* 1 hits 0x99:1\n"
     "keep 1 of 2, chunk 0 from 0: main 0..2 run* 2; 0x9A(no module)<main 1..2 run* 1 hits 0x9A:1\n"},
    {"ASampleWithoutFramesOnlyTellsThatTheThreadRuns",
     "2 sample A -, 2 sample A empty, 2 sample A lost, 2.5 in A work, 3 sample A main, 600 sample A lost",
     "main 3..4 run* 1 hits main:1"},
    {"ABareStackTeachesAddresses", "0 stack A main;work, 0 stack A empty, 0 stack A lost, 1 sample A@1 main;work",
     "main 1..2 run* 1; work<main 1..2 run* 1 hits work:1"},
    {"ATimedWakeUpTeachesNone", "0 wake-timed A B main;work 0, 1 sample A@1 main;work",
     "shadow 1..2 run* 1; shadow<shadow 1..2 run* 1 hits shadow+256:1"},
    {"ASampleTakesTheFramesBeforeTheStop", "0 sample A main;work;stop+8;other, 1 sample A main;work, 2 sample A stop;work",
     "main 0..2 run* 2; work<main 0..2 run* 2 hits work:2"}};

const Rule sWaitRules[] = {
    {"ASampleDuringAWaitIsDropped", "0 sample A main, 0.75 out A 6, 3 sample A main;work, 4 begin A main;work Draw",
     "main 0..0.75 run* 0.75 hits main:1"},
    // Running goes on from the end of the wait.
    {"AWaitWithAStackFillsItsTime", "0 sample A main;work, 2 out A 6, 12 in A main;leaf, 15 sample A main;leaf",
     "main 0..16 run* 5 sync 11; leaf<main 2..16 run* 4 sync 10 hits leaf:1",
     "keep 1 of 2, chunk 0 from 0: main 0..1 run* 1; work<main 0..1 run* 1 hits work:1\n"},
    {"WaitsWithoutAStackAddUpByState",
     "0 sample A main;work, 1 out A 6, 3 in A -, 4 out A 4, 9 in A lost, 10 sample A main, 12 sample A main",
     "main 0..13 run* 6 sleep 5 sync 2 hits main:2",
     "keep 1 of 2, chunk 0 from 0: main 0..1 run* 1; work<main 0..1 run* 1 hits work:1\n"},
    // The wait that couldn't be placed goes to the bars that the next wait's stack keeps; the gap up to that wait was running.
    {"AWaitWithAStackSpreadsTheOneBeforeIt", "0 sample A main, 1 out A 6, 3 in A -, 6 out A 4, 9 in A main",
     "main 0..9 run 4 sleep* 3 sync 2 hits main:1"},
    {"AWaitNeedsAWholeStack", "0 sample A main;stop, 1 out A 6, 4 in A main;stop, 5 sample A main",
     "main 0..6 run* 3 sync 3 hits main:2"},
    {"AWaitsStackIsLookedUpWhereTheWaitBegan", "0 sample A main, 90 out A 6, 110 in A before", "before 90..110 sync* 20",
     "keep 0 of 1, chunk 0 from 0: main 0..1 run* 1 hits main:1\n"},
    {"AWaitOverAChunkBoundaryIsCutInTwo", "490 sample A main, 495 out A 0, 1510 in A main;work, 2000 sample A main",
     "main 490..2001 run* 492 io 1019 hits main:2",
     "keep 2 of 2, chunk 0 from 490 finished: main 490..500 run 1 io* 9 hits main:1; work<main 495..500 io* 5\n"
     "keep 1 of 2, chunk 3 from 1500 finished: main 490..1510 run 1 io* 1019 hits main:1; work<main 495..1510 io* 1015\n"},
    // At this time neighbouring single-precision numbers are 128 apart: the first cut is 1073742464 instead of 1073742500, and
    // the second, 1073742976 instead of 1073743000, lies in the chunk before.
    {"TheCutsAreSinglePrecision", "1073742090 sample A main, 1073742100 out A 6, 1073743100 in A main, 1073743100 sample A main",
     "main 1073742090..1073743101 run* 2 sync 1009 hits main:2",
     "keep 1 of 1, chunk 2147484 from 1073742090 finished: main 1073742090..1073742464 run 1 sync* 373 hits main:1\n"
     "keep 1 of 1, chunk 2147485 from 1073742976 finished: main 1073742090..1073743100 run 1 sync* 1009 hits main:1\n"},
    // Six milliseconds of waiting before the limit, and no time behind it.
    {"TheLimitCapsAWait", "0 sample A main, 1 out A 6, 10 in A -, 12 sample A main", "main 0..7 run* 1 sync 6 hits main:1", "",
     7.0},
    {"AWaitThatEndsBeforeItBeganCountsBack", "5 sample A main, 6 out A 6, 4 in A main", "main 5..4 run 1 sync* -2 hits main:1"}};

const Rule sZoneRules[] = {
    {"AZoneOpensOnTopOfItsStackAndCountsNoHit", "0 begin A main;work Draw frame1 255",
     "main 0..1 run* 1; work<main 0..1 run* 1; [Draw in work]<work 0..1 run* 1 context frame1"},
    {"NoZoneOpensWhereNobodyKnowsTheFunction", "0 begin A main;0x10F00 Draw, 1 begin A main;0x99 Draw, 2 begin A - Draw",
     "main 0..2 run* 2; 0x99(no module)<main 1..2 run* 1",
     "keep 1 of 2, chunk 0 from 0: main 0..1 run* 1; 0xF00<main 0..1 run* 1\n"},
    // The sampled leaf is the last open bar, even where that is a zone.
    {"AZoneStaysAsLongAsTheBarsBelowItDo", "0 begin A main;work Draw, 1 sample A main;work;leaf, 2 sample A main;work",
     "main 0..3 run* 3; work<main 0..3 run* 3; [Draw in work]<work 0..3 run* 3 hits work:1",
     "keep 3 of 4, chunk 0 from 0: main 0..2 run* 2; work<main 0..2 run* 2; [Draw in work]<work 0..2 run* 2; "
     "leaf<work 1..2 run* 1 hits leaf:1\n"},
    {"AnEndClosesTheDeepestZoneAndAllAboveIt", "0 begin A main Draw, 1 begin A main;work Update, 2.5 end A, 4 end A",
     "main 0..4 run* 4",
     "keep 3 of 4, chunk 0 from 0: main 0..2.5 run* 2.5; [Draw in main]<main 0..2.5 run* 2.5; work<main 1..2.5 run* 1.5; "
     "[Update in work]<work 1..2.5 run* 1.5\n"
     "keep 1 of 3, chunk 0 from 0: main 0..4 run* 4; [Draw in main]<main 0..4 run* 4; work<main 1..2.5 run* 1.5\n"},
    {"ALoneEndLeavesAWaitThatIsToBeSpread", "0 sample A main, 1 out A 6, 5 in A -, 6 end A, 8 sample A main",
     "main 0..9 run* 5 sync 4 hits main:2"},
    // The zone ends as if the thread had run, and the next switch-in goes back to where the wait began.
    {"AZoneThatEndsDuringAWaitIsSettledAtItsTime", "490 begin A main Draw, 491 out A 6, 700 end A, 800 in A main",
     "main 490..800 run 1 sync* 309",
     "keep 1 of 2, chunk 0 from 490: main 490..700 run* 210; [Draw in main]<main 490..700 run* 210\n"
     "keep 1 of 1, chunk 0 from 490 finished: main 490..500 run 1 sync* 9\n"},
    // The stack's frame keeps the function that it had.
    {"AZoneIsLookedUpAtItsOwnTime", "99 sample A before, 101 begin A before Draw",
     "before 99..102 run* 3 hits before:1; [Draw in after]<after 101..102 run* 1"}};

const Rule sFiberRules[] = {
    {"AFibersBarsCloseAndComeBack", "0 begin A main;work Job ctx, 5 fiber-out A 7, 6 sample A main;idle, 10 fiber-in A 7",
     "main 0..11 run* 11; work<main 10..11 run* 1; [Job in work]<work 10..11 run* 1 context ctx",
     "keep 2 of 3, chunk 0 from 0: main 0..5 run* 5; work<main 0..5 run* 5; [Job in work]<work 0..5 run* 5 context ctx\n"
     "keep 1 of 2, chunk 0 from 0: main 0..5 run* 5; work<main 0..5 run* 5\n"
     "keep 1 of 2, chunk 0 from 0: main 0..7 run* 7; idle<main 6..7 run* 1 hits idle:1\n"},
    {"WhatLiesBelowTheFirstZoneStaysAndAboveTheLastIsLost",
     "0 begin A main One, 1 begin A main;work Two, 2 sample A main;work;leaf, 2.5 fiber-out A 7, 4 fiber-in A 7",
     "main 0..5 run* 5; [One in main]<main 4..5 run* 1; work<main 4..5 run* 1; [Two in work]<work 4..5 run* 1",
     "keep 1 of 5, chunk 0 from 0: main 0..2.5 run* 2.5; [One in main]<main 0..2.5 run* 2.5; work<main 1..2.5 run* 1.5; "
     "[Two in work]<work 1..2.5 run* 1.5; leaf<work 2..2.5 run* 0.5 hits leaf:1\n"},
    // Open zones are passed over, while the saved zone is a bar to be matched: it opens once more.
    {"AFiberThatComesBackTwiceHasItsZoneTwice", "0 begin A main Job, 1 fiber-out A 7, 2 fiber-in A 7, 3 fiber-in A 7",
     "main 0..4 run* 4; [Job in main]<main 2..4 run* 2; [Job in main]<main 3..4 run* 1",
     "keep 1 of 2, chunk 0 from 0: main 0..1 run* 1; [Job in main]<main 0..1 run* 1\n"},
    {"ASwitchOutWithoutBarsForgetsTheWait", "1 out A 6, 5 in A -, 6 fiber-out A 7, 7 sample A main, 8 sample A main",
     "main 7..9 run* 2 hits main:2"},
    // The wait goes back to its start: what the fiber opened since is turned back too.
    {"ASwitchDuringAWaitIsSettledAtItsTime", "0 begin A main Job, 1 out A 4, 3 fiber-out A 7, 4 fiber-in A 7, 9 in A main",
     "main 0..9 run 1 sleep* 8; [Job in main]<main 4..9 run -3 sleep* 8",
     "keep 1 of 2, chunk 0 from 0: main 0..3 run* 3; [Job in main]<main 0..3 run* 3\n"}};

const Rule sSpliceRules[] = {
    // Inside the range the missing frames go on too.
    {"ACutShortStackGoesOnTopOfTheBarsThatTheGoodStackKeeps", "0 sample A main;work, 10 sample A leaf, 12 sample A leaf;other",
     "main 0..13 run* 13; work<main 0..13 run* 13 hits work:1; [missing] 10..13 run* 3; leaf 10..13 run* 3 hits leaf:1; "
     "other<leaf 12..13 run* 1 hits other:1",
     "", sNoLimit, "10 20 main;work;leaf"},
    // Only a frame at its own position is in common.
    {"FramesInCommonWithTheKeptBarsAreLeftOut", "0 sample A main;work, 10 sample A main;other, 11 sample A work;main",
     "main 0..12 run* 12; work<main 0..12 run* 12 hits work:1; [missing] 10..12 run* 2; work 11..12 run* 1; "
     "main<work 11..12 run* 1 hits main:1",
     "keep 3 of 4, chunk 0 from 0: main 0..11 run* 11; work<main 0..11 run* 11 hits work:1; [missing] 10..11 run* 1; "
     "other 10..11 run* 1 hits other:1\n",
     sNoLimit, "10 20 main;work"},
    // Keeping is decided by callers as well as functions.
    {"KeptBarsMatchByFunctionAndCallSite",
     "0 sample A main+4;work, 10 sample A other, 20 sample A main+4;work, 30 sample A other",
     "main 0..31 run* 31; [missing] 30..31 run* 1; other 30..31 run* 1 hits other:1",
     "keep 2 of 4, chunk 0 from 0: main 0..11 run* 11; work<main+4 0..11 run* 11 hits work:1; [missing] 10..11 run* 1; "
     "other 10..11 run* 1 hits other:1\n"
     "keep 1 of 2, chunk 0 from 0: main 0..21 run* 21; work<main+4 0..21 run* 21 hits work:2\n",
     sNoLimit, "10 20 main+4;work+8;leaf 30 40 main+8;work"},
    // A zone that ends takes kept bars with it; the marker then stands below the kept depth and is a frame like any other.
    {"ListsThatAreShorterThanTheKeptDepthStaySound",
     "0 begin A main Draw, 1 sample A main;work, 10 end A, 11 sample A main;other",
     "main 0..12 run* 12; 0xFFFFFFFFFFFFFFFF(no module)<main 11..12 run* 1; other 11..12 run* 1 hits other:1",
     "keep 1 of 3, chunk 0 from 0: main 0..10 run* 10; [Draw in main]<main 0..10 run* 10; work<main 1..2 run* 1 hits work:1\n",
     sNoLimit, "10 20 main;work;leaf"},
    {"ARangeThatBeginsAtAnEventOfAnotherThreadCountsToo", "0 sample A main, 10 sample B other, 12 sample A leaf",
     "main 0..13 run* 13 hits main:1; [missing] 12..13 run* 1; leaf 12..13 run* 1 hits leaf:1", "", sNoLimit, "10 20 main"},
    {"ARangeWithoutLengthIsPassed", "0 sample A main, 10 sample A leaf, 12 sample A leaf", "leaf 12..13 run* 1 hits leaf:1",
     "keep 0 of 3, chunk 0 from 0: main 0..11 run* 11 hits main:1; [missing] 10..11 run* 1; leaf 10..11 run* 1 hits leaf:1\n",
     sNoLimit, "10 10 main"},
    {"TheGoodStackIsLookedUpAtTheEndOfItsRange", "80 sample A before, 90 sample A leaf",
     "[missing] 90..91 run* 1; leaf 90..91 run* 1 hits leaf:1",
     "keep 0 of 1, chunk 0 from 80: before 80..81 run* 1 hits before:1\n", sNoLimit, "90 210 before"}};

std::string gGetName(const testing::TestParamInfo<Rule>& inInfo)
{
    return inInfo.param.Name;
}

INSTANTIATE_TEST_SUITE_P(Samples, OpenBarRuleTest, testing::ValuesIn(sSampleRules), gGetName);
INSTANTIATE_TEST_SUITE_P(Waits, OpenBarRuleTest, testing::ValuesIn(sWaitRules), gGetName);
INSTANTIATE_TEST_SUITE_P(Zones, OpenBarRuleTest, testing::ValuesIn(sZoneRules), gGetName);
INSTANTIATE_TEST_SUITE_P(Fibers, OpenBarRuleTest, testing::ValuesIn(sFiberRules), gGetName);
INSTANTIATE_TEST_SUITE_P(Splices, OpenBarRuleTest, testing::ValuesIn(sSpliceRules), gGetName);

// --- What takes more than one trace ---

class OpenBarProcessorTest : public OpenBarFixture
{
};

TEST_F(OpenBarProcessorTest, AListWithoutBarsReportsNoChunkButTakesIt)
{
    Run("0 sample A main");
    mProcessor->Flush();
    EXPECT_EQ(TakeReports(), "keep 0 of 1, chunk 0 from 0: main 0..1 run* 1 hits main:1\n");
    mProcessor->Flush();
    Run("700 sample A main");
    EXPECT_EQ(TakeReports(), "");
    Run("1000 sample A main");
    EXPECT_EQ(TakeReports(), "keep 1 of 1, chunk 1 from 700 finished: main 700..701 run* 1 hits main:1\n");
}

TEST_F(OpenBarProcessorTest, EventsOfOtherConcernChangeNothing)
{
    Run("0 start A 1, 0 start-shown A 77 0, 0 name A Worker, 0 exit A 0, 0 exit A 3, 0 exit-shown A 77 0, 0 wake A B main, "
        "0 wake-timed A B main 3, 0 stack A main, 0 reserved13 A 1, 0 reserved14 A 1, 0 sample B main, 0 out B 22, 0 exit B 1, "
        "0 end A, 0 fiber-out A 1, 0 fiber-in A 1");
    mProcessor->HandleEvent(Profiler::TraceEvent(), mMaxTime);
    EXPECT_EQ(GetState(), ThreadState::NotStarted);
    mProcessor->Flush();
    EXPECT_EQ(TakeReports(), "");
}

TEST_F(OpenBarProcessorTest, AThreadEndsByFlagOrByItsLastSwitch)
{
    for (const char* end : {"exit A 1", "exit A 2", "exit-shown A 77 1", "exit-shown A 77 2", "out A 22"})
    {
        Start();
        EXPECT_EQ(Run(std::string("0 sample A main, 1 ") + end + ", 1 sample A work, 1 out A 6, 1 end A, 1 in A work"),
                  "main 0..1 run* 1 hits main:1");
        EXPECT_EQ(GetState(), ThreadState::Finished);
        EXPECT_EQ(TakeReports(), "");
    }
}

TEST_F(OpenBarProcessorTest, TheFirstSwitchInEndsAWaitSinceTheThreadsStart)
{
    mFixture.GetSession().GetSessionInfo().SessionStartTimeMs = 1.0;
    const auto runFrom = [this](double inStart)
    {
        mFixture.GetSession().GetThread(0)->StartTimeMs = inStart;
        Start();
        return Run("5 in A main, 6 sample A main");
    };
    EXPECT_EQ(runFrom(3.0), "main 3..7 unknown 2 run* 2 hits main:1");
    EXPECT_EQ(runFrom(-2.0), "main 1..7 unknown 4 run* 2 hits main:1");
    for (const double noTime : {1e300, std::numeric_limits<double>::infinity()})
        EXPECT_EQ(runFrom(noTime), "main 6..7 run* 1 hits main:1");
    Start(-1);
    EXPECT_EQ(Run("5 in -1 main"), "main 1..5 unknown* 4");
}

TEST_F(OpenBarProcessorTest, AFiberGoesOnOnAnotherThread)
{
    Run("0 begin A main;work Job, 5 fiber-out A 7");
    Start(1);
    const std::string bars = "main 600..601 run* 1; work<main 600..601 run* 1; [Job in work]<work 600..601 run* 1";
    EXPECT_EQ(Run("600 fiber-in B 7"), bars);
    EXPECT_EQ(TakeReports(), "");
    // A switch of fibers says nothing about the thread, but the chunk is its.
    EXPECT_EQ(GetState(), ThreadState::NotStarted);
    Run("1100 fiber-in B 7");
    EXPECT_EQ(TakeReports(), "keep 3 of 3, chunk 1 from 600 finished: " + bars + "\n");
}

// --- The deepest list ---

std::string gRepeat(size_t inCount, const std::string& inEvent)
{
    std::string trace;
    for (size_t i = 0; i < inCount; ++i)
        trace += inEvent + ",";
    return trace;
}

TEST_F(OpenBarProcessorTest, ZonesWithoutEndsStopAtTheDeepestList)
{
    const size_t deepest = OpenBarProcessor::sMaxOpenBars;
    Run(gRepeat(deepest + 9, "0 begin A main Draw"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), deepest);
    EXPECT_EQ(mProcessor->GetNumLeftOutBars(), 10U);
    Run(gRepeat(10, "1 end A"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), deepest) << "the ends of zones that never opened";
    Run(gRepeat(deepest - 1, "2 end A"));
    EXPECT_EQ(mProcessor->GetBars().GetSize(), 1U);
}

TEST_F(OpenBarProcessorTest, ZonesThatDoubleEachTimeStopAtTheDeepestList)
{
    Run("0 begin A main Job, 1 fiber-out A 7," + gRepeat(28, "2 fiber-in A 7, 2 fiber-in A 7, 2 fiber-out A 7") +
        "3 fiber-in A 7");
    EXPECT_EQ(mProcessor->GetBars().GetSize(), OpenBarProcessor::sMaxOpenBars);
    EXPECT_GT(mProcessor->GetNumLeftOutBars(), 0U);
}

} // namespace
