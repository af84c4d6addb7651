#include "Host/Import/CaptureImporter.h"

#include "Host/Import/PerfRecordingGaps.h"
#include "Host/Import/WaitReasons.h"
#include "Host/Linux/LinuxPlatform.h"

#include <algorithm>
#include <utility>

namespace Host
{
namespace
{

using namespace Profiler;

constexpr double sNanosecondsPerMillisecond = 1e6;
constexpr double sMillisecondsPerSecond = 1e3;
constexpr double sUnknownSampleIntervalMs = 1.0;
constexpr int32_t sIdleThread = 0;
constexpr int32_t sUnknownThread = -1;
constexpr ThreadID sNoThread = -1;   // of the session
constexpr ProcessID sNoProcess = -1; // of the session
constexpr int sProgressSteps = 100;
constexpr size_t sBytesKept = size_t{32} << 20;  // of the capture in memory, about
constexpr uint32_t sMaxCpus = 65536;             // records that name a higher one are damaged
constexpr uint64_t sNanosecondsOfSwitch = 10000; // from its tracepoint to its end, at most

constexpr uint8_t sStartedLater = 0;   // StartFlag
constexpr uint8_t sExistedAtStart = 1; // StartFlag
constexpr uint8_t sEndedEarlier = 0;   // EndFlag
constexpr uint8_t sAliveAtEnd = 1;     // EndFlag

double gGetSampleInterval(const PerfFile& inFile)
{
    for (const PerfEvent& event : inFile.GetEvents())
    {
        if (!event.IsExecutionSample() || event.PeriodOrFrequency == 0)
            continue;
        const auto value = static_cast<double>(event.PeriodOrFrequency);
        if (event.IsFrequency)
            return sMillisecondsPerSecond / value;
        // A clock counts nanoseconds; the period of a hardware counter is no time.
        if (event.Kind == EPerfEventKind::Clock)
            return value / sNanosecondsPerMillisecond;
    }
    return sUnknownSampleIntervalMs;
}

// Nanoseconds between two samples of a thread that runs. Only a clock ticks evenly; the maximum if there are no samples of one.
uint64_t gGetClockInterval(const PerfFile& inFile, const PerfHealth& inHealth)
{
    constexpr uint64_t nanosecondsPerSecond = 1'000'000'000;
    constexpr uint64_t shortestInterval = 10'000; // of the kernel, whatever was asked for
    uint64_t interval = UINT64_MAX;
    for (const PerfEvent& event : inFile.GetEvents())
    {
        const bool hasSamples = event.Index < inHealth.SamplesByEvent.size() && inHealth.SamplesByEvent[event.Index] != 0;
        if (event.Kind != EPerfEventKind::Clock || event.PeriodOrFrequency == 0 || !hasSamples)
            continue;
        const uint64_t period = event.IsFrequency ? nanosecondsPerSecond / event.PeriodOrFrequency : event.PeriodOrFrequency;
        interval = std::min(interval, std::max(period, shortestInterval));
    }
    return interval;
}

} // namespace

CaptureImporter::CaptureImporter(const PerfFile& inFile, Session& ioSession, SymbolCache& ioSymbols, ImportFilter inFilter)
    : mFile(inFile),
      mSession(ioSession),
      mFilter(std::move(inFilter)),
      mStream(inFile),
      mSymbols(ioSymbols)
{
}

// --- Preparation ---

bool CaptureImporter::Prepare(Utility::ErrorState& ioErrors)
{
    mTracepoints.Load(mFile, mWarnings);
    mUsesWaking = mTracepoints.CanDecode(ETracepoint::SchedWaking);
    const uint8_t* released = mFile.GetRecords().data();
    mStream.Scan(mFileHealth,
                 [this, &released](const PerfRecord& inRecord)
                 {
                     if (static_cast<size_t>(inRecord.Data - released) >= sBytesKept) [[unlikely]]
                     {
                         released = inRecord.Data;
                         mFile.ReleasePages();
                     }
                     if (inRecord.Event == nullptr)
                         return;
                     mActive.Note(inRecord);
                     mTimeline.Collect(inRecord, mFileHealth);
                 });
    if (!Utility::Check(ioErrors, mFileHealth.LastTime != 0, 0, "%s: holds no record with a time, so there is nothing to show",
                        mFile.GetPath().c_str()))
        return false;

    mHasSwitches = mTracepoints.CanDecode(ETracepoint::SchedSwitch) || mFileHealth.GetRecordCount(EPerfRecordType::Switch) != 0 ||
                   mFileHealth.GetRecordCount(EPerfRecordType::SwitchCpuWide) != 0;
    mClockInterval = gGetClockInterval(mFile, mFileHealth);
    const std::vector<PerfGap> gaps = gFindRecordingGaps(mFile, mTracepoints, mFileHealth);
    mKnowsAllThreads =
        std::none_of(gaps.begin(), gaps.end(), [](const PerfGap& inGap) { return inGap.Kind == EPerfGap::OnlySomeThreads; });
    mTimeline.Build(mFile.GetBuildIDs());
    mHealth.MappingsLeftOut = mTimeline.GetNumMappingsLeftOut();
    if (!SetTimeRange(ioErrors))
        return false;
    mBuilder = std::make_unique<SessionBuilder>(mSession, mTimeline, mSymbols, mRangeStart, mRangeEnd);
    SetSessionInfo();
    mBuilder->AddProcesses(mActive, mFilter);
    if (!CheckProcesses(ioErrors))
        return false;
    mBuilder->AddModules(mFile);
    mSession.GetCallstackTrie().InitializeCallstacks();
    return true;
}

bool CaptureImporter::SetTimeRange(Utility::ErrorState& ioErrors)
{
    const double length = static_cast<double>(mFileHealth.LastTime - mFileHealth.FirstTime);
    const auto toTime = [&](double inMs)
    {
        // Below the length, the product fits 64 bits whatever times a damaged capture has.
        const double nanoseconds = inMs * sNanosecondsPerMillisecond;
        return nanoseconds < length ? mFileHealth.FirstTime + static_cast<uint64_t>(nanoseconds) : mFileHealth.LastTime;
    };
    mRangeStart = toTime(mFilter.StartMs);
    mRangeEnd = toTime(mFilter.EndMs);
    return Utility::Check(ioErrors, mFilter.StartMs * sNanosecondsPerMillisecond <= length, 0,
                          "%s: ends after %.3f ms, before the time range begins", mFile.GetPath(),
                          length / sNanosecondsPerMillisecond);
}

bool CaptureImporter::CheckProcesses(Utility::ErrorState& ioErrors) const
{
    std::string names;
    for (const std::string& process : mFilter.Processes)
        names += (names.empty() ? "" : ", ") + process;
    return Utility::Check(ioErrors, names.empty() || !mSession.GetProcessList().empty(), 0, "%s: no process %s has events in it",
                          mFile.GetPath(), names);
}

void CaptureImporter::SetSessionInfo()
{
    SessionInfo& info = mSession.GetSessionInfo();
    info.SampleIntervalMs = gGetSampleInterval(mFile);
    info.SessionStartTimeMs = 0.0;
    info.SessionEndTimeMs = mBuilder->ToMs(mRangeEnd);
    info.PlatformID = sLinuxPlatformID;
}

// --- The run ---

bool CaptureImporter::Run(ITraceEventSink& ioSink, const ProgressFunction& inProgress, Utility::ErrorState& ioErrors)
{
    mSink = &ioSink;
    mErrors = &ioErrors;
    const uint64_t progressStep = mStream.GetTotalBytes() / sProgressSteps + 1;
    uint64_t nextProgress = progressStep;
    uint64_t nextRelease = sBytesKept;
    PerfRecord record;
    const bool isCut = mFilter.StartMs > 0.0;
    while (mStream.Next(record) && record.Time <= mRangeEnd)
    {
        mIsInRange = !isCut || record.Time >= mRangeStart;
        if (!HandleRecord(record))
            return false;
        if (mStream.GetPassedBytes() >= nextRelease) [[unlikely]]
        {
            nextRelease += sBytesKept;
            mFile.ReleasePages();
        }
        if (mStream.GetPassedBytes() >= nextProgress) [[unlikely]]
        {
            nextProgress += progressStep;
            // Records can go by for long without an event.
            if (!mSink->CheckGoesOn(ioErrors))
                return false;
            if (inProgress)
                inProgress(static_cast<float>(mStream.GetPassedBytes()) / static_cast<float>(mStream.GetTotalBytes()));
        }
    }
    mIsInRange = true;
    return EndThreads();
}

bool CaptureImporter::HandleRecord(const PerfRecord& inRecord)
{
    switch (inRecord.Type)
    {
    case EPerfRecordType::Sample:
        return HandleSample(inRecord);
    case EPerfRecordType::Switch:
    case EPerfRecordType::SwitchCpuWide:
        return HandleSwitchRecord(inRecord);
    case EPerfRecordType::Comm:
        return HandleComm(inRecord);
    case EPerfRecordType::Fork:
        return HandleFork(inRecord);
    case EPerfRecordType::Exit:
        return HandleExit(inRecord);
    default:
        return true; // mappings were taken by the scan
    }
}

bool CaptureImporter::HandleSample(const PerfRecord& inRecord)
{
    PerfSample sample;
    const EPerfSkip skip = gDecodeSample(inRecord, sample);
    if (skip != EPerfSkip::None)
    {
        mFileHealth.CountSkip(skip);
        return true;
    }
    Moment moment = MakeMoment(inRecord.Time, sample.Cpu);
    if (inRecord.Event->Kind == EPerfEventKind::Clock || !mKnowsAllThreads)
        moment.LongestUnseen = mClockInterval;
    if (inRecord.Event->IsExecutionSample())
        return HandleExecutionSample(*inRecord.Event, sample, moment);
    const ETracepoint kind = mTracepoints.GetKind(*inRecord.Event);
    switch (kind)
    {
    case ETracepoint::SchedSwitch:
        return HandleSchedSwitch(inRecord, sample, moment);
    case ETracepoint::SchedWakeup:
    case ETracepoint::SchedWakeupNew:
    case ETracepoint::SchedWaking:
        return HandleWakeup(inRecord, sample, moment, kind);
    case ETracepoint::SchedProcessExit:
        return HandleProcessExit(inRecord, sample, moment);
    default:
        ++mHealth.OtherEventSamples;
        return true;
    }
}

bool CaptureImporter::HandleExecutionSample(const PerfEvent& inEvent, const PerfSample& inSample, const Moment& inMoment)
{
    if (inSample.ThreadID < 0)
    {
        ++mHealth.SamplesWithoutThread;
        return true;
    }
    if (IsAmidSwitch(inEvent, inSample, inMoment))
    {
        ++mHealth.SamplesAmidSwitch;
        return true;
    }
    if (inSample.ThreadID == sIdleThread)
    {
        ++mHealth.IdleSamples;
        return SeeOnProcessor(sIdleThread, inMoment);
    }
    TrackedThread& thread = GetThread(inSample.ThreadID, inSample.ProcessID, inMoment.Time);
    if (!SeeRunning(thread, inMoment))
        return false;
    if (!mIsInRange || !thread.IsCaptured)
        return true;
    return Emit(inMoment.Ms, thread, SampleEvent{InternStack(thread, inSample)});
}

// The tracepoint fires before the processor changes over, and a counter's interrupt can't be held off: it may still find the
// thread whose switch-out was told already. What it saw belongs before the switch. The interrupt of a clock waits until the
// switch is done.
bool CaptureImporter::IsAmidSwitch(const PerfEvent& inEvent, const PerfSample& inSample, const Moment& inMoment)
{
    if (inEvent.Kind != EPerfEventKind::Hardware)
        return false;
    const Processor& processor = GetProcessor(inMoment.Cpu);
    return inSample.ThreadID == processor.SwitchedOutID && inSample.ThreadID != processor.ThreadID &&
           inMoment.Time - processor.LastSwitch <= sNanosecondsOfSwitch;
}

// The thread that is switched out is named by the tracepoint itself: a thread that is being taken down has no ID left in its
// sample.
bool CaptureImporter::HandleSchedSwitch(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment)
{
    SchedSwitch contextSwitch;
    const EPerfSkip skip = mTracepoints.Decode(*inRecord.Event, inSample.Raw, contextSwitch);
    if (skip != EPerfSkip::None)
    {
        mFileHealth.CountSkip(skip);
        return true;
    }

    if (contextSwitch.PreviousThreadID > 0 && IsOfCapture(contextSwitch.PreviousThreadID, inMoment.Time))
    {
        TrackedThread& thread = GetThread(contextSwitch.PreviousThreadID, inSample.ProcessID, inMoment.Time);
        const CallstackKey stack = thread.IsCaptured ? InternStack(thread, inSample) : sNoCallstack;
        if (!SeeRunning(thread, inMoment) ||
            !SwitchOut(thread, inMoment, gGetWaitReason(contextSwitch.PreviousState, thread.HasExited), stack))
            return false;
    }
    else if (!SeeOnProcessor(contextSwitch.PreviousThreadID, inMoment))
        return false;
    GetProcessor(inMoment.Cpu) = {contextSwitch.NextThreadID, contextSwitch.PreviousThreadID, inMoment.Time};
    if (contextSwitch.NextThreadID <= 0 || !IsOfCapture(contextSwitch.NextThreadID, inMoment.Time))
        return true;
    return SwitchInTold(GetThread(contextSwitch.NextThreadID, sUnknownThread, inMoment.Time), inMoment);
}

bool CaptureImporter::HandleWakeup(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment,
                                   ETracepoint inKind)
{
    // Each wake-up counts once. sched_waking is made by the waker itself, sched_wakeup maybe later and on another processor.
    if (inKind == ETracepoint::SchedWakeup && mUsesWaking)
    {
        ++mHealth.RepeatedWakeups;
        return true;
    }
    SchedWakeup wakeup;
    const EPerfSkip skip = mTracepoints.Decode(*inRecord.Event, inSample.Raw, wakeup);
    if (skip != EPerfSkip::None)
    {
        mFileHealth.CountSkip(skip);
        return true;
    }
    if (wakeup.ThreadID <= 0)
    {
        ++mHealth.UnknownWakeups;
        return true;
    }

    TrackedThread& sleeper = GetThread(wakeup.ThreadID, sUnknownThread, inMoment.Time);
    // A thread that hasn't run yet waits from here on; one that runs is only kept from falling asleep.
    if (sleeper.State == ERunState::Unknown && mHasSwitches)
        sleeper.State = ERunState::Waiting;
    if (sleeper.State == ERunState::Waiting)
        sleeper.LastTime = inMoment.Time;
    if (mIsInRange && sleeper.SessionProcess == sNoProcess)
        sleeper.SessionProcess = mBuilder->GetProcessID(sleeper.Instance);
    if (!EnterThread(sleeper, inMoment.Ms))
        return false;
    return SendWakeup(sleeper.SessionProcess, sleeper.SessionThread, inSample, inMoment);
}

bool CaptureImporter::SendWakeup(ProcessID inReadiedProcess, ThreadID inReadiedThread, const PerfSample& inSample,
                                 const Moment& inMoment)
{
    const bool isByThread = inSample.ThreadID > 0;
    if (isByThread)
    {
        TrackedThread& waker = GetThread(inSample.ThreadID, inSample.ProcessID, inMoment.Time);
        if (!SeeRunning(waker, inMoment))
            return false;
        if (!mIsInRange)
            return true;
        if (waker.IsCaptured)
            return Emit(inMoment.Ms, waker, ReadyThreadEvent{InternStack(waker, inSample), inReadiedProcess, inReadiedThread});
    }
    // A thread that the session doesn't know did it, or an idle processor's interrupt: nobody's thread. The event goes with the
    // readied process, so that it isn't dropped as one of a process that isn't captured. Frames of another process would be taken
    // for the readied one's.
    if (!mIsInRange || mSession.GetProcess(inReadiedProcess) == nullptr)
        return true;
    const TrackedThread nobody;
    const CallstackKey stack = isByThread ? sNoCallstack : InternStack(nobody, inSample);
    mEvent.Reuse<ReadyThreadEvent>(inMoment.Ms, inReadiedProcess, sNoThread) = {stack, inReadiedProcess, inReadiedThread};
    return Send();
}

// Where tracepoints tell of switches too, they come first, with more to say; these records then only fill what the tracepoints
// missed.
bool CaptureImporter::HandleSwitchRecord(const PerfRecord& inRecord)
{
    PerfSwitch contextSwitch;
    const EPerfSkip skip = gDecodeSwitch(inRecord, contextSwitch);
    if (skip != EPerfSkip::None)
    {
        mFileHealth.CountSkip(skip);
        return true;
    }
    if (contextSwitch.Self.ThreadID <= 0)
        return true;
    const Moment moment = MakeMoment(inRecord.Time, contextSwitch.Self.Cpu);
    TrackedThread& thread = GetThread(contextSwitch.Self.ThreadID, contextSwitch.Self.ProcessID, inRecord.Time);
    const ERunState wanted = contextSwitch.IsOut ? ERunState::Waiting : ERunState::Running;
    if (thread.State == wanted)
    {
        ++mHealth.RepeatedSwitches;
        return true;
    }
    if (!contextSwitch.IsOut)
        return SwitchIn(thread, moment);
    return SwitchOut(thread, moment, contextSwitch.IsPreempted ? sWaitPreempted : sWaitForThread, sNoCallstack);
}

bool CaptureImporter::HandleComm(const PerfRecord& inRecord)
{
    PerfComm comm;
    if (gDecodeComm(inRecord, comm) != EPerfSkip::None || comm.ThreadID <= 0)
        return true; // the scan has counted it
    TrackedThread* thread = mThreads.Find(comm.ThreadID);
    if (thread == nullptr || thread->HasExited)
    {
        // A thread that ran before the capture began, or one whose fork got lost.
        AddThread(comm.ThreadID, comm.ProcessID, std::string(comm.Name), inRecord.Time);
        thread = mThreads.Find(comm.ThreadID);
        return Emit(mBuilder->ToMs(inRecord.Time), *thread,
                    ThreadStartEvent{inRecord.Time == 0 ? sExistedAtStart : sStartedLater, 0});
    }
    thread->LastTime = std::max(thread->LastTime, inRecord.Time);
    if (thread->SessionThread == sNoThread)
        thread->Name = comm.Name;
    return Emit(mBuilder->ToMs(inRecord.Time), *thread, ThreadNameEvent{std::string(comm.Name)});
}

bool CaptureImporter::HandleFork(const PerfRecord& inRecord)
{
    PerfTask task;
    if (gDecodeTask(inRecord, task) != EPerfSkip::None || task.ThreadID <= 0 || inRecord.Time == 0)
        return true; // threads that ran before the capture began are told of by their names too
    const TrackedThread* known = mThreads.Find(task.ThreadID);
    // perf writes down running threads while new ones are already being recorded, so one can be told of twice.
    if (known != nullptr && !known->HasExited && known->State == ERunState::Unknown)
        return true;
    if (known != nullptr && !known->HasExited && !EndThread(*mThreads.Find(task.ThreadID), inRecord.Time, sEndedEarlier))
        return false;

    // A thread begins under the name of the one that made it.
    const TrackedThread* parent = mThreads.Find(task.ParentThreadID);
    std::string name;
    if (parent != nullptr)
        name = parent->SessionThread != sNoThread ? mSession.GetValidThread(parent->SessionThread).ThreadName : parent->Name;
    TrackedThread& thread = AddThread(task.ThreadID, task.ProcessID, name, inRecord.Time);
    return Emit(mBuilder->ToMs(inRecord.Time), thread, ThreadStartEvent{sStartedLater, 0});
}

bool CaptureImporter::HandleExit(const PerfRecord& inRecord)
{
    PerfTask task;
    if (gDecodeTask(inRecord, task) != EPerfSkip::None)
        return true;
    TrackedThread* thread = mThreads.Find(task.ThreadID);
    if (thread == nullptr || thread->HasExited)
        return true;
    return EndThread(*thread, inRecord.Time, sEndedEarlier);
}

// Comes a little ahead of the EXIT record, which tells the same; it counts where that one is missing.
bool CaptureImporter::HandleProcessExit(const PerfRecord& inRecord, const PerfSample& inSample, const Moment& inMoment)
{
    SchedProcessExit processExit;
    const EPerfSkip skip = mTracepoints.Decode(*inRecord.Event, inSample.Raw, processExit);
    if (skip != EPerfSkip::None)
    {
        mFileHealth.CountSkip(skip);
        return true;
    }
    TrackedThread* thread = mThreads.Find(processExit.ThreadID);
    if (thread == nullptr || thread->HasExited || mTimeline.HasExitFrom(processExit.ThreadID, inMoment.Time))
        return true;
    return EndThread(*thread, inMoment.Time, sEndedEarlier);
}

// --- Threads ---

// A thread that ends by itself is still there for its last switch, which closes it.
bool CaptureImporter::EndThread(TrackedThread& ioThread, uint64_t inTime, uint8_t inEndFlag)
{
    ioThread.HasExited = true;
    ioThread.LastTime = std::max(ioThread.LastTime, inTime);
    return Emit(mBuilder->ToMs(inTime), ioThread, ThreadEndEvent{inEndFlag});
}

// That it ends brings no thread into a session that begins behind the capture's start: it has no other event there.
bool CaptureImporter::EndThreads()
{
    const auto isOfSession = [this](const TrackedThread& inThread)
    { return inThread.SessionThread != sNoThread || mFilter.StartMs <= 0.0; };
    for (TrackedThread& thread : mThreads.GetAll())
        if (!thread.HasExited && isOfSession(thread) && !EndThread(thread, mRangeEnd, sAliveAtEnd))
            return false;
    return true;
}

bool CaptureImporter::SwitchOut(TrackedThread& ioThread, const Moment& inMoment, uint8_t inWaitReason, CallstackKey inStack)
{
    ioThread.State = ERunState::Waiting;
    ioThread.LastTime = inMoment.Time;
    ioThread.SwitchOutStack = inStack;
    return Emit(inMoment.Ms, ioThread, ContextSwitchOutEvent{inWaitReason});
}

bool CaptureImporter::SwitchIn(TrackedThread& ioThread, const Moment& inMoment)
{
    ioThread.Cpu = inMoment.Cpu;
    ioThread.LastTime = inMoment.Time;
    ioThread.State = ERunState::Running;
    return Emit(inMoment.Ms, ioThread, ContextSwitchInEvent{ioThread.SwitchOutStack});
}

// A tracepoint tells of the switch-in. If the thread counts as running, here or elsewhere, the switch that took it off was
// missed.
bool CaptureImporter::SwitchInTold(TrackedThread& ioThread, const Moment& inMoment)
{
    if (ioThread.State == ERunState::Running && !SwitchOutMissed(ioThread, ioThread.LastTime, sWaitPreempted))
        return false;
    return SwitchIn(ioThread, inMoment);
}

// The thread has an event of its own, so it runs. If it counts as waiting, the switch that brought it in was missed.
bool CaptureImporter::SeeRunning(TrackedThread& ioThread, const Moment& inMoment)
{
    const bool isMissed = ioThread.State == ERunState::Waiting;
    if (!(isMissed ? SwitchInMissed(ioThread, inMoment) : SeeOnProcessor(ioThread.ThreadID, inMoment)))
        return false;
    ioThread.State = ERunState::Running;
    ioThread.Cpu = inMoment.Cpu;
    ioThread.LastTime = inMoment.Time;
    return true;
}

// A clock samples a thread that runs once per interval, so that one that is seen can't have run for longer unseen. Without that a
// capture of some processes would lose its waits: clock samples there don't name their processor, and what other threads ran on
// it in between wasn't recorded. Where all switches are, the processor's last one tells more, unless it is the clock that sees
// the thread.
bool CaptureImporter::SwitchInMissed(TrackedThread& ioThread, const Moment& inMoment)
{
    const uint64_t earliest = inMoment.Time - std::min(inMoment.Time, inMoment.LongestUnseen);
    uint64_t time = std::max({GetProcessor(inMoment.Cpu).LastSwitch, ioThread.LastTime, earliest});
    if (!SwitchOutOther(ioThread.ThreadID, inMoment, time))
        return false;
    GetProcessor(inMoment.Cpu) = {ioThread.ThreadID, sUnknownThread, time};
    ++mHealth.MissedSwitchIns;
    return SwitchIn(ioThread, MakeMoment(std::min(time, inMoment.Time), inMoment.Cpu));
}

// Why it gave way isn't known. What a processor leaves for another thread was mostly still runnable.
bool CaptureImporter::SwitchOutMissed(TrackedThread& ioThread, uint64_t inTime, uint8_t inWaitReason)
{
    ++mHealth.MissedSwitchOuts;
    return SwitchOut(ioThread, MakeMoment(inTime, ioThread.Cpu), ioThread.HasExited ? sWaitTerminated : inWaitReason,
                     sNoCallstack);
}

// The processor runs this thread. If it was said to run another one, that one did until it was last seen, or until ioTime, if
// that is later; ioTime becomes when it stopped. A processor falls idle only when nothing is runnable, so the other one then
// waits.
bool CaptureImporter::SwitchOutOther(int32_t inThreadID, const Moment& inMoment, uint64_t& ioTime)
{
    Processor& processor = GetProcessor(inMoment.Cpu);
    if (processor.ThreadID == sUnknownThread || processor.ThreadID == inThreadID)
        return true;
    TrackedThread* other = mThreads.Find(std::exchange(processor.ThreadID, inThreadID));
    if (other == nullptr || other->State != ERunState::Running || other->Cpu != inMoment.Cpu)
        return true;
    ioTime = std::max(ioTime, other->LastTime);
    return SwitchOutMissed(*other, ioTime, inThreadID == sIdleThread ? sWaitForThread : sWaitPreempted);
}

bool CaptureImporter::SeeOnProcessor(int32_t inThreadID, const Moment& inMoment)
{
    uint64_t time = GetProcessor(inMoment.Cpu).LastSwitch;
    return SwitchOutOther(inThreadID, inMoment, time);
}

// A capture of some processes names the threads that come after theirs on a processor, and nothing else of them.
bool CaptureImporter::IsOfCapture(int32_t inThreadID, uint64_t inTime)
{
    return mThreads.Find(inThreadID) != nullptr || mActive.FindProcess(inThreadID) != 0 ||
           mTimeline.FindProcessOfThread(inThreadID, inTime) != 0;
}

TrackedThread& CaptureImporter::GetThread(int32_t inThreadID, int32_t inToldProcessID, uint64_t inTime)
{
    if (TrackedThread* thread = mThreads.Find(inThreadID)) [[likely]]
        return *thread;
    ++mHealth.UnnamedThreads;
    const int32_t process = mBuilder->GetProcessOf(inThreadID, inToldProcessID, mActive.FindProcess(inThreadID), inTime);
    return AddThread(inThreadID, process, std::string(), inTime);
}

TrackedThread& CaptureImporter::AddThread(int32_t inThreadID, int32_t inProcessID, const std::string& inName, uint64_t inTime)
{
    uint32_t instance = mTimeline.FindInstance(inProcessID, inTime);
    if (instance == ProcessTimeline::sNoInstance)
        instance = mTimeline.AddUnknownProcess(inProcessID);
    TrackedThread thread;
    thread.ThreadID = inThreadID;
    thread.ProcessID = inProcessID;
    thread.LastTime = inTime;
    thread.StartTime = inTime;
    thread.Name = inName;
    thread.Instance = instance;
    thread.IsCaptured = mBuilder->IsCaptured(instance);
    // Processes that only turned up outside the range aren't the session's.
    if (thread.IsCaptured || mIsInRange)
        thread.SessionProcess = mBuilder->GetProcessID(instance);
    return mThreads.Add(thread);
}

// Threads that leave no event in the range aren't the session's. One that began before the range existed when it began.
bool CaptureImporter::EnterThread(TrackedThread& ioThread, double inMs)
{
    if (!mIsInRange || !ioThread.IsCaptured || ioThread.SessionThread != sNoThread)
        return true;
    ioThread.SessionThread =
        mSession.AddThread(ioThread.SessionProcess, ioThread.ThreadID, ioThread.Name, mBuilder->ToMs(ioThread.StartTime), 0.0)
            .ThreadID;
    const bool isStartCut = mFilter.StartMs > 0.0 && ioThread.StartTime < mRangeStart;
    return !isStartCut || Emit(inMs, ioThread, ThreadStartEvent{sExistedAtStart, 0});
}

CaptureImporter::Processor& CaptureImporter::GetProcessor(int32_t inCpu)
{
    if (inCpu < 0 || static_cast<uint32_t>(inCpu) >= sMaxCpus)
        return mNowhere = Processor();
    if (static_cast<size_t>(inCpu) >= mProcessors.size())
        mProcessors.resize(static_cast<size_t>(inCpu) + 1);
    return mProcessors[static_cast<size_t>(inCpu)];
}

// --- Events ---

// A callchain is innermost first, the kernel's frames before the user's, with markers in between; turned around and without the
// markers it is one stack, outermost frame first. Values that can't be code, which stacks without frame pointers end in, are left
// out.
CallstackKey CaptureImporter::InternStack(const TrackedThread& inThread, const PerfSample& inSample)
{
    mStack.clear();
    for (uint32_t i = inSample.Callchain.GetCount(); i-- > 0;)
        if (gIsCodeAddress(inSample.Callchain[i]))
            mStack.push_back(inSample.Callchain[i]);
    if (mStack.empty() && gIsCodeAddress(inSample.InstructionPointer))
        mStack.push_back(inSample.InstructionPointer);
    return mStack.empty() ? sNoCallstack : mSession.GetCallstackTrie().AddCallstack(inThread.SessionThread, mStack);
}

template <class Payload>
bool CaptureImporter::Emit(double inMs, TrackedThread& ioThread, const Payload& inPayload)
{
    // Threads of other processes have no timeline, and no event of theirs would reach one.
    if (!mIsInRange || !ioThread.IsCaptured)
        return true;
    if (ioThread.SessionThread == sNoThread && !EnterThread(ioThread, inMs))
        return false;
    mEvent.Reuse<Payload>(inMs, ioThread.SessionProcess, ioThread.SessionThread) = inPayload;
    return Send();
}

bool CaptureImporter::Send()
{
    ++mHealth.EventsByType[static_cast<size_t>(mEvent.GetType())];
    return mSink->OnEvent(mEvent, *mErrors);
}

} // namespace Host
