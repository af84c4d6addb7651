// What questions to a finished timeline take.
//
//     FindBenchmark [OPTIONS] [EVENTS]
//
// Workload: the timeline of a capture of so many events from a fixed seed, as CaptureGenerator.h says; 10 million unless told. It
// is stored in a temporary folder. The scheduler has two workers.
//   Walk           all bars of the finest level are looked at for a function, with as many chunks read ahead as a search does
//   Find           a search for a function of which about one in a hundred chunks has bars, over all threads; Chunks, those that
//                  it looks at, OfAll, their share; Faster, than the walks of this run, to be above 20
//   StackInMemory  FindStack, from the call to the end of its job, for a chunk that is in memory; to be below 20 us
//   StackFromDisk  the same for chunks that aren't; Codec, the share of it that decompressing the chunk's block takes alone
//   StackChain     a thousand FindStack that each take the place of the one before; Answered, those that came to their end, to be
//                  a handful at most
#include "Benchmarks/StoredCapture.h"
#include "ThreadsModel/Find/FindChunkList.h"
#include "ThreadsModel/Find/FindQuery.h"
#include "ThreadsModel/Find/IFindVisitor.h"
#include "Utility/Compression.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <map>
#include <random>
#include <vector>

namespace
{

using namespace Profiler;

constexpr double sWantedShare = 0.01; // of the chunks
constexpr size_t sNumAhead = 32;
constexpr uint32_t sSeed = 7;

CaptureSettings sSettings{.NumEvents = 10'000'000};

// A chunk of the finest level with bars.
struct BarChunkPlace
{
    const DetailLODThread* Thread;
    ChunkDescription Description;
};

// The timeline, open.
class OpenCapture
{
public:
    OpenCapture() : mStored(sSettings)
    {
        mStored.EnsurePass();
        mSession = mStored.OpenFinished();
        mModel = static_cast<ThreadsModel*>(mSession->GetModels().front());
        const DetailLOD& level = mModel->GetDetailLOD(0);
        for (const Thread& thread : mSession->GetThreadList())
        {
            mThreads.push_back(thread.ThreadID);
            const DetailLODThread* levelThread = level.GetThread(thread.ThreadID);
            gCheck(levelThread != nullptr);
            for (const ChunkDescription& chunk :
                 levelThread->GetChunkTable().GetChunksInRange(static_cast<uint8_t>(EChunkType::Bar), level.GetChunkLength(), 0.0,
                                                               mSession->GetSessionInfo().SessionEndTimeMs))
                mChunks.push_back({levelThread, chunk});
        }
        ChooseFunction();
    }

    [[nodiscard]] ThreadsModel& GetModel() const { return *mModel; }
    [[nodiscard]] System::JobScheduler& GetScheduler() const { return mSession->GetJobScheduler(); }
    [[nodiscard]] const std::vector<ThreadID>& GetThreads() const { return mThreads; }
    [[nodiscard]] const std::vector<BarChunkPlace>& GetChunks() const { return mChunks; }
    [[nodiscard]] const ResolvedAddress& GetFunction() const { return mFunction; }
    [[nodiscard]] std::string GetThreadsPath() const { return mSession->GetDirectory() + '/' + sThreadsFolder + "/Threads.dat"; }
    [[nodiscard]] double GetTime(const BarChunkPlace& inChunk) const
    {
        return (inChunk.Description.mIndex + 0.5) * static_cast<double>(mModel->GetDetailLOD(0).GetChunkLength());
    }

    double WalkSeconds = 0.0; // the mean of the walks so far

private:
    // The one whose share of the chunks is nearest to the wanted one.
    void ChooseFunction()
    {
        std::map<ResolvedAddress, size_t, ResolvedAddressOrder> numChunks;
        FindModel& model = mModel->GetFindModel();
        for (const ThreadID thread : mThreads)
            for (const FindFunctionEntry& entry : model.ReadThreadFunctions(EFindSet::FindResults, thread))
                numChunks[entry.Function] += entry.NumChunks + entry.NumRanges;
        const double wanted = sWantedShare * static_cast<double>(mChunks.size());
        const auto distance = [wanted](const auto& inEntry) { return std::fabs(static_cast<double>(inEntry.second) - wanted); };
        mFunction = std::min_element(numChunks.begin(), numChunks.end(),
                                     [&](const auto& inOne, const auto& inOther) { return distance(inOne) < distance(inOther); })
                        ->first;
    }

