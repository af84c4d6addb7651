// Which process, and which of its modules, a pid and an address meant at a time.
#include "Tests/Host/ImportFixture.h"

#include <gmock/gmock.h>

namespace Host
{
namespace
{

using testing::ElementsAre;

class ProcessTimelineTest : public testing::Test
{
protected:
    // The capture's first record is at 1000.
    void Import(const std::string& inRecords)
    {
        mCapture = std::make_unique<ImportedCapture>(inRecords);
        mCapture->Run();
    }

    // "10 main 0-4000": pid, name, first and last nanosecond.
    [[nodiscard]] std::vector<std::string> PrintProcesses() const
    {
        constexpr double nanosecondsPerMillisecond = 1e6;
        std::vector<std::string> lines;
        for (const Profiler::Process& process : mCapture->Session.GetProcessList())
            lines.push_back(Utility::gFormat("%d %s %.0f-%.0f", process.DisplayID, process.Name.c_str(),
                                             process.StartTimeMs * nanosecondsPerMillisecond,
                                             process.EndTimeMs * nanosecondsPerMillisecond));
        return lines;
    }

    // The name of the module at an address. inTime is that of the capture's clock.
    [[nodiscard]] std::string GetModule(size_t inProcess, uint64_t inTime, uint64_t inAddress = 0x400010)
    {
        constexpr double millisecondsPerNanosecond = 1e-6;
        return mCapture->Session.GetModuleDatabase()
            .ResolveFrame(inAddress, mCapture->Session.GetProcessList()[inProcess].ID,
                          static_cast<double>(inTime - 1000) * millisecondsPerNanosecond, nullptr)
            .Module->Name;
    }

