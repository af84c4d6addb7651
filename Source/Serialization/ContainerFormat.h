// The frame of a container: what stands around the objects, in memory and on file. Writer and reader of each record stand side by
// side in ContainerFormat.cpp; Docs/BinaryContainer.md describes the whole format.
//
// Threads: as plain data.
#pragma once

#include "Serialization/MemoryReadStream.h"
#include "Utility/ByteBuffer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Serialization
{

// The first eight bytes are two 32-bit numbers, which read as one are 0x4F450C25D in a file of the newest version.
inline constexpr uint32_t sContainerMagic = 0xF450C25D;
inline constexpr uint64_t sHeaderWordSize = 2 * sizeof(uint32_t);

enum EContainerVersion : uint32_t
{
    FirstContainerVersion = 1,  // checksum of the whole file at its end, a CRC-64
    HashedContainerVersion = 2, // the same with XXH64
    TabledContainerVersion = 3, // header block with an object table, and a hash per object
    NewestContainerVersion = 4  // laid out as 3
};

// The header block of versions 3 and 4 comes behind its size.
inline constexpr uint64_t sHeaderSizeFieldEnd = sHeaderWordSize + sizeof(uint64_t);
inline constexpr uint64_t sChecksumSize = sizeof(uint64_t);
inline constexpr uint64_t sMinHeaderSize = sChecksumSize;

// What stands for a null pointer in the place of a type name.
inline constexpr std::string_view sNullName = "null";

// A part of an object, and what its bytes hash to.
struct ObjectSection
{
    uint64_t Offset = 0; // from the start of the object, in bytes
    uint64_t Size = 0;
    uint64_t Hash = 0; // XXH64, seed 0
};

// Where one root object stands.
struct ObjectTableEntry
{
    std::string TypeName; // full name
    uint64_t Offset = 0;  // of the object's type name, from the start of the data block
    uint64_t Size = 0;    // type name and value
    std::vector<ObjectSection> Sections;
};

// What is in a header block, apart from its checksum. The text of one that was read lies in the bytes of the block.
struct ContainerHeader
{
    std::string_view SchemaText;
    std::vector<ObjectTableEntry> Objects;
};

// Appends everything that stands in front of the data block.
void gAppendHeader(const ContainerHeader& inHeader, Utility::ByteBuffer& ioBuffer);

// Whether the last eight bytes of a header block are the hash of those in front. REQUIRES: at least sMinHeaderSize bytes.
[[nodiscard]] bool gIsHeaderSound(const uint8_t* inBlock, uint64_t inSize);

// Reads the schema text and the table from a block without its checksum. False where one goes beyond the end.
[[nodiscard]] bool gReadHeader(MemoryReadStream& ioBlock, ContainerHeader& outHeader);

} // namespace Serialization
