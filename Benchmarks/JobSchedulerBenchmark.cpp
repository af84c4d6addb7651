// What the scheduler itself costs: jobs that do nothing, from scheduling to the end of the wait, with two workers.
#include "System/JobScheduler.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace
{

using System::Job;
using System::JobDescription;
using System::JobHandle;
using System::JobScheduler;

constexpr uint32_t sWorkerCount = 2;

JobDescription gDescribeEmptyJob(int32_t inGroup)
{
    return {.Work = [](Job&, const bool&) {}, .Group = inGroup};
}

// Schedules a batch one by one and waits for it, as a pass does for the derived data of a chunk.
void ScheduleAndWait(benchmark::State& ioState)
{
    JobScheduler scheduler(sWorkerCount);
    std::vector<JobHandle> handles(static_cast<size_t>(ioState.range(0)));
    for (auto _ : ioState)
    {
        for (JobHandle& handle : handles)
            handle = scheduler.ScheduleJob(gDescribeEmptyJob(System::sFreshJobGroup));
        scheduler.WaitForJobs(handles);
    }
    ioState.SetItemsProcessed(ioState.iterations() * ioState.range(0));
}
BENCHMARK(ScheduleAndWait)->Arg(1)->Arg(9)->Arg(100)->Arg(10000)->UseRealTime();

// The same with one call for the batch.
void ScheduleManyAndWait(benchmark::State& ioState)
{
    JobScheduler scheduler(sWorkerCount);
    const auto count = static_cast<size_t>(ioState.range(0));
    for (auto _ : ioState)
    {
        std::vector<JobDescription> descriptions;
        descriptions.reserve(count);
        for (size_t index = 0; index < count; ++index)
            descriptions.push_back(gDescribeEmptyJob(System::sFreshJobGroup));
        scheduler.WaitForJobs(scheduler.ScheduleJobs(std::move(descriptions)));
    }
    ioState.SetItemsProcessed(ioState.iterations() * ioState.range(0));
}
BENCHMARK(ScheduleManyAndWait)->Arg(9)->Arg(100)->Arg(10000)->UseRealTime();

// One group, so that one job at a time runs and every take goes past nothing or finds nothing.
void SerialGroup(benchmark::State& ioState)
{
    JobScheduler scheduler(sWorkerCount);
    std::vector<JobHandle> handles(static_cast<size_t>(ioState.range(0)));
    for (auto _ : ioState)
    {
        int32_t group = System::sFreshJobGroup;
        for (JobHandle& handle : handles)
        {
            handle = scheduler.ScheduleJob(gDescribeEmptyJob(group));
            group = handle.Group;
        }
        scheduler.WaitForJobs(handles);
    }
    ioState.SetItemsProcessed(ioState.iterations() * ioState.range(0));
}
BENCHMARK(SerialGroup)->Arg(100)->Arg(10000)->UseRealTime();

// Cancelling a queue of jobs that never start, by their tag.
void CancelPending(benchmark::State& ioState)
{
    constexpr uint32_t tag = 7;
    JobScheduler scheduler(0);
    for (auto _ : ioState)
    {
        for (int64_t index = 0; index < ioState.range(0); ++index)
        {
            JobDescription description = gDescribeEmptyJob(System::sFreshJobGroup);
            description.Tag = tag;
            scheduler.ScheduleJob(std::move(description));
        }
        scheduler.CancelMatchingJobs(tag);
    }
    ioState.SetItemsProcessed(ioState.iterations() * ioState.range(0));
}
BENCHMARK(CancelPending)->Arg(100)->Arg(10000)->UseRealTime();

} // namespace
