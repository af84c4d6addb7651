// Times and sizes as texts for people.
// Threads: any. Failure: none; a time that isn't finite is shown as the nearest that can be.
#pragma once

#include <cstdint>
#include <string>

namespace Utility
{

// A time in milliseconds as hours (precision 0), then minutes (1), seconds (2), milliseconds (3) and microseconds (4), each
// rounded down: "01:02:03.004" at precision 3, "01:02:03:004.005" at 4. 0.0 is "0" at every precision.
[[nodiscard]] std::string gFormatClockTime(int inPrecision, double inMs);

// "1023 B", "1.00 KiB", "2.50 MiB", "4.00 GiB".
[[nodiscard]] std::string gFormatSize(uint64_t inBytes);

} // namespace Utility
