// The way of chunks to the file and back, and what goes wrong on it.
#include "Tests/ThreadsModel/StreamingFixture.h"
#include "Utility/Compression.h"

#include <gmock/gmock.h>

#include <cstring>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class ChunkStreamingTest : public StreamingTest
{
protected:
    using StreamingTest::StreamingTest;

    // The text of a flush that must fail.
    std::string FlushError()
    {
        Utility::ErrorState errors;
        EXPECT_FALSE(mManager->FlushChunks(errors));
        return errors.GetEntries().empty() ? "" : errors.GetEntries().back().Message;
    }

    // What the frame in the file holds.
    [[nodiscard]] std::string ReadFrame(uint64_t inOffset, uint64_t inSize) const
    {
        const std::string frame = ReadFile("Threads.dat").substr(inOffset, inSize);
        Utility::ByteBuffer content;
        EXPECT_TRUE(Utility::Decompressor().Decompress(frame.data(), frame.size(), content));
        return {reinterpret_cast<const char*>(content.GetData()), content.GetSize()};
    }

    static std::string Print(Chunk& ioChunk)
    {
        Utility::ByteBuffer buffer;
        ioChunk.Serialize(buffer);
        return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize()};
    }

    void Damage(uint64_t inOffset, char inMask)
    {
        std::string file = ReadFile("Threads.dat");
        file[inOffset] = static_cast<char>(file[inOffset] ^ inMask);
        WriteFile("Threads.dat", file);
    }
};

// Kinds apart, then threads, then indices, dealt round robin to eight groups, each of which is written in one piece.
TEST_F(ChunkStreamingTest, AGroupIsWrittenInOnePieceInTheOrderOfItsChunks)
{
    Open();
    std::vector<Bars> held;
    for (int32_t index = 0; index < 18; ++index)
    {
        Fill(index, 1, index % 5);
        held.push_back(Get(index));
    }
    const auto functions = Get<FunctionIndexChunk>(3);
    functions->GetFunctions()[{0x1234, {7}}] = {{0, 5}, {2, 1}};
    const auto states = Get<OverviewChunk>(2);
    states->AddEntry(ThreadState::IO, 4, 17, 1.0, 2.0, 0.5, 2.5);
    EXPECT_TRUE(mManager->FlushChunks(mErrors));
    EXPECT_EQ(mFile->NumAppends, 8);

    const ChunkLayout functionLayout = Describe(3).mLayout;
    EXPECT_EQ(functionLayout.FunctionIndexOffset, 0U) << "the first of all";
    EXPECT_EQ(ReadFrame(0, functionLayout.FunctionIndexSize), Print(*functions));
    EXPECT_GT(functions->GetSize(), 0U);
    const ChunkLayout stateLayout = Describe(2).mLayout;
    EXPECT_EQ(ReadFrame(stateLayout.OverviewDataOffset, stateLayout.OverviewDataSize), Print(*states));

    // The chunk of functions is dealt to the first group, chunk n of bars to group (n + 1) modulo 8.
    uint64_t next = functionLayout.FunctionIndexSize;
    for (const int32_t index : {7, 15, 0, 8, 16, 1, 9, 17, 2, 10})
    {
        const ChunkDescription description = Describe(index);
        const ChunkLayout& layout = description.mLayout;
        EXPECT_TRUE(description.HasDataTypes(EChunkType::Bar));
        EXPECT_EQ(layout.BoundaryDataOffset, layout.BarDataOffset + layout.BarDataSize);
        EXPECT_EQ(layout.BarDataOffset, next) << index;
        next = layout.BoundaryDataOffset + layout.BoundaryDataSize;
        Utility::ByteBuffer boundaries;
        held[static_cast<size_t>(index)]->WriteBoundaries(boundaries);
        EXPECT_EQ(ReadFile("Threads.dat").substr(layout.BoundaryDataOffset, layout.BoundaryDataSize),
                  std::string(reinterpret_cast<const char*>(boundaries.GetData()), boundaries.GetSize()));
    }
}

