#include "Host/Import/CaptureImporter.h"

#include "Host/Import/WaitReasons.h"
#include "Host/Linux/LinuxPlatform.h"

#include <algorithm>
#include <limits>

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
constexpr int sProgressSteps = 100;
constexpr uint64_t sLowestMarker = static_cast<uint64_t>(-4095); // context markers of a callchain lie from here on
constexpr uint32_t sMaxCpus = 65536;                             // records that name a higher one are damaged

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

} // namespace

CaptureImporter::CaptureImporter(const PerfFile& inFile, Session& ioSession, SymbolCache& ioSymbols)
    : mFile(inFile),
      mSession(ioSession),
      mStream(inFile),
      mSymbols(ioSymbols)
{
}

// --- Preparation ---

bool CaptureImporter::Prepare(Utility::ErrorState& ioErrors)
{
    mTracepoints.Load(mFile, mWarnings);
    mUsesWaking = mTracepoints.Has(ETracepoint::SchedWaking);
    mStream.Scan(mFileHealth,
                 [this](const PerfRecord& inRecord)
                 {
                     if (inRecord.Event == nullptr)
                         return;
                     mActive.Note(inRecord);
                     mTimeline.Collect(inRecord, mFileHealth);
                 });
    if (!Utility::Check(ioErrors, mFileHealth.LastTime != 0, 0, "%s: holds no record with a time, so there is nothing to show",
                        mFile.GetPath().c_str()))
        return false;

    mHasSwitches = mTracepoints.Has(ETracepoint::SchedSwitch) || mFileHealth.GetRecordCount(EPerfRecordType::Switch) != 0 ||
                   mFileHealth.GetRecordCount(EPerfRecordType::SwitchCpuWide) != 0;
    mTimeline.Build(mFile.GetBuildIDs());
    mHealth.MappingsLeftOut = mTimeline.GetNumMappingsLeftOut();
    mBuilder = std::make_unique<SessionBuilder>(mSession, mTimeline, mSymbols, mFileHealth.FirstTime);
    SetSessionInfo();
    mBuilder->AddProcesses(mActive);
    mBuilder->AddModules(mFile);
    mSession.GetCallstackTrie().InitializeCallstacks();
    return true;
}

void CaptureImporter::SetSessionInfo()
{
    SessionInfo& info = mSession.GetSessionInfo();
    info.SampleIntervalMs = gGetSampleInterval(mFile);
    info.SessionStartTimeMs = 0.0;
    info.SessionEndTimeMs = mBuilder->ToMs(mFileHealth.LastTime);
    info.PlatformID = sLinuxPlatformID;
}

// --- The run ---

