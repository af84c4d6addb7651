#include "Build.h"
#include "ShopTypes.h"
#include "Tests/FileSystem/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

using testing::ElementsAre;

namespace Serialization
{
namespace
{

class JSONTest : public TemporaryDirectoryTest
{
protected:
    static std::string Write(std::vector<const RTTI::Object*> inObjects)
    {
        std::string text;
        Utility::ErrorState errors;
        return gWriteObjectsToJSON(inObjects, text, errors) ? text : Build::GetFirstError(errors);
    }

    bool Read(std::string_view inText, Objects& outObjects, ReaderErrorState& ioErrors) const
    {
        return gReadObjectsFromJSON(inText, mRegistry, {}, mMode, outObjects, ioErrors);
    }

    // The one object of a text, which must be there.
    template <class T>
    std::unique_ptr<T> ReadOne(std::string_view inText) const
    {
        Objects objects;
        ReaderErrorState errors;
        EXPECT_TRUE(Read(inText, objects, errors)) << Utility::GetErrorText(errors);
        return objects.size() == 1 ? std::unique_ptr<T>(dynamic_cast<T*>(objects.front().release())) : nullptr;
    }

    // A shelf with the given members.
    std::unique_ptr<Shop::Shelf> ReadShelf(const std::string& inMembers) const
    {
        return ReadOne<Shop::Shelf>(R"({"Type": "Shop::Shelf", )" + inMembers + "}");
    }

    std::string ReadError(std::string_view inText) const
    {
        Objects objects;
        ReaderErrorState errors;
        EXPECT_FALSE(Read(inText, objects, errors));
        return Build::GetFirstError(errors);
    }

    std::string ReadShelfError(const std::string& inMembers) const
    {
        return ReadError(R"({"Type": "Shop::Shelf", )" + inMembers + "}");
    }

