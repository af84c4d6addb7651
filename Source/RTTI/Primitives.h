// The twelve primitive types.
#pragma once

#include "RTTI/StaticText.h"
#include "RTTI/TypeTable.h"

#include <cstdint>
#include <string>

namespace RTTI
{

class Registry;

template <class Primitive, StaticText Name>
struct PrimitiveTable
{
    static constexpr auto sName = Name;
    static constexpr std::string_view sSpelledName = sName.GetView();
    static inline constinit PrimitiveInfo sInfo{sName.Characters, std::is_arithmetic_v<Primitive>};
    static inline constinit TypeDescriptor sDescriptor =
        gMakeDescriptor<Primitive, SimpleNameFunctions<Primitive>>(sName.Characters, EKind::Primitive);
    static constexpr Type sType{&sDescriptor, &sInfo};
};

// clang-format off
template <> struct TypeTable<uint8_t> : PrimitiveTable<uint8_t, "uint8_t"> {};
template <> struct TypeTable<int8_t> : PrimitiveTable<int8_t, "int8_t"> {};
template <> struct TypeTable<uint16_t> : PrimitiveTable<uint16_t, "uint16_t"> {};
template <> struct TypeTable<int16_t> : PrimitiveTable<int16_t, "int16_t"> {};
template <> struct TypeTable<uint32_t> : PrimitiveTable<uint32_t, "uint32_t"> {};
template <> struct TypeTable<int32_t> : PrimitiveTable<int32_t, "int32_t"> {};
template <> struct TypeTable<uint64_t> : PrimitiveTable<uint64_t, "uint64_t"> {};
template <> struct TypeTable<int64_t> : PrimitiveTable<int64_t, "int64_t"> {};
template <> struct TypeTable<bool> : PrimitiveTable<bool, "bool"> {};
template <> struct TypeTable<float> : PrimitiveTable<float, "float"> {};
template <> struct TypeTable<double> : PrimitiveTable<double, "double"> {};
template <> struct TypeTable<std::string> : PrimitiveTable<std::string, "std::string"> {};
// clang-format on

static_assert(sizeof(bool) == 1);
static_assert(sizeof(std::string) == 32, "the size of a text is part of the hash of every class that holds one");

// Registers the primitives. A module does so once, before its own types.
void gRegisterFundamentalTypes(Registry& ioRegistry);

} // namespace RTTI
