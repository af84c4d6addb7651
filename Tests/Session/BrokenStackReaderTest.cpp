#include "Session/Callstacks/BrokenStackReader.h"

#include "Tests/Support/BrokenStackFiles.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace
{

using namespace Profiler;

constexpr double sNoEnd = std::numeric_limits<double>::max();

class BrokenStackReaderTest : public testing::Test
{
protected:
    BrokenStackReaderTest() { mFiles.SetRanges(0, {{10.0, 20.0, 1}, {20.0, 30.0, 2}, {30.0, 30.0, 3}, {40.0, sNoEnd, 4}}); }

    // The results at the times, a digit each; where a range begins, its stack in brackets.
    std::string Steps(double inStartTime, std::initializer_list<double> inTimes, ThreadID inThread = 0)
    {
        BrokenStackReader reader(mFiles.GetHolder(), inThread, inStartTime);
        std::string text;
        BrokenRange range;
        for (const double time : inTimes)
        {
            range.Stack = 0;
            const EBrokenStackStep step = reader.StepTo(range, time);
            text += std::to_string(static_cast<int>(step));
            if (step == EBrokenStackStep::RangeBegins)
                text += "(" + std::to_string(range.Stack) + ")";
            else
                EXPECT_EQ(range.Stack, 0U);
        }
        return text;
    }

    BrokenStackFiles mFiles;
};

TEST_F(BrokenStackReaderTest, EventsBeforeInAndBehindARange)
{
    EXPECT_EQ(Steps(0, {9, 10, 11, 19.9, 20}), "30(1)112");
}

TEST_F(BrokenStackReaderTest, ARangeThatBeginsWhereAnotherEndsIsSeenAtTheNextStepWithThatTime)
{
    EXPECT_EQ(Steps(0, {10, 20, 20, 25, 30}), "0(1)20(2)12");
    EXPECT_EQ(Steps(0, {10, 20, 25, 30}), "0(1)212");
}

TEST_F(BrokenStackReaderTest, EventsAtTheStartOfARangeAllBeginIt)
{
    EXPECT_EQ(Steps(0, {10, 10, 10, 15}), "0(1)0(1)0(1)1");
}

TEST_F(BrokenStackReaderTest, ARangeWithoutLengthBeginsOnceAndIsPassed)
{
    EXPECT_EQ(Steps(25, {25, 30, 30, 30, 35, 40, 1e9}), "120(3)330(4)1");
}

TEST_F(BrokenStackReaderTest, AReaderStartsAtOrInTheRangeOfItsTime)
{
    EXPECT_EQ(Steps(10, {10, 15}), "0(1)1");
    EXPECT_EQ(Steps(15, {15, 20}), "12");
    EXPECT_EQ(Steps(20, {20, 25}), "0(2)1");
    EXPECT_EQ(Steps(35, {35, 40}), "30(4)");
    EXPECT_EQ(Steps(50, {50, sNoEnd, 60}), "123");
}

// The comparison is exact: a range whose end no event has is never left.
TEST_F(BrokenStackReaderTest, AnEndThatIsSteppedOverHoldsTheReader)
{
    EXPECT_EQ(Steps(0, {10, 21, 25, 40, 20, 20}), "0(1)33320(2)");
}

TEST_F(BrokenStackReaderTest, AThreadWithoutRangesIsAlwaysOutside)
{
    EXPECT_EQ(Steps(0, {10, 15, 20}, 1), "333");
    BrokenRange range;
    EXPECT_EQ(BrokenStackReader().StepTo(range, 10.0), EBrokenStackStep::Outside);
    EXPECT_EQ(range.Start, -1.0);
    EXPECT_EQ(range.End, -1.0);
    EXPECT_EQ(range.Stack, sNoCallstack);
}

} // namespace
