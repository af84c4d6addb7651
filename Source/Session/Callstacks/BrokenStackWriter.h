// Finds the broken ranges in the stacks that it is told of, and writes them to stacks.dat and stacks.index.
//
// Lives for one pass over the events. What stacks.dat held before stays, and is no longer indexed. Threads: one at a time.
// Ownership: the pass; keeps the file open. Invariant: at most sRangesPerChunk ranges per thread are in memory.
#pragma once

#include "Session/Callstacks/BrokenStackChunk.h"
#include "Session/Callstacks/BrokenStackIndex.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"
#include "Utility/ErrorState.h"

#include <fstream>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Profiler
{

class BrokenStackWriter
{
public:
    // Ranges of one thread become a chunk whenever their number reaches a multiple of this.
    static constexpr size_t sRangesPerChunk = 250;

    // inDirectory is the folder of the session file.
    explicit BrokenStackWriter(std::string inDirectory) : mDirectory(std::move(inDirectory)) {}

    // Opens stacks.dat, to be called once before anything else.
    [[nodiscard]] bool Open(Utility::ErrorState& ioErrors);

    // The next stack of a thread, in milliseconds and in time order per thread. False if a chunk couldn't be written.
    [[nodiscard]] bool AddStack(ThreadID inThread, bool inIsComplete, CallstackKey inStack, double inTimeMs,
                                Utility::ErrorState& ioErrors);

    // Ends the ranges that are open, writes what waits, and then the index.
    [[nodiscard]] bool Finish(Utility::ErrorState& ioErrors);

private:
    struct ThreadEntry
    {
        std::optional<double> OpenStart; // milliseconds, of a range whose good stack hasn't come yet
        std::vector<BrokenRange> Ranges;
    };

    [[nodiscard]] bool AddRange(ThreadID inThread, ThreadEntry& ioEntry, double inEndMs, CallstackKey inStack,
                                Utility::ErrorState& ioErrors);
    [[nodiscard]] bool WriteChunk(ThreadID inThread, std::vector<BrokenRange>& ioRanges, Utility::ErrorState& ioErrors);

    std::string mDirectory;
    BrokenStackIndex mIndex;
    std::unordered_map<ThreadID, ThreadEntry> mThreads;
    std::ofstream mFile;
    Utility::Compressor mCompressor;
    Utility::ByteBuffer mContent; // work space of WriteChunk
    Utility::ByteBuffer mFrame;
};

} // namespace Profiler
