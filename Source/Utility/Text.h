// Small helpers on texts: tests for parts with and without regard to case, trimming, case, and conversions between encodings.
//
// Case is a matter of the ASCII letters only; every other byte stays as it is, so UTF-8 passes through unharmed.
// Threads: any. Failure: none; what isn't valid in its encoding becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace Utility
{

[[nodiscard]] constexpr char gToUpper(char inCharacter)
{
    return inCharacter >= 'a' && inCharacter <= 'z' ? static_cast<char>(inCharacter - 'a' + 'A') : inCharacter;
}

[[nodiscard]] constexpr char gToLower(char inCharacter)
{
    return inCharacter >= 'A' && inCharacter <= 'Z' ? static_cast<char>(inCharacter - 'A' + 'a') : inCharacter;
}

[[nodiscard]] std::string gToUpper(std::string_view inText);
[[nodiscard]] std::string gToLower(std::string_view inText);

// An empty prefix or part is in every text.
[[nodiscard]] bool gStartsWith(std::string_view inText, std::string_view inPrefix);
[[nodiscard]] bool gStartsWithIgnoringCase(std::string_view inText, std::string_view inPrefix);
[[nodiscard]] bool gContains(std::string_view inText, std::string_view inPart);
[[nodiscard]] bool gContainsIgnoringCase(std::string_view inText, std::string_view inPart);

// Removes white space (space, \t, \n, \v, \f, \r) from both ends.
void gTrim(std::string& ioText);

// UTF-8 to wide text, one unit per code point. Each longest piece that can't begin or continue a character becomes one U+FFFD.
[[nodiscard]] std::wstring gToWide(std::string_view inText);

// Wide text, UTF-32 and UTF-16 to UTF-8. Lone surrogates and values beyond U+10FFFF become U+FFFD.
[[nodiscard]] std::string gToUTF8(std::wstring_view inText);
[[nodiscard]] std::string gToUTF8(std::u32string_view inText);
[[nodiscard]] std::string gToUTF8(std::u16string_view inText);

} // namespace Utility
