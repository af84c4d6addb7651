#include "RTTI/TypeQueries.h"

#include <cstring>

namespace RTTI
{
namespace
{

constexpr int sBitsPerByte = 8;

void gAppendProperties(const CompoundInfo& inInfo, std::vector<const Property*>& ioProperties)
{
    for (int32_t i = 0; i < inInfo.BaseCount; ++i)
        gAppendProperties(*inInfo.Bases[i]->AsCompound(), ioProperties);
    for (uint32_t i = 0; i < inInfo.PropertyCount; ++i)
        ioProperties.push_back(&inInfo.Properties[i]);
}

const Property* gFindProperty(const CompoundInfo& inInfo, const char* inName)
{
    for (uint32_t i = 0; i < inInfo.PropertyCount; ++i)
    {
        if (std::strcmp(inInfo.Properties[i].Name, inName) == 0)
            return &inInfo.Properties[i];
    }
    for (int32_t i = 0; i < inInfo.BaseCount; ++i)
    {
        if (const Property* found = gFindProperty(*inInfo.Bases[i]->AsCompound(), inName))
            return found;
    }
    return nullptr;
}

// The eight integer primitives are told apart by their names, since the tables may be those of another copy.
bool gIsSigned(const Type& inInteger)
{
    return inInteger.Descriptor->Name[0] == 'i';
}

} // namespace

bool gIsDerivedFrom(const Type& inType, const Type& inBase)
{
    const CompoundInfo* type = inType.AsCompound();
    const CompoundInfo* base = inBase.AsCompound();
    if (type == nullptr || base == nullptr)
        return &inType == &inBase;
    if (type->TreeIndex == sNotRegistered || base->TreeIndex == sNotRegistered)
        return &inType == &inBase;
    return type->TreeIndex >= base->TreeIndex && type->TreeIndex <= base->TreeIndex + base->DescendantCount;
}

std::vector<const Property*> gGetAllProperties(const Type& inType)
{
    std::vector<const Property*> properties;
    if (const CompoundInfo* compound = inType.AsCompound())
        gAppendProperties(*compound, properties);
    return properties;
}

const Property* gFindProperty(const Type& inType, const char* inName)
{
    const CompoundInfo* compound = inType.AsCompound();
    return compound != nullptr ? gFindProperty(*compound, inName) : nullptr;
}

uint64_t gReadEnumValue(const Type& inType, const void* inData)
{
    uint64_t value = 0;
    const Type& sizeType = *inType.AsEnum()->SizeType;
    std::memcpy(&value, inData, sizeType.GetSize());
    const auto unusedBits = static_cast<int>((sizeof(value) - sizeType.GetSize()) * sBitsPerByte);
    if (gIsSigned(sizeType))
        value = static_cast<uint64_t>(static_cast<int64_t>(value << unusedBits) >> unusedBits);
    return value;
}

void gWriteEnumValue(const Type& inType, void* outData, uint64_t inValue)
{
    std::memcpy(outData, &inValue, inType.AsEnum()->SizeType->GetSize());
}

const char* gGetValueName(const Type& inType, uint64_t inValue)
{
    const EnumInfo& info = *inType.AsEnum();
    for (uint32_t i = 0; i < info.ValueCount; ++i)
    {
        if (info.Values[i].Value == inValue)
            return info.Values[i].Name;
    }
    return "<invalid enum value>";
}

int32_t gFindValueByName(const Type& inType, std::string_view inName)
{
    const EnumInfo& info = *inType.AsEnum();
    for (uint32_t i = 0; i < info.ValueCount; ++i)
    {
        if (info.Values[i].Name == inName)
            return static_cast<int32_t>(i);
    }
    return -1;
}

bool gSetValueByName(const Type& inType, void* outData, std::string_view inName)
{
    const int32_t index = gFindValueByName(inType, inName);
    if (index < 0)
        return false;
    gWriteEnumValue(inType, outData, inType.AsEnum()->Values[index].Value);
    return true;
}

} // namespace RTTI
