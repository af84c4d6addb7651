// Reads the objects of a container, led by the schema that the container brought along: the file's properties are walked in the
// file's order, and each goes to the field of its name.
//
// A base of BinaryFileReader and BinaryMemoryStreamReader, which bring the bytes. Compatibility handlers get a reader to read
// values with.
// Threads: one at a time. Ownership: the caller; registry, creators and handlers outlive the reader. Invariant: whatever the
// bytes are, reading ends with objects or with an error; no length is trusted before it was compared with what remains.
#pragma once

#include "RTTI/Object.h"
#include "RTTI/Registry.h"
#include "Serialization/CompatibilityHandler.h"
#include "Serialization/ContainerFormat.h"
#include "Serialization/FileSchema.h"
#include "Serialization/MemoryReadStream.h"
#include "Serialization/PrimitiveKind.h"
#include "Serialization/ReadObjectMode.h"
#include "Serialization/ReaderErrorState.h"
#include "Serialization/TypeCreators.h"

#include <memory>
#include <vector>

namespace Serialization
{

class BinaryReader
{
public:
    virtual ~BinaryReader() = default;

    BinaryReader(const BinaryReader&) = delete;
    BinaryReader& operator=(const BinaryReader&) = delete;

    // Whether the object table has an object of that class or of one below it. Always false for versions 1 and 2, which have
    // none.
    [[nodiscard]] bool ContainsObject(const RTTI::Type& inType) const { return FindEntry(inType) != nullptr; }

    // Reads the value at the stream's position, which the schema says is of inFileType, into ioValue. For compatibility handlers
    // that want what ReadRemovedProperty offers them.
    [[nodiscard]] bool ReadValue(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                 ReaderErrorState& ioErrors);

protected:
    BinaryReader(const RTTI::Registry& inRegistry, const TypeCreators& inCreators, const CompatibilityHandlers& inHandlers,
                 ReadObjectMode inMode);

    // The steps of reading a container, for the classes that bring the bytes.

