#include "FileSystem/File.h"
#include "RTTI/TypeQueries.h"
#include "Session/Callstacks/BrokenStackChunk.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Support/SessionRegistry.h"

#include <gmock/gmock.h>

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
        mPlatform->IsComplete = [this](std::span<const uint64_t> inStack)
        { return !inStack.empty() && inStack[0] == mFixture.GetAddress("main"); };
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
            std::vector<BrokenRange> ranges;
            EXPECT_TRUE(chunks.size() == 1 && file.ReadChunk(chunks[0], ranges));
            for (const BrokenRange& range : ranges)
                text += Utility::gFormat("%d: %g..", thread, range.Start) +
                        (range.Stack == sNoCallstack ? "end" : gPrintNumber(range.End) + " " + PrintStack(range.Stack)) + "\n";
        }
        return text;
    }
    std::string PrintStack(CallstackKey inKey)
    {
        for (const char* stack : {"main", "main;work", "main;other"})
            if (mFixture.Intern(stack) == inKey)
                return stack;
        return "?";
    }

    std::string BuildRanges()
    {
        EXPECT_TRUE(Build()) << Utility::GetErrorText(mErrors);
        return PrintRanges();
    }

    SessionFixture mFixture{At("capture.session")};
    const RTTI::Registry& mRegistry = gGetSessionRegistry();
    ListeningPlatformSession* mPlatform = nullptr; // the session's
    Utility::ErrorState mErrors;
    bool mIsCanceled = false;
};

// --- Which events count ---

TEST_F(BuildBrokenStackIndexTest, StacksOfWhereAThreadRanCount)
{
    Store("10 sample A leaf\n10.5 sample A leaf;other\n10.5 sample B main\n11 sample A main;work\n11.5 sample A main\n"
          "12 sample B leaf;other\n"
          "14 sample A leaf\n14 sample A main\n"
          "20 in A leaf\n21 in A main\n"
          "30 begin A leaf Draw\n31 begin A main Draw\n"
          "40 begin A leaf Draw Context 255\n41 begin A main;other Draw Context 255\n"
          "50 stack A leaf\n51 wake A B leaf\n52 wake-timed A B leaf 52\n60 sample A main\n"
          "70 sample A leaf\n71 stack A main\n72 wake A B main\n73 wake-timed A B main 73\n"
          "74 out A 6\n75 start A 1\n76 end A\n77 exit A 1\n80 sample A main\n"
          "90 sample A -\n91 sample A empty\n92 sample A lost\n"
          "93 sample A leaf\n94 sample A -\n95 sample A empty\n96 sample A lost\n97 sample A main\n");
    EXPECT_EQ(BuildRanges(), "0: 10..11 main;work\n"
                             "0: 14..14 main\n"
                             "0: 20..21 main\n"
                             "0: 30..31 main\n"
                             "0: 40..41 main;other\n"
                             "0: 70..80 main\n"
                             "0: 93..97 main\n"
                             "1: 12..end\n");
}

// What isn't of a captured process is passed over.
TEST_F(BuildBrokenStackIndexTest, ProcessesOfAnUpgradedSessionAreTranslatedButAskedForAsTheyStand)
{
    const RTTI::Property* map = RTTI::gFindProperty(RTTI::gTypeOf<Session>(), "ProcessCompatibilityMap");
    for (auto [oldID, newID] : {std::pair(500, sGame), std::pair(501, 0), std::pair(502, gMakeCapturedProcessID(1))})
        map->Type->AsMap()->Insert(map->GetData(&GetSession()), &oldID, &newID);
    GetSession().AddNonCapturedProcess(0, "other", "", true, nullptr, 0.0, 0.0);
    StoreSample(10, "leaf", sGame); // not in the map
    StoreSample(11, "leaf", 501);
    StoreSample(12, "leaf", 502);
    StoreSample(20, "leaf", 500);
    StoreSample(21, "main", 500);
    EXPECT_EQ(BuildRanges(), "0: 20..21 main\n");
    EXPECT_THAT(mPlatform->Processes, ElementsAre(500, 500));
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
    EXPECT_EQ(BuildRanges(), "0: 20..21 main;work\n");
}

