#include "Serialization/PrimitiveKind.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Serialization
{
namespace
{

struct PrimitiveRow
{
    std::string_view Name;
    EPrimitive Primitive;
    uint64_t Size;
    bool IsInteger;
    bool IsSigned;
};

constexpr std::array<PrimitiveRow, 12> sPrimitives{{
    {"uint8_t", EPrimitive::UInt8, 1, true, false},
    {"int8_t", EPrimitive::Int8, 1, true, true},
    {"uint16_t", EPrimitive::UInt16, 2, true, false},
    {"int16_t", EPrimitive::Int16, 2, true, true},
    {"uint32_t", EPrimitive::UInt32, 4, true, false},
    {"int32_t", EPrimitive::Int32, 4, true, true},
    {"uint64_t", EPrimitive::UInt64, 8, true, false},
    {"int64_t", EPrimitive::Int64, 8, true, true},
    {"bool", EPrimitive::Bool, 1, false, false},
    {"float", EPrimitive::Float, 4, false, true},
    {"double", EPrimitive::Double, 8, false, true},
    {"std::string", EPrimitive::String, 0, false, false},
}};

constexpr uint64_t sBitsPerByte = 8;

// Null for Unknown. The rows stand in the order of the enumeration.
const PrimitiveRow* gFindRow(EPrimitive inPrimitive)
{
    return inPrimitive != EPrimitive::Unknown ? &sPrimitives[static_cast<size_t>(inPrimitive)] : nullptr;
}

} // namespace

EPrimitive gGetPrimitive(std::string_view inName)
{
    const auto* const position = std::find_if(sPrimitives.begin(), sPrimitives.end(),
                                              [inName](const PrimitiveRow& inRow) { return inRow.Name == inName; });
    return position != sPrimitives.end() ? position->Primitive : EPrimitive::Unknown;
}

bool gIsInteger(EPrimitive inPrimitive)
{
    const PrimitiveRow* row = gFindRow(inPrimitive);
    return row != nullptr && row->IsInteger;
}

uint64_t gGetPrimitiveSize(EPrimitive inPrimitive)
{
    const PrimitiveRow* row = gFindRow(inPrimitive);
    return row != nullptr ? row->Size : 0;
}

uint64_t gLoadInteger(EPrimitive inPrimitive, const uint8_t* inBytes)
{
    const PrimitiveRow& row = *gFindRow(inPrimitive);
    uint64_t value = 0;
    std::memcpy(&value, inBytes, row.Size);
    const uint64_t unusedBits = (sizeof(value) - row.Size) * sBitsPerByte;
    return row.IsSigned ? static_cast<uint64_t>(static_cast<int64_t>(value << unusedBits) >> unusedBits) : value;
}

} // namespace Serialization
