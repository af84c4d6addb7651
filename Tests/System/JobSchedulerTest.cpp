#include "System/JobScheduler.h"

#include <gmock/gmock.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace System;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int sRaceRepetitions = 200;

// Where a job stands still until the test lets it go on.
struct Gate
{
    std::latch Reached{1};
    std::latch Opened{1};

    void Pass()
    {
        Reached.count_down();
        Opened.wait();
    }
};

// A list that any thread appends to.
template <class T>
class SharedList
{
public:
    void Add(T inValue)
    {
        System::MutexLock lock(mMutex);
        mValues.push_back(std::move(inValue));
    }

    std::vector<T> Get() const
    {
        System::MutexLock lock(mMutex);
        return mValues;
    }

private:
    mutable System::Mutex mMutex;
    std::vector<T> mValues GUARDED_BY(mMutex);
};

using EventList = SharedList<EJobEvent>;

class NamedCancelData final : public System::IJobCancelData
{
public:
    explicit NamedCancelData(std::string inName) : Name(std::move(inName)) {}

    std::string Name;
};

std::string gGetCancelName(const Job& inJob)
{
    const auto* data = static_cast<const NamedCancelData*>(inJob.CancelData.get());
    return data != nullptr ? data->Name : "none";
}

void gSpinUntilCanceled(Job&, const bool& inCanceled)
{
    while (!gIsCanceled(inCanceled))
        std::this_thread::yield();
}

class JobSchedulerTest : public testing::Test
{
protected:
    void MakeScheduler(uint32_t inThreadCount) { mScheduler.emplace(inThreadCount); }

    JobHandle Schedule(System::JobWork inWork, uint8_t inPriority = 1, int32_t inGroup = -1, uint32_t inTag = 0)
    {
        return mScheduler->ScheduleJob({.Work = std::move(inWork), .Group = inGroup, .Tag = inTag, .Priority = inPriority});
    }

    JobHandle ScheduleNamed(const std::string& inName, uint8_t inPriority = 1, int32_t inGroup = -1)
    {
        return Schedule([this, inName](Job&, const bool&) { mOrder.Add(inName); }, inPriority, inGroup);
    }

    // A job that reports its events to ioEvents.
    JobHandle ScheduleWatched(EventList& ioEvents, System::JobWork inWork, int32_t inGroup = -1)
    {
        const auto onEvent = [&ioEvents](EJobEvent inEvent, Job&) { ioEvents.Add(inEvent); };
        return mScheduler->ScheduleJob({.Work = std::move(inWork), .Group = inGroup, .OnEvent = onEvent});
    }

    // Returns when a worker has begun the job, which then waits for the gate. The job shares the gate, as it may still be passing
    // it when the test ends.
    JobHandle ScheduleBlocker(const std::shared_ptr<Gate>& inGate, int32_t inGroup = -1)
    {
        const JobHandle handle = Schedule([inGate](Job&, const bool&) { inGate->Pass(); }, 0, inGroup);
        inGate->Reached.wait();
        return handle;
    }

    // Lets the workers alone run what is pending. A wait would take jobs from them, and so change their order.
    void LetWorkersFinish(int32_t inGroup = -1)
    {
        std::latch done(1);
        Schedule([&done](Job&, const bool&) { done.count_down(); }, 255, inGroup);
        done.wait();
    }

    SharedList<std::string> mOrder;
    std::optional<JobScheduler> mScheduler;
};

TEST_F(JobSchedulerTest, HandlesAreNumberedFromTheSchedulersCounters)
{
    MakeScheduler(0);
    EXPECT_EQ(Schedule({}, 1, -1, 77), (JobHandle{.ID = 1, .Group = 0, .Tree = 0, .Tag = 77}));
    EXPECT_EQ(Schedule({}, 1, 40, 78), (JobHandle{.ID = 2, .Group = 40, .Tree = 1, .Tag = 78}));

    const std::vector<JobHandle> handles = mScheduler->ScheduleJobs(std::vector<JobDescription>(2));
    EXPECT_THAT(handles, ElementsAre(JobHandle{.ID = 3, .Group = 1, .Tree = 2}, JobHandle{.ID = 4, .Group = 2, .Tree = 3}));

    std::array<unsigned char, sizeof(JobHandle)> bytes{};
    const JobHandle invalid;
    std::memcpy(bytes.data(), &invalid, sizeof(invalid));
    EXPECT_THAT(bytes, testing::Each(0xFF));
}

