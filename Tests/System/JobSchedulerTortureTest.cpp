// Random schedules. One test compares the order of jobs with a plain model, on a single thread; the other lets several threads
// schedule, nest, wait, cancel and reorder at once, and checks what must hold whatever happens.
#include "System/JobScheduler.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using namespace System;

class Random
{
public:
    explicit Random(uint64_t inSeed) : mEngine(inSeed) {}

    // 0 to inCount - 1
    uint32_t Pick(size_t inCount) { return static_cast<uint32_t>(mEngine() % inCount); }
    bool IsOneIn(size_t inCount) { return Pick(inCount) == 0; }
    uint64_t MakeSeed() { return mEngine(); }

private:
    std::mt19937_64 mEngine;
};

// The pending queue as anybody would write it: sort by priority and order of arrival, run the first.
class ModelQueue
{
public:
    void Add(uint32_t inID, uint8_t inPriority) { mEntries.push_back({inID, inPriority}); }

    void SetPriority(uint32_t inID, uint8_t inPriority)
    {
        if (Remove(inID))
            Add(inID, inPriority);
    }

    bool Remove(uint32_t inID)
    {
        return std::erase_if(mEntries, [inID](const Entry& inEntry) { return inEntry.ID == inID; }) > 0;
    }

    // The ids of the list in the order in which one thread that waits for them runs them.
    std::vector<uint32_t> Run(const std::vector<JobHandle>& inHandles)
    {
        std::vector<Entry> chosen;
        for (const Entry& entry : mEntries)
        {
            if (std::any_of(inHandles.begin(), inHandles.end(),
                            [&entry](const JobHandle& inHandle) { return inHandle.ID == entry.ID; }))
                chosen.push_back(entry);
        }
        std::stable_sort(chosen.begin(), chosen.end(),
                         [](const Entry& inFirst, const Entry& inSecond) { return inFirst.Priority < inSecond.Priority; });
        std::vector<uint32_t> ids;
        for (const Entry& entry : chosen)
        {
            ids.push_back(entry.ID);
            Remove(entry.ID);
        }
        return ids;
    }

private:
    struct Entry
    {
        uint32_t ID;
        uint8_t Priority;
    };

    std::vector<Entry> mEntries; // in order of arrival
};

TEST(JobSchedulerTortureTest, AWaitRunsJobsInTheOrderOfAPlainModel)
{
    constexpr int runCount = 40;
    constexpr int stepCount = 300;
    constexpr size_t priorityCount = 4;
    for (uint64_t seed = 1; seed <= runCount; ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        JobScheduler scheduler(0);
        ModelQueue model;
        std::vector<JobHandle> handles;
        std::vector<uint32_t> ran;
        for (int step = 0; step < stepCount; ++step)
        {
            const auto priority = static_cast<uint8_t>(random.Pick(priorityCount));
            const auto work = [&ran](Job& ioJob, const bool&) { ran.push_back(ioJob.Handle.ID); };
            const int32_t group = -2 - static_cast<int32_t>(random.Pick(3));
            handles.push_back(scheduler.ScheduleJob({.Work = work, .Group = group, .Priority = priority}));
            model.Add(handles.back().ID, priority);

            const JobHandle any = handles[random.Pick(handles.size())];
            if (random.IsOneIn(3))
            {
                scheduler.SetJobPriority(any, priority);
                model.SetPriority(any.ID, priority);
            }
            if (random.IsOneIn(5))
            {
                scheduler.CancelJobs(any);
                model.Remove(any.ID);
            }
            if (random.IsOneIn(20))
            {
                std::vector<JobHandle> some;
                std::copy_if(handles.begin(), handles.end(), std::back_inserter(some),
                             [&](const JobHandle&) { return random.IsOneIn(2); });
                ran.clear();
                scheduler.WaitForJobs(some);
                ASSERT_EQ(ran, model.Run(some));
            }
        }
    }
}

// What a job left behind.
struct Record
{
    JobHandle Handle;
    std::atomic<int> Starts = 0;
    std::atomic<int> Ends = 0;
    std::atomic<int> LiveClosures = 0;
    bool HasOnEvent = false;

    System::Mutex Mutex;
    std::vector<EJobEvent> Events GUARDED_BY(Mutex);
};

// Counts how many closures of a record live, however often they are copied and moved.
class ClosureToken
{
public:
    explicit ClosureToken(std::shared_ptr<Record> inRecord) : mRecord(std::move(inRecord)) { ++mRecord->LiveClosures; }
    ClosureToken(const ClosureToken& inOther) : ClosureToken(inOther.mRecord) {}
    ~ClosureToken() { --mRecord->LiveClosures; }

    ClosureToken& operator=(const ClosureToken&) = delete;

    Record& operator*() const { return *mRecord; }
    Record* operator->() const { return mRecord.get(); }

private:
    std::shared_ptr<Record> mRecord;
};

struct StormSettings
{
    bool IsCancelling;
    bool IsWaitingForAll; // before the scheduler is destroyed
};

