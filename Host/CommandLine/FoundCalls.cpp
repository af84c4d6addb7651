#include "Host/CommandLine/FoundCalls.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Host
{

FoundCalls::FoundCalls(size_t inLimit, bool inSortsByLength, ProgressFunction inProgress)
    : mLimit(inLimit),
      mSortsByLength(inSortsByLength),
      mProgress(std::move(inProgress))
{
}

void FoundCalls::OnBarFound(const Profiler::FindQuery&, const Profiler::Bar& inBar, int32_t inDepth, Profiler::ThreadID inThread,
                            bool inIsNested, uint64_t)
{
    ++mCount;
    mThreads.insert(inThread);
    const double length = inBar.End - inBar.Start;
    mLongestMs = std::max(mLongestMs, length);
    if (!inIsNested)
        mTotalMs += length;

    const auto isBefore = [this](const FoundCall& inOne, const FoundCall& inOther) { return IsBefore(inOne, inOther); };
    mCalls.push_back({inBar, inDepth, inThread, inIsNested});
    if (mLimit == 0)
        return;
    std::push_heap(mCalls.begin(), mCalls.end(), isBefore);
    if (mCalls.size() > mLimit)
    {
        std::pop_heap(mCalls.begin(), mCalls.end(), isBefore);
        mCalls.pop_back();
    }
}

void FoundCalls::OnFindProgress(const Profiler::FindQuery&, uint32_t, int32_t inPercent)
{
    constexpr float percent = 100.0F;
    mProgress(static_cast<float>(inPercent) / percent);
}

std::vector<FoundCall> FoundCalls::TakeCalls()
{
    std::sort(mCalls.begin(), mCalls.end(),
              [this](const FoundCall& inOne, const FoundCall& inOther) { return IsBefore(inOne, inOther); });
    return std::exchange(mCalls, {});
}

// The same order in every run, though threads come in any.
bool FoundCalls::IsBefore(const FoundCall& inOne, const FoundCall& inOther) const
{
    const double length = inOne.Bar.End - inOne.Bar.Start;
    const double otherLength = inOther.Bar.End - inOther.Bar.Start;
    if (mSortsByLength && length != otherLength)
        return length > otherLength;
    return std::tuple(inOne.Bar.Start, inOne.Thread, inOne.Depth) < std::tuple(inOther.Bar.Start, inOther.Thread, inOther.Depth);
}

} // namespace Host
