// What a finished timeline, or one that is being made, says of a stack at a time.
#include "Tests/ThreadsModel/GameTimeline.h"
#include "Tests/ThreadsModel/StreamingFixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <limits>

namespace
{

using namespace Profiler;
using System::JobHandle;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

using Bars = std::vector<Bar>;
using Frames = std::vector<ThreadsModel::BlockingStackFrame>;

class GeneratedModule final : public JITModule
{
public:
    [[nodiscard]] uint64_t GetModuleHash() const override { return 0; }
    [[nodiscard]] bool IsSameModule(const JITModule&) const override { return false; }
    [[nodiscard]] bool IsSameFunction(const Function&, const Function&) const override { return false; }
    [[nodiscard]] uint64_t GetFunctionHash(const Function&) const override { return 0; }
};

// Without workers, queries run when they are waited for.
class TimelineQueriesTest : public GameTimelineTest
{
protected:
    explicit TimelineQueriesTest(uint32_t inNumWorkers = 0) : GameTimelineTest(inNumWorkers)
    {
        GetSession().GetSessionInfo().SessionEndTimeMs = 5000.0;
    }

    System::JobScheduler& GetScheduler() { return mWorld.GetScheduler(); }

    // The bars at a time, "main 0..2, [work] 1..2": zones in brackets.
    std::string Find(double inTime, ThreadID inThread = 0, const ThreadsModel* inModel = nullptr)
    {
        std::vector<std::string> answers;
        GetScheduler().WaitForJobs(
            (inModel != nullptr ? *inModel : GetModel())
                .FindStack(inThread, inTime, {}, [&](const Bars& inBars) { answers.push_back(Print(inBars)); }));
        EXPECT_EQ(answers.size(), 1U);
        return answers.empty() ? "no answer" : answers.front();
    }

    // The frames at a time, "2: main work+8 [work] (work) ? 0x99000", behind the length: those of addresses with the offset in
    // their function, or with the address where nobody knows the function; others in parentheses.
    std::string Match(CallstackKey inStack, double inTime, ThreadID inThread = 0, const ThreadsModel* inModel = nullptr)
    {
        const ThreadsModel& model = inModel != nullptr ? *inModel : GetModel();
        std::vector<std::string> answers;
        Bars bars;
        GetScheduler().WaitForJobs(model.FindStack(inThread, inTime, {}, [&](const Bars& inBars) { bars = inBars; }));
        const auto answer = [&](const Frames& inFrames, double inLength)
        {
            EXPECT_TRUE(inFrames.empty() || std::ranges::equal(inFrames, bars, {}, &ThreadsModel::BlockingStackFrame::Bar));
            answers.push_back(Print(inFrames, inLength));
        };
        GetScheduler().WaitForJobs(model.GetBlockingCallstackAsync(inThread, inStack, inTime, {}, answer));
        EXPECT_EQ(answers.size(), 1U);
        return answers.empty() ? "no answer" : answers.front();
    }

    struct MatchCase
    {
        double Time;
        const char* Stack;
        const char* Frames;
    };

    // Of thread A. Stacks can't be added behind the pass.
    void ExpectMatches(const char* inTrace, const std::vector<MatchCase>& inCases)
    {
        std::vector<CallstackKey> stacks;
        for (const MatchCase& matchCase : inCases)
            stacks.push_back(mWorld.Intern(matchCase.Stack));
        ASSERT_EQ(RunPass(inTrace), "") << Utility::GetErrorText(mErrors);
        for (size_t i = 0; i < inCases.size(); ++i)
            EXPECT_EQ(Match(stacks[i], inCases[i].Time), inCases[i].Frames)
                << inCases[i].Stack << " in " << Find(inCases[i].Time);
    }

    std::string Print(const Bars& inBars)
    {
        std::string text;
        for (const Bar& bar : inBars)
        {
            const ResolvedFunctionInfo function =
                GetSession().GetModuleDatabase().GetResolvedFunction(bar.Address, bar.ResolveIndex);
            text += (text.empty() ? "" : ", ") + PrintName(bar, function) + " " + gPrintSpan(bar.Start, bar.End);
        }
        return text;
    }

