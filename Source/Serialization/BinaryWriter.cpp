#include "Serialization/BinaryWriter.h"

#include "FileSystem/File.h"
#include "FileSystem/ReplacingFile.h"
#include "RTTI/ContainerIterators.h"
#include "RTTI/Object.h"
#include "RTTI/TypeQueries.h"
#include "Serialization/ContainerFormat.h"
#include "Serialization/JSON.h"
#include "Serialization/Nesting.h"
#include "Serialization/Schema.h"
#include "Utility/Hash.h"

#include <array>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Serialization
{
namespace
{

constexpr uint32_t sWriteError = 0;

// Keeps the place of a 64-bit size, and stores in it how many bytes came behind it.
class SizeField
{
public:
    explicit SizeField(Utility::ByteBuffer& ioBuffer) : mBuffer(ioBuffer), mPosition(ioBuffer.GetSize())
    {
        mBuffer.AppendValue(uint64_t{0});
    }

    void Store()
    {
        const uint64_t size = mBuffer.GetSize() - mPosition - sizeof(uint64_t);
        std::memcpy(mBuffer.GetData() + mPosition, &size, sizeof(size));
    }

private:
    Utility::ByteBuffer& mBuffer;
    size_t mPosition;
};

// Encodes the objects of one container. Reads through tables alone, so a container's functions get the objects mutable; they
// leave them unchanged.
class ObjectEncoder
{
public:
    explicit ObjectEncoder(Utility::ErrorState& ioErrors) : mErrors(ioErrors) {}

    bool EncodeObjects(std::span<const RTTI::Object* const> inObjects)
    {
        mData.AppendValue(static_cast<uint64_t>(inObjects.size()));
        for (const RTTI::Object* object : inObjects)
        {
            const size_t start = mData.GetSize();
            const RTTI::Type& type = object->GetType();
            mData.AppendString(type.GetName());
            mSchema.Add(type);
            if (!EncodeCompound(type, object))
                return false;
            AddTableEntry(type, start);
        }
        return true;
    }

    bool EncodeSchema(std::string& outText)
    {
        const RTTI::Object* schema = &mSchema;
        return gWriteObjectsToJSON({&schema, 1}, outText, mErrors);
    }

    const std::vector<ObjectTableEntry>& GetTable() const { return mTable; }
    Utility::ByteBuffer& GetData() { return mData; }

private:
    struct CompoundPlan
    {
        const RTTI::Type* Type;
        std::vector<const RTTI::Property*> Properties;
    };

    void AddTableEntry(const RTTI::Type& inType, size_t inStart)
    {
        const uint64_t size = mData.GetSize() - inStart;
        mTable.push_back({inType.GetName(), inStart, size, {{0, size, Utility::gHash64(mData.GetData() + inStart, size)}}});
    }

    // The type's properties, worked out once a container. Objects mostly come in runs of one class.
    const CompoundPlan& GetPlan(const RTTI::Type& inType)
    {
        if (mLastPlan != nullptr && mLastPlan->Type == &inType)
            return *mLastPlan;
        const auto [position, isNew] = mPlans.try_emplace(&inType);
        if (isNew)
            position->second = {&inType, RTTI::gGetAllProperties(inType)};
        mLastPlan = &position->second;
        return *mLastPlan;
    }

    bool EncodeCompound(const RTTI::Type& inType, const void* inData)
    {
        const NestingScope nesting(mDepth);
        if (!Utility::Check(mErrors, inType.AsCompound()->TreeIndex != RTTI::sNotRegistered, sWriteError,
                            "Unable to write compound of type %s which has not been registered with the RTTI registry",
                            inType.GetName()) ||
            !Utility::Check(mErrors, !nesting.IsTooDeep(), sWriteError,
                            "Unable to write object of type %s: more than %u objects lie in one another", inType.GetName(),
                            sMaxNestedCompounds))
            return false;
        SizeField size(mData);
        for (const RTTI::Property* property : GetPlan(inType).Properties)
        {
            if (!EncodeValue(*property->Type, property->GetData(inData)))
                return false;
        }
        size.Store();
        return true;
    }

    bool EncodeValue(const RTTI::Type& inType, const void* inData)
    {
        switch (inType.GetKind())
        {
        case RTTI::EKind::Compound:
            return EncodeCompound(inType, inData);
        case RTTI::EKind::Primitive:
            EncodePrimitive(inType, inData);
            return true;
        case RTTI::EKind::Enum:
            mData.Append(inData, inType.AsEnum()->SizeType->GetSize());
            return true;
        case RTTI::EKind::Array:
            return EncodeArray(*inType.AsArray(), const_cast<void*>(inData));
        case RTTI::EKind::Map:
            return EncodeMap(*inType.AsMap(), const_cast<void*>(inData));
        case RTTI::EKind::UniquePtr:
            return EncodePointer(*inType.AsPointer(), inData);
        case RTTI::EKind::Set:
            return EncodeSet(*inType.AsSet(), const_cast<void*>(inData));
        }
        return false;
    }

    void EncodePrimitive(const RTTI::Type& inType, const void* inData)
    {
        // The one primitive that isn't plain bytes is a text.
        if (inType.AsPrimitive()->IsPlainBytes)
            mData.Append(inData, inType.GetSize());
        else
            mData.AppendString(*static_cast<const std::string*>(inData));
    }

    bool EncodeArray(const RTTI::ArrayInfo& inInfo, void* inArray)
    {
        const RTTI::Type& elementType = *inInfo.ElementType;
        const uint64_t count = inInfo.GetCount(inArray);
        SizeField size(mData);
        mData.AppendValue(count);
        const RTTI::PrimitiveInfo* primitive = elementType.AsPrimitive();
        if (primitive != nullptr && primitive->IsPlainBytes)
            mData.Append(inInfo.GetData(inArray), count * elementType.GetSize());
        else
        {
            for (uint64_t i = 0; i < count; ++i)
            {
                if (!EncodeValue(elementType, inInfo.GetElement(inArray, i)))
                    return false;
            }
        }
        size.Store();
        return true;
    }

    bool EncodeMap(const RTTI::MapInfo& inInfo, void* inMap)
    {
        SizeField size(mData);
        mData.AppendValue(inInfo.GetCount(inMap));
        const auto iterator = inInfo.CreateIterator(inMap);
        while (!iterator->IsAtEnd())
        {
            RTTI::Value key;
            RTTI::Value value;
            iterator->GetNext(key, value);
            if (!EncodeValue(*key.Type, key.Data) || !EncodeValue(*value.Type, value.Data))
                return false;
        }
        size.Store();
        return true;
    }

    bool EncodeSet(const RTTI::SetInfo& inInfo, void* inSet)
    {
        SizeField size(mData);
        mData.AppendValue(inInfo.GetCount(inSet));
        const auto iterator = inInfo.CreateIterator(inSet);
        while (!iterator->IsAtEnd())
        {
            RTTI::Value element;
            iterator->GetNext(element);
            if (!EncodeValue(*element.Type, element.Data))
                return false;
        }
        size.Store();
        return true;
    }

    bool EncodePointer(const RTTI::PointerInfo& inInfo, const void* inPointer)
    {
        const RTTI::Value pointee = inInfo.Get(inPointer);
        if (pointee.Type == nullptr)
        {
            mData.AppendString(sNullName);
            return true;
        }
        // The class behind a pointer may be one that no property names.
        if (std::exchange(mLastPointee, pointee.Type) != pointee.Type)
            mSchema.Add(*pointee.Type);
        mData.AppendString(pointee.Type->GetName());
        return EncodeValue(*pointee.Type, pointee.Data);
    }

    Utility::ErrorState& mErrors;
    Utility::ByteBuffer mData;
    std::vector<ObjectTableEntry> mTable;
    Schema mSchema;
    std::unordered_map<const RTTI::Type*, CompoundPlan> mPlans;
    const CompoundPlan* mLastPlan = nullptr;
    const RTTI::Type* mLastPointee = nullptr; // its type is in the schema
    uint32_t mDepth = 0;
};

// The two blocks of a container.
struct EncodedContainer
{
    Utility::ByteBuffer Header;
    ObjectEncoder Encoder;

    explicit EncodedContainer(Utility::ErrorState& ioErrors) : Encoder(ioErrors) {}

    bool Encode(std::span<const RTTI::Object* const> inObjects)
    {
        std::string schemaText;
        if (!Encoder.EncodeObjects(inObjects) || !Encoder.EncodeSchema(schemaText))
            return false;
        gAppendHeader({schemaText, Encoder.GetTable()}, Header);
        return true;
    }
};

void gWrite(std::ofstream& ioFile, const Utility::ByteBuffer& inBuffer)
{
    ioFile.write(reinterpret_cast<const char*>(inBuffer.GetData()), static_cast<std::streamsize>(inBuffer.GetSize()));
}

} // namespace

bool gWriteObjectsToFile(const std::string& inPath, std::span<const RTTI::Object* const> inObjects, Utility::ErrorState& ioErrors)
{
    EncodedContainer container(ioErrors);
    if (!container.Encode(inObjects))
        return false;
    std::ofstream file;
    FileSystem::gOpenWrite(file, inPath, std::ios_base::out | std::ios_base::binary | std::ios_base::trunc);
    if (!Utility::Check(ioErrors, file.is_open(), sWriteError, "Unable to open file %s for writing", inPath))
        return false;
    gWrite(file, container.Header);
    gWrite(file, container.Encoder.GetData());
    file.close();
    return Utility::Check(ioErrors, file.good(), sWriteError, "Unable to write file %s", inPath);
}

bool gReplaceFileWithObjects(const std::string& inPath, std::span<const RTTI::Object* const> inObjects,
                             Utility::ErrorState& ioErrors)
{
    EncodedContainer container(ioErrors);
    if (!container.Encode(inObjects))
        return false;
    FileSystem::ReplacingFile file(inPath);
    if (!Utility::Check(ioErrors, file.IsOpen(), sWriteError, "Unable to open file %s for writing", inPath))
        return false;
    file.Write(container.Header.GetData(), container.Header.GetSize());
    file.Write(container.Encoder.GetData().GetData(), container.Encoder.GetData().GetSize());
    return Utility::Check(ioErrors, file.Commit(), sWriteError, "Unable to write file %s", inPath);
}

bool gWriteObjectsToBuffer(Utility::ByteBuffer& ioBuffer, std::span<const RTTI::Object* const> inObjects,
                           Utility::ErrorState& ioErrors)
{
    EncodedContainer container(ioErrors);
    if (!container.Encode(inObjects))
        return false;
    Utility::ByteBuffer& data = container.Encoder.GetData();
    data.Prepend(container.Header.GetData(), container.Header.GetSize());
    // A large container isn't copied to memory that was never touched, which takes longer than to encode it.
    if (ioBuffer.GetSize() == 0)
        ioBuffer = std::move(data);
    else
        ioBuffer.Append(data.GetData(), data.GetSize());
    return true;
}

} // namespace Serialization
