#include "Session/Pass/EventDispatcher.h"

#include "Session/Pass/ChunkTime.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "Utility/Log.h"

#include <limits>
#include <utility>

namespace Profiler
{

struct EventDispatcher::ThreadEntry
{
    ThreadEntry(Session& inSession, OpenBarProcessorFiberState& ioFiberState, const BrokenStackHolder& inBrokenStacks,
                ThreadID inThread, double inStartTime)
        : Processor(inSession, ioFiberState, inBrokenStacks, inThread, inStartTime, sLevel0ChunkLengthMs)
    {
    }

    OpenBarProcessor Processor;
    std::vector<ThreadProcessingState*> States; // one per model, in the list's order
};

EventDispatcher::EventDispatcher(Session& inSession, OpenBarProcessorFiberState& ioFiberState,
                                 const BrokenStackHolder& inBrokenStacks, std::vector<Model*> inModels)
    : mSession(inSession),
      mFiberState(ioFiberState),
      mBrokenStacks(inBrokenStacks),
      mModels(std::move(inModels))
{
    mEntryIndices.set_empty_key(std::numeric_limits<int64_t>::min());
}

EventDispatcher::~EventDispatcher() = default;

bool EventDispatcher::BeginProcessing(Utility::ErrorState& ioErrors)
{
    for (Model* model : mModels)
        if (!model->BeginProcessing(ioErrors))
            return false;
    return true;
}

bool EventDispatcher::Dispatch(const TraceEvent& inEvent, Utility::ErrorState& ioErrors)
{
    if (!gIsPlaceableTime(sLevel0ChunkLengthMs, inEvent.TimeMs)) [[unlikely]]
    {
        CountDroppedEvent(inEvent);
        return true;
    }
    std::unique_ptr<ThreadEntry>& entry = GetEntry(inEvent);
    if (entry == nullptr)
        return true;

    for (size_t i = 0; i < mModels.size(); ++i)
        if (!mModels[i]->ProcessEvent(inEvent, entry->States[i], ioErrors))
            return false;
    entry->Processor.HandleEvent(inEvent, OpenBarProcessor::sNoTimeLimit);
    if (entry->Processor.GetThreadState() != ThreadState::Finished)
        return true;

    if (!FinishEntry(*entry, ioErrors))
        return false;
    entry.reset();
    return true;
}

std::unique_ptr<EventDispatcher::ThreadEntry>& EventDispatcher::GetEntry(const TraceEvent& inEvent)
{
    const auto [place, isNew] = mEntryIndices.insert({inEvent.ThreadID, static_cast<uint32_t>(mEntries.size())});
    if (isNew)
        mEntries.push_back(MakeEntry(inEvent));
    return mEntries[place->second];
}

std::unique_ptr<EventDispatcher::ThreadEntry> EventDispatcher::MakeEntry(const TraceEvent& inEvent)
{
    auto entry = std::make_unique<ThreadEntry>(mSession, mFiberState, mBrokenStacks, inEvent.ThreadID, inEvent.TimeMs);
    entry->States.reserve(mModels.size());
    for (Model* model : mModels)
        entry->States.push_back(model->CreateThreadProcessingState(entry->Processor));
    return entry;
}

bool EventDispatcher::FinishEntry(ThreadEntry& ioEntry, Utility::ErrorState& ioErrors)
{
    ioEntry.Processor.Flush();
    if (const uint64_t count = ioEntry.Processor.GetNumLeftOutBars(); count != 0)
        Utility::gLog("Left out %llu zones of thread %d that lay more than %zu bars deep; the capture lacks their ends",
                      static_cast<unsigned long long>(count), ioEntry.Processor.GetThreadID(), OpenBarProcessor::sMaxOpenBars);
    for (Model* model : mModels)
        if (!model->FinishThread(ioEntry.Processor, ioErrors))
            return false;
    return true;
}

bool EventDispatcher::FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled)
{
    for (const std::unique_ptr<ThreadEntry>& entry : mEntries)
        if (entry != nullptr && !FinishEntry(*entry, ioErrors))
            return false;
    for (Model* model : mModels)
        if (!model->FinishProcessing(ioErrors, inIsCanceled))
            return false;
    mEntries.clear();
    mEntryIndices.clear();
    return true;
}

void EventDispatcher::CountDroppedEvent(const TraceEvent& inEvent)
{
    if (mNumDroppedEvents == 0)
        Utility::gLog("Dropped an event of thread %d at the impossible time %g; further ones are only counted", inEvent.ThreadID,
                      inEvent.TimeMs);
    ++mNumDroppedEvents;
}

} // namespace Profiler
