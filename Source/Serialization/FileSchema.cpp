#include "Serialization/FileSchema.h"

#include "RTTI/TypeQueries.h"

#include <utility>

namespace Serialization
{

void FileSchema::Set(std::unique_ptr<Schema> inSchema)
{
    mSchema = std::move(inSchema);
    mCompounds.clear();
    mEnums.clear();
    for (const auto& [name, enumeration] : mSchema->Enums)
    {
        if (enumeration != nullptr)
            mEnums.emplace(name, MakePlan(*enumeration));
    }
    for (const auto& [name, compound] : mSchema->Compounds)
    {
        if (compound != nullptr)
            mCompounds.emplace(name, MakePlan(name, *compound));
    }
}

CompoundPlan FileSchema::MakePlan(std::string_view inName, const CompoundSchema& inSchema) const
{
    CompoundPlan plan{inName, &inSchema, mRegistry.FindType(inName), {}};
    const bool isCompound = plan.Type != nullptr && plan.Type->GetKind() == RTTI::EKind::Compound;
    plan.Properties.reserve(inSchema.Properties.size());
    for (const PropertySchema& property : inSchema.Properties)
        plan.Properties.push_back({&property, isCompound ? RTTI::gFindProperty(*plan.Type, property.Name.c_str()) : nullptr});
    return plan;
}

EnumPlan FileSchema::MakePlan(const EnumSchema& inSchema) const
{
    const RTTI::Type* type = mRegistry.FindType(inSchema.SizeType.TypeName);
    const EPrimitive primitive = type != nullptr ? gGetPrimitive(type->GetName()) : EPrimitive::Unknown;
    EnumPlan plan{gIsInteger(primitive) ? primitive : EPrimitive::Unknown, {}};
    for (const EnumSchemaValue& value : inSchema.Values)
        plan.Names.emplace(value.Value, &value.Name);
    return plan;
}

const EnumPlan* FileSchema::FindEnum(std::string_view inName) const
{
    const auto position = mEnums.find(inName);
    return position != mEnums.end() ? &position->second : nullptr;
}

CompoundPlan* FileSchema::FindCompound(std::string_view inName)
{
    const auto position = mCompounds.find(inName);
    return position != mCompounds.end() ? &position->second : nullptr;
}

bool FileSchema::IsSameType(const RTTI::Type& inType, const TypeSchema& inFileType) const
{
    return mRegistry.TypeMatchesName(inType, inFileType.TypeName) || IsSameUnderFormerNames(inType, inFileType);
}

// Ends, since the parts of a run-time container are fewer with each step.
bool FileSchema::IsSameUnderFormerNames(const RTTI::Type& inType, const TypeSchema& inFileType) const
{
    if (static_cast<RTTI::EKind>(inFileType.DataType) != inType.GetKind())
        return false;
    switch (inType.GetKind())
    {
    case RTTI::EKind::Compound:
    case RTTI::EKind::Enum:
    {
        const RTTI::Type* found = mRegistry.FindType(inFileType.TypeName);
        return found != nullptr && RTTI::gIsSameType(*found, inType);
    }
    case RTTI::EKind::Primitive:
        return false;
    case RTTI::EKind::Array:
    {
        const ArraySchema* array = gFindSchema(mSchema->Arrays, inFileType.TypeName);
        return array != nullptr && IsSameType(*inType.AsArray()->ElementType, array->EmbeddedType);
    }
    case RTTI::EKind::Map:
    {
        const MapSchema* map = gFindSchema(mSchema->Maps, inFileType.TypeName);
        return map != nullptr && IsSameType(*inType.AsMap()->KeyType, map->KeyType) &&
               IsSameType(*inType.AsMap()->ValueType, map->ValueType);
    }
    case RTTI::EKind::UniquePtr:
    {
        const PointerSchema* pointer = gFindSchema(mSchema->Pointers, inFileType.TypeName);
        return pointer != nullptr && IsSameType(*inType.AsPointer()->PointeeType, pointer->PointeeType);
    }
    case RTTI::EKind::Set:
    {
        const SetSchema* set = gFindSchema(mSchema->Sets, inFileType.TypeName);
        return set != nullptr && IsSameType(*inType.AsSet()->ElementType, set->ValueType);
    }
    }
    return false;
}

} // namespace Serialization
