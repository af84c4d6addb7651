#include "FileSystem/File.h"
#include "Serialization/BinaryWriter.h"
#include "Serialization/Schema.h"
#include "Session/Callstacks/BrokenStackHolder.h"
#include "Session/Callstacks/BrokenStackReader.h"
#include "Session/Callstacks/BrokenStackWriter.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/SessionRegistry.h"
#include "Tests/Utility/LogCapture.h"
#include "Utility/Compression.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace Profiler
{
namespace
{

using Bytes = std::vector<uint8_t>;
using Chunk = BrokenStackIndex::Chunk;

constexpr double sNoEnd = std::numeric_limits<double>::max();

std::string gPrintRange(const BrokenRange& inRange)
{
    const std::string end = inRange.End == sNoEnd ? "end" : Utility::gFormat("%g", inRange.End);
    return Utility::gFormat("%g..", inRange.Start) + end +
           (inRange.Stack == sNoCallstack ? std::string() : " by " + std::to_string(inRange.Stack));
}

class BrokenStackFilesTest : public TemporaryDirectoryTest
{
protected:
    BrokenStackFilesTest() { Begin(); }

    // A new pass, whose writer appends to what is there.
    void Begin()
    {
        mWriter = std::make_unique<BrokenStackWriter>(At(""));
        ASSERT_TRUE(mWriter->Open(mErrors)) << Utility::GetErrorText(mErrors);
    }

    // One stack a line: time, thread, and the key of a good stack or "cut" for one that is cut short.
    void Add(const std::string& inStacks)
    {
        std::istringstream stream(inStacks);
        double time = 0.0;
        ThreadID thread = 0;
        for (std::string stack; stream >> time >> thread >> stack;)
            Add(time, thread, stack == "cut", stack == "cut" ? 1 : std::stoull(stack));
    }
    void Add(double inTime, ThreadID inThread, bool inIsCut, CallstackKey inStack)
    {
        ASSERT_TRUE(mWriter->AddStack(inThread, !inIsCut, inStack, inTime, mErrors)) << Utility::GetErrorText(mErrors);
    }

    // Ranges 10 milliseconds apart and 5 long, range i ended by stack i.
    void AddRanges(size_t inFirst, size_t inEnd, ThreadID inThread = 0)
    {
        for (size_t i = inFirst; i < inEnd; ++i)
        {
            const double start = 10.0 * static_cast<double>(i);
            Add(start, inThread, true, 1);
            Add(start + 5.0, inThread, false, i);
        }
    }

    void Finish() { ASSERT_TRUE(mWriter->Finish(mErrors)) << Utility::GetErrorText(mErrors); }

    bool Load() { return mHolder.Load(mRegistry, mErrors); }

    // What the failure of a load says.
    std::string LoadError()
    {
        Utility::ErrorState errors;
        EXPECT_FALSE(mHolder.Load(mRegistry, errors));
        EXPECT_EQ(mHolder.GetIndex(), nullptr);
        EXPECT_EQ(mHolder.FindChunks(0), nullptr);
        EXPECT_THAT(errors.GetEntries(), SizeIs(1));
        if (errors.GetEntries().empty())
            return {};
        EXPECT_EQ(errors.GetEntries()[0].Code, 0U);
        return errors.GetEntries()[0].Message;
    }

    // A line per chunk, by thread.
    std::string PrintFiles()
    {
        EXPECT_TRUE(Load()) << Utility::GetErrorText(mErrors);
        BrokenStackFile file;
        EXPECT_TRUE(file.Open(At("stacks.dat")));
        std::string text;
        for (const auto& [thread, chunks] :
             std::map(mHolder.GetIndex()->ChunksByThread.begin(), mHolder.GetIndex()->ChunksByThread.end()))
        {
            for (const Chunk& chunk : chunks)
            {
                std::vector<BrokenRange> ranges;
                EXPECT_TRUE(file.ReadChunk(chunk, ranges));
                text += std::to_string(thread) + ": ";
                for (const BrokenRange& range : ranges)
                    text += gPrintRange(range) + (&range == &ranges.back() ? "\n" : ", ");
            }
        }
        return text;
    }

    // How many ranges each chunk of a thread has.
    std::vector<size_t> CountRanges(ThreadID inThread)
    {
        EXPECT_TRUE(Load()) << Utility::GetErrorText(mErrors);
        BrokenStackFile file;
        EXPECT_TRUE(file.Open(At("stacks.dat")));
        std::vector<size_t> counts;
        for (const Chunk& chunk : *mHolder.FindChunks(inThread))
        {
            std::vector<BrokenRange> ranges;
            EXPECT_TRUE(file.ReadChunk(chunk, ranges));
            counts.push_back(ranges.size());
        }
        return counts;
    }

    [[nodiscard]] Bytes Read(const std::string& inName) const
    {
        Bytes bytes;
        EXPECT_TRUE(FileSystem::gReadFile(At(inName), bytes)) << inName;
        return bytes;
    }
    void WriteBytes(const std::string& inName, const Bytes& inBytes) const
    {
        WriteFile(inName, std::string(inBytes.begin(), inBytes.end()));
    }
    [[nodiscard]] uint64_t GetDataSize() const { return std::filesystem::file_size(At("stacks.dat")); }

    void WriteIndex(std::unordered_map<ThreadID, std::vector<Chunk>> inChunks)
    {
        BrokenStackIndex index;
        index.ChunksByThread = std::move(inChunks);
        const RTTI::Object* object = &index;
        ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("stacks.index"), {&object, 1}, mErrors));
    }

    // Makes stacks.dat one frame of the content, and has an entry of thread 0 point to it.
    void WriteChunk(const Bytes& inContent, double inStartTime, double inEndTime)
    {
        Utility::Compressor compressor;
        Utility::ByteBuffer frame;
        ASSERT_TRUE(compressor.Compress(inContent.data(), inContent.size(), frame));
        WriteBytes("stacks.dat", {frame.GetData(), frame.GetData() + frame.GetSize()});
        WriteIndex({{0, {{inStartTime, inEndTime, 0, frame.GetSize()}}}});
    }

    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    Utility::ErrorState mErrors;
    std::unique_ptr<BrokenStackWriter> mWriter;
    BrokenStackHolder mHolder{At("")};
};

