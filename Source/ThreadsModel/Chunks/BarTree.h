// The walk over the bars of a chunk as the forest that they are: a bar, then its children, then its next sibling.
//
// The walk needs no search, since parents stand in order within a row and so do the children of each. It needs no recursion
// either: stacks may be deeper than a thread's own.
#pragma once

#include "ThreadsModel/Chunks/BarChunk.h"

#include <cstddef>
#include <vector>

namespace Profiler
{

// Calls inEnter(depth, index) for each bar before its children, and inLeave(depth, index) behind them. Ends early when
// inIsStopped gives true, which is asked ahead of each bar of the first row.
template <class IsStopped, class Enter, class Leave>
void gWalkBarTree(const std::vector<BarChunk::Row>& inRows, const IsStopped& inIsStopped, const Enter& inEnter,
                  const Leave& inLeave)
{
    // Each walk comes to a chunk that others have pushed out of the processor's cache.
    constexpr size_t barsAhead = 4;
    std::vector<size_t> cursors(inRows.size());
    const auto hasChild = [&](size_t inDepth)
    {
        const size_t below = inDepth + 1;
        return below < inRows.size() && cursors[below] < inRows[below].size() &&
               inRows[below][cursors[below]]->ParentIndex == cursors[inDepth];
    };

    while (!inRows.empty() && cursors[0] < inRows[0].size() && !inIsStopped())
    {
        size_t depth = 0;
        inEnter(depth, cursors[depth]);
        for (bool isInTree = true; isInTree;)
        {
            if (hasChild(depth))
            {
                ++depth;
                inEnter(depth, cursors[depth]);
                continue;
            }
            inLeave(depth, cursors[depth]);
            if (const size_t ahead = ++cursors[depth] + barsAhead; ahead < inRows[depth].size())
                __builtin_prefetch(inRows[depth][ahead]);
            isInTree = depth-- != 0;
        }
    }
}

} // namespace Profiler