    static std::string PrintName(const Bar& inBar, const ResolvedFunctionInfo& inFunction)
    {
        if (inBar.ResolveIndex.IsUnknownClass())
            return "?";
        return inBar.ResolveIndex.IsInstrumented() ? "[" + inFunction.FunctionName + "]" : inFunction.FunctionName;
    }

    static std::string Print(const Frames& inFrames, double inLength)
    {
        std::string text = gPrintNumber(inLength) + ":";
        for (const auto& [bar, function] : inFrames)
        {
            const std::string name = PrintName(bar, function);
            const bool isKnown = function.FunctionAbsoluteAddress != sNoAddress;
            const uint64_t offset = function.AbsoluteAddress - function.FunctionAbsoluteAddress;
            if (function.AbsoluteAddress == sNoAddress)
                text += name == "?" || name[0] == '[' ? " " + name : " (" + name + ")";
            else if (isKnown)
                text += " " + name + (offset != 0 ? "+" + std::to_string(offset) : "");
            else
                text += " " + gGetFrameDisplayName(function);
        }
        return text;
    }

    // A query that adds a name to the list of those that were answered.
    JobHandle Ask(const std::string& inName, JobHandle inPrevious = {})
    {
        return GetModel().FindStack(0, 1.0, inPrevious, [this, inName](const Bars&) { mAnswered.push_back(inName); });
    }

    std::vector<std::string> mAnswered;
};

const char* const sNothing = "0:";

TEST_F(TimelineQueriesTest, TheBarsAtATime)
{
    ASSERT_EQ(RunPass("1 sample A main;work, 2 sample A main;leaf, 10 sample A main, 11 sample A other, 490 sample A main;work\n"
                      "495 out A 6, 600 in A main, 1600 sample A other;leaf, 3 sample 77 main, 4 sample B main"),
              "");
    const std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess) << Utility::GetErrorText(mPlugin.LoadErrors);
    const std::pair<double, const char*> cases[] = {
        {0.5, ""},
        {1.0, "main 1..11, work 1..2"},
        {2.0, "main 1..11, leaf 2..3"},
        {10.5, "main 1..11"},
        {11.0, "other 11..12"},
        {490.0, "main 490..500, work 490..491"},
        {std::nextafter(500.0, 0.0), "main 490..500"},
        {500.0, "main 500..600"},
        {700.0, ""},  // behind all bars of its chunk
        {1100.0, ""}, // no chunk between two
        {1599.0, ""}, // ahead of all bars of its chunk
        {1600.0, "other 1600..1601, leaf 1600..1601"},
        {-1.0, ""},
        {1e300, ""},
        {-std::numeric_limits<double>::infinity(), ""},
        {std::numeric_limits<double>::quiet_NaN(), ""},
    };
    for (const ThreadsModel* model : {&GetModel(), static_cast<ThreadsModel*>(loaded->GetModels().front())})
    {
        for (const auto& [time, bars] : cases)
            EXPECT_EQ(Find(time, 0, model), bars) << time;
        EXPECT_EQ(Find(3.5, 77, model), "main 3..4") << "only events know the thread";
        EXPECT_EQ(Find(3.5, 1, model), "");
        EXPECT_EQ(Find(3.5, 78, model), "") << "no such thread";
    }
}

