// The records of a capture, decoded one at a time into plain structures without allocation.
//
// Texts, callchains and raw data are views into the mapped file. Every field is compared with the record's end; a record that
// contradicts itself isn't decoded, and the result says why.
// Threads: all functions from any thread. Ownership: decoded records don't outlive their PerfFile.
#pragma once

#include "Host/Import/PerfEvent.h"
#include "Host/Import/PerfHealth.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace Host
{

// Record types; those from FirstOfPerf on are written by perf itself and have no time.
namespace EPerfRecordType
{
enum : uint32_t
{
    Mmap = 1,
    Lost = 2,
    Comm = 3,
    Exit = 4,
    Throttle = 5,
    Unthrottle = 6,
    Fork = 7,
    Read = 8,
    Sample = 9,
    Mmap2 = 10,
    Aux = 11,
    ItraceStart = 12,
    LostSamples = 13,
    Switch = 14,
    SwitchCpuWide = 15,
    Namespaces = 16,
    Ksymbol = 17,
    BpfEvent = 18,
    Cgroup = 19,
    TextPoke = 20,
    AuxOutputHardwareID = 21,
    FirstOfPerf = 64,
    TracingData = 66,
    FinishedRound = 68,
    AuxTrace = 71,
    ThreadMap = 73,
    Compressed = 81,
    FinishedInit = 82,
    Compressed2 = 83
};
} // namespace EPerfRecordType

// Unaligned load; the file's records needn't be aligned. REQUIRES: sizeof(T) readable bytes at inData.
template <class T>
[[nodiscard]] inline T gLoad(const uint8_t* inData)
{
    T value;
    std::memcpy(&value, inData, sizeof(T));
    return value;
}

// Bytes that follow a record without being counted in its size. REQUIRES: inSize readable bytes at inRecord, its header among
// them.
[[nodiscard]] uint64_t gGetBytesBehind(const uint8_t* inRecord, size_t inSize);

// One record as it lies in the file. Size bytes at Data are readable.
struct PerfRecord
{
    const uint8_t* Data = nullptr;    // its header
    uint64_t Time = 0;                // nanoseconds of the capture's clock; 0 if it has none
    const PerfEvent* Event = nullptr; // the event that it belongs to; null for records that perf itself wrote
    uint32_t Type = 0;                // EPerfRecordType, or one that isn't known
    uint16_t Misc = 0;
    uint16_t Size = 0; // header included
};
static_assert(sizeof(PerfRecord) == 32);

// The return addresses of a sample, innermost first, with context markers in between.
class PerfCallchain
{
public:
    PerfCallchain() = default;
    PerfCallchain(const uint8_t* inData, uint32_t inCount) : mData(inData), mCount(inCount) {}

    [[nodiscard]] uint32_t GetCount() const { return mCount; }
    [[nodiscard]] uint64_t operator[](uint32_t inIndex) const
    {
        return gLoad<uint64_t>(mData + size_t{inIndex} * sizeof(uint64_t));
    }
    // The same as bytes, to hash or compare.
    [[nodiscard]] std::span<const uint8_t> GetBytes() const { return {mData, size_t{mCount} * sizeof(uint64_t)}; }

private:
    const uint8_t* mData = nullptr;
    uint32_t mCount = 0;
};

// False for values of a callchain that code can't lie at: zero, and all in the last 4096 bytes. There are the markers that tell
// whose frames follow, and what stacks without frame pointers hold of error codes and small negative numbers.
[[nodiscard]] constexpr bool gIsCodeAddress(uint64_t inCallchainValue)
{
    constexpr uint64_t firstMarker = 0 - uint64_t{4096};
    return inCallchainValue != 0 && inCallchainValue < firstMarker;
}

inline constexpr int32_t sNoCpu = -1;

struct PerfSample
{
    uint64_t Time = 0; // nanoseconds
    uint64_t InstructionPointer = 0;
    uint64_t Period = 0; // events that the sample stands for; the event's own period if it isn't recorded
    uint64_t ID = 0;
    int32_t ProcessID = 0; // -1 while a thread exits
    int32_t ThreadID = 0;  // -1 while a thread exits
    int32_t Cpu = sNoCpu;  // sNoCpu if it isn't recorded
    bool IsKernel = false; // taken while the kernel executed
    bool IsGuest = false;  // taken within a virtual machine
    PerfCallchain Callchain;
    std::span<const uint8_t> Raw; // a tracepoint's fields
};

// What a side-band record ends with.
struct PerfSampleID
{
    uint64_t Time = 0;
    uint64_t ID = 0;
    int32_t ProcessID = 0;
    int32_t ThreadID = 0;
    int32_t Cpu = sNoCpu;
};

struct PerfMmap
{
    int32_t ProcessID = 0; // -1 for the kernel and its modules
    int32_t ThreadID = 0;
    uint64_t Address = 0;
    uint64_t Length = 0;
    uint64_t FileOffset = 0;
    std::string_view Path;            // "//anon", "[vdso]", "[kernel.kallsyms]_text" and the like where there is no file
    std::span<const uint8_t> BuildID; // empty if the record holds none
    uint64_t Inode = 0;               // 0 if the record holds none
    uint32_t DeviceMajor = 0;
    uint32_t DeviceMinor = 0;
    uint64_t InodeGeneration = 0;
    uint32_t Protection = 0; // PROT_* of mmap; 0 for MMAP records
    uint32_t Flags = 0;      // MAP_* of mmap; 0 for MMAP records
    bool IsExecutable = true;
    bool IsKernel = false;
};

struct PerfComm
{
    int32_t ProcessID = 0;
    int32_t ThreadID = 0;
    std::string_view Name;
    bool IsExec = false; // the process began another program
};

// Content of FORK and EXIT records.
struct PerfTask
{
    int32_t ProcessID = 0;
    int32_t ParentProcessID = 0;
    int32_t ThreadID = 0;
    int32_t ParentThreadID = 0;
    uint64_t Time = 0; // nanoseconds; of the record's own fields
};

struct PerfLost
{
    uint64_t Count = 0;
};

// A context switch as --switch-events records it; Self is the thread that is switched, Other the one on the processor before or
// after.
struct PerfSwitch
{
    PerfSampleID Self;
    bool IsOut = false;
    bool IsPreempted = false; // IsOut, and the thread was still runnable
    bool HasOther = false;    // SWITCH_CPU_WIDE
    int32_t OtherProcessID = 0;
    int32_t OtherThreadID = 0;
};

// Each fills outX and gives EPerfSkip::None, or the reason why the record can't be used.
// REQUIRES: inRecord comes from a PerfRecordStream, has an Event and is of a fitting type (Mmap: MMAP and MMAP2; Task: FORK and
// EXIT; Lost: LOST and LOST_SAMPLES; Switch: SWITCH and SWITCH_CPU_WIDE).
[[nodiscard]] EPerfSkip gDecodeSample(const PerfRecord& inRecord, PerfSample& outSample);
[[nodiscard]] EPerfSkip gDecodeSampleID(const PerfRecord& inRecord, PerfSampleID& outID);
[[nodiscard]] EPerfSkip gDecodeMmap(const PerfRecord& inRecord, PerfMmap& outMmap);
[[nodiscard]] EPerfSkip gDecodeComm(const PerfRecord& inRecord, PerfComm& outComm);
[[nodiscard]] EPerfSkip gDecodeTask(const PerfRecord& inRecord, PerfTask& outTask);
[[nodiscard]] EPerfSkip gDecodeLost(const PerfRecord& inRecord, PerfLost& outLost);
[[nodiscard]] EPerfSkip gDecodeSwitch(const PerfRecord& inRecord, PerfSwitch& outSwitch);

} // namespace Host
