// The format to the byte, and the steps and messages of reading it.
#include "Build.h"
#include "HandMadeContainer.h"
#include "ShopTypes.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Utility/Format.h"

#include <gmock/gmock.h>

using testing::ElementsAreArray;

namespace Serialization
{
namespace
{

// The schema of an item, as the pretty writer with four spaces sets it.
std::string gGetItemSchema()
{
    constexpr int32_t objectVersion = 1;
    constexpr int32_t itemVersion = 2;
    const uint64_t objectFull = Utility::gCRC64(&objectVersion, sizeof(objectVersion), 0);
    const uint64_t itemFull = Utility::gCRC64(&itemVersion, sizeof(itemVersion), objectFull);
    return R"({
    "Objects": [
        {
            "Type": "Serialization::Schema",
            "Compounds": [
                {
                    "Key": "Shop::Item",
                    "Value": {
                        "Type": "Serialization::CompoundSchema",
                        "Properties": [
                            {
                                "Type": {
                                    "DataType": 1,
                                    "TypeName": "std::string"
                                },
                                "Name": "Label"
                            },
                            {
                                "Type": {
                                    "DataType": 1,
                                    "TypeName": "int64_t"
                                },
                                "Name": "Price"
                            }
                        ],
                        "Version": 2,
                        "FullVersion": )" +
           std::to_string(itemFull) + R"(
                    }
                }
            ],
            "Enums": [],
            "Pointers": [],
            "Arrays": [],
            "Maps": [],
            "Sets": []
        }
    ]
})";
}

RootObject gMakeItem(std::string_view inLabel, int64_t inPrice)
{
    return {"Shop::Item", gSized({gString(inLabel), gNumber(inPrice)})};
}

class BinaryContainerTest : public TemporaryDirectoryTest
{
protected:
    static HandMadeContainer MakeTwoItems(uint32_t inVersion)
    {
        return {.Version = inVersion, .SchemaText = gGetItemSchema(), .Objects = {gMakeItem("nail", 25), gMakeItem("", -1)}};
    }

    void Store(const Bytes& inBytes) const { WriteFile("file", {reinterpret_cast<const char*>(inBytes.data()), inBytes.size()}); }

    // "label price" of each item of a file, or the error.
    std::string ReadItems(const Bytes& inBytes) const
    {
        Store(inBytes);
        Objects objects;
        ReaderErrorState errors;
        const bool isRead = gReadObjectsFromFile(At("file"), mRegistry, {}, {}, ReadObjectMode::Strict, objects, errors);
        EXPECT_EQ(isRead, errors.GetEntries().empty());
        return isRead ? Describe(objects) : Build::GetFirstError(errors);
    }

    static std::string Describe(const Objects& inObjects)
    {
        std::string text;
        for (const auto& object : inObjects)
        {
            const auto* item = dynamic_cast<const Shop::Item*>(object.get());
            text += item != nullptr ? item->Label + ' ' + std::to_string(item->Price) + ';' : "other;";
        }
        return text;
    }

    std::string OpenError(const std::string& inName) const
    {
        BinaryFileReader reader = mBuild.MakeFileReader();
        ReaderErrorState errors;
        EXPECT_FALSE(reader.Open(At(inName), errors));
        EXPECT_EQ(errors.GetEntries().front().Context, At(inName));
        Objects objects;
        EXPECT_FALSE(reader.ReadObjects(objects, errors)) << "an unusable reader was used";
        return Build::GetFirstError(errors);
    }

    std::string OpenError(const Bytes& inBytes) const
    {
        Store(inBytes);
        return OpenError("file");
    }

    Build mBuild = Build::With<Shop::Item, Shop::Tool>();
    RTTI::Registry& mRegistry = mBuild.GetRegistry();
};

TEST_F(BinaryContainerTest, WritesTheNewestLayoutToTheByte)
{
    Shop::Item nail;
    nail.Label = "nail";
    nail.Price = 25;
    Shop::Item unnamed;
    unnamed.Price = -1;
    EXPECT_THAT(Build::Write({&nail, &unnamed}), ElementsAreArray(MakeTwoItems(4).Build()));

    Utility::ErrorState errors;
    const std::vector<const RTTI::Object*> objects{&nail, &unnamed};
    ASSERT_TRUE(gWriteObjectsToFile(At("file"), objects, errors));
    const std::string file = ReadFile("file");
    EXPECT_THAT(Bytes(file.begin(), file.end()), ElementsAreArray(MakeTwoItems(4).Build()));
}

