#include "ThreadsModel/ReadyThreads/ReadyThreadProcessingModel.h"

#include "FileSystem/File.h"
#include "System/Thread.h"
#include "ThreadsModel/LODThresholds.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

namespace Profiler
{
namespace
{

using System::MutexLock;

constexpr uint32_t sNoCode = 0;
constexpr const char* sWriteFailure = "Could not write to ready thread file %s";

// A level takes what lasts up to this many times the next one's threshold.
constexpr double sThresholdsPerLevel = 2.0;

// The level of a record whose wait, or run, lasts inLength. What is too long for every level goes to the finest one.
uint32_t gChooseLevel(double inLength)
{
    for (size_t i = 1; i < sLODThresholds.size(); ++i)
    {
        if (inLength / static_cast<double>(sLODThresholds[i]) < sThresholdsPerLevel)
            return static_cast<uint32_t>(i - 1);
    }
    return 0;
}

} // namespace

ReadyThreadProcessingModel::ReadyThreadProcessingModel(std::string inPath) : mPath(std::move(inPath))
{
    try
    {
        mThread = std::thread([this] { RunWriter(); });
    }
    catch (const std::system_error&)
    {
        // The system has no thread left to give. OpenFile tells.
        const MutexLock lock(mMutex);
        mIsDone = true;
    }
}

ReadyThreadProcessingModel::~ReadyThreadProcessingModel()
{
    SendCommand(ECommand::Abort);
    if (mThread.joinable())
        mThread.join();
}

bool ReadyThreadProcessingModel::OpenFile(Utility::ErrorState& ioErrors)
{
    FileSystem::gOpenWrite(mFile, mPath, std::ios_base::out | std::ios_base::binary | std::ios_base::trunc);
    return Utility::Check(ioErrors, mFile.is_open() && mFile.good(), sNoCode, "Unable to open file %s for writing.", mPath) &&
           Utility::Check(ioErrors, mThread.joinable(), sNoCode, "Unable to start the thread that writes wake-ups.");
}

uint32_t ReadyThreadProcessingModel::NewReadyIndex()
{
    mReadyIndexTable.push_back(sNoReadyRecord);
    return static_cast<uint32_t>(mReadyIndexTable.size() - 1);
}

void ReadyThreadProcessingModel::SetWaitInfo(ReadyRecord& ioRecord, ThreadState inState, CallstackKey inStack, double inWaitStart,
                                             double inWaitEnd)
{
    ioRecord.WaitState = static_cast<uint32_t>(inState);
    ioRecord.SwitchInStack = inStack;
    ioRecord.WaitStart = inWaitStart;
    ioRecord.WaitEnd = inWaitEnd;
}

bool ReadyThreadProcessingModel::CommitReady(const ReadyRecord& inRecord, uint32_t inReadyIndex, Utility::ErrorState& ioErrors,
                                             double inRunStart, double inRunEnd)
{
    if (!Utility::Check(ioErrors, !mHasFailed.load(std::memory_order_relaxed), sNoCode, sWriteFailure, mPath))
        return false;
    const uint32_t level = gChooseLevel(std::min(inRunEnd - inRunStart, inRecord.WaitEnd - inRecord.WaitStart));
    if (level >= mOpenChunks.size())
        mOpenChunks.resize(level + 1);
    OpenChunk& open = mOpenChunks[level];
    // An id has no more numbers than this; the record then has none, as if the thread hadn't been readied.
    if (open.NumRecords > sReadyIDNumberMask)
        return true;
    if (open.Pending == nullptr)
    {
        open.Pending = std::make_unique<PendingReadyChunk>();
        open.Pending->Level = static_cast<int32_t>(level);
    }
    PendingReadyChunk& chunk = *open.Pending;
    chunk.Start = std::min(chunk.Start, inRecord.ReadyTime);
    chunk.End = std::max(chunk.End, inRecord.ReadyTime);
    mReadyIndexTable[inReadyIndex] = level << sReadyIDLevelShift | open.NumRecords++;
    chunk.Chunk.AddRecord(inRecord);
    if (chunk.Chunk.GetRecords().size() == ReadyThreadChunk::sMaxRecords)
        Enqueue(std::move(open.Pending));
    return true;
}

bool ReadyThreadProcessingModel::CloseReady(ReadyRecord& ioRecord, uint32_t inReadyIndex, ThreadState inState,
                                            Utility::ErrorState& ioErrors, double inStart, double inEnd)
{
    if (inState == ThreadState::Executing)
        return CommitReady(ioRecord, inReadyIndex, ioErrors, inStart, inEnd);
    // It never ran again.
    SetWaitInfo(ioRecord, inState, sNoCallstack, inStart, inEnd);
    return CommitReady(ioRecord, inReadyIndex, ioErrors, inEnd, inEnd + sRunAfterEndMs);
}

bool ReadyThreadProcessingModel::FinishWriting(Utility::ErrorState& ioErrors)
{
    for (OpenChunk& open : mOpenChunks)
    {
        if (open.Pending != nullptr)
            Enqueue(std::move(open.Pending));
    }
    SendCommand(ECommand::Finish);
    return Utility::Check(ioErrors, !mHasFailed.load(), sNoCode, sWriteFailure, mPath);
}

void ReadyThreadProcessingModel::CancelWriting()
{
    SendCommand(ECommand::Abort);
}

void ReadyThreadProcessingModel::Enqueue(std::unique_ptr<PendingReadyChunk> inChunk)
{
    const MutexLock lock(mMutex);
    mQueue.push_back(std::move(inChunk));
    mWorkCondition.NotifyOne();
}

// The first command counts, and any waits for the end of the writer.
void ReadyThreadProcessingModel::SendCommand(ECommand inCommand)
{
    const MutexLock lock(mMutex);
    if (mCommand == ECommand::None)
        mCommand = inCommand;
    mWorkCondition.NotifyOne();
    while (!mIsDone)
        mDoneCondition.Wait(mMutex);
}

void ReadyThreadProcessingModel::RunWriter()
{
    System::gSetThreadName("ReadyThreadChunkWriter");
    ECommand command = ECommand::None;
    while (command == ECommand::None && !mHasFailed.load())
    {
        std::vector<std::unique_ptr<PendingReadyChunk>> chunks;
        {
            const MutexLock lock(mMutex);
            while (mQueue.empty() && mCommand == ECommand::None)
                mWorkCondition.Wait(mMutex);
            command = mCommand;
            if (command != ECommand::Abort)
                chunks.swap(mQueue);
        }
        for (const std::unique_ptr<PendingReadyChunk>& chunk : chunks)
        {
            if (WriteChunk(*chunk))
                continue;
            mHasFailed.store(true);
            break;
        }
    }
    const MutexLock lock(mMutex);
    mIsDone = true;
    mDoneCondition.NotifyAll();
}

// False if it can't be written, or memory doesn't suffice.
bool ReadyThreadProcessingModel::WriteChunk(PendingReadyChunk& ioChunk)
try
{
    const auto level = static_cast<size_t>(ioChunk.Level);
    if (level >= mChunkHeaders.size())
        mChunkHeaders.resize(level + 1);
    const auto offset = static_cast<uint64_t>(mFile.tellp());
    mContent.Clear();
    ioChunk.Chunk.Serialize(mContent);
    if (!mCompressor.Compress(mContent.GetData(), mContent.GetSize(), mFrame))
        return false;
    mFile.write(reinterpret_cast<const char*>(mFrame.GetData()), static_cast<std::streamsize>(mFrame.GetSize()));
    if (!mFile.good())
        return false;
    mChunkHeaders[level].push_back({ioChunk.Start, ioChunk.End, offset, mFrame.GetSize()});
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

bool ReadyThreadProcessingModel::WriteHeader(Utility::ErrorState& ioErrors)
{
    if (mIsFinished)
        return true;
    ReadyThreadFooter footer;
    footer.HeaderOffset = static_cast<uint64_t>(mFile.tellp());
    Utility::ByteBuffer header;
    EncodeHeader(header);
    footer.HeaderSize = header.GetSize();
    footer.HeaderHash = Utility::gHash64(header.GetData(), header.GetSize());
    mFile.write(reinterpret_cast<const char*>(header.GetData()), static_cast<std::streamsize>(header.GetSize()));
    const uint64_t footerHash = Utility::gHash64(&footer, sizeof(footer));
    mFile.write(reinterpret_cast<const char*>(&footer), sizeof(footer));
    mFile.write(reinterpret_cast<const char*>(&footerHash), sizeof(footerHash));
    mFile.close();
    // What the stream held back reaches the disk only now.
    mIsFinished = Utility::Check(ioErrors, mFile.good(), sNoCode, "Could not write header to ready thread file %s", mPath);
    return mIsFinished;
}

void ReadyThreadProcessingModel::EncodeHeader(Utility::ByteBuffer& outHeader) const
{
    outHeader.AppendValue(static_cast<uint8_t>(mChunkHeaders.size()));
    for (const std::vector<ReadyThreadChunkHeader>& chunks : mChunkHeaders)
    {
        outHeader.AppendValue(static_cast<uint32_t>(chunks.size()));
        outHeader.Append(chunks.data(), chunks.size() * sizeof(ReadyThreadChunkHeader));
    }
    outHeader.AppendValue(static_cast<uint64_t>(mReadyIndexTable.size()));
    outHeader.Append(mReadyIndexTable.data(), mReadyIndexTable.size() * sizeof(uint32_t));
}

} // namespace Profiler
