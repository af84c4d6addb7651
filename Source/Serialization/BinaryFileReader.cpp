#include "Serialization/BinaryFileReader.h"

#include "FileSystem/File.h"
#include "Utility/Hash.h"

#include <cstring>

namespace Serialization
{
namespace
{

// What a file of version 1 or 2 ends with, of all the bytes in front.
uint64_t gComputeChecksum(uint32_t inVersion, const uint8_t* inData, uint64_t inSize)
{
    return inVersion == FirstContainerVersion ? Utility::gCRC64(inData, inSize, 0) : Utility::gHash64(inData, inSize);
}

bool gExpectAvailable(bool inIsAvailable, uint64_t inCount, ReaderErrorState& ioErrors)
{
    return Check(ioErrors, inIsAvailable, EReaderError::Corrupt, "The file is corrupt: expected %lld bytes available for reading",
                 static_cast<long long>(inCount));
}

} // namespace

bool BinaryFileReader::Open(const std::string& inPath, ReaderErrorState& ioErrors)
{
    const Utility::ErrorContextScope context(&ioErrors, inPath);
    mPath = inPath;
    mIsOpen = OpenStream(ioErrors) && ReadHeaderWord(ioErrors) && (mVersion < TabledContainerVersion || ReadHeader(ioErrors));
    return mIsOpen;
}

bool BinaryFileReader::OpenStream(ReaderErrorState& ioErrors)
{
    if (!Check(ioErrors, FileSystem::gExists(mPath), EReaderError::FileNotFound, "The file %s does not exist", mPath) ||
        !Check(ioErrors, FileSystem::gGetFileSize(mPath, mFileSize), EReaderError::FileNotAccessible,
               "Unable to determine size of file %s", mPath))
        return false;
    FileSystem::gOpenRead(mFile, mPath, std::ios_base::in | std::ios_base::binary);
    return Check(ioErrors, mFile.is_open(), EReaderError::FileNotAccessible, "Unable to open file %s for reading", mPath);
}

bool BinaryFileReader::ReadHeaderWord(ReaderErrorState& ioErrors)
{
    Utility::ByteBuffer word;
    if (!gExpectAvailable(ReadBytes(0, sHeaderWordSize, word), sHeaderWordSize, ioErrors))
        return false;
    std::memcpy(&mMagic, word.GetData(), sizeof(mMagic));
    std::memcpy(&mVersion, word.GetData() + sizeof(mMagic), sizeof(mVersion));
    return Check(ioErrors, mMagic == sContainerMagic, EReaderError::NotAFile,
                 "The file is not a Brenvaldoris file, or it is corrupted") &&
           Check(ioErrors, mVersion >= FirstContainerVersion && mVersion <= NewestContainerVersion,
                 EReaderError::UnsupportedVersion, "The file has an unsupported version number (%d)", static_cast<int>(mVersion));
}

bool BinaryFileReader::ReadHeader(ReaderErrorState& ioErrors)
{
    Utility::ByteBuffer bytes;
    uint64_t size = 0;
    if (!gExpectAvailable(ReadBytes(sHeaderWordSize, sizeof(size), bytes), sizeof(size), ioErrors))
        return false;
    std::memcpy(&size, bytes.GetData(), sizeof(size));
    if (!Check(ioErrors, size >= sMinHeaderSize, EReaderError::Corrupt, "The file is corrupt: unable to read header") ||
        !gExpectAvailable(ReadBytes(sHeaderSizeFieldEnd, size, bytes), size, ioErrors))
        return false;
    mDataOffset = sHeaderSizeFieldEnd + size;
    return ReadHeaderBlock(bytes.GetData(), size, ioErrors);
}

bool BinaryFileReader::ReadBytes(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes)
{
    // Before anything of that size is allocated.
    if (!mFile.is_open() || inOffset > mFileSize || inSize > mFileSize - inOffset || !outBytes.TryResize(inSize))
        return false;
    mFile.clear();
    mFile.seekg(static_cast<std::streamoff>(inOffset));
    mFile.read(reinterpret_cast<char*>(outBytes.GetData()), static_cast<std::streamsize>(inSize));
    return mFile.good() && static_cast<uint64_t>(mFile.gcount()) == inSize;
}

std::unique_ptr<RTTI::Object> BinaryFileReader::ReadObject(const RTTI::Type& inType, ReaderErrorState& ioErrors)
{
    const ObjectTableEntry* entry = mIsOpen ? FindEntry(inType) : nullptr;
    if (entry == nullptr)
        return nullptr;
    Utility::ByteBuffer bytes;
    // The data block's offset lies in the file, so what may be added to it is known.
    if (!Check(ioErrors, entry->Offset <= mFileSize - mDataOffset && ReadBytes(mDataOffset + entry->Offset, entry->Size, bytes),
               EReaderError::Corrupt, "There was an error reading from file"))
        return nullptr;
    MemoryReadStream stream(bytes.GetData(), bytes.GetSize());
    std::unique_ptr<RTTI::Object> object = ReadTableObject(*entry, stream, ioErrors);
    // The table and the object itself each name a class, and the caller relies on the one that it asked for.
    if (object != nullptr && !Check(ioErrors, RTTI::gIsDerivedFrom(object->GetType(), inType), EReaderError::Corrupt,
                                    "The data are corrupt: an object is of another class than the table says"))
        return nullptr;
    return object;
}

bool BinaryFileReader::ReadObjects(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors)
{
    if (!Check(ioErrors, mIsOpen, EReaderError::Corrupt, "There was an error reading from file"))
        return false;
    if (mVersion < TabledContainerVersion)
        return ReadObjectsWithoutTable(ioObjects, ioErrors);
    Utility::ByteBuffer bytes;
    if (!Check(ioErrors, ReadBytes(mDataOffset, mFileSize - mDataOffset, bytes), EReaderError::Corrupt,
               "There was an error reading from file"))
        return false;
    MemoryReadStream stream(bytes.GetData(), bytes.GetSize());
    return ReadDataBlock(stream, ioObjects, ioErrors);
}

bool BinaryFileReader::ReadObjectsWithoutTable(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors)
{
    Utility::ByteBuffer bytes;
    if (!Check(ioErrors, ReadBytes(0, mFileSize, bytes), EReaderError::Corrupt, "There was an error reading from file") ||
        !gExpectAvailable(mFileSize >= sHeaderWordSize + sChecksumSize, sChecksumSize, ioErrors))
        return false;
    const uint64_t checked = mFileSize - sChecksumSize;
    uint64_t checksum = 0;
    std::memcpy(&checksum, bytes.GetData() + checked, sizeof(checksum));
    if (!Check(ioErrors, gComputeChecksum(mVersion, bytes.GetData(), checked) == checksum, EReaderError::Corrupt,
               "The buffer is possibly corrupted: CRC check failed"))
        return false;

    MemoryReadStream stream(bytes.GetData(), checked);
    stream.SetPosition(sHeaderWordSize);
    std::string_view schemaText;
    uint32_t count = 0;
    return Check(ioErrors, stream.ReadString(schemaText), EReaderError::Corrupt, "The file is corrupt: unable to read header") &&
           ReadSchema(schemaText, ioErrors) && ReadRootCount(stream, count, ioErrors) &&
           ReadRoots(stream, count, ioObjects, ioErrors);
}

bool gReadObjectsFromFile(const std::string& inPath, const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                          const CompatibilityHandlers& inHandlers, ReadObjectMode inMode,
                          std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors)
{
    BinaryFileReader reader(inRegistry, inCreators, inHandlers, inMode);
    return reader.Open(inPath, ioErrors) && reader.ReadObjects(ioObjects, ioErrors);
}

} // namespace Serialization
