#include "Tests/ThreadsModel/IndexFileFixture.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadData.h"
#include "ThreadsModel/ReadyThreads/ReadyThreadProcessingModel.h"
#include "ThreadsModel/ThreadStreamingManager.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <random>

using testing::ElementsAre;
using testing::SizeIs;

namespace Profiler
{
namespace
{

using Host::ByteWriter;

constexpr uint32_t sFirstOfLevel2 = 0x20000000;

// The frame of a chunk by hand, for records of different times.
std::string gBuildChunk(const std::vector<ReadyRecord>& inRecords)
{
    std::vector<uint16_t> positions(inRecords.size());
    std::iota(positions.begin(), positions.end(), uint16_t{0});
    std::ranges::sort(positions, {}, [&](uint16_t inPosition) { return inRecords[inPosition].ReadyTime; });
    ByteWriter bytes;
    bytes.Add(static_cast<uint32_t>(inRecords.size()));
    for (const uint16_t position : positions)
        bytes.Add(position);
    for (const ReadyRecord& record : inRecords)
    {
        bytes.Add(record.ReadyTime).Add(record.WaitStart).Add(record.WaitEnd).Add(record.WaitState);
        bytes.Add(record.SwitchInStack).Add(record.ReadyStack).Add(record.ReadiedThreadID).Add(record.ReadyingThreadID);
    }
    return gCompress(gToText(bytes));
}

// A file by hand.
std::string gBuildFile(const std::string& inChunks, const ByteWriter& inHeader)
{
    ByteWriter footer;
    footer.Add(uint64_t{0x695D201FFE2E19E4}).Add(inChunks.size()).Add(inHeader.Bytes.size()).Add(gHash(gToText(inHeader)));
    return inChunks + gToText(inHeader) + gToText(footer.Add(gHash(gToText(footer))));
}

class ReadyThreadsTest : public IndexFileTest
{
protected:
    void Open(const std::string& inPath)
    {
        mModel.emplace(inPath);
        ASSERT_TRUE(mModel->OpenFile(mErrors));
    }
    // Records that don't compress well, each with a wait and a run of so many milliseconds.
    std::vector<ReadyRecord> Commit(size_t inCount, double inLength)
    {
        std::vector<ReadyRecord> records(inCount);
        for (ReadyRecord& record : records)
        {
            record = {std::ldexp(mRandom(), -40), 0.0, inLength, 4, mRandom(), mRandom(), static_cast<int32_t>(mRandom()), 3};
            EXPECT_TRUE(mModel->CommitReady(record, mModel->NewReadyIndex(), mErrors, 5.0, 5.0 + inLength));
        }
        return records;
    }
    // Gives the file, which is loaded as well.
    std::string Finish()
    {
        EXPECT_TRUE(mModel->FinishWriting(mErrors) && mModel->WriteHeader(mErrors)) << GetErrorText(mErrors);
        EXPECT_TRUE(mData.Load(At("file"), mReaderErrors)) << GetErrorText(mReaderErrors);
        return ReadFile("file");
    }

