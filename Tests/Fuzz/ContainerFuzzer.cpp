// Any bytes as a container, as they are and with hashes that were made to fit: from memory, and from a file of any version.
#include "Serialization/BinaryFileReader.h"
#include "Tests/Fuzz/ShopWorld.h"
#include "Utility/Hash.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace
{

using namespace Serialization;
using Fuzz::gExpect;

template <class T>
void gStore(const uint8_t* inPlace, T inValue)
{
    std::memcpy(const_cast<uint8_t*>(inPlace), &inValue, sizeof(inValue));
}

void gFitSections(MemoryReadStream& ioBlock, std::span<const uint8_t> inData)
{
    std::string_view text;
    uint64_t entryCount = 0;
    if (!ioBlock.ReadString(text) || !ioBlock.Read(entryCount))
        return;
    for (; entryCount > 0; --entryCount)
    {
        uint64_t entryOffset = 0;
        uint64_t entrySize = 0;
        uint64_t sectionCount = 0;
        if (!ioBlock.ReadString(text) || !ioBlock.Read(entryOffset) || !ioBlock.Read(entrySize) || !ioBlock.Read(sectionCount))
            return;
        for (; sectionCount > 0; --sectionCount)
        {
            uint64_t offset = 0;
            uint64_t size = 0;
            if (!ioBlock.Read(offset) || !ioBlock.Read(size))
                return;
            const uint8_t* hash = ioBlock.Take(sizeof(uint64_t));
            if (hash == nullptr)
                return;
            const uint64_t start = entryOffset + offset;
            if (start <= inData.size() && size <= inData.size() - start)
                gStore(hash, Utility::gHash64(inData.data() + start, size));
        }
    }
}

void gMakeHashesFit(std::vector<uint8_t>& ioFile)
{
    if (ioFile.size() < sHeaderSizeFieldEnd)
        return;
    uint32_t version = 0;
    std::memcpy(&version, ioFile.data() + sizeof(version), sizeof(version));
    if (version < TabledContainerVersion)
    {
        const size_t hashed = ioFile.size() - sChecksumSize;
        gStore(ioFile.data() + hashed, version == FirstContainerVersion ? Utility::gCRC64(ioFile.data(), hashed, 0)
                                                                        : Utility::gHash64(ioFile.data(), hashed));
        return;
    }
    uint64_t headerSize = 0;
    std::memcpy(&headerSize, ioFile.data() + sHeaderWordSize, sizeof(headerSize));
    if (headerSize < sMinHeaderSize || headerSize > ioFile.size() - sHeaderSizeFieldEnd)
        return;
    const std::span<uint8_t> content = std::span(ioFile).subspan(sHeaderSizeFieldEnd);
    const size_t hashed = headerSize - sChecksumSize;
    MemoryReadStream block(content.data(), hashed);
    gFitSections(block, content.subspan(headerSize));
    gStore(content.data() + hashed, Utility::gHash64(content.data(), hashed));
}

void gRead(const std::vector<uint8_t>& inBytes, ReadObjectMode inMode)
{
    Fuzz::Objects objects;
    ReaderErrorState errors;
    if (Fuzz::gReadContainer(inBytes.data(), inBytes.size(), inMode, objects, errors))
        Fuzz::gExpectRoundTrip(objects);
    else
        gExpect(inMode != ReadObjectMode::Strict || !errors.GetEntries().empty());
}

// A file in memory that the reader opens by name.
class MemoryFile
{
public:
    MemoryFile() : mFile(memfd_create("container", MFD_CLOEXEC)), mPath("/proc/self/fd/" + std::to_string(mFile)) {}

    const std::string& Hold(const std::vector<uint8_t>& inBytes)
    {
        gExpect(ftruncate(mFile, 0) == 0 &&
                pwrite(mFile, inBytes.data(), inBytes.size(), 0) == static_cast<ssize_t>(inBytes.size()));
        return mPath;
    }

private:
    int mFile;
    std::string mPath;
};

void gReadFile(const std::vector<uint8_t>& inBytes)
{
    static MemoryFile sFile;
    static const TypeCreators sCreators;
    static const CompatibilityHandlers sHandlers;
    BinaryFileReader reader(Fuzz::gGetShopRegistry(), sCreators, sHandlers, ReadObjectMode::Strict);
    ReaderErrorState errors;
    if (!reader.Open(sFile.Hold(inBytes), errors))
    {
        gExpect(!errors.GetEntries().empty());
        return;
    }
    const std::unique_ptr<RTTI::Object> tool = reader.ReadObject(RTTI::gTypeOf<Shop::Tool>(), errors);
    gExpect(tool == nullptr || reader.ContainsObject(RTTI::gTypeOf<Shop::Tool>()));
    Fuzz::Objects objects;
    gExpect(reader.ReadObjects(objects, errors) || !errors.GetEntries().empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    std::vector<uint8_t> bytes(inData, inData + inSize);
    gRead(bytes, ReadObjectMode::Strict);
    gMakeHashesFit(bytes);
    gRead(bytes, ReadObjectMode::Strict);
    gRead(bytes, ReadObjectMode::SkipUnknownTypes);
    gReadFile(bytes);
    return 0;
}
