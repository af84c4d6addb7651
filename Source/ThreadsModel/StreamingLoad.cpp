// Reading chunks back: the streaming thread reads their blocks, jobs decode them.
#include "ThreadsModel/ThreadStreamingManager.h"
#include "Utility/Format.h"
#include "Utility/Log.h"
#include "Utility/TextFormat.h"

#include <new>
#include <utility>

namespace Profiler
{
namespace
{

using System::MutexLock;
using System::RecursiveMutexLock;

} // namespace

class ThreadStreamingManager::LoadInFlight
{
public:
    LoadInFlight(ThreadStreamingManager& ioManager, std::unique_ptr<ChunkLoadRequest> inRequest, size_t inSlot)
        : mManager(ioManager),
          mRequest(std::move(inRequest)),
          mSlot(inSlot)
    {
    }

    ~LoadInFlight()
    {
        if (!mIsDone)
        {
            mManager.FailLoad(*mRequest);
            End();
        }
    }

    LoadInFlight(const LoadInFlight&) = delete;
    LoadInFlight& operator=(const LoadInFlight&) = delete;

    [[nodiscard]] ChunkLoadRequest& GetRequest() { return *mRequest; }

    // Decodes the block that the slot holds.
    void Run()
    {
        std::unique_ptr<Chunk> chunk;
        const char* reason = "the data is damaged";
        try
        {
            chunk = mManager.DecodeChunk(mManager.mLoadSlots[mSlot], mRequest->Type);
        }
        catch (const std::bad_alloc&)
        {
            reason = "memory doesn't suffice";
        }
        if (chunk != nullptr)
            mManager.FinishLoad(*mRequest, std::move(chunk));
        else
        {
            mManager.AddLoadError(*mRequest, reason);
            mManager.FailLoad(*mRequest);
        }
        End();
    }

private:
    // What callbacks hold goes first: with the slot, the manager loses sight of the job, and may be gone before it.
    void End()
    {
        mRequest->Callbacks.clear();
        mIsDone = true;
        mManager.ReturnLoadSlot(mSlot);
    }

