#include "Tests/Fuzz/SessionWorld.h"

#include "Session/Callstacks/BrokenStackIndex.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/SharedModel.h"
#include "Tests/Fuzz/FitHashes.h"
#include "Tests/Session/StoredModules.h"
#include "Utility/Compression.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace Fuzz
{
namespace
{

using namespace Profiler;

constexpr uint64_t sGeneratedCode = 0x70000;

Function gMakeGeneratedFunction(std::string inName)
{
    Function function;
    function.RelativeAddress = 0;
    function.Size = 0x40;
    function.Name = std::move(inName);
    function.ModuleIndex = 0;
    return function;
}

// An index of one chunk, in which the two numbers behind one another are replaced.
class IndexTemplate
{
public:
    explicit IndexTemplate(uint32_t inEventDataVersion)
    {
        const Folder folder;
        TraceEventStream stream(folder.GetPath(), inEventDataVersion);
        Utility::ErrorState errors;
        gExpect(stream.AddEvent(TraceEvent(0.0, 0, 0, InstrumentationEndEvent{}), errors) && stream.FlushStream(errors));
        mIndex = folder.Read("events.index");
        const Numbers numbers{stream.GetChunks().front().Size, 1};
        const auto* bytes = reinterpret_cast<const uint8_t*>(numbers.data());
        const auto place = std::find_end(mIndex.begin(), mIndex.end(), bytes, bytes + sizeof(numbers));
        gExpect(place != mIndex.end());
        mPlace = static_cast<size_t>(place - mIndex.begin());
    }

    [[nodiscard]] Bytes Fill(uint64_t inSize, uint64_t inNumEvents) const
    {
        Bytes index = mIndex;
        const Numbers numbers{inSize, inNumEvents};
        std::memcpy(index.data() + mPlace, numbers.data(), sizeof(numbers));
        gMakeHashesFit(index);
        return index;
    }

private:
    using Numbers = std::array<uint64_t, 2>;

    Bytes mIndex;
    size_t mPlace = 0;
};

} // namespace

const RTTI::Registry& gGetSessionRegistry()
{
    static const std::unique_ptr<RTTI::Registry> sRegistry =
        gMakeRegistry<Session, SessionInfo, TraceEventStream, BrokenStackIndex, SharedModel, FakeModule, FakePlatformSession,
                      StoredModules::GeneratedModule>();
    return *sRegistry;
}

SessionWorld::SessionWorld(const Folder& inFolder) : mFolder(inFolder), mFixture(inFolder.At(sSessionFile))
{
    const RTTI::Registry& registry = gGetSessionRegistry();
    Session& session = mFixture.GetSession();
    session.SetPerformanceAPIVersion(Session::CurrentPerformanceAPIVersion);
    session.GetSessionInfo().SessionEndTimeMs = 50.0;
    mFixture.GetPluginManager().ModelPlugins = {&mFirst, &mSecond};
    mFixture.GetFrontEnd().Platform = &mPlatform;
    mFixture.AddProcess("tool");
    mFixture.AddThread("A");
    mFixture.AddThread("B");
    mFixture.AddThread("T", 1, 0.5);
    auto details = std::make_unique<OptionalProcessInfo>();
    details->CommandLine = "server --fast";
    details->CPUUsageSamples = {{1.5, 20}, {2.5, 30}};
    session.AddNonCapturedProcess(77, "server", "/bin/server", false, std::move(details), 1.0, 2.0);
    AddModules();
    StoreEvents();

    mFixture.GetPlatform().IsComplete = [](std::span<const uint64_t> inStack) { return inStack.size() > 1; };
    const bool isCanceled = false;
    Utility::ErrorState errors;
    gExpect(session.BuildBrokenStackIndex(registry, errors, isCanceled, {}));
    gExpect(session.CreateModels(errors) && session.BeginProcessing(errors) && session.ProcessEvents(errors, isCanceled, {}) &&
            session.FinishPass(false, errors, isCanceled));
    mSoundFiles = mFolder.ReadAll();
}

void SessionWorld::AddModules()
{
    mFixture.LoadModule(mFixture.AddModule("/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}}), 0x10000);
    const FakeModule& library =
        mFixture.AddModule("/lib/found.so", 0x800, {{0x10, 0, "found"}, {0x20, 0, "other"}}, FakeModule::ESymbols::OnDemand);
    mFixture.LoadModule(library, 0x40000, 0, 0.0, 9.0);
    mFixture.LoadModule(library, 0x50000, 1);

    const ProcessID process = gMakeCapturedProcessID(0);
    std::vector<std::unique_ptr<JITModule>> modules;
    modules.push_back(std::make_unique<StoredModules::GeneratedModule>());
    mFixture.GetSession().GetModuleDatabase().SetJITData(
        {gMakeGeneratedFunction("first"), gMakeGeneratedFunction("second")},
        {{sGeneratedCode, process, 5, 0.0, 20.0, 0}, {sGeneratedCode + 0x3E0, process, 5, 0.0, 20.0, 1}},
        {{sGeneratedCode >> sJITBucketShift, {0, 1}}, {(sGeneratedCode >> sJITBucketShift) + 1, {1}}}, std::move(modules),
        {{process, 0.0, 20.0, 5, 0}}, {});
}

void SessionWorld::StoreEvents()
{
    TraceEventStream& stream = mFixture.GetSession().GetEventStream();
    Utility::ErrorState errors;
    for (const char* trace :
         {"0.5 start A 1\n1 sample A main;found\n2 begin A main;work Job ctx\n3 name A Renderer\n4 start-shown T@1 77 0\n"
          "5 sample A main\n6 sample A main;work;0x70010",
          "7 end A\n7.5 begin B main;work Zone - 255\n8 fiber-out A 7\n9 out A 6\n10 in A main\n11 wake B A main\n"
          "12 wake-timed B A main 8.5\n13 sample B main;work;0x703F0",
          "14 stack B main\n15 reserved13 B 5\n16 reserved14 B 5\n17 fiber-in B 7\n18 sample B main\n19 exit A 2\n"
          "20 exit-shown T@1 78 1"})
    {
        for (const TraceEvent& event : mFixture.BuildTrace(trace))
            gExpect(stream.AddEvent(event, errors));
        gExpect(stream.FlushStream(errors));
    }
}

std::unique_ptr<Session> SessionWorld::Load(uint32_t& outFlags)
{
    const Files before = mFolder.ReadAll();
    mCalls.clear();
    std::unique_ptr<Session> session;
    PlatformPlugin* platform = nullptr;
    Serialization::ReaderErrorState errors;
    const bool isLoaded =
        Session::sLoad(mFolder.At(sSessionFile), gGetSessionRegistry(), mFixture.GetScheduler(), mFixture.GetPluginManager(),
                       mFixture.GetFrontEnd(), session, outFlags, platform, errors);
    gExpect(isLoaded == (session != nullptr) && (isLoaded || !errors.GetEntries().empty()));
    gExpect(mFolder.ReadAll() == before);
    return session;
}

Bytes gMakeEventIndex(uint32_t inEventDataVersion, uint64_t inSize, uint64_t inNumEvents)
{
    static const IndexTemplate sPlain(TraceEventStream::sPlainVersion);
    static const IndexTemplate sColumnar(TraceEventStream::sColumnarVersion);
    return (inEventDataVersion == TraceEventStream::sPlainVersion ? sPlain : sColumnar).Fill(inSize, inNumEvents);
}

Bytes gMakePlainRecord(const TraceEvent& inEvent)
{
    Utility::ByteBuffer buffer;
    buffer.AppendValue(static_cast<uint8_t>(inEvent.GetType()));
    buffer.AppendValue(inEvent.TimeMs);
    buffer.AppendValue(inEvent.ProcessID);
    buffer.AppendValue(inEvent.ThreadID);
    gEncodePayload(inEvent, buffer);
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

Bytes gMakePlainRecords(const Folder& inFolder)
{
    Serialization::ReaderErrorState errors;
    const std::unique_ptr<TraceEventStream> stream = TraceEventStream::sLoad(inFolder.GetPath(), gGetSessionRegistry(), errors);
    gExpect(stream != nullptr);
    TraceEventStreamReader reader = stream->CreateReader(std::numeric_limits<double>::lowest());
    Bytes records;
    for (TraceEvent event; reader.NextEvent(event);)
    {
        const Bytes record = gMakePlainRecord(event);
        records.insert(records.end(), record.begin(), record.end());
    }
    gExpect(reader.GetFailure().empty());
    return records;
}

Bytes gCompress(const Bytes& inContent)
{
    static Utility::Compressor sCompressor;
    Utility::ByteBuffer frame;
    gExpect(sCompressor.Compress(inContent.data(), inContent.size(), frame));
    return {frame.GetData(), frame.GetData() + frame.GetSize()};
}

Bytes gDecompress(const uint8_t* inFrame, size_t inSize)
{
    Utility::Decompressor decompressor;
    Utility::ByteBuffer content;
    gExpect(decompressor.Decompress(inFrame, inSize, content));
    return {content.GetData(), content.GetData() + content.GetSize()};
}

} // namespace Fuzz
