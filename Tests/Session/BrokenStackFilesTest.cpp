#include "Tests/Support/BrokenStackFiles.h"

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

#include <filesystem>
#include <limits>
#include <sstream>
#include <tuple>
#include <unordered_map>
#include <utility>

using testing::ElementsAre;
using testing::Field;
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
constexpr const char* sDamaged = "The broken ranges of thread 0 are damaged";

class BrokenStackFilesTest : public TemporaryDirectoryTest
{
protected:
    BrokenStackFilesTest() { EXPECT_TRUE(mWriter.Open(mErrors)) << Utility::GetErrorText(mErrors); }

    // One stack after the other: time, thread, and the key of a good stack or "cut" for one that is cut short.
    void Add(const std::string& inStacks)
    {
        std::istringstream stream(inStacks);
        double time = 0.0;
        ThreadID thread = 0;
        for (std::string stack; stream >> time >> thread >> stack;)
            ASSERT_TRUE(mWriter.AddStack(thread, stack != "cut", stack == "cut" ? 1 : std::stoull(stack), time, mErrors));
    }

    // Ranges 10 milliseconds apart and 5 long, range i ended by stack i.
    void AddRanges(size_t inFirst, size_t inEnd, ThreadID inThread = 0)
    {
        for (size_t i = inFirst; i < inEnd; ++i)
            Add(Utility::gFormat("%zu %d cut  %zu %d %zu", 10 * i, inThread, 10 * i + 5, inThread, i));
    }

    void Finish() { ASSERT_TRUE(mWriter.Finish(mErrors)) << Utility::GetErrorText(mErrors); }

    bool Load() { return mHolder.Load(mRegistry, mErrors); }

    // What the failure of a load says.
    std::string LoadError()
    {
        Utility::ErrorState errors;
        EXPECT_FALSE(mHolder.Load(mRegistry, errors));
        EXPECT_EQ(mHolder.GetIndex(), nullptr);
        EXPECT_EQ(mHolder.FindChunks(0), nullptr);
        EXPECT_THAT(errors.GetEntries(), SizeIs(1));
        return errors.GetEntries().empty() ? "" : errors.GetEntries()[0].Message;
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

    void WriteIndex(const RTTI::Object& inObject)
    {
        const RTTI::Object* object = &inObject;
        ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("stacks.index"), {&object, 1}, mErrors));
    }
    void WriteIndex(std::unordered_map<ThreadID, std::vector<Chunk>> inChunks)
    {
        BrokenStackIndex index;
        index.ChunksByThread = std::move(inChunks);
        WriteIndex(index);
    }

    // Makes stacks.dat one frame of the content, and has an entry of thread 0 point to it.
    void WriteChunk(const Bytes& inContent)
    {
        Utility::Compressor compressor;
        Utility::ByteBuffer frame;
        ASSERT_TRUE(compressor.Compress(inContent.data(), inContent.size(), frame));
        WriteBytes("stacks.dat", {frame.GetData(), frame.GetData() + frame.GetSize()});
        WriteIndex({{0, {{10.0, 15.0, 0, frame.GetSize()}}}});
    }

    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    Utility::ErrorState mErrors;
    BrokenStackWriter mWriter{At("")};
    BrokenStackHolder mHolder{At("")};
};

// --- What is in the files ---

