// Writing chunks: jobs compress them in groups, the streaming thread appends each group to the file.
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Format.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>

namespace Profiler
{
namespace
{

using System::MutexLock;
using System::RecursiveMutexLock;

// A batch ends with the chunk that brings the bytes in memory above this.
constexpr uint64_t sBatchBytes = 104'857'599;

// Kinds apart, the chunks of a thread together and in order of time.
bool gIsBefore(const ChunkToSave& inFirst, const ChunkToSave& inSecond)
{
    const auto rank = [](const ChunkKey& inKey) { return std::tuple(inKey.mType, inKey.mThread, inKey.mChunkIndex); };
    return rank(inFirst.Key) < rank(inSecond.Key);
}

} // namespace

void ThreadStreamingManager::SaveStage(bool inFullFlush)
{
    std::vector<ChunkToSave> chunks;
    {
        const RecursiveMutexLock lock(mMutex);
        if (inFullFlush)
        {
            for (const auto& [key, chunk] : mInProgressChunks)
                mLoadedBytes.fetch_add(static_cast<int64_t>(chunk->GetSize()));
            mChunksToSave.merge(mInProgressChunks);
            mInProgressChunks.clear();
        }
        chunks.reserve(mChunksToSave.size());
        for (const auto& [key, chunk] : mChunksToSave)
            chunks.push_back({key, chunk});
        mChunksToSave.clear();
    }
    std::sort(chunks.begin(), chunks.end(), gIsBefore);
    SaveChunks(chunks);
}

void ThreadStreamingManager::SaveChunks(std::span<const ChunkToSave> inChunks)
{
    for (size_t next = 0; next < inChunks.size();)
    {
        next += DealBatch(inChunks.subspan(next));
        const std::vector<System::JobHandle> jobs = CompressBatch();
        const bool isWritten = WriteBatch(jobs);
        mScheduler.WaitForJobs(jobs);
        for (ChunkSaveSlot& slot : mSaveSlots)
            slot.Reset();
        if (!isWritten)
            return;
    }
    if (!mOptions.ThreadsFile->Flush())
        AddSaveError(mOptions.ThreadsFile->GetError());
}

// Deals chunks from the front of the list to the groups, round robin; gives how many make the batch.
size_t ThreadStreamingManager::DealBatch(std::span<const ChunkToSave> inChunks)
{
    uint64_t bytes = 0;
    size_t count = 0;
    while (count < inChunks.size() && bytes <= sBatchBytes)
    {
        const ChunkToSave& chunk = inChunks[count];
        mSaveSlots[count % sNumSlots].Group.push_back(&chunk);
        bytes += chunk.Chunk->GetSize();
        ++count;
    }
    return count;
}

// One job per group that isn't empty, in their order.
std::vector<System::JobHandle> ThreadStreamingManager::CompressBatch()
{
    std::vector<System::JobHandle> jobs;
    for (ChunkSaveSlot& slot : mSaveSlots)
    {
        if (slot.Group.empty())
            break;
        System::JobDescription job;
        job.Work = [&slot](System::Job&, const bool&) { CompressGroup(slot); };
        jobs.push_back(mScheduler.ScheduleJob(std::move(job)));
    }
    return jobs;
}

void ThreadStreamingManager::CompressGroup(ChunkSaveSlot& ioSlot)
{
    try
    {
        for (const ChunkToSave* chunk : ioSlot.Group)
        {
            ioSlot.HasFailed = !CompressChunk(ioSlot, *chunk);
            if (ioSlot.HasFailed)
                return;
        }
    }
    catch (const std::bad_alloc&)
    {
        ioSlot.HasFailed = true;
    }
}

bool ThreadStreamingManager::CompressChunk(ChunkSaveSlot& ioSlot, const ChunkToSave& inChunk)
{
    // One chunk at a time, which stays in the processor's cache until it is compressed.
    ioSlot.Serialized.Clear();
    inChunk.Chunk->Serialize(ioSlot.Serialized);
    const uint64_t offset = ioSlot.Compressed.GetSize();
    if (!ioSlot.Compressor.Append(ioSlot.Serialized.GetData(), ioSlot.Serialized.GetSize(), ioSlot.Compressed))
        return false;
    const uint64_t size = ioSlot.Compressed.GetSize() - offset;

    ChunkLayout& layout = ioSlot.Layouts.emplace_back();
    switch (inChunk.Key.mType)
    {
    case EChunkType::FunctionIndex:
        layout.FunctionIndexOffset = offset;
        layout.FunctionIndexSize = size;
        break;
    case EChunkType::Overview:
        layout.OverviewDataOffset = offset;
        layout.OverviewDataSize = size;
        break;
    case EChunkType::Bar:
        layout.BarDataOffset = offset;
        layout.BarDataSize = size;
        layout.BoundaryDataOffset = ioSlot.Compressed.GetSize();
        static_cast<const BarChunk*>(inChunk.Chunk)->WriteBoundaries(ioSlot.Compressed);
        layout.BoundaryDataSize = ioSlot.Compressed.GetSize() - layout.BoundaryDataOffset;
        break;
    case EChunkType::ReadyThread: // has a writer and a file of its own
        break;
    }
    return true;
}

// Writes each group as soon as it is compressed, while the others still are. False if one couldn't be written: its chunks and
// those behind it keep their entries, and so stay in memory for good: they are nowhere else.
bool ThreadStreamingManager::WriteBatch(std::span<const System::JobHandle> inJobs)
{
    for (size_t group = 0; group < inJobs.size(); ++group)
    {
        mScheduler.WaitForJobs(inJobs[group]);
        const ChunkSaveSlot& slot = mSaveSlots[group];
        uint64_t base = 0;
        // A job that was cancelled has left chunks of its group out.
        const bool isCompressed = !slot.HasFailed && slot.Layouts.size() == slot.Group.size();
        if (!isCompressed || !mOptions.ThreadsFile->Append(slot.Compressed, base))
        {
            AddSaveError(slot.HasFailed ? ENOMEM : !isCompressed ? ECANCELED : mOptions.ThreadsFile->GetError());
            return false;
        }
        for (size_t i = 0; i < slot.Group.size(); ++i)
            FinishSave(*slot.Group[i], slot.Layouts[i], base);
    }
    return true;
}

void ThreadStreamingManager::FinishSave(const ChunkToSave& inChunk, const ChunkLayout& inLayout, uint64_t inBase)
{
    ChunkTable& table = inChunk.Key.GetThread().GetChunkTable();
    const int32_t index = inChunk.Key.mChunkIndex;
    switch (inChunk.Key.mType)
    {
    case EChunkType::FunctionIndex:
        table.SetFunctionIndexData(index, inBase + inLayout.FunctionIndexOffset, inLayout.FunctionIndexSize);
        // Its size is only known since it was written, so it hasn't been counted yet.
        mLoadedBytes.fetch_add(static_cast<int64_t>(inChunk.Chunk->GetSize()));
        break;
    case EChunkType::Overview:
        table.SetOverviewData(index, inBase + inLayout.OverviewDataOffset, inLayout.OverviewDataSize);
        break;
    case EChunkType::Bar:
        table.SetBarData(index, inBase + inLayout.BarDataOffset, inLayout.BarDataSize, inBase + inLayout.BoundaryDataOffset,
                         inLayout.BoundaryDataSize);
        break;
    case EChunkType::ReadyThread:
        break;
    }
    AddEligible(inChunk.Key);
}

// Each text once: a disk that is full says so at every pass.
void ThreadStreamingManager::AddSaveError(int inError)
{
    const std::string text = Utility::gFormat("Error during write of file %s: %s", mThreadsPath.c_str(), std::strerror(inError));
    {
        const MutexLock lock(mErrorsMutex);
        if (mKnownErrors.insert(text).second)
            mSaveErrors.push_back(text);
    }
    mHasSaveErrors.store(true, std::memory_order_release);
    const RecursiveMutexLock lock(mMutex);
    mMemoryCondition.NotifyAll();
}

std::vector<std::string> ThreadStreamingManager::GetSaveErrors() const
{
    const MutexLock lock(mErrorsMutex);
    return mSaveErrors;
}

} // namespace Profiler
