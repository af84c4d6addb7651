// How a class or an enumeration declares itself.
//
// In the header, at global namespace scope behind the class:
//
//     RTTI_DECLARE(Profiler::Process);
//     RTTI_DECLARE_ENUM(Profiler::EResolveStatus);
//
// In the source file, at global namespace scope:
//
//     RTTI_BEGIN(Profiler::Process, 1)            // qualified name, version
//         RTTI_BASE(RTTI::Object)                 // none or more
//         RTTI_ALIAS("Profiler::OldName")         // none or more former names
//         RTTI_PROPERTY("DisplayID", DisplayID)   // name, member; in the order on file
//         RTTI_PROPERTY_AS("Threads", Threads, "Array_Profiler::ThreadID") // a container, with its declared name
//     RTTI_END()
//
//     RTTI_ENUM_BEGIN(Profiler::EResolveStatus)   // takes RTTI_ALIAS too
//         RTTI_VALUE("Resolved", Profiler::EResolveStatus::Resolved)
//     RTTI_ENUM_END()
//
// RTTI_FRIEND() in the class gives access to private members. A class derived from RTTI::Object overrides GetType with
// `return RTTI::gTypeOf<Process>();`. A raised version needs a compatibility handler for files of older builds.
#pragma once

#include "RTTI/TableEntry.h"
#include "RTTI/TypeTable.h"

// clang-format off

// A property's offset is asked of classes that aren't of standard layout, which both compilers support. The entries are a lambda in
// the initializer of a member of TypeTable, which is what gives them access to private members.
#define RTTI_BEGIN(inClass, inVersion)                                                                                           \
    _Pragma("GCC diagnostic push")                                                                                               \
    _Pragma("GCC diagnostic ignored \"-Winvalid-offsetof\"")                                                                     \
    constinit const ::RTTI::Type RTTI::TypeTable<inClass>::sType = ::RTTI::gMakeCompound<inClass, inVersion>([] {                \
        return std::to_array<::RTTI::TableEntry>({{},

#define RTTI_BASE(inBase) ::RTTI::gMakeBaseEntry<Reflected, inBase>(),

#define RTTI_ALIAS(inName) {::RTTI::ETableEntry::Alias, inName, nullptr, 0},

#define RTTI_PROPERTY(inName, inMember)                                                                                          \
    {::RTTI::ETableEntry::Property, inName, &::RTTI::TypeTable<decltype(Reflected::inMember)>::sType,                            \
     offsetof(Reflected, inMember)},

#define RTTI_PROPERTY_AS(inName, inMember, inDeclaredName)                                                                       \
    {::RTTI::ETableEntry::Property, inName, &::RTTI::NamedTypeTable<decltype(Reflected::inMember), inDeclaredName>::sType,       \
     offsetof(Reflected, inMember)},

#define RTTI_END()                                                                                                               \
    }); });                                                                                                                      \
    _Pragma("GCC diagnostic pop")

#define RTTI_ENUM_BEGIN(inEnum)                                                                                                  \
    constinit const ::RTTI::Type RTTI::TypeTable<inEnum>::sType = ::RTTI::gMakeEnum<inEnum>([] {                                 \
        return std::to_array<::RTTI::TableEntry>({{},

#define RTTI_VALUE(inName, inValue) {::RTTI::ETableEntry::Value, inName, nullptr, ::RTTI::gGetEnumValue(inValue)},

#define RTTI_ENUM_END() }); });

// clang-format on
