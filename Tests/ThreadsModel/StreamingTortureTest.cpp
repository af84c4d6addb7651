// Many threads at once: writers that fill more than the budget holds, readers with handles at random, failing reads in between.
#include "Tests/ThreadsModel/StreamingFixture.h"

#include <random>

namespace
{

using namespace Profiler;

constexpr int sNumWriters = 2;
constexpr int sNumReaders = 3;
constexpr int32_t sChunksPerWriter = 3000;
constexpr int sBarsPerChunk = 16;  // 512 bytes
constexpr int64_t sBudget = 65536; // 128 chunks; readers keep up to some 30 from going

class StreamingTortureTest : public StreamingTest
{
protected:
    // Fills chunks one behind the other, and hands each over as a pass does. Ends early when allocations are aborted.
    void Write(ThreadID inThread)
    {
        DetailLODThread& thread = *mLevels[0]->GetThread(inThread);
        for (int32_t index = 0; index < sChunksPerWriter; ++index)
        {
            Bars bars;
            if (mManager->GetOrCreateChunk(thread, thread.GetChunkTable().GetOrCreateChunk(index), Unload::Immediate, bars) ==
                Result::Aborted)
                return;
            for (int i = 0; i < sBarsPerChunk; ++i)
            {
                uint64_t bar = 0;
                bars->AddBar(0, Bar::sNoParent, static_cast<uint64_t>(index), {}, 0, bar, i, i + 1);
            }
            bars->BuildBoundaries();
            bars = Bars();
            thread.MoveDetailCursor(index + 1);
            mNumFilled.fetch_add(1);
        }
    }

    // Loads what is there, in every way, and keeps some of it for a while.
    void Read(uint32_t inSeed)
    {
        std::minstd_rand random(inSeed);
        std::vector<Bars> held(8);
        while (!mIsOver)
        {
            const auto threadID = static_cast<ThreadID>(random() % sNumWriters);
            const DetailLODThread& thread = *mLevels[0]->GetThread(threadID);
            const ChunkDescription description =
                thread.GetChunkTable().GetChunkByIndex(static_cast<int32_t>(random() % sChunksPerWriter));
            if (!description.HasDataTypes(EChunkType::Bar))
                continue;
            const auto mode = random() % 4 == 0 ? Unload::Delayed : Unload::Immediate;
            Bars& bars = held[random() % held.size()];
            if (random() % 3 == 0)
                bars = mManager->Load<BarChunk>(thread, description, mode);
            else
            {
                bars = Bars(mManager->BlockingLoad(thread, description, EChunkType::Bar, mode));
                if (bars.GetChunk() == nullptr)
                    mNumFailed.fetch_add(1);
                else if (!IsWhole(bars, description.mIndex, sBarsPerChunk))
                    mNumWrong.fetch_add(1);
            }
            sNow.fetch_add(1.0);
        }
    }

    std::atomic<int> mNumFilled = 0;
    std::atomic<int> mNumFailed = 0;
    std::atomic<int> mNumWrong = 0;
    std::atomic<bool> mIsOver = false;
};

TEST_F(StreamingTortureTest, NothingIsLostTornOrLeaked)
{
    for (const bool isAborted : {false, true})
    {
        mIsOver = false;
        mNumFilled = 0;
        MakeManager(sBudget);
        std::filesystem::remove(At("Threads.dat"));
        for (int writer = 0; writer < sNumWriters; ++writer)
            GetThread(writer);
        std::atomic<int> numReads = 0;
        mFile->OnRead = [&numReads] { return ++numReads % 50 != 0; };
        Open();
        std::vector<std::thread> readers;
        for (uint32_t reader = 0; reader < sNumReaders; ++reader)
            readers.emplace_back([this, reader] { Read(reader + 1); });
        std::vector<std::thread> writers;
        for (int writer = 0; writer < sNumWriters; ++writer)
            writers.emplace_back([this, writer] { Write(writer); });
        if (isAborted)
        {
            while (mNumFilled < sChunksPerWriter / 2)
                std::this_thread::yield();
            mManager->AbortAllocations();
        }
        for (std::thread& writer : writers)
            writer.join();
        mIsOver = true;
        for (std::thread& reader : readers)
            reader.join();

        EXPECT_EQ(mNumWrong, 0);
        EXPECT_TRUE(mManager->FlushChunks(mErrors)) << Utility::GetErrorText(mErrors);
        EXPECT_TRUE(isAborted || mNumFilled == sNumWriters * sChunksPerWriter);
        sNow = sNow + 2 * ThreadStreamingManager::sUnloadDelay;
        EXPECT_TRUE(IsAllUnloaded());
        sNow = sNow + 1.0;
        RunCycles(); // and with them a count of what is being filled
        EXPECT_EQ(mManager->GetInProgressBytes(), 0);
        EXPECT_EQ(mManager->GetPendingLoadCount(), 0U);
    }
}

} // namespace
