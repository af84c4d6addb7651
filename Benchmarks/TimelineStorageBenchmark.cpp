// How fast the timeline's chunks are filled, searched, saved and loaded, next to what compression alone takes.
//
// Workloads, all from a fixed seed: the bars of one thread that is sampled every 0.1 ms with jitter, in calls nested up to 30
// deep among 3,000 functions; 400 chunks of about 10,000 bars. Saving and loading have two workers.
//   AddBar            bars into an empty chunk; PerBar to be below 25 ns
//   GetStackAtTime    any time of rows with 100,000 bars each, of lengths that differ much; PerDepth to be below 1 us
//   GetOrCreateChunk  of a chunk that is being filled; PerCall to be below 300 ns with one thread
//   BlockingLoad      of a chunk that is in memory; PerCall to be below 1 us with one thread
//   Save              all chunks, from the hand-over to the end of the flush
//   CompressAlone     what zstd alone needs for the same bytes, on two threads; Save to have above 85% of its throughput
//   Load              all chunks, from the first request to the last chunk in memory
//   DecompressAlone   what zstd alone needs for the same frames, on two threads; Load to have above 85% of its throughput
// Bytes are those of the chunks before compression. Processors tells how many were busy meanwhile, and PerProcessor the bytes in
// a second of one, which tells apart what is spent from what is waited for.
#include "FileSystem/Delete.h"
#include "System/JobScheduler.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Compression.h"

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace Profiler;

constexpr int32_t sNumChunks = 400;
constexpr double sChunkLength = 500.0; // milliseconds
constexpr double sSampleInterval = 0.1;
constexpr size_t sMaxDepth = 30;
constexpr uint32_t sNumFunctions = 3000;
constexpr uint32_t sNumWorkers = 2;
constexpr uint32_t sSeed = 7;

using Random = std::mt19937;

uint32_t gPick(Random& ioRandom, uint32_t inCount)
{
    return std::uniform_int_distribution<uint32_t>(0, inCount - 1)(ioRandom);
}

void gCheck(bool inIsDone)
{
    if (!inIsDone)
        throw std::runtime_error("the timeline can't be stored");
}

// --- Bars ---

struct Call
{
    int32_t Depth;
    uint32_t Parent;
    uint32_t Function;
    double Start;
    double End;
};

// Where the functions lie in three modules.
uint64_t gGetAddress(uint32_t inFunction)
{
    return 0x1000 + inFunction * 0x90U + inFunction % 7 * 0x10U;
}

ResolveIndex gGetModule(uint32_t inFunction)
{
    return {ResolveIndex::sNativeClass | inFunction % 3};
}

// The calls of one chunk in the order of their starts. At a sample some inner calls are over and some are new; a function calls
// few others.
std::vector<Call> gMakeCalls(int32_t inChunk)
{
    Random random(sSeed + static_cast<uint32_t>(inChunk));
    std::vector<Call> calls;
    std::vector<size_t> open;                 // places in calls, root first
    std::array<uint32_t, sMaxDepth> counts{}; // bars by depth
    const double end = (inChunk + 1) * sChunkLength;
    std::geometric_distribution<size_t> countEnded(0.34);
    std::uniform_real_distribution<double> jitter(0.5, 1.5);
    for (double time = inChunk * sChunkLength; time < end; time += sSampleInterval * jitter(random))
    {
        for (size_t ended = std::min(countEnded(random), open.size()); ended > 0; --ended)
        {
            calls[open.back()].End = time;
            open.pop_back();
        }
        const size_t numNew = std::min(open.empty() ? sMaxDepth / 2 : countEnded(random), sMaxDepth - open.size());
        for (size_t i = 0; i < numNew; ++i)
        {
            const size_t depth = open.size();
            const uint32_t caller = open.empty() ? 0 : calls[open.back()].Function;
            const uint32_t function = (caller * 31 + 1 + gPick(random, 6) * gPick(random, 6)) % sNumFunctions;
            const uint32_t parent = depth == 0 ? Bar::sNoParent : counts[depth - 1] - 1;
            ++counts[depth];
            open.push_back(calls.size());
            calls.push_back({static_cast<int32_t>(depth), parent, function, time, end});
        }
    }
    return calls;
}

