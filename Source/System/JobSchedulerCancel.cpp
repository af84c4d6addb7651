// The cancelling side of the job scheduler.
//
// A cancellation has a part under the mutex, which decides what happens to each job, and a part without it, which calls back.
// What keeps a job in memory between the two is, for a running one, its finish hook, and for a pending one that it stays in the
// active table, where nobody but the call that dropped it takes it out.
#include "System/JobScheduler.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace System
{

namespace
{

// What one call that cancels shares with the finish hooks that it installs: the jobs whose OnEvent has been told CancelRequested.
// The hook of a job that ends meanwhile waits here for its own.
class SyncCancelData
{
public:
    void AddJob(const Job* inJob)
    {
        MutexLock lock(mMutex);
        mToldJobs.insert(inJob);
        mJobAdded.NotifyAll();
    }

    void WaitForJob(const Job* inJob)
    {
        MutexLock lock(mMutex);
        while (!mToldJobs.contains(inJob))
            mJobAdded.Wait(mMutex);
    }

private:
    Mutex mMutex;
    ConditionVariable mJobAdded;
    std::unordered_set<const Job*> mToldJobs GUARDED_BY(mMutex);
};

bool gMatches(ECancelMatch inMatch, const JobHandle& inLeft, const JobHandle& inRight)
{
    switch (inMatch)
    {
    case ECancelMatch::Tree:
        return inLeft.Tree == inRight.Tree;
    case ECancelMatch::Group:
        return inLeft.Group == inRight.Group;
    case ECancelMatch::Tag:
        return inLeft.Tag == inRight.Tag;
    }
    return false;
}

// The order of a hash table would make it chance which job gets the cancel data.
void gSortByID(std::vector<JobHandle>& ioHandles)
{
    std::sort(ioHandles.begin(), ioHandles.end(),
              [](const JobHandle& inFirst, const JobHandle& inSecond) { return inFirst.ID < inSecond.ID; });
}

} // namespace

struct JobScheduler::CancelRequest
{
    explicit CancelRequest(std::unique_ptr<IJobCancelData> inCancelData) : CancelData(std::move(inCancelData)) {}

    std::unique_ptr<IJobCancelData> CancelData; // until a job takes it
    std::shared_ptr<SyncCancelData> Sync = std::make_shared<SyncCancelData>();
    std::vector<Job*> JobsToTell;  // have an OnEvent
    std::vector<Job*> DroppedJobs; // were pending, last of the queue first
};

void JobScheduler::CancelJobs(std::span<const JobHandle> inHandles, std::unique_ptr<IJobCancelData> inCancelData)
{
    CancelRequest request(std::move(inCancelData));
    {
        MutexLock lock(mMutex);
        MarkCanceled(inHandles, request);
    }
    DeliverCancel(request);
}

void JobScheduler::CancelJobsAndWait(std::span<const JobHandle> inHandles, std::unique_ptr<IJobCancelData> inCancelData)
{
    // A copy, since callbacks may change the caller's list.
    const std::vector<JobHandle> handles(inHandles.begin(), inHandles.end());
    CancelRequest request(std::move(inCancelData));
    {
        MutexLock lock(mMutex);
        ++mWaitingThreads;
        MarkCanceled(handles, request);
    }
    DeliverCancel(request);
    WaitUntilEnded(handles);
}

void JobScheduler::CancelMatchingJobs(ECancelMatch inMatch, const JobHandle& inHandle,
                                      std::unique_ptr<IJobCancelData> inCancelData)
{
    CancelRequest request(std::move(inCancelData));
    {
        MutexLock lock(mMutex);
        MarkCanceled(GetMatchingJobs(inMatch, inHandle), request);
    }
    DeliverCancel(request);
}

void JobScheduler::CancelMatchingJobsAndWait(ECancelMatch inMatch, const JobHandle& inHandle,
                                             std::unique_ptr<IJobCancelData> inCancelData)
{
    std::vector<JobHandle> handles;
    CancelRequest request(std::move(inCancelData));
    {
        MutexLock lock(mMutex);
        ++mWaitingThreads;
        handles = GetMatchingJobs(inMatch, inHandle);
        MarkCanceled(handles, request);
    }
    DeliverCancel(request);
    WaitUntilEnded(handles);
}

void JobScheduler::CancelMatchingJobs(uint32_t inTag, std::unique_ptr<IJobCancelData> inCancelData)
{
    JobHandle handle;
    handle.Tag = inTag;
    CancelMatchingJobs(ECancelMatch::Tag, handle, std::move(inCancelData));
}

void JobScheduler::CancelMatchingJobsAndWait(uint32_t inTag, std::unique_ptr<IJobCancelData> inCancelData)
{
    JobHandle handle;
    handle.Tag = inTag;
    CancelMatchingJobsAndWait(ECancelMatch::Tag, handle, std::move(inCancelData));
}

void JobScheduler::MarkCanceled(std::span<const JobHandle> inHandles, CancelRequest& ioRequest)
{
    bool isAnyMarked = false;
    for (const JobHandle& handle : inHandles)
    {
        const auto active = mActive.find(handle.ID);
        if (active == mActive.end())
            continue;
        Job& job = *active->second.OwnedJob;
        if (!job.IsAlive || job.Canceled)
            continue;
        isAnyMarked = true;

        // Only a first cancellation comes here, so nothing is there that the assignment would destroy. The flag comes after the
        // data: a job that sees it may read them.
        job.CancelData = std::move(ioRequest.CancelData);
        __atomic_store_n(&job.Canceled, true, __ATOMIC_RELEASE);
        if (job.OnEvent)
        {
            job.FinishHook = [sync = ioRequest.Sync](Job& ioJob) { sync->WaitForJob(&ioJob); };
            ioRequest.JobsToTell.push_back(&job);
        }
    }
    if (isAnyMarked)
        DropCanceledJobs(ioRequest);
}

void JobScheduler::DropCanceledJobs(CancelRequest& ioRequest)
{
    for (auto position = mPending.rbegin(); position != mPending.rend(); ++position)
    {
        if ((*position)->Canceled)
            ioRequest.DroppedJobs.push_back(*position);
    }
    if (!ioRequest.DroppedJobs.empty())
        std::erase_if(mPending, [](const Job* inJob) { return inJob->Canceled; });
}

void JobScheduler::DeliverCancel(CancelRequest& ioRequest)
{
    for (Job* job : ioRequest.JobsToTell)
    {
        job->OnEvent(EJobEvent::CancelRequested, *job);
        // The job may be gone as soon as its hook finds it.
        ioRequest.Sync->AddJob(job);
    }

    for (Job* job : ioRequest.DroppedJobs)
    {
        if (job->OnEvent)
            job->OnEvent(EJobEvent::Canceled, *job);
    }
    for (Job* job : ioRequest.DroppedJobs)
        DestroyClosures(*job);
    if (ioRequest.DroppedJobs.empty())
        return;

    MutexLock lock(mMutex);
    for (const Job* job : ioRequest.DroppedJobs)
    {
        const uint32_t id = job->Handle.ID;
        mActive.erase(id);
    }
    // A thread that began to wait for a job while it was being dropped has nothing else that would wake it.
    mJobFinished.NotifyAll();
}

void JobScheduler::WaitUntilEnded(std::span<const JobHandle> inHandles)
{
    MutexLock lock(mMutex);
    for (const JobHandle& handle : inHandles)
    {
        while (mActive.contains(handle.ID))
            mJobFinished.Wait(mMutex);
    }
    LeaveWait();
}

std::vector<JobHandle> JobScheduler::GetMatchingJobs(ECancelMatch inMatch, const JobHandle& inHandle) const
{
    std::vector<JobHandle> handles;
    for (const auto& [id, active] : mActive)
    {
        if (gMatches(inMatch, active.Handle, inHandle))
            handles.push_back(active.Handle);
    }
    gSortByID(handles);
    return handles;
}

std::vector<JobHandle> JobScheduler::GetAllJobs() const
{
    std::vector<JobHandle> handles;
    MutexLock lock(mMutex);
    handles.reserve(mActive.size());
    for (const auto& [id, active] : mActive)
        handles.push_back(active.Handle);
    gSortByID(handles);
    return handles;
}

} // namespace System
