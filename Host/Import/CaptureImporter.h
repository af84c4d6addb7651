// Turns the records of a capture into trace events, in time order, for the processes and threads of a session.
//
// Two walks over the file: Prepare scans it in file order for processes, modules and the shape of the recording; Run merges its
// records into time order and makes events of them.
//
// The kernel's tracepoint misses some switches, ten to fifty a second, mostly where a processor leaves idling; and a capture of
// some processes holds only the switches out of their own threads. A thread that is seen to run although it counts as waiting is
// switched in after the fact: since the processor's last switch, since it was woken or last seen itself, or one interval of the
// clock ago, whichever is later. Where a processor is seen to run another thread than it was said to, that one is switched out
// after the fact, where it was last seen. Such switches lie a little behind the events of other threads around them.
// Threads: one. Ownership: refers to file, session and symbol cache, which outlive it. Invariant: the events of one thread are in
// time order; one that runs is never switched in, and one that waits is never switched out or sampled.
#pragma once

#include "Host/Import/ActiveThreads.h"
#include "Host/Import/ImportFilter.h"
#include "Host/Import/ImportHealth.h"
#include "Host/Import/PerfRecordStream.h"
#include "Host/Import/ProcessTimeline.h"
#include "Host/Import/SessionBuilder.h"
#include "Host/Import/ThreadTable.h"
#include "Host/Import/Tracepoints.h"
#include "Utility/ErrorState.h"

#include <functional>
#include <string>
#include <vector>

namespace Host
{

// Takes the events of an import, in time order.
class ITraceEventSink
{
public:
    virtual ~ITraceEventSink() = default;

    // False ends the import with failure; the sink has then appended to ioErrors.
    [[nodiscard]] virtual bool OnEvent(const Profiler::TraceEvent& inEvent, Utility::ErrorState& ioErrors) = 0;

    // Asked at every step of progress. False ends the import in the same way.
    [[nodiscard]] virtual bool CheckGoesOn(Utility::ErrorState&) { return true; }
};

class CaptureImporter
{
public:
    // Called with a fraction from 0 to 1, at most a hundred times.
    using ProgressFunction = std::function<void(float)>;

    CaptureImporter(const PerfFile& inFile, Profiler::Session& ioSession, SymbolCache& ioSymbols, ImportFilter inFilter = {});

    // Fills the session's info, processes and modules. The session's trie is initialized and takes the stacks of the run.
    // False if the capture, or what the filter takes of it, holds nothing to show.
    [[nodiscard]] bool Prepare(Utility::ErrorState& ioErrors);

    // REQUIRES: Prepare gave true. inProgress may be empty.
    [[nodiscard]] bool Run(ITraceEventSink& ioSink, const ProgressFunction& inProgress, Utility::ErrorState& ioErrors);

    [[nodiscard]] const PerfHealth& GetFileHealth() const { return mFileHealth; }
    [[nodiscard]] const ImportHealth& GetHealth() const { return mHealth; }
    [[nodiscard]] const Tracepoints& GetTracepoints() const { return mTracepoints; }
    // One line each: formats that can't be read, and the like.
    [[nodiscard]] const std::vector<std::string>& GetWarnings() const { return mWarnings; }

private:
    // Where and when the record in hand was made.
    struct Moment
    {
        uint64_t Time = 0; // nanoseconds of the capture's clock
        double Ms = 0.0;   // of the session
        int32_t Cpu = sNoCpu;
        uint64_t LongestUnseen = UINT64_MAX; // nanoseconds that its thread can have run up to it without an event
    };

    struct Processor
    {
        int32_t ThreadID = -1;      // that the last switch brought or that was seen to run since, -1 if unknown
        int32_t SwitchedOutID = -1; // that the last switch took off, -1 if unknown
        uint64_t LastSwitch = 0;    // nanoseconds of the capture's clock
    };

    [[nodiscard]] Moment MakeMoment(uint64_t inTime, int32_t inCpu) const
    {
        return {.Time = inTime, .Ms = mBuilder->ToMs(inTime), .Cpu = inCpu};
    }
    [[nodiscard]] bool SetTimeRange(Utility::ErrorState& ioErrors);
    [[nodiscard]] bool CheckProcesses(Utility::ErrorState& ioErrors) const;
    void SetSessionInfo();
    [[nodiscard]] bool EndThreads();

