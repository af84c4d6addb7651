#include "Tests/Host/ImportFixture.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

// Two threads of one process that ran before the capture began, and whatever else a test adds.
constexpr const char* sTwoThreads = "0 comm 10/10 main\n"
                                    "0 comm 10/11 worker\n";

std::vector<std::string> gImport(const std::string& inRecords)
{
    return ImportedCapture::sImport(sTwoThreads + inRecords);
}

// The events behind the starts of the two threads and before the ends of all that live.
std::vector<std::string> gImportMiddle(const std::string& inRecords)
{
    std::vector<std::string> lines = gImport(inRecords);
    std::erase_if(lines, [](const std::string& inLine)
                  { return inLine.find(" start ") != std::string::npos || inLine.find(" end ") != std::string::npos; });
    return lines;
}

TEST(CaptureImporter, ThreadsBeginAndEndWithTheCapture)
{
    EXPECT_THAT(gImport("1000 cpu0 clock 10/10 0x400010;0x400020\n"
                        "2000 cpu0 clock 10/11 0x400030\n"),
                ElementsAre("0 start 10/10 1", "0 start 10/11 1", "0 sample 10/10 400020;400010", "1000 sample 10/11 400030",
                            "1000 end 10/10 1", "1000 end 10/11 1"));
}

TEST(CaptureImporter, ASwitchIsAnOutAndAnIn)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 clock 10/10 0x400010\n"
                              "2000 cpu0 switch 10/10 S 10/11\n"
                              "3000 cpu0 switch 10/11 D 10/10\n"),
                ElementsAre("0 sample 10/10 400010", "1000 out 10/10 6", "1000 in 10/11", "2000 out 10/11 0", "2000 in 10/10"));
}

TEST(CaptureImporter, TheKernelsStatesBecomeWaitReasons)
{
    const std::pair<const char*, int> reasons[] = {{"0", 32},    {"1", 6},      {"2", 0}, {"0x10", 22}, {"0x20", 22},
                                                   {"0x80", 13}, {"0x100", 32}, {"4", 5}, {"0x40", 5},  {"0x102", 0}};
    for (const auto& [state, reason] : reasons)
        EXPECT_THAT(gImportMiddle(Utility::gFormat("1000 cpu0 clock 10/10 0x1000\n2000 cpu0 switch 10/10 %s 0/0\n", state)),
                    ElementsAre("0 sample 10/10 1000", Utility::gFormat("1000 out 10/10 %d", reason)))
            << state;
}

TEST(CaptureImporter, TheStackOfTheSwitchOutComesBackAtTheSwitchIn)
{
    PerfFileBuilder builder;
    builder.AddRecords(sTwoThreads);
    builder.AddSample(
        static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
        {.Time = 1000,
         .ProcessID = 10,
         .ThreadID = 10,
         .Callchain = {static_cast<uint64_t>(PERF_CONTEXT_KERNEL), 0xFFFFFFFF81000010, static_cast<uint64_t>(PERF_CONTEXT_USER),
                       0x400010, 0x400020, 0, 0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFF00},
         .Raw = gMakeSwitchRaw(10, 1, 0)});
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
                      {.Time = 2000, .ProcessID = 0, .ThreadID = 0, .Raw = gMakeSwitchRaw(0, 0, 10)});
    ImportedCapture capture(builder.Build());
    // Markers, zeros and all ones are no frames; large values that are no markers are.
    EXPECT_THAT(capture.Run(), testing::Contains("1000 in 10/10 ffffffffffffff00;400020;400010;ffffffff81000010"));
}

TEST(CaptureImporter, IdleThreadsAreNotOfTheCapture)
{
    ImportedCapture capture(
        [&]
        {
            PerfFileBuilder builder;
            builder.AddRecords(std::string(sTwoThreads) + "1000 cpu0 switch 10/10 S 0/0\n"
                                                          "2000 cpu0 clock 0/0 0x400010\n"
                                                          "3000 cpu0 switch 0/0 R 10/10\n");
            return builder.Build();
        }());
    const std::vector<std::string> lines = capture.Run();
    EXPECT_THAT(lines, testing::Contains("2000 in 10/10"));
    EXPECT_EQ(capture.Importer->GetHealth().IdleSamples, 1U);
    EXPECT_EQ(capture.Session.GetProcessList().size(), 1U);
}

TEST(CaptureImporter, AWakeUpCountsOnce)
{
    const char* wakeups = "1000 cpu0 waking 10/10 11\n"
                          "1001 cpu1 wakeup 10/10 11\n"
                          "2000 cpu0 wakeup_new 10/10 11\n";
    EXPECT_THAT(gImportMiddle(wakeups), ElementsAre("0 ready 10/10 -> 10/11", "1000 ready 10/10 -> 10/11"));
}

TEST(CaptureImporter, AnIdleWakerIsNobody)
{
    PerfFileBuilder builder;
    builder.Events.erase(builder.Events.begin() +
                         static_cast<int>(EBuilderEvent::SchedWaking)); // sched_wakeup alone was recorded
    builder.AddRecords(std::string(sTwoThreads) + "1000 cpu0 clock 10/11 0x400010\n"
                                                  "2000 cpu0 wakeup 0/0 11\n");
    ImportedCapture capture(builder.Build());
    EXPECT_THAT(capture.Run(), testing::Contains("1000 ready 10/- -> 10/11"));
}

