// How the states of a coarser level come of the spans of the finest one.
#include "Tests/ThreadsModel/LevelText.h"
#include "Tests/ThreadsModel/StreamingFixture.h"
#include "ThreadsModel/Levels/StateBuckets.h"

#include <gmock/gmock.h>

#include <map>
#include <span>

namespace
{

using namespace Profiler;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

// "run 0..3, sleep 3..5 of 3..9": with their real times where these differ. The states but run have the stack 4 and the ready
// index 2.
void gFill(OverviewChunk& ioChunk, const std::string& inText)
{
    for (const std::string& span : gSplit(inText, ','))
    {
        std::string name;
        std::string placed;
        std::string of;
        std::string real;
        if (!(std::istringstream(span) >> name >> placed))
            continue;
        if (!(std::istringstream(span) >> name >> placed >> of >> real))
            real = placed;
        size_t state = 0;
        while (name != gPrintState(state))
            ++state;
        const bool isRun = name == "run";
        ioChunk.AddEntry(static_cast<ThreadState>(state), isRun ? sNoReadyIndex : 2, isRun ? sNoCallstack : 4, std::stod(placed),
                         gParseEnd(placed), std::stod(real), gParseEnd(real));
    }
}

struct BucketCase
{
    const char* Name;
    const char* Sources; // chunks, with bars between them
    const char* Level;
    float ChunkLength = 100.0F;
};

class LevelStatesTest : public StreamingTest
{
protected:
    LevelStatesTest() { Open(); }

    // Takes source chunks, one a batch, into the level of a thread, which may be done then. Buckets are one millisecond wide.
    void Add(ThreadID inThread, const std::string& inSources, bool inIsLast, float inChunkLength = 100.0F)
    {
        const std::vector<std::string> sources = gSplit(inSources, '|');
        for (size_t i = 0; i < sources.size(); ++i)
        {
            OverviewChunk source;
            gFill(source, sources[i]);
            StateBuckets buckets(*mManager, GetThread(inThread, 1), 1.0F, inChunkLength, mRecords[inThread]);
            EXPECT_TRUE(buckets.Add(source, mIsCanceled));
            if (inIsLast && i + 1 == sources.size())
                buckets.Finish();
        }
    }

    void Check(std::span<const BucketCase> inCases)
    {
        const LogCapture log;
        const auto name = [](CallstackKey inStack) { return std::to_string(inStack); };
        ThreadID thread = 0;
        for (const BucketCase& param : inCases)
        {
            Add(++thread, param.Sources, true, param.ChunkLength);
            EXPECT_TRUE(mManager->FlushChunks(mErrors));
            EXPECT_EQ(gPrintLevel<OverviewChunk>(*mManager, GetThread(thread, 1), name), param.Level) << param.Name;
        }
        EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
    }

    std::map<ThreadID, OverviewBuildRecord> mRecords; // hold chunks, and go before the manager
    bool mIsCanceled = false;
};

const BucketCase sSpans[] = {
    {"within one bucket", "sleep 3.25..3.5", "0: sleep 3..4"},
    {"two, three and four states in one bucket",
     "run 0..0.25, sleep 0.25..1, run 1..1.5, io 1.5..1.75, sleep 1.75..2, idle 2..2.25, io 2.25..2.5, run 2.5..2.75, sync "
     "2.75..3",
     "0: [0..1 run 0.25 sleep 0.75], [1..2 run 0.5 io 0.25 sleep 0.25], [2..3 run 0.25 io 0.25 sync 0.25 idle 0.25]"},
    {"a state twice in one bucket", "run 0..0.25, io 0.25..0.5, run 0.5..1", "0: [0..1 run 0.75 io 0.25]"},
    {"whole buckets keep what is known of the wait", "run 0..0.5, sleep 0.5..5.25, run 5.25..6",
     "0: [0..1 run 0.5 sleep 0.5], sleep 1..5 of 0.5..5.25 stack 4 ready 2, [5..6 run 0.75 sleep 0.25]"},
    {"buckets next to each other", "sleep 0.5..1.5", "0: sleep 0..1, sleep 1..2"},
    {"an end on a bucket's start opens none", "run 0.5..3", "0: run 0..1, run 1..3 of 0.5..3"},
    {"a start on a bucket's start", "run 1..3", "0: run 1..2, run 2..3 of 1..3"},
    {"a gap closes the bucket before it", "run 0..0.5, sleep 1..1.25, run 3.5..3.75", "0: run 0..1, sleep 1..2, run 3..4"},
    {"a bucket goes on in the next source chunk", "run 0..0.5 | sleep 0.5..1", "0: [0..1 run 0.5 sleep 0.5]"},
    {"a span without length", "run 3..3", "0: [3..4]"},
    {"a span that the finest level has cut counts once", "run 4.5..5 of 4.5..6.5 | run 5..6.5 of 4.5..6.5, sleep 6.5..7",
     "0: run 4..5, run 5..6 of 4.5..6.5, [6..7 run 0.5 sleep 0.5]"},
    {"what began earlier than the last span's end", "run 0..5, sleep 3..9, io 5..6", "0: run 0..1, run 1..5 of 0..5, io 5..6"},
};
TEST_F(LevelStatesTest, SpansFillBuckets)
{
    Check(sSpans);
}

const BucketCase sLongSpans[] = {
    {"next to each other", "sleep 98.5..101.25, run 101.25..102",
     "0: sleep 98..99, sleep 99..100 of 98.5..101.25 stack 4 ready 2 ends 102\n"
     "1: < sleep 100..101, [101..102 run 0.75 sleep 0.25]"},
    {"chunks apart", "run 98.5..301", "0: run 98..99, run 99..100 of 98.5..301 ends 302\n3: < run 300..301"},
    {"a chunk may end within a bucket, whose rest is dropped", "run 8.5..12.5",
     "0: run 8..9, run 9..10 of 8.5..12.5 ends 13\n1: < run 10..11, run 11..12 of 8.5..12.5, run 12..13", 10.5F},
    {"the bucket that it began in is closed there", "io 10..10.25, run 10.25..12",
     "0: [10..11 run 0.25 io 0.25] ends 13\n1: < run 10..11, run 11..12 of 10.25..12", 10.5F},
    {"an open bucket goes into the chunk behind a gap", "run 3..3.5, sleep 120..120.5", "0: \n1: run 3..4, sleep 120..121"},
};
TEST_F(LevelStatesTest, ASpanOverChunksOfTheLevelLiesInTheFirstAndTheLast)
{
    Check(sLongSpans);
}

TEST_F(LevelStatesTest, TheCursorMovesBehindWhatIsComplete)
{
    const DetailLODThread& thread = GetThread(1, 1);
    Add(1, "run 0..250", false);
    EXPECT_EQ(thread.GetCurrentOverviewChunk(), 2);
    Add(1, " ", true);
    EXPECT_EQ(thread.GetCurrentOverviewChunk(), 3);
    EXPECT_FALSE(mRecords[1].Chunk);
}

} // namespace
