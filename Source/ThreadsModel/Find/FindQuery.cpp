#include "ThreadsModel/Find/FindQuery.h"

#include <utility>

RTTI_ENUM_BEGIN(Profiler::EFindSource)
    RTTI_VALUE("ThreadView", Profiler::EFindSource::ThreadView)
    RTTI_VALUE("CallGraph", Profiler::EFindSource::CallGraph)
    RTTI_VALUE("TopExclusive", Profiler::EFindSource::TopExclusive)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Profiler::EFindSet)
    RTTI_VALUE("FindResults", Profiler::EFindSet::FindResults)
    RTTI_VALUE("ContextResults", Profiler::EFindSet::ContextResults)
RTTI_ENUM_END()

RTTI_ENUM_BEGIN(Profiler::FindQuery::EShowModuleInfo)
    RTTI_VALUE("Yes", Profiler::FindQuery::EShowModuleInfo::Yes)
    RTTI_VALUE("No", Profiler::FindQuery::EShowModuleInfo::No)
RTTI_ENUM_END()

RTTI_BEGIN(Profiler::FindQuery::SearchItem, 1)
    RTTI_PROPERTY("ResolvedFunctionName", ResolvedFunctionName)
    RTTI_PROPERTY("ModuleName", ModuleName)
RTTI_END()

RTTI_BEGIN(Profiler::FindQuery, 2)
    RTTI_PROPERTY("StartTime", StartTime)
    RTTI_PROPERTY("EndTime", EndTime)
    RTTI_PROPERTY_AS("Threads", Threads, "Array_Profiler::ThreadID")
    RTTI_PROPERTY("FindSet", FindSet)
    RTTI_PROPERTY("FindSource", FindSource)
    RTTI_PROPERTY("SearchItems", SearchItems)
    RTTI_PROPERTY("ShowModuleInfo", ShowModuleInfo)
RTTI_END()

RTTI_BEGIN(Profiler::FindFunctionsQuery, 1)
    RTTI_BASE(Profiler::FindQuery)
    RTTI_PROPERTY("Functions", Functions)
    RTTI_PROPERTY("MinimumDepth", MinimumDepth)
RTTI_END()

RTTI_BEGIN(Profiler::FindCallstacksQuery, 1)
    RTTI_BASE(Profiler::FindQuery)
    RTTI_PROPERTY_AS("Callstacks", Callstacks, "Array_Profiler::ResolvedCallstack")
RTTI_END()

namespace Profiler
{

FindQuery::FindQuery(std::vector<ThreadID> inThreads, EFindSet inFindSet, EFindSource inFindSource,
                     std::vector<SearchItem> inSearchItems, EShowModuleInfo inShowModuleInfo, double inStartTime,
                     double inEndTime)
    : StartTime(inStartTime),
      EndTime(inEndTime),
      Threads(std::move(inThreads)),
      SearchItems(std::move(inSearchItems)),
      ShowModuleInfo(inShowModuleInfo),
      FindSet(inFindSet),
      FindSource(inFindSource)
{
}

FindFunctionsQuery::FindFunctionsQuery(int32_t inMinimumDepth, ResolvedCallstack inRequiredCallPath,
                                       std::vector<ThreadID> inThreads, EFindSet inFindSet, EFindSource inFindSource,
                                       std::vector<ResolvedAddress> inFunctions, std::vector<SearchItem> inSearchItems,
                                       EShowModuleInfo inShowModuleInfo, double inStartTime, double inEndTime)
    : FindQuery(std::move(inThreads), inFindSet, inFindSource, std::move(inSearchItems), inShowModuleInfo, inStartTime,
                inEndTime),
      Functions(std::move(inFunctions)),
      MinimumDepth(inMinimumDepth),
      RequiredCallPath(std::move(inRequiredCallPath))
{
}

FindCallstacksQuery::FindCallstacksQuery(std::vector<ThreadID> inThreads, EFindSet inFindSet, EFindSource inFindSource,
                                         std::vector<ResolvedCallstack> inCallstacks, std::vector<SearchItem> inSearchItems,
                                         EShowModuleInfo inShowModuleInfo, double inStartTime, double inEndTime)
    : FindQuery(std::move(inThreads), inFindSet, inFindSource, std::move(inSearchItems), inShowModuleInfo, inStartTime,
                inEndTime),
      Callstacks(std::move(inCallstacks))
{
}

} // namespace Profiler
