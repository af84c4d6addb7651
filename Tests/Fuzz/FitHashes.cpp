#include "Tests/Fuzz/FitHashes.h"

#include "Serialization/ContainerFormat.h"
#include "Serialization/MemoryReadStream.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

namespace Fuzz
{
namespace
{

using namespace Serialization;

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

// REQUIRES: a whole container.
size_t gGetDataPlace(const std::vector<uint8_t>& inContainer)
{
    uint64_t headerSize = 0;
    std::memcpy(&headerSize, inContainer.data() + sHeaderWordSize, sizeof(headerSize));
    return sHeaderSizeFieldEnd + headerSize;
}

} // namespace

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

std::vector<uint8_t> gGetContainerData(const std::vector<uint8_t>& inContainer)
{
    return {inContainer.begin() + static_cast<ptrdiff_t>(gGetDataPlace(inContainer)), inContainer.end()};
}

std::vector<uint8_t> gReplaceContainerData(std::vector<uint8_t> inContainer, const std::vector<uint8_t>& inData)
{
    const size_t place = gGetDataPlace(inContainer);
    std::copy_n(inData.begin(), std::min(inData.size(), inContainer.size() - place),
                inContainer.begin() + static_cast<ptrdiff_t>(place));
    gMakeHashesFit(inContainer);
    return inContainer;
}

} // namespace Fuzz
