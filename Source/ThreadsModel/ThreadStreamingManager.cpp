// The cache: entries, references, the budget, and what is unloaded.
#include "ThreadsModel/ThreadStreamingManager.h"

#include "Utility/Assert.h"
#include "Utility/Format.h"
#include "Utility/TextFormat.h"

#include <algorithm>
#include <utility>

namespace Profiler
{
namespace
{

using System::MutexLock;
using System::RecursiveMutexLock;

// Waits for the one call of a callback.
class LoadWaiter
{
public:
    void Set(Chunk* inChunk)
    {
        const MutexLock lock(mMutex);
        mChunk = inChunk;
        mIsSet = true;
        mCondition.NotifyOne();
    }

    [[nodiscard]] Chunk* Wait()
    {
        const MutexLock lock(mMutex);
        while (!mIsSet)
            mCondition.Wait(mMutex);
        return mChunk;
    }

private:
    System::Mutex mMutex;
    System::ConditionVariable mCondition;
    Chunk* mChunk GUARDED_BY(mMutex) = nullptr;
    bool mIsSet GUARDED_BY(mMutex) = false;
};

struct BlockPlace
{
    uint64_t Offset = 0;
    uint64_t Size = 0;
};

BlockPlace gGetBlockPlace(const ChunkLayout& inLayout, EChunkType inType)
{
    switch (inType)
    {
    case EChunkType::FunctionIndex:
        return {inLayout.FunctionIndexOffset, inLayout.FunctionIndexSize};
    case EChunkType::Bar:
        return {inLayout.BarDataOffset, inLayout.BarDataSize};
    case EChunkType::Overview:
        return {inLayout.OverviewDataOffset, inLayout.OverviewDataSize};
    case EChunkType::ReadyThread:
        break;
    }
    return {};
}

int64_t gGetBytes(const Chunk& inChunk)
{
    return static_cast<int64_t>(inChunk.GetSize());
}

} // namespace

ThreadStreamingManager::ThreadStreamingManager(std::string inThreadsPath, std::string inReadyThreadsPath,
                                               System::JobScheduler& inScheduler)
    : ThreadStreamingManager(std::move(inThreadsPath), std::move(inReadyThreadsPath), inScheduler, Options())
{
}

ThreadStreamingManager::ThreadStreamingManager(std::string inThreadsPath, std::string inReadyThreadsPath,
                                               System::JobScheduler& inScheduler, Options inOptions)
    : mThreadsPath(std::move(inThreadsPath)),
      mReadyThreadsPath(std::move(inReadyThreadsPath)),
      mScheduler(inScheduler),
      mOptions(std::move(inOptions)),
      mMemoryBudget(mOptions.MemoryBudget)
{
    for (size_t slot = 0; slot < sNumSlots; ++slot)
        mFreeLoadSlots.push_back(slot);
}

ThreadStreamingManager::~ThreadStreamingManager()
{
    Close();
}

// References

void ThreadStreamingManager::AddRef(const ChunkKey& inKey)
{
    const RecursiveMutexLock lock(mMutex);
    ++mChunkMap[inKey].mRefCount;
}

// The time only moves forward, so one delayed release protects the chunk against the immediate ones behind it.
void ThreadStreamingManager::Release(const ChunkKey& inKey, EChunkUnloadMode inUnloadMode)
{
    const double unloadTime = inUnloadMode == EChunkUnloadMode::Delayed ? mOptions.GetSeconds() + sUnloadDelay : 0.0;
    const RecursiveMutexLock lock(mMutex);
    const auto found = mChunkMap.find(inKey);
    if (found == mChunkMap.end())
        return;
    RefCountedChunk& entry = found->second;
    --entry.mRefCount;
    entry.mUnloadTime = std::max(entry.mUnloadTime, unloadTime);
    if (entry.mRefCount == 0 && entry.mHasFailed)
        mChunkMap.erase(found);
}

size_t ThreadStreamingManager::GetChunkCount() const
{
    const RecursiveMutexLock lock(mMutex);
    return mChunkMap.size();
}

void ThreadStreamingManager::RegisterThread(DetailLODThread& inDetailLODThread)
{
    const MutexLock lock(mRegisteredMutex);
    mRegisteredThreads.push_back(&inDetailLODThread);
}

// Chunks from disk

ChunkHandle ThreadStreamingManager::Load(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                         EChunkType inChunkType, EChunkUnloadMode inUnloadMode, const ChunkCallback& inCallback)
{
    PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager", inChunkDescription.HasDataTypes(inChunkType),
                       "Attempt to load chunk that doesn't have the required data type");
    const BlockPlace place = gGetBlockPlace(inChunkDescription.mLayout, inChunkType);
    return LoadBlock(ChunkKey::sMake(inDetailLODThread, inChunkDescription.mIndex, inChunkType), *mOptions.ThreadsFile,
                     place.Offset, place.Size, inUnloadMode, inCallback);
}

