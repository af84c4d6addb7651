// Stores the events of an import while it goes on reading: encoding and compressing them takes half as long as making them.
//
// Threads: one makes, feeds and finishes it. A job of the scheduler, never more than one at a time, adds the events to the
// stream; it touches the stream, the queue of batches and nothing else, and nobody else touches the stream from the first event
// until Finish. Ownership: refers to stream, scheduler and flag, which outlive it; at its end it drops what isn't stored yet and
// waits for its job. Invariant: the stream gets the events in the order in which they came, and none behind one that it couldn't
// store; only so many wait.
#pragma once

#include "Host/Import/CaptureImporter.h"
#include "Session/Events/TraceEventStream.h"
#include "System/JobScheduler.h"
#include "System/Mutex.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace Host
{

class StreamSink final : public ITraceEventSink
{
public:
    StreamSink(Profiler::TraceEventStream& ioStream, System::JobScheduler& ioScheduler, const bool& inIsCanceled);
    ~StreamSink() override;

    StreamSink(const StreamSink&) = delete;
    StreamSink& operator=(const StreamSink&) = delete;

    // False also if an earlier event couldn't be stored.
    [[nodiscard]] bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool CheckGoesOn(Utility::ErrorState& ioErrors) override;

    // Waits until all events are stored, and flushes the stream. REQUIRES: no call has given false.
    [[nodiscard]] bool Finish(Utility::ErrorState& ioErrors);

private:
    // Used over and over, with the memory of the events' texts.
    struct Batch
    {
        std::vector<Profiler::TraceEvent> Events;
        size_t NumEvents = 0; // the first ones count
    };

    [[nodiscard]] bool HandOver(Utility::ErrorState& ioErrors);
    void TakeEmptyBatch() EXCLUDES(mMutex);
    [[nodiscard]] bool Enqueue() EXCLUDES(mMutex);
    [[nodiscard]] bool CheckStored(Utility::ErrorState& ioErrors) EXCLUDES(mMutex);
    void WaitForJob();

    // The job
    void StoreQueued();
    [[nodiscard]] bool TakeQueued(Batch& ioBatch) EXCLUDES(mMutex);
    [[nodiscard]] bool Store(const Batch& inBatch, Utility::ErrorState& ioErrors);

    System::JobScheduler& mScheduler;
    const bool& mIsCanceled;
    Batch mFilling;
    System::JobHandle mJob; // the last one

    Profiler::TraceEventStream& mStream; // the job's

    System::Mutex mMutex;
    std::deque<Batch> mQueue GUARDED_BY(mMutex);
    std::vector<Batch> mEmpty GUARDED_BY(mMutex);
    bool mHasJob GUARDED_BY(mMutex) = false;    // one that will look at the queue again
    bool mIsStopped GUARDED_BY(mMutex) = false; // nothing more is to be stored
    Utility::ErrorState mErrors GUARDED_BY(mMutex);
};

} // namespace Host