TEST_F(TimelineQueriesTest, OfAChainOnlyTheLastAnswers)
{
    ASSERT_EQ(RunPass("1 sample A main"), "");
    const JobHandle first = Ask("first");
    const JobHandle other = Ask("other chain");
    EXPECT_NE(other.Group, first.Group);
    const JobHandle second = Ask("second", first);
    const JobHandle third = Ask("third", second);
    EXPECT_EQ(third.Group, first.Group);
    EXPECT_FALSE(GetScheduler().IsJobActive(first) || GetScheduler().IsJobActive(second)) << "gone before they began";
    GetModel().CancelStackJobs({});
    GetScheduler().WaitForJobs(std::vector{first, second, third, other});
    EXPECT_THAT(mAnswered, UnorderedElementsAre("third", "other chain"));

    const JobHandle fourth = Ask("fourth", third);
    EXPECT_EQ(fourth.Group, first.Group) << "a chain goes on behind one that has ended";
    GetModel().CancelStackJobs(first); // any handle of a chain stands for all of it
    GetScheduler().WaitForJobs(fourth);
    EXPECT_EQ(mAnswered.size(), 2U);
}

TEST_F(TimelineQueriesTest, WhatIsClearAtOnceIsAnsweredAtOnce)
{
    const CallstackKey main = mWorld.Intern("main");
    ASSERT_EQ(RunPass("1 sample A main, 1 sample 77 main"), "");
    const JobHandle first = Ask("first");
    const std::pair<ThreadID, CallstackKey> cases[] = {
        {0, mWorld.Intern("-")}, {0, mWorld.Intern("lost")}, {0, mWorld.Intern("empty")}, {77, main}, {78, main}};
    for (const auto& [thread, stack] : cases)
    {
        std::vector<std::thread::id> answers;
        const auto answer = [&answers](const Frames& inFrames, double inLength)
        {
            EXPECT_TRUE(inFrames.empty() && inLength == 0.0);
            answers.push_back(std::this_thread::get_id());
        };
        EXPECT_EQ(GetModel().GetBlockingCallstackAsync(thread, stack, 1.0, first, answer), JobHandle());
        EXPECT_THAT(answers, ElementsAre(std::this_thread::get_id())) << thread << " " << stack;
    }
    EXPECT_EQ(Match(main, 1.5, 1), sNothing) << "a thread without bars";
    GetScheduler().WaitForJobs(first);
    EXPECT_THAT(mAnswered, ElementsAre("first")) << "whose place nobody took";
}

TEST_F(TimelineQueriesTest, BarsAgreeWithTheStackThatMadeThem)
{
    mWorld.LoadModule(mWorld.AddModule("/bin/library", 0x1000, {{0x100, 0x80, "twin"}}), 0x20000);
    ExpectMatches("1 sample A main+4;work;leaf, 2 sample A main;0x10900, 3 sample A main;0x99000, 4 sample A twin\n"
                  "490 sample A main;work, 495 out A 6, 600 in A main;work, 601 sample A other",
                  {
                      {1.5, "main+4;work;leaf", "1: main+4 work leaf"},
                      {1.5, "main;work+8;leaf+127", "1: main work+8 leaf+127"}, // anywhere in the functions
                      {1.5, "main;work;leaf+128", sNothing},
                      {1.5, "main;leaf;work", sNothing},
                      {1.5, "other;work;leaf", sNothing},
                      {1.5, "main;work", sNothing},
                      {1.5, "work;leaf", sNothing},
                      {1.5, "main;main;work;leaf", sNothing},
                      {1.5, "main;work;leaf;leaf", sNothing},
                      {0.5, "main;work;leaf", sNothing},        // no bar
                      {2.5, "main;0x10900", "1: main 0x10900"}, // functions that nobody knows
                      {2.5, "main;0x10901", sNothing},
                      {2.5, "main;0x99000", sNothing},
                      {3.5, "main;0x99000", "1: main 0x99000"},
                      {3.5, "main;0x99001", sNothing},
                      {4.5, "twin+8", "1: twin+8"},
                      {4.5, "main", sNothing},               // the same place in another module
                      {492.0, "main;work", "10: main work"}, // a bar that goes on in the next chunk
                      {550.0, "main;work", "100: main work"},
                      {550.0, "main;leaf", sNothing},
                  });
}

