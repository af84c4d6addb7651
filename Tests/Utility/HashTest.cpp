#include "Utility/Hash.h"

#include <gtest/gtest.h>

#include <string_view>

using Utility::gCRC64;
using Utility::gHash64;

namespace
{

TEST(Hash, XXH64OfKnownTexts)
{
    EXPECT_EQ(gHash64(nullptr, 0), 0xEF46DB3751D8E999U);
    EXPECT_EQ(gHash64(std::string_view()), 0xEF46DB3751D8E999U);
    EXPECT_EQ(gHash64("abc"), 0x44BC2CF5AD770999U);
}

TEST(Hash, CRC64OfTheCheckText)
{
    EXPECT_EQ(gCRC64("123456789", 9, 0), 0xE9C6D914C4B8D9CAU);
    EXPECT_EQ(gCRC64(nullptr, 0, 0x1234), 0x1234U);
}

TEST(Hash, CRC64ContinuesFromAnyPlace)
{
    const std::string_view text = "123456789";
    for (size_t cut = 0; cut <= text.size(); ++cut)
        EXPECT_EQ(gCRC64(text.data() + cut, text.size() - cut, gCRC64(text.data(), cut, 0)), gCRC64(text.data(), text.size(), 0))
            << cut;
}

} // namespace
