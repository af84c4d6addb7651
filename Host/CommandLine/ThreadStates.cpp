#include "Host/CommandLine/ThreadStates.h"

#include "Session/Pass/ChunkTime.h"

#include <future>
#include <memory>

namespace Host
{

using namespace Profiler;

namespace
{

using SpanChunk = TypedChunkHandle<OverviewChunk>;

// The last span of the chunk that is wanted and begins at the time or before.
template <class IsWanted>
std::optional<ThreadStateSpan> gFindLastInChunk(const OverviewChunk& inChunk, double inTimeMs, const IsWanted& inIsWanted)
{
    for (size_t i = inChunk.GetEntryCount(); i-- != 0;)
    {
        const OverviewChunk::EntryReference entry = inChunk.GetEntry(i);
        if (entry.Type != EOverviewEntryType::SingleState)
            continue;
        const auto& single = entry.As<SingleStateEntry>();
        const ThreadStateSpan span{single.State, single.RealStart, single.RealEnd, single.Stack, single.ReadyIndex};
        if (span.Start <= inTimeMs && inIsWanted(span))
            return span;
    }
    return std::nullopt;
}

} // namespace

// From the chunk of the time backwards.
template <class IsWanted>
std::optional<ThreadStateSpan> ThreadStates::FindLast(ThreadID inThread, double inTimeMs, const IsWanted& inIsWanted) const
{
    const DetailLOD& level = mModel.GetDetailLOD(0);
    const DetailLODThread* thread = level.GetThread(inThread);
    if (thread == nullptr)
        return std::nullopt;
    constexpr auto mask = static_cast<uint8_t>(EChunkType::Overview);
    const float length = level.GetChunkLength();
    ChunkDescription description;
    bool isThere = thread->GetChunkTable().GetChunk(length, inTimeMs, description) && description.HasDataTypes(mask);
    if (!isThere)
        isThere = thread->GetChunkTable().FindPreviousChunk(mask, length, inTimeMs, description);
    while (isThere)
    {
        const SpanChunk chunk(
            mModel.GetStreamingManager().BlockingLoad(*thread, description, EChunkType::Overview, EChunkUnloadMode::Immediate));
        if (chunk)
        {
            if (const auto span = gFindLastInChunk(*chunk, inTimeMs, inIsWanted))
                return span;
        }
        isThere =
            thread->GetChunkTable().FindPreviousChunk(mask, length, ChunkStartOfIndex(description.mIndex, length), description);
    }
    return std::nullopt;
}

std::optional<ThreadStateSpan> ThreadStates::FindAt(ThreadID inThread, double inTimeMs) const
{
    // The last span that begins ahead of the time tells all: those before it have ended.
    const auto span = FindLast(inThread, inTimeMs, [](const ThreadStateSpan&) { return true; });
    return span.has_value() && inTimeMs < span->End ? span : std::nullopt;
}

std::optional<ThreadStateSpan> ThreadStates::FindLastWait(ThreadID inThread, double inTimeMs) const
{
    return FindLast(inThread, inTimeMs,
                    [inTimeMs](const ThreadStateSpan& inSpan) { return inSpan.IsWait() && inSpan.End <= inTimeMs; });
}

std::optional<ReadyRecord> ThreadStates::FindWakeUp(const ThreadStateSpan& inWait) const
{
    const ReadyThreadData& data = mModel.GetReadyThreadData();
    const uint32_t id = data.GetRecordID(inWait.ReadyIndex);
    if (id == sNoReadyRecord)
        return std::nullopt;
    const size_t number = id & sReadyIDNumberMask;
    const auto chunk = gLoadReadyChunk(data, id >> sReadyIDLevelShift, number / ReadyThreadChunk::sMaxRecords);
    const size_t position = number % ReadyThreadChunk::sMaxRecords;
    if (!chunk || position >= chunk->GetRecords().size())
        return std::nullopt;
    return chunk->GetRecords()[position];
}

TypedChunkHandle<ReadyThreadChunk> gLoadReadyChunk(const ReadyThreadData& inData, size_t inLevel, size_t inChunk)
{
    if (inLevel >= inData.GetLevels().size() || inChunk >= inData.GetLevels()[inLevel].size())
        return {};
    // Shared, since the callback may still be on its way out of it when the wait ends.
    const auto arrived = std::make_shared<std::promise<void>>();
    // Keeps the chunk until it is asked for again: this handle doesn't learn of its arrival.
    const TypedChunkHandle<ReadyThreadChunk> waiting =
        inData.LoadChunk(inLevel, inChunk, [arrived](Chunk*) { arrived->set_value(); });
    arrived->get_future().wait();
    return inData.LoadChunk(inLevel, inChunk, {});
}

} // namespace Host