TypedChunkHandle<ReadyThreadChunk> ThreadStreamingManager::LoadReadyThreadChunk(const ReadyThreadChunkHeader& inHeader,
                                                                                uint32_t inChunkID, EChunkUnloadMode inUnloadMode,
                                                                                const ChunkCallback& inCallback)
{
    return TypedChunkHandle<ReadyThreadChunk>(LoadBlock(ChunkKey::sMakeReadyThread(inChunkID), *mOptions.ReadyThreadsFile,
                                                        inHeader.Offset, inHeader.Size, inUnloadMode, inCallback));
}

ChunkHandle ThreadStreamingManager::LoadBlock(const ChunkKey& inKey, ChunkFile& inFile, uint64_t inOffset, uint64_t inSize,
                                              EChunkUnloadMode inUnloadMode, const ChunkCallback& inCallback)
{
    ChunkHandle handle;
    size_t numChunks = 0;
    {
        const RecursiveMutexLock lock(mMutex);
        const auto [position, isNew] = mChunkMap.try_emplace(inKey);
        RefCountedChunk& refCountedChunk = position->second;
        handle = ChunkHandle(*this, inKey, inUnloadMode, refCountedChunk.mChunk.get());
        if (refCountedChunk.IsLoaded())
        {
            PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager", refCountedChunk.mLoadRequest == nullptr,
                               "If the chunk is set, the load should have been reset.");
            if (inCallback)
                inCallback(handle.GetChunk());
            return handle;
        }
        if (!isNew && !refCountedChunk.mHasFailed)
            PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager", refCountedChunk.mLoadRequest != nullptr,
                               "If the chunk is still nullptr, a load request should still be present.");
        if (refCountedChunk.mLoadRequest != nullptr)
        {
            if (inCallback)
                refCountedChunk.mLoadRequest->Callbacks.push_back(inCallback);
            return handle;
        }

        // With nobody to serve it, a request would keep its waiters for ever.
        refCountedChunk.mHasFailed = !mIsRunning;
        if (!mIsRunning)
        {
            if (inCallback)
                inCallback(nullptr);
            return handle;
        }
        auto request = std::make_unique<ChunkLoadRequest>();
        *request = {&inFile, inOffset, inSize, inKey, inKey.mType, {}, {}};
        if (inCallback)
            request->Callbacks.push_back(inCallback);
        refCountedChunk.mLoadRequest = request.get();
        mLoadQueue.push_back(std::move(request));
        mPendingLoadCount.fetch_add(1);
        numChunks = mChunkMap.size();
        mThreadCondition.NotifyOne();
    }
    LogChunk(inKey, [&inKey] { return Utility::gFormat("Hinted with flags %s", gGetChunkTypeTag(inKey.mType)); });
    if (IStreamingLog* log = mLog.load())
    {
        log->PendingLoadsChanged(mPendingLoadCount.load());
        log->ChunkCountChanged(numChunks);
    }
    return handle;
}

ChunkHandle ThreadStreamingManager::BlockingLoad(const DetailLODThread& inDetailLODThread,
                                                 const ChunkDescription& inChunkDescription, EChunkType inChunkType,
                                                 EChunkUnloadMode inUnloadMode)
{
    LoadWaiter waiter;
    ChunkHandle handle = Load(inDetailLODThread, inChunkDescription, inChunkType, inUnloadMode,
                              [&waiter](Chunk* inChunk) { waiter.Set(inChunk); });
    if (handle.mChunk == nullptr)
    {
        HelpLoading(handle.mKey);
        handle.mChunk = waiter.Wait();
    }
    return handle;
}

// Runs the job that decodes the block, unless a worker does. When all workers wait for chunks, nobody else would.
void ThreadStreamingManager::HelpLoading(const ChunkKey& inKey)
{
    System::JobHandle job;
    {
        const RecursiveMutexLock lock(mMutex);
        for (;;)
        {
            const auto found = mChunkMap.find(inKey);
            if (found == mChunkMap.end() || found->second.mLoadRequest == nullptr)
                return;
            job = found->second.mLoadRequest->Job;
            if (job.IsValid())
                break;
            ++mNumHelpers;
            mReadBlockCondition.Wait(mMutex);
            --mNumHelpers;
        }
    }
    mScheduler.WaitForJobs(job);
}