    std::unique_ptr<ImportedCapture> mCapture;
};

struct LifeCase
{
    const char* Name;
    const char* Records;
    std::vector<std::string> Processes;
};

// In a capture of some processes perf only tells the names of what runs already. It writes them down while new threads are
// already being recorded.
TEST_F(ProcessTimelineTest, AProcessLivesUntilItsLastThreadExits)
{
    const LifeCase cases[] = {{"it lives on when one of its earlier threads exits",
                               "0 comm 10/10 main\n0 comm 10/11 worker\n"
                               "1000 cpu0 clock 10/10 0x400010\n"
                               "2000 cpu0 exit 10/11\n"
                               "3000 cpu0 exit 10/12\n" // never told of
                               "4000 cpu0 fork 10/13 from 10/10\n"
                               "5000 cpu0 clock 10/13 0x400010\n"
                               "6000 cpu0 exit 10/13\n"
                               "7000 cpu0 exit 10/10\n"
                               "8000 cpu0 clock 20/20 0x400010\n",
                               {"10 main 0-6000", "20 :20 0-7000"}},
                              {"a thread that is told of twice counts once",
                               "0 fork 10/10 from 1/1\n0 comm 10/10 main\n0 fork 10/11 from 10/10\n"
                               "1000 cpu0 fork 10/11 from 10/10\n"
                               "3000 cpu0 clock 10/11 0x400010\n"
                               "4000 cpu0 exit 10/11\n"
                               "5000 cpu0 exit 10/10\n"
                               "6000 cpu0 clock 20/20 0x400010\n",
                               {"10 main 0-4000", "20 :20 0-5000"}},
                              {"a thread that begins a new program is the only one left",
                               "0 comm 10/10 main\n"
                               "1000 cpu0 fork 10/11 from 10/10\n"
                               "2000 cpu0 exit 10/10\n"
                               "2100 cpu0 exec 10/10 tool\n"
                               "3000 cpu0 clock 10/10 0x400010\n"
                               "4000 cpu0 exit 10/10\n"
                               "5000 cpu0 clock 20/20 0x400010\n",
                               {"10 tool 0-3000", "20 :20 0-4000"}},
                              {"what nothing names shows its pid",
                               "1000 cpu0 fork 10/11 from 10/10\n"
                               "2000 cpu0 clock 10/11 0x400010\n",
                               {"10 :10 0-1000"}},
                              {"kernel threads are known by forks that follow their names",
                               "0 comm 7/7 kworker\n0 fork 7/7 from 2/2\n"
                               "1000 cpu0 clock 7/7 0x400010\n",
                               {"7 [kworker] 0-0"}},
                              {"or ahead of them",
                               "0 fork 7/7 from 2/2\n0 comm 7/7 kworker\n"
                               "1000 cpu0 clock 7/7 0x400010\n",
                               {"7 [kworker] 0-0"}},
                              {"a reused pid is another process",
                               "0 comm 10/10 first\n"
                               "1000 cpu0 clock 10/10 0x400010\n"
                               "2000 cpu0 exit 10/10\n"
                               "3000 cpu0 fork 10/10 from 1/1\n"
                               "3100 cpu0 exec 10/10 second\n"
                               "4000 cpu0 clock 10/10 0x400010\n",
                               {"10 first 0-1000", "10 second 2000-3000"}}};
    for (const LifeCase& life : cases)
    {
        Import(life.Records);
        EXPECT_EQ(PrintProcesses(), life.Processes) << life.Name;
        EXPECT_NE(mCapture->Session.GetThreadList()[0].ThreadName.substr(0, 1), "[") << life.Name;
    }
    // The reused pid's thread is another one too.
    EXPECT_EQ(mCapture->Session.GetThreadList()[1].ProcessID, mCapture->Session.GetProcessList()[1].ID);
}

TEST_F(ProcessTimelineTest, AThreadCountsWhereItsForkFollowsItsNameAndMappings)
{
    Import("0 comm 10/10 main\n0 mmap 10/10 0x400000 0x1000 /bin/main\n0 fork 10/10 from 1/1\n"
           "1000 cpu0 fork 10/11 from 10/10\n"
           "4000 cpu0 exit 10/11\n"
           "4500 cpu0 clock 10/10 0x400010\n"
           "5000 cpu0 exit 10/10\n"
           "6000 cpu0 clock 20/20 0x400010\n");
    EXPECT_THAT(PrintProcesses(), ElementsAre("10 main 0-4000", "20 :20 0-5000"));
    EXPECT_EQ(GetModule(0, 4500), "main");
    EXPECT_EQ(GetModule(0, 6000), "<unknown>");
}

TEST_F(ProcessTimelineTest, AReusedThreadIDBelongsToItsProcessOfTheTime)
{
    Import("0 comm 10/10 first\n0 comm 20/20 second\n"
           "1000 cpu0 clock 10/10 0x400010\n"
           "1500 cpu0 waking 10/10 30\n"
           "2000 cpu0 exit 10/30\n"
           "3000 cpu0 fork 20/30 from 20/20\n"
           "4000 cpu0 clock 20/30 0x400010\n");
    EXPECT_THAT(mCapture->Lines, testing::Contains("500 ready 10/10 -> 10/30"));
    EXPECT_THAT(mCapture->Lines, testing::Contains("3000 sample 20/30 400010"));
}

TEST_F(ProcessTimelineTest, ModulesFollowForkExecAndReplacement)
{
    Import("0 comm 10/10 shell\n0 mmap 10/10 0x400000 0x1000 /bin/shell\n0 mmap 10/10 0x500000 0x1000 /bin/helper\n"
           "1000 cpu0 clock 10/10 0x400010\n"
           "2000 cpu0 fork 20/20 from 10/10\n"
           "3000 cpu0 clock 20/20 0x400010\n"
           "4000 cpu0 exec 20/20 tool\n"
           "4100 cpu0 mmap 20/20 0x400000 0x1000 /bin/tool\n"
           "5000 cpu0 clock 20/20 0x400010\n"
           "6000 cpu0 mmap 20/20 0x400000 0x1000 //anon\n");
    EXPECT_EQ(GetModule(0, 1000), "shell");
    EXPECT_EQ(GetModule(1, 3000), "shell");
    EXPECT_EQ(GetModule(1, 5000, 0x500010), "<unknown>");
    EXPECT_EQ(GetModule(1, 5000), "tool");
    EXPECT_EQ(GetModule(0, 5000), "shell");
    EXPECT_EQ(GetModule(1, 7000), "<unknown>");
}

// Programs put their own code into huge pages, or a compiler's into a gap of theirs.
TEST_F(ProcessTimelineTest, AnonymousMemoryLeavesTheRestOfAFile)
{
    Import("0 comm 10/10 main\n0 mmap 10/10 0x400000 0x4000 /bin/main\n"
           "1000 cpu0 clock 10/10 0x400010\n"
           "2000 cpu0 mmap 10/10 0x401000 0x1000 //anon\n"
           "2500 cpu0 fork 20/20 from 10/10\n"
           "2600 cpu0 clock 20/20 0x400010\n"
           "3000 cpu0 mmap 10/10 0x400000 0x1000 //anon\n"
           "4000 cpu0 mmap 10/10 0x402000 0x2000 //anon\n"
           "5000 cpu0 clock 10/10 0x400010\n");
    for (const uint64_t address : {0x400010, 0x402010, 0x403010})
    {
        EXPECT_EQ(GetModule(0, 2200, address), "main");
        EXPECT_EQ(GetModule(1, 5000, address), "main");
    }
    EXPECT_EQ(GetModule(0, 3500, 0x402010), "main");
    EXPECT_EQ(GetModule(0, 4500, 0x402010), "<unknown>");
}

// That files are unmapped isn't recorded: one that another one lies in has gone.
TEST_F(ProcessTimelineTest, AFileUnloadsTheFilesThatItOverlaps)
{
    Import("0 comm 10/10 main\n0 mmap 10/10 0x400000 0x2000 /bin/first\n0 mmap 10/10 0x402000 0x2000 /bin/second\n"
           "0 mmap 10/10 0x404000 0x2000 /bin/third\n"
           "1000 cpu0 clock 10/10 0x400010\n"
           "2000 cpu0 mmap 10/10 0x401000 0x2000 /bin/new\n");
    EXPECT_EQ(GetModule(0, 1500, 0x400010), "first");
    EXPECT_EQ(GetModule(0, 1500, 0x403010), "second");
    EXPECT_EQ(GetModule(0, 2500, 0x400010), "<unknown>");
    EXPECT_EQ(GetModule(0, 2500, 0x402010), "new");
    EXPECT_EQ(GetModule(0, 2500, 0x403010), "<unknown>");
    EXPECT_EQ(GetModule(0, 2500, 0x404010), "third");
}

// Comparing each mapping with all others would take minutes here.
TEST_F(ProcessTimelineTest, ManyMappingsOfOneProcessAreRead)
{
    constexpr int count = 300000;
    std::string records = "0 comm 10/10 main\n";
    for (int i = count; i > 0; --i)
        records += Utility::gFormat("0 mmap 10/10 0x%x000 0x1000 /bin/main\n", i);
    Import(records + "1000 cpu0 clock 10/10 0x1010\n");
    EXPECT_EQ(GetModule(0, 1000, 0x1010), "main");
    EXPECT_EQ(GetModule(0, 1000, uint64_t{count} * 0x1000 + 0x10), "main");
}

} // namespace
} // namespace Host
