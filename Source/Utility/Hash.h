// The two hashes of the system.
// Threads: any. Failure: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Utility
{

// XXH64 with seed 0: file checksums, string keys, identities of stored stacks and texts.
[[nodiscard]] uint64_t gHash64(const void* inData, size_t inSize);
[[nodiscard]] inline uint64_t gHash64(std::string_view inText)
{
    return gHash64(inText.data(), inText.size());
}

// CRC-64 with the Jones polynomial in reflected form (0x95AC9329AC4BC9B5), no final xor. inInitial continues an earlier value.
[[nodiscard]] uint64_t gCRC64(const void* inData, size_t inSize, uint64_t inInitial);

} // namespace Utility