TEST_F(JobSchedulerTest, JobsOfOneGroupNeverOverlapAndOthersOvertake)
{
    MakeScheduler(2);
    const auto gate = std::make_shared<Gate>();
    ScheduleBlocker(gate, -9);
    ScheduleNamed("second of the group", 1, -9);
    std::latch otherRan(1);
    Schedule(
        [&](Job&, const bool&)
        {
            mOrder.Add("other group");
            otherRan.count_down();
        },
        2);
    otherRan.wait();
    mOrder.Add("gate opens");
    gate->Opened.count_down();
    ScheduleNamed("third of the group", 1, -9);
    LetWorkersFinish(-9);
    EXPECT_THAT(mOrder.Get(), ElementsAre("other group", "gate opens", "second of the group", "third of the group"));
}

TEST_F(JobSchedulerTest, LowerPriorityValuesOvertakeAndEqualOnesKeepTheirOrder)
{
    MakeScheduler(1);
    const auto gate = std::make_shared<Gate>();
    const JobHandle blocker = ScheduleBlocker(gate);
    const JobHandle moved = ScheduleNamed("moved", 1);
    ScheduleNamed("2a", 2);
    ScheduleNamed("1a", 1);
    const JobHandle raised = ScheduleNamed("raised", 200);
    ScheduleNamed("2b", 2);
    ScheduleNamed("1b", 1);
    mScheduler->SetJobPriority(moved, 2);
    mScheduler->SetJobPriority(raised, 0);
    mScheduler->SetJobPriority(blocker, 3);
    mScheduler->SetJobPriority(JobHandle(), 3);
    gate->Opened.count_down();
    LetWorkersFinish();
    EXPECT_THAT(mOrder.Get(), ElementsAre("raised", "1a", "1b", "2a", "2b", "moved"));
}

TEST_F(JobSchedulerTest, NestedJobsInheritTheTreeUnlessDetached)
{
    MakeScheduler(1);
    JobHandle inside;
    std::vector<JobHandle> children;
    const JobHandle parent = Schedule(
        [&](Job&, const bool&)
        {
            inside = mScheduler->GetCurrentJobHandle();
            children = mScheduler->ScheduleJobs(std::vector<JobDescription>(1));
            children.push_back(mScheduler->ScheduleJob({.IsDetached = true}));
            mScheduler->WaitForJobs(children);
        });
    mScheduler->WaitForJobs(parent);
    EXPECT_EQ(inside, parent);
    EXPECT_EQ(children[0].Tree, parent.Tree);
    EXPECT_NE(children[0].Group, parent.Group);
    EXPECT_NE(children[1].Tree, parent.Tree);
}

TEST_F(JobSchedulerTest, ACancelledParentRefusesChildrenButNotDetachedOnes)
{
    MakeScheduler(1);
    EventList childEvents;
    std::vector<JobHandle> handles;
    std::atomic<int> runs = 0;
    const auto describe = [&](bool inIsDetached)
    {
        const auto onEvent = [&, inIsDetached](EJobEvent inEvent, Job& ioJob)
        {
            EXPECT_EQ(ioJob.Handle.IsValid(), inIsDetached);
            childEvents.Add(inEvent);
        };
        return JobDescription{.Work = [&runs](Job&, const bool&) { ++runs; }, .OnEvent = onEvent, .IsDetached = inIsDetached};
    };
    const auto work = [&](Job& ioJob, const bool& inCanceled)
    {
        mScheduler->CancelJobs(ioJob.Handle);
        EXPECT_TRUE(gIsCanceled(inCanceled));
        handles = {mScheduler->ScheduleJob(describe(false))};
        const std::vector<JobHandle> more = mScheduler->ScheduleJobs({describe(true), describe(false)});
        handles.insert(handles.end(), more.begin(), more.end());
        mScheduler->WaitForJobs(more);
    };
    mScheduler->WaitForJobs(Schedule(work));
    EXPECT_FALSE(handles[0].IsValid() || handles[2].IsValid());
    EXPECT_TRUE(handles[1].IsValid());
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(childEvents.Get(),
                testing::UnorderedElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled, EJobEvent::CancelRequested,
                                              EJobEvent::Canceled, EJobEvent::Finished));
}

