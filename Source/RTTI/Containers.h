// The tables of std::vector, std::unordered_map, std::unordered_set and std::unique_ptr, for any reflected parts and in any
// nesting.
//
// The parts are referred to by address only, so a class may hold containers of itself.
#pragma once

#include "RTTI/ContainerIterators.h"
#include "RTTI/Object.h"
#include "RTTI/Primitives.h"
#include "RTTI/StaticText.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace RTTI
{

// Prefixes of full names.
inline constexpr std::string_view sArrayPrefix = "A#";
inline constexpr std::string_view sMapPrefix = "M#";
inline constexpr std::string_view sPointerPrefix = "P#";
inline constexpr std::string_view sSetPrefix = "S#";
inline constexpr std::string_view sMapSeparator = "#";

// Pieces of declared names, and of types as the source spells them.
inline constexpr std::string_view sDeclaredArray = "Array_";
inline constexpr std::string_view sDeclaredMap = "Map_";
inline constexpr std::string_view sDeclaredMapTo = "_To_";
inline constexpr std::string_view sDeclaredPointer = "UniquePtr_";
inline constexpr std::string_view sDeclaredSet = "Set_";
inline constexpr std::string_view sSpelledVector = "std::vector<";
inline constexpr std::string_view sSpelledMap = "std::unordered_map<";
inline constexpr std::string_view sSpelledComma = ", ";
inline constexpr std::string_view sSpelledPointer = "std::unique_ptr<";
inline constexpr std::string_view sSpelledSet = "std::unordered_set<";
inline constexpr std::string_view sSpelledEnd = ">";

// Whether a value can really be copied: a vector claims it of itself whatever its elements are.
template <class T>
inline constexpr bool sIsCopyable = std::is_copy_constructible_v<T>;
template <class Element>
inline constexpr bool sIsCopyable<std::vector<Element>> = sIsCopyable<Element>;
template <class Key, class Mapped, class Hasher, class Equal>
inline constexpr bool sIsCopyable<std::unordered_map<Key, Mapped, Hasher, Equal>> = sIsCopyable<Mapped>;

// The name functions of a descriptor, for a container of one or two parts.
template <const std::string_view& Prefix, class... Parts>
struct ContainerNameFunctions
{
    static bool MatchName(const char* inText, const char*& outEnd)
    {
        bool isFirst = true;
        return gMatchStart(inText, Prefix, outEnd) && (MatchPart<Parts>(isFirst, outEnd) && ...);
    }

    static const std::string& GetName()
    {
        static const std::string sName = MakeName();
        return sName;
    }

private:
    template <class Part>
    static bool MatchPart(bool& ioIsFirst, const char*& ioEnd)
    {
        const bool hasSeparator = std::exchange(ioIsFirst, false) || gMatchStart(ioEnd, sMapSeparator, ioEnd);
        return hasSeparator && gTypeOf<Part>().MatchName(ioEnd, ioEnd);
    }

    static std::string MakeName()
    {
        std::string name(Prefix);
        ((name += gTypeOf<Parts>().GetName(), name += sMapSeparator), ...);
        name.resize(name.size() - sMapSeparator.size());
        return name;
    }
};

template <class Element>
struct TypeTable<std::vector<Element>>
{
    using Container = std::vector<Element>;
    using NameFunctions = ContainerNameFunctions<sArrayPrefix, Element>;
    static constexpr EKind sKind = EKind::Array;

    static_assert(!std::is_same_v<Element, bool>, "the elements of this vector have no addresses");

    static uint64_t GetCount(const void* inArray) { return static_cast<const Container*>(inArray)->size(); }
    static void* GetElement(void* inArray, uint64_t inIndex) { return static_cast<Container*>(inArray)->data() + inIndex; }
    static void* GetData(void* inArray) { return static_cast<Container*>(inArray)->data(); }
    static void Resize(void* ioArray, uint64_t inCount) { static_cast<Container*>(ioArray)->resize(inCount); }

    static constexpr std::string_view sSpelledName =
        JoinedText<sSpelledVector, TypeTable<Element>::sSpelledName, sSpelledEnd>::sText;
    static constexpr std::string_view sDeclaredName = JoinedText<sDeclaredArray, TypeTable<Element>::sSpelledName>::sText;
    static inline constinit ArrayInfo sInfo{&TypeTable<Element>::sType, &GetCount, &GetElement, &GetData, &Resize};
    static inline constinit TypeDescriptor sDescriptor = gMakeDescriptor<Container, NameFunctions>(sDeclaredName.data(), sKind);
    static constexpr Type sType{&sDescriptor, &sInfo};
};

template <class Key, class Mapped, class Hasher, class Equal>
struct TypeTable<std::unordered_map<Key, Mapped, Hasher, Equal>>
{
    using Container = std::unordered_map<Key, Mapped, Hasher, Equal>;
    using NameFunctions = ContainerNameFunctions<sMapPrefix, Key, Mapped>;
    static constexpr EKind sKind = EKind::Map;

    static uint64_t GetCount(const void* inMap) { return static_cast<const Container*>(inMap)->size(); }
    static void Reserve(void* ioMap, uint64_t inCount) { static_cast<Container*>(ioMap)->reserve(inCount); }
    static void* InsertMoving(void* ioMap, const void* inKey, void* ioValue)
    {
        Mapped& value = *static_cast<Mapped*>(ioValue);
        return &static_cast<Container*>(ioMap)->insert_or_assign(*static_cast<const Key*>(inKey), std::move(value)).first->second;
    }
    static void Insert(void* ioMap, const void* inKey, void* ioValue)
    {
        if constexpr (sIsCopyable<Mapped>)
        {
            const Mapped& value = *static_cast<const Mapped*>(ioValue);
            static_cast<Container*>(ioMap)->insert_or_assign(*static_cast<const Key*>(inKey), value);
        }
        else
            InsertMoving(ioMap, inKey, ioValue);
    }
    static std::unique_ptr<MapIterator> CreateIterator(void* inMap)
    {
        return std::make_unique<TypedMapIterator<Container>>(*static_cast<Container*>(inMap));
    }

    static constexpr std::string_view sSpelledName =
        JoinedText<sSpelledMap, TypeTable<Key>::sSpelledName, sSpelledComma, TypeTable<Mapped>::sSpelledName, sSpelledEnd>::sText;
    static constexpr std::string_view sDeclaredName =
        JoinedText<sDeclaredMap, TypeTable<Key>::sSpelledName, sDeclaredMapTo, TypeTable<Mapped>::sSpelledName>::sText;
    static inline constinit MapInfo sInfo{
        &TypeTable<Key>::sType, &TypeTable<Mapped>::sType, &GetCount, &Reserve, &InsertMoving, &Insert, &CreateIterator};
    static inline constinit TypeDescriptor sDescriptor = gMakeDescriptor<Container, NameFunctions>(sDeclaredName.data(), sKind);
    static constexpr Type sType{&sDescriptor, &sInfo};
};

template <class Element, class Hasher, class Equal>
struct TypeTable<std::unordered_set<Element, Hasher, Equal>>
{
    using Container = std::unordered_set<Element, Hasher, Equal>;
    using NameFunctions = ContainerNameFunctions<sSetPrefix, Element>;
    static constexpr EKind sKind = EKind::Set;

    static uint64_t GetCount(const void* inSet) { return static_cast<const Container*>(inSet)->size(); }
    static void Reserve(void* ioSet, uint64_t inCount) { static_cast<Container*>(ioSet)->reserve(inCount); }
    static void Insert(void* ioSet, const void* inElement)
    {
        static_cast<Container*>(ioSet)->insert(*static_cast<const Element*>(inElement));
    }
    static std::unique_ptr<SetIterator> CreateIterator(void* inSet)
    {
        return std::make_unique<TypedSetIterator<Container>>(*static_cast<Container*>(inSet));
    }

    static constexpr std::string_view sSpelledName =
        JoinedText<sSpelledSet, TypeTable<Element>::sSpelledName, sSpelledEnd>::sText;
    static constexpr std::string_view sDeclaredName = JoinedText<sDeclaredSet, TypeTable<Element>::sSpelledName>::sText;
    static inline constinit SetInfo sInfo{&TypeTable<Element>::sType, &GetCount, &Reserve, &Insert, &CreateIterator};
    static inline constinit TypeDescriptor sDescriptor = gMakeDescriptor<Container, NameFunctions>(sDeclaredName.data(), sKind);
    static constexpr Type sType{&sDescriptor, &sInfo};
};

template <class Pointee>
struct TypeTable<std::unique_ptr<Pointee>>
{
    using Pointer = std::unique_ptr<Pointee>;
    using NameFunctions = ContainerNameFunctions<sPointerPrefix, Pointee>;
    static constexpr EKind sKind = EKind::UniquePtr;

    // A void pointer to an object of a derived class serves as one to the pointee, since every base with data lies at the start
    // of its class; the macros of Declare.h check it.
    static void SetFromOwned(void* ioPointer, OwnedValue&& ioSource) { Set(ioPointer, ioSource.Release()); }
    static void Set(void* ioPointer, void* inRaw) { static_cast<Pointer*>(ioPointer)->reset(static_cast<Pointee*>(inRaw)); }
    static Value Get(const void* inPointer)
    {
        Pointee* pointee = static_cast<const Pointer*>(inPointer)->get();
        if (pointee == nullptr)
            return {};
        if constexpr (std::is_base_of_v<Object, Pointee>)
            return {&pointee->GetType(), pointee};
        else
            return {&gTypeOf<Pointee>(), pointee};
    }

    static constexpr std::string_view sSpelledName =
        JoinedText<sSpelledPointer, TypeTable<Pointee>::sSpelledName, sSpelledEnd>::sText;
    static constexpr std::string_view sDeclaredName = JoinedText<sDeclaredPointer, TypeTable<Pointee>::sSpelledName>::sText;
    static inline constinit PointerInfo sInfo{true, &TypeTable<Pointee>::sType, &SetFromOwned, &Set, &Get};
    static inline constinit TypeDescriptor sDescriptor = gMakeDescriptor<Pointer, NameFunctions>(sDeclaredName.data(), sKind);
    static constexpr Type sType{&sDescriptor, &sInfo};
};

// The same type under a declared name of its own, for a field whose declaration spells its parts by other names.
template <class Container, StaticText Name>
struct NamedTypeTable
{
    using Table = TypeTable<Container>;

    static constexpr auto sName = Name;
    static inline constinit TypeDescriptor sDescriptor =
        gMakeDescriptor<Container, typename Table::NameFunctions, NamedTypeTable>(sName.Characters, Table::sKind);
    static constexpr Type sType{&sDescriptor, &Table::sInfo};
};

} // namespace RTTI