TEST_F(ChunkStreamingTest, WhatWasSavedComesBack)
{
    Open();
    for (int32_t index = 0; index < 40; ++index)
        Fill(index, 1, index);
    Finish(0, 40);
    RunCycles();
    ASSERT_EQ(mManager->GetChunkCount(), 0U);
    for (const bool isForWriting : {true, false})
    {
        mManager->CloseChunkFile();
        Open(isForWriting);
        std::vector<Bars> prefetched;
        for (int32_t index = 1; index < 40; ++index)
            prefetched.push_back(mManager->Load<BarChunk>(GetThread(), Describe(index), Unload::Immediate));
        for (int32_t index = 1; index < 40; ++index)
            EXPECT_TRUE(IsWhole(BlockingLoad(index), index, static_cast<size_t>(index))) << index;
        EXPECT_EQ(mManager->GetLoadedBytes(), 39 * 40 / 2 * 32);
        prefetched.clear();
        EXPECT_TRUE(IsAllUnloaded());
    }
    EXPECT_EQ(mFile->NumReads, 78);
    EXPECT_THAT(mManager->GetLoadErrors(), IsEmpty());
    EXPECT_TRUE(mManager->FlushChunks(mErrors)) << "nothing to save, on a file that is open for reading";
}

TEST_F(ChunkStreamingTest, AFileThatIsThereIsAppendedTo)
{
    WriteFile("Threads.dat", "0123456789");
    Open();
    Store(1);
    EXPECT_EQ(Describe(0).mLayout.BarDataOffset, 10U);
    EXPECT_THAT(ReadFile("Threads.dat"), StartsWith("0123456789"));
    EXPECT_TRUE(IsWhole(BlockingLoad(0), 0));
}

TEST_F(ChunkStreamingTest, FilesThatCanNotBeOpened)
{
    EXPECT_FALSE(mManager->OpenChunkFile(false, mErrors));
    EXPECT_EQ(mErrors.GetEntries().back().Message, "Unable to open file " + At("Threads.dat") + " for reading.");
    MakeDirectory("Threads.dat");
    EXPECT_FALSE(mManager->OpenChunkFile(true, mErrors));
    EXPECT_EQ(mErrors.GetEntries().back().Message, "Unable to open file " + At("Threads.dat") + " for writing.");
    EXPECT_FALSE(mManager->OpenReadyThreadFile(mErrors));
    EXPECT_EQ(mErrors.GetEntries().back().Message, "Unable to open file " + At("ReadyThreads.dat") + ".");
    EXPECT_EQ(FlushError(), "Unable to save streaming chunks: no file is open") << "no thread was started";
}

TEST_F(ChunkStreamingTest, ADamagedBlockIsToldOnceAndGivesNoChunk)
{
    Open();
    Store(6);
    mManager->CloseChunkFile();
    const LogCapture log;
    const uint64_t size = ReadFile("Threads.dat").size();
    const ChunkLayout flipped = Describe(1).mLayout;
    Damage(flipped.BarDataOffset, 1); // the magic of the frame

    // A sound frame with a content that no chunk has: the bars of chunk 2 are said to take more than they do.
    const ChunkLayout layout = Describe(2).mLayout;
    std::string content = ReadFrame(layout.BarDataOffset, layout.BarDataSize);
    ++content[0];
    Utility::ByteBuffer frame;
    ASSERT_TRUE(Utility::Compressor().Compress(content.data(), content.size(), frame));
    WriteFile("Threads.dat", ReadFile("Threads.dat") + std::string(reinterpret_cast<char*>(frame.GetData()), frame.GetSize()));
    ChunkTable& table = GetThread().GetChunkTable();
    table.SetBarData(2, size, frame.GetSize(), 0, 0);
    table.SetBarData(3, size + frame.GetSize() - 1, 2, 0, 0); // beyond the end of the file
    table.SetBarData(4, 1, ~uint64_t{0} - 1, 0, 0);           // far more than there is memory
    table.SetBarData(5, ~uint64_t{0}, 20, 0, 0);

    Open(false);
    for (int repetition = 0; repetition < 2; ++repetition)
    {
        EXPECT_TRUE(IsWhole(BlockingLoad(0), 0));
        for (int32_t index = 1; index < 6; ++index)
        {
            const Bars first = BlockingLoad(index);
            EXPECT_EQ(first.GetChunk(), nullptr) << index;
            EXPECT_EQ(BlockingLoad(index).GetChunk(), nullptr) << "while a handle is left";
        }
    }
    const std::string start = "Unable to load [BarData] from file " + At("Threads.dat") + " at offset ";
    const std::vector<std::string> expected = {
        start + std::to_string(flipped.BarDataOffset) + ": the data is damaged",
        start + std::to_string(size) + ": the data is damaged",
        start + std::to_string(size + frame.GetSize() - 1) + ": the data can't be read",
        start + "1: the data can't be read",
        start + "18446744073709551615: the data can't be read",
    };
    EXPECT_EQ(mManager->GetLoadErrors(), expected);
    EXPECT_EQ(log.GetMessages(), expected);
    EXPECT_FALSE(mManager->HasSaveErrors());
    EXPECT_TRUE(IsAllUnloaded()) << "nothing is left of what couldn't be loaded";
}