    // Takes the schema and the table from a header block, checksum included.
    [[nodiscard]] bool ReadHeaderBlock(const uint8_t* inBlock, uint64_t inSize, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadSchema(std::string_view inText, ReaderErrorState& ioErrors);

    // All roots of a data block, whose hashes are checked before the first is decoded.
    [[nodiscard]] bool ReadDataBlock(MemoryReadStream& ioBlock, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                                     ReaderErrorState& ioErrors);
    // The low 32 bits of the 64 in front of the roots.
    [[nodiscard]] static bool ReadRootCount(MemoryReadStream& ioStream, uint32_t& outCount, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadRoots(MemoryReadStream& ioStream, uint32_t inCount,
                                 std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors);
    // The object of one table entry. REQUIRES: ioBytes holds the bytes of the entry and no others.
    [[nodiscard]] std::unique_ptr<RTTI::Object> ReadTableObject(const ObjectTableEntry& inEntry, MemoryReadStream& ioBytes,
                                                                ReaderErrorState& ioErrors);

    // The first entry of the class or of one below it, or null.
    [[nodiscard]] const ObjectTableEntry* FindEntry(const RTTI::Type& inType) const;

    uint32_t mMagic = 0;
    uint32_t mVersion = 0;
    uint64_t mDataOffset = 0; // of the data block, from the start of the container

private:
    // What reading an object by its type name needs to know, worked out once a name.
    struct NamedType
    {
        const RTTI::Type* Type = nullptr; // null for a name that nobody registered
        CompoundPlan* Plan = nullptr;     // null where the schema lacks it
    };

    // Roots
    [[nodiscard]] std::unique_ptr<RTTI::Object> ReadRoot(MemoryReadStream& ioStream, ReaderErrorState& ioErrors);
    [[nodiscard]] bool FinishRoot(RTTI::Object& ioRoot, ReaderErrorState& ioErrors);

    // Objects and compounds
    [[nodiscard]] const NamedType& FindNamedType(std::string_view inName);
    [[nodiscard]] bool ReadObject(MemoryReadStream& ioStream, std::string_view inTypeName, RTTI::OwnedValue& outObject,
                                  ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadCompound(MemoryReadStream& ioStream, const RTTI::Value& ioValue, CompoundPlan& ioPlan,
                                    CompatibilityHandler* inHandler, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadProperty(MemoryReadStream& ioStream, const RTTI::Value& ioValue, CompoundPlan& ioPlan,
                                    PropertyPlan& ioProperty, CompatibilityHandler* inHandler, ReaderErrorState& ioErrors);
    [[nodiscard]] bool SkipRemovedProperty(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const CompoundPlan& inPlan,
                                           const PropertyPlan& inProperty, CompatibilityHandler* inHandler,
                                           ReaderErrorState& ioErrors);
    void AddParticipant(CompatibilityHandler& inHandler);

    // Values
    [[nodiscard]] bool ReadCompoundValue(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                         ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadPrimitive(MemoryReadStream& ioStream, const RTTI::Value& ioValue, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadEnum(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadArray(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                 ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadPlainElements(MemoryReadStream& ioStream, const RTTI::ArrayInfo& inInfo, void* ioArray,
                                         uint64_t inCount, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadMap(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                               ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadSet(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                               ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadPointer(MemoryReadStream& ioStream, const RTTI::Value& ioValue, const TypeSchema& inFileType,
                                   ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadPointedObject(MemoryReadStream& ioStream, const RTTI::PointerInfo& inInfo, void* outPointer,
                                         std::string_view inTypeName, ReaderErrorState& ioErrors);

    // Checks
    [[nodiscard]] bool ExpectSameType(const RTTI::Type& inType, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const;
    [[nodiscard]] static bool ExpectCreated(const RTTI::OwnedValue& inValue, const RTTI::Type& inType,
                                            ReaderErrorState& ioErrors);
    [[nodiscard]] static bool ExpectBytes(bool inHasBytes, ReaderErrorState& ioErrors);
    [[nodiscard]] static bool ExpectEnd(const MemoryReadStream& inStream, uint64_t inEnd, ReaderErrorState& ioErrors);
    [[nodiscard]] static bool ExpectRecord(const void* inRecord, std::string_view inTypeName, ReaderErrorState& ioErrors);
    // Reads the size in front of a compound or container; outEnd is where its value ends in the stream.
    [[nodiscard]] static bool ReadSize(MemoryReadStream& ioStream, uint64_t& outEnd, ReaderErrorState& ioErrors);
    // The size and the count of a container of which each element takes inMinElementSize bytes at least.
    [[nodiscard]] static bool ReadCount(MemoryReadStream& ioStream, uint64_t inMinElementSize, uint64_t& outCount,
                                        uint64_t& outEnd, ReaderErrorState& ioErrors);

    // The fewest bytes that a value of the type takes in a file.
    [[nodiscard]] uint64_t GetMinSize(const TypeSchema& inFileType) const;
    // The integer that holds an enumeration in the file, or Unknown.
    [[nodiscard]] EPrimitive GetEnumSizeType(std::string_view inEnumName) const;
    [[nodiscard]] bool SkipValue(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const;
    [[nodiscard]] static bool SkipPrimitive(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors);
    [[nodiscard]] bool SkipPointer(MemoryReadStream& ioStream, const TypeSchema& inFileType, ReaderErrorState& ioErrors) const;

    const RTTI::Registry& mRegistry;
    const TypeCreators& mCreators;
    const CompatibilityHandlers& mHandlers;
    ReadObjectMode mMode;
    FileSchema mSchema;
    std::vector<ObjectTableEntry> mTable;
    RTTI::TextTable<NamedType> mNamedTypes;
    std::vector<CompatibilityHandler*> mParticipants; // of the current root, in the order of their first part in it
    uint32_t mDepth = 0;
};

} // namespace Serialization
