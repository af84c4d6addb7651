// A GUID as 16 bytes, and its text.
//
// The text shows a 32-bit and two 16-bit little-endian fields and then eight single bytes, in upper-case hexadecimal.
// Threads: any. A value with no owner.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Utility
{

struct GUID
{
    std::array<uint8_t, 16> Bytes{};

    friend bool operator==(const GUID&, const GUID&) = default;
};

// "01234567-89AB-CDEF-0123-456789ABCDEF", or the same without dashes.
[[nodiscard]] std::string gFormatGUID(const GUID& inGUID, bool inWithDashes);

// Reads the form with dashes, in either case. Reading stops where the text doesn't match, and the bytes that remain are zero.
[[nodiscard]] GUID gParseGUID(const std::string& inText);

} // namespace Utility
