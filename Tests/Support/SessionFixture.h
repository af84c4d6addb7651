// A session without files for tests of whatever lies above it, with events and stacks built from text and bars printed as text.
//
// Threads: the test's. Ownership: a SessionFixture owns its session and all that the session needs; it is made anew for each
// test. Invariant: each name of a fake function is unique in a fixture, so that a stack can be told as "main;work;leaf".
#pragma once

#include "Session/Host/PlatformSession.h"
#include "Session/Host/PluginManagers.h"
#include "Session/Modules/NativeModule.h"
#include "Session/Pass/Model.h"
#include "Session/Pass/ModelPlugin.h"
#include "Session/Pass/OpenBarProcessor.h"
#include "Session/Session.h"
#include "System/JobScheduler.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct FakeFunction
{
    uint64_t Start; // relative to the module
    uint64_t Size;  // bytes; 0 as in symbols without a size, for functions that are found on demand
    std::string Name;
};

// A native module with the given functions, which are known from the start or found when a lookup asks for them.
class FakeModule : public Profiler::NativeModule
{
public:
    enum class ESymbols
    {
        Known,
        OnDemand,
    };

    FakeModule() = default;
    FakeModule(std::string inPath, int32_t inImageSize, std::vector<FakeFunction> inFunctions, ESymbols inSymbols);

    const RTTI::Type& GetType() const override;
    [[nodiscard]] std::string GetSymbolFile() const override { return {}; }
    [[nodiscard]] std::string GetSymbolFailure() const override { return {}; }
    [[nodiscard]] bool ResolveAddress(uint64_t inRelativeAddress, uint64_t inSize, Profiler::Function& outFunction) override;

    // How often a function was asked for that wasn't known.
    [[nodiscard]] int GetNumLookups() const { return mNumLookups; }

private:
    std::vector<FakeFunction> mFunctionsOnDemand; // by Start
    int mNumLookups = 0;
};

RTTI_DECLARE(FakeModule);

// What several fakes were told, in one order.
using CallList = std::vector<std::string>;

// Answers IsStackComplete as told; stacks are complete by default.
class FakePlatformSession : public Profiler::PlatformSession
{
public:
    const RTTI::Type& GetType() const override;
    void AttachSession(Profiler::Session&, System::JobScheduler&) override { Calls.emplace_back("attach"); }
    // Writes down how many modules have got their index.
    void OnModuleDataFinished(Profiler::ModuleDatabase& inModules) override;
    [[nodiscard]] uint64_t GetSymbolSettingsHash(Profiler::Session&) override { return SymbolSettingsHash; }
    [[nodiscard]] bool IsStackComplete(Profiler::Session& inSession, Profiler::ProcessID inProcess,
                                       std::span<const uint64_t> inStack) override;

    std::function<bool(std::span<const uint64_t>)> IsComplete;
    uint64_t SymbolSettingsHash = sUnknownSymbolSettings;
    CallList Calls;
};

RTTI_DECLARE(FakePlatformSession);

// Makes platform sessions with these settings.
class FakePlatformPlugin : public Profiler::PlatformPlugin
{
public:
    void CreatePlatformSession(std::unique_ptr<Profiler::PlatformSession>& outPlatformSession) override;

    uint64_t SymbolSettingsHash = Profiler::PlatformSession::sUnknownSymbolSettings;
};

class FakeModelPlugin;

// Writes down what it is told, and what the processors of its threads report. FailingCall names a call that fails.
class FakeModel : public Profiler::Model
{
public:
    FakeModel(FakeModelPlugin& inPlugin, Profiler::Session& inSession, std::string inName, CallList& ioCalls);
    ~FakeModel() override;

