// The two hashes of the system.
// Threads: any. Failure: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

struct XXH64_state_s;

namespace Utility
{

// XXH64 with seed 0: file checksums, string keys, identities of stored stacks and texts.
[[nodiscard]] uint64_t gHash64(const void* inData, size_t inSize);
[[nodiscard]] inline uint64_t gHash64(std::string_view inText)
{
    return gHash64(inText.data(), inText.size());
}

// gHash64 of bytes that come in pieces.
class Hash64Stream
{
public:
    Hash64Stream();

    void Add(const void* inData, size_t inSize);
    [[nodiscard]] uint64_t Get() const;

private:
    struct FreeState
    {
        void operator()(XXH64_state_s* inState) const;
    };
    std::unique_ptr<XXH64_state_s, FreeState> mState;
};

// CRC-64 with the Jones polynomial in reflected form (0x95AC9329AC4BC9B5), no final xor. inInitial continues an earlier value.
[[nodiscard]] uint64_t gCRC64(const void* inData, size_t inSize, uint64_t inInitial);

} // namespace Utility
