// Which records of who readied whom a view of a span of time gets.
#include "Tests/ThreadsModel/IndexFileFixture.h"
#include "Tests/ThreadsModel/StreamingFixture.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadData.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadProcessingModel.h"
#include "Utility/Format.h"

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <optional>

namespace Profiler
{
namespace
{

constexpr float sNoFadeLimit = 2.0F;
constexpr size_t sChunkSize = ReadyThreadChunk::sMaxRecords;

uint32_t gID(uint32_t inLevel, uint32_t inNumber)
{
    return inLevel << sReadyIDLevelShift | inNumber;
}

// What one asks for, beside the span.
struct View
{
    float Scale = 0.0F;
    float BaseScale = 0.0F;
    float FadeLimit = sNoFadeLimit;
    uint32_t First = sNoReadyRecord;
    uint32_t Second = sNoReadyRecord;
    std::unordered_set<uint32_t> Pinned = {};
};

// ReadyThreads.dat as a pass writes it. What is in memory stays there, since time stands still.
class ReadyThreadsQueryTest : public TemporaryDirectoryTest
{
protected:
    ReadyThreadsQueryTest()
    {
        ThreadStreamingManager::Options options;
        auto file = std::make_unique<FaultyChunkFile>();
        mFile = file.get();
        options.ReadyThreadsFile = std::move(file);
        options.GetSeconds = [] { return 100.0; };
        mManager.emplace(At("Threads.dat"), At("ReadyThreads.dat"), mScheduler, std::move(options));
        mData.emplace(*mManager);
        WriteFile("Threads.dat");
    }

    // A record of the level for each time.
    void Commit(uint32_t inLevel, const std::vector<double>& inTimes)
    {
        if (!mModel)
        {
            mModel.emplace(At("ReadyThreads.dat"));
            EXPECT_TRUE(mModel->OpenFile(mErrors));
        }
        for (const double time : inTimes)
        {
            ReadyRecord record;
            record.ReadyTime = time;
            record.WaitEnd = 1e9;
            const double run = 2.5 * static_cast<double>(sLODThresholds[inLevel]);
            EXPECT_TRUE(mModel->CommitReady(record, mModel->NewReadyIndex(), mErrors, 0.0, run));
            mTimes[gID(inLevel, mCounts[inLevel]++)] = time;
        }
    }
    // Ends the file and opens it, with nothing in memory.
    void Finish()
    {
        EXPECT_TRUE(!mModel || (mModel->FinishWriting(mErrors) && mModel->WriteHeader(mErrors))) << GetErrorText(mErrors);
        Serialization::ReaderErrorState errors;
        EXPECT_TRUE(mData->Load(At("ReadyThreads.dat"), errors)) << GetErrorText(errors);
        EXPECT_TRUE(mManager->OpenChunkFile(false, mErrors) && mManager->OpenReadyThreadFile(mErrors)) << GetErrorText(mErrors);
    }
    // Waits until all chunks are in memory, or known to be damaged.
    void LoadAll()
    {
        for (size_t level = 0; level < mData->GetLevels().size(); ++level)
        {
            for (size_t chunk = 0; chunk < mData->GetLevels()[level].size(); ++chunk)
            {
                Gate isThere;
                mHeld.push_back(mData->LoadChunk(level, chunk, [&isThere](Chunk*) { isThere.Open(); }));
                isThere.WaitUntilOpen();
            }
        }
    }

    void Open()
    {
        Finish();
        LoadAll();
    }

    // The primary and the secondary records, "0:3 0:9 | 1:2".
    std::string Query(double inStart, double inEnd, const View& inView)
    {
        mData->GetReadyThreads(inView.First, inView.Second, inView.Pinned, mResult, inStart, inEnd, inView.FadeLimit,
                               inView.Scale, inView.BaseScale);
        return Print(mResult.Primary) + " | " + Print(mResult.Secondary);
    }
    float GetBlend(const View& inView)
    {
        static_cast<void>(Query(0.0, 1.0, inView));
        return mResult.Blend;
    }

    std::string Print(const ReadyThreadsResult::RecordList& inRecords) const
    {
        std::string text;
        for (const auto& [record, id] : inRecords)
        {
            EXPECT_EQ(record->ReadyTime, mTimes.at(id)) << std::hex << id;
            text += Utility::gFormat("%s%u:%u", text.empty() ? "" : " ", id >> sReadyIDLevelShift, id & sReadyIDNumberMask);
        }
        return text;
    }

