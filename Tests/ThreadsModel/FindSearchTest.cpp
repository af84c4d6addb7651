// Searches in small timelines: what a visitor hears, which chunks are looked at, and how searches end.
#include "Tests/Serialization/Build.h"
#include "Tests/ThreadsModel/GameTimeline.h"
#include "Tests/ThreadsModel/StreamingFixture.h"
#include "Tests/Utility/LogCapture.h"
#include "ThreadsModel/Find/FindMatching.h"
#include "ThreadsModel/Find/IFindVisitor.h"

#include <gmock/gmock.h>

#include <array>
#include <future>
#include <optional>
#include <set>
#include <thread>

namespace
{

using namespace Profiler;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr ResolvedAddress sMain = {0x100, {0}};
constexpr ResolvedAddress sWork = {0x200, {0}};
constexpr ResolvedAddress sLeaf = {0x300, {0}};
constexpr ResolvedAddress sOther = {0x400, {0}};

// --- One chunk ---

// Bars of a function F, and of others, in one chunk with its index.
class FindInChunkTest : public testing::Test
{
protected:
    void Add(int32_t inDepth, uint32_t inParent, const ResolvedAddress& inFunction, double inStart, double inEnd,
             uint32_t inCarry = 0)
    {
        uint64_t index = 0;
        mBars.AddBar(inDepth, inParent, inFunction.RelativeAddress, inFunction.ResolveIndex, inCarry >> Bar::sCarryShift, index,
                     inStart, inEnd);
    }

    // "depth@start", with a star if it is nested.
    std::string Find(double inStart, double inEnd, uint32_t inFlags = InsideChunk)
    {
        mQuery.Functions = {sMain};
        return Print([&](auto&&... inArguments) { gFindFunctionsInChunk(mQuery, inArguments...); }, inStart, inEnd, inFlags);
    }
    std::string FindStack(const ResolvedCallstack& inStack, double inStart, double inEnd, uint32_t inFlags = InsideChunk)
    {
        FindCallstacksQuery query;
        query.Callstacks = {inStack};
        return Print([&](const FunctionIndexChunk& inIndex, const BarChunk& inBars, double inFrom, double inTo,
                         const auto& inWanted, auto& ioFound)
                     { gFindCallstacksInChunk(query, {false}, inIndex, inBars, inFrom, inTo, inWanted, ioFound); },
                     inStart, inEnd, inFlags);
    }

