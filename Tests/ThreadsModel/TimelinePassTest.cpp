// Whole passes over events: what the lanes of states and the bars of the finest level are afterwards.
#include "Tests/ThreadsModel/GameTimeline.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>

namespace
{

using namespace Profiler;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

template <class Case>
std::string gGetName(const testing::TestParamInfo<Case>& inInfo)
{
    return inInfo.param.Name;
}

// --- The state lane ---

struct LaneCase
{
    const char* Name;
    const char* Trace;
    const char* Lane;
    const char* WakeUps = "";
    double End = 20.0; // of the capture
    ThreadID Thread = 0;
    uint64_t NumLeftOut = 0;

    friend std::ostream& operator<<(std::ostream& outStream, const LaneCase& inCase) { return outStream << inCase.Trace; }
};

class LaneTest : public GameTimelineTest, public testing::WithParamInterface<LaneCase>
{
};

TEST_P(LaneTest, Holds)
{
    const LaneCase& param = GetParam();
    GetSession().GetSessionInfo().SessionEndTimeMs = param.End;
    const LogCapture log;
    ASSERT_EQ(RunPass(param.Trace), "") << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintStates(GetModel(), param.Thread), param.Lane);
    EXPECT_EQ(PrintWakeUps(GetModel()), param.WakeUps);
    EXPECT_EQ(GetModel().GetLeftOutCounts().Spans, param.NumLeftOut);
    EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
}

const LaneCase sSwitchCases[] = {
    {"AFirstSwitchInEndsAnUnknownWait", "10 in B main;work, 12 out B 6",
     "0: unknown 3..10 stack main;work, run 10..12, sync 12..20", "", 20, 1},
    {"AFirstSwitchOutEndsARun", "10 out B 4", "0: run 3..10, sleep 10..20", "", 20, 1},
    {"ASecondSwitchOfAKindChangesNothing", "2 out A 4, 3 out A 6, 4 sample A main, 5 in A main, 6 in A work",
     "0: run 0..2, sleep 2..5 stack main, run 5..20"},
    {"ATerminatingSwitchEndsTheLane", "2 out A 4, 5 in A -, 7 out A 22, 9 in A main", "0: run 0..2, sleep 2..5, run 5..7"},
    {"ATerminatingSwitchInAWaitLeavesNoSpan", "2 out A 4, 7 out A 22", "0: run 0..2"},
    {"OnlySwitchesOfCapturedProcessesCount", "1 out A@1 4, 5 in A@1 main", "0: unknown 0..20"},
    {"NobodyKnowsTheThread", "1 out 77 4, 3 in 77 main", "0: run 0..1, sleep 1..3 stack main, run 3..20", "", 20, 77},
    {"ThreadMinusOne", "5 in -1 main", "0: unknown 0..5 stack main, run 5..20", "", 20, -1},
};
INSTANTIATE_TEST_SUITE_P(Switches, LaneTest, testing::ValuesIn(sSwitchCases), gGetName<LaneCase>);

const LaneCase sEndCases[] = {
    {"AWaitEndsWithTheThread", "2 out A 4, 9 exit A 2", "0: run 0..2, sleep 2..9"},
    {"ARunEndsWithTheThread", "2 out A 4, 5 in A -, 9 exit-shown A 77 2", "0: run 0..2, sleep 2..5, run 5..9"},
    {"AThreadThatOutlivesTheCaptureEndsWithIt", "2 out A 4, 9 exit A 1, 10 wake B A work", "0: run 0..2, sleep 2..20"},
    {"AnOrdinaryEndIsLeftToTheLastSwitch", "2 out A 4, 9 exit A 0", "0: run 0..2, sleep 2..20"},
    {"AnEndBeforeAnySwitchChangesNothing", "9 exit A 2", "0: unknown 0..9"},
    {"TheEndOfAnUnknownThreadIsTimeZero", "1 out 77 4, 9 exit 77 2", "0: run 0..1", "", 20, 77, 1},
    {"AnEndInAnyProcessCountsAtTheStoredTime", "1 out A 4, 9 exit A@1 2", "0: run 0..1", "", 20, 0, 1},
    {"SamplesAloneAreALifeOfRunning", "10 sample B main, 11 exit B 2", "0: run 3..11", "", 20, 1},
    {"StacksAloneAreALifeOfRunning", "10 stack B main", "0: run 3..20", "", 20, 1},
    {"ZonesAloneAreALifeOfWaiting", "10 begin B main Zone", "0: unknown 3..20", "", 20, 1},
    {"NothingIsALifeOfWaiting", "10 sample A main", "0: unknown 3..20", "", 20, 1},
};
INSTANTIATE_TEST_SUITE_P(Ends, LaneTest, testing::ValuesIn(sEndCases), gGetName<LaneCase>);

