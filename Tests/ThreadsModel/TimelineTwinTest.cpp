// Timelines of random captures, hostile ones among them, beside those that the twin makes.
#include "TimelineTwin.h"

#include "Tests/ThreadsModel/RandomTimeline.h"

#include <filesystem>

namespace
{

using namespace Profiler;

constexpr uint32_t sNumSeeds = 250;
constexpr uint32_t sNumWorkers = 2;

// One a seed.
class CheckedTimeline : public RandomTimeline
{
public:
    using RandomTimeline::RandomTimeline;

    // The stored timeline, and that of a rebuild, only where wanted: they take long.
    void Check(bool inChecksStored, bool inChecksRebuilt)
    {
        TimelineTwinPass pass;
        pass.ThreadsBefore = GetSession().GetThreadList();
        ASSERT_EQ(Run(), "") << Utility::GetErrorText(mErrors);
        pass.HasCounts = true;
        ASSERT_EQ(gFindTimelineDifferences(GetSession(), GetModel(), pass), "") << "when built";
        pass.HasCounts = false;
        if (inChecksStored)
            CheckStored(pass, "when loaded");
        if (!inChecksRebuilt)
            return;
        std::filesystem::remove(At("game/Threads/Model.dat"));
        const std::unique_ptr<Session> session = Load();
        ASSERT_EQ(mFlags, ReprocessAllModels);
        ASSERT_TRUE(session->Reprocess(false, mErrors, mIsCanceled, mProgress)) << Utility::GetErrorText(mErrors);
        pass.IsRebuild = true;
        CheckStored(pass, "when rebuilt");
    }

private:
    void CheckStored(const TimelineTwinPass& inPass, const char* inWhen)
    {
        const std::unique_ptr<Session> session = Load();
        ASSERT_NE(session, nullptr);
        ASSERT_EQ(mFlags, 0U) << Utility::GetErrorText(mPlugin.LoadErrors);
        auto& model = static_cast<ThreadsModel&>(*session->GetModels().front());
        ASSERT_EQ(gFindTimelineDifferences(*session, model, inPass), "") << inWhen;
    }
};

class TimelineTwinLimitTest : public TimelineTest
{
protected:
    TimelineTwinLimitTest() : TimelineTest(sNumWorkers) {}
};

// The length of a long bar is computed in single precision, and the level of a wake-up in double.
TEST_F(TimelineTwinLimitTest, AgreesWhereRoundingDecides)
{
    mWorld.LoadModule(mWorld.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}}), 0x10000);
    GetSession().GetSessionInfo().SampleIntervalMs = 30.0;
    mWorld.AddThread("A");
    mWorld.AddThread("B");
    TimelineTwinPass pass{.IsRebuild = false, .ThreadsBefore = GetSession().GetThreadList(), .HasCounts = true};
    ASSERT_EQ(
        RunPass(
            "0 out B 4, 0 sample A main, 0.1 wake A B main, 0.2 in B main, 0.4 out B 4, 15.8000009 sample A work, 16 out A 4"),
        "");
    EXPECT_EQ(gFindTimelineDifferences(GetSession(), GetModel(), pass), "");
}

TEST(TimelineTwinTest, AgreesOverRandomCaptures)
{
    for (uint32_t seed = 1; seed <= sNumSeeds && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        CheckedTimeline(seed).Check(seed % 8 == 0, seed % 8 == 4);
    }
}

} // namespace
