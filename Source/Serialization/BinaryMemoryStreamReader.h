// Reads a container that lies in memory, without copying it.
//
// Threads: one at a time. Ownership: the caller, of the bytes too. Only the layout of versions 3 and 4 is read, whatever version
// the header word tells.
#pragma once

#include "Serialization/BinaryReader.h"

namespace Serialization
{

class BinaryMemoryStreamReader final : public BinaryReader
{
public:
    BinaryMemoryStreamReader(const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                             const CompatibilityHandlers& inHandlers, ReadObjectMode inMode)
        : BinaryReader(inRegistry, inCreators, inHandlers, inMode)
    {
    }

    // Reads the header: the schema and the table of objects. The container begins at the stream's base and ends at its end. To be
    // called once, before anything else; the stream stays with the reader until its last use.
    [[nodiscard]] bool Open(MemoryReadStream& ioStream, ReaderErrorState& ioErrors);

    // As those of BinaryFileReader.
    [[nodiscard]] std::unique_ptr<RTTI::Object> ReadObject(const RTTI::Type& inType, ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadObjects(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors);

private:
    MemoryReadStream* mStream = nullptr;
};

// Reads all root objects of a container in memory; ioObjects gets them in their order there.
[[nodiscard]] bool gReadObjectsFromBuffer(MemoryReadStream& ioStream, const RTTI::Registry& inRegistry,
                                          const TypeCreators& inCreators, const CompatibilityHandlers& inHandlers,
                                          ReadObjectMode inMode, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                                          ReaderErrorState& ioErrors);

} // namespace Serialization
