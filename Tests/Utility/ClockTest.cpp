#include "Utility/Clock.h"

#include <gtest/gtest.h>

namespace
{

TEST(Clock, NeverGoesBackAndBothUnitsAgree)
{
    double last = Utility::gGetMonotonicMs();
    for (int i = 0; i < 10000; ++i)
    {
        const double now = Utility::gGetMonotonicMs();
        ASSERT_GE(now, last);
        last = now;
    }

    // One clock in two units: a reading in seconds lies between the two in milliseconds around it, but for rounding.
    const double before = Utility::gGetMonotonicMs();
    const double seconds = Utility::gGetMonotonicSeconds();
    const double after = Utility::gGetMonotonicMs();
    const double rounding = 1e-3;
    EXPECT_GE(seconds * 1000.0, before - rounding);
    EXPECT_LE(seconds * 1000.0, after + rounding);
}

} // namespace
