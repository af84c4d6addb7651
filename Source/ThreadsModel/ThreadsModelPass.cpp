// The making of a timeline, a pass over the events of a capture, and the timeline's end.
#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "Session/Session.h"
#include "System/Job.h"
#include "ThreadsModel/OpenBarProcessorRouter.h"
#include "ThreadsModel/ThreadsModel.h"
#include "Utility/Log.h"

#include <utility>

namespace Profiler
{
namespace
{

constexpr uint32_t sNoCode = 0;

template <class T>
void gCollectJobs(const std::unordered_map<const DetailLODThread*, PendingBuild<T>>& inBuilds,
                  std::vector<System::JobHandle>& ioJobs)
{
    for (const auto& [thread, build] : inBuilds)
        ioJobs.insert(ioJobs.end(), build.Jobs.begin(), build.Jobs.end());
}

} // namespace

// Both here and not in ThreadsModel.cpp, which mustn't know the router: that one knows the model.
ThreadsModel::ThreadsModel(ModelPlugin& inPlugin, Session& inSession)
    : Model(inPlugin, inSession),
      mStreamingManager(std::make_unique<ThreadStreamingManager>(
          sGetPath(inSession, "Threads.dat"), sGetPath(inSession, "ReadyThreads.dat"), inSession.GetJobScheduler())),
      mReadyThreadData(*mStreamingManager),
      mFindModel(*this, *mStreamingManager, inSession.GetJobScheduler())
{
    // What can't be made is told by whoever opens the first file in it.
    static_cast<void>(FileSystem::gCreateDirectories(GetPath("")));
    mThreadDetailLODs = gMakeDetailLODs(inSession);
}

// Jobs use what the members hold, and may wait for memory.
ThreadsModel::~ThreadsModel()
{
    mFindModel.CancelAllFinds();
    std::vector<System::JobHandle> jobs;
    gCollectJobs(mPendingDetailBuilds, jobs);
    gCollectJobs(mPendingOverviewBuilds, jobs);
    if (!jobs.empty())
    {
        mStreamingManager->AbortAllocations();
        GetSession().GetJobScheduler().CancelJobsAndWait(jobs);
    }
    mStreamingManager->Close();
    DropPassState();
}

bool ThreadsModel::PrepareReprocess(Utility::ErrorState& ioErrors)
{
    mStreamingManager->CloseChunkFile();
    return FileSystem::gDeleteDirectoryContents(GetPath(""), ioErrors) == FileSystem::EDeleteResult::Success &&
           mStreamingManager->OpenChunkFile(true, ioErrors);
}

bool ThreadsModel::BeginProcessing(Utility::ErrorState& ioErrors)
{
    mFindProcessing = std::make_unique<FindProcessingModel>(GetPath("Find.dat"), GetSession().GetJobScheduler());
    if (!mFindProcessing->OpenIndexFile(ioErrors))
        return false;
    auto readyProcessing = std::make_unique<ReadyThreadProcessingModel>(GetPath("ReadyThreads.dat"));
    ReadyThreadProcessingModel& opened = *readyProcessing;
    {
        const System::MutexLock lock(mStopMutex);
        mReadyProcessing.swap(readyProcessing);
    }
    readyProcessing.reset(); // that of a pass that failed has the same file open
    return opened.OpenFile(ioErrors);
}

ThreadProcessingState* ThreadsModel::CreateThreadProcessingState(OpenBarProcessor& inProcessor)
{
    const ThreadID thread = inProcessor.GetThreadID();
    DetailLODThread& detailThread = GetDetailLOD(0).GetOrCreateThread(thread, *mStreamingManager);
    std::unique_ptr<ThreadDetailLOD0ProcessingState>& state = mProcessingStates[thread];
    state = std::make_unique<ThreadDetailLOD0ProcessingState>(*this, detailThread, GetOrCreateThreadData(thread),
                                                              mFindProcessing->CreateThreadInvocationData(thread), inProcessor);
    return state.get();
}

bool ThreadsModel::ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState, Utility::ErrorState& ioErrors)
{
    // A chunk that can't be written ends the pass.
    if (mStreamingManager->HasSaveErrors()) [[unlikely]]
    {
        ioErrors.AddError(sNoCode, mStreamingManager->GetSaveErrors().front());
        return false;
    }
    if (!HandleThreadStateEvent(inEvent, ioErrors))
        return false;
    const ETraceEventType type = inEvent.GetType();
    if (type == ETraceEventType::Sample || type == ETraceEventType::StackOnly)
        static_cast<ThreadDetailLOD0ProcessingState*>(ioState)->IsSampled = true;
    return true;
}

