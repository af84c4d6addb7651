#include "ThreadsModel/Chunks/BarChunk.h"

#include "Tests/Support/ByteWriter.h"

#include <gmock/gmock.h>

#include <random>
#include <sstream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace Profiler
{
namespace
{

using Bytes = std::vector<uint8_t>;

constexpr uint64_t sHuge[] = {~uint64_t{0}, uint64_t{1} << 63, uint64_t{1} << 61, uint64_t{1} << 59, uint64_t{1} << 32};

Bytes gGetBytes(const Utility::ByteBuffer& inBuffer)
{
    return {inBuffer.GetData(), inBuffer.GetData() + inBuffer.GetSize()};
}

Bytes gSerialize(BarChunk& ioChunk)
{
    Utility::ByteBuffer buffer;
    ioChunk.Serialize(buffer);
    return gGetBytes(buffer);
}

bool gDeserialize(const Bytes& inBytes, BarChunk& outChunk)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    return outChunk.Deserialize(cursor);
}

// Every bit of a bar, which comparing indices doesn't look at.
using PlainBar = std::tuple<double, double, uint64_t, uint32_t, uint32_t>;

PlainBar gGetPlain(const Bar& inBar)
{
    return {inBar.Start, inBar.End, inBar.Address, inBar.ParentIndex, inBar.ResolveIndex.Index};
}

std::vector<std::vector<PlainBar>> gGetPlain(const BarChunk& inChunk)
{
    std::vector<std::vector<PlainBar>> rows;
    for (const BarChunk::Row& row : inChunk.GetRows())
    {
        rows.emplace_back();
        for (const Bar* bar : row)
            rows.back().push_back(gGetPlain(*bar));
    }
    return rows;
}

Bar* gAdd(BarChunk& ioChunk, int32_t inDepth, uint64_t inAddress, double inStart, double inEnd, uint32_t inParent = ~0U)
{
    uint64_t index = 0;
    return ioChunk.AddBar(inDepth, inParent, inAddress, ResolveIndex{7}, 0, index, inStart, inEnd);
}

// As a file holds it, with what a damaged one could say.
struct StoredBars
{
    uint64_t Total = 96;
    uint64_t NumRows = 2;
    size_t TableSize = 2;
    std::vector<uint64_t> Counts = {1, 2};
    std::vector<std::vector<uint32_t>> Parents = {{~0U}, {0, 0}};
    uint64_t NumContexts = 1;
    int32_t ContextDepth = 1;
    uint64_t ContextBar = 1;
    Bytes Rest = {};

    [[nodiscard]] Bytes Build() const
    {
        Host::ByteWriter bytes;
        bytes.Add(Total).Add(NumRows);
        for (size_t i = 0; i < TableSize; ++i)
            bytes.Add(uint64_t{0xBAD});
        for (size_t row = 0; row < Counts.size(); ++row)
        {
            bytes.Add(Counts[row]);
            for (const uint32_t parent : Parents[row])
                bytes.Add(parent).Add(1.0).Add(2.0).Add(uint64_t{0x10}).Add(uint32_t{3});
        }
        bytes.Add(NumContexts).Add(ContextDepth).Add(ContextBar).Add(uint64_t{99});
        return bytes.AddBytes(Rest).Bytes;
    }
};

TEST(BarChunkTest, BarsAreAppendedToTheirRowWithTheirCarry)
{
    struct Case
    {
        int32_t Depth;
        uint32_t Index;
        uint32_t Carry;
        uint64_t BarIndex;
        uint32_t Word;
    };
    const Case cases[] = {{0, 0x12345678, 0, 0, 0x12345678}, {1, 0xFFFFFFFF, 0, 0, 0x3FFFFFFF}, {1, 0xC0000005, 1, 1, 0x40000005},
                          {0, 0, 2, 1, 0x80000000},          {2, 5, 3, 0, 0xC0000005},          {2, 5, 6, 1, 0x80000005}};
    BarChunk chunk;
    EXPECT_EQ(chunk.GetSize(), 0U);
    for (const Case& test : cases)
    {
        uint64_t index = 77;
        Bar* bar = chunk.AddBar(test.Depth, 4, 0x99, ResolveIndex{test.Index}, test.Carry, index, 1.5, 2.5);
        EXPECT_EQ(index, test.BarIndex);
        EXPECT_EQ(gGetPlain(*bar), PlainBar(1.5, 2.5, 0x99, 4, test.Word));
        EXPECT_EQ(chunk.GetBar({test.Depth, test.BarIndex}), bar);
    }
    for (const int32_t depth : {-2, -1, 4})
    {
        uint64_t index = 77;
        EXPECT_EQ(chunk.AddBar(depth, 0, 0x99, {}, 0, index, 1.5, 2.5), nullptr) << "has no row above it";
    }
    EXPECT_EQ(chunk.GetRows().size(), 3U);
    EXPECT_EQ(chunk.GetSize(), 6U * 32);
    EXPECT_EQ(chunk.GetChunkType(), EChunkType::Bar);
    EXPECT_EQ(gGetPlain(Bar()), PlainBar(0.0, 0.0, 0, 0, ~0U));
}

TEST(BarChunkTest, IsWrittenToTheByte)
{
    BarChunk chunk;
    uint64_t index = 0;
    chunk.AddBar(0, ~0U, 0x1111, ResolveIndex{0x0A}, 1, index, 1.0, 9.0);
    chunk.AddBar(1, 0, 0x2222, ResolveIndex{0x0B}, 0, index, 2.0, 3.0);
    chunk.AddBar(1, 0, 0x3333, ResolveIndex{0x0C}, 2, index, 4.0, 5.0);
    chunk.SetInstrumentationContext({1, 1}, 0x77);

    Utility::ByteBuffer buffer;
    buffer.Append("front", 5);
    chunk.Serialize(buffer);
    Host::ByteWriter expected;
    expected.AddText("front").Add(uint64_t{96}).Add(uint64_t{2});
    expected.Add(uint64_t{5 + 32}).Add(uint64_t{5 + 32 + 8 + 32}); // places of the rows in the whole buffer
    expected.Add(uint64_t{1});
    expected.Add(~uint32_t{0}).Add(1.0).Add(9.0).Add(uint64_t{0x1111}).Add(uint32_t{0x4000000A});
    expected.Add(uint64_t{2});
    expected.Add(uint32_t{0}).Add(2.0).Add(3.0).Add(uint64_t{0x2222}).Add(uint32_t{0x0000000B});
    expected.Add(uint32_t{0}).Add(4.0).Add(5.0).Add(uint64_t{0x3333}).Add(uint32_t{0x8000000C});
    expected.Add(uint64_t{1}).Add(int32_t{1}).Add(uint64_t{1}).Add(uint64_t{0x77});
    EXPECT_EQ(gGetBytes(buffer), expected.Bytes);

    BarChunk empty;
    EXPECT_EQ(gSerialize(empty), Bytes(24, 0));
    EXPECT_TRUE(gDeserialize(Bytes(24, 0), chunk));
    EXPECT_THAT(chunk.GetRows(), IsEmpty()) << "what it held before is gone";
    EXPECT_EQ(chunk.GetSize(), 0U);
    EXPECT_EQ(chunk.GetInstrumentationContext({1, 1}), ~uint64_t{0});
}

TEST(BarChunkTest, AReadChunkIsTheWrittenOne)
{
    const unsigned seed = 20260301;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    BarChunk chunk;
    for (int32_t depth = 0, parents = 1; depth < 12; ++depth)
    {
        const auto count = static_cast<int32_t>(200 + random() % 300);
        for (int32_t i = 0; i < count; ++i)
        {
            uint64_t index = 0;
            const uint32_t parent = depth == 0 ? ~0U : static_cast<uint32_t>(i) % static_cast<uint32_t>(parents);
            chunk.AddBar(depth, parent, random(), ResolveIndex{static_cast<uint32_t>(random())}, random() % 4, index, i, i + 0.5);
            if (random() % 5 == 0)
                chunk.SetInstrumentationContext({depth, index}, random());
        }
        parents = count;
    }
    chunk.BuildBoundaries();

    // The hash of the two is the same; the later context of a bar counts.
    for (const uint64_t context : {50, 70})
        chunk.SetInstrumentationContext({1, 2}, context);
    chunk.SetInstrumentationContext({2, 1}, 60);
    EXPECT_EQ(chunk.GetInstrumentationContext({1, 2}), 70U);
    EXPECT_EQ(chunk.GetInstrumentationContext({2, 1}), 60U);

    BarChunk read;
    gAdd(read, 0, 1, 0, 1);
    read.SetInstrumentationContext({0, 100000}, 5);
    read.BuildBoundaries();
    ASSERT_TRUE(gDeserialize(gSerialize(chunk), read));
    EXPECT_EQ(gGetPlain(read), gGetPlain(chunk));
    EXPECT_EQ(read.GetSize(), chunk.GetSize());
    EXPECT_THAT(read.GetBoundaries(), IsEmpty()) << "they stand beside the chunk";
    EXPECT_EQ(read.GetInstrumentationContext({0, 100000}), ~uint64_t{0});
    for (int32_t depth = 0; depth < 12; ++depth)
    {
        for (uint64_t bar = 0; bar < 500; ++bar)
            ASSERT_EQ(read.GetInstrumentationContext({depth, bar}), chunk.GetInstrumentationContext({depth, bar}));
    }
}

TEST(BarChunkTest, DamagedBytesAreRefused)
{
    BarChunk chunk;
    ASSERT_TRUE(gDeserialize(StoredBars().Build(), chunk)) << "the undamaged one";
    EXPECT_EQ(chunk.GetInstrumentationContext({1, 1}), 99U);

    const std::vector<std::vector<uint32_t>> parentBehind = {{~0U}, {0, 1}};
    const std::vector<std::vector<uint32_t>> noParent = {{~0U}, {0, ~0U}};
    const std::vector<std::vector<uint32_t>> noBarsAbove = {{}, {0, 0}};
    const std::pair<const char*, StoredBars> cases[] = {
        {"a total of fewer bars", {.Total = 64}},
        {"a total of more bars", {.Total = 128}},
        {"a total of no whole bars", {.Total = 97}},
        {"no total", {.Total = 0}},
        {"fewer rows", {.NumRows = 1}},
        {"no rows", {.NumRows = 0}},
        {"more rows", {.NumRows = 3}},
        {"a shorter table", {.TableSize = 1}},
        {"more bars in a row", {.Counts = {1, 3}}},
        {"fewer bars in a row", {.Counts = {1, 1}}},
        {"a parent behind the row above", {.Parents = parentBehind}},
        {"no parent", {.Parents = noParent}},
        {"a row above without bars", {.Total = 64, .Counts = {0, 2}, .Parents = noBarsAbove}},
        {"more contexts", {.NumContexts = 2}},
        {"fewer contexts", {.NumContexts = 0}},
        {"a context above all rows", {.ContextDepth = -1}},
        {"a context below all rows", {.ContextDepth = 2}},
        {"a context behind its row", {.ContextBar = 2}},
        {"a byte behind the end", {.Rest = {0}}},
    };
    for (const auto& [name, stored] : cases)
        EXPECT_FALSE(gDeserialize(stored.Build(), chunk)) << name;
    for (const uint64_t number : sHuge)
    {
        EXPECT_FALSE(gDeserialize(StoredBars{.Total = number}.Build(), chunk)) << "total " << number;
        EXPECT_FALSE(gDeserialize(StoredBars{.NumRows = number}.Build(), chunk)) << "rows " << number;
        EXPECT_FALSE(gDeserialize(StoredBars{.Counts = {1, number}}.Build(), chunk)) << "bars " << number;
        EXPECT_FALSE(gDeserialize(StoredBars{.NumContexts = number}.Build(), chunk)) << "contexts " << number;
    }
    const Bytes whole = StoredBars().Build();
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(gDeserialize(Bytes(whole.data(), whole.data() + size), chunk)) << size;
}

TEST(BarChunkTest, AStackEndsAtTheFirstDepthWithoutABar)
{
    BarChunk chunk;
    gAdd(chunk, 0, 1, 0, 10);
    gAdd(chunk, 0, 2, 10, 20);
    gAdd(chunk, 0, 3, 25, 30);
    gAdd(chunk, 1, 11, 2, 5, 0);
    gAdd(chunk, 1, 12, 12, 15, 1);
    gAdd(chunk, 2, 21, 1, 9, 0); // wider than what is above it
    gAdd(chunk, 2, 22, 13, 13, 1);
    gAdd(chunk, 2, 23, 13, 14, 1); // the later one of two with one start
    gAdd(chunk, 2, 24, 14.5, 16, 1);

    const char* const cases[] = {"-0.1:", "0: 1",     "1.5: 1",     "2: 1 11 21",  "4.9: 1 11 21",  "5: 1",     "6: 1",
                                 "10: 2", "12: 2 12", "12.5: 2 12", "13: 2 12 23", "13.5: 2 12 23", "14: 2 12", "14.5: 2 12 24",
                                 "15: 2", "20:",      "24.9:",      "25: 3",       "29.9: 3",       "30:",      "1e9:"};
    for (const std::string test : cases)
    {
        std::vector<const Bar*> bars;
        chunk.GetStackAtTime(std::stod(test), bars);
        std::string found = test.substr(0, test.find(':') + 1);
        for (const Bar* bar : bars)
            found += " " + std::to_string(bar->Address);
        EXPECT_EQ(found, test);
    }
}

// The last bar that doesn't start after the time, found by looking at all.
TEST(BarChunkTest, RowsOfAnyLengthAreSearchedRight)
{
    const unsigned seed = 20260302;
    std::mt19937 random(seed);
    for (int numBars = 1; numBars < 70; ++numBars)
    {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << numBars << " bars");
        BarChunk chunk;
        int end = 1;
        for (int i = 0; i < numBars; ++i)
        {
            const int start = end + static_cast<int>(random() % 3);
            end = start + static_cast<int>(random() % 4);
            gAdd(chunk, 0, 0, start, end);
        }
        for (double time = 0.0; time < end + 2; time += 0.5)
        {
            const Bar* expected = nullptr;
            for (const Bar* bar : chunk.GetRows()[0])
                expected = bar->Start <= time ? bar : expected;
            std::vector<const Bar*> bars;
            chunk.GetStackAtTime(time, bars);
            if (expected == nullptr || time >= expected->End)
                EXPECT_THAT(bars, IsEmpty()) << time;
            else
                EXPECT_THAT(bars, ElementsAre(expected)) << time;
        }
    }
}

