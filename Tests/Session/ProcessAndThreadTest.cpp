#include "RTTI/TypeQueries.h"
#include "Session/Processes/ThreadState.h"
#include "Tests/Session/FakeNativeModule.h"
#include "Tests/Support/SessionFixture.h"
#include "Tests/Utility/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>
#include <tuple>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr ProcessID sFirstProcess = std::numeric_limits<int32_t>::min();

class ProcessAndThreadTest : public testing::Test
{
protected:
    // Enters an ID in one of the session's maps, as an upgrade does.
    void AddCompatibilityEntry(const char* inMap, int32_t inOldID, int32_t inNewID)
    {
        const RTTI::Property* property = RTTI::gFindProperty(RTTI::gTypeOf<Session>(), inMap);
        property->Type->AsMap()->Insert(property->GetData(&mSession), &inOldID, &inNewID);
    }

    ProcessID AddProcess(const std::string& inName) { return mSession.AddProcess(1, inName, "", true, nullptr, 0.0, 0.0).ID; }

    ThreadID AddThread(ProcessID inProcess, const std::string& inName = "")
    {
        return mSession.AddThread(inProcess, 1, inName, 0.0, 0.0).ThreadID;
    }

    void Update(double inTime, ProcessID inProcess, ThreadID inThread, TraceEvent::Payload inPayload)
    {
        mSession.UpdateThreadFromEvent({inTime, inProcess, inThread, std::move(inPayload)});
    }

    // A session with nothing in it, beside the fixture's own.
    SessionFixture mFixture;
    Session mSession{std::make_unique<SessionInfo>(), "", mFixture.GetSession().GetJobScheduler(), mFixture.GetPluginManager(),
                     mFixture.GetFrontEnd()};
};

TEST_F(ProcessAndThreadTest, CapturedProcessesHaveNegativeIDs)
{
    auto info = std::make_unique<OptionalProcessInfo>();
    info->CommandLine = "app --fast";
    const Process& process = mSession.AddProcess(4711, "app", "/bin/app", false, std::move(info), 1.5, 9.5);
    EXPECT_EQ(process.ID, sFirstProcess);
    EXPECT_EQ(process.DisplayID, 4711);
    EXPECT_EQ(process.Name + process.Path + process.OptionalProcessInfo->CommandLine, "app/bin/appapp --fast");
    EXPECT_EQ(std::tuple(process.Is64Bit, process.StartTimeMs, process.EndTimeMs), std::tuple(false, 1.5, 9.5));
    EXPECT_EQ(AddProcess("second"), sFirstProcess + 1);

    EXPECT_EQ(mSession.GetProcess(sFirstProcess + 1)->Name, "second");
    for (const ProcessID unknown : {sFirstProcess + 2, 0, 1, -1, std::numeric_limits<int32_t>::max()})
        EXPECT_EQ(mSession.GetProcess(unknown), nullptr) << unknown;
}

TEST_F(ProcessAndThreadTest, NonCapturedProcessesCountFromZero)
{
    EXPECT_EQ(mSession.AddNonCapturedProcess(1, "init", "", true, nullptr, 0, 0).ID, 0);
    EXPECT_EQ(mSession.AddNonCapturedProcess(2, "daemon", "", true, nullptr, 0, 0).ID, 1);
    EXPECT_EQ(mSession.GetNonCapturedProcess(0)->Name, "init");
    EXPECT_EQ(mSession.GetNonCapturedProcess(1)->Name, "daemon");
    for (const ProcessID unknown : {2, -1, sFirstProcess})
        EXPECT_EQ(mSession.GetNonCapturedProcess(unknown), nullptr) << unknown;
    EXPECT_EQ(mSession.GetProcess(0), nullptr);
    EXPECT_THAT(mSession.GetProcessList(), IsEmpty());
}

