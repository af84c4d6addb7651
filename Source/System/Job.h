// The records of the job scheduler: what a caller asks for, what it gets back, and the job itself.
//
// Threads: a handle is a plain value. A job belongs to its scheduler and is touched by the thread that runs it and, under the
// scheduler's mutex, by those that cancel it. Ownership: the scheduler's active table owns jobs; a reference that Work or OnEvent
// is given ends with the call. Invariant: a handle may be used as long as its scheduler lives; one whose job has ended means
// "finished".
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace System
{

class Job;

// The number that stands for none in every field of a handle.
inline constexpr uint32_t sNoJobNumber = ~uint32_t{0};

// The group of a description that leaves the choice to the scheduler: the job gets a group of its own.
inline constexpr int32_t sFreshJobGroup = -1;

// Names a job, before and after its end. A default handle is the invalid one, all bytes 0xFF.
struct JobHandle
{
    uint32_t ID = sNoJobNumber;     // unique per job, from 1
    int32_t Group = sFreshJobGroup; // jobs of one group never run at the same time
    uint32_t Tree = sNoJobNumber;   // shared by a job and the jobs that it schedules from inside itself
    uint32_t Tag = sNoJobNumber;    // the caller's own key for cancelling many jobs at once

    [[nodiscard]] bool IsValid() const { return ID != sNoJobNumber; }

    bool operator==(const JobHandle&) const = default;
};

static_assert(sizeof(JobHandle) == 4 * sizeof(uint32_t));

// What OnEvent is told. A job ends with exactly one of Canceled and Finished, and CancelRequested comes before, if at all.
enum class EJobEvent : uint32_t
{
    CancelRequested = 0,
    Canceled = 1, // the job was cancelled; Work has returned or will never run
    Finished = 2, // Work has returned, and nobody cancelled the job before that
};

// Why a job was cancelled. The concrete types belong to whoever cancels.
class IJobCancelData
{
public:
    virtual ~IJobCancelData() = default;
};

using JobWork = std::function<void(Job& ioJob, const bool& inCanceled)>;
using JobEventFunction = std::function<void(EJobEvent inEvent, Job& ioJob)>;

// The priority of a description that doesn't say. A lower value runs earlier.
inline constexpr uint8_t sDefaultJobPriority = 1;

// What a caller of JobScheduler::ScheduleJob fills in.
struct JobDescription
{
    // Runs on a worker or on a thread that waits for the job. Polls gIsCanceled(inCanceled) as often as it wants to end early.
    JobWork Work = {};
    int32_t Group = sFreshJobGroup;
    uint32_t Tag = sNoJobNumber;
    uint8_t Priority = sDefaultJobPriority;
    // Told of a cancellation and of the end of the job. Called on the thread that runs the job, on one that cancels it, or on the
    // one that schedules it, so it must be callable from any, also while Work runs. The job is still active during the call; it
    // must not wait for the job itself, nor for another job that the same call cancels.
    JobEventFunction OnEvent = {};
    bool IsDetached = false; // has no parent, even when it is scheduled from inside a job
};

// One scheduled job. Whoever gets a reference may read Handle, and CancelData once gIsCanceled has told that the job was
// cancelled; everything else is the scheduler's.
class Job
{
public:
    Job() = default;
    virtual ~Job() = default;

    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    JobWork Work;
    bool Canceled = false;                      // written under the scheduler's mutex; read with gIsCanceled
    bool IsAlive = true;                        // until Work has returned
    std::unique_ptr<IJobCancelData> CancelData; // null unless the one who cancelled gave some to this job
    JobEventFunction OnEvent;
    std::function<void(Job&)> FinishHook; // holds the end of a job back until OnEvent has been told CancelRequested
    JobHandle Handle;
    uint8_t Priority = sDefaultJobPriority;
};

// How Work polls the flag that it was given: an atomic read, which the compiler can't move out of a loop, for the price of a
// plain one. After a true, everything that was written before the cancellation can be seen, Job::CancelData included.
[[nodiscard]] inline bool gIsCanceled(const bool& inCanceled)
{
    return __atomic_load_n(&inCanceled, __ATOMIC_ACQUIRE);
}

} // namespace System