// Chunks of a pass

EChunkRequestResult ThreadStreamingManager::GetOrCreateChunk(const DetailLODThread& inDetailLODThread,
                                                             const ChunkDescription& inChunkDescription, EChunkType inChunkType,
                                                             EChunkUnloadMode inUnloadMode, ChunkHandle& outHandle)
{
    const ChunkKey chunkKey = ChunkKey::sMake(inDetailLODThread, inChunkDescription.mIndex, inChunkType);
    const auto refCountedChunkPos = mChunkMap.find(chunkKey);
    if (refCountedChunkPos != mChunkMap.end())
    {
        CheckInProgress(inDetailLODThread, inChunkDescription, inChunkType, *refCountedChunkPos);
        if (refCountedChunkPos->second.IsLoaded())
        {
            outHandle = ChunkHandle(*this, chunkKey, inUnloadMode, refCountedChunkPos->second.mChunk.get());
            return EChunkRequestResult::Done;
        }
    }

    // When chunks can't be saved they stay in memory for good: whoever waits would never get to see the error.
    while (IsMemoryExhausted() && !mAbortAllocations && !HasSaveErrors())
    {
        ++mNumAllocators;
        mMemoryCondition.Wait(mMutex);
        --mNumAllocators;
    }
    if (mAbortAllocations)
        return EChunkRequestResult::Aborted;

    // Anything may have become of the entry during the wait.
    const auto entry = mChunkMap.try_emplace(chunkKey).first;
    RefCountedChunk& refCountedChunk = entry->second;
    if (refCountedChunk.IsLoaded())
        CheckInProgress(inDetailLODThread, inChunkDescription, inChunkType, *entry);
    else
    {
        refCountedChunk.mChunk = gCreateChunk(inChunkType);
        mInProgressChunks[chunkKey] = refCountedChunk.mChunk.get();
        TakeFromLoad(refCountedChunk);
    }
    outHandle = ChunkHandle(*this, chunkKey, inUnloadMode, refCountedChunk.mChunk.get());
    return EChunkRequestResult::Done;
}

// A chunk that is there for the asking has a writer, or is the one in which the thread stands.
void ThreadStreamingManager::CheckInProgress(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                             EChunkType inChunkType, const ChunkMap::value_type& inEntry) const
{
    const auto& [chunkKey, refCountedChunk] = inEntry;
    PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager", refCountedChunk.IsLoaded(),
                       "Attempt to GetOrCreateChunk for a chunk which has already been unloaded");
    PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager", mInProgressChunks.find(chunkKey) != mInProgressChunks.end(),
                       "Attempt to fetch an existing chunk that is not in progress");
    PROFILER_ASSERT_AT(
        "ThreadsModel/ThreadStreamingManager",
        refCountedChunk.mRefCount != 0 ||
            (inChunkType == EChunkType::Overview && inChunkDescription.mIndex == inDetailLODThread.GetCurrentOverviewChunk()) ||
            inChunkDescription.mIndex == inDetailLODThread.GetCurrentDetailChunk(),
        "Attempt to get chunk that is ready to be saved out");
}

// For a chunk that is to be filled: a load that should never have been tried ends here, and what it brings finds no entry.
void ThreadStreamingManager::TakeFromLoad(RefCountedChunk& ioEntry)
{
    ioEntry.mHasFailed = false;
    if (ioEntry.mLoadRequest == nullptr)
        return;
    const std::vector<ChunkCallback> callbacks = std::exchange(ioEntry.mLoadRequest->Callbacks, {});
    ioEntry.mLoadRequest = nullptr;
    for (const ChunkCallback& callback : callbacks)
        callback(nullptr);
    WakeHelpers();
}

bool ThreadStreamingManager::IsMemoryExhausted() const
{
    return mLoadedBytes.load() + mInProgressBytes.load() >= mMemoryBudget.load();
}

void ThreadStreamingManager::MarkChunksFinished(const DetailLODThread& inDetailLODThread, int32_t inFirst, int32_t inEnd,
                                                EChunkType inChunkType)
{
    const RecursiveMutexLock lock(mMutex);
    // A thread that slept for long leaves more indices behind than there are chunks.
    if (static_cast<int64_t>(inEnd) - inFirst > static_cast<int64_t>(mInProgressChunks.size()))
    {
        for (auto next = mInProgressChunks.begin(); next != mInProgressChunks.end();)
        {
            const ChunkKey& key = next->first;
            const bool isFinished = key == ChunkKey::sMake(inDetailLODThread, key.mChunkIndex, inChunkType) &&
                                    key.mChunkIndex >= inFirst && key.mChunkIndex < inEnd;
            next = isFinished ? HandOver(next) : std::next(next);
        }
    }
    else
    {
        for (int32_t index = inFirst; index < inEnd; ++index)
        {
            const auto found = mInProgressChunks.find(ChunkKey::sMake(inDetailLODThread, index, inChunkType));
            if (found != mInProgressChunks.end())
                HandOver(found);
        }
    }
    mIsSavePending = true;
    mThreadCondition.NotifyOne();
}

