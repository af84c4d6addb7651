// How readers make objects: by default as the class's own default constructor does, and by a function where an object needs
// arguments.
//
// Threads: filled by one thread before reading, then any. Ownership: the caller of a read; it outlives the reader.
#pragma once

#include "RTTI/TypeQueries.h"
#include "RTTI/Value.h"

#include <functional>
#include <unordered_map>

namespace Serialization
{

// Makes a value of exactly the type that it is entered for. Empty where it can't.
using TypeCreator = std::function<RTTI::OwnedValue()>;

class TypeCreators
{
public:
    // A later function for the same type replaces the earlier. REQUIRES: RTTI::Registry::Finalize has run.
    void AddTypeCreator(const RTTI::Type& inType, TypeCreator inFunction);

    // Empty for a type that has no function and can't be default-constructed.
    [[nodiscard]] RTTI::OwnedValue Create(const RTTI::Type& inType) const;

private:
    std::unordered_map<const RTTI::Type*, TypeCreator, RTTI::TypeHasher, RTTI::TypeEqual> mFunctions;
};

} // namespace Serialization
