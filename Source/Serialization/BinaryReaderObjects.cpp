// How a reader meets the classes of the file: objects by type name, compounds, and properties that are no longer there.
#include "RTTI/TypeQueries.h"
#include "Serialization/BinaryReader.h"
#include "Serialization/Nesting.h"

#include <algorithm>
#include <utility>

namespace Serialization
{

const BinaryReader::NamedType& BinaryReader::FindNamedType(std::string_view inName)
{
    if (const auto position = mNamedTypes.find(inName); position != mNamedTypes.end())
        return position->second;
    const NamedType named{mRegistry.FindType(inName), mSchema.FindCompound(inName)};
    return mNamedTypes.emplace(inName, named).first->second;
}

// The object stays empty where its type isn't known and that is no failure.
bool BinaryReader::ReadObject(MemoryReadStream& ioStream, std::string_view inTypeName, RTTI::OwnedValue& outObject,
                              ReaderErrorState& ioErrors)
{
    uint64_t end = 0;
    if (!ReadSize(ioStream, end, ioErrors))
        return false;
    const NamedType& named = FindNamedType(inTypeName);
    if (named.Type == nullptr)
    {
        ioStream.SetPosition(end);
        return Check(ioErrors, mMode == ReadObjectMode::SkipUnknownTypes, EReaderError::Incompatible,
                     "The type %s was not registered into the system", std::string(inTypeName));
    }
    const RTTI::Type& type = *named.Type;
    if (type.GetKind() != RTTI::EKind::Compound)
        return Check(ioErrors, false, EReaderError::Incompatible,
                     "Compatibility issue: Object %s used to be a compound, but is now of type %s", std::string(inTypeName),
                     type.GetName());
    if (!ExpectRecord(named.Plan, inTypeName, ioErrors))
        return false;

    CompatibilityHandler* handler = mHandlers.Find(type);
    if (handler != nullptr)
    {
        if (!handler->TryCreateObject(*this, ioStream, type, inTypeName, *named.Plan->Schema, outObject, ioErrors))
            return false;
        if (outObject)
        {
            AddParticipant(*handler);
            ioStream.SetPosition(end);
            return true;
        }
    }
    RTTI::OwnedValue object = mCreators.Create(type);
    if (!ExpectCreated(object, type, ioErrors) || !ReadCompound(ioStream, object.GetValue(), *named.Plan, handler, ioErrors) ||
        !ExpectEnd(ioStream, end, ioErrors))
        return false;
    outObject = std::move(object);
    return true;
}

bool BinaryReader::ReadCompound(MemoryReadStream& ioStream, const RTTI::Value& ioValue, CompoundPlan& ioPlan,
                                CompatibilityHandler* inHandler, ReaderErrorState& ioErrors)
{
    const RTTI::Type& type = *ioValue.Type;
    const NestingScope nesting(mDepth);
    if (!Check(ioErrors, !nesting.IsTooDeep(), EReaderError::Corrupt,
               "The data are corrupt: more than %u objects lie in one another", sMaxNestedCompounds) ||
        !Check(ioErrors, ioPlan.Type == nullptr || RTTI::gIsSameType(*ioPlan.Type, type), EReaderError::Corrupt,
               "The data are corrupt: an object of type %s stands under the name of another", type.GetName()))
        return false;

    const int32_t fileVersion = ioPlan.Schema->Version;
    const int32_t ownVersion = type.AsCompound()->Version;
    if (!Check(ioErrors, fileVersion <= ownVersion, EReaderError::UnsupportedVersion,
               "Compatibility issue: File contains object of type %s that has a newer version number (%X) than the runtime (%X)",
               type.GetName(), fileVersion, ownVersion) ||
        !Check(ioErrors, inHandler != nullptr || fileVersion == ownVersion, EReaderError::Incompatible,
               "Compatibility issue: Version number of object of type %s has changed from %X to %X", type.GetName(), fileVersion,
               ownVersion))
        return false;

    for (PropertyPlan& property : ioPlan.Properties)
    {
        if (!ReadProperty(ioStream, ioValue, ioPlan, property, inHandler, ioErrors))
            return false;
    }
    if (inHandler == nullptr)
        return true;
    if (!inHandler->OnCompoundRead(type, ioValue.Data, *ioPlan.Schema, ioErrors))
        return false;
    AddParticipant(*inHandler);
    return true;
}

bool BinaryReader::ReadProperty(MemoryReadStream& ioStream, const RTTI::Value& ioValue, CompoundPlan& ioPlan,
                                PropertyPlan& ioProperty, CompatibilityHandler* inHandler, ReaderErrorState& ioErrors)
{
    if (ioProperty.Target == nullptr)
        return SkipRemovedProperty(ioStream, ioValue, ioPlan, ioProperty, inHandler, ioErrors);
    const RTTI::Property& target = *ioProperty.Target;
    const TypeSchema& fileType = ioProperty.Schema->Type;
    if (!ioProperty.IsMatched)
    {
        ioProperty.IsMatched = mSchema.IsSameType(*target.Type, fileType);
        if (!Check(ioErrors, ioProperty.IsMatched, EReaderError::Incompatible,
                   "Compatibility issue: Property %s has switched from type %s to type %s. This is not supported.",
                   ioProperty.Schema->Name, fileType.TypeName, target.Type->GetName()))
            return false;
    }
    return ReadValue(ioStream, {target.Type, target.GetData(ioValue.Data)}, fileType, ioErrors);
}

bool BinaryReader::SkipRemovedProperty(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const CompoundPlan& inPlan,
                                       const PropertyPlan& inProperty, CompatibilityHandler* inHandler,
                                       ReaderErrorState& ioErrors)
{
    if (inHandler != nullptr)
    {
        const uint64_t start = ioStream.GetPosition();
        const bool isFine = inHandler->ReadRemovedProperty(*this, ioStream, *ioValue.Type, ioValue.Data, inPlan.Name,
                                                           *inPlan.Schema, *inProperty.Schema, ioErrors);
        if (!isFine)
            return false;
        ioStream.SetPosition(start);
    }
    return SkipValue(ioStream, inProperty.Schema->Type, ioErrors);
}

void BinaryReader::AddParticipant(CompatibilityHandler& inHandler)
{
    if (std::find(mParticipants.begin(), mParticipants.end(), &inHandler) == mParticipants.end())
        mParticipants.push_back(&inHandler);
}

} // namespace Serialization
