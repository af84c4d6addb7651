// One opened capture: the owner of everything of it that isn't the timeline, and of the models that plugins made for it.
//
// Threads: the lists have no lock; the thread that runs the pass is the only one to change them, and only while nobody else
// looks. GetCallstack may be called from any thread once no stacks are added. Ownership: owns all it holds but the scheduler and
// the plugin managers, which outlive it. Invariant: ThreadList[i] has the ThreadID i, unless the compatibility map says
// otherwise.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Callstacks/BrokenStacks.h"
#include "Session/Callstacks/CallstackDatabase.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Host/PlatformSession.h"
#include "Session/Modules/ModuleDatabase.h"
#include "Session/Pass/FiberState.h"
#include "Session/Processes/Process.h"
#include "Session/SessionInfo.h"
#include "Utility/ErrorState.h"
#include "Utility/GUID.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace System
{
class JobScheduler;
}

namespace Profiler
{

class Model;
class PluginManagerFrontEnd;
struct PluginManagerCommon;

class Session : public RTTI::Object
{
    RTTI_FRIEND()

public:
    Session(std::unique_ptr<SessionInfo> inInfo, std::string inPath, System::JobScheduler& inScheduler,
            PluginManagerCommon& inPluginManager, PluginManagerFrontEnd& inFrontEnd);
    ~Session() override;

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const RTTI::Type& GetType() const override;

    // --- Processes and threads ---

    // Appends a captured process. The reference holds until the next process is added.
    Process& AddProcess(int32_t inDisplayID, std::string inName, std::string inPath, bool inIs64Bit,
                        std::unique_ptr<OptionalProcessInfo> inInfo, double inStartTimeMs, double inEndTimeMs);
    Process& AddNonCapturedProcess(int32_t inDisplayID, std::string inName, std::string inPath, bool inIs64Bit,
                                   std::unique_ptr<OptionalProcessInfo> inInfo, double inStartTimeMs, double inEndTimeMs);

    // Appends a thread, numbers it and enters it in its process. REQUIRES: the process exists.
    Thread& AddThread(ProcessID inProcess, int32_t inDisplayThreadID, std::string inThreadName, double inStartTimeMs,
                      double inEndTimeMs);
    // Appends a thread that keeps its ThreadID, and enters it in its process. REQUIRES: the process exists.
    Thread& AddThread(Thread inThread);

    // The captured process with this ID, null if there is none: the test whether a process is captured.
    [[nodiscard]] Process* GetProcess(ProcessID inProcess);
    [[nodiscard]] const Process* GetProcess(ProcessID inProcess) const;
    [[nodiscard]] const Process* GetNonCapturedProcess(ProcessID inProcess) const;

    // Null for an ID that no thread has.
    [[nodiscard]] Thread* GetThread(ThreadID inThread);
    [[nodiscard]] const Thread* GetThread(ThreadID inThread) const;
    // REQUIRES: inThread came from ThreadList of a session without compatibility maps.
    [[nodiscard]] const Thread& GetValidThread(ThreadID inThread) const { return mThreadList[static_cast<size_t>(inThread)]; }

    // Calls back for each captured process with exactly this name.
    void ForEachProcessByName(const std::string& inName, const std::function<void(const Process&)>& inCallback) const;

    // Enter the present IDs; an entry that is there stays.
    void RebuildProcessCompatibilityMap();
    void RebuildThreadCompatibilityMap();

    [[nodiscard]] const std::vector<Process>& GetProcessList() const { return mProcessList; }
    [[nodiscard]] const std::vector<Process>& GetNonCapturedProcesses() const { return mNonCapturedProcesses; }
    [[nodiscard]] const std::vector<Thread>& GetThreadList() const { return mThreadList; }

    // Takes times, number and name of a thread from an event of a captured process; ignores all other events.
    void UpdateThreadFromEvent(const TraceEvent& inEvent);

    // --- Stacks ---

    // The stack's addresses, outermost frame first; null for an unknown key. The result stays valid until the next lookup on this
    // thread.
    [[nodiscard]] const Callstack* GetCallstack(CallstackKey inKey) const;
    // Copies into outStack; false, with outStack empty, for an unknown key.
    bool GetCallstack(CallstackKey inKey, Callstack& outStack) const;

    // As the first form, for a reader with a cursor of its own: valid until the cursor's next lookup.
    [[nodiscard]] const Callstack* GetCallstack(CallstackKey inKey, CallstackCursor& ioCursor) const;

    [[nodiscard]] CallstackTrie& GetCallstackTrie() { return mCallstackTrie; }
    [[nodiscard]] CallstackDatabase& GetCallstackDatabase() { return mCallstackDatabase; }
    [[nodiscard]] BrokenStackHolder& GetBrokenStacks() { return mBrokenStacks; }

    // --- Models ---

    // Asks every model plugin for a model and prepares it for a pass. A false leaves the models that were made before.
    [[nodiscard]] bool CreateModels(Utility::ErrorState& ioErrors);

    // In the order of their plugins.
    [[nodiscard]] const std::vector<Model*>& GetModels() const { return mModels; }

    // The first model whose plugin has this identifier, null if there is none.
    [[nodiscard]] Model* GetModel(const Utility::GUID& inPluginID) const;

    // --- The rest ---

    [[nodiscard]] ModuleDatabase& GetModuleDatabase() { return mModuleDatabase; }
    [[nodiscard]] SessionInfo& GetSessionInfo() { return *mInfo; }
    [[nodiscard]] const SessionInfo& GetSessionInfo() const { return *mInfo; }
    [[nodiscard]] OpenBarProcessorFiberState& GetFiberState() { return mFiberState; }
    [[nodiscard]] System::JobScheduler& GetJobScheduler() const { return mScheduler; }
    [[nodiscard]] const std::string& GetPath() const { return mPath; }
    // The folder of the session file, with the companion files.
    [[nodiscard]] std::string GetDirectory() const;

    void SetPlatformSession(std::unique_ptr<PlatformSession> inPlatform) { mPlatformSession = std::move(inPlatform); }
    [[nodiscard]] PlatformSession* GetPlatformSession() const { return mPlatformSession.get(); }

    // Tells the platform of a new session about it.
    void InitializePlatformSession();

private:
    // Translates through the compatibility map of an upgraded session; false for an ID that it lacks.
    [[nodiscard]] bool TranslateProcessID(ProcessID& ioProcess) const;

    System::JobScheduler& mScheduler;
    PluginManagerCommon& mPluginManager;
    PluginManagerFrontEnd& mFrontEnd;
    std::string mPath;
    std::unique_ptr<SessionInfo> mInfo;

    // Destroyed from the last to the first: stacks, databases and lists go before the platform's data, and the models go last.
    std::vector<std::unique_ptr<Model>> mOwnedModels;
    std::vector<Model*> mModels;
    OpenBarProcessorFiberState mFiberState;
    BrokenStackHolder mBrokenStacks;
    std::unique_ptr<PlatformSession> mPlatformSession;
    std::unordered_map<int32_t, int32_t> mThreadCompatibilityMap;  // upgraded sessions: old ID to index
    std::unordered_map<int32_t, int32_t> mProcessCompatibilityMap; // upgraded sessions: old ID to new ID
    std::vector<Process> mProcessList;
    std::vector<Thread> mThreadList;
    std::vector<Process> mNonCapturedProcesses;
    ModuleDatabase mModuleDatabase;
    CallstackDatabase mCallstackDatabase;
    CallstackTrie mCallstackTrie;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::Session);
