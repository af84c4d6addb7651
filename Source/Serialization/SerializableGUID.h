// A GUID as files hold it: its sixteen bytes as two little-endian words.
#pragma once

#include "RTTI/Declare.h"

#include <cstdint>

namespace Serialization
{

struct SerializableGUID
{
    uint64_t Data1 = 0;
    uint64_t Data2 = 0;

    bool operator==(const SerializableGUID&) const = default;
};

} // namespace Serialization

RTTI_DECLARE(Serialization::SerializableGUID);