const LaneCase sChunkCases[] = {
    {"AWaitOverABoundary", "400 out A 4, 700 in A main",
     "0: run 0..400, sleep 400..500 of 400..700 stack main ends 700\n"
     "1: < sleep 500..700 of 400..700 stack main, run 700..800",
     "", 800},
    {"AWaitOverManyChunksLeavesTheMiddleOut", "400 out A 4, 2 wake B A work, 1700 in A -",
     "0: run 0..400, sleep 400..500 of 400..1700 ready 0 ends 1700\n"
     "3: < sleep 1500..1700 of 400..1700 ready 0, run 1700..1800",
     "2: sleep 400..1700 -, 0 by 1 work", 1800},
    {"ASpanThatEndsOnABoundaryTouchesTheNextChunk", "500 out A 4",
     "0: run 0..500 ends 500\n1: < run 500..500 of 0..500, sleep 500..600", "", 600},
    {"TheLastSpanIsCutAsWell", "1 sample A main", "0: run 0..500 of 0..1200 ends 1200\n2: < run 1000..1200 of 0..1200", "", 1200},
};
INSTANTIATE_TEST_SUITE_P(Chunks, LaneTest, testing::ValuesIn(sChunkCases), gGetName<LaneCase>);

const LaneCase sWakeUpCases[] = {
    {"OnlyTheFirstOfAWaitCounts",
     "2 out A 6, 4 wake B A work, 5 wake B A leaf, 6 in A main, 8 out A 4, 9 wake -1 A main, 10 in A main;work",
     "0: run 0..2, sync 2..6 stack main ready 0, run 6..8, sleep 8..10 stack main;work, run 10..20",
     "4: sync 2..6 main, 0 by 1 work"},
    {"NoneOfARunCounts", "2 out A 6, 3 in A -, 4 wake B A work, 5 out A 6", "0: run 0..2, sync 2..3, run 3..5, sync 5..20"},
    {"OneAheadOfAnySwitchCounts", "1 wake B A work, 3 in A main, 5 out A 6, 6 wake B A leaf, 7 in A main",
     "0: unknown 0..3 stack main ready 0, run 3..5, sync 5..7 stack main ready 1, run 7..20",
     "1: unknown 0..3 main, 0 by 1 work\n6: sync 5..7 main, 0 by 1 leaf"},
    {"OneAheadOfARunHasNoWait", "1 wake B A work, 3 out A 6, 5 in A main", "0: run 0..3, sync 3..5 stack main, run 5..20",
     "1: no wait, 0 by 1 work"},
    {"TheThreadEndsInTheWait", "2 out A 6, 4 wake-timed B A work 3.5, 9 exit A 2", "0: run 0..2, sync 2..9 ready 0",
     "3.5: sync 2..9 -, 0 by 1 work"},
    {"TheCaptureEndsInTheWait", "2 out A 6, 4 wake B A work", "0: run 0..2, sync 2..20 ready 0", "4: sync 2..20 -, 0 by 1 work"},
    {"ATerminatingSwitchDropsIt", "2 out A 6, 4 wake B A work, 7 out A 22", "0: run 0..2", "none"},
    {"ADeadThreadIsntWokenUp", "2 out A 6, 3 exit A 2, 4 wake B A work", "0: run 0..2, sync 2..3"},
    {"AnUnknownThreadIsWokenUp", "1 wake 78 77 work, 3 in 77 main", "0: unknown 0..3 stack main ready 0, run 3..20",
     "1: unknown 0..3 main, 77 by 78 work", 20, 77},
};
INSTANTIATE_TEST_SUITE_P(WakeUps, LaneTest, testing::ValuesIn(sWakeUpCases), gGetName<LaneCase>);

