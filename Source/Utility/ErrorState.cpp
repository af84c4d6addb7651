#include "Utility/ErrorState.h"

#include <utility>

namespace Utility
{

void ErrorList::AddError(uint32_t inCode, std::string inText)
{
    mEntries.push_back({inCode, mContexts.empty() ? std::string() : mContexts.back(), std::move(inText)});
}

void ErrorList::AddEntries(const ErrorList& inOther)
{
    mEntries.insert(mEntries.end(), inOther.mEntries.begin(), inOther.mEntries.end());
}

ErrorContextScope::ErrorContextScope(ErrorList* inState, std::string inText) : mState(inState)
{
    if (mState != nullptr)
        mState->mContexts.push_back(std::move(inText));
}

ErrorContextScope::~ErrorContextScope()
{
    if (mState != nullptr)
        mState->mContexts.pop_back();
}

std::string GetErrorText(const ErrorList& inErrors)
{
    std::string text;
    const std::vector<ErrorEntry>& entries = inErrors.GetEntries();
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
    {
        if (entry != entries.rbegin())
            text += '\n';
        text += "Context: ";
        text += entry->Context.empty() ? std::string("[no context]") : entry->Context;
        text += ", internal error: ";
        text += entry->Message;
    }
    return text;
}

} // namespace Utility
