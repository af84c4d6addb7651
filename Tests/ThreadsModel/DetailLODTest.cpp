#include "ThreadsModel/DetailLOD.h"

#include "RTTI/Type.h"
#include "Tests/Support/SessionFixture.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <gmock/gmock.h>

#include <limits>

namespace Profiler
{
namespace
{

class DetailLODTest : public testing::Test
{
protected:
    SessionFixture mFixture;
    const DetailLODList mLevels = gMakeDetailLODs(mFixture.GetSession());
};

TEST_F(DetailLODTest, LevelsAreThoseOfTheTable)
{
    using EMode = DetailLOD::EMode;
    struct Level
    {
        float Threshold;
        float ChunkLength;
        EMode Mode;
    };
    const Level expected[] = {
        {0.0F, 500.0F, EMode::Uncompressed},  {0.0316F, 658.0F, EMode::Compressed},   {0.1F, 1000.0F, EMode::Compressed},
        {0.316F, 2080.0F, EMode::Compressed}, {1.0F, 5500.0F, EMode::Compressed},     {3.16F, 16300.0F, EMode::Compressed},
        {10.0F, 50500.0F, EMode::Compressed}, {100.0F, 500500.0F, EMode::Compressed}, {1000.0F, 5000500.0F, EMode::Compressed}};
    ASSERT_EQ(mLevels.size(), std::size(expected));
    for (size_t i = 0; i < mLevels.size(); ++i)
    {
        EXPECT_EQ(mLevels[i]->GetLevel(), static_cast<int32_t>(i));
        EXPECT_EQ(mLevels[i]->GetThreshold(), expected[i].Threshold) << i;
        EXPECT_EQ(mLevels[i]->GetChunkLength(), expected[i].ChunkLength) << i;
        EXPECT_EQ(mLevels[i]->GetMode(), expected[i].Mode) << i;
    }

    const DetailLOD unread(mFixture.GetSession());
    EXPECT_EQ(unread.GetLevel(), -1);
    EXPECT_EQ(unread.GetThreshold(), 0.0F);
    EXPECT_EQ(unread.GetChunkLength(), 0.0F);
}

TEST_F(DetailLODTest, WidthSelectsTheCoarsestLevelWithBucketsNoWider)
{
    const std::pair<double, int32_t> widths[] = {
        {-5.0, 0},  {0.0, 0},  {0.0315, 0}, {0.0316, 1}, {0.05, 1},   {0.0999, 1}, {0.11, 2},
        {0.315, 2}, {0.32, 3}, {0.999, 3},  {1.0, 4},    {3.1, 4},    {3.2, 5},    {9.99, 5},
        {10.0, 6},  {99.9, 6}, {100.0, 7},  {999.0, 7},  {1000.0, 8}, {5000.0, 8}, {std::numeric_limits<double>::infinity(), 8}};
    for (const auto& [width, level] : widths)
        EXPECT_EQ(gFindDetailLODForWidth(mLevels, 0.0, width).GetLevel(), level) << width;
    EXPECT_EQ(gFindDetailLODForWidth(mLevels, 700.0, 705.0).GetLevel(), 5) << "the width counts, not the end";
    EXPECT_EQ(gFindDetailLODForWidth(mLevels, -60.0, 60.0).GetLevel(), 7);
}

TEST_F(DetailLODTest, ThreadIsMadeOnFirstUseAndFoundFromThenOn)
{
    ThreadStreamingManager manager("Threads.dat", "ReadyThreads.dat", mFixture.GetScheduler());
    for (const std::unique_ptr<DetailLOD>& level : mLevels)
    {
        EXPECT_EQ(level->GetThread(3), nullptr);
        EXPECT_EQ(level->GetThread(3), nullptr) << "asking makes none";
        DetailLODThread& thread = level->GetOrCreateThread(3, manager);
        EXPECT_EQ(&level->GetOrCreateThread(3, manager), &thread);
        EXPECT_EQ(level->GetThread(3), &thread);
        EXPECT_EQ(level->GetThread(4), nullptr);
        EXPECT_EQ(thread.GetThreadID(), 3);
        EXPECT_EQ(thread.GetLevel(), level->GetLevel());
    }
}

// "Name version: property type, ..."
std::string gPrint(const RTTI::Type& inType)
{
    const RTTI::CompoundInfo& info = *inType.AsCompound();
    std::string text = std::string(info.Name) + " " + std::to_string(info.Version) + ":";
    for (uint32_t i = 0; i < info.PropertyCount; ++i)
        text += std::string(i == 0 ? " " : ", ") + info.Properties[i].Name + " " + info.Properties[i].Type->GetName();
    return text;
}

// Readers of models know these tables; a change of one needs a higher version.
TEST(DetailLODStorageTest, StoredClassesAreAsInFiles)
{
    EXPECT_EQ(gPrint(RTTI::gTypeOf<ChunkLayout>()),
              "Profiler::ChunkLayout 1: BarDataOffset uint64_t, BarDataSize uint64_t, FunctionIndexOffset uint64_t, "
              "FunctionIndexSize uint64_t, OverviewDataOffset uint64_t, OverviewDataSize uint64_t, BoundaryDataOffset uint64_t, "
              "BoundaryDataSize uint64_t");
    EXPECT_EQ(gPrint(RTTI::gTypeOf<ChunkDescription>()),
              "Profiler::ChunkDescription 1: Index int32_t, Layout Profiler::ChunkLayout, AvailableDataTypes uint8_t");
    EXPECT_EQ(gPrint(RTTI::gTypeOf<ChunkTable>()), "Profiler::ChunkTable 1: Chunks A#Profiler::ChunkDescription");
    EXPECT_EQ(gPrint(RTTI::gTypeOf<DetailLODThread>()),
              "Profiler::DetailLODThread 1: ThreadID int32_t, ChunkTable Profiler::ChunkTable");
    EXPECT_EQ(gPrint(RTTI::gTypeOf<DetailLOD>()),
              "Profiler::DetailLOD 1: Level int32_t, Threshold float, ChunkLength float, "
              "Threads M#int32_t#P#Profiler::DetailLODThread, Mode Profiler::DetailLOD::EMode");

    const RTTI::EnumInfo& mode = *RTTI::gTypeOf<DetailLOD::EMode>().AsEnum();
    EXPECT_EQ(mode.SizeType->GetName(), "uint8_t");
    ASSERT_EQ(mode.ValueCount, 2U);
    EXPECT_STREQ(mode.Values[0].Name, "Uncompressed");
    EXPECT_EQ(mode.Values[0].Value, 0U);
    EXPECT_STREQ(mode.Values[1].Name, "Compressed");
    EXPECT_EQ(mode.Values[1].Value, 1U);
}

} // namespace
} // namespace Profiler