bool CaptureImporter::Run(ITraceEventSink& ioSink, const ProgressFunction& inProgress, Utility::ErrorState& ioErrors)
{
    mSink = &ioSink;
    mErrors = &ioErrors;
    const uint64_t progressStep = mStream.GetTotalBytes() / sProgressSteps + 1;
    uint64_t nextProgress = progressStep;
    PerfRecord record;
    while (mStream.Next(record))
    {
        if (!HandleRecord(record))
            return false;
        if (mStream.GetPassedBytes() >= nextProgress) [[unlikely]]
        {
            nextProgress += progressStep;
            if (inProgress)
                inProgress(static_cast<float>(mStream.GetPassedBytes()) / static_cast<float>(mStream.GetTotalBytes()));
        }
    }
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
    const Moment moment = MakeMoment(inRecord.Time, sample.Cpu);
    if (inRecord.Event->IsExecutionSample())
        return HandleExecutionSample(sample, moment);
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

bool CaptureImporter::HandleExecutionSample(const PerfSample& inSample, const Moment& inMoment)
{
    if (inSample.ThreadID == sIdleThread)
    {
        ++mHealth.IdleSamples;
        return true;
    }
    if (inSample.ThreadID < 0)
    {
        ++mHealth.SamplesWithoutThread;
        return true;
    }
    TrackedThread& thread = GetThread(inSample.ThreadID, inSample.ProcessID, inMoment.Time);
    if (!SeeRunning(thread, inMoment))
        return false;
    return Emit(inMoment.Ms, thread, SampleEvent{InternStack(thread, inSample)});
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

    if (contextSwitch.PreviousThreadID > 0 && IsOfCapture(contextSwitch.PreviousThreadID))
    {
        TrackedThread& thread = GetThread(contextSwitch.PreviousThreadID, inSample.ProcessID, inMoment.Time);
        if (!SeeRunning(thread, inMoment) ||
            !SwitchOut(thread, inMoment, gGetWaitReason(contextSwitch.PreviousState), InternStack(thread, inSample)))
            return false;
    }
    GetProcessor(inMoment.Cpu) = {contextSwitch.NextThreadID, inMoment.Time};
    if (contextSwitch.NextThreadID <= 0 || !IsOfCapture(contextSwitch.NextThreadID))
        return true;
    return SwitchIn(GetThread(contextSwitch.NextThreadID, sUnknownThread, inMoment.Time), inMoment);
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
    const TrackedThread readied = sleeper; // a copy: the waker may be a new thread, which moves the others
    return SendWakeup(readied, inSample, inMoment);
}

bool CaptureImporter::SendWakeup(const TrackedThread& inReadied, const PerfSample& inSample, const Moment& inMoment)
{
    if (inSample.ThreadID > 0)
    {
        TrackedThread& waker = GetThread(inSample.ThreadID, inSample.ProcessID, inMoment.Time);
        if (!SeeRunning(waker, inMoment))
            return false;
        return Emit(inMoment.Ms, waker,
                    ReadyThreadEvent{InternStack(waker, inSample), inReadied.SessionProcess, inReadied.SessionThread});
    }
    // An idle processor's interrupt did it: nobody's thread. The event goes with the readied process, so that it isn't dropped as
    // one of a process that isn't captured.
    TrackedThread nobody;
    nobody.SessionProcess = inReadied.SessionProcess;
    return Emit(inMoment.Ms, nobody,
                ReadyThreadEvent{InternStack(nobody, inSample), inReadied.SessionProcess, inReadied.SessionThread});
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
    if (known != nullptr && !known->HasExited &&
        !EndThread(*mThreads.Find(task.ThreadID), mBuilder->ToMs(inRecord.Time), sEndedEarlier))
        return false;

    // A thread begins under the name of the one that made it.
    const TrackedThread* parent = mThreads.Find(task.ParentThreadID);
    std::string name;
    if (parent != nullptr && parent->IsCaptured)
        name = mSession.GetValidThread(parent->SessionThread).ThreadName;
    const TrackedThread thread = AddThread(task.ThreadID, task.ProcessID, name, inRecord.Time);
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
    return EndThread(*thread, mBuilder->ToMs(inRecord.Time), sEndedEarlier);
}

// Tells what an EXIT record tells; it counts where that one is missing.
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
    if (thread == nullptr || thread->HasExited)
        return true;
    return EndThread(*thread, inMoment.Ms, sEndedEarlier);
}

// --- Threads ---

// A thread that ends by itself is still there for its last switch, which closes it.
bool CaptureImporter::EndThread(TrackedThread& ioThread, double inMs, uint8_t inEndFlag)
{
    ioThread.HasExited = true;
    return Emit(inMs, ioThread, ThreadEndEvent{inEndFlag});
}

bool CaptureImporter::EndThreads()
{
    for (TrackedThread& thread : mThreads.GetAll())
        if (!thread.HasExited && !EndThread(thread, mSession.GetSessionInfo().SessionEndTimeMs, sAliveAtEnd))
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
    if (ioThread.State == ERunState::Running)
    {
        ++mHealth.RepeatedSwitches;
        return true;
    }
    ioThread.State = ERunState::Running;
    return Emit(inMoment.Ms, ioThread, ContextSwitchInEvent{ioThread.SwitchOutStack});
}

// The thread has an event of its own, so it runs. If it counts as waiting, the switch that brought it in was missed.
bool CaptureImporter::SeeRunning(TrackedThread& ioThread, const Moment& inMoment)
{
    if (ioThread.State == ERunState::Waiting && !SwitchInMissed(ioThread, inMoment))
        return false;
    ioThread.State = ERunState::Running;
    ioThread.Cpu = inMoment.Cpu;
    ioThread.LastTime = inMoment.Time;
    return true;
}

