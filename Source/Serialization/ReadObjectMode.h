#pragma once

#include <cstdint>

namespace Serialization
{

// What readers do with an object of a type that nobody registered.
enum class ReadObjectMode : uint32_t // NOLINT(readability-identifier-naming): as plugins know it
{
    Strict = 0,           // the read fails
    SkipUnknownTypes = 1, // the object is passed over
};

} // namespace Serialization
