// Switches that a capture lacks: what becomes of threads that run although nothing switched them in, and of those that stopped
// without having been switched out.
#include "Tests/Host/ImportFixture.h"

#include <gmock/gmock.h>
#include <linux/perf_event.h>

#include <array>
#include <map>
#include <random>
#include <sstream>

namespace Host
{
namespace
{

using testing::ElementsAre;

std::vector<std::string> gImport(const std::string& inRecords)
{
    return ImportedCapture::sImportMiddle(inRecords);
}

// As perf records some processes: their clock samples tell no processor.
std::vector<std::string> gImportSomeProcesses(const std::string& inRecords)
{
    PerfFileBuilder builder;
    builder.Events[0].SampleType &= ~uint64_t{PERF_SAMPLE_CPU};
    return ImportedCapture::sImportMiddle(builder, inRecords);
}

PerfFileBuilder gMakeCyclesBuilder()
{
    PerfFileBuilder builder;
    builder.Events[0].Name = "cycles";
    builder.Events[0].Type = PERF_TYPE_HARDWARE;
    builder.Events[0].Config = PERF_COUNT_HW_CPU_CYCLES;
    return builder;
}

TEST(MissedSwitch, WhereAMissedSwitchLies)
{
    const EventCase cases[] = {
        {"in: at the processor's last switch",
         "1000 cpu0 switch 10/11 R 0/0\n"
         "2000 cpu0 switch 10/10 S 0/0\n"
         "5000 cpu0 switch 10/11 S 0/0\n",
         {"0 out 10/11 32", "1000 out 10/10 6", "1000 in 10/11", "4000 out 10/11 6"}},
        {"in: not before the wake-up",
         "1000 cpu0 switch 10/11 S 0/0\n"
         "2000 cpu0 switch 10/10 S 0/0\n"
         "3000 cpu1 waking 0/0 11\n"
         "5000 cpu0 clock 10/11 0x400010\n",
         {"0 out 10/11 6", "1000 out 10/10 6", "2000 ready 10/- -> 10/11", "2000 in 10/11", "4000 sample 10/11 400010"}},
        {"in: not before the thread's name",
         "1000 cpu0 switch 10/11 S 0/0\n"
         "2000 cpu0 comm 10/11 other\n"
         "3000 cpu0 clock 10/11 0x400010\n",
         {"0 out 10/11 6", "1000 name 10/11 other", "1000 in 10/11", "2000 sample 10/11 400010"}},
        {"out: where the thread was last seen",
         "1000 cpu0 switch 10/11 R 10/10\n"
         "2000 cpu0 clock 10/10 0x400010\n"
         "5000 cpu0 clock 10/11 0x400020\n",
         {"0 out 10/11 32", "0 in 10/10", "1000 sample 10/10 400010", "1000 out 10/10 32", "1000 in 10/11",
          "4000 sample 10/11 400020"}},
        {"out: between two switches in, after which processor 0 no longer has anything to do with the thread",
         "1000 cpu0 switch 0/0 R 10/10\n"
         "2000 cpu0 clock 10/10 0x400010\n"
         "5000 cpu1 switch 0/0 R 10/10\n"
         "6000 cpu0 switch 0/0 R 10/11\n",
         {"0 in 10/10", "1000 sample 10/10 400010", "1000 out 10/10 32", "4000 in 10/10", "5000 in 10/11"}},
        {"out: an ended thread has terminated",
         "1000 cpu0 switch 0/0 R 10/11\n"
         "2000 cpu0 exit 10/11\n"
         "5000 cpu0 switch 0/0 R 10/10\n"
         "6000 cpu0 clock 10/10 0x400010\n",
         {"0 in 10/11", "1000 out 10/11 22", "4000 in 10/10", "5000 sample 10/10 400010"}}};
    for (const EventCase& missed : cases)
        EXPECT_EQ(gImport(missed.Records), missed.Events) << missed.Name;
}

TEST(MissedSwitch, AMissedSwitchInIsNoOlderThanTheClocksInterval)
{
    const char* records = "1000000 cpu0 switch 10/11 S 0/0\n"
                          "9000000 cpu0 clock 10/11 0x400010\n";
    const std::vector<std::string> expected = {"0 out 10/11 6", "7750000 in 10/11", "8000000 sample 10/11 400010"};
    EXPECT_EQ(gImport(records), expected);
    PerfFileBuilder frequency;
    frequency.Events[0].Period = 4000;
    frequency.Events[0].IsFrequency = true;
    EXPECT_EQ(ImportedCapture::sImportMiddle(frequency, records), expected);
    // Cycles don't tick evenly.
    EXPECT_THAT(ImportedCapture::sImportMiddle(gMakeCyclesBuilder(), records),
                ElementsAre("0 out 10/11 6", "0 in 10/11", "8000000 sample 10/11 400010"));
}

TEST(MissedSwitch, WaitsHaveALengthInACaptureOfSomeProcesses)
{
    EXPECT_THAT(gImportSomeProcesses("1000000 clock 10/11 0x400010\n"
                                     "2000000 cpu0 switch 10/11 S 0/0\n"
                                     "9000000 clock 10/11 0x400010\n"
                                     "9100000 cpu0 switch 10/11 S 0/0\n"
                                     "15000000 cpu0 switch 10/11 S 0/0\n"), // it ran too shortly to be sampled
                ElementsAre("0 sample 10/11 400010", "1000000 out 10/11 6", "7750000 in 10/11", "8000000 sample 10/11 400010",
                            "8100000 out 10/11 6", "13750000 in 10/11", "14000000 out 10/11 6"));
    EXPECT_THAT(gImportSomeProcesses("2000000 cpu0 switch 10/11 S 0/0\n"
                                     "15000000 cpu0 switch 10/11 S 0/0\n"),
                ElementsAre("0 out 10/11 6", "0 in 10/11", "13000000 out 10/11 6"))
        << "without samples of the clock nobody knows";
}

// Whatever is seen on the processor instead: another thread that counts as running, a stranger, or nobody.
TEST(MissedSwitch, AThreadThatGaveWayUnseenIsSwitchedInAgain)
{
    const std::pair<const char*, int> others[] = {{"5000 cpu0 switch 0/0 R 20/20\n", 6},
                                                  {"5000 cpu0 clock 0/0 0x400010\n", 6},
                                                  {"5000 cpu0 switch 20/20 S 0/0\n", 32},
                                                  {"1500 cpu1 clock 10/11 0x400020\n"
                                                   "5000 cpu0 clock 10/11 0x400020\n",
                                                   32}};
    for (const auto& [other, reason] : others)
    {
        std::vector<std::string> lines = gImport(std::string("1000 cpu0 switch 0/0 R 10/10\n"
                                                             "2000 cpu0 clock 10/10 0x400010\n") +
                                                 other + "7000 cpu0 switch 0/0 R 10/10\n");
        std::erase_if(lines, [](const std::string& inLine) { return inLine.find(" 10/10") == std::string::npos; });
        EXPECT_THAT(lines, ElementsAre("0 in 10/10", "1000 sample 10/10 400010", Utility::gFormat("1000 out 10/10 %d", reason),
                                       "6000 in 10/10"))
            << other;
    }
}

// The tracepoint fires before the processor changes over; an interrupt in between still finds the thread that it leaves.
TEST(MissedSwitch, ASampleJustBehindASwitchOutDoesNotCutTheWait)
{
    const std::string records = std::string(ImportedCapture::sTwoThreads) + "1000 cpu0 switch 0/0 R 10/10\n"
                                                                            "20000 cpu0 switch 10/10 S 10/11\n"
                                                                            "29000 cpu0 clock 10/10 0x400010\n"
                                                                            "31000 cpu0 clock 10/11 0x400020\n"
                                                                            "40000 cpu0 switch 10/11 S 0/0\n";
    PerfFileBuilder cycles = gMakeCyclesBuilder();
    cycles.AddRecords(records + "50001 cpu0 clock 10/11 0x400030\n");
    ImportedCapture capture(cycles.Build());
    EXPECT_THAT(capture.RunMiddle(), ElementsAre("0 in 10/10", "19000 out 10/10 6", "19000 in 10/11", "30000 sample 10/11 400020",
                                                 "39000 out 10/11 6", "39000 in 10/11", "49001 sample 10/11 400030"))
        << "the last sample comes too late to be of the switch";
    EXPECT_EQ(capture.Importer->GetHealth().SamplesAmidSwitch, 1U);

    // A clock's interrupt waits for the switch, so the thread really runs again.
    PerfFileBuilder clock(records);
    EXPECT_THAT(ImportedCapture(clock.Build()).RunMiddle(), testing::Contains("28000 sample 10/10 400010"));
}

// One random record of few threads on two processors, sound or contradicting the others.
std::string gMakeRecord(std::mt19937& ioRandom, uint64_t inTime)
{
    // T is any thread with its process, N the number of one alone.
    constexpr std::array records = {"switch T R T",         "switch T S T", "switch T X T",     "clock T 0x400010",
                                    "clock T 0x400010",     "waking T N",   "switch_in T",      "switch_out T",
                                    "comm 10/12 name",      "exit 10/12",   "clock T 0x400010", "process_exit 10/12",
                                    "fork 10/12 from 10/10"};
    constexpr std::array threads = {"0/0", "10/10", "10/11", "10/12", "20/20"};
    std::string line = std::to_string(inTime) + " cpu" + std::to_string(ioRandom() % 2) + " ";
    for (const char letter : std::string_view(records[ioRandom() % records.size()]))
    {
        const std::string thread = threads[ioRandom() % threads.size()];
        line += letter == 'T' ? thread : letter == 'N' ? thread.substr(thread.find('/') + 1) : std::string(1, letter);
    }
    return line + "\n";
}

// Fails where the events of a thread contradict each other.
class EventChecker
{
public:
    void Check(const std::string& inLine)
    {
        SCOPED_TRACE(inLine);
        std::istringstream words(inLine);
        uint64_t time = 0;
        std::string kind;
        std::string thread;
        words >> time >> kind >> thread;
        if (thread.ends_with("/-"))
            return; // nobody's wake-up
        State& state = mStates[thread];
        if (kind == "start")
            state = {};
        EXPECT_GE(time, state.LastTime);
        state.LastTime = time;
        if (kind != "in" && kind != "out" && kind != "sample" && kind != "ready")
            return;
        EXPECT_NE(state.Runs, kind == "in" ? ERunState::Running : ERunState::Waiting);
        state.Runs = kind == "out" ? ERunState::Waiting : ERunState::Running;
    }

private:
    struct State
    {
        uint64_t LastTime = 0;
        ERunState Runs = ERunState::Unknown;
    };
    std::map<std::string, State> mStates;
};

TEST(MissedSwitch, TheEventsOfAThreadNeverContradictEachOther)
{
    for (uint32_t seed = 0; seed < 300; ++seed)
    {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        PerfFileBuilder builder = seed % 2 == 0 ? PerfFileBuilder() : gMakeCyclesBuilder();
        std::string records;
        uint64_t time = 1000;
        for (int i = 0; i < 200; ++i)
            records += gMakeRecord(random, time += random() % (seed % 3 == 0 ? 400000 : 4000));
        builder.AddRecords(ImportedCapture::sTwoThreads + records);
        EventChecker checker;
        for (const std::string& line : ImportedCapture(builder.Build()).Run())
            checker.Check(line);
        ASSERT_FALSE(testing::Test::HasFailure()) << records;
    }
}

} // namespace
} // namespace Host
