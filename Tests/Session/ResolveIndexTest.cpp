#include "Session/Modules/ResolvedAddress.h"

#include <gtest/gtest.h>

namespace
{

using namespace Profiler;

TEST(ResolveIndexTest, ClassIsTakenFromBits26To29)
{
    EXPECT_EQ(ResolveIndex{0xC1FFFFFF}.GetClass(), ResolveIndex::sNativeClass);
    EXPECT_EQ(ResolveIndex{0x04000007}.GetClass(), ResolveIndex::sJITClass);
    EXPECT_EQ(ResolveIndex{0xCA000000}.GetClass(), ResolveIndex::sUnknownModuleClass);
    EXPECT_TRUE(ResolveIndex{0xCE000001}.IsUnknownClass());
    EXPECT_FALSE(ResolveIndex{0x1C000000}.IsUnknownClass()) << "a class that doesn't exist";
}

TEST(ResolveIndexTest, TheRootPlaceholderIsNeverInstrumented)
{
    EXPECT_TRUE(ResolveIndex{0x02000000}.IsInstrumented());
    EXPECT_TRUE(ResolveIndex{0x06000003}.IsInstrumented());
    EXPECT_TRUE(ResolveIndex{0x0A000000}.IsInstrumented());
    EXPECT_FALSE(ResolveIndex{0x0E000000}.IsInstrumented());
    EXPECT_FALSE(ResolveIndex{0xFDFFFFFF}.IsInstrumented());
}

TEST(ResolveIndexTest, OnlyBits30And31AreLeftOutOfComparisons)
{
    const ResolvedAddress address = {0xABCD, {0x0BEEF123}};
    for (int bit = 0; bit < 32; ++bit)
    {
        ResolvedAddress other = address;
        other.ResolveIndex.Index ^= 1U << bit;
        EXPECT_EQ(other == address, bit >= 30) << "bit " << bit;
        EXPECT_EQ(other.ResolveIndex == address.ResolveIndex, bit >= 30) << "bit " << bit;
        EXPECT_EQ(ResolvedAddressHash()(other) == ResolvedAddressHash()(address), bit >= 30) << "bit " << bit;
    }
    EXPECT_NE(address, (ResolvedAddress{0xABCE, {0x0BEEF123}}));
    EXPECT_EQ(ResolvedAddressHash()({0xFF, {0xC0000001}}), 0xFEU);
}

} // namespace
