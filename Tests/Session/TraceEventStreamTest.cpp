#include "Session/Events/TraceEventStream.h"

#include "FileSystem/Delete.h"
#include "FileSystem/File.h"
#include "Serialization/BinaryWriter.h"
#include "Serialization/Schema.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/ByteWriter.h"
#include "Tests/Support/SessionRegistry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <random>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace Profiler
{
namespace
{

using Events = std::vector<TraceEvent>;

// One of each kind that is stored.
Events gMakeAllKinds()
{
    Events events;
    const auto add = [&events](TraceEvent::Payload inPayload)
    {
        const auto index = static_cast<int32_t>(events.size());
        events.emplace_back(index, -index, index + 100, std::move(inPayload));
    };
    add(SampleEvent{5});
    add(ContextSwitchOutEvent{22});
    add(ContextSwitchInEvent{6});
    add(ReadyThreadEvent{7, -8, 9});
    add(ThreadStartEvent{1, 0x4000});
    add(ThreadEndEvent{2});
    add(ThreadNameEvent{"worker"});
    add(InstrumentationBeginEvent{10, "Draw", "frame 1"});
    add(InstrumentationEndEvent{});
    add(InstrumentationBeginColoredEvent{11, "Update", "", 0xFF00FF});
    add(ReadyThreadTimedEvent{12, 13, 14, 1.5});
    add(ThreadStartDisplayEvent{15, 0, 16});
    add(ThreadEndDisplayEvent{17, 1});
    add(Reserved13Event{18});
    add(Reserved14Event{19});
    add(FiberSwitchOutEvent{20, 21});
    add(FiberSwitchInEvent{22});
    add(StackOnlyEvent{sNoCallstack});
    return events;
}

class TraceEventStreamTest : public TemporaryDirectoryTest
{
protected:
    TraceEventStream& Make()
    {
        mStream = std::make_unique<TraceEventStream>(At(""), TraceEventStream::sColumnarVersion);
        return *mStream;
    }

    void Add(const TraceEvent& inEvent) { ASSERT_TRUE(mStream->AddEvent(inEvent, mErrors)) << Utility::GetErrorText(mErrors); }

    // Samples at these times, in chunks of inChunkSize.
    void AddSamples(const std::vector<double>& inTimes, size_t inChunkSize)
    {
        for (size_t i = 0; i < inTimes.size(); ++i)
        {
            Add({inTimes[i], -1, static_cast<int32_t>(i), SampleEvent{i}});
            if ((i + 1) % inChunkSize == 0)
                Flush();
        }
        Flush();
    }

    void Flush() { ASSERT_TRUE(mStream->FlushStream(mErrors)) << Utility::GetErrorText(mErrors); }

    std::unique_ptr<TraceEventStream> Load(Serialization::ReaderErrorState& ioErrors)
    {
        return TraceEventStream::sLoad(At(""), mRegistry, ioErrors);
    }
    TraceEventStream& Reload()
    {
        Serialization::ReaderErrorState errors;
        mStream = Load(errors);
        EXPECT_NE(mStream, nullptr) << Utility::GetErrorText(errors);
        return *mStream;
    }
    std::string LoadError()
    {
        Serialization::ReaderErrorState errors;
        EXPECT_EQ(Load(errors), nullptr);
        return errors.GetEntries().empty() ? ""
                                           : std::to_string(errors.GetEntries()[0].Code) + ": " + errors.GetEntries()[0].Message;
    }

    Events ReadAll(double inStart = 0.0)
    {
        TraceEventStreamReader reader = mStream->CreateReader(inStart);
        Events events;
        for (TraceEvent event; reader.NextEvent(event);)
            events.push_back(event);
        EXPECT_EQ(reader.GetFailure(), "");
        return events;
    }
    // Of all that the reader still gives below the limit.
    static std::vector<double> ReadTimes(TraceEventStreamReader& ioReader, std::optional<double> inLimit = {})
    {
        std::vector<double> times;
        for (TraceEvent event; inLimit ? ioReader.NextEvent(event, *inLimit) : ioReader.NextEvent(event);)
            times.push_back(event.TimeMs);
        return times;
    }
    std::string ReadFailure()
    {
        TraceEventStreamReader reader = mStream->CreateReader(0.0);
        static_cast<void>(ReadTimes(reader));
        Utility::ErrorState errors;
        EXPECT_EQ(reader.CheckSound(errors), reader.GetFailure().empty());
        return reader.GetFailure();
    }

    std::vector<uint8_t> ReadFile(const std::string& inName)
    {
        std::vector<uint8_t> bytes;
        EXPECT_TRUE(FileSystem::gReadFile(At(inName), bytes));
        return bytes;
    }
    void WriteBytes(const std::string& inName, const std::vector<uint8_t>& inBytes)
    {
        WriteFile(inName, std::string(inBytes.begin(), inBytes.end()));
    }

    std::unique_ptr<TraceEventStream> mStream;
    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    Utility::ErrorState mErrors;
};

TEST_F(TraceEventStreamTest, EveryKindComesBack)
{
    const Events events = gMakeAllKinds();
    Make();
    for (const TraceEvent& event : events)
        Add(event);
    Flush();
    EXPECT_EQ(ReadAll(), events);
    EXPECT_EQ(Reload().GetNumEvents(), events.size());
    EXPECT_EQ(ReadAll(), events);
    ASSERT_EQ(mStream->GetChunks().size(), 1U);
    EXPECT_EQ(mStream->GetChunks()[0].EndTime, 17.0);
    EXPECT_THAT(mStream->GetChunks()[0].Threads, testing::SizeIs(18));
    EXPECT_TRUE(mStream->GetChunks()[0].Processes.contains(-17));
}

TEST_F(TraceEventStreamTest, ChunksAreLaidOutToTheByte)
{
    Make();
    Add({1.5, -2, 7, ThreadNameEvent{"ab"}});
    Add({2.5, -2, 8, InstrumentationEndEvent{}});
    Add({3.5, -3, 8, ContextSwitchOutEvent{30}});
    Flush();
    const std::vector<uint8_t> file = ReadFile("events.dat");
    Utility::Decompressor decompressor;
    Utility::ByteBuffer content;
    ASSERT_TRUE(decompressor.Decompress(file.data(), file.size(), content));
    Host::ByteWriter expected;
    for (const uint64_t offset : {48, 59, 62, 86, 98, 110})
        expected.Add(offset);
    expected.Add(uint64_t{2}).AddText("ab").Add(uint8_t{30});
    expected.Add(uint8_t{6}).Add(uint8_t{8}).Add(uint8_t{1});
    expected.Add(1.5).Add(2.5).Add(3.5);
    expected.Add(int32_t{-2}).Add(int32_t{-2}).Add(int32_t{-3});
    expected.Add(int32_t{7}).Add(int32_t{8}).Add(int32_t{8});
    expected.Add(uint32_t{48}).Add(uint32_t{58}).Add(uint32_t{58});
    EXPECT_EQ(std::vector<uint8_t>(content.GetData(), content.GetData() + content.GetSize()), expected.Bytes);
}

TEST_F(TraceEventStreamTest, AFullChunkIsWrittenAtOnce)
{
    Make();
    for (uint64_t i = 0; i < TraceEventStream::sEventsPerChunk; ++i)
        Add({static_cast<double>(i), -1, 0, SampleEvent{i}});
    EXPECT_EQ(mStream->GetChunks().size(), 1U);
    Flush();
    EXPECT_EQ(Reload().GetChunks().size(), 1U) << "nothing was pending any more";
    EXPECT_EQ(mStream->GetNumEvents(), TraceEventStream::sEventsPerChunk);
}

TEST_F(TraceEventStreamTest, AnEmptyCaptureHasBothFiles)
{
    Make();
    Flush();
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index"));
    EXPECT_THAT(Reload().GetChunks(), IsEmpty());
    EXPECT_THAT(ReadAll(), IsEmpty());
}

TEST_F(TraceEventStreamTest, InvalidEventsAreNotStored)
{
    Make();
    Add(TraceEvent());
    EXPECT_EQ(mStream->GetNumEvents(), 0U);
}

TEST_F(TraceEventStreamTest, AReaderStartsAtTheFirstEventThatIsNotBelow)
{
    constexpr unsigned seed = 4;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (const size_t chunkSize : {1U, 3U, 7U, 40U})
    {
        Make();
        static_cast<void>(FileSystem::gDeleteFile(At("events.dat")));
        std::vector<double> times(40);
        for (double& time : times)
            time = static_cast<double>(random() % 20);
        std::sort(times.begin(), times.end());
        AddSamples(times, chunkSize);
        for (double start = -1.0; start < 21.0; start += 0.5)
        {
            SCOPED_TRACE(start);
            const Events events = ReadAll(start);
            // Where several chunks begin at one time, a reader may begin in any of them.
            const auto first = std::lower_bound(times.begin(), times.end(), start);
            const auto count = static_cast<size_t>(times.end() - first);
            ASSERT_LE(events.size(), count);
            ASSERT_TRUE(events.size() == count || start == *first);
            ASSERT_TRUE(count == 0 || !events.empty());
            ASSERT_TRUE(events.empty() || events.front().TimeMs == *first);
        }
    }
}

TEST_F(TraceEventStreamTest, ALimitHoldsEventsBack)
{
    Make();
    AddSamples({0, 1, 2, 2, 3}, 2);
    TraceEventStreamReader reader = mStream->CreateReader(0.0);
    EXPECT_THAT(ReadTimes(reader, 1.0), ElementsAre(0.0)) << "the limit itself is above";
    EXPECT_THAT(ReadTimes(reader, 1.0), IsEmpty());
    EXPECT_EQ(reader.GetEventsRead(), 1U);
    EXPECT_THAT(ReadTimes(reader, 2.5), ElementsAre(1.0, 2.0, 2.0));
    EXPECT_THAT(ReadTimes(reader), ElementsAre(3.0));
    EXPECT_EQ(reader.GetEventsRead(), 5U);
}

// "No limit" is no limit above all times: there are times that lie below none.
TEST_F(TraceEventStreamTest, ImpossibleTimesDoNotEndTheStream)
{
    Make();
    const double infinity = std::numeric_limits<double>::infinity();
    AddSamples({0, infinity, std::numeric_limits<double>::quiet_NaN(), 1}, 10);
    EXPECT_THAT(ReadAll(), testing::SizeIs(4));
}

TEST_F(TraceEventStreamTest, InstrumentationCanBeLeftOutAndStillCounts)
{
    Make();
    Add({0, -1, 0, SampleEvent{1}});
    Add({1, -1, 0, InstrumentationBeginEvent{1, "a", ""}});
    Add({2, -1, 0, InstrumentationEndEvent{}});
    Flush();
    Add({3, -1, 0, InstrumentationBeginColoredEvent{1, "b", "", 1}});
    Add({4, -1, 0, SampleEvent{2}});
    Flush();
    Add({5, -1, 0, InstrumentationEndEvent{}});
    Flush();
    mStream->SetIncludeInstrumentation(false);
    TraceEventStreamReader reader = mStream->CreateReader(0.0);
    mStream->SetIncludeInstrumentation(true);
    EXPECT_THAT(ReadTimes(reader), ElementsAre(0.0, 4.0));
    EXPECT_EQ(reader.GetEventsRead(), mStream->GetNumEvents());
    EXPECT_THAT(ReadAll(), testing::SizeIs(6));
}

TEST_F(TraceEventStreamTest, ACopyReadsOnItsOwn)
{
    Make();
    AddSamples({0, 1, 2, 3, 4}, 3);
    TraceEventStreamReader reader = mStream->CreateReader(0.0);
    TraceEvent event;
    ASSERT_TRUE(reader.NextEvent(event));
    TraceEventStreamReader copy = reader;
    EXPECT_THAT(ReadTimes(reader), testing::SizeIs(4));
    EXPECT_THAT(ReadTimes(copy), ElementsAre(1.0, 2.0, 3.0, 4.0));
    EXPECT_EQ(copy.GetEventsRead(), 5U);
}

TEST_F(TraceEventStreamTest, LoadingSaysWhatIsMissing)
{
    Make();
    AddSamples({0}, 1);
    std::filesystem::rename(At("events.dat"), At("away"));
    EXPECT_EQ(LoadError(), "1: Unable to open events data file " + At("events.dat") + ", the file does not exist");
    std::filesystem::rename(At("away"), At("events.dat"));
    std::filesystem::remove(At("events.index"));
    EXPECT_EQ(LoadError(), "1: The file " + At("events.index") + " does not exist");
    const Serialization::Schema other;
    const RTTI::Object* object = &other;
    ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("events.index"), {&object, 1}, mErrors));
    EXPECT_EQ(LoadError(), "6: The file does not appear to be a TraceEventStream file (missing TraceEventStream object)");
}

