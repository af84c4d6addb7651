#include "Host/Linux/BuildID.h"

#include "Host/Linux/ReadFile.h"
#include "Utility/ByteBuffer.h"
#include "Utility/Hash.h"

#include <algorithm>
#include <cstring>

namespace Host
{

namespace
{

constexpr uint32_t sBuildIDNoteType = 3;
constexpr char sBuildIDNoteName[] = "GNU"; // with its terminator, as the note counts it

// The value of a hexadecimal digit, -1 if it isn't one.
int gGetDigitValue(char inDigit)
{
    if (inDigit >= '0' && inDigit <= '9')
        return inDigit - '0';
    const char lower = static_cast<char>(inDigit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Passes over a name or description with its padding. The padding of the last one may be missing.
const uint8_t* gTakePadded(Utility::ByteCursor& ioCursor, size_t inSize, size_t inAlignment)
{
    const uint8_t* bytes = ioCursor.Take(inSize);
    const size_t padding = (inAlignment - inSize % inAlignment) % inAlignment;
    ioCursor.Take(std::min(padding, ioCursor.GetRemaining()));
    return bytes;
}

} // namespace

BuildID BuildID::sFromBytes(std::span<const uint8_t> inBytes)
{
    BuildID id;
    id.mSize = static_cast<uint8_t>(std::min(inBytes.size(), sMaxSize));
    std::copy_n(inBytes.begin(), id.mSize, id.mBytes.begin());
    return id;
}

BuildID BuildID::sFromHex(std::string_view inText)
{
    if (inText.size() % 2 != 0)
        return {};
    BuildID id;
    for (size_t i = 0; i < inText.size(); i += 2)
    {
        const int high = gGetDigitValue(inText[i]);
        const int low = gGetDigitValue(inText[i + 1]);
        if (high < 0 || low < 0)
            return {};
        if (id.mSize < sMaxSize)
            id.mBytes[id.mSize++] = static_cast<uint8_t>(high * 16 + low);
    }
    return id;
}

std::string BuildID::ToHex() const
{
    static constexpr char sDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(mSize * 2u);
    for (const uint8_t byte : GetBytes())
    {
        text += sDigits[byte >> 4];
        text += sDigits[byte & 15];
    }
    return text;
}

size_t BuildIDHash::operator()(const BuildID& inID) const noexcept
{
    return Utility::gHash64(inID.GetBytes().data(), inID.GetBytes().size());
}

BuildID gFindBuildIDNote(std::span<const uint8_t> inNotes, size_t inAlignment)
{
    Utility::ByteCursor cursor(inNotes.data(), inNotes.size());
    while (cursor.GetRemaining() > 0)
    {
        const auto nameSize = cursor.Read<uint32_t>();
        const auto descriptionSize = cursor.Read<uint32_t>();
        const auto type = cursor.Read<uint32_t>();
        const uint8_t* name = gTakePadded(cursor, nameSize, inAlignment);
        const uint8_t* description = gTakePadded(cursor, descriptionSize, inAlignment);
        if (cursor.HasFailed())
            return {};
        if (type == sBuildIDNoteType && nameSize == sizeof(sBuildIDNoteName) &&
            std::memcmp(name, sBuildIDNoteName, sizeof(sBuildIDNoteName)) == 0)
            return BuildID::sFromBytes({description, descriptionSize});
    }
    return {};
}

BuildID gReadKernelBuildID(const std::string& inNotesPath)
{
    std::string notes;
    if (!gReadWholeFile(inNotesPath, notes))
        return {};
    return gFindBuildIDNote({reinterpret_cast<const uint8_t*>(notes.data()), notes.size()});
}

} // namespace Host
