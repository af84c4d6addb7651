#include "Utility/Text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace std::string_literals;
using namespace Utility;

namespace
{

TEST(Text, PrefixAndPartWithAndWithoutCase)
{
    EXPECT_TRUE(gStartsWith("Abc", "Ab"));
    EXPECT_FALSE(gStartsWith("Abc", "ab"));
    EXPECT_TRUE(gStartsWithIgnoringCase("Abc", "aBC"));
    EXPECT_FALSE(gStartsWithIgnoringCase("Ab", "abc"));
    EXPECT_TRUE(gContains("xAbc", "Ab"));
    EXPECT_FALSE(gContains("xAbc", "ab"));
    EXPECT_TRUE(gContainsIgnoringCase("xxaABC", "abc"));
    EXPECT_FALSE(gContainsIgnoringCase("ab", "abc"));
    for (const std::string text : {"", "abc"})
        EXPECT_TRUE(gStartsWith(text, "") && gStartsWithIgnoringCase(text, "") && gContains(text, "") &&
                    gContainsIgnoringCase(text, ""));
}

TEST(Text, CaseIsAMatterOfASCIILettersOnly)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    for (int byte = 0; byte < 256; ++byte)
    {
        const size_t index = static_cast<size_t>(byte);
        const int upper = byte >= 0x61 && byte <= 0x7A ? byte - 0x20 : byte;
        const int lower = byte >= 0x41 && byte <= 0x5A ? byte + 0x20 : byte;
        EXPECT_EQ(gToUpper(all)[index], static_cast<char>(upper)) << byte;
        EXPECT_EQ(gToLower(all)[index], static_cast<char>(lower)) << byte;
    }
    EXPECT_FALSE(gStartsWithIgnoringCase("\xC3\x84", "\xC3\xA4"));
    EXPECT_FALSE(gContainsIgnoringCase("@", "`"));
}

TEST(Text, TrimsBothEndsOnly)
{
    const auto trim = [](std::string ioText)
    {
        gTrim(ioText);
        return ioText;
    };
    EXPECT_EQ(trim(" \t\r\n\v\f a b \t\r\n\v\f"), "a b");
    EXPECT_EQ(trim("ab"), "ab");
    EXPECT_EQ(trim(" \n "), "");
    EXPECT_EQ(trim(""), "");
    EXPECT_EQ(trim("\xC2\xA0"), "\xC2\xA0");
}

TEST(Text, EveryCodePointSurvivesTheRoundTrip)
{
    for (char32_t value = 0; value <= 0x10FFFF; ++value)
    {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        const std::string text = gToUTF8(std::u32string_view(&value, 1));
        const std::wstring wide = gToWide(text);
        ASSERT_EQ(wide, std::wstring(1, static_cast<wchar_t>(value)));
        ASSERT_EQ(gToUTF8(wide), text);
    }
}

TEST(Text, UTF16AgreesWithUTF32)
{
    const std::u16string units = u"a\u00E4\u20AC\U00010000\U0001F600\U0010FFFF\uFFFF";
    const std::u32string points = U"a\u00E4\u20AC\U00010000\U0001F600\U0010FFFF\uFFFF";
    EXPECT_EQ(gToUTF8(units), gToUTF8(points));
    EXPECT_EQ(gToUTF8(points), "a\xC3\xA4\xE2\x82\xAC\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBF");
}

TEST(Text, InvalidUnitsBecomeTheReplacementCharacter)
{
    const std::string replacement = "\xEF\xBF\xBD";
    for (const char32_t value : {char32_t{0xD800}, char32_t{0xDFFF}, char32_t{0x110000}, char32_t{0xFFFFFFFF}})
        EXPECT_EQ(gToUTF8(std::u32string{'a', value, 'b'}), "a" + replacement + "b");

    const std::vector<std::pair<std::u16string, std::string>> cases = {
        {{0xD800}, replacement},
        {{0xDC00, 'a'}, replacement + "a"},
        {{0xD800, 'a'}, replacement + "a"},
        {{0xD800, 0xD83D, 0xDE00}, replacement + "\xF0\x9F\x98\x80"},
        {{0xDE00, 0xD83D}, replacement + replacement},
    };
    for (const auto& [units, expected] : cases)
        EXPECT_EQ(gToUTF8(units), expected);
}

TEST(Text, InvalidUTF8BecomesOneReplacementCharacterPerPiece)
{
    const std::vector<std::pair<std::string, std::wstring>> cases = {
        {"\x80", L"\uFFFD"},
        {"a\xC3", L"a\uFFFD"},
        {"\xC3"s + "a", L"\uFFFD"s + L"a"},
        {"\xE2\x82"s + "a", L"\uFFFD"s + L"a"},
        {"\xF0\x9F\x98", L"\uFFFD"},
        {"\xC0\x80", L"\uFFFD\uFFFD"},                     // overlong
        {"\xE0\x80\x80", L"\uFFFD\uFFFD\uFFFD"},           // overlong
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},           // surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // beyond the last code point
        {"\xFF\xFE", L"\uFFFD\uFFFD"},
        {"\xE2\x82\xC3\xA4", L"\uFFFD\u00E4"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(gToWide(text), expected);
}

TEST(Text, AnyBytesConvertToValidText)
{
    const unsigned seed = 4711;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int step = 0; step < 2000; ++step)
    {
        std::string bytes(random() % 40, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(0x70 + random() % 0x90);
        const std::wstring wide = gToWide(bytes);
        const std::string valid = gToUTF8(wide);
        EXPECT_EQ(gToWide(valid), wide) << "seed " << seed << ", step " << step;
    }
}

} // namespace
