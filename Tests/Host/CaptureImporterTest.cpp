#include "Tests/Host/ImportFixture.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

#include <algorithm>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* sTwoThreads = ImportedCapture::sTwoThreads;

std::vector<std::string> gImportMiddle(const std::string& inRecords)
{
    return ImportedCapture::sImportMiddle(inRecords);
}

// Without the format of a tracepoint, so that its events can't be decoded.
std::vector<std::string> gImportWithoutFormat(std::string_view inFormatID, const std::string& inRecords)
{
    PerfFileBuilder builder(sTwoThreads + inRecords);
    std::vector<uint8_t> image = builder.Build();
    const auto found = std::search(image.begin(), image.end(), inFormatID.begin(), inFormatID.end());
    EXPECT_NE(found, image.end());
    *found = '!';
    return ImportedCapture(image).RunMiddle();
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
    PerfFileBuilder builder(sTwoThreads);
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
                      {.Time = 1000,
                       .ProcessID = 10,
                       .ThreadID = 10,
                       .Callchain = {static_cast<uint64_t>(PERF_CONTEXT_KERNEL), 0xFFFFFFFF81000010,
                                     static_cast<uint64_t>(PERF_CONTEXT_USER), 0x400010, 0x400020, 0xFFFFFFFFFFFFEFFF},
                       .Raw = gMakeSwitchRaw(10, 1, 0)});
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
                      {.Time = 2000, .ProcessID = 0, .ThreadID = 0, .Raw = gMakeSwitchRaw(0, 0, 10)});
    ImportedCapture capture(builder.Build());
    EXPECT_THAT(capture.Run(), testing::Contains("1000 in 10/10 ffffffffffffefff;400020;400010;ffffffff81000010"));
}

TEST(CaptureImporter, IdleThreadsAreNotOfTheCapture)
{
    ImportedCapture capture(std::string(sTwoThreads) + "1000 cpu0 switch 10/10 S 0/0\n"
                                                       "2000 cpu0 clock 0/0 0x400010\n"
                                                       "3000 cpu0 switch 0/0 R 10/10\n");
    EXPECT_THAT(capture.Run(), testing::Contains("2000 in 10/10"));
    EXPECT_EQ(capture.Importer->GetHealth().IdleSamples, 1U);
    EXPECT_EQ(capture.Session.GetProcessList().size(), 1U);
}

TEST(CaptureImporter, AProcessThatIsOnlyWokenIsNotCaptured)
{
    ImportedCapture capture(std::string(sTwoThreads) + "0 comm 20/21 sleeper\n"
                                                       "1000 cpu0 waking 10/10 21\n");
    EXPECT_THAT(capture.Run(), testing::Contains("0 ready 10/10 -> (20)/-"));
    ASSERT_EQ(capture.Session.GetNonCapturedProcesses().size(), 1U);
    EXPECT_EQ(capture.Session.GetNonCapturedProcesses()[0].DisplayID, 20);
}

TEST(CaptureImporter, AnExitingThreadIsNamedByTheTracepoint)
{
    PerfFileBuilder builder(std::string(sTwoThreads) + "1000 cpu0 clock 10/11 0x400010\n"
                                                       "1500 cpu0 exit 10/11\n");
    builder.AddSample(static_cast<uint32_t>(EBuilderEvent::SchedSwitch),
                      {.Time = 2000, .ProcessID = -1, .ThreadID = -1, .Raw = gMakeSwitchRaw(11, 0x20, 0)});
    ImportedCapture capture(builder.Build());
    const std::vector<std::string> lines = capture.Run();
    EXPECT_THAT(lines, ElementsAre("0 start 10/10 1", "0 start 10/11 1", "0 sample 10/11 400010", "500 end 10/11 0",
                                   "1000 out 10/11 22", "1000 end 10/10 1"));
}

TEST(CaptureImporter, AThreadEndsWhereItsExitRecordSays)
{
    const std::string start = std::string(sTwoThreads) + "1000 cpu0 clock 10/11 0x400010\n"
                                                         "1500 cpu0 process_exit 10/11\n";
    const std::string exit = "1800 cpu0 exit 10/11\n";
    const std::string last = "2000 cpu0 switch 10/11 X 0/0\n";
    EXPECT_THAT(ImportedCapture::sImport(start + exit + last), testing::Contains("800 end 10/11 0"));
    EXPECT_THAT(ImportedCapture::sImport(start + last), testing::Contains("500 end 10/11 0")) << "the record was lost";
    EXPECT_THAT(ImportedCapture::sImport("500 cpu0 exit 10/11\n600 cpu0 fork 10/11 from 10/10\n" + start + last),
                testing::Contains("1000 end 10/11 0"))
        << "the record is of an earlier thread";
}