TEST_F(TraceEventStreamTest, DamageIsNeverTakenForTheEnd)
{
    Make();
    AddSamples({0, 1, 2, 3, 4, 5, 6, 7}, 4);
    const std::vector<uint8_t> file = ReadFile("events.dat");
    const std::string start = "Unable to read from event stream " + At("events.dat") + ": ";
    for (size_t size = 0; size < file.size(); ++size)
    {
        WriteBytes("events.dat", {file.begin(), file.begin() + static_cast<ptrdiff_t>(size)});
        ASSERT_EQ(ReadFailure(), start + "a chunk lies behind the end of the file");
    }
    // The frames carry no checksum, so not every change can be noticed; none may do harm.
    for (size_t place = 0; place < file.size(); ++place)
    {
        std::vector<uint8_t> damaged = file;
        damaged[place] ^= 0xFF;
        WriteBytes("events.dat", damaged);
        static_cast<void>(ReadFailure());
    }
    std::filesystem::remove(At("events.dat"));
    EXPECT_EQ(ReadFailure(), start + "the file can't be opened");
}

TEST_F(TraceEventStreamTest, EventsWaitWhereAChunkCanNotBeWritten)
{
    Make();
    MakeDirectory("events.dat");
    Add({1, -1, 0, SampleEvent{1}});
    EXPECT_FALSE(mStream->FlushStream(mErrors));
    EXPECT_EQ(mErrors.GetEntries()[0].Message, "Unable to open event stream " + At("events.dat") + ". Error: Is a directory");
    std::filesystem::remove(At("events.dat"));
    Add({2, -1, 0, SampleEvent{2}});
    Flush();
    EXPECT_THAT(ReadAll(), testing::SizeIs(2));
}

