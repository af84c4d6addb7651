#include "Session/Session.h"

#include "Session/Host/PluginManagers.h"
#include "Session/Modules/ThreadNaming.h"
#include "Session/Pass/ChunkTime.h"
#include "Session/Pass/Model.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/SessionPaths.h"
#include "Utility/Assert.h"

#include <algorithm>
#include <utility>

RTTI_BEGIN(Profiler::Session, 9)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("ThreadCompatibilityMap", mThreadCompatibilityMap)
    RTTI_PROPERTY("ProcessCompatibilityMap", mProcessCompatibilityMap)
    RTTI_PROPERTY("ProcessList", mProcessList)
    RTTI_PROPERTY("ThreadList", mThreadList)
    RTTI_PROPERTY("NonCapturedProcesses", mNonCapturedProcesses)
    RTTI_PROPERTY("ModuleDatabase", mModuleDatabase)
    RTTI_PROPERTY("CallstackDatabase", mCallstackDatabase)
    RTTI_PROPERTY("PlatformSession", mPlatformSession)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint8_t sExistedAtStart = 1; // StartFlag
constexpr uint8_t sAliveAtEnd = 1;     // EndFlag

template <class Record>
Record* gGetAt(std::vector<Record>& inRecords, size_t inIndex)
{
    return inIndex < inRecords.size() ? &inRecords[inIndex] : nullptr;
}

Process gMakeProcess(int32_t inID, int32_t inDisplayID, std::string inName, std::string inPath, bool inIs64Bit,
                     std::unique_ptr<OptionalProcessInfo> inInfo, double inStartTimeMs, double inEndTimeMs)
{
    Process process;
    process.ID = inID;
    process.DisplayID = inDisplayID;
    process.Name = std::move(inName);
    process.Path = std::move(inPath);
    process.Is64Bit = inIs64Bit;
    process.OptionalProcessInfo = std::move(inInfo);
    process.StartTimeMs = inStartTimeMs;
    process.EndTimeMs = inEndTimeMs;
    return process;
}

} // namespace

const RTTI::Type& Session::GetType() const
{
    return RTTI::gTypeOf<Session>();
}

Process& Session::AddProcess(int32_t inDisplayID, std::string inName, std::string inPath, bool inIs64Bit,
                             std::unique_ptr<OptionalProcessInfo> inInfo, double inStartTimeMs, double inEndTimeMs)
{
    mProcessList.push_back(gMakeProcess(gMakeCapturedProcessID(mProcessList.size()), inDisplayID, std::move(inName),
                                        std::move(inPath), inIs64Bit, std::move(inInfo), inStartTimeMs, inEndTimeMs));
    return mProcessList.back();
}

Process& Session::AddNonCapturedProcess(int32_t inDisplayID, std::string inName, std::string inPath, bool inIs64Bit,
                                        std::unique_ptr<OptionalProcessInfo> inInfo, double inStartTimeMs, double inEndTimeMs)
{
    mNonCapturedProcesses.push_back(gMakeProcess(static_cast<int32_t>(mNonCapturedProcesses.size()), inDisplayID,
                                                 std::move(inName), std::move(inPath), inIs64Bit, std::move(inInfo),
                                                 inStartTimeMs, inEndTimeMs));
    return mNonCapturedProcesses.back();
}

Thread& Session::AddThread(ProcessID inProcess, int32_t inDisplayThreadID, std::string inThreadName, double inStartTimeMs,
                           double inEndTimeMs)
{
    Thread thread;
    thread.ProcessID = inProcess;
    thread.ThreadID = static_cast<int32_t>(mThreadList.size());
    thread.DisplayThreadID = inDisplayThreadID;
    thread.ThreadName = std::move(inThreadName);
    thread.StartTimeMs = inStartTimeMs;
    thread.EndTimeMs = inEndTimeMs;
    return AddThread(std::move(thread));
}

Thread& Session::AddThread(Thread inThread)
{
    Process* process = GetProcess(inThread.ProcessID);
    PROFILER_ASSERT_AT("Session/Session", process != nullptr, "Thread %d belongs to no process", inThread.ThreadID);
    if (process != nullptr)
        process->ThreadOrder.push_back(inThread.ThreadID);
    mThreadList.push_back(std::move(inThread));
    return mThreadList.back();
}

bool Session::TranslateProcessID(ProcessID& ioProcess) const
{
    if (mProcessCompatibilityMap.empty())
        return true;
    const auto found = mProcessCompatibilityMap.find(ioProcess);
    if (found == mProcessCompatibilityMap.end())
        return false;
    ioProcess = found->second;
    return true;
}

Process* Session::GetProcess(ProcessID inProcess)
{
    ProcessID process = inProcess;
    if (!TranslateProcessID(process) || process >= 0)
        return nullptr;
    return gGetAt(mProcessList, gGetCapturedProcessIndex(process));
}

const Process* Session::GetProcess(ProcessID inProcess) const
{
    return const_cast<Session*>(this)->GetProcess(inProcess);
}

const Process* Session::GetNonCapturedProcess(ProcessID inProcess) const
{
    if (inProcess < 0 || static_cast<size_t>(inProcess) >= mNonCapturedProcesses.size())
        return nullptr;
    return &mNonCapturedProcesses[static_cast<size_t>(inProcess)];
}