// --- What is in the files ---

TEST_F(BrokenStackFilesTest, AChunkIsLaidOutToTheByte)
{
    Add("10 3 cut\n"
        "12 3 7\n"
        "13.5 3 cut\n");
    Finish();
    const Bytes file = Read("stacks.dat");
    Utility::Decompressor decompressor;
    Utility::ByteBuffer content;
    ASSERT_TRUE(decompressor.Decompress(file.data(), file.size(), content));
    Host::ByteWriter expected;
    expected.Add(uint64_t{2});
    expected.Add(10.0).Add(12.0).Add(uint64_t{7});
    expected.Add(13.5).Add(sNoEnd).Add(~uint64_t{0});
    EXPECT_EQ(Bytes(content.GetData(), content.GetData() + content.GetSize()), expected.Bytes);
}

TEST_F(BrokenStackFilesTest, TheIndexIsLaidOutToTheByte)
{
    WriteFile("stacks.dat", "old"); // which the open writer appends to
    Add("10 -3 cut\n"
        "12 -3 7\n"
        "13.5 -3 cut\n");
    Finish();
    // The container's data block, which ends the file.
    const std::string name = "Profiler::BrokenStackIndex";
    Host::ByteWriter expected;
    expected.Add(uint64_t{1}).Add(uint64_t{name.size()}).AddText(name);
    expected.Add(uint64_t{76}).Add(uint64_t{68}).Add(uint64_t{1}); // object, map with one entry
    expected.Add(int32_t{-3}).Add(uint64_t{48}).Add(uint64_t{1});  // thread, list with one chunk
    expected.Add(uint64_t{32}).Add(10.0).Add(sNoEnd).Add(uint64_t{3}).Add(GetDataSize() - 3);
    const Bytes file = Read("stacks.index");
    ASSERT_GT(file.size(), expected.Bytes.size());
    EXPECT_EQ(Bytes(file.end() - static_cast<ptrdiff_t>(expected.Bytes.size()), file.end()), expected.Bytes);
    EXPECT_THAT(std::string(file.begin(), file.end()), HasSubstr("M#int32_t#A#Profiler::BrokenStackIndex::Chunk"));
}

