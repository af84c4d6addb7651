#include "Session/Events/TraceEventStreamReader.h"

#include "FileSystem/File.h"
#include "Session/Events/TraceEventStream.h"
#include "Utility/Clock.h"

namespace Profiler
{
namespace
{

constexpr uint32_t sReadError = 0;

// Told apart by their number, so that passing over them needs no decoding.
bool gIsInstrumentation(uint8_t inType)
{
    return inType >= static_cast<uint8_t>(ETraceEventType::InstrumentationBegin) &&
           inType <= static_cast<uint8_t>(ETraceEventType::InstrumentationBeginColored);
}

Utility::ByteBuffer gCopy(const Utility::ByteBuffer& inBuffer)
{
    Utility::ByteBuffer copy;
    copy.Append(inBuffer.GetData(), inBuffer.GetSize());
    return copy;
}

} // namespace

// Here and not with the stream, which needn't know its readers.
TraceEventStreamReader TraceEventStream::CreateReader(double inStartTimeMs) const
{
    return {*this, inStartTimeMs};
}

TraceEventStreamReader::TraceEventStreamReader(const TraceEventStream& inStream, double inStartTimeMs)
    : mStream(&inStream),
      mIncludeInstrumentation(inStream.IncludesInstrumentation())
{
    const std::vector<TraceEventStream::Chunk>& chunks = inStream.GetChunks();
    if (chunks.empty() || inStartTimeMs > chunks.back().EndTime)
        return;
    // Bytes of one layout may well pass for another.
    if (inStream.NeedsUpgrade())
    {
        Fail("its chunks don't have the layout of today");
        return;
    }
    OpenFile();
    mChunk = FindChunk(inStartTimeMs);
    if (LoadChunk())
        PassOver(inStartTimeMs);
}

TraceEventStreamReader::TraceEventStreamReader(const TraceEventStreamReader& inOther)
    : mStream(inOther.mStream),
      mIncludeInstrumentation(inOther.mIncludeInstrumentation),
      mContent(gCopy(inOther.mContent)),
      mView(inOther.mView),
      mChunk(inOther.mChunk),
      mPosition(inOther.mPosition),
      mEventsRead(inOther.mEventsRead),
      mIOTimeSeconds(inOther.mIOTimeSeconds),
      mFailure(inOther.mFailure)
{
    if (mChunk != sNoChunk)
        OpenFile();
}

TraceEventStreamReader& TraceEventStreamReader::operator=(const TraceEventStreamReader& inOther)
{
    if (this != &inOther)
        *this = TraceEventStreamReader(inOther);
    return *this;
}

// The last chunk that begins before the time, or the first. Of chunks that begin at the very time, the one that halving meets.
size_t TraceEventStreamReader::FindChunk(double inTimeMs) const
{
    const std::vector<TraceEventStream::Chunk>& chunks = mStream->GetChunks();
    if (chunks.size() == 1)
        return 0;
    if (inTimeMs >= chunks.back().StartTime)
        return chunks.size() - 1;
    size_t low = 0;
    size_t high = chunks.size() - 1;
    while (low + 1 < high)
    {
        const size_t middle = (low + high) / 2;
        if (inTimeMs == chunks[middle].StartTime)
            return middle;
        (inTimeMs > chunks[middle].StartTime ? low : high) = middle;
    }
    return low;
}

void TraceEventStreamReader::OpenFile()
{
    FileSystem::gOpenRead(mFile, mStream->GetDataPath(), std::ios_base::in | std::ios_base::binary);
    if (!mFile.is_open() || !FileSystem::gGetFileSize(mStream->GetDataPath(), mFileSize))
        Fail("the file can't be opened");
}

bool TraceEventStreamReader::LoadChunk()
{
    mPosition = 0;
    const double start = Utility::gGetMonotonicSeconds();
    const bool isLoaded = mFailure.empty() && ReadChunk();
    mIOTimeSeconds += Utility::gGetMonotonicSeconds() - start;
    return isLoaded;
}

bool TraceEventStreamReader::ReadChunk()
{
    const TraceEventStream::Chunk& chunk = mStream->GetChunks()[mChunk];
    // Before anything of that size is allocated.
    if (chunk.FileOffset > mFileSize || chunk.Size > mFileSize - chunk.FileOffset)
        return Fail("a chunk lies behind the end of the file");
    if (!mFrame.TryResize(chunk.Size))
        return Fail("a chunk doesn't fit into memory");
    mFile.clear();
    mFile.seekg(static_cast<std::streamoff>(chunk.FileOffset));
    mFile.read(reinterpret_cast<char*>(mFrame.GetData()), static_cast<std::streamsize>(chunk.Size));
    if (!mFile.good() || static_cast<uint64_t>(mFile.gcount()) != chunk.Size)
        return Fail("a chunk can't be read");
    if (!mDecompressor.Decompress(mFrame.GetData(), mFrame.GetSize(), mContent) || !mView.Open(mContent, chunk.NumEvents))
        return Fail("a chunk is damaged");
    return true;
}

// False at the end of the stream, with the chunk behind the list.
bool TraceEventStreamReader::LoadNextChunk()
{
    ++mChunk;
    return mChunk < mStream->GetChunks().size() && LoadChunk();
}

void TraceEventStreamReader::PassOver(double inStartTimeMs)
{
    do
    {
        for (; mPosition < mView.GetNumEvents(); ++mPosition)
        {
            if (!(mView.GetTime(mContent, mPosition) < inStartTimeMs))
                return;
        }
    } while (LoadNextChunk());
}

bool TraceEventStreamReader::NextEvent(TraceEvent& outEvent)
{
    return ReadEvent(outEvent, [](double) { return true; });
}

bool TraceEventStreamReader::NextEvent(TraceEvent& outEvent, double inLimitMs)
{
    return ReadEvent(outEvent, [inLimitMs](double inTimeMs) { return inTimeMs < inLimitMs; });
}

template <class IsAllowed>
bool TraceEventStreamReader::ReadEvent(TraceEvent& outEvent, IsAllowed inIsAllowed)
{
    if (mChunk >= mStream->GetChunks().size() || !mFailure.empty())
        return false;
    do
    {
        while (mPosition < mView.GetNumEvents())
        {
            if (!inIsAllowed(mView.GetTime(mContent, mPosition)))
                return false;
            const uint64_t position = mPosition++;
            ++mEventsRead;
            if (!mIncludeInstrumentation && gIsInstrumentation(mView.GetType(mContent, position)))
                continue;
            return mView.Decode(mContent, position, outEvent) || Fail("an event is damaged");
        }
    } while (LoadNextChunk());
    return false;
}

bool TraceEventStreamReader::Fail(const char* inReason)
{
    mFailure = Utility::gFormat("Unable to read from event stream %s: %s", mStream->GetDataPath().c_str(), inReason);
    return false;
}

bool TraceEventStreamReader::CheckSound(Utility::ErrorState& ioErrors) const
{
    return Utility::Check(ioErrors, mFailure.empty(), sReadError, "%s", mFailure);
}

} // namespace Profiler
