#include "ThreadsModel/Find/FindMatching.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>

namespace Profiler
{
namespace
{

using BarList = FunctionIndexChunk::BarList;

// One function of a search in one chunk.
struct Candidates
{
    const BarChunk& Bars;
    const BarList& Entries; // never empty
    double LowerBound;      // milliseconds
    double UpperBound;

    [[nodiscard]] const Bar& GetBar(const FunctionBarEntry& inEntry) const
    {
        return *Bars.GetBar({static_cast<int32_t>(inEntry.Depth), inEntry.BarIndex});
    }
    [[nodiscard]] bool IsInWindow(const Bar& inBar) const { return inBar.End >= LowerBound && inBar.Start <= UpperBound; }
};

// The bar's parent. REQUIRES: inEntry isn't of the first row.
FunctionBarEntry gGetParent(const Candidates& inCandidates, const FunctionBarEntry& inEntry)
{
    return {inEntry.Depth - 1, inCandidates.GetBar(inEntry).ParentIndex};
}

// The first entry that starts with the time, or else with the last start before it; 0 if there is none.
size_t gFindFirst(const Candidates& inCandidates, double inTime)
{
    const BarList& entries = inCandidates.Entries;
    const auto isBefore = [&](const FunctionBarEntry& inEntry, double inStart)
    { return inCandidates.GetBar(inEntry).Start < inStart; };
    auto found = std::lower_bound(entries.begin(), entries.end(), inTime, isBefore);
    const bool isExact = found != entries.end() && inCandidates.GetBar(*found).Start == inTime;
    if (!isExact && found != entries.begin())
        found = std::lower_bound(entries.begin(), found, inCandidates.GetBar(*std::prev(found)).Start, isBefore);
    return static_cast<size_t>(found - entries.begin());
}

// The last entry that doesn't start after the time; 0 if there is none.
size_t gFindLast(const Candidates& inCandidates, double inTime)
{
    const BarList& entries = inCandidates.Entries;
    const auto found = std::upper_bound(entries.begin(), entries.end(), inTime,
                                        [&](double inStart, const FunctionBarEntry& inEntry)
                                        { return inStart < inCandidates.GetBar(inEntry).Start; });
    return static_cast<size_t>(std::max<ptrdiff_t>(found - entries.begin(), 1) - 1);
}

// A bar that starts before the window can be hidden behind a deeper one of the same function. This steps out to the outermost
// one around inFirst that isn't above the depth.
size_t gStepOutOfRecursion(const Candidates& inCandidates, const ResolvedAddress& inFunction, size_t inFirst, uint32_t inTopDepth)
{
    std::optional<FunctionBarEntry> outermost;
    for (FunctionBarEntry entry = inCandidates.Entries[inFirst]; entry.Depth > inTopDepth;)
    {
        entry = gGetParent(inCandidates, entry);
        if (gGetFunction(inCandidates.GetBar(entry)) == inFunction)
            outermost = entry;
    }
    if (outermost.has_value())
    {
        for (size_t i = inFirst; i-- != 0;)
        {
            if (inCandidates.Entries[i] == *outermost)
                return i;
        }
    }
    return inFirst;
}

// Which of the chunks that a bar lies in reports it: the one where it starts, also if it goes on. A bar that only ends here was
// found in an earlier one.
bool gIsReportedHere(const Bar& inBar, uint32_t inFlags)
{
    const bool goesOn = (inBar.ResolveIndex.Index & Bar::sContinuesInNext) != 0;
    return ((inFlags & StartsInChunk) != 0 && goesOn) || ((inFlags & InsideChunk) != 0 && inBar.GetCarry() == 0);
}

// Calls inVisit(candidates, entry, bar) for the bars of a function in the window, in order of their starts.
template <class Visit>
void gForEachInWindow(const FunctionIndexChunk& inIndex, const BarChunk& inBars, double inStartTime, double inEndTime,
                      const ResolvedAddress& inFunction, uint32_t inFlags, uint32_t inTopDepth, const Visit& inVisit)
{
    const auto found = inIndex.GetFunctions().find(inFunction);
    if (inFlags == EndsInChunk || found == inIndex.GetFunctions().end() || found->second.empty())
        return;
    // All bars that start here and go on are wanted: the window may begin in a later chunk.
    const double lowerBound = inFlags == StartsInChunk ? std::numeric_limits<double>::lowest() : inStartTime;
    const Candidates candidates{inBars, found->second, lowerBound, inEndTime};
    const size_t last = gFindLast(candidates, inEndTime);
    const size_t first = gStepOutOfRecursion(candidates, inFunction, gFindFirst(candidates, lowerBound), inTopDepth);
    for (size_t i = first; i <= last; ++i)
    {
        const FunctionBarEntry& entry = candidates.Entries[i];
        const Bar& bar = candidates.GetBar(entry);
        if (candidates.IsInWindow(bar))
            inVisit(candidates, entry, bar);
    }
}

// Whether the bar and those above it are of these functions, where the last one is at the depth of the path's end.
bool gHasPath(const Candidates& inCandidates, FunctionBarEntry inEntry, const ResolvedCallstack& inPath)
{
    if (inEntry.Depth + 1 < inPath.size())
        return false;
    while (inEntry.Depth >= inPath.size())
        inEntry = gGetParent(inCandidates, inEntry);
    for (;; inEntry = gGetParent(inCandidates, inEntry))
    {
        if (gGetFunction(inCandidates.GetBar(inEntry)) != inPath[inEntry.Depth])
            return false;
        if (inEntry.Depth == 0)
            return true;
    }
}

FoundBar gMakeFoundBar(const Candidates& inCandidates, const FunctionBarEntry& inEntry, bool inIsNested)
{
    const BarPosition position{static_cast<int32_t>(inEntry.Depth), inEntry.BarIndex};
    return {.Bar = inCandidates.Bars.GetBar(position),
            .Depth = position.Depth,
            .IsNested = inIsNested,
            .ContextID = inCandidates.Bars.GetInstrumentationContext(position)};
}

// The bar of a function that later ones may lie in.
struct ReferenceBar
{
    int32_t Depth = -1;
    double Start = -1.0; // milliseconds
    double End = -1.0;

