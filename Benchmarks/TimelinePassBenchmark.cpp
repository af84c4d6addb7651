// What a whole pass over a stored capture takes, next to what nobody can do without for the same files.
//
//     TimelinePassBenchmark [OPTIONS] [EVENTS [ZONES]]
//
// Workload: a capture of so many events from a fixed seed, as CaptureGenerator.h says, of whose samples so many in a hundred
// begin or end an instrumented zone; 200,000 and 2 unless told. It is stored in a temporary folder, by a process of its own. The
// scheduler has two workers, and all figures are meant for two processors: `taskset -c 0,1` where there are more.
//   Pass        Session::Reprocess over the stored events, saving included. PerEvent to be the same for any length, within 10%;
//               PeakMiB, the greatest memory of the process so far, to be below 1434 for any length
//   CodecAlone  what zstd alone needs on two threads: to decompress events.dat, and to compress what Threads.dat holds. Pass to
//               take less than 2.5 times as long, which PassRatio tells for the passes of this run; EventMiB and TimelineMiB
//               are what the two files hold
//   Open        Session::sLoad of the session with its timeline; OfPass, its share of the time of a pass, to be below 0.01 for
//               50 million events
// CPU is the time of all threads together. scripts/benchmark_timeline.sh runs the sizes that these figures are for.
#include "Benchmarks/StoredCapture.h"
#include "Utility/Compression.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace Profiler;

constexpr uint64_t sBatchBytes = 16 << 20; // of frames
constexpr double sMiB = 1024.0 * 1024.0;