    [[nodiscard]] bool HandleRecord(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleSample(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleExecutionSample(const PerfEvent& inEvent, const PerfSample& inSample, const Moment& inMoment);
    [[nodiscard]] bool HandleSchedSwitch(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment);
    [[nodiscard]] bool HandleWakeup(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment,
                                    ETracepoint inKind);
    [[nodiscard]] bool SendWakeup(Profiler::ProcessID inReadiedProcess, Profiler::ThreadID inReadiedThread,
                                  const PerfSample& inSample, const Moment& inMoment);
    [[nodiscard]] bool HandleSwitchRecord(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleComm(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleFork(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleExit(const PerfRecord& inRecord);
    [[nodiscard]] bool HandleProcessExit(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment);

    [[nodiscard]] bool SwitchOut(TrackedThread& ioThread, const Moment& inMoment, uint8_t inWaitReason,
                                 Profiler::CallstackKey inStack);
    [[nodiscard]] bool SwitchIn(TrackedThread& ioThread, const Moment& inMoment);
    [[nodiscard]] bool SwitchInTold(TrackedThread& ioThread, const Moment& inMoment);
    [[nodiscard]] bool SeeRunning(TrackedThread& ioThread, const Moment& inMoment);
    [[nodiscard]] bool SwitchInMissed(TrackedThread& ioThread, const Moment& inMoment);
    [[nodiscard]] bool SwitchOutMissed(TrackedThread& ioThread, uint64_t inTime, uint8_t inWaitReason);
    [[nodiscard]] bool SwitchOutOther(int32_t inThreadID, const Moment& inMoment, uint64_t& ioTime);
    [[nodiscard]] bool SeeOnProcessor(int32_t inThreadID, const Moment& inMoment);
    [[nodiscard]] bool IsAmidSwitch(const PerfEvent& inEvent, const PerfSample& inSample, const Moment& inMoment);
    [[nodiscard]] bool EndThread(TrackedThread& ioThread, uint64_t inTime, uint8_t inEndFlag);

    [[nodiscard]] bool IsOfCapture(int32_t inThreadID, uint64_t inTime);
    [[nodiscard]] TrackedThread& GetThread(int32_t inThreadID, int32_t inToldProcessID, uint64_t inTime);
    TrackedThread& AddThread(int32_t inThreadID, int32_t inProcessID, const std::string& inName, uint64_t inTime);
    [[nodiscard]] Profiler::CallstackKey InternStack(const TrackedThread& inThread, const PerfSample& inSample);
    Processor& GetProcessor(int32_t inCpu);

    [[nodiscard]] bool EnterThread(TrackedThread& ioThread, double inMs);
    template <class Payload>
    [[nodiscard]] bool Emit(double inMs, TrackedThread& ioThread, const Payload& inPayload);
    [[nodiscard]] bool Send();

    const PerfFile& mFile;
    Profiler::Session& mSession;
    const ImportFilter mFilter;
    PerfRecordStream mStream;
    Tracepoints mTracepoints;
    PerfHealth mFileHealth;
    ImportHealth mHealth;
    std::vector<std::string> mWarnings;
    ActiveThreads mActive;
    ProcessTimeline mTimeline;
    SymbolCache& mSymbols;
    std::unique_ptr<SessionBuilder> mBuilder; // from Prepare on
    bool mHasSwitches = false;                // something tells when threads are switched
    bool mUsesWaking = false;                 // sched_waking tells of wake-ups, so sched_wakeup only repeats it
    bool mKnowsAllThreads = false;            // the capture is of the whole system
    uint64_t mClockInterval = UINT64_MAX;     // nanoseconds between two samples of a thread that runs, if known

    // Nanoseconds of the capture's clock. Records before the range are followed, so that it is known what threads were doing, but
    // leave no events.
    uint64_t mRangeStart = 0;
    uint64_t mRangeEnd = 0;
    bool mIsInRange = true;

    ThreadTable mThreads;
    std::vector<Processor> mProcessors;
    Processor mNowhere;           // for records without a processor
    std::vector<uint64_t> mStack; // outermost frame first, reused
    Profiler::TraceEvent mEvent;  // reused
    ITraceEventSink* mSink = nullptr;
    Utility::ErrorState* mErrors = nullptr;
};

} // namespace Host
