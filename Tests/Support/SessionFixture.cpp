#include "SessionFixture.h"

#include "Utility/Format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <utility>

RTTI_BEGIN(FakeModule, 1)
    RTTI_BASE(Profiler::NativeModule)
RTTI_END()

RTTI_BEGIN(FakePlatformSession, 1)
    RTTI_BASE(Profiler::PlatformSession)
RTTI_END()

RTTI_BEGIN(FakeModel, 1)
    RTTI_BASE(RTTI::Object)
RTTI_END()

namespace
{

using namespace Profiler;

constexpr double sTestSampleInterval = 1.0;
constexpr CallstackKey sLostKey = 0x7FFFFFFFFFFF;

std::vector<std::string> gSplit(const std::string& inText, char inSeparator)
{
    std::vector<std::string> parts;
    std::istringstream stream(inText);
    for (std::string part; std::getline(stream, part, inSeparator);)
        parts.push_back(part);
    return parts;
}

const FakeFunction* gFindFunction(const std::vector<FakeFunction>& inFunctions, uint64_t inAddress)
{
    for (size_t i = inFunctions.size(); i-- > 0;)
        if (inFunctions[i].Start <= inAddress)
            return inFunctions[i].Size == 0 || inAddress < inFunctions[i].Start + inFunctions[i].Size ? &inFunctions[i] : nullptr;
    return nullptr;
}

std::string gPrintOffset(uint64_t inOffset)
{
    return inOffset == 0 ? std::string() : "+" + std::to_string(inOffset);
}

} // namespace

// --- FakeModule and FakePlatformSession ---

FakeModule::FakeModule(std::string inPath, int32_t inImageSize, std::vector<FakeFunction> inFunctions, ESymbols inSymbols)
    : NativeModule(std::move(inPath), inImageSize, ESymbolLookupAddressMode::Relative)
{
    if (inSymbols == ESymbols::OnDemand)
    {
        mFunctionsOnDemand = std::move(inFunctions);
        return;
    }
    for (FakeFunction& function : inFunctions)
        AddFunction(function.Start, function.Size, std::move(function.Name));
    SortFunctions();
}

const RTTI::Type& FakeModule::GetType() const
{
    return RTTI::gTypeOf<FakeModule>();
}

bool FakeModule::ResolveAddress(uint64_t inRelativeAddress, uint64_t, Function& outFunction)
{
    ++mNumLookups;
    const FakeFunction* found = gFindFunction(mFunctionsOnDemand, inRelativeAddress);
    if (found == nullptr)
        return false;
    outFunction.RelativeAddress = found->Start;
    outFunction.Size = found->Size;
    outFunction.Name = found->Name;
    return true;
}

const RTTI::Type& FakePlatformSession::GetType() const
{
    return RTTI::gTypeOf<FakePlatformSession>();
}

void FakePlatformSession::OnModuleDataFinished(ModuleDatabase& inModules)
{
    const auto& modules = inModules.GetNativeModules();
    size_t numNumbered = 0;
    for (size_t i = 0; i < modules.size(); ++i)
        numNumbered += modules[i] != nullptr && modules[i]->GetIndex() == i ? 1 : 0;
    Calls.push_back("modules " + std::to_string(numNumbered));
}

bool FakePlatformSession::IsStackComplete(Session&, ProcessID, std::span<const uint64_t> inStack)
{
    return IsComplete == nullptr || IsComplete(inStack);
}

void FakePlatformPlugin::CreatePlatformSession(std::unique_ptr<PlatformSession>& outPlatformSession)
{
    auto session = std::make_unique<FakePlatformSession>();
    session->SymbolSettingsHash = SymbolSettingsHash;
    outPlatformSession = std::move(session);
}

// --- FakeModel ---

struct FakeModel::State : ThreadProcessingState
{
    ThreadID Thread = 0;
    Utility::SignalRegistration Connection;
};

