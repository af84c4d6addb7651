#include "Session/Callstacks/BrokenStacks.h"

#include <algorithm>
#include <utility>

namespace Profiler
{

void BrokenStackHolder::SetRanges(ThreadID inThread, std::vector<BrokenRange> inRanges)
{
    mRanges[inThread] = std::move(inRanges);
}

std::span<const BrokenRange> BrokenStackHolder::GetRanges(ThreadID inThread) const
{
    const auto found = mRanges.find(inThread);
    return found != mRanges.end() ? std::span<const BrokenRange>(found->second) : std::span<const BrokenRange>();
}

BrokenStackReader::BrokenStackReader(const BrokenStackHolder& inHolder, ThreadID inThread, double inStartTime)
    : mRanges(inHolder.GetRanges(inThread))
{
    const auto above = std::upper_bound(mRanges.begin(), mRanges.end(), inStartTime,
                                        [](double inTime, const BrokenRange& inRange) { return inTime < inRange.Start; });
    mPosition = static_cast<size_t>(above - mRanges.begin());
    if (mPosition > 0 && mRanges[mPosition - 1].End > inStartTime)
        --mPosition;
}

EBrokenStackStep BrokenStackReader::StepTo(BrokenRange& outRange, double inTime)
{
    if (mPosition >= mRanges.size())
        return EBrokenStackStep::Outside;

    const BrokenRange& range = mRanges[mPosition];
    if (range.Start == inTime)
    {
        outRange = range;
        if (range.End == range.Start)
            ++mPosition;
        return EBrokenStackStep::RangeBegins;
    }
    if (range.Start < inTime && inTime < range.End)
        return EBrokenStackStep::Inside;
    if (range.End == inTime)
    {
        ++mPosition;
        return EBrokenStackStep::RangeEnds;
    }
    return EBrokenStackStep::Outside;
}

} // namespace Profiler
