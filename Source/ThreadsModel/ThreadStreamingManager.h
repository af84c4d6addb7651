// Owns every chunk of a timeline that is in memory: those that a pass fills, and those that were read back for a query. It counts
// references through handles, bounds the memory of all together by one budget, drops what nobody refers to, and has one thread
// that does all work on the files. Docs/Streaming.md draws the states of a chunk and the way through the locks.
//
// Threads: any, but for opening and closing files, which is for one thread at a time. Ownership: the model. The scheduler, the
// levels' threads and the installed log outlive it.
//
// Invariants: every chunk that is being loaded, is loaded or is being filled has exactly one entry in mChunkMap. A chunk of
// mInProgressChunks has a writer; one of mChunksToSave, and any later one, has none and never changes again. No two locks are
// held together: each is given back before the next is taken, and no lock is held while a chunk is read, written or destroyed.
// Only a callback of Load whose answer is known at once runs under the main lock, and it may take a lock of its own.
#pragma once

#include "System/JobScheduler.h"
#include "System/Mutex.h"
#include "ThreadsModel/ChunkHandle.h"
#include "ThreadsModel/ChunkStreaming.h"
#include "ThreadsModel/Chunks/ReadyThreadChunk.h"
#include "ThreadsModel/DetailLODThread.h"
#include "ThreadsModel/IStreamingLog.h"
#include "Utility/Clock.h"
#include "Utility/ErrorState.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Profiler
{

// What becomes of the wish for a chunk to fill.
enum class EChunkRequestResult : uint32_t
{
    Done = 0,
    Aborted = 1, // AbortAllocations was called: the caller is to stop its work
};

class ThreadStreamingManager
{
public:
    // Bytes of chunks that may be in memory before allocating waits.
    static constexpr int64_t sMemoryBudget = 1'048'576'000;

    // Seconds that a chunk stays behind a delayed release.
    static constexpr double sUnloadDelay = 5.0;

    static constexpr size_t sNumSlots = 8;

    // Tests replace what they want to control.
    struct Options
    {
        std::unique_ptr<ChunkFile> ThreadsFile = std::make_unique<ChunkFile>();
        std::unique_ptr<ChunkFile> ReadyThreadsFile = std::make_unique<ChunkFile>();
        int64_t MemoryBudget = sMemoryBudget;
        double (*GetSeconds)() = Utility::gGetMonotonicSeconds;
    };

    // Full paths of Threads.dat and ReadyThreads.dat. Opens nothing and starts nothing.
    ThreadStreamingManager(std::string inThreadsPath, std::string inReadyThreadsPath, System::JobScheduler& inScheduler);
    ThreadStreamingManager(std::string inThreadsPath, std::string inReadyThreadsPath, System::JobScheduler& inScheduler,
                           Options inOptions);
    // Closes. REQUIRES: no handle is left.
    ~ThreadStreamingManager();

    ThreadStreamingManager(const ThreadStreamingManager&) = delete;
    ThreadStreamingManager& operator=(const ThreadStreamingManager&) = delete;

    // Files

    // Opens Threads.dat, for writing behind what it holds or for reading alone, and starts the streaming thread, which serves
    // both. False, with no thread, if the file can't be opened.
    [[nodiscard]] bool OpenChunkFile(bool inForWriting, Utility::ErrorState& ioErrors);

    // Opens ReadyThreads.dat for reading. REQUIRES: no ready-thread chunk is being loaded.
    [[nodiscard]] bool OpenReadyThreadFile(Utility::ErrorState& ioErrors);

    // Stops the thread and closes Threads.dat. Loads that the thread hasn't come to fail.
    void CloseChunkFile();

    // The same, and ends the loads that are under way. Threads have to be registered anew afterwards.
    void Close();

    // Saves all chunks that were handed over and all that are being filled, which must have no writer any more, and waits until
    // that is done. False, with all that ever failed in one text, if there are save errors, and if no file is open.
    [[nodiscard]] bool FlushChunks(Utility::ErrorState& ioErrors);

    // Whether a chunk couldn't be saved; takes no lock.
    [[nodiscard]] bool HasSaveErrors() const { return mHasSaveErrors.load(std::memory_order_acquire); }
    [[nodiscard]] std::vector<std::string> GetSaveErrors() const;

    // What couldn't be loaded and why, each text once.
    [[nodiscard]] std::vector<std::string> GetLoadErrors() const;

    // Chunks from disk. A handle without a chunk is what a failed load gives, and callbacks then hear null; a load that is tried
    // again reads again. The same holds for what isn't served because the thread is stopped.

    // A handle that keeps the chunk in memory; its chunk is set only if it is there already. Reads nothing itself.
    template <class T>
    [[nodiscard]] TypedChunkHandle<T> Load(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                           EChunkUnloadMode inUnloadMode)
    {
        return TypedChunkHandle<T>(Load(inDetailLODThread, inChunkDescription, T::sGetChunkType(), inUnloadMode, {}));
    }
    // inCallback, unless it is empty, is told of the chunk: before this returns if the answer is known, else later on any thread.
    [[nodiscard]] ChunkHandle Load(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                   EChunkType inChunkType, EChunkUnloadMode inUnloadMode, const ChunkCallback& inCallback);

    // Waits until the chunk is in memory. May be called from inside a job.
    [[nodiscard]] ChunkHandle BlockingLoad(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                           EChunkType inChunkType, EChunkUnloadMode inUnloadMode);

    // Load for a block of ReadyThreads.dat.
    [[nodiscard]] TypedChunkHandle<ReadyThreadChunk> LoadReadyThreadChunk(const ReadyThreadChunkHeader& inHeader,
                                                                          uint32_t inChunkID, EChunkUnloadMode inUnloadMode,
                                                                          const ChunkCallback& inCallback);

    // Chunks of a pass

    // A chunk to fill: the one that is there, or a new one, for which it waits while the budget is exhausted. A chunk that is on
    // disk, or was handed over, mustn't be asked for. The budget grows when waiting is in vain: when chunks that are being
    // filled, or held, take all of it, and nothing else happens.
    template <class T>
    [[nodiscard]] EChunkRequestResult GetOrCreateChunk(const DetailLODThread& inDetailLODThread,
                                                       const ChunkDescription& inChunkDescription, EChunkUnloadMode inUnloadMode,
                                                       TypedChunkHandle<T>& outHandle)
    {
        const System::RecursiveUniqueLock lock(mMutex);
        return GetOrCreateChunk(inDetailLODThread, inChunkDescription, T::sGetChunkType(), inUnloadMode, outHandle);
    }
    // The same for one handle per description. Those behind one that is aborted are left as they are.
    template <class T>
    [[nodiscard]] EChunkRequestResult
    GetOrCreateChunk(const DetailLODThread& inDetailLODThread, std::span<const ChunkDescription> inChunkDescriptions,
                     EChunkUnloadMode inUnloadMode, std::vector<TypedChunkHandle<T>>& outHandles)
    {
        outHandles.resize(inChunkDescriptions.size());
        const System::RecursiveUniqueLock lock(mMutex);
        for (size_t i = 0; i < inChunkDescriptions.size(); ++i)
        {
            if (GetOrCreateChunk(inDetailLODThread, inChunkDescriptions[i], T::sGetChunkType(), inUnloadMode, outHandles[i]) ==
                EChunkRequestResult::Aborted)
                return EChunkRequestResult::Aborted;
        }
        return EChunkRequestResult::Done;
    }

    // Hands the chunks that are being filled, of the indices from inFirst up to, not including, inEnd, over to be saved.
    void MarkChunksFinished(const DetailLODThread& inDetailLODThread, int32_t inFirst, int32_t inEnd, EChunkType inChunkType);

    // Ends all waiting for memory, and all making of chunks, for good.
    void AbortAllocations();

    // Called by each thread of a level that is made or was loaded.
    void RegisterThread(DetailLODThread& inDetailLODThread);

    // For the curious

    // Null for none. REQUIRES: no file was opened yet, or the manager was closed since.
    void SetStreamingLog(IStreamingLog* inLog);

    // Bytes of the chunks that aren't being filled, and of those that are, as of the last count.
    [[nodiscard]] int64_t GetLoadedBytes() const { return mLoadedBytes.load(); }
    [[nodiscard]] int64_t GetInProgressBytes() const { return mInProgressBytes.load(); }
    // Requests that the streaming thread hasn't come to.
    [[nodiscard]] uint32_t GetPendingLoadCount() const { return mPendingLoadCount.load(); }
    // Entries of the cache.
    [[nodiscard]] size_t GetChunkCount() const;

private:
    friend class ChunkHandle;

    // A block on its way through a job. Its end without a chunk, as when the job was cancelled, fails the load.
    class LoadInFlight;

    using ChunkMap = std::unordered_map<ChunkKey, RefCountedChunk, ChunkKeyHash>;
    using ChunkPointerMap = std::unordered_map<ChunkKey, Chunk*, ChunkKeyHash>;

    // The cache
    void AddRef(const ChunkKey& inKey);
    void Release(const ChunkKey& inKey, EChunkUnloadMode inUnloadMode);
    EChunkRequestResult GetOrCreateChunk(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                                         EChunkType inChunkType, EChunkUnloadMode inUnloadMode, ChunkHandle& outHandle)
        REQUIRES(mMutex);
    void CheckInProgress(const DetailLODThread& inDetailLODThread, const ChunkDescription& inChunkDescription,
                         EChunkType inChunkType, const ChunkMap::value_type& inEntry) const REQUIRES(mMutex);
    void TakeFromLoad(RefCountedChunk& ioEntry) REQUIRES(mMutex);
    [[nodiscard]] bool IsMemoryExhausted() const;
    ChunkHandle LoadBlock(const ChunkKey& inKey, ChunkFile& inFile, uint64_t inOffset, uint64_t inSize,
                          EChunkUnloadMode inUnloadMode, const ChunkCallback& inCallback);
    void HelpLoading(const ChunkKey& inKey);
    ChunkPointerMap::iterator HandOver(ChunkPointerMap::iterator inPosition) REQUIRES(mMutex);
    bool TryUnloadChunks();
    void UpdateInProgressBytes();
    void AddEligible(const ChunkKey& inKey);

    // The streaming thread
    [[nodiscard]] bool StartThread();
    void StopThread();
    void RunStreamingThread();
    [[nodiscard]] bool WaitForWork(std::vector<std::unique_ptr<ChunkLoadRequest>>& outRequests, bool& outIsTimeout);
    [[nodiscard]] bool TakeSavePending();
    void ServeFlush();
    void ScheduleUnload(System::JobHandle& ioUnloadJob, bool inIsIdle);
    void RunUnload(bool inIsIdle);
    void RaiseBudget();

    // Loading
    void LoadChunk(std::unique_ptr<ChunkLoadRequest> inRequest);
    [[nodiscard]] size_t TakeLoadSlot();
    void ReturnLoadSlot(size_t inSlot);
    [[nodiscard]] std::unique_ptr<Chunk> DecodeChunk(ChunkLoadSlot& ioSlot, EChunkType inType) const;
    void FinishLoad(ChunkLoadRequest& ioRequest, std::unique_ptr<Chunk> inChunk);
    void FailLoad(ChunkLoadRequest& ioRequest);
    [[nodiscard]] RefCountedChunk* FindLoading(const ChunkLoadRequest& inRequest) REQUIRES(mMutex);
    void WakeHelpers() REQUIRES(mMutex);
    void AddLoadError(const ChunkLoadRequest& inRequest, const char* inReason);
    void CountServedRequest();

    // Saving
    void SaveStage(bool inFullFlush);
    void SaveChunks(std::span<const ChunkToSave> inChunks);
    [[nodiscard]] size_t DealBatch(std::span<const ChunkToSave> inChunks);
    [[nodiscard]] std::vector<System::JobHandle> CompressBatch();
    static void CompressGroup(ChunkSaveSlot& ioSlot);
    [[nodiscard]] static bool CompressChunk(ChunkSaveSlot& ioSlot, const ChunkToSave& inChunk);
    [[nodiscard]] bool WriteBatch(std::span<const System::JobHandle> inJobs);
    void FinishSave(const ChunkToSave& inChunk, const ChunkLayout& inLayout, uint64_t inBase);
    void AddSaveError(int inError);

    // The debug log. Texts are made only if there is one.
    template <class MakeText>
    void LogChunk(const ChunkKey& inKey, const MakeText& inMakeText) const
    {
        if (IStreamingLog* log = mLog.load())
            log->Log(FormatLogLine(inKey, inMakeText()));
    }
    [[nodiscard]] std::string FormatLogLine(const ChunkKey& inKey, const std::string& inEvent) const;
    void LogMemory() const;

    // Constant between construction and destruction
    const std::string mThreadsPath;
    const std::string mReadyThreadsPath;
    System::JobScheduler& mScheduler;
    const Options mOptions;

    // Have their own synchronization
    std::atomic<int64_t> mMemoryBudget;
    std::atomic<int64_t> mLoadedBytes = 0;
    std::atomic<int64_t> mInProgressBytes = 0;
    std::atomic<uint32_t> mPendingLoadCount = 0;
    std::atomic<bool> mHasSaveErrors = false;
    std::atomic<IStreamingLog*> mLog = nullptr;
    std::atomic<double> mLogStartMs = 0.0;

    // The main lock
    mutable System::RecursiveMutex mMutex;
    System::RecursiveConditionVariable mMemoryCondition;    // memory became free, or isn't to be waited for
    System::RecursiveConditionVariable mThreadCondition;    // there is work for the streaming thread
    System::RecursiveConditionVariable mReadBlockCondition; // a request got its job, or failed
    uint32_t mNumHelpers GUARDED_BY(mMutex) = 0;            // threads that wait for the last of these
    uint32_t mNumAllocators GUARDED_BY(mMutex) = 0;         // threads that wait for the first of these
    ChunkMap mChunkMap GUARDED_BY(mMutex);
    ChunkPointerMap mInProgressChunks GUARDED_BY(mMutex);
    ChunkPointerMap mChunksToSave GUARDED_BY(mMutex);
    std::vector<std::unique_ptr<ChunkLoadRequest>> mLoadQueue GUARDED_BY(mMutex);
    bool mAbortAllocations GUARDED_BY(mMutex) = false;
    bool mIsRunning GUARDED_BY(mMutex) = false;
    bool mIsStopRequested GUARDED_BY(mMutex) = false;
    bool mIsSavePending GUARDED_BY(mMutex) = false;
    uint64_t mRequestedFlushes GUARDED_BY(mMutex) = 0;
    uint64_t mTakenFlushes GUARDED_BY(mMutex) = 0; // those that the streaming thread has come to

    // The list lock
    System::Mutex mEligibleMutex;
    std::vector<ChunkKey> mEligibleForUnload GUARDED_BY(mEligibleMutex); // chunks that match what is on disk, as they came

    // The thread array lock
    System::Mutex mRegisteredMutex;
    std::vector<DetailLODThread*> mRegisteredThreads GUARDED_BY(mRegisteredMutex);

    // The flush lock
    System::Mutex mFlushMutex;
    System::ConditionVariable mFlushCondition;
    uint64_t mServedFlushes GUARDED_BY(mFlushMutex) = 0;
    uint64_t mDroppedFlushes GUARDED_BY(mFlushMutex) = 0; // those up to this number that weren't served never will be

    // The errors lock
    mutable System::Mutex mErrorsMutex;
    std::vector<std::string> mSaveErrors GUARDED_BY(mErrorsMutex);
    std::vector<std::string> mLoadErrors GUARDED_BY(mErrorsMutex);
    std::unordered_set<std::string> mKnownErrors GUARDED_BY(mErrorsMutex); // texts of both lists

    // The slot lock
    System::Mutex mSlotMutex;
    std::vector<size_t> mFreeLoadSlots GUARDED_BY(mSlotMutex); // handed out from the back

    // The streaming thread's, and of the jobs to which it hands a slot
    std::array<ChunkLoadSlot, sNumSlots> mLoadSlots;
    std::array<ChunkSaveSlot, sNumSlots> mSaveSlots;
    size_t mNextStalledSlot = 0;

    // The unload job's, of which one runs at a time
    double mLastRecount = 0.0; // monotonic seconds
    bool mOwesWakeUp = false;  // something was unloaded, and the budget was still exhausted

    std::thread mThread;
};

} // namespace Profiler