TEST_F(BrokenStackFilesTest, TheIndexComesBackAsItWasWritten)
{
    Add("10 0 cut\n"
        "11 5 cut\n"
        "12 0 7\n"
        "14 0 cut\n"
        "15 0 8\n");
    Finish();
    ASSERT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    EXPECT_THAT(mHolder.GetIndex()->ChunksByThread, SizeIs(2));
    ASSERT_THAT(*mHolder.FindChunks(0), SizeIs(1));
    ASSERT_THAT(*mHolder.FindChunks(5), SizeIs(1));
    const Chunk& first = mHolder.FindChunks(0)->front();
    const Chunk& second = mHolder.FindChunks(5)->front();
    EXPECT_EQ(first.StartTime, 10.0);
    EXPECT_EQ(first.EndTime, 15.0);
    EXPECT_EQ(second.StartTime, 11.0);
    EXPECT_EQ(second.EndTime, sNoEnd);
    // In which order is the writer's affair; they fill the file.
    EXPECT_EQ(std::min(first.FileOffset, second.FileOffset), 0U);
    EXPECT_EQ(std::max(first.FileOffset + first.Size, second.FileOffset + second.Size), GetDataSize());
    EXPECT_EQ(first.Size + second.Size, GetDataSize());
}

// --- Which ranges there are ---

TEST_F(BrokenStackFilesTest, ARangeGoesFromTheFirstCutStackToTheNextGoodOne)
{
    Add("9 0 6\n"
        "10 0 cut\n"
        "11 0 cut\n"
        "12 0 7\n"
        "13 0 8\n"
        "14 0 cut\n"
        "14 0 9\n"
        "14 0 cut\n"
        "15 0 cut\n"
        "16 0 10\n");
    Finish();
    EXPECT_EQ(PrintFiles(), "0: 10..12 by 7, 14..14 by 9, 14..16 by 10\n");
}

TEST_F(BrokenStackFilesTest, ARangeThatNoGoodStackEndsIsOpen)
{
    Add("-1 0 cut\n" // a time like any other
        "0 0 5\n"
        "10 0 cut\n"
        "11 0 cut\n");
    Finish();
    EXPECT_EQ(PrintFiles(), "0: -1..0 by 5, 10..end\n");
}

TEST_F(BrokenStackFilesTest, ThreadsDoNotEndEachOthersRanges)
{
    Add("10 0 cut\n"
        "11 1 cut\n"
        "12 2 6\n"
        "13 0 7\n"
        "14 -1 cut\n"
        "15 1 8\n");
    Finish();
    EXPECT_EQ(PrintFiles(), "-1: 14..end\n"
                            "0: 10..13 by 7\n"
                            "1: 11..15 by 8\n");
}

TEST_F(BrokenStackFilesTest, GoodStacksAloneGiveAnIndexWithoutLists)
{
    Add("10 0 6\n"
        "11 1 7\n");
    Finish();
    EXPECT_THAT(List(""), ElementsAre("stacks.dat", "stacks.index"));
    EXPECT_EQ(GetDataSize(), 0U);
    std::filesystem::remove(At("stacks.dat"));
    ASSERT_TRUE(Load()) << "there is nothing to look for in the other file";
    EXPECT_THAT(mHolder.GetIndex()->ChunksByThread, IsEmpty());
    EXPECT_EQ(mHolder.FindChunks(0), nullptr);
}

TEST_F(BrokenStackFilesTest, AFullChunkIsWrittenAtOnce)
{
    AddRanges(0, 249);
    EXPECT_EQ(GetDataSize(), 0U);
    AddRanges(249, 250);
    const uint64_t size = GetDataSize();
    EXPECT_NE(size, 0U);
    AddRanges(250, 251);
    EXPECT_EQ(GetDataSize(), size);
    Finish();
    EXPECT_THAT(CountRanges(0), ElementsAre(250, 1));
    EXPECT_EQ(mHolder.FindChunks(0)->front().EndTime, 2495.0);
    EXPECT_EQ(mHolder.FindChunks(0)->back().StartTime, 2500.0);
    EXPECT_EQ(mHolder.FindChunks(0)->back().FileOffset, size);
}

