#include "Serialization/Schema.h"

#include "RTTI/TypeQueries.h"

#include <utility>

namespace Serialization
{
namespace
{

// The record to fill, or null when the type has one. It stands in the table before the types that it names are added, which is
// what ends cycles.
template <class Record>
Record* gAddRecord(Schema::Table<Record>& ioTable, const RTTI::Type& inType)
{
    const auto [position, isNew] = ioTable.try_emplace(inType.GetName());
    if (!isNew)
        return nullptr;
    position->second = std::make_unique<Record>();
    return position->second.get();
}

} // namespace

TypeSchema gMakeTypeSchema(const RTTI::Type& inType)
{
    return {static_cast<uint8_t>(inType.GetKind()), inType.GetName()};
}

void Schema::Add(const RTTI::Type& inType)
{
    switch (inType.GetKind())
    {
    case RTTI::EKind::Compound:
        return AddCompound(inType);
    case RTTI::EKind::Primitive:
        return;
    case RTTI::EKind::Enum:
        return AddEnum(inType);
    case RTTI::EKind::Array:
        if (ArraySchema* record = gAddRecord(Arrays, inType))
        {
            record->EmbeddedType = gMakeTypeSchema(*inType.AsArray()->ElementType);
            Add(*inType.AsArray()->ElementType);
        }
        return;
    case RTTI::EKind::Map:
        if (MapSchema* record = gAddRecord(Maps, inType))
        {
            record->KeyType = gMakeTypeSchema(*inType.AsMap()->KeyType);
            record->ValueType = gMakeTypeSchema(*inType.AsMap()->ValueType);
            Add(*inType.AsMap()->KeyType);
            Add(*inType.AsMap()->ValueType);
        }
        return;
    case RTTI::EKind::UniquePtr:
        if (PointerSchema* record = gAddRecord(Pointers, inType))
        {
            record->PointeeType = gMakeTypeSchema(*inType.AsPointer()->PointeeType);
            Add(*inType.AsPointer()->PointeeType);
        }
        return;
    case RTTI::EKind::Set:
        if (SetSchema* record = gAddRecord(Sets, inType))
        {
            record->ValueType = gMakeTypeSchema(*inType.AsSet()->ElementType);
            Add(*inType.AsSet()->ElementType);
        }
        return;
    }
}

void Schema::AddCompound(const RTTI::Type& inType)
{
    CompoundSchema* record = gAddRecord(Compounds, inType);
    if (record == nullptr)
        return;
    record->Version = inType.AsCompound()->Version;
    record->FullVersion = inType.AsCompound()->FullVersion;
    const std::vector<const RTTI::Property*> properties = RTTI::gGetAllProperties(inType);
    for (const RTTI::Property* property : properties)
        record->Properties.push_back({gMakeTypeSchema(*property->Type), property->Name});
    for (const RTTI::Property* property : properties)
        Add(*property->Type);
}

void Schema::AddEnum(const RTTI::Type& inType)
{
    EnumSchema* record = gAddRecord(Enums, inType);
    if (record == nullptr)
        return;
    const RTTI::EnumInfo& info = *inType.AsEnum();
    record->SizeType = gMakeTypeSchema(*info.SizeType);
    for (uint32_t i = 0; i < info.ValueCount; ++i)
        record->Values.push_back({info.Values[i].Name, info.Values[i].Value});
}

} // namespace Serialization

RTTI_BEGIN(Serialization::TypeSchema, 1)
    RTTI_PROPERTY("DataType", DataType)
    RTTI_PROPERTY("TypeName", TypeName)
RTTI_END()

RTTI_BEGIN(Serialization::PointerSchema, 1)
    RTTI_PROPERTY("PointeeType", PointeeType)
RTTI_END()

RTTI_BEGIN(Serialization::ArraySchema, 1)
    RTTI_PROPERTY("EmbeddedType", EmbeddedType)
RTTI_END()

RTTI_BEGIN(Serialization::MapSchema, 1)
    RTTI_PROPERTY("KeyType", KeyType)
    RTTI_PROPERTY("ValueType", ValueType)
RTTI_END()

RTTI_BEGIN(Serialization::SetSchema, 1)
    RTTI_PROPERTY("ValueType", ValueType)
RTTI_END()

RTTI_BEGIN(Serialization::PropertySchema, 1)
    RTTI_PROPERTY("Type", Type)
    RTTI_PROPERTY("Name", Name)
RTTI_END()

RTTI_BEGIN(Serialization::CompoundSchema, 1)
    RTTI_PROPERTY("Properties", Properties)
    RTTI_PROPERTY("Version", Version)
    RTTI_PROPERTY("FullVersion", FullVersion)
RTTI_END()

RTTI_BEGIN(Serialization::EnumSchemaValue, 1)
    RTTI_PROPERTY("Name", Name)
    RTTI_PROPERTY("Value", Value)
RTTI_END()

RTTI_BEGIN(Serialization::EnumSchema, 1)
    RTTI_PROPERTY("SizeType", SizeType)
    RTTI_PROPERTY("Values", Values)
RTTI_END()

RTTI_BEGIN(Serialization::Schema, 1)
    RTTI_BASE(RTTI::Object)
    RTTI_PROPERTY("Compounds", Compounds)
    RTTI_PROPERTY("Enums", Enums)
    RTTI_PROPERTY("Pointers", Pointers)
    RTTI_PROPERTY("Arrays", Arrays)
    RTTI_PROPERTY("Maps", Maps)
    RTTI_PROPERTY("Sets", Sets)
RTTI_END()
