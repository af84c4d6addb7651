// Brings every event of a pass to the models and to its thread's OpenBarProcessor, in that order.
//
// Threads: the pass's thread. Ownership: lives for one pass; owns the processors, while each model owns its per-thread states.
// Session, fiber state, broken-stack holder and models outlive it. Invariant: a thread that has ended keeps its entry, empty, so
// that its later events are dropped without any model seeing them.
#pragma once

#include "Session/Events/TraceEvent.h"
#include "Session/Pass/Model.h"

#include <cstdint>
#include <memory>
#include <sparsehash/dense_hash_map>
#include <vector>

namespace Profiler
{

class BrokenStackHolder;
class OpenBarProcessor;
class OpenBarProcessorFiberState;
class Session;

class EventDispatcher
{
public:
    EventDispatcher(Session& inSession, OpenBarProcessorFiberState& ioFiberState, const BrokenStackHolder& inBrokenStacks,
                    std::vector<Model*> inModels);
    ~EventDispatcher();

    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Calls BeginProcessing of each model in order; stops at the first false.
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState& ioErrors);

    // One event. A false result of a model ends the dispatch and fails the pass. An event whose time is no number, infinite, or
    // too large for a chunk index is dropped and counted, and the first one is logged.
    [[nodiscard]] bool Dispatch(const TraceEvent& inEvent, Utility::ErrorState& ioErrors);

    // Ends the pass: flushes and finishes each thread that is still open, then calls FinishProcessing of each model in order.
    [[nodiscard]] bool FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled);

    // Events dropped because of their time.
    [[nodiscard]] uint64_t GetNumDroppedEvents() const { return mNumDroppedEvents; }

private:
    struct ThreadEntry;

    // Any thread ID is legal, so the marker of a free slot needs a wider key.
    using EntryMap = google::dense_hash_map<int64_t, uint32_t>;

    // The slot of the thread, made at its first event.
    std::unique_ptr<ThreadEntry>& GetEntry(const TraceEvent& inEvent);
    std::unique_ptr<ThreadEntry> MakeEntry(const TraceEvent& inEvent);
    [[nodiscard]] bool FinishEntry(ThreadEntry& ioEntry, Utility::ErrorState& ioErrors);
    void CountDroppedEvent(const TraceEvent& inEvent);

    Session& mSession;
    OpenBarProcessorFiberState& mFiberState;
    const BrokenStackHolder& mBrokenStacks;
    std::vector<Model*> mModels;
    EntryMap mEntryIndices; // by ThreadID, into mEntries
    std::vector<std::unique_ptr<ThreadEntry>>
        mEntries; // in order of the threads' first events; empty for a thread that has ended
    uint64_t mNumDroppedEvents = 0;
};

} // namespace Profiler
