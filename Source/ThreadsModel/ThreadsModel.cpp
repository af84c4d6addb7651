// What every use of a timeline needs.
#include "ThreadsModel/ThreadsModel.h"

#include "FileSystem/Path.h"
#include "Session/Session.h"
#include "Session/SessionPaths.h"

RTTI_BEGIN(Profiler::ThreadData, 1)
    RTTI_PROPERTY("MaxStackDepth", MaxStackDepth)
    RTTI_PROPERTY("TotalTime", TotalTime)
    RTTI_PROPERTY("StateTimes", StateTimes)
RTTI_END()

RTTI_BEGIN(Profiler::ThreadsModel, 43)
    RTTI_BASE(Profiler::Model)
    RTTI_PROPERTY_AS("ThreadData", mThreadData, "Map_Profiler::ThreadID_To_Profiler::ThreadData")
    RTTI_PROPERTY_AS("ThreadDetailLODs", mThreadDetailLODs, "Array_std::unique_ptr<Profiler::DetailLOD>")
RTTI_END()

namespace Profiler
{

std::string ThreadsModel::sGetPath(const Session& inSession, const char* inFileName)
{
    return FileSystem::gCombinePath(FileSystem::gCombinePath(inSession.GetDirectory(), sThreadsFolder), inFileName);
}

const RTTI::Type& ThreadsModel::GetType() const
{
    return RTTI::gTypeOf<ThreadsModel>();
}

const ThreadData* ThreadsModel::FindThreadData(ThreadID inThread) const
{
    const auto found = mThreadData.find(inThread);
    return found != mThreadData.end() ? &found->second : nullptr;
}

LeftOutCounts ThreadsModel::GetLeftOutCounts() const
{
    LeftOutCounts counts = mLeftOut;
    counts.MergedBars = mNumLeftOutMergedBars.load();
    return counts;
}

} // namespace Profiler
