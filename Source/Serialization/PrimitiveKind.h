// The primitives by name. Types are compared by identity across copies of the core, so code that must tell the primitives apart
// goes by what they are called.
#pragma once

#include <cstdint>
#include <string_view>

namespace Serialization
{

enum class EPrimitive : uint8_t
{
    UInt8,
    Int8,
    UInt16,
    Int16,
    UInt32,
    Int32,
    UInt64,
    Int64,
    Bool,
    Float,
    Double,
    String,
    Unknown,
};

// Unknown for a name that isn't a primitive's.
[[nodiscard]] EPrimitive gGetPrimitive(std::string_view inName);

// The eight types that may hold an enumeration.
[[nodiscard]] bool gIsInteger(EPrimitive inPrimitive);

// The bytes of a value in a file; 0 for a text, which tells its own length.
[[nodiscard]] uint64_t gGetPrimitiveSize(EPrimitive inPrimitive);

// The integer in these bytes, sign-extended where the type is signed. REQUIRES: gIsInteger.
[[nodiscard]] uint64_t gLoadInteger(EPrimitive inPrimitive, const uint8_t* inBytes);

} // namespace Serialization