TEST_F(BrokenStackFilesTest, NoChunkIsEmpty)
{
    AddRanges(0, 500, 0);
    AddRanges(0, 249, 1);
    Add(2490.0, 1, true, 1); // its end fills the chunk
    Finish();
    EXPECT_THAT(CountRanges(0), ElementsAre(250, 250));
    EXPECT_THAT(CountRanges(1), ElementsAre(250));
}

TEST_F(BrokenStackFilesTest, ChunksStandInTheOrderInWhichTheyFilled)
{
    AddRanges(0, 100, 0);
    AddRanges(0, 250, 1);
    AddRanges(100, 250, 0);
    AddRanges(250, 500, 1);
    Finish();
    ASSERT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    const BrokenStackIndex::ChunkList& first = *mHolder.FindChunks(0);
    const BrokenStackIndex::ChunkList& second = *mHolder.FindChunks(1);
    ASSERT_THAT(first, SizeIs(1));
    ASSERT_THAT(second, SizeIs(2));
    EXPECT_EQ(second[0].FileOffset, 0U);
    EXPECT_EQ(first[0].FileOffset, second[0].Size);
    EXPECT_EQ(second[1].FileOffset, first[0].FileOffset + first[0].Size);
    EXPECT_EQ(second[1].FileOffset + second[1].Size, GetDataSize());
}

TEST_F(BrokenStackFilesTest, APassLeavesTheDataOfTheOneBeforeAndNoLongerPointsThere)
{
    Add("10 0 cut\n"
        "11 1 cut\n");
    Finish();
    const Bytes before = Read("stacks.dat");
    Begin();
    Add("20 0 cut\n");
    Finish();
    EXPECT_EQ(PrintFiles(), "0: 20..end\n");
    EXPECT_EQ(mHolder.FindChunks(0)->front().FileOffset, before.size());
    const Bytes after = Read("stacks.dat");
    ASSERT_GT(after.size(), before.size());
    EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
}

TEST_F(BrokenStackFilesTest, AFolderThatIsGoneAtTheEndIsMadeAnew)
{
    BrokenStackWriter writer(At("capture"));
    MakeDirectory("capture");
    ASSERT_TRUE(writer.Open(mErrors));
    std::filesystem::remove_all(At("capture"));
    EXPECT_TRUE(writer.Finish(mErrors)) << Utility::GetErrorText(mErrors);
    EXPECT_THAT(List("capture"), ElementsAre("stacks.index"));
}

// --- What can't be written or read ---

TEST_F(BrokenStackFilesTest, AWriterThatCanNotBeginSaysWhy)
{
    MakeDirectory("taken/stacks.dat");
    for (const auto& [folder, reason] :
         std::map<std::string, std::string>{{"missing", "No such file or directory"}, {"taken", "Is a directory"}})
    {
        BrokenStackWriter writer(At(folder));
        Utility::ErrorState errors;
        EXPECT_FALSE(writer.Open(errors));
        ASSERT_THAT(errors.GetEntries(), SizeIs(1));
        EXPECT_EQ(errors.GetEntries()[0].Code, 0U);
        EXPECT_EQ(errors.GetEntries()[0].Message,
                  "Unable to initialize broken stack processing state" + At(folder) + "/stacks.dat. Error: " + reason);
    }
}

TEST_F(BrokenStackFilesTest, AFullDiskEndsThePassWithoutAnIndex)
{
    const std::string message = "Failed to write broken stack stream. Error: No space left on device";
    std::filesystem::remove(At("stacks.dat"));
    // Writes there always fail as those to a full disk do.
    std::filesystem::create_symlink("/dev/full", At("stacks.dat"));
    Begin();
    AddRanges(0, 249);
    Add(2490.0, 0, true, 1);
    EXPECT_FALSE(mWriter->AddStack(0, true, 7, 2491.0, mErrors));
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(1));
    EXPECT_EQ(mErrors.GetEntries()[0].Message, message);

    Begin();
    Add("10 0 cut\n");
    EXPECT_FALSE(mWriter->Finish(mErrors));
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(2));
    EXPECT_EQ(mErrors.GetEntries()[1].Message, message);
    EXPECT_THAT(List(""), ElementsAre("stacks.dat"));
}

