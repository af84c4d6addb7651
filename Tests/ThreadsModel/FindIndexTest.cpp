#include "Tests/ThreadsModel/IndexFileFixture.h"
#include "Tests/ThreadsModel/TimelineFixture.h"
#include "ThreadsModel/Chunks/FunctionIndexChunk.h"
#include "ThreadsModel/Find/FindModel.h"
#include "ThreadsModel/Find/FindProcessingModel.h"

#include <map>
#include <random>

namespace Profiler
{
namespace
{

using Host::ByteWriter;
using Range = FunctionChunks::Range;

TEST(BuildFunctionIndexTest, EntersBarsInTheOrderOfTheTree)
{
    // F runs at every depth, G beside it. The last bar of the second row belongs to no root, so nothing reaches what lies below.
    constexpr uint64_t f = 0x10;
    constexpr uint64_t g = 0x20;
    BarChunk bars;
    uint64_t index = 0;
    const auto add = [&](int32_t inDepth, const std::vector<std::pair<uint32_t, uint64_t>>& inBars)
    {
        for (const auto& [parent, function] : inBars)
            bars.AddBar(inDepth, parent, function, {7}, parent % 4, index, 0.0, 1.0);
    };
    add(0, {{~0U, f}, {~0U, f}, {~0U, g}});
    add(1, {{0, g}, {0, f}, {1, f}, {5, f}});
    add(2, {{1, f}, {1, f}, {2, g}, {3, g}});
    FunctionIndexChunk chunk;
    chunk.Build(bars.GetRows(), true);
    EXPECT_EQ(chunk.GetFunctions().size(), 0U) << "cancelled";
    chunk.Build(bars.GetRows(), false);
    using Bars = FunctionIndexChunk::BarList;
    EXPECT_EQ(chunk.GetFunctions().size(), 2U);
    EXPECT_EQ((chunk.GetFunctions()[{f, {7}}]), (Bars{{0, 0}, {1, 1}, {2, 0}, {2, 1}, {0, 1}, {1, 2}}));
    EXPECT_EQ((chunk.GetFunctions()[{g, {0xC0000007}}]), (Bars{{1, 0}, {2, 2}, {0, 2}}));
    EXPECT_EQ(chunk.GetSize(), 0U) << "until it is saved";
}

// Find.dat by hand.
struct StoredIndex
{
    void AddThread(ThreadID inThread, const std::string& inTable, const std::string& inBlocks = {})
    {
        Threads[inThread] = {Sections.size(), static_cast<uint32_t>(inTable.size())};
        Sections += inTable + inBlocks;
    }
    // A thread of one function. The numbers are those of the ranges and then of the chunks.
    void AddThread(ThreadID inThread, uint64_t inAddress, uint32_t inIndex, const std::vector<int32_t>& inNumbers,
                   uint32_t inNumRanges)
    {
        ByteWriter block;
        for (const int32_t number : inNumbers)
            block.Add(number);
        const std::string frame = gCompress(gToText(block));
        ByteWriter table;
        table.Add(uint64_t{1}).Add(inAddress).Add(inIndex).Add(uint64_t{0}).Add(uint64_t{frame.size()});
        table.Add(inNumRanges).Add(static_cast<uint32_t>(inNumbers.size()) - 2 * inNumRanges);
        AddThread(inThread, gCompress(gToText(table)), frame);
    }

    // With a number of threads that differs from what is there.
    [[nodiscard]] std::string Build(uint64_t inCountError = 0) const
    {
        ByteWriter table;
        table.Add(Threads.size() + inCountError);
        for (const auto& [thread, section] : Threads)
            table.Add(thread).Add(section.first).Add(section.second);
        const std::string frame = gCompress(gToText(table));
        ByteWriter footer;
        footer.Add(0x2DD6E2D7).Add(static_cast<uint32_t>(Threads.size())).Add(Sections.size()).Add(frame.size());
        footer.Add(gHash(gToText(table)));
        return Sections + frame + gToText(footer.Add(gHash(gToText(footer))));
    }