    System::JobScheduler mScheduler{2};
    FaultyChunkFile* mFile = nullptr; // the manager's
    std::optional<ThreadStreamingManager> mManager;
    std::optional<ReadyThreadData> mData;
    std::optional<ReadyThreadProcessingModel> mModel;
    std::map<uint32_t, double> mTimes; // by record
    std::array<uint32_t, 9> mCounts = {};
    Utility::ErrorState mErrors;
    std::vector<TypedChunkHandle<ReadyThreadChunk>> mHeld;
    ReadyThreadsResult mResult;
};

TEST_F(ReadyThreadsQueryTest, TheScaleChoosesThePrimaryLevel)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (uint32_t level = 0; level < 8; ++level)
        Commit(level, {1.0});
    Open();
    std::map<float, uint32_t> expected = {{-infinity, 0}, {-1.0F, 0}, {0.0F, 0}, {1000.0F, 7}, {1e9F, 7}, {infinity, 7}};
    for (uint32_t level = 1; level < 8; ++level)
    {
        expected[std::nextafter(sLODThresholds[level], 0.0F)] = level - 1;
        expected[sLODThresholds[level]] = level;
    }
    for (const auto& [scale, primary] : expected)
    {
        std::string records = Utility::gFormat("%u:0 |", primary);
        for (uint32_t level = primary + 1; level < 8; ++level)
            records += Utility::gFormat(" %u:0", level);
        EXPECT_EQ(Query(0.0, 2.0, {.Scale = scale}), records + (primary == 7 ? " " : "")) << scale;
    }
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = std::nanf("")}), "7:0 | ") << "above no threshold";
    EXPECT_EQ(mResult.Blend, 0.0F);
}

TEST_F(ReadyThreadsQueryTest, AFileMayHaveFewerLevelsThanTheScaleAsksFor)
{
    Commit(0, {1.0});
    Commit(2, {1.0});
    Open();
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 0.05F}), " | 2:0") << "a level without chunks";
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 5.0F}), " | ");
    EXPECT_EQ(mResult.Blend, (5.0F - 3.16F) / (10.0F - 3.16F));
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 5.0F, .First = gID(0, 0), .Pinned = {gID(2, 0)}}), " | 0:0");
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 1000.0F}), "2:0 | ") << "coarser than all thresholds";
    EXPECT_EQ(mResult.Blend, 1.0F);
}

TEST_F(ReadyThreadsQueryTest, OneLevelIsAlwaysThePrimaryOne)
{
    Commit(0, {1.0});
    Open();
    for (const float scale : {0.0F, 0.0316F, 5.0F, 1e9F})
        EXPECT_EQ(Query(0.0, 2.0, {.Scale = scale}), "0:0 | ") << scale;
    EXPECT_EQ(GetBlend({.Scale = 0.0316F, .BaseScale = 0.0316F}), 0.0F) << "zero by zero";
    EXPECT_EQ(GetBlend({.Scale = 5.0F, .BaseScale = 0.0316F}), 1.0F) << "infinite";
}

// Levels by hand: none, and more than a pass makes.
TEST_F(ReadyThreadsQueryTest, AnyNumberOfLevelsHasAnAnswer)
{
    for (const int numLevels : {0, 9, 10, 255})
    {
        SCOPED_TRACE(numLevels);
        Host::ByteWriter header;
        header.Add(static_cast<uint8_t>(numLevels))
            .AddBytes(std::vector<uint8_t>(static_cast<size_t>(4 * numLevels)))
            .Add(uint64_t{0});
        Host::ByteWriter footer;
        footer.Add(ReadyThreadFooter::sMagic).Add(uint64_t{0}).Add(header.Bytes.size()).Add(gHash(gToText(header)));
        WriteFile("ReadyThreads.dat", gToText(header) + gToText(footer.Add(gHash(gToText(footer)))));
        Serialization::ReaderErrorState errors;
        if (!mData->Load(At("ReadyThreads.dat"), errors))
        {
            EXPECT_GT(numLevels, 9) << GetErrorText(errors);
            continue;
        }
        for (const float scale : {0.0F, 999.0F, 1000.0F, 2000.0F})
            EXPECT_EQ(Query(0.0, 2.0, {.Scale = scale, .First = gID(0, 0), .Pinned = {gID(8, 0), gID(15, 0)}}), " | ") << scale;
        EXPECT_EQ(mResult.Blend, 0.0F) << "no level is coarser";
    }
}

