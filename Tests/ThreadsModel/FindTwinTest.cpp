// What searches find in the timelines of random captures, beside what the twin does.
#include "FindTwin.h"

#include "Session/Pass/ChunkTime.h"
#include "Tests/ThreadsModel/RandomTimeline.h"
#include "ThreadsModel/Find/IFindVisitor.h"

#include <algorithm>

namespace
{

using namespace Profiler;

constexpr uint32_t sNumSeeds = 300;
constexpr int sNumSearches = 12; // of each kind

class CallCollector final : public IFindVisitor
{
public:
    void OnFindStarted(const FindQuery&, uint32_t, const std::vector<ResolvedAddress>&) override { Calls.clear(); }
    void OnFindFinished(const FindQuery&, uint32_t, uint32_t inNumBars) override { EXPECT_EQ(inNumBars, Calls.size()); }
    void OnFindCancelled(const FindQuery&, uint32_t) override { ADD_FAILURE(); }
    void OnBarFound(const FindQuery&, const Bar& inBar, int32_t inDepth, ThreadID inThread, bool inIsNested,
                    uint64_t inContext) override
    {
        Calls.emplace_back(inBar, inDepth, inThread, inIsNested, inContext);
    }
    void OnThreadChanged(const FindQuery&, ThreadID) override {}
    void OnFindProgress(const FindQuery&, uint32_t, int32_t) override {}

    std::vector<FoundCall> Calls;
};

// Random searches of a random capture, which has recursion.
class SearchedTimeline : public RandomTimeline
{
public:
    explicit SearchedTimeline(uint32_t inSeed)
        : RandomTimeline(inSeed, {"main;main", "main;work;main;work", "work;main;work;leaf;work", "main;work;work"})
    {
    }

    void Check(FindTwinCounts& ioCounts)
    {
        ASSERT_EQ(Run(), "") << Utility::GetErrorText(mErrors);
        FindTwin twin(GetModel(), sThreads);
        if (twin.GetCalls().empty())
            return;
        CallCollector collector;
        FindModel& find = GetModel().GetFindModel();
        const FindVisitorRegistration registration = find.AddVisitor(collector);
        for (int i = 0; i < sNumSearches; ++i)
        {
            const FindFunctionsQuery functions = MakeFunctionsQuery(twin);
            find.FindFunctions(functions);
            find.WaitForFind();
            ASSERT_EQ(twin.FindDifferences(functions, collector.Calls), "") << "functions, search " << i << Describe(functions);

            const FindCallstacksQuery stacks = MakeCallstacksQuery(twin);
            find.FindCallstacks(stacks);
            find.WaitForFind();
            ASSERT_EQ(twin.FindDifferences(stacks, collector.Calls), "") << "stacks, search " << i << Describe(stacks);
        }
        ioCounts += twin.GetCounts();
    }

private:
    static inline const std::vector<ThreadID> sThreads = {-1, 0, 1, 2, 3, 4, 77};

    static std::string Describe(const FindQuery& inQuery)
    {
        return Utility::gFormat(" from %.17g to %.17g", inQuery.StartTime, inQuery.EndTime);
    }

    const FindTwin::Call& PickCall(const FindTwin& inTwin) { return inTwin.GetCalls()[Pick(inTwin.GetCalls().size())]; }

    // Where a call begins or ends, or somewhere near, or where the chunk does.
    double PickTime(const FindTwin& inTwin)
    {
        const FindTwin::Call& call = PickCall(inTwin);
        const double time = IsLucky(50) ? call.GetStart() : call.GetEnd();
        const int32_t chunk = ChunkIndexOfTime(sLevel0ChunkLengthMs, time);
        return PickOne<double>({time, (call.GetStart() + call.GetEnd()) / 2.0, call.Parts.front().Bar.End, time + 0.005,
                                ChunkStartOfIndex(chunk, sLevel0ChunkLengthMs), ChunkEndOfIndex(chunk, sLevel0ChunkLengthMs)});
    }

    void PickWindow(const FindTwin& inTwin, FindQuery& outQuery)
    {
        const auto [start, end] = std::minmax({PickTime(inTwin), PickTime(inTwin)});
        if (!IsLucky(20))
            outQuery.StartTime = start;
        if (!IsLucky(20))
            outQuery.EndTime = end;
        outQuery.Threads = IsLucky(20) ? std::vector<ThreadID>{2, 77, 0} : sThreads;
        outQuery.FindSet = PickOne<EFindSet>({EFindSet::FindResults, EFindSet::ContextResults});
    }

    FindFunctionsQuery MakeFunctionsQuery(const FindTwin& inTwin)
    {
        FindFunctionsQuery query;
        PickWindow(inTwin, query);
        for (size_t count = 1 + Pick(3); count != 0; --count)
        {
            const ResolvedAddress function = PickCall(inTwin).GetFunction();
            if (std::find(query.Functions.begin(), query.Functions.end(), function) == query.Functions.end())
                query.Functions.push_back(function);
        }
        if (IsLucky(20))
            query.MinimumDepth = static_cast<int32_t>(Pick(4));
        if (IsLucky(30))
        {
            query.RequiredCallPath = inTwin.GetStack(PickCall(inTwin));
            query.RequiredCallPath.resize(1 + Pick(query.RequiredCallPath.size()));
        }
        return query;
    }

    FindCallstacksQuery MakeCallstacksQuery(const FindTwin& inTwin)
    {
        FindCallstacksQuery query;
        PickWindow(inTwin, query);
        for (size_t count = 1 + Pick(6); count != 0; --count)
        {
            ResolvedCallstack stack = inTwin.GetStack(PickCall(inTwin));
            stack.resize(1 + Pick(stack.size()));
            if (std::find(query.Callstacks.begin(), query.Callstacks.end(), stack) == query.Callstacks.end())
                query.Callstacks.push_back(stack);
        }
        return query;
    }
};

TEST(FindTwinTest, AgreesOverRandomCaptures)
{
    FindTwinCounts counts;
    FindTwinCounts hostileCounts;
    for (uint32_t seed = 1; seed <= sNumSeeds && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SearchedTimeline timeline(seed);
        timeline.Check(timeline.IsHostile() ? hostileCounts : counts);
    }
    // The exceptions stay what they are, and occur.
    EXPECT_GT(counts.Expected, 15000U);
    EXPECT_GT(counts.LongCalls, counts.Expected / 5);
    EXPECT_GT(counts.NestedCalls, counts.Expected / 5);
    EXPECT_LT(counts.Disordered, counts.Expected / 25);
    EXPECT_LT(hostileCounts.Disordered, hostileCounts.Expected);
    counts += hostileCounts;
    for (const uint64_t count : {counts.BeyondItsChunks, counts.PartBeforeWindow, counts.InsideOtherStack})
    {
        EXPECT_GT(count, 0U);
        EXPECT_LT(count, counts.Expected / 20);
    }
    EXPECT_GT(counts.ToldFromLaterPart, 0U);
    EXPECT_LT(counts.ToldFromLaterPart, 20U);
    EXPECT_GT(counts.InsideOtherFunction, 0U);
}

} // namespace