Thread* Session::GetThread(ThreadID inThread)
{
    ThreadID index = inThread;
    if (!mThreadCompatibilityMap.empty())
    {
        const auto found = mThreadCompatibilityMap.find(inThread);
        if (found == mThreadCompatibilityMap.end())
            return nullptr;
        index = found->second;
    }
    // A negative index becomes too large.
    return gGetAt(mThreadList, static_cast<size_t>(index));
}

const Thread* Session::GetThread(ThreadID inThread) const
{
    return const_cast<Session*>(this)->GetThread(inThread);
}

const Thread& Session::GetValidThread(ThreadID inThread) const
{
    const ThreadID index = mThreadCompatibilityMap.empty() ? inThread : mThreadCompatibilityMap.find(inThread)->second;
    return mThreadList[static_cast<size_t>(index)];
}

void Session::ForEachProcessByName(const std::string& inName, const std::function<void(const Process&)>& inCallback) const
{
    for (const Process& process : mProcessList)
        if (process.Name == inName)
            inCallback(process);
}

void Session::RebuildProcessCompatibilityMap()
{
    for (size_t i = 0; i < mProcessList.size(); ++i)
        mProcessCompatibilityMap.try_emplace(mProcessList[i].ID, gMakeCapturedProcessID(i));
}

void Session::RebuildThreadCompatibilityMap()
{
    for (size_t i = 0; i < mThreadList.size(); ++i)
        mThreadCompatibilityMap.try_emplace(mThreadList[i].ThreadID, static_cast<int32_t>(i));
}

void Session::UpdateThreadFromEvent(const TraceEvent& inEvent)
{
    // A pass drops events at impossible times, all of what they say.
    if (GetProcess(inEvent.ProcessID) == nullptr || !gIsPlaceableTime(sLevel0ChunkLengthMs, inEvent.TimeMs))
        return;
    Thread* thread = gGetAt(mThreadList, static_cast<size_t>(inEvent.ThreadID));
    if (thread == nullptr)
        return;

    const auto start = [&](uint8_t inStartFlag)
    {
        thread->StartTimeMs = inStartFlag == sExistedAtStart ? 0.0 : inEvent.TimeMs;
        if (thread->ThreadName.empty())
            thread->ThreadName = gGetThreadNameFromStart(inEvent, mModuleDatabase, mPlatformSession.get());
    };
    const auto end = [&](uint8_t inEndFlag)
    { thread->EndTimeMs = inEndFlag == sAliveAtEnd ? mInfo->SessionEndTimeMs : inEvent.TimeMs; };

    if (const auto* plainStart = inEvent.As<ThreadStartEvent>())
        start(plainStart->StartFlag);
    else if (const auto* displayStart = inEvent.As<ThreadStartDisplayEvent>())
    {
        thread->DisplayThreadID = displayStart->DisplayThreadID;
        start(displayStart->StartFlag);
    }
    else if (const auto* plainEnd = inEvent.As<ThreadEndEvent>())
        end(plainEnd->EndFlag);
    else if (const auto* displayEnd = inEvent.As<ThreadEndDisplayEvent>())
    {
        thread->DisplayThreadID = displayEnd->DisplayThreadID;
        end(displayEnd->EndFlag);
    }
    else if (const auto* name = inEvent.As<ThreadNameEvent>())
        thread->ThreadName = name->Name;
}

const Callstack* Session::GetCallstack(CallstackKey inKey, CallstackCursor& ioCursor) const
{
    if (!mCallstackTrie.IsInitialized())
        return GetCallstack(inKey);
    return mCallstackTrie.GetCallstack(inKey, ioCursor) ? &ioCursor.Addresses : nullptr;
}

const Callstack* Session::GetCallstack(CallstackKey inKey) const
{
    if (!mCallstackTrie.IsInitialized())
    {
        const auto found = mCallstackDatabase.StacksByID.find(inKey);
        // Whatever a file has stored under the key that means no stack.
        const bool isFound = inKey != sNoCallstack && found != mCallstackDatabase.StacksByID.end();
        return isFound ? found->second.get() : nullptr;
    }
    thread_local Callstack sStack;
    return mCallstackTrie.GetCallstack(inKey, sStack) ? &sStack : nullptr;
}

bool Session::GetCallstack(CallstackKey inKey, Callstack& outStack) const
{
    if (mCallstackTrie.IsInitialized())
        return mCallstackTrie.GetCallstack(inKey, outStack);
    const Callstack* stack = GetCallstack(inKey);
    if (stack != nullptr)
        outStack = *stack;
    else
        outStack.clear();
    return stack != nullptr;
}

Model* Session::GetModel(const Utility::GUID& inPluginID) const
{
    const auto found =
        std::find_if(mModels.begin(), mModels.end(),
                     [&inPluginID](const Model* inModel) { return inModel->GetPlugin().GetModelID() == inPluginID; });
    return found != mModels.end() ? *found : nullptr;
}

std::string Session::GetDirectory() const
{
    return gGetFolderOf(mPath);
}

void Session::SetPerformanceAPIVersion(uint32_t inVersion)
{
    mInfo->PerformanceAPIVersion = inVersion;
    mEventStream->SetIncludeInstrumentation(inVersion == CurrentPerformanceAPIVersion);
}

void Session::InitializePlatformSession()
{
    mPlatformSession->AttachSession(*this, mScheduler);
}

void Session::FinishModuleData()
{
    mModuleDatabase.NumberNativeModules();
    mPlatformSession->OnModuleDataFinished(mModuleDatabase);
}

} // namespace Profiler
