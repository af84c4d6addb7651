#include "Session/Events/TraceEventStream.h"

#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Serialization/BinaryFileReader.h"
#include "Serialization/BinaryWriter.h"

#include <cerrno>
#include <cstring>
#include <fstream>

RTTI_BEGIN(Profiler::TraceEventStream::Chunk, 1)
    RTTI_PROPERTY("StartTime", StartTime)
    RTTI_PROPERTY("EndTime", EndTime)
    RTTI_PROPERTY("FileOffset", FileOffset)
    RTTI_PROPERTY("Size", Size)
    RTTI_PROPERTY("NumEvents", NumEvents)
    RTTI_PROPERTY("Processes", Processes)
    RTTI_PROPERTY("Threads", Threads)
RTTI_END()

RTTI_BEGIN(Profiler::TraceEventStream, 3)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("NumEvents", mNumEvents)
    RTTI_PROPERTY("Chunks", mChunks)
    RTTI_PROPERTY("EventDataVersion", mEventDataVersion)
RTTI_END()

namespace Profiler
{
namespace
{

constexpr uint32_t sWriteError = 0;

} // namespace

TraceEventStream::TraceEventStream(const std::string& inDirectory, uint32_t inEventDataVersion)
    : mIndexPath(FileSystem::gCombinePath(inDirectory, "events.index")),
      mDataPath(FileSystem::gCombinePath(inDirectory, "events.dat")),
      mEventDataVersion(inEventDataVersion)
{
}

TraceEventStream::~TraceEventStream() = default;

const RTTI::Type& TraceEventStream::GetType() const
{
    return RTTI::gTypeOf<TraceEventStream>();
}

std::unique_ptr<TraceEventStream> TraceEventStream::sLoad(const std::string& inDirectory, const RTTI::Registry& inRegistry,
                                                          Serialization::ReaderErrorState& ioErrors)
{
    using Serialization::EReaderError;
    const TraceEventStream paths(inDirectory, sPlainVersion);
    {
        const Utility::ErrorContextScope context(&ioErrors, paths.mDataPath);
        if (!Serialization::Check(ioErrors, FileSystem::gExists(paths.mDataPath), EReaderError::FileNotFound,
                                  "Unable to open events data file %s, the file does not exist", paths.mDataPath))
            return nullptr;
    }
    const Utility::ErrorContextScope context(&ioErrors, paths.mIndexPath);
    const RTTI::Type& type = RTTI::gTypeOf<TraceEventStream>();
    Serialization::TypeCreators creators;
    // An index from before the property tells nothing of the layout: its chunks are plain.
    creators.AddTypeCreator(
        type,
        [&] { return RTTI::OwnedValue(RTTI::gTypeOf<TraceEventStream>(), new TraceEventStream(inDirectory, sPlainVersion)); });
    Serialization::CompatibilityHandlers handlers;
    handlers.AddCompatibilityHandler(type, std::make_unique<TraceEventStreamCompatibilityHandler>());
    std::vector<std::unique_ptr<RTTI::Object>> objects;
    if (!Serialization::gReadObjectsFromFile(paths.mIndexPath, inRegistry, creators, handlers,
                                             Serialization::ReadObjectMode::Strict, objects, ioErrors))
        return nullptr;
    for (std::unique_ptr<RTTI::Object>& object : objects)
    {
        if (RTTI::gIsDerivedFrom(object->GetType(), type))
            return std::unique_ptr<TraceEventStream>(static_cast<TraceEventStream*>(object.release()));
    }
    ioErrors.AddError(static_cast<uint32_t>(EReaderError::Corrupt),
                      "The file does not appear to be a TraceEventStream file (missing TraceEventStream object)");
    return nullptr;
}

bool TraceEventStream::AddEvent(const TraceEvent& inEvent, Utility::ErrorState& ioErrors)
{
    return AddEvent(inEvent, mIndexPath, mDataPath, ioErrors);
}

bool TraceEventStream::AddEvent(const TraceEvent& inEvent, const std::string& inIndexPath, const std::string& inDataPath,
                                Utility::ErrorState& ioErrors)
{
    // What a chunk has no room for can't be taken before the chunk is written.
    if (mPending.IsFull() && !FlushChunk(inIndexPath, inDataPath, ioErrors))
        return false;
    if (!mPending.Add(inEvent))
        return true;
    ++mNumEvents;
    const bool isDue = mPending.GetNumEvents() % sEventsPerChunk == 0 || mPending.IsFull();
    return !isDue || FlushChunk(inIndexPath, inDataPath, ioErrors);
}

bool TraceEventStream::FlushStream(Utility::ErrorState& ioErrors)
{
    return FlushChunk(mIndexPath, mDataPath, ioErrors) && MakeMissingFiles({mIndexPath, mDataPath}, ioErrors);
}

bool TraceEventStream::MakeMissingFiles(const FilePair& inFiles, Utility::ErrorState& ioErrors)
{
    if (!FileSystem::gExists(inFiles.Index) && !WriteIndex(inFiles.Index, ioErrors))
        return false;
    if (FileSystem::gExists(inFiles.Data))
        return true;
    std::ofstream data;
    FileSystem::gOpenWrite(data, inFiles.Data, std::ios_base::out | std::ios_base::binary);
    return Utility::Check(ioErrors, data.is_open(), sWriteError, "Failed to open %s for writing", inFiles.Data);
}

bool TraceEventStream::FlushChunk(const std::string& inIndexPath, const std::string& inDataPath, Utility::ErrorState& ioErrors)
{
    if (mPending.GetNumEvents() == 0)
        return !mIsIndexStale || WriteIndex(inIndexPath, ioErrors);
    Chunk chunk;
    if (!AppendToFile(inDataPath, chunk, ioErrors))
        return false;
    chunk.StartTime = mPending.GetStartTime();
    chunk.EndTime = mPending.GetEndTime();
    chunk.NumEvents = mPending.GetNumEvents();
    chunk.Processes = mPending.GetProcesses();
    chunk.Threads = mPending.GetThreads();
    mChunks.push_back(std::move(chunk));
    mPending.Clear();
    mIsIndexStale = true;
    return WriteIndex(inIndexPath, ioErrors);
}

// What a write that failed has left at the end of the file belongs to no chunk, and the next one begins behind it.
bool TraceEventStream::AppendToFile(const std::string& inDataPath, Chunk& outChunk, Utility::ErrorState& ioErrors)
{
    std::ofstream file;
    errno = 0;
    FileSystem::gOpenWrite(file, inDataPath, std::ios_base::out | std::ios_base::binary | std::ios_base::app);
    if (!Utility::Check(ioErrors, file.is_open(), sWriteError, "Unable to open event stream %s. Error: %s", inDataPath,
                        std::strerror(errno)))
        return false;
    file.seekp(0, std::ios_base::end);
    const std::streamoff start = file.tellp();
    const Utility::ByteBuffer& content = mPending.Build();
    std::streamoff end = start;
    errno = ENOMEM; // for a chunk that can't be compressed
    bool isWritten = start >= 0 && mCompressor.Compress(content.GetData(), content.GetSize(), mFrame);
    if (isWritten)
    {
        errno = 0;
        file.write(reinterpret_cast<const char*>(mFrame.GetData()), static_cast<std::streamsize>(mFrame.GetSize()));
        file.flush();
        end = file.tellp();
        // Some file systems tell only now that there was no room.
        file.close();
        isWritten = file.good();
    }
    if (!Utility::Check(ioErrors, isWritten, sWriteError, "Unable to write to event stream %s. Error: %s", inDataPath,
                        std::strerror(errno)))
        return false;
    outChunk.FileOffset = static_cast<uint64_t>(start);
    outChunk.Size = static_cast<uint64_t>(end - start);
    return true;
}

bool TraceEventStream::WriteIndex(const std::string& inIndexPath, Utility::ErrorState& ioErrors)
{
    const RTTI::Object* object = this;
    if (!Serialization::gReplaceFileWithObjects(inIndexPath, {&object, 1}, ioErrors))
        return false;
    mIsIndexStale = false;
    return true;
}

} // namespace Profiler
