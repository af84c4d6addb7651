// One opened capture: the owner of everything of it that isn't the timeline, and of the models that plugins made for it.
//
// A new capture runs CreateModels, BeginProcessing, ProcessEvents and FinishPass. A stored one comes from sLoad, which says in
// EReprocessFlags what has to be done before it can be used: UpgradeStream of the event stream, then BuildBrokenStackIndex, then
// Reprocess. Session.cpp holds the lists and lookups; opening, passes and saving lie in the files Session*.cpp.
//
// Threads: the lists have no lock; the thread that runs the pass is the only one to change them, and only while nobody else
// looks. GetCallstack may be called from any thread once no stacks are added. Ownership: owns all it holds but the scheduler and
// the plugin managers, which outlive it. Invariant: ThreadList[i] has the ThreadID i, unless the compatibility map says
// otherwise.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "Session/Callstacks/BrokenStackHolder.h"
#include "Session/Callstacks/CallstackDatabase.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Events/TraceEventStream.h"
#include "Session/Host/PlatformSession.h"
#include "Session/Modules/ModuleDatabase.h"
#include "Session/Processes/Process.h"
#include "Session/SessionInfo.h"
#include "Utility/ErrorState.h"
#include "Utility/GUID.h"
#include "Utility/Progress.h"

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

class EventDispatcher;
class Model;
class PlatformPlugin;
class PluginManagerFrontEnd;
class OpenBarProcessorFiberState;
class SharedModel;
struct PluginManagerCommon;

// What a loaded session needs before it can be used, as bits.
enum EReprocessFlags : uint32_t
{
    NothingToReprocess = 0,
    UpgradeEventStream = 1,  // the event stream has an old layout
    RebuildBrokenStacks = 2, // there is no sound index of broken stacks
    ReprocessAllModels = 4,  // no model could be loaded
    ReprocessSomeModels = 8, // some models, but not all, couldn't be loaded
};

class Session : public RTTI::Object
{
    RTTI_FRIEND()

public:
    // Readers only give instrumentation events of captures with this version.
    static constexpr uint32_t CurrentPerformanceAPIVersion = 0x20000; // NOLINT(readability-identifier-naming): as hosts know it

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
    // Without a check. REQUIRES: GetThread has found inThread before.
    [[nodiscard]] const Thread& GetValidThread(ThreadID inThread) const;

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

    // --- Opening a stored session (SessionLoad.cpp) ---

    // Opens a session file with its companions. outFlags gets EReprocessFlags, outPlatform the plugin of the session's platform.
    // False, with the reason in ioErrors and outSession untouched, if it can't be opened. Scheduler and managers outlive it.
    [[nodiscard]] static bool sLoad(const std::string& inPath, const RTTI::Registry& inRegistry,
                                    System::JobScheduler& inScheduler, PluginManagerCommon& inPluginManager,
                                    PluginManagerFrontEnd& inFrontEnd, std::unique_ptr<Session>& outSession, uint32_t& outFlags,
                                    PlatformPlugin*& outPlatform, Serialization::ReaderErrorState& ioErrors);
    // Only tells whether it can be opened.
    [[nodiscard]] static bool sLoad(const std::string& inPath, const RTTI::Registry& inRegistry,
                                    System::JobScheduler& inScheduler, PluginManagerCommon& inPluginManager,
                                    PluginManagerFrontEnd& inFrontEnd, Serialization::ReaderErrorState& ioErrors);

    // The info alone, of a session file or of a capture's; the defaults if the file holds none. Null if it can't be read.
    [[nodiscard]] static std::unique_ptr<SessionInfo> LoadSessionInfo(const std::string& inPath,
                                                                      const RTTI::Registry& inRegistry);

    // The platform of a file: the only plugin for its extension, else the one that its session names. Null if there is none.
    [[nodiscard]] static PlatformPlugin* FindPlatformPlugin(const PluginManagerFrontEnd& inFrontEnd, const std::string& inPath,
                                                            const RTTI::Registry& inRegistry);

    // --- Models and passes (SessionPass.cpp) ---

