// The timeline of a capture: what every thread ran and waited for, at nine levels of detail.
//
// A pass feeds it events. Per thread, the bars of an OpenBarProcessor and the states that the model makes out of the context
// switches become chunks of the finest level; jobs derive the coarser levels from each chunk that is complete; and everything
// streams to disk meanwhile. A finished model is the same whether it was built or loaded: it is only read from. Beside it lie an
// index of where functions ran, and the records of who woke whom. Docs/Timeline.md tells the way of an event.
//
// The class is spread over files by what they do: ThreadsModelPass.cpp makes and ends it and runs a pass,
// ThreadsModelStates.cpp has the state lane, ThreadsModelLevels.cpp starts the jobs of the coarser levels, ThreadsModelFile.cpp
// saves and loads, ThreadsModelQueries.cpp answers what was on a stack at a time.
//
// Threads: queries from any. Everything else: the thread of the pass, or the owner's when there is none; StopProcessing may come
// from any at any time. The maps have no lock: jobs get pointers to records, which stay where they are while a map grows.
// Ownership: the session's. Invariant: every record that a job was given outlives the job.
#pragma once

#include "RTTI/Declare.h"
#include "Serialization/ReaderErrorState.h"
#include "Session/Modules/ModuleDatabase.h"
#include "Session/Pass/Model.h"
#include "Session/Processes/ThreadState.h"
#include "System/Job.h"
#include "System/Mutex.h"
#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/Find/FindModel.h"
#include "ThreadsModel/Find/FindProcessingModel.h"
#include "ThreadsModel/Levels/BarMerger.h"
#include "ThreadsModel/Levels/PendingBuild.h"
#include "ThreadsModel/Levels/StateBuckets.h"
#include "ThreadsModel/OverviewThreadState.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadData.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadProcessingModel.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Profiler
{

struct Thread;
struct ThreadDetailLOD0ProcessingState;

// What a thread did over the whole capture.
struct ThreadData
{
    int32_t MaxStackDepth = 0;                                                   // the most bars that were open at once
    double TotalTime = 0.0;                                                      // milliseconds in all states
    std::vector<double> StateTimes = std::vector<double>(sNumTimedThreadStates); // the same, by ThreadState
};

// What a pass couldn't place, since times of one thread went back or were impossible. Everything else stays sound.
struct LeftOutCounts
{
    uint64_t Bars = 0;       // of the finest level, once per report
    uint64_t Spans = 0;      // of the state lanes
    uint64_t MergedBars = 0; // of the coarser levels, parts of bars included

    [[nodiscard]] bool HasAny() const { return Bars != 0 || Spans != 0 || MergedBars != 0; }
};

class ThreadsModel : public Model
{
    RTTI_FRIEND()

public:
    ThreadsModel(ModelPlugin& inPlugin, Session& inSession);
    // Ends a pass that still runs.
    ~ThreadsModel() override;

    // Opens the stored model of a session. False, with outModel left alone, if there is none that can be read.
    [[nodiscard]] static bool sLoad(ModelPlugin& inPlugin, Session& inSession, std::unique_ptr<Model>& outModel,
                                    Serialization::ReaderErrorState& ioErrors);

    const RTTI::Type& GetType() const override;

    // REQUIRES: inLevel is one of the levels, which a model has nine of.
    [[nodiscard]] DetailLOD& GetDetailLOD(int32_t inLevel) const { return *mThreadDetailLODs[static_cast<size_t>(inLevel)]; }
    [[nodiscard]] size_t GetNumLevels() const { return mThreadDetailLODs.size(); }

    // The coarsest level whose buckets aren't wider than the span, in milliseconds.
    [[nodiscard]] const DetailLOD& GetDetailLODForWidth(double inStart, double inEnd) const
    {
        return gFindDetailLODForWidth(mThreadDetailLODs, inStart, inEnd);
    }

    // Makes the record on first use.
    [[nodiscard]] ThreadData& GetOrCreateThreadData(ThreadID inThread) { return mThreadData[inThread]; }
    // Null for a thread that was never seen.
    [[nodiscard]] const ThreadData* FindThreadData(ThreadID inThread) const;

    [[nodiscard]] ThreadStreamingManager& GetStreamingManager() const { return *mStreamingManager; }
    [[nodiscard]] const ReadyThreadData& GetReadyThreadData() const { return mReadyThreadData; }
    [[nodiscard]] FindModel& GetFindModel() { return mFindModel; }

    // Of the last pass, once it has ended.
    [[nodiscard]] LeftOutCounts GetLeftOutCounts() const;

    // --- Queries of a finished model, from any thread ---
    //
    // A query is a job, since its chunk may have to be read. It calls back once, from a worker; with nothing, if there is nothing
    // to find; and never, if it is cancelled. Each takes the handle of the query whose place it takes, which it cancels, so that
    // at most one of such a chain runs; an invalid handle begins a chain. Whoever began one ends it with CancelStackJobs, at the
    // latest before the model goes.

    // A frame of a stack of a wait.
    struct BlockingStackFrame
    {
        Profiler::Bar Bar; // of the finest level, in the chunk of the time
        ResolvedFunctionInfo Function;
    };

    // The bars of a thread at a time in milliseconds, root first.
    System::JobHandle FindStack(ThreadID inThread, double inTime, System::JobHandle inPrevious,
                                const std::function<void(std::vector<Bar>)>& inCallback) const;

    // The frames of the thread at the time, root first, and how long the leaf's bar lasts within its chunk, in milliseconds, if
    // the bars agree with the stack; no frame and 0.0 if they don't. Where it is clear at once that they can't, it calls back
    // before it returns the invalid handle.
    System::JobHandle
    GetBlockingCallstackAsync(ThreadID inThread, CallstackKey inStack, double inTime, System::JobHandle inPrevious,
                              const std::function<void(std::vector<BlockingStackFrame>, double)>& inCallback) const;

    // Cancels all queries of a chain, and returns when they have ended.
    void CancelStackJobs(System::JobHandle inJob) const;

    // From the start of the first thread to the end of the last one, in milliseconds.
    void GetTimeRange(double& outStart, double& outEnd) const;

    // --- A pass, in order ---

    // REQUIRES: the model is new.
    [[nodiscard]] bool PrepareReprocess(Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState& ioErrors) override;
    ThreadProcessingState* CreateThreadProcessingState(OpenBarProcessor& inProcessor) override;
    [[nodiscard]] bool ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState,
                                    Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool FinishProcessing(Utility::ErrorState& ioErrors, const bool& inIsCanceled) override;

    // Lets nothing block the pass any more, which from now on drops what it would have to wait for; whoever stops a pass cancels
    // it as well. Afterwards the model can't be saved.
    void StopProcessing() override;

    // Ends the files and opens them for reading. A call after a failure goes on where that one ended.
    [[nodiscard]] bool SaveModel(Utility::ErrorState& ioErrors) override;

    // --- For what writes the finest level ---

    // inHandles are complete, and inThread's of the finest level; starts what is derived from them, once that of the handles
    // before is done. inIsLast: the thread has no more of them.
    void BuildLOD0DetailDerivedData(std::vector<TypedChunkHandle<BarChunk>> inHandles, DetailLODThread& inThread, bool inIsLast);
    // As above; with inIsLast there is one handle.
    void BuildLOD0OverviewDerivedData(std::vector<TypedChunkHandle<OverviewChunk>> inHandles, DetailLODThread& inThread,
                                      bool inIsLast);

    void CountLeftOutBars(uint64_t inCount) { mLeftOut.Bars += inCount; }

private:
    template <class T>
    using PendingBuilds = std::unordered_map<const DetailLODThread*, PendingBuild<T>>;

    // A span of one state of a thread.
    struct StateSpan
    {
        ThreadState State;
        double Start; // milliseconds
        double End;
        uint32_t ReadyIndex = sNoReadyIndex;
        CallstackKey Stack = sNoCallstack;
    };

    // Of the folder of the timeline, for an empty name, or of a file in it.
    [[nodiscard]] static std::string sGetPath(const Session& inSession, const char* inFileName);
    [[nodiscard]] std::string GetPath(const char* inFileName) const { return sGetPath(GetSession(), inFileName); }

    // The pass (ThreadsModelPass.cpp)
    [[nodiscard]] bool FinishLanes(Utility::ErrorState& ioErrors);
    void AddRangeOfWholeLife(const Thread& inThread);
    void WaitForBuilds();
    void DropPassState();
    void LogLeftOut() const;

    // The state lane (ThreadsModelStates.cpp)
    [[nodiscard]] bool HandleThreadStateEvent(const TraceEvent& inEvent, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool HandleSwitchOut(const TraceEvent& inEvent, uint8_t inWaitReason, Utility::ErrorState& ioErrors);
    void HandleSwitchIn(const TraceEvent& inEvent, CallstackKey inStack);
    void HandleReady(const TraceEvent& inEvent, CallstackKey inStack, ProcessID inReadiedProcess, ThreadID inReadiedThread,
                     double inReadyTime);
    [[nodiscard]] bool HandleThreadEnd(ThreadID inThread, uint8_t inEndFlag, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool EndLane(ThreadID inThread, OverviewThreadState& ioState, double inEnd, Utility::ErrorState& ioErrors);
    [[nodiscard]] bool FinishOverview(ThreadID inThread, OverviewThreadState& ioState, Utility::ErrorState& ioErrors);
    void AddThreadStateRange(OverviewThreadState& ioState, ThreadID inThread, const StateSpan& inSpan);
    [[nodiscard]] bool MoveToChunk(OverviewThreadState& ioState, DetailLODThread& ioThread, int32_t inIndex);
    [[nodiscard]] OverviewThreadState& GetOverviewState(ThreadID inThread);
    [[nodiscard]] double GetThreadStart(ThreadID inThread) const;
    [[nodiscard]] double GetThreadEnd(ThreadID inThread) const;

    // The levels (ThreadsModelLevels.cpp)
    template <class T>
    PendingBuild<T>& BeginBatch(PendingBuilds<T>& ioBuilds, const DetailLODThread& inThread,
                                std::vector<TypedChunkHandle<T>> inHandles);
    template <class T>
    void ScheduleBatch(PendingBuild<T>& ioBuild, std::vector<System::JobWork> inWork);
    void BuildLevelBars(const PendingBuild<BarChunk>& inBuild, const DetailLOD& inLevel, DetailLODThread& ioThread,
                        BarBuildRecord& ioRecord, bool inIsLast, const bool& inIsCanceled);
    void BuildFunctionIndices(const PendingBuild<BarChunk>& inBuild, DetailLODThread& ioThread, const bool& inIsCanceled);
    void BuildLevelStates(const PendingBuild<OverviewChunk>& inBuild, const DetailLOD& inLevel, DetailLODThread& ioThread,
                          OverviewBuildRecord& ioRecord, bool inIsLast, const bool& inIsCanceled);

    // Saving and loading (ThreadsModelFile.cpp)
    [[nodiscard]] bool FinishFiles(Utility::ErrorState& ioErrors);
    [[nodiscard]] bool FinishLoading(Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool IsSound() const;

    // The queries (ThreadsModelQueries.cpp)
    [[nodiscard]] bool ReadStack(ThreadID inThread, double inTime, const bool& inIsCanceled, std::vector<Bar>& outStack) const;

    std::unique_ptr<ThreadStreamingManager> mStreamingManager;
    DetailLODList mThreadDetailLODs;
    std::unordered_map<ThreadID, ThreadData> mThreadData;
    ReadyThreadData mReadyThreadData;
    FindModel mFindModel;

    // Of a pass
    std::unordered_map<ThreadID, std::unique_ptr<ThreadDetailLOD0ProcessingState>> mProcessingStates;
    std::unordered_map<ThreadID, std::unique_ptr<OverviewThreadState>> mOverviewStates;
    std::unordered_map<const DetailLODThread*, BarBuildRecord> mBarBuildRecords;
    std::unordered_map<const DetailLODThread*, OverviewBuildRecord> mOverviewBuildRecords;
    PendingBuilds<BarChunk> mPendingDetailBuilds;
    PendingBuilds<OverviewChunk> mPendingOverviewBuilds;
    std::unique_ptr<FindProcessingModel> mFindProcessing; // from BeginProcessing until the model is saved
    LeftOutCounts mLeftOut;                               // without MergedBars
    bool mIsComplete = false;                             // the pass came to its end before anybody stopped it

    // Have their own synchronization
    std::atomic<uint64_t> mNumLeftOutMergedBars = 0;
    std::atomic<bool> mIsStopped = false;

    // The lock of what is stopped: taken to make or destroy it, and to stop it
    System::Mutex mStopMutex;
    std::unique_ptr<ReadyThreadProcessingModel> mReadyProcessing; // as mFindProcessing
};

} // namespace Profiler

RTTI_DECLARE(Profiler::ThreadData);
RTTI_DECLARE(Profiler::ThreadsModel);
