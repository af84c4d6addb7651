// How the bars of a coarser level come of those of the finest one.
#include "Tests/ThreadsModel/LevelText.h"
#include "Tests/ThreadsModel/StreamingFixture.h"
#include "ThreadsModel/Levels/BarMerger.h"

#include <gmock/gmock.h>

#include <map>
#include <span>

namespace
{

using namespace Profiler;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr float sThreshold = 1.0F; // so that gaps below 1 are merged, and bars up to 50
constexpr uint32_t sFunctionIndex = 5;

// As LevelText.h prints them, with names of one letter; "?" has no known function, "z!7" is a zone in the context 7. In the
// level, "*" is a merged bar and "*?" one whose index was masked.
void gFill(BarChunk& ioChunk, const std::string& inText)
{
    const std::vector<std::string> rows = gSplit(inText, '/');
    for (int32_t depth = 0; depth < static_cast<int32_t>(rows.size()); ++depth)
    {
        for (const std::string& bar : gSplit(rows[static_cast<size_t>(depth)], ','))
        {
            std::string name;
            std::string span;
            if (!(std::istringstream(bar) >> name >> span))
                continue;
            const auto has = [](const std::string& inWord, char inMark) { return inWord.find(inMark) != std::string::npos; };
            const auto number = [&](char inMark) { return std::stoul(name.substr(name.find(inMark) + 1)); };
            const uint32_t parent = has(name, '@') ? static_cast<uint32_t>(number('@')) : Bar::sNoParent;
            const ResolveIndex index{sFunctionIndex | (name[0] == '?' ? ResolveIndex::sUnknownClass : 0) |
                                     (has(name, '!') ? ResolveIndex::sInstrumentedFlag : 0)};
            uint64_t position = 0;
            ioChunk.AddBar(depth, parent, static_cast<uint64_t>(name[0]), index,
                           (has(span, '<') ? 1U : 0U) | (has(span, '>') ? 2U : 0U), position, std::stod(span), gParseEnd(span));
            if (has(name, '!'))
                ioChunk.SetInstrumentationContext({depth, position}, number('!'));
        }
    }
}

std::string gGetName(const Bar& inBar, uint64_t inContext)
{
    const uint32_t index = inBar.ResolveIndex.Index & ResolveIndex::sComparedMask;
    std::string name(1, inBar.Address == sNoAddress ? '*' : static_cast<char>(inBar.Address));
    if (inBar.Address == sNoAddress && index == ResolveIndex::sUnknownModuleClass)
        name += "?";
    return name + (inContext != BarChunk::sNoContext ? "!" + std::to_string(inContext) : "");
}

struct MergeCase
{
    const char* Name;
    const char* Sources; // chunks, with bars between them
    const char* Level;
    uint64_t NumLeftOut = 0;
    float ChunkLength = 500.0F;
};

class LevelBarsTest : public StreamingTest
{
protected:
    LevelBarsTest() { Open(); }

    // Merges source chunks, one a batch, into the level of a thread, which may be done then. Gives how much was left out.
    uint64_t Merge(ThreadID inThread, const std::string& inSources, bool inIsLast, float inChunkLength = 500.0F)
    {
        uint64_t numLeftOut = 0;
        const std::vector<std::string> sources = gSplit(inSources, '|');
        for (size_t i = 0; i < sources.size(); ++i)
        {
            BarChunk source;
            gFill(source, sources[i]);
            BarMerger merger(*mManager, GetThread(inThread, 1), sThreshold, inChunkLength, mRecords[inThread]);
            EXPECT_TRUE(merger.Merge(source, mIsCanceled));
            if (inIsLast && i + 1 == sources.size())
                merger.Finish();
            numLeftOut += merger.GetNumLeftOut();
        }
        return numLeftOut;
    }

    void Check(std::span<const MergeCase> inCases)
    {
        const LogCapture log;
        ThreadID thread = 0;
        for (const MergeCase& param : inCases)
        {
            EXPECT_EQ(Merge(++thread, param.Sources, true, param.ChunkLength), param.NumLeftOut) << param.Name;
            EXPECT_TRUE(mManager->FlushChunks(mErrors));
            EXPECT_EQ(gPrintLevel<BarChunk>(*mManager, GetThread(thread, 1), gGetName), param.Level) << param.Name;
        }
        EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
    }

