#include "Session/Pass/FiberState.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

namespace
{

using namespace Profiler;

constexpr uint64_t sFiber = 7;

SavedBar gMakeBar(uint64_t inFunction)
{
    return {1, 2, 3, {inFunction, {4}}};
}

// The function of the fiber's only saved bar at the time, 0 if nothing was saved.
uint64_t gFind(const OpenBarProcessorFiberState& inState, double inTime, uint64_t inFiber = sFiber)
{
    std::vector<SavedBar> bars;
    return inState.FindFiberState(inFiber, inTime, bars) ? bars.at(0).Frame.RelativeAddress : 0;
}

TEST(FiberStateTest, FindsTheLastSwitchOutThatIsNotAboveTheTime)
{
    OpenBarProcessorFiberState state;
    state.AddFiberEvent(sFiber, {gMakeBar(100)}, 1.0);
    state.AddFiberEvent(sFiber, {gMakeBar(200)}, 2.0);
    state.AddFiberEvent(sFiber, {gMakeBar(300)}, 2.0);
    state.AddFiberEvent(sFiber, {gMakeBar(100)}, 4.0);
    const std::pair<double, uint64_t> cases[] = {{0.5, 0}, {1, 100}, {1.5, 100}, {2, 300}, {3.9, 300}, {100, 100}};
    for (const auto& [time, function] : cases)
        EXPECT_EQ(gFind(state, time), function) << time;
    EXPECT_EQ(gFind(state, 100.0, sFiber + 1), 0U);
    EXPECT_EQ(state.GetNumStates(), 3U);
}

TEST(FiberStateTest, EqualStacksOfDifferentFibersAreStoredOnce)
{
    OpenBarProcessorFiberState state;
    for (uint64_t fiber = 0; fiber < 5; ++fiber)
        state.AddFiberEvent(fiber, {gMakeBar(100), gMakeBar(200)}, 1.0);
    EXPECT_EQ(state.GetNumStates(), 1U);
    EXPECT_EQ(gFind(state, 1.0, 4), 100U);
}

TEST(FiberStateTest, StacksThatDifferInAnyFieldAreStoredApart)
{
    OpenBarProcessorFiberState state;
    size_t count = 0;
    const std::vector<SavedBar> stacks[] = {
        {{1, 2, 3, {4, {5}}}}, {{9, 2, 3, {4, {5}}}}, {{1, 9, 3, {4, {5}}}},          {{1, 2, 9, {4, {5}}}},
        {{1, 2, 3, {9, {5}}}}, {{1, 2, 3, {4, {9}}}}, {{1, 2, 3, {4, {0x40000005}}}}, {{1, 2, 3, {4, {5}}}, {1, 2, 3, {4, {5}}}}};
    for (const std::vector<SavedBar>& stack : stacks)
    {
        state.AddFiberEvent(sFiber, stack, 1.0);
        EXPECT_EQ(state.GetNumStates(), ++count);
    }
}

TEST(FiberStateTest, AllFieldsComeBack)
{
    OpenBarProcessorFiberState state;
    state.AddFiberEvent(sFiber, {gMakeBar(100), {11, 12, 13, {14, {15}}}}, 1.0);
    std::vector<SavedBar> bars{gMakeBar(1), gMakeBar(2), gMakeBar(3)};
    ASSERT_TRUE(state.FindFiberState(sFiber, 1.0, bars));
    ASSERT_EQ(bars.size(), 2U);
    EXPECT_EQ(std::tuple(bars[1].InstrumentationContextID, bars[1].LastAbsoluteAddress, bars[1].ReturnAddress,
                         bars[1].Frame.RelativeAddress, bars[1].Frame.ResolveIndex.Index),
              std::tuple(11U, 12U, 13U, 14U, 15U));
}

} // namespace
