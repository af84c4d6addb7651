// In which chunks of one thread each function ran, as a pass gathers it.
//
// Threads: one at a time. Ownership: the FindProcessingModel.
#pragma once

#include "Session/Modules/ResolvedAddress.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sparsehash/dense_hash_map>
#include <utility>
#include <vector>

namespace Profiler
{

// Where the bars of one function lie, by index of the chunk at the finest level. Both lists are sorted and hold nothing twice.
class FunctionChunks
{
public:
    struct Range
    {
        int32_t FirstChunk = 0; // in which a bar starts
        int32_t LastChunk = 0;  // a later one, in which it ends

        bool operator==(const Range&) const = default;
    };

    // Notes a bar that starts in one chunk and ends in the same or a later one.
    void Add(int32_t inFirstChunk, int32_t inLastChunk)
    {
        if (inFirstChunk != inLastChunk)
            AddRange({inFirstChunk, inLastChunk});
        else if (mChunks.empty() || mChunks.back() < inFirstChunk)
            mChunks.push_back(inFirstChunk);
        else if (mChunks.back() != inFirstChunk)
            InsertOnce(mChunks, inFirstChunk, std::less<>());
    }

    // By FirstChunk ascending, then by LastChunk descending.
    [[nodiscard]] const std::vector<Range>& GetRanges() const { return mRanges; }
    // Chunks that hold whole bars, ascending.
    [[nodiscard]] const std::vector<int32_t>& GetChunks() const { return mChunks; }

private:
    void AddRange(const Range& inRange)
    {
        InsertOnce(mRanges, inRange,
                   [](const Range& inOne, const Range& inOther) {
                       return inOne.FirstChunk != inOther.FirstChunk ? inOne.FirstChunk < inOther.FirstChunk
                                                                     : inOne.LastChunk > inOther.LastChunk;
                   });
    }

    template <class T, class IsBefore>
    static void InsertOnce(std::vector<T>& ioList, const T& inValue, const IsBefore& inIsBefore)
    {
        const auto place = std::upper_bound(ioList.begin(), ioList.end(), inValue, inIsBefore);
        if (place == ioList.begin() || !(*(place - 1) == inValue))
            ioList.insert(place, inValue);
    }

    std::vector<Range> mRanges;
    std::vector<int32_t> mChunks;
};

// By function; of a resolve index the bits count that comparisons look at.
class ThreadInvocationData
{
public:
    using FunctionTable = google::dense_hash_map<ResolvedAddress, FunctionChunks, ResolvedAddressHash>;

    ThreadInvocationData() { mFunctions.set_empty_key(sEmptyKey); }

    // Notes a bar of the function. What marks the free buckets of the table is no function, and is left out.
    void Add(const ResolvedAddress& inFunction, int32_t inFirstChunk, int32_t inLastChunk)
    {
        if (inFunction != sEmptyKey) [[likely]]
            mFunctions[inFunction].Add(inFirstChunk, inLastChunk);
    }

    [[nodiscard]] const FunctionTable& GetFunctions() const { return mFunctions; }

private:
    static constexpr ResolvedAddress sEmptyKey = {sNoAddress, {~uint32_t{0}}};

    FunctionTable mFunctions;
};

} // namespace Profiler