TEST_F(ReadyThreadsQueryTest, ThePrimaryLevelFadesFromThresholdToThreshold)
{
    Commit(0, {1.0});
    Commit(1, {1.0});
    Open();
    EXPECT_EQ(GetBlend({.Scale = 0.05F}), (0.05F - 0.0316F) / (0.1F - 0.0316F)) << "in single precision";
    EXPECT_EQ(GetBlend({.Scale = 0.0316F}), 0.0F);
    EXPECT_EQ(GetBlend({.Scale = 0.0158F}), 0.5F);
    EXPECT_EQ(GetBlend({.Scale = 0.02F, .BaseScale = 0.01F}), (0.02F - 0.01F) / (0.0316F - 0.01F));
    EXPECT_EQ(GetBlend({.Scale = 0.05F, .BaseScale = 0.04F}), (0.05F - 0.0316F) / (0.1F - 0.0316F)) << "of level 0 alone";
    EXPECT_EQ(GetBlend({.Scale = 0.01F, .BaseScale = 0.02F}), 0.0F) << "clamped";
    EXPECT_EQ(GetBlend({.Scale = 0.01F, .BaseScale = 1.0F}), 1.0F) << "clamped";
    EXPECT_EQ(GetBlend({.Scale = 0.01F, .BaseScale = 0.01F}), 0.0F);
    EXPECT_EQ(GetBlend({.Scale = 0.02F, .BaseScale = 0.0316F}), 0.0F) << "minus infinity";

    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 0.0158F, .FadeLimit = 0.5F}), " | 1:0");
    EXPECT_EQ(mResult.Chunks.size(), 1U) << "what has faded isn't loaded either";
    EXPECT_EQ(Query(0.0, 2.0, {.Scale = 0.0158F, .FadeLimit = std::nextafter(0.5F, 1.0F)}), "0:0 | 1:0");
    EXPECT_EQ(Query(0.0, 2.0, {.FadeLimit = 0.0F}), " | 1:0");
}

TEST_F(ReadyThreadsQueryTest, ASpanBeginsWithTheRecordBefore)
{
    Commit(0, {40.0, 20.0, 10.0, 20.0, 30.0}); // positions in order of time: 2, 1 and 3, 4, 0
    Commit(1, {-30.0, -20.0});
    Open();
    const std::pair<std::pair<double, double>, const char*> cases[] = {
        {{0.0, 9.0}, " | 1:1"},       {{5.0, 9.0}, " | "},
        {{5.0, 10.0}, "0:2 | "},      {{10.0, 15.0}, "0:2 | "},
        {{15.0, 16.0}, "0:2 | "},     {{15.0, 20.0}, "0:2 0:1 0:3 | "},
        {{20.0, 25.0}, "0:3 | "}, // the last one of its time
        {{20.0, 30.0}, "0:3 0:4 | "}, {{40.0, 50.0}, "0:0 | "},
        {{41.0, 50.0}, " | "},        {{-1e300, 1e300}, "0:2 0:1 0:3 0:4 0:0 | 1:0 1:1"},
        {{25.0, 15.0}, " | "},        {{-25.0, -21.0}, " | 1:0"},
        {{-5.0, -1.0}, " | 1:1"}, // chunks of negative times end at 0
    };
    for (const auto& [span, expected] : cases)
        EXPECT_EQ(Query(span.first, span.second, {}), expected) << span.first << ".." << span.second;
}

TEST_F(ReadyThreadsQueryTest, EveryChunkOfTheSpanBeginsWithTheRecordBefore)
{
    std::vector<double> times(sChunkSize + 5);
    std::iota(times.begin(), times.end(), 0.0);
    times.insert(times.end(), {9000.0, 9001.0});
    Commit(0, times);
    Commit(1, {1.0});
    Open();
    EXPECT_EQ(Query(9998.5, 10001.5, {}), "0:9998 0:9999 0:10006 0:10000 0:10001 | ");
    EXPECT_EQ(mResult.Chunks.size(), 2U);
    EXPECT_EQ(Query(10002.0, 10003.0, {}), "0:10002 0:10003 | ");
    EXPECT_EQ(mResult.Chunks.size(), 1U);
    EXPECT_EQ(Query(-5.0, 0.5, {.First = gID(0, 10004), .Second = gID(0, 9999)}), "0:0 0:9999 0:10004 | ");
}