    std::map<ThreadID, BarBuildRecord> mRecords;
    bool mIsCanceled = false;
};

const MergeCase sNeighbours[] = {
    {"a gap below the threshold", "a 0..1, b 1.5..2.5, c 3.4..4", "0: * 0..4"},
    {"a gap of the threshold", "a 0..1, b 2..3", "0: a 0..1, b 2..3"},
    {"bars of the greatest length", "a 0..50, b 50.5..100.5", "0: * 0..100.5"},
    {"a long bar and its neighbours", "a 0..1, b 1.5..51.6, c 52..53", "0: a 0..1, b 1.5..51.6, c 52..53"},
    {"a merged bar is never long", "a 0..40, b 40..80, c 80..120", "0: * 0..120"},
    {"the next source chunk", "a 498..499 | b 499.5..499.6 | c 499.7..499.8", "0: * 498..499.8"},
    {"children of one merged bar", "p 0..10, q 10.5..20 / a@0 9..10, b@1 10.5..11, c@1 12..13",
     "0: * 0..20 / *@0 9..11, c@0 12..13"},
    {"children of two bars", "p 0..60, q 60.5..70 / a@0 59..60, b@1 60.5..61",
     "0: p 0..60, q 60.5..70 / a@0 59..60, b@1 60.5..61"},
    {"a shallower source chunk forgets what lies deeper", "p 0..9> / a@0 1..2, b@0 2..3> | p 9..10<> | p 10..99< / b@0 10..99<",
     "0: p 0..99> / *@0 1..99"},
    {"unknown functions", "? 0..1, b 1.5..2 | c 5..6, ? 6.5..7", "0: *? 0..2, * 5..7"},
    {"nothing at all", " ", ""},
};
TEST_F(LevelBarsTest, ShortNeighboursUnderOneParentBecomeOneBar)
{
    Check(sNeighbours);
}

const MergeCase sCutBars[] = {
    {"two parts", "a 10..20> | a 20..30<> | a 30..31<", "0: a 10..31>"},
    {"with its parent", "p 10..20> / a@0 15..20> | p 20..30< / a@0 20..25<", "0: p 10..30> / a@0 15..25>"},
    {"the first part was merged", "a 0..10, b 10.5..20> | b 20..21<, c 21.5..22", "0: * 0..22"},
    {"it is alone in its chunk of the level", "a 510..520<", "1: a 510..520<"},
    {"nothing is merged with a part", "a 500..510<, b 510.5..511", "1: a 500..510<, b 510.5..511"},
    {"but with a part that is merged", "a 400..410, b 410..505 | c 505.2..505.4",
     "0: a 400..410, b 410..500\n1: b 500..505<, c 505.2..505.4"},
    {"but with a part of a merged bar", "a 480..490, b 490..501, c 501.2..502", "0: * 480..500\n1: * 500..502<"},
};
TEST_F(LevelBarsTest, ABarThatTheFinestLevelHasCutComesBackAsOne)
{
    Check(sCutBars);
}

const MergeCase sUndoneMerges[] = {
    {"it is exactly long enough", "a 0..10, b 10.5..20> | b 20..60.5<, c 62..63", "0: * 0..10, b 10.5..60.5, c 62..63"},
    {"it isn't", "a 0..10, b 10.5..20> | b 20..60.4<, c 60.6..61", "0: * 0..61"},
    {"several parts", "a 0..10, b 10.5..20> | b 20..40<> | b 40..70<", "0: * 0..10, b 10.5..70"},
    {"children stay with the merged bar", "a 0..10, b 10.5..20> / c@1 11..12 | b 20..80< / d@0 30..31, e@0 31.5..32, f@0 70..71",
     "0: * 0..10, b 10.5..80 / c@0 11..12, *@0 30..32, f@0 70..71"},
    {"only the latest is undone", "a 0..1, b 1..2, c 2..3> | c 3..60<", "0: * 0..2, c 2..60"},
    {"what was merged before it stays so", "a 0..1, b 1.5..2, c 5..20> | c 20..80<", "0: * 0..2, c 5..80>"},
    {"into the next chunk of the level", "a 440..445, b 445..450> | b 450..510<", "0: * 440..445, b 445..500\n1: b 500..510<"},
    {"too short within its chunk of the level", "a 470..480, b 480..490> | b 490..540<", "0: * 470..500\n1: * 500..540<"},
    {"what it took in begins in an earlier chunk of the level", "a 400..401, x 501..502, b 401.2..402, b 550..600<",
     "0: * 400..402\n1: x 501..600"},
    {"its context comes back", "a 0..10, z!7 10.5..20> | z!7 20..70<", "0: * 0..10, z!7 10.5..70"},
};
TEST_F(LevelBarsTest, AMergeIsUndoneWhenItsBarTurnsOutLong)
{
    Check(sUndoneMerges);
}

const MergeCase sLongBars[] = {
    {"parts", "a 100..1200>", "0: a 100..500>\n1: a 500..1000<\n2: a 1000..1200<"},
    {"its context in each", "a 1..60, z!7 100..600 / y!8@1 499..501",
     "0: a 1..60, z!7 100..500 / y!8@1 499..500\n1: z!7 500..600< / y!8@0 500..501<"},
    {"the rest of a part that goes on", "a 400..490> | b 490..600<", "0: a 400..500>\n1: a 500..600<"},
    {"it ends where a chunk begins", "a 499..500", "0: a 499..500\n1: a 500..500<"},
    {"it is merged behind a part", "a 490..510, b 510.5..520", "0: a 490..500\n1: a 500..510<, b 510.5..520"},
};
TEST_F(LevelBarsTest, ABarOverSeveralChunksOfTheLevelHasAPartInEach)
{
    Check(sLongBars);
}

const MergeCase sLeftOutBars[] = {
    {"a chunk that was handed over", "a 510..520 | b 100..110, c 110.5..600", "1: a 510..520, c 500..600<", 2},
    {"outside of what the first row spans", "p 0..10 / a@0 5..600, b@0 700..800", "0: p 0..10 / a@0 5..500", 2},
    {"nothing above it", "p 0..10, q 600..610 / a@0 500..510", "0: p 0..10\n1: q 600..610", 1},
    {"it ends before it begins, chunks away", "a 600..100 / b@0 600..610, c@0 50..90", "", 2},
    {"too far from the first", "a 0..0.5, b 2000000.1..2000000.2 | c 2000000.3..2000000.4",
     "0: a 0..0.5\n2000000: c 2000000.3..2000000.4", 1, 1.0F},
};
TEST_F(LevelBarsTest, WhatHasNoPlaceIsLeftOutAndCounted)
{
    Check(sLeftOutBars);
}

TEST_F(LevelBarsTest, TheCursorMovesBehindWhatIsComplete)
{
    const DetailLODThread& thread = GetThread(1, 1);
    Merge(1, "a 510..520", false);
    EXPECT_EQ(thread.GetCurrentDetailChunk(), 1) << "the last chunk may get more";
    Merge(1, " | ", true);
    EXPECT_EQ(thread.GetCurrentDetailChunk(), 1) << "no bars, no chunk";
    Merge(1, "a 1010..1020 | b 1700..1800", true);
    EXPECT_EQ(thread.GetCurrentDetailChunk(), 4);
}

TEST_F(LevelBarsTest, BoundariesAreThoseOfTheLastBatch)
{
    Merge(1, "a 10..20", false);
    Bars chunk;
    const ChunkDescription description = GetThread(1, 1).GetChunkTable().GetChunkByIndex(0);
    ASSERT_EQ(mManager->GetOrCreateChunk(GetThread(1, 1), description, Unload::Immediate, chunk), Result::Done);
    EXPECT_EQ(chunk->GetBoundaries().at(0).BarCount, 1U);
    Merge(1, "b 30..40, c 100..110 / d@0 31..32", true);
    ASSERT_EQ(chunk->GetBoundaries().size(), 2U);
    EXPECT_EQ(chunk->GetBoundaries()[0].BarCount, 3U);
    EXPECT_EQ(chunk->GetBoundaries()[0].Last, *chunk->GetBar({0, 2}));
}

TEST_F(LevelBarsTest, APassThatIsStoppedHandsNothingOver)
{
    BarChunk source;
    gFill(source, "a 0..1, b 600..610");
    BarMerger merger(*mManager, GetThread(1, 1), sThreshold, 500.0F, mRecords[1]);
    mIsCanceled = true;
    EXPECT_FALSE(merger.Merge(source, mIsCanceled));
    mIsCanceled = false;
    mManager->AbortAllocations();
    EXPECT_FALSE(merger.Merge(source, mIsCanceled));
    EXPECT_EQ(GetThread(1, 1).GetCurrentDetailChunk(), 0);
}

} // namespace