    [[nodiscard]] bool Contains(const Bar& inBar, int32_t inDepth) const
    {
        return inDepth > Depth && inBar.Start >= Start && inBar.End <= End;
    }
};

} // namespace

void gFindFunctionsInChunk(const FindFunctionsQuery& inQuery, const FunctionIndexChunk& inIndex, const BarChunk& inBars,
                           double inStartTime, double inEndTime, std::span<const FunctionToProcess> inFunctions,
                           std::vector<FoundBar>& ioFound)
{
    const ResolvedCallstack& path = inQuery.RequiredCallPath;
    for (const FunctionToProcess& function : inFunctions)
    {
        ReferenceBar reference;
        const auto visit = [&](const Candidates& inCandidates, const FunctionBarEntry& inEntry, const Bar& inBar)
        {
            const auto depth = static_cast<int32_t>(inEntry.Depth);
            if (depth < inQuery.MinimumDepth || (!path.empty() && !gHasPath(inCandidates, inEntry, path)))
                return;
            const bool isNested = reference.Contains(inBar, depth);
            if (!isNested)
                reference = {depth, inBar.Start, inBar.End};
            if (gIsReportedHere(inBar, function.Flags))
                ioFound.push_back(gMakeFoundBar(inCandidates, inEntry, isNested));
        };
        gForEachInWindow(inIndex, inBars, inStartTime, inEndTime, inQuery.Functions[static_cast<size_t>(function.Index)],
                         function.Flags, 0, visit);
    }
}

void gFindCallstacksInChunk(const FindCallstacksQuery& inQuery, const std::vector<bool>& inNestedFlags,
                            const FunctionIndexChunk& inIndex, const BarChunk& inBars, double inStartTime, double inEndTime,
                            std::span<const FunctionToProcess> inFunctions, std::vector<FoundBar>& ioFound)
{
    for (const FunctionToProcess& function : inFunctions)
    {
        const auto index = static_cast<size_t>(function.Index);
        const ResolvedCallstack& stack = inQuery.Callstacks[index];
        if (stack.empty())
            continue;
        const auto leafDepth = static_cast<uint32_t>(stack.size() - 1);
        const auto visit = [&](const Candidates& inCandidates, const FunctionBarEntry& inEntry, const Bar& inBar)
        {
            if (inEntry.Depth == leafDepth && gHasPath(inCandidates, inEntry, stack) && gIsReportedHere(inBar, function.Flags))
                ioFound.push_back(gMakeFoundBar(inCandidates, inEntry, inNestedFlags[index]));
        };
        gForEachInWindow(inIndex, inBars, inStartTime, inEndTime, stack.back(), function.Flags, leafDepth, visit);
    }
}

std::vector<bool> gGetNestedFlags(const std::vector<ResolvedCallstack>& inCallstacks)
{
    std::vector<size_t> sorted(inCallstacks.size());
    std::iota(sorted.begin(), sorted.end(), size_t{0});
    std::sort(sorted.begin(), sorted.end(),
              [&](size_t inOne, size_t inOther)
              {
                  const ResolvedCallstack& one = inCallstacks[inOne];
                  const ResolvedCallstack& other = inCallstacks[inOther];
                  return std::lexicographical_compare(one.begin(), one.end(), other.begin(), other.end(), ResolvedAddressOrder());
              });
    std::vector<bool> flags(inCallstacks.size());
    for (size_t i = 1; i < sorted.size(); ++i)
    {
        const ResolvedCallstack& before = inCallstacks[sorted[i - 1]];
        const ResolvedCallstack& stack = inCallstacks[sorted[i]];
        flags[sorted[i]] = before.size() < stack.size() && std::equal(before.begin(), before.end(), stack.begin());
    }
    return flags;
}

bool gFitsBars(const FunctionIndexChunk& inIndex, const BarChunk& inBars, std::span<const ResolvedAddress> inFunctions,
               std::span<const FunctionToProcess> inWanted)
{
    const std::vector<BarChunk::Row>& rows = inBars.GetRows();
    const auto isThere = [&](const FunctionBarEntry& inEntry)
    { return inEntry.Depth < rows.size() && inEntry.BarIndex < rows[inEntry.Depth].size(); };
    return std::all_of(inWanted.begin(), inWanted.end(),
                       [&](const FunctionToProcess& inFunction)
                       {
                           const auto found = inIndex.GetFunctions().find(inFunctions[static_cast<size_t>(inFunction.Index)]);
                           return found == inIndex.GetFunctions().end() ||
                                  std::all_of(found->second.begin(), found->second.end(), isThere);
                       });
}

} // namespace Profiler
