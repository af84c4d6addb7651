// How a search tells which bars of a chunk it is after.
//
// Threads: the functions keep nothing.
#pragma once

#include "ThreadsModel/Find/FindChunk.h"
#include "ThreadsModel/Find/FindQuery.h"

#include <vector>

namespace Profiler
{

// The bars of the query's functions that are deep enough and have the required path above them. One that lies inside another bar
// of its function in this chunk is nested.
void gFindFunctionsInChunk(const FindFunctionsQuery& inQuery, const FunctionIndexChunk& inIndex, const BarChunk& inBars,
                           double inStartTime, double inEndTime, std::span<const FunctionToProcess> inFunctions,
                           std::vector<FoundBar>& ioFound);

// The bars at the leaf of one of the query's stacks, whose flag tells whether they are nested.
void gFindCallstacksInChunk(const FindCallstacksQuery& inQuery, const std::vector<bool>& inNestedFlags,
                            const FunctionIndexChunk& inIndex, const BarChunk& inBars, double inStartTime, double inEndTime,
                            std::span<const FunctionToProcess> inFunctions, std::vector<FoundBar>& ioFound);

// Per stack, whether calls of it lie inside those of another one: whether the stack just before it in sorted order is a shorter
// one with which it begins. So a call counts once among calls of several stacks.
[[nodiscard]] std::vector<bool> gGetNestedFlags(const std::vector<ResolvedCallstack>& inCallstacks);

// Whether the index names only bars that the chunk has, for these functions.
[[nodiscard]] bool gFitsBars(const FunctionIndexChunk& inIndex, const BarChunk& inBars,
                             std::span<const ResolvedAddress> inFunctions, std::span<const FunctionToProcess> inWanted);

} // namespace Profiler