    StoredCapture mStored;
    std::unique_ptr<Session> mSession;
    ThreadsModel* mModel = nullptr;
    std::vector<ThreadID> mThreads;
    std::vector<BarChunkPlace> mChunks;
    ResolvedAddress mFunction;
};

OpenCapture& gGetCapture()
{
    static OpenCapture sCapture;
    return sCapture;
}

void Walk(benchmark::State& ioState)
{
    OpenCapture& capture = gGetCapture();
    ThreadStreamingManager& manager = capture.GetModel().GetStreamingManager();
    const std::vector<BarChunkPlace>& chunks = capture.GetChunks();
    const StopWatch watch;
    uint64_t numFound = 0;
    for (auto _ : ioState)
    {
        std::vector<TypedChunkHandle<BarChunk>> ahead(sNumAhead);
        for (size_t i = 0; i < chunks.size() + sNumAhead; ++i)
        {
            TypedChunkHandle<BarChunk>& slot = ahead[i % sNumAhead];
            if (i >= sNumAhead)
            {
                const BarChunkPlace& place = chunks[i - sNumAhead];
                slot = TypedChunkHandle<BarChunk>(
                    manager.BlockingLoad(*place.Thread, place.Description, EChunkType::Bar, EChunkUnloadMode::Immediate));
                gCheck(static_cast<bool>(slot));
                for (const BarChunk::Row& row : slot->GetRows())
                    for (const Bar* bar : row)
                        numFound += gGetFunction(*bar) == capture.GetFunction() ? 1 : 0;
            }
            if (i < chunks.size())
                slot = manager.Load<BarChunk>(*chunks[i].Thread, chunks[i].Description, EChunkUnloadMode::Immediate);
        }
    }
    capture.WalkSeconds = watch.GetSeconds() / static_cast<double>(ioState.iterations());
    ioState.counters["Chunks"] = static_cast<double>(chunks.size());
    ioState.counters["Bars"] = static_cast<double>(numFound) / static_cast<double>(ioState.iterations());
}
BENCHMARK(Walk)->Unit(benchmark::kMillisecond)->UseRealTime();

// Counts what a search says.
class CountingVisitor final : public IFindVisitor
{
public:
    void OnFindStarted(const FindQuery&, uint32_t, const std::vector<ResolvedAddress>&) override { NumProgress = NumBars = 0; }
    void OnFindFinished(const FindQuery&, uint32_t, uint32_t) override {}
    void OnFindCancelled(const FindQuery&, uint32_t) override {}
    void OnBarFound(const FindQuery&, const Bar&, int32_t, ThreadID, bool, uint64_t) override { ++NumBars; }
    void OnThreadChanged(const FindQuery&, ThreadID) override {}
    void OnFindProgress(const FindQuery&, uint32_t, int32_t) override { ++NumProgress; }

