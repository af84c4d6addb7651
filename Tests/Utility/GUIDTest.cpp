#include "Utility/GUID.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <string>

using Utility::gFormatGUID;
using Utility::gParseGUID;
using Utility::GUID;

namespace
{

GUID gCountUp()
{
    GUID guid;
    std::iota(guid.Bytes.begin(), guid.Bytes.end(), static_cast<uint8_t>(0xA0));
    return guid;
}

TEST(GUID, TextShowsThreeLittleEndianFieldsAndEightBytes)
{
    EXPECT_EQ(gFormatGUID(gCountUp(), true), "A3A2A1A0-A5A4-A7A6-A8A9-AAABACADAEAF");
    EXPECT_EQ(gFormatGUID(gCountUp(), false), "A3A2A1A0A5A4A7A6A8A9AAABACADAEAF");
    EXPECT_EQ(gFormatGUID(GUID(), true), "00000000-0000-0000-0000-000000000000");
}

TEST(GUID, ReadsItsOwnTextInEitherCase)
{
    const unsigned seed = 77;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int i = 0; i < 100; ++i)
    {
        GUID guid;
        for (uint8_t& byte : guid.Bytes)
            byte = static_cast<uint8_t>(random());
        EXPECT_EQ(gParseGUID(gFormatGUID(guid, true)), guid);
    }
    EXPECT_EQ(gParseGUID("a3a2a1a0-a5a4-a7a6-a8a9-aaabacadaeaf"), gCountUp());
}

TEST(GUID, BytesBehindAMismatchAreZero)
{
    const auto parseAndFormat = [](const std::string& inText) { return gFormatGUID(gParseGUID(inText), true); };
    EXPECT_EQ(gParseGUID(""), GUID());
    EXPECT_EQ(gParseGUID("no GUID"), GUID());
    EXPECT_EQ(parseAndFormat("A3A2A1A0"), "A3A2A1A0-0000-0000-0000-000000000000");
    EXPECT_EQ(parseAndFormat("A3A2A1A0-A5A4-x7A6-A8A9-AAABACADAEAF"), "A3A2A1A0-A5A4-0000-0000-000000000000");
    EXPECT_EQ(parseAndFormat("A3A2A1A0-A5A4-A7A6-A8A9-AAAB"), "A3A2A1A0-A5A4-A7A6-A8A9-AAAB00000000");
}

} // namespace
