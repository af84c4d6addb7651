// Behind the macros of Declare.h: turns the list of entries that a class or enumeration writes into its tables, while compiling.
#pragma once

#include "RTTI/Containers.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace RTTI
{

enum class ETableEntry : uint8_t
{
    None, // stands first in each list, so that none is empty
    Base,
    Alias,
    Property,
    Value,
};

struct TableEntry
{
    ETableEntry Kind = ETableEntry::None;
    const char* Text = nullptr;
    const RTTI::Type* Type = nullptr;
    uint64_t Number = 0; // offset of a property, number of a value
};

// Whether a base lies at the start of its class, so that the address of one is that of the other. Told for classes that can be
// instantiated, by an object that is only declared.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wundefined-var-template"
#endif
template <class Derived, class Base>
struct BasePlace
{
    struct Holder
    {
        Derived Object;
    };
    static Holder sHolder;

    static constexpr const void* GetDerivedAddress() { return &sHolder.Object; }
    static constexpr const void* GetBaseAddress() { return static_cast<const Base*>(&sHolder.Object); }
};
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

template <class Derived, class Base>
constexpr bool gIsBaseAtStart()
{
    if constexpr (std::is_abstract_v<Derived> || std::is_empty_v<Base>)
        return true;
    else
        return BasePlace<Derived, Base>::GetBaseAddress() == BasePlace<Derived, Base>::GetDerivedAddress();
}

template <class Derived, class Base>
constexpr TableEntry gMakeBaseEntry()
{
    static_assert(std::is_base_of_v<Base, Derived>);
    static_assert(gIsBaseAtStart<Derived, Base>(), "a base with data must lie at the start of its class");
    return {ETableEntry::Base, nullptr, &TypeTable<Base>::sType, 0};
}

template <class Enum>
constexpr uint64_t gGetEnumValue(Enum inValue)
{
    return static_cast<uint64_t>(static_cast<std::underlying_type_t<Enum>>(inValue));
}

// The integer primitive of a width and a sign.
template <size_t Size, bool IsSigned>
constexpr const Type* gGetIntegerType()
{
    if constexpr (Size == sizeof(uint8_t))
        return IsSigned ? &TypeTable<int8_t>::sType : &TypeTable<uint8_t>::sType;
    else if constexpr (Size == sizeof(uint16_t))
        return IsSigned ? &TypeTable<int16_t>::sType : &TypeTable<uint16_t>::sType;
    else if constexpr (Size == sizeof(uint32_t))
        return IsSigned ? &TypeTable<int32_t>::sType : &TypeTable<uint32_t>::sType;
    else
        return IsSigned ? &TypeTable<int64_t>::sType : &TypeTable<uint64_t>::sType;
}

// The entries of one kind, as an array of what Convert makes of them. List is a lambda that gives the entries.
template <class List, ETableEntry Kind, auto Convert>
constexpr auto gSelectEntries()
{
    constexpr auto entries = List{}();
    constexpr auto isOfKind = [](const TableEntry& inEntry) { return inEntry.Kind == Kind; };
    constexpr auto count = static_cast<size_t>(std::count_if(entries.begin(), entries.end(), isOfKind));
    std::array<decltype(Convert(entries[0])), count> selected{};
    auto next = selected.begin();
    for (const TableEntry& entry : entries)
    {
        if (entry.Kind == Kind)
            *next++ = Convert(entry);
    }
    return selected;
}

template <class List>
inline constexpr auto
    sAliasesOf = gSelectEntries<List, ETableEntry::Alias, [](const TableEntry& inEntry) { return inEntry.Text; }>();

// A class that can be instantiated must say its own type; one that inherits GetType would be taken for its base.
template <class Class>
constexpr bool gHasOwnGetType()
{
    if constexpr (std::is_base_of_v<Object, Class> && !std::is_abstract_v<Class> && requires { &Class::GetType; })
        return std::is_same_v<decltype(&Class::GetType), const Type& (Class::*)() const>;
    else
        return true;
}

template <class Class>
constexpr bool gIsObjectAtStart()
{
    if constexpr (std::is_base_of_v<Object, Class>)
        return gIsBaseAtStart<Class, Object>();
    else
        return true;
}

template <class Class, int32_t Version, class List>
struct CompoundTable
{
    static_assert(gHasOwnGetType<Class>(), "the class doesn't override GetType");
    static_assert(gIsObjectAtStart<Class>(), "an object must begin with its RTTI::Object");

    static constexpr auto sBases =
        gSelectEntries<List, ETableEntry::Base, [](const TableEntry& inEntry) { return inEntry.Type; }>();
    static constexpr auto sProperties = gSelectEntries<List, ETableEntry::Property, [](const TableEntry& inEntry) {
        return Property{inEntry.Text, inEntry.Type, inEntry.Number};
    }>();
    static constexpr const char* sName = TypeTable<Class>::sSpelledName.data();

    static inline constinit CompoundInfo sInfo{.Bases = sBases.data(),
                                               .BaseCount = static_cast<int32_t>(sBases.size()),
                                               .Name = sName,
                                               .Aliases = sAliasesOf<List>.data(),
                                               .AliasCount = static_cast<uint32_t>(sAliasesOf<List>.size()),
                                               .Properties = sProperties.data(),
                                               .PropertyCount = static_cast<uint32_t>(sProperties.size()),
                                               .Version = Version};
    static inline constinit TypeDescriptor sDescriptor =
        gMakeDescriptor<Class, SimpleNameFunctions<Class>>(sName, EKind::Compound);
};

template <class Enum, class List>
struct EnumTable
{
    static constexpr auto sValues = gSelectEntries<List, ETableEntry::Value, [](const TableEntry& inEntry) {
        return EnumValue{inEntry.Text, inEntry.Number};
    }>();
    static constexpr const char* sName = TypeTable<Enum>::sSpelledName.data();
    static constexpr bool sIsSigned = std::is_signed_v<std::underlying_type_t<Enum>>;

    static inline constinit EnumInfo sInfo{.Values = sValues.data(),
                                           .ValueCount = static_cast<uint32_t>(sValues.size()),
                                           .Name = sName,
                                           .Aliases = sAliasesOf<List>.data(),
                                           .AliasCount = static_cast<uint32_t>(sAliasesOf<List>.size()),
                                           .SizeType = gGetIntegerType<sizeof(Enum), sIsSigned>()};
    static inline constinit TypeDescriptor sDescriptor = gMakeDescriptor<Enum, SimpleNameFunctions<Enum>>(sName, EKind::Enum);
};

// The parameter only gives the list's type.
template <class Class, int32_t Version, class List>
constexpr Type gMakeCompound(List /*inList*/)
{
    using Table = CompoundTable<Class, Version, List>;
    return {&Table::sDescriptor, &Table::sInfo};
}

template <class Enum, class List>
constexpr Type gMakeEnum(List /*inList*/)
{
    using Table = EnumTable<Enum, List>;
    return {&Table::sDescriptor, &Table::sInfo};
}

} // namespace RTTI
