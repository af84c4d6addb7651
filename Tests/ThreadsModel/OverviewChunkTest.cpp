#include "ThreadsModel/Chunks/OverviewChunk.h"

#include "Tests/Support/ByteWriter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>

using testing::Each;

namespace Profiler
{
namespace
{

using Bytes = std::vector<uint8_t>;
using Range = OverviewChunk::EntryRange;

Bytes gSerialize(OverviewChunk& ioChunk)
{
    Utility::ByteBuffer buffer;
    ioChunk.Serialize(buffer);
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

bool gDeserialize(const Bytes& inBytes, OverviewChunk& outChunk)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    return outChunk.Deserialize(cursor);
}

// The records' bytes, each behind its type, as they stand in memory.
std::vector<Bytes> gGetRecords(const OverviewChunk& inChunk)
{
    constexpr size_t sizes[] = {48, 32, 32, 48};
    std::vector<Bytes> records;
    for (size_t i = 0; i < inChunk.GetEntryCount(); ++i)
    {
        const OverviewChunk::EntryReference entry = inChunk.GetEntry(i);
        const auto type = static_cast<uint8_t>(entry.Type);
        const auto* bytes = reinterpret_cast<const uint8_t*>(entry.Entry);
        records.push_back({type});
        records.back().insert(records.back().end(), bytes, bytes + sizes[type]);
    }
    return records;
}

OverviewAccumulator gAccumulate(double inStart, double inEnd, const std::vector<std::pair<size_t, float>>& inShares)
{
    OverviewAccumulator accumulator;
    accumulator.Start = inStart;
    accumulator.End = inEnd;
    for (const auto& [state, share] : inShares)
        accumulator.Shares[state] = share;
    return accumulator;
}

// One record of each type: 160 bytes.
void gFill(OverviewChunk& ioChunk)
{
    ioChunk.AddEntry(ThreadState::Sleep, 0x11223344, 0x99, 1.0, 2.0, 0.5, 7.5);
    ioChunk.AddAccumulated(gAccumulate(2.0, 3.0, {{6, 0.25F}, {1, 0.5F}}));
    ioChunk.AddAccumulated(gAccumulate(3.0, 4.0, {{7, 0.125F}, {0, 0.25F}, {2, 0.5F}}));
    ioChunk.AddAccumulated(gAccumulate(4.0, 5.0, {{1, 0.1F}, {2, 0.2F}, {4, 0.3F}, {7, 0.4F}}));
}

// What gFill gives, with what a damaged file could say.
struct StoredOverview
{
    uint8_t Continues = 1;
    uint64_t Count = 4;
    Bytes Types = {0, 1, 2, 3};
    uint64_t Total = 160;
    uint8_t Single = 4;
    std::array<uint8_t, 2> Two = {1, 6};
    std::array<uint8_t, 3> Three = {0, 2, 7};
    Bytes Rest = {};

    [[nodiscard]] Bytes Build() const
    {
        Host::ByteWriter bytes;
        bytes.Add(Continues).Add(123.5).Add(Count).AddBytes(Types).Add(Total);
        bytes.Add(1.0).Add(2.0).Add(uint64_t{0x99}).Add(0.5).Add(7.5).Add(uint32_t{0x11223344}).Add(Single);
        bytes.AddBytes(Bytes(3, 0));
        bytes.Add(2.0).Add(3.0).Add(0.5F).Add(0.25F).Add(Two).AddBytes(Bytes(6, 0));
        bytes.Add(3.0).Add(4.0).Add(0.25F).Add(0.5F).Add(0.125F).Add(Three).AddBytes(Bytes(1, 0));
        bytes.Add(4.0).Add(5.0);
        for (const float share : {0.0F, 0.1F, 0.2F, 0.0F, 0.3F, 0.0F, 0.0F, 0.4F})
            bytes.Add(share);
        return bytes.AddBytes(Rest).Bytes;
    }
};

TEST(OverviewChunkTest, IsWrittenToTheByte)
{
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        // The chunk's first block is likely to get this memory: what a record doesn't set has to be zero all the same.
        {
            std::vector<uint8_t> used(1024, 0xAB);
            ASSERT_THAT(used, Each(0xAB));
        }
        OverviewChunk chunk;
        EXPECT_EQ(chunk.GetSize(), 0U);
        gFill(chunk);
        chunk.SetContinuesFromPrevious();
        chunk.SetLastEntryEndTime(123.5);
        EXPECT_EQ(gSerialize(chunk), StoredOverview().Build());
        EXPECT_EQ(chunk.GetSize(), 160U);
        EXPECT_EQ(chunk.GetChunkType(), EChunkType::Overview);
    }

