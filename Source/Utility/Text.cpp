#include "Utility/Text.h"

#include <algorithm>
#include <cstdint>

namespace Utility
{
namespace
{

static_assert(sizeof(wchar_t) == sizeof(char32_t), "wide text is taken as UTF-32");

constexpr std::string_view sWhiteSpace = " \t\n\v\f\r";

constexpr char32_t sReplacement = 0xFFFD;
constexpr char32_t sLargestCodePoint = 0x10FFFF;
constexpr char32_t sFirstHighSurrogate = 0xD800;
constexpr char32_t sFirstLowSurrogate = 0xDC00;
constexpr char32_t sLastSurrogate = 0xDFFF;
constexpr char32_t sFirstAboveUTF16Unit = 0x10000;
constexpr int sBitsPerSurrogate = 10;

// A continuation byte of UTF-8 is 10xxxxxx.
constexpr uint8_t sFirstContinuation = 0x80;
constexpr uint8_t sLastContinuation = 0xBF;
constexpr int sBitsPerContinuation = 6;
constexpr char32_t sContinuationMask = 0x3F;

bool gAreEqualIgnoringCase(char inFirst, char inSecond)
{
    return gToLower(inFirst) == gToLower(inSecond);
}

bool gIsCodePoint(char32_t inValue)
{
    return inValue <= sLargestCodePoint && (inValue < sFirstHighSurrogate || inValue > sLastSurrogate);
}

char gMakeContinuation(char32_t inValue)
{
    return static_cast<char>(sFirstContinuation | (inValue & sContinuationMask));
}

void gAppendUTF8(char32_t inValue, std::string& ioText)
{
    const char32_t value = gIsCodePoint(inValue) ? inValue : sReplacement;
    if (value < 0x80)
    {
        ioText += static_cast<char>(value);
        return;
    }
    if (value < 0x800)
        ioText += static_cast<char>(0xC0 | (value >> sBitsPerContinuation));
    else
    {
        if (value < sFirstAboveUTF16Unit)
            ioText += static_cast<char>(0xE0 | (value >> (2 * sBitsPerContinuation)));
        else
        {
            ioText += static_cast<char>(0xF0 | (value >> (3 * sBitsPerContinuation)));
            ioText += gMakeContinuation(value >> (2 * sBitsPerContinuation));
        }
        ioText += gMakeContinuation(value >> sBitsPerContinuation);
    }
    ioText += gMakeContinuation(value);
}

// What the first byte of a UTF-8 character says about the others.
struct UTF8Lead
{
    int NumContinuations;
    char32_t Bits;           // of the code point, those in the first byte
    uint8_t FirstSecondByte; // the second byte lies in this range: it excludes overlong forms, surrogates and values that are too
    uint8_t LastSecondByte;  // large; the other bytes may be any continuation
};

// A first byte that can't begin a character has -1 continuations.
UTF8Lead gReadLead(uint8_t inByte)
{
    if (inByte < 0x80)
        return {0, inByte, 0, 0};
    if (inByte >= 0xC2 && inByte <= 0xDF)
        return {1, inByte & 0x1FU, sFirstContinuation, sLastContinuation};
    if (inByte >= 0xE0 && inByte <= 0xEF)
    {
        const uint8_t first = inByte == 0xE0 ? 0xA0 : sFirstContinuation;
        const uint8_t last = inByte == 0xED ? 0x9F : sLastContinuation;
        return {2, inByte & 0x0FU, first, last};
    }
    if (inByte >= 0xF0 && inByte <= 0xF4)
    {
        const uint8_t first = inByte == 0xF0 ? 0x90 : sFirstContinuation;
        const uint8_t last = inByte == 0xF4 ? 0x8F : sLastContinuation;
        return {3, inByte & 0x07U, first, last};
    }
    return {-1, sReplacement, 0, 0};
}

// Takes one character from the front of ioText, which isn't empty.
char32_t gTakeUTF8(std::string_view& ioText)
{
    const UTF8Lead lead = gReadLead(static_cast<uint8_t>(ioText.front()));
    ioText.remove_prefix(1);
    char32_t value = lead.Bits;
    uint8_t first = lead.FirstSecondByte;
    uint8_t last = lead.LastSecondByte;
    for (int i = 0; i < lead.NumContinuations; ++i)
    {
        const uint8_t byte = ioText.empty() ? 0 : static_cast<uint8_t>(ioText.front());
        if (byte < first || byte > last)
            return sReplacement;
        value = (value << sBitsPerContinuation) | (byte & sContinuationMask);
        ioText.remove_prefix(1);
        first = sFirstContinuation;
        last = sLastContinuation;
    }
    return value;
}

// Takes one character from the front of ioText, which isn't empty. A lone surrogate comes out as it is.
char32_t gTakeUTF16(std::u16string_view& ioText)
{
    const char32_t high = ioText.front();
    ioText.remove_prefix(1);
    if (high < sFirstHighSurrogate || high >= sFirstLowSurrogate || ioText.empty())
        return high;
    const char32_t low = ioText.front();
    if (low < sFirstLowSurrogate || low > sLastSurrogate)
        return high;
    ioText.remove_prefix(1);
    return sFirstAboveUTF16Unit + ((high - sFirstHighSurrogate) << sBitsPerSurrogate) + (low - sFirstLowSurrogate);
}

} // namespace

std::string gToUpper(std::string_view inText)
{
    std::string text(inText);
    for (char& character : text)
        character = gToUpper(character);
    return text;
}

std::string gToLower(std::string_view inText)
{
    std::string text(inText);
    for (char& character : text)
        character = gToLower(character);
    return text;
}

bool gStartsWith(std::string_view inText, std::string_view inPrefix)
{
    return inText.starts_with(inPrefix);
}

bool gStartsWithIgnoringCase(std::string_view inText, std::string_view inPrefix)
{
    return inText.size() >= inPrefix.size() &&
           std::equal(inPrefix.begin(), inPrefix.end(), inText.begin(), gAreEqualIgnoringCase);
}

bool gContains(std::string_view inText, std::string_view inPart)
{
    return inText.find(inPart) != std::string_view::npos;
}

bool gContainsIgnoringCase(std::string_view inText, std::string_view inPart)
{
    return inPart.empty() ||
           std::search(inText.begin(), inText.end(), inPart.begin(), inPart.end(), gAreEqualIgnoringCase) != inText.end();
}

void gTrim(std::string& ioText)
{
    ioText.erase(ioText.find_last_not_of(sWhiteSpace) + 1);
    ioText.erase(0, ioText.find_first_not_of(sWhiteSpace));
}

std::wstring gToWide(std::string_view inText)
{
    std::wstring wide;
    wide.reserve(inText.size());
    while (!inText.empty())
        wide += static_cast<wchar_t>(gTakeUTF8(inText));
    return wide;
}

std::string gToUTF8(std::wstring_view inText)
{
    std::string text;
    for (const wchar_t unit : inText)
        gAppendUTF8(static_cast<char32_t>(unit), text);
    return text;
}

std::string gToUTF8(std::u32string_view inText)
{
    std::string text;
    for (const char32_t unit : inText)
        gAppendUTF8(unit, text);
    return text;
}

std::string gToUTF8(std::u16string_view inText)
{
    std::string text;
    while (!inText.empty())
        gAppendUTF8(gTakeUTF16(inText), text);
    return text;
}

} // namespace Utility
