// How operations report failure: a list of entries, each with the context that was open when it was recorded.
//
// An operation that can fail takes an ErrorState& as its last argument and returns false or null, having appended an entry. The
// operation's result decides about success; the state only holds the words.
// Threads: a state belongs to one thread at a time. Ownership: the caller owns the state; entries are copies.
#pragma once

#include "Utility/Format.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Utility
{

// One recorded failure.
struct ErrorEntry
{
    uint32_t Code = 0;   // 0 in an ErrorState, an EReaderError in a Serialization::ReaderErrorState
    std::string Context; // innermost context at the moment of recording, empty if none was open
    std::string Message;
};

// What ErrorState and Serialization::ReaderErrorState share. They differ only in what a code means, and are separate types so
// that one can't be handed where the other is expected.
class ErrorList
{
public:
    // Appends one entry with the innermost open context.
    void AddError(uint32_t inCode, std::string inText);

    // Appends copies of another list's entries as they stand, contexts included. REQUIRES: not of this list.
    void AddEntries(const ErrorList& inOther);

    const std::vector<ErrorEntry>& GetEntries() const { return mEntries; }

protected:
    ErrorList() = default;
    ~ErrorList() = default;
    ErrorList(const ErrorList&) = default;
    ErrorList& operator=(const ErrorList&) = default;

private:
    friend class ErrorContextScope;

    std::vector<ErrorEntry> mEntries; // oldest first
    std::vector<std::string> mContexts;
};

class ErrorState final : public ErrorList
{
};

// Opens a context for the time of a block. Scopes nest; an entry records only the innermost one.
class ErrorContextScope
{
public:
    // inState may be null: the scope then does nothing.
    ErrorContextScope(ErrorList* inState, std::string inText);
    ~ErrorContextScope();

    ErrorContextScope(const ErrorContextScope&) = delete;
    ErrorContextScope& operator=(const ErrorContextScope&) = delete;

private:
    ErrorList* mState;
};

// Gives inCondition back, and records a failure if it is false. The text is only formatted on failure, by the rules of gFormat
// with a std::string for %s; without arguments it is taken as it stands, percent signs included.
template <class... Arguments>
bool Check(ErrorList& ioErrors, bool inCondition, uint32_t inCode, const char* inFormat, const Arguments&... inArguments)
{
    if (inCondition) [[likely]]
        return true;
    if constexpr (sizeof...(Arguments) == 0)
        ioErrors.AddError(inCode, inFormat);
    else
        ioErrors.AddError(inCode, gFormat(inFormat, gFormatArgument(inArguments)...));
    return false;
}

// All entries as text, newest first, one per line, no newline at the end: "Context: %s, internal error: %s". An entry without a
// context shows "[no context]".
[[nodiscard]] std::string GetErrorText(const ErrorList& inErrors);

} // namespace Utility