    // For a new session: asks every model plugin for a model and prepares it for a pass. A false leaves the models that were made
    // before.
    [[nodiscard]] bool CreateModels(Utility::ErrorState& ioErrors);

    // Begins a pass over all models, or over the given ones of this session. REQUIRES: each is new and prepared, as CreateModels
    // and Reprocess leave them; a model that another pass has begun to fill would hold its events twice.
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState& ioErrors);
    [[nodiscard]] bool BeginProcessing(const std::vector<Model*>& inModels, Utility::ErrorState& ioErrors);

    // The pass of a new capture: brings every stored event to the models and takes what it says of its thread. False if
    // inIsCanceled became true, a model failed, or the events couldn't be read. REQUIRES: BeginProcessing gave true, and the
    // stream was flushed: events that wait for a chunk aren't seen.
    [[nodiscard]] bool ProcessEvents(Utility::ErrorState& ioErrors, const bool& inIsCanceled,
                                     const Utility::ProgressFunction& inProgress);

    // A whole pass of a loaded session, for the models that couldn't be loaded, with saving at its end. Threads keep what they
    // know, and only events of captured processes reach the models. Nothing is saved on failure or cancellation.
    [[nodiscard]] bool Reprocess(bool inKeepsSymbolHash, Utility::ErrorState& ioErrors, const bool& inIsCanceled,
                                 const Utility::ProgressFunction& inProgress);

    // Ends a pass: completes the threads, finishes the models of the pass and saves the session. A cancellation meanwhile leaves
    // it unsaved, and the result true. inKeepsSymbolHash leaves SymbolSettingsHash alone. REQUIRES: BeginProcessing and
    // ProcessEvents gave true; once a pass.
    [[nodiscard]] bool FinishPass(bool inKeepsSymbolHash, Utility::ErrorState& ioErrors, const bool& inIsCanceled);

    // From any thread: tells all models, or the given ones, that their pass is to end.
    void StopProcessing();
    static void StopProcessing(const std::vector<Model*>& inModels);

    // Finds the broken stacks of the captured processes and loads what it found. False if a file couldn't be read or written, or
    // inIsCanceled became true; a cancelled search has kept what it found until then. Afterwards no model counts as built.
    // REQUIRES: no pass runs, the stream was flushed, and after a false no pass is run before a search has come to its end.
    [[nodiscard]] bool BuildBrokenStackIndex(const RTTI::Registry& inRegistry, Utility::ErrorState& ioErrors,
                                             const bool& inIsCanceled, const Utility::ProgressFunction& inProgress);

    // Writes everything of the session: shared model, models of the last pass, events, stacks, and the session file last. A model
    // is written once after a pass; one that was loaded, or that the last pass didn't build, stays on disk as it is. Shared model
    // and models wait until every model of the session is built: no stored one could be trusted before.
    [[nodiscard]] bool SaveSession(Utility::ErrorState& ioErrors);

    // In the order of their plugins.
    [[nodiscard]] const std::vector<Model*>& GetModels() const { return mModels; }

    // The first model whose plugin has this identifier, null if there is none.
    [[nodiscard]] Model* GetModel(const Utility::GUID& inPluginID) const;

    // The models that the next Reprocess is to rebuild; a pass that builds one takes it off.
    [[nodiscard]] const std::vector<Model*>& GetModelsToReprocess() const { return mModelsToReprocess; }

    // --- Shared model (SessionSharedModel.cpp) ---

    // Null before CreateModels of a new session, and while the plugins of a loaded one are asked for models if none is stored.
    [[nodiscard]] SharedModel* GetSharedModel() const { return mSharedModel.get(); }

    // The stored one; null, with the reason in ioErrors, if there is none that can be read.
    [[nodiscard]] std::unique_ptr<SharedModel> LoadSharedModel(const RTTI::Registry& inRegistry,
                                                               Serialization::ReaderErrorState& ioErrors);
    [[nodiscard]] bool SaveSharedModel(Utility::ErrorState& ioErrors) const;
    // Empties its folder. False if something in there can't be deleted.
    [[nodiscard]] bool ResetSharedModel(Utility::ErrorState& ioErrors) const;

    // --- The rest ---

    [[nodiscard]] ModuleDatabase& GetModuleDatabase() { return mModuleDatabase; }
    [[nodiscard]] const ModuleDatabase& GetModuleDatabase() const { return mModuleDatabase; }
    [[nodiscard]] SessionInfo& GetSessionInfo() { return *mInfo; }
    [[nodiscard]] const SessionInfo& GetSessionInfo() const { return *mInfo; }
    [[nodiscard]] TraceEventStream& GetEventStream() { return *mEventStream; }
    [[nodiscard]] const TraceEventStream& GetEventStream() const { return *mEventStream; }
    [[nodiscard]] System::JobScheduler& GetJobScheduler() const { return mScheduler; }
    [[nodiscard]] const std::string& GetPath() const { return mPath; }
    // Stores the version of the capture's instrumentation, on which hangs whether readers give it.
    void SetPerformanceAPIVersion(uint32_t inVersion);
    // The folder of the session file, with the companion files.
    [[nodiscard]] std::string GetDirectory() const;

    void SetPlatformSession(std::unique_ptr<PlatformSession> inPlatform) { mPlatformSession = std::move(inPlatform); }
    [[nodiscard]] PlatformSession* GetPlatformSession() const { return mPlatformSession.get(); }

    // Tells the platform of a new session about it. REQUIRES: it has one.
    void InitializePlatformSession();
    // Numbers the modules of a new session and tells the platform that they are complete. REQUIRES: it has a platform.
    void FinishModuleData();