    BarChunk mBars;
    FindFunctionsQuery mQuery;

private:
    template <class Matcher>
    std::string Print(const Matcher& inMatcher, double inStart, double inEnd, uint32_t inFlags)
    {
        FunctionIndexChunk index;
        index.Build(mBars.GetRows(), false);
        const std::vector<FunctionToProcess> wanted = {{.Index = 0, .Flags = inFlags}};
        std::vector<FoundBar> found;
        inMatcher(index, mBars, inStart, inEnd, wanted, found);
        std::string text;
        for (const FoundBar& bar : found)
            text += (text.empty() ? "" : " ") + std::to_string(bar.Depth) + "@" + gPrintNumber(bar.Bar->Start) +
                    (bar.IsNested ? "*" : "");
        return text;
    }
};

TEST_F(FindInChunkTest, RecursionHidesNothing)
{
    Add(0, Bar::sNoParent, sMain, 0, 100);
    Add(0, Bar::sNoParent, sMain, 100, 120);
    Add(1, 0, sMain, 10, 20);
    Add(1, 0, sWork, 30, 90);
    Add(2, 1, sMain, 30, 40);
    Add(2, 1, sMain, 50, 60);
    Add(3, 1, sMain, 50, 55);
    EXPECT_EQ(Find(-1, 1e9), "0@0 1@10* 2@30* 2@50* 3@50* 0@100");
    EXPECT_EQ(Find(22, 25), "0@0") << "behind a deeper one that ended before the window";
    EXPECT_EQ(Find(57, 57), "0@0 2@50*") << "behind two";
    EXPECT_EQ(Find(50, 50), "0@0 2@50* 3@50*") << "exactly at a start";
    EXPECT_EQ(Find(60, 100), "0@0 2@50* 0@100") << "exactly at an end, and up to a start";
    EXPECT_EQ(Find(-1, -0.5), "");
    EXPECT_EQ(Find(121, 130), "");
    mQuery.MinimumDepth = 2;
    EXPECT_EQ(Find(-1, 1e9), "2@30 2@50 3@50*") << "the outer ones don't match";
    mQuery.MinimumDepth = 0;
    mQuery.RequiredCallPath = {sMain, sWork};
    EXPECT_EQ(Find(-1, 1e9), "2@30 2@50 3@50*");
    mQuery.RequiredCallPath = {sMain, sMain};
    EXPECT_EQ(Find(-1, 1e9), "1@10") << "the path may end with the bar itself";
    mQuery.RequiredCallPath = {sWork};
    EXPECT_EQ(Find(-1, 1e9), "");

    EXPECT_EQ(FindStack({sMain}, 57, 57), "0@0");
    EXPECT_EQ(FindStack({sMain, sWork, sMain}, 45, 57), "2@50") << "behind a deeper one";
    EXPECT_EQ(FindStack({sMain, sWork, sMain, sMain}, -1, 1e9), "3@50");
    EXPECT_EQ(FindStack({sWork, sMain}, -1, 1e9), "");
    EXPECT_EQ(FindStack({}, -1, 1e9), "");
}

TEST_F(FindInChunkTest, ACallIsTakenWhereItBegins)
{
    Add(0, Bar::sNoParent, sMain, 0, 10, Bar::sContinuedFromPrevious);
    Add(0, Bar::sNoParent, sMain, 20, 30);
    Add(0, Bar::sNoParent, sMain, 40, 50, Bar::sContinuesInNext);
    EXPECT_EQ(Find(-1, 1e9, InsideChunk), "0@20");
    EXPECT_EQ(Find(-1, 1e9, StartsInChunk), "0@40");
    EXPECT_EQ(Find(-1, 1e9, StartsInChunk | InsideChunk | EndsInChunk), "0@20 0@40");
    EXPECT_EQ(Find(-1, 1e9, EndsInChunk), "");
    EXPECT_EQ(Find(60, 70, StartsInChunk), "0@40") << "the window begins in a later chunk";
    EXPECT_EQ(Find(60, 70, StartsInChunk | EndsInChunk), "") << "but not if anything else is wanted";
    EXPECT_EQ(Find(5, 35, StartsInChunk), "");
}

TEST_F(FindInChunkTest, AnIndexThatNamesOtherBarsIsNoticed)
{
    Add(0, Bar::sNoParent, sMain, 0, 10);
    FunctionIndexChunk index;
    index.Build(mBars.GetRows(), false);
    const std::vector<ResolvedAddress> functions = {sWork, sMain};
    const std::vector<FunctionToProcess> wanted = {{.Index = 0, .Flags = 0}, {.Index = 1, .Flags = 0}};
    EXPECT_TRUE(gFitsBars(index, mBars, functions, wanted));
    for (const FunctionBarEntry& wrong : {FunctionBarEntry{0, 1}, FunctionBarEntry{1, 0}})
    {
        index.GetFunctions()[sMain] = {{0, 0}, wrong};
        EXPECT_FALSE(gFitsBars(index, mBars, functions, wanted));
        EXPECT_TRUE(gFitsBars(index, mBars, functions, {wanted.data(), 1})) << "nobody asks for it";
    }
}

TEST(NestedFlagsTest, BelongToTheStackBehindItsPrefixInSortedOrder)
{
    using Flags = std::vector<bool>;
    EXPECT_EQ(gGetNestedFlags({}), Flags());
    EXPECT_EQ(gGetNestedFlags({{sMain, sWork, sLeaf}, {sMain}, {sWork}, {sMain, sWork}}), (Flags{true, false, false, true}));
    EXPECT_EQ(gGetNestedFlags({{sMain, sLeaf}, {sMain, sWork}, {sMain}}), (Flags{false, true, false})) << "another between";
    EXPECT_EQ(gGetNestedFlags({{sMain}, {sMain}}), (Flags{false, false}));
    EXPECT_EQ(gGetNestedFlags({{sMain}, {}}), (Flags{true, false})) << "every stack begins with the empty one";
    EXPECT_EQ(gGetNestedFlags({{sMain, {0x200, {1}}}, {{0x100, {0xC0000000}}}}), (Flags{true, false})) << "carry doesn't count";
    const Flags twice = gGetNestedFlags({{sMain, sWork}, {sMain}, {sMain, sWork}});
    EXPECT_EQ(twice[0] + twice[1] + twice[2], 1) << "one of two equal ones";
    EXPECT_FALSE(twice[1]);
}

// --- Whole timelines ---

// Writes down all that it is told, by find set.
class FindRecorder final : public IFindVisitor
{
public:
    explicit FindRecorder(SessionFixture& inWorld) : mWorld(inWorld) {}

