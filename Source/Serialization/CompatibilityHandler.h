// What upgrades objects of a class that older builds wrote, where the rules of reading don't suffice.
//
// A class whose version is raised needs a handler, even one that does nothing. A handler keeps state from one call to the next:
// what ReadRemovedProperty sets aside, OnCompoundRead or OnRootObjectRead puts in place. Threads: those of the read. Ownership:
// CompatibilityHandlers, which the caller of a read keeps, own their handlers.
#pragma once

#include "RTTI/TypeQueries.h"
#include "RTTI/Value.h"
#include "Serialization/ReaderErrorState.h"

#include <memory>
#include <string_view>
#include <unordered_map>

namespace RTTI
{
class Object;
} // namespace RTTI

namespace Serialization
{

class BinaryReader;
class MemoryReadStream;
struct CompoundSchema;
struct PropertySchema;

// The operations stand in the order of the virtual table. False fails the read.
class CompatibilityHandler
{
public:
    virtual ~CompatibilityHandler() = default;

    // Before an object that is reached by its type name, a root or the target of a pointer, is created. The stream stands behind
    // the object's size. A handler that fills outObject has read the object itself, whatever it has left in the stream.
    virtual bool TryCreateObject(BinaryReader& ioReader, MemoryReadStream& ioStream, const RTTI::Type& inType,
                                 std::string_view inTypeName, const CompoundSchema& inSchema, RTTI::OwnedValue& outObject,
                                 ReaderErrorState& ioErrors);

    // For a property that the class no longer has. The stream stands at the value, which may be read with
    // BinaryReader::ReadValue; wherever the handler leaves it, reading goes on behind the value.
    virtual bool ReadRemovedProperty(BinaryReader& ioReader, MemoryReadStream& ioStream, const RTTI::Type& inType, void* ioObject,
                                     std::string_view inTypeName, const CompoundSchema& inSchema,
                                     const PropertySchema& inProperty, ReaderErrorState& ioErrors);

    // When all properties of a compound have been read.
    virtual bool OnCompoundRead(const RTTI::Type& inType, void* ioObject, const CompoundSchema& inSchema,
                                ReaderErrorState& ioErrors);

    // When the root object with the compounds that the handler took part in has been read; once a root.
    virtual bool OnRootObjectRead(RTTI::Object& ioRoot, ReaderErrorState& ioErrors);
};

class CompatibilityHandlers
{
public:
    // A later handler for the same type replaces the earlier. REQUIRES: RTTI::Registry::Finalize has run; no reader is reading.
    void AddCompatibilityHandler(const RTTI::Type& inType, std::unique_ptr<CompatibilityHandler> inHandler);

    // Null for a type without one.
    [[nodiscard]] CompatibilityHandler* Find(const RTTI::Type& inType) const;

private:
    std::unordered_map<const RTTI::Type*, std::unique_ptr<CompatibilityHandler>, RTTI::TypeHasher, RTTI::TypeEqual> mHandlers;
};

} // namespace Serialization
