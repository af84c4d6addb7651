// The thread of the streaming manager: its start and stop, and the cycle of its work.
#include "System/Thread.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Log.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace Profiler
{
namespace
{

using System::MutexLock;
using System::RecursiveMutexLock;

constexpr uint32_t sNoCode = 0;

// A save pass comes at least this often while nothing else happens.
constexpr std::chrono::seconds sCycleTime(1);

// Seconds from one count of the chunks that are being filled to the next.
constexpr double sRecountInterval = 0.5;

} // namespace

bool ThreadStreamingManager::OpenChunkFile(bool inForWriting, Utility::ErrorState& ioErrors)
{
    CloseChunkFile();
    const bool isOpen =
        mOptions.ThreadsFile->Open(mThreadsPath, inForWriting ? ChunkFile::EMode::Writing : ChunkFile::EMode::Reading);
    if (!Utility::Check(ioErrors, isOpen, sNoCode, "Unable to open file %s for %s.", mThreadsPath,
                        inForWriting ? "writing" : "reading"))
        return false;
    if (Utility::Check(ioErrors, StartThread(), sNoCode, "Unable to start the thread that streams chunks."))
        return true;
    mOptions.ThreadsFile->Close();
    return false;
}

bool ThreadStreamingManager::OpenReadyThreadFile(Utility::ErrorState& ioErrors)
{
    const bool isOpen = mOptions.ReadyThreadsFile->Open(mReadyThreadsPath, ChunkFile::EMode::Reading);
    return Utility::Check(ioErrors, isOpen, sNoCode, "Unable to open file %s.", mReadyThreadsPath);
}

void ThreadStreamingManager::CloseChunkFile()
{
    StopThread();
    mOptions.ThreadsFile->Close();
}

void ThreadStreamingManager::Close()
{
    CloseChunkFile();
    std::vector<System::JobHandle> jobs;
    for (const ChunkLoadSlot& slot : mLoadSlots)
        jobs.push_back(slot.Job);
    mScheduler.CancelJobsAndWait(jobs);
    const MutexLock lock(mRegisteredMutex);
    mRegisteredThreads.clear();
}

bool ThreadStreamingManager::StartThread()
{
    const RecursiveMutexLock lock(mMutex);
    try
    {
        mThread = std::thread([this] { RunStreamingThread(); });
        mIsRunning = true;
    }
    catch (const std::system_error&)
    {
        // The system has no thread left to give.
    }
    return mIsRunning;
}

void ThreadStreamingManager::StopThread()
{
    {
        const RecursiveMutexLock lock(mMutex);
        if (!mIsRunning)
            return;
        mIsRunning = false;
        mIsStopRequested = true;
        mThreadCondition.NotifyOne();
    }
    mThread.join();
    std::vector<std::unique_ptr<ChunkLoadRequest>> unserved;
    uint64_t dropped = 0;
    {
        const RecursiveMutexLock lock(mMutex);
        mIsStopRequested = false;
        dropped = mTakenFlushes = mRequestedFlushes;
        unserved.swap(mLoadQueue);
    }
    {
        const MutexLock lock(mFlushMutex);
        mDroppedFlushes = dropped;
        mFlushCondition.NotifyAll();
    }
    for (const std::unique_ptr<ChunkLoadRequest>& request : unserved)
    {
        FailLoad(*request);
        CountServedRequest();
    }
}

// A cycle reads, then saves, then lets go of what nobody needs.
void ThreadStreamingManager::RunStreamingThread()
{
    System::gSetThreadName("Streaming");
    System::JobHandle unloadJob;
    std::vector<std::unique_ptr<ChunkLoadRequest>> requests;
    bool isTimeout = false;
    while (WaitForWork(requests, isTimeout))
    {
        for (std::unique_ptr<ChunkLoadRequest>& request : requests)
        {
            LoadChunk(std::move(request));
            CountServedRequest();
        }
        requests.clear();
        if (TakeSavePending() || isTimeout)
            SaveStage(false);
        ServeFlush();
        ScheduleUnload(unloadJob, isTimeout);
    }
    mScheduler.CancelJobsAndWait(unloadJob);
}

// Gives the requests that came, in their order; false if the thread is to end. One deadline holds however often it is woken.
bool ThreadStreamingManager::WaitForWork(std::vector<std::unique_ptr<ChunkLoadRequest>>& outRequests, bool& outIsTimeout)
{
    const RecursiveMutexLock lock(mMutex);
    const auto deadline = std::chrono::steady_clock::now() + sCycleTime;
    for (bool isInTime = true;;)
    {
        if (mIsStopRequested)
            return false;
        const bool hasWork = !mLoadQueue.empty() || mRequestedFlushes != mTakenFlushes || mIsSavePending;
        if (hasWork || !isInTime)
        {
            outIsTimeout = !hasWork;
            outRequests.swap(mLoadQueue);
            return true;
        }
        isInTime = mThreadCondition.WaitUntil(mMutex, deadline);
    }
}

bool ThreadStreamingManager::TakeSavePending()
{
    const RecursiveMutexLock lock(mMutex);
    return std::exchange(mIsSavePending, false);
}

void ThreadStreamingManager::CountServedRequest()
{
    const uint32_t pending = mPendingLoadCount.fetch_sub(1) - 1;
    if (IStreamingLog* log = mLog.load())
        log->PendingLoadsChanged(pending);
}

// Flushes are counted, so that one that is asked for during another is served by a pass of its own.
void ThreadStreamingManager::ServeFlush()
{
    uint64_t taken = 0;
    {
        const RecursiveMutexLock lock(mMutex);
        if (mRequestedFlushes == mTakenFlushes)
            return;
        taken = mTakenFlushes = mRequestedFlushes;
    }
    SaveStage(true);
    const MutexLock lock(mFlushMutex);
    mServedFlushes = taken;
    mFlushCondition.NotifyAll();
}

bool ThreadStreamingManager::FlushChunks(Utility::ErrorState& ioErrors)
{
    uint64_t request = 0;
    {
        const RecursiveMutexLock lock(mMutex);
        if (!Utility::Check(ioErrors, mIsRunning, sNoCode, "Unable to save streaming chunks: no file is open"))
            return false;
        request = ++mRequestedFlushes;
        mThreadCondition.NotifyOne();
    }
    {
        const MutexLock lock(mFlushMutex);
        while (mServedFlushes < request && mDroppedFlushes < request)
            mFlushCondition.Wait(mFlushMutex);
        if (!Utility::Check(ioErrors, mServedFlushes >= request, sNoCode,
                            "Unable to save streaming chunks: the file was closed meanwhile"))
            return false;
    }
    const std::vector<std::string> errors = GetSaveErrors();
    if (errors.empty())
        return true;
    std::string text = "There were errors saving streaming chunks: \n";
    for (const std::string& error : errors)
        text += "\t" + error + "\n";
    ioErrors.AddError(sNoCode, text);
    return false;
}

void ThreadStreamingManager::ScheduleUnload(System::JobHandle& ioUnloadJob, bool inIsIdle)
{
    if (ioUnloadJob.IsValid())
        mScheduler.WaitForJobs(ioUnloadJob);
    System::JobDescription job;
    job.Work = [this, inIsIdle](System::Job&, const bool&) { RunUnload(inIsIdle); };
    ioUnloadJob = mScheduler.ScheduleJob(std::move(job));
}

// inIsIdle: nothing was asked of the thread for a whole cycle's time.
void ThreadStreamingManager::RunUnload(bool inIsIdle)
{
    mOwesWakeUp = TryUnloadChunks() || mOwesWakeUp;
    const double now = mOptions.GetSeconds();
    if (now - mLastRecount >= sRecountInterval)
    {
        UpdateInProgressBytes();
        mLastRecount = now;
    }
    if (mOwesWakeUp && !IsMemoryExhausted())
    {
        mOwesWakeUp = false;
        // Taken and given back, so that nobody stands between having looked at the figures and waiting.
        {
            const RecursiveMutexLock lock(mMutex);
        }
        mMemoryCondition.NotifyAll();
    }
    if (inIsIdle && IsMemoryExhausted())
        RaiseBudget();
}

// Only writers could make room, by finishing chunks, and they wait themselves: many threads with much in hand need more than the
// budget, and would wait for ever.
void ThreadStreamingManager::RaiseBudget()
{
    constexpr int64_t partsOfBudget = 8;
    const int64_t raised = mLoadedBytes.load() + mInProgressBytes.load() + mOptions.MemoryBudget / partsOfBudget + 1;
    {
        const RecursiveMutexLock lock(mMutex);
        if (mNumAllocators == 0)
            return;
        mMemoryBudget.store(raised);
        mMemoryCondition.NotifyAll();
    }
    Utility::gLog("Chunks that are being filled take more memory than they should: the budget is %lld bytes now",
                  static_cast<long long>(raised));
}

} // namespace Profiler