    void OnFindStarted(const FindQuery& inQuery, uint32_t inID, const std::vector<ResolvedAddress>& inFunctions) override
    {
        std::string text = "start " + std::to_string(inID);
        for (const ResolvedAddress& function : inFunctions)
            text += " " + mWorld.PrintAddress(function.RelativeAddress, function.ResolveIndex);
        Tell(inQuery, text);
    }
    void OnFindFinished(const FindQuery& inQuery, uint32_t inID, uint32_t inNumBars) override
    {
        Tell(inQuery, Utility::gFormat("end %u: %u", inID, inNumBars));
    }
    void OnFindCancelled(const FindQuery& inQuery, uint32_t inID) override { Tell(inQuery, "cancelled " + std::to_string(inID)); }
    void OnBarFound(const FindQuery& inQuery, const Bar& inBar, int32_t inDepth, ThreadID, bool inIsNested,
                    uint64_t inContext) override
    {
        const std::string* context = mWorld.GetSession().GetModuleDatabase().GetInstrumentationDatabase().FindContext(inContext);
        const uint32_t index = inBar.ResolveIndex.Index & ResolveIndex::sComparedMask & ~ResolveIndex::sInstrumentedFlag;
        Tell(inQuery,
             mWorld.PrintAddress(inBar.Address, {index}) + (context != nullptr ? "!" + *context : "") +
                 Utility::gFormat("@%d %s%s", inDepth, gPrintSpan(inBar.Start, inBar.End).c_str(), inIsNested ? "*" : ""));
    }
    void OnThreadChanged(const FindQuery& inQuery, ThreadID inThread) override
    {
        Tell(inQuery, "thread " + std::to_string(inThread));
    }
    void OnFindProgress(const FindQuery& inQuery, uint32_t, int32_t inPercent) override
    {
        Tell(inQuery, std::to_string(inPercent) + "%");
    }

    // What was told since the last call.
    std::string Take(EFindSet inSet = EFindSet::FindResults)
    {
        const System::MutexLock lock(mMutex);
        return std::exchange(mTexts[static_cast<size_t>(inSet)], {});
    }

    std::function<void(const std::string&)> OnCall; // with each call, once it is written down

private:
    void Tell(const FindQuery& inQuery, const std::string& inText)
    {
        {
            const System::MutexLock lock(mMutex);
            std::string& text = mTexts[static_cast<size_t>(inQuery.FindSet)];
            text += (text.empty() ? "" : ", ") + inText;
        }
        if (OnCall)
            OnCall(inText);
    }

    SessionFixture& mWorld;
    System::Mutex mMutex;
    std::array<std::string, sNumFindSets> mTexts GUARDED_BY(mMutex);
};

FindFunctionsQuery gMakeQuery(std::vector<ResolvedAddress> inFunctions, double inStart = FindQuery::sCaptureStart,
                              double inEnd = FindQuery::sCaptureEnd)
{
    return {0,
            {},
            {0, 1},
            EFindSet::FindResults,
            EFindSource::ThreadView,
            std::move(inFunctions),
            {},
            FindQuery::EShowModuleInfo::No,
            inStart,
            inEnd};
}

// Writes down which chunks of bars are loaded.
class LoadLog final : public IStreamingLog
{
public:
    void Log(const std::string& inLine) override
    {
        const System::MutexLock lock(mMutex);
        if (inLine.find("Loaded chunk data of type [BarData]") != std::string::npos)
            mChunks.insert(std::stoi(inLine.substr(inLine.find("Chunk: ") + 7)));
    }
    void ChunkCountChanged(uint64_t) override {}
    void MemoryChanged(int64_t) override {}
    void PendingLoadsChanged(uint32_t) override {}

    [[nodiscard]] std::set<int> GetChunks()
    {
        const System::MutexLock lock(mMutex);
        return mChunks;
    }

private:
    System::Mutex mMutex;
    std::set<int> mChunks GUARDED_BY(mMutex);
};

class FindSearchTest : public GameTimelineTest
{
protected:
    FindSearchTest() : GameTimelineTest(2) { GetSession().GetSessionInfo().SessionEndTimeMs = 9000.0; }

