#include "Session/Callstacks/BrokenStackWriter.h"

#include "FileSystem/File.h"
#include "Serialization/BinaryWriter.h"

#include <cerrno>
#include <cstring>
#include <limits>

namespace Profiler
{
namespace
{

constexpr uint32_t sWriteError = 0;

} // namespace

bool BrokenStackWriter::Open(Utility::ErrorState& ioErrors)
{
    const std::string path = gGetBrokenStackDataPath(mDirectory);
    errno = 0;
    FileSystem::gOpenWrite(mFile, path, std::ios_base::out | std::ios_base::binary | std::ios_base::app);
    return Utility::Check(ioErrors, mFile.is_open(), sWriteError,
                          "Unable to initialize broken stack processing state%s. Error: %s", path, std::strerror(errno));
}

bool BrokenStackWriter::AddStack(ThreadID inThread, bool inIsComplete, CallstackKey inStack, double inTimeMs,
                                 Utility::ErrorState& ioErrors)
{
    if (!inIsComplete)
    {
        std::optional<double>& start = mThreads[inThread].OpenStart;
        if (!start)
            start = inTimeMs;
        return true;
    }
    const auto found = mThreads.find(inThread);
    if (found == mThreads.end() || !found->second.OpenStart)
        return true;
    return AddRange(inThread, found->second, inTimeMs, inStack, ioErrors);
}

bool BrokenStackWriter::AddRange(ThreadID inThread, ThreadEntry& ioEntry, double inEndMs, CallstackKey inStack,
                                 Utility::ErrorState& ioErrors)
{
    ioEntry.Ranges.push_back({*ioEntry.OpenStart, inEndMs, inStack});
    ioEntry.OpenStart.reset();
    return ioEntry.Ranges.size() % sRangesPerChunk != 0 || WriteChunk(inThread, ioEntry.Ranges, ioErrors);
}

bool BrokenStackWriter::WriteChunk(ThreadID inThread, std::vector<BrokenRange>& ioRanges, Utility::ErrorState& ioErrors)
{
    gEncodeBrokenRanges(ioRanges, mContent);
    errno = ENOMEM; // for a chunk that can't be compressed
    mFile.seekp(0, std::ios_base::end);
    const std::streamoff start = mFile.tellp();
    bool isWritten = start >= 0 && mCompressor.Compress(mContent.GetData(), mContent.GetSize(), mFrame);
    if (isWritten)
    {
        errno = 0;
        mFile.write(reinterpret_cast<const char*>(mFrame.GetData()), static_cast<std::streamsize>(mFrame.GetSize()));
        mFile.flush();
        isWritten = mFile.good();
    }
    if (!Utility::Check(ioErrors, isWritten, sWriteError, "Failed to write broken stack stream. Error: %s", std::strerror(errno)))
        return false;
    mIndex.ChunksByThread[inThread].push_back({ioRanges.front().Start, ioRanges.back().End, static_cast<uint64_t>(start),
                                               static_cast<uint64_t>(mFile.tellp() - start)});
    ioRanges.clear();
    return true;
}

bool BrokenStackWriter::Finish(Utility::ErrorState& ioErrors)
{
    for (auto& [thread, entry] : mThreads)
    {
        if (entry.OpenStart && !AddRange(thread, entry, std::numeric_limits<double>::max(), sNoCallstack, ioErrors))
            return false;
        if (!entry.Ranges.empty() && !WriteChunk(thread, entry.Ranges, ioErrors))
            return false;
    }
    errno = 0;
    mFile.close();
    if (!Utility::Check(ioErrors, mFile.good(), sWriteError, "Failed to write broken stack stream. Error: %s",
                        std::strerror(errno)))
        return false;
    const RTTI::Object* index = &mIndex;
    // The directory is gone only if somebody has deleted it during the pass; writing then tells what is wrong.
    static_cast<void>(FileSystem::gCreateDirectories(mDirectory));
    return Serialization::gReplaceFileWithObjects(gGetBrokenStackIndexPath(mDirectory), {&index, 1}, ioErrors);
}

} // namespace Profiler
