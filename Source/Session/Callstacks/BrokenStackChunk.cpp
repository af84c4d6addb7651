#include "Session/Callstacks/BrokenStackChunk.h"

#include "FileSystem/File.h"

#include <bit>
#include <cstring>

namespace Profiler
{
namespace
{

constexpr size_t sCountSize = sizeof(uint64_t);

// Far more than any writer puts into a chunk; more is damage, for which no memory is to be spent.
constexpr uint64_t sMaxRanges = 1U << 20;

bool gDecodeBrokenRanges(const Utility::ByteBuffer& inContent, std::vector<BrokenRange>& outRanges)
{
    if (inContent.GetSize() < sCountSize)
        return false;
    uint64_t count = 0;
    std::memcpy(&count, inContent.GetData(), sCountSize);
    const size_t size = inContent.GetSize() - sCountSize;
    if (count == 0 || count > sMaxRanges || size % sizeof(BrokenRange) != 0 || count != size / sizeof(BrokenRange))
        return false;
    outRanges.resize(count);
    std::memcpy(outRanges.data(), inContent.GetData() + sCountSize, size);
    return true;
}

// The very bits: a time may be no number.
bool gIsSameTime(double inFirst, double inSecond)
{
    return std::bit_cast<uint64_t>(inFirst) == std::bit_cast<uint64_t>(inSecond);
}

} // namespace

void gEncodeBrokenRanges(std::span<const BrokenRange> inRanges, Utility::ByteBuffer& outContent)
{
    const uint64_t count = inRanges.size();
    outContent.Clear();
    outContent.Append(&count, sCountSize);
    outContent.Append(inRanges.data(), inRanges.size_bytes());
}

bool BrokenStackFile::Open(const std::string& inPath)
{
    FileSystem::gOpenRead(mFile, inPath, std::ios_base::in | std::ios_base::binary);
    return mFile.is_open() && FileSystem::gGetFileSize(inPath, mFileSize);
}

bool BrokenStackFile::ReadContent(const BrokenStackIndex::Chunk& inChunk)
{
    // Before anything of that size is allocated.
    if (inChunk.FileOffset > mFileSize || inChunk.Size > mFileSize - inChunk.FileOffset || !mFrame.TryResize(inChunk.Size))
        return false;
    mFile.clear();
    mFile.seekg(static_cast<std::streamoff>(inChunk.FileOffset));
    mFile.read(reinterpret_cast<char*>(mFrame.GetData()), static_cast<std::streamsize>(inChunk.Size));
    return mFile.good() && mDecompressor.Decompress(mFrame.GetData(), mFrame.GetSize(), mContent);
}

bool BrokenStackFile::ReadChunk(const BrokenStackIndex::Chunk& inChunk, std::vector<BrokenRange>& outRanges)
{
    outRanges.clear();
    if (ReadContent(inChunk) && gDecodeBrokenRanges(mContent, outRanges) &&
        gIsSameTime(outRanges.front().Start, inChunk.StartTime) && gIsSameTime(outRanges.back().End, inChunk.EndTime))
        return true;
    outRanges.clear();
    return false;
}

} // namespace Profiler