    FindModel& GetFind() { return GetModel().GetFindModel(); }

    // All that a visitor is told of a search.
    std::string Find(FindModel& ioFind, const FindFunctionsQuery& inQuery)
    {
        FindRecorder recorder(mWorld);
        const FindVisitorRegistration registration = ioFind.AddVisitor(recorder);
        ioFind.FindFunctions(inQuery);
        ioFind.WaitForFind();
        return recorder.Take(inQuery.FindSet);
    }
    std::string Find(const FindFunctionsQuery& inQuery) { return Find(GetFind(), inQuery); }
    std::string FindStacks(const std::vector<ResolvedCallstack>& inStacks)
    {
        FindRecorder recorder(mWorld);
        const FindVisitorRegistration registration = GetFind().AddVisitor(recorder);
        FindCallstacksQuery query;
        query.Threads = {0};
        query.Callstacks = inStacks;
        GetFind().FindCallstacks(query);
        GetFind().WaitForFind();
        return recorder.Take();
    }
};

constexpr const char* sTrace =
    "1 begin A main;leaf Zone Context, 2 sample A main;work, 4 sample A main;leaf;main, 8 sample B leaf;main\n"
    "9 out A 6, 1200 in A main;work, 1300 out A 6";

TEST_F(FindSearchTest, AVisitorHearsWhatIsFoundThreadByThread)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    EXPECT_EQ(Find(gMakeQuery({sMain, sLeaf})),
              "start 1 main leaf, 0%, thread 0, leaf@1 1..2, leaf@1 4..5, main@2 4..5*, 33%, main@0 1..1200, 66%, thread 1, "
              "leaf@0 8..9, main@1 8..9, 100%, 100%, end 1: 6")
        << "a call over chunks comes with its end";
    EXPECT_EQ(Find(gMakeQuery({sOther})), "start 2 other, 0%, 100%, end 2: 0");
    EXPECT_EQ(Find(gMakeQuery({sMain}, 3, 1150)), "start 3 main, 0%, thread 0, main@2 4..5*, 33%, main@0 3..1150, 66%, thread 1, "
                                                  "main@1 8..9, 100%, 100%, end 3: 3");
    EXPECT_EQ(Find(gMakeQuery({sLeaf}, 2, 4)), "start 4 leaf, 0%, thread 0, 50%, thread 1, 100%, 100%, end 4: 0")
        << "what is cut to nothing isn't told";

    FindFunctionsQuery query = gMakeQuery({sWork, sWork});
    query.Threads = {77, 0, 0};
    EXPECT_EQ(Find(query), "start 5 work work, 0%, thread 0, work@1 2..3, work@1 2..3, 50%, work@1 9..1200, 100%, 100%, end 5: 3")
        << "only one call is kept open at a depth";
    query = gMakeQuery({{sMain.RelativeAddress, {1}}, {sMain.RelativeAddress, {0xC0000000}}});
    query.MinimumDepth = 1;
    query.RequiredCallPath = {sMain, sLeaf};
    EXPECT_THAT(Find(query), HasSubstr("0%, thread 0, main@2 4..5, 33%, 66%, thread 1, 100%, 100%, end 6: 1"));

    EXPECT_EQ(FindStacks({{sMain, sWork}, {sMain}, {sMain, sLeaf}, {}}),
              "start 7 work main leaf 0xFFFFFFFFFFFFFFFF, 0%, thread 0, leaf@1 1..2, work@1 2..3*, leaf@1 4..5, 50%, "
              "work@1 9..1200*, main@0 1..1200*, 100%, 100%, end 7: 5");
}

TEST_F(FindSearchTest, InstrumentedCallsHaveTheirContext)
{
    ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
    const DetailLODThread& thread = *GetModel().GetDetailLOD(0).GetThread(0);
    const TypedChunkHandle<BarChunk> chunk(GetModel().GetStreamingManager().BlockingLoad(
        thread, thread.GetChunkTable().GetChunkByIndex(0), EChunkType::Bar, EChunkUnloadMode::Immediate));
    EXPECT_EQ(Find(gMakeQuery({gGetFunction(*chunk->GetBar({2, 0}))})),
              "start 1 leaf, 0%, thread 0, leaf!Context@2 1..2, 100%, 100%, end 1: 1");
}

