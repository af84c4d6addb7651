// Parts of a capture: some of its processes, and a stretch of its time.
#include "Tests/Host/ImportFixture.h"

#include <gmock/gmock.h>

namespace Host
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

// Nanoseconds from the first record, which is at 1000.
ImportFilter gGetRange(double inStart, double inEnd)
{
    constexpr double nanosecondsPerMillisecond = 1e6;
    ImportFilter filter;
    filter.StartMs = inStart / nanosecondsPerMillisecond;
    filter.EndMs = inEnd / nanosecondsPerMillisecond;
    return filter;
}

// The numbers and names of processes.
std::vector<std::string> gGetNames(const std::vector<Profiler::Process>& inProcesses)
{
    std::vector<std::string> names;
    for (const Profiler::Process& process : inProcesses)
        names.push_back(std::to_string(process.DisplayID) + " " + process.Name);
    return names;
}

std::vector<std::string> gGetThreads(const Profiler::Session& inSession)
{
    std::vector<std::string> names;
    for (const Profiler::Thread& thread : inSession.GetThreadList())
        names.push_back(std::to_string(thread.DisplayThreadID) + " " + thread.ThreadName);
    return names;
}

// The paths of the modules with instances.
std::vector<std::string> gGetModules(Profiler::Session& ioSession)
{
    std::vector<std::string> paths;
    for (const auto& module : ioSession.GetModuleDatabase().GetNativeModules())
        paths.push_back(module->Path);
    return paths;
}

// --- Processes ---

constexpr const char* sShop = "0 comm 10/10 server\n0 comm 10/11 worker\n0 comm 20/20 client\n"
                              "0 mmap 10/10 0x400000 0x10000 /opt/server-main\n"
                              "0 mmap 20/20 0x400000 0x10000 /opt/client\n"
                              "1000 cpu0 clock 10/10 0x400010\n"
                              "2000 cpu1 clock 20/20 0x400030\n"
                              "3000 cpu1 waking 20/20 11\n"
                              "4000 cpu0 waking 10/10 20\n"
                              "5000 cpu1 waking 20/20 20\n"
                              "6000 cpu0 clock 10/11 0x400050\n";

TEST(ImportFilter, ProcessesAreChosenByNumberNameOrProgram)
{
    for (const char* process : {"10", "server", "server-main"})
    {
        SCOPED_TRACE(process);
        ImportedCapture capture(sShop, {.Processes = {process}});
        // Who isn't captured leaves no events; whom it wakes is woken by nobody.
        EXPECT_THAT(capture.RunMiddle(), ElementsAre("0 sample 10/10 400010", "2000 ready 10/- -> 10/11",
                                                     "3000 ready 10/10 -> (20)/-", "2000 in 10/11", "5000 sample 10/11 400050"));
        EXPECT_THAT(gGetNames(capture.Session.GetProcessList()), ElementsAre("10 server"));
        EXPECT_THAT(gGetNames(capture.Session.GetNonCapturedProcesses()), ElementsAre("20 client"));
        EXPECT_THAT(gGetThreads(capture.Session), ElementsAre("10 server", "11 worker"));
        EXPECT_THAT(gGetModules(capture.Session), ElementsAre("/opt/server-main"));
    }
}

TEST(ImportFilter, SeveralProcessesAreTakenTogether)
{
    ImportedCapture all(sShop, {});
    ImportedCapture both(sShop, {.Processes = {"client", "10", "nobody"}});
    EXPECT_EQ(both.Run(), all.Run());
}

TEST(ImportFilter, ProcessesThatAreNotThereAreNamed)
{
    // A part of a name is no name, and a thread is no process.
    for (const char* process : {"serv", "1", "worker", "11", ""})
    {
        ImportedCapture capture(sShop, {.Processes = {process, "other"}});
        EXPECT_FALSE(capture.IsPrepared) << process;
        EXPECT_EQ(capture.Errors.GetEntries().back().Message, std::string("test.data: no process ") + process +
                                                                  (*process != '\0' ? ", other" : "other") + " has events in it");
    }
}

// --- Time ---

// A thread that ends early, one that begins late, and one that only ever runs at the end.
constexpr const char* sShift = "0 comm 10/10 main\n0 comm 10/11 worker\n0 comm 10/12 late\n"
                               "1000 cpu0 clock 10/10 0x1010\n"
                               "2000 cpu1 clock 10/11 0x1020\n"
                               "3000 cpu0 fork 10/13 from 10/10\n"
                               "3500 cpu1 clock 10/13 0x1030\n"
                               "4000 cpu1 exit 10/13\n"
                               "5000 cpu1 clock 10/11 0x1021\n"
                               "6000 cpu0 clock 10/10 0x1011\n"
                               "7000 cpu0 clock 10/10 0x1012\n"
                               "9000 cpu0 fork 10/14 from 10/10\n"
                               "9500 cpu1 clock 10/14 0x1040\n"
                               "20000 cpu1 clock 10/12 0x1050\n";