TEST_F(BinaryContainerTest, EncodesEveryKind)
{
    Shop::Shelf shelf;
    shelf.Byte = 0xAB;
    shelf.SignedByte = -2;
    shelf.Big = 1;
    shelf.IsOpen = true;
    shelf.Single = 0.5F;
    shelf.Text = "t";
    shelf.Temper = Shop::ETemper::Cold;
    shelf.Plain = {1, 0x203};
    shelf.Texts = {"a", ""};
    shelf.Colors = {Shop::EColor::Blue};
    shelf.Rows = {{}, {Shop::Point{}}};
    shelf.Places = {{"p", Shop::Point{}}};
    shelf.Keys = {9};
    auto tool = std::make_unique<Shop::Tool>();
    tool->Label = "saw";
    shelf.Best = std::move(tool);
    shelf.Count = std::make_unique<int32_t>(-3);

    const Bytes point = gSized({gNumber(1.5), gNumber(2.5F)});
    const Bytes null = gString("null");
    ASSERT_EQ(null.size(), 12U);
    const Bytes saw = gJoin({gString("Shop::Tool"), gSized({gString("saw"), gNumber(int64_t{0}), gNumber(uint8_t{1}), null})});
    const Bytes expected = gSized({gNumber(uint8_t{0xAB}),
                                   gNumber(int8_t{-2}),
                                   gNumber(uint16_t{0}),
                                   gNumber(int16_t{0}),
                                   gNumber(uint32_t{0}),
                                   gNumber(int32_t{0}),
                                   gNumber(uint64_t{1}),
                                   gNumber(int64_t{0}),
                                   gNumber(uint8_t{1}),
                                   gNumber(0.5F),
                                   gNumber(0.0),
                                   gString("t"),
                                   gNumber(int16_t{-5}),
                                   point,
                                   gCounted(2, {gNumber(uint16_t{1}), gNumber(uint16_t{0x203})}),
                                   gCounted(2, {gString("a"), gString("")}),
                                   gCounted(1, {gNumber(uint8_t{200})}),
                                   gCounted(2, {gCounted(0, {}), gCounted(1, {point})}),
                                   gCounted(1, {gString("p"), point}),
                                   gCounted(0, {}),
                                   gCounted(1, {gNumber(uint64_t{9})}),
                                   saw,
                                   gString("int32_t"),
                                   gNumber(int32_t{-3}),
                                   null});

    const Build build = Build::With<Shop::Shelf, Shop::Tool>();
    const Bytes written = Build::Write(shelf);
    ASSERT_GT(written.size(), expected.size());
    EXPECT_THAT(Bytes(written.end() - static_cast<ptrdiff_t>(expected.size()), written.end()), ElementsAreArray(expected));
}

TEST_F(BinaryContainerTest, ReadsAllVersions)
{
    EXPECT_EQ(ReadItems(MakeTwoItems(1).BuildWithoutTable()), "nail 25; -1;");
    EXPECT_EQ(ReadItems(MakeTwoItems(2).BuildWithoutTable()), "nail 25; -1;");
    EXPECT_EQ(ReadItems(MakeTwoItems(3).Build()), "nail 25; -1;");
    EXPECT_EQ(ReadItems(MakeTwoItems(4).Build()), "nail 25; -1;");
    EXPECT_EQ(ReadItems(Build::Write(std::vector<const RTTI::Object*>())), "") << "no objects at all";
}

TEST_F(BinaryContainerTest, FindsOneObjectWithoutTheOthers)
{
    Shop::Tool saw;
    saw.Label = "saw";
    Shop::Shelf shelf;
    Build build = Build::With<Shop::Shelf, Shop::Tool>();
    Bytes bytes = Build::Write({&shelf, &saw});
    const size_t inShelf = bytes.size() - gJoin({gString("Shop::Tool"), gSized({gString("saw")})}).size() - 60;
    bytes[inShelf] ^= 1;
    Store(bytes);

    BinaryFileReader reader = build.MakeFileReader();
    ReaderErrorState errors;
    ASSERT_TRUE(reader.Open(At("file"), errors));
    EXPECT_TRUE(reader.ContainsObject(RTTI::gTypeOf<Shop::Item>())) << "a tool is an item";
    EXPECT_FALSE(reader.ContainsObject(RTTI::gTypeOf<Schema>()));
    const std::unique_ptr<RTTI::Object> found = reader.ReadObject(RTTI::gTypeOf<Shop::Item>(), errors);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(dynamic_cast<Shop::Tool&>(*found).Label, "saw");
    EXPECT_EQ(reader.ReadObject(RTTI::gTypeOf<Schema>(), errors), nullptr);
    EXPECT_TRUE(errors.GetEntries().empty());

    Objects objects;
    EXPECT_FALSE(reader.ReadObjects(objects, errors));
    EXPECT_EQ(Build::GetFirstError(errors), "6: Failed to read object. Checksum mismatch.");
    EXPECT_TRUE(objects.empty()) << "an object was decoded before all hashes were checked";
}