TEST_F(TraceEventStreamTest, AFullDiskKeepsWhatWasThere)
{
    Make();
    AddSamples({0, 1}, 2);
    // Writes there always fail as those to a full disk do.
    std::filesystem::create_symlink("/dev/full", At("full"));
    ASSERT_TRUE(mStream->AddEvent({2, -1, 0, SampleEvent{2}}, mErrors));
    for (uint64_t i = 1; i + 1 < TraceEventStream::sEventsPerChunk; ++i)
        ASSERT_TRUE(mStream->AddEvent({2, -1, 0, SampleEvent{2}}, At("index"), At("full"), mErrors));
    EXPECT_FALSE(mStream->AddEvent({2, -1, 0, SampleEvent{2}}, At("index"), At("full"), mErrors));
    EXPECT_EQ(mErrors.GetEntries()[0].Message,
              "Unable to write to event stream " + At("full") + ". Error: No space left on device");
    Flush();
    EXPECT_THAT(ReadAll(), testing::SizeIs(2 + TraceEventStream::sEventsPerChunk));
}

TEST_F(TraceEventStreamTest, AnIndexThatWasNotWrittenIsMadeUpForAtTheNextFlush)
{
    Make();
    AddSamples({0, 1}, 2);
    MakeDirectory("events.index.new");
    Add({2, -1, 0, SampleEvent{2}});
    EXPECT_FALSE(mStream->FlushStream(mErrors));
    std::filesystem::remove(At("events.index.new"));
    Flush();
    Reload();
    EXPECT_THAT(ReadAll(), testing::SizeIs(3));
}

TEST_F(TraceEventStreamTest, AChunkLargerThanMemoryIsRefused)
{
    Make();
    AddSamples({0, 1}, 2);
    constexpr uint64_t size = uint64_t{8} << 40;
    std::error_code error;
    std::filesystem::resize_file(At("events.dat"), size, error);
    if (error)
        return; // the file system has no files of that size
    auto& chunks = *static_cast<std::vector<TraceEventStream::Chunk>*>(
        RTTI::gFindProperty(mStream->GetType(), "Chunks")->GetData(&*mStream));
    chunks[0].Size = size;
    EXPECT_EQ(ReadFailure(), "Unable to read from event stream " + At("events.dat") + ": a chunk doesn't fit into memory");
}

class StreamUpgradeTest : public TraceEventStreamTest
{
protected:
    // Files of the plain layout, put together byte by byte.
    void WriteOldFiles(const Events& inEvents, size_t inChunkSize)
    {
        mStream = std::make_unique<TraceEventStream>(At(""), TraceEventStream::sColumnarVersion);
        Host::ByteWriter data;
        std::vector<TraceEventStream::Chunk> chunks;
        for (size_t i = 0; i < inEvents.size(); ++i)
        {
            if (i % inChunkSize == 0)
                chunks.push_back({inEvents[i].TimeMs, 0, data.Bytes.size(), 0, 0, {}, {}});
            Utility::ByteBuffer payload;
            gEncodePayload(inEvents[i], payload);
            const size_t start = data.Bytes.size();
            data.Add(static_cast<uint8_t>(inEvents[i].GetType())).Add(inEvents[i].TimeMs).Add(inEvents[i].ProcessID);
            data.Add(inEvents[i].ThreadID).AddBytes({payload.GetData(), payload.GetData() + payload.GetSize()});
            chunks.back().EndTime = inEvents[i].TimeMs;
            chunks.back().Size += data.Bytes.size() - start;
            ++chunks.back().NumEvents;
        }
        WriteBytes("events.dat", data.Bytes);
        WriteIndex(inEvents.size(), std::move(chunks));
    }

    void WriteIndex(uint64_t inNumEvents, std::vector<TraceEventStream::Chunk> inChunks)
    {
        TraceEventStream index(At(""), TraceEventStream::sPlainVersion);
        *GetField<uint64_t>(index, "NumEvents") = inNumEvents;
        *GetField<std::vector<TraceEventStream::Chunk>>(index, "Chunks") = std::move(inChunks);
        const RTTI::Object* object = &index;
        ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("events.index"), {&object, 1}, mErrors));
    }

    template <class T>
    static T* GetField(TraceEventStream& ioStream, const char* inName)
    {
        return static_cast<T*>(RTTI::gFindProperty(ioStream.GetType(), inName)->GetData(&ioStream));
    }

    bool Upgrade()
    {
        return mStream->UpgradeStream(mIsCanceled, mErrors, [this](float inFraction) { mProgress.push_back(inFraction); });
    }

    bool mIsCanceled = false;
    std::vector<float> mProgress;
};

TEST_F(StreamUpgradeTest, OldEventsComeBackInTheNewLayout)
{
    const Events events = gMakeAllKinds();
    WriteOldFiles(events, 7);
    EXPECT_TRUE(Reload().NeedsUpgrade());
    WriteFile("events_old.dat", "left over");
    WriteFile("events_tmp.dat", "left over");
    EXPECT_TRUE(Upgrade()) << Utility::GetErrorText(mErrors);
    EXPECT_FALSE(Reload().NeedsUpgrade());
    EXPECT_EQ(ReadAll(), events);
    EXPECT_EQ(mStream->GetChunks().size(), 1U);
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index"));
    EXPECT_EQ(mProgress.size(), events.size());
    EXPECT_EQ(mProgress.back(), 1.0F);
    EXPECT_TRUE(Upgrade()) << "nothing is left to do";
}

TEST_F(StreamUpgradeTest, ChunksOfAnotherLayoutAreNotTakenForThoseOfToday)
{
    Make();
    AddSamples({1.0}, 1);
    for (const uint32_t version : {TraceEventStream::sPlainVersion, TraceEventStream::sColumnarVersion + 1})
    {
        *GetField<uint32_t>(*mStream, "EventDataVersion") = version;
        EXPECT_EQ(ReadFailure(),
                  "Unable to read from event stream " + At("events.dat") + ": its chunks don't have the layout of today");
    }
}

TEST_F(StreamUpgradeTest, AStreamWithoutEventsIsUpgradedToo)
{
    WriteBytes("events.dat", {});
    WriteIndex(0, {});
    Reload();
    EXPECT_TRUE(Upgrade()) << Utility::GetErrorText(mErrors);
    EXPECT_FALSE(Reload().NeedsUpgrade());
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index"));
}

TEST_F(StreamUpgradeTest, FailuresLeaveTheOldFiles)
{
    const Events events = gMakeAllKinds();
    WriteOldFiles(events, 7);
    const auto readFiles = [this] { return std::pair(ReadFile("events.index"), ReadFile("events.dat")); };
    const auto oldFiles = readFiles();

    Reload();
    mIsCanceled = true;
    EXPECT_FALSE(Upgrade());
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index"));
    EXPECT_EQ(readFiles(), oldFiles);
    mIsCanceled = false;
    Flush();
    EXPECT_TRUE(mStream->NeedsUpgrade());
    EXPECT_EQ(readFiles(), oldFiles);

    // A backup that can't be deleted.
    MakeDirectory("events_old.dat");
    Reload();
    EXPECT_FALSE(Upgrade());
    EXPECT_EQ(mErrors.GetEntries().back().Message,
              "Unable to upgrade event stream: failed to replace file " + At("events.dat") + " with " + At("events_tmp.dat"));
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index", "events_old.dat"));
    EXPECT_EQ(readFiles(), oldFiles);
}

TEST_F(StreamUpgradeTest, DamagedRecordsEndIt)
{
    WriteOldFiles(gMakeAllKinds(), 100);
    const std::vector<uint8_t> whole = ReadFile("events.dat");
    const std::string start = "Unable to read from old event stream " + At("events.dat");
    Reload();
    WriteBytes("events.dat", {whole.begin(), whole.end() - 1});
    EXPECT_FALSE(Upgrade());
    EXPECT_THAT(mErrors.GetEntries().back().Message, HasSubstr(start));
    std::vector<uint8_t> unknown = whole;
    unknown[0] = 18;
    WriteBytes("events.dat", unknown);
    Reload();
    EXPECT_FALSE(Upgrade());
    EXPECT_EQ(mErrors.GetEntries().back().Message, start + ". Error: A record is damaged");
    EXPECT_THAT(List(""), ElementsAre("events.dat", "events.index"));
}

} // namespace
} // namespace Profiler