// Several threads that use one scheduler at random. Jobs wait only for jobs that they have scheduled, whose groups are fresh, so
// that no wait can go round in a circle; the threads around them do as they like.
class Storm
{
public:
    Storm(uint64_t inSeed, StormSettings inSettings) : mSettings(inSettings), mRandom(inSeed) {}

    void Run()
    {
        std::vector<std::thread> threads;
        for (int index = 0; index < sDriverCount; ++index)
            threads.emplace_back([this, seed = mRandom.MakeSeed()]() { Drive(seed); });
        for (std::thread& thread : threads)
            thread.join();
        if (mSettings.IsWaitingForAll)
        {
            WaitForAll();
            ExpectEverythingEnded();
        }
        mSchedulerOwner.reset();
        ExpectSoundRecords();
    }

private:
    static constexpr uint32_t sWorkerCount = 2;
    static constexpr int sDriverCount = 3;
    static constexpr int sStepCount = 60;
    static constexpr int sMaximumDepth = 2;
    static constexpr int sSpinCount = 40;
    static constexpr size_t sSharedGroupCount = 4;
    static constexpr size_t sTagCount = 5;
    static constexpr size_t sPriorityCount = 3;
    static constexpr size_t sGroupSlotCount = 1U << 14U;

    using Description = std::pair<JobDescription, std::shared_ptr<Record>>;

    void Drive(uint64_t inSeed)
    {
        Random random(inSeed);
        for (int step = 0; step < sStepCount; ++step)
        {
            // Numbers of fresh groups count up from 0; those that jobs share are negative, and so never meet them.
            const auto group = random.IsOneIn(2) ? -1 : -2 - static_cast<int32_t>(random.Pick(sSharedGroupCount));
            Schedule(random, group, 0);
            Disturb(random);
            if (random.IsOneIn(6))
                mScheduler->WaitForJobs(PickHandles(random));
        }
    }

    void Disturb(Random& ioRandom)
    {
        const JobHandle handle = PickHandle(ioRandom);
        const auto match = static_cast<ECancelMatch>(ioRandom.Pick(3));
        mScheduler->SetJobPriority(handle, static_cast<uint8_t>(ioRandom.Pick(sPriorityCount)));
        if (!mSettings.IsCancelling)
            return;
        switch (ioRandom.Pick(12))
        {
        case 0:
            mScheduler->CancelJobs(handle);
            break;
        case 1:
            mScheduler->CancelJobsAndWait(PickHandles(ioRandom));
            break;
        case 2:
            mScheduler->CancelMatchingJobs(match, handle);
            break;
        case 3:
            mScheduler->CancelMatchingJobsAndWait(match, handle);
            break;
        case 4:
            mScheduler->CancelMatchingJobs(ioRandom.Pick(sTagCount));
            break;
        default:
            break;
        }
    }

    Description Describe(Random& ioRandom, int32_t inGroup, int inDepth)
    {
        auto record = std::make_shared<Record>();
        record->HasOnEvent = !ioRandom.IsOneIn(3);
        const ClosureToken token(record);

        JobDescription description{.Group = inGroup,
                                   .Tag = ioRandom.Pick(sTagCount),
                                   .Priority = static_cast<uint8_t>(ioRandom.Pick(sPriorityCount)),
                                   .IsDetached = ioRandom.IsOneIn(4)};
        description.Work = [this, token, seed = ioRandom.MakeSeed(), inDepth](Job& ioJob, const bool& inCanceled)
        { Work(*token, ioJob, inCanceled, seed, inDepth); };
        if (record->HasOnEvent)
        {
            description.OnEvent = [token](EJobEvent inEvent, Job&)
            {
                System::MutexLock lock(token->Mutex);
                token->Events.push_back(inEvent);
            };
        }
        return {std::move(description), std::move(record)};
    }

    std::vector<JobHandle> Schedule(Random& ioRandom, int32_t inGroup, int inDepth)
    {
        std::vector<JobDescription> descriptions;
        std::vector<std::shared_ptr<Record>> records;
        const uint32_t count = 1 + ioRandom.Pick(3);
        for (uint32_t index = 0; index < count; ++index)
        {
            auto [description, record] = Describe(ioRandom, inGroup, inDepth);
            descriptions.push_back(std::move(description));
            records.push_back(std::move(record));
        }
        std::vector<JobHandle> handles;
        if (count == 1)
            handles.push_back(mScheduler->ScheduleJob(std::move(descriptions.front())));
        else
            handles = mScheduler->ScheduleJobs(std::move(descriptions));

        System::MutexLock lock(mMutex);
        for (uint32_t index = 0; index < count; ++index)
        {
            records[index]->Handle = handles[index];
            mRecords.push_back(std::move(records[index]));
        }
        return handles;
    }