TEST(CaptureImporter, CacheMissesAreNoSamplesOfExecution)
{
    PerfFileBuilder builder;
    BuilderEvent misses = builder.Events[0];
    misses.Name = "cache-misses";
    misses.Type = PERF_TYPE_HARDWARE;
    misses.Config = PERF_COUNT_HW_CACHE_MISSES;
    misses.IDs = {100, 101};
    builder.Events.push_back(misses);
    builder.AddRecords(std::string(sTwoThreads) + "1000 cpu0 clock 10/10 0x400010\n");
    builder.AddSample(static_cast<uint32_t>(builder.Events.size() - 1),
                      {.Time = 2000, .ProcessID = 10, .ThreadID = 10, .InstructionPointer = 0x400020});
    ImportedCapture capture(builder.Build());
    EXPECT_THAT(capture.RunMiddle(), ElementsAre("0 sample 10/10 400010"));
    EXPECT_EQ(capture.Importer->GetHealth().OtherEventSamples, 1U);
}

TEST(CaptureImporter, RecordsBecomeEvents)
{
    const EventCase cases[] = {
        {"negative numbers, next to the markers and below them as in stacks without frame pointers, are no frames",
         "1000 cpu0 clock 10/10 0x400010;0;0xFFFFFFFFFFFFFFFF;0xFFFFFFFFFFFFFF00;0xFFFFFFFFFFFFF000;0x400020\n"
         "2000 cpu0 clock 10/10 0xFFFFFFFFFFFFFFF2\n",
         {"0 sample 10/10 400020;400010", "1000 sample 10/10"}},
        {"a wake-up counts once",
         "1000 cpu0 waking 10/10 11\n"
         "1001 cpu1 wakeup 10/10 11\n"
         "2000 cpu0 wakeup_new 10/10 11\n",
         {"0 ready 10/10 -> 10/11", "1000 ready 10/10 -> 10/11"}},
        {"a thread that has ended is not suspended: Linux before 4.14 said so with what is a parked thread since",
         "1000 cpu0 clock 10/11 0x400010\n"
         "1500 cpu0 exit 10/11\n"
         "2000 cpu0 switch 10/11 0x40 0/0\n",
         {"0 sample 10/11 400010", "1000 out 10/11 22"}},
        {"switch records only fill what tracepoints missed",
         "1000 cpu0 clock 10/10 0x400010\n"
         "2000 cpu0 switch 10/10 D 20/20\n" // a stranger comes next; nothing else tells of it
         "2001 cpu0 switch_out 10/10\n"
         "3000 cpu0 switch_in 10/10\n"
         "4000 cpu0 switch_out 10/10\n",
         {"0 sample 10/10 400010", "1000 out 10/10 0", "2000 in 10/10", "3000 out 10/10 6"}},
        {"a new thread waits from its wake-up on",
         "1000 cpu0 switch 10/11 S 10/10\n"
         "2000 cpu0 fork 10/12 from 10/10\n"
         "2100 cpu0 wakeup_new 10/10 12\n"
         "5000 cpu1 clock 10/12 0x400010\n",
         {"0 out 10/11 6", "0 in 10/10", "1100 ready 10/10 -> 10/12", "1100 in 10/12", "4000 sample 10/12 400010"}}};
    for (const EventCase& given : cases)
        EXPECT_EQ(gImportMiddle(given.Records), given.Events) << given.Name;
    EXPECT_THAT(ImportedCapture::sImport("1000 cpu0 clock 30/31 0x400010\n"),
                ElementsAre("0 sample 30/31 400010", "0 end 30/31 1"))
        << "threads that nothing introduced are entered";
    const ImportedCapture empty("");
    EXPECT_FALSE(empty.IsPrepared);
    EXPECT_EQ(empty.Errors.GetEntries().size(), 1U);
}

TEST(CaptureImporter, AnUnreadableTracepointLeavesTheOthers)
{
    EXPECT_THAT(gImportWithoutFormat("ID: 374", "1000 cpu0 waking 10/10 11\n"
                                                "1001 cpu1 wakeup 10/10 11\n"),
                ElementsAre("1 ready 10/10 -> 10/11"))
        << "sched_wakeup is all there is";
    EXPECT_THAT(gImportWithoutFormat("ID: 371", "1000 cpu0 switch 10/11 S 0/0\n"
                                                "1500 cpu0 waking 10/10 11\n"
                                                "2000 cpu1 clock 10/11 0x400010\n"),
                ElementsAre("500 ready 10/10 -> 10/11", "1000 sample 10/11 400010"))
        << "nobody waits";
}

TEST(CaptureImporter, ThreadsAreBornNamedAndBuried)
{
    EXPECT_THAT(ImportedCapture::sImport(std::string(sTwoThreads) + "1000 cpu0 clock 10/10 0x400010\n"
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

} // namespace
} // namespace Host