TEST_F(BrokenStackFilesTest, BothFilesAreLaidOutToTheByte)
{
    WriteFile("stacks.dat", "old");         // which the open writer appends to
    Add("-1 -3 cut  12 -3 7  13.5 -3 cut"); // -1 is a time like any other
    Finish();
    const Bytes data = Read("stacks.dat");
    Utility::Decompressor decompressor;
    Utility::ByteBuffer content;
    ASSERT_TRUE(decompressor.Decompress(data.data() + 3, data.size() - 3, content));
    Host::ByteWriter chunk;
    chunk.Add(uint64_t{2});
    chunk.Add(-1.0).Add(12.0).Add(uint64_t{7});
    chunk.Add(13.5).Add(sNoEnd).Add(~uint64_t{0});
    EXPECT_EQ(Bytes(content.GetData(), content.GetData() + content.GetSize()), chunk.Bytes);

    // The container's data block, which ends the file.
    const std::string name = "Profiler::BrokenStackIndex";
    Host::ByteWriter expected;
    expected.Add(uint64_t{1}).Add(uint64_t{name.size()}).AddText(name);
    expected.Add(uint64_t{76}).Add(uint64_t{68}).Add(uint64_t{1}); // object, map with one entry
    expected.Add(int32_t{-3}).Add(uint64_t{48}).Add(uint64_t{1});  // thread, list with one chunk
    expected.Add(uint64_t{32}).Add(-1.0).Add(sNoEnd).Add(uint64_t{3}).Add(data.size() - 3);
    const Bytes file = Read("stacks.index");
    ASSERT_GT(file.size(), expected.Bytes.size());
    EXPECT_EQ(Bytes(file.end() - static_cast<ptrdiff_t>(expected.Bytes.size()), file.end()), expected.Bytes);
    EXPECT_THAT(std::string(file.begin(), file.end()), HasSubstr("M#int32_t#A#Profiler::BrokenStackIndex::Chunk"));
}

TEST_F(BrokenStackFilesTest, GoodStacksAloneGiveAnIndexWithoutLists)
{
    Add("10 0 6  11 1 7");
    Finish();
    std::filesystem::remove(At("stacks.dat"));
    ASSERT_TRUE(Load()) << "there is nothing to look for in the other file";
    EXPECT_THAT(mHolder.GetIndex()->ChunksByThread, IsEmpty());
}