class BarBoundariesTest : public testing::Test
{
protected:
    BarBoundariesTest()
    {
        gAdd(mChunk, 0, 1, 0, 10);
        gAdd(mChunk, 0, 2, 10, 20);
        gAdd(mChunk, 0, 3, 20, 30);
        mChunk.BuildBoundaries();
        gAdd(mChunk, 1, 4, 12, 13, 1);
        mChunk.BuildBoundaries();
        Utility::ByteBuffer buffer;
        mChunk.WriteBoundaries(buffer);
        mBlock = gGetBytes(buffer);
    }

    // With inSize bytes of the block told, behind three others.
    static bool Read(const Bytes& inBlock, uint64_t inSize, int32_t inDepth, BarBoundary& outBoundary)
    {
        std::stringstream stream("abc" + std::string(inBlock.begin(), inBlock.end()));
        return BarChunk::ReadBoundary(stream, 3, inSize, inDepth, outBoundary);
    }

    static bool ReadAll(const Bytes& inBlock, BarChunk::BoundaryList& outBoundaries)
    {
        Utility::ByteCursor cursor(inBlock.data(), inBlock.size());
        return BarChunk::ReadBoundaries(cursor, outBoundaries);
    }

    BarChunk mChunk;
    Bytes mBlock;
};

TEST_F(BarBoundariesTest, AreWrittenToTheByteAndReadByDepthAndAllTogether)
{
    Host::ByteWriter expected;
    const auto addBar = [&](uint32_t inParent, double inStart, double inEnd, uint64_t inAddress)
    { expected.Add(inParent).Add(inStart).Add(inEnd).Add(inAddress).Add(uint32_t{7}); };
    expected.Add(uint64_t{2});
    addBar(~0U, 0, 10, 1);
    addBar(~0U, 20, 30, 3);
    expected.Add(uint32_t{3});
    addBar(1, 12, 13, 4);
    addBar(1, 12, 13, 4);
    expected.Add(uint32_t{1});
    EXPECT_EQ(mBlock, expected.Bytes);

    BarChunk::BoundaryList all;
    ASSERT_TRUE(ReadAll(mBlock, all));
    ASSERT_EQ(all.size(), 2U);
    for (int32_t depth = 0; depth < 2; ++depth)
    {
        const BarChunk::Row& row = mChunk.GetRows()[static_cast<size_t>(depth)];
        BarBoundary boundary;
        ASSERT_TRUE(Read(mBlock, mBlock.size(), depth, boundary));
        for (const BarBoundary& read : {boundary, all[static_cast<size_t>(depth)]})
        {
            EXPECT_EQ(gGetPlain(read.First), gGetPlain(*row.front()));
            EXPECT_EQ(gGetPlain(read.Last), gGetPlain(*row.back()));
            EXPECT_EQ(read.BarCount, row.size());
        }
    }
}