// Of a call that lies in nine chunks.
TEST_F(FindSearchTest, OnlyTheChunksAreReadWhereACallBeginsAndEnds)
{
    std::string trace;
    for (int time = 600; time < 4700; time += 250)
        trace += Utility::gFormat("%d sample A main;work, %d sample A main\n", time, time + 10);
    ASSERT_EQ(RunPass(trace + "4700 sample A other"), "") << Utility::GetErrorText(mErrors);
    LoadLog log;
    std::unique_ptr<Session> loaded = Load(); // has nothing in memory
    auto& model = static_cast<ThreadsModel&>(*loaded->GetModels().front());
    FindModel& find = model.GetFindModel();
    ThreadStreamingManager& manager = model.GetStreamingManager();
    manager.CloseChunkFile();
    manager.SetStreamingLog(&log);
    ASSERT_TRUE(manager.OpenChunkFile(false, mErrors));
    EXPECT_EQ(Find(find, gMakeQuery({sMain}, 3000, 3400)),
              "start 1 main, 0%, thread 0, 50%, main@0 3000..3400, 100%, 100%, end 1: 1");
    EXPECT_THAT(Find(find, gMakeQuery({sWork}, 3000, 3400)), HasSubstr("thread 0, work@1 3100..3101, work@1 3350..3351, 100%"));
    EXPECT_EQ(Find(find, gMakeQuery({sMain}, 5000, 8000)), "start 3 main, 0%, 100%, end 3: 0");
    loaded.reset(); // what is still to be logged is logged
    EXPECT_EQ(log.GetChunks(), (std::set{1, 6, 9}));
}

TEST_F(FindSearchTest, DamagedChunksAreLeftOut)
{
    ASSERT_EQ(
        RunPass("600 sample A main, 1100 sample A main, 1600 sample A main, 1700 sample A other\n"
                "2100 sample A main, 2600 sample A main;work, 2650 sample A main, 3100 sample A main, 3200 sample A other\n"
                "4100 sample A main, 5100 sample A main;work, 5150 sample A main, 6100 sample A main, 6200 sample A other\n"),
        "")
        << Utility::GetErrorText(mErrors);
    EXPECT_EQ(
        Find(gMakeQuery({sMain, sWork})),
        "start 1 main work, 0%, thread 0, 12%, main@0 600..1601, 25%, 37%, work@1 2600..2601, 50%, main@0 2100..3101, 62%, 75%, "
        "work@1 5100..5101, 87%, main@0 4100..6101, 100%, 100%, end 1: 5");
    std::string file = ReadFile("game/Threads/Threads.dat");
    const ChunkTable& table = GetModel().GetDetailLOD(0).GetThread(0)->GetChunkTable();
    for (const uint64_t offset :
         {table.GetChunkByIndex(3).mLayout.BarDataOffset, table.GetChunkByIndex(10).mLayout.FunctionIndexOffset})
        file.replace(offset, 8, 8, '?');
    WriteFile("game/Threads/Threads.dat", file);
    const std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess);
    FindModel& find = static_cast<ThreadsModel&>(*loaded->GetModels().front()).GetFindModel();
    const LogCapture log;
    const char* found = " main work, 0%, thread 0, 12%, 25%, 37%, work@1 2600..2601, 50%, main@0 2100..3101, 62%, 75%, 87%, "
                        "main@0 4100..6101, 100%, 100%, end ";
    for (const char* id : {"1", "2"})
        EXPECT_EQ(Find(find, gMakeQuery({sMain, sWork})), "start " + std::string(id) + found + id + ": 3")
            << "the end of the first call isn't known, the third lasts beyond a chunk";
    EXPECT_THAT(log.GetMessages(),
                UnorderedElementsAre(HasSubstr("Unable to load [BarData]"), HasSubstr("Unable to load [FunctionIndex]")));
}

// --- Several searches ---

class FindCancelTest : public FindSearchTest
{
protected:
    void Run()
    {
        ASSERT_EQ(RunPass(sTrace), "") << Utility::GetErrorText(mErrors);
        mRegistration.emplace(GetFind().AddVisitor(mRecorder));
    }
    void TearDown() override { mRegistration.reset(); }