TEST_F(ReadyThreadsQueryTest, WhatIsntInMemoryIsFoundByALaterCall)
{
    Gate disk;
    mFile->OnRead = [&disk]
    {
        disk.WaitUntilOpen();
        return true;
    };
    Commit(0, {1.0});
    Commit(1, {1.0, 50.0});
    Commit(2, {50.0});
    Finish();
    const View view = {.First = gID(2, 0), .Second = gID(1, 1)};
    EXPECT_EQ(Query(0.0, 2.0, view), " | ");
    EXPECT_EQ(mResult.Chunks.size(), 4U) << "of two spans, and of two records";
    for (const auto& handle : mResult.Chunks)
        EXPECT_EQ(handle.Get(), nullptr);
    const ReadyThreadsResult first = std::exchange(mResult, {});
    EXPECT_EQ(Query(0.0, 2.0, view), " | ");
    disk.Open();
    LoadAll();
    EXPECT_EQ(Query(0.0, 2.0, view), "0:0 | 1:0 1:1 2:0");
    EXPECT_EQ(mFile->NumReads, 3) << "each is read once";
}

TEST_F(ReadyThreadsQueryTest, WantedRecordsAreGivenWhateverTheirTime)
{
    for (uint32_t level = 0; level < 4; ++level)
        Commit(level, {1.0, 2.0, 90.0});
    Open();
    const auto query = [&](uint32_t inFirst, uint32_t inSecond, const std::unordered_set<uint32_t>& inPinned,
                           double inStart = 50.0, float inFadeLimit = sNoFadeLimit)
    {
        return Query(inStart, inStart + 10.0,
                     {.Scale = 0.0316F, .FadeLimit = inFadeLimit, .First = inFirst, .Second = inSecond, .Pinned = inPinned});
    };
    const std::string before = "1:1 | 2:1 3:1"; // the last ones ahead of the span
    EXPECT_EQ(query(sNoReadyRecord, sNoReadyRecord, {}), before);
    EXPECT_EQ(query(gID(0, 0), gID(0, 1), {}), "1:1 | 2:1 3:1 0:0 0:1") << "below the primary level";
    EXPECT_EQ(query(gID(1, 2), gID(2, 0), {}), "1:1 1:2 | 2:1 3:1 2:0");
    EXPECT_EQ(query(gID(1, 2), gID(1, 2), {gID(1, 2)}), "1:1 1:2 | 2:1 3:1") << "wanted three times";
    EXPECT_EQ(query(sNoReadyRecord, sNoReadyRecord, {gID(0, 0), gID(1, 0), gID(3, 2)}), "1:1 1:0 | 2:1 3:1 3:2")
        << "pinned ones below the primary level are left out";
    EXPECT_EQ(query(gID(0, 0), sNoReadyRecord, {gID(0, 0)}), "1:1 | 2:1 3:1 0:0");
    EXPECT_EQ(query(gID(1, 1), gID(3, 1), {gID(2, 1)}), before) << "found by the levels";
    EXPECT_EQ(query(gID(1, 1), gID(2, 1), {}, 50.0, 0.0F), "1:1 | 2:1 3:1") << "the level has faded, the record hasn't";

    // Those that don't exist.
    EXPECT_EQ(query(gID(1, 3), gID(1, sChunkSize), {gID(4, 0), gID(15, 0), sNoReadyRecord, gID(2, sReadyIDNumberMask)}), before);
    EXPECT_EQ(mResult.Chunks.size(), 3U + 5U) << "a handle for each, but for the id that stands for none";
}

TEST_F(ReadyThreadsQueryTest, ADamagedChunkGivesNothing)
{
    for (uint32_t level = 0; level < 3; ++level)
        Commit(level, {1.0});
    Finish();
    mManager->CloseChunkFile();
    std::string file = ReadFile("ReadyThreads.dat");
    file[mData->GetLevels()[1][0].Offset] ^= 1;
    WriteFile("ReadyThreads.dat", file);
    mModel.reset();
    Finish();
    const LogCapture log;
    LoadAll();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Query(0.0, 2.0, {.Scale = 0.01F, .First = gID(1, 0)}), "0:0 | 2:0");
    mHeld.clear();
    mResult = {};
    EXPECT_EQ(Query(0.0, 2.0, {.First = gID(1, 0)}), "0:0 | 2:0");
    EXPECT_EQ(mManager->GetLoadErrors().size(), 1U);
    mManager->Close(); // a load may be on its way, which the log must outlive
}

} // namespace
} // namespace Profiler
