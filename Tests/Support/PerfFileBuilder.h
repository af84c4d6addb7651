// Builds perf.data images in memory for tests, byte by byte as perf writes them.
//
//     PerfFileBuilder builder;
//     builder.AddRecords("0 comm 10/10 worker\n"
//                        "5 cpu0 clock 10/11 0x401000;0x402000\n"
//                        "7 cpu0 switch 10/11 S 20/21\n"
//                        "round\n");
//     const std::vector<uint8_t> image = builder.Build();
//
// Threads: one at a time. Ownership: a value; images are copies. Invariant: without events of the test's own, events are those of
// EBuilderEvent.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

// Events that a new builder has, in this order.
enum class EBuilderEvent : uint32_t
{
    Clock,
    SchedSwitch,
    SchedWakeup,
    SchedWakeupNew,
    SchedWaking,
    SchedProcessExit,
    Count
};

struct BuilderEvent
{
    std::string Name;
    uint32_t Type = 0;
    uint64_t Config = 0;
    uint64_t SampleType = 0;
    uint64_t ReadFormat = 0;
    uint64_t Period = 1;
    bool IsFrequency = false;
    bool HasSampleIDAll = true;
    bool IsEnabledOnExec = false;
    bool HasContextSwitch = false;
    std::vector<uint64_t> IDs = {};
};

// Values of one sample. Only those that the event's SampleType names are written.
struct BuilderSample
{
    uint64_t Time = 0;
    int32_t ProcessID = 0;
    int32_t ThreadID = 0;
    uint32_t Cpu = 0;
    uint64_t InstructionPointer = 0;
    std::vector<uint64_t> Callchain = {};
    std::vector<uint8_t> Raw = {};
    uint16_t Misc = 2; // in user code
};

class PerfFileBuilder
{
public:
    // With the events of EBuilderEvent, each with one id per processor for two processors.
    PerfFileBuilder();
    // And with records, see AddRecords.
    explicit PerfFileBuilder(std::string_view inRecords) : PerfFileBuilder() { AddRecords(inRecords); }

    // The events, to change or replace before records are added.
    std::vector<BuilderEvent> Events;

    // Feature sections; each can be left out by clearing it.
    std::string HostName = "machine";
    std::string KernelRelease = "6.1.0";
    std::vector<std::string> CommandLine = {"perf", "record"};
    bool HasEventDescriptions = true;
    bool HasTracingData = true;
    std::vector<uint8_t> BuildIDs; // bytes of the section, see AddBuildID

    // If above 0, the records go into COMPRESSED records, each with this many bytes before compression; so records may begin in
    // one and end in the next.
    size_t CompressedPartSize = 0;

    // Adds records from text, one per line. Times are nanoseconds; a line may name its processor behind the time ("cpu1"). P/T
    // are process and thread id:
    //     TIME comm P/T NAME                  TIME exec P/T NAME
    //     TIME fork P/T from P/T              TIME exit P/T
    //     TIME mmap P/T ADDRESS LENGTH PATH   TIME lost COUNT
    //     TIME clock P/T ADDRESS;ADDRESS...   TIME wakeup P/T T        (also wakeup_new, waking)
    //     TIME switch P/T STATE P/T           TIME process_exit P/T    (STATE: R, S, D, X or a number)
    //     TIME switch_out P/T                 TIME switch_in P/T       (SWITCH records)
    //     round
    // A line that can't be read fails the test.
    void AddRecords(std::string_view inText);

    void AddSample(uint32_t inEvent, const BuilderSample& inSample);
    // A record of any type: its body, then the trailer of the given event.
    void AddSideBand(uint32_t inType, uint16_t inMisc, const std::vector<uint8_t>& inBody, const BuilderSample& inTrailer,
                     uint32_t inEvent = 0);
    // A record without a trailer, as perf itself writes them.
    void AddPlain(uint32_t inType, const std::vector<uint8_t>& inBody);
    void AddRound();
    // Bytes as they are, sound or not.
    void AddBytes(std::span<const uint8_t> inBytes);
    void AddBuildID(int32_t inProcessID, std::span<const uint8_t> inBuildID, const std::string& inPath, bool inIsKernel);

    // The whole file.
    [[nodiscard]] std::vector<uint8_t> Build() const;

    // Offset of the records in what Build gives; counts the events there are now.
    [[nodiscard]] uint64_t GetRecordsOffset() const;
    [[nodiscard]] const std::vector<uint8_t>& GetRecords() const { return mRecords; }

private:
    std::vector<uint8_t> mRecords;
};

// Raw data of the tracepoints, in the layout of the formats that the builder stores.
[[nodiscard]] std::vector<uint8_t> gMakeSwitchRaw(int32_t inPreviousThread, uint64_t inState, int32_t inNextThread);
[[nodiscard]] std::vector<uint8_t> gMakeWakeupRaw(EBuilderEvent inEvent, int32_t inThread, int32_t inCpu);
[[nodiscard]] std::vector<uint8_t> gMakeExitRaw(int32_t inThread);

// The tracing data section that the builder stores.
[[nodiscard]] std::vector<uint8_t> gMakeTracingData();

} // namespace Host