TEST_F(TimelineQueriesTest, ZonesNeedNoAddress)
{
    ExpectMatches("1 begin A main Zone, 2 sample A main;work, 3 begin A main;work Inner, 4 sample A main;work, 5 end A, 6 end A",
                  {
                      {1.5, "main", "5: main [main]"},
                      {2.5, "main;work", "3: main [main] work"},
                      {4.5, "main;work+1", "2: main [main] work+1 [work]"},
                      {4.5, "main;main;work", sNothing},
                      {4.5, "work", sNothing},
                  });
}

TEST_F(TimelineQueriesTest, BehindUnknownFramesTheStackMayEnd)
{
    mWorld.GetPlatform().IsComplete = [main = mWorld.GetAddress("main")](std::span<const uint64_t> inStack)
    { return inStack.front() == main; };
    ExpectMatches("0 sample A main;work, 1 sample A leaf;other, 2 sample A main;work;leaf",
                  {
                      {1.5, "leaf+4;other", "1: (main) (work) ? leaf+4 other"},
                      {1.5, "work;leaf;other", "1: (main) work ? leaf other"},
                      {1.5, "main;work;leaf;other", "1: main work ? leaf other"},
                      {1.5, "main;leaf;other", sNothing},            // what it does reach is compared
                      {1.5, "other", sNothing},                      // it has to reach the unknown frames
                      {1.5, "other;main;work;leaf;other", sNothing}, // too long
                  });
}

TEST_F(TimelineQueriesTest, GeneratedFunctionsAgreeByTheirNumber)
{
    std::vector<Function> functions(2);
    for (Function& function : functions)
    {
        function.RelativeAddress = 0x70;
        function.Size = 0x40;
        function.ModuleIndex = 0;
    }
    functions[0].Name = "add";
    functions[1].Name = "subtract";
    std::vector<std::unique_ptr<JITModule>> modules;
    modules.push_back(std::make_unique<GeneratedModule>());
    const ProcessID process = gMakeCapturedProcessID(0);
    GetSession().GetModuleDatabase().SetJITData(functions, {{0x99000, process, 1, 0, 4, 0}, {0x99040, process, 1, 0, 4, 1}},
                                                {{0x99000 >> sJITBucketShift, {0, 1}}}, std::move(modules),
                                                {{process, 0, 20, 1, 0}}, {});
    ExpectMatches("1 sample A main;0x99000, 3.5 sample A main;0x99000", {
                                                                            {2.0, "main;0x99008", "3.5: main add+8"},
                                                                            {2.0, "main;0x99040", sNothing},  // the other one
                                                                            {2.0, "main;0x99080", sNothing},  // nobody's
                                                                            {4.25, "main;0x99008", sNothing}, // gone by then
                                                                        });
}

TEST_F(TimelineQueriesTest, ADamagedChunkHasNoBars)
{
    const CallstackKey main = mWorld.Intern("main");
    ASSERT_EQ(RunPass("1 sample A main"), "");
    WriteFile("game/Threads/Threads.dat", std::string(ReadFile("game/Threads/Threads.dat").size(), '?'));
    const LogCapture log;
    std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess) << Utility::GetErrorText(mPlugin.LoadErrors);
    const auto& model = static_cast<const ThreadsModel&>(*loaded->GetModels().front());
    EXPECT_EQ(Find(1.5, 0, &model), "");
    EXPECT_EQ(Match(main, 1.5, 0, &model), sNothing);
    EXPECT_THAT(log.GetMessages(), ElementsAre(HasSubstr("the data is damaged")));
}

