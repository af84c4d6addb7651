// A second, slow way to find calls, which searches are compared with: it walks over every bar of the finest level, whatever the
// indices say, and joins the parts of bars over several chunks by their carry.
//
// It shares with the real one plain records alone. Where a search tells less than that walk, FindTwinCounts names the case, and
// the twin expects it to. Threads: the test's. Ownership: refers to nothing once it is made.
#pragma once

#include "ThreadsModel/Find/FindQuery.h"
#include "ThreadsModel/ThreadsModel.h"

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace Profiler
{

// A call as a search reports it.
struct FoundCall
{
    FoundCall(const Bar& inBar, int32_t inDepth, ThreadID inThread, bool inIsNested, uint64_t inContext);

    bool operator==(const FoundCall&) const = default;
    bool operator<(const FoundCall& inOther) const
    {
        const auto key = [](const FoundCall& inCall)
        {
            return std::tie(inCall.Thread, inCall.Depth, inCall.Address, inCall.Index, inCall.Context, inCall.Start, inCall.End,
                            inCall.IsNested);
        };
        return key(*this) < key(inOther);
    }

    ThreadID Thread;
    int32_t Depth;
    uint64_t Address;
    uint32_t Index;
    uint64_t Context;
    double Start; // milliseconds
    double End;
    bool IsNested;
};

// How often which case was met.
struct FindTwinCounts
{
    FindTwinCounts& operator+=(const FindTwinCounts& inOther);

    uint64_t Expected = 0;    // calls that had to be told
    uint64_t LongCalls = 0;   // of them, those over several chunks
    uint64_t NestedCalls = 0; // of them, those that are nested

    // Calls that aren't told.
    //
    // The index has a call in the chunks of its events, and it is drawn beyond the last of them: the window lies there.
    uint64_t BeyondItsChunks = 0;
    // The part where the call begins lies before the window, and its chunk holds something else that is wanted of the function:
    // only what lies in the window is then looked at there.
    uint64_t PartBeforeWindow = 0;
    // As the last one, but told from a later part on, in whose chunk another call of the function begins and goes on.
    uint64_t ToldFromLaterPart = 0;

    // Calls that aren't told to be nested.
    //
    // Functions are looked at one by one.
    uint64_t InsideOtherFunction = 0;
    // Of the stacks, only the one just before in sorted order is looked at, and another one stands there.
    uint64_t InsideOtherStack = 0;

    // Calls in the window that may be told or not, since times of the thread went back: bars of the function in a chunk aren't in
    // order, the parts of the calls at a depth don't fit together, or the index was told of the end of another one.
    uint64_t Disordered = 0;
};

class FindTwin
{
public:
    // What a chunk has of a call.
    struct Part
    {
        int32_t Chunk;
        Profiler::Bar Bar;
    };

    struct Call
    {
        [[nodiscard]] ResolvedAddress GetFunction() const { return gGetFunction(Parts.front().Bar); }
        [[nodiscard]] double GetStart() const { return Parts.front().Bar.Start; }
        [[nodiscard]] double GetEnd() const { return Parts.back().Bar.End; }
        [[nodiscard]] int32_t GetFirstChunk() const { return Parts.front().Chunk; }
        [[nodiscard]] int32_t GetLastChunk() const { return Parts.back().Chunk; }
        [[nodiscard]] bool IsLong() const { return Parts.size() > 1; }

        ThreadID Thread = 0;
        int32_t Depth = 0;
        uint64_t Context = 0;
        std::vector<Part> Parts;
        std::vector<size_t> Path; // the calls around it, root first, and itself
        bool IsDisordered = false;
    };

    // REQUIRES: the model is finished or was loaded.
    FindTwin(ThreadsModel& ioModel, const std::vector<ThreadID>& inThreads);

    // How what a search told differs from what the twin finds: a line each, and nothing if it doesn't. REQUIRES: no function or
    // stack is in the query twice.
    [[nodiscard]] std::string FindDifferences(const FindFunctionsQuery& inQuery, const std::vector<FoundCall>& inFound);
    [[nodiscard]] std::string FindDifferences(const FindCallstacksQuery& inQuery, const std::vector<FoundCall>& inFound);

    [[nodiscard]] const std::vector<Call>& GetCalls() const { return mCalls; }
    [[nodiscard]] ResolvedCallstack GetStack(const Call& inCall) const;
    [[nodiscard]] const FindTwinCounts& GetCounts() const { return mCounts; }

private:
    // One function or stack that is searched for.
    struct Wish
    {
        ResolvedAddress Function;
        std::function<bool(const Call&)> Matches;  // whatever its times are
        std::function<bool(const Call&)> IsNested; // of one that is told
    };

    class ThreadReader;

    void CompareWithIndex(FindModel& ioModel);
    [[nodiscard]] bool HasPath(const Call& inCall, const ResolvedCallstack& inPath) const;
    [[nodiscard]] bool IsTaken(const FindQuery& inQuery, const Call& inCall, const Part& inPart) const;
    [[nodiscard]] const Part* FindToldPart(const FindQuery& inQuery, const Call& inCall);
    void Expect(const FindQuery& inQuery, const Wish& inWish, const Call& inCall, std::vector<FoundCall>& ioExpected);
    [[nodiscard]] std::string Compare(const FindQuery& inQuery, const std::vector<Wish>& inWishes,
                                      std::vector<FoundCall> inFound);

    std::vector<Call> mCalls;
    FindTwinCounts mCounts;
};

} // namespace Profiler
