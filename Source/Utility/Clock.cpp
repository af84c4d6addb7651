#include "Utility/Clock.h"

#include <ctime>

namespace Utility
{
namespace
{

std::timespec gGetMonotonicTime()
{
    std::timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

} // namespace

double gGetMonotonicSeconds()
{
    const std::timespec time = gGetMonotonicTime();
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1.0e9;
}

double gGetMonotonicMs()
{
    const std::timespec time = gGetMonotonicTime();
    return static_cast<double>(time.tv_sec) * 1.0e3 + static_cast<double>(time.tv_nsec) / 1.0e6;
}

} // namespace Utility
