// Writes what an OpenBarProcessor reports of its thread's bars into chunks of the finest level.
//
// Threads: the pass's thread. Ownership: the state that the ThreadsModel keeps per thread. The model, and the thread's records
// that it was given, outlive it; the processor may go before it.
#pragma once

#include "Session/Pass/Model.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "Utility/Signal.h"

#include <cstdint>
#include <limits>
#include <vector>

namespace Profiler
{

class DetailLODThread;
class ThreadInvocationData;
class ThreadsModel;
struct ThreadData;

struct ThreadDetailLOD0ProcessingState;

class OpenBarProcessorRouter
{
public:
    // Connects to the processor's signal.
    OpenBarProcessorRouter(ThreadDetailLOD0ProcessingState& inOwner, OpenBarProcessor& inProcessor);

    OpenBarProcessorRouter(const OpenBarProcessorRouter&) = delete;
    OpenBarProcessorRouter& operator=(const OpenBarProcessorRouter&) = delete;

    // The thread has no more bars: what is derived from its last chunk is built.
    void Finish();

private:
    // A report of the processor, as OpenBarProcessor::BarsChanged tells it.
    struct Report
    {
        const OpenBars& Bars;
        size_t KeepCount;
        int32_t ChunkIndex;
        double ChunkTime;
    };

    void Route(const Report& inReport, bool inIsChunkFinished);
    [[nodiscard]] bool MoveToChunk(int32_t inIndex);
    void WriteBars(const Report& inReport);
    [[nodiscard]] uint64_t WriteBar(const Report& inReport, size_t inDepth, uint64_t inParent);
    void NoteClosedBars(const Report& inReport);
    void HandOver(bool inIsLast);
    [[nodiscard]] bool CanBeFilled(int32_t inIndex) const;

    ThreadDetailLOD0ProcessingState& mOwner;
    Utility::SignalRegistration mRegistration;
    TypedChunkHandle<BarChunk> mChunk;                             // that is being filled, or was handed over last
    int32_t mChunkIndex = -1;                                      // of mChunk
    std::vector<int32_t> mFilledChunks;                            // all so far, ascending
    int32_t mFirstOpenChunk = std::numeric_limits<int32_t>::min(); // all before were handed over
};

// What the timeline keeps of a thread during a pass.
struct ThreadDetailLOD0ProcessingState final : ThreadProcessingState
{
    ThreadDetailLOD0ProcessingState(ThreadsModel& inModel, DetailLODThread& inThread, ThreadData& inThreadData,
                                    ThreadInvocationData& inInvocationData, OpenBarProcessor& inProcessor)
        : Model(inModel),
          Thread(inThread),
          Data(inThreadData),
          InvocationData(inInvocationData),
          Router(*this, inProcessor)
    {
    }

    ThreadsModel& Model;
    DetailLODThread& Thread; // of the finest level
    ThreadData& Data;
    ThreadInvocationData& InvocationData; // until the thread is finished
    OpenBarProcessorRouter Router;
    bool IsSampled = false; // it has had an event that brings a stack and nothing else
};

} // namespace Profiler
