#include "Utility/TextFormat.h"

#include <gtest/gtest.h>

#include <limits>

using Utility::gFormatClockTime;
using Utility::gFormatSize;

namespace
{

constexpr double sMsPerHour = 3600000.0;

TEST(TextFormat, ClockTimeShowsWhatThePrecisionAsksFor)
{
    const double ms = 1 * sMsPerHour + 2 * 60000 + 3 * 1000 + 4 + 0.0625;
    EXPECT_EQ(gFormatClockTime(-1, ms), "01");
    EXPECT_EQ(gFormatClockTime(0, ms), "01");
    EXPECT_EQ(gFormatClockTime(1, ms), "01:02");
    EXPECT_EQ(gFormatClockTime(2, ms), "01:02:03");
    EXPECT_EQ(gFormatClockTime(3, ms), "01:02:03.004");
    EXPECT_EQ(gFormatClockTime(4, ms), "01:02:03:004.062");
    EXPECT_EQ(gFormatClockTime(9, ms), "01:02:03:004.062");
    for (int precision = 0; precision <= 5; ++precision)
        EXPECT_EQ(gFormatClockTime(precision, 0.0), "0");
    EXPECT_EQ(gFormatClockTime(4, 0.0005), "00:00:00:000.000") << "only 0.0 itself is short";
}

TEST(TextFormat, ClockTimeRoundsDownAndCarries)
{
    EXPECT_EQ(gFormatClockTime(4, 59999.9999), "00:00:59:999.999");
    EXPECT_EQ(gFormatClockTime(3, 60000.0), "00:01:00.000");
    EXPECT_EQ(gFormatClockTime(2, sMsPerHour - 1), "00:59:59");
    EXPECT_EQ(gFormatClockTime(1, 123 * sMsPerHour), "123:00") << "hours don't wrap";
}

TEST(TextFormat, ClockTimeOfAnyNumberIsDefined)
{
    for (const double ms : {-1.0, 1e300, -1e300, std::numeric_limits<double>::max(), std::numeric_limits<double>::infinity()})
        EXPECT_NE(gFormatClockTime(4, ms), "");
    EXPECT_EQ(gFormatClockTime(4, -1e-20), "-1:59:59:999.999") << "the fraction doesn't overflow its three digits";
    EXPECT_EQ(gFormatClockTime(3, std::numeric_limits<double>::quiet_NaN()), "0");
}

TEST(TextFormat, SizeChangesItsUnitAtPowersOf1024)
{
    EXPECT_EQ(gFormatSize(0), "0 B");
    EXPECT_EQ(gFormatSize(1023), "1023 B");
    EXPECT_EQ(gFormatSize(1024), "1.00 KiB");
    EXPECT_EQ(gFormatSize(1536), "1.50 KiB");
    EXPECT_EQ(gFormatSize(1048575), "1024.00 KiB");
    EXPECT_EQ(gFormatSize(1048576), "1.00 MiB");
    EXPECT_EQ(gFormatSize(1073741823), "1024.00 MiB");
    EXPECT_EQ(gFormatSize(1073741824), "1.00 GiB");
    EXPECT_EQ(gFormatSize(uint64_t{5} << 42), "20480.00 GiB");
    EXPECT_EQ(gFormatSize(uint64_t{16777217} << 30), "16777216.00 GiB") << "single precision has no such number";
}

} // namespace
