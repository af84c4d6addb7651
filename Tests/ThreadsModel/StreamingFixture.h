// A streaming manager over files in a folder of the test, with levels and threads to keep chunks for.
//
// Chunks are named by a letter for the thread and the index. Time stands still unless a test moves it.
#pragma once

#include "System/Mutex.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Utility/LogCapture.h"
#include "ThreadsModel/Chunks/BarChunk.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Chunks/OverviewChunk.h"
#include "ThreadsModel/DetailLOD.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// A file of chunks on a disk that does as the test says.
class FaultyChunkFile : public Profiler::ChunkFile
{
public:
    [[nodiscard]] bool Read(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes) override
    {
        ++NumReads;
        if (OnRead && !OnRead())
            return Fail(EIO);
        return ChunkFile::Read(inOffset, inSize, outBytes);
    }
    [[nodiscard]] bool Append(const Utility::ByteBuffer& inBytes, uint64_t& outOffset) override
    {
        ++NumAppends;
        if (OnAppend && !OnAppend())
            return Fail(ENOSPC);
        return ChunkFile::Append(inBytes, outOffset);
    }

    // Run first; false makes the operation fail. Set while the streaming thread has nothing to do with the file.
    std::function<bool()> OnRead;
    std::function<bool()> OnAppend;
    std::atomic<int> NumReads = 0;
    std::atomic<int> NumAppends = 0;
};

// A door that threads wait at until it is opened, and that tells when somebody stands there.
class Gate
{
public:
    void WaitUntilOpen()
    {
        const System::MutexLock lock(mMutex);
        ++mNumWaiting;
        mCondition.NotifyAll();
        while (!mIsOpen)
            mCondition.Wait(mMutex);
    }
    void WaitForVisitor()
    {
        const System::MutexLock lock(mMutex);
        while (mNumWaiting == 0)
            mCondition.Wait(mMutex);
    }
    void Open()
    {
        const System::MutexLock lock(mMutex);
        mIsOpen = true;
        mCondition.NotifyAll();
    }

private:
    System::Mutex mMutex;
    System::ConditionVariable mCondition;
    int mNumWaiting GUARDED_BY(mMutex) = 0;
    bool mIsOpen GUARDED_BY(mMutex) = false;
};

class StreamingTest : public TemporaryDirectoryTest
{
protected:
    using Result = Profiler::EChunkRequestResult;
    using Unload = Profiler::EChunkUnloadMode;
    template <class T>
    using Handle = Profiler::TypedChunkHandle<T>;
    using Bars = Handle<Profiler::BarChunk>;

    explicit StreamingTest(uint32_t inNumWorkers = 2) : mScheduler(inNumWorkers)
    {
        sNow = 100.0;
        MakeManager(Profiler::ThreadStreamingManager::sMemoryBudget);
    }
    ~StreamingTest() override { mManager.reset(); }

    void MakeManager(int64_t inMemoryBudget)
    {
        mManager.reset();
        Profiler::ThreadStreamingManager::Options options;
        auto file = std::make_unique<FaultyChunkFile>();
        mFile = file.get();
        options.ThreadsFile = std::move(file);
        options.MemoryBudget = inMemoryBudget;
        options.GetSeconds = [] { return sNow.load(); };
        mManager = std::make_unique<Profiler::ThreadStreamingManager>(At("Threads.dat"), At("ReadyThreads.dat"), mScheduler,
                                                                      std::move(options));
        mLevels = Profiler::gMakeDetailLODs(mSession.GetSession());
    }

    void Open(bool inForWriting = true)
    {
        EXPECT_TRUE(mManager->OpenChunkFile(inForWriting, mErrors)) << Utility::GetErrorText(mErrors);
    }

    Profiler::DetailLODThread& GetThread(Profiler::ThreadID inThread = 1, int32_t inLevel = 0)
    {
        return mLevels[static_cast<size_t>(inLevel)]->GetOrCreateThread(inThread, *mManager);
    }

    // What the table knows of a chunk, which it gets if it hasn't got it.
    [[nodiscard]] Profiler::ChunkDescription Describe(int32_t inIndex, Profiler::ThreadID inThread = 1)
    {
        return GetThread(inThread).GetChunkTable().GetOrCreateChunk(inIndex);
    }

