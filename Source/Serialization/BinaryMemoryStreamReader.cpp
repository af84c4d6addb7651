#include "Serialization/BinaryMemoryStreamReader.h"

namespace Serialization
{
namespace
{

bool gExpectAvailable(bool inIsAvailable, uint64_t inCount, ReaderErrorState& ioErrors)
{
    return Check(ioErrors, inIsAvailable, EReaderError::Corrupt,
                 "The buffer is corrupt: expected %lld bytes available for reading", static_cast<long long>(inCount));
}

} // namespace

bool BinaryMemoryStreamReader::Open(MemoryReadStream& ioStream, ReaderErrorState& ioErrors)
{
    ioStream.SetPosition(0);
    const bool isWhole = ioStream.Read(mMagic) && ioStream.Read(mVersion);
    if (!Check(ioErrors, isWhole && mMagic == sContainerMagic, EReaderError::NotAFile,
               "The buffer is not a Brenvaldoris buffer, or it is corrupted") ||
        !Check(ioErrors, mVersion >= FirstContainerVersion && mVersion <= NewestContainerVersion,
               EReaderError::UnsupportedVersion, "The file has an unsupported version number (%d)", static_cast<int>(mVersion)))
        return false;
    uint64_t size = 0;
    if (!gExpectAvailable(ioStream.Read(size), sizeof(size), ioErrors) ||
        !Check(ioErrors, size >= sMinHeaderSize, EReaderError::Corrupt, "The buffer is corrupt: unable to read header"))
        return false;
    const uint8_t* block = ioStream.Take(size);
    mDataOffset = ioStream.GetPosition();
    if (!gExpectAvailable(block != nullptr, size, ioErrors) || !ReadHeaderBlock(block, size, ioErrors))
        return false;
    mStream = &ioStream;
    return true;
}

std::unique_ptr<RTTI::Object> BinaryMemoryStreamReader::ReadObject(const RTTI::Type& inType, ReaderErrorState& ioErrors)
{
    const ObjectTableEntry* entry = mStream != nullptr ? FindEntry(inType) : nullptr;
    if (entry == nullptr)
        return nullptr;
    mStream->SetPosition(mDataOffset);
    const bool isInside = entry->Offset <= mStream->GetRemaining() && entry->Size <= mStream->GetRemaining() - entry->Offset;
    if (!Check(ioErrors, isInside, EReaderError::Corrupt, "Failed to read object. File appears to be truncated."))
        return nullptr;
    MemoryReadStream object(mStream->GetBase() + mDataOffset + entry->Offset, entry->Size);
    return ReadTableObject(*entry, object, ioErrors);
}

bool BinaryMemoryStreamReader::ReadObjects(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors)
{
    if (!Check(ioErrors, mStream != nullptr, EReaderError::Corrupt, "The buffer is corrupt: unable to read header"))
        return false;
    MemoryReadStream block(mStream->GetBase() + mDataOffset, mStream->GetSize() - mDataOffset);
    const bool isRead = ReadDataBlock(block, ioObjects, ioErrors);
    mStream->SetPosition(mDataOffset + block.GetPosition());
    return isRead;
}

bool gReadObjectsFromBuffer(MemoryReadStream& ioStream, const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                            const CompatibilityHandlers& inHandlers, ReadObjectMode inMode,
                            std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors)
{
    BinaryMemoryStreamReader reader(inRegistry, inCreators, inHandlers, inMode);
    return reader.Open(ioStream, ioErrors) && reader.ReadObjects(ioObjects, ioErrors);
}

} // namespace Serialization
