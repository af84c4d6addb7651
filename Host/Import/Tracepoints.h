// The scheduler's tracepoints of a capture: which event is which, and where their fields lie.
//
// The layouts come from the format texts stored in the file, read once; after that each access is a checked load.
// Threads: Load from one thread; constant afterwards, so any thread may decode. Ownership: a value of its own, needs no file
// after Load. Invariant: a tracepoint that GetKind knows has all the fields that its structure needs.
#pragma once

#include "Host/Import/PerfFile.h"
#include "Host/Import/PerfHealth.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host
{

enum class ETracepoint : uint8_t
{
    None,  // the event isn't a tracepoint
    Other, // a tracepoint that isn't decoded
    SchedSwitch,
    SchedWakeup,
    SchedWakeupNew,
    SchedWaking,
    SchedProcessExit
};

// Texts are views into the sample's raw data, without their padding.
struct SchedSwitch
{
    std::string_view PreviousComm;
    std::string_view NextComm;
    uint64_t PreviousState = 0;
    int32_t PreviousThreadID = 0;
    int32_t NextThreadID = 0;
};

// Of sched_wakeup, sched_wakeup_new and sched_waking. The waking thread is the one of the sample.
struct SchedWakeup
{
    std::string_view Comm;
    int32_t ThreadID = 0;
    int32_t TargetCpu = -1; // -1 if it isn't recorded
};

struct SchedProcessExit
{
    std::string_view Comm;
    int32_t ThreadID = 0;
};

class TracepointFormatReader;
struct CleanFormat;

class Tracepoints
{
public:
    // Reads the formats of the tracepoints that inFile recorded. Formats that are missing or damaged leave their tracepoint
    // undecoded and add one line to ioWarnings.
    void Load(const PerfFile& inFile, std::vector<std::string>& ioWarnings);

    // REQUIRES: inEvent belongs to the file of Load.
    [[nodiscard]] ETracepoint GetKind(const PerfEvent& inEvent) const { return mEvents[inEvent.Index].Kind; }
    // True if some event of the file is of this kind, whether its format could be read or not.
    [[nodiscard]] bool Has(ETracepoint inKind) const;
    // True if the samples of some event of this kind can be decoded.
    [[nodiscard]] bool CanDecode(ETracepoint inKind) const;

    // Each reads the fields of one sample's raw data and gives EPerfSkip::None, or the reason why they can't be used.
    // REQUIRES: GetKind(inEvent) fits.
    [[nodiscard]] EPerfSkip Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedSwitch& outSwitch) const;
    [[nodiscard]] EPerfSkip Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedWakeup& outWakeup) const;
    [[nodiscard]] EPerfSkip Decode(const PerfEvent& inEvent, std::span<const uint8_t> inRaw, SchedProcessExit& outExit) const;

private:
    // A field of a tracepoint; Size 0: the format hasn't got it.
    struct Field
    {
        uint16_t Offset = 0;
        uint16_t Size = 0;
        bool IsDynamic = false;  // the field holds place and length of a text
        bool IsRelative = false; // IsDynamic, and the place counts from the field's end
    };

    struct EventFormat
    {
        ETracepoint Kind = ETracepoint::None;
        bool IsKnown = false;
        uint64_t ID = 0;
        Field CommonType;
        Field Comm; // of sched_switch: the previous thread's
        Field Thread;
        Field State;
        Field NextComm;
        Field NextThread;
        Field TargetCpu;
    };

    friend class TracepointFormatReader;

    void ApplyFormat(TracepointFormatReader& ioReader, const CleanFormat& inFormat);
    [[nodiscard]] EPerfSkip CheckRaw(const EventFormat& inFormat, std::span<const uint8_t> inRaw) const;

    std::vector<EventFormat> mEvents; // by PerfEvent::Index
};

} // namespace Host
