// printf-style formatting into a std::string.
// Threads: any. Failure: a format that snprintf rejects gives an empty text.
#pragma once

#include <cstdarg>
#include <string>
#include <type_traits>

namespace Utility
{

// Formats by the rules of snprintf, measured first so that the result has exactly the length needed.
[[nodiscard]] std::string gFormat(const char* inFormat, ...) __attribute__((format(printf, 1, 2)));

// As gFormat. inArguments is left as va_list functions leave it: the caller may only end it.
[[nodiscard]] std::string gFormatV(const char* inFormat, va_list inArguments) __attribute__((format(printf, 1, 0)));

// What gFormat takes for a value: the characters of a text, and any number or pointer as it is. Other classes don't compile.
inline const char* gFormatArgument(const std::string& inText)
{
    return inText.c_str();
}
template <class T>
requires std::is_scalar_v<T> T gFormatArgument(T inValue)
{
    return inValue;
}

} // namespace Utility
