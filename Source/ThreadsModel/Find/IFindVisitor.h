// Whoever is told what a search finds.
//
// Threads: all calls of one search come one after the other on the thread of its job; OnFindCancelled may come from the thread
// that cancels. Searches of different kinds call at the same time. Results come thread by thread, and in no order that could be
// relied on otherwise. Ownership: none; a visitor outlives its registration.
#pragma once

#include "ThreadsModel/Chunks/Bar.h"
#include "ThreadsModel/Find/FindQuery.h"

#include <cstdint>
#include <vector>

namespace Profiler
{

class IFindVisitor
{
public:
    virtual ~IFindVisitor() = default;

    // First of all. inFunctions are those that are looked up: for a search for stacks, their leaves.
    virtual void OnFindStarted(const FindQuery& inQuery, uint32_t inFindID, const std::vector<ResolvedAddress>& inFunctions) = 0;

    // Last of all, unless the search was cancelled.
    virtual void OnFindFinished(const FindQuery& inQuery, uint32_t inFindID, uint32_t inNumBars) = 0;

    // Instead of OnFindFinished; alone, if the search never started.
    virtual void OnFindCancelled(const FindQuery& inQuery, uint32_t inFindID) = 0;

    // inBar has its times cut to those of the query, and is valid during the call. inIsNested: it lies inside another bar that
    // the search finds, so its time counts there already. inContext is its instrumentation context, or BarChunk::sNoContext.
    virtual void OnBarFound(const FindQuery& inQuery, const Bar& inBar, int32_t inDepth, ThreadID inThread, bool inIsNested,
                            uint64_t inContext) = 0;

    // Ahead of the first chunk of each thread that has any to search.
    virtual void OnThreadChanged(const FindQuery& inQuery, ThreadID inThread) = 0;

    // 0 at the start, more behind each chunk, and 100 ahead of OnFindFinished.
    virtual void OnFindProgress(const FindQuery& inQuery, uint32_t inFindID, int32_t inPercent) = 0;
};

} // namespace Profiler