TEST_F(ProcessAndThreadTest, ThreadsAreNumberedAndEnteredInTheirProcess)
{
    const ProcessID first = AddProcess("a");
    const ProcessID second = AddProcess("b");
    AddThread(first, "x");
    AddThread(second, "y");
    const Thread& thread = mSession.AddThread(first, 99, "z", 2.0, 3.0);
    EXPECT_EQ(std::tuple(thread.ThreadID, thread.DisplayThreadID, thread.StartTimeMs, thread.EndTimeMs),
              std::tuple(2, 99, 2.0, 3.0));
    EXPECT_THAT(mSession.GetProcess(first)->ThreadOrder, ElementsAre(0, 2));
    EXPECT_THAT(mSession.GetProcess(second)->ThreadOrder, ElementsAre(1));

    EXPECT_EQ(mSession.GetThread(1)->ThreadName, "y");
    EXPECT_EQ(mSession.GetValidThread(2).ThreadName, "z");
    for (const ThreadID unknown : {3, -1, sFirstProcess})
        EXPECT_EQ(mSession.GetThread(unknown), nullptr) << unknown;
}

TEST_F(ProcessAndThreadTest, AThreadOfNoProcessIsAFaultOfTheCaller)
{
    const LogCapture log;
    EXPECT_EQ(AddThread(sFirstProcess), 0);
    EXPECT_EQ(log.GetMessages().size(), 2U);
}

TEST_F(ProcessAndThreadTest, AnUpgradedSessionTranslatesItsIDs)
{
    AddProcess("a");
    const ProcessID second = AddProcess("b");
    mSession.AddNonCapturedProcess(3, "other", "", true, nullptr, 0, 0);
    AddThread(sFirstProcess, "x");
    AddCompatibilityEntry("ProcessCompatibilityMap", 500, second);
    AddCompatibilityEntry("ThreadCompatibilityMap", 77, 0);
    AddCompatibilityEntry("ThreadCompatibilityMap", 78, 5);

    EXPECT_EQ(mSession.GetProcess(500)->Name, "b");
    EXPECT_EQ(mSession.GetProcess(sFirstProcess), nullptr) << "in range, but not in the map";
    EXPECT_EQ(mSession.GetNonCapturedProcess(0)->Name, "other") << "never translated";
    EXPECT_EQ(mSession.GetThread(77)->ThreadName, "x");
    EXPECT_EQ(mSession.GetThread(0), nullptr);
    EXPECT_EQ(mSession.GetThread(78), nullptr) << "beyond the list";

    Thread thread;
    thread.ProcessID = 500;
    thread.ThreadID = 79;
    mSession.AddThread(std::move(thread));
    EXPECT_THAT(mSession.GetProcess(500)->ThreadOrder, ElementsAre(79)) << "a whole thread keeps its ID";
}

TEST_F(ProcessAndThreadTest, RebuildingTheMapsKeepsWhatIsThere)
{
    AddProcess("a");
    AddProcess("b");
    AddThread(sFirstProcess, "x");
    AddThread(sFirstProcess, "y");
    AddCompatibilityEntry("ProcessCompatibilityMap", sFirstProcess, sFirstProcess + 1);
    AddCompatibilityEntry("ThreadCompatibilityMap", 0, 1);
    mSession.RebuildProcessCompatibilityMap();
    mSession.RebuildThreadCompatibilityMap();
    EXPECT_EQ(mSession.GetProcess(sFirstProcess)->Name, "b");
    EXPECT_EQ(mSession.GetProcess(sFirstProcess + 1)->Name, "b");
    EXPECT_EQ(mSession.GetThread(0)->ThreadName, "y");
    EXPECT_EQ(mSession.GetThread(1)->ThreadName, "y");
}

TEST_F(ProcessAndThreadTest, ProcessesAreFoundByTheirExactName)
{
    for (const char* name : {"app", "App", "app", "apple"})
        AddProcess(name);
    std::vector<ProcessID> found;
    mSession.ForEachProcessByName("app", [&found](const Process& inProcess) { found.push_back(inProcess.ID); });
    EXPECT_THAT(found, ElementsAre(sFirstProcess, sFirstProcess + 2));
}

// --- What events tell of a thread ---