FakeModel::FakeModel(FakeModelPlugin& inPlugin, Session& inSession, std::string inName, CallList& ioCalls)
    : Model(inPlugin, inSession),
      mFakePlugin(inPlugin),
      mName(std::move(inName)),
      mCalls(ioCalls)
{
}

FakeModel::~FakeModel() = default;

const RTTI::Type& FakeModel::GetType() const
{
    return RTTI::gTypeOf<FakeModel>();
}

bool FakeModel::Tell(const std::string& inCall, const std::string& inDetails)
{
    mCalls.push_back(mName + ": " + inCall + inDetails);
    if (mFakePlugin.OnCall)
        mFakePlugin.OnCall(inCall + inDetails);
    return inCall != FailingCall && inCall != mFakePlugin.FailingCall;
}

ThreadProcessingState* FakeModel::CreateThreadProcessingState(OpenBarProcessor& inProcessor)
{
    const ThreadID thread = inProcessor.GetThreadID();
    Tell("create", Utility::gFormat(" %d", thread));
    State& state = *mStates.emplace_back(std::make_unique<State>());
    state.Thread = thread;
    state.Connection = inProcessor.BarsChanged.Connect(
        [this, thread](const OpenBars& inBars, int inKeepCount, int, double, bool)
        { Tell("bars", Utility::gFormat(" %d keep %d of %d", thread, inKeepCount, static_cast<int>(inBars.GetSize()))); });
    return &state;
}

bool FakeModel::FinishThread(OpenBarProcessor& inProcessor, Utility::ErrorState&)
{
    return Tell("finish thread", Utility::gFormat(" %d", inProcessor.GetThreadID()));
}

bool FakeModel::ProcessEvent(const TraceEvent& inEvent, ThreadProcessingState* ioState, Utility::ErrorState&)
{
    EXPECT_EQ(static_cast<const State*>(ioState)->Thread, inEvent.ThreadID);
    return Tell("event", Utility::gFormat(" %d at %s", inEvent.ThreadID, gPrintNumber(inEvent.TimeMs).c_str()));
}

FakeModelPlugin::FakeModelPlugin(std::string inName, CallList& ioCalls, const Utility::GUID& inModelID)
    : ModelPlugin("", "", nullptr, nullptr, inModelID),
      mName(std::move(inName)),
      mCalls(ioCalls)
{
}

std::unique_ptr<Model> FakeModelPlugin::CreateModel(Session& inSession)
{
    mCalls.push_back(mName + ": make");
    return std::make_unique<FakeModel>(*this, inSession, mName, mCalls);
}

std::unique_ptr<Model> FakeModelPlugin::LoadModel(Session& inSession)
{
    mCalls.push_back(mName + ": load");
    return IsLoadable ? std::make_unique<FakeModel>(*this, inSession, mName, mCalls) : nullptr;
}

// --- The world ---

SessionFixture::SessionFixture(const std::string& inPath, uint32_t inNumWorkers) : mScheduler(inNumWorkers)
{
    auto info = std::make_unique<SessionInfo>();
    info->SampleIntervalMs = sTestSampleInterval;
    mSession = std::make_unique<Session>(std::move(info), inPath, mScheduler, mPluginManager, mFrontEnd);
    auto platform = std::make_unique<FakePlatformSession>();
    mPlatform = platform.get();
    mSession->SetPlatformSession(std::move(platform));
    mSession->GetCallstackTrie().InitializeCallstacks();
    AddProcess("game");
}

SessionFixture::~SessionFixture() = default;

ProcessID SessionFixture::AddProcess(const std::string& inName)
{
    return mSession->AddProcess(1000, inName, "/bin/" + inName, true, nullptr, 0.0, 0.0).ID;
}

ThreadID SessionFixture::AddThread(const std::string& inName, size_t inProcess, double inStartTimeMs)
{
    const Thread& thread = mSession->AddThread(gMakeCapturedProcessID(inProcess), 2000, inName, inStartTimeMs, 0.0);
    mThreads[inName] = thread.ThreadID;
    return thread.ThreadID;
}

