// How a perf.data file is laid out: what the reader and the builder of test files share. Attributes and records follow
// linux/perf_event.h. All numbers are little-endian.
//
//     header | ids of the attributes' counters | attributes | records | one section entry per feature | the features' bytes
//
// Threads: any. Ownership: plain structures.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Host
{

inline constexpr uint64_t sPerfMagic = 0x32454C4946524550ull;         // "PERFILE2"
inline constexpr uint64_t sPerfMagicOtherEndian = 0x50455246494C4532; // the same on a big-endian machine
inline constexpr uint64_t sPerfMagicOld = 0x454C494646524550ull;      // "PERFFILE"

struct PerfFileSection
{
    uint64_t Offset = 0;
    uint64_t Size = 0; // bytes
};

struct PerfFileHeader
{
    uint64_t Magic = 0;
    uint64_t Size = 0;
    uint64_t AttributeSize = 0; // of one entry: the attribute, then the section of its counters' ids
    PerfFileSection Attributes;
    PerfFileSection Data;
    PerfFileSection EventTypes; // unused
    uint64_t Features[4] = {};  // one bit for each feature section behind the data
};
static_assert(sizeof(PerfFileHeader) == 104);

// Header of a file that perf wrote into a pipe: magic and this size, then records only.
inline constexpr uint64_t sPerfPipeHeaderSize = 16;

namespace EPerfFeature
{
enum : uint32_t
{
    TracingData = 1,
    BuildID = 2,
    HostName = 3,
    KernelRelease = 4,
    PerfVersion = 5,
    Architecture = 6,
    CpuCount = 7,
    CpuDescription = 8,
    TotalMemory = 10,
    CommandLine = 11,
    EventDescription = 12,
    DirectoryFormat = 24,
    Compressed = 27,
    Count = 256
};
} // namespace EPerfFeature

// Flag of a record in the build id section: the byte behind the id holds its size.
inline constexpr uint16_t sBuildIDHasSize = 1u << 15;
inline constexpr size_t sBuildIDBytes = 20;

} // namespace Host