    void Work(Record& ioRecord, Job& ioJob, const bool& inCanceled, uint64_t inSeed, int inDepth)
    {
        ++ioRecord.Starts;
        std::atomic<int>& groupUsers = mGroupUsers[static_cast<uint32_t>(ioJob.Handle.Group) % sGroupSlotCount];
        EXPECT_EQ(++groupUsers, 1) << "two jobs of group " << ioJob.Handle.Group;
        EXPECT_EQ(mScheduler->GetCurrentJob(), &ioJob);

        Random random(inSeed);
        for (int spin = 0; spin < sSpinCount && !gIsCanceled(inCanceled); ++spin)
        {
            if (spin % 8 == 0)
                std::this_thread::yield();
        }
        if (inDepth < sMaximumDepth && random.IsOneIn(2))
            UseChildren(random, ioJob, inDepth);

        EXPECT_EQ(mScheduler->GetCurrentJob(), &ioJob);
        --groupUsers;
        ++ioRecord.Ends;
    }

    void UseChildren(Random& ioRandom, Job& ioJob, int inDepth)
    {
        const std::vector<JobHandle> children = Schedule(ioRandom, -1, inDepth + 1);
        if (mSettings.IsCancelling && ioRandom.IsOneIn(8))
            mScheduler->CancelMatchingJobs(ECancelMatch::Tree, ioJob.Handle);
        if (mSettings.IsCancelling && ioRandom.IsOneIn(6))
            mScheduler->CancelJobsAndWait(children);
        if (ioRandom.IsOneIn(2))
            mScheduler->WaitForJobs(children);
    }

    JobHandle PickHandle(Random& ioRandom)
    {
        System::MutexLock lock(mMutex);
        // Recent ones, as most of the others have ended.
        constexpr size_t window = 24;
        const size_t count = std::min(window, mRecords.size());
        return mRecords[mRecords.size() - 1 - ioRandom.Pick(count)]->Handle;
    }

    std::vector<JobHandle> PickHandles(Random& ioRandom)
    {
        std::vector<JobHandle> handles(1 + ioRandom.Pick(6));
        for (JobHandle& handle : handles)
            handle = PickHandle(ioRandom);
        return handles;
    }

    // Jobs that the last wait still saw running may have scheduled others.
    void WaitForAll()
    {
        size_t waitedCount = 0;
        for (;;)
        {
            std::vector<JobHandle> handles;
            {
                System::MutexLock lock(mMutex);
                for (const auto& record : mRecords)
                    handles.push_back(record->Handle);
            }
            if (handles.size() == waitedCount)
                return;
            mScheduler->WaitForJobs(handles);
            waitedCount = handles.size();
        }
    }

    void ExpectEverythingEnded()
    {
        System::MutexLock lock(mMutex);
        for (const auto& record : mRecords)
        {
            EXPECT_FALSE(mScheduler->IsJobActive(record->Handle));
            EXPECT_EQ(record->LiveClosures, 0);
            if (!mSettings.IsCancelling)
            {
                EXPECT_EQ(record->Starts, 1);
            }
        }
    }

    void ExpectSoundRecords()
    {
        System::MutexLock lock(mMutex);
        const std::vector<EJobEvent> finished{EJobEvent::Finished};
        const std::vector<EJobEvent> canceled{EJobEvent::CancelRequested, EJobEvent::Canceled};
        for (const auto& record : mRecords)
        {
            EXPECT_LE(record->Starts, record->Handle.IsValid() ? 1 : 0);
            EXPECT_EQ(record->Starts, record->Ends);
            EXPECT_EQ(record->LiveClosures, 0);
            System::MutexLock recordLock(record->Mutex);
            if (!record->HasOnEvent)
            {
                EXPECT_THAT(record->Events, testing::IsEmpty());
                continue;
            }
            EXPECT_THAT(record->Events, testing::AnyOf(finished, canceled));
            if (record->Starts == 0)
            {
                EXPECT_EQ(record->Events, canceled);
            }
        }
    }

    const StormSettings mSettings;
    Random mRandom;
    std::array<std::atomic<int>, sGroupSlotCount> mGroupUsers{};

    System::Mutex mMutex;
    std::vector<std::shared_ptr<Record>> mRecords GUARDED_BY(mMutex);

    // The owner's pointer is cleared before the destructor runs, but jobs go on using the scheduler during it.
    std::unique_ptr<JobScheduler> mSchedulerOwner = std::make_unique<JobScheduler>(sWorkerCount);
    JobScheduler* const mScheduler = mSchedulerOwner.get();
};

class JobSchedulerStormTest : public testing::TestWithParam<StormSettings>
{
};

TEST_P(JobSchedulerStormTest, EveryJobIsAccountedFor)
{
    constexpr uint64_t runCount = 12;
    for (uint64_t seed = 1; seed <= runCount; ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::make_unique<Storm>(seed, GetParam())->Run();
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Settings, JobSchedulerStormTest,
                         testing::Values(StormSettings{.IsCancelling = false, .IsWaitingForAll = true},
                                         StormSettings{.IsCancelling = true, .IsWaitingForAll = true},
                                         StormSettings{.IsCancelling = true, .IsWaitingForAll = false}),
                         [](const auto& inInfo)
                         {
                             return std::string(inInfo.param.IsCancelling ? "Cancelling" : "Undisturbed") +
                                    (inInfo.param.IsWaitingForAll ? "" : "UntilDestruction");
                         });

} // namespace
