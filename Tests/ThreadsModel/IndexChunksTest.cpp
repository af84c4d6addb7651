#include "Tests/Support/ByteWriter.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace Profiler
{
namespace
{

using Bytes = std::vector<uint8_t>;

constexpr uint64_t sHuge[] = {~uint64_t{0}, uint64_t{1} << 63, uint64_t{1} << 62, uint64_t{1} << 32};

Bytes gSerialize(Chunk& ioChunk)
{
    Utility::ByteBuffer buffer;
    ioChunk.Serialize(buffer);
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

bool gDeserialize(const Bytes& inBytes, Chunk& outChunk)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    return outChunk.Deserialize(cursor);
}

void gExpectPrefixesRefused(const Bytes& inBytes, Chunk& ioChunk)
{
    for (size_t size = 0; size < inBytes.size(); ++size)
        EXPECT_FALSE(gDeserialize(Bytes(inBytes.data(), inBytes.data() + size), ioChunk)) << size;
}

TEST(ChunkFactoryTest, MakesAnEmptyChunkOfTheKind)
{
    for (const uint8_t value : std::initializer_list<uint8_t>{1, 2, 4, 8})
    {
        const std::unique_ptr<Chunk> chunk = gCreateChunk(static_cast<EChunkType>(value));
        ASSERT_NE(chunk, nullptr);
        EXPECT_EQ(static_cast<uint8_t>(chunk->GetChunkType()), value);
        EXPECT_EQ(chunk->GetSize(), 0U);
    }
    for (const uint8_t value : std::initializer_list<uint8_t>{0, 3, 16})
        EXPECT_EQ(gCreateChunk(static_cast<EChunkType>(value)), nullptr);
}

// Two functions, of two bars and of none.
struct StoredFunctions
{
    uint64_t Count = 2;
    uint64_t NumBars = 2;
    uint64_t NumNoBars = 0;
    uint64_t OtherAddress = 0x20;
    uint32_t OtherIndex = 0x0400002A;
    Bytes Rest = {};

    [[nodiscard]] Bytes Build() const
    {
        Host::ByteWriter bytes;
        bytes.Add(Count).Add(uint64_t{0x10}).Add(uint32_t{0x0000002A}).Add(NumBars);
        bytes.Add(uint32_t{3}).Add(uint64_t{900}).Add(uint32_t{1}).Add(uint64_t{700});
        bytes.Add(OtherAddress).Add(OtherIndex).Add(NumNoBars);
        return bytes.AddBytes(Rest).Bytes;
    }
};

TEST(FunctionIndexChunkTest, IsWrittenToTheByteAndCountsOnceItIs)
{
    FunctionIndexChunk chunk;
    chunk.GetFunctions()[{0x10, ResolveIndex{0x2A}}] = {{3, 900}, {1, 700}};
    EXPECT_EQ(chunk.GetSize(), 0U);

    Utility::ByteBuffer buffer;
    buffer.Append("front", 5);
    chunk.Serialize(buffer);
    Host::ByteWriter expected;
    expected.AddText("front").Add(uint64_t{1}).Add(uint64_t{0x10}).Add(uint32_t{0x2A}).Add(uint64_t{2});
    expected.Add(uint32_t{3}).Add(uint64_t{900}).Add(uint32_t{1}).Add(uint64_t{700});
    EXPECT_EQ(Bytes(buffer.GetData(), buffer.GetData() + buffer.GetSize()), expected.Bytes);
    EXPECT_EQ(chunk.GetSize(), expected.Bytes.size() - 5) << "what it wrote, not what was there";

    FunctionIndexChunk empty;
    EXPECT_EQ(gSerialize(empty), Bytes(8, 0));
    EXPECT_EQ(empty.GetSize(), 8U);
    ASSERT_TRUE(gDeserialize(Bytes(8, 0), chunk));
    EXPECT_THAT(chunk.GetFunctions(), IsEmpty());
    EXPECT_EQ(chunk.GetSize(), 8U);
}

TEST(FunctionIndexChunkTest, BarsAreFoundWithTheLow30BitsOfTheIndex)
{
    FunctionIndexChunk chunk;
    const Bytes stored = StoredFunctions().Build();
    ASSERT_TRUE(gDeserialize(stored, chunk));
    EXPECT_EQ(chunk.GetSize(), stored.size());
    FunctionIndexChunk::FunctionTable& functions = chunk.GetFunctions();
    ASSERT_EQ(functions.size(), 2U);
    const FunctionIndexChunk::BarList bars = {{3, 900}, {1, 700}};
    for (const uint32_t flags : {0x00000000U, 0x40000000U, 0x80000000U, 0xC0000000U})
    {
        EXPECT_EQ((functions[{0x10, ResolveIndex{flags | 0x2A}}]), bars) << "in their order";
        EXPECT_THAT((functions[{0x20, ResolveIndex{flags | 0x0400002A}}]), IsEmpty());
    }
    EXPECT_EQ(functions.size(), 2U);
    EXPECT_FALSE(functions.contains({0x10, ResolveIndex{0x0400002A}}));

    for (uint64_t i = 0; i < 1000; ++i)
        functions[{i * 8, ResolveIndex{static_cast<uint32_t>(i % 3)}}].assign(i % 4, {static_cast<uint32_t>(i), i});
    FunctionIndexChunk read;
    ASSERT_TRUE(gDeserialize(gSerialize(chunk), read));
    EXPECT_EQ(read.GetFunctions(), functions);
    EXPECT_EQ(read.GetSize(), chunk.GetSize());
}

TEST(FunctionIndexChunkTest, DamagedBytesAreRefused)
{
    FunctionIndexChunk chunk;
    const std::pair<const char*, StoredFunctions> cases[] = {
        {"a function fewer", {.Count = 1}},
        {"a function more", {.Count = 3}},
        {"no functions", {.Count = 0}},
        {"a bar fewer", {.NumBars = 1}},
        {"a bar more", {.NumBars = 3}},
        {"no bars", {.NumBars = 0}},
        {"a bar behind the end", {.NumNoBars = 1}},
        {"a function twice", {.OtherAddress = 0x10, .OtherIndex = 0x2A}},
        {"a function twice but for its flags", {.OtherAddress = 0x10, .OtherIndex = 0x8000002A}},
        {"a byte behind the end", {.Rest = {0}}},
    };
    for (const auto& [name, stored] : cases)
        EXPECT_FALSE(gDeserialize(stored.Build(), chunk)) << name;
    for (const uint64_t number : sHuge)
    {
        EXPECT_FALSE(gDeserialize(StoredFunctions{.Count = number}.Build(), chunk)) << number;
        EXPECT_FALSE(gDeserialize(StoredFunctions{.NumBars = number}.Build(), chunk)) << number;
        EXPECT_FALSE(gDeserialize(StoredFunctions{.NumNoBars = number}.Build(), chunk)) << number;
    }
    gExpectPrefixesRefused(StoredFunctions().Build(), chunk);
}

ReadyRecord gMakeRecord(double inReadyTime, int32_t inThread)
{
    ReadyRecord record;
    record.ReadyTime = inReadyTime;
    record.ReadiedThreadID = inThread;
    return record;
}

// Three records, at 5, 1 and 3 ms.
Bytes gBuildReady(uint32_t inCount, const std::vector<uint16_t>& inTimeIndex, const Bytes& inRest = {})
{
    Host::ByteWriter bytes;
    bytes.Add(inCount);
    for (const uint16_t position : inTimeIndex)
        bytes.Add(position);
    bytes.Add(5.0).Add(1.5).Add(6.0).Add(uint32_t{4}).Add(uint64_t{0xAA}).Add(uint64_t{0xBB}).Add(int32_t{7}).Add(int32_t{-1});
    for (const auto& [time, thread] : {std::pair(1.0, 8), std::pair(3.0, 9)})
    {
        bytes.Add(time).Add(0.0).Add(0.0).Add(uint32_t{9}).Add(~uint64_t{0}).Add(~uint64_t{0});
        bytes.Add(thread).Add(int32_t{-1});
    }
    return bytes.AddBytes(inRest).Bytes;
}

TEST(ReadyThreadChunkTest, IsWrittenToTheByteWithItsTimeIndex)
{
    ReadyThreadChunk chunk;
    chunk.AddRecord({5.0, 1.5, 6.0, 4, 0xAA, 0xBB, 7, -1});
    EXPECT_EQ(chunk.GetSize(), sizeof(ReadyRecord));
    chunk.AddRecord(gMakeRecord(1.0, 8));
    chunk.AddRecord(gMakeRecord(3.0, 9));
    EXPECT_EQ(chunk.GetSize(), 3 * sizeof(ReadyRecord));
    EXPECT_THAT(chunk.GetTimeIndex(), IsEmpty());
    EXPECT_EQ(gSerialize(chunk), gBuildReady(3, {1, 2, 0}));

    ReadyThreadChunk read;
    ASSERT_TRUE(gDeserialize(gSerialize(chunk), read));
    EXPECT_EQ(read.GetRecords(), chunk.GetRecords());
    EXPECT_THAT(read.GetTimeIndex(), ElementsAre(1, 2, 0));
    EXPECT_EQ(read.GetSize(), 3 * (sizeof(ReadyRecord) + 2));
    EXPECT_TRUE(gDeserialize(gBuildReady(3, {2, 0, 1}), read));
    EXPECT_THAT(read.GetTimeIndex(), ElementsAre(2, 0, 1)) << "as it stands";

    ReadyThreadChunk empty;
    EXPECT_EQ(gSerialize(empty), Bytes(4, 0));
    ASSERT_TRUE(gDeserialize(Bytes(4, 0), read));
    EXPECT_THAT(read.GetRecords(), IsEmpty());
    EXPECT_THAT(read.GetTimeIndex(), IsEmpty());
    EXPECT_EQ(read.GetSize(), 0U);
}

TEST(ReadyThreadChunkTest, AFullChunkIsReadAsWritten)
{
    const unsigned seed = 20260304;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    ReadyThreadChunk chunk;
    for (int32_t i = 0; i < 10000; ++i)
        chunk.AddRecord(gMakeRecord(static_cast<double>(random() % 5000), i)); // many at one time
    const Bytes bytes = gSerialize(chunk);
    EXPECT_EQ(bytes.size(), 4U + 10000 * 54);

    ReadyThreadChunk read;
    ASSERT_TRUE(gDeserialize(bytes, read));
    EXPECT_EQ(read.GetRecords(), chunk.GetRecords());
    std::vector<uint16_t> positions = read.GetTimeIndex();
    EXPECT_TRUE(
        std::ranges::is_sorted(positions, {}, [&](uint16_t inPosition) { return read.GetRecords()[inPosition].ReadyTime; }));
    std::ranges::sort(positions);
    std::vector<uint16_t> all(10000);
    std::iota(all.begin(), all.end(), uint16_t{0});
    EXPECT_EQ(positions, all);

    // One more than there may be, with everything that belongs to it.
    Host::ByteWriter tooMany;
    tooMany.Add(uint32_t{10001}).AddBytes(Bytes(10001 * 54, 0));
    EXPECT_FALSE(gDeserialize(tooMany.Bytes, read));
}

TEST(ReadyThreadChunkTest, TimesThatAreNoNumbersDoNotUpsetTheOthers)
{
    ReadyThreadChunk chunk;
    for (int32_t i = 0; i < 100; ++i)
        chunk.AddRecord(gMakeRecord(i % 3 == 0 ? std::nan("") : 100 - i, i));
    ReadyThreadChunk read;
    ASSERT_TRUE(gDeserialize(gSerialize(chunk), read));
    std::vector<double> times;
    for (const uint16_t position : read.GetTimeIndex())
    {
        if (const double time = read.GetRecords()[position].ReadyTime; !std::isnan(time))
            times.push_back(time);
    }
    EXPECT_EQ(times.size(), 66U);
    EXPECT_TRUE(std::ranges::is_sorted(times));
}

TEST(ReadyThreadChunkTest, DamagedBytesAreRefused)
{
    ReadyThreadChunk chunk;
    ASSERT_TRUE(gDeserialize(gBuildReady(3, {1, 2, 0}), chunk)) << "the undamaged one";
    const std::pair<const char*, Bytes> cases[] = {
        {"a record fewer", gBuildReady(2, {1, 2, 0})},
        {"a record more", gBuildReady(4, {1, 2, 0})},
        {"no records", gBuildReady(0, {1, 2, 0})},
        {"records without end", gBuildReady(~0U, {1, 2, 0})},
        {"a count whose bytes wrap around", gBuildReady(0x80000003, {1, 2, 0})},
        {"a position fewer", gBuildReady(3, {1, 2})},
        {"a position more", gBuildReady(3, {1, 2, 0, 0})},
        {"a position behind the records", gBuildReady(3, {1, 3, 0})},
        {"a position of all ones", gBuildReady(3, {1, 2, 0xFFFF})},
        {"a byte behind the end", gBuildReady(3, {1, 2, 0}, {0})},
    };
    for (const auto& [name, bytes] : cases)
        EXPECT_FALSE(gDeserialize(bytes, chunk)) << name;
    gExpectPrefixesRefused(gBuildReady(3, {1, 2, 0}), chunk);
}

} // namespace
} // namespace Profiler
