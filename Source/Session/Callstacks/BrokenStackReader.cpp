#include "Session/Callstacks/BrokenStackReader.h"

#include "Session/Callstacks/BrokenStackHolder.h"
#include "Utility/Log.h"

#include <algorithm>

namespace Profiler
{
namespace
{

// The first span that begins above the time, or the one before it if that one ends above the time.
template <class Span>
size_t gFindSpan(const std::vector<Span>& inSpans, double inTime, double Span::*inStart, double Span::*inEnd)
{
    const auto above = std::upper_bound(inSpans.begin(), inSpans.end(), inTime,
                                        [inStart](double inValue, const Span& inSpan) { return inValue < inSpan.*inStart; });
    const auto index = static_cast<size_t>(above - inSpans.begin());
    return index > 0 && inSpans[index - 1].*inEnd > inTime ? index - 1 : index;
}

} // namespace

BrokenStackReader::BrokenStackReader(const BrokenStackHolder& inHolder, ThreadID inThread, double inStartTime)
    : mChunks(inHolder.FindChunks(inThread)),
      mHolder(&inHolder)
{
    if (mChunks == nullptr)
        return;
    using Chunk = BrokenStackIndex::Chunk;
    mChunk = gFindSpan(*mChunks, inStartTime, &Chunk::StartTime, &Chunk::EndTime);
    LoadChunk();
    mPosition = gFindSpan(mRanges, inStartTime, &BrokenRange::Start, &BrokenRange::End);
}

// Behind the last chunk there are no ranges. The chunks were looked at when the index was loaded; one that has been damaged since
// ends the ranges of its thread, whose stacks then count as they are.
void BrokenStackReader::LoadChunk()
{
    mRanges.clear();
    mPosition = 0;
    if (mChunk >= mChunks->size())
        return;
    const std::string path = gGetBrokenStackDataPath(mHolder->GetDirectory());
    BrokenStackFile file;
    if (file.Open(path) && file.ReadChunk((*mChunks)[mChunk], mRanges))
        return;
    Utility::gLog("Unable to read from broken stack stream %s: a chunk is damaged", path.c_str());
}

void BrokenStackReader::MoveOn()
{
    if (++mPosition < mRanges.size())
        return;
    ++mChunk;
    LoadChunk();
}

EBrokenStackStep BrokenStackReader::StepInRanges(BrokenRange& outRange, double inTime)
{
    const BrokenRange& range = mRanges[mPosition];
    if (range.Start == inTime)
    {
        outRange = range;
        if (range.End == range.Start)
            MoveOn();
        return EBrokenStackStep::RangeBegins;
    }
    if (range.Start < inTime && inTime < range.End)
        return EBrokenStackStep::Inside;
    if (range.End == inTime)
    {
        MoveOn();
        return EBrokenStackStep::RangeEnds;
    }
    return EBrokenStackStep::Outside;
}

} // namespace Profiler
