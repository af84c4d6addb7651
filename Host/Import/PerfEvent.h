// One event that a capture recorded: what an attribute of the file says about it, and where its records keep their fields.
//
// Threads: constant after PerfFile::Open, so any thread may read. Ownership: PerfFile owns the events of its file.
// Invariant: the offsets of a layout follow from SampleType alone; an offset of 0 means that the field isn't recorded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

// The bytes that every record begins with: type (4), flags (2), size of the whole record (2).
inline constexpr size_t sPerfRecordHeaderSize = 8;

// Where the fields of one event's records lie. Sample offsets count from the record's first byte, header included; trailer
// offsets count backwards from the record's end.
struct PerfRecordLayout
{
    uint8_t Identifier = 0; // the id that tells the event: IDENTIFIER if recorded, else ID
    uint8_t InstructionPointer = 0;
    uint8_t Thread = 0; // process id, then thread id
    uint8_t Time = 0;
    uint8_t Cpu = 0;
    uint8_t Period = 0;
    uint8_t FixedSize = 0; // where the fields of varying size begin; a shorter sample is malformed

    uint8_t TrailerIdentifier = 0;
    uint8_t TrailerThread = 0;
    uint8_t TrailerTime = 0;
    uint8_t TrailerCpu = 0;
    uint8_t TrailerSize = 0;

    bool HasRead = false;
    bool HasCallchain = false;
    bool HasRaw = false;
};

// Layout of the records of an event with the given PERF_SAMPLE_* bits.
[[nodiscard]] PerfRecordLayout gComputeLayout(uint64_t inSampleType);

// What kind of event an attribute describes.
enum class EPerfEventKind : uint8_t
{
    Clock,      // software clock: cpu-clock, task-clock
    Hardware,   // the processor's cycles: their samples say where a thread was executing, as those of a clock
    Tracepoint, // see Tracepoints
    Dummy,      // records nothing of its own; carries side-band records
    Other       // the processor's other counters, page faults, breakpoints, probes, ...
};

struct PerfEvent
{
    uint32_t Index = 0; // position in PerfFile::GetEvents
    EPerfEventKind Kind = EPerfEventKind::Other;
    std::string Name; // as perf was told, "sched:sched_switch"; one made from type and config if the file has none
    uint32_t Type = 0;
    uint64_t Config = 0; // a tracepoint's id for tracepoints
    uint64_t SampleType = 0;
    uint64_t ReadFormat = 0;
    uint64_t PeriodOrFrequency = 0; // events per sample; samples per second if IsFrequency
    bool IsFrequency = false;
    bool IsInherited = false;
    bool IsEnabledOnExec = false;
    bool HasContextSwitch = false; // --switch-events
    bool HasSampleIDAll = false;
    bool ExcludesKernel = false;
    bool ExcludesUser = false;
    bool HasBuildIDInMmap = false;
    PerfRecordLayout Layout;
    std::vector<uint64_t> IDs; // of its counters, one per processor or thread

    // True if the event's samples say where a thread was executing.
    [[nodiscard]] bool IsExecutionSample() const { return Kind == EPerfEventKind::Clock || Kind == EPerfEventKind::Hardware; }
};

} // namespace Host