TEST_F(BuildBrokenStackIndexTest, WithoutKnowledgeOfStacksThereIsAnEmptyIndex)
{
    Store("10 sample A leaf");
    GetSession().SetPlatformSession(nullptr);
    EXPECT_EQ(BuildRanges(), "");
}

// --- Progress, cancellation, failure ---

TEST_F(BuildBrokenStackIndexTest, ProgressCountsAllEvents)
{
    std::vector<float> progress;
    StoreSample(1, "main", 0);
    Store("2 out A 6\n3 sample A -\n4 sample A leaf");
    EXPECT_TRUE(Build([&progress](float inFraction) { progress.push_back(inFraction); }));
    EXPECT_THAT(progress, ElementsAre(0.25F, 0.5F, 0.75F, 1.0F));
}

TEST_F(BuildBrokenStackIndexTest, ACancelledPassKeepsWhatItFound)
{
    Store("1 sample A leaf\n2 sample A main\n3 sample A leaf\n4 sample B leaf");
    // At the third event, which is still taken.
    EXPECT_FALSE(Build([this](float inFraction) { mIsCanceled = inFraction == 0.75F; }));
    EXPECT_EQ(PrintRanges(), "0: 1..2 main\n0: 3..end\n");

    EXPECT_FALSE(Build()) << "cancelled before it began";
    EXPECT_EQ(PrintRanges(), "");
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());

    mIsCanceled = false;
    EXPECT_EQ(BuildRanges(), "0: 1..2 main\n0: 3..end\n1: 4..end\n");
}

TEST_F(BuildBrokenStackIndexTest, AnOldIndexStaysWhereEventsAreDamaged)
{
    Store("1 sample A leaf\n2 sample A main");
    EXPECT_EQ(BuildRanges(), "0: 1..2 main\n");
    std::vector<uint8_t> before;
    std::vector<uint8_t> after;
    ASSERT_TRUE(FileSystem::gReadFile(At("stacks.index"), before));
    Store("3 sample A leaf");
    Flush(); // a second chunk, which is cut off
    std::filesystem::resize_file(At("events.dat"), std::filesystem::file_size(At("events.dat")) - 1);
    EXPECT_FALSE(Build());
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(1));
    EXPECT_EQ(mErrors.GetEntries()[0].Message,
              "Unable to read from event stream " + At("events.dat") + ": a chunk lies behind the end of the file");
    ASSERT_TRUE(FileSystem::gReadFile(At("stacks.index"), after));
    EXPECT_EQ(after, before);
    EXPECT_EQ(PrintRanges(), "0: 1..2 main\n");
}

TEST_F(BuildBrokenStackIndexTest, WhatCanNotBeWrittenEndsThePassWithoutAnIndex)
{
    StoreSample(0, "leaf");
    MakeDirectory("stacks.dat");
    EXPECT_FALSE(Build());
    EXPECT_THAT(mPlatform->Processes, IsEmpty());
    std::filesystem::remove(At("stacks.dat"));
    // Writes there always fail as those to a full disk do.
    std::filesystem::create_symlink("/dev/full", At("stacks.dat"));
    EXPECT_FALSE(Build()) << "at the end of the pass";
    mPlatform->Processes.clear();
    for (int i = 1; i < 502; ++i)
        StoreSample(i, i % 2 == 0 ? "leaf" : "main");
    EXPECT_FALSE(Build());
    EXPECT_THAT(mPlatform->Processes, SizeIs(500)) << "with the first full chunk";
    ASSERT_THAT(mErrors.GetEntries(), SizeIs(3));
    EXPECT_EQ(mErrors.GetEntries()[0].Message,
              "Unable to initialize broken stack processing state" + At("stacks.dat") + ". Error: Is a directory");
    for (const size_t i : {1, 2})
        EXPECT_EQ(mErrors.GetEntries()[i].Message, "Failed to write broken stack stream. Error: No space left on device");
    EXPECT_FALSE(std::filesystem::exists(At("stacks.index")));
}

} // namespace
