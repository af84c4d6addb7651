#include "FileSystem/TextFile.h"
#include "RTTI/Object.h"
#include "RTTI/Registry.h"
#include "RTTI/TypeQueries.h"
#include "Serialization/JSON.h"
#include "Serialization/JSONDocument.h"
#include "Serialization/Nesting.h"
#include "Serialization/PrimitiveKind.h"
#include "Serialization/Temporaries.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Serialization
{
namespace
{

using JSONValue = rapidjson::Value;

std::string_view gGetText(const JSONValue& inValue)
{
    return {inValue.GetString(), inValue.GetStringLength()};
}

// The member of that name, or null.
const JSONValue* gFindMember(const JSONValue& inObject, const char* inName)
{
    const auto member = inObject.FindMember(inName);
    return member != inObject.MemberEnd() ? &member->value : nullptr;
}

const JSONValue* gFindTypeMember(const JSONValue& inObject)
{
    const JSONValue* type = gFindMember(inObject, "Type");
    return type != nullptr && type->IsString() ? type : nullptr;
}

class JSONReader
{
public:
    JSONReader(const RTTI::Registry& inRegistry, const TypeCreators& inCreators, ReadObjectMode inMode,
               ReaderErrorState& ioErrors)
        : mRegistry(inRegistry),
          mCreators(inCreators),
          mMode(inMode),
          mErrors(ioErrors)
    {
    }

    bool ReadDocument(std::string_view inText, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects)
    {
        rapidjson::Document document;
        JSONParseError error;
        if (!gParseJSON(inText, document, error))
            return Expect(false, "Error parsing json: %s (line: %d)", error.Message, error.Line);
        const JSONValue* objects = document.IsObject() ? gFindMember(document, "Objects") : nullptr;
        if (objects == nullptr || !objects->IsArray())
            return Expect(document.IsObject(), "Root JSON value must be an object") && ReadRoot(document, ioObjects);
        return std::all_of(objects->Begin(), objects->End(),
                           [&](const JSONValue& inObject) { return ReadRoot(inObject, ioObjects); });
    }

private:
    template <class... Arguments>
    bool Expect(bool inCondition, const char* inFormat, const Arguments&... inArguments)
    {
        return Check(mErrors, inCondition, EReaderError::Corrupt, inFormat, inArguments...);
    }

    bool ReadRoot(const JSONValue& inValue, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects)
    {
        const JSONValue* typeName = inValue.IsObject() ? gFindTypeMember(inValue) : nullptr;
        if (!Expect(typeName != nullptr, "Unable to find required 'Type' property for object"))
            return false;
        const std::string name(gGetText(*typeName));
        const RTTI::Type* type = mRegistry.FindType(name);
        if (type == nullptr)
            return Expect(mMode == ReadObjectMode::SkipUnknownTypes, "Unknown object type %s encountered.", name);
        if (!Expect(type->GetKind() == RTTI::EKind::Compound, "Root object %s is not a compound.", name))
            return false;
        RTTI::OwnedValue object = mCreators.Create(*type);
        if (!Expect(static_cast<bool>(object), "Failed to instantiate object of type %s.", name) ||
            !ReadProperties(inValue, object.GetValue()) ||
            !Expect(RTTI::gIsDerivedFrom(*type, RTTI::gTypeOf<RTTI::Object>()), "Failed to instantiate object of type %s.", name))
            return false;
        ioObjects.emplace_back(static_cast<RTTI::Object*>(object.Release()));
        return true;
    }

    bool ReadProperties(const JSONValue& inValue, const RTTI::Value& inTarget)
    {
        const NestingScope nesting(mDepth);
        if (!Expect(!nesting.IsTooDeep(), "More than %u objects lie in one another", sMaxNestedCompounds))
            return false;
        for (const RTTI::Property* property : RTTI::gGetAllProperties(*inTarget.Type))
        {
            const JSONValue* member = gFindMember(inValue, property->Name);
            if (member != nullptr && !ReadValue(*member, {property->Type, property->GetData(inTarget.Data)}))
                return false;
        }
        return true;
    }

    bool ReadValue(const JSONValue& inValue, const RTTI::Value& inTarget)
    {
        if (inValue.IsObject())
            return ReadObject(inValue, inTarget);
        if (inValue.IsArray())
            return ReadElements(inValue, inTarget);
        return ReadSimpleValue(inValue, inTarget);
    }

    bool ReadObject(const JSONValue& inValue, const RTTI::Value& inTarget)
    {
        if (inTarget.Type->GetKind() == RTTI::EKind::Compound)
            return ReadProperties(inValue, inTarget);
        const RTTI::PointerInfo* pointer = inTarget.Type->AsPointer();
        return Expect(pointer != nullptr, "Expected compound or pointer type for %s", inTarget.Type->GetName()) &&
               ReadPointer(inValue, *pointer, inTarget.Data);
    }

    bool ReadPointer(const JSONValue& inValue, const RTTI::PointerInfo& inInfo, void* outPointer)
    {
        if (inValue.ObjectEmpty())
        {
            inInfo.Set(outPointer, nullptr);
            return true;
        }
        if (inInfo.PointeeType->GetKind() == RTTI::EKind::Compound)
            return ReadPointedObject(inValue, inInfo, outPointer);

        const JSONValue* value = gFindMember(inValue, "Value");
        if (value == nullptr)
            return false;
        RTTI::OwnedValue pointee = mCreators.Create(*inInfo.PointeeType);
        if (!ExpectCreated(pointee, *inInfo.PointeeType) || !ReadValue(*value, pointee.GetValue()))
            return false;
        inInfo.SetFromOwned(outPointer, std::move(pointee));
        return true;
    }

    bool ReadPointedObject(const JSONValue& inValue, const RTTI::PointerInfo& inInfo, void* outPointer)
    {
        const JSONValue* typeName = gFindTypeMember(inValue);
        if (typeName == nullptr)
            return false;
        const RTTI::Type* type = mRegistry.FindType(gGetText(*typeName));
        if (type == nullptr)
            return true;
        RTTI::OwnedValue object = mCreators.Create(*type);
        if (!ExpectCreated(object, *type) || !ReadProperties(inValue, object.GetValue()) ||
            !Check(mErrors, RTTI::gIsDerivedFrom(*type, *inInfo.PointeeType), EReaderError::Incompatible,
                   "Compatibility issue: object of type %s used to be derived from %s but isn't anymore", type->GetName(),
                   inInfo.PointeeType->GetName()))
            return false;
        inInfo.SetFromOwned(outPointer, std::move(object));
        return true;
    }

    bool ExpectCreated(const RTTI::OwnedValue& inValue, const RTTI::Type& inType)
    {
        return Expect(static_cast<bool>(inValue), "Failed to create object of type %s", inType.GetName());
    }

    bool ReadElements(const JSONValue& inValue, const RTTI::Value& inTarget)
    {
        switch (inTarget.Type->GetKind())
        {
        case RTTI::EKind::Array:
            return ReadArray(inValue, *inTarget.Type->AsArray(), inTarget.Data);
        case RTTI::EKind::Map:
            return ReadMap(inValue, *inTarget.Type->AsMap(), inTarget.Data);
        case RTTI::EKind::Set:
            return ReadSet(inValue, *inTarget.Type->AsSet(), inTarget.Data);
        default:
            return Expect(false, "Expected array, map or set type");
        }
    }

    bool ReadArray(const JSONValue& inValue, const RTTI::ArrayInfo& inInfo, void* outArray)
    {
        inInfo.Resize(outArray, inValue.Size());
        for (rapidjson::SizeType i = 0; i < inValue.Size(); ++i)
        {
            if (!ReadValue(inValue[i], {inInfo.ElementType, inInfo.GetElement(outArray, i)}))
                return false;
        }
        return true;
    }

    bool ReadSet(const JSONValue& inValue, const RTTI::SetInfo& inInfo, void* outSet)
    {
        inInfo.Reserve(outSet, inValue.Size());
        for (const JSONValue& item : inValue.GetArray())
        {
            Temporary element(*inInfo.ElementType, mCreators);
            if (!ExpectCreated(element.Renew(), *inInfo.ElementType) || !ReadValue(item, element.GetValue()))
                return false;
            inInfo.Insert(outSet, element.GetValue().Data);
        }
        return true;
    }

    bool ReadMap(const JSONValue& inValue, const RTTI::MapInfo& inInfo, void* outMap)
    {
        inInfo.Reserve(outMap, inValue.Size());
        for (const JSONValue& item : inValue.GetArray())
        {
            // A null leaves its target alone, so each pair has its own.
            Temporary key(*inInfo.KeyType, mCreators);
            Temporary value(*inInfo.ValueType, mCreators);
            const JSONValue* keyMember = item.IsObject() ? gFindMember(item, "Key") : nullptr;
            const JSONValue* valueMember = item.IsObject() ? gFindMember(item, "Value") : nullptr;
            if (!Expect(keyMember != nullptr, "Missing Key property for map element") ||
                !Expect(valueMember != nullptr, "Missing Value property for map element") ||
                !ExpectCreated(key.Renew(), *inInfo.KeyType) || !ExpectCreated(value.Renew(), *inInfo.ValueType) ||
                !ReadValue(*keyMember, key.GetValue()) || !ReadValue(*valueMember, value.GetValue()))
                return false;
            gInsertIntoMap(inInfo, outMap, key.GetValue(), value.GetValue());
        }
        return true;
    }

    bool ReadSimpleValue(const JSONValue& inValue, const RTTI::Value& inTarget)
    {
        const RTTI::Type& type = *inTarget.Type;
        if (type.GetKind() == RTTI::EKind::Enum)
            return Expect(inValue.IsString(), "Expected enum type for %s", type.GetName()) &&
                   Expect(RTTI::gSetValueByName(type, inTarget.Data, gGetText(inValue)), "Invalid value for enum %s",
                          type.GetName());
        return Expect(type.GetKind() == RTTI::EKind::Primitive, "Expected primitive or enum type for %s", type.GetName()) &&
               Expect(ReadPrimitive(inValue, gGetPrimitive(type.GetName()), inTarget.Data), "Type is not a primitive type.");
    }

    // False where the value can't go into the target without touching bytes that aren't the target's.
    static bool ReadPrimitive(const JSONValue& inValue, EPrimitive inPrimitive, void* outData)
    {
        if (inValue.IsNull())
            return true;
        if (inValue.IsString())
        {
            if (inPrimitive != EPrimitive::String)
                return false;
            *static_cast<std::string*>(outData) = gGetText(inValue);
            return true;
        }
        if (inValue.IsBool())
        {
            const bool isByte =
                inPrimitive == EPrimitive::Bool || inPrimitive == EPrimitive::UInt8 || inPrimitive == EPrimitive::Int8;
            return isByte && StoreInteger(inValue.GetBool() ? 1 : 0, inPrimitive, outData);
        }
        if (inValue.IsUint64())
            return StoreInteger(inValue.GetUint64(), inPrimitive, outData);
        if (inValue.IsInt64())
            return StoreInteger(static_cast<uint64_t>(inValue.GetInt64()), inPrimitive, outData);
        return StoreFloatingPoint(inValue.GetDouble(), inPrimitive, outData);
    }

    // Narrows into an integer. A floating-point target takes no integers and stays as it is.
    static bool StoreInteger(uint64_t inBits, EPrimitive inPrimitive, void* outData)
    {
        switch (inPrimitive)
        {
        case EPrimitive::UInt8:
        case EPrimitive::Int8:
            *static_cast<uint8_t*>(outData) = static_cast<uint8_t>(inBits);
            return true;
        case EPrimitive::UInt16:
        case EPrimitive::Int16:
            std::memcpy(outData, &inBits, sizeof(uint16_t));
            return true;
        case EPrimitive::UInt32:
        case EPrimitive::Int32:
            std::memcpy(outData, &inBits, sizeof(uint32_t));
            return true;
        case EPrimitive::UInt64:
        case EPrimitive::Int64:
            std::memcpy(outData, &inBits, sizeof(uint64_t));
            return true;
        case EPrimitive::Bool:
            *static_cast<bool*>(outData) = static_cast<uint8_t>(inBits) != 0;
            return true;
        case EPrimitive::Float:
        case EPrimitive::Double:
            return true;
        case EPrimitive::String:
        case EPrimitive::Unknown:
            break;
        }
        return false;
    }

    static bool StoreFloatingPoint(double inNumber, EPrimitive inPrimitive, void* outData)
    {
        if (inPrimitive == EPrimitive::Float)
            *static_cast<float*>(outData) = static_cast<float>(inNumber);
        else if (inPrimitive == EPrimitive::Double)
            *static_cast<double*>(outData) = inNumber;
        else
            return false;
        return true;
    }

    const RTTI::Registry& mRegistry;
    const TypeCreators& mCreators;
    ReadObjectMode mMode;
    ReaderErrorState& mErrors;
    uint32_t mDepth = 0;
};

} // namespace

bool gReadObjectsFromJSON(std::string_view inText, const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                          ReadObjectMode inMode, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                          ReaderErrorState& ioErrors)
{
    return JSONReader(inRegistry, inCreators, inMode, ioErrors).ReadDocument(inText, ioObjects);
}

bool gReadObjectsFromJSONFile(const std::string& inPath, const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                              ReadObjectMode inMode, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                              ReaderErrorState& ioErrors)
{
    const Utility::ErrorContextScope context(&ioErrors, inPath);
    std::string text;
    if (!Check(ioErrors, FileSystem::gReadTextFile(inPath, text), EReaderError::Corrupt, "Could not read file %s", inPath))
        return false;
    return gReadObjectsFromJSON(text, inRegistry, inCreators, inMode, ioObjects, ioErrors);
}

} // namespace Serialization