TEST_F(ChunkStreamingTest, AReadThatFailsIsTriedAgainByTheNextLoad)
{
    Open();
    Store(1);
    bool isBroken = true;
    mFile->OnRead = [&isBroken] { return !isBroken; };
    const Bars failed = BlockingLoad(0);
    EXPECT_EQ(failed.GetChunk(), nullptr);
    isBroken = false;
    EXPECT_TRUE(IsWhole(BlockingLoad(0), 0));
    EXPECT_EQ(mManager->GetLoadErrors().size(), 1U);
}

TEST_F(ChunkStreamingTest, AWriteThatFailsIsToldAtEveryFlush)
{
    Open();
    int numWritten = 0;
    mFile->OnAppend = [&numWritten] { return ++numWritten != 2; };
    Fill(0);
    Fill(1);
    Fill(2);
    EXPECT_FALSE(mManager->HasSaveErrors());
    const std::string text = "There were errors saving streaming chunks: \n\tError during write of file " + At("Threads.dat") +
                             ": No space left on device\n";
    EXPECT_EQ(FlushError(), text);
    EXPECT_TRUE(mManager->HasSaveErrors());
    EXPECT_THAT(mManager->GetSaveErrors(),
                ElementsAre("Error during write of file " + At("Threads.dat") + ": No space left on device"));
    EXPECT_TRUE(Describe(0).HasDataTypes(EChunkType::Bar)) << "its group came before";
    EXPECT_FALSE(Describe(1).HasDataTypes(EChunkType::Bar));
    EXPECT_FALSE(Describe(2).HasDataTypes(EChunkType::Bar));

    // The thread goes on, and what couldn't be saved stays.
    Store(4);
    EXPECT_TRUE(Describe(3).HasDataTypes(EChunkType::Bar));
    EXPECT_EQ(FlushError(), text);
    EXPECT_EQ(mManager->GetChunkCount(), 2U);
    EXPECT_TRUE(IsWhole(BlockingLoad(3), 3));
    EXPECT_TRUE(IsWhole(Get(1), 1, 8)); // as it was left by both fills
}

TEST_F(ChunkStreamingTest, AFullDiskHoldsNobodyUp)
{
    MakeManager(256);
    std::filesystem::create_symlink("/dev/full", At("Threads.dat"));
    Open();
    for (int32_t index = 0; index < 20; ++index)
    {
        Fill(index); // would wait for ever when 256 bytes are full
        Finish(index, index + 1);
    }
    EXPECT_THAT(FlushError(), HasSubstr("Error during write of file " + At("Threads.dat") + ": No space left on device"));
}