ThreadStreamingManager::ChunkPointerMap::iterator ThreadStreamingManager::HandOver(ChunkPointerMap::iterator inPosition)
{
    const int64_t bytes = gGetBytes(*inPosition->second);
    mChunksToSave.insert(*inPosition);
    mLoadedBytes.fetch_add(bytes);
    mInProgressBytes.fetch_sub(bytes);
    return mInProgressChunks.erase(inPosition);
}

void ThreadStreamingManager::AbortAllocations()
{
    const RecursiveMutexLock lock(mMutex);
    mAbortAllocations = true;
    mMemoryCondition.NotifyAll();
}

// What goes

void ThreadStreamingManager::AddEligible(const ChunkKey& inKey)
{
    const MutexLock lock(mEligibleMutex);
    mEligibleForUnload.push_back(inKey);
}

// Whether any chunk was unloaded. Everything goes that nobody holds and whose time has come: the budget doesn't decide, it only
// makes allocators wait.
bool ThreadStreamingManager::TryUnloadChunks()
{
    struct UnloadedChunk
    {
        ChunkKey Key;
        size_t Position; // in the list
        std::unique_ptr<Chunk> OwnedChunk;
    };

    std::vector<ChunkKey> eligible;
    {
        const MutexLock lock(mEligibleMutex);
        eligible = mEligibleForUnload;
    }
    const double now = mOptions.GetSeconds();
    std::vector<UnloadedChunk> unloaded;
    size_t numChunks = 0;
    {
        const RecursiveMutexLock lock(mMutex);
        for (size_t i = 0; i < eligible.size(); ++i)
        {
            const auto refCountedChunkPos = mChunkMap.find(eligible[i]);
            const bool isThere = refCountedChunkPos != mChunkMap.end() && refCountedChunkPos->second.mChunk != nullptr;
            PROFILER_ASSERT_AT("ThreadsModel/ThreadStreamingManager",
                               refCountedChunkPos != mChunkMap.end() && refCountedChunkPos->second.mChunk != nullptr,
                               "Encountered invalid chunk in the EligibleForUnload map");
            if (!isThere || refCountedChunkPos->second.mRefCount != 0 || now < refCountedChunkPos->second.mUnloadTime)
                continue;
            unloaded.push_back({eligible[i], i, std::move(refCountedChunkPos->second.mChunk)});
            mChunkMap.erase(refCountedChunkPos);
        }
        numChunks = mChunkMap.size();
    }
    if (IStreamingLog* log = mLog.load())
        log->ChunkCountChanged(numChunks);

    for (UnloadedChunk& chunk : unloaded)
    {
        const uint64_t size = chunk.OwnedChunk->GetSize();
        LogChunk(chunk.Key,
                 [&]
                 {
                     return Utility::gFormat("Unloading chunk of type %s with size %s", gGetChunkTypeTag(chunk.Key.mType),
                                             Utility::gFormatSize(size).c_str());
                 });
        chunk.OwnedChunk.reset();
        mLoadedBytes.fetch_sub(static_cast<int64_t>(size));
        LogMemory();
    }

    // What was appended meanwhile stands behind all positions.
    const MutexLock lock(mEligibleMutex);
    size_t kept = 0;
    auto next = unloaded.begin();
    for (size_t i = 0; i < mEligibleForUnload.size(); ++i)
    {
        if (next != unloaded.end() && next->Position == i)
            ++next;
        else
            mEligibleForUnload[kept++] = mEligibleForUnload[i];
    }
    mEligibleForUnload.resize(kept);
    return !unloaded.empty();
}

// Chunks grow without a word to anybody: counting them anew is what keeps the figure true.
void ThreadStreamingManager::UpdateInProgressBytes()
{
    const RecursiveMutexLock lock(mMutex);
    int64_t sum = 0;
    for (const auto& [key, chunk] : mInProgressChunks)
        sum += gGetBytes(*chunk);
    mInProgressBytes.store(sum);
}

} // namespace Profiler
