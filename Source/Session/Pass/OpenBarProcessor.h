// Turns the events of one thread into bars.
//
// The processor holds the thread's present stack as a list of open bars, root first. An event that brings a stack is matched
// against the list: bars that match from the root on stay open and grow, the rest closes, new frames open new bars; and each
// change is reported through BarsChanged. It also knows the thread's state, shares each bar's time out to the states, splices
// stacks that are known to be cut short, and saves and restores the bars of fibers. It does no file work and owns no chunks.
//
// Threads: one at a time, the one that runs the pass; it takes no lock of its own. Ownership: the EventDispatcher owns one per
// thread and pass. Invariant: the open bars are those of the last report, cut to its keepCount, with the bars that were opened
// since.
//
// All of these are legal input, and leave the processor sound:
// - events of a thread that the session doesn't know: 0.0 stands in for its start time;
// - a stack key of 0 or an unknown key: the event has no frames;
// - times that go back: spans can then be negative, and count as such in a bar's times;
// - zone ends and fiber switches during a wait: they settle the bars at their own time as if the thread ran, and the next
//   switch-in goes back to the wait's start;
// - zones without an end, and fibers that come back without having left, whose zones open once more each time: from sMaxOpenBars
//   open bars on, zones are left out and counted, so that neither memory nor time runs away.
#pragma once

#include "Session/Callstacks/BrokenStackReader.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Events/TraceEvent.h"
#include "Session/Pass/FiberState.h"
#include "Session/Pass/OpenBar.h"
#include "Session/Processes/ThreadState.h"
#include "Utility/Signal.h"

#include <limits>
#include <string_view>
#include <vector>

namespace Profiler
{

class Session;

class OpenBarProcessor
{
public:
    // A limit that caps nothing.
    static constexpr double sNoTimeLimit = std::numeric_limits<double>::max();

    // Far deeper than any stack with zones is; only a capture that lacks their ends gets there.
    static constexpr size_t sMaxOpenBars = 4096;

    // Opens the thread's broken-stack ranges from inStartTime (milliseconds). inChunkLength, in milliseconds, tells when a report
    // is the first of a later chunk.
    OpenBarProcessor(Session& inSession, OpenBarProcessorFiberState& ioFiberState, const BrokenStackHolder& inBrokenStacks,
                     ThreadID inThread, double inStartTime, float inChunkLength);
    virtual ~OpenBarProcessor() = default;

    OpenBarProcessor(const OpenBarProcessor&) = delete;
    OpenBarProcessor& operator=(const OpenBarProcessor&) = delete;

    // Takes one event. All times that close or grow bars are capped at inMaxTime. An event of another thread changes no bars.
    void HandleEvent(const TraceEvent& inEvent, double inMaxTime);

    // Closes all open bars, at the end of the thread or of the pass.
    void Flush();

    [[nodiscard]] ThreadID GetThreadID() const { return mThread; }
    [[nodiscard]] ThreadState GetThreadState() const { return mState; }
    [[nodiscard]] const OpenBars& GetBars() const { return mBars; }
    // Zones, and frames in them, that weren't opened because sMaxOpenBars bars were open.
    [[nodiscard]] uint64_t GetNumLeftOutBars() const { return mNumLeftOutBars; }

    // A change of the bars:
    //   inBars           the list as it stands, including the bars that are about to close
    //   inKeepCount      how many bars from the root stay open; may be all of them
    //   inChunkIndex     the chunk of the bars so far, as held before the event
    //   inChunkTime      the time at which that chunk was begun, in milliseconds
    //   inChunkFinished  the event is the first of a later chunk: inChunkIndex gets no more bars
    // Listeners run on the calling thread in order of connection, and must not change the list.
    Utility::Signal<void(const OpenBars& inBars, int inKeepCount, int inChunkIndex, double inChunkTime, bool inChunkFinished)>
        BarsChanged;

private:
    // What AddStack opens bars for.
    struct StackSpan
    {
        int32_t ProcessID;
        ThreadState State;
        double Start;
        double End;
        double MaxTime;
        bool CountHit = false; // count the leaf's address as sampled
    };

    // The text of an instrumentation event; no bar of its own without a name.
    struct Instrumentation
    {
        std::string_view Name;
        std::string_view Context;
        uint32_t Color = sNoInstrumentationColor;
    };

    struct BarRange
    {
        int First = -1;
        int Last = -1;
    };