const LaneCase sBackwardCases[] = {
    {"ASpanWithoutLengthToGive", "5 out A 4, 3 in A main, 8 out A 4", "0: run 0..5, run 3..8, sleep 8..20", "", 20, 0, 1},
    {"AChunkThatWasHandedOver", "700 out A 4, 300 in A main, 350 out A 4, 900 in A main",
     "0: run 0..500 of 0..700 ends 700\n1: < run 500..700 of 0..700, run 900..990", "", 990, 0, 3},
};
INSTANTIATE_TEST_SUITE_P(TimesThatGoBack, LaneTest, testing::ValuesIn(sBackwardCases), gGetName<LaneCase>);

// --- Bars ---

struct BarCase
{
    const char* Name;
    const char* Trace;
    const char* Bars;
    uint64_t NumLeftOut = 0;

    friend std::ostream& operator<<(std::ostream& outStream, const BarCase& inCase) { return outStream << inCase.Trace; }
};

class RouterTest : public GameTimelineTest, public testing::WithParamInterface<BarCase>
{
};

TEST_P(RouterTest, Holds)
{
    const LogCapture log;
    ASSERT_EQ(RunPass(GetParam().Trace), "") << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintBars(GetModel()), GetParam().Bars);
    EXPECT_EQ(GetModel().GetLeftOutCounts().Bars, GetParam().NumLeftOut);
    EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
}

const BarCase sBarCases[] = {
    {"AnotherLeafLeavesTheRestOpen", "0 sample A main;work, 1 sample A main;leaf, 2 sample A main;leaf",
     "0: main 0..3 / work@0 0..1, leaf@0 1..3"},
    {"AParentIsTheBarThatIsOpenAbove",
     "0 sample A main;work;leaf, 1 sample A other;work, 2 sample A main;leaf;work, 3 sample A main;leaf;other",
     "0: main 0..1, other 1..2, main 2..4 / work@0 0..1, work@1 1..2, leaf@2 2..4 / leaf@0 0..1, work@2 2..3, other@2 3..4"},
    {"ABarGoesOnWhereTheNextChunkIsFirstSeen", "490 sample A main;work, 510 sample A main;work, 520 sample A main;leaf",
     "0: main 490..491> / work@0 490..491>\n1: main 510..521< / work@0 510..511<, leaf@0 520..521"},
    {"ChunksWithoutEventsAreLeftOut", "490 sample A main, 1600 sample A main, 1700 sample A other",
     "0: main 490..491>\n3: main 1600..1601<, other 1700..1701"},
    {"AChunkMayEndWithAllItsBars", "490 sample A main, 510 sample A other", "0: main 490..491\n1: other 510..511"},
    {"AWaitGoesOnAtTheBoundary", "490 sample A main, 495 out A 6, 600 in A main, 610 sample A main;work",
     "0: main 490..500>\n1: main 500..611< / work@0 610..611"},
    {"AWaitOverManyChunksLeavesTheMiddleOut", "490 sample A main, 495 out A 6, 1700 in A main",
     "0: main 490..500>\n3: main 1500..1700<"},
    {"ZonesHaveTheirContexts",
     "1 begin A main;work Zone Context, 3 end A, 5 sample A main;work, 6 begin A main;work Zone, 7 end A",
     "0: main 1..7 / work@0 1..7 / work!Context@0 1..3, work@0 6..7"},
    {"AZoneKeepsItsContextInEveryChunk", "499 begin A main Zone Context, 501 begin A main Zone Other, 502 end A, 503 end A",
     "0: main 499..500> / main!Context@0 499..500>\n"
     "1: main 501..503< / main!Context@0 501..503< / main!Other@0 501..502"},
    {"AThreadThatEndsClosesItsBars", "1 sample A main, 1.5 out A 22, 7 sample A main", "0: main 1..1.5"},
    {"AThreadWithoutStacksHasNone", "1 out A 4, 2 in A -", ""},
    {"ASampleInAChunkThatWasHandedOver", "600 sample A main, 100 sample A main, 1100 sample A other",
     "1: main 600..100>\n2: other 1100..1101", 1},
    // In order, but the switch-in goes back to the start of the wait, which a fiber has been resumed in.
    {"AWaitInAChunkThatWasHandedOver",
     "490 begin A main Zone, 491 fiber-out A 7, 495 out A 6, 1200 fiber-in A 7, 1300 in A main, 1600 sample A main",
     "0: main 490..491> / main@0 490..491\n"
     "2: main 1200..495<> / main@0 1200..495>\n"
     "3: main 1600..1601< / main@0 1600..1601<",
     4},
};
INSTANTIATE_TEST_SUITE_P(Bars, RouterTest, testing::ValuesIn(sBarCases), gGetName<BarCase>);