TEST_F(ProcessAndThreadTest, StartsAndEndsSetTimesAndNumber)
{
    AddProcess("a");
    const ThreadID id = AddThread(sFirstProcess, "named");
    const Thread& thread = *mSession.GetThread(id);
    mSession.GetSessionInfo().SessionEndTimeMs = 1000;

    const auto update = [&](double inTime, TraceEvent::Payload inPayload)
    {
        Update(inTime, sFirstProcess, id, std::move(inPayload));
        return Utility::gFormat("%d: %g..%g", thread.DisplayThreadID, thread.StartTimeMs, thread.EndTimeMs);
    };
    EXPECT_EQ(update(5, ThreadStartEvent{0, 0}), "1: 5..0");
    EXPECT_EQ(update(6, ThreadStartEvent{1, 0}), "1: 0..0") << "it existed before";
    EXPECT_EQ(update(7, ThreadStartEvent{2, 0}), "1: 7..0");
    EXPECT_EQ(update(8, ThreadStartDisplayEvent{42, 0, 0}), "42: 8..0");
    EXPECT_EQ(update(20, ThreadEndEvent{0}), "42: 8..20");
    EXPECT_EQ(update(21, ThreadEndEvent{1}), "42: 8..1000") << "alive at the end";
    EXPECT_EQ(update(22, ThreadEndEvent{2}), "42: 8..22");
    EXPECT_EQ(update(23, ThreadEndDisplayEvent{43, 1}), "43: 8..1000");
    EXPECT_EQ(thread.ThreadName, "named");
}

TEST_F(ProcessAndThreadTest, AThreadWithoutANameIsNamedByItsStart)
{
    AddProcess("a");
    const ThreadID unnamed = AddThread(sFirstProcess);
    const ThreadID named = AddThread(sFirstProcess, "mine");
    auto module = std::make_unique<FakeNativeModule>("/bin/app", 0x1000);
    module->AddSymbol(0x100, 0x20, 0x20, "mainCRTStartup");
    mSession.GetModuleDatabase().AddNativeModule(std::move(module));
    mSession.GetModuleDatabase().SetNativeModuleInstances({{0x10000, 0, 100, sFirstProcess, 0}});

    Update(5, sFirstProcess, unnamed, ThreadStartEvent{0, 0x10100});
    Update(5, sFirstProcess, named, ThreadStartDisplayEvent{1, 0, 0x10100});
    EXPECT_EQ(mSession.GetThread(unnamed)->ThreadName, "Main");
    EXPECT_EQ(mSession.GetThread(named)->ThreadName, "mine");
    Update(6, sFirstProcess, named, ThreadNameEvent{"renamed"});
    EXPECT_EQ(mSession.GetThread(named)->ThreadName, "renamed");
}

TEST_F(ProcessAndThreadTest, EventsOfOthersTellNothing)
{
    AddProcess("a");
    mSession.AddNonCapturedProcess(3, "other", "", true, nullptr, 0, 0);
    const ThreadID id = AddThread(sFirstProcess, "named");
    Update(5, 0, id, ThreadNameEvent{"wrong"});
    Update(5, sFirstProcess + 1, id, ThreadNameEvent{"wrong"});
    Update(5, sFirstProcess, id + 1, ThreadNameEvent{"wrong"});
    Update(5, sFirstProcess, -1, ThreadStartEvent{0, 0});
    Update(5, sFirstProcess, id, InstrumentationBeginEvent{1, "wrong", ""});
    Update(5, sFirstProcess, id, SampleEvent{1});
    Update(5, sFirstProcess, id, ContextSwitchOutEvent{22});
    const Thread& thread = *mSession.GetThread(id);
    EXPECT_EQ(thread.ThreadName, "named");
    EXPECT_EQ(thread.StartTimeMs, 0.0);
    EXPECT_EQ(thread.EndTimeMs, 0.0);

    AddCompatibilityEntry("ProcessCompatibilityMap", 500, sFirstProcess);
    Update(6, sFirstProcess, id, ThreadNameEvent{"wrong"});
    EXPECT_EQ(thread.ThreadName, "named");
    Update(6, 500, id, ThreadNameEvent{"translated"});
    EXPECT_EQ(thread.ThreadName, "translated");
}

