#include "System/JobScheduler.h"

#include "Utility/Assert.h"
#include "Utility/Format.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace System
{

namespace
{

// A job with its closures and nothing else: its handle stays invalid until the scheduler takes it in.
std::unique_ptr<Job> gCreateJob(JobDescription& ioDescription)
{
    auto job = std::make_unique<Job>();
    job->Work = std::move(ioDescription.Work);
    job->OnEvent = std::move(ioDescription.OnEvent);
    return job;
}

// Tells a job that was scheduled from inside a cancelled one that it will never start, and destroys it.
void gRefuseJob(std::unique_ptr<Job> inJob)
{
    if (!inJob->OnEvent)
        return;
    inJob->OnEvent(EJobEvent::CancelRequested, *inJob);
    inJob->OnEvent(EJobEvent::Canceled, *inJob);
}

bool gComesBefore(uint8_t inPriority, const Job* inJob)
{
    return inPriority < inJob->Priority;
}

std::vector<uint32_t> gGetIDs(std::span<const JobHandle> inHandles)
{
    std::vector<uint32_t> ids;
    ids.reserve(inHandles.size());
    for (const JobHandle& handle : inHandles)
        ids.push_back(handle.ID);
    return ids;
}

} // namespace

JobScheduler::JobScheduler(uint32_t inThreadCount)
{
    StartWorkers(inThreadCount);
}

JobScheduler::~JobScheduler()
{
    CancelJobsAndWait(GetAllJobs());
    StopWorkers();
    // What nobody took any more still gets its two events.
    CancelJobs(GetAllJobs());
    // What the last callbacks scheduled goes while the table still stands, as closures may ask for it at their end.
    std::unordered_map<uint32_t, ActiveJob> left;
    do
    {
        left.clear();
        const MutexLock lock(mMutex);
        mPending.clear();
        left.swap(mActive);
    } while (!left.empty());
}

void JobScheduler::StartWorkers(uint32_t inThreadCount)
{
    mThreads.reserve(inThreadCount);
    for (uint32_t number = 1; number <= inThreadCount; ++number)
    {
        try
        {
            mThreads.emplace_back([this, number]() { RunWorker(number); });
        }
        catch (const std::system_error& error)
        {
            PROFILER_ASSERT_AT("System/JobScheduler", false, "Could not start worker %u: %s", number, error.what());
            return;
        }
    }
}

void JobScheduler::StopWorkers()
{
    {
        MutexLock lock(mMutex);
        mIsQuitting = true;
        mWorkAvailable.NotifyAll();
        mJobFinished.NotifyAll();
    }

    // Callbacks of the jobs that ended last may have scheduled more. One that a worker has begun meanwhile is asked to stop, or
    // the join could last for ever.
    CancelJobs(GetAllJobs());
    for (std::thread& thread : mThreads)
        thread.join();

    MutexLock lock(mMutex);
    while (mWaitingThreads > 0)
        mJobFinished.Wait(mMutex);
}

void JobScheduler::RunWorker(uint32_t inNumber)
{
    mWorkerMarker.Set(this);
    gSetThreadName(Utility::gFormat("Job Scheduler %u", inNumber).c_str());

    MutexLock lock(mMutex);
    while (!mIsQuitting)
    {
        if (Job* job = TakeRunnableJob())
            RunJob(*job);
        else
            mWorkAvailable.Wait(mMutex);
    }
}

void JobScheduler::RunJob(Job& ioJob)
{
    const JobHandle handle = ioJob.Handle;
    mMutex.Unlock();
    Job* outerJob = GetCurrentJob();
    mCurrentJob.Set(&ioJob);
    if (ioJob.Work)
        ioJob.Work(ioJob, ioJob.Canceled);
    mCurrentJob.Set(outerJob);

    mMutex.Lock();
    // From here on no cancellation touches the job, so its flag and its data are this thread's alone.
    ioJob.IsAlive = false;
    std::function<void(Job&)> finishHook = ioJob.FinishHook;
    mMutex.Unlock();

    if (finishHook)
        finishHook(ioJob);
    if (ioJob.OnEvent)
        ioJob.OnEvent(ioJob.Canceled ? EJobEvent::Canceled : EJobEvent::Finished, ioJob);

    // Whoever waits for the job may free what its closures refer to as soon as the job has left the table. So they go before
    // that, and without the mutex, since their destructors may call the scheduler.
    DestroyClosures(ioJob);

    mMutex.Lock();
    ReleaseGroup(handle.Group);
    mActive.erase(handle.ID);
    mJobFinished.NotifyAll();
}

void JobScheduler::DestroyClosures(Job& ioJob)
{
    ioJob.FinishHook = nullptr;
    ioJob.OnEvent = nullptr;
    ioJob.CancelData = nullptr;
    ioJob.Work = nullptr;
}

JobHandle JobScheduler::ScheduleJob(JobDescription inDescription)
{
    const Job* parent = inDescription.IsDetached ? nullptr : GetCurrentJob();
    std::unique_ptr<Job> job = gCreateJob(inDescription);
    {
        MutexLock lock(mMutex);
        if (parent == nullptr || !parent->Canceled)
            return AddJob(std::move(job), inDescription, parent);
    }
    gRefuseJob(std::move(job));
    return {};
}

std::vector<JobHandle> JobScheduler::ScheduleJobs(std::vector<JobDescription> inDescriptions)
{
    std::vector<std::unique_ptr<Job>> jobs;
    jobs.reserve(inDescriptions.size());
    for (JobDescription& description : inDescriptions)
        jobs.push_back(gCreateJob(description));

    const Job* currentJob = GetCurrentJob();
    std::vector<JobHandle> handles(jobs.size());
    {
        MutexLock lock(mMutex);
        for (size_t index = 0; index < jobs.size(); ++index)
        {
            const Job* parent = inDescriptions[index].IsDetached ? nullptr : currentJob;
            if (parent == nullptr || !parent->Canceled)
                handles[index] = AddJob(std::move(jobs[index]), inDescriptions[index], parent);
        }
    }

    for (std::unique_ptr<Job>& job : jobs)
    {
        if (job != nullptr)
            gRefuseJob(std::move(job));
    }
    return handles;
}

JobHandle JobScheduler::AddJob(std::unique_ptr<Job> inJob, const JobDescription& inDescription, const Job* inParent)
{
    Job& job = *inJob;
    ActiveJob& active = AddActive();
    JobHandle& handle = active.Handle;
    handle.Group = inDescription.Group != sFreshJobGroup ? inDescription.Group : TakeFreshGroup();
    handle.Tree = inParent != nullptr && inParent->Handle.IsValid() ? inParent->Handle.Tree : mNextTree++;
    handle.Tag = inDescription.Tag;

    job.Handle = handle;
    job.Priority = inDescription.Priority;
    active.OwnedJob = std::move(inJob);
    InsertPending(job);
    mWorkAvailable.NotifyOne();
    return job.Handle;
}

JobScheduler::ActiveJob& JobScheduler::AddActive()
{
    // After four billion jobs the counter comes round; it then passes over the jobs that still live.
    for (;;)
    {
        const uint32_t id = ++mLastID;
        if (id == sNoJobNumber)
            continue;
        const auto [position, isNew] = mActive.try_emplace(id);
        if (!isNew)
            continue;
        position->second.Handle.ID = id;
        return position->second;
    }
}

int32_t JobScheduler::TakeFreshGroup()
{
    if (static_cast<int32_t>(mNextGroup) == sFreshJobGroup)
        ++mNextGroup;
    return static_cast<int32_t>(mNextGroup++);
}

void JobScheduler::InsertPending(Job& ioJob)
{
    mPending.insert(std::upper_bound(mPending.begin(), mPending.end(), ioJob.Priority, gComesBefore), &ioJob);
}

Job* JobScheduler::TakeRunnableJob()
{
    for (auto position = mPending.begin(); position != mPending.end(); ++position)
    {
        if (!IsGroupRunning((*position)->Handle.Group))
            return TakePending(position);
    }
    return nullptr;
}

Job* JobScheduler::TakeRunnableJob(const std::vector<uint32_t>& inSortedIDs)
{
    for (auto position = mPending.begin(); position != mPending.end(); ++position)
    {
        const JobHandle& handle = (*position)->Handle;
        if (std::binary_search(inSortedIDs.begin(), inSortedIDs.end(), handle.ID) && !IsGroupRunning(handle.Group))
            return TakePending(position);
    }
    return nullptr;
}

Job* JobScheduler::TakePending(const std::deque<Job*>::iterator& inPosition)
{
    Job* job = *inPosition;
    mPending.erase(inPosition);
    mRunningGroups.push_back(job->Handle.Group);
    return job;
}

bool JobScheduler::IsGroupRunning(int32_t inGroup) const
{
    return std::find(mRunningGroups.begin(), mRunningGroups.end(), inGroup) != mRunningGroups.end();
}

void JobScheduler::ReleaseGroup(int32_t inGroup)
{
    const auto position = std::find(mRunningGroups.begin(), mRunningGroups.end(), inGroup);
    *position = mRunningGroups.back();
    mRunningGroups.pop_back();
}

void JobScheduler::WaitForJobs(std::span<const JobHandle> inHandles)
{
    // Sorted, since every look through the pending queue asks for each job whether it is one of these.
    std::vector<uint32_t> ids = gGetIDs(inHandles);
    std::sort(ids.begin(), ids.end());

    MutexLock lock(mMutex);
    ++mWaitingThreads;
    while (!mIsQuitting)
    {
        RemoveEndedFromBack(ids);
        if (ids.empty())
            break;
        if (Job* job = TakeRunnableJob(ids))
        {
            RunJob(*job);
            // Workers may all sleep because the one runnable job is of the group that this thread has just released. A worker
            // that releases a group looks for the next job itself.
            if (!mPending.empty())
                mWorkAvailable.NotifyOne();
        }
        else
        {
            mJobFinished.Wait(mMutex);
        }
    }
    LeaveWait();
}

// Ended jobs further in front can stay: they are in no queue, and their turn comes when they are last. So each is looked up once
// in the whole wait, and not at each end of a job.
void JobScheduler::RemoveEndedFromBack(std::vector<uint32_t>& ioIDs) const
{
    while (!ioIDs.empty() && !mActive.contains(ioIDs.back()))
        ioIDs.pop_back();
}

void JobScheduler::LeaveWait()
{
    --mWaitingThreads;
    if (mIsQuitting)
        mJobFinished.NotifyAll();
}

void JobScheduler::SetJobPriority(const JobHandle& inHandle, uint8_t inPriority)
{
    MutexLock lock(mMutex);
    const auto active = mActive.find(inHandle.ID);
    if (active == mActive.end())
        return;
    Job* job = active->second.OwnedJob.get();
    const auto position = std::find(mPending.begin(), mPending.end(), job);
    if (position == mPending.end())
        return;
    mPending.erase(position);
    job->Priority = inPriority;
    InsertPending(*job);
}

bool JobScheduler::IsJobActive(const JobHandle& inHandle) const
{
    MutexLock lock(mMutex);
    return mActive.contains(inHandle.ID);
}

Job* JobScheduler::GetCurrentJob() const
{
    return static_cast<Job*>(mCurrentJob.Get());
}

JobHandle JobScheduler::GetCurrentJobHandle() const
{
    const Job* job = GetCurrentJob();
    return job != nullptr ? job->Handle : JobHandle();
}

} // namespace System
