#include "Utility/GUID.h"

#include "Utility/Format.h"

#include <cstdio>
#include <cstring>

namespace Utility
{
namespace
{

// The fields of the text. Little-endian, so their bytes in memory are the bytes of the GUID.
struct GUIDFields
{
    uint32_t Part1 = 0;
    uint16_t Part2 = 0;
    uint16_t Part3 = 0;
    uint8_t Part4[8] = {};
};
static_assert(sizeof(GUIDFields) == sizeof(GUID));

} // namespace

std::string gFormatGUID(const GUID& inGUID, bool inWithDashes)
{
    GUIDFields fields;
    std::memcpy(&fields, inGUID.Bytes.data(), sizeof(fields));
    const uint8_t* bytes = fields.Part4;
    const char* format =
        inWithDashes ? "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X" : "%08X%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X";
    return gFormat(format, fields.Part1, fields.Part2, fields.Part3, bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5],
                   bytes[6], bytes[7]);
}

GUID gParseGUID(const std::string& inText)
{
    GUIDFields fields;
    uint8_t* bytes = fields.Part4;
    // The result doesn't matter: what wasn't read is zero. Hexadecimal digits are read in either case.
    [[maybe_unused]] const int numFields =
        std::sscanf(inText.c_str(), "%8X-%4hX-%4hX-%2hhX%2hhX-%2hhX%2hhX%2hhX%2hhX%2hhX%2hhX", &fields.Part1, &fields.Part2,
                    &fields.Part3, &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4], &bytes[5], &bytes[6], &bytes[7]);
    GUID guid;
    std::memcpy(guid.Bytes.data(), &fields, sizeof(fields));
    return guid;
}

} // namespace Utility
