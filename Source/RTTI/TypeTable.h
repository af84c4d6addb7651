// TypeTable<T> is the room in which the tables of T stand. Primitives and containers fill theirs by themselves, classes and
// enumerations by the macros of Declare.h. gTypeOf<T>() is the way to a type's Type.
//
// Each specialization has sType, the Type, and sSpelledName, how a declared name spells the type.
#pragma once

#include "RTTI/Type.h"
#include "RTTI/Value.h"

#include <cstring>
#include <string_view>
#include <type_traits>

namespace RTTI
{

// Not defined for a type without reflection: its header lacks RTTI_DECLARE.
template <class Reflected>
struct TypeTable;

// The type of T in this copy of the core. Not constexpr, so that a class can ask for its own type in its body, before it is
// declared to be reflected.
template <class Reflected>
const Type& gTypeOf()
{
    return TypeTable<std::remove_cv_t<Reflected>>::sType;
}

template <class Reflected>
Value gValueOf(Reflected& inObject)
{
    return {&gTypeOf<Reflected>(), const_cast<std::remove_cv_t<Reflected>*>(&inObject)};
}

// If inText begins with inStart, sets outEnd behind it.
inline bool gMatchStart(const char* inText, std::string_view inStart, const char*& outEnd)
{
    if (std::strncmp(inText, inStart.data(), inStart.size()) != 0)
        return false;
    outEnd = inText + inStart.size();
    return true;
}

// The functions of a TypeDescriptor for a type whose full name is the name by which it is spelled.
template <class Reflected>
struct SimpleNameFunctions
{
    static bool MatchName(const char* inText, const char*& outEnd)
    {
        return gMatchStart(inText, TypeTable<Reflected>::sSpelledName, outEnd);
    }

    static const std::string& GetName()
    {
        static const std::string sName(TypeTable<Reflected>::sSpelledName);
        return sName;
    }
};

// The value is of the type whose descriptor was asked.
template <class Reflected, class Table>
OwnedValue gCreateValue()
{
    if constexpr (std::is_default_constructible_v<Reflected>)
        return OwnedValue(Table::sType, new Reflected());
    else
        return {};
}

template <class Reflected>
void gDestroyValue(void* inData)
{
    if constexpr (std::is_destructible_v<Reflected>)
        delete static_cast<Reflected*>(inData);
}

// The descriptor of Table, with the name functions of NameFunctions.
template <class Reflected, class NameFunctions, class Table = TypeTable<Reflected>>
constexpr TypeDescriptor gMakeDescriptor(const char* inName, EKind inKind)
{
    return {.Name = inName,
            .Size = sizeof(Reflected),
            .Kind = inKind,
            .Create = &gCreateValue<Reflected, Table>,
            .Destroy = &gDestroyValue<Reflected>,
            .MatchName = &NameFunctions::MatchName,
            .GetName = &NameFunctions::GetName};
}

} // namespace RTTI

// See Declare.h. The empty function lets a semicolon follow the macro or not.
#define RTTI_FRIEND()                                                                                                            \
    template <class>                                                                                                             \
    friend struct ::RTTI::TypeTable;                                                                                             \
    static void GrantAccessToTypeTable() {}

#define RTTI_DECLARE(inType)                                                                                                     \
    template <>                                                                                                                  \
    struct RTTI::TypeTable<inType>                                                                                               \
    {                                                                                                                            \
        using Reflected = inType;                                                                                                \
        static constexpr std::string_view sSpelledName = #inType;                                                                \
        static const ::RTTI::Type sType;                                                                                         \
    }

#define RTTI_DECLARE_ENUM(inEnum) RTTI_DECLARE(inEnum)
