// Reflected objects as a JSON document, for the schema of a container and for settings that people edit.
//
// The document is an object whose member "Objects" holds the objects; each begins with its "Type", followed by a member per
// property. A compound is an object, an enumeration its name, an array or a set an array, a map an array of objects with "Key"
// and "Value", and a pointer an object that is empty for null. Docs/BinaryContainer.md describes it to the last detail.
//
// Threads: any; the objects stay untouched by others meanwhile. REQUIRES for all: RTTI::Registry::Finalize has run.
#pragma once

#include "Serialization/ReadObjectMode.h"
#include "Serialization/ReaderErrorState.h"
#include "Serialization/TypeCreators.h"

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace RTTI
{
class Object;
class Registry;
} // namespace RTTI

namespace Serialization
{

// Writes the document, indented by four spaces a level, into outText. Fails on a number that JSON can't hold, a NaN or an
// infinity, and on objects that lie more than sMaxNestedCompounds deep in one another.
[[nodiscard]] bool gWriteObjectsToJSON(std::span<const RTTI::Object* const> inObjects, std::string& outText,
                                       Utility::ErrorState& ioErrors);

// The same into a file, with a newline at the end. No file is touched when the objects can't be written.
[[nodiscard]] bool gWriteObjectsToJSONFile(const std::string& inPath, std::span<const RTTI::Object* const> inObjects,
                                           Utility::ErrorState& ioErrors);

// Appends the objects of a document, or of a text that is one such object. A property without a member keeps its constructed
// value; a member without a property is passed over. ioObjects holds what was read until then on failure.
[[nodiscard]] bool gReadObjectsFromJSON(std::string_view inText, const RTTI::Registry& inRegistry, const TypeCreators& inCreators,
                                        ReadObjectMode inMode, std::vector<std::unique_ptr<RTTI::Object>>& ioObjects,
                                        ReaderErrorState& ioErrors);

[[nodiscard]] bool gReadObjectsFromJSONFile(const std::string& inPath, const RTTI::Registry& inRegistry,
                                            const TypeCreators& inCreators, ReadObjectMode inMode,
                                            std::vector<std::unique_ptr<RTTI::Object>>& ioObjects, ReaderErrorState& ioErrors);

} // namespace Serialization