void gAddBars(const std::vector<Call>& inCalls, BarChunk& ioChunk)
{
    for (const Call& call : inCalls)
    {
        uint64_t index = 0;
        ioChunk.AddBar(call.Depth, call.Parent, gGetAddress(call.Function), gGetModule(call.Function), 0, index, call.Start,
                       call.End);
    }
}

// Seconds over a number of operations, for a column of its own.
benchmark::Counter gPerOperation(size_t inCount)
{
    return {static_cast<double>(inCount), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
}

void AddBar(benchmark::State& ioState)
{
    const std::vector<Call> calls = gMakeCalls(0);
    std::optional<BarChunk> chunk;
    for (auto _ : ioState)
    {
        ioState.PauseTiming();
        chunk.emplace();
        ioState.ResumeTiming();
        gAddBars(calls, *chunk);
    }
    ioState.counters["PerBar"] = gPerOperation(calls.size());
}
BENCHMARK(AddBar)->Unit(benchmark::kMicrosecond);

// From 0 on, so many and one more. Lengths differ by orders of magnitude, as those of calls do.
std::vector<double> gMakeStarts(Random& ioRandom, int inNumBars, double inEnd)
{
    std::lognormal_distribution<double> length(0.0, 2.0);
    std::vector<double> starts{0.0};
    for (int i = 0; i < inNumBars; ++i)
        starts.push_back(starts.back() + length(ioRandom));
    const double scale = inEnd / starts.back();
    for (double& start : starts)
        start *= scale;
    return starts;
}

// Rows without gaps. inIsRead: they lie as in a chunk that was read back, not as they were filled.
std::unique_ptr<BarChunk> gMakeFullRows(int32_t inNumRows, int inNumBars, bool inIsRead)
{
    Random random(sSeed);
    std::vector<std::vector<double>> starts;
    for (int32_t depth = 0; depth < inNumRows; ++depth)
        starts.push_back(gMakeStarts(random, inNumBars, sChunkLength));
    auto chunk = std::make_unique<BarChunk>();
    for (size_t i = 0; i < static_cast<size_t>(inNumBars); ++i)
    {
        for (int32_t depth = 0; depth < inNumRows; ++depth)
        {
            const std::vector<double>& row = starts[static_cast<size_t>(depth)];
            uint64_t index = 0;
            const uint32_t parent = depth == 0 ? Bar::sNoParent : static_cast<uint32_t>(i);
            chunk->AddBar(depth, parent, 0x1000, {}, 0, index, row[i], row[i + 1]);
        }
    }
    if (!inIsRead)
        return chunk;
    Utility::ByteBuffer bytes;
    chunk->Serialize(bytes);
    auto read = std::make_unique<BarChunk>();
    Utility::ByteCursor cursor(bytes.GetData(), bytes.GetSize());
    gCheck(read->Deserialize(cursor));
    return read;
}

void GetStackAtTime(benchmark::State& ioState)
{
    constexpr int numBars = 100'000;
    const auto numRows = static_cast<int32_t>(ioState.range(0));
    const auto chunk = gMakeFullRows(numRows, numBars, ioState.range(1) != 0);
    Random random(sSeed);
    std::vector<double> times(100'000);
    for (double& time : times)
        time = std::uniform_real_distribution<double>(0.0, 0.999 * sChunkLength)(random);

    std::vector<const Bar*> stack;
    size_t next = 0;
    for (auto _ : ioState)
    {
        stack.clear();
        chunk->GetStackAtTime(times[next], stack);
        benchmark::DoNotOptimize(stack.data());
        next = (next + 1) % times.size();
    }
    gCheck(stack.size() == static_cast<size_t>(numRows));
    ioState.counters["PerDepth"] = gPerOperation(static_cast<size_t>(numRows));
}
BENCHMARK(GetStackAtTime)->ArgNames({"rows", "isRead"})->ArgsProduct({{1, 10, 30}, {0, 1}});

// --- The cache ---

// Two chunks of a pass and two that were saved and are held, with a manager that has nothing else to do.
class CachedChunks
{
public:
    CachedChunks()
    {
        gCheck(mkdtemp(mFolder.data()) != nullptr);
        mManager.emplace(mFolder + "/Threads.dat", mFolder + "/ReadyThreads.dat", mScheduler);
        Utility::ErrorState errors;
        gCheck(mManager->OpenChunkFile(true, errors));
        for (int32_t index = 0; index < sNumSaved; ++index)
            mHandles.push_back(Create(index));
        mManager->MarkChunksFinished(mThread, 0, sNumSaved, EChunkType::Bar);
        gCheck(mManager->FlushChunks(errors));
        for (int32_t index = sNumSaved; index < 2 * sNumSaved; ++index)
            mHandles.push_back(Create(index));
    }

    ~CachedChunks()
    {
        mHandles.clear();
        mManager.reset();
        Utility::ErrorState errors;
        static_cast<void>(FileSystem::gDeleteDirectory(mFolder, errors));
    }

    CachedChunks(const CachedChunks&) = delete;
    CachedChunks& operator=(const CachedChunks&) = delete;

    [[nodiscard]] ThreadStreamingManager& GetManager() { return *mManager; }
    [[nodiscard]] const DetailLODThread& GetThread() const { return mThread; }
    [[nodiscard]] ChunkDescription GetSaved(int inNumber) const { return mThread.GetChunkTable().GetChunkByIndex(inNumber); }
    [[nodiscard]] ChunkDescription GetInProgress(int inNumber) const { return GetSaved(inNumber + sNumSaved); }

private:
    static constexpr int32_t sNumSaved = 2;

    TypedChunkHandle<BarChunk> Create(int32_t inIndex)
    {
        TypedChunkHandle<BarChunk> handle;
        gCheck(mManager->GetOrCreateChunk(mThread, mThread.GetChunkTable().GetOrCreateChunk(inIndex), EChunkUnloadMode::Immediate,
                                          handle) == EChunkRequestResult::Done);
        return handle;
    }

    std::string mFolder = "/tmp/TimelineStorageBenchmark.XXXXXX";
    System::JobScheduler mScheduler{sNumWorkers};
    DetailLODThread mThread{1};
    std::optional<ThreadStreamingManager> mManager;
    std::vector<TypedChunkHandle<BarChunk>> mHandles;
};

CachedChunks& gGetCachedChunks()
{
    static CachedChunks sChunks;
    return sChunks;
}

// What one thread waits for one call, however many there are.
template <class Work>
void gTimeCalls(benchmark::State& ioState, const Work& inWork)
{
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : ioState)
        inWork();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    ioState.counters["PerCall"] = {time.count() / static_cast<double>(ioState.iterations()), benchmark::Counter::kAvgThreads};
}

void GetOrCreateChunk(benchmark::State& ioState)
{
    CachedChunks& chunks = gGetCachedChunks();
    const ChunkDescription description = chunks.GetInProgress(ioState.thread_index());
    gTimeCalls(ioState,
               [&]
               {
                   TypedChunkHandle<BarChunk> handle;
                   benchmark::DoNotOptimize(chunks.GetManager().GetOrCreateChunk(chunks.GetThread(), description,
                                                                                 EChunkUnloadMode::Immediate, handle));
               });
}
BENCHMARK(GetOrCreateChunk)->ThreadRange(1, 2)->UseRealTime();

void BlockingLoad(benchmark::State& ioState)
{
    CachedChunks& chunks = gGetCachedChunks();
    const ChunkDescription description = chunks.GetSaved(ioState.thread_index());
    gTimeCalls(ioState,
               [&]
               {
                   const ChunkHandle handle = chunks.GetManager().BlockingLoad(chunks.GetThread(), description, EChunkType::Bar,
                                                                               EChunkUnloadMode::Immediate);
                   benchmark::DoNotOptimize(handle.GetChunk());
               });
}
BENCHMARK(BlockingLoad)->ThreadRange(1, 2)->UseRealTime();

// --- The file ---

// A timeline that is stored, and the same chunks as bytes and as frames in memory.
class StoredTimeline
{
public:
    StoredTimeline()
    {
        gCheck(mkdtemp(mFolder.data()) != nullptr);
        for (int32_t index = 0; index < sNumChunks; ++index)
        {
            mCalls.push_back(gMakeCalls(index));
            BarChunk chunk;
            gAddBars(mCalls.back(), chunk);
            chunk.Serialize(mSerialized.emplace_back());
            mNumBytes += mSerialized.back().GetSize();
            gCheck(Utility::Compressor().Compress(mSerialized.back().GetData(), mSerialized.back().GetSize(),
                                                  mFrames.emplace_back()));
        }
        const auto manager = MakeManager("Threads.dat", true);
        Fill(*manager, mThread);
        Save(*manager, mThread);
    }

    ~StoredTimeline()
    {
        Utility::ErrorState errors;
        static_cast<void>(FileSystem::gDeleteDirectory(mFolder, errors));
    }

    StoredTimeline(const StoredTimeline&) = delete;
    StoredTimeline& operator=(const StoredTimeline&) = delete;

    // With Threads.dat opened.
    [[nodiscard]] std::unique_ptr<ThreadStreamingManager> MakeManager(const std::string& inName, bool inForWriting)
    {
        auto manager =
            std::make_unique<ThreadStreamingManager>(mFolder + '/' + inName, mFolder + "/ReadyThreads.dat", mScheduler);
        Utility::ErrorState errors;
        gCheck(manager->OpenChunkFile(inForWriting, errors));
        return manager;
    }

    void Fill(ThreadStreamingManager& ioManager, DetailLODThread& ioThread) const
    {
        for (int32_t index = 0; index < sNumChunks; ++index)
        {
            TypedChunkHandle<BarChunk> chunk;
            gCheck(ioManager.GetOrCreateChunk(ioThread, ioThread.GetChunkTable().GetOrCreateChunk(index),
                                              EChunkUnloadMode::Immediate, chunk) == EChunkRequestResult::Done);
            gAddBars(mCalls[static_cast<size_t>(index)], *chunk);
            chunk->BuildBoundaries();
        }
    }

    static void Save(ThreadStreamingManager& ioManager, const DetailLODThread& inThread)
    {
        ioManager.MarkChunksFinished(inThread, 0, sNumChunks, EChunkType::Bar);
        Utility::ErrorState errors;
        gCheck(ioManager.FlushChunks(errors));
    }

    // All chunks, each behind the request for all.
    [[nodiscard]] std::vector<TypedChunkHandle<BarChunk>> Load(ThreadStreamingManager& ioManager) const
    {
        std::vector<TypedChunkHandle<BarChunk>> handles;
        for (int32_t index = 0; index < sNumChunks; ++index)
            handles.push_back(
                ioManager.Load<BarChunk>(mThread, mThread.GetChunkTable().GetChunkByIndex(index), EChunkUnloadMode::Immediate));
        for (int32_t index = 0; index < sNumChunks; ++index)
            handles[static_cast<size_t>(index)] = TypedChunkHandle<BarChunk>(ioManager.BlockingLoad(
                mThread, mThread.GetChunkTable().GetChunkByIndex(index), EChunkType::Bar, EChunkUnloadMode::Immediate));
        return handles;
    }

    void Delete(const std::string& inName) const { static_cast<void>(FileSystem::gDeleteFile(mFolder + '/' + inName)); }

    [[nodiscard]] const std::vector<Utility::ByteBuffer>& GetSerialized() const { return mSerialized; }
    [[nodiscard]] const std::vector<Utility::ByteBuffer>& GetFrames() const { return mFrames; }
    [[nodiscard]] size_t GetNumBytes() const { return mNumBytes; }

private:
    std::string mFolder = "/tmp/TimelineStorageBenchmark.XXXXXX";
    System::JobScheduler mScheduler{sNumWorkers};
    DetailLODThread mThread{1};
    std::vector<std::vector<Call>> mCalls; // by chunk
    std::vector<Utility::ByteBuffer> mSerialized;
    std::vector<Utility::ByteBuffer> mFrames;
    size_t mNumBytes = 0; // of all that is serialized
};

StoredTimeline& gGetTimeline()
{
    static StoredTimeline sTimeline;
    return sTimeline;
}

double gGetProcessorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Adds up the parts of iterations that count.
class PassTimer
{
public:
    explicit PassTimer(benchmark::State& ioState) : mState(ioState) {}

    void Time(const std::function<void()>& inWork)
    {
        const double processorStart = gGetProcessorSeconds();
        const auto start = std::chrono::steady_clock::now();
        inWork();
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        mState.SetIterationTime(seconds.count());
        mSeconds += seconds.count();
        mProcessorSeconds += gGetProcessorSeconds() - processorStart;
    }

    void Finish(size_t inBytesPerPass)
    {
        const auto bytes = static_cast<double>(mState.iterations()) * static_cast<double>(inBytesPerPass);
        mState.SetBytesProcessed(static_cast<int64_t>(bytes));
        mState.counters["Processors"] = mProcessorSeconds / mSeconds;
        mState.counters["PerProcessor"] = {bytes / mProcessorSeconds, benchmark::Counter::kDefaults, benchmark::Counter::kIs1024};
    }

private:
    benchmark::State& mState;
    double mSeconds = 0.0;
    double mProcessorSeconds = 0.0;
};

// Deals the pieces to as many threads as there are workers. MakeWork makes what one thread does with a piece.
template <class MakeWork>
void gRunAlone(benchmark::State& ioState, const std::vector<Utility::ByteBuffer>& inPieces, const MakeWork& inMakeWork)
{
    PassTimer timer(ioState);
    for (auto _ : ioState)
    {
        timer.Time(
            [&]
            {
                std::vector<std::thread> threads;
                for (size_t first = 0; first < sNumWorkers; ++first)
                    threads.emplace_back(
                        [&inPieces, &inMakeWork, first]
                        {
                            auto work = inMakeWork();
                            for (size_t i = first; i < inPieces.size(); i += sNumWorkers)
                                gCheck(work(inPieces[i]));
                        });
                for (std::thread& thread : threads)
                    thread.join();
            });
    }
    timer.Finish(gGetTimeline().GetNumBytes());
}

void CompressAlone(benchmark::State& ioState)
{
    gRunAlone(ioState, gGetTimeline().GetSerialized(),
              []
              {
                  return [compressor = Utility::Compressor(),
                          frame = Utility::ByteBuffer()](const Utility::ByteBuffer& inContent) mutable
                  { return compressor.Compress(inContent.GetData(), inContent.GetSize(), frame); };
              });
}
BENCHMARK(CompressAlone)->Unit(benchmark::kMillisecond)->UseManualTime();

// By a manager that has saved as much before, as in the middle of a capture.
void Save(benchmark::State& ioState)
{
    StoredTimeline& timeline = gGetTimeline();
    std::vector<std::unique_ptr<DetailLODThread>> threads; // as long as chunks of them may be in memory
    const auto manager = timeline.MakeManager("Scratch.dat", true);
    const auto fillThread = [&]() -> DetailLODThread&
    {
        threads.push_back(std::make_unique<DetailLODThread>(1));
        timeline.Fill(*manager, *threads.back());
        return *threads.back();
    };
    StoredTimeline::Save(*manager, fillThread());
    PassTimer timer(ioState);
    for (auto _ : ioState)
    {
        const DetailLODThread& thread = fillThread();
        timer.Time([&] { StoredTimeline::Save(*manager, thread); });
    }
    manager->Close();
    timeline.Delete("Scratch.dat");
    timer.Finish(timeline.GetNumBytes());
}
BENCHMARK(Save)->Unit(benchmark::kMillisecond)->UseManualTime();

void DecompressAlone(benchmark::State& ioState)
{
    gRunAlone(ioState, gGetTimeline().GetFrames(),
              []
              {
                  return [decompressor = Utility::Decompressor(),
                          content = Utility::ByteBuffer()](const Utility::ByteBuffer& inFrame) mutable
                  { return decompressor.Decompress(inFrame.GetData(), inFrame.GetSize(), content); };
              });
}
BENCHMARK(DecompressAlone)->Unit(benchmark::kMillisecond)->UseManualTime();

void Load(benchmark::State& ioState)
{
    StoredTimeline& timeline = gGetTimeline();
    PassTimer timer(ioState);
    for (auto _ : ioState)
    {
        const auto manager = timeline.MakeManager("Threads.dat", false);
        std::vector<TypedChunkHandle<BarChunk>> handles;
        timer.Time([&] { handles = timeline.Load(*manager); });
        for (const TypedChunkHandle<BarChunk>& handle : handles)
            gCheck(static_cast<bool>(handle));
    }
    timer.Finish(timeline.GetNumBytes());
}
BENCHMARK(Load)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace
