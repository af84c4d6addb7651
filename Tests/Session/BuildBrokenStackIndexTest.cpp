#include "FileSystem/File.h"
#include "RTTI/TypeQueries.h"
#include "Session/Callstacks/BrokenStackChunk.h"
#include "Session/Events/TraceEventStreamReader.h"
#include "Session/Pass/EventDispatcher.h"
#include "Session/Pass/FiberState.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Support/SessionRegistry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr ProcessID sGame = gMakeCapturedProcessID(0);

// Also writes down for which processes it was asked.
class ListeningPlatformSession : public FakePlatformSession
{
public:
    [[nodiscard]] bool IsStackComplete(Session& inSession, ProcessID inProcess, std::span<const uint64_t> inStack) override
    {
        Processes.push_back(inProcess);
        return FakePlatformSession::IsStackComplete(inSession, inProcess, inStack);
    }

    std::vector<ProcessID> Processes;
};

// Gathers the bars of all threads as text.
class BarModel : public FakeModel
{
public:
    BarModel(SessionFixture& inFixture, FakeModelPlugin& inPlugin, CallList& ioCalls)
        : FakeModel(inPlugin, inFixture.GetSession(), "bars", ioCalls),
          mFixture(inFixture)
    {
    }

    ThreadProcessingState* CreateThreadProcessingState(OpenBarProcessor& inProcessor) override
    {
        mRecorders.push_back(std::make_unique<BarRecorder>(mFixture, inProcessor));
        return FakeModel::CreateThreadProcessingState(inProcessor);
    }

    [[nodiscard]] std::string TakeReports()
    {
        std::string reports;
        for (const std::unique_ptr<BarRecorder>& recorder : mRecorders)
            reports += recorder->TakeReports();
        return reports;
    }

private:
    SessionFixture& mFixture;
    std::vector<std::unique_ptr<BarRecorder>> mRecorders;
};

// A session with stored events, in which a stack is complete if it begins with main.
class BuildBrokenStackIndexTest : public TemporaryDirectoryTest
{
protected:
    BuildBrokenStackIndexTest()
    {
        FakeModule& game = mFixture.AddModule(
            "/bin/game", 0x1000, {{0x100, 0x80, "main"}, {0x200, 0x80, "work"}, {0x300, 0x80, "leaf"}, {0x400, 0x80, "other"}});
        mFixture.LoadModule(game, 0x10000);
        mFixture.AddThread("A");
        mFixture.AddThread("B");
        auto platform = std::make_unique<ListeningPlatformSession>();
        mPlatform = platform.get();
        GetSession().SetPlatformSession(std::move(platform));
        mPlatform->IsComplete = [this](std::span<const uint64_t> inStack) { return inStack[0] == mFixture.GetAddress("main"); };
    }

    Session& GetSession() { return mFixture.GetSession(); }

    void Store(const std::string& inTrace)
    {
        for (const TraceEvent& event : mFixture.BuildTrace(inTrace))
            Store(event);
    }
    void Store(const TraceEvent& inEvent)
    {
        ASSERT_TRUE(GetSession().GetEventStream().AddEvent(inEvent, mErrors)) << Utility::GetErrorText(mErrors);
    }
    void Flush() { ASSERT_TRUE(GetSession().GetEventStream().FlushStream(mErrors)) << Utility::GetErrorText(mErrors); }
    // A sample of thread A where the text allows none.
    void StoreSample(double inTime, const std::string& inStack, ProcessID inProcess = sGame)
    {
        Store(TraceEvent(inTime, inProcess, 0, SampleEvent{mFixture.Intern(inStack)}));
    }

    // The pass, over all that was stored.
    bool Build(const Utility::ProgressFunction& inProgress = {})
    {
        Flush();
        return GetSession().BuildBrokenStackIndex(mRegistry, mErrors, mIsCanceled, inProgress);
    }

    std::string PrintStack(CallstackKey inKey)
    {
        std::string text;
        const Callstack* stack = GetSession().GetCallstack(inKey);
        for (size_t i = 0; stack != nullptr && i < stack->size(); ++i)
            for (const char* name : {"main", "work", "leaf", "other"})
                if (mFixture.GetAddress(name) == (*stack)[i])
                    text += (i == 0 ? "" : ";") + std::string(name);
        return text;
    }

    // What the session has loaded, a line per range, by thread.
    std::string PrintRanges()
    {
        const BrokenStackIndex* index = GetSession().GetBrokenStacks().GetIndex();
        if (index == nullptr)
            return "nothing loaded";
        BrokenStackFile file;
        EXPECT_TRUE(file.Open(At("stacks.dat")));
        std::string text;
        for (const auto& [thread, chunks] : std::map(index->ChunksByThread.begin(), index->ChunksByThread.end()))
        {
            for (const BrokenStackIndex::Chunk& chunk : chunks)
            {
                std::vector<BrokenRange> ranges;
                EXPECT_TRUE(file.ReadChunk(chunk, ranges));
                for (const BrokenRange& range : ranges)
                {
                    text += Utility::gFormat("%d: %g..", thread, range.Start);
                    text +=
                        range.Stack == sNoCallstack ? "end\n" : gPrintNumber(range.End) + " " + PrintStack(range.Stack) + "\n";
                }
            }
        }
        return text;
    }

    // A pass over the stored events, and what it reports of the bars.
    std::string RunBars()
    {
        OpenBarProcessorFiberState fibers;
        CallList calls;
        FakeModelPlugin plugin("", calls);
        BarModel model(mFixture, plugin, calls);
        EventDispatcher dispatcher(GetSession(), fibers, GetSession().GetBrokenStacks(), {&model});
        EXPECT_TRUE(dispatcher.BeginProcessing(mErrors));
        TraceEventStreamReader reader = GetSession().GetEventStream().CreateReader(0.0);
        for (TraceEvent event; reader.NextEvent(event);)
            EXPECT_TRUE(dispatcher.Dispatch(event, mErrors));
        EXPECT_TRUE(dispatcher.FinishProcessing(mErrors, false));
        return model.TakeReports();
    }

    std::vector<uint8_t> Read(const std::string& inName)
    {
        std::vector<uint8_t> bytes;
        EXPECT_TRUE(FileSystem::gReadFile(At(inName), bytes)) << inName;
        return bytes;
    }

    SessionFixture mFixture{At("capture.session")};
    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    ListeningPlatformSession* mPlatform = nullptr; // the session's
    Utility::ErrorState mErrors;
    bool mIsCanceled = false;
};

// --- Which events count ---

TEST_F(BuildBrokenStackIndexTest, RangesOfSeveralThreadsAreFound)
{
    Store("0 sample A main;work\n"
          "1 sample B main\n"
          "10 sample A leaf\n"
          "11 sample B leaf;other\n"
          "12 sample A work;leaf\n"
          "13 sample A main;work;leaf\n"
          "14 sample A leaf\n"
          "15 sample B main;other\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 10..13 main;work;leaf\n"
                             "0: 14..end\n"
                             "1: 11..15 main;other\n");
}

TEST_F(BuildBrokenStackIndexTest, OnlyStacksOfWhereAThreadRanCount)
{
    Store("10 sample A leaf\n"
          "11 sample A main;work\n"
          "20 in A leaf\n"
          "21 in A main\n"
          "30 begin A leaf Draw\n"
          "31 begin A main Draw\n"
          "40 begin A leaf Draw Context 255\n"
          "41 begin A main;other Draw Context 255\n"
          "50 stack A leaf\n"
          "51 wake A B leaf\n"
          "52 wake-timed A B leaf 52\n"
          "60 sample A main\n"
          "70 sample A leaf\n"
          "71 stack A main\n"
          "72 wake A B main\n"
          "73 wake-timed A B main 73\n"
          "74 out A 6\n"
          "75 start A 1\n"
          "76 end A\n"
          "77 exit A 1\n"
          "80 sample A main\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 10..11 main;work\n"
                             "0: 20..21 main\n"
                             "0: 30..31 main\n"
                             "0: 40..41 main;other\n"
                             "0: 70..80 main\n");
}

TEST_F(BuildBrokenStackIndexTest, EventsOfProcessesThatAreNotCapturedArePassedOver)
{
    GetSession().AddNonCapturedProcess(3, "other", "", true, nullptr, 0.0, 0.0);
    StoreSample(10, "leaf", 0);
    StoreSample(11, "leaf", gMakeCapturedProcessID(1));
    StoreSample(12, "leaf", gMakeCapturedProcessID(0x7FFFFFFF));
    StoreSample(20, "leaf");
    StoreSample(21, "main", 0);
    StoreSample(22, "main", gMakeCapturedProcessID(1));
    StoreSample(23, "main;work");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 20..23 main;work\n");
    EXPECT_THAT(mPlatform->Processes, ElementsAre(sGame, sGame));
}

TEST_F(BuildBrokenStackIndexTest, ProcessesOfAnUpgradedSessionAreTranslatedButAskedForAsTheyStand)
{
    const RTTI::Property* map = RTTI::gFindProperty(RTTI::gTypeOf<Session>(), "ProcessCompatibilityMap");
    for (auto [oldID, newID] : {std::pair(500, sGame), std::pair(501, 0), std::pair(502, gMakeCapturedProcessID(1))})
        map->Type->AsMap()->Insert(map->GetData(&GetSession()), &oldID, &newID);
    StoreSample(10, "leaf", sGame); // not in the map
    StoreSample(11, "leaf", 501);
    StoreSample(12, "leaf", 502);
    StoreSample(20, "leaf", 500);
    StoreSample(21, "main", 500);
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 20..21 main\n");
    EXPECT_THAT(mPlatform->Processes, ElementsAre(500, 500));
}

TEST_F(BuildBrokenStackIndexTest, StacksWithoutFramesArePassedOver)
{
    Store("10 sample A -\n"
          "11 sample A empty\n"
          "12 sample A lost\n"
          "20 sample A leaf\n"
          "21 sample A -\n"
          "22 sample A empty\n"
          "23 sample A lost\n"
          "24 sample A main\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 20..24 main\n");
    EXPECT_THAT(mPlatform->Processes, SizeIs(2)) << "the platform isn't asked about them";
}

// A pass drops them too, so no event that it steps with would have such a time.
TEST_F(BuildBrokenStackIndexTest, EventsAtImpossibleTimesArePassedOver)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double noTime = std::numeric_limits<double>::quiet_NaN();
    for (const double time : {noTime, infinity, 1e300, -1e300})
        StoreSample(time, "leaf");
    StoreSample(10, "main");
    StoreSample(20, "leaf");
    for (const double time : {noTime, infinity, -infinity, 1e300})
        StoreSample(time, "main");
    StoreSample(21, "main;work");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 20..21 main;work\n");
}

TEST_F(BuildBrokenStackIndexTest, WithoutKnowledgeOfStacksThereIsAnEmptyIndex)
{
    Store("10 sample A leaf\n");
    mPlatform->IsComplete = nullptr;
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "");
    EXPECT_TRUE(std::filesystem::exists(At("stacks.index")));

    GetSession().SetPlatformSession(nullptr);
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "");
}

TEST_F(BuildBrokenStackIndexTest, ALaterPassReplacesWhatWasFound)
{
    Store("10 sample A leaf\n"
          "11 sample B leaf\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 10..end\n1: 11..end\n");
    mPlatform->IsComplete = [this](std::span<const uint64_t> inStack) { return inStack[0] != mFixture.GetAddress("main"); };
    Store("12 sample A main\n"
          "13 sample A leaf\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 12..13 leaf\n");
}

// --- Progress, cancellation, failure ---

TEST_F(BuildBrokenStackIndexTest, ProgressCountsAllEvents)
{
    std::vector<float> progress;
    const auto report = [&progress](float inFraction) { progress.push_back(inFraction); };
    StoreSample(1, "main", 0);
    Store("2 out A 6\n"
          "3 sample A -\n"
          "4 sample A leaf\n");
    EXPECT_TRUE(Build(report));
    EXPECT_THAT(progress, ElementsAre(0.25F, 0.5F, 0.75F, 1.0F));

    progress.clear();
    for (int i = 5; i <= 1000; ++i)
        StoreSample(i, "main");
    EXPECT_TRUE(Build(report));
    EXPECT_THAT(progress, SizeIs(100));
    EXPECT_EQ(progress.back(), 1.0F);
}

TEST_F(BuildBrokenStackIndexTest, ACancelledPassKeepsWhatItFound)
{
    Store("1 sample A leaf\n"
          "2 sample A main\n"
          "3 sample A leaf\n"
          "4 sample B leaf\n");
    // At the third event, which is still taken.
    EXPECT_FALSE(Build([this](float inFraction) { mIsCanceled = inFraction == 0.75F; }));
    EXPECT_EQ(PrintRanges(), "0: 1..2 main\n0: 3..end\n");
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());

    EXPECT_FALSE(Build()) << "cancelled before it began";
    EXPECT_EQ(PrintRanges(), "");
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());

    mIsCanceled = false;
    EXPECT_TRUE(Build());
    EXPECT_EQ(PrintRanges(), "0: 1..2 main\n0: 3..end\n1: 4..end\n");
}

TEST_F(BuildBrokenStackIndexTest, DamagedEventsGiveNoIndex)
{
    // Two chunks, of which the second is cut off.
    Store("1 sample A leaf\n");
    Flush();
    Store("2 sample A main\n");
    Flush();
    const uint64_t size = std::filesystem::file_size(At("events.dat"));
    std::filesystem::resize_file(At("events.dat"), size - 1);
    const std::string message =
        "Unable to read from event stream " + At("events.dat") + ": a chunk lies behind the end of the file";
    EXPECT_FALSE(Build());
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(1));
    EXPECT_EQ(mErrors.GetEntries()[0].Message, message);
    EXPECT_FALSE(std::filesystem::exists(At("stacks.index")));
    EXPECT_EQ(PrintRanges(), "nothing loaded");
}

TEST_F(BuildBrokenStackIndexTest, AnOldIndexStaysWhereThePassFails)
{
    Store("1 sample A leaf\n"
          "2 sample A main\n");
    ASSERT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    const std::vector<uint8_t> index = Read("stacks.index");
    std::filesystem::resize_file(At("events.dat"), 1);
    EXPECT_FALSE(Build());
    EXPECT_EQ(Read("stacks.index"), index);
    EXPECT_EQ(PrintRanges(), "0: 1..2 main\n");
}

TEST_F(BuildBrokenStackIndexTest, AFolderWithoutPlaceForTheDataFailsThePass)
{
    Store("1 sample A leaf\n");
    MakeDirectory("stacks.dat");
    EXPECT_FALSE(Build());
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(1));
    EXPECT_EQ(mErrors.GetEntries()[0].Message,
              "Unable to initialize broken stack processing state" + At("stacks.dat") + ". Error: Is a directory");
    EXPECT_THAT(mPlatform->Processes, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(At("stacks.index")));
}

TEST_F(BuildBrokenStackIndexTest, AChunkThatCanNotBeWrittenEndsThePass)
{
    for (int i = 0; i < 250; ++i)
    {
        StoreSample(2 * i, "leaf");
        StoreSample(2 * i + 1, "main");
    }
    StoreSample(500, "main");
    // Writes there always fail as those to a full disk do.
    std::filesystem::create_symlink("/dev/full", At("stacks.dat"));
    EXPECT_FALSE(Build());
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(1));
    EXPECT_EQ(mErrors.GetEntries()[0].Message, "Failed to write broken stack stream. Error: No space left on device");
    EXPECT_THAT(mPlatform->Processes, SizeIs(500));
    EXPECT_FALSE(std::filesystem::exists(At("stacks.index")));
}

// --- What it is good for ---

TEST_F(BuildBrokenStackIndexTest, BarsGoOnOverABrokenRange)
{
    Store("0 sample A main;work\n"
          "10 sample A leaf\n"
          "15 sample A leaf;other\n"
          "20 sample A main;work\n"
          "30 sample A main\n");
    Flush();
    EXPECT_EQ(RunBars(), "keep 0 of 2, chunk 0 from 0\n"
                         "main 0..1 run* 1\n"
                         "work<main 0..1 run* 1 hits work:1\n"
                         "keep 0 of 2, chunk 0 from 0\n"
                         "leaf 10..16 run* 6 hits leaf:1\n"
                         "other<leaf 15..16 run* 1 hits other:1\n"
                         "keep 1 of 2, chunk 0 from 0\n"
                         "main 20..21 run* 1\n"
                         "work<main 20..21 run* 1 hits work:1\n"
                         "keep 0 of 1, chunk 0 from 0\n"
                         "main 20..31 run* 11 hits main:1\n");
    EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
    EXPECT_EQ(PrintRanges(), "0: 10..20 main;work\n");
    EXPECT_EQ(RunBars(), "keep 2 of 5, chunk 0 from 0\n"
                         "main 0..16 run* 16\n"
                         "work<main 0..16 run* 16 hits work:1\n"
                         "[missing] 10..16 run* 6\n"
                         "leaf 10..16 run* 6 hits leaf:1\n"
                         "other<leaf 15..16 run* 1 hits other:1\n"
                         "keep 1 of 2, chunk 0 from 0\n"
                         "main 0..21 run* 21\n"
                         "work<main 0..21 run* 21 hits work:2\n"
                         "keep 0 of 1, chunk 0 from 0\n"
                         "main 0..31 run* 31 hits main:1\n");
}

} // namespace
