// A chunk of stacks.dat: the number of ranges and the ranges, as one compressed frame. Writer and reader stand side by side here.
//
// Threads: one at a time.
#pragma once

#include "Session/Callstacks/BrokenStackIndex.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Compression.h"

#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <vector>

namespace Profiler
{

// One range of stacks that are cut short, and the good stack that ended it; in the file as it stands here.
struct BrokenRange
{
    double Start = -1.0;               // milliseconds, time of the first broken stack
    double End = -1.0;                 // time of the good stack; the largest double if the events ended first
    CallstackKey Stack = sNoCallstack; // key of the good stack; sNoCallstack if the events ended first
};
static_assert(sizeof(BrokenRange) == 24);

// The content of a chunk.
void gEncodeBrokenRanges(std::span<const BrokenRange> inRanges, Utility::ByteBuffer& outContent);

// Reads chunks from a stacks.dat that it keeps open.
class BrokenStackFile
{
public:
    // False if it can't be opened.
    [[nodiscard]] bool Open(const std::string& inPath);

    // False, with outRanges empty, for a chunk that isn't all in the file, doesn't decompress, has no ranges, or begins or ends
    // at another time than its entry says. The ranges of a capture whose events go back in time do so too.
    [[nodiscard]] bool ReadChunk(const BrokenStackIndex::Chunk& inChunk, std::vector<BrokenRange>& outRanges);

private:
    [[nodiscard]] bool ReadContent(const BrokenStackIndex::Chunk& inChunk);

    std::ifstream mFile;
    uint64_t mFileSize = 0;
    Utility::Decompressor mDecompressor;
    Utility::ByteBuffer mFrame;
    Utility::ByteBuffer mContent;
};

} // namespace Profiler
