// How fast a capture's stores are written and read back, and how many bytes a stack costs.
//
// Workloads, all of one generated capture from a fixed seed: a million events of 64 threads, as a server's look (samples,
// switches, wake-ups), with stacks of depth 24 that share their outer frames.
//   DecompressChunks   what zstd alone needs for the chunks of events.dat, from memory
//   ReadEvents         a reader's way from the file to each event; to be within three times of DecompressChunks
//   WriteEvents        from events to the file
//   AddStacks          interning the stacks; the counter BytesPerNode is what the store then holds
// Items are events, and for AddStacks stacks.
#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "Session/Callstacks/CallstackTrie.h"
#include "Session/Events/TraceEventStream.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Processes/Process.h"
#include "Tests/Support/TestRegistry.h"

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Profiler;

constexpr size_t sNumEvents = 1'000'000;
constexpr int sNumThreads = 64;
constexpr int sDepth = 24;
constexpr size_t sNumStacks = 200'000;
constexpr uint32_t sSeed = 7;

using Random = std::mt19937;

size_t gPick(Random& ioRandom, size_t inCount)
{
    return std::uniform_int_distribution<size_t>(0, inCount - 1)(ioRandom);
}

TraceEvent gMakeEvent(Random& ioRandom, size_t inIndex)
{
    const double time = static_cast<double>(inIndex) * 0.0125 + static_cast<double>(gPick(ioRandom, 1000)) * 1e-5;
    const auto thread = static_cast<ThreadID>(gPick(ioRandom, sNumThreads));
    const ProcessID process = gMakeCapturedProcessID(static_cast<size_t>(thread) / 16);
    const CallstackKey stack = 1 + gPick(ioRandom, sNumStacks);
    switch (gPick(ioRandom, 4))
    {
    case 0:
        return {time, process, thread, SampleEvent{stack}};
    case 1:
        return {time, process, thread, ContextSwitchOutEvent{6}};
    case 2:
        return {time, process, thread, ContextSwitchInEvent{stack}};
    default:
        return {time, process, thread, ReadyThreadEvent{stack, process, static_cast<ThreadID>(gPick(ioRandom, sNumThreads))}};
    }
}

void gCheck(bool inIsDone)
{
    if (!inIsDone)
        throw std::runtime_error("the capture can't be stored");
}

// The generated capture in a folder of its own.
class StoredCapture
{
public:
    StoredCapture()
    {
        gCheck(mkdtemp(mFolder.data()) != nullptr);
        Random random(sSeed);
        for (size_t i = 0; i < sNumEvents; ++i)
            mEvents.push_back(gMakeEvent(random, i));
        Write(mFolder);
        Serialization::ReaderErrorState errors;
        mStream = TraceEventStream::sLoad(mFolder, *mRegistry, errors);
        gCheck(mStream != nullptr && FileSystem::gReadFile(mStream->GetDataPath(), mData));
    }

    ~StoredCapture()
    {
        Utility::ErrorState errors;
        static_cast<void>(FileSystem::gDeleteDirectory(mFolder, errors));
    }

    StoredCapture(const StoredCapture&) = delete;
    StoredCapture& operator=(const StoredCapture&) = delete;

    void Write(const std::string& inFolder) const
    {
        Utility::ErrorState errors;
        gCheck(FileSystem::gCreateDirectories(inFolder));
        TraceEventStream stream(inFolder, TraceEventStream::sColumnarVersion);
        for (const TraceEvent& event : mEvents)
            gCheck(stream.AddEvent(event, errors));
        gCheck(stream.FlushStream(errors));
    }

    [[nodiscard]] std::string GetScratchFolder() const { return mFolder + "/scratch"; }
    [[nodiscard]] const TraceEventStream& GetStream() const { return *mStream; }
    [[nodiscard]] const std::vector<uint8_t>& GetData() const { return mData; }

private:
    std::unique_ptr<RTTI::Registry> mRegistry = gMakeRegistry<TraceEventStream>();
    std::string mFolder = "/tmp/CaptureStoreBenchmark.XXXXXX";
    std::vector<TraceEvent> mEvents;
    std::unique_ptr<TraceEventStream> mStream;
    std::vector<uint8_t> mData; // of events.dat
};

const StoredCapture& gGetCapture()
{
    static const StoredCapture sCapture;
    return sCapture;
}

void gCountEvents(benchmark::State& ioState)
{
    ioState.SetItemsProcessed(static_cast<int64_t>(ioState.iterations() * sNumEvents));
}

void DecompressChunks(benchmark::State& ioState)
{
    const StoredCapture& capture = gGetCapture();
    Utility::Decompressor decompressor;
    Utility::ByteBuffer content;
    for (auto _ : ioState)
        for (const TraceEventStream::Chunk& chunk : capture.GetStream().GetChunks())
            gCheck(decompressor.Decompress(capture.GetData().data() + chunk.FileOffset, chunk.Size, content));
    gCountEvents(ioState);
}
BENCHMARK(DecompressChunks)->Unit(benchmark::kMillisecond);

void ReadEvents(benchmark::State& ioState)
{
    const StoredCapture& capture = gGetCapture();
    for (auto _ : ioState)
    {
        TraceEventStreamReader reader = capture.GetStream().CreateReader(0.0);
        TraceEvent event;
        size_t count = 0;
        while (reader.NextEvent(event))
            ++count;
        gCheck(count == sNumEvents);
    }
    gCountEvents(ioState);
}
BENCHMARK(ReadEvents)->Unit(benchmark::kMillisecond);

void WriteEvents(benchmark::State& ioState)
{
    const StoredCapture& capture = gGetCapture();
    for (auto _ : ioState)
    {
        Utility::ErrorState errors;
        static_cast<void>(FileSystem::gDeleteDirectory(capture.GetScratchFolder(), errors));
        capture.Write(capture.GetScratchFolder());
    }
    gCountEvents(ioState);
}
BENCHMARK(WriteEvents)->Unit(benchmark::kMillisecond);

// Stacks of a program with 8 functions called at each level, so that inner frames vary more than outer ones.
void AddStacks(benchmark::State& ioState)
{
    Random random(sSeed);
    std::vector<Callstack> stacks(sNumStacks, Callstack(sDepth));
    for (Callstack& stack : stacks)
        for (size_t frame = 0; frame < stack.size(); ++frame)
            stack[frame] = 0x400000 + frame * 0x1000 + gPick(random, 1 + frame / 3) * 0x40;
    double bytesPerNode = 0.0;
    for (auto _ : ioState)
    {
        CallstackTrie trie;
        trie.InitializeCallstacks();
        for (size_t i = 0; i < stacks.size(); ++i)
            benchmark::DoNotOptimize(trie.AddCallstack(static_cast<ThreadID>(i % sNumThreads), stacks[i]));
        trie.FinishCallstacks();
        bytesPerNode = static_cast<double>(trie.GetBlockBytes()) / static_cast<double>(trie.GetNodeCount());
    }
    ioState.counters["BytesPerNode"] = bytesPerNode;
    ioState.SetItemsProcessed(static_cast<int64_t>(ioState.iterations() * sNumStacks));
}
BENCHMARK(AddStacks)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
