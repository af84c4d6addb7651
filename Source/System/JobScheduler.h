// The worker pool of the process. It orders background jobs by priority, keeps the jobs of one group from running at the same
// time, hands a cancellation on from a job to those that it schedules, and lets a thread that waits for a job run that job
// itself.
//
// Threads: any method from any thread, also from inside jobs and their callbacks, but for the destructor. Ownership: owns its
// threads and jobs; the owner of the session makes it and outlives every caller. Invariant: a job is pending, running or gone; it
// is in the active table until it is gone, and everything that its closures hold has been destroyed when it leaves the table.
//
// No user code, including destructors of closures and cancel data, runs while the mutex is held.
#pragma once

#include "System/Job.h"
#include "System/Mutex.h"
#include "System/Thread.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace System
{

// The field of a handle by which CancelMatchingJobs finds jobs.
enum class ECancelMatch : uint32_t
{
    Tree = 0,
    Group = 1,
    Tag = 2,
};

class JobScheduler
{
public:
    // Starts inThreadCount workers, named "Job Scheduler 1" and so on. With none, jobs only run on threads that wait for them.
    explicit JobScheduler(uint32_t inThreadCount);

    // Cancels all jobs, waits for them and ends the workers. Threads in a wait leave it. Jobs that are scheduled meanwhile, by
    // the callbacks of ending ones, are cancelled too; only those of the very last callbacks go without a word. REQUIRES: not
    // called from inside a job; no other thread begins a call any more.
    ~JobScheduler();

    JobScheduler(const JobScheduler&) = delete;
    JobScheduler& operator=(const JobScheduler&) = delete;

    // Queues a job behind all of its priority. Scheduled from inside a job, it gets that job's tree, unless it is detached. If
    // the job around it has been cancelled, the new one never starts: its OnEvent sees CancelRequested and Canceled on this
    // thread, and the result is the invalid handle.
    JobHandle ScheduleJob(JobDescription inDescription);

    // Schedules all under one hold of the mutex, and gives one handle per description, in order.
    std::vector<JobHandle> ScheduleJobs(std::vector<JobDescription> inDescriptions);

    // Returns when no job of the list is active. The thread runs jobs of the list meanwhile, those that are pending and whose
    // group is free. Ends early when the scheduler is being destroyed. REQUIRES: inside a job, the list holds neither that job,
    // nor one around it, nor a job of the group of one of these, which couldn't start.
    void WaitForJobs(std::span<const JobHandle> inHandles);
    void WaitForJobs(const JobHandle& inHandle) { WaitForJobs(std::span(&inHandle, 1)); }

    // Asks jobs to stop, and doesn't wait for running ones. Pending ones never run, and are gone when the call returns. A job
    // that is cancelled already or whose Work has returned is left alone. The first job that is asked gets the cancel data, the
    // others null.
    void CancelJobs(std::span<const JobHandle> inHandles, std::unique_ptr<IJobCancelData> inCancelData = nullptr);
    void CancelJobs(const JobHandle& inHandle, std::unique_ptr<IJobCancelData> inCancelData = nullptr)
    {
        CancelJobs(std::span(&inHandle, 1), std::move(inCancelData));
    }

    // As CancelJobs, then returns when no job of the list is active. REQUIRES: the list doesn't hold a job that runs on this
    // thread.
    void CancelJobsAndWait(std::span<const JobHandle> inHandles, std::unique_ptr<IJobCancelData> inCancelData = nullptr);
    void CancelJobsAndWait(const JobHandle& inHandle, std::unique_ptr<IJobCancelData> inCancelData = nullptr)
    {
        CancelJobsAndWait(std::span(&inHandle, 1), std::move(inCancelData));
    }

    // Cancel all active jobs that agree with inHandle in one field, in order of their ids. Finding and cancelling is one step, so
    // no job of a tree can schedule another one in between. The condition of CancelJobsAndWait holds for the second.
    void CancelMatchingJobs(ECancelMatch inMatch, const JobHandle& inHandle,
                            std::unique_ptr<IJobCancelData> inCancelData = nullptr);
    void CancelMatchingJobsAndWait(ECancelMatch inMatch, const JobHandle& inHandle,
                                   std::unique_ptr<IJobCancelData> inCancelData = nullptr);

    // The same for all jobs with this tag.
    void CancelMatchingJobs(uint32_t inTag, std::unique_ptr<IJobCancelData> inCancelData = nullptr);
    void CancelMatchingJobsAndWait(uint32_t inTag, std::unique_ptr<IJobCancelData> inCancelData = nullptr);

    // Puts a pending job behind those of its new priority. A job that isn't pending is left as it is.
    void SetJobPriority(const JobHandle& inHandle, uint8_t inPriority);

    // Whether the job is pending or running, or its last OnEvent is still under way.
    [[nodiscard]] bool IsJobActive(const JobHandle& inHandle) const;

    // The job whose Work runs on this thread, the innermost one if a wait runs jobs inside a job; null and the invalid handle if
    // there is none. The OnEvent of a job isn't inside it: it sees the job around, if any.
    [[nodiscard]] Job* GetCurrentJob() const;
    [[nodiscard]] JobHandle GetCurrentJobHandle() const;

    // Whether the calling thread is one of this scheduler's workers.
    [[nodiscard]] bool IsWorkerThread() const { return mWorkerMarker.Get() != nullptr; }

private:
    struct ActiveJob
    {
        JobHandle Handle;
        std::unique_ptr<Job> OwnedJob;
    };

    // The state of one call that cancels, from marking jobs under the mutex to the last callback.
    struct CancelRequest;

    // Workers
    void StartWorkers(uint32_t inThreadCount);
    void RunWorker(uint32_t inNumber);
    void RunJob(Job& ioJob) REQUIRES(mMutex); // releases the mutex while user code runs
    static void DestroyClosures(Job& ioJob);
    void StopWorkers();

    // Scheduling
    JobHandle AddJob(std::unique_ptr<Job> inJob, const JobDescription& inDescription, const Job* inParent) REQUIRES(mMutex);
    ActiveJob& AddActive() REQUIRES(mMutex);
    int32_t TakeFreshGroup() REQUIRES(mMutex);
    void InsertPending(Job& ioJob) REQUIRES(mMutex);
    Job* TakeRunnableJob() REQUIRES(mMutex);
    Job* TakeRunnableJob(const std::vector<uint32_t>& inSortedIDs) REQUIRES(mMutex);
    Job* TakePending(const std::deque<Job*>::iterator& inPosition) REQUIRES(mMutex);
    [[nodiscard]] bool IsGroupRunning(int32_t inGroup) const REQUIRES(mMutex);
    void ReleaseGroup(int32_t inGroup) REQUIRES(mMutex);

    // Cancelling
    void MarkCanceled(std::span<const JobHandle> inHandles, CancelRequest& ioRequest) REQUIRES(mMutex);
    void DropCanceledJobs(CancelRequest& ioRequest) REQUIRES(mMutex);
    void DeliverCancel(CancelRequest& ioRequest) EXCLUDES(mMutex);
    [[nodiscard]] std::vector<JobHandle> GetMatchingJobs(ECancelMatch inMatch, const JobHandle& inHandle) const REQUIRES(mMutex);
    [[nodiscard]] std::vector<JobHandle> GetAllJobs() const EXCLUDES(mMutex);

    // Waiting
    void RemoveEndedFromBack(std::vector<uint32_t>& ioIDs) const REQUIRES(mMutex);
    void WaitUntilEnded(std::span<const JobHandle> inHandles) EXCLUDES(mMutex);
    void LeaveWait() REQUIRES(mMutex);

    // Constant between construction and destruction
    std::vector<std::thread> mThreads;

    // Have their own synchronization
    ThreadLocalPointer mCurrentJob;   // a System::Job
    ThreadLocalPointer mWorkerMarker; // not null on workers
    mutable Mutex mMutex;
    ConditionVariable mWorkAvailable;
    ConditionVariable mJobFinished;

    // Sorted by priority, first come first within equal ones. A deque, so that taking from the front moves nothing; inserting
    // finds its place by bisection and moves the shorter side. A take goes past the jobs whose group is running.
    std::deque<Job*> mPending GUARDED_BY(mMutex);
    std::unordered_map<uint32_t, ActiveJob> mActive GUARDED_BY(mMutex);
    // As many as threads that run jobs, so going through them is faster than hashing.
    std::vector<int32_t> mRunningGroups GUARDED_BY(mMutex);
    uint32_t mLastID GUARDED_BY(mMutex) = 0;
    uint32_t mNextGroup GUARDED_BY(mMutex) = 0;
    uint32_t mNextTree GUARDED_BY(mMutex) = 0;
    uint32_t mWaitingThreads GUARDED_BY(mMutex) = 0; // in calls that the destructor must let out
    bool mIsQuitting GUARDED_BY(mMutex) = false;
};

} // namespace System