CaptureSettings sSettings{.NumEvents = 200'000, .ZoneShare = 0.02};

// A frame in a file.
struct FramePlace
{
    uint64_t Offset;
    uint64_t Size;
};

StoredCapture& gGetCapture()
{
    static StoredCapture sCapture(sSettings);
    return sCapture;
}

void Pass(benchmark::State& ioState)
{
    StoredCapture& capture = gGetCapture();
    for (auto _ : ioState)
    {
        ioState.PauseTiming();
        std::unique_ptr<Session> session = capture.OpenUnfinished();
        ioState.ResumeTiming();
        capture.RunPass(*session);
        ioState.PauseTiming();
        session.reset();
        ioState.ResumeTiming();
    }
    ioState.counters["Events"] = static_cast<double>(capture.GetNumEvents());
    ioState.counters["PerEvent"] = {static_cast<double>(capture.GetNumEvents()),
                                    benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
    ioState.counters["PeakMiB"] = capture.GetPeakMiB();
}
BENCHMARK(Pass)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// --- The codec alone ---

std::vector<FramePlace> gFindEventFrames(const Session& inSession)
{
    std::vector<FramePlace> frames;
    for (const TraceEventStream::Chunk& chunk : inSession.GetEventStream().GetChunks())
        frames.push_back({chunk.FileOffset, chunk.Size});
    return frames;
}

void gFindFrames(const ChunkDescription& inChunk, std::vector<FramePlace>& ioFrames)
{
    const ChunkLayout& layout = inChunk.mLayout;
    if (inChunk.HasDataTypes(EChunkType::Bar))
        ioFrames.push_back({layout.BarDataOffset, layout.BarDataSize});
    if (inChunk.HasDataTypes(EChunkType::FunctionIndex))
        ioFrames.push_back({layout.FunctionIndexOffset, layout.FunctionIndexSize});
    if (inChunk.HasDataTypes(EChunkType::Overview))
        ioFrames.push_back({layout.OverviewDataOffset, layout.OverviewDataSize});
}

// In the order of the file.
std::vector<FramePlace> gFindTimelineFrames(const Session& inSession)
{
    const auto& model = static_cast<const ThreadsModel&>(*inSession.GetModels().front());
    const double end = inSession.GetSessionInfo().SessionEndTimeMs;
    std::vector<FramePlace> frames;
    for (size_t i = 0; i < model.GetNumLevels(); ++i)
    {
        const DetailLOD& level = model.GetDetailLOD(static_cast<int32_t>(i));
        for (const Thread& thread : inSession.GetThreadList())
        {
            const DetailLODThread* levelThread = level.GetThread(thread.ThreadID);
            gCheck(levelThread != nullptr);
            for (const ChunkDescription& chunk :
                 levelThread->GetChunkTable().GetChunksInRange(0, level.GetChunkLength(), 0.0, end))
                gFindFrames(chunk, frames);
        }
    }
    std::sort(frames.begin(), frames.end(),
              [](const FramePlace& inFirst, const FramePlace& inSecond) { return inFirst.Offset < inSecond.Offset; });
    return frames;
}

// Goes through the frames of a file, as many at a time as memory has room for.
class FrameReader
{
public:
    FrameReader(const std::string& inPath, const std::vector<FramePlace>& inFrames)
        : mFile(inPath, std::ios::binary),
          mFrames(inFrames)
    {
    }

    // False at the end.
    [[nodiscard]] bool ReadBatch(std::vector<Utility::ByteBuffer>& outFrames)
    {
        outFrames.clear();
        for (uint64_t bytes = 0; mNext < mFrames.size() && bytes < sBatchBytes; ++mNext)
        {
            Utility::ByteBuffer& frame = outFrames.emplace_back();
            frame.Resize(mFrames[mNext].Size);
            mFile.seekg(static_cast<std::streamoff>(mFrames[mNext].Offset));
            mFile.read(reinterpret_cast<char*>(frame.GetData()), static_cast<std::streamsize>(frame.GetSize()));
            gCheck(mFile.good());
            bytes += frame.GetSize();
        }
        return !outFrames.empty();
    }

private:
    std::ifstream mFile;
    const std::vector<FramePlace>& mFrames;
    size_t mNext = 0;
};

// As many threads as there are workers, which pass frames with nothing around.
class Codec
{
public:
    void Decompress(const std::vector<Utility::ByteBuffer>& inFrames, std::vector<Utility::ByteBuffer>& outContents)
    {
        outContents.resize(inFrames.size());
        Run(inFrames.size(),
            [&](Worker& ioWorker, size_t inIndex) {
                gCheck(ioWorker.Decompressor.Decompress(inFrames[inIndex].GetData(), inFrames[inIndex].GetSize(),
                                                        outContents[inIndex]));
            });
    }

    // Into nothing. Gives the bytes of their contents.
    uint64_t Decompress(const std::vector<Utility::ByteBuffer>& inFrames)
    {
        std::atomic<uint64_t> bytes = 0;
        Run(inFrames.size(),
            [&](Worker& ioWorker, size_t inIndex)
            {
                const Utility::ByteBuffer& frame = inFrames[inIndex];
                gCheck(ioWorker.Decompressor.Decompress(frame.GetData(), frame.GetSize(), ioWorker.Result));
                bytes += ioWorker.Result.GetSize();
            });
        return bytes;
    }
    uint64_t Compress(const std::vector<Utility::ByteBuffer>& inContents)
    {
        std::atomic<uint64_t> bytes = 0;
        Run(inContents.size(),
            [&](Worker& ioWorker, size_t inIndex)
            {
                const Utility::ByteBuffer& content = inContents[inIndex];
                gCheck(ioWorker.Compressor.Compress(content.GetData(), content.GetSize(), ioWorker.Result));
                bytes += content.GetSize();
            });
        return bytes;
    }

private:
    struct Worker
    {
        Utility::Compressor Compressor;
        Utility::Decompressor Decompressor;
        Utility::ByteBuffer Result;
    };

    template <class Work>
    void Run(size_t inCount, const Work& inWork)
    {
        std::atomic<size_t> next = 0;
        std::vector<std::thread> threads;
        for (Worker& worker : mWorkers)
            threads.emplace_back(
                [&]
                {
                    for (size_t index = next++; index < inCount; index = next++)
                        inWork(worker, index);
                });
        for (std::thread& thread : threads)
            thread.join();
    }

    std::array<Worker, StoredCapture::sNumWorkers> mWorkers;
};

// Adds up the parts of an iteration that count.
template <class Work>
uint64_t gTime(benchmark::State& ioState, double& ioSeconds, const Work& inWork)
{
    ioState.ResumeTiming();
    const StopWatch watch;
    const uint64_t bytes = inWork();
    ioSeconds += watch.GetSeconds();
    ioState.PauseTiming();
    return bytes;
}

void CodecAlone(benchmark::State& ioState)
{
    StoredCapture& capture = gGetCapture();
    capture.EnsurePass();
    std::unique_ptr<Session> session = capture.OpenFinished();
    const std::vector<FramePlace> eventFrames = gFindEventFrames(*session);
    const std::vector<FramePlace> timelineFrames = gFindTimelineFrames(*session);
    const std::string eventPath = session->GetEventStream().GetDataPath();
    const std::string timelinePath = session->GetDirectory() + '/' + sThreadsFolder + "/Threads.dat";
    session.reset();

    Codec codec;
    std::vector<Utility::ByteBuffer> frames;
    std::vector<Utility::ByteBuffer> contents;
    double seconds = 0.0;
    uint64_t eventBytes = 0;
    uint64_t timelineBytes = 0;
    for (auto _ : ioState)
    {
        ioState.PauseTiming();
        FrameReader events(eventPath, eventFrames);
        while (events.ReadBatch(frames))
            eventBytes += gTime(ioState, seconds, [&] { return codec.Decompress(frames); });
        FrameReader timeline(timelinePath, timelineFrames);
        while (timeline.ReadBatch(frames))
        {
            codec.Decompress(frames, contents);
            timelineBytes += gTime(ioState, seconds, [&] { return codec.Compress(contents); });
        }
        ioState.ResumeTiming();
    }
    const auto iterations = static_cast<double>(ioState.iterations());
    ioState.counters["PassRatio"] = capture.GetMeanPassSeconds() / (seconds / iterations);
    ioState.counters["EventMiB"] = static_cast<double>(eventBytes) / iterations / sMiB;
    ioState.counters["TimelineMiB"] = static_cast<double>(timelineBytes) / iterations / sMiB;
}
BENCHMARK(CodecAlone)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// --- Opening ---

void Open(benchmark::State& ioState)
{
    StoredCapture& capture = gGetCapture();
    capture.EnsurePass();
    double seconds = 0.0;
    for (auto _ : ioState)
    {
        const StopWatch watch;
        std::unique_ptr<Session> session = capture.OpenFinished();
        seconds += watch.GetSeconds();
        ioState.PauseTiming();
        session.reset();
        ioState.ResumeTiming();
    }
    ioState.counters["OfPass"] = seconds / static_cast<double>(ioState.iterations()) / capture.GetMeanPassSeconds();
}
BENCHMARK(Open)->Unit(benchmark::kMillisecond)->UseRealTime();

// False for what is no number.
template <class Number>
bool gParse(const std::string& inText, Number& outNumber)
{
    const auto [end, error] = std::from_chars(inText.data(), inText.data() + inText.size(), outNumber);
    return error == std::errc() && end == inText.data() + inText.size();
}

} // namespace

int main(int inNumArguments, char** inArguments)
{
    benchmark::Initialize(&inNumArguments, inArguments);
    const std::vector<std::string> arguments(inArguments + 1, inArguments + inNumArguments);
    double zones = 100.0 * sSettings.ZoneShare;
    if (arguments.size() > 2 || (!arguments.empty() && !gParse(arguments[0], sSettings.NumEvents)) ||
        (arguments.size() > 1 && !gParse(arguments[1], zones)))
    {
        std::fprintf(stderr, "usage: TimelinePassBenchmark [OPTIONS] [EVENTS [ZONES]]\n");
        return 2;
    }
    sSettings.ZoneShare = zones / 100.0;
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
