#include "Host/Import/TracingData.h"

#include "Utility/ByteBuffer.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace Host
{
namespace
{

constexpr std::string_view sMagic("\x17\x08\x44tracing", 10);
constexpr size_t sMaxNameLength = 256;

// A text that ends with a zero byte.
bool gReadName(Utility::ByteCursor& ioCursor, std::string_view& outName)
{
    const auto* begin = reinterpret_cast<const char*>(ioCursor.GetPosition());
    const size_t limit = std::min(ioCursor.GetRemaining(), sMaxNameLength);
    const size_t length = strnlen(begin, limit);
    if (length == limit)
        return false;
    outName = {begin, length};
    return ioCursor.Take(length + 1) != nullptr;
}

std::string_view gReadSizedText(Utility::ByteCursor& ioCursor)
{
    const auto size = ioCursor.Read<uint64_t>();
    const uint8_t* bytes = ioCursor.Take(size);
    return bytes != nullptr ? std::string_view(reinterpret_cast<const char*>(bytes), size) : std::string_view();
}

// Passes over one of the two texts that describe the ring buffer, which perf's files don't use.
bool gPassHeaderText(Utility::ByteCursor& ioCursor, std::string_view inName)
{
    std::string_view name;
    if (!gReadName(ioCursor, name) || name != inName)
        return false;
    const auto size = ioCursor.Read<uint64_t>();
    ioCursor.Take(size);
    return !ioCursor.HasFailed();
}

bool gReadHeader(Utility::ByteCursor& ioCursor, TracingData& outData)
{
    const uint8_t* magic = ioCursor.Take(sMagic.size());
    std::string_view version;
    if (magic == nullptr || std::memcmp(magic, sMagic.data(), sMagic.size()) != 0 || !gReadName(ioCursor, version))
        return false;
    const auto isBigEndian = ioCursor.Read<uint8_t>();
    outData.LongSize = ioCursor.Read<uint8_t>();
    [[maybe_unused]] const auto pageSize = ioCursor.Read<uint32_t>();
    return isBigEndian == 0 && (outData.LongSize == sizeof(uint32_t) || outData.LongSize == sizeof(uint64_t)) &&
           gPassHeaderText(ioCursor, "header_page") && gPassHeaderText(ioCursor, "header_event");
}

bool gReadSystem(Utility::ByteCursor& ioCursor, std::string_view inSystem, TracingData& ioData)
{
    const auto count = ioCursor.Read<uint32_t>();
    for (uint32_t i = 0; i != count && !ioCursor.HasFailed(); ++i)
    {
        const std::string_view format = gReadSizedText(ioCursor);
        if (!ioCursor.HasFailed())
            ioData.Events.push_back({inSystem, format});
    }
    return !ioCursor.HasFailed();
}

bool gIsDigit(char inCharacter)
{
    return inCharacter >= '0' && inCharacter <= '9';
}

bool gIsWordCharacter(char inCharacter)
{
    return gIsDigit(inCharacter) || inCharacter == '_' || (inCharacter >= 'a' && inCharacter <= 'z') ||
           (inCharacter >= 'A' && inCharacter <= 'Z');
}

// The parser takes words like VIF_PR_FMT for macros of a print format, and loses track of their memory in a field.
bool gIsWord(std::string_view inText)
{
    return !inText.empty() && !gIsDigit(inText.front()) && !inText.ends_with("_PR_FMT") &&
           std::all_of(inText.begin(), inText.end(), gIsWordCharacter);
}

// A number of few digits, so that no sum of some of them can overflow.
bool gReadNumber(std::string_view inText, uint64_t& outNumber)
{
    constexpr size_t maxDigits = 6;
    const char* end = inText.data() + inText.size();
    return !inText.empty() && inText.size() <= maxDigits && std::from_chars(inText.data(), end, outNumber).ptr == end;
}

// Removes inBegin from the text's front; false if it doesn't begin so.
bool gPass(std::string_view& ioText, std::string_view inBegin)
{
    if (!ioText.starts_with(inBegin))
        return false;
    ioText.remove_prefix(inBegin.size());
    return true;
}

// Removes the text up to inEnd and inEnd itself from the front, and gives it; empty if there is no inEnd.
std::string_view gPassUntil(std::string_view& ioText, char inEnd)
{
    const size_t end = ioText.find(inEnd);
    if (end == std::string_view::npos)
        return {};
    const std::string_view passed = ioText.substr(0, end);
    ioText.remove_prefix(end + 1);
    return passed;
}

// "pid_t prev_pid", "unsigned long flags", "char comm[16]", "__data_loc char[] comm".
bool gIsUsualDeclaration(std::string_view inDeclaration)
{
    if (gPass(inDeclaration, "__data_loc char[] ") || gPass(inDeclaration, "__rel_loc char[] "))
        return gIsWord(inDeclaration);
    size_t typeWords = 0;
    while (inDeclaration.find(' ') != std::string_view::npos)
    {
        if (!gIsWord(gPassUntil(inDeclaration, ' ')))
            return false;
        ++typeWords;
    }
    if (const size_t bracket = inDeclaration.find('['); bracket != std::string_view::npos)
    {
        std::string_view length = inDeclaration.substr(bracket + 1);
        uint64_t number = 0;
        if (!length.ends_with(']'))
            return false;
        length.remove_suffix(1);
        if (!gReadNumber(length, number) && !gIsWord(length))
            return false;
        inDeclaration = inDeclaration.substr(0, bracket);
    }
    return typeWords != 0 && gIsWord(inDeclaration);
}

// "\tfield:DECLARATION;\toffset:N;\tsize:N;\tsigned:N;"
bool gIsUsualField(std::string_view inLine)
{
    uint64_t number = 0;
    return gPass(inLine, "\tfield:") && gIsUsualDeclaration(gPassUntil(inLine, ';')) && gPass(inLine, "\toffset:") &&
           gReadNumber(gPassUntil(inLine, ';'), number) && gPass(inLine, "\tsize:") &&
           gReadNumber(gPassUntil(inLine, ';'), number) && (inLine == "\tsigned:0;" || inLine == "\tsigned:1;");
}

} // namespace

bool gReadTracingData(std::span<const uint8_t> inBytes, TracingData& outData)
{
    Utility::ByteCursor cursor(inBytes.data(), inBytes.size());
    if (!gReadHeader(cursor, outData))
        return false;
    if (!gReadSystem(cursor, "ftrace", outData))
        return false;
    const auto systemCount = cursor.Read<uint32_t>();
    for (uint32_t i = 0; i != systemCount; ++i)
    {
        std::string_view system;
        if (cursor.HasFailed() || !gReadName(cursor, system) || !gReadSystem(cursor, system, outData))
            return false;
    }
    return !cursor.HasFailed();
}

bool gCleanFormat(std::string_view inFormat, CleanFormat& outFormat)
{
    constexpr size_t maxSize = 64u << 10;
    if (inFormat.size() > maxSize || !gPass(inFormat, "name: "))
        return false;
    const std::string_view name = gPassUntil(inFormat, '\n');
    if (!gIsWord(name) || !gPass(inFormat, "ID: ") || !gReadNumber(gPassUntil(inFormat, '\n'), outFormat.ID) ||
        !gPass(inFormat, "format:\n"))
        return false;

    outFormat.Name = name;
    outFormat.Text = "name: " + outFormat.Name + "\nID: " + std::to_string(outFormat.ID) + "\nformat:\n";
    bool isCommon = true;
    while (!inFormat.empty() && !inFormat.starts_with("print fmt:"))
    {
        const std::string_view line = gPassUntil(inFormat, '\n');
        if (line.empty() && inFormat.find('\n') == std::string_view::npos)
            break;
        // An empty line parts the fields that all tracepoints have from the others.
        if ((line.empty() && isCommon) || gIsUsualField(line))
            outFormat.Text.append(line).append("\n");
        isCommon = isCommon && !line.empty();
    }
    outFormat.Text += "\nprint fmt: \"\"\n";
    return true;
}

} // namespace Host