FakeModule& SessionFixture::AddModule(const std::string& inPath, int32_t inImageSize, std::vector<FakeFunction> inFunctions,
                                      FakeModule::ESymbols inSymbols)
{
    auto& fake = static_cast<FakeModule&>(
        mSession->GetModuleDatabase().AddNativeModule(std::make_unique<FakeModule>(inPath, inImageSize, inFunctions, inSymbols)));
    mFunctions[fake.GetIndex()] = std::move(inFunctions);
    return fake;
}

void SessionFixture::LoadModule(const FakeModule& inModule, uint64_t inBase, size_t inProcess, double inLoadTimeMs,
                                double inUnloadTimeMs)
{
    mFirstBases.try_emplace(inModule.GetIndex(), inBase);
    mInstances.push_back({inBase, inLoadTimeMs, inUnloadTimeMs, gMakeCapturedProcessID(inProcess), inModule.GetIndex()});
    mSession->GetModuleDatabase().SetNativeModuleInstances(mInstances);
}

// --- Stacks ---

uint64_t SessionFixture::GetAddress(const std::string& inFrame) const
{
    if (inFrame == "?")
        return sMissingFramesMarker;
    if (inFrame.starts_with("0x"))
        return std::stoull(inFrame, nullptr, 16);
    const size_t plus = inFrame.find('+');
    const uint64_t offset = plus == std::string::npos ? 0 : std::stoull(inFrame.substr(plus + 1));
    const std::string name = inFrame.substr(0, plus);
    for (const auto& [module, functions] : mFunctions)
        for (const FakeFunction& function : functions)
            if (function.Name == name)
                return mFirstBases.at(module) + function.Start + offset;
    ADD_FAILURE() << "No function " << name;
    return sNoAddress;
}

Callstack SessionFixture::GetStack(const std::string& inText) const
{
    Callstack stack;
    for (const std::string& frame : gSplit(inText, ';'))
        stack.push_back(GetAddress(frame));
    return stack;
}

CallstackKey SessionFixture::Intern(const std::string& inText)
{
    if (inText == "-")
        return sNoCallstack;
    if (inText == "lost")
        return sLostKey;
    if (inText == "empty")
        return CallstackTrie::sRoot;
    return mSession->GetCallstackTrie().AddCallstack(0, GetStack(inText));
}

// --- Events ---

struct SessionFixture::TraceLine
{
    explicit TraceLine(const std::string& inText) : Words(inText) {}

    std::string TakeWord()
    {
        std::string word;
        EXPECT_TRUE(Words >> word) << "The line ends too early: " << Words.str();
        return word;
    }

    // An empty text where the line has ended.
    std::string TakeOptionalWord()
    {
        std::string word;
        Words >> word;
        return word;
    }

    template <class Number>
    Number TakeNumber()
    {
        return static_cast<Number>(std::stoull(TakeWord()));
    }

    std::istringstream Words;
};

ThreadID SessionFixture::GetThreadID(const std::string& inName) const
{
    const auto found = mThreads.find(inName);
    return found != mThreads.end() ? found->second : std::stoi(inName);
}

std::vector<TraceEvent> SessionFixture::BuildTrace(const std::string& inText)
{
    std::vector<TraceEvent> events;
    std::string lines = inText;
    std::replace(lines.begin(), lines.end(), ',', '\n');
    for (const std::string& text : gSplit(lines, '\n'))
    {
        if (text.find_first_not_of(' ') == std::string::npos)
            continue;
        TraceLine line(text);
        events.push_back(BuildEvent(line));
    }
    return events;
}

