#include "Host/CommandLine/StreamSink.h"

#include "Host/CommandLine/SessionProcessing.h"

#include <utility>

namespace Host
{
namespace
{

// Some hundred kilobytes: few enough hand-overs, and what was just written is still near when the job reads it.
constexpr size_t sEventsPerBatch = 4096;

// More than come in while the job compresses a chunk.
constexpr size_t sMaxQueuedBatches = 24;

} // namespace

StreamSink::StreamSink(Profiler::TraceEventStream& ioStream, System::JobScheduler& ioScheduler, const bool& inIsCanceled)
    : mScheduler(ioScheduler),
      mIsCanceled(inIsCanceled),
      mStream(ioStream)
{
    mFilling.Events.resize(sEventsPerBatch);
}

StreamSink::~StreamSink()
{
    {
        const System::MutexLock lock(mMutex);
        mIsStopped = true;
    }
    WaitForJob();
}

bool StreamSink::OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors)
{
    if (!CheckGoesOn(ioErrors))
        return false;
    mFilling.Events[mFilling.NumEvents++] = inEvent;
    return mFilling.NumEvents < sEventsPerBatch || HandOver(ioErrors);
}

bool StreamSink::CheckGoesOn(Utility::ErrorState& ioErrors)
{
    return gCheckNotCanceled(mIsCanceled, ioErrors);
}

bool StreamSink::Finish(Utility::ErrorState& ioErrors)
{
    if (mFilling.NumEvents != 0 && !HandOver(ioErrors))
        return false;
    WaitForJob();
    return CheckStored(ioErrors) && mStream.FlushStream(ioErrors);
}

bool StreamSink::HandOver(Utility::ErrorState& ioErrors)
{
    // Without free workers the job runs here.
    if (!Enqueue())
        WaitForJob();
    TakeEmptyBatch();
    return CheckStored(ioErrors);
}

// False if no more should follow for now.
bool StreamSink::Enqueue()
{
    bool hasJob = false;
    bool hasRoom = false;
    {
        const System::MutexLock lock(mMutex);
        mQueue.push_back(std::move(mFilling));
        hasJob = std::exchange(mHasJob, true);
        hasRoom = mQueue.size() < sMaxQueuedBatches;
    }
    if (!hasJob)
    {
        System::JobDescription job;
        job.Work = [this](System::Job&, const bool&) { StoreQueued(); };
        mJob = mScheduler.ScheduleJob(std::move(job));
    }
    return hasRoom;
}

void StreamSink::TakeEmptyBatch()
{
    mFilling = Batch();
    {
        const System::MutexLock lock(mMutex);
        if (!mEmpty.empty())
        {
            mFilling = std::move(mEmpty.back());
            mEmpty.pop_back();
        }
    }
    mFilling.Events.resize(sEventsPerBatch);
    mFilling.NumEvents = 0;
}

bool StreamSink::CheckStored(Utility::ErrorState& ioErrors)
{
    const System::MutexLock lock(mMutex);
    ioErrors.AddEntries(mErrors);
    return mErrors.GetEntries().empty();
}

void StreamSink::WaitForJob()
{
    if (mJob.IsValid())
        mScheduler.WaitForJobs(mJob);
}

void StreamSink::StoreQueued()
{
    Batch batch;
    Utility::ErrorState errors;
    while (TakeQueued(batch))
    {
        if (Store(batch, errors))
            continue;
        const System::MutexLock lock(mMutex);
        mErrors = std::move(errors);
        mIsStopped = true;
        return;
    }
}

// Gives the batch that was stored back, and takes the next.
bool StreamSink::TakeQueued(Batch& ioBatch)
{
    const System::MutexLock lock(mMutex);
    if (!ioBatch.Events.empty())
        mEmpty.push_back(std::move(ioBatch));
    mHasJob = !mQueue.empty() && !mIsStopped;
    if (!mHasJob)
        return false;
    ioBatch = std::move(mQueue.front());
    mQueue.pop_front();
    return true;
}

bool StreamSink::Store(const Batch& inBatch, Utility::ErrorState& ioErrors)
{
    for (size_t i = 0; i != inBatch.NumEvents; ++i)
        if (!mStream.AddEvent(inBatch.Events[i], ioErrors))
            return false;
    return true;
}

} // namespace Host