TEST_F(TimelineQueriesTest, TheRangeOfTimeIsThatOfTheThreads)
{
    ASSERT_EQ(RunPass("1 sample A main"), "");
    constexpr double highest = std::numeric_limits<double>::max();
    constexpr double lowest = std::numeric_limits<double>::min();
    using Range = std::pair<double, double>;
    const std::tuple<Range, Range, Range> cases[] = {
        {{2.0, 9.0}, {3.0, 20.0}, {2.0, 20.0}},
        {{-50.0, -40.0}, {-30.0, -20.0}, {-50.0, lowest}},
        {{7.0, 0.0}, {9.0, 0.0}, {7.0, lowest}},
        {{highest, 8.0}, {highest, 7.0}, {highest, 8.0}},
        {{highest, 0.0}, {highest, -1.0}, {0.0, 5000.0}}, // nothing moved
        {{9.0, 2.0}, {8.0, 1.0}, {8.0, 2.0}},             // ends ahead of its start
    };
    for (const auto& [first, second, expected] : cases)
    {
        std::tie(GetSession().GetThread(0)->StartTimeMs, GetSession().GetThread(0)->EndTimeMs) = first;
        std::tie(GetSession().GetThread(1)->StartTimeMs, GetSession().GetThread(1)->EndTimeMs) = second;
        Range range(1.0, 2.0);
        GetModel().GetTimeRange(range.first, range.second);
        EXPECT_EQ(range, expected);
    }
}

using EmptyTimelineQueriesTest = TimelineTest;

TEST_F(EmptyTimelineQueriesTest, WithoutThreadsTheRangeOfTimeIsTheCaptures)
{
    GetSession().GetSessionInfo().SessionStartTimeMs = 5.0;
    GetSession().GetSessionInfo().SessionEndTimeMs = 30.0;
    ASSERT_EQ(RunPass(""), "");
    std::pair<double, double> range(1.0, 2.0);
    GetModel().GetTimeRange(range.first, range.second);
    EXPECT_EQ(range, std::pair(0.0, 30.0));
}

class ConcurrentQueriesTest : public TimelineQueriesTest
{
protected:
    ConcurrentQueriesTest() : TimelineQueriesTest(3) {}
};

// The load of the first one waits for a lock until the second one has taken its place.
TEST_F(ConcurrentQueriesTest, ARunningQueryThatIsReplacedDoesntAnswer)
{
    ASSERT_EQ(RunPass("1 sample A main"), "");
    ThreadStreamingManager& manager = GetModel().GetStreamingManager();
    const DetailLODThread& thread = *GetModel().GetDetailLOD(0).GetThread(0);
    const ChunkDescription description = thread.GetChunkTable().GetChunkByIndex(0);
    const ChunkHandle held = manager.BlockingLoad(thread, description, EChunkType::Bar, EChunkUnloadMode::Immediate);
    Gate lock;
    std::thread blocker(
        [&]
        {
            static_cast<void>(manager.Load(thread, description, EChunkType::Bar, EChunkUnloadMode::Immediate,
                                           [&lock](Chunk*) { lock.WaitUntilOpen(); }));
        });
    lock.WaitForVisitor();
    const JobHandle first = Ask("first");
    Gate begun;
    System::JobDescription behind;
    behind.Work = [&begun](System::Job&, const bool&) { begun.Open(); };
    GetScheduler().ScheduleJob(std::move(behind));
    begun.WaitUntilOpen();
    const JobHandle second = Ask("second", first);
    EXPECT_TRUE(GetScheduler().IsJobActive(first)) << "it isn't waited for";
    lock.Open();
    GetScheduler().WaitForJobs(std::vector{first, second});
    blocker.join();
    EXPECT_THAT(mAnswered, ElementsAre("second"));
}

TEST_F(ConcurrentQueriesTest, AnAnswerThatIsUnderWayIsWaitedFor)
{
    ASSERT_EQ(RunPass("1 sample A main"), "");
    for (const bool isReplaced : {false, true})
    {
        Gate gate;
        bool isDone = false;
        const auto answer = [&](const Bars&)
        {
            gate.WaitUntilOpen();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            isDone = true;
        };
        const JobHandle first = GetModel().FindStack(0, 1.0, {}, answer);
        gate.WaitForVisitor();
        JobHandle second;
        if (isReplaced)
            second = GetModel().FindStack(0, 1.0, first, [&](const Bars&) { EXPECT_TRUE(isDone); });
        gate.Open();
        GetScheduler().WaitForJobs(second);
        GetModel().CancelStackJobs(first);
        EXPECT_TRUE(isDone);
    }
}