TEST_F(BrokenStackFilesTest, AFullChunkIsWrittenAtOnceAndNoChunkIsEmpty)
{
    const std::filesystem::path data = At("stacks.dat");
    AddRanges(0, 249);
    EXPECT_EQ(file_size(data), 0U);
    AddRanges(249, 250);
    const uint64_t size = file_size(data);
    EXPECT_NE(size, 0U);
    AddRanges(250, 251);
    EXPECT_EQ(file_size(data), size);
    AddRanges(0, 249, 1);
    Add("2490 1 cut"); // its end fills the chunk
    Finish();
    ASSERT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    EXPECT_THAT(*mHolder.FindChunks(0), ElementsAre(Field(&Chunk::EndTime, 2495.0), Field(&Chunk::StartTime, 2500.0)));
    EXPECT_THAT(*mHolder.FindChunks(1), ElementsAre(Field(&Chunk::EndTime, sNoEnd)));
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

// --- What can't be read ---

TEST_F(BrokenStackFilesTest, LoadingSaysWhatIsMissing)
{
    EXPECT_EQ(LoadError(), "Unable to open file");
    WriteIndex(Serialization::Schema());
    EXPECT_EQ(LoadError(), "The file does not appear to be a BrokenStackIndex file (missing BrokenStackIndex object)");
}

// Whatever was loaded before is gone: it may be of another pass than the file.
TEST_F(BrokenStackFilesTest, DamagedFilesAreNotLoaded)
{
    AddRanges(0, 3, 0);
    AddRanges(0, 3, 1);
    Finish();
    for (const char* name : {"stacks.index", "stacks.dat"})
    {
        ASSERT_TRUE(Load()) << Utility::GetErrorText(mErrors);
        const Bytes whole = Read(name);
        for (Bytes cut = whole; !cut.empty();)
        {
            cut.pop_back();
            WriteBytes(name, cut);
            ASSERT_NE(LoadError(), "") << name << " of " << cut.size() << " bytes";
        }
        WriteBytes(name, whole);
    }
    // The entry of the last chunk, which is the end of the file.
    Bytes index = Read("stacks.index");
    for (auto byte = index.end() - sizeof(Chunk); byte != index.end(); ++byte)
    {
        *byte ^= 1;
        WriteBytes("stacks.index", index);
        EXPECT_NE(LoadError(), "") << index.end() - byte;
        *byte ^= 1;
    }
    WriteBytes("stacks.index", index);
    std::filesystem::remove(At("stacks.dat"));
    EXPECT_EQ(LoadError(), "Unable to open file");
}

TEST_F(BrokenStackFilesTest, AnEntryThatDoesNotFitItsChunkIsNotLoaded)
{
    AddRanges(0, 3);
    Finish();
    ASSERT_TRUE(Load());
    const Chunk good = mHolder.FindChunks(0)->front();
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    const double noTime = std::numeric_limits<double>::quiet_NaN();
    const Chunk entries[] = {{0.0, 25.0, 0, good.Size + 1}, {0.0, 25.0, 0, good.Size - 1}, {0.0, 25.0, 0, 0},
                             {0.0, 25.0, 0, most},          {0.0, 25.0, 1, most},          {0.0, 25.0, 1, good.Size - 1},
                             {0.0, 25.0, good.Size, 0},     {0.0, 25.0, most, good.Size},  {1.0, 25.0, 0, good.Size},
                             {0.0, 24.0, 0, good.Size},     {noTime, 25.0, 0, good.Size},  {0.0, noTime, 0, good.Size}};
    for (const Chunk& bad : entries)
    {
        SCOPED_TRACE(&bad - entries);
        WriteIndex({{0, {good, bad}}});
        EXPECT_EQ(LoadError(), sDamaged);
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
    WriteChunk(makeContent(2));
    ASSERT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    // The last one says so much that its size in bytes is what is there.
    for (const uint64_t count : {uint64_t{0}, uint64_t{1}, uint64_t{3}, ~uint64_t{0}, (uint64_t{1} << 61) + 2})
    {
        WriteChunk(makeContent(count));
        EXPECT_EQ(LoadError(), sDamaged) << count;
    }
    WriteChunk(Bytes(sizeof(uint64_t)));
    EXPECT_EQ(LoadError(), sDamaged) << "no ranges";
    const Bytes good = makeContent(2);
    for (size_t size = 0; size <= good.size() + 1; ++size)
    {
        if (size == good.size())
            continue;
        Bytes wrong = good;
        wrong.resize(size);
        WriteChunk(wrong);
        EXPECT_EQ(LoadError(), sDamaged) << size;
    }
}

// --- Readers ---

// The results at the times, a digit each; where a range begins, its stack in brackets.
std::string gStep(BrokenStackReader& ioReader, const std::vector<double>& inTimes)
{
    std::string text;
    for (const double time : inTimes)
    {
        BrokenRange range;
        const EBrokenStackStep step = ioReader.StepTo(range, time);
        text += std::to_string(static_cast<int>(step));
        if (step == EBrokenStackStep::RangeBegins)
            text += "(" + std::to_string(range.Stack) + ")";
        else
            EXPECT_EQ(range.Stack, sNoCallstack);
    }
    return text;
}

// Times, the first of which is where the reader starts.
TEST(BrokenStackReaderTest, StepsThroughTheRangesOfAThread)
{
    BrokenStackFiles files;
    files.SetRanges(0, {{10.0, 20.0, 1}, {20.0, 30.0, 2}, {30.0, 30.0, 3}, {40.0, sNoEnd, 4}});
    const std::pair<std::vector<double>, const char*> cases[] = {
        {{0, 9, 10, 11, 19.9, 20}, "330(1)112"},
        // Events at the start of a range all begin it.
        {{10, 10, 10, 15}, "0(1)0(1)0(1)1"},
        // A range that begins where another ends is seen at the next step with that time.
        {{10, 20, 20, 25, 30}, "0(1)20(2)12"},
        {{10, 20, 25, 30}, "0(1)212"},
        // A range without length begins once and is passed.
        {{25, 30, 30, 30, 35, 40, 1e9}, "120(3)330(4)1"},
        // A reader starts at or in the range of its time.
        {{15, 20}, "12"},
        {{20, 25}, "0(2)1"},
        {{35, 40}, "30(4)"},
        {{50, sNoEnd, 60}, "123"},
        // The comparison is exact: a range whose end no event has is never left.
        {{0, 10, 21, 25, 40, 20, 20}, "30(1)33320(2)"}};
    for (const auto& [times, expected] : cases)
    {
        BrokenStackReader reader(files.GetHolder(), 0, times[0]);
        EXPECT_EQ(gStep(reader, times), expected);
    }
    BrokenStackReader ofOtherThread(files.GetHolder(), 1, 0.0);
    EXPECT_EQ(gStep(ofOtherThread, {0, 10, 15, 20}), "3333");
    BrokenRange range;
    EXPECT_EQ(BrokenStackReader().StepTo(range, 10.0), EBrokenStackStep::Outside);
    EXPECT_EQ(std::tuple(range.Start, range.End, range.Stack), std::tuple(-1.0, -1.0, sNoCallstack));
}

class BrokenStackChunksTest : public BrokenStackFilesTest
{
protected:
    // Three chunks of thread 0, which hold the ranges from 0, 250 and 500 on, and one of another thread between them.
    BrokenStackChunksTest()
    {
        AddRanges(0, 250, 0);
        AddRanges(0, 300, 1);
        AddRanges(250, 510, 0);
        Finish();
        EXPECT_TRUE(Load()) << Utility::GetErrorText(mErrors);
    }
};

TEST_F(BrokenStackChunksTest, AReaderGoesThroughAllChunks)
{
    BrokenStackReader reader(mHolder, 0, 0.0);
    for (size_t i = 0; i < 510; ++i)
    {
        const double start = 10.0 * static_cast<double>(i);
        ASSERT_EQ(gStep(reader, {start, start + 1, start + 5, start + 6}), "0(" + std::to_string(i) + ")123");
    }
    EXPECT_EQ(gStep(reader, {5100, 5095, 0}), "333");
}

TEST_F(BrokenStackChunksTest, AReaderStartsInTheChunkOfItsTime)
{
    // Before all, the last range of a chunk, between two chunks, within a chunk, behind the last one. It starts at the first
    // time.
    const std::pair<std::vector<double>, const char*> cases[] = {{{-10, 0}, "30(0)"},
                                                                 {{2490, 2495, 2500, 2505}, "0(249)20(250)2"},
                                                                 {{2494, 2495, 2500}, "120(250)"},
                                                                 {{2495, 2500, 2505}, "30(250)2"},
                                                                 {{2500, 2501, 2505}, "0(250)12"},
                                                                 {{3001, 3005, 3010}, "120(301)"},
                                                                 {{5095, 5100}, "33"}};
    for (const auto& [times, expected] : cases)
    {
        BrokenStackReader reader(mHolder, 0, times[0]);
        EXPECT_EQ(gStep(reader, times), expected) << times[0];
    }
}

// Between loading and reading anything may happen to a file; a thread's stacks then count as they are.
TEST_F(BrokenStackChunksTest, AFileThatIsGoneEndsTheRangesOfAThread)
{
    const LogCapture log;
    BrokenStackReader reader(mHolder, 0, 2480.0);
    std::filesystem::remove(At("stacks.dat"));
    EXPECT_EQ(gStep(reader, {2480, 2485, 2490, 2495}), "0(248)20(249)2") << "the chunk in memory";
    EXPECT_EQ(gStep(reader, {2500, 2505, 5000}), "333");
    const std::string message = "Unable to read from broken stack stream " + At("stacks.dat") + ": a chunk is damaged";
    EXPECT_THAT(log.GetMessages(), ElementsAre(message));
    reader = BrokenStackReader(mHolder, 0, 0.0);
    EXPECT_EQ(gStep(reader, {0, 5}), "33");
    EXPECT_THAT(log.GetMessages(), ElementsAre(message, message));
}

} // namespace
} // namespace Profiler