bool ThreadsModel::FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors)
{
    const ThreadID thread = inProcessor.GetThreadID();
    if (!mFindProcessing->DestroyThreadInvocationData(thread, ioErrors))
        return false;
    mProcessingStates.at(thread)->Router.Finish();
    return true;
}

bool ThreadsModel::FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled)
{
    for (const Thread& thread : GetSession().GetThreadList())
    {
        if (System::gIsCanceled(inIsCanceled))
            return true;
        AddRangeOfWholeLife(thread);
    }
    if (!FinishLanes(ioErrors))
        return false;
    WaitForBuilds();
    if (!mReadyProcessing->FinishWriting(ioErrors) || !mFindProcessing->WaitForWriteJob(ioErrors))
        return false;
    DropPassState();
    LogLeftOut();
    // Only then is every chunk on disk.
    if (!mStreamingManager->FlushChunks(ioErrors))
        return false;
    mIsComplete = !mIsStopped.load();
    return true;
}

// Every thread has a place at every level. One without any switch ran for its whole life if it was ever sampled, and else waited.
void ThreadsModel::AddRangeOfWholeLife(const Thread& inThread)
{
    for (const std::unique_ptr<DetailLOD>& level : mThreadDetailLODs)
        level->GetOrCreateThread(inThread.ThreadID, *mStreamingManager);
    OverviewThreadState& state = GetOverviewState(inThread.ThreadID);
    if (state.HasSpans)
        return;
    const auto found = mProcessingStates.find(inThread.ThreadID);
    const bool isSampled = found != mProcessingStates.end() && found->second->IsSampled;
    AddThreadStateRange(state, inThread.ThreadID,
                        {.State = isSampled ? ThreadState::Executing : ThreadState::UnknownWaitState,
                         .Start = inThread.StartTimeMs,
                         .End = inThread.EndTimeMs});
}

bool ThreadsModel::FinishLanes(Utility::ErrorState& ioErrors)
{
    for (const auto& [thread, state] : mOverviewStates)
    {
        if (!FinishOverview(thread, *state, ioErrors))
            return false;
    }
    return true;
}

void ThreadsModel::WaitForBuilds()
{
    std::vector<System::JobHandle> jobs;
    gCollectJobs(mPendingDetailBuilds, jobs);
    gCollectJobs(mPendingOverviewBuilds, jobs);
    GetSession().GetJobScheduler().WaitForJobs(jobs);
}

// REQUIRES: no job runs.
void ThreadsModel::DropPassState()
{
    mPendingDetailBuilds.clear();
    mPendingOverviewBuilds.clear();
    mOverviewStates.clear();
    mProcessingStates.clear();
    for (auto& [thread, record] : mOverviewBuildRecords)
        record.Chunk = {};
}

void ThreadsModel::LogLeftOut() const
{
    const LeftOutCounts counts = GetLeftOutCounts();
    if (counts.HasAny())
        Utility::gLog("Left out %llu bars, %llu spans of states and %llu bars of coarser levels, whose times went back or were "
                      "impossible",
                      static_cast<unsigned long long>(counts.Bars), static_cast<unsigned long long>(counts.Spans),
                      static_cast<unsigned long long>(counts.MergedBars));
}

void ThreadsModel::StopProcessing()
{
    mIsStopped.store(true);
    {
        const System::MutexLock lock(mStopMutex);
        if (mReadyProcessing != nullptr)
            mReadyProcessing->CancelWriting();
    }
    mStreamingManager->AbortAllocations();
}

} // namespace Profiler
