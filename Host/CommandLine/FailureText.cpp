#include "Host/CommandLine/FailureText.h"

namespace Host
{

std::string gGetFailureText(const Utility::ErrorList& inErrors)
{
    if (inErrors.GetEntries().empty())
        return "unknown failure";
    const Utility::ErrorEntry& first = inErrors.GetEntries().front();
    const bool isComplete = first.Context.empty() || first.Message.find(first.Context) != std::string::npos;
    return isComplete ? first.Message : first.Context + ": " + first.Message;
}

} // namespace Host
