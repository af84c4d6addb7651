// Appends little-endian numbers and texts to a vector, for files that tests build by hand.
// Threads: one at a time. Ownership: a value.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Host
{

struct ByteWriter
{
    std::vector<uint8_t> Bytes;

    template <class T>
    ByteWriter& Add(T inValue)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        const size_t offset = Bytes.size();
        Bytes.resize(offset + sizeof(T));
        std::memcpy(Bytes.data() + offset, &inValue, sizeof(T));
        return *this;
    }

    ByteWriter& AddBytes(const std::vector<uint8_t>& inBytes)
    {
        Bytes.insert(Bytes.end(), inBytes.begin(), inBytes.end());
        return *this;
    }

    ByteWriter& AddText(std::string_view inText)
    {
        Bytes.insert(Bytes.end(), inText.begin(), inText.end());
        return *this;
    }

    // The text with zeros behind it, inSize bytes in all. REQUIRES: the text is shorter.
    ByteWriter& AddPadded(std::string_view inText, size_t inSize)
    {
        const size_t end = Bytes.size() + inSize;
        AddText(inText);
        Bytes.resize(end);
        return *this;
    }

    // The text with its end and zeros up to the next multiple of eight bytes.
    ByteWriter& AddAligned(std::string_view inText) { return AddPadded(inText, (inText.size() + 8) / 8 * 8); }
};

} // namespace Host
