#include "Utility/Clock.h"

#include <gtest/gtest.h>

namespace
{

// One clock in two units: a reading in seconds lies between the two in milliseconds around it, but for rounding.
TEST(Clock, NeverGoesBackAndBothUnitsAgree)
{
    const double before = Utility::gGetMonotonicMs();
    const double seconds = Utility::gGetMonotonicSeconds();
    const double after = Utility::gGetMonotonicMs();
    constexpr double rounding = 1e-3;
    EXPECT_GE(seconds * 1000.0, before - rounding);
    EXPECT_LE(seconds * 1000.0, after + rounding);
}

} // namespace
