// What a thread was doing at a time, and who ended its waits, read from a finished timeline.
//
// Threads: the main thread; waits for chunks. Ownership: refers to the model, which outlives it.
#pragma once

#include "ThreadsModel/ThreadsModel.h"

#include <optional>

namespace Host
{

// The whole of a span of one state, wherever chunks cut it. Times in milliseconds.
struct ThreadStateSpan
{
    Profiler::ThreadState State = Profiler::ThreadState::Idle;
    double Start = 0.0;
    double End = 0.0;
    Profiler::CallstackKey Stack = Profiler::sNoCallstack; // with which a wait ended
    uint32_t ReadyIndex = Profiler::sNoReadyIndex;

    [[nodiscard]] bool IsWait() const { return State != Profiler::ThreadState::Executing; }
};

class ThreadStates
{
public:
    explicit ThreadStates(const Profiler::ThreadsModel& inModel) : mModel(inModel) {}

    // The span that covers the time; nothing if there is none.
    [[nodiscard]] std::optional<ThreadStateSpan> FindAt(Profiler::ThreadID inThread, double inTimeMs) const;

    // The last wait that ended at the time or before.
    [[nodiscard]] std::optional<ThreadStateSpan> FindLastWait(Profiler::ThreadID inThread, double inTimeMs) const;

    // Who ended the wait; nothing if no wake-up was recorded.
    [[nodiscard]] std::optional<Profiler::ReadyRecord> FindWakeUp(const ThreadStateSpan& inWait) const;

private:
    template <class IsWanted>
    [[nodiscard]] std::optional<ThreadStateSpan> FindLast(Profiler::ThreadID inThread, double inTimeMs,
                                                          const IsWanted& inIsWanted) const;

    const Profiler::ThreadsModel& mModel;
};

// A chunk of ready records, waited for. A handle without one if it can't be loaded.
[[nodiscard]] Profiler::TypedChunkHandle<Profiler::ReadyThreadChunk> gLoadReadyChunk(const Profiler::ReadyThreadData& inData,
                                                                                     size_t inLevel, size_t inChunk);

} // namespace Host
