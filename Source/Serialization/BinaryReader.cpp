// The frame of a container: header, table, checksums and roots. The objects in it: BinaryReaderObjects.cpp.
#include "Serialization/BinaryReader.h"

#include "RTTI/TypeQueries.h"
#include "Serialization/JSON.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <utility>

namespace Serialization
{

BinaryReader::BinaryReader(const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                           const CompatibilityHandlers& inHandlers, ReadObjectMode inMode)
    : mRegistry(inRegistry),
      mCreators(inCreators),
      mHandlers(inHandlers),
      mMode(inMode),
      mSchema(inRegistry)
{
}

bool BinaryReader::ReadHeaderBlock(const uint8_t* inBlock, uint64_t inSize, ReaderErrorState& ioErrors)
{
    if (!Check(ioErrors, gIsHeaderSound(inBlock, inSize), EReaderError::Corrupt,
               "The buffer is corrupted: checksum check failed"))
        return false;
    MemoryReadStream block(inBlock, inSize - sChecksumSize);
    ContainerHeader header;
    if (!Check(ioErrors, gReadHeader(block, header), EReaderError::Corrupt, "The buffer is corrupt: unable to read header") ||
        !ReadSchema(header.SchemaText, ioErrors))
        return false;
    mTable = std::move(header.Objects);
    return true;
}

bool BinaryReader::ReadSchema(std::string_view inText, ReaderErrorState& ioErrors)
{
    const size_t errorCount = ioErrors.GetEntries().size();
    std::vector<std::unique_ptr<RTTI::Object>> objects;
    const bool isRead =
        gReadObjectsFromJSON(inText, mRegistry, TypeCreators(), ReadObjectMode::SkipUnknownTypes, objects, ioErrors);
    const auto position = std::find_if(objects.begin(), objects.end(),
                                       [](const std::unique_ptr<RTTI::Object>& inObject)
                                       { return RTTI::gIsDerivedFrom(inObject->GetType(), RTTI::gTypeOf<Schema>()); });
    if (!isRead || position == objects.end())
    {
        // The one word on it, unless the text itself was found at fault.
        static_cast<void>(
            Check(ioErrors, ioErrors.GetEntries().size() != errorCount, EReaderError::Corrupt, "The schema was not found"));
        return false;
    }
    mSchema.Set(std::unique_ptr<Schema>(static_cast<Schema*>(position->release())));
    mNamedTypes.clear();
    return true;
}

const ObjectTableEntry* BinaryReader::FindEntry(const RTTI::Type& inType) const
{
    const auto position = std::find_if(mTable.begin(), mTable.end(),
                                       [&](const ObjectTableEntry& inEntry)
                                       {
                                           const RTTI::Type* found = mRegistry.FindType(inEntry.TypeName);
                                           return found != nullptr && RTTI::gIsDerivedFrom(*found, inType);
                                       });
    return position != mTable.end() ? &*position : nullptr;
}

namespace
{

// Whether the sections lie in the bytes at inData, in which the object begins at inOffset, and hash to what the table says.
// Sections don't overlap, so those of a sound table never take more than ioUnhashed bytes, which begins as the size of all the
// bytes; without this bound a small table could ask for the hash of a large file a million times.
bool gAreSectionsSound(const ObjectTableEntry& inEntry, const uint8_t* inData, uint64_t inOffset, uint64_t inSize,
                       uint64_t& ioUnhashed, ReaderErrorState& ioErrors)
{
    for (const ObjectSection& section : inEntry.Sections)
    {
        const bool isInside =
            inOffset <= inSize && section.Offset <= inSize - inOffset && section.Size <= inSize - inOffset - section.Offset;
        if (!Check(ioErrors, isInside, EReaderError::Corrupt, "Failed to read object. File appears to be truncated.") ||
            !Check(ioErrors, section.Size <= ioUnhashed, EReaderError::Corrupt,
                   "Failed to read object. The sections of the file overlap.") ||
            !Check(ioErrors, Utility::gHash64(inData + inOffset + section.Offset, section.Size) == section.Hash,
                   EReaderError::Corrupt, "Failed to read object. Checksum mismatch."))
            return false;
        ioUnhashed -= section.Size;
    }
    return true;
}

} // namespace

bool BinaryReader::ReadDataBlock(MemoryReadStream& ioBlock, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                                 ReaderErrorState& ioErrors)
{
    uint64_t unhashed = ioBlock.GetSize();
    for (const ObjectTableEntry& entry : mTable)
    {
        if (!gAreSectionsSound(entry, ioBlock.GetBase(), entry.Offset, ioBlock.GetSize(), unhashed, ioErrors))
            return false;
    }
    // No hash covers the count of the roots. The table's is hashed, so that a damaged count can't lose objects in silence.
    uint32_t count = 0;
    return ReadRootCount(ioBlock, count, ioErrors) &&
           Check(ioErrors, count == mTable.size(), EReaderError::Corrupt,
                 "The data are corrupt: they hold %u objects, and the table %zu", count, mTable.size()) &&
           ReadRoots(ioBlock, count, ioObjects, ioErrors);
}

bool BinaryReader::ReadRootCount(MemoryReadStream& ioStream, uint32_t& outCount, ReaderErrorState& ioErrors)
{
    uint64_t count = 0;
    if (!ExpectBytes(ioStream.Read(count), ioErrors))
        return false;
    outCount = static_cast<uint32_t>(count);
    return true;
}

bool BinaryReader::ReadRoots(MemoryReadStream& ioStream, uint32_t inCount, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                             ReaderErrorState& ioErrors)
{
    for (uint32_t i = 0; i < inCount; ++i)
    {
        std::unique_ptr<RTTI::Object> root = ReadRoot(ioStream, ioErrors);
        if (root == nullptr)
            return false;
        ioObjects.push_back(std::move(root));
    }
    return true;
}

std::unique_ptr<RTTI::Object> BinaryReader::ReadTableObject(const ObjectTableEntry& inEntry, MemoryReadStream& ioBytes,
                                                            ReaderErrorState& ioErrors)
{
    uint64_t unhashed = ioBytes.GetSize();
    if (!gAreSectionsSound(inEntry, ioBytes.GetBase(), 0, ioBytes.GetSize(), unhashed, ioErrors))
        return nullptr;
    return ReadRoot(ioBytes, ioErrors);
}

std::unique_ptr<RTTI::Object> BinaryReader::ReadRoot(MemoryReadStream& ioStream, ReaderErrorState& ioErrors)
{
    std::string_view name;
    if (!ExpectBytes(ioStream.ReadString(name), ioErrors) ||
        !Check(ioErrors, name != sNullName, EReaderError::Corrupt, "Encountered null root object"))
        return nullptr;
    mParticipants.clear();
    RTTI::OwnedValue object;
    if (!ReadObject(ioStream, name, object, ioErrors) || !object ||
        !Check(ioErrors, RTTI::gIsDerivedFrom(*object.GetType(), RTTI::gTypeOf<RTTI::Object>()), EReaderError::Corrupt,
               "Root objects must be of type RTTI::Object"))
        return nullptr;
    std::unique_ptr<RTTI::Object> root(static_cast<RTTI::Object*>(object.Release()));
    return FinishRoot(*root, ioErrors) ? std::move(root) : nullptr;
}

bool BinaryReader::FinishRoot(RTTI::Object& ioRoot, ReaderErrorState& ioErrors)
{
    return std::all_of(mParticipants.begin(), mParticipants.end(),
                       [&](CompatibilityHandler* inHandler) { return inHandler->OnRootObjectRead(ioRoot, ioErrors); });
}

} // namespace Serialization
