// What stays in memory, and for how long.
#include "Tests/ThreadsModel/StreamingFixture.h"

#include <gmock/gmock.h>

#include <limits>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ChunkCacheTest : public StreamingTest
{
protected:
    // Messages of the assertions that failed, without the lines that say where.
    static std::vector<std::string> GetAsserted(const LogCapture& inLog)
    {
        std::vector<std::string> messages = inLog.GetMessages();
        for (size_t i = 0; i < messages.size(); ++i)
        {
            EXPECT_THAT(messages[i], HasSubstr("\" assertion failed at ThreadsModel/"));
            messages.erase(messages.begin() + static_cast<ptrdiff_t>(i));
        }
        return messages;
    }
};

TEST_F(ChunkCacheTest, AChunkStaysAsLongAsAHandleIsLeft)
{
    Open();
    Bars first = Get(0);
    Chunk* const chunk = first.GetChunk();
    Finish(0, 1);
    Bars copy = first;
    Bars moved = std::move(first);
    EXPECT_EQ(first.GetChunk(), nullptr); // NOLINT(bugprone-use-after-move): empty is what it is to be
    copy = *&copy;
    moved = std::move(*&moved);
    EXPECT_EQ(copy.GetChunk(), chunk);
    EXPECT_EQ(moved.GetChunk(), chunk);
    copy = moved;
    moved = Bars();
    RunCycles();
    EXPECT_EQ(mManager->GetChunkCount(), 1U) << "one handle is left";
    EXPECT_EQ(BlockingLoad(0).GetChunk(), chunk);
    EXPECT_EQ(mFile->NumReads, 0);

    copy = Bars();
    EXPECT_TRUE(IsAllUnloaded());
}

TEST_F(ChunkCacheTest, ADelayedReleaseOutlastsImmediateOnes)
{
    Open();
    Store(1);
    sNow = 10.0;
    Bars later = BlockingLoad(0);
    {
        const Bars delayed = BlockingLoad(0, Unload::Delayed);
    }
    sNow = 12.0;
    later = Bars();
    sNow = 14.9;
    RunCycles();
    EXPECT_EQ(mManager->GetChunkCount(), 1U);
    sNow = 15.0;
    EXPECT_TRUE(IsAllUnloaded());
}

// Nobody but the writers could make room.
TEST_F(ChunkCacheTest, AllocatingInVainRaisesTheBudget)
{
    MakeManager(256);
    Open();
    const Bars writers[] = {Get(0), Get(1)};
    Fill(0);
    Fill(1);
    CountChunks();
    ASSERT_EQ(mManager->GetInProgressBytes(), 256);
    EXPECT_NE(Get(2).GetChunk(), nullptr);
}

TEST_F(ChunkCacheTest, AllocatingWaitsWhileTheBudgetIsExhausted)
{
    for (const int64_t budget : {257, 256})
    {
        MakeManager(budget);
        Open();
        const Bars existing = Get(5);
        Fill(0);
        Fill(1);
        std::vector<Bars> held = {Get(0), Get(1)};
        Finish(0, 2);
        CountChunks();
        ASSERT_EQ(mManager->GetLoadedBytes() + mManager->GetInProgressBytes(), 256);
        Bars created;
        std::thread allocator([&] { created = Get(2); });
        if (budget == 256)
        {
            for (int i = 0; i < 1000; ++i)
                std::this_thread::yield();
            EXPECT_EQ(mManager->GetChunkCount(), 3U) << "it waits";
            EXPECT_EQ(Get(5).GetChunk(), existing.GetChunk()) << "a chunk that is there never waits";
            held.clear();
            RunCyclesWithoutFlush();
        }
        allocator.join();
        EXPECT_NE(created.GetChunk(), nullptr);
    }
}

TEST_F(ChunkCacheTest, AbortEndsTheWaitAndLeavesExistingChunks)
{
    MakeManager(128);
    Open();
    Fill(0);
    const Bars held = Get(0);
    const Bars filling = Get(5);
    Finish(0, 1);
    CountChunks();
    ASSERT_EQ(mManager->GetLoadedBytes(), 128) << "held, so it can't go";

    Result result = Result::Done;
    std::vector<Bars> created;
    std::thread allocator(
        [&]
        {
            const std::vector<ChunkDescription> wanted = {Describe(5), Describe(6), Describe(7)};
            result = mManager->GetOrCreateChunk(GetThread(), wanted, Unload::Immediate, created);
        });
    RunCyclesWithoutFlush(); // nothing goes, so nobody is woken
    mManager->AbortAllocations();
    allocator.join();
    EXPECT_EQ(result, Result::Aborted);
    ASSERT_EQ(created.size(), 3U);
    EXPECT_EQ(created[0].GetChunk(), filling.GetChunk());
    EXPECT_EQ(created[1].GetChunk(), nullptr);

    Bars handle;
    EXPECT_EQ(mManager->GetOrCreateChunk(GetThread(), Describe(8), Unload::Immediate, handle), Result::Aborted);
    EXPECT_EQ(mManager->GetOrCreateChunk(GetThread(), Describe(5), Unload::Immediate, handle), Result::Done);
}

