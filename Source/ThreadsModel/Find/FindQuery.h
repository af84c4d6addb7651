// What a search looks for, on which threads and in which span of time.
//
// Threads: plain values. SearchItems, FindSource and ShowModuleInfo are for whoever asked, and come back with each result; they
// don't steer the search.
#pragma once

#include "RTTI/Declare.h"
#include "Session/Events/TraceEvent.h"
#include "Session/Modules/ResolvedAddress.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Profiler
{

// Where in the program of the user a search was asked for.
enum class EFindSource : uint32_t
{
    ThreadView = 0,
    CallGraph = 1,
    TopExclusive = 2,
};

// The kinds of searches, which can run at the same time. A new one takes the place of the one of its kind.
enum class EFindSet : uint8_t
{
    FindResults = 0,
    ContextResults = 1,
};
inline constexpr size_t sNumFindSets = 2;

struct FindQuery
{
    enum class EShowModuleInfo : uint32_t
    {
        Yes = 0,
        No = 1,
    };

    // What was searched for, in the words of the user.
    struct SearchItem
    {
        std::string ResolvedFunctionName;
        std::string ModuleName;
    };

    static constexpr double sCaptureStart = -1.0;
    static constexpr double sCaptureEnd = std::numeric_limits<double>::max();

    FindQuery() = default;
    FindQuery(std::vector<ThreadID> inThreads, EFindSet inFindSet, EFindSource inFindSource,
              std::vector<SearchItem> inSearchItems, EShowModuleInfo inShowModuleInfo, double inStartTime, double inEndTime);

    double StartTime = sCaptureStart; // milliseconds
    double EndTime = sCaptureEnd;
    std::vector<ThreadID> Threads;
    std::vector<SearchItem> SearchItems;
    EShowModuleInfo ShowModuleInfo = EShowModuleInfo::Yes;
    EFindSet FindSet = EFindSet::FindResults;
    EFindSource FindSource = EFindSource::ThreadView;
};

// Calls of any of some functions.
struct FindFunctionsQuery : FindQuery
{
    FindFunctionsQuery() = default;
    FindFunctionsQuery(int32_t inMinimumDepth, ResolvedCallstack inRequiredCallPath, std::vector<ThreadID> inThreads,
                       EFindSet inFindSet, EFindSource inFindSource, std::vector<ResolvedAddress> inFunctions,
                       std::vector<SearchItem> inSearchItems, EShowModuleInfo inShowModuleInfo, double inStartTime,
                       double inEndTime);

    std::vector<ResolvedAddress> Functions;
    int32_t MinimumDepth = 0;
    // The functions that must be on the stack from the root on; empty if any may. Not stored with the query.
    ResolvedCallstack RequiredCallPath;
};

// Calls that have exactly one of some stacks.
struct FindCallstacksQuery : FindQuery
{
    FindCallstacksQuery() = default;
    FindCallstacksQuery(std::vector<ThreadID> inThreads, EFindSet inFindSet, EFindSource inFindSource,
                        std::vector<ResolvedCallstack> inCallstacks, std::vector<SearchItem> inSearchItems,
                        EShowModuleInfo inShowModuleInfo, double inStartTime, double inEndTime);

    std::vector<ResolvedCallstack> Callstacks;
};

} // namespace Profiler

RTTI_DECLARE_ENUM(Profiler::EFindSource);
RTTI_DECLARE_ENUM(Profiler::EFindSet);
RTTI_DECLARE_ENUM(Profiler::FindQuery::EShowModuleInfo);
RTTI_DECLARE(Profiler::FindQuery::SearchItem);
RTTI_DECLARE(Profiler::FindQuery);
RTTI_DECLARE(Profiler::FindFunctionsQuery);
RTTI_DECLARE(Profiler::FindCallstacksQuery);