TEST_F(ConcurrentQueriesTest, SeveralThreadsMayAsk)
{
    std::string trace;
    for (int i = 0; i < 20; ++i)
        trace += Utility::gFormat("%d sample A main;work, %d sample B main;leaf\n", 500 * i + 10, 500 * i + 10);
    GetSession().GetSessionInfo().SessionEndTimeMs = 10000.0;
    const CallstackKey stacks[] = {mWorld.Intern("main;work"), mWorld.Intern("main;leaf")};
    ASSERT_EQ(RunPass(trace), "");
    const std::unique_ptr<Session> loaded = Load();
    ASSERT_EQ(mFlags, NothingToReprocess) << Utility::GetErrorText(mPlugin.LoadErrors);
    const auto& model = static_cast<const ThreadsModel&>(*loaded->GetModels().front());
    std::atomic<int> numRight = 0;
    const auto ask = [&](ThreadID inThread)
    {
        std::vector<JobHandle> jobs;
        const auto match = [&](double inTime, ThreadID inOther, size_t inExpected)
        {
            const auto answer = [&numRight, inExpected](const Frames& inFrames, double)
            { numRight += inFrames.size() == inExpected ? 1 : 0; };
            jobs.push_back(model.GetBlockingCallstackAsync(inThread, stacks[inOther], inTime, {}, answer));
        };
        for (int i = 0; i < 100; ++i)
        {
            match(500 * (7 * i % 20) + 10.5, inThread, 2);
            match(500 * (7 * i % 20) + 10.5, 1 - inThread, 0);
        }
        GetScheduler().WaitForJobs(jobs);
    };
    std::vector<std::thread> threads;
    for (const ThreadID thread : {0, 0, 1, 1})
        threads.emplace_back(ask, thread);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(numRight, 800);
}

TEST_F(ConcurrentQueriesTest, APassMayBeAskedWhileItRuns)
{
    std::string trace;
    for (int i = 0; i < 200; ++i)
        trace += Utility::gFormat("%d sample A main;work, %d sample %d main\n", 100 * i, 100 * i, 100 + i);
    GetSession().GetSessionInfo().SessionEndTimeMs = 20000.0;
    CallList calls;
    FakeModelPlugin observer("observer", calls);
    mWorld.GetPluginManager().ModelPlugins.push_back(&observer);
    std::atomic<bool> isOver = false;
    std::atomic<int> numAnswers = 0;
    std::atomic<int> numWrong = 0;
    std::thread asker;
    const auto ask = [&]
    {
        for (int i = 0; !isOver; ++i)
        {
            const ThreadID thread = i % 2 == 0 ? 0 : 100 + i % 200;
            const auto answer = [&, numBars = thread == 0 ? 2U : 1U](const Bars& inBars)
            {
                numWrong += inBars.empty() || inBars.size() == numBars ? 0 : 1;
                ++numAnswers;
            };
            GetScheduler().WaitForJobs(GetModel().FindStack(thread, 100.0 * (i % 200) + 0.5, {}, answer));
        }
    };
    observer.OnCall = [&](const std::string& inCall)
    {
        if (inCall == "event 0 at 0")
        {
            EXPECT_EQ(Find(0.5), "") << "nothing is saved yet";
            asker = std::thread(ask);
        }
        const int numBefore = numAnswers;
        while (asker.joinable() && numAnswers == numBefore)
            std::this_thread::yield();
        EXPECT_TRUE(inCall != "event 0 at 700" || Find(700.5).empty()) << "of a chunk that is being filled";
        if (inCall == "event 0 at 19900")
        {
            isOver = true;
            asker.join();
        }
    };
    const LogCapture log;
    EXPECT_EQ(RunPass(trace), "") << Utility::GetErrorText(mErrors);
    ASSERT_FALSE(asker.joinable());
    EXPECT_EQ(numWrong, 0);
    EXPECT_EQ(Find(700.5), "main 500..901, work 500..901");
    EXPECT_THAT(log.GetMessages(), Each(Not(HasSubstr("assertion failed"))));
}

} // namespace
