#include "Utility/TextFormat.h"

#include "Utility/Format.h"

#include <algorithm>
#include <cmath>

namespace Utility
{
namespace
{

constexpr int64_t sMsPerSecond = 1000;
constexpr int64_t sMsPerMinute = 60 * sMsPerSecond;
constexpr int64_t sMsPerHour = 60 * sMsPerMinute;
constexpr int64_t sSixty = 60;
constexpr double sMicrosecondsPerMs = 1000.0;

// The largest time with a microsecond's meaning lies far below; beyond it only the conversion to an integer must stay defined.
constexpr double sLargestMs = 9.0e18;

constexpr uint64_t sKiB = 1024;
constexpr uint64_t sMiB = 1024 * sKiB;
constexpr uint64_t sGiB = 1024 * sMiB;

int64_t gFloorDivide(int64_t inValue, int64_t inDivisor)
{
    const int64_t quotient = inValue / inDivisor;
    return inValue % inDivisor < 0 ? quotient - 1 : quotient;
}

// Always at or above zero, so that a negative time counts forward from its negative hour.
int gModulo(int64_t inValue, int64_t inDivisor)
{
    return static_cast<int>(inValue - gFloorDivide(inValue, inDivisor) * inDivisor);
}

std::string gFormatUnits(uint64_t inBytes, uint64_t inUnit, const char* inName)
{
    const float value = static_cast<float>(inBytes) / static_cast<float>(inUnit);
    return gFormat("%.2f %s", static_cast<double>(value), inName);
}

} // namespace

std::string gFormatClockTime(int inPrecision, double inMs)
{
    if (inMs == 0.0 || std::isnan(inMs))
        return "0";

    const double ms = std::clamp(inMs, -sLargestMs, sLargestMs);
    const double floored = std::floor(ms);
    const auto wholeMs = static_cast<int64_t>(floored);
    std::string text = gFormat("%02lld", static_cast<long long>(gFloorDivide(wholeMs, sMsPerHour)));
    if (inPrecision >= 1)
        text += gFormat(":%02d", gModulo(gFloorDivide(wholeMs, sMsPerMinute), sSixty));
    if (inPrecision >= 2)
        text += gFormat(":%02d", gModulo(gFloorDivide(wholeMs, sMsPerSecond), sSixty));
    if (inPrecision >= 3)
        text += gFormat("%s%03d", inPrecision == 3 ? "." : ":", gModulo(wholeMs, sMsPerSecond));
    if (inPrecision >= 4)
    {
        // The difference of a time just below zero rounds up to a whole millisecond.
        const double microseconds = std::floor((ms - floored) * sMicrosecondsPerMs);
        text += gFormat(".%03d", static_cast<int>(std::min(microseconds, sMicrosecondsPerMs - 1)));
    }
    return text;
}

std::string gFormatSize(uint64_t inBytes)
{
    if (inBytes < sKiB)
        return gFormat("%d B", static_cast<int>(inBytes));
    if (inBytes < sMiB)
        return gFormatUnits(inBytes, sKiB, "KiB");
    if (inBytes < sGiB)
        return gFormatUnits(inBytes, sMiB, "MiB");
    return gFormatUnits(inBytes, sGiB, "GiB");
}

} // namespace Utility