TEST_F(BrokenStackFilesTest, AnIndexThatCanNotBeWrittenFailsThePass)
{
    MakeDirectory("stacks.index/full");
    Add("10 0 cut\n");
    EXPECT_FALSE(mWriter->Finish(mErrors));
    EXPECT_THAT(mErrors.GetEntries(), SizeIs(1));
}

TEST_F(BrokenStackFilesTest, LoadingSaysWhatIsMissing)
{
    const auto loadIndex = [this]
    {
        Serialization::ReaderErrorState errors;
        EXPECT_EQ(BrokenStackIndex::sLoad(At("stacks.index"), mRegistry, errors), nullptr);
        EXPECT_THAT(errors.GetEntries(), SizeIs(1));
        return errors.GetEntries().empty() ? Utility::ErrorEntry() : errors.GetEntries()[0];
    };
    const Utility::ErrorEntry missing = loadIndex();
    EXPECT_EQ(missing.Code, static_cast<uint32_t>(Serialization::EReaderError::FileNotFound));
    EXPECT_EQ(missing.Context, At("stacks.index"));
    EXPECT_EQ(missing.Message, "Unable to open file");
    EXPECT_EQ(LoadError(), missing.Message);

    const Serialization::Schema other;
    const RTTI::Object* object = &other;
    ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("stacks.index"), {&object, 1}, mErrors));
    const Utility::ErrorEntry wrong = loadIndex();
    EXPECT_EQ(wrong.Code, static_cast<uint32_t>(Serialization::EReaderError::Corrupt));
    EXPECT_EQ(wrong.Context, At("stacks.index"));
    EXPECT_EQ(wrong.Message, "The file does not appear to be a BrokenStackIndex file (missing BrokenStackIndex object)");
    EXPECT_EQ(LoadError(), wrong.Message);
}

// Whatever was loaded before: it may be of another pass than the file.
TEST_F(BrokenStackFilesTest, AFailedLoadLeavesNothingLoaded)
{
    Add("10 0 cut\n");
    Finish();
    ASSERT_TRUE(Load());
    std::filesystem::rename(At("stacks.dat"), At("away"));
    EXPECT_EQ(LoadError(), "Unable to open file");
    std::filesystem::rename(At("away"), At("stacks.dat"));
    EXPECT_TRUE(Load());
    WriteFile("stacks.dat", "");
    EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged");
    BrokenRange range;
    EXPECT_EQ(BrokenStackReader(mHolder, 0, 0.0).StepTo(range, 10.0), EBrokenStackStep::Outside);
}

TEST_F(BrokenStackFilesTest, ADamagedIndexIsNotLoaded)
{
    AddRanges(0, 3);
    Finish();
    const Bytes file = Read("stacks.index");
    for (const size_t size : {size_t{0}, size_t{1}, file.size() / 2, file.size() - 1})
    {
        WriteBytes("stacks.index", {file.begin(), file.begin() + static_cast<ptrdiff_t>(size)});
        EXPECT_NE(LoadError(), "") << size;
    }
    // The entry of the chunk, which is the end of the file.
    for (size_t fromEnd = 1; fromEnd <= sizeof(Chunk); ++fromEnd)
    {
        Bytes damaged = file;
        damaged[file.size() - fromEnd] ^= 1;
        WriteBytes("stacks.index", damaged);
        EXPECT_NE(LoadError(), "") << fromEnd;
    }
}

