// Makes the first inputs of the fuzz targets whose format this system writes itself, with its own writers:
//
//     FuzzSeeds FOLDER    writes FOLDER/<target>/<number> for each of them
#include "Session/Callstacks/BrokenStackIndex.h"
#include "Tests/Fuzz/ChunkInputs.h"
#include "Tests/Fuzz/SessionInputs.h"
#include "Tests/Fuzz/SessionWorld.h"
#include "Tests/Fuzz/ShopWorld.h"
#include "Tests/Serialization/HandMadeContainer.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Fuzz
{
namespace
{

using namespace Serialization;

// Where the inputs of one target go.
class SeedFolder
{
public:
    explicit SeedFolder(std::filesystem::path inPath) : mPath(std::move(inPath)) { std::filesystem::create_directories(mPath); }

    void Add(const void* inData, size_t inSize)
    {
        std::ofstream file(mPath / std::to_string(mCount++), std::ios::binary);
        file.write(static_cast<const char*>(inData), static_cast<std::streamsize>(inSize));
        gExpect(file.good());
    }
    void Add(const std::string& inText) { Add(inText.data(), inText.size()); }

    // With a byte in front that says what the others are.
    void AddChosen(uint8_t inChoice, std::vector<uint8_t> inContent)
    {
        inContent.insert(inContent.begin(), inChoice);
        Add(inContent.data(), inContent.size());
    }

private:
    std::filesystem::path mPath;
    int mCount = 0;
};

// --- The classes of the shop ---

std::string gMakeJSON(std::vector<const RTTI::Object*> inObjects)
{
    std::string text;
    Utility::ErrorState errors;
    gExpect(gWriteObjectsToJSON(inObjects, text, errors));
    return text;
}

std::string gMakeSchemaText(const RTTI::Type& inType)
{
    Schema schema;
    schema.Add(inType);
    return gMakeJSON({&schema});
}

Utility::ByteBuffer gMakeContainer(std::vector<const RTTI::Object*> inObjects)
{
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    gExpect(gWriteObjectsToBuffer(buffer, inObjects, errors));
    return buffer;
}

void gMakeShopSeeds(const std::filesystem::path& inFolder)
{
    static_cast<void>(gGetShopRegistry());
    SeedFolder containers(inFolder / "ContainerFuzzer");
    SeedFolder schemas(inFolder / "SchemaFuzzer");
    SeedFolder documents(inFolder / "JSONFuzzer");

    constexpr uint32_t shopCount = 4;
    for (uint32_t seed = 0; seed < shopCount; ++seed)
    {
        Shop::RandomShop random(seed);
        Shop::Tool tool;
        tool.Spare = random.MakeItem();
        const auto shelf = random.MakeShelf();
        const Utility::ByteBuffer container = gMakeContainer({shelf.get(), &tool});
        containers.Add(container.GetData(), container.GetSize());
        documents.Add(gMakeJSON({shelf.get(), &tool}));
        documents.Add(gMakeJSON({&tool}));
    }
    const Utility::ByteBuffer empty = gMakeContainer({});
    containers.Add(empty.GetData(), empty.GetSize());
    // An item without a label, in the versions that nobody writes any more.
    const Bytes item = gSized({gString(""), gNumber(int64_t{7})});
    for (const uint32_t version : {FirstContainerVersion, HashedContainerVersion})
    {
        const Bytes old = HandMadeContainer{.Version = version,
                                            .SchemaText = gMakeSchemaText(RTTI::gTypeOf<Shop::Item>()),
                                            .Objects = {{"Shop::Item", item}}}
                              .BuildWithoutTable();
        containers.Add(old.data(), old.size());
    }
    schemas.Add(gMakeSchemaText(RTTI::gTypeOf<Shop::Shelf>()));
    schemas.Add(gMakeSchemaText(RTTI::gTypeOf<Shop::Item>()));
}

// --- The files of a session ---

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
    const Utility::ByteBuffer buffer = gMakeContainer({&session->GetSessionInfo(), session.get()});
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

// --- The chunks of a timeline ---

void gAddChunk(SeedFolder& ioSeeds, EChunkInput inChoice, Chunk& ioChunk)
{
    Utility::ByteBuffer buffer;
    ioChunk.Serialize(buffer);
    ioSeeds.AddChosen(gChoose(inChoice), {buffer.GetData(), buffer.GetData() + buffer.GetSize()});
}

// Calls of two functions under one root, as deep as there are rows, some of them instrumented.
void gFillBars(int32_t inNumRows, uint32_t inNumCalls, BarChunk& ioBars)
{
    for (int32_t depth = 0; depth < inNumRows; ++depth)
    {
        const uint32_t numBars = depth == 0 ? 1 : inNumCalls;
        for (uint32_t i = 0; i < numBars; ++i)
        {
            const uint32_t parent = depth == 0 ? Bar::sNoParent : depth == 1 ? 0 : i;
            const double length = 8.0 / numBars;
            const ResolveIndex module{i % 2 == 0 ? ResolveIndex::sNativeClass : ResolveIndex::sInstrumentedFlag};
            uint64_t index = 0;
            ioBars.AddBar(depth, parent, 0x1000 + i % 2, module, i % 4, index, i * length, (i + 0.75) * length);
            if (module.IsInstrumented())
                ioBars.SetInstrumentationContext({depth, index}, i);
        }
    }
    ioBars.BuildBoundaries();
}

void gAddBars(SeedFolder& ioSeeds, BarChunk& inBars)
{
    Utility::ByteBuffer boundaries;
    inBars.WriteBoundaries(boundaries);
    ioSeeds.AddChosen(gChoose(EChunkInput::Boundaries), {boundaries.GetData(), boundaries.GetData() + boundaries.GetSize()});
    FunctionIndexChunk functions;
    for (uint32_t depth = 0; depth < inBars.GetRows().size(); ++depth)
    {
        const BarChunk::Row& row = inBars.GetRows()[depth];
        for (size_t i = 0; i < row.size(); ++i)
            functions.GetFunctions()[{row[i]->Address, row[i]->ResolveIndex}].push_back({depth, i});
    }
    gAddChunk(ioSeeds, EChunkInput::FunctionIndex, functions);
    gAddChunk(ioSeeds, EChunkInput::Bars, inBars);
}

// Spans of each state, or buckets with each number of states, one behind the other.
void gFillOverview(bool inHasBuckets, OverviewChunk& ioOverview)
{
    ioOverview.SetContinuesFromPrevious();
    ioOverview.SetLastEntryEndTime(100.0);
    for (size_t i = 0; i < sNumTimedThreadStates; ++i)
    {
        const auto start = static_cast<double>(i);
        OverviewAccumulator bucket;
        bucket.Start = start;
        bucket.End = start + 1.0;
        std::fill_n(bucket.Shares.begin(), i, 0.125F);
        if (inHasBuckets)
            ioOverview.AddAccumulated(bucket);
        else
            ioOverview.AddEntry(static_cast<ThreadState>(i), sNoReadyIndex, i, start, start + 0.5, start, start + 2.0);
    }
}

void gAddReadyRecords(SeedFolder& ioSeeds, int inCount)
{
    ReadyThreadChunk records;
    for (int i = 0; i < inCount; ++i)
        records.AddRecord({.ReadyTime = 10.0 - i, .WaitStart = 1.0, .WaitState = 6, .ReadiedThreadID = i, .ReadyingThreadID = 7});
    gAddChunk(ioSeeds, EChunkInput::ReadyThread, records);
}

void gMakeChunkSeeds(const std::filesystem::path& inFolder)
{
    SeedFolder seeds(inFolder / "ChunkFuzzer");
    for (const uint32_t numCalls : {0U, 1U, 2U, 9U})
    {
        BarChunk bars;
        gFillBars(numCalls == 0 ? 0 : 5, numCalls, bars);
        gAddBars(seeds, bars);
    }
    std::array<OverviewChunk, 3> overviews; // the first one empty
    gFillOverview(false, overviews[1]);
    gFillOverview(true, overviews[2]);
    for (OverviewChunk& overview : overviews)
        gAddChunk(seeds, EChunkInput::Overview, overview);
    for (const int numRecords : {0, 1, 9})
        gAddReadyRecords(seeds, numRecords);
}

} // namespace
} // namespace Fuzz

int main(int inCount, char** inArguments)
{
    if (inCount != 2)
    {
        std::fputs("usage: FuzzSeeds FOLDER\n", stderr);
        return 1;
    }
    Fuzz::gMakeShopSeeds(inArguments[1]);
    Fuzz::gMakeSessionSeeds(inArguments[1]);
    Fuzz::gMakeChunkSeeds(inArguments[1]);
    return 0;
}
