#include "Serialization/ContainerFormat.h"

#include "Utility/Hash.h"

#include <cstring>

namespace Serialization
{
namespace
{

constexpr uint64_t sSectionSize = 3 * sizeof(uint64_t);
constexpr uint64_t sMinEntrySize = 4 * sizeof(uint64_t); // with an empty name and no sections

void gAppendEntry(const ObjectTableEntry& inEntry, Utility::ByteBuffer& ioBuffer)
{
    ioBuffer.AppendString(inEntry.TypeName);
    ioBuffer.AppendValue(inEntry.Offset);
    ioBuffer.AppendValue(inEntry.Size);
    ioBuffer.AppendValue(static_cast<uint64_t>(inEntry.Sections.size()));
    for (const ObjectSection& section : inEntry.Sections)
    {
        ioBuffer.AppendValue(section.Offset);
        ioBuffer.AppendValue(section.Size);
        ioBuffer.AppendValue(section.Hash);
    }
}

bool gReadEntry(MemoryReadStream& ioBlock, ObjectTableEntry& outEntry)
{
    std::string_view name;
    uint64_t sectionCount = 0;
    if (!ioBlock.ReadString(name) || !ioBlock.Read(outEntry.Offset) || !ioBlock.Read(outEntry.Size) ||
        !ioBlock.Read(sectionCount) || sectionCount > ioBlock.GetRemaining() / sSectionSize)
        return false;
    outEntry.TypeName = name;
    outEntry.Sections.resize(sectionCount);
    for (ObjectSection& section : outEntry.Sections)
    {
        if (!ioBlock.Read(section.Offset) || !ioBlock.Read(section.Size) || !ioBlock.Read(section.Hash))
            return false;
    }
    return true;
}

} // namespace

void gAppendHeader(const ContainerHeader& inHeader, Utility::ByteBuffer& ioBuffer)
{
    const size_t start = ioBuffer.GetSize();
    ioBuffer.AppendValue(sContainerMagic);
    ioBuffer.AppendValue(static_cast<uint32_t>(NewestContainerVersion));
    ioBuffer.AppendValue(uint64_t{0}); // the size, once it is known

    const size_t blockStart = start + sHeaderSizeFieldEnd;
    ioBuffer.AppendString(inHeader.SchemaText);
    ioBuffer.AppendValue(static_cast<uint64_t>(inHeader.Objects.size()));
    for (const ObjectTableEntry& entry : inHeader.Objects)
        gAppendEntry(entry, ioBuffer);
    ioBuffer.AppendValue(Utility::gHash64(ioBuffer.GetData() + blockStart, ioBuffer.GetSize() - blockStart));

    const uint64_t blockSize = ioBuffer.GetSize() - blockStart;
    std::memcpy(ioBuffer.GetData() + start + sHeaderWordSize, &blockSize, sizeof(blockSize));
}

bool gIsHeaderSound(const uint8_t* inBlock, uint64_t inSize)
{
    const uint64_t hashed = inSize - sChecksumSize;
    uint64_t checksum = 0;
    std::memcpy(&checksum, inBlock + hashed, sizeof(checksum));
    return Utility::gHash64(inBlock, hashed) == checksum;
}

bool gReadHeader(MemoryReadStream& ioBlock, ContainerHeader& outHeader)
{
    uint64_t count = 0;
    if (!ioBlock.ReadString(outHeader.SchemaText) || !ioBlock.Read(count) || count > ioBlock.GetRemaining() / sMinEntrySize)
        return false;
    outHeader.Objects.resize(count);
    for (ObjectTableEntry& entry : outHeader.Objects)
    {
        if (!gReadEntry(ioBlock, entry))
            return false;
    }
    return true;
}

} // namespace Serialization
