#include "Host/Linux/BuildID.h"

#include "Host/Linux/ElfFile.h"
#include "Tests/Host/ElfFixture.h"
#include "Utility/ByteBuffer.h"

#include <gtest/gtest.h>

namespace Host
{
namespace
{

// The bytes of one note, padded to four as the kernel writes them.
std::vector<uint8_t> gMakeNote(std::string_view inName, uint32_t inType, std::span<const uint8_t> inDescription)
{
    Utility::ByteBuffer buffer;
    buffer.AppendValue(static_cast<uint32_t>(inName.size() + 1));
    buffer.AppendValue(static_cast<uint32_t>(inDescription.size()));
    buffer.AppendValue(inType);
    const auto appendPadded = [&](const void* inBytes, size_t inSize)
    {
        buffer.Append(inBytes, inSize);
        while (buffer.GetSize() % 4 != 0)
            buffer.AppendValue(uint8_t{0});
    };
    appendPadded(std::string(inName).c_str(), inName.size() + 1);
    appendPadded(inDescription.data(), inDescription.size());
    return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

} // namespace

TEST(BuildIDTest, TextAndBytesAgree)
{
    const BuildID id = BuildID::sFromHex("00aBcD");
    EXPECT_EQ(id.ToHex(), "00abcd");
    EXPECT_EQ(id, BuildID::sFromBytes(std::vector<uint8_t>{0x00, 0xAB, 0xCD}));
    EXPECT_EQ(BuildIDHash()(id), BuildIDHash()(BuildID::sFromHex("00ABCD")));
    EXPECT_TRUE(BuildID::sFromHex("abc").IsEmpty());
    EXPECT_TRUE(BuildID::sFromHex("0g").IsEmpty());
    EXPECT_EQ(BuildID::sFromHex(std::string(64, 'a')).ToHex(), std::string(40, 'a'));

    const BuildID shortID = BuildID::sFromHex("1122334455667788");
    const BuildID padded = BuildID::sFromHex("1122334455667788" + std::string(24, '0'));
    EXPECT_TRUE(shortID.Matches(padded)) << "zeros behind a short one";
    EXPECT_NE(shortID, padded);
    EXPECT_FALSE(shortID.Matches(BuildID::sFromHex("1122334455667789")));
    EXPECT_FALSE(BuildID().Matches(BuildID::sFromHex("00")));
}

TEST(BuildIDTest, FindsItsNoteAmongOthersAndSurvivesEveryCut)
{
    const std::vector<uint8_t> other = {9, 9, 9, 9, 9};
    std::vector<uint8_t> notes = gMakeNote("Linux", 3, other);
    for (const auto& note : {gMakeNote("GNU", 1, other), gMakeNote("GNU", 3, sFixtureID.GetBytes())})
        notes.insert(notes.end(), note.begin(), note.end());
    EXPECT_EQ(gFindBuildIDNote(notes), sFixtureID);

    for (size_t size = 0; size < notes.size(); ++size)
    {
        // A copy of exactly this size, so that a read behind it is noticed.
        const std::vector<uint8_t> cut(notes.begin(), notes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_TRUE(gFindBuildIDNote(cut).IsEmpty()) << size;
    }
}

TEST(BuildIDTest, IsReadFromFiles)
{
    EXPECT_EQ(gReadFileBuildID(sFixtureFolder + "/libstripped.so"), sFixtureID);
    EXPECT_EQ(gReadFileBuildID(sFixtureDebugFile), sFixtureID);
    EXPECT_TRUE(gReadFileBuildID(sFixtureFolder + "/linked/libplain.so").IsEmpty());
    EXPECT_TRUE(gReadFileBuildID("/dev/null").IsEmpty());

    const ScratchFolder scratch;
    const std::vector<uint8_t> note = gMakeNote("GNU", 3, sFixtureID.GetBytes());
    EXPECT_EQ(gReadKernelBuildID(scratch.Write("notes", {reinterpret_cast<const char*>(note.data()), note.size()})), sFixtureID);
    EXPECT_TRUE(gReadKernelBuildID(scratch.At("missing")).IsEmpty());
}

} // namespace Host