class TimelinePassTest : public GameTimelineTest
{
};

TEST_F(TimelinePassTest, TotalsAreThoseOfTheLaneAndTheDeepestReport)
{
    ASSERT_EQ(RunPass("1 sample A main;work;leaf, 2 sample A main, 2 out A 4, 5 in A -, 7 out A 6"), "");
    const ThreadData& data = *GetModel().FindThreadData(0);
    EXPECT_EQ(data.MaxStackDepth, 3);
    EXPECT_EQ(data.TotalTime, 20.0);
    EXPECT_THAT(data.StateTimes, ElementsAre(0, 4, 0, 0, 3, 0, 13, 0));
    EXPECT_EQ(GetModel().FindThreadData(77), nullptr);
}

TEST_F(TimelinePassTest, AnUnknownWaitBeginsNoEarlierThanTheCapture)
{
    GetSession().GetSessionInfo().SessionStartTimeMs = 5.0;
    ASSERT_EQ(RunPass("10 in B main"), "");
    EXPECT_EQ(PrintStates(GetModel(), 1), "0: unknown 5..10 stack main, run 10..20");
}

TEST_F(TimelinePassTest, AThreadOfAProcessThatWasntCapturedIsntWokenUp)
{
    std::vector<TraceEvent> events = mWorld.BuildTrace("2 out A 6, 6 in A -");
    events.insert(events.begin() + 1, {3.0, gMakeCapturedProcessID(0), 1, ReadyThreadEvent{mWorld.Intern("main"), 17, 0}});
    ASSERT_EQ(RunPass(events), "");
    EXPECT_EQ(PrintStates(GetModel()), "0: run 0..2, sync 2..6, run 6..20");
    EXPECT_EQ(GetModel().GetReadyThreadData().GetReadyIndexCount(), 0U);
}

TEST_F(TimelinePassTest, TheFindIndexKnowsWhereFunctionsRan)
{
    ASSERT_EQ(RunPass("490 sample A main;work, 495 sample A main;leaf, 510 sample A main;work, 1100 sample A main"), "");
    EXPECT_EQ(PrintInvocations(GetModel()), "main 0-2; work 0 1; leaf 0");
}

// A lone end of a zone stretches bars without an event that ends their chunk.
TEST_F(TimelinePassTest, ABarThatOutgrowsItsChunkLiesInAllChunksOfTheLevels)
{
    ASSERT_EQ(RunPass("0 begin A main Zone, 70000 end A"), "");
    EXPECT_EQ(PrintBars(GetModel()), "0: main 0..70000 / main@0 0..70000");
    EXPECT_EQ(GetModel().GetDetailLOD(1).GetThread(0)->GetChunkTable().GetChunkCount(), 107U) << "chunks of 658 ms";
    EXPECT_EQ(PrintBars(GetModel(), 0, 6), "0: main 0..50500 / main@0 0..50500\n1: main 50500..70000< / main@0 50500..70000<");
    EXPECT_EQ(GetModel().GetDetailLOD(6).GetThread(0)->GetCurrentDetailChunk(), 2) << "the last one is complete as well";
    EXPECT_FALSE(GetModel().GetLeftOutCounts().HasAny());
}

} // namespace