TEST(CaptureImporter, AProcessThatIsOnlyWokenIsNotCaptured)
{
    ImportedCapture capture(
        []
        {
            PerfFileBuilder builder;
            builder.AddRecords(std::string(sTwoThreads) + "0 comm 20/21 sleeper\n"
                                                          "1000 cpu0 waking 10/10 21\n");
            return builder.Build();
        }());
    EXPECT_THAT(capture.Run(), testing::Contains("0 ready 10/10 -> (20)/-"));
    ASSERT_EQ(capture.Session.GetNonCapturedProcesses().size(), 1U);
    EXPECT_EQ(capture.Session.GetNonCapturedProcesses()[0].DisplayID, 20);
}

TEST(CaptureImporter, AnExitingThreadIsNamedByTheTracepoint)
{
    PerfFileBuilder builder;
    builder.AddRecords(std::string(sTwoThreads) + "1000 cpu0 clock 10/11 0x400010\n"
                                                  "1500 cpu0 exit 10/11\n");
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
                      {.Time = 2000, .ProcessID = -1, .ThreadID = -1, .Raw = gMakeSwitchRaw(11, 0x20, 0)});
    ImportedCapture capture(builder.Build());
    const std::vector<std::string> lines = capture.Run();
    EXPECT_THAT(lines, ElementsAre("0 start 10/10 1", "0 start 10/11 1", "0 sample 10/11 400010", "500 end 10/11 0",
                                   "1000 out 10/11 22", "1000 end 10/10 1"));
}

TEST(CaptureImporter, SwitchRecordsDoWithoutTracepoints)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 switch_in 10/10\n"
                              "2000 cpu0 switch_out 10/10\n"
                              "3000 cpu0 switch_in 10/10\n"),
                ElementsAre("0 in 10/10", "1000 out 10/10 6", "2000 in 10/10"));
}

TEST(CaptureImporter, SwitchRecordsOnlyFillWhatTracepointsMissed)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 clock 10/10 0x400010\n"
                              "2000 cpu0 switch 10/10 D 20/20\n" // a stranger comes next; nothing else tells of it
                              "2001 cpu0 switch_out 10/10\n"
                              "3000 cpu0 switch_in 10/10\n"),
                ElementsAre("0 sample 10/10 400010", "1000 out 10/10 0", "2000 in 10/10"));
}

TEST(CaptureImporter, AMissedSwitchInLiesAtTheProcessorsLastSwitch)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 switch 10/11 R 0/0\n"
                              "2000 cpu0 switch 10/10 S 0/0\n"
                              "5000 cpu0 switch 10/11 S 0/0\n"),
                ElementsAre("0 out 10/11 32", "1000 out 10/10 6", "1000 in 10/11", "4000 out 10/11 6"));
}

TEST(CaptureImporter, AMissedSwitchInIsNotBeforeTheWakeUp)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 switch 10/11 S 0/0\n"
                              "2000 cpu0 switch 10/10 S 0/0\n"
                              "3000 cpu1 waking 0/0 11\n"
                              "5000 cpu0 clock 10/11 0x400010\n"),
                ElementsAre("0 out 10/11 6", "1000 out 10/10 6", "2000 ready 10/- -> 10/11", "2000 in 10/11",
                            "4000 sample 10/11 400010"));
}

TEST(CaptureImporter, ANewThreadWaitsFromItsWakeUpOn)
{
    EXPECT_THAT(
        gImportMiddle("1000 cpu0 switch 10/11 S 10/10\n"
                      "2000 cpu0 fork 10/12 from 10/10\n"
                      "2100 cpu0 wakeup_new 10/10 12\n"
                      "5000 cpu1 clock 10/12 0x400010\n"),
        ElementsAre("0 out 10/11 6", "0 in 10/10", "1100 ready 10/10 -> 10/12", "1100 in 10/12", "4000 sample 10/12 400010"));
}

TEST(CaptureImporter, AThreadThatGaveWayUnseenStoppedWhereItWasLastSeen)
{
    EXPECT_THAT(gImportMiddle("1000 cpu0 switch 10/11 R 10/10\n"
                              "2000 cpu0 clock 10/10 0x400010\n"
                              "5000 cpu0 clock 10/11 0x400020\n"),
                ElementsAre("0 out 10/11 32", "0 in 10/10", "1000 sample 10/10 400010", "1000 out 10/10 32", "1000 in 10/11",
                            "4000 sample 10/11 400020"));
}