    const RTTI::Type& GetType() const override;
    Profiler::ThreadProcessingState* CreateThreadProcessingState(Profiler::OpenBarProcessor& inProcessor) override;
    [[nodiscard]] bool FinishThread(Profiler::OpenBarProcessor& inProcessor, Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool ProcessEvent(const Profiler::TraceEvent& inEvent, Profiler::ThreadProcessingState* ioState,
                                    Utility::ErrorState& ioErrors) override;
    [[nodiscard]] bool BeginProcessing(Utility::ErrorState&) override { return Tell("begin"); }
    void StopProcessing() override { Tell("stop"); }
    [[nodiscard]] bool FinishProcessing(Utility::ErrorState&, const bool& inIsCanceled) override
    {
        return Tell("finish", inIsCanceled ? " canceled" : "");
    }
    [[nodiscard]] bool PrepareReprocess(Utility::ErrorState&) override { return Tell("prepare"); }
    [[nodiscard]] bool SaveModel(Utility::ErrorState&) override { return Tell("save"); }

    std::string FailingCall; // "begin", "event", "finish thread", "finish", "prepare" or "save"

private:
    struct State;

    bool Tell(const std::string& inCall, const std::string& inDetails = {});

    FakeModelPlugin& mFakePlugin;
    std::string mName;
    CallList& mCalls;
    std::vector<std::unique_ptr<State>> mStates;
};

RTTI_DECLARE(FakeModel);

class FakeModelPlugin : public Profiler::ModelPlugin
{
public:
    FakeModelPlugin(std::string inName, CallList& ioCalls, const Utility::GUID& inModelID = {});

    [[nodiscard]] std::unique_ptr<Profiler::Model> CreateModel(Profiler::Session& inSession) override;
    // Gives nothing, so that the session makes a new one, unless told otherwise.
    [[nodiscard]] std::unique_ptr<Profiler::Model> LoadModel(Profiler::Session& inSession) override;
    [[nodiscard]] std::unique_ptr<Profiler::ILLMModel> CreateLLMModel(std::string&) override { return nullptr; }
    void RegisterLLMTools(Profiler::IToolRegistry&) override {}

    bool IsLoadable = false;
    std::string FailingCall;                        // of every model
    std::function<void(const std::string&)> OnCall; // with the call of a model, before it returns

private:
    std::string mName;
    CallList& mCalls;
};

// A front end that knows no plugin but those that the test gave it.
class FakePluginManagerFrontEnd : public Profiler::PluginManagerFrontEnd
{
public:
    FakePluginManagerFrontEnd() : PluginManagerFrontEnd(nullptr) {}

    void LoadPlugins() override {}
    void UnloadPlugins() override {}
    [[nodiscard]] const std::vector<Profiler::ISessionTypes*>& GetSessionPlugins() const override { return mSessionTypes; }
    [[nodiscard]] const std::vector<Profiler::CapturePlugin*>& GetCapturePlugins() const override { return mCapturePlugins; }
    [[nodiscard]] Profiler::PlatformPlugin* GetPlatformPlugin(const Serialization::SerializableGUID& inID) const override
    {
        return inID == PlatformID ? Platform : nullptr;
    }
    [[nodiscard]] Profiler::PlatformPlugin* GetPlatformPluginForFile(const Serialization::SerializableGUID& inID) const override
    {
        return GetPlatformPlugin(inID);
    }

    void AddSessionTypes(Profiler::ISessionTypes& inTypes) { mSessionTypes.push_back(&inTypes); }
    void AddPlatformForExtension(const std::string& inExtension, Profiler::PlatformPlugin& inPlatform)
    {
        mExtensionPlugins[inExtension].push_back(&inPlatform);
    }

    Profiler::PlatformPlugin* Platform = nullptr;
    Serialization::SerializableGUID PlatformID = Profiler::SessionInfo().PlatformID; // of Platform

private:
    std::vector<Profiler::ISessionTypes*> mSessionTypes;
    std::vector<Profiler::CapturePlugin*> mCapturePlugins;
};

// Begins with one captured process, "game", and a sample interval of one millisecond. There are no threads and no modules.
class SessionFixture
{
public:
    // inPath is that of the session file, for tests that store it. Without workers, jobs run on threads that wait for them.
    explicit SessionFixture(const std::string& inPath = "capture/capture.session", uint32_t inNumWorkers = 0);
    ~SessionFixture();

    SessionFixture(const SessionFixture&) = delete;
    SessionFixture& operator=(const SessionFixture&) = delete;

    // --- The world ---

    // Captured, with the given number from 0 on.
    Profiler::ProcessID AddProcess(const std::string& inName);

    // inName is how traces name the thread.
    Profiler::ThreadID AddThread(const std::string& inName, size_t inProcess = 0, double inStartTimeMs = 0.0);

    // Adds a module with its functions to the modules, without an instance.
    FakeModule& AddModule(const std::string& inPath, int32_t inImageSize, std::vector<FakeFunction> inFunctions,
                          FakeModule::ESymbols inSymbols = FakeModule::ESymbols::Known);

    // Loads a module into a process. The base of its first load is where stacks look for its functions.
    void LoadModule(const FakeModule& inModule, uint64_t inBase, size_t inProcess = 0, double inLoadTimeMs = -1e300,
                    double inUnloadTimeMs = 1e300);