TEST_F(ChunkStreamingTest, AStoppedManagerServesNoLoad)
{
    Open();
    Store(3);
    Gate gate;
    std::atomic<bool> isStopped = false;
    mFile->OnRead = [&gate]
    {
        gate.WaitUntilOpen();
        return true;
    };
    const Bars first = mManager->Load<BarChunk>(GetThread(), Describe(0), Unload::Immediate);
    gate.WaitForVisitor();
    const Bars second = mManager->Load<BarChunk>(GetThread(), Describe(1), Unload::Immediate);
    std::thread waiter([&] { EXPECT_EQ(BlockingLoad(1).GetChunk(), nullptr); });
    std::thread closer([&] { mManager->CloseChunkFile(); });
    // The closer has asked the thread to stop as soon as a load is answered while the thread still stands at the gate.
    for (uint32_t id = 0; !isStopped; ++id)
    {
        static_cast<void>(mManager->LoadReadyThreadChunk({}, id, Unload::Immediate, [&isStopped](Chunk*) { isStopped = true; }));
        std::this_thread::yield();
    }
    gate.Open();
    closer.join();
    waiter.join();
    EXPECT_EQ(BlockingLoad(2).GetChunk(), nullptr);
    EXPECT_EQ(mManager->GetPendingLoadCount(), 0U);

    Open();
    EXPECT_TRUE(IsWhole(BlockingLoad(1), 1)) << "asked for again, though a handle of the failed load is left";
    EXPECT_TRUE(IsWhole(BlockingLoad(2), 2));
    EXPECT_THAT(mManager->GetLoadErrors(), IsEmpty());
}

// Were the workers needed for decoding, none would be left.
TEST_F(ChunkStreamingTest, WorkersThatWaitForChunksDecodeThem)
{
    Open();
    Store(40);
    std::atomic<int> numWhole = 0;
    std::vector<System::JobHandle> jobs;
    for (int32_t job = 0; job < 4; ++job)
    {
        System::JobDescription description;
        description.Work = [&, job](System::Job&, const bool&)
        {
            std::vector<Bars> ahead;
            for (int32_t index = 0; index < 40; ++index)
                ahead.push_back(mManager->Load<BarChunk>(GetThread(), Describe(index), Unload::Immediate));
            for (int32_t index = 39 - job; index >= 0; index -= 4)
                numWhole += IsWhole(BlockingLoad(index), index) ? 1 : 0;
        };
        jobs.push_back(mScheduler.ScheduleJob(std::move(description)));
    }
    mScheduler.WaitForJobs(jobs);
    EXPECT_EQ(numWhole, 40);
}

class StreamingWithoutWorkersTest : public ChunkStreamingTest
{
protected:
    StreamingWithoutWorkersTest() : ChunkStreamingTest(0) {}
};

TEST_F(StreamingWithoutWorkersTest, EverythingRunsOnTheThreadsThatWait)
{
    Open();
    Store(20);
    EXPECT_EQ(mManager->GetChunkCount(), 0U);
    std::vector<Bars> ahead;
    for (int32_t index = 0; index < 20; ++index)
        ahead.push_back(mManager->Load<BarChunk>(GetThread(), Describe(index), Unload::Immediate));
    EXPECT_TRUE(IsWhole(BlockingLoad(19), 19));
    mManager->Close();
    EXPECT_EQ(mManager->GetPendingLoadCount(), 0U);
}

TEST_F(ChunkStreamingTest, LoadsOnTheirWayEndWhenTheManagerIsClosed)
{
    Open();
    Store(30);
    std::atomic<int> numCalls = 0;
    std::vector<ChunkHandle> handles;
    for (int32_t index = 0; index < 30; ++index)
        handles.push_back(
            mManager->Load(GetThread(), Describe(index), EChunkType::Bar, Unload::Immediate, [&](Chunk*) { ++numCalls; }));
    mManager->Close();
    EXPECT_EQ(numCalls, 30) << "every callback was told, of a chunk or of none";
    Open();
    for (int32_t index = 0; index < 30; ++index)
        EXPECT_TRUE(IsWhole(BlockingLoad(index), index));
}

} // namespace
