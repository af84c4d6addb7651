// What happened to the records of a capture: how many there were, which were lost while recording, which were skipped and why.
//
// Threads: belongs to one thread at a time. Ownership: a value; whoever reads the records counts into it.
// Invariant: every record that isn't handed on is counted under exactly one reason.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Host
{

// Why a record of a capture wasn't used.
enum class EPerfSkip : uint8_t
{
    None,             // it was used
    RecordTooShort,   // ends before the fields that its type promises
    TrailerMissing,   // too short for the time and thread that side-band records end with
    UnknownEvent,     // names an event id that no attribute has
    CallchainTooLong, // claims more frames than the record holds
    ReadTooLong,      // claims more counter values than the record holds
    RawTooLong,       // claims more tracepoint bytes than the record holds
    TextUnterminated, // a name or path without its end
    NoRawData,        // a tracepoint's sample without the tracepoint's fields
    WrongTracepoint,  // the fields belong to another tracepoint than the event
    NoFormat,         // a tracepoint whose field layout isn't known
    FieldMissing,     // the tracepoint's fields end before one that is needed
    Count
};

// A few words for people, as "names an unknown event".
[[nodiscard]] const char* gGetSkipName(EPerfSkip inReason);

// Name of a record type as "SAMPLE", "MMAP2", "FINISHED_ROUND"; "UNKNOWN" for types that aren't known.
[[nodiscard]] const char* gGetRecordTypeName(uint32_t inType);

struct PerfHealth
{
    // Records of types from this value on are counted together, in the last entry.
    static constexpr size_t sCountedTypes = 96;

    std::array<uint64_t, sCountedTypes + 1> RecordsByType{};
    std::array<uint64_t, static_cast<size_t>(EPerfSkip::Count)> Skipped{};
    std::vector<uint64_t> SamplesByEvent; // by PerfEvent::Index; samples that could be told apart, sound or not
    uint64_t Records = 0;                 // all of them, also those without a time
    uint64_t LostEvents = 0;              // told by LOST records: the ring buffer was full
    uint64_t LostSamples = 0;             // told by LOST_SAMPLES records
    uint64_t LostRecords = 0;             // how many LOST and LOST_SAMPLES records told so
    uint64_t Throttles = 0;               // times the kernel held back an event that came too often
    uint64_t Unthrottles = 0;
    uint64_t AuxBytes = 0;           // hardware trace data that was stepped over
    uint64_t Runs = 0;               // stretches of the file that were in time order
    uint64_t FirstTime = 0;          // nanoseconds, smallest time above 0 of any record; 0 if there is none
    uint64_t LastTime = 0;           // nanoseconds, greatest time of any record
    uint64_t TruncatedBytes = 0;     // at the end of the records, not read
    uint64_t TruncatedOffset = 0;    // file offset where reading stopped; for a compressed capture, in the decompressed file
    std::string TruncatedReason;     // one line, empty if all records were read
    bool HasThreadMap = false;       // the file says which threads were recorded
    bool RecordedAllThreads = false; // HasThreadMap, and it names all threads of the system

    void CountSkip(EPerfSkip inReason) { ++Skipped[static_cast<size_t>(inReason)]; }
    [[nodiscard]] uint64_t GetSkipCount(EPerfSkip inReason) const { return Skipped[static_cast<size_t>(inReason)]; }
    [[nodiscard]] uint64_t GetTotalSkipped() const;
    [[nodiscard]] uint64_t GetRecordCount(uint32_t inType) const;
};

} // namespace Host
