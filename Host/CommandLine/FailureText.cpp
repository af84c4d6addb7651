#include "Host/CommandLine/FailureText.h"

namespace Host
{
namespace
{

// Some failures list others below them.
std::string gMakeOneLine(const std::string& inText)
{
    std::string line;
    for (const char character : inText)
    {
        const bool isBreak = character == '\n' || character == '\t';
        if (!isBreak)
            line += character;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

std::string gGetFailureText(const Utility::ErrorList& inErrors)
{
    if (inErrors.GetEntries().empty())
        return "unknown failure";
    const Utility::ErrorEntry& first = inErrors.GetEntries().front();
    const bool isComplete = first.Context.empty() || first.Message.find(first.Context) != std::string::npos;
    return gMakeOneLine(isComplete ? first.Message : first.Context + ": " + first.Message);
}

} // namespace Host