TraceEvent SessionFixture::BuildEvent(TraceLine& ioLine)
{
    const double time = std::stod(ioLine.TakeWord());
    const std::string verb = ioLine.TakeWord();
    const std::vector<std::string> place = gSplit(ioLine.TakeWord(), '@');
    const ThreadID thread = GetThreadID(place.front());
    ProcessID process = gMakeCapturedProcessID(0);
    if (place.size() > 1)
        process = gMakeCapturedProcessID(std::stoul(place[1]));
    else if (const Thread* known = mSession->GetThread(thread))
        process = known->ProcessID;
    return TraceEvent(time, process, thread, BuildPayload(verb, ioLine));
}

TraceEvent::Payload SessionFixture::BuildPayload(const std::string& inVerb, TraceLine& ioLine)
{
    const auto takeStack = [&] { return Intern(ioLine.TakeWord()); };
    if (inVerb == "sample")
        return SampleEvent{takeStack()};
    if (inVerb == "out")
        return ContextSwitchOutEvent{ioLine.TakeNumber<uint8_t>()};
    if (inVerb == "in")
        return ContextSwitchInEvent{takeStack()};
    if (inVerb == "stack")
        return StackOnlyEvent{takeStack()};
    if (inVerb == "wake" || inVerb == "wake-timed")
    {
        const ThreadID readied = GetThreadID(ioLine.TakeWord());
        const ProcessID process = gMakeCapturedProcessID(0);
        const CallstackKey stack = takeStack();
        if (inVerb == "wake")
            return ReadyThreadEvent{stack, process, readied};
        return ReadyThreadTimedEvent{stack, process, readied, std::stod(ioLine.TakeWord())};
    }
    const int32_t shown = inVerb.ends_with("-shown") ? ioLine.TakeNumber<int32_t>() : 0;
    if (inVerb == "start")
        return ThreadStartEvent{ioLine.TakeNumber<uint8_t>(), 0};
    if (inVerb == "start-shown")
        return ThreadStartDisplayEvent{shown, ioLine.TakeNumber<uint8_t>(), 0};
    if (inVerb == "exit")
        return ThreadEndEvent{ioLine.TakeNumber<uint8_t>()};
    if (inVerb == "exit-shown")
        return ThreadEndDisplayEvent{shown, ioLine.TakeNumber<uint8_t>()};
    if (inVerb == "name")
        return ThreadNameEvent{ioLine.TakeWord()};
    if (inVerb == "begin")
    {
        const CallstackKey stack = takeStack();
        const std::string word = ioLine.TakeWord();
        const std::string name = word == "-" ? "" : word;
        const std::string context = ioLine.TakeOptionalWord();
        const std::string color = ioLine.TakeOptionalWord();
        if (color.empty())
            return InstrumentationBeginEvent{stack, name, context};
        return InstrumentationBeginColoredEvent{stack, name, context, static_cast<uint32_t>(std::stoul(color))};
    }
    if (inVerb == "end")
        return InstrumentationEndEvent{};
    if (inVerb == "reserved13")
        return Reserved13Event{ioLine.TakeNumber<uint64_t>()};
    if (inVerb == "reserved14")
        return Reserved14Event{ioLine.TakeNumber<uint64_t>()};
    if (inVerb == "fiber-out")
        return FiberSwitchOutEvent{ioLine.TakeNumber<uint64_t>(), 0};
    if (inVerb == "fiber-in")
        return FiberSwitchInEvent{ioLine.TakeNumber<uint64_t>()};
    ADD_FAILURE() << "No verb " << inVerb;
    return InvalidEvent{};
}

// --- Printing ---

std::string gPrintNumber(double inNumber)
{
    return Utility::gFormat("%.15g", inNumber);
}

const char* gPrintState(size_t inState)
{
    static constexpr const char* sNames[] = {"unknown", "run", "io", "memory", "sleep", "preempted", "sync", "idle"};
    return inState < std::size(sNames) ? sNames[inState] : "invalid";
}

