#include "Session/Modules/InstrumentationDatabase.h"

#include "RTTI/TypeQueries.h"

#include <gtest/gtest.h>

namespace
{

using namespace Profiler;

constexpr uint32_t sBlue = 0xFF0000FF;
constexpr uint32_t sRed = 0xFFFF0000;
constexpr ResolveIndex sIndex = {5 | ResolveIndex::sInstrumentedFlag};

class InstrumentationDatabaseTest : public testing::Test
{
protected:
    // Enters a name as files of the first version hold it.
    void AddOldEntry(const ResolvedAddress& inAddress, std::string inName)
    {
        const RTTI::Property* property = RTTI::gFindProperty(RTTI::gTypeOf<InstrumentationDatabase>(), "InstrumentationIDs");
        property->Type->AsMap()->Insert(property->GetData(&mDatabase), &inAddress, &inName);
    }

    [[nodiscard]] std::string Print(const ResolvedAddress& inAddress) const
    {
        const InstrumentationData* data = mDatabase.FindInstrumentationData(inAddress);
        return data != nullptr ? data->Name + "/" + std::to_string(data->Color) : "none";
    }

    InstrumentationDatabase mDatabase;
};

TEST_F(InstrumentationDatabaseTest, TheFirstNameAndColorStay)
{
    mDatabase.AddInstrumentationData(0x100, sIndex, "frame", "", sBlue);
    mDatabase.AddInstrumentationData(0x100, sIndex, "other", "", sRed);
    EXPECT_EQ(Print({0x100, sIndex}), "frame/" + std::to_string(sBlue));
    EXPECT_EQ(Print({0x100, {5}}), "none") << "the flag is part of the address";
    EXPECT_EQ(Print({0x101, sIndex}), "none");
    EXPECT_EQ(Print({0x100, {sIndex.Index | 0xC0000000}}), Print({0x100, sIndex})) << "the free bits are not";
}

TEST_F(InstrumentationDatabaseTest, ContextTextsAreKeptOnceUnderTheirHash)
{
    EXPECT_EQ(mDatabase.AddInstrumentationData(0x100, sIndex, "frame", "", sBlue), ~uint64_t{0});
    EXPECT_EQ(mDatabase.FindContext(~uint64_t{0}), nullptr);

    // The XXH64 of "abc" with seed 0.
    constexpr uint64_t hash = 0x44BC2CF5AD770999;
    EXPECT_EQ(mDatabase.AddInstrumentationData(0x100, sIndex, "frame", "abc", sBlue), hash);
    ASSERT_NE(mDatabase.FindContext(hash), nullptr);
    const std::string* stored = mDatabase.FindContext(hash);
    EXPECT_EQ(*stored, "abc");
    EXPECT_EQ(mDatabase.AddInstrumentationData(0x200, sIndex, "frame", "abc", sBlue), hash);
    EXPECT_EQ(mDatabase.FindContext(hash), stored);
}

TEST_F(InstrumentationDatabaseTest, EntriesOfOldFilesMoveOver)
{
    AddOldEntry({0x100, sIndex}, "old");
    EXPECT_EQ(Print({0x100, sIndex}), "none");
    mDatabase.OnLoaded();
    EXPECT_EQ(Print({0x100, sIndex}), "old/" + std::to_string(0xFFFFFFFFU));

    const RTTI::Property* property = RTTI::gFindProperty(RTTI::gTypeOf<InstrumentationDatabase>(), "InstrumentationIDs");
    EXPECT_EQ(property->Type->AsMap()->GetCount(property->GetData(&mDatabase)), 0U);
}

} // namespace