    std::mt19937_64 mRandom;
    std::optional<ReadyThreadProcessingModel> mModel;
    System::JobScheduler mScheduler{0};
    ThreadStreamingManager mManager{At("Threads.dat"), At("file"), mScheduler};
    ReadyThreadData mData{mManager};
    Utility::ErrorState mErrors;
    Serialization::ReaderErrorState mReaderErrors;
};

TEST_F(ReadyThreadsTest, TheFileIsWrittenToTheByte)
{
    Open(At("file"));
    EXPECT_EQ(Finish(), gBuildFile("", ByteWriter().Add(uint8_t{0}).Add(uint64_t{0}))) << "nobody was readied";

    // Two full chunks of level 0 and a beginning of one, and less than one of level 2. The last record is from before the start.
    Open(At("file"));
    std::vector<ReadyRecord> first = Commit(10000, 0.0);
    std::vector<ReadyRecord> coarse = Commit(3, 0.5);
    std::vector<ReadyRecord> second = Commit(10000, 0.0);
    std::vector<ReadyRecord> last(1, {-5.0, 0.0, 0.0, 9, 0xA, 0xB, -1, 8});
    EXPECT_EQ(mModel->NewReadyIndex(), 20003U);
    EXPECT_EQ(mModel->NewReadyIndex(), 20004U);
    ReadyThreadProcessingModel::SetWaitInfo(last[0], ThreadState::Sleep, 0xC, 1.0, 2.0);
    EXPECT_EQ(last[0], (ReadyRecord{-5.0, 1.0, 2.0, 4, 0xC, 0xB, -1, 8}));
    EXPECT_TRUE(mModel->CommitReady(last[0], 20004, mErrors, 3.0, 3.01));

    std::string chunks;
    ByteWriter header;
    const auto addChunk = [&](const std::vector<ReadyRecord>& inRecords)
    {
        const std::string frame = gBuildChunk(inRecords);
        const auto [least, greatest] = std::ranges::minmax(inRecords, {}, &ReadyRecord::ReadyTime);
        header.Add(least.ReadyTime).Add(std::max(greatest.ReadyTime, 0.0)).Add(chunks.size()).Add(frame.size());
        chunks += frame;
    };
    header.Add(uint8_t{3}).Add(3U);
    for (const auto* records : {&first, &second, &last})
        addChunk(*records);
    header.Add(0U).Add(1U);
    addChunk(coarse);
    header.Add(uint64_t{20005});
    for (uint32_t i = 0; i < 20003; ++i)
        header.Add(i < 10000 ? i : i < 10003 ? sFirstOfLevel2 + i - 10000 : i - 3);
    header.Add(~0U).Add(20000U);
    EXPECT_EQ(Finish(), gBuildFile(chunks, header));
    EXPECT_EQ(Finish(), gBuildFile(chunks, header)) << "a second time";
    EXPECT_EQ(mData.GetRecordID(10002), sFirstOfLevel2 + 2);
    EXPECT_EQ(mData.GetRecordID(20005), ~0U) << "there is none";
    ASSERT_THAT(mData.GetLevels(), ElementsAre(SizeIs(3), SizeIs(0), SizeIs(1)));
    EXPECT_EQ(mData.GetLevels()[2][0].Offset, chunks.size() - gBuildChunk(coarse).size());
}

TEST_F(ReadyThreadsTest, TheShorterOfWaitAndRunGivesTheLevel)
{
    std::vector<std::pair<double, uint32_t>> lengths = {{-5.0, 0}, {0.0, 0}, {1e9, 0}, {HUGE_VAL, 0}};
    uint32_t level = 0;
    for (const float threshold : {0.0316F, 0.1F, 0.316F, 1.0F, 3.16F, 10.0F, 100.0F, 1000.0F})
    {
        lengths.emplace_back(std::nextafter(2.0 * static_cast<double>(threshold), 0.0), level++);
        lengths.emplace_back(2.0 * static_cast<double>(threshold), level % 8); // what is above all levels belongs to the first
    }
    Open(At("file"));
    for (const auto& [length, expected] : lengths)
    {
        ReadyRecord record;
        record.WaitEnd = length;
        EXPECT_TRUE(mModel->CommitReady(record, mModel->NewReadyIndex(), mErrors, 0.0, 1e12));
        record.WaitEnd = 1e12;
        EXPECT_TRUE(mModel->CommitReady(record, mModel->NewReadyIndex(), mErrors, 0.0, length));
    }
    Finish();
    for (uint32_t i = 0; i < 2 * lengths.size(); ++i)
        EXPECT_EQ(mData.GetRecordID(i) >> 28, lengths[i / 2].second) << lengths[i / 2].first << " ms, " << i % 2;
}

TEST_F(ReadyThreadsTest, AThreadThatEndsClosesItsRecord)
{
    const ReadyRecord begun = {5.0, 1.0, 6.0, 4, 0xA, 0xB, 7, 8};
    std::array<ReadyRecord, 3> records = {begun, begun, begun};
    Open(At("file"));
    const auto close = [&](size_t inIndex, ThreadState inState, double inStart, double inEnd)
    { EXPECT_TRUE(mModel->CloseReady(records[inIndex], mModel->NewReadyIndex(), inState, mErrors, inStart, inEnd)); };
    close(0, ThreadState::Executing, 10.0, 10.5);
    close(1, ThreadState::IO, 2.0, 2.5);
    close(2, ThreadState::Finished, 0.0, 4000.0);
    EXPECT_THAT(records, ElementsAre(begun, ReadyRecord{5.0, 2.0, 2.5, 2, ~uint64_t{0}, 0xB, 7, 8},
                                     ReadyRecord{5.0, 0.0, 4000.0, 10, ~uint64_t{0}, 0xB, 7, 8}));
    Finish();
    EXPECT_EQ(mData.GetRecordID(0), sFirstOfLevel2);
    EXPECT_EQ(mData.GetRecordID(1), sFirstOfLevel2 + 1);
    EXPECT_EQ(mData.GetRecordID(2) >> 28, 7U) << "of a run of 1000 ms";
}

TEST_F(ReadyThreadsTest, DamagedFilesAreRefusedAndWhatWasLoadedStays)
{
    Open(At("file"));
    Commit(1, 0.5);
    Finish();
    const auto load = [&](const std::string& inPath, Serialization::ReaderErrorState& ioErrors)
    {
        const bool isLoaded = mData.Load(inPath, ioErrors);
        EXPECT_EQ(mData.GetLevels().size(), 3U);
        EXPECT_EQ(mData.GetRecordID(0), sFirstOfLevel2);
        return isLoaded;
    };
    const std::string file = At("damaged");
    ExpectUnreadable("Could not get file size for " + file, "Unable to read from ready thread file " + file,
                     "Unable to open file " + file + " for reading.", load);

    const auto build = [](uint8_t inNumLevels, uint32_t inNumChunks, uint64_t inNumIndices)
    {
        ByteWriter header;
        header.Add(inNumLevels).Add(inNumChunks).AddBytes(std::vector<uint8_t>(32)).Add(inNumIndices).Add(uint64_t{1});
        return gBuildFile("chunk", header);
    };
    const std::string sound = build(1, 1, 2);
    const std::string foreign = "ReadyThread file " + file + " is not a Brenvaldoris file";
    const std::string corrupt = "ReadyThread file " + file + " is corrupt";
    const std::string wrongHeader = corrupt + ": header checksum mismatch";
    ExpectRefused(
        {
            {"", corrupt},
            {sound.substr(sound.size() - 39), corrupt},
            {std::string(40, '\0'), foreign},
            {gChangeFooter(sound, 0, 1), foreign},
            {gChangeFooter(sound, 16, 40), corrupt},                         // up to the end of the file
            {gChangeFooter(sound, 8, uint64_t{0} - 6), corrupt},             // a sum that wraps around
            {gChangeFooter(sound, 16, uint64_t{0} - sound.size()), corrupt}, // a size beyond all files
            {sound.substr(0, sound.size() - 1) + '!', corrupt + ": file header checksum mismatch"},
            {gChangeFooter(sound, 16, 39), wrongHeader}, // up to the last byte but one
            {gChangeFooter(sound, 24, 1), wrongHeader},
            {gBuildFile("", {}), wrongHeader},
            {build(255, 1, 2), wrongHeader},
            {build(1, 2, 2), wrongHeader},
            {build(1, ~0U, 2), wrongHeader},
            {build(1, 1, 3), wrongHeader},
            {build(1, 1, (uint64_t{1} << 62) + 2), wrongHeader}, // whose bytes wrap around
        },
        load);
    constexpr uint64_t size = uint64_t{8} << 40;
    std::error_code error;
    std::filesystem::resize_file(file, size, error);
    if (!error) // the file system has files of that size
    {
        std::ofstream(file, std::ios::binary | std::ios::app) << gChangeFooter(gBuildFile("", {}), 16, size);
        ExpectRefused("Unable to read from ready thread file", load);
    }
    WriteFile("damaged", sound);
    EXPECT_TRUE(mData.Load(file, mReaderErrors));
    EXPECT_EQ(mData.GetRecordID(0), 1U);
}

TEST_F(ReadyThreadsTest, AFullDiskIsToldAtEveryCall)
{
    ReadyThreadProcessingModel nowhere(At("missing/file"));
    EXPECT_FALSE(nowhere.OpenFile(mErrors));
    EXPECT_EQ(gGetOnlyError(mErrors), "Unable to open file " + At("missing/file") + " for writing.");
    for (const bool isLarge : {false, true}) // a small chunk is held back by the stream until it is closed
    {
        Open("/dev/full");
        Commit(isLarge ? 10000 : 1, 0.0);
        for (int i = 0; i < 3; ++i)
        {
            Utility::ErrorState errors[3];
            EXPECT_EQ(mModel->FinishWriting(errors[0]), !isLarge);
            EXPECT_EQ(gGetOnlyError(errors[0]), isLarge ? "Could not write to ready thread file /dev/full" : "");
            EXPECT_EQ(mModel->CommitReady({}, 0, errors[1], 0.0, 0.0), !isLarge);
            EXPECT_EQ(gGetOnlyError(errors[1]), isLarge ? "Could not write to ready thread file /dev/full" : "");
            EXPECT_FALSE(mModel->WriteHeader(errors[2]));
            EXPECT_EQ(gGetOnlyError(errors[2]), "Could not write header to ready thread file /dev/full");
        }
    }
}

TEST_F(ReadyThreadsTest, CancellationAndDestructionDropWhatIsLeft)
{
    for (const bool isCanceled : {true, false})
    {
        Open(At("file"));
        Commit(1, 0.0);
        if (isCanceled)
            mModel->CancelWriting();
        mModel.reset();
        EXPECT_EQ(ReadFile("file"), "");
    }
}

} // namespace
} // namespace Profiler
