#include "Utility/Format.h"

#include <cstdio>

namespace Utility
{

std::string gFormat(const char* inFormat, ...)
{
    va_list arguments;
    va_start(arguments, inFormat);
    std::string text = gFormatV(inFormat, arguments);
    va_end(arguments);
    return text;
}

std::string gFormatV(const char* inFormat, va_list inArguments)
{
    va_list measured;
    va_copy(measured, inArguments);
    const int length = std::vsnprintf(nullptr, 0, inFormat, measured);
    va_end(measured);
    if (length <= 0)
        return {};

    std::string text(static_cast<size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, inFormat, inArguments);
    return text;
}

} // namespace Utility
