#include "Session/Pass/AddressHits.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace
{

using Profiler::AddressHits;

std::map<uint64_t, uint32_t> gCollect(const AddressHits& inHits)
{
    std::map<uint64_t, uint32_t> collected;
    inHits.ForEach([&](uint64_t inAddress, uint32_t inCount) { EXPECT_TRUE(collected.emplace(inAddress, inCount).second); });
    return collected;
}

TEST(AddressHitsTest, CountsAsAMapDoes)
{
    constexpr uint32_t seed = 20;
    constexpr int numRounds = 4;
    constexpr int numAdds = 3000;
    std::mt19937_64 random(seed);
    AddressHits hits;
    for (int round = 0; round < numRounds; ++round)
    {
        std::map<uint64_t, uint32_t> expected;
        for (int i = 0; i < numAdds; ++i)
        {
            // Neighbours, pages apart, and addresses that differ only far up; 0 is an address like any other.
            const uint64_t address = (random() % 40) << (random() % 3 * 20);
            hits.Add(address);
            ++expected[address];
        }
        EXPECT_EQ(gCollect(hits), expected);
        EXPECT_EQ(hits.GetSize(), expected.size());
        for (const auto& [address, count] : expected)
            EXPECT_EQ(hits.GetCount(address), count);
        EXPECT_EQ(hits.GetCount(41), 0U) << "never added";
        hits.Clear();
        EXPECT_EQ(hits.GetCount(0), 0U);
        EXPECT_EQ(hits.GetSize(), 0U);
        EXPECT_EQ(gCollect(hits).size(), 0U);
    }
}

} // namespace