    std::string Sections;
    std::map<ThreadID, std::pair<uint64_t, uint32_t>> Threads; // offset and size of the function table
};

size_t gReadFunctions(FindModel& ioModel, ThreadID inThread)
{
    return ioModel.ReadThreadFunctions(EFindSet::FindResults, inThread).size();
}

class FindIndexTest : public IndexFileTest
{
protected:
    void Open(const std::string& inPath, System::JobScheduler& inScheduler)
    {
        mModel = std::make_unique<FindProcessingModel>(inPath, inScheduler);
        ASSERT_TRUE(mModel->OpenIndexFile(mErrors));
    }
    // A thread in which one function ran, in each pair of chunks.
    void RunThread(ThreadID inThread, uint64_t inAddress, uint32_t inIndex, const std::vector<Range>& inBars)
    {
        ThreadInvocationData& data = mModel->CreateThreadInvocationData(inThread);
        for (const Range& bar : inBars)
            FindProcessingModel::AddInvocation(data, inAddress, {inIndex}, bar.FirstChunk, bar.LastChunk);
        EXPECT_TRUE(mModel->DestroyThreadInvocationData(inThread, mErrors));
    }
    // Of 20000 functions the table doesn't fit into what a stream holds back.
    void RunThread(ThreadID inThread, int inNumFunctions)
    {
        std::mt19937_64 random;
        ThreadInvocationData& data = mModel->CreateThreadInvocationData(inThread);
        for (int i = 0; i < inNumFunctions; ++i)
            FindProcessingModel::AddInvocation(data, random(), {}, 1, 1);
        EXPECT_TRUE(mModel->DestroyThreadInvocationData(inThread, mErrors));
    }
    // Gives the file.
    [[nodiscard]] std::string Finish()
    {
        EXPECT_TRUE(mModel->WaitForWriteJob(mErrors) && mModel->FinishIndexFile(mErrors));
        EXPECT_EQ(gGetOnlyError(mErrors), "");
        return ReadFile("Find.dat");
    }

