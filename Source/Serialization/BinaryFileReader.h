// Reads a container that is a file: all of it, or one object of a large one.
//
//     BinaryFileReader reader(registry, creators, handlers, ReadObjectMode::SkipUnknownTypes);
//     if (reader.Open(path, errors) && reader.ContainsObject(RTTI::gTypeOf<SessionInfo>()))
//         info = reader.ReadObject(RTTI::gTypeOf<SessionInfo>(), errors);
//
// Threads: one at a time. Ownership: the caller; registry, creators and handlers outlive it. Invariant: memory goes to the header
// and to what is read, whatever the size of the file; what a failed Open leaves reads nothing.
#pragma once

#include "Serialization/BinaryReader.h"

#include <fstream>
#include <string>

namespace Serialization
{

class BinaryFileReader final : public BinaryReader
{
public:
    BinaryFileReader(const RTTI::Registry& inRegistry, const TypeCreators& inCreators, const CompatibilityHandlers& inHandlers,
                     ReadObjectMode inMode)
        : BinaryReader(inRegistry, inCreators, inHandlers, inMode)
    {
    }

    // Reads the header: the schema and the table of objects. To be called once, before anything else.
    [[nodiscard]] bool Open(const std::string& inPath, ReaderErrorState& ioErrors);

    // The first object of that class or of one below it, after a check of its hash alone. Null without an error when the table
    // has none, null with one when it can't be read.
    [[nodiscard]] std::unique_ptr<RTTI::Object> ReadObject(const RTTI::Type& inType, ReaderErrorState& ioErrors);

    // Appends all root objects, after a check of all hashes. Those that were read before a failure stay in ioObjects.
    [[nodiscard]] bool ReadObjects(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors);

private:
    [[nodiscard]] bool OpenStream(ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadHeaderWord(ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadHeader(ReaderErrorState& ioErrors);
    [[nodiscard]] bool ReadObjectsWithoutTable(std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors);

    // inSize bytes at inOffset of the file. False where the file has fewer, or memory.
    [[nodiscard]] bool ReadBytes(uint64_t inOffset, uint64_t inSize, Utility::ByteBuffer& outBytes);

    std::ifstream mFile;
    bool mIsOpen = false;
    uint64_t mFileSize = 0;
    std::string mPath;
};

// Reads all root objects of a file; ioObjects gets them in the file's order.
[[nodiscard]] bool gReadObjectsFromFile(const std::string& inPath, const RTTI::Registry& inRegistry,
                                        const TypeCreators& inCreators, const CompatibilityHandlers& inHandlers,
                                        ReadObjectMode inMode, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                                        ReaderErrorState& ioErrors);

} // namespace Serialization