private:
    // Translates through the compatibility map of an upgraded session; false for an ID that it lacks.
    [[nodiscard]] bool TranslateProcessID(ProcessID& ioProcess) const;

    [[nodiscard]] bool FinishLoad(const RTTI::Registry& inRegistry, PlatformPlugin& inPlatform, uint32_t& outFlags,
                                  Serialization::ReaderErrorState& ioErrors);
    void GiveThreadsAProcess();
    void LoadModels();

    [[nodiscard]] bool DispatchCapturedEvents(TraceEventStreamReader& ioReader, Utility::ErrorState& ioErrors,
                                              const bool& inIsCanceled, const Utility::ProgressFunction& inProgress);
    [[nodiscard]] bool BeginPass(const std::vector<Model*>& inModels, bool inFillsSharedModel, Utility::ErrorState& ioErrors);
    void MarkUnbuilt(const std::vector<Model*>& inModels);
    void CompleteThreads();

    [[nodiscard]] bool SaveModels(Utility::ErrorState& ioErrors);
    [[nodiscard]] bool SaveCallstacks(Utility::ErrorState& ioErrors) const;
    [[nodiscard]] bool SaveSessionFile(Utility::ErrorState& ioErrors) const;

    System::JobScheduler& mScheduler;
    PluginManagerCommon& mPluginManager;
    PluginManagerFrontEnd& mFrontEnd;
    std::string mPath;
    std::unique_ptr<SessionInfo> mInfo;

    // Destroyed from the last to the first: stacks, databases and lists go before the platform's data, and the models go last.
    std::vector<std::unique_ptr<Model>> mOwnedModels;
    std::vector<Model*> mModels;            // in the order of mOwnedModels
    std::vector<Model*> mModelsToReprocess; // of mModels
    std::vector<Model*> mModelsOfPass;      // of the pass that runs, or ran last
    std::vector<Model*> mUnbuiltModels;     // those that no finished pass has built; nothing stored is trusted until it is empty
    std::vector<Model*> mModelsToSave;      // those of finished passes, until they are saved
    std::unique_ptr<SharedModel> mSharedModel;
    std::unique_ptr<OpenBarProcessorFiberState> mUnkeptFibers; // of a pass that doesn't fill the shared model
    bool mFillsSharedModel = false;                            // the pass that runs, or ran last
    bool mIsSharedModelSound = false;                          // it was loaded, or comes from a pass that was finished
    std::unique_ptr<TraceEventStream> mEventStream;            // never null
    BrokenStackHolder mBrokenStacks;
    std::unique_ptr<EventDispatcher> mDispatcher; // of the pass that runs, or of one that failed
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
