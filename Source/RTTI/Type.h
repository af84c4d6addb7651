// The static tables that describe a type: one Type per type, its descriptor, and the record of its kind.
//
// Tables are constant-initialized, so they may be used at any time, static initialization included, and from any thread. Only
// Registry::Finalize writes to them afterwards: it fills the fields that are all ones until then, on one thread, before the first
// read or write. Ownership: everything here is static. The library and its host each have tables of their own for the types that
// both know. Invariant: two types are the same type when their hashes are equal. Addresses of Type objects say nothing across
// copies.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace RTTI
{

class MapIterator;
class OwnedValue;
class SetIterator;
struct Value;

// What Finalize has not filled yet.
inline constexpr uint64_t sNotFinalized = ~uint64_t{0};
inline constexpr uint32_t sNotRegistered = ~uint32_t{0};

// The values stand in files.
enum class EKind : uint64_t
{
    Compound = 0,  // a class or plain structure with properties
    Primitive = 1, // an integer, a floating-point number, bool or std::string
    Enum = 2,
    Array = 3,     // std::vector
    Map = 4,       // std::unordered_map
    UniquePtr = 5, // std::unique_ptr
    Set = 6,       // std::unordered_set
};

// What all kinds have in common.
struct TypeDescriptor
{
    const char* Name; // declared name; it spells the parts of a container as the source does
    uint64_t Size;    // bytes of a value
    uint64_t ModuleKey = sNotFinalized;
    uint64_t Hash = sNotFinalized; // structural identity
    EKind Kind;
    OwnedValue (*Create)(); // a default-constructed value; empty for a type that can't be made that way
    void (*Destroy)(void*); // destroys and frees a value of Create; accepts null
    bool (*MatchName)(const char* inText, const char*& outEnd); // see Type::MatchName
    const std::string& (*GetName)();                            // the full name
};

struct CompoundInfo;
struct PrimitiveInfo;
struct EnumInfo;
struct ArrayInfo;
struct MapInfo;
struct PointerInfo;
struct SetInfo;

// The static description of one type.
struct Type
{
    TypeDescriptor* Descriptor;
    void* Info; // the record of the descriptor's kind

    EKind GetKind() const { return Descriptor->Kind; }
    uint64_t GetSize() const { return Descriptor->Size; }
    uint64_t GetHash() const { return Descriptor->Hash; }

    // The full name, which files hold and registries are keyed by: "M#int32_t#Profiler::ThreadData".
    const std::string& GetName() const { return Descriptor->GetName(); }

    // True when the null-terminated inText begins with the full name; outEnd is then set behind it, and may be anywhere in the
    // text otherwise.
    bool MatchName(const char* inText, const char*& outEnd) const { return Descriptor->MatchName(inText, outEnd); }

    // The record of the kind, or null for a type of another kind.
    const CompoundInfo* AsCompound() const { return As<CompoundInfo>(EKind::Compound); }
    const PrimitiveInfo* AsPrimitive() const { return As<PrimitiveInfo>(EKind::Primitive); }
    const EnumInfo* AsEnum() const { return As<EnumInfo>(EKind::Enum); }
    const ArrayInfo* AsArray() const { return As<ArrayInfo>(EKind::Array); }
    const MapInfo* AsMap() const { return As<MapInfo>(EKind::Map); }
    const PointerInfo* AsPointer() const { return As<PointerInfo>(EKind::UniquePtr); }
    const SetInfo* AsSet() const { return As<SetInfo>(EKind::Set); }

private:
    template <class InfoOfKind>
    const InfoOfKind* As(EKind inKind) const
    {
        return Descriptor->Kind == inKind ? static_cast<const InfoOfKind*>(Info) : nullptr;
    }
};

static_assert(sizeof(Type) == 2 * sizeof(void*));

// One field of a compound.
struct Property
{
    const char* Name;
    const RTTI::Type* Type;
    uint64_t Offset; // of the field in its object, in bytes

    void* GetData(void* inObject) const { return static_cast<char*>(inObject) + Offset; }
    const void* GetData(const void* inObject) const { return static_cast<const char*>(inObject) + Offset; }
};

struct CompoundInfo
{
    const Type* const* Bases;
    int32_t BaseCount;
    const char* Name;           // qualified name
    const char* const* Aliases; // former names
    uint32_t AliasCount;
    const Property* Properties; // own ones only, in their order on file
    uint32_t PropertyCount;
    int32_t Version;
    uint64_t FullVersion = sNotFinalized;      // changes with the version of any class above
    uint32_t TreeIndex = sNotRegistered;       // place in the depth-first order of the class tree
    uint32_t DescendantCount = sNotRegistered; // the classes below have the indices behind TreeIndex
};

struct PrimitiveInfo
{
    const char* Name;
    bool IsPlainBytes; // may be copied as bytes
};

struct EnumValue
{
    const char* Name;
    uint64_t Value; // sign-extended where the size type is signed
};

struct EnumInfo
{
    const EnumValue* Values;
    uint32_t ValueCount;
    const char* Name; // qualified name
    const char* const* Aliases;
    uint32_t AliasCount;
    const Type* SizeType; // one of the eight integer primitives
};

// The containers' functions take the container, and elements of the exact type, by address.
struct ArrayInfo
{
    const Type* ElementType;
    uint64_t (*GetCount)(const void* inArray);
    void* (*GetElement)(void* inArray, uint64_t inIndex); // REQUIRES: inIndex is below the count
    void* (*GetData)(void* inArray);                      // the first element
    void (*Resize)(void* ioArray, uint64_t inCount);      // new elements are default-constructed
};

struct MapInfo
{
    const Type* KeyType;
    const Type* ValueType;
    uint64_t (*GetCount)(const void* inMap);
    void (*Reserve)(void* ioMap, uint64_t inCount);

    // Moves the value into the map, over that of an equal key, and gives the mapped slot.
    void* (*InsertMoving)(void* ioMap, const void* inKey, void* ioValue);

    // Copies the value into the map, over that of an equal key. A value that can't be copied is moved.
    void (*Insert)(void* ioMap, const void* inKey, void* ioValue);

    std::unique_ptr<MapIterator> (*CreateIterator)(void* inMap);
};

struct SetInfo
{
    const Type* ElementType;
    uint64_t (*GetCount)(const void* inSet);
    void (*Reserve)(void* ioSet, uint64_t inCount);
    void (*Insert)(void* ioSet, const void* inElement);
    std::unique_ptr<SetIterator> (*CreateIterator)(void* inSet);
};

struct PointerInfo
{
    bool IsOwning;
    const Type* PointeeType;

    // Takes the data out of the source, whose type must be the pointee or derive from it.
    void (*SetFromOwned)(void* ioPointer, OwnedValue&& ioSource);

    // Takes over an object that was made with new. Null empties the pointer.
    void (*Set)(void* ioPointer, void* inRaw);

    // The pointee, with its dynamic type where it derives from Object; a null type for a null pointer.
    Value (*Get)(const void* inPointer);
};

} // namespace RTTI
