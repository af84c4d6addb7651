#include "ThreadsModel/Chunks/ChunkArena.h"

#include <gmock/gmock.h>

#include <cstring>

using testing::Each;
using testing::ElementsAre;

namespace Profiler
{
namespace
{

TEST(ChunkArenaTest, BlocksGrowInSinglePrecisionAndKeepRecordsWhole)
{
    struct Case
    {
        size_t FirstBlock;
        float Growth;
        size_t Record;
        std::vector<size_t> Sizes;
        std::vector<size_t> Used;
    };
    // In double precision 10 x 1.1F is above 11, and the second block would be larger.
    const Case cases[] = {{10, 1.1F, 10, {10, 11, 13, 15, 17}, {10, 10, 10, 10, 10}},
                          {100, 1.5F, 48, {100, 150, 225, 338}, {96, 144, 192, 336}},
                          {32, 1.0F, 32, {32, 32, 32}, {32, 32, 32}},
                          {96, 1.5F, 48, {96}, {96}}};
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.FirstBlock);
        ChunkArena arena(test.FirstBlock, false, test.Growth);
        size_t total = 0;
        for (size_t block = 0; block < test.Sizes.size(); ++block)
        {
            for (size_t used = 0; used < test.Used[block]; used += test.Record)
            {
                const void* piece = arena.Allocate(test.Record);
                ASSERT_EQ(arena.GetBlocks().size(), block + 1);
                EXPECT_EQ(piece, arena.GetBlocks()[block].Memory.get() + used);
                total += test.Record;
            }
            EXPECT_EQ(arena.GetBlocks()[block].Size, test.Sizes[block]);
            EXPECT_EQ(arena.GetBlocks()[block].Used, test.Used[block]);
        }
        EXPECT_EQ(arena.GetTotal(), total) << "what was handed out, not what the blocks hold";
    }
}

TEST(ChunkArenaTest, PiecesAreZeroIfAskedFor)
{
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        ChunkArena arena(512, true, 1.0F);
        for (size_t piece = 0; piece < 16; ++piece)
        {
            auto* bytes = static_cast<uint8_t*>(arena.Allocate(64));
            EXPECT_THAT(std::vector<uint8_t>(bytes, bytes + 64), Each(0)) << piece;
            std::memset(bytes, 0xCD, 64); // what malloc is likely to hand out next time
        }
    }
}

} // namespace
} // namespace Profiler