    ThreadStreamingManager& mManager;
    std::unique_ptr<ChunkLoadRequest> mRequest;
    size_t mSlot;
    bool mIsDone = false;
};

// A free slot. When all are busy it takes part in their work, so that loading goes on even if no worker is free.
size_t ThreadStreamingManager::TakeLoadSlot()
{
    for (;;)
    {
        {
            const MutexLock lock(mSlotMutex);
            if (!mFreeLoadSlots.empty())
            {
                const size_t slot = mFreeLoadSlots.back();
                mFreeLoadSlots.pop_back();
                return slot;
            }
        }
        mScheduler.WaitForJobs(mLoadSlots[mNextStalledSlot].Job);
        mNextStalledSlot = (mNextStalledSlot + 1) % sNumSlots;
    }
}

void ThreadStreamingManager::ReturnLoadSlot(size_t inSlot)
{
    const MutexLock lock(mSlotMutex);
    mFreeLoadSlots.push_back(inSlot);
}

void ThreadStreamingManager::LoadChunk(std::unique_ptr<ChunkLoadRequest> inRequest)
{
    const size_t slotIndex = TakeLoadSlot();
    ChunkLoadSlot& slot = mLoadSlots[slotIndex];
    const auto load = std::make_shared<LoadInFlight>(*this, std::move(inRequest), slotIndex);
    const ChunkLoadRequest& request = load->GetRequest();
    if (!request.File->Read(request.Offset, request.Size, slot.Compressed))
    {
        AddLoadError(request, "the data can't be read");
        return; // and the load fails with its end
    }

    System::JobDescription job;
    job.Work = [load](System::Job&, const bool&) { load->Run(); };
    slot.Job = mScheduler.ScheduleJob(std::move(job));
    const RecursiveMutexLock lock(mMutex);
    if (FindLoading(load->GetRequest()) != nullptr)
        load->GetRequest().Job = slot.Job;
    WakeHelpers();
}

std::unique_ptr<Chunk> ThreadStreamingManager::DecodeChunk(ChunkLoadSlot& ioSlot, EChunkType inType) const
{
    const Utility::ByteBuffer& frame = ioSlot.Compressed;
    if (!ioSlot.Decompressor.Decompress(frame.GetData(), frame.GetSize(), ioSlot.Decompressed))
        return nullptr;
    std::unique_ptr<Chunk> chunk = gCreateChunk(inType);
    Utility::ByteCursor cursor(ioSlot.Decompressed.GetData(), ioSlot.Decompressed.GetSize());
    return chunk->Deserialize(cursor) ? std::move(chunk) : nullptr;
}

void ThreadStreamingManager::FinishLoad(ChunkLoadRequest& ioRequest, std::unique_ptr<Chunk> inChunk)
{
    Chunk* const chunk = inChunk.get();
    const uint64_t size = chunk->GetSize();
    {
        const RecursiveMutexLock lock(mMutex);
        RefCountedChunk* entry = FindLoading(ioRequest);
        if (entry == nullptr)
            return; // whoever fills the chunk took the entry over, and has told the callbacks
        mLoadedBytes.fetch_add(static_cast<int64_t>(size));
        entry->mChunk = std::move(inChunk);
        entry->mLoadRequest = nullptr;
    }
    LogChunk(ioRequest.Key,
             [&]
             {
                 return Utility::gFormat("Loaded chunk data of type %s and size %s", gGetChunkTypeTag(ioRequest.Type),
                                         Utility::gFormatSize(size).c_str());
             });
    LogMemory();
    // Nothing is added from here on: whoever asks now finds the chunk. It stays until it is on the list of what may go.
    for (const ChunkCallback& callback : ioRequest.Callbacks)
        callback(chunk);
    AddEligible(ioRequest.Key);
}

// The entry stays as long as somebody holds a handle to it.
void ThreadStreamingManager::FailLoad(ChunkLoadRequest& ioRequest)
{
    {
        const RecursiveMutexLock lock(mMutex);
        if (RefCountedChunk* entry = FindLoading(ioRequest))
        {
            entry->mLoadRequest = nullptr;
            entry->mHasFailed = true;
            if (entry->mRefCount == 0)
                mChunkMap.erase(ioRequest.Key);
        }
        WakeHelpers();
    }
    for (const ChunkCallback& callback : ioRequest.Callbacks)
        callback(nullptr);
}

// Most blocks are read ahead of anybody who would wait for them.
void ThreadStreamingManager::WakeHelpers()
{
    if (mNumHelpers != 0)
        mReadBlockCondition.NotifyAll();
}

// The entry that waits for the request; null if it was taken over by whoever fills its chunk.
RefCountedChunk* ThreadStreamingManager::FindLoading(const ChunkLoadRequest& inRequest)
{
    const auto found = mChunkMap.find(inRequest.Key);
    return found != mChunkMap.end() && found->second.mLoadRequest == &inRequest ? &found->second : nullptr;
}

void ThreadStreamingManager::AddLoadError(const ChunkLoadRequest& inRequest, const char* inReason)
{
    const std::string& path = inRequest.Type == EChunkType::ReadyThread ? mReadyThreadsPath : mThreadsPath;
    const std::string text =
        Utility::gFormat("Unable to load %s from file %s at offset %llu: %s", gGetChunkTypeTag(inRequest.Type), path.c_str(),
                         static_cast<unsigned long long>(inRequest.Offset), inReason);
    {
        const MutexLock lock(mErrorsMutex);
        if (!mKnownErrors.insert(text).second)
            return;
        mLoadErrors.push_back(text);
    }
    Utility::gLog("%s", text.c_str());
}

std::vector<std::string> ThreadStreamingManager::GetLoadErrors() const
{
    const MutexLock lock(mErrorsMutex);
    return mLoadErrors;
}

} // namespace Profiler