    // From now on a search stands still at the call of its visitor, until the gate is opened.
    void StopAt(const std::string& inCall)
    {
        mRecorder.OnCall = [this, inCall](const std::string& inText)
        {
            if (inText == inCall)
                mGate.WaitUntilOpen();
        };
    }

    // There it says that it has come, and then stands still until it is cancelled.
    void StopUntilCancelledAt(const std::string& inCall)
    {
        mGate.Open();
        mRecorder.OnCall = [this, inCall](const std::string& inText)
        {
            if (inText != inCall)
                return;
            mGate.WaitUntilOpen();
            while (!System::gIsCanceled(mWorld.GetScheduler().GetCurrentJob()->Canceled))
                std::this_thread::yield();
        };
    }

    Gate mGate;
    FindRecorder mRecorder{mWorld};
    std::optional<FindVisitorRegistration> mRegistration;
};

TEST_F(FindCancelTest, ANewSearchTakesThePlaceOfTheOneOfItsSet)
{
    Run();
    StopAt("main@0 1..1200");
    GetFind().FindFunctions(gMakeQuery({sMain}));
    mGate.WaitForVisitor();
    GetFind().FindFunctions(gMakeQuery({sOther}));
    EXPECT_EQ(mRecorder.Take(), "start 1 main, 0%, thread 0, main@2 4..5*, 33%, main@0 1..1200");
    GetFind().FindFunctions(gMakeQuery({sLeaf}, 0, 3));
    EXPECT_EQ(mRecorder.Take(), "cancelled 2") << "it never started";
    mGate.Open();
    GetFind().WaitForFind();
    EXPECT_EQ(mRecorder.Take(), "cancelled 1, start 3 leaf, 0%, thread 0, leaf@1 1..2, 50%, thread 1, 100%, 100%, end 3: 1");
}

TEST_F(FindCancelTest, TheSetsDontKnowOfEachOther)
{
    Run();
    Gate end;
    FindFunctionsQuery other = gMakeQuery({sMain});
    other.FindSet = EFindSet::ContextResults;
    mRecorder.OnCall = [&](const std::string& inText)
    {
        if (inText == "leaf@1 1..2")
            mGate.WaitUntilOpen();
        else if (inText == "end 3: 3")
            end.WaitUntilOpen();
    };
    GetFind().FindFunctions(gMakeQuery({sLeaf}));
    mGate.WaitForVisitor();
    GetFind().FindFunctions(other); // runs while the first one stands still, and is cancelled by its like alone
    GetFind().FindFunctions(other);
    end.WaitForVisitor();
    EXPECT_EQ(mRecorder.Take(), "start 1 leaf, 0%, thread 0, leaf@1 1..2");
    EXPECT_THAT(mRecorder.Take(EFindSet::ContextResults),
                HasSubstr("start 3 main, 0%, thread 0, main@2 4..5*, 33%, main@0 1..1200"));
    mGate.Open();
    end.Open();
    GetFind().WaitForFind();
    EXPECT_EQ(mRecorder.Take(), "leaf@1 4..5, 50%, thread 1, leaf@0 8..9, 100%, 100%, end 1: 3");
}

TEST_F(FindCancelTest, ASearchIsCancelledAndItsEndTold)
{
    Run();
    bool isDone = false;
    GetFind().CancelFind(EFindSet::FindResults, [&] { isDone = true; });
    EXPECT_TRUE(isDone) << "there was none";
    GetFind().CancelFind(EFindSet::FindResults, {});

    StopUntilCancelledAt("thread 0");
    GetFind().FindFunctions(gMakeQuery({sMain}));
    mGate.WaitForVisitor();
    GetFind().CancelFind(EFindSet::FindResults, {});
    const auto told = std::make_shared<std::promise<std::string>>();
    GetFind().CancelFind(EFindSet::FindResults, [this, told] { told->set_value(mRecorder.Take()); });
    EXPECT_EQ(told->get_future().get(), "start 1 main, 0%, thread 0, cancelled 1");
    isDone = false;
    GetFind().CancelFind(EFindSet::ContextResults, [&] { isDone = true; });
    EXPECT_TRUE(isDone) << "no search of that set was started";
}

