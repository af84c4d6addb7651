// Whole passes over events: what a timeline holds afterwards, built and loaded.
#include "Tests/ThreadsModel/TimelineFixture.h"

namespace
{

using namespace Profiler;

class TimelinePassTest : public TimelineTest
{
};

TEST_F(TimelinePassTest, ALoadedTimelineIsTheOneThatWasBuilt)
{
    mWorld.LoadModule(mWorld.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}}), 0x10000);
    mWorld.AddThread("A");
    ASSERT_EQ(RunPass("0 sample A main;work, 1 sample A main"), "") << Utility::GetErrorText(mErrors);
    const std::unique_ptr<Session> loaded = Load();
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(mFlags, 0U) << Utility::GetErrorText(mPlugin.LoadErrors);
    EXPECT_EQ(GetModel().FindThreadData(0)->MaxStackDepth, 2);
}

} // namespace
