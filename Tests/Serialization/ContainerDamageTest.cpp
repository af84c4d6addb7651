// Containers that someone damaged, also with hashes that were made to fit again: an error of class 6, or an object, and no crash,
// hang or allocation beyond reason.
#include "Build.h"
#include "HandMadeContainer.h"
#include "ShopRandom.h"
#include "Tests/FileSystem/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cstring>

namespace Serialization
{
namespace
{

class ContainerDamageTest : public TemporaryDirectoryTest
{
protected:
    // The schema of the shop, as the writer makes it, and what a test makes of it.
    template <class Change>
    static std::string MakeSchemaText(Change inChange)
    {
        Schema schema;
        schema.Add(RTTI::gTypeOf<Shop::Shelf>());
        schema.Add(RTTI::gTypeOf<Shop::Tool>());
        schema.Add(RTTI::gTypeOf<Shop::Line>());
        inChange(schema);
        std::string text;
        Utility::ErrorState errors;
        const RTTI::Object* object = &schema;
        EXPECT_TRUE(gWriteObjectsToJSON({&object, 1}, text, errors));
        return text;
    }

    static Bytes MakeShelfCompound(Shop::RandomShop& ioRandom)
    {
        return gTakeLastCompound(Build::Write(*ioRandom.MakeShelf()), "Shop::Shelf");
    }

    // What reading a shelf under another schema ends with.
    template <class Change>
    std::string ReadShelfError(Change inChange)
    {
        Shop::RandomShop random(1);
        return mBuild.ReadError(
            HandMadeContainer{.SchemaText = MakeSchemaText(inChange), .Objects = {{"Shop::Shelf", MakeShelfCompound(random)}}}
                .Build());
    }

    // Reads a container whose hashes fit. Any result is right, but for a failure without a word.
    void ReadHostile(const HandMadeContainer& inContainer)
    {
        Objects objects;
        ReaderErrorState errors;
        if (mBuild.Read(inContainer.Build(), objects, errors))
            ++mNumRead;
        else
        {
            ++mNumRefused;
            ASSERT_FALSE(errors.GetEntries().empty());
        }
    }

    std::string ReadToolError(const Bytes& inCompound) const
    {
        return mBuild.ReadError(HandMadeContainer{.SchemaText = mSchemaText, .Objects = {{"Shop::Tool", inCompound}}}.Build());
    }

