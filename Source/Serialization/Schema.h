// What a container says of the types in it, as they were when it was written.
//
// Threads: as plain data. Ownership: a schema owns its records. Invariant: a schema that Add has made holds a record for every
// type that a type in it names; one that was read from a file may lack any.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"
#include "RTTI/Registry.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Serialization
{

// A reference to a type: its RTTI::EKind and its full name. A primitive needs no more.
struct TypeSchema
{
    uint8_t DataType = 0;
    std::string TypeName;
};

struct PointerSchema
{
    TypeSchema PointeeType;
};

struct ArraySchema
{
    TypeSchema EmbeddedType;
};

struct MapSchema
{
    TypeSchema KeyType;
    TypeSchema ValueType;
};

struct SetSchema
{
    TypeSchema ValueType;
};

struct PropertySchema
{
    TypeSchema Type;
    std::string Name;
};

struct CompoundSchema
{
    std::vector<PropertySchema> Properties; // those of the bases first, in the order of their values
    int32_t Version = 0;
    uint64_t FullVersion = 0; // kept for the eye; no decision rests on it
};

struct EnumSchemaValue
{
    std::string Name;
    uint64_t Value = 0; // sign-extended where the size type is signed
};

struct EnumSchema
{
    TypeSchema SizeType;
    std::vector<EnumSchemaValue> Values;
};

class Schema final : public RTTI::Object
{
public:
    // From the full name of a type to what is known of it.
    template <class Record>
    using Table = RTTI::TextTable<std::unique_ptr<Record>>;

    const RTTI::Type& GetType() const override { return RTTI::gTypeOf<Schema>(); }

    // Enters the type and every type that it names. A type that has a record is left alone.
    // REQUIRES: RTTI::Registry::Finalize has run.
    void Add(const RTTI::Type& inType);

    Table<CompoundSchema> Compounds;
    Table<EnumSchema> Enums;
    Table<PointerSchema> Pointers;
    Table<ArraySchema> Arrays;
    Table<MapSchema> Maps;
    Table<SetSchema> Sets;

private:
    void AddCompound(const RTTI::Type& inType);
    void AddEnum(const RTTI::Type& inType);
};

// The reference to a run-time type.
[[nodiscard]] TypeSchema gMakeTypeSchema(const RTTI::Type& inType);

// The record of that name, or null.
template <class Record>
[[nodiscard]] const Record* gFindSchema(const Schema::Table<Record>& inTable, std::string_view inName)
{
    const auto position = inTable.find(inName);
    return position != inTable.end() ? position->second.get() : nullptr;
}

} // namespace Serialization

RTTI_DECLARE(Serialization::TypeSchema);
RTTI_DECLARE(Serialization::PointerSchema);
RTTI_DECLARE(Serialization::ArraySchema);
RTTI_DECLARE(Serialization::MapSchema);
RTTI_DECLARE(Serialization::SetSchema);
RTTI_DECLARE(Serialization::PropertySchema);
RTTI_DECLARE(Serialization::CompoundSchema);
RTTI_DECLARE(Serialization::EnumSchemaValue);
RTTI_DECLARE(Serialization::EnumSchema);
RTTI_DECLARE(Serialization::Schema);
