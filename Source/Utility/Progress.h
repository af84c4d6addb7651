// Tells how far long work has come, a hundred times at most.
// Threads: one at a time.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

namespace Utility
{

// Receives the part that is done, from 0 to 1. May be empty.
using ProgressFunction = std::function<void(float)>;

class ProgressReporter
{
public:
    ProgressReporter(const ProgressFunction& inFunction, uint64_t inTotal)
        : mFunction(inFunction),
          mTotal(static_cast<float>(inTotal))
    {
    }

    // Calls the function if another hundredth is done. Without a function it costs nothing.
    void Report(uint64_t inDone)
    {
        if (!mFunction)
            return;
        // A total that a damaged file made up can be too small.
        const float fraction = mTotal > 0.0F ? std::min(static_cast<float>(inDone) / mTotal, 1.0F) : 1.0F;
        const float hundredths = std::floor(fraction * 100.0F);
        if (hundredths <= mLastHundredths)
            return;
        mLastHundredths = hundredths;
        mFunction(fraction);
    }

private:
    const ProgressFunction& mFunction;
    float mTotal;
    float mLastHundredths = 0.0F;
};

} // namespace Utility