std::string SessionFixture::PrintAddress(uint64_t inRelativeAddress, ResolveIndex inIndex)
{
    if (inIndex.GetClass() == ResolveIndex::sNativeClass)
    {
        const auto functions = mFunctions.find(inIndex.Index & ResolveIndex::sIndexMask);
        const FakeFunction* function =
            functions != mFunctions.end() ? gFindFunction(functions->second, inRelativeAddress) : nullptr;
        if (function != nullptr)
            return function->Name + gPrintOffset(inRelativeAddress - function->Start);
    }
    return Utility::gFormat("0x%llX", static_cast<unsigned long long>(inRelativeAddress));
}

std::string SessionFixture::PrintBarName(const OpenBar& inBar)
{
    const ResolveIndex index = inBar.Frame.ResolveIndex;
    if (index.IsUnknownClass())
        return "[missing]";
    std::string name = PrintAddress(inBar.Frame.RelativeAddress, index);
    if (index.GetClass() == ResolveIndex::sUnknownModuleClass)
        name += "(no module)";
    if (!index.IsInstrumented())
        return name;
    const InstrumentationData* data =
        mSession->GetModuleDatabase().GetInstrumentationDatabase().FindInstrumentationData(inBar.Frame);
    return "[" + (data != nullptr ? data->Name : "?") + " in " + name + "]";
}

std::string SessionFixture::PrintBars(const OpenBars& inBars)
{
    std::string text;
    for (const OpenBar& bar : inBars.GetLive())
    {
        text += (text.empty() ? "" : "; ") + PrintBarName(bar);
        if (bar.ReturnAddress != sNoAddress)
            text += "<" + PrintAddress(bar.ReturnAddress, {bar.Frame.ResolveIndex.Index & ResolveIndex::sIndexMask});
        text += " " + gPrintNumber(bar.Start) + ".." + gPrintNumber(bar.End);
        for (size_t state = 0; state < bar.StateTimes.size(); ++state)
        {
            const bool isCurrent = state == static_cast<size_t>(bar.State);
            if (isCurrent || bar.StateTimes[state] != 0.0)
                text +=
                    std::string(" ") + gPrintState(state) + (isCurrent ? "*" : "") + " " + gPrintNumber(bar.StateTimes[state]);
        }
        std::map<uint64_t, uint32_t> hits;
        bar.AddressHits.ForEach([&hits](uint64_t inAddress, uint32_t inCount) { hits[inAddress] = inCount; });
        for (const auto& [address, count] : hits)
            text += " hits " + PrintAddress(address, bar.Frame.ResolveIndex) + ":" + std::to_string(count);
        const std::string* context =
            mSession->GetModuleDatabase().GetInstrumentationDatabase().FindContext(bar.InstrumentationContextID);
        if (context != nullptr)
            text += " context " + *context;
    }
    return text;
}

std::string SessionFixture::PrintReport(const OpenBars& inBars, int inKeepCount, int inChunkIndex, double inChunkTime,
                                        bool inIsChunkFinished)
{
    const std::string chunkTime =
        inChunkTime == std::numeric_limits<double>::lowest() ? std::string("never") : gPrintNumber(inChunkTime);
    return Utility::gFormat("keep %d of %d, chunk %d from %s%s: ", inKeepCount, static_cast<int>(inBars.GetSize()), inChunkIndex,
                            chunkTime.c_str(), inIsChunkFinished ? " finished" : "") +
           PrintBars(inBars) + "\n";
}

BarRecorder::BarRecorder(SessionFixture& inFixture, OpenBarProcessor& ioProcessor)
    : mConnection(ioProcessor.BarsChanged.Connect(
          [this, &inFixture](const OpenBars& inBars, int inKeepCount, int inChunkIndex, double inChunkTime,
                             bool inIsChunkFinished)
          { mReports += inFixture.PrintReport(inBars, inKeepCount, inChunkIndex, inChunkTime, inIsChunkFinished); }))
{
}
