// The records of ReadyThreads.dat, which tells who woke whom. Docs/ReadyThreads.md describes the file.
//
// Threads: plain values.
#pragma once

#include "ThreadsModel/Chunks/ReadyThreadChunk.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Profiler
{

// The chunks of each level in the order of writing, by which their ids count.
using ReadyThreadLevels = std::vector<std::vector<ReadyThreadChunkHeader>>;

// Stands in the table of ready indices for one that got no record.
inline constexpr uint32_t sNoReadyRecord = ~uint32_t{0};

// The last bytes of the file, behind which stands their hash.
struct ReadyThreadFooter
{
    static constexpr uint64_t sMagic = 0x695D201FFE2E19E4;

    uint64_t Magic = sMagic;
    uint64_t HeaderOffset = 0;
    uint64_t HeaderSize = 0; // bytes
    uint64_t HeaderHash = 0;
};
static_assert(sizeof(ReadyThreadFooter) == 32);

inline constexpr size_t sReadyThreadTailSize = sizeof(ReadyThreadFooter) + sizeof(uint64_t);

} // namespace Profiler