TEST_F(BinaryContainerTest, WhatTheTableDoesNotTellTrulyIsNotFound)
{
    HandMadeContainer container = MakeTwoItems(4);
    container.Objects.resize(1);
    container.Objects[0].TableName = "Serialization::Schema";
    const auto read = [this](const Bytes& inBytes, const RTTI::Type& inType)
    {
        Store(inBytes);
        BinaryFileReader reader = mBuild.MakeFileReader();
        ReaderErrorState errors;
        EXPECT_TRUE(reader.Open(At("file"), errors));
        EXPECT_EQ(reader.ReadObject(inType, errors), nullptr);
        return Build::GetFirstError(errors) + (reader.ContainsObject(inType) ? ", listed" : ", not listed");
    };
    EXPECT_EQ(read(container.Build(), RTTI::gTypeOf<Schema>()),
              "6: The data are corrupt: an object is of another class than the table says, listed");
    EXPECT_EQ(read(MakeTwoItems(2).BuildWithoutTable(), RTTI::gTypeOf<Shop::Item>()), "no error, not listed");
}

TEST_F(BinaryContainerTest, OpenSaysWhatIsWrong)
{
    EXPECT_EQ(OpenError("missing"), "1: The file " + At("missing") + " does not exist");
    EXPECT_EQ(OpenError(Bytes{1, 2, 3}), "6: The file is corrupt: expected 8 bytes available for reading");
    HandMadeContainer container = MakeTwoItems(4);
    container.Magic ^= 1;
    EXPECT_EQ(OpenError(container.Build()), "3: The file is not a Brenvaldoris file, or it is corrupted");
    EXPECT_EQ(OpenError(MakeTwoItems(0).Build()), "5: The file has an unsupported version number (0)");
    EXPECT_EQ(OpenError(MakeTwoItems(5).Build()), "5: The file has an unsupported version number (5)");

    const Bytes word = gJoin({gNumber(uint32_t{0xF450C25D}), gNumber(uint32_t{3})});
    EXPECT_EQ(OpenError(word), "6: The file is corrupt: expected 8 bytes available for reading");
    EXPECT_EQ(OpenError(gJoin({word, gNumber(uint64_t{7}), Bytes(100)})), "6: The file is corrupt: unable to read header");
    EXPECT_EQ(OpenError(gJoin({word, gNumber(uint64_t{101}), Bytes(100)})),
              "6: The file is corrupt: expected 101 bytes available for reading");
    EXPECT_EQ(OpenError(gJoin({word, gNumber(uint64_t{8}), Bytes(8)})), "6: The buffer is corrupted: checksum check failed");

    MakeDirectory("folder");
    EXPECT_THAT(OpenError("folder"), testing::AnyOf(testing::StartsWith("2: "), testing::StartsWith("6: ")));

    container = MakeTwoItems(4);
    container.SchemaText = R"({"Objects": []})";
    EXPECT_EQ(OpenError(container.Build()), "6: The schema was not found");
    container.SchemaText = "{\n\"Objects\": [\n}";
    EXPECT_EQ(OpenError(container.Build()), "6: Error parsing json: Invalid value. (line: 3)");
}

TEST_F(BinaryContainerTest, AFlippedByteIsFoundBeforeAnythingIsDecoded)
{
    Bytes bytes = MakeTwoItems(4).Build();
    bytes[100] ^= 0x20;
    EXPECT_EQ(ReadItems(bytes), "6: The buffer is corrupted: checksum check failed");
    bytes = MakeTwoItems(4).Build();
    bytes.back() ^= 1;
    EXPECT_EQ(ReadItems(bytes), "6: Failed to read object. Checksum mismatch.");
    bytes.pop_back();
    EXPECT_EQ(ReadItems(bytes), "6: Failed to read object. File appears to be truncated.");
    for (const uint32_t version : {1U, 2U})
    {
        bytes = MakeTwoItems(version).BuildWithoutTable();
        bytes[bytes.size() - 9] ^= 1;
        EXPECT_EQ(ReadItems(bytes), "6: The buffer is possibly corrupted: CRC check failed");
    }
}

