// How a reader decodes and passes over encoded values.
#include "RTTI/TypeQueries.h"
#include "Serialization/BinaryReader.h"
#include "Serialization/Temporaries.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Serialization
{
namespace
{

constexpr uint64_t sMinCompoundSize = sizeof(uint64_t);      // its size
constexpr uint64_t sMinContainerSize = 2 * sizeof(uint64_t); // size and count
constexpr uint64_t sMinTextSize = sizeof(uint64_t);          // its length

} // namespace

bool BinaryReader::ExpectBytes(bool inHasBytes, ReaderErrorState& ioErrors)
{
    return Check(ioErrors, inHasBytes, EReaderError::Corrupt, "The data are corrupt: a value goes beyond their end");
}

bool BinaryReader::ExpectEnd(const MemoryReadStream& inStream, uint64_t inEnd, ReaderErrorState& ioErrors)
{
    return Check(ioErrors, inStream.GetPosition() == inEnd, EReaderError::Corrupt,
                 "The data are corrupt: a value doesn't end where its size says");
}

bool BinaryReader::ExpectRecord(const void* inRecord, std::string_view inTypeName, ReaderErrorState& ioErrors)
{
    return inRecord != nullptr ||
           Check(ioErrors, false, EReaderError::Corrupt, "The schema is corrupt: it lacks type %s", std::string(inTypeName));
}

bool BinaryReader::ExpectCreated(const RTTI::OwnedValue& inValue, const RTTI::Type& inType, ReaderErrorState& ioErrors)
{
    return Check(ioErrors, static_cast<bool>(inValue), EReaderError::Incompatible, "Failed to create object of type %s",
                 inType.GetName());
}

bool BinaryReader::ExpectSameType(const RTTI::Type& inType, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const
{
    const auto ownKind = static_cast<uint8_t>(inType.GetKind());
    return Check(ioErrors, inFileType.DataType == ownKind && mSchema.IsSameType(inType, inFileType), EReaderError::Incompatible,
                 "Compatibility issue: Type mismatch: object used to be of type %s and datatype %d, but is now of type %s and "
                 "datatype %d",
                 inFileType.TypeName, int{inFileType.DataType}, inType.GetName(), int{ownKind});
}

bool BinaryReader::ReadSize(MemoryReadStream& ioStream, uint64_t& outEnd, ReaderErrorState& ioErrors)
{
    uint64_t size = 0;
    if (!ExpectBytes(ioStream.Read(size) && size <= ioStream.GetRemaining(), ioErrors))
        return false;
    outEnd = ioStream.GetPosition() + size;
    return true;
}

bool BinaryReader::ReadCount(MemoryReadStream& ioStream, uint64_t inMinElementSize, uint64_t& outCount, uint64_t& outEnd,
                             ReaderErrorState& ioErrors)
{
    return ReadSize(ioStream, outEnd, ioErrors) &&
           ExpectBytes(ioStream.Read(outCount) && outCount <= ioStream.GetRemaining() / inMinElementSize, ioErrors);
}

bool BinaryReader::ReadValue(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                             ReaderErrorState& ioErrors)
{
    switch (ioValue.Type->GetKind())
    {
    case RTTI::EKind::Compound:
        return ReadCompoundValue(ioStream, ioValue, inFileType, ioErrors);
    case RTTI::EKind::Primitive:
        return ReadPrimitive(ioStream, ioValue, ioErrors);
    case RTTI::EKind::Enum:
        return ReadEnum(ioStream, ioValue, inFileType, ioErrors);
    case RTTI::EKind::Array:
        return ReadArray(ioStream, ioValue, inFileType, ioErrors);
    case RTTI::EKind::Map:
        return ReadMap(ioStream, ioValue, inFileType, ioErrors);
    case RTTI::EKind::UniquePtr:
        return ReadPointer(ioStream, ioValue, inFileType, ioErrors);
    case RTTI::EKind::Set:
        return ReadSet(ioStream, ioValue, inFileType, ioErrors);
    }
    return false;
}

bool BinaryReader::ReadCompoundValue(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                     ReaderErrorState& ioErrors)
{
    CompoundPlan* plan = mSchema.FindCompound(inFileType.TypeName);
    uint64_t end = 0;
    return ReadSize(ioStream, end, ioErrors) && ExpectRecord(plan, inFileType.TypeName, ioErrors) &&
           ReadCompound(ioStream, ioValue, *plan, mHandlers.Find(*ioValue.Type), ioErrors) && ExpectEnd(ioStream, end, ioErrors);
}

bool BinaryReader::ReadPrimitive(MemoryReadStream& ioStream, const RTTI::Value& ioValue, ReaderErrorState& ioErrors)
{
    if (!ioValue.Type->AsPrimitive()->IsPlainBytes)
    {
        std::string_view text;
        if (!ExpectBytes(ioStream.ReadString(text), ioErrors))
            return false;
        *static_cast<std::string*>(ioValue.Data) = text;
        return true;
    }
    const uint64_t size = ioValue.Type->GetSize();
    const uint8_t* bytes = ioStream.Take(size);
    if (!ExpectBytes(bytes != nullptr, ioErrors))
        return false;
    // No byte but these two is a bool in memory.
    if (size == sizeof(bool) && gGetPrimitive(ioValue.Type->GetName()) == EPrimitive::Bool)
        *static_cast<bool*>(ioValue.Data) = *bytes != 0;
    else
        std::memcpy(ioValue.Data, bytes, size);
    return true;
}

EPrimitive BinaryReader::GetEnumSizeType(std::string_view inEnumName) const
{
    const EnumPlan* plan = mSchema.FindEnum(inEnumName);
    return plan != nullptr ? plan->SizeType : EPrimitive::Unknown;
}

bool BinaryReader::ReadEnum(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                            ReaderErrorState& ioErrors)
{
    const EnumPlan* plan = mSchema.FindEnum(inFileType.TypeName);
    if (!ExpectRecord(plan, inFileType.TypeName, ioErrors) ||
        !Check(ioErrors, plan->SizeType != EPrimitive::Unknown, EReaderError::Corrupt,
               "Unable to retrieve enum size type for type %s", inFileType.TypeName))
        return false;
    const uint8_t* bytes = ioStream.Take(gGetPrimitiveSize(plan->SizeType));
    if (!ExpectBytes(bytes != nullptr, ioErrors))
        return false;
    // By name, so that a value may get another number.
    const auto position = plan->Names.find(gLoadInteger(plan->SizeType, bytes));
    const char* name = position != plan->Names.end() ? position->second->c_str() : "";
    return Check(ioErrors, RTTI::gSetValueByName(*ioValue.Type, ioValue.Data, name), EReaderError::Incompatible,
                 "Compatibility issue: enum %s does not contain the value %s anymore.", ioValue.Type->GetName(), name);
}

bool BinaryReader::ReadArray(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                             ReaderErrorState& ioErrors)
{
    const RTTI::ArrayInfo& info = *ioValue.Type->AsArray();
    const ArraySchema* schema = gFindSchema(mSchema.Get().Arrays, inFileType.TypeName);
    uint64_t count = 0;
    uint64_t end = 0;
    if (!ExpectRecord(schema, inFileType.TypeName, ioErrors) ||
        !ReadCount(ioStream, GetMinSize(schema->EmbeddedType), count, end, ioErrors) ||
        !ExpectSameType(*info.ElementType, schema->EmbeddedType, ioErrors))
        return false;

    const RTTI::PrimitiveInfo* primitive = info.ElementType->AsPrimitive();
    if (primitive != nullptr && primitive->IsPlainBytes)
        return ReadPlainElements(ioStream, info, ioValue.Data, count, ioErrors) && ExpectEnd(ioStream, end, ioErrors);
    info.Resize(ioValue.Data, count);
    for (uint64_t i = 0; i < count; ++i)
    {
        if (!ReadValue(ioStream, {info.ElementType, info.GetElement(ioValue.Data, i)}, schema->EmbeddedType, ioErrors))
            return false;
    }
    return ExpectEnd(ioStream, end, ioErrors);
}

bool BinaryReader::ReadPlainElements(MemoryReadStream& ioStream, const RTTI::ArrayInfo& inInfo, void* ioArray, uint64_t inCount,
                                     ReaderErrorState& ioErrors)
{
    const uint64_t size = inCount * inInfo.ElementType->GetSize(); // at most what remains, so it doesn't overflow
    const uint8_t* bytes = ioStream.Take(size);
    if (!ExpectBytes(bytes != nullptr, ioErrors))
        return false;
    inInfo.Resize(ioArray, inCount);
    if (size != 0)
        std::memcpy(inInfo.GetData(ioArray), bytes, size);
    return true;
}

bool BinaryReader::ReadMap(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                           ReaderErrorState& ioErrors)
{
    const RTTI::MapInfo& info = *ioValue.Type->AsMap();
    const MapSchema* schema = gFindSchema(mSchema.Get().Maps, inFileType.TypeName);
    uint64_t count = 0;
    uint64_t end = 0;
    if (!ExpectRecord(schema, inFileType.TypeName, ioErrors) ||
        !ReadCount(ioStream, GetMinSize(schema->KeyType) + GetMinSize(schema->ValueType), count, end, ioErrors) ||
        !ExpectSameType(*info.KeyType, schema->KeyType, ioErrors) ||
        !ExpectSameType(*info.ValueType, schema->ValueType, ioErrors))
        return false;
    info.Reserve(ioValue.Data, count);
    Temporary key(*info.KeyType, mCreators);
    Temporary value(*info.ValueType, mCreators);
    for (uint64_t i = 0; i < count; ++i)
    {
        if (!ExpectCreated(key.Renew(), *info.KeyType, ioErrors) || !ExpectCreated(value.Renew(), *info.ValueType, ioErrors) ||
            !ReadValue(ioStream, key.GetValue(), schema->KeyType, ioErrors) ||
            !ReadValue(ioStream, value.GetValue(), schema->ValueType, ioErrors))
            return false;
        gInsertIntoMap(info, ioValue.Data, key.GetValue(), value.GetValue());
    }
    return ExpectEnd(ioStream, end, ioErrors);
}

bool BinaryReader::ReadSet(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                           ReaderErrorState& ioErrors)
{
    const RTTI::SetInfo& info = *ioValue.Type->AsSet();
    const SetSchema* schema = gFindSchema(mSchema.Get().Sets, inFileType.TypeName);
    uint64_t count = 0;
    uint64_t end = 0;
    if (!ExpectRecord(schema, inFileType.TypeName, ioErrors) ||
        !ReadCount(ioStream, GetMinSize(schema->ValueType), count, end, ioErrors) ||
        !ExpectSameType(*info.ElementType, schema->ValueType, ioErrors))
        return false;
    info.Reserve(ioValue.Data, count);
    Temporary element(*info.ElementType, mCreators);
    for (uint64_t i = 0; i < count; ++i)
    {
        if (!ExpectCreated(element.Renew(), *info.ElementType, ioErrors) ||
            !ReadValue(ioStream, element.GetValue(), schema->ValueType, ioErrors))
            return false;
        info.Insert(ioValue.Data, element.GetValue().Data);
    }
    return ExpectEnd(ioStream, end, ioErrors);
}

bool BinaryReader::ReadPointer(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                               ReaderErrorState& ioErrors)
{
    const RTTI::PointerInfo& info = *ioValue.Type->AsPointer();
    const PointerSchema* schema = gFindSchema(mSchema.Get().Pointers, inFileType.TypeName);
    std::string_view name;
    if (!ExpectRecord(schema, inFileType.TypeName, ioErrors) ||
        !ExpectSameType(*info.PointeeType, schema->PointeeType, ioErrors) || !ExpectBytes(ioStream.ReadString(name), ioErrors))
        return false;
    if (name == sNullName)
        return true;
    if (info.PointeeType->GetKind() == RTTI::EKind::Compound)
        return ReadPointedObject(ioStream, info, ioValue.Data, name, ioErrors);
    RTTI::OwnedValue pointee = mCreators.Create(*info.PointeeType);
    if (!ExpectCreated(pointee, *info.PointeeType, ioErrors) ||
        !ReadValue(ioStream, pointee.GetValue(), schema->PointeeType, ioErrors))
        return false;
    info.SetFromOwned(ioValue.Data, std::move(pointee));
    return true;
}

bool BinaryReader::ReadPointedObject(MemoryReadStream& ioStream, const RTTI::PointerInfo& inInfo, void* outPointer,
                                     std::string_view inTypeName, ReaderErrorState& ioErrors)
{
    RTTI::OwnedValue object;
    if (!ReadObject(ioStream, inTypeName, object, ioErrors))
        return false;
    if (!object)
        return true;
    if (!Check(ioErrors, RTTI::gIsDerivedFrom(*object.GetType(), *inInfo.PointeeType), EReaderError::Incompatible,
               "Compatibility issue: object of type %s used to be derived from %s but isn't anymore", object.GetType()->GetName(),
               inInfo.PointeeType->GetName()))
        return false;
    inInfo.SetFromOwned(outPointer, std::move(object));
    return true;
}

uint64_t BinaryReader::GetMinSize(const TypeSchema& inFileType) const
{
    switch (static_cast<RTTI::EKind>(inFileType.DataType))
    {
    case RTTI::EKind::Compound:
        return sMinCompoundSize;
    case RTTI::EKind::Primitive:
    {
        const EPrimitive primitive = gGetPrimitive(inFileType.TypeName);
        return primitive == EPrimitive::String ? sMinTextSize : std::max<uint64_t>(gGetPrimitiveSize(primitive), 1);
    }
    case RTTI::EKind::Enum:
        return std::max<uint64_t>(gGetPrimitiveSize(GetEnumSizeType(inFileType.TypeName)), 1);
    case RTTI::EKind::Array:
    case RTTI::EKind::Map:
    case RTTI::EKind::Set:
        return sMinContainerSize;
    case RTTI::EKind::UniquePtr:
        return sMinTextSize;
    }
    return 1;
}

bool BinaryReader::SkipValue(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const
{
    uint64_t end = 0;
    switch (static_cast<RTTI::EKind>(inFileType.DataType))
    {
    case RTTI::EKind::Compound:
    case RTTI::EKind::Array:
    case RTTI::EKind::Map:
    case RTTI::EKind::Set:
        if (!ReadSize(ioStream, end, ioErrors))
            return false;
        ioStream.SetPosition(end);
        return true;
    case RTTI::EKind::Primitive:
        return SkipPrimitive(ioStream, inFileType, ioErrors);
    case RTTI::EKind::Enum:
    {
        const EPrimitive sizeType = GetEnumSizeType(inFileType.TypeName);
        return Check(ioErrors, sizeType != EPrimitive::Unknown, EReaderError::Corrupt,
                     "Unable to retrieve enum size type for type %s", inFileType.TypeName) &&
               ExpectBytes(ioStream.Take(gGetPrimitiveSize(sizeType)) != nullptr, ioErrors);
    }
    case RTTI::EKind::UniquePtr:
        return SkipPointer(ioStream, inFileType, ioErrors);
    }
    return ExpectRecord(nullptr, inFileType.TypeName, ioErrors);
}

bool BinaryReader::SkipPrimitive(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors)
{
    const EPrimitive primitive = gGetPrimitive(inFileType.TypeName);
    if (primitive == EPrimitive::Unknown)
        return ExpectRecord(nullptr, inFileType.TypeName, ioErrors);
    std::string_view text;
    return ExpectBytes(primitive == EPrimitive::String ? ioStream.ReadString(text)
                                                       : ioStream.Take(gGetPrimitiveSize(primitive)) != nullptr,
                       ioErrors);
}

// What a pointer to a compound, an array, a map or a set leads to begins with its size; anything else has to be passed over by
// its type. A pointer to a pointer takes another name each time, so the loop ends with the stream.
bool BinaryReader::SkipPointer(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const
{
    const TypeSchema* type = &inFileType;
    while (static_cast<RTTI::EKind>(type->DataType) == RTTI::EKind::UniquePtr)
    {
        std::string_view name;
        if (!ExpectBytes(ioStream.ReadString(name), ioErrors))
            return false;
        if (name == sNullName)
            return true;
        const PointerSchema* schema = gFindSchema(mSchema.Get().Pointers, type->TypeName);
        if (!ExpectRecord(schema, type->TypeName, ioErrors))
            return false;
        type = &schema->PointeeType;
    }
    return SkipValue(ioStream, *type, ioErrors);
}

} // namespace Serialization