    TimelinePlugin mPlugin{gGetTimelineRegistry()};
    SessionFixture mWorld{At("game/game.session"), 0};
    System::JobScheduler mScheduler{1};
    std::unique_ptr<FindProcessingModel> mModel;
    Utility::ErrorState mErrors;
    Serialization::ReaderErrorState mReaderErrors;
};

TEST_F(FindIndexTest, IsWrittenToTheByte)
{
    Open(At("Find.dat"), mScheduler);
    EXPECT_EQ(Finish(), StoredIndex().Build()) << "no threads";

    // In the order in which they end, and the table by id, as a signed number. Chunks are sorted, and nothing is there twice.
    Open(At("Find.dat"), mScheduler);
    RunThread(5, 0x10, 0x2A,
              {{7, 9}, {5, 5}, {7, 12}, {9, 9}, {9, 9}, {3, 4}, {7, 7}, {7, 9}, {7, 10}, {-3, -3}, {5, 5}, {7, 12}});
    EXPECT_TRUE(mModel->DestroyThreadInvocationData(77, mErrors)) << "it has no data";
    RunThread(-1, 0x20, 0xC0000001, {{3, 3}});
    RunThread(3, sNoAddress, 0x3FFFFFFF, {{0, 0}}); // what marks free places in the table
    StoredIndex stored;
    stored.AddThread(5, 0x10, 0x2A, {3, 4, 7, 12, 7, 10, 7, 9, -3, 5, 7, 9}, 4);
    stored.AddThread(-1, 0x20, 0xC0000001, {3}, 0);
    stored.AddThread(3, gCompress(std::string(8, '\0')));
    EXPECT_EQ(Finish(), stored.Build());
    EXPECT_EQ(Finish(), stored.Build()) << "a second time";
}

TEST_F(FindIndexTest, FunctionsAreToldApartByAddressAndTheLow30Bits)
{
    Open(At("Find.dat"), mScheduler);
    RunThread(3, 0, 0, {});
    ThreadInvocationData& data = mModel->CreateThreadInvocationData(4);
    for (uint32_t i = 0; i < 12000; ++i) // 1000 addresses in three modules, each with all of the bits that don't count
        FindProcessingModel::AddInvocation(data, 0x4000 - i / 12 * 16, {~i << 30 | i % 3}, static_cast<int32_t>(i), 20000);
    EXPECT_TRUE(mModel->DestroyThreadInvocationData(4, mErrors));
    const std::string file = Finish();
    ThreadsModel owner(mPlugin, mWorld.GetSession());
    FindModel& model = owner.GetFindModel();
    ASSERT_TRUE(model.LoadIndex(At("Find.dat"), mReaderErrors));
    EXPECT_EQ(gReadFunctions(model, 3) + gReadFunctions(model, 5), 0U);
    const std::vector<FindFunctionEntry> entries = model.ReadThreadFunctions(EFindSet::ContextResults, 4);
    ASSERT_EQ(entries.size(), 3000U);
    for (uint32_t i = 0; i < entries.size(); ++i)
    {
        const FindFunctionEntry& entry = entries[i];
        EXPECT_EQ(entry.Function, (ResolvedAddress{0x4000 - (999 - i / 3) * 16, {i % 3}}));
        ByteWriter block;
        for (uint32_t chunk = (999 - i / 3) * 12 + i % 3, end = chunk + 12; chunk < end; chunk += 3)
            block.Add(chunk).Add(uint32_t{20000});
        EXPECT_EQ(file.substr(entry.BlockOffset, entry.BlockSize), gCompress(gToText(block)));
        Utility::ByteBuffer read;
        EXPECT_TRUE(model.ReadBlock(EFindSet::FindResults, entry.BlockOffset, entry.BlockSize, read));
        EXPECT_EQ(entry.NumRanges * 8, read.GetSize());
    }
}

TEST_F(FindIndexTest, DamagedFilesAreRefusedAndLeaveNothingLoaded)
{
    StoredIndex stored;
    stored.AddThread(-1, 0x10, 1, {1, 2, 3}, 1);
    stored.AddThread(7, 0x20, 2, {1, 2, 3}, 1);
    const std::string sound = stored.Build();
    WriteFile("sound", sound);
    const auto load = [&](const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
    {
        ThreadsModel owner(mPlugin, mWorld.GetSession());
        FindModel& model = owner.GetFindModel();
        EXPECT_TRUE(model.LoadIndex(At("sound"), ioErrors));
        EXPECT_EQ(gReadFunctions(model, 7), 1U);
        const bool isLoaded = model.LoadIndex(inPath, ioErrors);
        EXPECT_EQ(model.GetSections().size(), 0U);
        return isLoaded;
    };
    const std::string file = At("damaged");
    const std::string closed = "Failed to open " + file + " for reading";
    ExpectUnreadable(closed, "Failed to read header from " + file, closed, load);

    const std::string corrupt = "Unable to read find index: file is corrupt";
    const std::string unreadable = "Failed to read from " + file;
    std::string noFrame = sound;
    noFrame[stored.Sections.size()] ^= 1;
    ExpectRefused(
        {
            {"", corrupt},
            {sound.substr(sound.size() - 39), corrupt},
            {std::string(40, '\0'), corrupt},
            {sound.substr(0, sound.size() - 1) + '!', corrupt},
            {stored.Build(1), corrupt},                                        // a thread more than is there
            {stored.Build(uint64_t{1} << 60), corrupt},                        // and so many that their bytes wrap around
            {gChangeFooter(sound, 0, 1), corrupt},                             // the magic
            {gChangeFooter(sound, 24, 1), corrupt},                            // the hash of the table
            {gChangeFooter(sound, 16, stored.Sections.size() + 1), corrupt},   // one byte more than there are
            {gChangeFooter(sound, 16, stored.Sections.size()), unreadable},    // as many, but they begin further behind
            {gChangeFooter(sound, 16, uint64_t{0} - 1), unreadable},           // a part of the frame
            {gChangeFooter(sound, 8, sound.size()), unreadable},               // a place behind the end
            {gChangeFooter(sound, 8, uint64_t{0} - sound.size()), unreadable}, // and far behind
            {noFrame, unreadable},
        },
        load);

    // Sections have no hash. What is there of them is read, and what isn't is no reason to stop.
    stored.AddThread(1, gCompress("short"));
    stored.AddThread(2, "no frame");
    stored.AddThread(3, gCompress(std::string(8, '\xFF') + std::string(80, '\0')));
    stored.Threads[4] = {~uint64_t{0}, 10};
    WriteFile("damaged", gChangeFooter(stored.Build(), 0, uint64_t{5} << 32)); // its number of threads doesn't count
    ThreadsModel owner(mPlugin, mWorld.GetSession());
    FindModel& model = owner.GetFindModel();
    EXPECT_TRUE(model.LoadIndex(file, mReaderErrors));
    for (const auto& [thread, count] : {std::pair(1, 0U), std::pair(2, 0U), std::pair(4, 0U), std::pair(3, 2U), std::pair(7, 1U)})
        EXPECT_EQ(gReadFunctions(model, thread), count) << thread;
}

TEST_F(FindIndexTest, WhatCannotBeWrittenIsToldAtEveryCall)
{
    FindProcessingModel nowhere(At("missing/Find.dat"), mScheduler);
    EXPECT_FALSE(nowhere.OpenIndexFile(mErrors));
    EXPECT_EQ(gGetOnlyError(mErrors), "Failed to open " + At("missing/Find.dat") + " for writing");
    for (const int numFunctions : {1, 20000}) // a small section is held back by the stream until it is closed
    {
        const bool isLarge = numFunctions > 1;
        Open("/dev/full", mScheduler);
        RunThread(1, numFunctions);
        mModel->CreateThreadInvocationData(2);
        for (int i = 0; i < 3; ++i)
        {
            Utility::ErrorState errors[3];
            EXPECT_EQ(mModel->WaitForWriteJob(errors[0]), !isLarge);
            EXPECT_EQ(gGetOnlyError(errors[0]), isLarge ? "Failed to write find index" : "");
            EXPECT_EQ(mModel->DestroyThreadInvocationData(2, errors[1]), !isLarge) << "it stays if it can't be written";
            EXPECT_EQ(gGetOnlyError(errors[1]), isLarge ? "Failed to write find index" : "");
            EXPECT_TRUE(mModel->DestroyThreadInvocationData(1, errors[2])) << "it is gone";
            EXPECT_EQ(mModel->WaitForWriteJob(mErrors), !isLarge);
            EXPECT_FALSE(mModel->FinishIndexFile(errors[2]));
            EXPECT_EQ(gGetOnlyError(errors[2]), "Failed to write to /dev/full");
        }
    }
}

TEST_F(FindIndexTest, ACanceledThreadHasNoSectionAndHoldsNobodyUp)
{
    System::JobScheduler scheduler(0); // jobs run when they are waited for
    Open(At("Find.dat"), scheduler);
    RunThread(1, 1);
    scheduler.CancelMatchingJobs(System::sNoJobNumber);
    RunThread(2, 0x20, 2, {{0, 1}});
    StoredIndex stored;
    stored.AddThread(2, 0x20, 2, {0, 1}, 1);
    EXPECT_EQ(Finish(), stored.Build());

    // Destroyed before its job has begun, and in the middle of it.
    Open(At("Find.dat"), scheduler);
    RunThread(1, 1);
    mModel.reset();
    EXPECT_EQ(ReadFile("Find.dat"), "");
    Open(At("Find.dat"), mScheduler);
    RunThread(1, 20000);
    mModel.reset();
}

} // namespace
} // namespace Profiler