TEST_F(BarBoundariesTest, WhatIsNotThereIsRefused)
{
    BarBoundary boundary;
    BarChunk::BoundaryList all;
    for (const int32_t depth : {2, 3, 1 << 30, -1})
        EXPECT_FALSE(Read(mBlock, mBlock.size(), depth, boundary)) << depth;
    EXPECT_FALSE(Read(Bytes(8, 0), 8, 0, boundary)) << "a block of none";
    EXPECT_TRUE(ReadAll(Bytes(8, 0), all));
    for (size_t size = 0; size < mBlock.size(); ++size)
    {
        EXPECT_FALSE(Read(mBlock, size, 1, boundary)) << size;
        EXPECT_FALSE(Read(Bytes(mBlock.data(), mBlock.data() + size), mBlock.size() + 100, 1, boundary)) << size;
        EXPECT_FALSE(ReadAll(Bytes(mBlock.data(), mBlock.data() + size), all)) << size;
    }
    for (const uint64_t count : sHuge)
    {
        Bytes block = mBlock;
        std::memcpy(block.data(), &count, 8);
        EXPECT_FALSE(Read(block, block.size(), 1, boundary)) << count;
        EXPECT_FALSE(ReadAll(block, all)) << count;
    }
    std::stringstream stream;
    for (const uint64_t offset : {uint64_t{9999}, ~uint64_t{0}})
        EXPECT_FALSE(BarChunk::ReadBoundary(stream, offset, 144, 0, boundary)) << offset;
}

} // namespace
} // namespace Profiler
