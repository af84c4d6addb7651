// A model that keeps no timeline but counts: per thread its events, bars and times, and over all the longest bars and the frames
// that nobody could name.
//
// Threads and ownership as for every model. Invariant: a thread's times by state add up to the time from its first event, or from
// its start if that event switches it in, to its end. Without any switch its time executing is counted from its samples.
#pragma once

#include "Session/Pass/Model.h"
#include "Session/Pass/OpenBar.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "Session/Processes/ThreadState.h"

#include <cstdint>
#include <map>
#include <memory>
#include <sparsehash/dense_hash_map>
#include <vector>

namespace Host
{

struct ThreadSummary
{
    uint64_t Events = 0;
    uint64_t Samples = 0;
    uint64_t SwitchIns = 0;
    uint64_t SwitchOuts = 0;
    uint64_t Wakeups = 0; // that it made
    uint64_t ClosedBars = 0;
    uint64_t GreatestDepth = 0;
    double ExecutingMs = 0.0;
    double WaitingMs = 0.0;
    Profiler::StateTimes StateTimes{}; // milliseconds by state
};

struct LongBar
{
    Profiler::ThreadID Thread = -1;
    Profiler::ResolvedAddress Frame;
    double Start = 0.0;
    double End = 0.0;
    uint64_t Depth = 0;

    [[nodiscard]] double GetLength() const { return End - Start; }
};

class SummaryModel final : public Profiler::Model
{
public:
    static constexpr size_t sNumLongestBars = 10;

    using FrameCounts = google::dense_hash_map<Profiler::ResolvedAddress, uint64_t, Profiler::ResolvedAddressHash>;

    SummaryModel(Profiler::ModelPlugin& inPlugin, Profiler::Session& inSession);
    ~SummaryModel() override;

    const RTTI::Type& GetType() const override;
    Profiler::ThreadProcessingState* CreateThreadProcessingState(Profiler::OpenBarProcessor& inProcessor) override;
    [[nodiscard]] bool FinishThread(Profiler::OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool ProcessEvent(const Profiler::TraceEvent& inEvent, Profiler::ThreadProcessingState* ioState,
                                    Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState& ioErrors) override;
    void StopProcessing() override;
    [[nodiscard]] bool FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled) override;
    [[nodiscard]] bool PrepareReprocess(Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool SaveModel(Utility::ErrorState& ioErrors) override;

    // Null for a thread without events.
    [[nodiscard]] const ThreadSummary* FindThread(Profiler::ThreadID inThread) const;

    // The longest first; of equal ones the earliest.
    [[nodiscard]] std::vector<LongBar> GetLongestBars() const;

    // How many bars each function, or unresolved address, had.
    [[nodiscard]] const FrameCounts& GetFrameCounts() const { return mFrameCounts; }

private:
    class ThreadLane;

    void CountClosedBars(ThreadLane& ioState, const Profiler::OpenBars& inBars, size_t inKeepCount);
    void OfferLongBar(const LongBar& inBar);

    std::map<Profiler::ThreadID, std::unique_ptr<ThreadLane>> mThreads;
    std::vector<LongBar> mLongestBars; // a heap with the shortest in front
    FrameCounts mFrameCounts;
};

} // namespace Host
