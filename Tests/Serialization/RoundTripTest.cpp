// Random object graphs, through files of both kinds.
#include "Build.h"
#include "ShopRandom.h"

#include <gtest/gtest.h>

namespace Serialization
{
namespace
{

class RoundTripTest : public testing::Test
{
protected:
    // Some shelves of random content.
    static std::vector<std::unique_ptr<Shop::Shelf>> MakeShelves(uint32_t inSeed)
    {
        Shop::RandomShop random(inSeed);
        std::vector<std::unique_ptr<Shop::Shelf>> shelves;
        for (uint32_t count = random.Below(4); count > 0; --count)
            shelves.push_back(random.MakeShelf());
        return shelves;
    }

    static void ExpectAlike(const std::vector<std::unique_ptr<Shop::Shelf>>& inShelves, const Objects& inObjects)
    {
        ASSERT_EQ(inObjects.size(), inShelves.size());
        for (size_t i = 0; i < inShelves.size(); ++i)
            EXPECT_TRUE(Shop::gIsAlike(*inShelves[i], dynamic_cast<const Shop::Shelf&>(*inObjects[i])));
    }

    Build mBuild = Build::With<Shop::Shelf, Shop::Tool>();
};

TEST_F(RoundTripTest, BothFormatsGiveBackWhatWasWritten)
{
    for (uint32_t seed = 0; seed < 300; ++seed)
    {
        SCOPED_TRACE(seed);
        const auto shelves = MakeShelves(seed);
        std::vector<const RTTI::Object*> written;
        for (const auto& shelf : shelves)
            written.push_back(shelf.get());
        Objects objects;
        ReaderErrorState errors;
        ASSERT_TRUE(mBuild.Read(Build::Write(written), objects, errors)) << Utility::GetErrorText(errors);
        ASSERT_NO_FATAL_FAILURE(ExpectAlike(shelves, objects));

        std::string text;
        Utility::ErrorState writeErrors;
        ASSERT_TRUE(gWriteObjectsToJSON(written, text, writeErrors)) << Utility::GetErrorText(writeErrors);
        objects.clear();
        ASSERT_TRUE(gReadObjectsFromJSON(text, mBuild.GetRegistry(), {}, ReadObjectMode::Strict, objects, errors))
            << Utility::GetErrorText(errors);
        ASSERT_NO_FATAL_FAILURE(ExpectAlike(shelves, objects));
    }
}

TEST_F(RoundTripTest, DeepObjectsAreReadWhereTheyAreWritten)
{
    constexpr uint32_t limit = 500;
    Shop::Tool top;
    top.Label = "top";
    Shop::Tool* last = &top;
    for (uint32_t depth = 1; depth < limit; ++depth)
    {
        auto tool = std::make_unique<Shop::Tool>();
        Shop::Tool* next = tool.get();
        last->Spare = std::move(tool);
        last = next;
    }
    EXPECT_TRUE(Shop::gIsAlike(&top, mBuild.ReadOne<Shop::Tool>(Build::Write(top)).get()));

    last->Spare = std::make_unique<Shop::Tool>();
    Utility::ByteBuffer buffer;
    Utility::ErrorState errors;
    const RTTI::Object* object = &top;
    EXPECT_FALSE(gWriteObjectsToBuffer(buffer, {&object, 1}, errors));
    EXPECT_EQ(Build::GetFirstError(errors),
              "0: Unable to write object of type Shop::Tool: more than 500 objects lie in one another");
    EXPECT_EQ(buffer.GetSize(), 0U);
}

} // namespace
} // namespace Serialization