TEST(CaptureImporter, ThreadsAreBornNamedAndBuried)
{
    EXPECT_THAT(gImport("1000 cpu0 clock 10/10 0x400010\n"
                        "2000 cpu0 fork 10/12 from 10/10\n"
                        "3000 cpu0 comm 10/12 helper\n"
                        "4000 cpu0 clock 10/12 0x400020\n"
                        "5000 cpu0 exit 10/12\n"
                        "6000 cpu0 fork 10/12 from 10/10\n"
                        "7000 cpu0 clock 10/12 0x400030\n"),
                ElementsAre("0 start 10/10 1", "0 start 10/11 1", "0 sample 10/10 400010", "1000 start 10/12 0",
                            "2000 name 10/12 helper", "3000 sample 10/12 400020", "4000 end 10/12 0", "5000 start 10/12 0",
                            "6000 sample 10/12 400030", "6000 end 10/10 1", "6000 end 10/11 1", "6000 end 10/12 1"));
}

TEST(CaptureImporter, AReusedPidIsAnotherProcess)
{
    ImportedCapture capture(
        []
        {
            PerfFileBuilder builder;
            builder.AddRecords("0 comm 10/10 first\n"
                               "1000 cpu0 clock 10/10 0x400010\n"
                               "2000 cpu0 exit 10/10\n"
                               "3000 cpu0 fork 10/10 from 1/1\n"
                               "3100 cpu0 exec 10/10 second\n"
                               "4000 cpu0 clock 10/10 0x400010\n");
            return builder.Build();
        }());
    capture.Run();
    ASSERT_EQ(capture.Session.GetProcessList().size(), 2U);
    EXPECT_EQ(capture.Session.GetProcessList()[0].Name, "first");
    EXPECT_EQ(capture.Session.GetProcessList()[1].Name, "second");
    EXPECT_EQ(capture.Session.GetThreadList()[1].ProcessID, capture.Session.GetProcessList()[1].ID);
}

TEST(CaptureImporter, KernelThreadsStandInBrackets)
{
    ImportedCapture capture(
        []
        {
            PerfFileBuilder builder;
            builder.AddRecords("0 fork 7/7 from 2/2\n"
                               "0 comm 7/7 kworker\n"
                               "1000 cpu0 clock 7/7 0x400010\n");
            return builder.Build();
        }());
    capture.Run();
    EXPECT_EQ(capture.Session.GetProcessList().at(0).Name, "[kworker]");
    EXPECT_EQ(capture.Session.GetThreadList().at(0).ThreadName, "kworker");
}

TEST(CaptureImporter, ThreadsThatNothingIntroducedAreEntered)
{
    EXPECT_THAT(ImportedCapture::sImport("1000 cpu0 clock 30/31 0x400010\n"),
                ElementsAre("0 sample 30/31 400010", "0 end 30/31 1"));
}

TEST(CaptureImporter, NothingRecordedIsAnError)
{
    ImportedCapture capture(PerfFileBuilder().Build());
    EXPECT_FALSE(capture.IsPrepared);
    EXPECT_THAT(capture.Errors.GetEntries(), testing::SizeIs(1));
}

TEST(CaptureImporter, TheSampleIntervalFollowsTheClock)
{
    const auto getInterval = [](uint64_t inPeriod, bool inIsFrequency)
    {
        PerfFileBuilder builder;
        builder.Events[0].Period = inPeriod;
        builder.Events[0].IsFrequency = inIsFrequency;
        builder.AddRecords("1000 cpu0 clock 10/10 0x400010\n");
        ImportedCapture capture(builder.Build());
        capture.Run();
        return capture.Session.GetSessionInfo().SampleIntervalMs;
    };
    EXPECT_DOUBLE_EQ(getInterval(250000, false), 0.25);
    EXPECT_DOUBLE_EQ(getInterval(4000, true), 0.25);
}

TEST(CaptureImporter, ModulesFollowForkExecAndReplacement)
{
    ImportedCapture capture(
        []
        {
            PerfFileBuilder builder;
            builder.AddRecords("0 comm 10/10 shell\n"
                               "0 mmap 10/10 0x400000 0x1000 /bin/shell\n"
                               "1000 cpu0 clock 10/10 0x400010\n"
                               "2000 cpu0 fork 20/20 from 10/10\n"
                               "3000 cpu0 clock 20/20 0x400010\n"
                               "4000 cpu0 exec 20/20 tool\n"
                               "4100 cpu0 mmap 20/20 0x400000 0x1000 /bin/tool\n"
                               "5000 cpu0 clock 20/20 0x400010\n"
                               "6000 cpu0 mmap 20/20 0x400000 0x1000 //anon\n");
            return builder.Build();
        }());
    capture.Run();
    Profiler::ModuleDatabase& modules = capture.Session.GetModuleDatabase();
    const auto getModule = [&](size_t inProcess, uint64_t inTime)
    {
        constexpr double millisecondsPerNanosecond = 1e-6;
        const auto frame = modules.ResolveFrame(0x400010, capture.Session.GetProcessList()[inProcess].ID,
                                                static_cast<double>(inTime - 1000) * millisecondsPerNanosecond, nullptr);
        return frame.Module->Name;
    };
    EXPECT_EQ(getModule(0, 1000), "shell");
    EXPECT_EQ(getModule(1, 3000), "shell");
    EXPECT_EQ(getModule(1, 5000), "tool");
    EXPECT_EQ(getModule(0, 5000), "shell");
    EXPECT_EQ(getModule(1, 7000), "<unknown>");
}

} // namespace
} // namespace Host