bool CaptureImporter::SwitchInMissed(TrackedThread& ioThread, const Moment& inMoment)
{
    Processor& processor = GetProcessor(inMoment.Cpu);
    uint64_t time = std::max(processor.LastSwitch, ioThread.LastTime);

    // Another thread was said to run here; it did until it was last seen.
    TrackedThread* other = processor.ThreadID > 0 ? mThreads.Find(processor.ThreadID) : nullptr;
    if (other != nullptr && other != &ioThread && other->State == ERunState::Running && other->Cpu == inMoment.Cpu)
    {
        time = std::max(time, other->LastTime);
        ++mHealth.MissedSwitchOuts;
        if (!SwitchOut(*other, MakeMoment(time, inMoment.Cpu), sWaitPreempted, sNoCallstack))
            return false;
    }
    processor = {ioThread.ThreadID, time};
    ++mHealth.MissedSwitchIns;
    return SwitchIn(ioThread, MakeMoment(std::min(time, inMoment.Time), inMoment.Cpu));
}

// A capture of some processes names the threads that come after theirs on a processor, and nothing else of them.
bool CaptureImporter::IsOfCapture(int32_t inThreadID)
{
    return mThreads.Find(inThreadID) != nullptr || mActive.FindProcess(inThreadID) != 0 ||
           mTimeline.FindProcessOfThread(inThreadID) != 0;
}

TrackedThread& CaptureImporter::GetThread(int32_t inThreadID, int32_t inToldProcessID, uint64_t inTime)
{
    if (TrackedThread* thread = mThreads.Find(inThreadID)) [[likely]]
        return *thread;
    ++mHealth.UnnamedThreads;
    const int32_t told = inToldProcessID > 0 ? inToldProcessID : mActive.FindProcess(inThreadID);
    return AddThread(inThreadID, mBuilder->GetProcessOf(inThreadID, told), std::string(), inTime);
}

TrackedThread& CaptureImporter::AddThread(int32_t inThreadID, int32_t inProcessID, const std::string& inName, uint64_t inTime)
{
    uint32_t instance = mTimeline.FindInstance(inProcessID, inTime);
    if (instance == ProcessTimeline::sNoInstance)
        instance = mTimeline.AddUnknownProcess(inProcessID);
    TrackedThread thread;
    thread.ThreadID = inThreadID;
    thread.ProcessID = inProcessID;
    thread.SessionProcess = mBuilder->GetProcessID(instance);
    thread.IsCaptured = mSession.GetProcess(thread.SessionProcess) != nullptr;
    if (thread.IsCaptured)
        thread.SessionThread =
            mSession.AddThread(thread.SessionProcess, inThreadID, inName, mBuilder->ToMs(inTime), 0.0).ThreadID;
    return mThreads.Add(thread);
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
// markers it is one stack, outermost frame first. Addresses that can't be code, which stacks without frame pointers end in, are
// left out.
CallstackKey CaptureImporter::InternStack(const TrackedThread& inThread, const PerfSample& inSample)
{
    mStack.clear();
    for (uint32_t i = inSample.Callchain.GetCount(); i-- > 0;)
    {
        const uint64_t address = inSample.Callchain[i];
        const bool isAddress = address < sLowestMarker ? address != 0 : gGetContext(address) == EPerfContext::None;
        if (isAddress && address != sMissingFramesMarker)
            mStack.push_back(address);
    }
    if (mStack.empty() && inSample.InstructionPointer != 0)
        mStack.push_back(inSample.InstructionPointer);
    return mStack.empty() ? sNoCallstack : mSession.GetCallstackTrie().AddCallstack(inThread.SessionThread, mStack);
}

template <class Payload>
bool CaptureImporter::Emit(double inMs, const TrackedThread& inThread, const Payload& inPayload)
{
    // Threads of other processes have no timeline, and no event of theirs would reach one.
    if (inThread.ThreadID != 0 && !inThread.IsCaptured)
        return true;
    mEvent.Reuse<Payload>(inMs, inThread.SessionProcess, inThread.SessionThread) = inPayload;
    return Send();
}

bool CaptureImporter::Send()
{
    ++mHealth.EventsByType[static_cast<size_t>(mEvent.GetType())];
    return mSink->OnEvent(mEvent, *mErrors);
}

} // namespace Host