TEST(ImportFilter, OnlyEventsOfTheRangeRemain)
{
    ImportedCapture capture(sShift, gGetRange(4000, 6000));
    EXPECT_THAT(capture.Run(),
                ElementsAre("0 start 10/11 1", "0 sample 10/11 1021", "1000 start 10/10 1", "1000 sample 10/10 1011",
                            "2000 sample 10/10 1012", "2000 end 10/10 1", "2000 end 10/11 1"));
    EXPECT_THAT(gGetThreads(capture.Session), ElementsAre("11 worker", "10 main"));
    EXPECT_DOUBLE_EQ(capture.Session.GetSessionInfo().SessionStartTimeMs, 0.0);
    EXPECT_DOUBLE_EQ(capture.Session.GetSessionInfo().SessionEndTimeMs, 0.002);
    for (const Profiler::Thread& thread : capture.Session.GetThreadList())
        EXPECT_EQ(thread.StartTimeMs, 0.0) << "it was there before";
}

TEST(ImportFilter, ARangeMayBeOpen)
{
    ImportedCapture start(sShift, gGetRange(0, 1000));
    EXPECT_THAT(start.Run(), ElementsAre("0 start 10/10 1", "0 start 10/11 1", "0 start 10/12 1", "0 sample 10/10 1010",
                                         "1000 sample 10/11 1020", "1000 end 10/10 1", "1000 end 10/11 1", "1000 end 10/12 1"));
    ImportFilter filter;
    filter.StartMs = 0.008;
    ImportedCapture end(sShift, filter);
    EXPECT_THAT(end.Run(), ElementsAre("0 start 10/14 0", "500 sample 10/14 1040", "11000 start 10/12 1",
                                       "11000 sample 10/12 1050", "11000 end 10/12 1", "11000 end 10/14 1"));
    ImportedCapture whole(sShift, {});
    ImportedCapture longer(sShift, gGetRange(0, 1e12));
    EXPECT_EQ(longer.Run(), whole.Run());
}

// What happened before decides what a thread is doing when the range begins.
TEST(ImportFilter, StatesFromBeforeTheRangeHold)
{
    constexpr const char* records = "0 comm 10/10 main\n0 comm 10/11 worker\n"
                                    "1000 cpu0 clock 10/10 0x1010\n"
                                    "2000 cpu0 switch 10/10 S 10/11\n"
                                    "3000 cpu0 waking 10/11 10\n"
                                    "6000 cpu0 switch 10/11 S 10/10\n"
                                    "7000 cpu0 clock 10/10 0x1010\n";
    ImportedCapture capture(records, gGetRange(4000, 7000));
    EXPECT_THAT(capture.RunMiddle(), ElementsAre("1000 out 10/11 6", "1000 in 10/10", "2000 sample 10/10 1010"));
}

// A thread that is only woken in the range is one of the session's: the event refers to it.
TEST(ImportFilter, AWokenThreadIsListed)
{
    ImportedCapture capture(std::string(sShift) + "21000 cpu1 waking 10/12 10\n", gGetRange(18500, 1e12));
    EXPECT_THAT(capture.RunMiddle(), ElementsAre("500 sample 10/12 1050", "1500 ready 10/12 -> 10/10"));
    EXPECT_THAT(gGetThreads(capture.Session), ElementsAre("12 late", "10 main"));
}

TEST(ImportFilter, ProcessesAndModulesThatWereGoneAreNotListed)
{
    constexpr const char* records = "0 comm 10/10 main\n0 mmap 10/10 0x400000 0x1000 /opt/main\n0 comm 30/30 early\n"
                                    "0 mmap 30/30 0x400000 0x1000 /opt/early\n"
                                    "1000 cpu0 clock 10/10 0x400010\n"
                                    "1500 cpu0 mmap 10/10 0x800000 0x1000 /opt/before.so\n"
                                    "2000 cpu1 clock 30/30 0x400010\n"
                                    "3000 cpu1 exit 30/30\n"
                                    "4000 cpu0 mmap 10/10 0x800000 0x1000 /opt/after.so\n"
                                    "6000 cpu0 clock 10/10 0x800010\n"
                                    "8000 cpu0 mmap 10/10 0x900000 0x1000 /opt/later.so\n"
                                    "9000 cpu0 fork 40/40 from 10/10\n"
                                    "9500 cpu1 clock 40/40 0x400010\n";
    ImportedCapture capture(records, gGetRange(4500, 6500));
    EXPECT_THAT(capture.Run(), ElementsAre("500 start 10/10 1", "500 sample 10/10 800010", "2000 end 10/10 1"));
    EXPECT_THAT(gGetNames(capture.Session.GetProcessList()), ElementsAre("10 main"));
    EXPECT_THAT(capture.Session.GetNonCapturedProcesses(), IsEmpty());
    EXPECT_THAT(gGetModules(capture.Session), ElementsAre("/opt/main", "/opt/after.so"));
}

TEST(ImportFilter, ARangeBehindTheEndIsRefused)
{
    ImportedCapture capture(sShift, gGetRange(19001, 30000));
    EXPECT_FALSE(capture.IsPrepared);
    EXPECT_EQ(capture.Errors.GetEntries().back().Message, "test.data: ends after 0.019 ms, before the time range begins");
    EXPECT_TRUE(ImportedCapture(sShift, gGetRange(19000, 30000)).IsPrepared);
}

} // namespace
} // namespace Host
