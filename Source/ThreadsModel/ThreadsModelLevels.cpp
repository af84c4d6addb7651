// The jobs that derive everything else from complete chunks of the finest level.
#include "Session/Session.h"
#include "System/JobScheduler.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Levels/ChunkToFill.h"
#include "ThreadsModel/ThreadsModel.h"

#include <utility>

namespace Profiler
{
namespace
{

// Behind what somebody waits for.
constexpr uint8_t sBuildPriority = 2;

} // namespace

void ThreadsModel::BuildLOD0DetailDerivedData(std::vector<TypedChunkHandle<BarChunk>> inHandles, DetailLODThread& inThread,
                                              bool inIsLast)
{
    PendingBuild<BarChunk>& build = BeginBatch(mPendingDetailBuilds, inThread, std::move(inHandles));
    std::vector<System::JobWork> work;
    for (size_t i = 1; i < mThreadDetailLODs.size(); ++i)
    {
        DetailLOD& level = *mThreadDetailLODs[i];
        DetailLODThread& levelThread = level.GetOrCreateThread(inThread.GetThreadID(), *mStreamingManager);
        BarBuildRecord& record = mBarBuildRecords[&levelThread];
        work.emplace_back([this, &build, &level, &levelThread, &record, inIsLast](System::Job&, const bool& inIsCanceled)
                          { BuildLevelBars(build, level, levelThread, record, inIsLast, inIsCanceled); });
    }
    work.emplace_back([this, &build, &inThread](System::Job&, const bool& inIsCanceled)
                      { BuildFunctionIndices(build, inThread, inIsCanceled); });
    ScheduleBatch(build, std::move(work));
}

void ThreadsModel::BuildLOD0OverviewDerivedData(std::vector<TypedChunkHandle<OverviewChunk>> inHandles, DetailLODThread& inThread,
                                                bool inIsLast)
{
    if (inIsLast)
        inThread.MoveOverviewCursor(inHandles.back().GetChunkIndex() + 1);
    PendingBuild<OverviewChunk>& build = BeginBatch(mPendingOverviewBuilds, inThread, std::move(inHandles));
    std::vector<System::JobWork> work;
    for (size_t i = 1; i < mThreadDetailLODs.size(); ++i)
    {
        DetailLOD& level = *mThreadDetailLODs[i];
        DetailLODThread& levelThread = level.GetOrCreateThread(inThread.GetThreadID(), *mStreamingManager);
        OverviewBuildRecord& record = mOverviewBuildRecords[&levelThread];
        work.emplace_back([this, &build, &level, &levelThread, &record, inIsLast](System::Job&, const bool& inIsCanceled)
                          { BuildLevelStates(build, level, levelThread, record, inIsLast, inIsCanceled); });
    }
    ScheduleBatch(build, std::move(work));
}

// Waits for the batch before, so that each level is filled in time order.
template <class T>
PendingBuild<T>& ThreadsModel::BeginBatch(PendingBuilds<T>& ioBuilds, const DetailLODThread& inThread,
                                          std::vector<TypedChunkHandle<T>> inHandles)
{
    PendingBuild<T>& build = ioBuilds[&inThread];
    GetSession().GetJobScheduler().WaitForJobs(build.Jobs);
    build.Jobs.clear();
    build.Handles = std::move(inHandles);
    build.NumEnded.store(0);
    return build;
}

template <class T>
void ThreadsModel::ScheduleBatch(PendingBuild<T>& ioBuild, std::vector<System::JobWork> inWork)
{
    std::vector<System::JobDescription> jobs(inWork.size());
    for (size_t i = 0; i < jobs.size(); ++i)
    {
        jobs[i].Work = std::move(inWork[i]);
        jobs[i].Priority = sBuildPriority;
        jobs[i].OnEvent = [&ioBuild](System::EJobEvent inEvent, System::Job&)
        {
            if (inEvent != System::EJobEvent::CancelRequested)
                ioBuild.CountEnd();
        };
    }
    ioBuild.NumJobs = static_cast<uint32_t>(jobs.size());
    ioBuild.Jobs = GetSession().GetJobScheduler().ScheduleJobs(std::move(jobs));
}

void ThreadsModel::BuildLevelBars(const PendingBuild<BarChunk>& inBuild, const DetailLOD& inLevel, DetailLODThread& ioThread,
                                  BarBuildRecord& ioRecord, bool inIsLast, const bool& inIsCanceled)
{
    BarMerger merger(*mStreamingManager, ioThread, inLevel.GetThreshold(), inLevel.GetChunkLength(), ioRecord);
    for (const TypedChunkHandle<BarChunk>& handle : inBuild.Handles)
    {
        if (!merger.Merge(*handle, inIsCanceled))
            return;
    }
    if (inIsLast)
        merger.Finish();
    if (merger.GetNumLeftOut() != 0)
        mNumLeftOutMergedBars.fetch_add(merger.GetNumLeftOut());
}

// Of the finest level itself. The bars reach the disk only with their boundaries and their function index, since moving the
// cursor hands over both.
void ThreadsModel::BuildFunctionIndices(const PendingBuild<BarChunk>& inBuild, DetailLODThread& ioThread,
                                        const bool& inIsCanceled)
{
    for (const TypedChunkHandle<BarChunk>& handle : inBuild.Handles)
    {
        const int32_t index = handle.GetChunkIndex();
        handle->BuildBoundaries();
        TypedChunkHandle<FunctionIndexChunk> functions;
        if (!gGetChunkToFill(*mStreamingManager, ioThread, index, functions))
            return;
        functions->Build(handle->GetRows(), inIsCanceled);
        if (System::gIsCanceled(inIsCanceled))
            return;
        ioThread.MoveDetailCursor(index + 1);
    }
}

void ThreadsModel::BuildLevelStates(const PendingBuild<OverviewChunk>& inBuild, const DetailLOD& inLevel,
                                    DetailLODThread& ioThread, OverviewBuildRecord& ioRecord, bool inIsLast,
                                    const bool& inIsCanceled)
{
    StateBuckets buckets(*mStreamingManager, ioThread, inLevel.GetThreshold(), inLevel.GetChunkLength(), ioRecord);
    for (const TypedChunkHandle<OverviewChunk>& handle : inBuild.Handles)
    {
        if (!buckets.Add(*handle, inIsCanceled))
            return;
    }
    if (inIsLast)
        buckets.Finish();
}

} // namespace Profiler