    Build mBuild = Build::With<Shop::Shelf, Shop::Tool, Shop::Line, Shop::PointOfSale>();
    std::string mSchemaText = MakeSchemaText([](Schema&) {});
    int mNumRead = 0;
    int mNumRefused = 0;
};

constexpr const char* sOverrun = "6: The data are corrupt: a value goes beyond their end";

TEST_F(ContainerDamageTest, EveryChangedByteIsNoticed)
{
    const auto read = [this](const Bytes& inFile)
    {
        WriteFile("file", std::string(inFile.begin(), inFile.end()));
        BinaryFileReader reader = mBuild.MakeFileReader();
        Objects objects;
        ReaderErrorState errors;
        const bool isRead = reader.Open(At("file"), errors) && reader.ReadObjects(objects, errors);
        objects.clear();
        EXPECT_TRUE(isRead || !mBuild.Read(inFile, objects, errors)) << "from memory, in one of today's versions";
        return isRead;
    };
    const RootObject item{"Shop::Item", gSized({gString("saw"), gNumber(int64_t{7})})};
    const std::string schemaText = MakeSchemaText(
        [](Schema& ioSchema)
        {
            ioSchema = Schema();
            ioSchema.Add(RTTI::gTypeOf<Shop::Item>());
        });
    for (const uint32_t version : {1U, 2U, 3U, 4U})
    {
        SCOPED_TRACE(testing::Message() << "version " << version);
        const HandMadeContainer container{.Version = version, .SchemaText = schemaText, .Objects = {item}};
        const Bytes whole = version < 3 ? container.BuildWithoutTable() : container.Build();
        ASSERT_TRUE(read(whole));
        const size_t rootCount = whole.size() - item.GetBytes().size() - sizeof(uint64_t);
        for (size_t place = 0; place < whole.size(); ++place)
        {
            SCOPED_TRACE(place);
            Bytes damaged = whole;
            damaged[place] ^= 0x80;
            // The upper half of the root count, which nobody reads.
            const bool isUnread = version >= 3 && place >= rootCount + sizeof(uint32_t) && place < rootCount + sizeof(uint64_t);
            ASSERT_TRUE(isUnread || !read(damaged));
            damaged.resize(place);
            ASSERT_FALSE(read(damaged));
        }
    }
}

// Holes cost nothing on a disk, but memory when they are read.
TEST_F(ContainerDamageTest, AFileLargerThanMemoryIsRefused)
{
    constexpr uint64_t size = uint64_t{8} << 40;
    const auto readGrown = [this](const Bytes& inFile)
    {
        WriteFile("file", std::string(inFile.begin(), inFile.end()));
        std::filesystem::resize_file(At("file"), size);
        BinaryFileReader reader = mBuild.MakeFileReader();
        Objects objects;
        ReaderErrorState errors;
        EXPECT_FALSE(reader.Open(At("file"), errors) && reader.ReadObjects(objects, errors));
        return errors.GetEntries().empty() ? std::string() : errors.GetEntries().front().Message;
    };
    const HandMadeContainer container{.SchemaText = mSchemaText, .Objects = {}};
    HandMadeContainer old = container;
    old.Version = 2;
    const std::string unreadable = "There was an error reading from file";
    EXPECT_THAT(readGrown(container.Build()), testing::HasSubstr(unreadable));
    EXPECT_THAT(readGrown(old.BuildWithoutTable()), testing::HasSubstr(unreadable));
    Bytes header = container.Build();
    const uint64_t headerSize = size - 2 * sizeof(uint64_t);
    std::memcpy(header.data() + sizeof(uint64_t), &headerSize, sizeof(headerSize));
    EXPECT_THAT(readGrown(header), testing::HasSubstr("bytes available for reading"));
}

TEST_F(ContainerDamageTest, AnyByteMayChangeUnderHashesThatFit)
{
    constexpr uint32_t seed = 8;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Shop::RandomShop random(seed);
    for (int round = 0; round < 20; ++round)
    {
        const Bytes compound = MakeShelfCompound(random);
        for (size_t place = 0; place < compound.size(); ++place)
        {
            SCOPED_TRACE(place);
            HandMadeContainer container{.SchemaText = mSchemaText, .Objects = {{"Shop::Shelf", compound}}};
            container.Objects[0].Compound[place] = static_cast<uint8_t>(random.Below(256));
            ASSERT_NO_FATAL_FAILURE(ReadHostile(container));
        }
    }
    EXPECT_GT(mNumRead, 0);
    EXPECT_GT(mNumRefused, 0);
}

TEST_F(ContainerDamageTest, LengthsAreComparedWithWhatIsThere)
{
    const Bytes huge = gNumber(~uint64_t{0});
    EXPECT_EQ(ReadToolError(huge), sOverrun);
    EXPECT_EQ(ReadToolError(gSized({huge})), sOverrun) << "a text";
    EXPECT_EQ(ReadToolError(gSized({gString("a")})), sOverrun) << "a missing property";
    EXPECT_EQ(
        ReadToolError(gSized({gString("a"), gNumber(int64_t{1}), gNumber(uint8_t{1}), gString("null"), gNumber(uint8_t{0})})),
        "6: The data are corrupt: a value doesn't end where its size says");

    // A shelf up to its first array, whose count is one that no file can hold.
    const Bytes start = gJoin(
        {Bytes(30), gNumber(uint8_t{1}), Bytes(12), gString(""), gNumber(int16_t{3}), gSized({gNumber(1.0), gNumber(1.0F)})});
    for (const uint64_t count : {uint64_t{3}, uint64_t{1} << 32, uint64_t{1} << 63, ~uint64_t{0}})
    {
        const HandMadeContainer container{
            .SchemaText = mSchemaText,
            .Objects = {{"Shop::Shelf", gSized({start, gSized({gNumber(count), gNumber(uint32_t{0})})})}}};
        EXPECT_EQ(mBuild.ReadError(container.Build()), sOverrun);
    }
}

TEST_F(ContainerDamageTest, TablesAreComparedWithWhatIsThere)
{
    const auto read = [this](const std::vector<Bytes>& inTable)
    {
        Bytes block = gJoin({gString(mSchemaText), gJoin(inTable)});
        const uint64_t hash = Utility::gHash64(block.data(), block.size());
        return mBuild.ReadError(gJoin({gNumber(uint64_t{0x4F450C25D}), gNumber(uint64_t{block.size() + 8}), block, gNumber(hash),
                                       gNumber(uint64_t{0}), Bytes(100)}));
    };
    const std::string badHeader = "6: The buffer is corrupt: unable to read header";
    const std::string truncated = "6: Failed to read object. File appears to be truncated.";
    const Bytes huge = gNumber(~uint64_t{0});
    const Bytes one = gNumber(uint64_t{1});
    const Bytes none = gNumber(uint64_t{0});
    EXPECT_EQ(read({huge}), badHeader);
    EXPECT_EQ(read({one, gString("Shop::Tool"), none, none, huge}), badHeader);
    EXPECT_EQ(read({one, huge}), badHeader);
    EXPECT_EQ(read({one, gString("Shop::Tool"), huge, none, one, none, none, none}), truncated);
    EXPECT_EQ(read({one, gString("Shop::Tool"), one, none, one, huge, one, none}), truncated);
    EXPECT_EQ(read({one, gString("Shop::Tool"), one, none, one, one, huge, none}), truncated);

    // The same bytes again and again.
    const Bytes zeros(100);
    const Bytes section =
        gJoin({gNumber(uint64_t{8}), gNumber(uint64_t{100}), gNumber(Utility::gHash64(zeros.data(), zeros.size()))});
    EXPECT_EQ(read({one, gString("Shop::Tool"), none, none, gNumber(uint64_t{2}), section, section}),
              "6: Failed to read object. The sections of the file overlap.");
}

TEST_F(ContainerDamageTest, SchemasAreNotTrusted)
{
    EXPECT_EQ(ReadShelfError([](Schema& ioSchema) { ioSchema.Arrays.erase("A#uint16_t"); }),
              "6: The schema is corrupt: it lacks type A#uint16_t");
    EXPECT_EQ(ReadShelfError([](Schema& ioSchema) { ioSchema.Compounds["Shop::Point"] = nullptr; }),
              "6: The schema is corrupt: it lacks type Shop::Point");
    EXPECT_EQ(ReadShelfError([](Schema& ioSchema) { ioSchema.Enums.erase("Shop::ETemper"); }),
              "6: The schema is corrupt: it lacks type Shop::ETemper");
    for (const char* sizeType : {"double", "Shop::EColor", "nothing"})
        EXPECT_EQ(ReadShelfError([=](Schema& ioSchema) { ioSchema.Enums["Shop::ETemper"]->SizeType.TypeName = sizeType; }),
                  "6: Unable to retrieve enum size type for type Shop::ETemper");
}

TEST_F(ContainerDamageTest, TypesMustStayOfTheirKind)
{
    EXPECT_EQ(ReadShelfError([](Schema& ioSchema) { ioSchema.Arrays["A#uint16_t"]->EmbeddedType.TypeName = "int16_t"; }),
              "4: Compatibility issue: Type mismatch: object used to be of type int16_t and datatype 1, but is now of type "
              "uint16_t and datatype 1");
    EXPECT_EQ(ReadShelfError([](Schema& ioSchema) { ioSchema.Sets["S#uint64_t"]->ValueType.DataType = 2; }),
              "4: Compatibility issue: Type mismatch: object used to be of type uint64_t and datatype 2, but is now of type "
              "uint64_t and datatype 1");
    EXPECT_EQ(mBuild.ReadError(HandMadeContainer{.SchemaText = mSchemaText, .Objects = {{"Shop::EColor", gSized({})}}}.Build()),
              "4: Compatibility issue: Object Shop::EColor used to be a compound, but is now of type Shop::EColor");
}

// A stored name that begins with that of the class counts as that of the class. What it describes may be another one.
TEST_F(ContainerDamageTest, FieldsAreThoseOfTheClassThatIsRead)
{
    const Bytes line = gSized({gSized({gNumber(7.0), gNumber(1.0F)}), gNumber(int32_t{3})});
    const auto makeWith = [&](const std::string& inName)
    {
        const std::string schema = MakeSchemaText(
            [&](Schema& ioSchema)
            {
                ioSchema.Compounds["Shop::Line"]->Properties[0].Type.TypeName = inName;
                ioSchema.Compounds[inName] = std::make_unique<CompoundSchema>(*ioSchema.Compounds["Shop::Point"]);
            });
        return HandMadeContainer{.SchemaText = schema, .Objects = {{"Shop::Line", line}}}.Build();
    };
    const std::unique_ptr<Shop::Line> read = mBuild.ReadOne<Shop::Line>(makeWith("Shop::PointOfNobody"));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->Start, Shop::Point()) << "nobody knows the class that this was";
    EXPECT_EQ(read->Width, 3);
    EXPECT_EQ(mBuild.ReadError(makeWith("Shop::PointOfSale")),
              "6: The data are corrupt: an object of type Shop::Point stands under the name of another");
}

TEST_F(ContainerDamageTest, DeepObjectsAndCyclicSchemasEnd)
{
    Bytes tool = gSized({gString(""), gNumber(int64_t{0}), gNumber(uint8_t{1}), gString("null")});
    for (int depth = 0; depth < 5000; ++depth)
        tool = gSized({gString(""), gNumber(int64_t{0}), gNumber(uint8_t{1}), gString("Shop::Tool"), tool});
    EXPECT_EQ(ReadToolError(tool), "6: The data are corrupt: more than 500 objects lie in one another");

    // A removed property that is a pointer to a pointer of its own type.
    const std::string cyclic = R"({"Type": "Serialization::Schema",
        "Compounds": [{"Key": "Shop::Item", "Value": {"Type": "Serialization::CompoundSchema", "Version": 2,
            "Properties": [{"Name": "Gone", "Type": {"DataType": 5, "TypeName": "P#P"}}]}}],
        "Pointers": [{"Key": "P#P", "Value": {"Type": "Serialization::PointerSchema",
            "PointeeType": {"DataType": 5, "TypeName": "P#P"}}}]})";
    const Bytes item = gSized({gString("P#P"), gString("P#P"), gString("P#P")});
    EXPECT_EQ(mBuild.ReadError(HandMadeContainer{.SchemaText = cyclic, .Objects = {{"Shop::Item", item}}}.Build()), sOverrun);

    // A record that isn't there.
    const std::string empty = R"({"Type": "Serialization::Schema", "Compounds": [{"Key": "Shop::Item", "Value": {}}]})";
    EXPECT_EQ(mBuild.ReadError(HandMadeContainer{.SchemaText = empty, .Objects = {{"Shop::Item", item}}}.Build()),
              "6: The schema is corrupt: it lacks type Shop::Item");
}

} // namespace
} // namespace Serialization