    // Where a walk over the open bars and a list beside it ended.
    struct Match
    {
        size_t KeptBars;
        size_t MatchedFrames;
    };

    void HandleSwitchOut(const TraceEvent& inEvent, const ContextSwitchOutEvent& inSwitch);
    void HandleSwitchIn(const TraceEvent& inEvent, const ContextSwitchInEvent& inSwitch, double inMaxTime);
    void HandleRunning(const TraceEvent& inEvent, CallstackKey inStack, bool inCountHit, const Instrumentation& inInstrumentation,
                       double inMaxTime);
    void HandleInstrumentationEnd(double inTime, double inMaxTime);
    void HandleFiberSwitchOut(double inTime, uint64_t inFiberID, double inMaxTime);
    void HandleFiberSwitchIn(double inTime, uint64_t inFiberID, double inMaxTime);
    void HandleThreadEnd(uint8_t inEndFlag);

    [[nodiscard]] bool BeginRunning();
    [[nodiscard]] bool IsInBrokenRange() const;
    [[nodiscard]] size_t ResolveStack(CallstackKey inStack, int32_t inProcessID, bool inRequireComplete, double inTime);
    void SpliceStack(const Callstack& inStack);
    void UpdateKeptDepth(int32_t inProcessID);

    void AddStack(size_t inFrameCount, const StackSpan& inSpan, const Instrumentation& inInstrumentation);
    void AddWait(size_t inFrameCount, int32_t inProcessID, ThreadState inState, double inWaitStart, double inWaitEnd,
                 double inMaxTime);
    [[nodiscard]] bool MatchesFrame(const OpenBar& inBar, size_t inFrame) const;
    [[nodiscard]] Match MatchFrames(size_t inFrameCount);
    [[nodiscard]] Match MatchSavedBars() const;
    OpenBar& OpenNewBar(double inStart, double inEnd, ThreadState inState);
    void OpenFrameBar(size_t inFrame, const StackSpan& inSpan, double inStart, double inEnd);
    void OpenSavedBars(size_t inFirst, double inStart, double inEnd);
    void OpenInstrumentedBar(size_t inFrameCount, const StackSpan& inSpan, const Instrumentation& inInstrumentation,
                             double inStart, double inEnd);

    void CloseBars(size_t inKeepCount, bool inChunkFinished);
    void CloseUnmatchedBars(size_t inKeepCount, bool inChunkFinished);
    void TakeChunk(bool inIsNew, int32_t inChunk, double inTime);
    void ClipBar(OpenBar& ioBar, double inTime) const;
    void ClipBars(double inTime);
    void ExtendBars(size_t inKeepCount, ThreadState inState, double inStart, double inEnd);
    void SpreadStateDeltas(OpenBar& ioBar, double inEnd) const;
    void SettleBars(int inLastKept, double inTime);
    void ClearDeferredStates();
    [[nodiscard]] BarRange FindInstrumentedBars() const;

    const ThreadID mThread;
    const double mSampleInterval;
    Session& mSession;
    OpenBarProcessorFiberState& mFiberState;
    BrokenStackReader mBrokenStackReader;
    OpenBars mBars;                  // root first
    StateTimes mStateDeltas{};       // wait time that isn't spread over the bars yet
    bool mHasDeferredStates = false; // the next settling step spreads mStateDeltas
    ThreadState mState = ThreadState::NotStarted;
    double mStateTime = 0.0; // when the present wait began
    EBrokenStackStep mBrokenStackStatus = EBrokenStackStep::Outside;
    BrokenRange mBrokenRange;           // that the reader last began
    size_t mKeptDepth = 0;              // how many open bars match the stack of the broken range
    std::vector<ResolvedFrame> mFrames; // work space of ResolveStack: an address keeps its function from event to event
    uint64_t mNumLeftOutBars = 0;
    uint64_t mNumLeftOutBegins = 0; // of them, zones whose ends are still to come
    const float mChunkLength;
    int32_t mChunkIndex = -1;                                  // of the bars so far
    double mChunkTime = std::numeric_limits<double>::lowest(); // when that index was taken
    CallstackCursor mStackCursor;                              // work space of ResolveStack
    Callstack mSplicedStack;                                   // work space of ResolveStack
    std::vector<ResolvedFrame> mInstrumentedFrame;             // work space of OpenInstrumentedBar
    std::vector<SavedBar> mSavedBars;                          // work space of the fiber switches
};

} // namespace Profiler
