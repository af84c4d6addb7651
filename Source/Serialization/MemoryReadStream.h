// A position in bytes that somebody else owns, from which encoded values are read.
//
// Threads: one at a time. Invariant: the position lies between 0 and the size. A read that would go beyond the end reads nothing.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace Serialization
{

class MemoryReadStream
{
public:
    MemoryReadStream(const void* inBase, uint64_t inSize) : mBase(static_cast<const uint8_t*>(inBase)), mSize(inSize) {}

    [[nodiscard]] const uint8_t* GetBase() const { return mBase; }
    [[nodiscard]] uint64_t GetSize() const { return mSize; }
    [[nodiscard]] uint64_t GetPosition() const { return mPosition; }
    [[nodiscard]] uint64_t GetRemaining() const { return mSize - mPosition; }

    // REQUIRES: inPosition is at most the size.
    void SetPosition(uint64_t inPosition) { mPosition = inPosition; }

    // Moves on by inCount bytes, but not past the last byte.
    void Skip(uint64_t inCount)
    {
        const uint64_t last = mSize != 0 ? mSize - 1 : 0;
        mPosition = inCount > last - std::min(last, mPosition) ? std::max(last, mPosition) : mPosition + inCount;
    }

    // The next inCount bytes, or null if that many aren't left.
    [[nodiscard]] const uint8_t* Take(uint64_t inCount)
    {
        if (inCount > GetRemaining())
            return nullptr;
        const uint8_t* bytes = mBase + mPosition;
        mPosition += inCount;
        return bytes;
    }

    template <class T>
    [[nodiscard]] bool Read(T& outValue)
    {
        static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>);
        const uint8_t* bytes = Take(sizeof(T));
        if (bytes == nullptr)
            return false;
        std::memcpy(&outValue, bytes, sizeof(T));
        return true;
    }

    // A 64-bit length and that many bytes. The view points into the stream's bytes.
    [[nodiscard]] bool ReadString(std::string_view& outText)
    {
        const uint64_t start = mPosition;
        uint64_t length = 0;
        const uint8_t* bytes = Read(length) ? Take(length) : nullptr;
        if (bytes == nullptr)
        {
            mPosition = start;
            return false;
        }
        outText = {reinterpret_cast<const char*>(bytes), length};
        return true;
    }

private:
    const uint8_t* mBase;
    uint64_t mSize;
    uint64_t mPosition = 0;
};

} // namespace Serialization