    Build mBuild = Build::With<Shop::Shelf, Shop::Tool>();
    RTTI::Registry& mRegistry = mBuild.GetRegistry();
    ReadObjectMode mMode = ReadObjectMode::Strict;
};

TEST_F(JSONTest, WritesEveryKindInItsForm)
{
    Shop::Shelf shelf;
    shelf.SignedByte = -2;
    shelf.Big = std::numeric_limits<uint64_t>::max();
    shelf.SignedBig = std::numeric_limits<int64_t>::min();
    shelf.IsOpen = true;
    shelf.Single = 0.1F;
    shelf.Double = -0.0;
    shelf.Text = "a\"\n";
    shelf.Temper = static_cast<Shop::ETemper>(77);
    shelf.Rows = {{}, {Shop::Point{1, 3}}};
    shelf.Places = {{"p", Shop::Point{}}};
    shelf.Keys = {9};
    auto tool = std::make_unique<Shop::Tool>();
    tool->Color = Shop::EColor::Green;
    shelf.Best = std::move(tool);
    shelf.Count = std::make_unique<int32_t>(-3);
    EXPECT_EQ(Write({&shelf}), R"({
    "Objects": [
        {
            "Type": "Shop::Shelf",
            "Byte": 0,
            "SignedByte": -2,
            "Word": 0,
            "SignedWord": 0,
            "Number": 0,
            "SignedNumber": 0,
            "Big": 18446744073709551615,
            "SignedBig": -9223372036854775808,
            "IsOpen": true,
            "Single": 0.10000000149011612,
            "Double": -0.0,
            "Text": "a\"\n",
            "Temper": "<invalid enum value>",
            "Place": {
                "X": 1.5,
                "Y": 2.5
            },
            "Plain": [],
            "Texts": [],
            "Colors": [],
            "Rows": [
                [],
                [
                    {
                        "X": 1.0,
                        "Y": 3.0
                    }
                ]
            ],
            "Places": [
                {
                    "Key": "p",
                    "Value": {
                        "X": 1.5,
                        "Y": 2.5
                    }
                }
            ],
            "Items": [],
            "Keys": [
                9
            ],
            "Best": {
                "Type": "Shop::Tool",
                "Label": "",
                "Price": 0,
                "Color": "Green",
                "Spare": {}
            },
            "Count": {
                "Value": -3
            },
            "Notes": {}
        }
    ]
})");
}

TEST_F(JSONTest, ANumberThatJSONLacksIsNotWritten)
{
    for (const double number : {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()})
    {
        Shop::Shelf shelf;
        shelf.Double = number;
        EXPECT_EQ(Write({&shelf}), "0: Error serializing primitive double");
        shelf.Double = 0;
        shelf.Place.Y = static_cast<float>(number);
        EXPECT_EQ(Write({&shelf}), "0: Error serializing primitive float");
    }
    Shop::Shelf shelf;
    shelf.Double = std::numeric_limits<double>::quiet_NaN();
    Utility::ErrorState errors;
    std::string text = "kept";
    const RTTI::Object* object = &shelf;
    EXPECT_FALSE(gWriteObjectsToJSON({&object, 1}, text, errors));
    EXPECT_EQ(errors.GetEntries().back().Message, "There was an error serializing object Shop::Shelf to json");
    EXPECT_EQ(text, "kept");
}

TEST_F(JSONTest, FilesEndWithANewline)
{
    Shop::Item item;
    item.Label = "nail";
    const RTTI::Object* object = &item;
    Utility::ErrorState errors;
    ASSERT_TRUE(gWriteObjectsToJSONFile(At("file"), {&object, 1}, errors));
    EXPECT_EQ(ReadFile("file"), Write({&item}) + "\n");

    Objects objects;
    ReaderErrorState readErrors;
    ASSERT_TRUE(gReadObjectsFromJSONFile(At("file"), mRegistry, {}, mMode, objects, readErrors));
    EXPECT_EQ(dynamic_cast<Shop::Item&>(*objects.front()).Label, "nail");
    WriteFile("wide", {"\xFF\xFE{\0\"\0O\0b\0j\0e\0c\0t\0s\0\"\0:\0[\0]\0}\0", 30});
    EXPECT_TRUE(gReadObjectsFromJSONFile(At("wide"), mRegistry, {}, mMode, objects, readErrors)) << "UTF-16, by its mark";

    EXPECT_FALSE(gReadObjectsFromJSONFile(At("none"), mRegistry, {}, mMode, objects, readErrors));
    EXPECT_EQ(Build::GetFirstError(readErrors), "6: Could not read file " + At("none"));
    EXPECT_EQ(readErrors.GetEntries().front().Context, At("none"));
    EXPECT_FALSE(gWriteObjectsToJSONFile(At("no/folder"), {&object, 1}, errors));
    EXPECT_EQ(Build::GetFirstError(errors), "0: Unable to write file " + At("no/folder"));
}

TEST_F(JSONTest, TakesADocumentOrOneObject)
{
    Objects objects;
    ReaderErrorState errors;
    ASSERT_TRUE(Read(R"({"Objects": []})", objects, errors));
    ASSERT_TRUE(Read(R"({"Objects": [{"Type": "Shop::Item"}, {"Type": "Shop::Tool"}]})", objects, errors));
    ASSERT_TRUE(Read(R"({"Type": "Shop::Item", "Objects": 3})", objects, errors));
    EXPECT_EQ(objects.size(), 3U);
    EXPECT_EQ(ReadError("[]"), "6: Root JSON value must be an object");
    EXPECT_EQ(ReadError("3"), "6: Root JSON value must be an object");
    EXPECT_EQ(ReadError("{}"), "6: Unable to find required 'Type' property for object");
    EXPECT_EQ(ReadError(R"({"Objects": [3]})"), "6: Unable to find required 'Type' property for object");
    EXPECT_EQ(ReadError(R"({"Type": "Shop::EColor"})"), "6: Root object Shop::EColor is not a compound.");
    EXPECT_EQ(ReadError(R"({"Type": "Shop::Point"})"), "6: Failed to instantiate object of type Shop::Point.");
}

TEST_F(JSONTest, AnUnknownTypeIsDroppedOrRefused)
{
    const std::string_view text = R"({"Objects": [{"Type": "Shop::Sold"}, {"Type": "Shop::Item", "Label": "x"}]})";
    EXPECT_EQ(ReadError(text), "6: Unknown object type Shop::Sold encountered.");
    mMode = ReadObjectMode::SkipUnknownTypes;
    EXPECT_EQ(ReadOne<Shop::Item>(text)->Label, "x");
}

TEST_F(JSONTest, ParseErrorsTellTheLine)
{
    EXPECT_EQ(ReadError("x"), "6: Error parsing json: Invalid value. (line: 1)");
    EXPECT_EQ(ReadError(""), "6: Error parsing json: The document is empty. (line: 1)");
    EXPECT_EQ(ReadError("{\n\n\"a\": }"), "6: Error parsing json: Invalid value. (line: 3)");
}

TEST_F(JSONTest, NumbersGoByTheirFormAndTarget)
{
    EXPECT_EQ(ReadShelf(R"("Double": 1, "Single": 7)")->Double, 0.0) << "an integer leaves a double alone";
    EXPECT_EQ(ReadShelf(R"("Double": 1.0)")->Double, 1.0);

    const std::string zeros(400, '0');
    EXPECT_EQ(ReadShelf("\"Double\": 0." + zeros + "1")->Double, 0.0);
    EXPECT_EQ(ReadShelf("\"Double\": 0." + zeros + "1e401")->Double, 1.0);
    EXPECT_EQ(ReadShelf(R"("Double": 0.00001e-310)")->Double, 1e-315);
    EXPECT_EQ(ReadShelf(R"("Double": 4254722528478.597126590562115974514012980730517091760000000e-149)")->Double,
              4254722528478.597126590562115974514012980730517091760000000e-149);
    EXPECT_EQ(ReadShelf(R"("SignedBig": -9223372036854775808)")->SignedBig, std::numeric_limits<int64_t>::min());
    EXPECT_EQ(ReadShelfError("\n\"Double\": -1e400"), "6: Error parsing json: Number too big to be stored in double. (line: 2)");
    EXPECT_EQ(ReadShelfError("\n\"Double\": -1.8e308"),
              "6: Error parsing json: Number too big to be stored in double. (line: 2)");
    EXPECT_EQ(ReadShelf(R"("Single": 0.25)")->Single, 0.25F);
    EXPECT_EQ(ReadShelf(R"("Byte": 511)")->Byte, 255);
    EXPECT_EQ(ReadShelf(R"("SignedByte": -1)")->SignedByte, -1);
    EXPECT_EQ(ReadShelf(R"("Number": -1)")->Number, 0xFFFFFFFFU);
    EXPECT_EQ(ReadShelf(R"("SignedWord": 4294967295)")->SignedWord, -1);
    EXPECT_EQ(ReadShelf(R"("Big": 18446744073709551615)")->Big, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(ReadShelf(R"("Number": null, "Text": null)")->Number, 0U);
    EXPECT_TRUE(ReadShelf(R"("IsOpen": true)")->IsOpen);
    EXPECT_EQ(ReadShelf(R"("Byte": true)")->Byte, 1);
    EXPECT_EQ(ReadShelf(R"("Unheard": [1], "Text": "a")")->Text, "a");
}

TEST_F(JSONTest, AValueThatDoesNotFitItsTargetIsRefused)
{
    EXPECT_EQ(ReadShelfError(R"("Number": 1.5)"), "6: Type is not a primitive type.");
    EXPECT_EQ(ReadShelfError(R"("Byte": "1")"), "6: Type is not a primitive type.");
    EXPECT_EQ(ReadShelfError(R"("Text": 1)"), "6: Type is not a primitive type.");
    EXPECT_EQ(ReadShelfError(R"("Word": true)"), "6: Type is not a primitive type.");
    EXPECT_EQ(ReadShelfError(R"("Text": {})"), "6: Expected compound or pointer type for std::string");
    EXPECT_EQ(ReadShelfError(R"("Text": [])"), "6: Expected array, map or set type");
    EXPECT_EQ(ReadShelfError(R"("Place": 1)"), "6: Expected primitive or enum type for Shop::Point");
    EXPECT_EQ(ReadShelfError(R"("Temper": 3)"), "6: Expected enum type for Shop::ETemper");
    EXPECT_EQ(ReadShelfError(R"("Temper": "Hot")"), "6: Invalid value for enum Shop::ETemper");
    EXPECT_EQ(ReadShelfError(R"("Places": [{"Value": {}}])"), "6: Missing Key property for map element");
    EXPECT_EQ(ReadShelfError(R"("Places": [{"Key": "a"}])"), "6: Missing Value property for map element");
    EXPECT_EQ(ReadShelfError(R"("Places": [1])"), "6: Missing Key property for map element");
}

TEST_F(JSONTest, PointersTakeWhatDerivesFromTheirClass)
{
    EXPECT_EQ(ReadShelf(R"("Best": {})")->Best, nullptr);
    const auto shelf = ReadShelf(R"("Best": {"Type": "Shop::Tool", "Color": "Blue"}, "Count": {"Value": 4})");
    EXPECT_EQ(dynamic_cast<Shop::Tool&>(*shelf->Best).Color, Shop::EColor::Blue);
    EXPECT_EQ(*shelf->Count, 4);
    EXPECT_EQ(ReadShelf(R"("Best": {"Type": "Shop::Sold"})")->Best, nullptr) << "an unknown class leaves the pointer alone";
    EXPECT_EQ(ReadShelfError(R"("Best": {"Label": "a"})"), "no error");
    EXPECT_EQ(ReadShelfError(R"("Count": {"Label": 1})"), "no error");
    EXPECT_EQ(ReadShelfError(R"("Best": {"Type": "Shop::Shelf"})"),
              "4: Compatibility issue: object of type Shop::Shelf used to be derived from Shop::Item but isn't anymore");
    EXPECT_EQ(ReadShelfError(R"("Best": {"Type": "P#Shop::Item"})"),
              "4: Compatibility issue: object of type P#Shop::Item used to be derived from Shop::Item but isn't anymore");
}

TEST_F(JSONTest, EachElementStartsAnew)
{
    const auto shelf = ReadShelf(R"("Places": [{"Key": "a", "Value": {"X": 9.0}}, {"Key": "b", "Value": {}}],
                                    "Keys": [1, 2, 1], "Texts": ["a", null])");
    EXPECT_EQ(shelf->Places.at("b").X, 1.5);
    EXPECT_EQ(shelf->Keys.size(), 2U);
    EXPECT_THAT(shelf->Texts, ElementsAre("a", ""));
}

// The text of tools in one another, with their levels.
std::string gNestTools(int inLevels)
{
    std::string text;
    for (int i = 0; i < inLevels; ++i)
        text += R"({"Type": "Shop::Tool", "Spare": )";
    return text + "{}" + std::string(static_cast<size_t>(inLevels), '}');
}

TEST_F(JSONTest, DepthIsBoundedOnBothWays)
{
    EXPECT_NE(ReadOne<Shop::Tool>(gNestTools(500)), nullptr);
    EXPECT_EQ(ReadError(gNestTools(501)), "6: More than 500 objects lie in one another");
    EXPECT_EQ(ReadError(gNestTools(100000)), "6: More than 500 objects lie in one another");
    EXPECT_EQ(ReadError(std::string(1000000, '[')).substr(0, 2), "6:");

    const auto tool = ReadOne<Shop::Tool>(gNestTools(500));
    Shop::Tool outer;
    outer.Spare = ReadOne<Shop::Tool>(gNestTools(500));
    EXPECT_EQ(Write({tool.get()}).substr(0, 1), "{");
    EXPECT_EQ(Write({&outer}), "0: Unable to write object of type Shop::Tool: more than 500 objects lie in one another");
}

} // namespace
} // namespace Serialization