TEST_F(ChunkCacheTest, CursorsHandOverWhatLiesBehindThem)
{
    Open();
    for (const int32_t index : {0, 1, 2, 1000000000})
    {
        Fill(index);
        const auto functions = Get<FunctionIndexChunk>(index);
        const auto states = Get<OverviewChunk>(index);
        states->AddEntry(ThreadState::Executing, sNoReadyIndex, sNoCallstack, 0.0, 1.0, 0.0, 1.0);
    }
    DetailLODThread& thread = GetThread();
    const auto areSaved = [this](int32_t inIndex, uint8_t inKinds)
    {
        RunCyclesWithoutFlush();
        return Describe(inIndex).mAvailableDataTypes == inKinds;
    };
    thread.MoveDetailCursor(0);
    thread.MoveDetailCursor(2);
    EXPECT_EQ(thread.GetCurrentDetailChunk(), 2);
    EXPECT_TRUE(areSaved(0, 3) && areSaved(1, 3) && areSaved(2, 0));
    thread.MoveOverviewCursor(1);
    EXPECT_TRUE(areSaved(0, 7) && areSaved(1, 3));
    thread.MoveDetailCursor(std::numeric_limits<int32_t>::max());
    thread.MoveOverviewCursor(std::numeric_limits<int32_t>::max());
    EXPECT_TRUE(areSaved(1, 7) && areSaved(2, 7) && areSaved(1000000000, 7));

    const LogCapture log;
    thread.MoveDetailCursor(1);
    thread.MoveOverviewCursor(1);
    EXPECT_EQ(thread.GetCurrentDetailChunk(), 1);
    EXPECT_EQ(thread.GetCurrentOverviewChunk(), 1);
    const std::vector<std::string> messages = log.GetMessages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_THAT(messages[0], testing::StartsWith("\"inChunkIndex >= mCurrentDetailChunkIndex\" assertion failed at "
                                                 "ThreadsModel/DetailLODThread ("));
    EXPECT_EQ(messages[1], "Attempt to move the current detail chunk cursor backwards");
    EXPECT_THAT(messages[2], testing::StartsWith("\"inChunkIndex >= mCurrentOverviewChunkIndex\" assertion failed at "));
    EXPECT_EQ(messages[3], "Attempt to move the current overview chunk cursor backwards");
}

TEST_F(ChunkCacheTest, FaultsOfCallersAreToldAndSurvived)
{
    Open();
    Fill(0);
    Bars held = Get(0);
    Fill(1);
    GetThread().MoveDetailCursor(2);
    const LogCapture log;
    EXPECT_EQ(Get(0).GetChunk(), held.GetChunk()) << "handed over, and held";
    EXPECT_THAT(GetAsserted(log), ElementsAre("Attempt to fetch an existing chunk that is not in progress"));

    const LogCapture second;
    ChunkDescription unsaved;
    unsaved.mIndex = 9;
    EXPECT_EQ(mManager->BlockingLoad(GetThread(), unsaved, EChunkType::Bar, Unload::Immediate).GetChunk(), nullptr);
    ASSERT_EQ(second.GetMessages().size(), 3U) << second.GetText();
    EXPECT_THAT(second.GetMessages()[0], HasSubstr("\"inChunkDescription.HasDataTypes(inChunkType)\" assertion failed at "
                                                   "ThreadsModel/ThreadStreamingManager"));
    EXPECT_EQ(second.GetMessages()[1], "Attempt to load chunk that doesn't have the required data type");
}

TEST_F(ChunkCacheTest, AChunkThatWasLoadedTooEarlyCanBeFilledAllTheSame)
{
    const LogCapture log;
    Open();
    const auto load = [this](int32_t inIndex)
    { return mManager->Load<BarChunk>(GetThread(), Describe(inIndex), Unload::Immediate); };
    Gate gate;
    mFile->OnRead = [&gate]
    {
        gate.WaitUntilOpen();
        return true;
    };
    const Bars first = load(0);
    gate.WaitForVisitor();
    const Bars second = load(1);
    Fill(0); // while it is being read
    Fill(1); // while it waits to be
    gate.Open();
    RunCyclesWithoutFlush();
    Bars third = load(2);
    RunCyclesWithoutFlush();
    Fill(2); // after that has failed
    third = Bars();
    for (const int32_t index : {0, 1, 2})
        EXPECT_TRUE(IsWhole(Get(index), index));
    Finish(0, 3);
    RunCycles();
    for (const int32_t index : {0, 1, 2})
        EXPECT_TRUE(IsWhole(BlockingLoad(index), index));
}

