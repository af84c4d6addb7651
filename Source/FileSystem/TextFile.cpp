#include "FileSystem/TextFile.h"

#include "FileSystem/File.h"
#include "Utility/Text.h"

#include <cstring>
#include <string_view>
#include <vector>

namespace FileSystem
{
namespace
{

using namespace std::string_view_literals;

constexpr std::string_view sMarkUTF32 = "\xFF\xFE\0\0"sv;
constexpr std::string_view sMarkUTF16 = "\xFF\xFE"sv;
constexpr std::string_view sMarkUTF8 = "\xEF\xBB\xBF"sv;
constexpr std::string_view sReplacement = "\xEF\xBF\xBD"sv;

// The little-endian units of a text, which are the units in memory of the machines that the system runs on. Bytes at the end that
// don't fill a unit stay behind in ioBytes.
template <class Unit>
std::basic_string<Unit> gTakeUnits(std::string_view& ioBytes)
{
    std::basic_string<Unit> units(ioBytes.size() / sizeof(Unit), Unit());
    const size_t size = units.size() * sizeof(Unit);
    std::memcpy(units.data(), ioBytes.data(), size);
    ioBytes.remove_prefix(size);
    return units;
}

template <class Unit>
std::string gConvert(std::string_view inBytes)
{
    std::string text = Utility::gToUTF8(gTakeUnits<Unit>(inBytes));
    if (!inBytes.empty())
        text += sReplacement;
    return text;
}

std::string gDecode(std::string_view inBytes)
{
    // The mark of UTF-16 is the beginning of that of UTF-32.
    if (inBytes.starts_with(sMarkUTF32))
        return gConvert<char32_t>(inBytes.substr(sMarkUTF32.size()));
    if (inBytes.starts_with(sMarkUTF16))
        return gConvert<char16_t>(inBytes.substr(sMarkUTF16.size()));
    if (inBytes.starts_with(sMarkUTF8))
        inBytes.remove_prefix(sMarkUTF8.size());
    return std::string(inBytes);
}

} // namespace

bool gReadTextFile(const std::string& inPath, std::string& outText)
{
    std::vector<uint8_t> bytes;
    if (!gReadFile(inPath, bytes))
        return false;
    outText = gDecode(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    return true;
}

} // namespace FileSystem
