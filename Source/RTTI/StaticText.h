// Texts that are put together while compiling, so that the names of types need no initialization at run time.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace RTTI
{

// A literal as a template argument. What refers to its characters at run time takes them from a copy: the argument itself is an
// object that some compilers make visible outside of the library.
template <size_t Size>
struct StaticText
{
    // NOLINTNEXTLINE(google-explicit-constructor): a literal shall convert by itself.
    constexpr StaticText(const char (&inText)[Size]) { std::copy_n(inText, Size, Characters); }

    constexpr std::string_view GetView() const { return {Characters, Size - 1}; }

    char Characters[Size] = {};
};

// The texts behind each other, null-terminated.
template <const std::string_view&... Parts>
struct JoinedText
{
    static constexpr auto sCharacters = []
    {
        std::array<char, (Parts.size() + ... + 1)> characters{};
        auto end = characters.begin();
        ((end = std::copy(Parts.begin(), Parts.end(), end)), ...);
        return characters;
    }();
    static constexpr std::string_view sText{sCharacters.data(), sCharacters.size() - 1};
};

} // namespace RTTI
