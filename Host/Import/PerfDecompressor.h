// Decompresses what `perf record -z` wrote.
//
// Its COMPRESSED records hold the parts of one zstd stream; what comes out are records, which may begin in one part and end in
// the next. The other records of the file stand between them. All of them go into an unnamed temporary file, which is mapped and
// then read as if it had never been compressed. Threads: any, no shared state. Ownership: the caller owns the result; the
// temporary file goes with it.
#pragma once

#include "Host/Import/MappedBytes.h"
#include "Utility/ErrorState.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Host
{

struct PerfDecompressed
{
    std::unique_ptr<MappedBytes> Records;
    std::string StopReason;   // one line with the offset in the compressed file; empty if everything was read
    uint64_t UnreadBytes = 0; // compressed bytes behind that place
};

// True if the records have compressed ones among them.
[[nodiscard]] bool gHasCompressedRecords(std::span<const uint8_t> inRecords);

// inOffset is where inRecords begin in the file inPath; both are for messages. A damaged part ends the reading, and what came
// before counts. Failure: no place for the temporary file, or a size out of all proportion to the file's.
[[nodiscard]] bool gDecompressRecords(std::span<const uint8_t> inRecords, uint64_t inOffset, const std::string& inPath,
                                      PerfDecompressed& outResult, Utility::ErrorState& ioErrors);

} // namespace Host