    OverviewChunk empty;
    EXPECT_EQ(gSerialize(empty), Host::ByteWriter().Add(uint8_t{0}).Add(-1.0).Add(uint64_t{0}).Add(uint64_t{0}).Bytes);
    OverviewChunk read;
    gFill(read);
    read.SetContinuesFromPrevious();
    EXPECT_TRUE(gDeserialize(gSerialize(empty), read));
    EXPECT_EQ(read.GetEntryCount(), 0U) << "what it held before is gone";
    EXPECT_EQ(read.GetSize(), 0U);
    EXPECT_EQ(read.GetLastEntryEndTime(), -1.0);
    EXPECT_FALSE(read.ContinuesFromPrevious());
}

TEST(OverviewChunkTest, AReadChunkIsTheWrittenOne)
{
    OverviewChunk chunk;
    chunk.SetLastEntryEndTime(-1.0);
    chunk.SetContinuesFromPrevious();
    for (int i = 0; i < 100; ++i) // through several blocks, whose ends stay unused
    {
        gFill(chunk);
        chunk.AddEntry(ThreadState::Idle, static_cast<uint32_t>(i), ~uint64_t{0}, i, i + 1, i, i);
    }

    OverviewChunk read;
    gFill(read);
    ASSERT_TRUE(gDeserialize(gSerialize(chunk), read));
    EXPECT_EQ(gGetRecords(read), gGetRecords(chunk));
    EXPECT_EQ(read.GetSize(), 100U * 208);
    EXPECT_EQ(read.GetLastEntryEndTime(), -1.0);
    EXPECT_TRUE(read.ContinuesFromPrevious());
    EXPECT_EQ(gSerialize(read), gSerialize(chunk));
}

TEST(OverviewChunkTest, DamagedBytesAreRefused)
{
    OverviewChunk chunk;
    ASSERT_TRUE(gDeserialize(StoredOverview().Build(), chunk)) << "the undamaged one";
    ASSERT_TRUE(gDeserialize(StoredOverview{.Single = 7}.Build(), chunk)) << "the last state";

    const std::pair<const char*, StoredOverview> cases[] = {
        {"an unknown type", {.Types = {0, 1, 2, 4}}},
        {"a type of all ones", {.Types = {255, 1, 2, 3}}},
        {"a type of another size", {.Types = {0, 0, 2, 3}}},
        {"types with a smaller sum", {.Types = {1, 1, 2, 3}}},
        {"a type too few", {.Count = 3, .Types = {0, 1, 2}}},
        {"a type too many", {.Count = 5, .Types = {0, 1, 2, 3, 1}}},
        {"a smaller count", {.Count = 3}},
        {"a larger count", {.Count = 5}},
        {"no count", {.Count = 0}},
        {"a smaller total", {.Total = 112}},
        {"a larger total", {.Total = 208}},
        {"no total", {.Total = 0}},
        {"a byte behind the end", {.Rest = {0}}},
        {"a total with bytes behind the records", {.Total = 161, .Rest = {0}}},
        {"a record more than types", {.Total = 208, .Rest = Bytes(48, 0)}},
        {"state 8", {.Single = 8}},
        {"state 9", {.Single = 9}},
        {"state 8, first of two", {.Two = {8, 6}}},
        {"state 8, second of two", {.Two = {1, 8}}},
        {"state 8, first of three", {.Three = {8, 2, 7}}},
        {"state 8, second of three", {.Three = {0, 8, 7}}},
        {"state 255, third of three", {.Three = {0, 2, 255}}},
    };
    for (const auto& [name, stored] : cases)
        EXPECT_FALSE(gDeserialize(stored.Build(), chunk)) << name;
    for (const uint64_t number : {~uint64_t{0}, uint64_t{1} << 63, uint64_t{1} << 32})
    {
        EXPECT_FALSE(gDeserialize(StoredOverview{.Count = number}.Build(), chunk)) << "count " << number;
        EXPECT_FALSE(gDeserialize(StoredOverview{.Total = number}.Build(), chunk)) << "total " << number;
    }
    const Bytes whole = StoredOverview().Build();
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(gDeserialize(Bytes(whole.data(), whole.data() + size), chunk)) << size;
}

// All sets of states; one of the shares is no number, and one is smaller than any normal one.
TEST(OverviewChunkTest, ABucketTakesTheRecordThatFits)
{
    const float values[] = {0.5F, 0.25F, std::nanf(""), 1.0F, FLT_TRUE_MIN, 0.125F, -0.5F, 2.0F};
    for (unsigned mask = 0; mask < 256; ++mask)
    {
        SCOPED_TRACE(mask);
        OverviewAccumulator accumulator = gAccumulate(10.0, 20.0, {});
        Bytes states;
        Host::ByteWriter shares;
        for (uint8_t state = 0; state < 8; ++state)
        {
            if ((mask & 1U << state) == 0)
                continue;
            accumulator.Shares[state] = values[state];
            states.push_back(state);
            shares.Add(values[state]);
        }
        Host::ByteWriter expected;
        if (states.size() == 1)
            expected.Add(uint8_t{0}).Add(10.0).Add(20.0).Add(~uint64_t{0}).Add(10.0).Add(20.0).Add(~uint32_t{0}).Add(states[0]);
        else if (states.size() == 2)
            expected.Add(uint8_t{1}).Add(10.0).Add(20.0).AddBytes(shares.Bytes).AddBytes(states);
        else if (states.size() == 3)
            expected.Add(uint8_t{2}).Add(10.0).Add(20.0).AddBytes(shares.Bytes).AddBytes(states);
        else
            expected.Add(uint8_t{3}).Add(10.0).Add(20.0).Add(accumulator.Shares);
        expected.Bytes.resize(states.size() == 2 || states.size() == 3 ? 33 : 49);

        OverviewChunk chunk;
        chunk.AddAccumulated(accumulator);
        EXPECT_THAT(gGetRecords(chunk), testing::ElementsAre(expected.Bytes));
    }

    const OverviewAccumulator empty;
    EXPECT_EQ(empty.Start, -DBL_MAX);
    EXPECT_EQ(empty.End, DBL_MAX);
    EXPECT_THAT(empty.Shares, Each(0.0F));
}

void gAddSpans(const std::vector<std::pair<double, double>>& inSpans, OverviewChunk& ioChunk)
{
    for (const auto& [start, end] : inSpans)
        ioChunk.AddEntry(ThreadState::Executing, ~0U, ~uint64_t{0}, start, end, start, end);
}

TEST(OverviewChunkTest, EntriesOfARangeAreFound)
{
    OverviewChunk chunk;
    gAddSpans({{0, 10}, {20, 30}, {40, 50}}, chunk);
    // Inside; both ends of an entry; gaps, which take the entry behind them; beyond the ends; the wrong way round.
    const std::array<double, 4> cases[] = {{-5, 5, 0, 1},  {5, 25, 0, 2},  {0, 50, 0, 3},  {-9, 99, 0, 3}, {10, 20, 0, 2},
                                           {20, 20, 1, 2}, {30, 30, 1, 2}, {15, 25, 1, 2}, {31, 45, 2, 3}, {12, 15, 1, 2},
                                           {5, 15, 0, 2},  {-9, -5, 0, 1}, {60, 70, 2, 3}, {45, 60, 2, 3}, {45, 5, 0, 0},
                                           {25, 5, 0, 0},  {60, -5, 0, 0}};
    for (const auto& [start, end, first, last] : cases)
    {
        const Range expected = {static_cast<size_t>(first), static_cast<size_t>(last)};
        EXPECT_EQ(chunk.FindEntries(start, end), expected) << start << " to " << end;
    }
    EXPECT_EQ(OverviewChunk().FindEntries(-DBL_MAX, DBL_MAX), (Range{0, 0}));
    OverviewChunk single;
    gAddSpans({{1, 2}}, single);
    EXPECT_EQ(single.FindEntries(0, 0), (Range{0, 1}));
}

// What a search gives where entries touch depends on its steps, so these are the same ones.
int gSearch(const std::vector<std::pair<double, double>>& inSpans, double inTime)
{
    const int last = static_cast<int>(inSpans.size()) - 1;
    int lo = 0;
    int hi = last;
    while (lo <= hi)
    {
        const int mid = (lo + hi) / 2;
        const auto& [start, end] = inSpans[static_cast<size_t>(mid)];
        if (inTime > end)
            lo = mid + 1;
        else if (start <= inTime)
            return mid;
        else
            hi = mid - 1;
    }
    return std::clamp(lo, 0, last);
}

TEST(OverviewChunkTest, RandomRangesAreFoundAsStepByStep)
{
    const unsigned seed = 20260303;
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round)
    {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round);
        std::vector<std::pair<double, double>> spans;
        double time = 2.0;
        for (int i = 0; i <= round; ++i)
        {
            const double start = time + static_cast<double>(random() % 3); // entries touch, or leave a gap
            time = start + static_cast<double>(random() % 4);              // and may be empty
            spans.emplace_back(start, time);
        }
        OverviewChunk chunk;
        gAddSpans(spans, chunk);
        for (int i = 0; i < 300; ++i)
        {
            const double start = static_cast<double>(random() % static_cast<unsigned>(2 * time + 8)) / 2.0;
            const double end = static_cast<double>(random() % static_cast<unsigned>(2 * time + 8)) / 2.0;
            const auto first = static_cast<size_t>(gSearch(spans, start));
            const auto last = static_cast<size_t>(gSearch(spans, end));
            ASSERT_EQ(chunk.FindEntries(start, end), (last < first ? Range{0, 0} : Range{first, last + 1}))
                << start << " " << end;
        }
    }
}

} // namespace
} // namespace Profiler
