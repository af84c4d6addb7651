// Any bytes as one of the files of a session: the session file and the shared model with hashes that fit, or events of the plain
// layout. What can be opened goes through all that a host does: lookups, what the flags ask for, and saving.
#include "Serialization/JSON.h"
#include "Session/SharedModel.h"
#include "Tests/Fuzz/SessionInputs.h"
#include "Tests/Fuzz/SessionWorld.h"

#include <array>
#include <limits>

namespace
{

using namespace Profiler;
using Fuzz::Bytes;
using Fuzz::ESessionInput;
using Fuzz::gExpect;

// How often each character stands in what a session file holds, so that the order of maps doesn't matter. Nothing for what has no
// JSON.
using Summary = std::array<size_t, 256>;

Summary gSummarize(const Session& inSession)
{
    const std::array<const RTTI::Object*, 2> objects{&inSession.GetSessionInfo(), &inSession};
    std::string text;
    Utility::ErrorState errors;
    Summary summary{};
    if (!Serialization::gWriteObjectsToJSON(objects, text, errors))
        return summary;
    for (const char character : text)
        ++summary[static_cast<uint8_t>(character)];
    return summary;
}

void gLookUpProcessesAndThreads(Session& ioSession)
{
    const auto check = [&ioSession](int32_t inID)
    {
        const Process* process = ioSession.GetProcess(inID);
        const std::vector<Process>& processes = ioSession.GetProcessList();
        gExpect(process == nullptr || (process >= processes.data() && process < processes.data() + processes.size()));
        static_cast<void>(ioSession.GetNonCapturedProcess(inID));
        const Thread* thread = ioSession.GetThread(inID);
        gExpect(thread == nullptr || thread == &ioSession.GetValidThread(inID));
    };
    for (const Process& process : ioSession.GetProcessList())
        check(process.ID);
    for (const Thread& thread : ioSession.GetThreadList())
    {
        check(thread.ThreadID);
        check(thread.ProcessID);
    }
    for (int32_t i = 0; i < 5; ++i)
    {
        check(i);
        check(gMakeCapturedProcessID(0) + i);
    }
    check(-1);
    check(std::numeric_limits<int32_t>::max());
}

void gLookUpStacks(Session& ioSession)
{
    std::vector<CallstackKey> keys{sNoCallstack};
    for (const auto& [key, stack] : ioSession.GetCallstackDatabase().StacksByID)
        keys.push_back(key);
    for (CallstackKey key = 0; key < ioSession.GetCallstackTrie().GetNodeCount() + 2; ++key)
        keys.push_back(key);
    CallstackCursor cursor;
    Callstack copy;
    for (const CallstackKey key : keys)
    {
        const Callstack* stack = ioSession.GetCallstack(key, cursor);
        const bool isFound = ioSession.GetCallstack(key, copy);
        gExpect(isFound == (stack != nullptr) && (isFound ? *stack == copy : copy.empty()));
        if (!isFound)
            continue;
        std::vector<ResolvedFrame> frames;
        for (const EResolveFlag flag : {EResolveFlag::FetchSymbols, EResolveFlag::CacheOnly})
        {
            const int32_t count = ioSession.GetModuleDatabase().ResolveFrames(copy, gMakeCapturedProcessID(0), flag,
                                                                              ioSession.GetPlatformSession(), frames, 1.0);
            gExpect(count >= 0 && static_cast<size_t>(count) <= copy.size());
        }
    }
}

void gLookUpAddress(Session& ioSession, const ResolvedAddress& inAddress)
{
    ModuleDatabase& modules = ioSession.GetModuleDatabase();
    for (const double time : {ModuleDatabase::sAnyTime, 0.0, 1.0, 1e300, std::numeric_limits<double>::quiet_NaN()})
    {
        const ResolvedFunctionInfo info = modules.GetResolvedFunction(inAddress.RelativeAddress, inAddress.ResolveIndex);
        static_cast<void>(gGetFrameDisplayName(info));
        const uint64_t absolute = modules.ToAbsoluteAddress(inAddress.RelativeAddress, inAddress.ResolveIndex, time);
        for (size_t process = 0; process < 2; ++process)
        {
            const ProcessID id = gMakeCapturedProcessID(process);
            const ResolvedFrame frame = modules.ResolveFrame(absolute, id, time, ioSession.GetPlatformSession());
            static_cast<void>(modules.GetResolvedFunction(frame.RelativeAddress, frame.ResolveIndex));
            const std::optional<ResolvedJITFunction> generated = modules.TryResolveJIT(absolute, id, time);
            gExpect(!generated || generated->Function != nullptr);
        }
    }
}

void gLookUpModules(Session& ioSession)
{
    ModuleDatabase& modules = ioSession.GetModuleDatabase();
    for (const auto& found : modules.FindFunctions([](const std::string&) { return true; }))
        gLookUpAddress(ioSession, found.Address);
    for (const uint32_t resolveClass : {ResolveIndex::sNativeClass, ResolveIndex::sJITClass, ResolveIndex::sUnknownModuleClass,
                                        ResolveIndex::sUnknownClass, ResolveIndex::sClassMask})
    {
        for (const uint32_t index : {0U, 1U, 2U, ResolveIndex::sIndexMask})
        {
            for (const uint64_t address : {uint64_t{0}, uint64_t{0x10010}, uint64_t{0x70010}, sNoAddress})
                gLookUpAddress(ioSession, {address, {resolveClass | index}});
        }
    }
    static_cast<void>(modules.GetInstrumentationDatabase().FindContext(1));
    for (const auto& module : modules.GetNativeModules())
    {
        if (module == nullptr)
            continue;
        static_cast<void>(module->GetProperties());
        static_cast<void>(module->GetModuleTypeText());
    }
}

void gLookUp(Session& ioSession)
{
    gLookUpProcessesAndThreads(ioSession);
    gLookUpStacks(ioSession);
    gLookUpModules(ioSession);
}

// Does what the flags ask for. False, with a reason, if a step failed.
bool gBringUpToDate(Session& ioSession, uint32_t inFlags, bool inRebuildsAll)
{
    const bool isCanceled = false;
    Utility::ErrorState errors;
    auto* platform = dynamic_cast<FakePlatformSession*>(ioSession.GetPlatformSession());
    if (platform != nullptr)
        platform->IsComplete = [](std::span<const uint64_t> inStack) { return inStack.size() > 1; };
    bool isDone = (inFlags & UpgradeEventStream) == 0 || ioSession.GetEventStream().UpgradeStream(isCanceled, errors, {});
    if ((inFlags & RebuildBrokenStacks) != 0 || inRebuildsAll)
        isDone = isDone && ioSession.BuildBrokenStackIndex(Fuzz::gGetSessionRegistry(), errors, isCanceled, {});
    if (!ioSession.GetModelsToReprocess().empty())
        isDone = isDone && ioSession.Reprocess(false, errors, isCanceled, {});
    else
        isDone = isDone && ioSession.SaveSession(errors);
    gExpect(isDone == errors.GetEntries().empty());
    return isDone;
}

// What could be opened can be stored, and opened again with nothing changed.
void gTry(Fuzz::SessionWorld& ioWorld, bool inRebuildsAll)
{
    uint32_t flags = 0;
    const std::unique_ptr<Session> session = ioWorld.Load(flags);
    if (session == nullptr)
        return;
    gLookUp(*session);
    if (!gBringUpToDate(*session, flags, inRebuildsAll))
        return;
    gLookUp(*session);
    const Summary stored = gSummarize(*session);
    uint32_t flagsAfterwards = 0;
    const std::unique_ptr<Session> again = ioWorld.Load(flagsAfterwards);
    gExpect(again != nullptr && (flagsAfterwards & (UpgradeEventStream | RebuildBrokenStacks)) == 0);
    gExpect(gSummarize(*again) == stored);
    gLookUp(*again);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    static const Fuzz::Folder sFolder;
    static Fuzz::SessionWorld sWorld(sFolder);
    Fuzz::gExpectNoAssertions();
    const Fuzz::ChosenInput input(inData, inSize);
    Fuzz::Files files = sWorld.GetSoundFiles();
    const auto choice = static_cast<ESessionInput>(input.Choice % Fuzz::sNumSessionInputs);
    const auto replace = [&](const char* inName) { files[inName] = input.MakeContainer(files[inName]); };
    switch (choice)
    {
    case ESessionInput::SessionFileAlone:
        files.erase("CallstackDatabase.dat");
        [[fallthrough]];
    case ESessionInput::SessionFile:
        replace(Fuzz::SessionWorld::sSessionFile);
        break;
    case ESessionInput::SharedModel:
        replace(Fuzz::SessionWorld::sSharedModelFile);
        break;
    case ESessionInput::PlainEvents:
        files["events.index"] = Fuzz::gMakeEventIndex(TraceEventStream::sPlainVersion, input.Content.size(), 1);
        files["events.dat"] = input.Content;
        break;
    }
    sFolder.ReplaceAll(files);
    sWorld.SetModelsLoadable((input.Choice & Fuzz::sLoadableModels) != 0);
    gTry(sWorld, choice == ESessionInput::PlainEvents);
    return 0;
}
