// Brings the files of a stream from the plain layout to the columnar one, beside the old files, which are replaced at the end.
#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "FileSystem/Path.h"
#include "Session/Events/TraceEventStream.h"
#include "System/Job.h"
#include "Utility/Log.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace Profiler
{
namespace
{

constexpr uint32_t sUpgradeError = 0;

// "events.dat" with the stem "events_old" is "events_old.dat".
std::string gGetBackupPath(const std::string& inPath)
{
    return FileSystem::gChangeStem(inPath, FileSystem::gGetFileStem(inPath) + "_old");
}

// Puts the file at inNewPath in place of the one at inPath, which stays as a backup. On failure the old file is in its place.
bool gReplaceFile(const std::string& inPath, const std::string& inNewPath)
{
    const std::string backup = gGetBackupPath(inPath);
    if (FileSystem::gDeleteFile(backup) != FileSystem::EDeleteResult::Success || !FileSystem::gRename(inPath, backup))
        return false;
    if (FileSystem::gRename(inNewPath, inPath))
        return true;
    static_cast<void>(FileSystem::gRename(backup, inPath));
    return false;
}

void gDeleteFiles(const std::string& inIndexPath, const std::string& inDataPath)
{
    static_cast<void>(FileSystem::gDeleteFile(inIndexPath));
    static_cast<void>(FileSystem::gDeleteFile(inDataPath));
}

} // namespace

bool TraceEventStream::UpgradeStream(const bool& inIsCanceled, Utility::ErrorState& ioErrors,
                                     const Utility::ProgressFunction& inProgress)
{
    Utility::gLog("Upgrading event stream from version %d to %d", static_cast<int32_t>(mEventDataVersion),
                  static_cast<int32_t>(sColumnarVersion));
    if (mEventDataVersion != sPlainVersion)
        return true;
    const FilePair temporary{FileSystem::gChangeStem(mIndexPath, "events_tmp"), FileSystem::gChangeStem(mDataPath, "events_tmp")};
    // Those of an attempt that broke off; chunks would be appended to them.
    gDeleteFiles(temporary.Index, temporary.Data);
    const uint64_t oldNumEvents = mNumEvents;
    const std::vector<Chunk> oldChunks = mChunks;
    const bool isConverted = ConvertChunks(temporary, inIsCanceled, ioErrors, inProgress) && !System::gIsCanceled(inIsCanceled) &&
                             MakeMissingFiles(temporary, ioErrors);
    if (isConverted && ReplaceFiles(temporary, ioErrors))
        return true;
    gDeleteFiles(temporary.Index, temporary.Data);
    // As the files say, so that nobody who goes on with the object writes anything else to them.
    mNumEvents = oldNumEvents;
    mChunks = oldChunks;
    mEventDataVersion = sPlainVersion;
    mPending.Clear();
    mIsIndexStale = false;
    return false;
}

bool TraceEventStream::ConvertChunks(const FilePair& inTemporary, const bool& inIsCanceled, Utility::ErrorState& ioErrors,
                                     const Utility::ProgressFunction& inProgress)
{
    std::ifstream file;
    errno = 0;
    FileSystem::gOpenRead(file, mDataPath, std::ios_base::in | std::ios_base::binary);
    uint64_t fileSize = 0;
    const bool isOpen = file.is_open() && FileSystem::gGetFileSize(mDataPath, fileSize);
    if (!Utility::Check(ioErrors, isOpen, sUpgradeError, "Unable to open event stream %s for upgrade. Error: %s", mDataPath,
                        std::strerror(errno)))
        return false;

    const std::vector<Chunk> oldChunks = std::exchange(mChunks, {});
    Utility::ProgressReporter reporter(inProgress, std::exchange(mNumEvents, 0));
    mEventDataVersion = sColumnarVersion;
    uint64_t done = 0;
    Utility::ByteBuffer records;
    for (const Chunk& chunk : oldChunks)
    {
        if (System::gIsCanceled(inIsCanceled))
            return false;
        errno = 0;
        bool isRead = chunk.FileOffset <= fileSize && chunk.Size <= fileSize - chunk.FileOffset && records.TryResize(chunk.Size);
        if (isRead)
        {
            file.seekg(static_cast<std::streamoff>(chunk.FileOffset));
            file.read(reinterpret_cast<char*>(records.GetData()), static_cast<std::streamsize>(chunk.Size));
            isRead = file.good();
        }
        const char* reason = errno != 0 ? std::strerror(errno) : "A chunk isn't all in the file";
        if (!Utility::Check(ioErrors, isRead, sUpgradeError, "Unable to read from old event stream %s. Error: %s", mDataPath,
                            reason) ||
            !ConvertRecords(records, inTemporary, inIsCanceled, ioErrors, [&] { reporter.Report(++done); }))
            return false;
    }
    return FlushChunk(inTemporary.Index, inTemporary.Data, ioErrors);
}

bool TraceEventStream::ConvertRecords(const Utility::ByteBuffer& inRecords, const FilePair& inTemporary, const bool& inIsCanceled,
                                      Utility::ErrorState& ioErrors, const std::function<void()>& inOnRecord)
{
    Utility::ByteCursor cursor(inRecords.GetData(), inRecords.GetSize());
    TraceEvent event;
    while (cursor.GetRemaining() != 0)
    {
        if (System::gIsCanceled(inIsCanceled))
            return false;
        const auto type = cursor.Read<uint8_t>();
        const auto time = cursor.Read<double>();
        const auto process = cursor.Read<int32_t>();
        const auto thread = cursor.Read<int32_t>();
        // A kind that nobody knows has a payload of unknown size: what follows couldn't be told from garbage.
        const bool isWhole =
            !cursor.HasFailed() && type < sNumStoredEventTypes && gDecodeEvent(type, time, process, thread, cursor, event);
        if (!Utility::Check(ioErrors, isWhole, sUpgradeError, "Unable to read from old event stream %s. Error: %s", mDataPath,
                            "A record is damaged") ||
            !AddEvent(event, inTemporary.Index, inTemporary.Data, ioErrors))
            return false;
        inOnRecord();
    }
    return true;
}

bool TraceEventStream::ReplaceFiles(const FilePair& inTemporary, Utility::ErrorState& ioErrors) const
{
    const auto replace = [&](const std::string& inPath, const std::string& inNewPath)
    {
        return Utility::Check(ioErrors, gReplaceFile(inPath, inNewPath), sUpgradeError,
                              "Unable to upgrade event stream: failed to replace file %s with %s", inPath, inNewPath);
    };
    if (!replace(mIndexPath, inTemporary.Index))
        return false;
    if (replace(mDataPath, inTemporary.Data))
    {
        gDeleteFiles(gGetBackupPath(mIndexPath), gGetBackupPath(mDataPath));
        return true;
    }
    static_cast<void>(FileSystem::gDeleteFile(mIndexPath));
    static_cast<void>(FileSystem::gRename(gGetBackupPath(mIndexPath), mIndexPath));
    return false;
}

} // namespace Profiler