TEST_F(ChunkCacheTest, ManyCallersOfOneChunkShareOneRead)
{
    Open();
    Store(2);
    Gate gate;
    mFile->OnRead = [&gate]
    {
        gate.WaitUntilOpen();
        return true;
    };
    std::vector<int> calls;
    const Bars other = mManager->Load<BarChunk>(GetThread(), Describe(1), Unload::Immediate);
    gate.WaitForVisitor(); // the thread stands at chunk 1, so chunk 0 waits
    std::vector<ChunkHandle> handles;
    for (int i = 0; i < 3; ++i)
        handles.push_back(mManager->Load(GetThread(), Describe(0), EChunkType::Bar, Unload::Immediate,
                                         [&calls, i](Chunk* inChunk) { calls.push_back(inChunk != nullptr ? i : -1); }));
    EXPECT_EQ(mManager->GetPendingLoadCount(), 2U);
    EXPECT_EQ(handles[0].GetChunk(), nullptr);
    gate.Open();
    const Bars loaded = BlockingLoad(0);
    EXPECT_TRUE(IsWhole(loaded, 0));
    EXPECT_THAT(calls, ElementsAre(0, 1, 2));
    EXPECT_EQ(mFile->NumReads, 2);

    handles.push_back(mManager->Load(GetThread(), Describe(0), EChunkType::Bar, Unload::Immediate,
                                     [&](Chunk* inChunk) { calls.push_back(inChunk == loaded.GetChunk() ? 9 : -1); }));
    EXPECT_THAT(calls, ElementsAre(0, 1, 2, 9)) << "before the call returned";
    EXPECT_EQ(handles.back().GetChunk(), loaded.GetChunk());
}

TEST_F(ChunkCacheTest, KeysTellKindsApart)
{
    const ChunkKey ready = ChunkKey::sMakeReadyThread(0x10000007);
    const ChunkKey bars{0x10000007, 0, EChunkType::Bar};
    EXPECT_FALSE(ready == bars);
    EXPECT_TRUE((ready == ChunkKey{0xFFFF000010000007, 5, EChunkType::ReadyThread})) << "the low 32 bits count, and no index";
    EXPECT_EQ(ChunkKeyHash()(ready), ChunkKeyHash()({0xFFFF000010000007, 5, EChunkType::ReadyThread}));
    EXPECT_FALSE((bars == ChunkKey{0x10000007, 1, EChunkType::Bar}));
    EXPECT_FALSE((bars == ChunkKey{0x10000007, 0, EChunkType::Overview}));
    EXPECT_EQ(ChunkKeyHash()({0x10, -1, EChunkType::Bar}), 0xFFFFFFFFFFFFFFFFU ^ 0x10U ^ 2U);
    EXPECT_EQ(gCreateChunk(static_cast<EChunkType>(3)), nullptr);
}

TEST_F(ChunkCacheTest, TheLogHearsOfEachStep)
{
    struct Recorder : IStreamingLog
    {
        void Log(const std::string& inLine) override
        {
            const System::MutexLock lock(Mutex);
            Lines.push_back(inLine.substr(inLine.find("] ") + 2));
        }
        void ChunkCountChanged(uint64_t inCount) override { Count = inCount; }
        void MemoryChanged(int64_t inBytes) override { Memory = inBytes; }
        void PendingLoadsChanged(uint32_t inCount) override { Pending = inCount; }

        System::Mutex Mutex;
        std::vector<std::string> Lines;
        std::atomic<uint64_t> Count = 99;
        std::atomic<int64_t> Memory = 99;
        std::atomic<uint32_t> Pending = 99;
    };
    Recorder recorder;
    mManager->SetStreamingLog(&recorder);
    Open();
    Store(1);
    EXPECT_TRUE(IsWhole(BlockingLoad(0), 0));
    EXPECT_TRUE(IsAllUnloaded());
    // The caller tells of a request when the thread may have served it already.
    const std::string chunk = "[LOD: 0, Thread: 00001, Chunk: 000]: ";
    EXPECT_THAT(recorder.Lines, testing::UnorderedElementsAre(chunk + "Unloading chunk of type [BarData] with size 128 B",
                                                              chunk + "Hinted with flags [BarData]",
                                                              chunk + "Loaded chunk data of type [BarData] and size 128 B",
                                                              chunk + "Unloading chunk of type [BarData] with size 128 B"));
    EXPECT_EQ(recorder.Count, 0U);
    EXPECT_EQ(recorder.Memory, 0);
    EXPECT_LE(recorder.Pending, 1U);

    recorder.Lines.clear();
    const auto ready = mManager->LoadReadyThreadChunk({}, 0x20000003, Unload::Delayed, {});
    mManager->CloseChunkFile();
    EXPECT_THAT(recorder.Lines, ElementsAre("[LOD: 2, Chunk: 003]: Hinted with flags [ReadyThread]"));
    mManager->SetStreamingLog(nullptr);
}

} // namespace
