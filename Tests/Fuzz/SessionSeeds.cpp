#include "Tests/Fuzz/SessionSeeds.h"

#include "Serialization/BinaryWriter.h"
#include "Session/Callstacks/BrokenStackIndex.h"
#include "Session/Session.h"
#include "Tests/Fuzz/SeedFolder.h"
#include "Tests/Fuzz/SessionInputs.h"
#include "Tests/Fuzz/SessionWorld.h"

#include <array>
#include <memory>

namespace Fuzz
{
namespace
{

using namespace Profiler;

template <class Choice>
uint8_t gChoose(Choice inChoice)
{
    return static_cast<uint8_t>(inChoice);
}

// A container, and its data alone.
void gAddContainer(SeedFolder& ioSeeds, uint8_t inChoice, const Bytes& inContainer)
{
    ioSeeds.AddChosen(inChoice, inContainer);
    ioSeeds.AddChosen(inChoice | sContainerData, gGetContainerData(inContainer));
}

void gMakeEventStreamSeeds(const std::filesystem::path& inFolder, const Folder& inFiles, const Bytes& inPlainData)
{
    SeedFolder seeds(inFolder / "EventStreamFuzzer");
    const Bytes data = inFiles.Read("events.dat");
    gAddContainer(seeds, gChoose(EEventStreamInput::Index), inFiles.Read("events.index"));
    seeds.AddChosen(gChoose(EEventStreamInput::Index), gMakeEventIndex(TraceEventStream::sPlainVersion, inPlainData.size(), 1));
    seeds.AddChosen(gChoose(EEventStreamInput::Data), data);
    seeds.AddChosen(gChoose(EEventStreamInput::PlainData), inPlainData);

    Serialization::ReaderErrorState errors;
    const std::unique_ptr<TraceEventStream> stream = TraceEventStream::sLoad(inFiles.GetPath(), gGetSessionRegistry(), errors);
    gExpect(stream != nullptr);
    for (const TraceEventStream::Chunk& chunk : stream->GetChunks())
    {
        Bytes content = gDecompress(data.data() + chunk.FileOffset, chunk.Size);
        std::array<uint8_t, sizeof(uint64_t)> numEvents{static_cast<uint8_t>(chunk.NumEvents)};
        content.insert(content.begin(), numEvents.begin(), numEvents.end());
        seeds.AddChosen(gChoose(EEventStreamInput::ChunkContent), content);
    }
}

void gMakeBrokenStackSeeds(const std::filesystem::path& inFolder, const Folder& inFiles)
{
    SeedFolder seeds(inFolder / "BrokenStacksFuzzer");
    const Bytes data = inFiles.Read("stacks.dat");
    gAddContainer(seeds, gChoose(EBrokenStackInput::Index), inFiles.Read("stacks.index"));
    seeds.AddChosen(gChoose(EBrokenStackInput::Data), data);
    Serialization::ReaderErrorState errors;
    const auto index = BrokenStackIndex::sLoad(inFiles.At("stacks.index"), gGetSessionRegistry(), errors);
    gExpect(index != nullptr && !index->ChunksByThread.empty());
    for (const auto& [thread, chunks] : index->ChunksByThread)
    {
        for (const BrokenStackIndex::Chunk& chunk : chunks)
            seeds.AddChosen(gChoose(EBrokenStackInput::ChunkContent), gDecompress(data.data() + chunk.FileOffset, chunk.Size));
    }
}

// Of a session from an older build: with other IDs, and with stacks of its own.
Bytes gMakeOldSessionFile(SessionWorld& ioWorld)
{
    uint32_t flags = 0;
    const std::unique_ptr<Session> session = ioWorld.Load(flags);
    gExpect(session != nullptr);
    session->RebuildProcessCompatibilityMap();
    session->RebuildThreadCompatibilityMap();
    for (CallstackKey key = 0; key < session->GetCallstackTrie().GetNodeCount(); ++key)
        session->GetCallstackDatabase().StacksByID[key] = std::make_unique<Callstack>(*session->GetCallstack(key));
    const std::array<const RTTI::Object*, 2> objects{&session->GetSessionInfo(), session.get()};
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    gExpect(Serialization::gWriteObjectsToBuffer(buffer, objects, errors));
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

void gMakeSessionFileSeeds(const std::filesystem::path& inFolder, SessionWorld& ioWorld, const Bytes& inPlainData)
{
    SeedFolder seeds(inFolder / "SessionFileFuzzer");
    const Folder& files = ioWorld.GetFolder();
    const Bytes session = files.Read(SessionWorld::sSessionFile);
    const Bytes oldSession = gMakeOldSessionFile(ioWorld);
    for (const uint8_t models : {uint8_t{0}, sLoadableModels})
    {
        const auto choose = [models](ESessionInput inChoice) { return static_cast<uint8_t>(gChoose(inChoice) + models); };
        gAddContainer(seeds, choose(ESessionInput::SessionFile), session);
        gAddContainer(seeds, choose(ESessionInput::SessionFileAlone), oldSession);
        gAddContainer(seeds, choose(ESessionInput::SharedModel), files.Read(SessionWorld::sSharedModelFile));
    }
    seeds.AddChosen(gChoose(ESessionInput::PlainEvents), inPlainData);
}

} // namespace

void gMakeSessionSeeds(const std::filesystem::path& inFolder)
{
    const Folder folder;
    SessionWorld world(folder);
    const Bytes plainData = gMakePlainRecords(folder);
    gMakeEventStreamSeeds(inFolder, folder, plainData);
    gMakeBrokenStackSeeds(inFolder, folder);
    gMakeSessionFileSeeds(inFolder, world, plainData);
    const Bytes stacks = folder.Read("CallstackDatabase.dat");
    SeedFolder(inFolder / "StackStoreFuzzer").Add(stacks.data(), stacks.size());
}

} // namespace Fuzz
