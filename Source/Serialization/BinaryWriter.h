// Writes reflected objects into a container, together with the schema by which builds of another age can read them.
//
// Threads: any; the objects stay untouched by others meanwhile. REQUIRES for all: RTTI::Registry::Finalize has run.
#pragma once

#include "Utility/ByteBuffer.h"
#include "Utility/ErrorState.h"

#include <span>
#include <string>

namespace RTTI
{
class Object;
} // namespace RTTI

namespace Serialization
{

// Encodes everything, and only then creates the file or empties the one that is there. Fails for a class that was never
// registered, for objects that lie too deep in one another, and where the file can't be written.
[[nodiscard]] bool gWriteObjectsToFile(const std::string& inPath, std::span<const RTTI::Object* const> inObjects,
                                       Utility::ErrorState& ioErrors);

// As gWriteObjectsToFile, but a file that is there stays whole until the new one is; see FileSystem::ReplacingFile. For what
// can't be made again from other files.
[[nodiscard]] bool gReplaceFileWithObjects(const std::string& inPath, std::span<const RTTI::Object* const> inObjects,
                                           Utility::ErrorState& ioErrors);

// Appends the container to ioBuffer, which is left alone on failure.
[[nodiscard]] bool gWriteObjectsToBuffer(Utility::ByteBuffer& ioBuffer, std::span<const RTTI::Object* const> inObjects,
                                         Utility::ErrorState& ioErrors);

} // namespace Serialization