    template <class T = Profiler::BarChunk>
    [[nodiscard]] Handle<T> Get(int32_t inIndex, Profiler::ThreadID inThread = 1, Unload inMode = Unload::Immediate)
    {
        Handle<T> handle;
        EXPECT_EQ(mManager->GetOrCreateChunk(GetThread(inThread), Describe(inIndex, inThread), inMode, handle), Result::Done);
        return handle;
    }

    // Fills a chunk with so many bars, of 32 bytes each, that tell what it is, and lets go of it.
    void Fill(int32_t inIndex, Profiler::ThreadID inThread = 1, int inNumBars = 4)
    {
        const Bars bars = Get(inIndex, inThread);
        for (int i = 0; i < inNumBars; ++i)
        {
            uint64_t index = 0;
            bars->AddBar(0, Profiler::Bar::sNoParent, static_cast<uint64_t>(inIndex), {}, 0, index, i, i + 1);
        }
        bars->BuildBoundaries();
    }

    void Finish(int32_t inFirst, int32_t inEnd, Profiler::ThreadID inThread = 1)
    {
        mManager->MarkChunksFinished(GetThread(inThread), inFirst, inEnd, Profiler::EChunkType::Bar);
    }

    // Fills chunks of thread 1, and saves and unloads them.
    void Store(int32_t inNumChunks)
    {
        for (int32_t index = 0; index < inNumChunks; ++index)
            Fill(index);
        Finish(0, inNumChunks);
        RunCycles();
    }

    // Everything that can be saved is saved, and a whole unload pass has begun and ended since: it is scheduled at the end of the
    // first cycle and waited for by the second, which is over before the third is.
    void RunCycles()
    {
        for (int cycle = 0; cycle < 3; ++cycle)
            static_cast<void>(mManager->FlushChunks(mFlushErrors));
    }

    // The same for what was handed over alone: each load is served by a later cycle than the one before, and this one fails at
    // once.
    void RunCyclesWithoutFlush()
    {
        for (int cycle = 0; cycle < 3; ++cycle)
        {
            Gate isOver;
            const auto handle =
                mManager->LoadReadyThreadChunk({}, 0, Unload::Immediate, [&isOver](Profiler::Chunk*) { isOver.Open(); });
            isOver.WaitUntilOpen();
        }
    }

    // Runs cycles until everything has gone. A load may still be on its way when those who wanted it have heard of it.
    [[nodiscard]] bool IsAllUnloaded()
    {
        const auto isUnloaded = [this] { return mManager->GetChunkCount() == 0 && mManager->GetLoadedBytes() == 0; };
        for (int i = 0; i < 10000 && !isUnloaded(); ++i)
            RunCycles();
        return isUnloaded();
    }

    // Has the chunks that are being filled counted, which is done so often and no oftener.
    void CountChunks()
    {
        sNow = sNow + 0.5;
        RunCyclesWithoutFlush();
    }

    [[nodiscard]] Bars BlockingLoad(int32_t inIndex, Unload inMode = Unload::Immediate)
    {
        return Bars(mManager->BlockingLoad(GetThread(), Describe(inIndex), Profiler::EChunkType::Bar, inMode));
    }

    // Whether the chunk is what Fill made it.
    static bool IsWhole(const Bars& inBars, int32_t inIndex, size_t inNumBars = 4)
    {
        return inBars && inBars->GetRows().size() == 1 && inBars->GetRows()[0].size() == inNumBars &&
               inBars->GetBar({0, 0})->Address == static_cast<uint64_t>(inIndex);
    }

    inline static std::atomic<double> sNow = 0.0; // seconds

    SessionFixture mSession;
    System::JobScheduler mScheduler;
    Profiler::DetailLODList mLevels;
    FaultyChunkFile* mFile = nullptr; // the manager's
    std::unique_ptr<Profiler::ThreadStreamingManager> mManager;
    Utility::ErrorState mErrors;
    Utility::ErrorState mFlushErrors;
};