TEST_F(FindCancelTest, AllAreCancelledRunningOrNot)
{
    Run();
    GetFind().CancelAllFinds();
    GetFind().WaitForFind();
    FindFunctionsQuery query = gMakeQuery({sMain});
    const auto findInBoth = [&]
    {
        for (const EFindSet set : {EFindSet::FindResults, EFindSet::ContextResults})
        {
            query.FindSet = set;
            GetFind().FindFunctions(query);
        }
    };
    StopUntilCancelledAt("0%");
    findInBoth();
    mGate.WaitForVisitor();
    GetFind().CancelAllFinds();
    EXPECT_THAT(mRecorder.Take() + mRecorder.Take(EFindSet::ContextResults),
                AllOf(HasSubstr("cancelled 1"), HasSubstr("cancelled 2")));

    Gate gate;
    std::vector<System::JobHandle> jobs;
    for (int i = 0; i < 2; ++i)
        jobs.push_back(mWorld.GetScheduler().ScheduleJob({.Work = [&](System::Job&, const bool&) { gate.WaitUntilOpen(); }}));
    findInBoth();
    GetFind().CancelAllFinds();
    EXPECT_EQ(mRecorder.Take(), "cancelled 3") << "no worker was free";
    EXPECT_EQ(mRecorder.Take(EFindSet::ContextResults), "cancelled 4");
    gate.Open();
    mWorld.GetScheduler().WaitForJobs(jobs);
}

TEST_F(FindCancelTest, AVisitorHearsAsLongAsItIsRegistered)
{
    Run();
    FindRecorder second(mWorld);
    std::string order;
    mRecorder.OnCall = [&](const std::string&) { order += '1'; };
    second.OnCall = [&](const std::string&) { order += '2'; };
    const auto find = [&]
    {
        GetFind().FindFunctions(gMakeQuery({sOther}));
        GetFind().WaitForFind();
        return std::exchange(order, {});
    };
    {
        FindVisitorRegistration registration = GetFind().AddVisitor(second);
        const FindVisitorRegistration again = GetFind().AddVisitor(mRecorder);
        EXPECT_EQ(find(), "121121121121");
        const FindVisitorRegistration moved = std::move(registration);
        EXPECT_EQ(find(), "121121121121");
        GetFind().RemoveVisitor(mRecorder);
        EXPECT_EQ(find(), "21212121") << "the first one is taken out";
    }
    EXPECT_EQ(find(), "");
    EXPECT_THAT(GetFind().GetVisitors(), IsEmpty());
}

} // namespace

// --- Queries in a file ---

struct StoredQuery final : RTTI::Object
{
    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<StoredQuery>(); }

    Profiler::FindFunctionsQuery Query;
};
DECLARE_AS(StoredQuery, "StoredQuery");

RTTI_BEGIN(StoredQuery, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Query", Query)
RTTI_END()

namespace
{

TEST(FindQueryTest, TheRequiredPathIsntStored)
{
    auto build = Serialization::Build::With<StoredQuery, FindQuery, FindQuery::SearchItem, FindFunctionsQuery, ResolvedAddress,
                                            ResolveIndex>();
    StoredQuery stored;
    stored.Query = {3,
                    {sMain},
                    {5, -1},
                    EFindSet::ContextResults,
                    EFindSource::TopExclusive,
                    {sWork, sLeaf},
                    {{"work", "game"}},
                    FindQuery::EShowModuleInfo::No,
                    1.5,
                    2.5};
    Serialization::Objects objects;
    Serialization::ReaderErrorState errors;
    ASSERT_TRUE(build.Read(Serialization::Build::Write(stored), objects, errors)) << Utility::GetErrorText(errors);
    const FindFunctionsQuery& query = static_cast<const StoredQuery&>(*objects.at(0)).Query;
    EXPECT_THAT(query.RequiredCallPath, IsEmpty());
    EXPECT_EQ(query.MinimumDepth, 3);
    EXPECT_THAT(query.Functions, ElementsAre(sWork, sLeaf));
    EXPECT_THAT(query.Threads, ElementsAre(5, -1));
    EXPECT_EQ(query.SearchItems.at(0).ResolvedFunctionName + query.SearchItems.at(0).ModuleName, "workgame");
    EXPECT_EQ(query.FindSet, EFindSet::ContextResults);
    EXPECT_EQ(query.FindSource, EFindSource::TopExclusive);
    EXPECT_EQ(query.ShowModuleInfo, FindQuery::EShowModuleInfo::No);
    EXPECT_EQ(query.StartTime, 1.5);
    EXPECT_EQ(query.EndTime, 2.5);
}

} // namespace