TEST_F(BinaryContainerTest, RootsMustBeObjects)
{
    HandMadeContainer container = MakeTwoItems(4);
    container.Objects[1] = {"null", {}};
    EXPECT_EQ(ReadItems(container.Build()), "6: Encountered null root object");

    const Build withPoint = Build::With<Shop::Shelf>();
    container.Objects = {{"Shop::Point", gSized({gNumber(0.0), gNumber(0.0F)})}};
    Utility::ErrorState errors;
    Schema schema;
    schema.Add(RTTI::gTypeOf<Shop::Point>());
    const RTTI::Object* root = &schema;
    ASSERT_TRUE(gWriteObjectsToJSON({&root, 1}, container.SchemaText, errors));
    EXPECT_EQ(withPoint.ReadError(container.Build()), "6: Root objects must be of type RTTI::Object");
}

TEST_F(BinaryContainerTest, BuffersHaveMessagesOfTheirOwn)
{
    EXPECT_EQ(mBuild.ReadError({1, 2, 3}), "3: The buffer is not a Brenvaldoris buffer, or it is corrupted");
    HandMadeContainer container = MakeTwoItems(4);
    container.Magic ^= 1;
    EXPECT_EQ(mBuild.ReadError(container.Build()), "3: The buffer is not a Brenvaldoris buffer, or it is corrupted");
    const Bytes word = gJoin({gNumber(uint32_t{0xF450C25D}), gNumber(uint32_t{4})});
    EXPECT_EQ(mBuild.ReadError(gJoin({word, gNumber(uint64_t{7}), Bytes(9)})), "6: The buffer is corrupt: unable to read header");
    EXPECT_EQ(mBuild.ReadError(gJoin({word, gNumber(uint64_t{50}), Bytes(9)})),
              "6: The buffer is corrupt: expected 50 bytes available for reading");
}

TEST_F(BinaryContainerTest, NothingIsWrittenWhenEncodingOrOpeningFails)
{
    WriteFile("file", "before");
    Shop::Item item;
    const std::vector<const RTTI::Object*> items{&item};
    Utility::ErrorState errors;
    EXPECT_FALSE(gWriteObjectsToFile(At("no/such/folder"), items, errors));
    EXPECT_EQ(errors.GetEntries().back().Message, "Unable to open file " + At("no/such/folder") + " for writing");
    Shop::Shelf shelf;
    const std::vector<const RTTI::Object*> shelves{&shelf};
    const_cast<RTTI::CompoundInfo*>(shelf.GetType().AsCompound())->TreeIndex = RTTI::sNotRegistered;
    EXPECT_FALSE(gWriteObjectsToFile(At("file"), shelves, errors));
    EXPECT_EQ(errors.GetEntries().back().Message,
              "Unable to write compound of type Shop::Shelf which has not been registered with the RTTI registry");
    EXPECT_EQ(errors.GetEntries().back().Code, 0U);
    EXPECT_EQ(ReadFile("file"), "before");
}

TEST(MemoryReadStreamTest, SkippingStopsAtTheLastByte)
{
    const uint8_t bytes[4] = {1, 2, 3, 4};
    MemoryReadStream stream(bytes, sizeof(bytes));
    stream.Skip(2);
    EXPECT_EQ(stream.GetPosition(), 2U);
    stream.Skip(2);
    EXPECT_EQ(stream.GetPosition(), 3U);
    stream.Skip(~uint64_t{0});
    EXPECT_EQ(stream.GetPosition(), 3U);
    uint16_t number = 7;
    EXPECT_FALSE(stream.Read(number));
    EXPECT_EQ(number, 7U);
    EXPECT_EQ(stream.GetPosition(), 3U);
    uint8_t last = 0;
    EXPECT_TRUE(stream.Read(last));
    EXPECT_EQ(last, 4U);
    stream.Skip(0);
    EXPECT_EQ(stream.GetRemaining(), 0U) << "skipping never goes back";
}

} // namespace
} // namespace Serialization
