#include "ThreadsModel/Chunks/ChunkTable.h"

#include "Session/Pass/ChunkTime.h"

#include <gmock/gmock.h>

#include <sstream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace Profiler
{
namespace
{

constexpr uint8_t sFunctions = 1;
constexpr uint8_t sBars = 2;
constexpr uint8_t sOverview = 4;
constexpr uint64_t sNone = ~uint64_t{0};

// Two numbers that can't be taken for those of another chunk or kind.
void gAdd(ChunkTable& ioTable, int32_t inIndex, uint8_t inTypes)
{
    ioTable.GetOrCreateChunk(inIndex);
    if ((inTypes & sFunctions) != 0)
        ioTable.SetFunctionIndexData(inIndex, 1, 2);
    if ((inTypes & sBars) != 0)
        ioTable.SetBarData(inIndex, 3, 4, 5, 6);
    if ((inTypes & sOverview) != 0)
        ioTable.SetOverviewData(inIndex, 7, 8);
}

std::vector<int32_t> gGetIndices(const ChunkTable::DescriptionList& inChunks)
{
    std::vector<int32_t> indices;
    for (const ChunkDescription& chunk : inChunks)
        indices.push_back(chunk.mIndex);
    return indices;
}

// All of a table, those below 0 too.
std::vector<int32_t> gGetIndices(const ChunkTable& inTable)
{
    std::vector<int32_t> indices;
    ChunkDescription chunk;
    for (double time = -1e6; inTable.FindNextChunk(0, 1.0F, time, chunk); time = chunk.mIndex)
        indices.push_back(chunk.mIndex);
    return indices;
}

TEST(ChunkTimeTest, IndexIsTruncatedInDoubleArithmetic)
{
    struct Case
    {
        float Length;
        double Time;
        int32_t Index;
    };
    const Case cases[] = {{500.0F, 0, 0},    {500.0F, 499.999999, 0}, {500.0F, 500, 1},    {500.0F, 1499, 2}, {500.0F, -0.5, 0},
                          {500.0F, -499, 0}, {500.0F, -500, -1},      {500.0F, -1400, -2}, {0.1F, 1, 9}};
    // In single precision the last one would be 10.
    for (const Case& test : cases)
        EXPECT_EQ(ChunkIndexOfTime(test.Length, test.Time), test.Index) << test.Length << " " << test.Time;

    const double length = 0.1F;
    EXPECT_EQ(ChunkStartOfIndex(7, 0.1F), length * 7);
    EXPECT_EQ(ChunkEndOfIndex(7, 0.1F), 7 * length + length);
    EXPECT_EQ(ChunkStartOfIndex(-2, 500.0F), -1000.0);
    EXPECT_EQ(ChunkEndOfIndex(-2, 500.0F), -500.0);
    EXPECT_EQ(ChunkEndOfIndex(2'000'000'000, 500.0F), 1'000'000'000'500.0) << "no 32-bit product";
}

TEST(ChunkTableTest, ChunksAreCreatedInTheirPlaceOnce)
{
    ChunkTable table;
    EXPECT_EQ(table.GetLastIndex(), -1);
    EXPECT_EQ(table.GetChunkCount(), 0U);
    for (const int32_t index : {5, 2, 9, 5, 0, 9, 3, -4, 2})
    {
        const ChunkDescription created = table.GetOrCreateChunk(index);
        EXPECT_EQ(created, (ChunkDescription{index, {}, 0})) << index;
    }
    EXPECT_THAT(gGetIndices(table), ElementsAre(-4, 0, 2, 3, 5, 9));
    EXPECT_EQ(table.GetLastIndex(), 9);
    EXPECT_EQ(table.GetChunkCount(), 6U);

    EXPECT_EQ(table.GetOrCreateChunk(100.0F, 799.0).mIndex, 7);
    EXPECT_EQ(table.GetOrCreateChunk(100.0F, 399.0).mIndex, 3);
    EXPECT_EQ(table.GetChunkCount(), 7U);
}

TEST(ChunkTableTest, ChunksOfTheTimesBetweenAreCreatedToo)
{
    struct Case
    {
        double Start;
        double End;
        std::vector<int32_t> Indices;
    };
    const Case cases[] = {{5.0, 35.0, {0, 1, 2, 3}}, {10.0, 20.0, {1, 2}}, {12.0, 13.0, {1}}, {12.0, 12.0, {1}},
                          {-25.0, 5.0, {-2, -1, 0}}, {-9.0, -1.0, {0}},    {20.0, 10.0, {}}};
    for (const Case& test : cases)
    {
        ChunkTable table;
        gAdd(table, 2, sBars);
        const ChunkTable::DescriptionList chunks = table.GetOrCreateChunks(10.0F, test.Start, test.End);
        EXPECT_EQ(gGetIndices(chunks), test.Indices) << test.Start << " to " << test.End;
        EXPECT_TRUE(table.GetChunkByIndex(2).HasDataTypes(sBars)) << "what is there is left as it is";
    }
}

TEST(ChunkTableTest, ChunkIsFoundByIndexAndByTime)
{
    ChunkTable table;
    gAdd(table, 0, sOverview);
    gAdd(table, 3, sBars);

    for (const int32_t absent : {-1, 1, 4})
    {
        const ChunkDescription chunk = table.GetChunkByIndex(absent);
        EXPECT_EQ(chunk.mIndex, -1);
        EXPECT_EQ(chunk.mAvailableDataTypes, 0);
        EXPECT_EQ(chunk.mLayout, (ChunkLayout{sNone, sNone, sNone, sNone, sNone, sNone, sNone, sNone}));
    }

    const std::pair<double, int32_t> times[] = {{-0.5, 0},  {0.0, 0},   {99.9, 0},   {100.0, -1}, {299.9, -1},
                                                {300.0, 3}, {399.9, 3}, {400.0, -1}, {-100.0, -1}};
    for (const auto& [time, index] : times)
    {
        ChunkDescription chunk;
        EXPECT_EQ(table.GetChunk(100.0F, time, chunk), index >= 0) << time;
        EXPECT_EQ(chunk.mIndex, index) << time;
    }
}

TEST(ChunkTableTest, EachKindOfDataHasItsOwnFields)
{
    ChunkTable table;
    for (const int32_t index : {1, 2, 3})
        table.GetOrCreateChunk(index);
    const ChunkDescription old = table.GetChunkByIndex(2);

    table.SetBarData(2, 10, 11, 12, 13);
    EXPECT_EQ(table.GetChunkByIndex(2).mAvailableDataTypes, sBars);
    EXPECT_EQ(table.GetChunkByIndex(2).mLayout, (ChunkLayout{10, 11, sNone, sNone, sNone, sNone, 12, 13}));
    table.SetOverviewData(2, 20, 21);
    EXPECT_EQ(table.GetChunkByIndex(2).mAvailableDataTypes, sBars | sOverview);
    table.SetFunctionIndexData(2, 30, 31);
    const ChunkDescription full = table.GetChunkByIndex(2);
    EXPECT_EQ(full.mAvailableDataTypes, sFunctions | sBars | sOverview);
    EXPECT_EQ(full.mLayout, (ChunkLayout{10, 11, 30, 31, 20, 21, 12, 13}));
    EXPECT_EQ(old.mAvailableDataTypes, 0) << "a copy stays as it was";
    for (const int32_t index : {1, 3})
        EXPECT_EQ(table.GetChunkByIndex(index).mAvailableDataTypes, 0);
    EXPECT_TRUE(full.HasDataTypes(sBars | sOverview));
    EXPECT_TRUE(full.HasDataTypes(uint8_t{0}));
    EXPECT_FALSE(full.HasDataTypes(uint8_t{8}));
    EXPECT_FALSE(full.HasDataTypes(sBars | 8)) << "all kinds, not one of them";
}

TEST(ChunkTableTest, NeighboursLieStrictlyBeforeAndBehind)
{
    ChunkTable table;
    gAdd(table, 1, sBars);
    gAdd(table, 3, sBars | sOverview);
    gAdd(table, 4, sOverview);
    gAdd(table, 7, sBars | sFunctions);

    // What lies before and behind the start and the middle of the chunks -1 to 8.
    const std::pair<int, const char*> cases[] = {{0, "-:1 -:1 -:3 1:3 1:4 3:7 4:7 4:7 4:- 7:- "},
                                                 {sFunctions, "-:7 -:7 -:7 -:7 -:7 -:7 -:7 -:7 -:- 7:- "},
                                                 {sBars, "-:1 -:1 -:3 1:3 1:7 3:7 3:7 3:7 3:- 7:- "},
                                                 {sOverview, "-:3 -:3 -:3 -:3 -:4 3:- 4:- 4:- 4:- 4:- "},
                                                 {sBars | sOverview, "-:3 -:3 -:3 -:3 -:- 3:- 3:- 3:- 3:- 3:- "},
                                                 {8, "-:- -:- -:- -:- -:- -:- -:- -:- -:- -:- "}};
    const auto print = [](bool inIsFound, const ChunkDescription& inChunk)
    { return inIsFound ? std::to_string(inChunk.mIndex) : std::string("-"); };
    for (const auto& [mask, expected] : cases)
    {
        for (const double offset : {0.0, 5.0})
        {
            std::string text;
            for (double start = -10.0; start < 90.0; start += 10.0)
            {
                const double time = start < 0.0 ? start - offset : start + offset;
                ChunkDescription chunk;
                const bool hasPrevious = table.FindPreviousChunk(static_cast<uint8_t>(mask), 10.0F, time, chunk);
                text += print(hasPrevious, chunk) + ":";
                const bool hasNext = table.FindNextChunk(static_cast<uint8_t>(mask), 10.0F, time, chunk);
                text += print(hasNext, chunk) + " ";
            }
            EXPECT_EQ(text, expected) << mask << ", " << offset << " behind the starts";
        }
    }
}

TEST(ChunkTableTest, RangeIsGenerousByOneChunkAtItsEnd)
{
    ChunkTable table;
    const std::pair<int32_t, uint8_t> chunks[] = {{-2, 6}, {0, 2}, {1, 6}, {2, 4}, {5, 6}, {6, 2}};
    for (const auto& [index, types] : chunks)
        gAdd(table, index, types);

    // Mask, start and end: ends inside chunks and at their starts; bounds in gaps; behind the last chunk; below 0; the wrong way
    // round; kinds.
    const char* const cases[] = {"0 0 5: 0 1",         "0 0 10: 0 1",       "0 0 10.001: 0 1 2",
                                 "0 0 0: 0",           "0 5 5: 0 1",        "0 9.999 25: 0 1 2",
                                 "0 10 25: 1 2",       "0 30 45: 5",        "0 30 40:",
                                 "0 55 60: 5 6",       "0 55 69.999: 5 6",  "0 55 70: 5 6",
                                 "0 55 1e300: 5 6",    "0 69.999 1e300: 6", "0 70 1e300:",
                                 "0 -15 5: 0 1",       "0 -1e9 -9: 0",      "0 -0.001 -0.0005: 0",
                                 "0 -30 -10:",         "0 25 5:",           "0 -1e300 1e300: 0 1 2 5 6",
                                 "2 0 1e300: 0 1 5 6", "4 0 1e300: 1 2 5",  "6 0 1e300: 1 5",
                                 "1 0 1e300:"};
    for (const std::string test : cases)
    {
        std::istringstream text(test);
        int mask = 0;
        double start = 0.0;
        double end = 0.0;
        text >> mask >> start >> end;
        std::string found = test.substr(0, test.find(':') + 1);
        for (const ChunkDescription& chunk : table.GetChunksInRange(static_cast<uint8_t>(mask), 10.0F, start, end))
        {
            found += " " + std::to_string(chunk.mIndex);
            EXPECT_EQ(chunk, table.GetChunkByIndex(chunk.mIndex));
        }
        EXPECT_EQ(found, test);
    }

    EXPECT_THAT(ChunkTable().GetChunksInRange(0, 10.0F, 0.0, 1e300), IsEmpty());
    ChunkTable negative;
    negative.GetOrCreateChunk(-1);
    EXPECT_THAT(negative.GetChunksInRange(0, 10.0F, -100.0, 1e300), IsEmpty());
}

} // namespace
} // namespace Profiler
