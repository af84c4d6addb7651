// Questions about types that the tables answer.
//
// Threads: any, once Registry::Finalize has run.
#pragma once

#include "RTTI/Type.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace RTTI
{

// Equal hashes, wherever the two tables stand. A type that Finalize never saw has no hash, and is the same as itself only.
[[nodiscard]] inline bool gIsSameType(const Type& inLeft, const Type& inRight)
{
    return inLeft.GetHash() == inRight.GetHash() && (inLeft.GetHash() != sNotFinalized || &inLeft == &inRight);
}

// Make tables keyed by type: std::unordered_map<const Type*, X, TypeHasher, TypeEqual>.
struct TypeHasher
{
    size_t operator()(const Type* inType) const { return static_cast<size_t>(inType->GetHash()); }
};
struct TypeEqual
{
    bool operator()(const Type* inLeft, const Type* inRight) const { return gIsSameType(*inLeft, *inRight); }
};

// Whether a compound is the same class as inBase or below it. For other kinds, and for compounds that Finalize never saw, whether
// the two are one Type object.
[[nodiscard]] bool gIsDerivedFrom(const Type& inType, const Type& inBase);

// The fields of a compound in their order on file: those of each base in turn, then its own. Empty for other kinds.
[[nodiscard]] std::vector<const Property*> gGetAllProperties(const Type& inType);

// The class's own field of that name, or else that of the first base that has one, or null.
[[nodiscard]] const Property* gFindProperty(const Type& inType, const char* inName);

// The operations on enumerations. REQUIRES for all: inType is an enumeration.

// The value of an enumeration in memory, sign-extended where its size type is signed.
[[nodiscard]] uint64_t gReadEnumValue(const Type& inType, const void* inData);

// Stores the low bytes of inValue in the width of the enumeration.
void gWriteEnumValue(const Type& inType, void* outData, uint64_t inValue);

// The name of the first entry of that value, or "<invalid enum value>".
[[nodiscard]] const char* gGetValueName(const Type& inType, uint64_t inValue);

// The index of the first entry of that name, or -1.
[[nodiscard]] int32_t gFindValueByName(const Type& inType, std::string_view inName);

// Stores the value of that name. Without such a name the target stays as it is, and the result is false.
bool gSetValueByName(const Type& inType, void* outData, std::string_view inName);

} // namespace RTTI
