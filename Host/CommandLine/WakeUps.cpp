#include "Host/CommandLine/WakeUps.h"

#include "Host/CommandLine/TimelineText.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace Host
{

using namespace Profiler;

namespace
{

constexpr size_t sMostLinks = 1000;

} // namespace

std::vector<ReadyRecord> gGetWakeUps(const ThreadsModel& inModel, double inStartMs, double inEndMs)
{
    const ReadyThreadData& data = inModel.GetReadyThreadData();
    // The query takes what is in memory.
    std::vector<TypedChunkHandle<ReadyThreadChunk>> chunks;
    for (size_t level = 0; level < data.GetLevels().size(); ++level)
        for (size_t i = 0; i < data.GetLevels()[level].size(); ++i)
        {
            const ReadyThreadChunkHeader& header = data.GetLevels()[level][i];
            if (header.Start <= inEndMs && header.End >= inStartMs)
                chunks.push_back(gLoadReadyChunk(data, level, i));
        }

    // Nothing is faded and no scale too coarse, so all levels are taken.
    ReadyThreadsResult result;
    data.GetReadyThreads(sNoReadyRecord, sNoReadyRecord, {}, result, inStartMs, inEndMs, std::numeric_limits<float>::max(), 0.0F,
                         0.0F);
    std::vector<ReadyRecord> records;
    for (const ReadyThreadsResult::RecordList* list : {&result.Primary, &result.Secondary})
        for (const auto& [record, id] : *list)
        {
            if (record->ReadyTime >= inStartMs) // the one before the span is there for views
                records.push_back(*record);
        }
    const auto key = [](const ReadyRecord& inRecord) { return std::tuple(inRecord.ReadyTime, inRecord.ReadiedThreadID); };
    std::sort(records.begin(), records.end(),
              [&key](const ReadyRecord& inOne, const ReadyRecord& inOther) { return key(inOne) < key(inOther); });
    return records;
}

WaitChain gFollowWaits(const ThreadsModel& inModel, ThreadID inThread, double inTimeMs)
{
    const ThreadStates states(inModel);
    WaitChain chain;
    std::optional<ThreadStateSpan> wait = states.FindAt(inThread, inTimeMs);
    if (!wait.has_value() || !wait->IsWait())
    {
        chain.End = wait.has_value() ? EChainEnd::Ran : EChainEnd::Unknown;
        return chain;
    }
    for (ThreadID thread = inThread;;)
    {
        const ChainLink& link = chain.Links.emplace_back(ChainLink{thread, *wait, states.FindWakeUp(*wait)});
        if (!link.WakeUp.has_value() || link.WakeUp->ReadyingThreadID == -1)
        {
            chain.End = wait->State == ThreadState::Preemption ? EChainEnd::Preempted : EChainEnd::NoWakeUp;
            return chain;
        }
        if (gDescribeLeaf(inModel.GetSession(), link.WakeUp->ReadyStack, link.WakeUp->ReadyingThreadID, link.WakeUp->ReadyTime)
                .IsInterrupt)
        {
            chain.End = EChainEnd::Interrupt;
            return chain;
        }
        const double wokenAt = link.WakeUp->ReadyTime;
        thread = link.WakeUp->ReadyingThreadID;
        // What the waking thread had to wait for itself has held up the wait; what lies before the wait has not.
        const double waitStart = wait->Start;
        wait = states.FindLastWait(thread, wokenAt);
        if (!wait.has_value() || wait->End <= waitStart)
        {
            chain.End = EChainEnd::Ran;
            if (const auto ran = states.FindAt(thread, wokenAt))
                chain.Links.push_back({thread, *ran, std::nullopt});
            return chain;
        }
        if (chain.Links.size() == sMostLinks)
        {
            chain.End = EChainEnd::TooLong;
            return chain;
        }
    }
}

} // namespace Host
