#include "Utility/ByteBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

using Utility::ByteBuffer;
using Utility::ByteCursor;

namespace
{

TEST(ByteBuffer, GrowsToTheLargerOfHalfAsMuchAgainAndTheNeed)
{
    ByteBuffer buffer;
    buffer.Resize(100);
    EXPECT_EQ(buffer.GetCapacity(), 100U);
    buffer.Resize(101);
    EXPECT_EQ(buffer.GetCapacity(), 150U);
    buffer.Resize(1000);
    EXPECT_EQ(buffer.GetCapacity(), 1000U);
    buffer.Resize(10);
    buffer.Clear();
    EXPECT_EQ(buffer.GetCapacity(), 1000U) << "memory is kept";
}

TEST(ByteBuffer, IsAlignedAtEverySize)
{
    for (size_t size = 1; size < 200; ++size)
    {
        ByteBuffer buffer;
        buffer.Resize(size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.GetData()) % 16, 0U) << size;
        std::memset(buffer.GetData(), 1, size);
    }
}

TEST(ByteBuffer, ContentSurvivesGrowth)
{
    const unsigned seed = 20240611;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    ByteBuffer buffer;
    std::vector<uint8_t> expected;
    for (int step = 0; step < 500; ++step)
    {
        std::vector<uint8_t> piece(random() % 300);
        for (uint8_t& byte : piece)
            byte = static_cast<uint8_t>(random());
        const bool isInFront = step % 5 == 0;
        if (isInFront)
            buffer.Prepend(piece.data(), piece.size());
        else
            buffer.Append(piece.data(), piece.size());
        expected.insert(isInFront ? expected.begin() : expected.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(std::vector<uint8_t>(buffer.GetData(), buffer.GetData() + buffer.GetSize()), expected);
}

TEST(ByteBuffer, MovedFromBufferCanBeUsedAgain)
{
    ByteBuffer source;
    source.AppendString("text");
    ByteBuffer target(std::move(source));
    source.AppendValue(uint8_t{7}); // NOLINT(bugprone-use-after-move): the state is defined
    EXPECT_EQ(source.GetSize(), 1U);
    target = std::move(source);
    EXPECT_EQ(target.GetSize(), 1U);
    EXPECT_EQ(target.GetData()[0], 7);
}

TEST(ByteCursor, ReadsWhatABufferWasGiven)
{
    ByteBuffer buffer;
    buffer.AppendValue(uint8_t{0xAB});
    buffer.AppendValue(uint32_t{0x01020304});
    buffer.AppendValue(-1.5);
    buffer.AppendString("two");
    buffer.AppendString("");
    EXPECT_EQ(buffer.GetData()[1], 4) << "the lowest byte comes first";

    ByteCursor cursor(buffer.GetData(), buffer.GetSize());
    EXPECT_EQ(cursor.Read<uint8_t>(), 0xAB);
    EXPECT_EQ(cursor.Read<uint32_t>(), 0x01020304U);
    EXPECT_EQ(cursor.Read<double>(), -1.5);
    EXPECT_EQ(cursor.ReadString(), "two");
    EXPECT_EQ(cursor.ReadString(), "");
    EXPECT_EQ(cursor.GetRemaining(), 0U);
    EXPECT_FALSE(cursor.HasFailed());
}

TEST(ByteCursor, ShortReadsAndLengthsBeyondTheEndGiveNothingAndStayFailed)
{
    const std::vector<uint8_t> bytes = {1, 2, 3, 4, 5, 6};
    ByteCursor cursor(bytes.data(), bytes.size());
    EXPECT_EQ(cursor.Read<uint32_t>(), 0x04030201U);
    EXPECT_EQ(cursor.Read<uint32_t>(), 0U);
    EXPECT_TRUE(cursor.HasFailed());
    EXPECT_EQ(cursor.GetRemaining(), 0U);
    EXPECT_EQ(cursor.Read<uint8_t>(), 0U);
    EXPECT_EQ(cursor.ReadString(), "");

    for (const uint64_t length : {uint64_t{4}, uint64_t{1} << 32, std::numeric_limits<uint64_t>::max()})
    {
        ByteBuffer text;
        text.AppendValue(length);
        text.Append("abc", 3);
        ByteCursor beyond(text.GetData(), text.GetSize());
        EXPECT_EQ(beyond.ReadString(), "") << length;
        EXPECT_TRUE(beyond.HasFailed()) << length;
    }
    ByteCursor nothing(nullptr, 0);
    EXPECT_EQ(nothing.Read<uint64_t>(), 0U);
    EXPECT_TRUE(nothing.HasFailed());
}

} // namespace
