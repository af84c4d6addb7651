#include "Host/Linux/DebugFileFinder.h"

#include "Tests/Host/ElfFixture.h"

#include <gmock/gmock.h>

namespace Host
{
namespace
{

using testing::HasSubstr;

// A stripped module without build id, and the debug file it notes, copied to where a test wants them.
class DebugLinkTest : public testing::Test
{
protected:
    void PutDebugFile(const std::string& inName) const
    {
        mScratch.Copy(sFixtureFolder + "/linked/.debug/libplain.debug", inName);
    }

    [[nodiscard]] std::string Find() const
    {
        uint32_t checksum = 0;
        EXPECT_TRUE(gGetFileChecksum(sFixtureFolder + "/linked/.debug/libplain.debug", checksum));
        return DebugFileFinder({mScratch.At("root")}).Find(mModule, BuildID(), {"libplain.debug", checksum});
    }

    const ScratchFolder mScratch{};
    const std::string mModule = mScratch.Copy(sFixtureFolder + "/linked/libplain.so", "lib/libplain.so");
};

} // namespace

TEST(DebugFileFinderTest, ChecksumIsTheCommonOne)
{
    const ScratchFolder scratch;
    uint32_t checksum = 0;
    ASSERT_TRUE(gGetFileChecksum(scratch.Write("digits", "123456789"), checksum));
    EXPECT_EQ(checksum, 0xCBF43926u);
    EXPECT_FALSE(gGetFileChecksum(scratch.At("missing"), checksum));
}

TEST(DebugFileFinderTest, FindsByBuildIDInTheFirstRootThatHasIt)
{
    const DebugFileFinder finder({"/nonexistent", sFixtureFolder + "/roots"});
    EXPECT_EQ(finder.FindByBuildID(sFixtureID), sFixtureDebugFile);
    EXPECT_EQ(finder.FindByBuildID(sOtherID), "");
    EXPECT_EQ(finder.FindByBuildID(BuildID()), "");
    EXPECT_EQ(finder.FindByBuildID(BuildID::sFromHex("5a")), "");
}

TEST(DebugFileFinderTest, AFileOfAnotherBuildIsNotUsedAndSaid)
{
    const ScratchFolder scratch;
    scratch.Copy(sFixtureDebugFile, ".build-id/ff/" + sOtherID.ToHex().substr(2) + ".debug");
    const LogCapture log;
    EXPECT_EQ(DebugFileFinder({scratch.At("")}).FindByBuildID(sOtherID), "");
    EXPECT_THAT(log.GetText(), HasSubstr("is of build " ELF_FIXTURE_ID ": not used"));
}

TEST_F(DebugLinkTest, IsFoundBesideBelowAndUnderTheRoots)
{
    EXPECT_EQ(Find(), "");
    const std::string underRoot = "root" + mScratch.At("lib/libplain.debug");
    for (const std::string& name : {underRoot, std::string("lib/.debug/libplain.debug"), std::string("lib/libplain.debug")})
    {
        PutDebugFile(name);
        EXPECT_EQ(Find(), mScratch.At(name));
    }
}

TEST_F(DebugLinkTest, AnotherChecksumIsPassedOverForTheNextPlace)
{
    const LogCapture log;
    mScratch.Write("lib/libplain.debug", "changed");
    PutDebugFile("lib/.debug/libplain.debug");
    EXPECT_EQ(Find(), mScratch.At("lib/.debug/libplain.debug"));
    EXPECT_THAT(log.GetText(), HasSubstr("another checksum"));
}

TEST_F(DebugLinkTest, ANameWithAFolderIsIgnored)
{
    PutDebugFile("elsewhere/libplain.debug");
    uint32_t checksum = 0;
    ASSERT_TRUE(gGetFileChecksum(mScratch.At("elsewhere/libplain.debug"), checksum));
    EXPECT_EQ(DebugFileFinder(std::vector<std::string>()).Find(mModule, BuildID(), {"../elsewhere/libplain.debug", checksum}),
              "");
}

} // namespace Host
