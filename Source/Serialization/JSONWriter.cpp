#include "FileSystem/File.h"
#include "RTTI/ContainerIterators.h"
#include "RTTI/Object.h"
#include "RTTI/TypeQueries.h"
#include "Serialization/JSON.h"
#include "Serialization/Nesting.h"
#include "Serialization/PrimitiveKind.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace Serialization
{
namespace
{

constexpr uint32_t sWriteError = 0;

template <class T>
T gLoad(const void* inData)
{
    return *static_cast<const T*>(inData);
}

class JSONWriter
{
public:
    explicit JSONWriter(Utility::ErrorState& ioErrors) : mErrors(ioErrors), mWriter(mBuffer) {}

    bool WriteDocument(std::span<const RTTI::Object* const> inObjects)
    {
        if (!Expect(mWriter.StartObject() && mWriter.Key("Objects") && mWriter.StartArray(), "Unable to write json start"))
            return false;
        for (const RTTI::Object* object : inObjects)
        {
            const RTTI::Type& type = object->GetType();
            if (!Expect(WriteObject(type, object), "There was an error serializing object %s to json", type.GetName()))
                return false;
        }
        return Expect(mWriter.EndArray() && mWriter.EndObject(), "Unable to write json end");
    }

    std::string_view GetText() const { return {mBuffer.GetString(), mBuffer.GetSize()}; }

private:
    template <class... Arguments>
    bool Expect(bool inCondition, const char* inFormat, const Arguments&... inArguments)
    {
        return Utility::Check(mErrors, inCondition, sWriteError, inFormat, inArguments...);
    }

    bool WriteKey(std::string_view inText) { return mWriter.Key(inText.data(), GetJSONLength(inText)); }
    bool WriteText(std::string_view inText) { return mWriter.String(inText.data(), GetJSONLength(inText)); }
    static rapidjson::SizeType GetJSONLength(std::string_view inText) { return static_cast<rapidjson::SizeType>(inText.size()); }

    // An object that begins with its type.
    bool WriteObject(const RTTI::Type& inType, const void* inData)
    {
        return Expect(mWriter.StartObject(), "Error writing compound start") && WriteKey("Type") && WriteText(inType.GetName()) &&
               WriteProperties(inType, inData) && Expect(mWriter.EndObject(), "Error writing compound end");
    }

    bool WriteProperties(const RTTI::Type& inType, const void* inData)
    {
        const NestingScope nesting(mDepth);
        if (!Expect(!nesting.IsTooDeep(), "Unable to write object of type %s: more than %u objects lie in one another",
                    inType.GetName(), sMaxNestedCompounds))
            return false;
        for (const RTTI::Property* property : RTTI::gGetAllProperties(inType))
        {
            if (!WriteKey(property->Name) || !WriteValue(*property->Type, property->GetData(inData)))
                return false;
        }
        return true;
    }

    bool WriteValue(const RTTI::Type& inType, const void* inData)
    {
        switch (inType.GetKind())
        {
        case RTTI::EKind::Compound:
            return Expect(mWriter.StartObject(), "Error writing compound start") && WriteProperties(inType, inData) &&
                   Expect(mWriter.EndObject(), "Error writing compound end");
        case RTTI::EKind::Primitive:
            return WritePrimitive(inType, inData);
        case RTTI::EKind::Enum:
            return Expect(WriteText(RTTI::gGetValueName(inType, RTTI::gReadEnumValue(inType, inData))),
                          "Error serializing enum %s", inType.GetName());
        case RTTI::EKind::Array:
            return WriteArray(*inType.AsArray(), inData);
        case RTTI::EKind::Map:
            return WriteMap(*inType.AsMap(), inData);
        case RTTI::EKind::UniquePtr:
            return WritePointer(*inType.AsPointer(), inData);
        case RTTI::EKind::Set:
            return WriteSet(*inType.AsSet(), inData);
        }
        return Expect(false, "Unknown RTTI type encountered");
    }

    bool WritePrimitive(const RTTI::Type& inType, const void* inData)
    {
        const EPrimitive primitive = gGetPrimitive(inType.GetName());
        return Expect(primitive != EPrimitive::Unknown, "Unknown primitive type") &&
               Expect(WriteNumberOrText(primitive, inData), "Error serializing primitive %s", inType.GetName());
    }

    bool WriteNumberOrText(EPrimitive inPrimitive, const void* inData)
    {
        switch (inPrimitive)
        {
        case EPrimitive::UInt8:
            return mWriter.Uint(gLoad<uint8_t>(inData));
        case EPrimitive::Int8:
            return mWriter.Int(gLoad<int8_t>(inData));
        case EPrimitive::UInt16:
            return mWriter.Uint(gLoad<uint16_t>(inData));
        case EPrimitive::Int16:
            return mWriter.Int(gLoad<int16_t>(inData));
        case EPrimitive::UInt32:
            return mWriter.Uint(gLoad<uint32_t>(inData));
        case EPrimitive::Int32:
            return mWriter.Int(gLoad<int32_t>(inData));
        case EPrimitive::UInt64:
            return mWriter.Uint64(gLoad<uint64_t>(inData));
        case EPrimitive::Int64:
            return mWriter.Int64(gLoad<int64_t>(inData));
        case EPrimitive::Bool:
            return mWriter.Bool(gLoad<bool>(inData));
        case EPrimitive::Float:
            return mWriter.Double(static_cast<double>(gLoad<float>(inData)));
        case EPrimitive::Double:
            return mWriter.Double(gLoad<double>(inData));
        case EPrimitive::String:
            return WriteText(*static_cast<const std::string*>(inData));
        case EPrimitive::Unknown:
            break;
        }
        return false;
    }

    // The functions of containers take them mutable, and leave them unchanged.
    bool WriteArray(const RTTI::ArrayInfo& inInfo, const void* inData)
    {
        void* array = const_cast<void*>(inData);
        if (!mWriter.StartArray())
            return false;
        for (uint64_t i = 0, count = inInfo.GetCount(array); i < count; ++i)
        {
            if (!WriteValue(*inInfo.ElementType, inInfo.GetElement(array, i)))
                return false;
        }
        return Expect(mWriter.EndArray(), "Error writing array end");
    }

    bool WriteSet(const RTTI::SetInfo& inInfo, const void* inData)
    {
        if (!mWriter.StartArray())
            return false;
        const auto iterator = inInfo.CreateIterator(const_cast<void*>(inData));
        while (!iterator->IsAtEnd())
        {
            RTTI::Value element;
            iterator->GetNext(element);
            if (!WriteValue(*element.Type, element.Data))
                return false;
        }
        return Expect(mWriter.EndArray(), "Error writing set end");
    }

    bool WriteMap(const RTTI::MapInfo& inInfo, const void* inData)
    {
        if (!mWriter.StartArray())
            return false;
        const auto iterator = inInfo.CreateIterator(const_cast<void*>(inData));
        while (!iterator->IsAtEnd())
        {
            RTTI::Value key;
            RTTI::Value value;
            iterator->GetNext(key, value);
            if (!mWriter.StartObject() || !WriteKey("Key") || !WriteValue(*key.Type, key.Data) || !WriteKey("Value") ||
                !WriteValue(*value.Type, value.Data) || !Expect(mWriter.EndObject(), "Error writing map kvp end"))
                return false;
        }
        return Expect(mWriter.EndArray(), "Error writing map end");
    }

    bool WritePointer(const RTTI::PointerInfo& inInfo, const void* inData)
    {
        const RTTI::Value pointee = inInfo.Get(inData);
        if (pointee.Type != nullptr && pointee.Type->GetKind() == RTTI::EKind::Compound)
            return WriteObject(*pointee.Type, pointee.Data);
        if (!mWriter.StartObject())
            return false;
        if (pointee.Type != nullptr && (!WriteKey("Value") || !WriteValue(*pointee.Type, pointee.Data)))
            return false;
        return mWriter.EndObject();
    }

    Utility::ErrorState& mErrors;
    rapidjson::StringBuffer mBuffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> mWriter;
    uint32_t mDepth = 0;
};

} // namespace

bool gWriteObjectsToJSON(std::span<const RTTI::Object* const> inObjects, std::string& outText, Utility::ErrorState& ioErrors)
{
    JSONWriter writer(ioErrors);
    if (!writer.WriteDocument(inObjects))
        return false;
    outText = writer.GetText();
    return true;
}

bool gWriteObjectsToJSONFile(const std::string& inPath, std::span<const RTTI::Object* const> inObjects,
                             Utility::ErrorState& ioErrors)
{
    std::string text;
    if (!gWriteObjectsToJSON(inObjects, text, ioErrors))
        return false;
    std::ofstream file;
    FileSystem::gOpenWrite(file, inPath, std::ios_base::out | std::ios_base::trunc);
    if (!Utility::Check(ioErrors, file.is_open(), sWriteError, "Unable to write file %s", inPath))
        return false;
    file << text << '\n';
    file.close();
    return Utility::Check(ioErrors, file.good(), sWriteError, "Unable to write file %s", inPath);
}

} // namespace Serialization