    // --- Stacks ---

    // The absolute address of a frame: "work", "work+8", "0x1234", or "?" for the marker of missing frames.
    [[nodiscard]] uint64_t GetAddress(const std::string& inFrame) const;

    // "main;work", outermost frame first.
    [[nodiscard]] Profiler::Callstack GetStack(const std::string& inText) const;

    // The key of a stack; "-" is no stack, "empty" is the stack without frames, "lost" is a key that was never given out.
    Profiler::CallstackKey Intern(const std::string& inText);

    // --- Events ---

    // One event a line, or several with commas between: time, verb, thread, and what the verb needs. A thread is a name, or a
    // number for one that nothing created; "A@1" is thread A in process 1.
    //
    //     0 sample A main;work        7 stack A main              10 start A 1          13 begin A main;work Zone Context 255
    //     3 out A 6                   8 wake A B main             11 exit A 2           14 end A
    //     5 in A main;work            9 wake-timed A B main 8.5   12 name A Worker      15 fiber-out A 7      16 fiber-in A 7
    //
    // "start-shown A 77 1" and "exit-shown A 77 1" carry the number to show; "reserved13 A 5" and "reserved14 A 5" carry nothing
    // that anyone reads. A zone without a name has the name "-".
    [[nodiscard]] std::vector<Profiler::TraceEvent> BuildTrace(const std::string& inText);

    // --- Printing ---

    // "work", "work+8", or a number where nobody knows the function.
    [[nodiscard]] std::string PrintAddress(uint64_t inRelativeAddress, Profiler::ResolveIndex inIndex);

    // The bars, root first: name, caller, span and the time by state with a star at the state of the last stretch. What is as
    // one expects is left out: no hits, no context. "main 0..5 run* 5; work<main+8 3..5 run* 2 hits work+4:2"
    [[nodiscard]] std::string PrintBars(const Profiler::OpenBars& inBars);

    // A line: "keep 1 of 2, chunk 0 from 0 finished: " and the bars.
    [[nodiscard]] std::string PrintReport(const Profiler::OpenBars& inBars, int inKeepCount, int inChunkIndex, double inChunkTime,
                                          bool inIsChunkFinished);

    [[nodiscard]] Profiler::Session& GetSession() { return *mSession; }
    [[nodiscard]] FakePlatformSession& GetPlatform() { return *mPlatform; }
    [[nodiscard]] System::JobScheduler& GetScheduler() { return mScheduler; }
    [[nodiscard]] Profiler::PluginManagerCommon& GetPluginManager() { return mPluginManager; }
    [[nodiscard]] FakePluginManagerFrontEnd& GetFrontEnd() { return mFrontEnd; }

private:
    struct TraceLine;

    [[nodiscard]] Profiler::TraceEvent BuildEvent(TraceLine& ioLine);
    [[nodiscard]] Profiler::TraceEvent::Payload BuildPayload(const std::string& inVerb, TraceLine& ioLine);
    [[nodiscard]] Profiler::ThreadID GetThreadID(const std::string& inName) const;
    [[nodiscard]] std::string PrintBarName(const Profiler::OpenBar& inBar);

    System::JobScheduler mScheduler;
    Profiler::PluginManagerCommon mPluginManager;
    FakePluginManagerFrontEnd mFrontEnd;
    std::unique_ptr<Profiler::Session> mSession;
    FakePlatformSession* mPlatform = nullptr; // the session's

    std::map<std::string, Profiler::ThreadID> mThreads;
    std::map<uint32_t, std::vector<FakeFunction>> mFunctions; // by the index of their module
    std::map<uint32_t, uint64_t> mFirstBases;                 // by the index of the module
    std::vector<Profiler::NativeModuleInstance> mInstances;
};

// "3", "0.25": as short as the number allows.
[[nodiscard]] std::string gPrintNumber(double inNumber);

// "run", "sleep": short names of the states 0 to 7.
[[nodiscard]] const char* gPrintState(size_t inState);

// Gathers the reports of one processor as text, for as long as it lives.
class BarRecorder
{
public:
    BarRecorder(SessionFixture& inFixture, Profiler::OpenBarProcessor& ioProcessor);

    // What was reported since the last call, a report after the other.
    [[nodiscard]] std::string TakeReports() { return std::exchange(mReports, {}); }

private:
    std::string mReports;
    Utility::SignalRegistration mConnection;
};