    uint64_t NumBars = 0;
    uint64_t NumProgress = 0;
};

void Find(benchmark::State& ioState)
{
    OpenCapture& capture = gGetCapture();
    FindModel& model = capture.GetModel().GetFindModel();
    FindFunctionsQuery query;
    query.Threads = capture.GetThreads();
    query.Functions = {capture.GetFunction()};
    CountingVisitor visitor;
    const FindVisitorRegistration registration = model.AddVisitor(visitor);
    const StopWatch watch;
    for (auto _ : ioState)
    {
        model.FindFunctions(query);
        model.WaitForFind();
    }
    const double seconds = watch.GetSeconds() / static_cast<double>(ioState.iterations());
    const auto numChunks = static_cast<double>(visitor.NumProgress - 2); // besides the first and the last word
    ioState.counters["Calls"] = static_cast<double>(visitor.NumBars);
    ioState.counters["Chunks"] = numChunks;
    ioState.counters["OfAll"] = numChunks / static_cast<double>(capture.GetChunks().size());
    if (capture.WalkSeconds > 0.0)
        ioState.counters["Faster"] = capture.WalkSeconds / seconds;
}
BENCHMARK(Find)->Unit(benchmark::kMillisecond)->UseRealTime();

void StackInMemory(benchmark::State& ioState)
{
    OpenCapture& capture = gGetCapture();
    const BarChunkPlace& place = capture.GetChunks()[capture.GetChunks().size() / 2];
    const ChunkHandle keep = capture.GetModel().GetStreamingManager().BlockingLoad(*place.Thread, place.Description,
                                                                                   EChunkType::Bar, EChunkUnloadMode::Immediate);
    for (auto _ : ioState)
        capture.GetScheduler().WaitForJobs(
            capture.GetModel().FindStack(place.Thread->GetThreadID(), capture.GetTime(place), {}, [](std::vector<Bar>) {}));
}
BENCHMARK(StackInMemory)->Unit(benchmark::kMicrosecond)->UseRealTime();

void StackFromDisk(benchmark::State& ioState)
{
    OpenCapture& capture = gGetCapture();
    std::vector<BarChunkPlace> places = capture.GetChunks();
    std::shuffle(places.begin(), places.end(), std::mt19937(sSeed));
    size_t next = 0;
    double seconds = 0.0;
    double codecSeconds = 0.0;
    std::ifstream file(capture.GetThreadsPath(), std::ios::binary);
    Utility::Decompressor decompressor;
    Utility::ByteBuffer frame;
    Utility::ByteBuffer content;
    for (auto _ : ioState)
    {
        const BarChunkPlace& place = places[next++ % places.size()];
        const StopWatch watch;
        capture.GetScheduler().WaitForJobs(
            capture.GetModel().FindStack(place.Thread->GetThreadID(), capture.GetTime(place), {}, [](std::vector<Bar>) {}));
        seconds += watch.GetSeconds();

        ioState.PauseTiming();
        frame.Resize(place.Description.mLayout.BarDataSize);
        file.seekg(static_cast<std::streamoff>(place.Description.mLayout.BarDataOffset));
        file.read(reinterpret_cast<char*>(frame.GetData()), static_cast<std::streamsize>(frame.GetSize()));
        const StopWatch codecWatch;
        gCheck(file.good() && decompressor.Decompress(frame.GetData(), frame.GetSize(), content));
        codecSeconds += codecWatch.GetSeconds();
        ioState.ResumeTiming();
    }
    ioState.counters["Codec"] = codecSeconds / seconds;
}
BENCHMARK(StackFromDisk)->Unit(benchmark::kMicrosecond)->UseRealTime();

void StackChain(benchmark::State& ioState)
{
    constexpr int length = 1000;
    OpenCapture& capture = gGetCapture();
    const std::vector<BarChunkPlace>& places = capture.GetChunks();
    std::atomic<uint64_t> numAnswered = 0;
    for (auto _ : ioState)
    {
        System::JobHandle job;
        for (size_t i = 0; i < length; ++i)
        {
            const BarChunkPlace& place = places[i * places.size() / length];
            job = capture.GetModel().FindStack(place.Thread->GetThreadID(), capture.GetTime(place), job,
                                               [&numAnswered](std::vector<Bar>) { ++numAnswered; });
        }
        capture.GetScheduler().WaitForJobs(job);
    }
    ioState.counters["Answered"] = static_cast<double>(numAnswered) / static_cast<double>(ioState.iterations());
}
BENCHMARK(StackChain)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int inNumArguments, char** inArguments)
{
    benchmark::Initialize(&inNumArguments, inArguments);
    const std::string events = inNumArguments > 1 ? inArguments[1] : std::to_string(sSettings.NumEvents);
    const auto [end, error] = std::from_chars(events.data(), events.data() + events.size(), sSettings.NumEvents);
    if (inNumArguments > 2 || error != std::errc() || end != events.data() + events.size())
    {
        std::fprintf(stderr, "usage: FindBenchmark [OPTIONS] [EVENTS]\n");
        return 2;
    }
    // Caught, so that what was stored is deleted.
    try
    {
        benchmark::RunSpecifiedBenchmarks();
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
