// The calls that a search finds: all of them counted, and as many kept as are to be listed.
//
// Threads: the search's while it runs, afterwards the owner's. Ownership: values. Invariant: what is kept comes first in the
// order.
#pragma once

#include "ThreadsModel/Find/IFindVisitor.h"

#include <cstdint>
#include <functional>
#include <unordered_set>
#include <vector>

namespace Host
{

struct FoundCall
{
    Profiler::Bar Bar; // with its times cut to those that were asked for
    int32_t Depth = 0;
    Profiler::ThreadID Thread = -1;
    bool IsNested = false;
};

class FoundCalls final : public Profiler::IFindVisitor
{
public:
    using ProgressFunction = std::function<void(float)>;

    // inLimit: how many to keep, 0 for all; the longest, or those that begin first.
    FoundCalls(size_t inLimit, bool inSortsByLength, ProgressFunction inProgress);

    void OnFindStarted(const Profiler::FindQuery&, uint32_t, const std::vector<Profiler::ResolvedAddress>&) override {}
    void OnFindFinished(const Profiler::FindQuery&, uint32_t, uint32_t) override { mIsFinished = true; }
    void OnFindCancelled(const Profiler::FindQuery&, uint32_t) override {}
    void OnBarFound(const Profiler::FindQuery& inQuery, const Profiler::Bar& inBar, int32_t inDepth, Profiler::ThreadID inThread,
                    bool inIsNested, uint64_t inContext) override;
    void OnThreadChanged(const Profiler::FindQuery&, Profiler::ThreadID) override {}
    void OnFindProgress(const Profiler::FindQuery&, uint32_t, int32_t inPercent) override;

    [[nodiscard]] bool IsFinished() const { return mIsFinished; }
    [[nodiscard]] uint64_t GetCount() const { return mCount; }
    [[nodiscard]] size_t GetThreadCount() const { return mThreads.size(); }
    // Of the calls that aren't nested, so that no time counts twice, in milliseconds.
    [[nodiscard]] double GetTotalMs() const { return mTotalMs; }
    [[nodiscard]] double GetLongestMs() const { return mLongestMs; }

    // What was kept, in order.
    [[nodiscard]] std::vector<FoundCall> TakeCalls();

private:
    [[nodiscard]] bool IsBefore(const FoundCall& inOne, const FoundCall& inOther) const;

    const size_t mLimit;
    const bool mSortsByLength;
    const ProgressFunction mProgress;
    std::vector<FoundCall> mCalls; // with a limit a heap, with the one to go next in front
    std::unordered_set<Profiler::ThreadID> mThreads;
    uint64_t mCount = 0;
    double mTotalMs = 0.0;
    double mLongestMs = 0.0;
    bool mIsFinished = false;
};

} // namespace Host