// --- Stacks ---

TEST_F(ProcessAndThreadTest, StacksComeFromTheTrieOnceItIsInUse)
{
    // Both forms of the query give the same.
    const auto get = [this](CallstackKey inKey)
    {
        const Callstack* stack = mSession.GetCallstack(inKey);
        Callstack copy = {9};
        EXPECT_EQ(mSession.GetCallstack(inKey, copy), stack != nullptr);
        EXPECT_EQ(copy, stack != nullptr ? *stack : Callstack());
        return copy;
    };
    mSession.GetCallstackDatabase().StacksByID[5] = std::make_unique<Callstack>(Callstack{1, 2});
    EXPECT_THAT(get(5), ElementsAre(1, 2));
    EXPECT_EQ(mSession.GetCallstack(0), nullptr);
    EXPECT_THAT(get(sNoCallstack), IsEmpty());

    mSession.GetCallstackTrie().InitializeCallstacks();
    EXPECT_THAT(get(5), IsEmpty()) << "older stacks no longer answer";
    EXPECT_THAT(get(mSession.GetCallstackTrie().AddCallstack(0, Callstack{10, 20})), ElementsAre(10, 20));
    EXPECT_EQ(mSession.GetCallstack(sNoCallstack), nullptr);
}

// --- States ---

TEST(ThreadStateTest, EachWaitReasonHasItsState)
{
    const std::map<ThreadState, std::set<int>> reasons = {
        {ThreadState::IO, {0, 7, 23}},
        {ThreadState::MemoryManagement, {1, 2, 3, 8, 9, 10, 18, 19, 25}},
        {ThreadState::Sleep, {4, 5, 11, 12, 33}},
        {ThreadState::Preemption, {30, 31, 32}},
        {ThreadState::Synchronization, {6, 14, 15, 16, 17, 20, 21, 24, 26, 27, 28, 29, 34, 35, 36, 37}},
    };
    for (int reason = 0; reason <= 255; ++reason)
    {
        ThreadState expected = ThreadState::Idle; // 13, 22, and all that don't exist
        for (const auto& [state, members] : reasons)
            if (members.contains(reason))
                expected = state;
        EXPECT_EQ(WaitReasonToState(static_cast<uint8_t>(reason)), expected) << reason;
    }
}

std::string gPrintColor(EThemeType inTheme, ThreadState inState)
{
    const Color& color = ThreadStateColor(inTheme, inState);
    return Utility::gFormat("%.4f %.4f %.4f %.1f", color[0], color[1], color[2], color[3]);
}

// Worked out by hand: the greatest part is the value, the least is value x (1 - saturation).
TEST(ThreadStateTest, ColorsFollowFromHueSaturationAndValue)
{
    EXPECT_EQ(gPrintColor(EThemeType::Light, ThreadState::Executing), "0.3250 0.6500 0.3250 1.0") << "hue 120";
    EXPECT_EQ(gPrintColor(EThemeType::Light, ThreadState::Idle), "0.8500 0.8500 0.8500 1.0") << "grey";
    EXPECT_EQ(gPrintColor(EThemeType::Light, ThreadState::IO), "0.9200 0.9024 0.7084 1.0") << "hue 55";
    EXPECT_EQ(gPrintColor(EThemeType::Light, ThreadState::Synchronization), "1.0000 0.6800 0.7013 1.0") << "hue 356";
    EXPECT_EQ(gPrintColor(EThemeType::Dark, ThreadState::Executing), "0.6204 0.9400 0.5640 1.0") << "hue 111";
    EXPECT_EQ(gPrintColor(EThemeType::Dark, ThreadState::IO), "0.3420 0.4522 0.5700 1.0") << "hue 211";
    EXPECT_EQ(gPrintColor(EThemeType::Dark, ThreadState::Sleep), "0.4533 0.3600 0.5000 1.0") << "hue 280";
    EXPECT_EQ(gPrintColor(EThemeType::FollowWindows, ThreadState::Idle), "0.0000 0.0000 0.0000 0.0");
}

} // namespace
