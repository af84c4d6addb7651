// How reading of stored data reports failure: an error list whose codes tell classes of failure apart.
//
// Threads: a state belongs to one thread at a time. Ownership: the caller owns the state; entries are copies.
#pragma once

#include "Utility/ErrorState.h"

#include <cstdint>
#include <string>
#include <utility>

namespace Serialization
{

enum class EReaderError : uint32_t
{
    Unspecified = 0, // writers, and failures of no other class
    FileNotFound = 1,
    FileNotAccessible = 2, // also text passed on from an ErrorState
    NotAFile = 3,          // wrong magic
    Incompatible = 4,      // a schema that doesn't match, or can't be upgraded
    UnsupportedVersion = 5,
    Corrupt = 6 // short reads, wrong checksums, malformed content
};

class ReaderErrorState final : public Utility::ErrorList
{
public:
    using ErrorList::AddError;
    void AddError(EReaderError inError, std::string inText) { AddError(static_cast<uint32_t>(inError), std::move(inText)); }
};

// As Utility::Check, with the class of failure by name.
template <class... Arguments>
bool Check(ReaderErrorState& ioErrors, bool inCondition, EReaderError inError, const char* inFormat,
           const Arguments&... inArguments)
{
    return Utility::Check(ioErrors, inCondition, static_cast<uint32_t>(inError), inFormat, inArguments...);
}

} // namespace Serialization
