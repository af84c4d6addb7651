#include "ThreadsModel/ChunkFile.h"

#include <cerrno>

namespace Profiler
{

bool ChunkFile::Open(const std::string& inPath, EMode inMode)
{
    Close();
    constexpr std::ios_base::openmode reading = std::ios_base::in | std::ios_base::binary;
    // Blocks are large: a buffer of the stream's own would only copy them once more.
    mStream.rdbuf()->pubsetbuf(nullptr, 0);
    mStream.open(inPath, inMode == EMode::Writing ? reading | std::ios_base::out | std::ios_base::app : reading);
    if (mStream.is_open() && inMode == EMode::Writing)
        mStream.seekp(0, std::ios_base::end);
    if (mStream.is_open() && mStream.good())
        return true;
    Close();
    return false;
}

void ChunkFile::Close()
{
    if (mStream.is_open())
        mStream.close();
    mStream.clear();
    mError = 0;
}

// A write that failed doesn't stand in the way of reading what is there, nor is it forgotten.
bool ChunkFile::Read(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes)
{
    const std::ios_base::iostate oldState = mStream.rdstate();
    mStream.clear();
    uint64_t end = 0;
    // Before anything of that size is allocated.
    bool isRead = GetEnd(end) && inOffset <= end && inSize <= end - inOffset && outBytes.TryResize(inSize);
    if (isRead)
    {
        mStream.seekg(static_cast<std::streamoff>(inOffset));
        mStream.read(reinterpret_cast<char*>(outBytes.GetData()), static_cast<std::streamsize>(inSize));
        isRead = mStream.good();
    }
    mStream.clear(oldState);
    return isRead;
}

bool ChunkFile::Append(const Utility::ByteBuffer& inBytes, uint64_t& outOffset)
{
    mStream.clear();
    errno = 0;
    if (!GetEnd(outOffset))
        return Fail(errno);
    mStream.seekp(0, std::ios_base::end);
    mStream.write(reinterpret_cast<const char*>(inBytes.GetData()), static_cast<std::streamsize>(inBytes.GetSize()));
    return mStream.good() || Fail(errno);
}

bool ChunkFile::Flush()
{
    if (!mStream.is_open())
        return Fail(EBADF);
    if (!mStream.good())
        return false;
    errno = 0;
    mStream.flush();
    return mStream.good() || Fail(errno);
}

bool ChunkFile::Fail(int inError)
{
    mError = inError != 0 ? inError : EIO;
    return false;
}

bool ChunkFile::GetEnd(uint64_t& outEnd)
{
    mStream.seekg(0, std::ios_base::end);
    const std::streamoff end = mStream.tellg();
    outEnd = static_cast<uint64_t>(end);
    return end >= 0;
}

} // namespace Profiler