TEST_F(BrokenStackFilesTest, DamagedDataIsNotLoaded)
{
    AddRanges(0, 3, 0);
    AddRanges(0, 3, 1);
    Finish();
    const Bytes file = Read("stacks.dat");
    for (size_t size = 0; size < file.size(); ++size)
    {
        WriteBytes("stacks.dat", {file.begin(), file.begin() + static_cast<ptrdiff_t>(size)});
        ASSERT_THAT(LoadError(), HasSubstr("are damaged")) << size;
    }
    // The frames carry no checksum, so not every change can be noticed; but what is loaded can be read to its end.
    size_t numNoticed = 0;
    for (size_t bit = 0; bit < 8 * file.size(); ++bit)
    {
        Bytes damaged = file;
        damaged[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
        WriteBytes("stacks.dat", damaged);
        Utility::ErrorState errors;
        if (!mHolder.Load(mRegistry, errors))
        {
            ++numNoticed;
            continue;
        }
        const LogCapture log;
        for (const ThreadID thread : {0, 1})
        {
            BrokenStackReader reader(mHolder, thread, 0.0);
            BrokenRange range;
            for (double time = 0.0; time <= 25.0; time += 2.5)
                static_cast<void>(reader.StepTo(range, time));
        }
        ASSERT_THAT(log.GetTexts(), IsEmpty()) << bit;
    }
    EXPECT_GT(numNoticed, 0U);
}

TEST_F(BrokenStackFilesTest, AnEntryThatDoesNotFitItsChunkIsNotLoaded)
{
    AddRanges(0, 3);
    Finish();
    ASSERT_TRUE(Load());
    const Chunk good = mHolder.FindChunks(0)->front();
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    const double noTime = std::numeric_limits<double>::quiet_NaN();
    for (const Chunk& bad : {Chunk{0.0, 25.0, 0, good.Size + 1}, Chunk{0.0, 25.0, 0, good.Size - 1}, Chunk{0.0, 25.0, 0, 0},
                             Chunk{0.0, 25.0, 0, most}, Chunk{0.0, 25.0, 1, most}, Chunk{0.0, 25.0, 1, good.Size - 1},
                             Chunk{0.0, 25.0, good.Size, 0}, Chunk{0.0, 25.0, good.Size, good.Size}, Chunk{0.0, 25.0, most, 1},
                             Chunk{0.0, 25.0, most, good.Size}, Chunk{1.0, 25.0, 0, good.Size}, Chunk{0.0, 24.0, 0, good.Size},
                             Chunk{noTime, 25.0, 0, good.Size}, Chunk{0.0, noTime, 0, good.Size}})
    {
        SCOPED_TRACE(Utility::gFormat("%g..%g at %llx, %llx bytes", bad.StartTime, bad.EndTime,
                                      static_cast<unsigned long long>(bad.FileOffset),
                                      static_cast<unsigned long long>(bad.Size)));
        WriteIndex({{0, {good, bad}}});
        EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged");
    }
    // A thread without chunks is as good as none.
    WriteIndex({{0, {good}}, {1, {}}});
    EXPECT_TRUE(Load());
    BrokenRange range;
    EXPECT_EQ(BrokenStackReader(mHolder, 1, 0.0).StepTo(range, 0.0), EBrokenStackStep::Outside);
}

TEST_F(BrokenStackFilesTest, ACountThatDoesNotFitTheContentIsNotLoaded)
{
    const auto makeContent = [](uint64_t inCount)
    {
        Host::ByteWriter content;
        content.Add(inCount).Add(10.0).Add(12.0).Add(uint64_t{7}).Add(14.0).Add(15.0).Add(uint64_t{8});
        return content.Bytes;
    };
    WriteChunk(makeContent(2), 10.0, 15.0);
    EXPECT_EQ(PrintFiles(), "0: 10..12 by 7, 14..15 by 8\n");
    // The last one says so much that its size in bytes is what is there.
    for (const uint64_t count : {uint64_t{0}, uint64_t{1}, uint64_t{3}, ~uint64_t{0}, (uint64_t{1} << 61) + 2})
    {
        WriteChunk(makeContent(count), 10.0, 15.0);
        EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged") << count;
    }
    Bytes more = makeContent(2);
    more.push_back(0);
    WriteChunk(more, 10.0, 15.0);
    EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged");
    WriteChunk(Bytes(sizeof(uint64_t)), 0.0, 0.0);
    EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged") << "no ranges";
    Bytes cut = makeContent(2);
    while (!cut.empty())
    {
        cut.pop_back();
        WriteChunk(cut, 10.0, 15.0);
        EXPECT_EQ(LoadError(), "The broken ranges of thread 0 are damaged") << cut.size();
    }
}

// --- Readers of several chunks ---

class BrokenStackChunksTest : public BrokenStackFilesTest
{
protected:
    // Three chunks of thread 0, which hold the ranges from 0, 250 and 500 on.
    BrokenStackChunksTest()
    {
        AddRanges(0, 250, 0);
        AddRanges(0, 300, 1);
        AddRanges(250, 510, 0);
        Finish();
        EXPECT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    }

    // The results at the times, a digit each; where a range begins, its stack in brackets.
    static std::string Steps(BrokenStackReader& ioReader, std::initializer_list<double> inTimes)
    {
        std::string text;
        for (const double time : inTimes)
        {
            BrokenRange range;
            const EBrokenStackStep step = ioReader.StepTo(range, time);
            text += std::to_string(static_cast<int>(step));
            if (step == EBrokenStackStep::RangeBegins)
                text += "(" + std::to_string(range.Stack) + ")";
        }
        return text;
    }
    std::string StepsFrom(double inStartTime, std::initializer_list<double> inTimes)
    {
        BrokenStackReader reader(mHolder, 0, inStartTime);
        return Steps(reader, inTimes);
    }
};

TEST_F(BrokenStackChunksTest, AReaderGoesThroughAllChunks)
{
    BrokenStackReader reader(mHolder, 0, 0.0);
    for (size_t i = 0; i < 510; ++i)
    {
        const double start = 10.0 * static_cast<double>(i);
        ASSERT_EQ(Steps(reader, {start, start + 1, start + 5, start + 6}), "0(" + std::to_string(i) + ")123");
    }
    EXPECT_EQ(Steps(reader, {5100, 5095, 0}), "333");
}

TEST_F(BrokenStackChunksTest, AReaderStartsInTheChunkOfItsTime)
{
    EXPECT_EQ(StepsFrom(2489, {2489, 2490, 2495, 2496, 2500}), "30(249)230(250)");
    EXPECT_EQ(StepsFrom(2490, {2490, 2495, 2500, 2505}), "0(249)20(250)2") << "the last range of a chunk";
    EXPECT_EQ(StepsFrom(2494, {2494, 2495, 2500}), "120(250)");
    EXPECT_EQ(StepsFrom(2495, {2495, 2500, 2505}), "30(250)2") << "between two chunks";
    EXPECT_EQ(StepsFrom(2500, {2500, 2501, 2505}), "0(250)12");
    EXPECT_EQ(StepsFrom(3001, {3001, 3005, 3010}), "120(301)") << "within a chunk";
    EXPECT_EQ(StepsFrom(4999, {4999, 5000, 5005}), "30(500)2");
    EXPECT_EQ(StepsFrom(5094, {5094, 5095, 5096}), "123");
    EXPECT_EQ(StepsFrom(5095, {5095, 5100}), "33") << "behind the last chunk";
    EXPECT_EQ(StepsFrom(-10, {-10, 0}), "30(0)");
}

TEST_F(BrokenStackChunksTest, ACopyStepsOnItsOwn)
{
    BrokenStackReader reader(mHolder, 0, 2480.0);
    EXPECT_EQ(Steps(reader, {2480, 2485, 2490}), "0(248)20(249)");
    BrokenStackReader copy = reader;
    EXPECT_EQ(Steps(reader, {2495, 2500, 2505}), "20(250)2");
    EXPECT_EQ(Steps(copy, {2491, 2495, 2496, 2500, 2501}), "1230(250)1");
    EXPECT_EQ(Steps(reader, {2510}), "0(251)");
    reader = copy;
    EXPECT_EQ(Steps(reader, {2501, 2505}), "12");
    EXPECT_EQ(Steps(copy, {2501, 2505}), "12");
}

// Between loading and reading anything may happen to a file; a thread's stacks then count as they are.
TEST_F(BrokenStackChunksTest, AFileThatIsGoneEndsTheRangesOfAThread)
{
    const LogCapture log;
    BrokenStackReader reader(mHolder, 0, 2480.0);
    std::filesystem::remove(At("stacks.dat"));
    EXPECT_EQ(Steps(reader, {2480, 2485, 2490, 2495}), "0(248)20(249)2") << "the chunk in memory";
    EXPECT_EQ(Steps(reader, {2500, 2505, 5000}), "333");
    const std::string message = "Unable to read from broken stack stream " + At("stacks.dat") + ": a chunk is damaged";
    EXPECT_THAT(log.GetMessages(), ElementsAre(message));
    EXPECT_EQ(StepsFrom(0, {0, 5}), "33");
    EXPECT_THAT(log.GetMessages(), ElementsAre(message, message));
}

} // namespace
} // namespace Profiler