TEST_F(JobSchedulerTest, CancellingAPendingJobDropsItAtOnce)
{
    MakeScheduler(0);
    EventList events;
    const auto token = std::make_shared<int>();
    bool hasRun = false;
    const JobHandle handle = ScheduleWatched(events, [&hasRun, token](Job&, const bool&) { hasRun = true; });
    const JobHandle silent = Schedule([&hasRun, token](Job&, const bool&) { hasRun = true; });
    mScheduler->WaitForJobs(std::vector<JobHandle>());
    mScheduler->CancelJobsAndWait(std::vector<JobHandle>());
    mScheduler->CancelJobs(std::vector{handle, silent, handle, JobHandle()});
    EXPECT_FALSE(mScheduler->IsJobActive(handle));
    EXPECT_FALSE(mScheduler->IsJobActive(silent));
    EXPECT_EQ(token.use_count(), 1);
    mScheduler->WaitForJobs(std::vector{handle, JobHandle(), silent, handle});
    EXPECT_FALSE(hasRun);
    EXPECT_THAT(events.Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
}

TEST_F(JobSchedulerTest, CallbacksOfACancelComeFirstRequestedThenDroppedFromTheBack)
{
    MakeScheduler(0);
    SharedList<std::string> calls;
    std::vector<JobHandle> handles;
    for (const char* name : {"a", "b"})
    {
        const auto onEvent = [&calls, name](EJobEvent inEvent, Job&)
        { calls.Add(std::string(inEvent == EJobEvent::CancelRequested ? "request " : "cancel ") + name); };
        handles.push_back(mScheduler->ScheduleJob({.OnEvent = onEvent}));
    }
    mScheduler->CancelJobs(handles);
    EXPECT_THAT(calls.Get(), ElementsAre("request a", "request b", "cancel b", "cancel a"));
}

TEST_F(JobSchedulerTest, TheEndOfARunningJobWaitsForItsCancelRequest)
{
    MakeScheduler(1);
    for (int repetition = 0; repetition < sRaceRepetitions; ++repetition)
    {
        EventList events;
        std::latch hasBegun(1);
        std::latch isEnding(1);
        const auto onEvent = [&](EJobEvent inEvent, Job&)
        {
            if (inEvent == EJobEvent::CancelRequested)
                isEnding.wait();
            events.Add(inEvent);
        };
        const auto work = [&](Job& ioJob, const bool& inCanceled)
        {
            hasBegun.count_down();
            gSpinUntilCanceled(ioJob, inCanceled);
            isEnding.count_down();
        };
        const JobHandle handle = mScheduler->ScheduleJob({.Work = work, .OnEvent = onEvent});
        hasBegun.wait();
        mScheduler->CancelJobsAndWait(handle);
        ASSERT_THAT(events.Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
    }
}

TEST_F(JobSchedulerTest, AJobThatCancelsItselfOrItsTreeEnds)
{
    MakeScheduler(2);
    EventList events;
    EventList childEvents;
    const auto work = [&](Job& ioJob, const bool&)
    {
        const JobHandle child = ScheduleWatched(childEvents, gSpinUntilCanceled);
        mScheduler->CancelMatchingJobs(ECancelMatch::Tree, ioJob.Handle);
        mScheduler->CancelJobs(ioJob.Handle);
        mScheduler->WaitForJobs(child);
    };
    mScheduler->WaitForJobs(ScheduleWatched(events, work));
    EXPECT_THAT(events.Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
    EXPECT_THAT(childEvents.Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
}

TEST_F(JobSchedulerTest, OnlyTheFirstCancelCountsAndOnlyItsFirstJobGetsTheData)
{
    MakeScheduler(3);
    std::latch begun(2);
    std::latch mayEnd(1);
    SharedList<std::string> names;
    EventList events;
    const auto work = [&](Job& ioJob, const bool& inCanceled)
    {
        begun.count_down();
        gSpinUntilCanceled(ioJob, inCanceled);
        names.Add(std::to_string(ioJob.Handle.ID) + gGetCancelName(ioJob));
        mayEnd.wait();
    };
    const JobHandle ended = Schedule({});
    mScheduler->WaitForJobs(ended);
    const std::vector<JobHandle> handles{ended, ScheduleWatched(events, work), Schedule(work)};
    begun.wait();
    mScheduler->CancelJobs(handles, std::make_unique<NamedCancelData>("why"));
    mScheduler->CancelJobs(handles, std::make_unique<NamedCancelData>("again"));
    mayEnd.count_down();
    mScheduler->CancelJobsAndWait(handles, std::make_unique<NamedCancelData>("late"));
    EXPECT_THAT(names.Get(), testing::UnorderedElementsAre("2why", "3none"));
    EXPECT_THAT(events.Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
}

TEST_F(JobSchedulerTest, CancelMatchingFindsJobsByTreeGroupAndTag)
{
    MakeScheduler(0);
    const auto schedule = [&](int32_t inGroup, uint32_t inTag) { return Schedule({}, 1, inGroup, inTag); };
    const std::vector<JobHandle> handles{schedule(-5, 1), schedule(-5, 2), schedule(-6, 2), schedule(-6, 3), schedule(-6, 4)};
    const auto getActive = [&]()
    {
        std::vector<size_t> indices;
        for (size_t index = 0; index < handles.size(); ++index)
        {
            if (mScheduler->IsJobActive(handles[index]))
                indices.push_back(index);
        }
        return indices;
    };
    mScheduler->CancelMatchingJobs(ECancelMatch::Group, handles[0]);
    EXPECT_THAT(getActive(), ElementsAre(2, 3, 4));
    mScheduler->CancelMatchingJobs(2);
    EXPECT_THAT(getActive(), ElementsAre(3, 4));
    mScheduler->CancelMatchingJobs(ECancelMatch::Tag, handles[3]);
    EXPECT_THAT(getActive(), ElementsAre(4));
    mScheduler->CancelMatchingJobsAndWait(ECancelMatch::Group, JobHandle());
    EXPECT_THAT(getActive(), ElementsAre(4));
    mScheduler->CancelMatchingJobsAndWait(ECancelMatch::Tree, handles[4]);
    EXPECT_THAT(getActive(), IsEmpty());
}

TEST_F(JobSchedulerTest, CancelAndWaitReturnsAfterTheLastCallbackOfEveryJobOfATree)
{
    MakeScheduler(2);
    std::latch begun(2);
    EventList events;
    const auto spin = [&begun](Job& ioJob, const bool& inCanceled)
    {
        begun.count_down();
        gSpinUntilCanceled(ioJob, inCanceled);
    };
    const auto work = [&](Job& ioJob, const bool& inCanceled)
    {
        ScheduleWatched(events, spin);
        spin(ioJob, inCanceled);
    };
    const JobHandle parent = ScheduleWatched(events, work);
    begun.wait();
    mScheduler->CancelMatchingJobsAndWait(ECancelMatch::Tree, parent);
    const std::vector<EJobEvent> seen = events.Get();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), EJobEvent::Canceled), 2);
}

TEST_F(JobSchedulerTest, AWaitRunsItsPendingJobsOnTheWaitingThread)
{
    MakeScheduler(1);
    const auto gate = std::make_shared<Gate>();
    ScheduleBlocker(gate);
    std::vector<JobHandle> handles;
    std::vector<std::thread::id> threads;
    const auto work = [&](Job& ioJob, const bool&)
    {
        threads.push_back(std::this_thread::get_id());
        EXPECT_EQ(mScheduler->GetCurrentJob(), &ioJob);
        EXPECT_FALSE(mScheduler->IsWorkerThread());
    };
    const JobHandle outer = Schedule(
        [&](Job& ioJob, const bool& inCanceled)
        {
            mScheduler->WaitForJobs(Schedule(work));
            work(ioJob, inCanceled);
        },
        2);
    const JobHandle unrelated = ScheduleNamed("unrelated", 1);
    mScheduler->WaitForJobs(outer);
    EXPECT_THAT(threads, ElementsAre(std::this_thread::get_id(), std::this_thread::get_id()));
    EXPECT_EQ(mScheduler->GetCurrentJob(), nullptr);
    EXPECT_TRUE(mScheduler->IsJobActive(unrelated));
    gate->Opened.count_down();
}

TEST_F(JobSchedulerTest, OutsideOfJobsAndInCallbacksThereIsNoCurrentJob)
{
    MakeScheduler(1);
    EXPECT_EQ(mScheduler->GetCurrentJobHandle(), JobHandle());
    SharedList<Job*> seen;
    const JobHandle handle = mScheduler->ScheduleJob({.OnEvent = [&](EJobEvent, Job& ioJob)
                                                      {
                                                          seen.Add(mScheduler->GetCurrentJob());
                                                          EXPECT_TRUE(mScheduler->IsJobActive(ioJob.Handle));
                                                      }});
    mScheduler->WaitForJobs(handle);
    EXPECT_THAT(seen.Get(), ElementsAre(nullptr));
}

TEST_F(JobSchedulerTest, WorkersAreNamedAndMarked)
{
    MakeScheduler(2);
    JobScheduler other(0);
    std::latch bothRun(2);
    std::vector<JobHandle> handles;
    SharedList<std::string> names;
    for (int count = 0; count < 2; ++count)
    {
        handles.push_back(Schedule(
            [&](Job&, const bool&)
            {
                std::array<char, 16> name{};
                prctl(PR_GET_NAME, name.data(), 0, 0, 0);
                names.Add(name.data());
                EXPECT_TRUE(mScheduler->IsWorkerThread());
                EXPECT_FALSE(other.IsWorkerThread());
                EXPECT_EQ(other.GetCurrentJob(), nullptr);
                bothRun.arrive_and_wait();
            }));
    }
    // Only now, or this thread would run one of them.
    bothRun.wait();
    mScheduler->WaitForJobs(handles);
    EXPECT_THAT(names.Get(), testing::UnorderedElementsAre("Job Scheduler 1", "Job Scheduler 2"));
}

// The destructor of a closure may use the scheduler, and must have run when a wait for its job returns.
TEST_F(JobSchedulerTest, ClosuresAreGoneWhenAWaitReturns)
{
    MakeScheduler(2);
    for (int repetition = 0; repetition < sRaceRepetitions; ++repetition)
    {
        bool isDestroyed = false;
        const auto destroy = [&](int*)
        {
            EXPECT_FALSE(mScheduler->IsJobActive(JobHandle()));
            isDestroyed = true;
        };
        std::shared_ptr<int> token(nullptr, destroy);
        const JobHandle handle = Schedule([held = std::move(token)](Job&, const bool&) {});
        if (repetition % 2 == 0)
            mScheduler->WaitForJobs(handle);
        else
            mScheduler->CancelJobsAndWait(handle);
        ASSERT_TRUE(isDestroyed);
    }
}

// Regression: a thread that waits for a job while another one drops it slept until some other job ended.
TEST_F(JobSchedulerTest, DroppingAJobWakesThoseWhoWaitForIt)
{
    MakeScheduler(1);
    const auto gate = std::make_shared<Gate>();
    ScheduleBlocker(gate, -5);
    for (int repetition = 0; repetition < sRaceRepetitions; ++repetition)
    {
        std::latch isWaiting(1);
        std::thread waiter;
        JobHandle handle;
        const auto onEvent = [&](EJobEvent inEvent, Job&)
        {
            if (inEvent != EJobEvent::Canceled)
                return;
            waiter = std::thread(
                [&]()
                {
                    isWaiting.count_down();
                    mScheduler->WaitForJobs(handle);
                });
            isWaiting.wait();
        };
        handle = mScheduler->ScheduleJob({.Group = -5, .OnEvent = onEvent});
        mScheduler->CancelJobs(handle);
        waiter.join();
    }
    gate->Opened.count_down();
}

// Regression: with every worker asleep, a job whose group a waiting thread released was left lying.
TEST_F(JobSchedulerTest, AWorkerTakesTheJobWhoseGroupAWaitingThreadReleases)
{
    MakeScheduler(1);
    for (int repetition = 0; repetition < sRaceRepetitions; ++repetition)
    {
        const auto gate = std::make_shared<Gate>();
        const JobHandle blocker = ScheduleBlocker(gate);
        std::latch hasRun(1);
        const JobHandle handle = Schedule(
            [&](Job& ioJob, const bool&)
            {
                Schedule([&hasRun](Job&, const bool&) { hasRun.count_down(); }, 1, ioJob.Handle.Group);
                gate->Opened.count_down();
                while (mScheduler->IsJobActive(blocker))
                    std::this_thread::yield();
            });
        mScheduler->WaitForJobs(handle);
        hasRun.wait();
        LetWorkersFinish();
    }
}

TEST_F(JobSchedulerTest, DestructionCancelsEverythingAndLetsWaitingJobsGo)
{
    MakeScheduler(2);
    EventList running;
    EventList pending;
    EventList late;
    std::latch begun(1);
    JobScheduler& scheduler = *mScheduler;
    const auto scheduleLate = [&](EJobEvent inEvent, Job&)
    {
        running.Add(inEvent);
        if (inEvent == EJobEvent::Canceled)
            scheduler.ScheduleJob(
                {.Work = gSpinUntilCanceled, .OnEvent = [&late](EJobEvent inLateEvent, Job&) { late.Add(inLateEvent); }});
    };
    const auto work = [&begun](Job& ioJob, const bool& inCanceled)
    {
        begun.count_down();
        gSpinUntilCanceled(ioJob, inCanceled);
    };
    const JobHandle handle = mScheduler->ScheduleJob({.Work = work, .Group = -5, .OnEvent = scheduleLate});
    ScheduleWatched(pending, work, -5);
    begun.wait();
    std::latch isWaiting(1);
    Schedule(
        [&](Job&, const bool&)
        {
            isWaiting.count_down();
            scheduler.WaitForJobs(handle);
        });
    isWaiting.wait();
    mScheduler.reset();
    for (const EventList* events : {&running, &pending, &late})
        EXPECT_THAT(events->Get(), ElementsAre(EJobEvent::CancelRequested, EJobEvent::Canceled));
}

} // namespace
