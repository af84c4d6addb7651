// A growable, 16-byte aligned byte buffer for records that are encoded field by field.
//
// Threads: one at a time. Ownership: owns its bytes. Invariant: growing goes to the larger of 1.5 times the capacity and the size
// needed, and never initializes bytes that are about to be written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Utility
{

class ByteBuffer
{
public:
    ByteBuffer() = default;
    ~ByteBuffer() = default;

    // The buffer that was moved from is empty, with no memory.
    ByteBuffer(ByteBuffer&& ioOther) noexcept
        : mData(std::move(ioOther.mData)),
          mSize(std::exchange(ioOther.mSize, 0)),
          mCapacity(std::exchange(ioOther.mCapacity, 0))
    {
    }
    ByteBuffer& operator=(ByteBuffer&& ioOther) noexcept
    {
        mData = std::move(ioOther.mData);
        mSize = std::exchange(ioOther.mSize, 0);
        mCapacity = std::exchange(ioOther.mCapacity, 0);
        return *this;
    }

    [[nodiscard]] const uint8_t* GetData() const { return mData.get(); }
    [[nodiscard]] uint8_t* GetData() { return mData.get(); }
    [[nodiscard]] size_t GetSize() const { return mSize; }
    [[nodiscard]] size_t GetCapacity() const { return mCapacity; }

    // Forgets the content and keeps the memory.
    void Clear() { mSize = 0; }

    // Makes the buffer inSize bytes long. New bytes are not initialized.
    void Resize(size_t inSize)
    {
        if (inSize > mCapacity)
            Grow(inSize);
        mSize = inSize;
    }

    // The same for a size that a file tells: false, with the buffer as it was, if there is no memory for it. A file with holes
    // can tell more than any memory holds, and asking for that much isn't refused everywhere.
    [[nodiscard]] bool TryResize(uint64_t inSize)
    {
        if (inSize > mCapacity && !TryGrow(inSize))
            return false;
        mSize = inSize;
        return true;
    }

    // REQUIRES: inData doesn't point into this buffer, whose bytes move when it grows.
    void Append(const void* inData, size_t inSize)
    {
        if (inSize == 0)
            return;
        const size_t offset = mSize;
        Resize(mSize + inSize);
        std::memcpy(mData.get() + offset, inData, inSize);
    }

    // Puts bytes in front of those that are there. REQUIRES: as Append.
    void Prepend(const void* inData, size_t inSize)
    {
        if (inSize == 0)
            return;
        const size_t oldSize = mSize;
        Resize(oldSize + inSize);
        std::memmove(mData.get() + inSize, mData.get(), oldSize);
        std::memcpy(mData.get(), inData, inSize);
    }

    // Appends the little-endian bytes of a number. The system runs on x86-64, where these are its bytes in memory.
    template <class T>
    void AppendValue(T inValue)
    {
        static_assert(std::is_arithmetic_v<T>);
        Append(&inValue, sizeof(T));
    }

    // Appends a uint64 byte length and the bytes, with no terminator.
    void AppendString(std::string_view inText)
    {
        AppendValue(static_cast<uint64_t>(inText.size()));
        Append(inText.data(), inText.size());
    }

private:
    struct FreeBytes
    {
        void operator()(uint8_t* inBytes) const { std::free(inBytes); }
    };

    void Grow(size_t inSize);
    [[nodiscard]] bool TryGrow(uint64_t inSize);
    [[nodiscard]] bool Reallocate(size_t inCapacity);

    std::unique_ptr<uint8_t[], FreeBytes> mData;
    size_t mSize = 0;
    size_t mCapacity = 0;
};

// Reads little-endian fields from a span of bytes that it doesn't own. A read beyond the end gives zeros, moves to the end and
// marks the cursor as failed; so a record can be decoded without a test per field and judged once.
class ByteCursor
{
public:
    ByteCursor(const void* inData, size_t inSize) : mNext(static_cast<const uint8_t*>(inData)), mEnd(mNext + inSize) {}

    [[nodiscard]] bool HasFailed() const { return mHasFailed; }
    [[nodiscard]] size_t GetRemaining() const { return static_cast<size_t>(mEnd - mNext); }
    [[nodiscard]] const uint8_t* GetPosition() const { return mNext; }

    template <class T>
    [[nodiscard]] T Read()
    {
        static_assert(std::is_arithmetic_v<T>);
        T value{};
        if (const uint8_t* bytes = Take(sizeof(T)))
            std::memcpy(&value, bytes, sizeof(T));
        return value;
    }

    // A text with a uint64 byte length in front. The view points into the bytes under the cursor.
    [[nodiscard]] std::string_view ReadString()
    {
        const auto length = Read<uint64_t>();
        const uint8_t* bytes = Take(length);
        return bytes != nullptr ? std::string_view(reinterpret_cast<const char*>(bytes), length) : std::string_view();
    }

    // Passes over inSize bytes and gives their start, null if that many aren't left.
    const uint8_t* Take(uint64_t inSize)
    {
        if (inSize > GetRemaining())
        {
            mHasFailed = true;
            mNext = mEnd;
            return nullptr;
        }
        const uint8_t* bytes = mNext;
        mNext += inSize;
        return bytes;
    }

private:
    const uint8_t* mNext;
    const uint8_t* mEnd;
    bool mHasFailed = false;
};

} // namespace Utility
